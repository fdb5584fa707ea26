// The operators through real RLA images: the cases of each operator that
// can break, and what they record in the description.
#include "orx/operators.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "orx/fmt.h"
#include "orx/matrix.h"
#include "support/fixtures.hpp"
#include "support/images.hpp"

namespace {

using namespace orx::test;

class Operators : public ImageTest {
 protected:
  void TearDown() override {
    FB_exit();
    ImageTest::TearDown();
  }
  std::string file(const Groups &g, const Sample &s, const char *name = "i.rla") {
    const std::string path = dir_.file(name);
    write_image(path, g, s);
    return path;
  }
};
using Scale = Operators;
using Display = Operators;
using ColourTransform = Operators;

// The cast's values and types for every width are checked by the random
// stacks, its removal under other layers by the selection's test.
TEST_F(Operators, CastLinearisesThroughTheTableAndLeavesFloatsAlone) {
  // Gamma 2.2 in 8 bits goes through the table; the description says 1.0.
  Groups g;
  g.gamma = 2.2f;
  ORX_OBJECT *h = open_image(file(g, [](int, int32_t x, int32_t) { return 32.0 * x; }));
  ASSERT_NE(h, nullptr);
  const ORX_SCAN_FN plain = h->scan;
  orx__cast_operator(h);
  EXPECT_EQ(h->info.images[0].curve.gamma, 1.0f);
  float *table = ORX_gamma_btof(2.2f);
  EXPECT_FLOAT_EQ(static_cast<float>(read_sample(h, 0, 2, 5)), table[160]);
  ORX_gamma_done(table);
  ORX_close(h);
  // All float: nothing pushed.
  g.image.type = g.matte.type = g.aux.type = ORX_C_FLOAT;
  g.image.bits = 32;
  h = open_image(file(g, [](int, int32_t, int32_t) { return 0.5; }));
  orx__cast_operator(h);
  EXPECT_EQ(h->scan, plain);
  ORX_close(h);
}

// The premultiplied clamp against the formula pixel by pixel, over values
// inside, above and below the matte, zero mattes and greys on both sides;
// lines outside the active window pass untouched.
TEST_F(Operators, ThePremultipliedClampMatchesTheFormulaOnTheActiveLines) {
  Groups g;
  g.image = {const_cast<char *>("rgb"), 3, ORX_C_FLOAT, 32, 0};
  g.matte = {nullptr, 1, ORX_C_FLOAT, 32, 0};
  g.window = g.active = {0, 99, 0, 4};
  std::mt19937 rng(7);
  std::vector<float> v(100 * 5 * 4);
  for (float &x : v) x = rng() % 5 == 0 ? 0.0f : float(int(rng() % 2000) - 500) / 1000.0f;
  const auto at = [&](int c, int32_t x, int32_t y) {
    return double{v[std::size_t((y * 100 + x) * 4 + c)]};
  };
  ORX_OBJECT *h = open_image(file(g, at));
  h->info.images[0].active.bottom = 1;  // the clamp works on lines 1 to 3 only
  h->info.images[0].active.top = 3;
  orx__clamp_operator(h);
  for (int32_t y = 0; y < 5; ++y)
    for (int32_t x = 0; x < 100; ++x) {
      float p[3] = {float(at(0, x, y)), float(at(1, x, y)), float(at(2, x, y))};
      const float a = float(at(3, x, y)), grey = (p[0] + p[1] + p[2]) * 0.3333333f;
      const auto out = [a](float s) { return s < 0.0f || s > a; };
      const bool active = y > 0 && y < 4, outside = out(p[0]) || out(p[1]) || out(p[2]);
      if (active && (a == 0.0f || (outside && grey <= 0.0f))) {
        p[0] = p[1] = p[2] = 0.0f;
      } else if (active && outside) {
        float t = 1.0f;
        for (float s : p)
          if (out(s)) t = std::min(t, ((s > a ? a : 0.0f) - grey) / (s - grey));
        for (float &s : p) s = grey > a ? a : (s - grey) * t + grey;
      }
      for (int c = 0; c < 3; ++c) ASSERT_EQ(read_sample(h, y, c, x), double{p[c]}) << x << "," << y;
    }
  ORX_close(h);
}

TEST_F(Operators, QuantizeTruncatesWithoutClampingBothWays) {
  Groups g;
  g.image = {nullptr, 2, ORX_C_FLOAT, 32, 0};
  g.matte = {nullptr, 1, ORX_C_FLOAT, 32, 0};
  const double values[] = {1.0, 0.999, 0.5, 0.0, 1.5};
  const uint8_t want[] = {255, 255, 127, 0, static_cast<uint8_t>(383)};
  ORX_OBJECT *h = open_image(file(g, [&](int, int32_t x, int32_t) { return values[x % 5]; }));
  const int32_t eight[2] = {ORX_C_INTEGER, 8};
  const int32_t *const targets[3] = {eight, nullptr, nullptr};
  orx__quantize_read_operator(h, targets);
  EXPECT_EQ(h->info.images[0].matte.type, ORX_C_FLOAT);  // no target: untouched
  for (int32_t x = 0; x < 5; ++x) EXPECT_EQ(read_sample(h, 0, 1, x), want[x]) << x;
  EXPECT_FLOAT_EQ(static_cast<float>(read_sample(h, 0, 2, 2)), 0.5f);
  EXPECT_EQ(orx__quantize_remove(h), 1);
  EXPECT_EQ(h->info.images[0].image.type, ORX_C_FLOAT);
  ORX_close(h);

  // A target of the group's own type at another width leaves it alone: the
  // rows keep the storage their description says.
  Groups bytes;
  ORX_OBJECT *b = open_image(file(
      bytes, [](int, int32_t, int32_t) { return 200; }, "b.rla"));
  const int32_t sixteen[2] = {ORX_C_INTEGER, 16};
  const int32_t *const wider[3] = {sixteen, sixteen, nullptr};
  orx__cast_operator(b);
  orx__quantize_read_operator(b, wider);  // float to 16 bits
  const double code = double(int32_t(float(200 / 255.0) * float(65535.95)));
  EXPECT_EQ(read_sample(b, 0, 0, 0), code);
  orx__quantize_read_operator(b, wider);  // 16 to 16: nothing to do, the codes stay
  EXPECT_EQ(read_sample(b, 0, 0, 0), code);
  ORX_close(b);

  // Writing: the caller hands floats for a file of 8-bit integers.
  Groups stored;
  stored.image.count = 1;
  ORX_IFD d = describe(stored);
  const std::string path = dir_.file("q.rla");
  h = open_write(path, &d);
  const int32_t floats[2] = {ORX_C_FLOAT, 32};
  const int32_t *const from_floats[3] = {floats, nullptr, nullptr};
  orx__quantize_write_operator(h, from_floats);  // the rows written below follow the description
  ASSERT_EQ(write_lines(h, [&](int, int32_t x, int32_t) { return values[x % 5]; }), 0);
  h = open_image(path);
  for (int32_t x = 0; x < 5; ++x) EXPECT_EQ(read_sample(h, 2, 0, x), want[x]) << x;
  ORX_close(h);
}

// The refusal of other widths is checked through orx copy --gamma.
TEST_F(Operators, GammaCorrectionSkipsAnEqualGammaAndUsesTheTable) {
  Groups g;
  g.gamma = 2.2f;
  ORX_OBJECT *h =
      open_image(file(g, [](int, int32_t x, int32_t) { return x == 7 ? 255 : 32 * x; }));
  ORX_RESPONSE_CURVE same{ORX_CURVE_PARAMETRIC, 2.2f, 0, 0, 1, 256, ORX_C_INTEGER, 8, nullptr};
  const ORX_SCAN_FN plain = h->scan;
  orx__gamma_operator(h, &same);
  EXPECT_EQ(h->scan, plain);
  ORX_RESPONSE_CURVE linear = same;
  linear.gamma = 1.0f;
  orx__gamma_operator(h, &linear);
  ASSERT_NE(h->scan, plain);
  EXPECT_EQ(read_sample(h, 1, 0, 0), 0);
  EXPECT_EQ(read_sample(h, 1, 0, 7), 255);
  EXPECT_NEAR(read_sample(h, 1, 0, 4), 255 * std::pow(128 / 255.0, 2.2), 2.0);
  EXPECT_EQ(orx__gamma_remove(h), 1);
  ORX_close(h);
}

TEST_F(Operators, SelectNarrowsAMultiImageHandle) {
  // A texture's levels make a file of several images.
  Groups g;
  ORX_OBJECT *single = open_image(file(g, [](int, int32_t, int32_t) { return 7; }));
  EXPECT_EQ(ORX__select(single, 0), single);
  EXPECT_EQ(single->info.image_count, 1);
  ORX_close(single);

  ORX_IFD levels[3];
  for (int i = 0; i < 3; ++i) {
    Groups level;
    level.window = level.active = {0, 7 >> i, 0, 3 >> i};
    levels[i] = describe(level);
  }
  const std::string path = dir_.file("m.rla");
  ORX_OBJECT *w = open_write(path, levels, 3);
  ASSERT_NE(w, nullptr);
  for (int i = 0; i < 3; ++i) {
    uint8_t row[8];
    void *rows[4] = {row, row, row, nullptr};
    for (int32_t y = 0; y <= 3 >> i; ++y) {
      std::memset(row, 10 * (i + 1) + y, sizeof row);
      ASSERT_EQ(w->scan(w->private_cell[i], y, rows), 0);
    }
  }
  ORX_close(w);
  ORX_OBJECT *h = open_image(path);
  ASSERT_EQ(h->info.image_count, 3);
  ORX__select(h, 2);
  EXPECT_EQ(h->info.image_count, 1);
  EXPECT_EQ(h->info.images[0].window.right, 1);
  EXPECT_EQ(read_sample(h, 0, 0, 0), 30);
  orx__cast_operator(h);  // layers above the selection read the selected image
  EXPECT_NEAR(read_sample(h, 0, 0, 0), 30 / 255.0, 1e-7);
  EXPECT_EQ(ORX__select_remove(h), 0);
  EXPECT_EQ(orx__cast_remove(h), 1);
  EXPECT_EQ(ORX__select_remove(h), 1);
  EXPECT_EQ(h->info.image_count, 3);
  EXPECT_EQ(read_sample(h, 1, 0, 0), 11);
  // Under a layer only image 0 can be selected: another image's data would
  // reach the layer's scan as its record.
  orx__cast_operator(h);
  ORX__select(h, 2);
  EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED);
  EXPECT_EQ(h->info.image_count, 3);
  EXPECT_NEAR(read_sample(h, 1, 0, 0), 11 / 255.0, 1e-7);
  EXPECT_EQ(ORX_close(h), 0);
}

// A "mem" image keeps the layout it was opened with when a layer retypes the
// description above it: the quantize write layer says float to the caller,
// the stored lines stay 8-bit.
TEST_F(Operators, MemImagesKeepTheirLayoutUnderALayer) {
  Groups g;
  g.matte.count = 1;
  ORX_IFD d = describe(g);
  ORX_OBJECT *w = open_write("retyped", &d, 1, "mem");
  ASSERT_NE(w, nullptr);
  const int32_t floats[2] = {ORX_C_FLOAT, 32};
  const int32_t *const from_floats[3] = {floats, floats, nullptr};
  orx__quantize_write_operator(w, from_floats);
  ASSERT_EQ(write_lines(w, [](int, int32_t x, int32_t) { return 0.2 * x; }), 0);
  ORX_OBJECT *h = open_image("retyped", "mem");
  ASSERT_NE(h, nullptr);
  for (int32_t y = 0; y < 4; ++y)
    for (int c = 0; c < 4; ++c) EXPECT_EQ(read_sample(h, y, c, 5), 255);
  EXPECT_EQ(ORX_close(h), 0);
}

TEST_F(Scale, PansCropsIdentityAndConstants) {
  const auto value = [](int c, int32_t x, int32_t y) -> double {
    return (x * 13 + y * 7 + c * 50) % 256;
  };
  Groups g;
  g.window = g.active = {0, 39, 0, 19};
  const std::string path = file(g, value);
  struct Case {
    float x0, y0, x1, y1;
    int32_t w, h;
  } exact[] = {{0, 0, 40, 20, 40, 20}, {5, 3, 25, 13, 20, 10}, {-2, 0, 18, 20, 20, 20}};
  for (const Case &c : exact) {
    ORX_OBJECT *h = open_image(path);
    orx__scale_operator(h, c.x0, c.y0, c.x1, c.y1, c.w, c.h);
    ASSERT_EQ(orx__err, 0);
    EXPECT_EQ(h->info.images[0].window.right, c.w - 1);
    for (int32_t y = 0; y < c.h; ++y)
      for (int32_t x = 0; x < c.w; ++x) {
        const int32_t sx = std::max(0, x + int32_t(c.x0)), sy = y + int32_t(c.y0);
        ASSERT_NEAR(read_sample(h, y, 1, x), value(1, sx, sy) / 255.0, 1e-6) << x << "," << y;
      }
    EXPECT_EQ(orx__scale_remove(h), 1);
    EXPECT_EQ(h->info.images[0].image.type, ORX_C_INTEGER);
    EXPECT_EQ(ORX_close(h), 0);
  }
  // A constant stays constant minified by any amount, and magnified.
  write_image(path, g, [](int, int32_t, int32_t) { return 100; });
  for (const Case &c :
       {Case{0.3f, 0.7f, 39.1f, 18.2f, 7, 3}, Case{10.25f, 5.5f, 12.5f, 7.0f, 30, 17}}) {
    ORX_OBJECT *h = open_image(path);
    orx__scale_operator(h, c.x0, c.y0, c.x1, c.y1, c.w, c.h);
    for (int32_t y = 0; y < c.h; ++y)
      for (int32_t x = 0; x < c.w; ++x) ASSERT_NEAR(read_sample(h, y, 0, x), 100 / 255.0, 1e-6);
    ORX_close(h);
  }
}

// A picture too large for the framebuffer, 8-bit at gamma 2.2 in three grey
// bands: fitted inside it showing the same shape, every line read, and each
// band's grey linearised, quantized to the framebuffer's depth and encoded
// at its gamma.
TEST_F(Display, ALargeImageIsFittedAndEncodedForTheFramebuffer) {
  Groups g;
  g.gamma = 2.2f;
  g.window = g.active = {0, 1999, 0, 249};
  ORX_OBJECT *h = open_image(file(g, [](int, int32_t x, int32_t) {
    return x < 600 ? 0 : x < 1200 ? 128 : 255;
  }));
  ASSERT_NE(h, nullptr);
  const ORX_SCAN_FN plain = h->scan;
  const double picture = h->info.images[0].aspect_ratio;  // width / height as shown
  ORX__display(h, nullptr);                               // the default framebuffer, "full"
  ASSERT_EQ(orx__err, 0);
  const FB_FRAMEBUFFER *fb = FB_find("full");
  const ORX_IFD &d = h->info.images[0];
  EXPECT_EQ(d.image.type, ORX_C_INTEGER);
  EXPECT_EQ(d.image.bits, fb->depth / 3);
  const int32_t dw = d.window.right + 1, dh = d.window.top + 1;
  // It fits, touches one side, and shows the same shape.
  EXPECT_TRUE(dw <= fb->x_resolution && dh <= fb->y_resolution);
  EXPECT_TRUE(dw == fb->x_resolution || dh == fb->y_resolution);
  const double fb_pixel = fb->aspect / (double(fb->x_resolution) / fb->y_resolution);
  EXPECT_NEAR(dw * fb_pixel / dh, picture, picture * 0.01);
  // 128 encoded at 2.2, linearised, quantized to 8 linear bits, encoded at
  // the framebuffer's gamma.
  const double linear = std::floor(std::pow(128 / 255.0, 2.2) * 255.95) / 255.0;
  for (int32_t y = 0; y < dh; ++y) {
    void **rows = nullptr;
    ASSERT_EQ(ORX_scan_read(h, y, &rows), 0);
    const auto *grey = static_cast<const uint8_t *>(rows[1]);
    ASSERT_EQ(grey[dw * 3 / 20], 0) << y;
    ASSERT_NEAR(grey[dw / 2], 255 * std::pow(linear, 1.0 / fb->gamma), 4.0) << y;
    ASSERT_EQ(grey[dw * 17 / 20], 255) << y;
  }
  EXPECT_EQ(ORX__display_remove(h), 1);
  EXPECT_EQ(h->scan, plain);
  EXPECT_EQ(h->info.images[0].image.bits, 8);
  EXPECT_EQ(ORX_close(h), 0);  // unwinds every layer (ASan: nothing leaks)
}

// An 8-bit image of gamma 1 in the rgb and xyz transforms: they cast it,
// and read codes / 255 through the matrices; the description records the
// target's primaries until the transform comes off.
TEST_F(ColourTransform, PixelsFollowTheMatricesAndTheRecordTheTarget) {
  const float wide_gamut[8] = {0.7347f, 0.2653f, 0.1152f, 0.8264f,
                               0.1566f, 0.0177f, 0.3457f, 0.3585f};
  ORX_OBJECT *h = open_image(
      file(Groups{}, [](int c, int32_t x, int32_t y) { return 40 * c + 10 * x + 3 * y; }));
  ASSERT_NE(h, nullptr);
  float source[8], m[16], want[3];
  ORX_chromaticities_of_info(&h->info, source);
  // Pixel (3, 2) as read now against the values it should have.
  const auto expect_pixel = [&](const float *from, double tolerance) {
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(read_sample(h, 2, c, 3), from[c], tolerance) << c;
  };
  float plain[3];
  for (int c = 0; c < 3; ++c) plain[c] = float(read_sample(h, 2, c, 3) / 255);
  orx__rgb_transform_operator(h, wide_gamut);
  ASSERT_EQ(orx__err, 0);
  EXPECT_EQ(h->info.images[0].image.type, ORX_C_FLOAT);
  EXPECT_FLOAT_EQ(h->info.red[0], wide_gamut[0]);
  ASSERT_EQ(ORX_matrix_rgb_to_rgb(source, wide_gamut, m), 0);
  ORX_matrix_transform(m, plain, want);
  expect_pixel(want, 1e-6);
  orx__rgb_transform_operator(h, source);  // and back again on top: the identity
  expect_pixel(plain, 1e-5);
  EXPECT_EQ(orx__colour_transform_remove(h), 1);
  EXPECT_EQ(orx__colour_transform_remove(h), 1);
  EXPECT_FLOAT_EQ(h->info.red[0], source[0]);
  EXPECT_EQ(h->info.images[0].image.type, ORX_C_INTEGER);  // the cast came off with it
  orx__xyz_transform_operator(h, 1);
  ASSERT_EQ(ORX_matrix_rgb_to_xyz(source, m), 0);
  ORX_matrix_transform(m, plain, want);
  expect_pixel(want, 1e-6);
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
  write_image(
      path, g, [](int c, int32_t x, int32_t) { return c == 81 ? 0.5 : 1.0 + x; }, "mem");
  ORX_OBJECT *h = open_image(path, "mem");
  ASSERT_NE(h, nullptr);
  orx__spectral_transform_operator(h, 1);
  ASSERT_EQ(orx__err, 0);
  ASSERT_EQ(h->info.images[0].image.count, 3);
  const double x = read_sample(h, 0, 0, 1), y = read_sample(h, 0, 1, 1),
               z = read_sample(h, 0, 2, 1);
  EXPECT_NEAR(y, 2.0, 1e-5);  // pixel 1 is a flat spectrum of 2
  EXPECT_NEAR(x / (x + y + z), 1.0 / 3, 1e-3);
  EXPECT_NEAR(y / (x + y + z), 1.0 / 3, 1e-3);
  EXPECT_FLOAT_EQ(static_cast<float>(read_sample(h, 0, 3, 1)), 0.5f);  // the matte passes
  EXPECT_EQ(orx__spectral_transform_remove(h), 1);
  EXPECT_EQ(h->info.images[0].image.count, 81);
  EXPECT_EQ(ORX_close(h), 0);
}

}  // namespace
