// orx resize as a process.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "run_tool.hpp"
#include "support/fixtures.hpp"

namespace {

using orx::test::slurp;

TEST(OrxResize, SizesFiltersAndAgreementWithOpenImageIO) {
  orx::test::TempDir dir;
  const auto orx = [&](const std::string &args) { return orx::test::run_orx(dir.path(), args); };
  const auto log = [&] { return slurp(dir.file("log")); };
  ASSERT_EQ(orx("pattern p.rla --size 400x300 --matte"), 0);
  ASSERT_EQ(orx("resize p.rla same.rla --size 400x300 --filter box"), 0);
  EXPECT_EQ(orx("diff p.rla same.rla"), 0) << log();  // the identity is exact
  for (const auto &[args, window] :
       {std::pair{"--size 200x150", "(200 x 150)"}, {"--scale 2.5 --filter mitchell", "(1000 x 750)"},
        {"--size 100x100 --fit", "(100 x 75)"}}) {
    ASSERT_EQ(orx(std::string("resize p.rla r.rla ") + args), 0) << log();
    ASSERT_EQ(orx("info r.rla"), 0);
    EXPECT_NE(log().find(window), std::string::npos) << args << "\n" << log();
  }
  EXPECT_EQ(orx("resize p.rla r.rla --size 10x10 --filter sharpest"), 2);
  EXPECT_NE(log().find("the filters are box"), std::string::npos);
  EXPECT_EQ(orx("resize p.rla r.rla"), 2);
  if (std::system("command -v oiiotool >/dev/null 2>&1") != 0) return;
  ASSERT_EQ(orx("resize p.rla half.rla --size 200x150"), 0);
  ASSERT_EQ(std::system(("cd '" + dir.path() + "' && oiiotool p.rla --resize 200x150 -o theirs.rla").c_str()), 0);
  EXPECT_EQ(orx("diff half.rla theirs.rla --fail 0.02"), 0) << log();
}

}  // namespace
