// orx copy with the operator options, as processes.
#include <gtest/gtest.h>

#include <string>

#include "orx/registry.h"
#include "run_tool.hpp"
#include "support/fixtures.hpp"
#include "support/images.hpp"

namespace {

using orx::test::slurp;

TEST(OrxCopyOperators, DepthGammaImageRangeAndClamp) {
  orx::test::TempDir dir;
  const auto orx = [&](const std::string &args) { return orx::test::run_orx(dir.path(), args); };
  const auto log = [&] { return slurp(dir.file("log")); };
  ASSERT_EQ(orx("pattern p.rla --size 64x32 --matte"), 0);
  ASSERT_EQ(orx("copy p.rla f.rla --depth float --clamp"), 0);
  ASSERT_EQ(orx("info f.rla"), 0);
  EXPECT_NE(log().find("3 x float 32-bit"), std::string::npos) << log();
  EXPECT_NE(log().find("gamma     1.0000"), std::string::npos);  // linearised on the way
  ASSERT_EQ(orx("copy f.rla i.rla --depth int16"), 0);
  ASSERT_EQ(orx("info i.rla"), 0);
  EXPECT_NE(log().find("matte     1 x integer 16-bit"), std::string::npos) << log();
  EXPECT_EQ(orx("diff f.rla i.rla --fail 0.00002"), 0) << log();

  EXPECT_EQ(orx("copy i.rla g.rla --gamma 1.8"), 2);
  EXPECT_NE(log().find("gamma correction operator cannot handle image channel width"),
            std::string::npos)
      << log();
  EXPECT_EQ(orx("copy p.rla g.rla --gamma 1.0"), 0);
  EXPECT_EQ(orx("copy p.rla r.rla --range 0.25,1.0"), 0);
  EXPECT_EQ(orx("copy f.rla r.rla --range 0.25,1.0"), 2);
  EXPECT_EQ(orx("copy p.rla x.rla --depth int12"), 2);

  ASSERT_EQ(orx("copy p.rla w.rla --primaries 0.7347,0.2653,0.1152,0.8264,0.1566,0.0177,0.3457,0.3585"), 0);
  ASSERT_EQ(orx("info w.rla"), 0);
  EXPECT_NE(log().find("white       0.3457 0.3585"), std::string::npos) << log();
  EXPECT_EQ(orx("copy p.rla n.rla --primaries ntsc --xyz"), 0);
  EXPECT_EQ(orx("copy p.rla n.rla --primaries nowhere"), 2);

  ASSERT_EQ(orx("copy p.rla shown.rla --display ntsc"), 0) << log();
  ASSERT_EQ(orx("info shown.rla"), 0);
  EXPECT_NE(log().find("3 x integer 8-bit"), std::string::npos) << log();
  EXPECT_EQ(orx("copy p.rla shown.rla --display nowhere"), 2);

  ASSERT_EQ(orx("copy p.rla c.rla --crop 10,4,42,20"), 0) << log();
  ASSERT_EQ(orx("info c.rla"), 0);
  EXPECT_NE(log().find("(32 x 16)"), std::string::npos) << log();
  EXPECT_NE(log().find("3 x integer 8-bit"), std::string::npos) << log();
  EXPECT_EQ(orx("copy p.rla c.rla --crop 10,4,5,20"), 2);
  ASSERT_EQ(orx("copy p.rla whole.rla --crop 0,0,64,32"), 0);
  EXPECT_EQ(orx("diff p.rla whole.rla"), 0) << log();  // a whole crop copies exactly

  ASSERT_EQ(orx("maketx p.rla t.rla"), 0);
  ASSERT_EQ(orx("copy t.rla level2.rla --image 2"), 0);
  ASSERT_EQ(orx("info level2.rla"), 0);
  EXPECT_NE(log().find("(16 x 8)"), std::string::npos) << log();
  EXPECT_EQ(orx("copy t.rla none.rla --image 9"), 2);
}

// Two field files made through the library (the tool cannot mark fields),
// merged by orx copy --fields into one frame of twice the height.
TEST(OrxCopyOperators, FieldsMergeIntoAFrame) {
  orx::test::TempDir dir;
  for (const auto &[name, field] : {std::pair{"take.0007.rla", 1}, {"take.0008", 2}}) {
    ORX_IFD d;
    orx__init_ifd(&d);
    d.window = d.active = {0, 15, 0, 4};
    d.image = {nullptr, 1, ORX_C_INTEGER, 8, 0};
    d.field = field;
    orx::test::write_image(dir.file(name), d, [](int, int32_t, int32_t) { return 0; });
  }
  ORX_exit();
  const auto orx = [&](const std::string &args) { return orx::test::run_orx(dir.path(), args); };
  ASSERT_EQ(orx("copy take.0007.rla frame.rla --fields"), 0) << slurp(dir.file("log"));
  ASSERT_EQ(orx("info frame.rla"), 0);
  EXPECT_NE(slurp(dir.file("log")).find("(16 x 10)"), std::string::npos) << slurp(dir.file("log"));
  // The partner's name never has the extension: from "take.0008" it is
  // "take.0007", which is not there.
  EXPECT_EQ(orx("copy take.0008 frame.rla --fields --type rla"), 2);
  EXPECT_NE(slurp(dir.file("log")).find("take.0007;"), std::string::npos) << slurp(dir.file("log"));
  ASSERT_EQ(orx("pattern plain.0003.rla --size 8x4"), 0);
  EXPECT_EQ(orx("copy plain.0003.rla frame.rla --fields"), 2);
}

}  // namespace
