// Heap copies of strings, their growth, and in-place insertion and removal.
// Allocations go through orx::heap without reporting: the STR_ family leaves
// the reaction to running out of memory to its caller.
#include <cctype>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <functional>

#include "err/heap.hpp"
#include "orx/str.h"

namespace orx::util {
namespace {

constexpr std::size_t kAtEnd = SIZE_MAX;

// Length of s, looking at no more than n characters.
std::size_t bounded_length(const char *s, std::size_t n) {
  const void *end = std::memchr(s, '\0', n);
  return end != nullptr ? static_cast<std::size_t>(static_cast<const char *>(end) - s) : n;
}

char *new_copy(const char *s, std::size_t n) {
  auto *copy = static_cast<char *>(heap::allocate(n + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, s, n);
  copy[n] = '\0';
  return copy;
}

// Insert count characters of text into s at position at (clamped to the
// length, so kAtEnd appends), growing s; with s null, a new string of them.
// On failure s is left allocated and unchanged.
// Text may lie inside s itself (STR_append(s, s)): it is then copied aside
// first, since growing s may move or free the memory it points into.
char *insert_chars(char *s, const char *text, std::size_t count, std::size_t at) {
  if (s == nullptr) return new_copy(text, count);
  std::size_t length = std::strlen(s);
  if (at > length) at = length;
  const std::less_equal<const char *> before;
  char *aside = nullptr;
  if (before(s, text) && before(text, s + length)) {
    aside = new_copy(text, count);
    if (aside == nullptr) return nullptr;
    text = aside;
  }
  auto *grown = static_cast<char *>(heap::reallocate(s, length + count + 1));
  if (grown != nullptr) {
    std::memmove(grown + at + count, grown + at, length - at + 1);
    std::memcpy(grown + at, text, count);
  }
  heap::release(aside);
  return grown;
}

std::size_t clamp_index(int index) { return index < 0 ? 0 : static_cast<std::size_t>(index); }

// Delete the first (or, with reverse, the last) occurrence of c.
char *remove_one(char *s, int c, bool reverse) {
  if (s == nullptr || c == 0) return s;
  char *at = reverse ? std::strrchr(s, c) : std::strchr(s, c);
  if (at != nullptr) std::memmove(at, at + 1, std::strlen(at + 1) + 1);
  return s;
}

template <int (*Convert)(int)>
char *convert_case(char *s) {
  if (s == nullptr) return nullptr;
  for (char *p = s; *p != '\0'; ++p)
    *p = static_cast<char>(Convert(static_cast<unsigned char>(*p)));
  return s;
}

}  // namespace
}  // namespace orx::util

using orx::util::bounded_length;
using orx::util::clamp_index;
using orx::util::insert_chars;
using orx::util::kAtEnd;

extern "C" {

char *STR_more(char *s, uint32_t n) {
  std::size_t size = static_cast<std::size_t>(n) + 1;
  if (s == nullptr) {
    auto *block = static_cast<char *>(orx::heap::allocate(size));
    if (block != nullptr) block[0] = '\0';
    return block;
  }
  auto *block = static_cast<char *>(orx::heap::reallocate(s, size));
  if (block != nullptr) block[n] = '\0';
  return block;
}

char *STR_save(const char *s) {
  return s == nullptr ? nullptr : orx::util::new_copy(s, std::strlen(s));
}

char *STR_n_save(const char *s, uint32_t n) {
  return s == nullptr ? nullptr : orx::util::new_copy(s, bounded_length(s, n));
}

char *STR_save_n(int count, ...) {
  va_list args;
  va_start(args, count);
  std::size_t total = 0;
  for (int i = 0; i < count; ++i) {
    const char *part = va_arg(args, const char *);
    if (part != nullptr) total += std::strlen(part);
  }
  va_end(args);

  auto *joined = static_cast<char *>(orx::heap::allocate(total + 1));
  if (joined == nullptr) return nullptr;
  char *end = joined;
  va_start(args, count);
  for (int i = 0; i < count; ++i) {
    const char *part = va_arg(args, const char *);
    if (part == nullptr) continue;
    std::size_t n = std::strlen(part);
    std::memcpy(end, part, n);
    end += n;
  }
  va_end(args);
  *end = '\0';
  return joined;
}

char *STR_append(char *s, const char *t) {
  if (t == nullptr) return s;
  return insert_chars(s, t, std::strlen(t), kAtEnd);
}

char *STR_n_append(char *s, const char *t, uint32_t n) {
  if (t == nullptr) return s;
  return insert_chars(s, t, bounded_length(t, n), kAtEnd);
}

char *STR_insert(char *s, int c, int index) {
  char ch = static_cast<char>(c);
  return insert_chars(s, &ch, 1, clamp_index(index));
}

char *STR_n_insert(char *s, const char *t, uint32_t n, int index) {
  if (t == nullptr) return s;
  return insert_chars(s, t, bounded_length(t, n), clamp_index(index));
}

char *STR_remove(char *s, int c) { return orx::util::remove_one(s, c, false); }

char *STR_remove_reverse(char *s, int c) { return orx::util::remove_one(s, c, true); }

char *STR_remove_all(char *s, int c) {
  if (s == nullptr || c == 0) return s;
  char target = static_cast<char>(c);
  char *out = s;
  for (const char *in = s; *in != '\0'; ++in)
    if (*in != target) *out++ = *in;
  *out = '\0';
  return s;
}

char *STR_remove_index(char *s, int index) { return STR_n_remove_index(s, index, 1); }

char *STR_n_remove_index(char *s, int index, int n) {
  if (s == nullptr || n < 1) return s;
  std::int64_t from = index;
  std::int64_t count = n;
  if (from < 0) {
    count += from;  // the part before the start was never there to delete
    from = 0;
  }
  auto length = static_cast<std::int64_t>(std::strlen(s));
  if (count < 1 || from >= length) return s;
  if (count > length - from) count = length - from;
  std::memmove(s + from, s + from + count, static_cast<std::size_t>(length - from - count + 1));
  return s;
}

char *STR_pad(char *s, int c, uint32_t width) {
  if (s == nullptr) return nullptr;
  std::size_t length = std::strlen(s);
  if (length < width) {
    std::memset(s + length, static_cast<unsigned char>(c), width - length);
    s[width] = '\0';
  }
  return s;
}

char *STR_tolower(char *s) { return orx::util::convert_case<std::tolower>(s); }

char *STR_toupper(char *s) { return orx::util::convert_case<std::toupper>(s); }

}  // extern "C"
