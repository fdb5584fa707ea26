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

TEST_F(Display, AnEightBitImageOnTheFullFramebuffer) {
  Groups g;
  g.gamma = 2.2f;
  g.window = g.active = {0, 15, 0, 7};
  const std::string path = dir_.file("d.rla");
  write_image(path, g, [](int, int32_t x, int32_t) { return x == 0 ? 0 : x == 1 ? 128 : 255; });
  ORX_OBJECT *h = open_image(path);
  ASSERT_NE(h, nullptr);
  const ORX_SCAN_FN plain = h->scan;
  ORX__display(h, "full");
  ASSERT_EQ(orx__err, 0);
  const FB_FRAMEBUFFER *full = FB_find("full");
  const ORX_IFD &d = h->info.images[0];
  EXPECT_EQ(d.image.type, ORX_C_INTEGER);
  EXPECT_EQ(d.image.bits, full->depth / 3);
  EXPECT_EQ(d.window.right, 15);  // it fits: no resize
  EXPECT_EQ(read_sample(h, 3, 0, 0), 0);
  EXPECT_EQ(read_sample(h, 3, 1, 5), 255);
  // 128 encoded at 2.2, linearised, quantized to 8 linear bits, encoded at
  // the framebuffer's gamma.
  const double linear = std::floor(std::pow(128 / 255.0, 2.2) * 255.95) / 255.0;
  EXPECT_NEAR(read_sample(h, 3, 2, 1), 255 * std::pow(linear, 1.0 / full->gamma), 4.0);
  EXPECT_EQ(ORX__display_remove(h), 1);
  EXPECT_EQ(h->scan, plain);
  EXPECT_EQ(h->info.images[0].image.bits, 8);
  EXPECT_EQ(ORX_close(h), 0);
}

TEST_F(Display, LargeImagesAreFittedToTheFramebuffer) {
  Groups g;
  g.window = g.active = {0, 1999, 0, 249};
  const std::string path = dir_.file("w.rla");
  write_image(path, g, [](int c, int32_t x, int32_t) { return (x + 40 * c) % 256; });
  ORX_OBJECT *h = open_image(path);
  const double picture = h->info.images[0].aspect_ratio;  // width / height as shown
  ORX__display(h, nullptr);  // the default framebuffer, "full"
  ASSERT_EQ(orx__err, 0);
  const FB_FRAMEBUFFER *fb = FB_find("full");
  const ORX_WINDOW out = h->info.images[0].window;
  const int32_t dw = out.right + 1, dh = out.top + 1;
  // It fits, touches one side, and shows the same shape.
  EXPECT_TRUE(dw <= fb->x_resolution && dh <= fb->y_resolution);
  EXPECT_TRUE(dw == fb->x_resolution || dh == fb->y_resolution);
  const double fb_pixel = fb->aspect / (double(fb->x_resolution) / fb->y_resolution);
  EXPECT_NEAR(dw * fb_pixel / dh, picture, picture * 0.01);
  for (int32_t y = 0; y < dh; ++y) {
    void **rows = nullptr;
    ASSERT_EQ(ORX_scan_read(h, y, &rows), 0);
  }
  EXPECT_EQ(ORX_close(h), 0);  // unwinds every layer (ASan: nothing leaks)
}

}  // namespace
