// orx commands over inputs the tool cannot make itself (fields, a cut
// file, message texts), and against OpenImageIO as the oracle of resizing
// and of reading textures.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "orx/registry.h"
#include "run_tool.hpp"
#include "support/fixtures.hpp"
#include "support/images.hpp"

namespace {

using orx::test::slurp;
using OrxCommands = orx::test::ToolTest;

// Two field files made through the library (the tool cannot mark fields),
// merged by orx copy --fields into one frame of twice the height.
TEST_F(OrxCommands, FieldsMergeIntoAFrame) {
  for (const auto &[name, field] : {std::pair{"take.0007.rla", 1}, {"take.0008", 2}}) {
    ORX_IFD d = orx::test::describe(orx::test::sized(16, 5, {1}));
    d.field = field;
    orx::test::write_image(dir_.file(name), d, [](int, int32_t, int32_t) { return 0; });
  }
  ORX_exit();
  script({
      {"copy take.0007.rla frame.rla --fields", 0},
      {"info frame.rla", 0, {"(16 x 10)"}},
      // The partner's name never has the extension: from "take.0008" it is
      // "take.0007", which is not there.
      {"copy take.0008 frame.rla --fields --type rla", 2, {"take.0007;"}},
      {"pattern plain.0003.rla --size 8x4", 0},
      {"copy plain.0003.rla frame.rla --fields", 2},
  });
}

// Resizing: the identity is exact, sizes come out as asked, a damaged frame
// fails with the reader's reason and leaves no output (though the filter
// itself reads past its missing lines), and OpenImageIO resizes alike.
TEST_F(OrxCommands, ResizeSizesFiltersAndDamage) {
  ASSERT_EQ(run("pattern p.rla --size 400x300 --matte"), 0);
  const std::string whole = slurp(dir_.file("p.rla"));
  orx::test::write_text(dir_.file("cut.rla"), whole.substr(0, whole.size() / 2));
  script({
      {"resize p.rla same.rla --size 400x300 --filter box", 0},
      {"diff p.rla same.rla", 0},
      {"resize p.rla r.rla --size 200x150", 0},
      {"info r.rla", 0, {"(200 x 150)"}},
      {"resize p.rla r.rla --scale 2.5 --filter mitchell", 0},
      {"info r.rla", 0, {"(1000 x 750)"}},
      {"resize p.rla r.rla --size 100x100 --fit", 0},
      {"info r.rla", 0, {"(100 x 75)"}},
      {"resize p.rla r.rla --size 10x10 --filter sharpest", 2, {"the filters are box"}},
      {"resize p.rla r.rla", 2},
      {"resize cut.rla cut_r.rla --size 200x150", 2, {"cut.rla: "}},
  });
  EXPECT_FALSE(std::filesystem::exists(dir_.file("cut_r.rla")));
}

// OpenImageIO as the oracle: its resize agrees with ours, and it reads
// level 0 of our texture as it reads the image itself.
TEST_F(OrxCommands, OpenImageIOResizesAndReadsTexturesAlike) {
  ORX_REQUIRE_TOOL("oiiotool");
  ASSERT_EQ(run("pattern p.rla --size 400x300 --matte"), 0);
  ASSERT_EQ(run("resize p.rla half.rla --size 200x150"), 0);
  ASSERT_EQ(shell("oiiotool p.rla --resize 200x150 -o theirs.rla"), 0);
  EXPECT_EQ(run("diff half.rla theirs.rla --fail 0.02"), 0) << log_;
  ASSERT_EQ(run("maketx p.rla t.rla"), 0);
  ASSERT_EQ(shell("oiiotool p.rla -o direct.rla >/dev/null 2>&1"), 0);
  ASSERT_EQ(shell("oiiotool t.rla -o level0.rla >/dev/null 2>&1"), 0);
  EXPECT_EQ(run("diff direct.rla level0.rla"), 0) << log_;
}

// orx res: the library's messages, built into a catalogue, dumped and built
// again to the same bytes; a bad text names its line.
TEST_F(OrxCommands, ResMessagesBuildDumpAndBuildBack) {
  const std::string orx = "'" ORX_TOOL "' res ";
  ASSERT_EQ(shell(orx + "messages >en.txt && " + orx + "build en.txt en.res && " + orx +
                  "dump en.res >dump.txt && " + orx + "build dump.txt again.res"),
            0);
  EXPECT_NE(slurp(dir_.file("en.txt"))
                .find("resource ERRO \"902.94\"\nmessage 3 \"No more internal memory\""),
            std::string::npos);
  EXPECT_EQ(slurp(dir_.file("again.res")), slurp(dir_.file("en.res")));
  orx::test::write_text(dir_.file("bad.txt"), "resource TEXT \"a\"\nint x\n");
  script({
      {"res build bad.txt bad.res", 2, {"bad.txt, line 2: not a 32-bit integer"}},
      {"res dump en.txt", 2, {"is not a resource file"}},
  });
}

}  // namespace
