// The orx tool run as a process, as a user runs it: its commands, its
// command-line conventions and its safe writes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "orx/registry.h"
#include "support/fixtures.hpp"
#include "support/images.hpp"
#include "tools/run_tool.hpp"

namespace {

namespace fs = std::filesystem;
using orx::test::slurp;

bool contains(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

// A float RGB image of w x h whose samples are value(c, x, y), written with
// the library itself.
void write_float_rgb(const std::string &path, int w, int h, const orx::test::Sample &value) {
  orx::test::write_image(path, orx::test::sized(w, h, {"rgb", 3, ORX_C_FLOAT, 32, 0}), value);
}

class OrxTool : public orx::test::ToolTest {
 protected:
  std::vector<std::string> leftovers() const {
    std::vector<std::string> names;
    for (const auto &e : fs::directory_iterator(dir_.path()))
      if (e.path().filename().string().rfind(".orx-", 0) == 0) names.push_back(e.path().string());
    return names;
  }
};

// Every command in one session: what each writes is read back by the next
// ones, and each exits with its status and says what it did or why not.
TEST_F(OrxTool, EveryCommandAsASession) {
  std::ofstream(dir_.file("bad.rla")) << std::string(800, 'x');
  std::ofstream(dir_.file("x.foo")) << "not an image";
  script({
      {"pattern a.rla --size 97x31 --type int16 --matte", 0},
      {"info a.rla", 0,
       {"format      rla (rla)", "(97 x 31)", "channels  3 x integer 16-bit",
        "matte     1 x integer 16-bit"}},
      {"copy a.rla b.rla", 0},
      {"diff a.rla b.rla", 0, {"PSNR             inf"}},
      {"pattern d.rla --size 97x31 --type float --matte", 0},
      {"diff a.rla d.rla --fail 0.01", 0},
      {"pattern c.rla --size 97x31 --channels 2 --matte", 0},
      {"diff a.rla c.rla", 2},  // the channel counts differ
      {"info --json a.rla a.rla", 0,
       {"[\n", "\"file\": \"a.rla\", \"format\": \"rla\"", "\"window\": [0, 96, 0, 30]",
        "},\n  {"}},
      {"pattern b.rla --size 5x3 --type float", 0},
      {"info --brief a.rla b.rla", 0,
       {"a.rla :   97 x   31, 4 channel, uint16 rla\nb.rla :    5 x    3, 3 channel, float rla\n"}},
      // Through the pipe format, to and from commands and standard input.
      {"copy b.rla '|cat > b.pipe'", 0},
      {"diff b.rla '|cat b.pipe'", 0},
      {"info - --type pipe < b.pipe", 0, {"format      pipe (pipe)"}},
      // Failures exit 2 with the library's message.
      {"info missing.rla", 2, {"Cannot open file missing.rla"}},
      {"info bad.rla", 2, {"This does not appear to be a Korvantel file"}},
      {"copy a.rla out.xyz --type nosuch", 2, {"Invalid type nosuch"}},
      {"pattern x.rla --size 0x4", 2, {"expected WxH"}},
      {"info /dev/stdin </dev/null", 2,
       {"orx: no format recognises /dev/stdin; name its format with --type KEY"}},
      // No format claims the output's name: refused, nothing written.
      {"copy a.rla none.xyz", 2, {"choose one with --type KEY: ", "rla (.rla), pipe (.pipe)"}},
      {"copy a.rla none", 2, {"the name has no extension", "rla (.rla), pipe (.pipe)"}},
      {"copy a.rla out.xyz --type rla", 0},
      {"copy a.rla set.rla --set quality=9", 2, {"the rla format has no setting \"quality\""}},
      {"copy a.rla set.rla --set quality", 2, {"--set: expected NAME=VALUE"}},
      {"diff a.rla out.xyz --type rla", 0},
      // Usage, help and version.
      {"", 2, {"orx: A subcommand is required (see \"orx help\")"}},
      {"frobnicate a.rla", 2, {"orx: unknown command \"frobnicate\"; the commands are info, copy"}},
      {"copy a.rla", 2, {"orx: copy: out is required (see \"orx help copy\")"}},
      {"diff a.rla a.rla --fail lots", 2, {"(see \"orx help diff\")"}},
      {"formats --brief", 2, {"orx: formats: The following argument was not expected: --brief"}},
      {"help nosuch", 2, {"unknown command \"nosuch\""}},
      {"--version", 0, {"orx 0.1.0 (liborx 0.1.0, plug-in protocol 3.2)"}},
      {"help", 0, {"stats"}},
      {"help copy", 0, {"Usage: orx copy [OPTIONS] in out"}},
      {"copy --help", 0, {"--keep-going"}},
      {"help diff", 0, {"Exit status: 0 when the largest difference is within --fail, 1"}},
      {"formats", 0, {"mem      memory"}},
      // Copy's operators: depth, gamma, range, primaries, display, crop and
      // the image of a file.
      {"pattern p.rla --size 64x32 --matte", 0},
      {"copy p.rla f.rla --depth float --clamp", 0},
      {"info f.rla", 0, {"3 x float 32-bit", "gamma     1.0000"}},  // linearised on the way
      {"copy f.rla i.rla --depth int16", 0},
      {"info i.rla", 0, {"matte     1 x integer 16-bit"}},
      {"diff f.rla i.rla --fail 0.00002", 0},
      {"copy i.rla g.rla --gamma 1.8", 2,
       {"gamma correction operator cannot handle image channel width"}},
      {"copy p.rla g.rla --gamma 1.0", 0},
      {"copy p.rla r.rla --range 0.25,1.0", 0},
      {"copy f.rla r.rla --range 0.25,1.0", 2},
      {"copy p.rla x.rla --depth int12", 2},
      {"copy p.rla w.rla --primaries 0.7347,0.2653,0.1152,0.8264,0.1566,0.0177,0.3457,0.3585", 0},
      {"info w.rla", 0, {"white       0.3457 0.3585"}},
      {"copy p.rla n.rla --primaries ntsc --xyz", 0},
      {"copy p.rla n.rla --primaries nowhere", 2},
      {"copy p.rla shown.rla --display ntsc", 0},
      {"info shown.rla", 0, {"3 x integer 8-bit"}},
      {"copy p.rla shown.rla --display nowhere", 2},
      {"copy p.rla crop.rla --crop 10,4,42,20", 0},
      {"info crop.rla", 0, {"(32 x 16)", "3 x integer 8-bit"}},
      {"copy p.rla crop.rla --crop 10,4,5,20", 2},
      {"copy p.rla whole.rla --crop 0,0,64,32", 0},
      {"diff p.rla whole.rla", 0},  // a whole crop copies exactly
      {"maketx p.rla t.rla", 0},
      {"copy t.rla level2.rla --image 2", 0},
      {"info level2.rla", 0, {"(16 x 8)"}},
      {"copy t.rla none.rla --image 9", 2},
      // Textures and swatches.
      {"pattern m.rla --size 300x200", 0},
      {"maketx m.rla mt.rla", 0},
      {"swatch m.rla s.rla --size 32", 0},
      {"info s.rla", 0, {"0..31 x 0..20 (32 x 21)"}},
      {"maketx m.rla u.rla --type shiny", 2, {"color, scalar or bump"}},
      {"swatch m.rla u.rla --size 400", 2, {"Swatch dimension incompatible"}},
      {"info mt.rla", 0, {"mipmap color", "0..36 x 0..24 (37 x 25)"}},
  }, true);
  EXPECT_FALSE(fs::exists(dir_.file("none.xyz")) || fs::exists(dir_.file("none")));
  std::size_t levels = 0;  // of the texture of 300x200, down to 1x1
  for (std::size_t at = log_.find("  image "); at != std::string::npos;
       at = log_.find("  image ", at + 1))
    ++levels;
  EXPECT_EQ(levels, 9u) << log_;
  EXPECT_EQ(run("info x.foo"), 2);
  EXPECT_TRUE(contains(log_, "no format recognises x.foo; name its format with --type KEY"))
      << log_;
  // Verbose shows a library error as it happens; the failure does not say it again.
  EXPECT_EQ(run("-v info missing.rla"), 2);
  const std::size_t shown = log_.find("Cannot open file");
  EXPECT_TRUE(shown != std::string::npos && shown == log_.rfind("Cannot open file")) << log_;
}

// Plug-ins load from ORX_PLUGIN_PATH, a refused one is reported, and -v
// (anywhere) names each one loaded.
TEST_F(OrxTool, LoadsPluginsFromThePluginPath) {
  for (const char *name : {"plugin_good.so", "plugin_v31.so"})
    fs::copy_file(std::string(ORX_TEST_PLUGIN_DIR) + "/" + name, dir_.file(name));
  for (const char *args : {"formats", "-v formats", "formats -v", "formats --verbose"}) {
    EXPECT_EQ(shell(std::string("ORX_PLUGIN_PATH=. '" ORX_TOOL "' ") + args + " >log 2>&1"), 0);
    const std::string log = slurp(dir_.file("log"));
    EXPECT_TRUE(contains(log, "tgood    Test good")) << log;
    EXPECT_TRUE(contains(log, "the version protocol of this plug-in")) << log;
    EXPECT_EQ(contains(log, "orx: plug-in ./plugin_good.so"), contains(args, "-v")) << args;
  }
}

// diff names the largest difference and counts the pixels that differ;
// stats gives each channel's figures, with NaN and infinity counted apart.
TEST_F(OrxTool, DiffAndStatsOfKnownSamples) {
  write_float_rgb(dir_.file("a.rla"), 7, 5, [](int, int, int) { return 0.5; });
  write_float_rgb(dir_.file("b.rla"), 7, 5, [](int c, int x, int y) {
    return 0.5 + (x == 4 && y == 1 && c == 2 ? 0.25 : x == 1 && y == 3 ? 0.125 : 0.0);
  });
  write_float_rgb(dir_.file("s.rla"), 4, 1, [](int c, int x, int) {
    if (c == 1 && x == 3) return double(NAN);
    if (c == 2 && x == 0) return double(INFINITY);
    return double(x);  // 0 1 2 3: mean 1.5, deviation sqrt(1.25)
  });
  script({
      {"diff a.rla b.rla", 1,
       {"max difference   0.25\nlargest at       x 4, y 1, channel 2 (blue)",
        "differing pixels 2 of 35"}},
      {"diff a.rla b.rla --fail 0.25", 0},
      {"diff a.rla missing.rla", 2},
      {"stats s.rla", 0,
       {"  image 0: 4 x 1, channels red, green, blue\n"
        "    Stats Min: 0.000000 0.000000 1.000000\n"
        "    Stats Max: 3.000000 2.000000 3.000000\n"
        "    Stats Avg: 1.500000 1.000000 2.000000\n"
        "    Stats StdDev: 1.118034 0.816497 0.816497\n"
        "    Stats NanCount: 0 1 0\n"
        "    Stats InfCount: 0 0 1\n"
        "    Stats FiniteCount: 4 3 3\n"}},
      {"pattern i.rla --size 3x2", 0},
      {"stats i.rla missing.rla", 2},
      {"stats i.rla", 0},
  });
  EXPECT_FALSE(contains(log_, "NanCount")) << "integers have no NaN\n" << log_;
}

TEST_F(OrxTool, ProgressOnlyOnATerminal) {
  ASSERT_EQ(run("pattern tall.rla --size 4x4100"), 0);
  EXPECT_EQ(run("copy tall.rla piped.rla"), 0);
  EXPECT_EQ(log_, "");
  ASSERT_EQ(shell("script -qec \"'" ORX_TOOL "' copy tall.rla tty.rla\" /dev/null >log 2>&1"), 0);
  EXPECT_TRUE(contains(slurp(dir_.file("log")), "[####################                    ]  51%"))
      << slurp(dir_.file("log"));
}

// Writes go to a temporary file renamed into place on success: the input may
// be the output, and a failed or interrupted write leaves the old file.
TEST_F(OrxTool, WritesNeverDestroyTheOldFile) {
  ASSERT_EQ(run("pattern a.rla --size 64x48 --type int16 --matte"), 0);
  ASSERT_EQ(run("copy a.rla keep.rla"), 0);
  EXPECT_EQ(run("copy a.rla a.rla"), 0) << log_;
  EXPECT_EQ(run("diff a.rla keep.rla"), 0) << log_;

  ASSERT_EQ(run("pattern big.rla --size 300x300 --type float"), 0);
  ASSERT_EQ(run("copy big.rla '|cat > big.pipe'"), 0);
  ASSERT_EQ(run("copy keep.rla out.rla"), 0);
  const std::string before = slurp(dir_.file("out.rla"));

  // A disk that fills up: a file-size limit makes the write fail part-way.
  EXPECT_EQ(shell("trap '' XFSZ; ulimit -f 100; '" ORX_TOOL "' copy big.rla out.rla >log 2>&1"), 2);
  EXPECT_TRUE(contains(slurp(dir_.file("log")), "orx: out.rla: Cannot write scanline"))
      << slurp(dir_.file("log"));
  EXPECT_EQ(slurp(dir_.file("out.rla")), before);
  EXPECT_TRUE(leftovers().empty());
  EXPECT_EQ(run("copy a.rla /dev/full --type rla"), 2);
  EXPECT_TRUE(contains(log_, "Cannot write to /dev/full; No space left on device")) << log_;

  // Killed while the input stalls half-way; SIGKILL leaves its temporary file.
  for (const char *signal : {"TERM", "HUP", "KILL"}) {
    const std::string copy =
        "'" ORX_TOOL "' copy '|head -c 200000 big.pipe; sleep 2 # .pipe' out.rla";
    shell("(" + copy + " >log 2>&1 & pid=$!; sleep 0.5; kill -" + signal + " $pid; wait $pid)");
    EXPECT_EQ(slurp(dir_.file("out.rla")), before) << signal;
    EXPECT_EQ(leftovers().size(), std::string(signal) == "KILL" ? 1u : 0u) << signal;
  }
}

}  // namespace
