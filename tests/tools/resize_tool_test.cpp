// orx resize as a process.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "run_tool.hpp"
#include "support/fixtures.hpp"

namespace {

using OrxResize = orx::test::ToolTest;

TEST_F(OrxResize, SizesFiltersAndAgreementWithOpenImageIO) {
  ASSERT_EQ(run("pattern p.rla --size 400x300 --matte"), 0);
  ASSERT_EQ(run("resize p.rla same.rla --size 400x300 --filter box"), 0);
  EXPECT_EQ(run("diff p.rla same.rla"), 0) << log_;  // the identity is exact
  for (const auto &[args, window] :
       {std::pair{"--size 200x150", "(200 x 150)"}, {"--scale 2.5 --filter mitchell", "(1000 x 750)"},
        {"--size 100x100 --fit", "(100 x 75)"}}) {
    ASSERT_EQ(run(std::string("resize p.rla r.rla ") + args), 0) << log_;
    ASSERT_EQ(run("info r.rla"), 0);
    EXPECT_NE(log_.find(window), std::string::npos) << args << "\n" << log_;
  }
  EXPECT_EQ(run("resize p.rla r.rla --size 10x10 --filter sharpest"), 2);
  EXPECT_NE(log_.find("the filters are box"), std::string::npos);
  EXPECT_EQ(run("resize p.rla r.rla"), 2);
  // A damaged frame fails with the reader's reason and leaves no output,
  // though the filter itself reads past its missing lines.
  const std::string whole = orx::test::slurp(dir_.file("p.rla"));
  orx::test::write_text(dir_.file("cut.rla"), whole.substr(0, whole.size() / 2));
  EXPECT_EQ(run("resize cut.rla cut_r.rla --size 200x150"), 2) << log_;
  EXPECT_NE(log_.find("cut.rla: "), std::string::npos) << log_;
  EXPECT_FALSE(std::filesystem::exists(dir_.file("cut_r.rla")));
  if (!orx::test::have_tool("oiiotool")) return;
  ASSERT_EQ(run("resize p.rla half.rla --size 200x150"), 0);
  ASSERT_EQ(shell("oiiotool p.rla --resize 200x150 -o theirs.rla"), 0);
  EXPECT_EQ(run("diff half.rla theirs.rla --fail 0.02"), 0) << log_;
}

}  // namespace
