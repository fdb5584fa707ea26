#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orx/str.h"
#include "support/fixtures.hpp"
#include "util/str_table.hpp"

namespace {

using StrSort = orx::test::CleanErrors;

class StrDefine : public orx::test::CleanErrors {
 protected:
  void SetUp() override {
    CleanErrors::SetUp();
    orx::util::str_table_reset();
  }
  void TearDown() override {
    orx::util::str_table_reset();
    CleanErrors::TearDown();
  }
};

// Sorts random arrays (with duplicates and high bytes) by both sorts and
// checks them against std::sort with the same ordering.
template <class Less>
void check_against_std_sort(char **(*sort)(char **), Less less) {
  std::mt19937 random(12345);
  const char alphabet[] = {'a', 'b', 'Z', '0', '\x90'};
  for (int round = 0; round < 300; ++round) {
    std::vector<std::string> texts(random() % 40);
    for (std::string &t : texts)
      for (unsigned n = random() % 4; n > 0; --n) t += alphabet[random() % sizeof alphabet];
    std::vector<char *> array;
    for (std::string &t : texts) array.push_back(t.data());
    array.push_back(nullptr);
    std::vector<char *> expected(array.begin(), array.end() - 1);
    std::sort(expected.begin(), expected.end(), less);

    ASSERT_EQ(sort(array.data()), array.data());
    ASSERT_EQ(array.back(), nullptr);
    for (std::size_t i = 0; i < expected.size(); ++i)
      ASSERT_STREQ(array[i], expected[i]) << "round " << round << " slot " << i;
  }
}

TEST_F(StrSort, HeapSortsMatchStdSort) {
  check_against_std_sort(STR_sort,
                         [](const char *a, const char *b) { return STR_compare(a, b) < 0; });
  check_against_std_sort(STR_sort_collate,
                         [](const char *a, const char *b) { return std::strcoll(a, b) < 0; });
  char one[] = "only";
  char *single[] = {one, nullptr};
  EXPECT_EQ(STR_sort(single), single);
  EXPECT_EQ(single[0], one);
  EXPECT_EQ(STR_sort(nullptr), nullptr);
  EXPECT_EQ(STR_sort_collate(nullptr), nullptr);
}

TEST_F(StrDefine, EqualStringsShareOneCopyFreedByTheLastUndefine) {
  std::string first = "rla";
  std::string second = "rla";
  char *shared = STR_define(first.c_str());
  ASSERT_NE(shared, nullptr);
  EXPECT_NE(shared, first.c_str());
  EXPECT_EQ(STR_define(second.c_str()), shared);
  EXPECT_EQ(orx::util::str_table_references("rla"), 2u);

  EXPECT_EQ(STR_undefine("rla"), 0);
  EXPECT_EQ(orx::util::str_table_references("rla"), 1u);
  EXPECT_STREQ(shared, "rla");
  EXPECT_EQ(STR_undefine(shared), 0);  // the shared pointer itself may be given back
  EXPECT_EQ(orx::util::str_table_references("rla"), 0u);

  EXPECT_EQ(STR_undefine("never defined"), 0);
  EXPECT_EQ(STR_undefine(nullptr), 0);
  EXPECT_EQ(STR_define(nullptr), nullptr);
}

TEST_F(StrDefine, ChainsCollidingStringsAndUndefinesArrays) {
  // Many strings in 1023 buckets: chains form, and each keeps its own entry.
  std::vector<std::string> names;
  for (int i = 0; i < 3000; ++i) names.push_back("name" + std::to_string(i));
  for (const std::string &n : names) ASSERT_STREQ(STR_define(n.c_str()), n.c_str());
  for (std::size_t i = 0; i < names.size(); i += 2) STR_undefine(names[i].c_str());
  for (std::size_t i = 0; i < names.size(); ++i)
    ASSERT_EQ(orx::util::str_table_references(names[i].c_str()), i % 2) << names[i];

  auto **array = static_cast<char **>(std::malloc(3 * sizeof(char *)));
  array[0] = STR_define("a");
  array[1] = STR_define("a");
  array[2] = nullptr;
  EXPECT_EQ(STR_undefine_array(array), 0);  // frees the array too
  EXPECT_EQ(orx::util::str_table_references("a"), 0u);
  EXPECT_EQ(STR_undefine_array(nullptr), 0);
}

TEST_F(StrDefine, FailedDefineReturnsNullAndLeavesNoEntry) {
  orx::test::for_each_allocation_failure([] {
    char *shared = STR_define("mem");
    if (shared == nullptr) {
      EXPECT_EQ(orx::util::str_table_references("mem"), 0u);
      return false;
    }
    STR_undefine(shared);
    return true;
  });
}

}  // namespace
