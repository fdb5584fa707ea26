#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config_fixture.hpp"

namespace {

using Framebuffers = orx::test::ConfigTest;

std::vector<std::string> names() {
  std::vector<std::string> out;
  FB_init(nullptr);
  while (FB_FRAMEBUFFER *fb = FB_info()) out.push_back(fb->name);
  return out;
}

TEST_F(Framebuffers, WithoutAFileOnlyTheBuiltInsInOrder) {
  orx::test::ScopedEnv no_home("HOME", std::nullopt);
  orx::test::ErrorCapture cap;
  ERR_unmask_s(ERR_DEBUG);
  EXPECT_STREQ(FB_def_framebuffer(), "full");
  EXPECT_EQ(cap.last(), orx::test::message(orx::Msg::kConfigInitDatabase, "fb", "FB_def_framebuffer"));
  EXPECT_EQ(names(), (std::vector<std::string>{"full", "ntsc", "pal"}));
  EXPECT_EQ(cap.size(), 1u);  // announced once

  FB_FRAMEBUFFER *ntsc = FB_find("ntsc");
  ASSERT_NE(ntsc, nullptr);
  EXPECT_EQ(ntsc->x_resolution, 640);
  EXPECT_EQ(ntsc->y_resolution, 486);
  EXPECT_EQ(ntsc->aspect, 1.33f);
  EXPECT_EQ(ntsc->red[0], 0.598f);
  EXPECT_EQ(ntsc->white[2], 0.337f);
  EXPECT_EQ(ntsc->gamma, 2.2f);
  EXPECT_EQ(ntsc->depth, 24);
  FB_FRAMEBUFFER *pal = FB_find("pal");
  ASSERT_NE(pal, nullptr);
  EXPECT_EQ(pal->x_resolution, 780);
  EXPECT_EQ(pal->blue[2], 0.79f);
  EXPECT_EQ(FB_find("PAL"), nullptr);
  EXPECT_EQ(FB_find(nullptr), nullptr);
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
  EXPECT_EQ(names(), (std::vector<std::string>{"full", "pal", "ntsc", "studio monitor"}));
  EXPECT_STREQ(FB_def_framebuffer(), "studio monitor");
  FB_FRAMEBUFFER *ntsc = FB_find("ntsc");
  ASSERT_NE(ntsc, nullptr);
  EXPECT_EQ(ntsc->x_resolution, 720);
  EXPECT_EQ(ntsc->gamma, 1.8f);
  EXPECT_EQ(ntsc->white[0], 0.3127f);
  EXPECT_EQ(ntsc->white[2], 0.374f);  // "x" kept the value copied from "full"
  EXPECT_EQ(ntsc->red[0], 0.67f);     // from "full", not the built-in "ntsc"
  FB_FRAMEBUFFER *studio = FB_find("studio monitor");
  ASSERT_NE(studio, nullptr);
  EXPECT_EQ(studio->aspect, 1.33f);
  EXPECT_EQ(studio->red[0], 0.64f);
  EXPECT_EQ(studio->x_resolution, 1280);
  EXPECT_EQ(FB_find("never_closed"), nullptr);
  FB_FRAMEBUFFER *full = FB_find("full");
  ASSERT_NE(full, nullptr);
  EXPECT_EQ(full->x_resolution, 1280);  // the built-in was copied, not changed
}

TEST_F(Framebuffers, WrongWordCountsAreReportedWithPathAndLine) {
  write_config("# a comment line\n\nframebuffer a\nresolution 640\nend_framebuffer extra\n"
               "end_framebuffer\n");
  orx::test::ErrorCapture cap;
  EXPECT_EQ(FB_init(nullptr), 0);
  ASSERT_EQ(cap.size(), 2u);
  for (int line : {4, 5})
    EXPECT_EQ(cap.reports()[line - 4].message,
              orx::test::message(orx::Msg::kConfigSyntax, config_path().c_str(), line));
  FB_FRAMEBUFFER *a = FB_find("a");
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->x_resolution, 1280);
}

TEST_F(Framebuffers, FindKeepsTheListingPositionOnAMiss) {
  FB_init(nullptr);
  EXPECT_STREQ(FB_info()->name, "full");
  EXPECT_EQ(FB_find("absent"), nullptr);
  EXPECT_STREQ(FB_info()->name, "ntsc");
  EXPECT_NE(FB_find("full"), nullptr);  // a hit moves past the entry found
  EXPECT_STREQ(FB_info()->name, "ntsc");
  FB_init(nullptr);  // a later init rewinds
  EXPECT_STREQ(FB_info()->name, "full");
}

TEST_F(Framebuffers, ExhaustionTearsTheDatabaseDownWithoutLeaks) {
  write_config("fb__default x\nframebuffer a\nend_framebuffer\nframebuffer b\nend_framebuffer\n");
  sweep_exhaustion(FB_init, false, [] {
    const bool complete = FB_find("b") != nullptr;
    FB_exit();
    return complete;
  });
}

TEST(FramebufferSymbols, PrintsANoteForApplications) {
  testing::internal::CaptureStderr();
  FB_symbols();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "FB_symbols: should not be called by the application\n");
}

}  // namespace
