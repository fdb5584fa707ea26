#include <tuple>

#include "formats/rla/rla_files.hpp"
#include "support/process.hpp"

namespace {

using namespace orx::test;

// Writes an 8-bit file of the shape, with the channel description "rgb" that
// GraphicsMagick insists on, and returns the interleaved samples top row
// first, as raw output of the Magick tools lays them out.
std::vector<uint8_t> write_rgb8(const std::string &path, const ImageShape &shape) {
  write_file(path, {shape}, "rgb");
  const ORX_IFD ifd = describe(shape);
  const int channels = shape.image.count + shape.matte.count;
  std::vector<uint8_t> raw;
  for (int y = shape.window.top; y >= shape.window.bottom; --y) {
    std::vector<std::vector<uint8_t>> rows;
    for (int c = 0; c < channels; ++c) rows.push_back(expected_row(ifd, c, y));
    for (std::size_t x = 0; x < rows[0].size(); ++x)
      for (int c = 0; c < channels; ++c) raw.push_back(rows[static_cast<std::size_t>(c)][x]);
  }
  return raw;
}

TEST(RlaWithGraphicsMagick, ReadsOurEightBitFilesExactly) {
  ORX_REQUIRE_TOOL("gm");
  TempDir dir;
  const ImageShape rgb{{0, 20, 0, 6}, {0, 20, 0, 6}, {3, ORX_C_INTEGER, 8}, {}, {}};
  const ImageShape rgba{{0, 9, 0, 4}, {0, 9, 0, 4}, {3, ORX_C_INTEGER, 8}, {1, ORX_C_INTEGER, 8}, {}};
  for (const auto &[name, shape, map] : {std::tuple{"rgb", rgb, "rgb"}, {"rgba", rgba, "rgba"}}) {
    SCOPED_TRACE(name);
    const std::string path = dir.file(std::string(name) + ".rla");
    const std::string out = dir.file(std::string(name) + ".raw");
    std::vector<uint8_t> want = write_rgb8(path, shape);
    ToolRun r = run("gm convert '" + path + "' -depth 8 " + map + ":'" + out + "'");
    ASSERT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(load(out), want);
  }
}

// ImageMagick 6.9 reads a file of one row correctly but refuses every file
// of several rows as "corrupt image", ours and OpenImageIO's alike (see
// docs/rla-layout.md).  The test pins that behaviour down, so a fixed
// ImageMagick shows up here.
TEST(RlaWithImageMagick, ReadsOneRowFilesAndRefusesTallerOnes) {
  if (run("convert -version").output.find("ImageMagick") == std::string::npos)
    GTEST_SKIP() << "ImageMagick's convert is not installed";
  TempDir dir;
  const ImageShape row{{0, 20, 0, 0}, {0, 20, 0, 0}, {3, ORX_C_INTEGER, 8}, {}, {}};
  std::vector<uint8_t> want = write_rgb8(dir.file("row.rla"), row);
  ToolRun r = run("convert '" + dir.file("row.rla") + "' -depth 8 rgb:'" + dir.file("row.raw") + "'");
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_EQ(load(dir.file("row.raw")), want);

  const ImageShape tall{{0, 20, 0, 5}, {0, 20, 0, 5}, {3, ORX_C_INTEGER, 8}, {}, {}};
  want = write_rgb8(dir.file("tall.rla"), tall);
  r = run("convert '" + dir.file("tall.rla") + "' -depth 8 rgb:'" + dir.file("tall.raw") + "'");
  if (r.status == 0) {
    EXPECT_EQ(load(dir.file("tall.raw")), want) << "ImageMagick now reads tall files";
  } else {
    EXPECT_NE(r.output.find("corrupt image"), std::string::npos) << r.output;
  }
}

}  // namespace
