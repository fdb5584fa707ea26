// The operators through real RLA images: the cases of each operator that
// can break, the stacking rules, and failures at every allocation.
#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "orx/operators.h"
#include "support/fixtures.hpp"
#include "support/images.hpp"

namespace {

using namespace orx::test;

class Operators : public ImageTest {
 protected:
  std::string file(const Groups &g, const Sample &s, const char *name = "i.rla") {
    const std::string path = dir_.file(name);
    write_image(path, g, s);
    return path;
  }
};

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
  EXPECT_NE(h->scan, plain);
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
  const auto at = [&](int c, int32_t x, int32_t y) { return double{v[std::size_t((y * 100 + x) * 4 + c)]}; };
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
  ORX_OBJECT *b = open_image(file(bytes, [](int, int32_t, int32_t) { return 200; }, "b.rla"));
  const int32_t sixteen[2] = {ORX_C_INTEGER, 16};
  const int32_t *const wider[3] = {sixteen, sixteen, nullptr};
  orx__cast_operator(b);
  orx__quantize_read_operator(b, wider);  // float to 16 bits
  EXPECT_EQ(read_sample(b, 0, 0, 0), double(int32_t(float(200 / 255.0) * float(65535.95))));
  orx__quantize_read_operator(b, wider);  // 16 to 16: nothing to do
  EXPECT_EQ(b->info.images[0].image.bits, 16);
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
  ORX_OBJECT *h = open_image(file(g, [](int, int32_t x, int32_t) { return x == 7 ? 255 : 32 * x; }));
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

}  // namespace
