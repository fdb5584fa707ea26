#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "config_fixture.hpp"

namespace {

using FormatDefaults = orx::test::ConfigTest;

// Every default in one line, the aspect first (its query starts the database).
std::string defaults() {
  std::ostringstream out;
  out << FMT_def_aspect() << " res " << FMT_def_gamma_tab_res() << " gamma " << FMT_def_gamma()
      << " input " << FMT_def_input_gamma() << " key " << FMT_def_key() << " name "
      << FMT_def_base_name() << " data " << FMT_def_image_data() << " dominance "
      << FMT_def_dominance() << " rate " << FMT_def_frame_rate() << " swatch " << FMT_def_swatch();
  return out.str();
}

TEST_F(FormatDefaults, WithoutAFileTheDatabaseIsAnnouncedAndHoldsOneAspect) {
  orx::test::ErrorCapture cap;
  ERR_unmask_s(ERR_DEBUG);
  EXPECT_STREQ(FMT_def_aspect(), "ntsc_640");
  EXPECT_EQ(cap.last(), orx::test::message(orx::Msg::kConfigInitDatabase, "fmt", "FMT_def_aspect"));
  EXPECT_EQ(names(FMT_init, FMT_info), std::vector<std::string>{"ntsc_640"});
}

// The gamma table resolution is taken without checks, an input gamma that is
// not a real and an aspect not in the table are ignored, and so are frame
// rates and swatch sizes below one; a later line replaces an earlier one.
TEST_F(FormatDefaults, EveryKeywordFollowsItsRule) {
  write_config(
      "fmt__gamma_table_res -7\n"
      "fmt__gamma_default 1.7\n"
      "fmt__input_gamma_default abc\n"
      "fmt__key_default tif\n"
      "fmt__name_default shot\n"
      "fmt__chan_default rgba\n"
      "fmt__dominance even\n"
      "fmt__frame_rate 0\n"
      "fmt__swatch_size -5\n"
      "fmt__aspect_default hd\n");
  EXPECT_EQ(defaults(),
            "ntsc_640 res -7 gamma 1.7 input 1 key tif name shot data rgba dominance 0 rate 30 swatch 0");
  FMT_exit();
  write_config("fmt__dominance odd\nfmt__frame_rate -3\nfmt__frame_rate 25\n"
               "fmt__swatch_size none\nfmt__swatch_size 64\n");
  EXPECT_EQ(
      defaults(),
      "ntsc_640 res 4096 gamma 2.2 input 1 key rla name im data rgb dominance 1 rate 25 swatch 64");
}

TEST_F(FormatDefaults, AspectTableEntriesCommentsAndRedefinitions) {
  write_config(
      "fmt__aspect_default hd\n"
      "fmt__aspect_table\n"
      "# name xres yres aspect\n"
      "hd 1920 1080 1.78\n"
      "ntsc_640 648 486 1.0\n"
      "broken 1 2\n"
      "odd 10 20 square\n"
      "fmt__frame_rate 24\n"           // keywords still work inside the table
      "end_aspect_table\n"
      "outside 1 2 3\n");              // not in a table: skipped
  orx::test::ErrorCapture cap;
  EXPECT_EQ(names(FMT_init, FMT_info), (std::vector<std::string>{"hd", "ntsc_640", "odd"}));
  ASSERT_EQ(cap.size(), 1u);
  EXPECT_EQ(cap.last(), orx::test::message(orx::Msg::kConfigSyntax, config_path().c_str(), 6));
  EXPECT_STREQ(FMT_def_aspect(), "hd");
  EXPECT_EQ(FMT_def_frame_rate(), 24);
  FMT_FORMAT *ntsc = FMT_find("ntsc_640");
  ASSERT_NE(ntsc, nullptr);
  EXPECT_EQ(ntsc->x_resolution, 648);
  EXPECT_EQ(ntsc->aspect, 1.0f);
  FMT_FORMAT *odd = FMT_find("odd");
  ASSERT_NE(odd, nullptr);
  EXPECT_EQ(odd->aspect, 0.0f);  // a non-real aspect is left unset
  EXPECT_EQ(FMT_find("outside"), nullptr);
}

TEST_F(FormatDefaults, ExhaustionIsReportedAndLeavesNothingBehind) {
  write_config("fmt__key_default tif\nfmt__aspect_default b\nfmt__aspect_table\n"
               "a 1 2 1.0\nb 3 4 1.5\nend_aspect_table\n");
  sweep_exhaustion(FMT_init, true, [] {
    const bool complete = std::string(FMT_def_aspect()) == "b" && FMT_find("a") != nullptr;
    FMT_exit();
    return complete;
  });
}

}  // namespace
