#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "orx/str.h"
#include "support/fixtures.hpp"

namespace {

using StrAlloc = orx::test::CleanErrors;

// A heap string freed at the end of the scope.
struct Free {
  void operator()(char *s) const { std::free(s); }
};
using Heap = std::unique_ptr<char, Free>;

TEST_F(StrAlloc, SaveVariantsCopyBoundAndConcatenate) {
  Heap whole(STR_save("frame"));
  EXPECT_STREQ(whole.get(), "frame");
  Heap cut(STR_n_save("frame", 3));
  EXPECT_STREQ(cut.get(), "fra");
  Heap beyond(STR_n_save("ab", 10));
  EXPECT_STREQ(beyond.get(), "ab");
  Heap none(STR_n_save("ab", 0));
  EXPECT_STREQ(none.get(), "");
  // Only the first n bytes may be looked at: this buffer has no terminator.
  const char unterminated[3] = {'x', 'y', 'z'};
  Heap bounded(STR_n_save(unterminated, 3));
  EXPECT_STREQ(bounded.get(), "xyz");

  Heap joined(STR_save_n(3, "a/", static_cast<const char *>(nullptr), "b.rla"));
  EXPECT_STREQ(joined.get(), "a/b.rla");
  Heap empty(STR_save_n(0));
  EXPECT_STREQ(empty.get(), "");
  Heap negative(STR_save_n(-2));
  EXPECT_STREQ(negative.get(), "");

  EXPECT_EQ(STR_save(nullptr), nullptr);
  EXPECT_EQ(STR_n_save(nullptr, 4), nullptr);
}

TEST_F(StrAlloc, MoreAllocatesEmptyOrTerminatesAtNewLength) {
  char *s = STR_more(nullptr, 8);
  ASSERT_NE(s, nullptr);
  EXPECT_STREQ(s, "");
  std::strcpy(s, "abcdefgh");
  s = STR_more(s, 3);
  ASSERT_NE(s, nullptr);
  EXPECT_STREQ(s, "abc");
  std::free(s);
}

TEST_F(StrAlloc, AppendAndInsertClampAndTreatNullAsEmpty) {
  char *s = STR_append(nullptr, "img");
  EXPECT_STREQ(s, "img");
  s = STR_append(s, ".0001");
  s = STR_n_append(s, ".rlaxx", 4);
  EXPECT_STREQ(s, "img.0001.rla");
  EXPECT_EQ(STR_append(s, nullptr), s);
  EXPECT_EQ(STR_n_append(s, nullptr, 3), s);

  s = STR_insert(s, '/', -7);  // before the start: at the front
  s = STR_insert(s, '!', 1000);  // past the end: appended
  s = STR_insert(s, '_', 4);
  EXPECT_STREQ(s, "/img_.0001.rla!");
  s = STR_n_insert(s, "dir/xx", 4, -1);
  s = STR_n_insert(s, "ok", 99, 99);
  EXPECT_STREQ(s, "dir//img_.0001.rla!ok");
  EXPECT_EQ(STR_n_insert(s, nullptr, 3, 0), s);
  std::free(s);

  Heap one(STR_insert(nullptr, 'q', 5));
  EXPECT_STREQ(one.get(), "q");
  Heap part(STR_n_insert(nullptr, "abcdef", 2, 3));
  EXPECT_STREQ(part.get(), "ab");
  EXPECT_EQ(STR_append(nullptr, nullptr), nullptr);
}

// Growing calls under every allocation failure: the result is null and the
// argument stays allocated with its old text (ASan reports any leak).
void expect_growth_survives_failures(const std::function<char *(char *)> &grow,
                                     const char *expected) {
  orx::test::for_each_allocation_failure([&] {
    char *s = STR_save("abc");
    if (s == nullptr) return false;
    char *grown = grow(s);
    if (grown == nullptr) {
      EXPECT_STREQ(s, "abc");
      std::free(s);
      return false;
    }
    EXPECT_STREQ(grown, expected);
    std::free(grown);
    return true;
  });
}

TEST_F(StrAlloc, FailedGrowthReturnsNullAndKeepsTheArgument) {
  expect_growth_survives_failures([](char *s) { return STR_more(s, 40); }, "abc");
  expect_growth_survives_failures([](char *s) { return STR_append(s, "def"); }, "abcdef");
  expect_growth_survives_failures([](char *s) { return STR_n_append(s, "defg", 1); }, "abcd");
  expect_growth_survives_failures([](char *s) { return STR_insert(s, 'x', 1); }, "axbc");
  expect_growth_survives_failures([](char *s) { return STR_n_insert(s, "xy", 2, 0); }, "xyabc");
  // The source inside the string being grown.
  expect_growth_survives_failures([](char *s) { return STR_append(s, s); }, "abcabc");
  expect_growth_survives_failures([](char *s) { return STR_n_append(s, s + 1, 1); }, "abcb");
  expect_growth_survives_failures([](char *s) { return STR_n_insert(s, s + 1, 2, 1); }, "abcbc");

  orx::test::for_each_allocation_failure([] { return Heap(STR_save_n(2, "ab", "cd")) != nullptr; });
}

TEST_F(StrAlloc, RemovesFirstLastOrEveryOccurrence) {
  char s[] = "a.b.c.d";
  EXPECT_STREQ(STR_remove(s, '.'), "ab.c.d");
  EXPECT_STREQ(STR_remove_reverse(s, '.'), "ab.cd");
  EXPECT_STREQ(STR_remove(s, 'z'), "ab.cd");
  EXPECT_STREQ(STR_remove(s, 0), "ab.cd");
  char all[] = "--a-b--";
  EXPECT_STREQ(STR_remove_all(all, '-'), "ab");
  EXPECT_EQ(STR_remove(nullptr, 'a'), nullptr);
  EXPECT_EQ(STR_remove_all(nullptr, 'a'), nullptr);
}

TEST_F(StrAlloc, IndexRemovalClipsNegativeIndexAndOverrun) {
  auto removed = [](const char *text, int index, int n) {
    std::string s = text;
    return std::string(STR_n_remove_index(s.data(), index, n));
  };
  EXPECT_EQ(removed("abcdef", 1, 2), "adef");
  EXPECT_EQ(removed("abcdef", -2, 3), "bcdef");  // two of the three were before the start
  EXPECT_EQ(removed("abcdef", -3, 3), "abcdef");
  EXPECT_EQ(removed("abcdef", 4, 100), "abcd");
  EXPECT_EQ(removed("abcdef", 6, 1), "abcdef");
  EXPECT_EQ(removed("abcdef", 2, 0), "abcdef");
  EXPECT_EQ(removed("abcdef", 2, -4), "abcdef");
  EXPECT_EQ(removed("abcdef", -2147483647 - 1, 2147483647), "abcdef");
  EXPECT_EQ(removed("abcdef", 2147483647, 2147483647), "abcdef");

  char s[] = "xyz";
  EXPECT_STREQ(STR_remove_index(s, -1), "xyz");
  EXPECT_STREQ(STR_remove_index(s, 3), "xyz");
  EXPECT_STREQ(STR_remove_index(s, 2), "xy");
  EXPECT_STREQ(STR_remove_index(s, 0), "y");
  EXPECT_EQ(STR_n_remove_index(nullptr, 0, 1), nullptr);
}

TEST_F(StrAlloc, PadFillsShortStringsAndCaseConvertsInPlace) {
  char s[8] = "ab";
  EXPECT_STREQ(STR_pad(s, '.', 5), "ab...");
  EXPECT_STREQ(STR_pad(s, '#', 3), "ab...");
  char mixed[] = "Frame_01.RLA";
  EXPECT_STREQ(STR_tolower(mixed), "frame_01.rla");
  EXPECT_STREQ(STR_toupper(mixed), "FRAME_01.RLA");
  EXPECT_EQ(STR_tolower(nullptr), nullptr);
  EXPECT_EQ(STR_pad(nullptr, ' ', 3), nullptr);
}

}  // namespace
