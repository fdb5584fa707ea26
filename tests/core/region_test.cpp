#include <algorithm>
#include <random>

#include "formats/rla/rla_files.hpp"
#include "orx/region.h"
#include "support/messages.hpp"

namespace {

using namespace orx::test;

class Region : public ImageTest {
 protected:
  ORX_OBJECT *open(const ImageShape &shape) {
    write_file(dir_.file("region.rla"), {shape});
    return open_image(dir_.file("region.rla"));
  }
};

// The stored sample of channel c at column x of line y, as expected_row
// lays it out.
uint32_t stored(const ORX_IFD &ifd, int c, int x, int y) {
  const ORX_CHANNELS &g = group_of(ifd, c);
  return static_cast<uint32_t>(get(g, expected_row(ifd, c, y).data(), x - ifd.window.left));
}

// Rectangles of the window read in every layout, at the rows' own stride
// or a wider one, each component checked against the stored samples: colour
// from channels 0, 1, 2 (channel 0 standing in for missing ones), alpha from
// position min(colours, 3) scaled by the mattes' width, full without a
// matte, and every component 0 outside the active window.  An image of four
// colours takes its alpha from the fourth colour channel, sized as a colour
// sample but scaled by the mattes' width: the file with the four-colour
// count has three colours and a matte, its descriptor made to say four
// colours and a 9-bit matte, so that position 3 of the rows is the fourth
// colour.
TEST_F(Region, EveryLayoutScalesPlacesAndClipsTheComponents) {
  const struct {
    Group image, matte;
    int colours, matte_bits;  // as the descriptor states them after the open
    ORX_WINDOW active;
  } shapes[] = {
      {{3, ORX_C_INTEGER, 10}, {1, ORX_C_INTEGER, 8}, 3, 8, {0, 11, 0, 5}},
      {{3, ORX_C_INTEGER, 8}, {1, ORX_C_INTEGER, 8}, 3, 8, {0, 11, 0, 5}},
      {{3, ORX_C_INTEGER, 16}, {1, ORX_C_INTEGER, 16}, 3, 16, {2, 9, 0, 5}},
      {{2, ORX_C_INTEGER, 12}, {1, ORX_C_INTEGER, 4}, 2, 4, {0, 11, 1, 4}},
      {{1, ORX_C_INTEGER, 8}, {}, 1, 8, {0, 11, 0, 5}},
      {{3, ORX_C_INTEGER, 8}, {}, 3, 8, {3, 9, 1, 4}},
      {{3, ORX_C_INTEGER, 8}, {1, ORX_C_INTEGER, 8}, 4, 9, {0, 11, 0, 5}},
  };
  struct Case {
    int layout, bytes, comps;
    float full;
  } cases[] = {{ORX_REGION_GREY16, 2, 1, 65535}, {ORX_REGION_RGBA16, 8, 4, 65535},
               {ORX_REGION_RGBA8, 4, 4, 255},   {ORX_REGION_GREY8, 1, 1, 255},
               {ORX_REGION_RGB8, 3, 3, 255}};
  std::mt19937 rng(5);
  for (const auto &s : shapes) {
    const ImageShape shape{{0, 11, 0, 5}, s.active, s.image, s.matte, {}};
    ORX_OBJECT *object = open(shape);
    ASSERT_NE(object, nullptr) << s.colours << " x " << s.image.bits;
    const ORX_IFD ifd = describe(shape);
    const int colours = s.colours;
    const int source[4] = {0, colours >= 2 ? 1 : 0, colours >= 3 ? 2 : 0, std::min(colours, 3)};
    for (const auto &k : cases) {
      for (int trial = 0; trial < 5; ++trial) {
        // The whole window, its last two columns (wholly outside an inset
        // active window), then random rectangles.
        ORX_WINDOW r{trial == 1 ? 10 : 0, 11, 0, 5};
        if (trial > 1) {
          r.left = int32_t(rng() % 12);
          r.right = r.left + int32_t(rng() % uint32_t(12 - r.left));
          r.bottom = int32_t(rng() % 6);
          r.top = r.bottom + int32_t(rng() % uint32_t(6 - r.bottom));
        }
        SCOPED_TRACE(testing::Message() << "layout " << k.layout << " bits " << shape.image.bits
                                        << " colours " << colours << " columns " << r.left << "-"
                                        << r.right << " lines " << r.bottom << "-" << r.top);
        const int width = r.right - r.left + 1, stride = trial % 2 == 0 ? -1 : width * k.bytes + 5;
        const auto pitch = static_cast<std::size_t>(stride < 0 ? width * k.bytes : stride);
        std::vector<uint8_t> buf(pitch * std::size_t(r.top - r.bottom + 1), 0xEE);
        // Stated again for every read: a read may reopen the file.
        object->info.images[0].image.count = s.colours;
        object->info.images[0].matte.bits = s.matte_bits;
        ASSERT_EQ(ORX_get_region(&object, r.left, r.right, r.bottom, r.top, buf.data(), stride, k.layout),
                  0);
        const float fc = k.full / static_cast<float>((1u << shape.image.bits) - 1);
        const float fa = k.full / static_cast<float>((1u << s.matte_bits) - 1);
        const std::size_t size = k.full > 255 ? 2 : 1;
        for (int y = r.bottom; y <= r.top; ++y)
          for (int x = r.left; x <= r.right; ++x)
            for (int c = 0; c < k.comps; ++c) {
              const std::size_t at =
                  std::size_t(y - r.bottom) * pitch + std::size_t((x - r.left) * k.bytes) + c * size;
              const uint32_t got = size == 2 ? uint32_t(buf[at] | (buf[at + 1] << 8)) : buf[at];
              const bool inside = x >= s.active.left && x <= s.active.right && y >= s.active.bottom &&
                                  y <= s.active.top;
              const float scaled = float(stored(ifd, source[c], x, y)) * (c == 3 ? fa : fc);
              const auto want = !inside                            ? 0u
                                : c == 3 && shape.matte.count == 0 ? static_cast<uint32_t>(k.full)
                                                                   : static_cast<uint32_t>(scaled);
              ASSERT_EQ(got, want) << x << "," << y << " component " << c;
            }
      }
    }
    ORX_close(object);
  }
}

int g_region_calls = 0;
int own_region(void *, int32_t, int32_t, int32_t, int32_t, void *, int32_t, int32_t) {
  ++g_region_calls;
  orx__err = 0;
  return 7;
}

TEST_F(Region, RefusalsNameTheFormatAndAFormatsOwnReaderTakesOver) {
  ErrorCapture cap;
  ImageShape shape{{0, 3, 0, 1}, {0, 3, 0, 1}, {3, ORX_C_INTEGER, 8}, {}, {}};
  ORX_OBJECT *object = open(shape);
  ASSERT_NE(object, nullptr);
  uint8_t buf[256];
  for (int layout : {2, 0, 4, 9, -1}) {
    EXPECT_EQ(ORX_get_region(&object, 0, 3, 0, 1, buf, -1, layout), ORX_E_UNSUPPORTED);
    EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED);
    EXPECT_EQ(cap.last(), orx::test::message(orx::Msg::kCannotHandleRequest, "rla"));
  }
  // Named by the object's type: the format's name, else the key, and an
  // unknown key is reported as such.
  char *type = object->info.type;
  for (const auto &[key, says] : {std::pair{"mem", "memory"}, {"dmo", "dmo"}}) {
    object->info.type = const_cast<char *>(key);
    EXPECT_EQ(ORX_get_region(&object, 0, 3, 0, 1, buf, -1, 2), ORX_E_UNSUPPORTED);
    EXPECT_EQ(cap.last(), orx::test::message(orx::Msg::kCannotHandleRequest, says));
  }
  EXPECT_TRUE(cap.has(orx::Msg::kUnknownKey));
  object->info.type = type;

  // Channels the conversion cannot take: none, integers wider than 16 bits, floats.
  ORX_IFD &ifd = object->info.images[0];
  const ORX_IFD kept = ifd;
  for (void (*change)(ORX_IFD &) : {+[](ORX_IFD &d) { d.image.count = 0; },
                                    +[](ORX_IFD &d) { d.image.bits = 17; },
                                    +[](ORX_IFD &d) {
                                      d.matte = {nullptr, 1, ORX_C_INTEGER, 24, 0};
                                    },
                                    +[](ORX_IFD &d) { d.image.type = ORX_C_FLOAT; }}) {
    change(ifd);
    EXPECT_EQ(ORX_get_region(&object, 0, 3, 0, 1, buf, -1, ORX_REGION_RGBA8), ORX_E_UNSUPPORTED);
    ifd = kept;
    // Found only after the zeros beside the active window are written; a
    // rectangle wholly outside it is only zeros.
    change(ifd);
    std::memset(buf, 0xEE, sizeof buf);
    EXPECT_EQ(ORX_get_region(&object, -2, 3, 0, 1, buf, -1, ORX_REGION_RGBA8), ORX_E_UNSUPPORTED);
    EXPECT_EQ(buf[0], 0);
    EXPECT_EQ(ORX_get_region(&object, 5, 6, 0, 1, buf, -1, ORX_REGION_RGBA8), 0);
    EXPECT_EQ(buf[0], 0);
    ifd = kept;
  }

  // Without a scan function the read fails with -16 and writes nothing.
  const ORX_SCAN_FN scan = object->scan;
  object->scan = nullptr;
  std::memset(buf, 0xEE, sizeof buf);
  EXPECT_EQ(ORX_get_region(&object, 0, 3, 0, 1, buf, -1, ORX_REGION_RGB8), ORX_E_UNSUPPORTED);
  EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED);
  EXPECT_EQ(buf[0], 0xEE);
  object->scan = scan;

  // A format's own reader gets every call, even a layout the core refuses.
  object->region = own_region;
  cap.clear();
  EXPECT_EQ(ORX_get_region(&object, 0, 3, 0, 1, buf, -1, 2), 0);
  EXPECT_EQ(g_region_calls, 1);
  EXPECT_EQ(cap.size(), 0u);
  ORX_close(object);
}

// The lines handed to the scan function, and the call on which it fails.
std::vector<int32_t> g_lines;
std::size_t g_fail_on = 0;
ORX_SCAN_FN g_scan = nullptr;
int failing_scan(void *data, int32_t line, void *channels) {
  g_lines.push_back(line);
  if (g_lines.size() == g_fail_on) {
    orx__err = ORX_E_READ;
    return ORX_E_READ;
  }
  return g_scan(data, line, channels);
}

TEST_F(Region, ReadsInStoredOrderAndStopsAtTheFirstFailingLine) {
  ImageShape shape{{0, 5, 0, 7}, {0, 5, 0, 7}, {1, ORX_C_INTEGER, 8}, {}, {}};
  ORX_OBJECT *object = open(shape);
  ASSERT_NE(object, nullptr);
  const bool upwards = (object->info.images[0].orientation & 1) != 0;
  g_scan = object->scan;
  object->scan = failing_scan;
  g_lines.clear();
  g_fail_on = 4;
  // The whole height, so that reaching the first line reads nothing before it.
  std::vector<uint8_t> buf(6 * 8, 0xEE);
  EXPECT_EQ(ORX_get_region(&object, 0, 5, 0, 7, buf.data(), -1, ORX_REGION_GREY8), ORX_E_READ);
  const std::vector<int32_t> order =
      upwards ? std::vector<int32_t>{0, 1, 2, 3} : std::vector<int32_t>{7, 6, 5, 4};
  ASSERT_EQ(g_lines, order);
  // The rows read before the failure are written, the others untouched.
  for (int32_t y = 0; y <= 7; ++y) {
    const bool written = std::find(order.begin(), order.begin() + 3, y) != order.begin() + 3;
    const uint8_t want =
        written ? static_cast<uint8_t>(stored(describe(shape), 0, 0, y)) : uint8_t{0xEE};
    EXPECT_EQ(buf[static_cast<std::size_t>(y) * 6], want) << y;
  }
  object->scan = g_scan;
  ORX_close(object);
}

}  // namespace
