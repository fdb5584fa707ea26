#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "orx/str.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

using Str = orx::test::CleanErrors;

TEST_F(Str, CompareDiffersBySignedBytesAndSortsNullFirst) {
  EXPECT_EQ(STR_compare("abc", "abc"), 0);
  EXPECT_EQ(STR_compare("abc", "abd"), -1);
  EXPECT_EQ(STR_compare("abcd", "abc"), 'd');
  EXPECT_EQ(STR_compare("\x80", "a"), -128 - 'a');  // high bytes are negative
  EXPECT_LT(STR_compare(nullptr, "a"), 0);
  EXPECT_GT(STR_compare("a", nullptr), 0);
  EXPECT_EQ(STR_compare(nullptr, nullptr), 0);

  EXPECT_EQ(STR_n_compare("abcX", "abcY", 3), 0);
  EXPECT_EQ(STR_n_compare("abcX", "abcY", 4), 'X' - 'Y');
  EXPECT_EQ(STR_n_compare("ab", "ab", 10), 0);
  EXPECT_EQ(STR_n_compare("ax", "ay", 0), 0);  // below 2: first characters only
  EXPECT_EQ(STR_n_compare("bx", "ay", 1), 1);
  EXPECT_LT(STR_n_compare(nullptr, "a", 3), 0);

  EXPECT_EQ(STR_length("frame"), 5u);
  EXPECT_EQ(STR_length(""), 0u);
  EXPECT_EQ(STR_length(nullptr), 0u);
}

TEST_F(Str, AbbrStarMarksTheShortestAllowedAbbreviation) {
  for (const char *yes : {"del", "dele", "delete"}) EXPECT_TRUE(STR_abbr(yes, "del*ete")) << yes;
  for (const char *no : {"de", "delx", "deletex", ""}) EXPECT_FALSE(STR_abbr(no, "del*ete")) << no;
  EXPECT_TRUE(STR_abbr("quit", "quit"));
  EXPECT_FALSE(STR_abbr("qui", "quit"));
  EXPECT_TRUE(STR_abbr("", "*all"));
  EXPECT_TRUE(STR_abbr("al", "*all"));
  EXPECT_FALSE(STR_abbr(nullptr, "del*ete"));
  EXPECT_FALSE(STR_abbr("del", nullptr));

  EXPECT_EQ(STR_abbr_compare("del*ete", "delete"), 0);
  EXPECT_EQ(STR_abbr_compare("delete", "**del*ete"), 0);
  EXPECT_EQ(STR_abbr_compare("del*ete", "delx"), 'e' - 'x');
  EXPECT_EQ(STR_abbr_compare("del*", "delete"), -'e');
  EXPECT_LT(STR_abbr_compare(nullptr, "a"), 0);
}

TEST_F(Str, FindFindsSlotsAndSpaceBoundaries) {
  char a[] = "red", b[] = "green", c[] = "red";
  char *array[] = {a, b, c, nullptr};
  EXPECT_EQ(STR_find_string(array, "red"), &array[0]);
  EXPECT_EQ(STR_find_string_reverse(array, "red"), &array[2]);
  EXPECT_EQ(STR_find_string(array, "green"), &array[1]);
  EXPECT_EQ(STR_find_string_reverse(array, "blue"), nullptr);
  EXPECT_EQ(STR_find_string(nullptr, "red"), nullptr);
  EXPECT_EQ(STR_find_string(array, nullptr), nullptr);

  const char *text = " ab cd";
  EXPECT_EQ(STR_find_space(text), text + 3);  // the first character is passed over
  const char *word = "abc";
  EXPECT_EQ(STR_find_space(word), word + 3);
  const char *empty = "";
  EXPECT_EQ(STR_find_space(empty), empty);
  const char *padded = " \t\n x";
  EXPECT_EQ(STR_skip_space(padded), padded + 4);
  EXPECT_EQ(STR_skip_space(text), text + 1);
  EXPECT_EQ(STR_skip_space(empty), empty);
  EXPECT_EQ(STR_find_space(nullptr), nullptr);
  EXPECT_EQ(STR_skip_space(nullptr), nullptr);
}

// The string functions report nothing, not even on the first use of the
// integer limits: a fresh process sees to that.
TEST(StrDeathTest, FirstIntegerTestReportsNothing) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ERR_unmask_s(ERR_DEBUG);
        orx::test::ErrorCapture cap;
        STR_is_integer("1");
        std::exit(cap.size() == 0 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(Str, IsIntegerAcceptsLimitsRefusesOverflowAndLonePlus) {
  for (const char *yes : {"0", "+7", "-12", "999999999", "2147483647", "-2147483648",
                          "+2147483647", "0000000001"})
    EXPECT_TRUE(STR_is_integer(yes)) << yes;
  for (const char *no : {"2147483648", "-2147483649", "02147483647", "99999999999", "+", "-",
                         "", "1a", " 1", "1.0", "--1"})
    EXPECT_FALSE(STR_is_integer(no)) << no;
  EXPECT_FALSE(STR_is_integer(nullptr));

  EXPECT_TRUE(STR_is_numeric("0123"));
  EXPECT_FALSE(STR_is_numeric(""));
  EXPECT_FALSE(STR_is_numeric("-1"));
  EXPECT_FALSE(STR_is_numeric(nullptr));
}

TEST_F(Str, IsRealAcceptsOptionalPartsRefusesBareExponent) {
  for (const char *yes : {"1.", "-.5e+3", "-", "+", ".", "3.25", "1e5", "2E-7", "e5", "12"})
    EXPECT_TRUE(STR_is_real(yes)) << yes;
  for (const char *no : {"1e", "", "1e+", "1.2.3", "1e5.0", "1f", " 1", "--1"})
    EXPECT_FALSE(STR_is_real(no)) << no;
  EXPECT_FALSE(STR_is_real(nullptr));
}

TEST_F(Str, ParseSplitsInPlaceIntoANullTerminatedArray) {
  char line[] = "  fb__default \t 640  480\n";
  char **words = STR_parse(line);
  ASSERT_NE(words, nullptr);
  ASSERT_STREQ(words[0], "fb__default");
  ASSERT_STREQ(words[1], "640");
  ASSERT_STREQ(words[2], "480");
  EXPECT_EQ(words[3], nullptr);
  EXPECT_EQ(words[0], line + 2);  // pointers into the string itself
  std::free(words);

  for (const char *blank : {"", " \t "}) {
    std::string s = blank;
    char **none = STR_parse(s.data());
    ASSERT_NE(none, nullptr);
    EXPECT_EQ(none[0], nullptr);
    std::free(none);
  }
  EXPECT_EQ(STR_parse(nullptr), nullptr);

  char kept[] = "a b";
  {
    orx::test::FailNthAllocation fail(1);
    EXPECT_EQ(STR_parse(kept), nullptr);
  }
  EXPECT_STREQ(kept, "a b");  // untouched when the array could not be made
}

}  // namespace
