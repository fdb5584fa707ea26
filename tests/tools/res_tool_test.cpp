// orx res as a process: the library's messages, built into a catalogue,
// dumped and built again to the same bytes; a bad text names its line.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "run_tool.hpp"
#include "support/fixtures.hpp"

namespace {

using orx::test::slurp;

TEST(OrxRes, MessagesBuildDumpAndBuildBackToTheSameFile) {
  orx::test::TempDir dir;
  const auto orx = [&](const std::string &args, const std::string &out = "log") {
    return orx::test::run_orx(dir.path(), "res " + args, out);
  };
  ASSERT_EQ(orx("messages", "en.txt"), 0);
  EXPECT_NE(slurp(dir.file("en.txt")).find("resource ERRO \"902.94\"\nmessage 3 \"No more internal memory\""),
            std::string::npos);
  ASSERT_EQ(orx("build en.txt en.res"), 0);
  ASSERT_EQ(orx("dump en.res", "dump.txt"), 0);
  ASSERT_EQ(orx("build dump.txt again.res"), 0);
  EXPECT_EQ(slurp(dir.file("again.res")), slurp(dir.file("en.res")));

  std::ofstream(dir.file("bad.txt")) << "resource TEXT \"a\"\nint x\n";
  EXPECT_EQ(orx("build bad.txt bad.res"), 2);
  EXPECT_NE(slurp(dir.file("log")).find("bad.txt, line 2: not a 32-bit integer"), std::string::npos)
      << slurp(dir.file("log"));
  EXPECT_EQ(orx("dump en.txt"), 2);
  EXPECT_NE(slurp(dir.file("log")).find("is not a resource file"), std::string::npos);
}

}  // namespace
