// Strings and pointer arrays are the same shape: a terminated sequence that
// grows by reallocation and shrinks in place.  Random edits of both families
// are checked against one std::vector model after every step.
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "orx/ptr.h"
#include "orx/str.h"
#include "support/fixtures.hpp"

namespace {

using Sequences = orx::test::CleanErrors;

int g_cells[4];

struct Ptrs {
  using T = void *;
  using Src = void **;
  static T element(std::mt19937 &r) { return &g_cells[r() % 4]; }
  static std::vector<T> contents(void **a) { return std::vector<T>(a, a + PTR_length(a)); }
  static constexpr auto insert = &PTR_insert, remove_index = &PTR_remove_index;
  static constexpr auto n_insert = &PTR_n_insert, append = &PTR_append, n_append = &PTR_n_append;
  static constexpr auto remove = &PTR_remove, remove_reverse = &PTR_remove_reverse,
                        remove_all = &PTR_remove_all, n_remove_index = &PTR_n_remove_index;
  static constexpr auto save = &PTR_save, n_save = &PTR_n_save, more = &PTR_more;
  static void **save_n(void **a, void **b) { return PTR_save_n(3, a, nullptr, b); }
  // Elements compare by identity, from either end.
  static void check(void **a, const std::vector<T> &model, T e) {
    auto first = std::find(model.begin(), model.end(), e);
    auto last = std::find(model.rbegin(), model.rend(), e);
    EXPECT_EQ(PTR_find(a, e), first == model.end() ? nullptr : a + (first - model.begin()));
    EXPECT_EQ(PTR_find_reverse(a, e), last == model.rend() ? nullptr : a + (model.rend() - last - 1));
    EXPECT_EQ(PTR_index(a, e), first == model.end() ? -1 : first - model.begin());
  }
};

struct Chars {
  using T = char;
  using Src = const char *;
  static T element(std::mt19937 &r) { return "ab.\x80"[r() % 4]; }
  static std::vector<T> contents(char *s) { return std::vector<T>(s, s + STR_length(s)); }
  static constexpr auto insert = &STR_insert, remove_index = &STR_remove_index;
  static constexpr auto n_insert = &STR_n_insert, append = &STR_append, n_append = &STR_n_append;
  static constexpr auto remove = &STR_remove, remove_reverse = &STR_remove_reverse,
                        remove_all = &STR_remove_all, n_remove_index = &STR_n_remove_index;
  static constexpr auto save = &STR_save, n_save = &STR_n_save, more = &STR_more;
  static char *save_n(char *a, char *b) { return STR_save_n(3, a, nullptr, b); }
  static void check(char *, const std::vector<T> &, T) {}
};

// Deleting n from index: the part of the range before the start was never
// there, and the range stops at the end.
template <class T>
void model_remove_range(std::vector<T> &v, long index, long n) {
  if (index < 0) n += index, index = 0;
  if (n < 1 || index >= static_cast<long>(v.size())) return;
  v.erase(v.begin() + index, v.begin() + std::min<long>(index + n, static_cast<long>(v.size())));
}

template <class F>
void edit_against_model(unsigned seed) {
  using T = typename F::T;
  std::mt19937 rng(seed);
  for (int round = 0; round < 150; ++round) {
    std::vector<T> model;
    T *heap = nullptr;  // the first growth starts from nothing
    for (int step = 0; step < 25; ++step) {
      std::vector<T> src(rng() % 4);
      for (T &e : src) e = F::element(rng);
      std::vector<T> terminated = src;
      terminated.push_back(T{});
      T *from = terminated.data();
      if (heap != nullptr && rng() % 4 == 0) {  // a source inside the sequence itself
        const std::size_t off = rng() % (model.size() + 1);
        src.assign(model.begin() + static_cast<long>(off), model.end());
        from = heap + off;
      }
      int index = static_cast<int>(rng() % (model.size() + 5)) - 2;
      if (rng() % 16 == 0) index = rng() % 2 ? INT32_MIN : INT32_MAX;  // no overflow at the ends
      const auto at = model.begin() + std::clamp<long>(index, 0, static_cast<long>(model.size()));
      const auto n = static_cast<uint32_t>(rng() % (src.size() + 2));
      const auto src_n = src.begin() + std::min<long>(n, static_cast<long>(src.size()));
      const T e = F::element(rng);
      const int op = static_cast<int>(rng() % 9);
      SCOPED_TRACE(testing::Message() << "seed " << seed << " round " << round << " step "
                                      << step << " op " << op << " index " << index << " n " << n);
      if (heap == nullptr && op >= 4) continue;
      switch (op) {
        case 0: heap = F::insert(heap, e, index), model.insert(at, e); break;
        case 1: heap = F::n_insert(heap, from, n, index), model.insert(at, src.begin(), src_n); break;
        case 2: heap = F::append(heap, from), model.insert(model.end(), src.begin(), src.end()); break;
        case 3: heap = F::n_append(heap, from, n), model.insert(model.end(), src.begin(), src_n); break;
        case 4: {
          F::remove(heap, e);
          auto it = std::find(model.begin(), model.end(), e);
          if (it != model.end()) model.erase(it);
          break;
        }
        case 5: {
          F::remove_reverse(heap, e);
          auto it = std::find(model.rbegin(), model.rend(), e);
          if (it != model.rend()) model.erase(std::next(it).base());
          break;
        }
        case 6: F::remove_all(heap, e), std::erase(model, e); break;
        case 7: {
          const int count = rng() % 8 == 0 ? INT32_MAX : static_cast<int>(rng() % 6) - 2;
          F::n_remove_index(heap, index, count), model_remove_range(model, index, count);
          break;
        }
        case 8: F::remove_index(heap, index), model_remove_range(model, index, 1); break;
      }
      ASSERT_NE(heap, nullptr);
      ASSERT_EQ(F::contents(heap), model);
      F::check(heap, model, e);
    }
    if (heap == nullptr) continue;
    const auto n = static_cast<uint32_t>(rng() % (model.size() + 2));
    T *copy = F::save(heap), *part = F::n_save(heap, n), *joined = F::save_n(heap, copy);
    EXPECT_NE(copy, heap);
    EXPECT_EQ(F::contents(copy), model);
    const auto kept = std::min<long>(n, static_cast<long>(model.size()));
    EXPECT_EQ(F::contents(part), std::vector<T>(model.begin(), model.begin() + kept));
    std::vector<T> twice = model;
    twice.insert(twice.end(), model.begin(), model.end());
    EXPECT_EQ(F::contents(joined), twice);
    heap = F::more(heap, static_cast<uint32_t>(model.size() + 3));  // room to spare keeps the text
    EXPECT_EQ(F::contents(heap), model);
    for (T *p : {heap, copy, part, joined}) std::free(p);
  }
}

// Under every allocation failure a growing call gives null and leaves its
// argument allocated and unchanged (ASan reports any leak).
template <class F>
void failed_growth_keeps_the_argument() {
  using T = typename F::T;
  std::mt19937 rng(7);
  std::vector<T> start = {F::element(rng), F::element(rng), F::element(rng)};
  const std::function<T *(T *)> grows[] = {
      [](auto *s) { return F::more(s, 40); },
      [](auto *s) { return F::append(s, s); },
      [](auto *s) { return F::n_append(s, s + 1, 1); },
      [&](auto *s) { return F::insert(s, start[0], 1); },
      [](auto *s) { return F::n_insert(s, s + 1, 2, 1); },
  };
  start.push_back({});
  for (const auto &grow : grows)
    orx::test::for_each_allocation_failure([&] {
      auto *s = F::save(start.data());
      if (s == nullptr) return false;
      auto *grown = grow(s);
      if (grown == nullptr) {
        EXPECT_EQ(F::contents(s), std::vector<T>(start.begin(), start.end() - 1));
      }
      std::free(grown != nullptr ? grown : s);
      return grown != nullptr;
    });
  orx::test::for_each_allocation_failure([&] {
    auto *joined = F::save_n(start.data(), start.data());
    std::free(joined);
    return joined != nullptr;
  });
}

TEST_F(Sequences, PointerArrayEditsMatchTheModel) {
  for (unsigned seed : {1u, 2u, 3u}) edit_against_model<Ptrs>(seed);
}

TEST_F(Sequences, StringEditsMatchTheModel) {
  for (unsigned seed : {4u, 5u, 6u}) edit_against_model<Chars>(seed);
}

TEST_F(Sequences, FailedGrowthReturnsNullAndKeepsTheArgument) {
  failed_growth_keeps_the_argument<Ptrs>();
  failed_growth_keeps_the_argument<Chars>();
}

// What only one family has: in-place copies, reversal and owned elements for
// pointer arrays; null sources, bounded copies, padding and case for strings.
TEST_F(Sequences, FamilyEdges) {
  void *a = &g_cells[0], *b = &g_cells[1], *c = &g_cells[2], *x = &g_cells[3];
  void *src[] = {a, b, c, nullptr};
  void *dest[8] = {x, x, x, x, x, x, x, x};
  PTR_n_copy(dest, src, 2);  // no terminator of its own
  PTR_n_copy(dest + 2, src, -1);
  EXPECT_EQ(std::vector<void *>(dest, dest + 3), (std::vector<void *>{a, b, x}));
  PTR_n_copy(dest, src, 6);  // stops after the terminator
  EXPECT_EQ(dest[4], x);
  EXPECT_EQ(PTR_cat(PTR_copy(dest, src), src), dest);
  PTR_n_cat(PTR_reverse(dest), src, 1);
  EXPECT_EQ(Ptrs::contents(dest), (std::vector<void *>{c, b, a, c, b, a, a}));
  char *empty = STR_save_n(-2);
  EXPECT_STREQ(empty, "");
  std::free(empty);
  void **none = PTR_save_n(-2);
  ASSERT_NE(none, nullptr);
  EXPECT_EQ(PTR_length(none) + PTR_length(nullptr), 0u);
  std::free(none);
  void **owned = PTR_insert(PTR_insert(nullptr, std::malloc(8), 0), std::malloc(16), 0);
  EXPECT_EQ(PTR_free_ptr(owned) + PTR_free_ptr(nullptr), 0);  // the leak checker sees the rest

  char *s = STR_append(nullptr, nullptr);
  EXPECT_EQ(s, nullptr);
  s = STR_more(nullptr, 8);
  std::strcpy(s, "abcdefgh");
  s = STR_more(s, 3);
  EXPECT_STREQ(s, "abc");
  EXPECT_EQ(STR_append(s, nullptr), s);
  EXPECT_EQ(STR_n_insert(s, nullptr, 3, 0), s);
  EXPECT_EQ(STR_n_append(s, nullptr, 3), s);
  EXPECT_STREQ(STR_remove(STR_remove_all(s, 0), 0), "abc");
  std::free(s);
  const char unterminated[3] = {'x', 'y', 'z'};  // only n bytes may be looked at
  s = STR_n_save(unterminated, 3);
  EXPECT_STREQ(s, "xyz");
  std::free(s);
  char padded[8] = "ab";
  EXPECT_STREQ(STR_pad(STR_pad(padded, '.', 5), '#', 3), "ab...");
  char mixed[] = "Frame_01.RLA";
  EXPECT_STREQ(STR_tolower(mixed), "frame_01.rla");
  EXPECT_STREQ(STR_toupper(mixed), "FRAME_01.RLA");
  for (char *null : {STR_save(nullptr), STR_n_save(nullptr, 4), STR_remove(nullptr, 'a'),
                     STR_remove_all(nullptr, 'a'), STR_n_remove_index(nullptr, 0, 1),
                     STR_tolower(nullptr), STR_pad(nullptr, ' ', 3)})
    EXPECT_EQ(null, nullptr);
}

}  // namespace
