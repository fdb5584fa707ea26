// Every layout each format plug-in stores, written and read back through the
// library; lossless formats exactly, lossy ones within a stated error.
// Metadata the formats carry must come back too, and damaged files must fail
// cleanly.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "orx/capability.h"
#include "orx/limits.h"
#include "orx/str.h"
#include "plugin_host.hpp"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"
#include "support/images.hpp"

namespace orx::test {
namespace {

constexpr int I = ORX_C_INTEGER;
constexpr int F = ORX_C_FLOAT;

// One channel layout of an image.
struct Layout {
  int32_t image, matte, aux;
  int32_t type, bits;
};

// One width x height image of the layout.
ORX_IFD describe(const Layout &l, int width, int height) {
  return describe(sized(width, height, {l.image, l.type, l.bits}, {l.matte, l.type, l.bits},
                        {l.aux, l.type, l.bits}));
}

// The pattern value of channel c at (x, y) as a value from 0 to 1 (integers)
// or as stored (floating point); smooth patterns suit lossy codecs.  Colour
// is associated with the matte, as in every image of the library: never
// above it.
double pattern_value(const Layout &l, int x, int y, int c, bool smooth) {
  if (c < l.image && l.matte > 0)
    return std::min(pattern_value(Layout{l.image, 0, 0, l.type, l.bits}, x, y, c, smooth),
                    pattern_value(l, x, y, l.image, smooth));
  const double top = std::ldexp(1.0, l.bits) - 1.0;
  if (smooth) {
    const double v = 0.5 + 0.4 * std::sin(x / 6.0 + c) * std::cos(y / 5.0 - c);
    return l.type != ORX_C_INTEGER ? static_cast<float>(v) : std::round(v * top) / top;
  }
  uint32_t h = static_cast<uint32_t>(x) * 73856093u ^ static_cast<uint32_t>(y) * 19349663u ^
               static_cast<uint32_t>(c + 1) * 83492791u;
  h ^= h >> 13;
  h *= 0x5bd1e995u;
  h ^= h >> 15;
  if (l.type != ORX_C_INTEGER) return (static_cast<int>(h % 2048) - 512) / 256.0;
  return (h & (l.bits >= 32 ? 0xffffffffu : (1u << l.bits) - 1u)) / top;
}

// Writes the pattern through the plug-ins (lines bottom to top, every
// step-th only); the status of close, or of the step that failed.
int write_pattern(ORX_INFO *request, const Layout &l, bool smooth, int step = 1) {
  ORX_OBJECT *object = ORX_open(request, "w");
  if (object == nullptr) return orx__err != 0 ? orx__err : -1;
  std::vector<int32_t> lines;
  for (int32_t y = 0; y <= request->images[0].window.top; y += step) lines.push_back(y);
  const ORX_IFD &d = object->info.images[0];
  return write_lines(
      object,
      [&](int c, int32_t x, int32_t y) {
        const double v = pattern_value(l, x, y, c, smooth) * unit_scale(group_of(d, c));
        return group_of(d, c).type == ORX_C_INTEGER ? std::round(v) : v;
      },
      lines, true);
}

// Reads path back, top row first (the file's own order, and the reverse of
// the writes), and returns the largest difference from the pattern as 0..1
// values; -1 when it does not open or a line fails.  The file's descriptor
// is copied to *read_back.  Nothing is allocated here, so that failure
// injection meets only the library and the plug-in.
double read_difference(const std::string &path, const Layout &l, bool smooth,
                       ORX_IFD *read_back) {
  ORX_OBJECT *object = open_image(path, nullptr);
  if (object == nullptr) return -1.0;
  const ORX_IFD ifd = object->info.images[0];
  if (read_back != nullptr) *read_back = ifd;
  double worst = 0.0;
  for (int y = ifd.window.top; y >= ifd.window.bottom; --y) {
    void **rows = nullptr;
    if (ORX_scan_read(object, y, &rows) != 0) {
      worst = -1.0;
      break;
    }
    for (int c = 0; c < std::min(channel_count(ifd), l.image + l.matte + l.aux); ++c)
      for (int x = 0; x <= ifd.window.right - ifd.window.left; ++x)
        worst = std::max(worst, std::fabs(get_unit(group_of(ifd, c), rows[c], x) -
                                          pattern_value(l, x, y, c, smooth)));
  }
  ORX_close(object);
  return worst;
}

struct Case {
  const char *key;
  const char *extension;
  Layout layout;
  double tolerance;  // largest difference read back, as 0..1 values
  bool smooth;       // a smooth pattern, for lossy codecs
  Layout expected;   // what the file reads as; none when it is refused
};

const Case kCases[] = {
    {"png", ".png", {1, 0, 0, I, 8}, 0, false, {1, 0, 0, I, 8}},
    {"png", ".png", {1, 1, 0, I, 8}, 0, false, {1, 1, 0, I, 8}},
    {"png", ".png", {3, 0, 0, I, 8}, 0, false, {3, 0, 0, I, 8}},
    {"png", ".png", {3, 1, 0, I, 8}, 0, false, {3, 1, 0, I, 8}},
    {"png", ".png", {1, 0, 0, I, 16}, 0, false, {1, 0, 0, I, 16}},
    {"png", ".png", {1, 1, 0, I, 16}, 0, false, {1, 1, 0, I, 16}},
    {"png", ".png", {3, 0, 0, I, 16}, 0, false, {3, 0, 0, I, 16}},
    {"png", ".png", {3, 1, 0, I, 16}, 0, false, {3, 1, 0, I, 16}},
    {"png", ".png", {1, 0, 0, I, 1}, 0, false, {1, 0, 0, I, 1}},
    {"png", ".png", {1, 0, 0, I, 2}, 0, false, {1, 0, 0, I, 2}},
    {"png", ".png", {1, 0, 0, I, 4}, 0, false, {1, 0, 0, I, 4}},
    // Widths PNG lacks are widened, which keeps every value.
    {"png", ".png", {3, 0, 0, I, 5}, 1.0 / 255, false, {3, 0, 0, I, 8}},
    {"png", ".png", {3, 1, 0, I, 12}, 1.0 / 65535, false, {3, 1, 0, I, 16}},
    // Mattes after the first are dropped (said as narrowed), not refused.
    {"png", ".png", {3, 2, 0, I, 8}, 0, false, {3, 1, 0, I, 8}},
    // Two colour channels are no layout of PNG, TIFF or JPEG: refused.
    {"png", ".png", {2, 0, 0, I, 8}, 0, false, {}},
    {"tiff", ".tif", {2, 0, 0, I, 8}, 0, false, {}},
    {"jpeg", ".jpg", {2, 0, 0, I, 8}, 0, false, {}},
    {"tiff", ".tif", {1, 0, 0, I, 8}, 0, false, {1, 0, 0, I, 8}},
    {"tiff", ".tif", {3, 1, 0, I, 8}, 0, false, {3, 1, 0, I, 8}},
    {"tiff", ".tif", {3, 1, 2, I, 16}, 0, false, {3, 1, 2, I, 16}},
    {"tiff", ".tif", {1, 0, 3, I, 16}, 0, false, {1, 0, 3, I, 16}},
    {"tiff", ".tif", {3, 0, 0, I, 32}, 0, false, {3, 0, 0, I, 32}},
    {"tiff", ".tif", {3, 1, 1, F, 32}, 0, false, {3, 1, 1, F, 32}},
    {"tiff", ".tif", {1, 1, 0, F, 32}, 0, false, {1, 1, 0, F, 32}},
    {"tiff", ".tif", {3, 0, 0, I, 10}, 1.0 / 65535, false, {3, 0, 0, I, 16}},
    // One matte: a second is stored as an extra sample and reads as one.
    {"tiff", ".tif", {3, 2, 1, I, 8}, 0, false, {3, 1, 2, I, 8}},
    // Written as half by default: the float pattern is exact in half.
    {"exr", ".exr", {3, 1, 0, F, 32}, 0, false, {3, 1, 0, F, 32}},
    {"exr", ".exr", {1, 0, 0, F, 32}, 0, false, {1, 0, 0, F, 32}},
    {"exr", ".exr", {3, 1, 3, F, 32}, 0, false, {3, 1, 3, F, 32}},
    {"exr", ".exr", {1, 1, 1, F, 32}, 0, false, {1, 1, 1, F, 32}},
    {"exr", ".exr", {3, 0, 0, I, 16}, 1.0 / 1024, false, {3, 0, 0, F, 16}},
    // Quality 90 on a smooth picture; colour is subsampled 2x2, and this
    // picture's channels vary independently.
    {"jpeg", ".jpg", {1, 0, 0, I, 8}, 0.02, true, {1, 0, 0, I, 8}},
    {"jpeg", ".jpg", {3, 0, 0, I, 8}, 0.1, true, {3, 0, 0, I, 8}},
    {"jpeg", ".jpg", {3, 0, 0, F, 32}, 0.1, true, {3, 0, 0, I, 8}},
    // RGBE keeps 8 bits of mantissa below the largest channel (truncated):
    // within 1/256 of a smooth picture below 1; grey and a matte become RGB.
    {"hdr", ".hdr", {3, 0, 0, F, 32}, 1.0 / 256, true, {3, 0, 0, F, 32}},
    {"hdr", ".hdr", {1, 0, 0, F, 32}, 1.0 / 256, true, {3, 0, 0, F, 32}},
    {"hdr", ".hdr", {3, 1, 0, I, 8}, 1.0 / 256, true, {3, 0, 0, F, 32}},
    {"hdr", ".hdr", {2, 0, 0, F, 32}, 0, false, {}},
    // Netpbm: P5, P6 of the samples' own maxval, P4, PAM with a matte, PFM.
    {"pnm", ".pnm", {1, 0, 0, I, 8}, 0, false, {1, 0, 0, I, 8}},
    {"pnm", ".pnm", {3, 0, 0, I, 16}, 0, false, {3, 0, 0, I, 16}},
    {"pnm", ".pnm", {3, 0, 0, I, 10}, 0, false, {3, 0, 0, I, 10}},
    {"pnm", ".pnm", {1, 0, 0, I, 1}, 0, false, {1, 0, 0, I, 1}},
    {"pnm", ".pnm", {3, 1, 0, I, 8}, 0, false, {3, 1, 0, I, 8}},
    {"pnm", ".pnm", {1, 1, 0, I, 16}, 0, false, {1, 1, 0, I, 16}},
    {"pnm", ".pnm", {3, 0, 0, F, 32}, 0, false, {3, 0, 0, F, 32}},
    {"pnm", ".pnm", {1, 0, 1, F, 32}, 0, false, {1, 0, 0, F, 32}},
    {"pnm", ".pnm", {2, 0, 0, I, 8}, 0, false, {}},
    // DPX keeps 8, 10, 12, 16-bit and float samples; other widths are
    // widened.
    {"dpx", ".dpx", {1, 0, 0, I, 8}, 0, false, {1, 0, 0, I, 8}},
    {"dpx", ".dpx", {1, 0, 0, I, 10}, 0, false, {1, 0, 0, I, 10}},
    {"dpx", ".dpx", {3, 0, 0, I, 10}, 0, false, {3, 0, 0, I, 10}},
    {"dpx", ".dpx", {3, 1, 0, I, 12}, 0, false, {3, 1, 0, I, 12}},
    {"dpx", ".dpx", {3, 1, 2, I, 16}, 0, false, {3, 1, 0, I, 16}},
    {"dpx", ".dpx", {3, 1, 0, F, 32}, 0, false, {3, 1, 0, F, 32}},
    {"dpx", ".dpx", {1, 0, 0, ORX_C_DOUBLE, 64}, 0, false, {1, 0, 0, ORX_C_DOUBLE, 64}},
    {"dpx", ".dpx", {1, 0, 0, I, 5}, 1.0 / 255, false, {1, 0, 0, I, 8}},
    {"dpx", ".dpx", {2, 0, 0, I, 8}, 0, false, {}},
    {"sgi", ".sgi", {1, 0, 0, I, 8}, 0, false, {1, 0, 0, I, 8}},
    {"sgi", ".sgi", {1, 1, 0, I, 16}, 0, false, {1, 1, 0, I, 16}},
    {"sgi", ".sgi", {3, 0, 0, I, 16}, 0, false, {3, 0, 0, I, 16}},
    {"sgi", ".sgi", {3, 1, 2, I, 8}, 0, false, {3, 1, 2, I, 8}},
    // Only an RGBA picture has room for more channels; floats go in 16 bits.
    {"sgi", ".sgi", {3, 0, 1, F, 32}, 1.0 / 65535, true, {3, 0, 0, I, 16}},
    {"sgi", ".sgi", {2, 0, 0, I, 8}, 0, false, {}},
    // Lossy at quality 75, alpha kept whole; grey is stored as RGB.
    {"webp", ".webp", {3, 0, 0, I, 8}, 0.1, true, {3, 0, 0, I, 8}},
    {"webp", ".webp", {3, 1, 0, I, 16}, 0.1, true, {3, 1, 0, I, 8}},
    {"webp", ".webp", {1, 0, 0, I, 8}, 0.06, true, {3, 0, 0, I, 8}},
    // Targa and BMP store 8-bit grey, RGB and RGBA, narrowing the rest;
    // BMP's 1-bit grey reads as RGB, as OpenImageIO reads it.
    {"targa", ".tga", {1, 0, 0, I, 8}, 0, false, {1, 0, 0, I, 8}},
    {"targa", ".tga", {3, 1, 0, I, 8}, 0, false, {3, 1, 0, I, 8}},
    {"targa", ".tga", {3, 0, 1, I, 16}, 1.0 / 255, false, {3, 0, 0, I, 8}},
    {"targa", ".tga", {2, 0, 0, I, 8}, 0, false, {}},
    {"bmp", ".bmp", {1, 0, 0, I, 8}, 0, false, {1, 0, 0, I, 8}},
    {"bmp", ".bmp", {1, 0, 0, I, 1}, 0, false, {3, 0, 0, I, 8}},
    {"bmp", ".bmp", {3, 0, 0, I, 8}, 0, false, {3, 0, 0, I, 8}},
    {"bmp", ".bmp", {3, 1, 0, I, 8}, 0, false, {3, 1, 0, I, 8}},
    {"bmp", ".bmp", {3, 2, 0, I, 16}, 1.0 / 255, false, {3, 1, 0, I, 8}},
};

// Every test runs with the plug-ins loaded and the error service clean.
class PluginTest : public CleanErrors {
 protected:
  void SetUp() override {
    CleanErrors::SetUp();
    capture_.emplace();  // the refusals and damaged files are expected
    plugins_.emplace();
  }
  void TearDown() override {
    plugins_.reset();
    capture_.reset();
    CleanErrors::TearDown();
  }
  bool has(const char *key) const { return plugins_->has(key); }
  bool warned(const std::string &text) const { return capture_->has(ERR_WARNING, text); }
  // Opening path for reading fails at once with ORX_E_NOT_OUR_FILE and a
  // report saying says.
  void expect_refused(const std::string &path, const char *says, const char *type = nullptr) {
    EXPECT_EQ(open_image(path, type), nullptr) << says;
    EXPECT_EQ(orx__err, ORX_E_NOT_OUR_FILE) << says;
    EXPECT_NE(capture_->last().find(says), std::string::npos) << capture_->last();
  }

 private:
  std::optional<ErrorCapture> capture_;
  std::optional<FormatPlugins> plugins_;
};

class RoundTrip : public PluginTest, public ::testing::WithParamInterface<Case> {};

std::string describe_case(const ::testing::TestParamInfo<Case> &info) {
  const Case &c = info.param;
  return std::string(c.key) + "_" + std::to_string(c.layout.image) + "c" +
         std::to_string(c.layout.matte) + "m" + std::to_string(c.layout.aux) + "a_" +
         (c.layout.type == F ? "f" : "i") + std::to_string(c.layout.bits) + "_" +
         std::to_string(info.index);
}

// Each file also carries texts, chromaticities and (in PNG) a gamma, which
// come back; a layout the format cannot store is refused at open.
TEST_P(RoundTrip, ReadsBackWhatWasWritten) {
  const Case &c = GetParam();
  if (!has(c.key)) GTEST_SKIP() << c.key << " plug-in not built";
  TempDir dir;
  const std::string path = dir.file(std::string("image") + c.extension);
  Request r(nullptr, path, describe(c.layout, 37, 23));
  // Formats with every header text (DPX and Targa without chromaticities);
  // SGI keeps the description alone.
  const std::string key = c.key;
  const bool texts = key == "png" || key == "tiff" || key == "exr" || key == "dpx" || key == "targa";
  const bool metadata = texts || key == "sgi", primaries = texts && key != "dpx" && key != "targa";
  const float red[3] = {0.64f, 0.33f, 0.03f}, white[3] = {0.3127f, 0.329f, 0.3583f};
  if (metadata) {
    r.info.name = STR_save("shot 12");
    r.info.desc = STR_save("a test");
    r.info.program = STR_save("renderer");
    r.info.images[0].curve.gamma = 1.8f;
    std::memcpy(r.info.red, red, sizeof red);
    std::memcpy(r.info.white, white, sizeof white);
  }
  if (c.expected.image == 0) {
    EXPECT_EQ(write_pattern(&r.info, c.layout, c.smooth), ORX_E_UNSUPPORTED);
    return;
  }
  ASSERT_EQ(write_pattern(&r.info, c.layout, c.smooth), 0) << "writing " << path;

  ORX_IFD ifd;
  EXPECT_LE(read_difference(path, c.layout, c.smooth, &ifd), c.tolerance);
  EXPECT_EQ(ifd.window.right, 36);
  EXPECT_EQ(ifd.window.top, 22);
  const Layout &e = c.expected;
  EXPECT_EQ(ifd.image.count, e.image);
  EXPECT_EQ(ifd.matte.count, e.matte);
  EXPECT_EQ(ifd.aux.count, e.aux);
  for (const ORX_CHANNELS *g : {&ifd.image, &ifd.matte, &ifd.aux}) {
    if (g->count == 0) continue;
    EXPECT_EQ(g->type, e.type);
    EXPECT_EQ(g->bits, e.bits);
  }
  if (metadata) {
    ORX_OBJECT *object = open_image(path, nullptr);
    ASSERT_NE(object, nullptr);
    const ORX_INFO &info = object->info;
    EXPECT_STREQ(info.desc, "a test");
    if (texts) {
      EXPECT_STREQ(info.name, "shot 12");
      EXPECT_STREQ(info.program, "renderer");
      // The library's "{seconds}" stamp is stored as a date the format defines.
      EXPECT_TRUE(info.date != nullptr &&
                  std::regex_match(info.date, std::regex(R"(\d{4}:\d\d:\d\d \d\d:\d\d:\d\d)")));
      if (key == "png") {  // TIFF has no gamma, EXR is linear
        EXPECT_NEAR(info.images[0].curve.gamma, 1.8, 1e-4);
      }
      for (int i = 0; i < 3 && primaries; ++i) {
        EXPECT_NEAR(info.red[i], red[i], 1e-4);
        EXPECT_NEAR(info.white[i], white[i], 1e-4);
      }
    }
    ORX_close(object);
  }

  // Lines a host never writes come out zero in a lossless format, whatever
  // the memory under them held before (the sanitizer workflow fills fresh
  // memory with garbage).
  if (c.tolerance == 0) {
    const std::string gaps = dir.file(std::string("gaps") + c.extension);
    Request g(nullptr, gaps, describe(c.layout, 37, 23));
    ASSERT_EQ(write_pattern(&g.info, c.layout, c.smooth, 2), 0);
    ORX_OBJECT *object = open_image(gaps, nullptr);
    ASSERT_NE(object, nullptr);
    for (int y = 1; y <= 22; y += 2)
      for (int ch = 0; ch < channel_count(object->info.images[0]); ++ch)
        for (int x = 0; x <= 36; ++x)
          ASSERT_EQ(read_sample(object, y, ch, x), 0.0)
              << "line " << y << " channel " << ch << " x " << x;
    ORX_close(object);
  }

  // Any cut of the file fails with a status, at open or on a line, but PNG
  // and JPEG end with a marker after the pixels: cut in it, they read whole
  // with a warning.
  const auto size = std::filesystem::file_size(path);
  if (std::string(c.key) == "png" || std::string(c.key) == "jpeg") {
    std::filesystem::resize_file(path, size - 1);
    const double d = read_difference(path, c.layout, c.smooth, nullptr);
    EXPECT_TRUE(d >= 0 && d <= c.tolerance) << "cut at " << size - 1 << ": " << d;
    EXPECT_TRUE(warned(path)) << "no warning of the cut";
  }
  for (auto cut : {size / 2, std::uintmax_t{12}}) {
    std::filesystem::resize_file(path, cut);
    EXPECT_EQ(read_difference(path, c.layout, c.smooth, nullptr), -1.0) << "cut at " << cut;
    EXPECT_NE(orx__err, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, RoundTrip, ::testing::ValuesIn(kCases), describe_case);

// Stores the layout with each value of a setting: every value reads back
// exactly and gives a file of its own size, so the setting took effect.
struct SettingCase {
  const char *key;
  const char *extension;
  Layout layout;
  int32_t index;
  std::vector<int32_t> values;
  double tolerance;
};

TEST_F(PluginTest, SettingsEveryValueOfASettingRoundTrips) {
  const SettingCase cases[] = {
      {"png", ".png", {3, 1, 0, I, 8}, 0, {0, 1, 9}, 0},
      {"tiff", ".tif", {3, 1, 0, I, 16}, 0, {0, 1, 2, 3}, 0},
      {"tiff", ".tif", {3, 0, 1, F, 32}, 1, {0, 64, 256}, 0},
      {"exr", ".exr", {3, 1, 0, F, 16}, 0, {0, 1, 2, 3, 4}, 1e-3},
      {"exr", ".exr", {3, 1, 0, F, 16}, 0, {5, 6, 8, 9}, 0.03},  // pxr24, b44, dwaa, dwab
      {"exr", ".exr", {3, 0, 1, F, 32}, 1, {0, 1}, 1e-3},
      {"jpeg", ".jpg", {3, 0, 0, I, 8}, 0, {20, 60, 98}, 0.3},
      {"hdr", ".hdr", {3, 0, 0, F, 32}, 0, {0, 1}, 1.0 / 256},
      {"pnm", ".pnm", {3, 0, 0, I, 8}, 0, {0, 1}, 0},
      {"dpx", ".dpx", {3, 0, 0, I, 8}, 0, {8, 10, 16, 32}, 1e-3},
      {"dpx", ".dpx", {1, 0, 0, I, 12}, 1, {1, 0}, 0},  // filled, packed
      {"sgi", ".sgi", {3, 1, 0, I, 16}, 0, {0, 1}, 0},
      {"webp", ".webp", {3, 1, 0, I, 8}, 0, {0, 1}, 0.15},
      {"webp", ".webp", {3, 0, 0, I, 8}, 1, {10, 50, 100}, 0.3},
      {"targa", ".tga", {3, 1, 0, I, 8}, 0, {0, 1}, 0},
  };
  for (const SettingCase &s : cases) {
    if (!has(s.key)) continue;
    TempDir dir;
    std::set<std::uintmax_t> sizes;
    for (int32_t value : s.values) {
      const std::string path = dir.file("set" + std::to_string(value) + s.extension);
      Request r(s.key, path, describe(s.layout, 64, 40));
      // Unset up to the setting's position, which holds the value.
      std::vector<ORX_CAP_SETTING> settings(static_cast<std::size_t>(s.index) + 1,
                                            ORX_CAP_SETTING{ORX_CAP_UNSET, {}});
      settings.back() = {ORX_CAP_INTEGER, {value}};
      std::vector<ORX_CAP_SETTING *> pointers;
      for (auto &one : settings) pointers.push_back(&one);
      pointers.push_back(nullptr);
      r.info.settings = pointers.data();
      const int written = write_pattern(&r.info, s.layout, true);
      r.info.settings = nullptr;  // the test's own
      ASSERT_EQ(written, 0) << s.key << " " << value;
      const double d = read_difference(path, s.layout, true, nullptr);
      EXPECT_GE(d, 0.0) << s.key << " " << value;
      EXPECT_LE(d, s.tolerance) << s.key << " " << value;
      sizes.insert(std::filesystem::file_size(path));
    }
    EXPECT_EQ(sizes.size(), s.values.size()) << s.key << ": two values gave files of one size";
  }
}

// A PNG header may claim any size, and a chunk any length, which libpng
// allocates before reading: a short file claiming more than its bytes can
// hold is refused at open, before anything of that size is allocated.
TEST_F(PluginTest, PngClaimingMoreThanItsBytesHoldIsRefused) {
  if (!has("png")) GTEST_SKIP();
  TempDir dir;
  const std::string path = dir.file("claims.png");
  const Layout l{3, 0, 0, I, 8};
  Request r(nullptr, path, describe(l, 9, 7));
  ASSERT_EQ(write_pattern(&r.info, l, false), 0);
  const std::string good = slurp(path);
  const auto crc = [](const std::string &b, std::size_t from, std::size_t n) {
    uint32_t c = 0xffffffffu;
    for (std::size_t i = from; i < from + n; ++i) {
      c ^= static_cast<uint8_t>(b[i]);
      for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xedb88320u & (0u - (c & 1u)));
    }
    return ~c;
  };
  const auto put32 = [](std::string &b, std::size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + i] = static_cast<char>(v >> (24 - 8 * i));
  };
  std::string huge = good;  // IHDR says 16384 x 16384
  put32(huge, 16, 16384);
  put32(huge, 20, 16384);
  put32(huge, 29, crc(huge, 12, 17));
  std::string text = good;  // a text chunk after IHDR says 1.6 GB
  text.insert(33, std::string("\x63\x64\x6e\x11tEXtkey\0value", 17));
  const struct {
    const std::string &bytes;
    const char *says;
  } cases[] = {{huge, "16384 x 16384 pixels cannot come out of"},
               {text, "a tEXt chunk of 1667526161 bytes runs past the end of the file"}};
  for (const auto &c : cases) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << c.bytes;
    expect_refused(path, c.says);
  }
}

// Radiance and Netpbm headers claiming more than their bytes hold, or what
// neither format defines, are refused at open; a run overrunning its
// scanline fails the read.
TEST_F(PluginTest, HdrAndPnmDamagedFilesAreRefused) {
  TempDir dir;
  const struct {
    const char *key, *bytes, *says;
  } cases[] = {
      {"hdr", "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Y 99999 +X 99999\n\2\2", "99999 x 99999 pixels"},
      {"hdr", "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n\n-Z 2 +X 2\n", "not one Radiance defines"},
      {"hdr", "#?RADIANCE\nFORMAT=24-bit_rgb\n\n-Y 2 +X 2\n", "neither 32-bit_rle_rgbe"},
      {"hdr", "#?RADIANCE\nFORMAT=32-bit_rle_rgbe\n", "its header has no end"},
      {"pnm", "P6\n99999 99999\n255\nab", "need more bytes than the file holds"},
      {"pnm", "P5 2 1 70000 ab", "not a number from 1 to 65535"},
      {"pnm", "P7\nWIDTH 2\nHEIGHT 1\nDEPTH 9\nMAXVAL 255\nENDHDR\n", "tuple type is none"},
      {"pnm", "P2\n3 2\n9\n1 2 3 4 5", "ends before its last sample"},
  };
  for (const auto &c : cases) {
    if (!has(c.key)) continue;
    const std::string path = dir.file(std::string("bad.") + c.key);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << c.bytes;
    expect_refused(path, c.says, c.key);
  }
  if (!has("hdr")) return;
  const std::string path = dir.file("overrun.hdr");
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      << "#?RADIANCE\n\n-Y 1 +X 8\n" << std::string("\2\2\0\x08\xff\1", 6) << std::string(12, '\1');
  ORX_OBJECT *object = open_image(path, "hdr");
  ASSERT_NE(object, nullptr);
  void **rows = nullptr;
  EXPECT_NE(ORX_scan_read(object, 0, &rows), 0);
  ORX_close(object);
}

// DPX files this reader does not decode, or whose sizes lie, are refused
// at open with the reason, before any row is allocated.
TEST_F(PluginTest, DpxUnreadableOrLyingHeadersAreRefused) {
  if (!has("dpx")) GTEST_SKIP();
  TempDir dir;
  const std::string path = dir.file("d.dpx");
  const Layout l{3, 0, 0, I, 10};
  Request r(nullptr, path, describe(l, 9, 7));
  ASSERT_EQ(write_pattern(&r.info, l, false), 0);
  const std::string good = slurp(path);
  const struct {
    std::size_t at;
    std::string bytes;
    const char *says;
  } cases[] = {{806, std::string("\0\1", 2), "run-length encoded image data is not supported"},
               {800, "\x64", "descriptor 100 is not supported"},
               {772, std::string("\0\x10", 2), "the file ends before its image data does"},
               {808, "\xff\xff\xff\0", "the file ends before its image data does"}};
  for (const auto &c : cases) {
    std::string bad = good;
    bad.replace(c.at, c.bytes.size(), c.bytes);
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bad;
    expect_refused(path, c.says);
  }
}

// Targa and BMP headers may claim any size and offset: what the rest of
// the file cannot hold is refused at open, before the plane is allocated;
// run-length data that overruns the image is read with a warning.
TEST_F(PluginTest, TargaAndBmpClaimingMoreThanTheirBytesAreRefused) {
  if (!has("targa") || !has("bmp")) GTEST_SKIP();
  TempDir dir;
  const auto file = [&](const char *name, std::string bytes) {
    std::ofstream(dir.file(name), std::ios::binary) << bytes;
    return dir.file(name);
  };
  const std::string tga(std::string("\0\0\x0a\0\0\0\0\0\0\0\0\0\xff\xff\xff\xff\x20\x20", 18));
  const std::string bmp = std::string("BM\0\0\0\0\0\0\0\0\x36\0\0\0(\0\0\0", 18) +
                          std::string("\x10\0\0\0\x10\0\0\0\x01\0\x18\0", 12) + std::string(24, '\0');
  expect_refused(file("huge.tga", tga + std::string(40, '\xff')), "65535 x 65535 pixels cannot");
  expect_refused(file("short.bmp", bmp + std::string(100, '\0')), "16 x 16 pixels cannot");
  std::string far = bmp + std::string(16 * 48, '\0');
  far[13] = '\x7f';
  expect_refused(file("far.bmp", far), "lies outside the file");
  // A run of 255 pixels into a 16 x 16 picture of 8-bit indices, RLE8.
  std::string rle = bmp + std::string("\xff\x01\0\x01", 4);
  rle[28] = 8;
  rle[30] = 1;
  ORX_OBJECT *object = open_image(file("over.bmp", rle), nullptr);
  ASSERT_NE(object, nullptr);
  void **rows = nullptr;
  EXPECT_EQ(ORX_scan_read(object, 0, &rows), 0);
  EXPECT_TRUE(warned("run-length pixels fall outside"));
  ORX_close(object);
}

// Damaged EXR headers are refused at open: a channel list declared shorter
// than it is (then a string attribute declaring 1.9 GB), a damaged tile
// header, and chunks beyond the memory limit (a data window far wider than
// the picture).  Damaged chunks behind sound headers are replayed by
// FuzzRegressionsReadCleanly.
TEST_F(PluginTest, ExrDamagedHeadersAreRefusedAtOpen) {
  if (!has("exr")) GTEST_SKIP();
  const std::string dir = std::string(ORX_TEST_SOURCE_ROOT) + "/plugins/fuzz/regressions/exr/";
  expect_refused(dir + "oom-chlist-desync", "exr: cannot open", "exr");
  expect_refused(dir + "crash-tile-header", "exr: cannot open", "exr");
  const int64_t limit = ORX_set_limit(ORX_LIMIT_ROW_MEMORY, 64 << 20);
  expect_refused(dir + "timeout-huge-tiles", "its chunks need more than the image memory limit",
                 "exr");
  ORX_set_limit(ORX_LIMIT_ROW_MEMORY, limit);
}

// Hostile SGI headers and tables, damaged WebP chunks: what points or
// reaches past the file is refused at open; a run past the end of its
// scanline, or an empty scanline, reads with a warning.
TEST_F(PluginTest, SgiAndWebpDamageIsRefusedOrWarned) {
  if (!has("sgi") || !has("webp")) GTEST_SKIP();
  TempDir dir;
  const auto be = [](std::string &b, std::size_t at, uint32_t v, int n) {
    for (int i = 0; i < n; ++i) b[at + i] = static_cast<char>(v >> (8 * (n - 1 - i)));
  };
  // A w x 2 RGB file; run-length: its 6 scanlines all at start, length long.
  const auto sgi = [&](int storage, uint32_t w, uint32_t start, uint32_t length, const char *data) {
    std::string b(560, '\0');
    for (auto [at, v] : {std::pair{0, 474}, {4, 3}, {6, int(w)}, {8, 2}, {10, 3}}) be(b, at, v, 2);
    b[2] = static_cast<char>(storage);
    b[3] = 1;
    for (int k = 0; k < 6; ++k) be(b, 512 + 4 * k, start, 4), be(b, 536 + 4 * k, length, 4);
    return b + data;
  };
  const std::string path = dir.file("bad.sgi");
  const struct {
    std::string bytes;
    const char *says;
  } refused[] = {{sgi(1, 8, 1000000, 2, "\x82\x01\x02"), "(2 bytes at 1000000) lies outside the file"},
                 {sgi(1, 8, 560, 1000, "\x82\x01\x02"), "(1000 bytes at 560) lies outside the file"},
                 {sgi(1, 8, 0, 0, "").substr(0, 530), "the tables of 6 scanlines run past the end"},
                 {sgi(0, 65535, 0, 0, ""), "65535 x 2 pixels of 3 channels cannot come out of"}};
  for (const auto &c : refused) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << c.bytes;
    expect_refused(path, c.says);
  }
  for (const auto &[bytes, says] : {std::pair{sgi(1, 8, 560, 2, "\x7f\x05"), "runs reaching past"},
                                    {sgi(1, 8, 560, 0, ""), "end short (completed with zeros)"}}) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    EXPECT_EQ(read_difference(path, Layout{3, 0, 0, I, 8}, false, nullptr) >= 0, true) << says;
    EXPECT_TRUE(warned(says)) << says;
  }
  const std::string webp = dir.file("bad.webp");
  const Layout l{3, 1, 0, I, 8};
  Request r(nullptr, webp, describe(l, 9, 7));
  ASSERT_EQ(write_pattern(&r.info, l, false), 0);
  std::string lying = slurp(webp), cut = lying.substr(0, lying.size() / 2);
  be(lying, 16, 0xf0ffff7f, 4);  // the first chunk's size, little-endian
  for (const auto &[bytes, says] : {std::pair{cut, "ends before its RIFF size (truncated)"},
                                    {lying, "damaged chunks (a size that lies"}}) {
    std::ofstream(webp, std::ios::binary | std::ios::trunc) << bytes;
    expect_refused(webp, says);
  }
}

// Short of memory anywhere in open, scan or close, a read or a write fails
// with -10 and a report, never a crash or a leak.
TEST_F(PluginTest, OutOfMemoryOpenAndScanReportEveryFailure) {
  for (const auto &[key, ext] :
       {std::pair{"png", ".png"}, {"tiff", ".tif"}, {"exr", ".exr"}, {"jpeg", ".jpg"},
        {"hdr", ".hdr"}, {"pnm", ".pnm"}, {"dpx", ".dpx"}, {"sgi", ".sgi"}, {"webp", ".webp"},
        {"targa", ".tga"}, {"bmp", ".bmp"}}) {
    if (!has(key)) continue;
    TempDir dir;
    const std::string path = dir.file(std::string("oom") + ext);
    const Layout l{3, 0, 0, I, 8};
    Request r(nullptr, path, describe(l, 9, 7));
    ASSERT_EQ(write_pattern(&r.info, l, false), 0);
    for_each_reported_allocation_failure([&] { return write_pattern(&r.info, l, false); });
    for_each_reported_allocation_failure([&] {
      const double d = read_difference(path, l, false, nullptr);
      return d >= 0.0 ? 0 : orx__err;
    });
  }
}

// Inputs the fuzzers found harmful, kept under plugins/fuzz/regressions/<key>:
// each is refused or read without a crash (the fuzz targets replay them with
// their memory limit as well).
TEST_F(PluginTest, FuzzRegressionsReadCleanly) {
  namespace fs = std::filesystem;
  const fs::path root = fs::path(ORX_TEST_SOURCE_ROOT) / "plugins/fuzz/regressions";
  std::error_code ec;
  for (const auto &dir : fs::directory_iterator(root, ec)) {
    const std::string key = dir.path().filename().string();
    if (!has(key.c_str())) continue;
    for (const auto &file : fs::directory_iterator(dir.path())) {
      ORX_OBJECT *object = open_image(file.path().string(), key.c_str());
      if (object == nullptr) continue;
      void **rows = nullptr;
      const ORX_IFD &ifd = object->info.images[0];
      for (int y = ifd.window.top; y >= ifd.window.bottom; --y)
        if (ORX_scan_read(object, y, &rows) != 0) break;
      ORX_close(object);
    }
  }
}

}  // namespace
}  // namespace orx::test
