#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <random>

#include "config/config_file.hpp"
#include "config_fixture.hpp"

namespace {

using orx::config::ReadStatus;
using ConfigFile = orx::test::ConfigTest;

std::vector<std::string> split(std::string text) {
  char *words[orx::config::kMaxWords + 1];
  uint32_t n = orx::config::split_words(text.data(), words);
  EXPECT_EQ(words[n], nullptr);
  return {words, words + n};
}

TEST(ConfigSplit, QuotesKeepBlanksAndAnOpenQuoteEndsTheLine) {
  using V = std::vector<std::string>;
  EXPECT_EQ(split("  framebuffer \"my fb\"\n"), (V{"framebuffer", "my fb"}));
  EXPECT_EQ(split("a 'b \"c' \x1b" "d e\x1b f"), (V{"a", "b \"c", "d e", "f"}));
  EXPECT_EQ(split("a \"unclosed b c"), (V{"a"}));
  EXPECT_EQ(split("a\tb\x01" "c \xe9 d"), (V{"a", "b", "c", "d"}));
  EXPECT_EQ(split(""), V{});
  std::string many;
  for (int i = 0; i < 20; ++i) many.append("w").append(std::to_string(i)).append(" ");
  V words = split(many);
  ASSERT_EQ(words.size(), 17u);
  EXPECT_EQ(words.back(), "w16");
}

TEST_F(ConfigFile, SearchesHomeThenRootThenInstallDirectory) {
  std::filesystem::create_directories(root_.path() + "/userconfig");
  std::ofstream(root_.path() + "/userconfig/.orxrc") << "from root\n";
  {
    orx::test::ScopedEnv root("KV_ROOT", root_.path());
    ASSERT_EQ(orx::config::read_config(nullptr), ReadStatus::kOk);  // no file in HOME yet
    EXPECT_EQ(std::string(orx::config::config_path()), root_.path() + "/userconfig/.orxrc");
    orx__config_free();
    write_config("from home\n");
    ASSERT_EQ(orx::config::read_config(nullptr), ReadStatus::kOk);
    EXPECT_EQ(std::string(orx::config::config_path()), config_path());
    auto *line = orx__config_next_line();
    ASSERT_NE(line, nullptr);
    EXPECT_STREQ(line->words[1], "home");
    EXPECT_EQ(orx__config_next_line(), nullptr);
    // A later read rewinds instead of reading again.
    std::filesystem::remove(config_path());
    EXPECT_EQ(orx__read_config(nullptr), 0);
    EXPECT_NE(orx__config_next_line(), nullptr);
    orx__config_free();
  }
  orx::test::ScopedEnv no_home("HOME", std::nullopt);
  EXPECT_EQ(orx::config::read_config(nullptr), ReadStatus::kNoFile);
  EXPECT_STREQ(orx::config::config_path(), "/usr/pellomar//userconfig/.orxrc");
  EXPECT_EQ(orx__read_config(nullptr), -1);
}

// A line keeps its first 255 characters; the rest of it is dropped, never read
// as a line of its own (a long comment must not smuggle in a setting).
TEST_F(ConfigFile, LongLinesKeepTheirFirst255Characters) {
  write_config(std::string(300, 'x') + " fb__default evil\n" + std::string(255, 'y') + "\nnext");
  ASSERT_EQ(orx__read_config(nullptr), 0);
  std::vector<std::string> lines;
  while (auto *line = orx__config_next_line()) lines.emplace_back(line->words[0]);
  EXPECT_EQ(lines, (std::vector<std::string>{std::string(255, 'x'), std::string(255, 'y'), "next"}));
}

TEST_F(ConfigFile, ExhaustionWhileReadingIsReportedAndFreesTheLines) {
  write_config("a\nb\nc\n");
  orx::test::ErrorCapture cap;
  orx::test::for_each_allocation_failure([&] {
    cap.clear();
    ReadStatus s = orx::config::read_config(nullptr);
    if (s != ReadStatus::kOk) {
      EXPECT_TRUE(cap.last_is(orx::Msg::kConfigNoMemory));
      return false;
    }
    orx__config_free();
    return true;
  });
}

// Random bytes as the configuration file: every database must survive them.
TEST_F(ConfigFile, RandomBytesNeverCrashAnyDatabase) {
  std::mt19937 rng(20261122);
  const char *pieces[] = {"framebuffer ", "end_framebuffer\n", "resolution 1 2\n", "\"",
                          "'",           "\x1b",               "fmt__aspect_table\n",
                          "end_aspect_table\n", "clr__cmf_table\n", "end_cmf_table\n",
                          "gamma x\n",   "# c\n",            "1 2 3 4\n", "\n", " "};
  orx::test::ErrorCapture cap;
  for (int round = 0; round < 150; ++round) {
    std::string text;
    int n = static_cast<int>(rng() % 60);
    for (int i = 0; i < n; ++i) {
      if (rng() % 3 == 0)
        text += pieces[rng() % std::size(pieces)];
      else
        text += static_cast<char>(rng() % 256);
    }
    write_config(text);
    ASSERT_EQ(FB_init(nullptr), 0);
    while (FB_info() != nullptr) {
    }
    ASSERT_EQ(FMT_init(nullptr), 0);
    while (FMT_info() != nullptr) {
    }
    ASSERT_EQ(CLR_init(nullptr), 0);
    uint32_t count = 0;
    ASSERT_NE(CLR_def_cmf(&count), nullptr);
    FB_exit();
    FMT_exit();
    CLR_exit();
  }
}

}  // namespace
