// The orx tool run as a process, as a user runs it.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/fixtures.hpp"

namespace {

struct Result {
  int status;
  std::string output;  // standard output and standard error
};

Result orx(const std::string &args, const std::string &dir, const std::string &env = "") {
  std::string command = "cd '" + dir + "' && " + env + "'" ORX_TOOL "' " + args + " 2>&1";
  Result r{-1, ""};
  std::FILE *p = popen(command.c_str(), "r");
  if (p == nullptr) return r;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) r.output.append(buf, n);
  int raw = pclose(p);
  r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  return r;
}

bool contains(const std::string &text, const std::string &part) {
  return text.find(part) != std::string::npos;
}

class OrxTool : public ::testing::Test {
 protected:
  orx::test::TempDir dir_;
  Result run(const std::string &args, const std::string &env = "") {
    return orx(args, dir_.path(), env);
  }
};

TEST_F(OrxTool, PatternInfoCopyAndDiffRoundTrip) {
  ASSERT_EQ(run("pattern a.rla --size 97x31 --type int16 --matte").status, 0);
  Result info = run("info a.rla");
  ASSERT_EQ(info.status, 0) << info.output;
  EXPECT_TRUE(contains(info.output, "format      rla (rla)")) << info.output;
  EXPECT_TRUE(contains(info.output, "(97 x 31)")) << info.output;
  EXPECT_TRUE(contains(info.output, "3 x integer 16-bit")) << info.output;
  EXPECT_TRUE(contains(info.output, "matte     1 x integer 16-bit")) << info.output;

  Result copy = run("copy a.rla b.rla");
  ASSERT_EQ(copy.status, 0) << copy.output;
  Result same = run("diff a.rla b.rla");
  EXPECT_EQ(same.status, 0) << same.output;
  EXPECT_TRUE(contains(same.output, "PSNR             inf")) << same.output;

  ASSERT_EQ(run("pattern c.rla --size 97x31 --type int16 --channels 2 --matte").status, 0);
  Result other = run("diff a.rla b.rla --fail 0.5");
  EXPECT_EQ(other.status, 0);
  ASSERT_EQ(run("pattern d.rla --size 97x31 --type float --matte").status, 0);
  Result differs = run("diff a.rla d.rla");
  EXPECT_EQ(differs.status, 1) << differs.output;
  EXPECT_TRUE(contains(differs.output, "FAIL")) << differs.output;
  EXPECT_EQ(run("diff a.rla d.rla --fail 0.01").status, 0);
  Result sizes = run("diff a.rla c.rla");
  EXPECT_EQ(sizes.status, 2) << sizes.output;
}

TEST_F(OrxTool, InfoJsonIsOneArrayOfFiles) {
  ASSERT_EQ(run("pattern a.rla --size 8x4").status, 0);
  Result r = run("info --json a.rla a.rla");
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_EQ(r.output.front(), '[');
  EXPECT_TRUE(contains(r.output, "\"file\": \"a.rla\", \"format\": \"rla\"")) << r.output;
  EXPECT_TRUE(contains(r.output, "\"window\": [0, 7, 0, 3]")) << r.output;
  EXPECT_TRUE(contains(r.output, "},\n  {")) << r.output;
}

TEST_F(OrxTool, FailuresExitTwoWithTheLibrarysMessage) {
  Result missing = run("info missing.rla");
  EXPECT_EQ(missing.status, 2);
  EXPECT_TRUE(contains(missing.output, "Cannot open file missing.rla")) << missing.output;

  std::ofstream(dir_.file("bad.rla")) << std::string(800, 'x');
  Result bad = run("info bad.rla");
  EXPECT_EQ(bad.status, 2);
  EXPECT_TRUE(contains(bad.output, "This does not appear to be a Korvantel file")) << bad.output;

  ASSERT_EQ(run("pattern a.rla --size 8x4").status, 0);
  Result key = run("copy a.rla out.xyz --type nosuch");
  EXPECT_EQ(key.status, 2);
  EXPECT_TRUE(contains(key.output, "Invalid type nosuch")) << key.output;

  EXPECT_NE(run("pattern x.rla --size 0x4").status, 0);
  EXPECT_NE(run("frobnicate").status, 0);
}

TEST_F(OrxTool, StreamsThroughThePipeFormat) {
  ASSERT_EQ(run("pattern a.rla --size 33x9 --type float").status, 0);
  Result copy = run("copy a.rla '|cat > b.pipe'");
  ASSERT_EQ(copy.status, 0) << copy.output;
  EXPECT_EQ(run("diff a.rla '|cat b.pipe'").status, 0);
  Result info = run("info - --type pipe < b.pipe");
  ASSERT_EQ(info.status, 0) << info.output;
  EXPECT_TRUE(contains(info.output, "format      pipe (pipe)")) << info.output;
}

TEST_F(OrxTool, LoadsPluginsFromThePluginPathAndReportsRefusals) {
  orx::test::TempDir plugins;
  for (const char *name : {"plugin_good.so", "plugin_v31.so"})
    std::filesystem::copy_file(std::string(ORX_TEST_PLUGIN_DIR) + "/" + name, plugins.file(name));
  Result r = run("formats", "ORX_PLUGIN_PATH='" + plugins.path() + "' ");
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_TRUE(contains(r.output, "tgood")) << r.output;
  EXPECT_TRUE(contains(r.output, "the version protocol of this plug-in")) << r.output;
}

TEST_F(OrxTool, FormatsListsTheBuiltInFormats) {
  Result r = run("formats");
  ASSERT_EQ(r.status, 0) << r.output;
  for (const char *key : {"rla ", "pipe ", "mem "}) EXPECT_TRUE(contains(r.output, key)) << key;
}

TEST_F(OrxTool, CopiesFrameRangesThroughNameSyntaxes) {
  for (const char *f : {"shot.0003.rla", "shot.0004.rla"})
    ASSERT_EQ(run(std::string("pattern ") + f + " --size 5x3").status, 0);
  Result r = run("copy shot.####.rla out.##.rla --frames 3-4");
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_EQ(run("diff shot.0004.rla out.04.rla").status, 0);
  EXPECT_EQ(run("copy shot.####.rla out.##.rla --frames 4-3").status, 2);
}

}  // namespace
