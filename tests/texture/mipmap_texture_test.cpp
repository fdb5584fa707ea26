// Mipmaps written through the "mipmap" process and read back by texture
// lookups, through real RLA files.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "orx/imp.h"
#include "orx/registry.h"
#include "orx/texture.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"
#include "support/images.hpp"
#include "texture/process.hpp"

namespace {

using namespace orx::test;
using Pixel = std::function<float(int32_t x, int32_t y, int c)>;

class Mipmap : public ImageTest {
 protected:
  void TearDown() override {
    orx::texture::reset();
    ImageTest::TearDown();
  }
};

// The host's request: one w x h image of `channels` colour channels,
// described by ifd (the test's own memory, so that failure injection leaves
// it alone).
ORX_INFO request(const std::string &path, ORX_IFD *ifd, int32_t w, int32_t h, int channels,
                 int32_t type) {
  *ifd = describe(sized(w, h, {channels, type, type == ORX_C_FLOAT ? 32 : 8}));
  ORX_INFO info;
  ORX_info_init(&info);
  info.handle = const_cast<char *>(path.c_str());
  info.full_path = 1;
  info.image_count = 1;
  info.images = ifd;
  return info;
}

// Writes a texture of the given pixels (values 0..1) through the process.
int make_texture(const std::string &path, int32_t w, int32_t h, int channels, int32_t type,
                 int32_t texture, const Pixel &pixel) {
  ORX_IFD ifd;
  ORX_INFO info = request(path, &ifd, w, h, channels, type);
  IMP_REQUEST req{"mipmap", 0, texture, 0, 0};
  ORX_OBJECT *object = IMP_open(&info, &req, "w");
  if (object == nullptr) return orx__err;
  return write_lines(object, [&](int c, int32_t x, int32_t y) {
    const float v = pixel(x, y, c);
    return type == ORX_C_FLOAT ? double{v} : double(std::lround(v * 255));
  });
}

TEST_F(Mipmap, LevelsAreBoxReductionsAndConstantsStayConstant) {
  const std::string path = dir_.file("t.rla");
  const Pixel pattern = [](int32_t x, int32_t y, int c) {
    return float((x * 37 + y * 11 + c * 50) % 256) / 255.0f;
  };
  ASSERT_EQ(make_texture(path, 37, 21, 3, ORX_C_INTEGER, IMP_TEXTURE_COLOR, pattern), 0);
  ORX_TEXTURE *t = ORX_tex_open(path.c_str(), IMP_TEXTURE_COLOR);
  ASSERT_NE(t, nullptr);
  std::vector<std::pair<int32_t, int32_t>> sizes;
  for (int32_t k = 0; k < ORX_tex_levels(t); ++k) {
    int32_t w, h;
    ASSERT_EQ(ORX_tex_level_size(t, k, &w, &h), 0);
    sizes.emplace_back(w, h);
  }
  EXPECT_EQ(sizes, (std::vector<std::pair<int32_t, int32_t>>{
                       {37, 21}, {18, 10}, {9, 5}, {4, 2}, {2, 1}, {1, 1}}));
  // Level 1 inside: the mean of each 2x2 block of level 0, within rounding.
  ORX_OBJECT *file = open_image(path, nullptr);
  ASSERT_NE(file, nullptr);
  const auto sample = [&](int k, int32_t x, int32_t y, int c) {
    void **rows = nullptr;
    EXPECT_EQ(file->scan(file->private_cell[k], y, &rows), 0);
    return static_cast<const uint8_t *>(rows[c])[x] / 255.0f;
  };
  for (int32_t y = 0; y < 9; ++y)
    for (int32_t x = 0; x < 17; ++x)
      for (int c = 0; c < 3; ++c) {
        const float mean = (sample(0, 2 * x, 2 * y, c) + sample(0, 2 * x + 1, 2 * y, c) +
                            sample(0, 2 * x, 2 * y + 1, c) + sample(0, 2 * x + 1, 2 * y + 1, c)) /
                           4;
        ASSERT_NEAR(sample(1, x, y, c), mean, 0.5f / 255) << x << "," << y;
      }
  ORX_close(file);
  ORX_tex_close(t);

  ASSERT_EQ(make_texture(path, 30, 7, 2, ORX_C_FLOAT, IMP_TEXTURE_COLOR,
                         [](int32_t, int32_t, int c) { return c == 0 ? 0.25f : 0.75f; }),
            0);
  t = ORX_tex_open(path.c_str(), IMP_TEXTURE_COLOR);
  ASSERT_NE(t, nullptr);
  std::mt19937 rng(1);
  std::uniform_real_distribution<float> u(-2.0f, 3.0f), f(0.0f, 2.0f);
  for (int i = 0; i < 2000; ++i) {
    float out[2];
    ASSERT_EQ(ORX_tex_lookup(t, u(rng), u(rng), f(rng), f(rng), ORX_WRAP_PERIODIC, out), 0);
    ASSERT_FLOAT_EQ(out[0], 0.25f);
    ASSERT_FLOAT_EQ(out[1], 0.75f);
  }
  ORX_tex_close(t);
}

TEST_F(Mipmap, BumpTexturesKeepThePlanesSlopeAtEveryLevel) {
  const std::string path = dir_.file("b.rla");
  const int32_t w = 40, h = 24;
  // h = 0.01 x + 0.02 y: slopes per unit of texture coordinate 0.01 w, 0.02 h.
  ASSERT_EQ(
      make_texture(path, w, h, 1, ORX_C_FLOAT, IMP_TEXTURE_BUMP,
                   [](int32_t x, int32_t y, int) { return 0.01f * float(x) + 0.02f * float(y); }),
      0);
  EXPECT_EQ(ORX_tex_open(path.c_str(), IMP_TEXTURE_COLOR), nullptr);
  EXPECT_EQ(orx__err, ORX_E_INVALID_TYPE);
  ORX_TEXTURE *t = ORX_tex_open(path.c_str(), IMP_TEXTURE_BUMP);
  ASSERT_NE(t, nullptr);
  ASSERT_EQ(ORX_tex_channels(t), 3);
  for (int32_t k = 0; k < ORX_tex_levels(t); ++k)
    for (float s : {0.3f, 0.5f, 0.8f}) {
      float out[3];
      ASSERT_EQ(ORX_tex_lookup(t, s, 0.5f, std::ldexp(1.0f, k) / w, 0.0f, ORX_WRAP_CLAMP, out), 0);
      EXPECT_NEAR(out[1], 0.01f * w, 1e-3f) << k;
      EXPECT_NEAR(out[2], 0.02f * h, 1e-3f) << k;
    }
  ORX_tex_close(t);
}

TEST_F(Mipmap, LookupsAtTexelsEdgesAndFootprints) {
  const std::string path = dir_.file("w.rla");
  const int32_t n = 8;
  const auto value = [](int32_t x, int32_t y) { return float(x + n * y) / 255.0f; };
  ASSERT_EQ(make_texture(path, n, n, 1, ORX_C_INTEGER, IMP_TEXTURE_SCALAR,
                         [&](int32_t x, int32_t y, int) { return value(x, y); }),
            0);
  ORX_TEXTURE *t = ORX_tex_open(path.c_str(), IMP_TEXTURE_SCALAR);
  ASSERT_NE(t, nullptr);
  const auto at = [&](float s, float tt, float ds, int wrap) {
    float out = -1.0f;
    EXPECT_EQ(ORX_tex_lookup(t, s, tt, ds, ds, wrap, &out), 0);
    return out;
  };
  const float tiny = 1e-4f, centre = 0.5f / n;
  EXPECT_NEAR(at(3 * 2 * centre + centre, 5 * 2 * centre + centre, tiny, ORX_WRAP_BLACK),
              value(3, 5), 1e-6f);
  // Texel -2 of row 0 under each wrap mode.
  const float left = -1.5f / n;
  EXPECT_EQ(at(left, centre, tiny, ORX_WRAP_BLACK), 0.0f);
  EXPECT_NEAR(at(left, centre, tiny, ORX_WRAP_CLAMP), value(0, 0), 1e-6f);
  EXPECT_NEAR(at(left, centre, tiny, ORX_WRAP_PERIODIC), value(n - 2, 0), 1e-6f);
  EXPECT_NEAR(at(left, centre, tiny, ORX_WRAP_MIRROR), value(1, 0), 1e-6f);
  // The whole texture as footprint: the 1x1 level, the mean of all texels.
  float mean = 0;
  for (int32_t y = 0; y < n; ++y)
    for (int32_t x = 0; x < n; ++x) mean += value(x, y) / (n * n);
  EXPECT_NEAR(at(0.3f, 0.6f, 1.0f, ORX_WRAP_CLAMP), mean, 1.0f / 255);

  // A cache holding every row reads each row once, whatever the lookups;
  // a small cache never holds more than its bound.
  std::mt19937 rng(9);
  std::uniform_real_distribution<float> u(0.0f, 1.0f);
  for (uint32_t rows : {64u, 4u}) {
    ASSERT_EQ(ORX_tex_set_cache(t, rows), 0);
    uint64_t before, read;
    uint32_t held;
    ORX_tex_stats(t, &before, nullptr);
    for (int i = 0; i < 250000; ++i) {
      float out;
      ORX_tex_lookup(t, u(rng), u(rng), u(rng) * 0.3f, 0.0f, ORX_WRAP_PERIODIC, &out);
    }
    ORX_tex_stats(t, &read, &held);
    EXPECT_LE(held, rows);
    if (rows == 64) {
      EXPECT_LE(read - before, 8u + 4 + 2 + 1);
    }
  }
  ORX_tex_close(t);
}

TEST_F(Mipmap, RefusalsAndOutOfMemory) {
  const std::string path = dir_.file("m.rla");
  const Pixel grey = [](int32_t, int32_t, int) { return 0.5f; };
  ASSERT_EQ(make_texture(path, 16, 8, 3, ORX_C_INTEGER, IMP_TEXTURE_COLOR, grey), 0);
  ErrorCapture errors;
  ORX_INFO info;
  ORX_info_init(&info);
  info.handle = const_cast<char *>(path.c_str());
  info.full_path = 1;
  IMP_REQUEST req{"mipmap", 0, IMP_TEXTURE_SCALAR, 0, 0};
  EXPECT_EQ(IMP_open(&info, &req, "r"), nullptr);
  EXPECT_TRUE(errors.has(orx::Msg::kMipmapMismatch, "color")) << errors.last();
  req.texture_type = IMP_TEXTURE_COLOR;
  ORX_OBJECT *object = IMP_open(&info, &req, "r");
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->info.image_count, 5);
  ORX_close(object);

  // Lines out of order are refused.
  ORX_IFD ifd;
  const std::string out = dir_.file("o.rla");
  ORX_INFO w = request(out, &ifd, 4, 4, 1, ORX_C_INTEGER);
  object = IMP_open(&w, &req, "w");
  ASSERT_NE(object, nullptr);
  uint8_t row[4] = {};
  void *rows[2] = {row, nullptr};
  EXPECT_EQ(ORX_scan_write(object, 1, rows), ORX_E_BAD_SCANLINE);
  ORX_close(object);

  IMP_info();  // the library and the frame are up: the sweeps cover the work itself
  for_each_reported_allocation_failure([&] {
    return make_texture(dir_.file("s.rla"), 9, 5, 2, ORX_C_INTEGER, IMP_TEXTURE_COLOR, grey);
  });
  for_each_reported_allocation_failure([&] {
    ORX_TEXTURE *t = ORX_tex_open(path.c_str(), IMP_TEXTURE_COLOR);
    if (t == nullptr) return orx__err;
    float colour[3];
    const int status = ORX_tex_lookup(t, 0.5f, 0.5f, 0.1f, 0.1f, ORX_WRAP_CLAMP, colour);
    ORX_tex_close(t);
    return status;
  });
}

}  // namespace
