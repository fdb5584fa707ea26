// Every layout each format plug-in stores, written and read back through the
// library; lossless formats exactly, lossy ones within a stated error.
// Metadata the formats carry must come back too, and damaged files must fail
// cleanly.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <string>

#include "orx/capability.h"
#include "orx/limits.h"
#include "support/images.hpp"
#include "plugin_host.hpp"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace orx::test {
namespace {

constexpr int I = ORX_C_INTEGER;
constexpr int F = ORX_C_FLOAT;

struct Case {
  const char *key;
  const char *extension;
  Layout layout;
  double tolerance;  // largest difference read back, as 0..1 values
  bool smooth;       // a smooth pattern, for lossy codecs
  Layout expected;   // what the file reads as
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
  // Whether the plug-in of a file extension is there.
  bool has_extension(const std::string &ext) const {
    if (ext == ".tif") return has("tiff");
    if (ext == ".jpg") return has("jpeg");
    return has(ext.c_str() + 1);
  }
  std::string last_report() const { return capture_->last(); }
  // Opening path for reading fails at once with ORX_E_NOT_OUR_FILE and a
  // report saying says.
  void expect_refused(const std::string &path, const char *says, const char *type = nullptr) {
    EXPECT_EQ(open_image(path, type), nullptr) << says;
    EXPECT_EQ(orx__err, ORX_E_NOT_OUR_FILE) << says;
    EXPECT_NE(last_report().find(says), std::string::npos) << last_report();
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

TEST_P(RoundTrip, ReadsBackWhatWasWritten) {
  const Case &c = GetParam();
  if (!has(c.key)) GTEST_SKIP() << c.key << " plug-in not built";
  TempDir dir;
  const std::string path = dir.file(std::string("image") + c.extension);
  Request r(nullptr, path, describe(c.layout, 37, 23));
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

  // Any cut of the file fails with a status, at open or on a line.
  const auto size = std::filesystem::file_size(path);
  for (auto cut : {size / 2, size - 1, std::uintmax_t{12}}) {
    std::filesystem::resize_file(path, cut);
    EXPECT_EQ(read_difference(path, c.layout, c.smooth, nullptr), -1.0) << "cut at " << cut;
    EXPECT_NE(orx__err, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, RoundTrip, ::testing::ValuesIn(kCases), describe_case);

// Gamma, chromaticities and header texts survive a round trip.
TEST_F(PluginTest, MetadataGammaChromaticitiesAndTextsComeBack) {
  for (const char *ext : {".png", ".tif", ".exr"}) {
    if (!has_extension(ext)) continue;
    TempDir dir;
    const std::string path = dir.file(std::string("meta") + ext);
    const bool gamma = std::string(ext) == ".png";  // TIFF has no gamma, EXR is linear
    const Layout l{3, 0, 0, I, 8};
    Request r(nullptr, path, describe(l, 5, 4));
    r.info.name = STR_save("shot 12");
    r.info.desc = STR_save("a test");
    r.info.program = STR_save("renderer");
    r.info.images[0].curve.gamma = 1.8f;
    const float red[3] = {0.64f, 0.33f, 0.03f}, white[3] = {0.3127f, 0.329f, 0.3583f};
    std::memcpy(r.info.red, red, sizeof red);
    std::memcpy(r.info.white, white, sizeof white);
    ASSERT_EQ(write_pattern(&r.info, l, false), 0);

    ORX_OBJECT *object = open_image(path, nullptr);
    ASSERT_NE(object, nullptr) << ext;
    const ORX_INFO &info = object->info;
    EXPECT_STREQ(info.name, "shot 12") << ext;
    EXPECT_STREQ(info.desc, "a test") << ext;
    EXPECT_STREQ(info.program, "renderer") << ext;
    // The library's "{seconds}" stamp is stored as a date the format defines.
    ASSERT_NE(info.date, nullptr) << ext;
    EXPECT_TRUE(std::regex_match(info.date, std::regex(R"(\d{4}:\d\d:\d\d \d\d:\d\d:\d\d)")))
        << ext << ": " << info.date;
    if (gamma) {
      EXPECT_NEAR(info.images[0].curve.gamma, 1.8, 1e-4) << ext;
    }
    for (int i = 0; i < 3; ++i) {
      EXPECT_NEAR(info.red[i], red[i], 1e-4) << ext;
      EXPECT_NEAR(info.white[i], white[i], 1e-4) << ext;
    }
    ORX_close(object);
  }
}

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
      {"exr", ".exr", {3, 0, 1, F, 32}, 1, {0, 1}, 1e-3},
      {"jpeg", ".jpg", {3, 0, 0, I, 8}, 0, {20, 60, 98}, 0.3},
  };
  for (const SettingCase &s : cases) {
    if (!has(s.key)) continue;
    TempDir dir;
    std::vector<std::uintmax_t> sizes;
    for (int32_t value : s.values) {
      const std::string path = dir.file("set" + std::to_string(value) + s.extension);
      Request r(s.key, path, describe(s.layout, 64, 40));
      std::vector<ORX_CAP_SETTING> settings(static_cast<std::size_t>(s.index) + 1);
      std::vector<ORX_CAP_SETTING *> pointers;
      for (auto &one : settings) {
        one.code = ORX_CAP_UNSET;
        pointers.push_back(&one);
      }
      pointers.push_back(nullptr);
      settings.back().code = ORX_CAP_INTEGER;
      settings.back().value.i = value;
      r.info.settings = pointers.data();
      const int written = write_pattern(&r.info, s.layout, true);
      r.info.settings = nullptr;  // the test's own
      ASSERT_EQ(written, 0) << s.key << " " << value;
      const double d = read_difference(path, s.layout, true, nullptr);
      EXPECT_GE(d, 0.0) << s.key << " " << value;
      EXPECT_LE(d, s.tolerance) << s.key << " " << value;
      sizes.push_back(std::filesystem::file_size(path));
    }
    std::string listed;
    for (auto size : sizes) listed += " " + std::to_string(size);
    std::sort(sizes.begin(), sizes.end());
    EXPECT_EQ(std::unique(sizes.begin(), sizes.end()), sizes.end()) << s.key << listed;
  }
}

// Refusals name the format and what it cannot store.
TEST_F(PluginTest, RefusalsLayoutsAFormatCannotStoreAreRefusedAtOpen) {
  const struct {
    const char *ext;
    Layout layout;
  } refused[] = {
      {".png", {2, 0, 0, I, 8}},
      {".tif", {2, 0, 0, I, 8}},
      {".jpg", {2, 0, 0, I, 8}},
  };
  for (const auto &r : refused) {
    if (!has_extension(r.ext)) continue;
    TempDir dir;
    Request q(nullptr, dir.file(std::string("no") + r.ext), describe(r.layout, 4, 4));
    EXPECT_EQ(ORX_open(&q.info, "w"), nullptr) << r.ext;
    EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED) << r.ext;
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
  std::ifstream in(path, std::ios::binary);
  const std::string good((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
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

// Lines a host never writes come out zero, whatever the memory under them
// held before (the sanitizer workflow fills fresh memory with garbage).
TEST_F(PluginTest, LinesNeverWrittenAreZero) {
  for (const char *ext : {".png", ".tif", ".exr"}) {
    if (!has_extension(ext)) continue;
    TempDir dir;
    const std::string path = dir.file(std::string("gaps") + ext);
    const Layout l{3, 1, 0, I, 8};
    Request r(nullptr, path, describe(l, 9, 7));
    ASSERT_EQ(write_pattern(&r.info, l, false, 2), 0) << ext;
    ORX_OBJECT *object = open_image(path, nullptr);
    ASSERT_NE(object, nullptr) << ext;
    const ORX_IFD &ifd = object->info.images[0];
    for (int y = 1; y <= ifd.window.top; y += 2) {
      void **rows = nullptr;
      ASSERT_EQ(ORX_scan_read(object, y, &rows), 0);
      for (int c = 0; c < 4; ++c)
        for (int x = 0; x <= ifd.window.right; ++x)
          EXPECT_EQ(get(group_of(ifd, c), rows[c], x), 0.0)
              << ext << " line " << y << " channel " << c << " x " << x;
    }
    ORX_close(object);
  }
}

// Short of memory anywhere in open, scan or close, a read or a write fails
// with -10 and a report, never a crash or a leak.
TEST_F(PluginTest, OutOfMemoryOpenAndScanReportEveryFailure) {
  for (const char *ext : {".png", ".tif", ".exr", ".jpg"}) {
    if (!has_extension(ext)) continue;
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
