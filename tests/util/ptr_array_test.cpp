#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <vector>

#include "orx/ptr.h"
#include "support/fixtures.hpp"

namespace {

using PtrArray = orx::test::CleanErrors;
using Items = std::vector<void *>;

// Distinct opaque elements; only their addresses matter.
int g_cells[6];
void *const A = &g_cells[0];
void *const B = &g_cells[1];
void *const C = &g_cells[2];
void *const D = &g_cells[3];
void *const E = &g_cells[4];

void **make(std::initializer_list<void *> items) {
  void **array = PTR_more(nullptr, static_cast<uint32_t>(items.size()));
  EXPECT_NE(array, nullptr);
  std::size_t i = 0;
  for (void *item : items) array[i++] = item;
  array[i] = nullptr;
  return array;
}

Items contents(void **array) { return Items(array, array + PTR_length(array)); }

TEST_F(PtrArray, IndexAndFindCompareIdentityFromEitherEnd) {
  EXPECT_EQ(PTR_length(nullptr), 0u);
  void **array = make({A, B, C, B});
  EXPECT_EQ(PTR_length(array), 4u);
  EXPECT_EQ(PTR_index(array, B), 1);
  EXPECT_EQ(PTR_index(array, D), -1);
  EXPECT_EQ(PTR_find(array, B), array + 1);
  EXPECT_EQ(PTR_find_reverse(array, B), array + 3);
  EXPECT_EQ(PTR_find_reverse(array, D), nullptr);

  // Equal contents at another address is a different element.
  int twin = g_cells[1];
  EXPECT_EQ(PTR_index(array, &twin), -1);
  std::free(array);
}

TEST_F(PtrArray, InsertClampsIndexAndStartsFromNothing) {
  void **array = PTR_insert(nullptr, B, 5);
  EXPECT_EQ(contents(array), (Items{B}));
  array = PTR_insert(array, A, -3);
  array = PTR_insert(array, D, 99);
  array = PTR_insert(array, C, 2);
  EXPECT_EQ(contents(array), (Items{A, B, C, D}));

  void **src = make({E, A, B});
  array = PTR_n_insert(array, src, 2, 1);
  EXPECT_EQ(contents(array), (Items{A, E, A, B, C, D}));
  array = PTR_n_insert(array, src, 10, -1);  // n beyond the source takes all of it
  EXPECT_EQ(contents(array), (Items{E, A, B, A, E, A, B, C, D}));
  std::free(src);
  std::free(array);
}

TEST_F(PtrArray, SavesShareElementsAndConcatenate) {
  void **ab = make({A, B});
  void **cde = make({C, D, E});

  void **copy = PTR_save(ab);
  EXPECT_NE(copy, ab);
  EXPECT_EQ(contents(copy), (Items{A, B}));
  void **part = PTR_n_save(cde, 2);
  EXPECT_EQ(contents(part), (Items{C, D}));
  void **whole = PTR_n_save(cde, 7);
  EXPECT_EQ(contents(whole), (Items{C, D, E}));

  void **joined = PTR_save_n(3, ab, static_cast<void **>(nullptr), cde);
  EXPECT_EQ(contents(joined), (Items{A, B, C, D, E}));
  for (int count : {0, -2}) {
    void **none = PTR_save_n(count);
    ASSERT_NE(none, nullptr) << count;
    EXPECT_EQ(none[0], nullptr);
    std::free(none);
  }
  for (void **p : {ab, cde, copy, part, whole, joined}) std::free(p);
}

TEST_F(PtrArray, AppendGrowsAndMayTakeItsOwnElements) {
  void **a = make({A});
  void **array = PTR_append(nullptr, a);  // with no array, a copy of src
  EXPECT_NE(array, a);
  EXPECT_EQ(contents(array), (Items{A}));
  std::free(a);

  void **bc = make({B, C});
  array = PTR_append(array, bc);
  array = PTR_n_append(array, bc, 1);
  EXPECT_EQ(contents(array), (Items{A, B, C, B}));
  array = PTR_append(array, array);
  EXPECT_EQ(contents(array), (Items{A, B, C, B, A, B, C, B}));
  array = PTR_n_remove_index(array, 2, 6);
  array = PTR_n_insert(array, array, 2, 1);  // source moves with the block and the gap
  EXPECT_EQ(contents(array), (Items{A, A, B, B}));
  array = PTR_n_insert(array, array + 2, 2, 0);
  EXPECT_EQ(contents(array), (Items{B, B, A, A, B, B}));
  std::free(bc);
  std::free(array);
}

TEST_F(PtrArray, InPlaceCopiesRespectLimitsAndTerminators) {
  void **src = make({A, B, C});
  void *dest[8];
  std::fill(std::begin(dest), std::end(dest), E);

  PTR_n_copy(dest, src, 2);  // two slots, no terminator of its own
  EXPECT_EQ(Items(dest, dest + 3), (Items{A, B, E}));
  PTR_n_copy(dest + 2, src, 0);
  PTR_n_copy(dest + 2, src, -1);  // counts below 1 copy nothing
  EXPECT_EQ(Items(dest, dest + 3), (Items{A, B, E}));
  std::fill(std::begin(dest), std::end(dest), E);
  PTR_n_copy(dest, src, 6);  // stops after the terminator
  EXPECT_EQ(Items(dest, dest + 5), (Items{A, B, C, nullptr, E}));

  EXPECT_EQ(PTR_copy(dest, src), dest);
  EXPECT_EQ(PTR_cat(dest, src), dest);
  EXPECT_EQ(contents(dest), (Items{A, B, C, A, B, C}));
  PTR_copy(dest, src);
  PTR_n_cat(dest, src, 1);
  EXPECT_EQ(Items(dest, dest + 5), (Items{A, B, C, A, nullptr}));
  std::free(src);
}

TEST_F(PtrArray, RemovalClosesGapsAndClampsRanges) {
  void **array = make({A, B, A, C, A});
  PTR_remove(array, A);
  EXPECT_EQ(contents(array), (Items{B, A, C, A}));
  PTR_remove_reverse(array, A);
  EXPECT_EQ(contents(array), (Items{B, A, C}));
  PTR_remove(array, D);
  PTR_remove_all(array, A);
  EXPECT_EQ(contents(array), (Items{B, C}));
  std::free(array);

  array = make({A, B, C, D, E});
  PTR_n_remove_index(array, -2, 3);  // deletes only the first of the range
  EXPECT_EQ(contents(array), (Items{B, C, D, E}));
  PTR_n_remove_index(array, -5, 3);  // range ends before the start
  PTR_n_remove_index(array, 1, 0);
  PTR_n_remove_index(array, 1, -1);
  PTR_n_remove_index(array, 4, 1);
  EXPECT_EQ(contents(array), (Items{B, C, D, E}));
  PTR_n_remove_index(array, 2, 100);  // runs past the end
  EXPECT_EQ(contents(array), (Items{B, C}));
  PTR_remove_index(array, -1);
  PTR_remove_index(array, 2);
  EXPECT_EQ(contents(array), (Items{B, C}));
  PTR_remove_index(array, 1);
  EXPECT_EQ(contents(array), (Items{B}));
  std::free(array);
}

TEST_F(PtrArray, ReverseAndFreeOwnedElements) {
  void **array = make({A, B, C, D});
  PTR_reverse(array);
  EXPECT_EQ(contents(array), (Items{D, C, B, A}));
  std::free(array);

  void **owned = PTR_more(nullptr, 2);
  ASSERT_NE(owned, nullptr);
  owned[0] = std::malloc(8);
  owned[1] = std::malloc(16);
  owned[2] = nullptr;
  EXPECT_EQ(PTR_free_ptr(owned), 0);  // the leak checker sees anything left
  EXPECT_EQ(PTR_free_ptr(nullptr), 0);
}

TEST_F(PtrArray, FailedGrowthReturnsNullAndKeepsTheArray) {
  void **src = make({D, E});
  void **array = make({A, B, C});
  const Items before = contents(array);
  auto check = [&](void **result, const char *what) {
    EXPECT_EQ(result, nullptr) << what;
    EXPECT_EQ(contents(array), before) << what;
  };
  const std::pair<const char *, std::function<void **()>> grows[] = {
      {"more", [&] { return PTR_more(array, 9); }},
      {"append", [&] { return PTR_append(array, src); }},
      {"n_append", [&] { return PTR_n_append(array, src, 1); }},
      {"insert", [&] { return PTR_insert(array, D, 1); }},
      {"n_insert", [&] { return PTR_n_insert(array, array, 2, 1); }},
  };
  for (const auto &[what, grow] : grows) {
    orx::test::FailNthAllocation fail(1);
    check(grow(), what);
  }
  for (auto make_copy :
       {+[](void **a) { return PTR_save(a); }, +[](void **a) { return PTR_save_n(2, a, a); }}) {
    orx::test::for_each_allocation_failure([&] {
      void **copy = make_copy(array);
      std::free(copy);
      return copy != nullptr;
    });
  }
  std::free(src);
  std::free(array);
}

}  // namespace
