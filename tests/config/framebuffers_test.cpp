#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "config_fixture.hpp"

namespace {

using Framebuffers = orx::test::ConfigTest;

// An entry's numbers in one line: origin, resolution, aspect, gamma, depth,
// then the primaries and the white point (x y z each).
std::string fields(const FB_FRAMEBUFFER *fb) {
  if (fb == nullptr) return "(none)";
  std::ostringstream out;
  out << fb->x_origin << "," << fb->y_origin << " " << fb->x_resolution << "x" << fb->y_resolution
      << " " << fb->aspect << " gamma " << fb->gamma << " depth " << fb->depth;
  for (const float *xyz : {fb->red, fb->green, fb->blue, fb->white})
    out << " " << xyz[0] << " " << xyz[1] << " " << xyz[2];
  return out.str();
}

TEST_F(Framebuffers, WithoutAFileOnlyTheBuiltInsInOrder) {
  orx::test::ScopedEnv no_home("HOME", std::nullopt);
  orx::test::ErrorCapture cap;
  ERR_unmask_s(ERR_DEBUG);
  EXPECT_STREQ(FB_def_framebuffer(), "full");
  EXPECT_EQ(cap.last(), orx::test::message(orx::Msg::kConfigInitDatabase, "fb", "FB_def_framebuffer"));
  EXPECT_EQ(names(FB_init, FB_info), (std::vector<std::string>{"full", "ntsc", "pal"}));
  EXPECT_EQ(cap.size(), 1u);  // announced once
  EXPECT_EQ(FB_find("PAL"), nullptr);
  EXPECT_EQ(FB_find(nullptr), nullptr);
  testing::internal::CaptureStderr();
  FB_symbols();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "FB_symbols: should not be called by the application\n");
}

TEST_F(Framebuffers, FileEntriesStartAsFullAndRedefinitionsMoveToTheEnd) {
  write_config(
      "fb__default \"studio monitor\"\n"
      "framebuffer ntsc\n"
      "  resolution 720 480\n"
      "  gamma 1.8\n"
      "  white_point 0.3127 0.329 x\n"
      "end_framebuffer\n"
      "resolution 1 1\n"                    // outside an entry: ignored
      "framebuffer \"studio monitor\"\n"
      "  aspect wide\n"                     // not a real: unchanged
      "  red_primary 0.64 0.33 0.03\n"
      "end_framebuffer\n"
      "framebuffer never_closed\n"
      "  resolution 2 2\n");
  EXPECT_EQ(names(FB_init, FB_info), (std::vector<std::string>{"full", "pal", "ntsc", "studio monitor"}));
  EXPECT_STREQ(FB_def_framebuffer(), "studio monitor");
  // "ntsc" starts from "full", not from the built-in "ntsc"; "x" keeps the
  // white point's z from "full", "wide" its aspect.  "full" itself is unchanged.
  EXPECT_EQ(fields(FB_find("ntsc")), "0,0 720x480 1.33 gamma 1.8 depth 24 "
            "0.67 0.33 0 0.21 0.71 0.08 0.14 0.08 0.78 0.3127 0.329 0.374");
  EXPECT_EQ(fields(FB_find("studio monitor")), "0,0 1280x1024 1.33 gamma 2.2 depth 24 "
            "0.64 0.33 0.03 0.21 0.71 0.08 0.14 0.08 0.78 0.31 0.316 0.374");
  EXPECT_EQ(fields(FB_find("full")), "0,0 1280x1024 1.33 gamma 2.2 depth 24 "
            "0.67 0.33 0 0.21 0.71 0.08 0.14 0.08 0.78 0.31 0.316 0.374");
  EXPECT_EQ(FB_find("never_closed"), nullptr);
}

TEST_F(Framebuffers, ExhaustionTearsTheDatabaseDownWithoutLeaks) {
  write_config("fb__default x\nframebuffer a\nend_framebuffer\nframebuffer b\nend_framebuffer\n");
  sweep_exhaustion(FB_init, false, [] {
    const bool complete = FB_find("b") != nullptr;
    FB_exit();
    return complete;
  });
}

}  // namespace
