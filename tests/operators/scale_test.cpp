// The scale operator through real RLA images.
#include <gtest/gtest.h>

#include <string>

#include "support/images.hpp"
#include "orx/operators.h"
#include "support/fixtures.hpp"

namespace {

using namespace orx::test;

using Scale = ImageTest;

double value(int c, int32_t x, int32_t y) { return (x * 13 + y * 7 + c * 50) % 256; }

TEST_F(Scale, PansCropsIdentityAndConstants) {
  Groups g;
  g.window = g.active = {0, 39, 0, 19};
  const std::string path = dir_.file("s.rla");
  write_image(path, g, value);
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
  for (const Case &c : {Case{0.3f, 0.7f, 39.1f, 18.2f, 7, 3}, Case{10.25f, 5.5f, 12.5f, 7.0f, 30, 17}}) {
    ORX_OBJECT *h = open_image(path);
    orx__scale_operator(h, c.x0, c.y0, c.x1, c.y1, c.w, c.h);
    for (int32_t y = 0; y < c.h; ++y)
      for (int32_t x = 0; x < c.w; ++x) ASSERT_NEAR(read_sample(h, y, 0, x), 100 / 255.0, 1e-6);
    ORX_close(h);
  }
}

}  // namespace
