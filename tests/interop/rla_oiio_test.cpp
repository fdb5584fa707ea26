#include <cstdlib>
#include <functional>
#include <map>
#include <sstream>
#include <utility>

#include "formats/rla/rla_files.hpp"
#include "support/process.hpp"

namespace {

using namespace orx::test;

// Pixel values as oiiotool --dumpdata prints them: (x, y) -> channel texts.
using Dump = std::map<std::pair<int, int>, std::vector<std::string>>;

Dump dump(const std::string &path) {
  ToolRun r = run("oiiotool --dumpdata '" + path + "'");
  EXPECT_EQ(r.status, 0) << r.output;
  Dump d;
  std::istringstream in(r.output);
  std::string line;
  while (std::getline(in, line)) {
    int x, y, used = 0;
    if (std::sscanf(line.c_str(), " Pixel (%d, %d):%n", &x, &y, &used) != 2) continue;
    std::istringstream values(line.substr(static_cast<std::size_t>(used)));
    std::string v;
    while (values >> v && v[0] != '(') d[{x, y}].push_back(v);
  }
  return d;
}

// The sample of channel c at column x of a row from expected_row, as text
// in oiiotool's notation (integers as such, floats read back exactly).
bool same_value(const ORX_CHANNELS &g, const uint8_t *p, const std::string &text) {
  if (g.type == ORX_C_FLOAT) return std::strtof(text.c_str(), nullptr) == get(g, p, 0);
  return static_cast<double>(std::strtoull(text.c_str(), nullptr, 10)) == get(g, p, 0);
}

// Compares every pixel oiiotool dumps from path with row(y, c), the bytes of
// channel c of line y over the window of ifd.  OpenImageIO numbers lines from
// the top of the active window and keeps columns as they are.
void expect_dump_matches(const std::string &path, const ORX_IFD &ifd,
                         const std::function<std::vector<uint8_t>(int, int)> &row) {
  Dump d = dump(path);
  const ORX_WINDOW &a = ifd.active;
  const int width = a.right - a.left + 1;
  const auto row_bytes = static_cast<std::size_t>(ifd.window.right - ifd.window.left + 1);
  ASSERT_EQ(d.size(), static_cast<std::size_t>(width * (a.top - a.bottom + 1))) << "pixel count";
  int top_y = d.begin()->first.second;
  for (const auto &[at, e] : d) top_y = std::min(top_y, at.second);
  const auto channels = static_cast<std::size_t>(channel_count(ifd));
  for (const auto &[at, values] : d) {
    const int x = at.first;
    ASSERT_EQ(values.size(), channels);
    for (std::size_t c = 0; c < channels; ++c) {
      const std::size_t size = bytes_of(group_of(ifd, static_cast<int>(c)));
      const std::vector<uint8_t> want = row(a.top - (at.second - top_y), static_cast<int>(c));
      ASSERT_EQ(want.size(), row_bytes * size);
      const uint8_t *p = want.data() + static_cast<std::size_t>(x - ifd.window.left) * size;
      ASSERT_TRUE(same_value(group_of(ifd, static_cast<int>(c)), p, values[c]))
          << "pixel " << x << "," << at.second << " channel " << c << " read as " << values[c];
    }
  }
}

class RlaWithOpenImageIO : public CleanErrors {
 protected:
  void SetUp() override {
    CleanErrors::SetUp();
    if (!have_tool("oiiotool")) GTEST_SKIP() << "oiiotool is not installed";
  }
  TempDir dir_;
};

TEST_F(RlaWithOpenImageIO, ReadsOurIntegerAndFloatChannelsExactly) {
  struct Case {
    const char *name;
    ImageShape shape;
  } cases[] = {
      {"grey8", {{0, 12, 0, 6}, {0, 12, 0, 6}, {1, ORX_C_INTEGER, 8}, {}, {}}},
      {"rgb8_odd", {{0, 20, 0, 4}, {0, 20, 0, 4}, {3, ORX_C_INTEGER, 8}, {}, {}}},
      {"rgba8", {{0, 15, 0, 5}, {0, 15, 0, 5}, {3, ORX_C_INTEGER, 8}, {1, ORX_C_INTEGER, 8}, {}}},
      {"rgba16", {{0, 9, 0, 3}, {0, 9, 0, 3}, {3, ORX_C_INTEGER, 16}, {1, ORX_C_INTEGER, 16}, {}}},
      {"rgbaf", {{0, 8, 0, 4}, {0, 8, 0, 4}, {3, ORX_C_FLOAT, 32}, {1, ORX_C_FLOAT, 32}, {}}},
      {"rgb8_active", {{0, 30, 0, 9}, {3, 27, 2, 7}, {3, ORX_C_INTEGER, 8}, {}, {}}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = dir_.file(std::string(c.name) + ".rla");
    write_file(path, {c.shape}, "rgb");
    const ORX_IFD ifd = describe(c.shape);
    expect_dump_matches(path, ifd, [&](int y, int ch) { return expected_row(ifd, ch, y); });
  }
}

TEST_F(RlaWithOpenImageIO, ReadsOurHeaderTextsAndChromaticities) {
  const std::string path = dir_.file("texts.rla");
  ORX_OBJECT *object = writer_object(path, {ImageShape{}});
  object->info.name = STR_save("beauty pass");
  object->info.desc = STR_save("frame for the trailer");
  object->info.program = STR_save("liborx tests");
  object->info.red[0] = 0.64f;
  object->info.red[1] = 0.33f;
  object->info.white[0] = 0.3127f;
  object->info.white[1] = 0.329f;
  ASSERT_EQ(ORX_rla_w_open(object), 1);
  write_all_rows_and_close(object);
  ToolRun r = run("iinfo -v '" + path + "'");
  ASSERT_EQ(r.status, 0) << r.output;
  for (const char *text : {"beauty pass", "frame for the trailer", "liborx tests",
                           "rla:RedChroma: 0.64, 0.33", "rla:WhitePoint: 0.3127, 0.329"})
    EXPECT_NE(r.output.find(text), std::string::npos) << r.output;
}

// Files that OpenImageIO writes, read by us and compared with what it reads
// back itself.  It stores 16-bit channels with a storage code of its own (1),
// which the layout does not know: the reader refuses such files plainly.
TEST_F(RlaWithOpenImageIO, WeReadItsEightBitAndFloatFilesAndRefuseItsSixteenBitOnes) {
  ErrorCapture cap;
  for (const char *type : {"uint8", "float", "uint16"}) {
    SCOPED_TRACE(type);
    const std::string path = dir_.file(std::string("oiio_") + type + ".rla");
    ToolRun w = run("oiiotool --pattern fill:topleft=0,0.2,0.4,1:topright=1,0.6,0.2,0.5:"
                "bottomleft=0.1,0.9,0.3,0:bottomright=0.5,0.5,0.5,0.25 19x7 4 -d " +
                std::string(type) + " -o '" + path + "'");
    ASSERT_EQ(w.status, 0) << w.output;
    ORX_OBJECT *object = open_or_free(path);
    if (std::strcmp(type, "uint16") == 0) {
      EXPECT_EQ(object, nullptr);
      EXPECT_TRUE(cap.failed_with(ORX_E_UNSUPPORTED, Msg::kImageType));
      continue;
    }
    ASSERT_NE(object, nullptr);
    const ORX_IFD &ifd = object->info.images[0];
    ASSERT_EQ(ifd.image.count, 3);
    ASSERT_EQ(ifd.matte.count, 1);
    EXPECT_EQ(ifd.image.type, std::strcmp(type, "float") == 0 ? ORX_C_FLOAT : ORX_C_INTEGER);
    const std::size_t width = static_cast<std::size_t>(ifd.window.right - ifd.window.left + 1);
    expect_dump_matches(path, ifd, [&](int y, int c) {
      void **rows = nullptr;
      if (object->scan(object->private_cell[0], y, &rows) != 0) return std::vector<uint8_t>{};
      const auto *p = static_cast<const uint8_t *>(rows[c]);
      return std::vector<uint8_t>(p, p + width * bytes_of(group_of(ifd, c)));
    });
    object->close(object, 0);
  }
}

}  // namespace
