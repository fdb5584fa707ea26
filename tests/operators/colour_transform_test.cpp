// The rgb and xyz transforms through real RLA images, against the matrices.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "support/images.hpp"
#include "orx/matrix.h"
#include "orx/operators.h"
#include "support/fixtures.hpp"

namespace {

using namespace orx::test;

using ColourTransform = ImageTest;

constexpr float kWide[8] = {0.7347f, 0.2653f, 0.1152f, 0.8264f, 0.1566f, 0.0177f, 0.3457f, 0.3585f};

// An 8-bit image of gamma 1: the transforms cast it, and read codes / 255.
TEST_F(ColourTransform, PixelsFollowTheMatricesAndTheRecordTheTarget) {
  Groups g;
  const std::string path = dir_.file("c.rla");
  write_image(path, g, [](int c, int32_t x, int32_t y) { return 40 * c + 10 * x + 3 * y; });
  ORX_OBJECT *h = open_image(path);
  ASSERT_NE(h, nullptr);
  float source[8], m[16];
  ORX_chromaticities_of_info(&h->info, source);
  const auto pixel = [&](int32_t x, int32_t y) {
    return std::array<float, 3>{float(read_sample(h, y, 0, x)), float(read_sample(h, y, 1, x)),
                                float(read_sample(h, y, 2, x))};
  };
  auto plain = pixel(3, 2);
  for (float &v : plain) v /= 255;
  orx__rgb_transform_operator(h, kWide);
  ASSERT_EQ(orx__err, 0);
  EXPECT_EQ(h->info.images[0].image.type, ORX_C_FLOAT);
  EXPECT_FLOAT_EQ(h->info.red[0], kWide[0]);
  ASSERT_EQ(ORX_matrix_rgb_to_rgb(source, kWide, m), 0);
  float want[3];
  ORX_matrix_transform(m, plain.data(), want);
  const auto wide = pixel(3, 2);
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(wide[std::size_t(c)], want[c], 1e-6);
  // And back again on top: the identity.
  orx__rgb_transform_operator(h, source);
  const auto back = pixel(3, 2);
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(back[std::size_t(c)], plain[std::size_t(c)], 1e-5);
  EXPECT_EQ(orx__colour_transform_remove(h), 1);
  EXPECT_EQ(orx__colour_transform_remove(h), 1);
  EXPECT_FLOAT_EQ(h->info.red[0], source[0]);
  EXPECT_EQ(h->info.images[0].image.type, ORX_C_INTEGER);  // the cast came off with it
  orx__xyz_transform_operator(h, 1);
  ASSERT_EQ(ORX_matrix_rgb_to_xyz(source, m), 0);
  ORX_matrix_transform(m, plain.data(), want);
  const auto xyz = pixel(3, 2);
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(xyz[std::size_t(c)], want[c], 1e-6);
  EXPECT_EQ(ORX_close(h), 0);
}

// 81 spectral samples (380 to 780 nm by 5) of a flat spectrum become the
// equal-energy white: XYZ (1, 1, 1) within the table's rounding.
TEST_F(ColourTransform, AFlatSpectrumBecomesTheEqualEnergyWhite) {
  Groups g;
  g.image = {nullptr, 81, ORX_C_FLOAT, 32, 0};
  g.matte = {nullptr, 1, ORX_C_FLOAT, 32, 0};
  g.window = g.active = {0, 3, 0, 1};
  const std::string path = "spectrum";  // a "mem" image: RLA stores fewer channels
  write_image(path, g, [](int c, int32_t x, int32_t) { return c == 81 ? 0.5 : 1.0 + x; }, "mem");
  ORX_OBJECT *h = open_image(path, "mem");
  ASSERT_NE(h, nullptr);
  orx__spectral_transform_operator(h, 1);
  ASSERT_EQ(orx__err, 0);
  ASSERT_EQ(h->info.images[0].image.count, 3);
  const double x = read_sample(h, 0, 0, 1), y = read_sample(h, 0, 1, 1), z = read_sample(h, 0, 2, 1);
  EXPECT_NEAR(y, 2.0, 1e-5);  // pixel 1 is a flat spectrum of 2
  EXPECT_NEAR(x / (x + y + z), 1.0 / 3, 1e-3);
  EXPECT_NEAR(y / (x + y + z), 1.0 / 3, 1e-3);
  EXPECT_FLOAT_EQ(static_cast<float>(read_sample(h, 0, 3, 1)), 0.5f);  // the matte passes
  EXPECT_EQ(orx__spectral_transform_remove(h), 1);
  EXPECT_EQ(h->info.images[0].image.count, 81);
  EXPECT_EQ(ORX_close(h), 0);
}

}  // namespace
