// orx maketx and orx swatch as processes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "run_tool.hpp"
#include "support/fixtures.hpp"

namespace {

using orx::test::slurp;

std::size_t count(const std::string &text, const std::string &part) {
  std::size_t n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

TEST(OrxTexture, MaketxWritesEveryLevelAndSwatchAddsAPreview) {
  orx::test::TempDir dir;
  const auto orx = [&](const std::string &args) { return orx::test::run_orx(dir.path(), args); };
  ASSERT_EQ(orx("pattern a.rla --size 300x200"), 0);
  ASSERT_EQ(orx("maketx a.rla t.rla"), 0);
  ASSERT_EQ(orx("info t.rla"), 0);
  const std::string info = slurp(dir.file("log"));
  EXPECT_NE(info.find("mipmap color"), std::string::npos) << info;
  EXPECT_EQ(count(info, "  image "), 9u) << info;  // 300x200 down to 1x1
  EXPECT_NE(info.find("0..36 x 0..24 (37 x 25)"), std::string::npos);

  ASSERT_EQ(orx("swatch a.rla s.rla --size 32"), 0);
  ASSERT_EQ(orx("info s.rla"), 0);
  EXPECT_NE(slurp(dir.file("log")).find("0..31 x 0..20 (32 x 21)"), std::string::npos);

  EXPECT_EQ(orx("maketx a.rla u.rla --type shiny"), 2);
  EXPECT_NE(slurp(dir.file("log")).find("color, scalar or bump"), std::string::npos);
  EXPECT_EQ(orx("swatch a.rla u.rla --size 400"), 2);
  EXPECT_NE(slurp(dir.file("log")).find("Swatch dimension incompatible"), std::string::npos)
      << slurp(dir.file("log"));
}

// OpenImageIO reads level 0 of our textures: what it makes of the texture
// is what it makes of the image itself.
TEST(OrxTexture, OpenImageIOReadsTheFirstLevel) {
  if (std::system("command -v oiiotool >/dev/null 2>&1") != 0) GTEST_SKIP() << "no oiiotool";
  orx::test::TempDir dir;
  const auto orx = [&](const std::string &args) { return orx::test::run_orx(dir.path(), args); };
  const auto oiio = [&](const std::string &args) {
    return std::system(("cd '" + dir.path() + "' && oiiotool " + args + " >/dev/null 2>&1").c_str());
  };
  ASSERT_EQ(orx("pattern a.rla --size 120x80 --matte"), 0);
  ASSERT_EQ(orx("maketx a.rla t.rla"), 0);
  ASSERT_EQ(oiio("a.rla -o direct.rla"), 0);
  ASSERT_EQ(oiio("t.rla -o level0.rla"), 0);
  EXPECT_EQ(orx("diff direct.rla level0.rla"), 0) << slurp(dir.file("log"));
}

}  // namespace
