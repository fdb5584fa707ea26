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

// GraphicsMagick reads our 8-bit files exactly.  ImageMagick 6.9 reads a
// file of one row exactly but refuses every file of several rows as
// "corrupt image", ours and OpenImageIO's alike (see docs/rla-layout.md):
// the table pins that down, so a fixed ImageMagick shows up here.
TEST(RlaWithMagick, ReadOurEightBitFilesExactly) {
  const bool gm = have_tool("gm");
  const bool im = run("convert -version").output.find("ImageMagick") != std::string::npos;
  if (!gm && !im) GTEST_SKIP() << "neither GraphicsMagick nor ImageMagick is installed";
  const Group rgb{3, ORX_C_INTEGER, 8}, matte{1, ORX_C_INTEGER, 8};
  const struct {
    const char *name, *convert;  // the tool's command, then -depth 8 map:out
    ImageShape shape;
    bool refused;  // by ImageMagick as "corrupt image"
  } cases[] = {
      {"gm_rgb", "gm convert", sized(21, 7, rgb), false},
      {"gm_rgba", "gm convert", sized(10, 5, rgb, matte), false},
      {"im_row", "convert", sized(21, 1, rgb), false},
      {"im_tall", "convert", sized(21, 6, rgb), true},
  };
  TempDir dir;
  for (const auto &c : cases) {
    SCOPED_TRACE(c.name);
    if (!(c.name[0] == 'g' ? gm : im)) continue;
    const std::string path = dir.file(std::string(c.name) + ".rla");
    const std::string out = dir.file(std::string(c.name) + ".raw");
    const std::vector<uint8_t> want = write_rgb8(path, c.shape);
    const char *map = c.shape.matte.count != 0 ? "rgba" : "rgb";
    ToolRun r = run(std::string(c.convert) + " '" + path + "' -depth 8 " + map + ":'" + out + "'");
    if (c.refused && r.status != 0) {
      EXPECT_NE(r.output.find("corrupt image"), std::string::npos) << r.output;
      continue;
    }
    ASSERT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(load(out), want) << (c.refused ? "ImageMagick now reads tall files" : "");
  }
}

}  // namespace
