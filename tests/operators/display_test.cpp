// The display chain through real RLA images.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "support/images.hpp"
#include "orx/fmt.h"
#include "orx/operators.h"
#include "support/fixtures.hpp"

namespace {

using namespace orx::test;

class Display : public ImageTest {
 protected:
  void TearDown() override {
    FB_exit();
    ImageTest::TearDown();
  }
};

// A picture too large for the framebuffer, 8-bit at gamma 2.2 in three grey
// bands: fitted inside it showing the same shape, every line read, and each
// band's grey linearised, quantized to the framebuffer's depth and encoded
// at its gamma.
TEST_F(Display, ALargeImageIsFittedAndEncodedForTheFramebuffer) {
  Groups g;
  g.gamma = 2.2f;
  g.window = g.active = {0, 1999, 0, 249};
  const std::string path = dir_.file("d.rla");
  write_image(path, g, [](int, int32_t x, int32_t) { return x < 600 ? 0 : x < 1200 ? 128 : 255; });
  ORX_OBJECT *h = open_image(path);
  ASSERT_NE(h, nullptr);
  const ORX_SCAN_FN plain = h->scan;
  const double picture = h->info.images[0].aspect_ratio;  // width / height as shown
  ORX__display(h, nullptr);  // the default framebuffer, "full"
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

}  // namespace
