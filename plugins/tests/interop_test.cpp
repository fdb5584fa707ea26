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

struct Peer {
  const char *ext;
  const char *pattern;  // orx pattern arguments
};

const Peer kPeers[] = {
    {"png", "--type int8 --channels 1"},
    {"png", "--type int8 --channels 3 --matte"},
    {"png", "--type int16 --channels 1 --matte"},
    {"png", "--type int16 --channels 3"},
};

class PeerTools : public ::testing::TestWithParam<Peer> {};

TEST_P(PeerTools, ReadOursAndWriteWhatWeRead) {
  const Peer &p = GetParam();
  if (!std::filesystem::exists(std::string(ORX_PLUGIN_BUILD_DIR) + "/" + p.ext + ".so"))
    GTEST_SKIP() << p.ext << " plug-in not built";
  TempDir dir;
  const std::string source = dir.file("source.rla");
  const std::string ours = dir.file(std::string("ours.") + p.ext);
  expect_runs(orx("pattern '" + source + "' --size 67x31 " + p.pattern));
  expect_runs(orx("copy '" + source + "' '" + ours + "'"));
  if (have_tool("oiiotool")) {
    // OpenImageIO premultiplies alpha on reading unless told otherwise.
    const std::string theirs = dir.file(std::string("oiio.") + p.ext);
    expect_runs("oiiotool --iconfig oiio:UnassociatedAlpha 1 '" + ours + "' -o '" + theirs + "'");
    expect_same(source, theirs);
  }
  if (have_tool("convert")) {
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

}  // namespace
}  // namespace orx::test
