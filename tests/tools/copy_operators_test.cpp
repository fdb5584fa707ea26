// orx copy with the operator options, as processes.
#include <gtest/gtest.h>

#include <string>

#include "orx/registry.h"
#include "run_tool.hpp"
#include "support/fixtures.hpp"
#include "support/images.hpp"

namespace {

using OrxCopyOperators = orx::test::ToolTest;

TEST_F(OrxCopyOperators, DepthGammaImageRangeAndClamp) {
  ASSERT_EQ(run("pattern p.rla --size 64x32 --matte"), 0);
  ASSERT_EQ(run("copy p.rla f.rla --depth float --clamp"), 0);
  ASSERT_EQ(run("info f.rla"), 0);
  EXPECT_NE(log_.find("3 x float 32-bit"), std::string::npos) << log_;
  EXPECT_NE(log_.find("gamma     1.0000"), std::string::npos);  // linearised on the way
  ASSERT_EQ(run("copy f.rla i.rla --depth int16"), 0);
  ASSERT_EQ(run("info i.rla"), 0);
  EXPECT_NE(log_.find("matte     1 x integer 16-bit"), std::string::npos) << log_;
  EXPECT_EQ(run("diff f.rla i.rla --fail 0.00002"), 0) << log_;

  EXPECT_EQ(run("copy i.rla g.rla --gamma 1.8"), 2);
  EXPECT_NE(log_.find("gamma correction operator cannot handle image channel width"),
            std::string::npos)
      << log_;
  EXPECT_EQ(run("copy p.rla g.rla --gamma 1.0"), 0);
  EXPECT_EQ(run("copy p.rla r.rla --range 0.25,1.0"), 0);
  EXPECT_EQ(run("copy f.rla r.rla --range 0.25,1.0"), 2);
  EXPECT_EQ(run("copy p.rla x.rla --depth int12"), 2);

  ASSERT_EQ(run("copy p.rla w.rla --primaries 0.7347,0.2653,0.1152,0.8264,0.1566,0.0177,0.3457,0.3585"), 0);
  ASSERT_EQ(run("info w.rla"), 0);
  EXPECT_NE(log_.find("white       0.3457 0.3585"), std::string::npos) << log_;
  EXPECT_EQ(run("copy p.rla n.rla --primaries ntsc --xyz"), 0);
  EXPECT_EQ(run("copy p.rla n.rla --primaries nowhere"), 2);

  ASSERT_EQ(run("copy p.rla shown.rla --display ntsc"), 0) << log_;
  ASSERT_EQ(run("info shown.rla"), 0);
  EXPECT_NE(log_.find("3 x integer 8-bit"), std::string::npos) << log_;
  EXPECT_EQ(run("copy p.rla shown.rla --display nowhere"), 2);

  ASSERT_EQ(run("copy p.rla c.rla --crop 10,4,42,20"), 0) << log_;
  ASSERT_EQ(run("info c.rla"), 0);
  EXPECT_NE(log_.find("(32 x 16)"), std::string::npos) << log_;
  EXPECT_NE(log_.find("3 x integer 8-bit"), std::string::npos) << log_;
  EXPECT_EQ(run("copy p.rla c.rla --crop 10,4,5,20"), 2);
  ASSERT_EQ(run("copy p.rla whole.rla --crop 0,0,64,32"), 0);
  EXPECT_EQ(run("diff p.rla whole.rla"), 0) << log_;  // a whole crop copies exactly

  ASSERT_EQ(run("maketx p.rla t.rla"), 0);
  ASSERT_EQ(run("copy t.rla level2.rla --image 2"), 0);
  ASSERT_EQ(run("info level2.rla"), 0);
  EXPECT_NE(log_.find("(16 x 8)"), std::string::npos) << log_;
  EXPECT_EQ(run("copy t.rla none.rla --image 9"), 2);
}

// Two field files made through the library (the tool cannot mark fields),
// merged by orx copy --fields into one frame of twice the height.
TEST_F(OrxCopyOperators, FieldsMergeIntoAFrame) {
  for (const auto &[name, field] : {std::pair{"take.0007.rla", 1}, {"take.0008", 2}}) {
    ORX_IFD d;
    orx__init_ifd(&d);
    d.window = d.active = {0, 15, 0, 4};
    d.image = {nullptr, 1, ORX_C_INTEGER, 8, 0};
    d.field = field;
    orx::test::write_image(dir_.file(name), d, [](int, int32_t, int32_t) { return 0; });
  }
  ORX_exit();
  ASSERT_EQ(run("copy take.0007.rla frame.rla --fields"), 0) << log_;
  ASSERT_EQ(run("info frame.rla"), 0);
  EXPECT_NE(log_.find("(16 x 10)"), std::string::npos) << log_;
  // The partner's name never has the extension: from "take.0008" it is
  // "take.0007", which is not there.
  EXPECT_EQ(run("copy take.0008 frame.rla --fields --type rla"), 2);
  EXPECT_NE(log_.find("take.0007;"), std::string::npos) << log_;
  ASSERT_EQ(run("pattern plain.0003.rla --size 8x4"), 0);
  EXPECT_EQ(run("copy plain.0003.rla frame.rla --fields"), 2);
}

}  // namespace
