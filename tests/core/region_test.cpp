#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "formats/rla/rla_files.hpp"
#include "orx/region.h"
#include "orx/registry.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

using namespace orx::test;

class Region : public CleanErrors {
 protected:
  void TearDown() override {
    ORX_exit();
    CleanErrors::TearDown();
  }
  ORX_OBJECT *open(const ImageShape &shape) {
    const std::string path = dir_.file("region.rla");
    write_file(path, {shape});
    ORX_INFO info;
    ORX_info_init(&info);
    info.handle = STR_save(path.c_str());
    info.full_path = 1;
    ORX_OBJECT *object = ORX_open(&info, "r");
    ORX_info_cleanup(&info, 1);
    return object;
  }
  TempDir dir_;
};

// The stored sample of channel c at column x of line y (0 outside the
// active window), as expected_row lays it out.
uint32_t stored(const ORX_IFD &ifd, int c, int x, int y) {
  auto row = expected_row(ifd, c, y);
  const ORX_CHANNELS &g = *channel_groups(ifd)[static_cast<std::size_t>(c)];
  const std::size_t at = static_cast<std::size_t>(x - ifd.window.left) * sample_size(g);
  if (sample_size(g) == 1) return row[at];
  uint16_t v;
  std::memcpy(&v, &row[at], 2);
  return v;
}

TEST_F(Region, EveryLayoutScalesAndPlacesTheComponents) {
  ImageShape shape{{0, 11, 0, 5}, {0, 11, 0, 5}, {3, ORX_C_INTEGER, 10}, {1, ORX_C_INTEGER, 8}, {}};
  ORX_OBJECT *object = open(shape);
  ASSERT_NE(object, nullptr);
  const ORX_IFD ifd = describe(shape);
  struct Case {
    int layout, bytes, comps;
    double full;
  } cases[] = {{ORX_REGION_GREY16, 2, 1, 65535}, {ORX_REGION_RGBA16, 8, 4, 65535},
               {ORX_REGION_RGBA8, 4, 4, 255},   {ORX_REGION_GREY8, 1, 1, 255},
               {ORX_REGION_RGB8, 3, 3, 255}};
  for (const auto &k : cases) {
    SCOPED_TRACE(k.layout);
    std::vector<uint8_t> buf(12 * 6 * static_cast<std::size_t>(k.bytes), 0xEE);
    ASSERT_EQ(ORX_get_region(&object, 0, 11, 0, 5, buf.data(), -1, k.layout), 0);
    const float fc = static_cast<float>(k.full) / 1023.0f;
    const float fa = static_cast<float>(k.full) / 255.0f;
    for (int y = 0; y <= 5; ++y) {
      for (int x = 0; x <= 11; ++x) {
        for (int c = 0; c < k.comps; ++c) {
          const std::size_t at = (static_cast<std::size_t>(y) * 12 + x) * k.bytes +
                                 c * static_cast<std::size_t>(k.full > 255 ? 2 : 1);
          uint32_t got = buf[at];
          if (k.full > 255) got = static_cast<uint32_t>(buf[at] | (buf[at + 1] << 8));
          const float f = c == 3 ? fa : fc;
          const auto want = static_cast<uint32_t>(static_cast<float>(stored(ifd, c, x, y)) * f);
          ASSERT_EQ(got, want) << x << "," << y << " component " << c;
        }
      }
    }
  }
  ORX_close(object);
}

TEST_F(Region, GreyImagesFillRgbAndAlphaIsFullWithoutMatte) {
  ImageShape shape{{0, 3, 0, 1}, {0, 3, 0, 1}, {1, ORX_C_INTEGER, 8}, {}, {}};
  ORX_OBJECT *object = open(shape);
  ASSERT_NE(object, nullptr);
  const ORX_IFD ifd = describe(shape);
  uint16_t px[4 * 2 * 4];
  ASSERT_EQ(ORX_get_region(&object, 0, 3, 0, 1, px, -1, ORX_REGION_RGBA16), 0);
  for (int i = 0; i < 8; ++i) {
    const uint32_t v = stored(ifd, 0, i % 4, i / 4) * 257u;
    EXPECT_EQ(px[4 * i], v);
    EXPECT_EQ(px[4 * i + 1], v);
    EXPECT_EQ(px[4 * i + 2], v);
    EXPECT_EQ(px[4 * i + 3], 65535);
  }
  ORX_close(object);
}

TEST_F(Region, ClipsToTheActiveWindowWithZeros) {
  ImageShape shape{{0, 19, 0, 9}, {4, 15, 2, 7}, {3, ORX_C_INTEGER, 8}, {}, {}};
  ORX_OBJECT *object = open(shape);
  ASSERT_NE(object, nullptr);
  const ORX_IFD ifd = describe(shape);
  // One column left of the active window and two rows beyond its top.
  const int w = 1 + 12, h = 8;
  const int stride = w * 3 + 5;
  std::vector<uint8_t> buf(static_cast<std::size_t>(stride) * h, 0xEE);
  ASSERT_EQ(ORX_get_region(&object, 3, 15, 2, 9, buf.data(), stride, ORX_REGION_RGB8), 0);
  for (int r = 0; r < h; ++r) {
    const int y = 2 + r;
    for (int x = 3; x <= 15; ++x) {
      for (int c = 0; c < 3; ++c) {
        const uint8_t got = buf[static_cast<std::size_t>(r * stride + (x - 3) * 3 + c)];
        const uint32_t want = (x < 4 || y > 7) ? 0 : stored(ifd, c, x, y);
        ASSERT_EQ(got, want) << x << "," << y;
      }
    }
  }
  // Wholly outside: zeros, nothing read.
  std::vector<uint8_t> outside(4 * 2 * 4, 0xEE);
  ASSERT_EQ(ORX_get_region(&object, 16, 19, 0, 1, outside.data(), -1, ORX_REGION_RGBA8), 0);
  for (uint8_t b : outside) EXPECT_EQ(b, 0);
  ORX_close(object);
}

int g_region_calls = 0;
int own_region(void *, int32_t, int32_t, int32_t, int32_t, void *, int32_t, int32_t) {
  ++g_region_calls;
  orx__err = 0;
  return 7;
}

TEST_F(Region, RefusalsAndAFormatsOwnReader) {
  ErrorCapture cap;
  ImageShape shape{{0, 3, 0, 1}, {0, 3, 0, 1}, {3, ORX_C_INTEGER, 8}, {}, {}};
  ORX_OBJECT *object = open(shape);
  ASSERT_NE(object, nullptr);
  uint8_t buf[256];
  EXPECT_EQ(ORX_get_region(&object, 0, 3, 0, 1, buf, -1, 2), ORX_E_UNSUPPORTED);
  EXPECT_EQ(cap.last(), "rla cannot handle the requested action");
  object->region = own_region;
  EXPECT_EQ(ORX_get_region(&object, 0, 3, 0, 1, buf, -1, 2), 0);
  EXPECT_EQ(g_region_calls, 1);
  ORX_close(object);

  ImageShape wide{{0, 3, 0, 1}, {0, 3, 0, 1}, {3, ORX_C_FLOAT, 32}, {}, {}};
  object = open(wide);
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(ORX_get_region(&object, 0, 3, 0, 1, buf, -1, ORX_REGION_RGB8), ORX_E_UNSUPPORTED);
  ORX_close(object);
}

}  // namespace
