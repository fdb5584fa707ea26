// orx maketx and orx swatch as processes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "run_tool.hpp"
#include "support/fixtures.hpp"

namespace {

std::size_t count(const std::string &text, const std::string &part) {
  std::size_t n = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

using OrxTexture = orx::test::ToolTest;

TEST_F(OrxTexture, MaketxWritesEveryLevelAndSwatchAddsAPreview) {
  ASSERT_EQ(run("pattern a.rla --size 300x200"), 0);
  ASSERT_EQ(run("maketx a.rla t.rla"), 0);
  ASSERT_EQ(run("info t.rla"), 0);
  EXPECT_NE(log_.find("mipmap color"), std::string::npos) << log_;
  EXPECT_EQ(count(log_, "  image "), 9u) << log_;  // 300x200 down to 1x1
  EXPECT_NE(log_.find("0..36 x 0..24 (37 x 25)"), std::string::npos);

  ASSERT_EQ(run("swatch a.rla s.rla --size 32"), 0);
  ASSERT_EQ(run("info s.rla"), 0);
  EXPECT_NE(log_.find("0..31 x 0..20 (32 x 21)"), std::string::npos);

  EXPECT_EQ(run("maketx a.rla u.rla --type shiny"), 2);
  EXPECT_NE(log_.find("color, scalar or bump"), std::string::npos);
  EXPECT_EQ(run("swatch a.rla u.rla --size 400"), 2);
  EXPECT_NE(log_.find("Swatch dimension incompatible"), std::string::npos)
      << log_;
}

// OpenImageIO reads level 0 of our textures: what it makes of the texture
// is what it makes of the image itself.
TEST_F(OrxTexture, OpenImageIOReadsTheFirstLevel) {
  ORX_REQUIRE_TOOL("oiiotool");
  const auto oiio = [&](const std::string &args) {
    return shell("oiiotool " + args + " >/dev/null 2>&1");
  };
  ASSERT_EQ(run("pattern a.rla --size 120x80 --matte"), 0);
  ASSERT_EQ(run("maketx a.rla t.rla"), 0);
  ASSERT_EQ(oiio("a.rla -o direct.rla"), 0);
  ASSERT_EQ(oiio("t.rla -o level0.rla"), 0);
  EXPECT_EQ(run("diff direct.rla level0.rla"), 0) << log_;
}

}  // namespace
