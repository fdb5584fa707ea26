// Hashing, heap sorting of string arrays, and the reference-counted table of
// shared strings behind STR_define.
#include "util/str_table.hpp"

#include <cstring>
#include <utility>

#include "err/heap.hpp"
#include "orx/str.h"

namespace orx::util {
namespace {

// In-place heap sort over positions 1 .. n (slot i - 1 of array holds
// position i), the larger child chosen by Compare.  Not stable.
template <int (*Compare)(const char *, const char *)>
class HeapSort {
 public:
  HeapSort(char **array, std::size_t n) : array_(array), n_(n) {}

  void run() {
    for (std::size_t top = n_ / 2; top >= 1; --top) sift_down(top, n_);
    for (std::size_t last = n_; last > 1; --last) {
      std::swap(at(1), at(last));
      sift_down(1, last - 1);
    }
  }

 private:
  char *&at(std::size_t position) { return array_[position - 1]; }

  void sift_down(std::size_t node, std::size_t end) {
    while (2 * node <= end) {
      std::size_t child = 2 * node;
      if (child < end && Compare(at(child), at(child + 1)) < 0) ++child;
      if (Compare(at(node), at(child)) >= 0) return;
      std::swap(at(node), at(child));
      node = child;
    }
  }

  char **array_;
  std::size_t n_;
};

int collate(const char *a, const char *b) { return std::strcoll(a, b); }

template <int (*Compare)(const char *, const char *)>
char **sort_array(char **array) {
  if (array == nullptr) return nullptr;
  std::size_t n = 0;
  while (array[n] != nullptr) ++n;
  if (n >= 2) HeapSort<Compare>(array, n).run();
  return array;
}

// One shared string: the entry and its text in one block, text after entry.
struct Entry {
  Entry *next;
  std::uint32_t count;
  char *text;
};

constexpr std::uint32_t kBuckets = 1023;

// Zero-initialised, so the table is empty on first use.
struct Table {
  Entry *buckets[kBuckets];
};
Table g_table;

// The link that points at the entry equal to s (or at the chain's end).
Entry **find_link(const char *s) {
  Entry **link = &g_table.buckets[STR_hash(s, kBuckets)];
  while (*link != nullptr && STR_compare((*link)->text, s) != 0) link = &(*link)->next;
  return link;
}

}  // namespace

void str_table_reset() {
  for (Entry *&head : g_table.buckets) {
    while (Entry *entry = head) {
      head = entry->next;
      heap::release(entry);
    }
  }
}

std::uint32_t str_table_references(const char *s) {
  if (s == nullptr) return 0;
  Entry *entry = *find_link(s);
  return entry != nullptr ? entry->count : 0;
}

}  // namespace orx::util

extern "C" {

uint32_t STR_hash(const char *s, uint32_t modulus) {
  if (s == nullptr || modulus == 0) return 0;
  uint32_t h = 0;
  for (; *s != '\0'; ++s) h = h * 33u + static_cast<uint32_t>(static_cast<signed char>(*s));
  return h % modulus;
}

char **STR_sort(char **array) { return orx::util::sort_array<STR_compare>(array); }

char **STR_sort_collate(char **array) { return orx::util::sort_array<orx::util::collate>(array); }

char *STR_define(const char *s) {
  using orx::util::Entry;
  if (s == nullptr) return nullptr;
  Entry *&found = *orx::util::find_link(s);
  if (found != nullptr) {
    ++found->count;
    return found->text;
  }
  std::size_t length = std::strlen(s);
  auto *entry = static_cast<Entry *>(orx::heap::allocate(sizeof(Entry) + length + 1));
  if (entry == nullptr) return nullptr;
  entry->text = reinterpret_cast<char *>(entry + 1);
  std::memcpy(entry->text, s, length + 1);
  entry->count = 1;
  // New entries go at the head of their chain.
  Entry *&head = orx::util::g_table.buckets[STR_hash(s, orx::util::kBuckets)];
  entry->next = head;
  head = entry;
  return entry->text;
}

int STR_undefine(const char *s) {
  using orx::util::Entry;
  if (s == nullptr) return 0;
  Entry **link = orx::util::find_link(s);
  Entry *entry = *link;
  if (entry == nullptr || --entry->count > 0) return 0;
  *link = entry->next;
  orx::heap::release(entry);
  return 0;
}

int STR_undefine_array(char **array) {
  if (array == nullptr) return 0;
  for (char **slot = array; *slot != nullptr; ++slot) STR_undefine(*slot);
  orx::heap::release(array);
  return 0;
}

}  // extern "C"
