// Colour matrices against published values, not against our own numbers.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "orx/clr.h"
#include "orx/err.h"
#include "orx/matrix.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

using Matrix = orx::test::CleanErrors;

// Rec. 709 primaries; white points D65 and D50 as x, y of their published XYZ.
constexpr float kRec709D65[8] = {0.64f, 0.33f, 0.30f, 0.60f, 0.15f, 0.06f, 0.3127266f, 0.3290231f};
constexpr float kD65[2] = {0.3127266f, 0.3290231f};
constexpr float kD50[2] = {0.3456704f, 0.3585043f};

void expect_3x3(const float m[16], const double want[9], double tolerance) {
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(m[(i / 3) * 4 + i % 3], want[i], tolerance) << i;
}

TEST_F(Matrix, Rec709AndBradfordMatchThePublishedMatrices) {
  float m[16];
  ASSERT_EQ(ORX_matrix_rgb_to_xyz(kRec709D65, m), 0);
  const double rec709[9] = {0.4124564, 0.3575761, 0.1804375, 0.2126729, 0.7151522,
                            0.0721750, 0.0193339, 0.1191920, 0.9503041};
  expect_3x3(m, rec709, 1e-4);
  ASSERT_EQ(ORX_matrix_bradford(kD65, kD50, m), 0);
  const double d65_to_d50[9] = {1.0478112,  0.0228866, -0.0501270, 0.0295424, 0.9904844,
                                -0.0170491, -0.0092345, 0.0150436, 0.7521316};
  expect_3x3(m, d65_to_d50, 1e-4);
}

// Products, inverses and transforms agree with each other on random
// matrices; an RGB-to-RGB conversion there and back is the identity.
TEST_F(Matrix, InversesProductsAndRoundTrips) {
  std::mt19937 rng(3);
  std::uniform_real_distribution<float> u(-1.0f, 1.0f);
  for (int round = 0; round < 100; ++round) {
    float a[16], inv[16], p[16];
    for (float &v : a) v = u(rng);
    if (ORX_matrix_invert(a, inv) != 0) continue;
    ORX_matrix_multiply(a, inv, p);
    float id[16];
    ORX_matrix_identity(id);
    for (int i = 0; i < 16; ++i) ASSERT_NEAR(p[i], id[i], 1e-3) << round;
  }
  const float wide[8] = {0.7347f, 0.2653f, 0.1152f, 0.8264f, 0.1566f, 0.0177f, 0.3457f, 0.3585f};
  float there[16], back[16];
  ASSERT_EQ(ORX_matrix_rgb_to_rgb(kRec709D65, wide, there), 0);
  ASSERT_EQ(ORX_matrix_rgb_to_rgb(wide, kRec709D65, back), 0);
  for (int i = 0; i < 50; ++i) {
    const float rgb[3] = {u(rng), u(rng), u(rng)};
    float out[3];
    ORX_matrix_transform(there, rgb, out);
    ORX_matrix_transform(back, out, out);
    for (int c = 0; c < 3; ++c) ASSERT_NEAR(out[c], rgb[c], 1e-5);
  }
  // White stays white, with Y = 1, in the target's own white.
  const float white[3] = {1, 1, 1};
  float xyz[3], to_xyz[16];
  ORX_matrix_rgb_to_xyz(wide, to_xyz);
  ORX_matrix_transform(there, white, xyz);
  ORX_matrix_transform(to_xyz, xyz, xyz);
  EXPECT_NEAR(xyz[1], 1.0f, 1e-5);
  EXPECT_NEAR(xyz[0] / (xyz[0] + xyz[1] + xyz[2]), wide[6], 1e-5);
}

TEST_F(Matrix, SingularAndDegenerateInputsAreRefused) {
  orx::test::ErrorCapture errors;
  float zero[16] = {}, out[16];
  EXPECT_EQ(ORX_matrix_invert(zero, out), -1);
  EXPECT_EQ(orx__err, ORX_E_INVALID_TYPE);
  EXPECT_TRUE(errors.last_is(orx::Msg::kSingularMatrix));
  const float line[8] = {0.1f, 0.1f, 0.2f, 0.2f, 0.3f, 0.3f, 0.3127f, 0.329f};
  EXPECT_EQ(ORX_matrix_rgb_to_xyz(line, out), -1);
  const float no_y[2] = {0.3f, 0.0f};
  EXPECT_EQ(ORX_matrix_bradford(kD65, no_y, out), -1);
  float flat_white[8];
  std::copy(kRec709D65, kRec709D65 + 6, flat_white);
  std::copy(no_y, no_y + 2, flat_white + 6);
  EXPECT_EQ(ORX_matrix_rgb_to_xyz(flat_white, out), -1);
  EXPECT_EQ(errors.size(), 4u);
  float chroma[8];
  EXPECT_EQ(ORX_chromaticities_of_framebuffer("full", chroma), 0);
  EXPECT_EQ(ORX_matrix_rgb_to_xyz(chroma, out), 0);
  EXPECT_EQ(ORX_chromaticities_of_framebuffer("no such", chroma), -1);
}

TEST(Spectrum, AnEqualEnergySpectrumIsTheEqualEnergyWhite) {
  std::vector<float> flat(81, 1.0f);  // 380 to 780 nm by 5
  float xyz[3];
  ASSERT_EQ(CLR_spectrum_to_xyz(flat.data(), 81, 380.0f, 5.0f, xyz), 0);
  const float sum = xyz[0] + xyz[1] + xyz[2];
  EXPECT_NEAR(xyz[0] / sum, 1.0f / 3, 1e-3);
  EXPECT_NEAR(xyz[1] / sum, 1.0f / 3, 1e-3);
  EXPECT_NEAR(xyz[1], 1.0f, 1e-6);
  EXPECT_EQ(CLR_spectrum_to_xyz(flat.data(), 81, 1000.0f, 5.0f, xyz), -1);  // beyond the table
  EXPECT_EQ(CLR_spectrum_to_xyz(flat.data(), 0, 380.0f, 5.0f, xyz), -1);
}

}  // namespace
