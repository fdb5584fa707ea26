// The plug-ins against the tools other people use, as processes: files the
// orx tool writes through a plug-in are read by OpenImageIO and ImageMagick,
// which write them again for the orx tool to read; every step pixel-exact.
// The orx tool runs with nothing set, so it also proves the plug-ins load by
// default from the build tree.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "interop/peers.hpp"
#include "support/fixtures.hpp"

namespace orx::test {
namespace {

std::string orx(const std::string &args) {
  return std::string("env -u ORX_PLUGIN_PATH '") + ORX_TOOL + "' " + args;
}

// `orx diff` with no difference allowed.
void expect_same(const std::string &a, const std::string &b) {
  ToolRun r = run(orx("diff '" + a + "' '" + b + "' --fail 0"));
  EXPECT_EQ(r.status, 0) << a << " vs " << b << "\n" << r.output;
}

void expect_runs(const std::string &command) {
  ToolRun r = run(command);
  ASSERT_EQ(r.status, 0) << command << "\n" << r.output;
}

// Whether the plug-in for files ending in ext was built.
bool built(const std::string &ext) {
  const std::string module = ext == "tif" ? "tiff" : ext == "jpg" ? "jpeg" : ext;
  return std::filesystem::exists(std::string(ORX_PLUGIN_BUILD_DIR) + "/" + module + ".so");
}

struct Peer {
  const char *ext;
  const char *pattern;  // orx pattern arguments
  const char *oiio;     // oiiotool output options: the layout its file takes
  bool magick;          // ImageMagick keeps these samples exactly
};

// ImageMagick divides associated alpha out and keeps 16 bits of a float,
// so TIFF mattes and floats are OpenImageIO's alone.
const Peer kPeers[] = {
    {"png", "--type int8 --channels 1", "", true},
    {"png", "--type int8 --channels 3 --matte", "", true},
    {"png", "--type int16 --channels 1 --matte", "", true},
    {"png", "--type int16 --channels 3", "", true},
    {"tif", "--type int8 --channels 3", "", true},
    {"tif", "--type int16 --channels 1", "--tile 16 16", true},
    {"tif", "--type int16 --channels 3 --matte", "--tile 32 16 --planarconfig separate", false},
    {"tif", "--type float --channels 3 --matte", "--compression zip", false},
};

class PeerTools : public ::testing::TestWithParam<Peer> {};

TEST_P(PeerTools, ReadOursAndWriteWhatWeRead) {
  const Peer &p = GetParam();
  if (!built(p.ext)) GTEST_SKIP() << p.ext << " plug-in not built";
  TempDir dir;
  const std::string source = dir.file("source.rla");
  const std::string ours = dir.file(std::string("ours.") + p.ext);
  expect_runs(orx("pattern '" + source + "' --size 67x31 " + p.pattern));
  expect_runs(orx("copy '" + source + "' '" + ours + "'"));
  if (have_tool("oiiotool")) {
    // OpenImageIO premultiplies alpha on reading unless told otherwise.
    const std::string theirs = dir.file(std::string("oiio.") + p.ext);
    expect_runs("oiiotool --iconfig oiio:UnassociatedAlpha 1 '" + ours + "' " + p.oiio + " -o '" +
                theirs + "'");
    expect_same(source, theirs);
  }
  if (p.magick && have_tool("convert")) {
    const std::string theirs = dir.file(std::string("magick.") + p.ext);
    expect_runs("convert '" + ours + "' '" + theirs + "'");
    expect_same(source, theirs);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, PeerTools, ::testing::ValuesIn(kPeers),
                         [](const ::testing::TestParamInfo<Peer> &i) {
                           return std::string(i.param.ext) + std::to_string(i.index);
                         });

// Palette images, with and without transparency, read as the RGB(A) that
// ImageMagick makes of them.
TEST(PeerTools, PalettePngReadsAsRgb) {
  ORX_REQUIRE_TOOL("convert");
  if (!built("png")) GTEST_SKIP() << "png plug-in not built";
  TempDir dir;
  for (const char *matte : {"", " --matte"}) {
    const std::string source = dir.file("source.rla");
    const std::string rgb = dir.file("source.png");
    const std::string palette = dir.file("palette.png");
    const std::string expanded = dir.file("expanded.png");
    expect_runs(orx("pattern '" + source + "' --size 40x20 --type int8 --channels 3" + matte));
    expect_runs(orx("copy '" + source + "' '" + rgb + "'"));
    expect_runs("convert '" + rgb + "' -colors 16 PNG8:'" + palette + "'");
    expect_runs("convert '" + palette + "' " + (*matte ? "PNG32:'" : "PNG24:'") + expanded + "'");
    expect_same(palette, expanded);
  }
}

// Every directory of a TIFF file is an image: ImageMagick's multi-directory
// file copied by us keeps its second directory for OpenImageIO to find.
TEST(PeerTools, EveryTiffDirectoryIsCopied) {
  ORX_REQUIRE_TOOL("convert");
  if (!built("tif")) GTEST_SKIP() << "tiff plug-in not built";
  ORX_REQUIRE_TOOL("oiiotool");
  TempDir dir;
  auto f = [&](const char *name) { return dir.file(name); };
  expect_runs(orx("pattern '" + f("a.rla") + "' --size 40x20 --type int8 --channels 3"));
  expect_runs(orx("pattern '" + f("b.rla") + "' --size 30x25 --type int16 --channels 1"));
  expect_runs(orx("copy '" + f("a.rla") + "' '" + f("a.tif") + "'"));
  expect_runs(orx("copy '" + f("b.rla") + "' '" + f("b.tif") + "'"));
  expect_runs("convert '" + f("a.tif") + "' '" + f("b.tif") + "' '" + f("magick.tif") + "'");
  expect_runs(orx("copy '" + f("magick.tif") + "' '" + f("ours.tif") + "'"));
  expect_runs("oiiotool '" + f("ours.tif") + "' --subimage 1 -o '" + f("second.tif") + "'");
  expect_same(f("a.rla"), f("ours.tif"));
  expect_same(f("b.rla"), f("second.tif"));
}

}  // namespace
}  // namespace orx::test
