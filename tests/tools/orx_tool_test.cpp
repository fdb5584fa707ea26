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
  ORX_IFD d;
  orx__init_ifd(&d);
  d.window = d.active = ORX_WINDOW{0, w - 1, 0, h - 1};
  d.image = ORX_CHANNELS{const_cast<char *>("rgb"), 3, ORX_C_FLOAT, 32, 0};
  orx::test::write_image(path, d, value);
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

TEST_F(OrxTool, PatternInfoCopyDiffAndJson) {
  ASSERT_EQ(run("pattern a.rla --size 97x31 --type int16 --matte"), 0);
  EXPECT_EQ(run("info a.rla"), 0);
  for (const char *part : {"format      rla (rla)", "(97 x 31)", "channels  3 x integer 16-bit",
                           "matte     1 x integer 16-bit"})
    EXPECT_TRUE(contains(log_, part)) << part << "\n" << log_;
  ASSERT_EQ(run("copy a.rla b.rla"), 0) << log_;
  EXPECT_EQ(run("diff a.rla b.rla"), 0);
  EXPECT_TRUE(contains(log_, "PSNR             inf")) << log_;
  ASSERT_EQ(run("pattern d.rla --size 97x31 --type float --matte"), 0);
  EXPECT_EQ(run("diff a.rla d.rla --fail 0.01"), 0) << log_;
  ASSERT_EQ(run("pattern c.rla --size 97x31 --channels 2 --matte"), 0);
  EXPECT_EQ(run("diff a.rla c.rla"), 2) << "channel counts differ";

  EXPECT_EQ(run("info --json a.rla a.rla"), 0);
  EXPECT_EQ(log_.front(), '[');
  EXPECT_TRUE(contains(log_, "\"file\": \"a.rla\", \"format\": \"rla\"")) << log_;
  EXPECT_TRUE(contains(log_, "\"window\": [0, 96, 0, 30]")) << log_;
  EXPECT_TRUE(contains(log_, "},\n  {")) << log_;
}

TEST_F(OrxTool, FailuresExitTwoWithTheLibrarysMessage) {
  ASSERT_EQ(run("pattern a.rla --size 8x4"), 0);
  std::ofstream(dir_.file("bad.rla")) << std::string(800, 'x');
  const struct {
    const char *args, *says;
  } cases[] = {
      {"info missing.rla", "Cannot open file missing.rla"},
      {"info bad.rla", "This does not appear to be a Korvantel file"},
      {"copy a.rla out.xyz --type nosuch", "Invalid type nosuch"},
      {"pattern x.rla --size 0x4", "expected WxH"},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(run(c.args), 2) << c.args;
    EXPECT_TRUE(contains(log_, c.says)) << c.args << "\n" << log_;
  }
}

TEST_F(OrxTool, StreamsThroughThePipeFormat) {
  ASSERT_EQ(run("pattern a.rla --size 33x9 --type float"), 0);
  ASSERT_EQ(run("copy a.rla '|cat > b.pipe'"), 0) << log_;
  EXPECT_EQ(run("diff a.rla '|cat b.pipe'"), 0) << log_;
  EXPECT_EQ(run("info - --type pipe < b.pipe"), 0) << log_;
  EXPECT_TRUE(contains(log_, "format      pipe (pipe)")) << log_;
}

TEST_F(OrxTool, UsageHelpAndVersion) {
  ASSERT_EQ(run("pattern a.rla --size 8x4"), 0) << log_;
  const struct {
    const char *args;
    int status;
    const char *says;
  } cases[] = {
      {"", 2, "orx: A subcommand is required (see \"orx help\")"},
      {"frobnicate a.rla", 2, "orx: unknown command \"frobnicate\"; the commands are info, copy"},
      {"copy a.rla", 2, "orx: copy: out is required (see \"orx help copy\")"},
      {"diff a.rla a.rla --fail lots", 2, "(see \"orx help diff\")"},
      {"formats --brief", 2, "orx: formats: The following argument was not expected: --brief"},
      {"help nosuch", 2, "unknown command \"nosuch\""},
      {"--version", 0, "orx 0.1.0 (liborx 0.1.0, plug-in protocol 3.2)"},
      {"help", 0, "stats"},
      {"help copy", 0, "Usage: orx copy [OPTIONS] in out"},
      {"copy --help", 0, "--keep-going"},
      {"help diff", 0, "Exit status: 0 when the largest difference is within --fail, 1"},
      {"formats", 0, "mem      memory"},
      {"-v info --brief a.rla", 0, "a.rla :    8 x    4, 3 channel, uint8 rla"},
      {"info a.rla --brief -v", 0, "a.rla :    8 x    4, 3 channel, uint8 rla"},
      {"info /dev/stdin </dev/null", 2,
       "orx: no format recognises /dev/stdin; name its format with --type KEY"},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(run(c.args), c.status) << c.args << "\n" << log_;
    EXPECT_TRUE(contains(log_, c.says)) << c.args << "\n" << log_;
    if (c.status == 2) {
      EXPECT_EQ(std::count(log_.begin(), log_.end(), '\n'), 1) << log_;
    }
  }
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

TEST_F(OrxTool, BriefInfoAndFormatHints) {
  ASSERT_EQ(run("pattern a.rla --size 97x31 --type int16 --matte"), 0) << log_;
  ASSERT_EQ(run("pattern b.rla --size 5x3 --type float"), 0) << log_;
  EXPECT_EQ(run("info --brief a.rla b.rla"), 0);
  EXPECT_EQ(log_,
            "a.rla :   97 x   31, 4 channel, uint16 rla\n"
            "b.rla :    5 x    3, 3 channel, float rla\n");

  std::ofstream(dir_.file("x.foo")) << "not an image";
  EXPECT_EQ(run("info x.foo"), 2);
  EXPECT_TRUE(contains(log_, "no format recognises x.foo; name its format with --type KEY")) << log_;

  // No format claims the name: refused, nothing written.
  for (const char *out : {"out.xyz", "out"}) {
    EXPECT_EQ(run(std::string("copy a.rla ") + out), 2) << out;
    EXPECT_TRUE(contains(log_, "choose one with --type KEY: ")) << log_;
    EXPECT_TRUE(contains(log_, "rla (.rla), pipe (.pipe)")) << log_;
    EXPECT_FALSE(fs::exists(dir_.file(out)));
  }
  EXPECT_TRUE(contains(log_, "the name has no extension")) << log_;
  EXPECT_EQ(run("copy a.rla out.xyz --type rla"), 0) << log_;
  EXPECT_EQ(run("diff a.rla out.xyz --type rla"), 0) << log_;
}

TEST_F(OrxTool, DiffNamesTheLargestDifference) {
  write_float_rgb(dir_.file("a.rla"), 7, 5, [](int, int, int) { return 0.5; });
  write_float_rgb(dir_.file("b.rla"), 7, 5, [](int c, int x, int y) {
    return 0.5 + (x == 4 && y == 1 && c == 2 ? 0.25 : x == 1 && y == 3 ? 0.125 : 0.0);
  });
  EXPECT_EQ(run("diff a.rla b.rla"), 1);
  EXPECT_TRUE(contains(log_, "max difference   0.25\nlargest at       x 4, y 1, channel 2 (blue)"))
      << log_;
  EXPECT_TRUE(contains(log_, "differing pixels 2 of 35")) << log_;
  EXPECT_EQ(run("diff a.rla b.rla --fail 0.25"), 0) << log_;
  EXPECT_EQ(run("diff a.rla missing.rla"), 2) << log_;
}

TEST_F(OrxTool, StatsPerChannelWithNanAndInfCounts) {
  write_float_rgb(dir_.file("a.rla"), 4, 1, [](int c, int x, int) {
    if (c == 1 && x == 3) return double(NAN);
    if (c == 2 && x == 0) return double(INFINITY);
    return double(x);  // 0 1 2 3: mean 1.5, deviation sqrt(1.25)
  });
  EXPECT_EQ(run("stats a.rla"), 0) << log_;
  EXPECT_TRUE(contains(log_,
                       "  image 0: 4 x 1, channels red, green, blue\n"
                       "    Stats Min: 0.000000 0.000000 1.000000\n"
                       "    Stats Max: 3.000000 2.000000 3.000000\n"
                       "    Stats Avg: 1.500000 1.000000 2.000000\n"
                       "    Stats StdDev: 1.118034 0.816497 0.816497\n"
                       "    Stats NanCount: 0 1 0\n"
                       "    Stats InfCount: 0 0 1\n"
                       "    Stats FiniteCount: 4 3 3\n"))
      << log_;
  ASSERT_EQ(run("pattern i.rla --size 3x2"), 0);
  EXPECT_EQ(run("stats i.rla"), 0);
  EXPECT_FALSE(contains(log_, "NanCount")) << "integers have no NaN\n" << log_;
  EXPECT_EQ(run("stats i.rla missing.rla"), 2);
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
    const std::string copy = "'" ORX_TOOL "' copy '|head -c 200000 big.pipe; sleep 2 # .pipe' out.rla";
    shell("(" + copy + " >log 2>&1 & pid=$!; sleep 0.5; kill -" + signal + " $pid; wait $pid)");
    EXPECT_EQ(slurp(dir_.file("out.rla")), before) << signal;
    EXPECT_EQ(leftovers().size(), std::string(signal) == "KILL" ? 1u : 0u) << signal;
  }
}

}  // namespace
