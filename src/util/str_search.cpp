// Comparison, searching, splitting into words and classification of
// numbers.
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "err/heap.hpp"
#include "orx/str.h"

namespace orx::util {
namespace {

// Characters compare as signed bytes whatever the platform's char is, so
// orderings agree everywhere.
int char_difference(char a, char b) {
  return static_cast<signed char>(a) - static_cast<signed char>(b);
}

// Ordering of null against a string: null first, two nulls equal.
int null_order(const char *a, const char *b) { return (a != nullptr) - (b != nullptr); }

bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

const char *skip_digits(const char *p) {
  while (is_digit(*p)) ++p;
  return p;
}

// Start of the first word at or after p, or null when none is left; *end
// receives the position just past the word.
char *next_word(char *p, char **end) {
  while (is_space(*p)) ++p;
  if (*p == '\0') return nullptr;
  char *e = p;
  while (*e != '\0' && !is_space(*e)) ++e;
  *end = e;
  return p;
}

// Decimal texts of the 32-bit limits, printed once, on first use, with "%d"
// into their buffers; nothing is reported, as no string function reports.
struct IntegerLimits {
  char largest[16];
  char smallest[16];  // with its "-"
};

const IntegerLimits &integer_limits() {
  static const IntegerLimits limits = [] {
    IntegerLimits l{};
    std::snprintf(l.largest, sizeof l.largest, "%d", INT32_MAX);
    std::snprintf(l.smallest, sizeof l.smallest, "%d", INT32_MIN);
    return l;
  }();
  return limits;
}

template <bool kReverse>
char **find_string(char **array, const char *s) {
  if (array == nullptr || s == nullptr) return nullptr;
  char **found = nullptr;
  for (char **slot = array; *slot != nullptr; ++slot) {
    if (STR_compare(*slot, s) != 0) continue;
    found = slot;
    if (!kReverse) break;
  }
  return found;
}

}  // namespace
}  // namespace orx::util

using orx::util::char_difference;
using orx::util::is_digit;
using orx::util::is_space;

extern "C" {

uint32_t STR_length(const char *s) {
  return s == nullptr ? 0 : static_cast<uint32_t>(std::strlen(s));
}

int STR_compare(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return orx::util::null_order(a, b);
  while (*a != '\0' && *a == *b) {
    ++a;
    ++b;
  }
  return char_difference(*a, *b);
}

int STR_n_compare(const char *a, const char *b, uint32_t n) {
  if (a == nullptr || b == nullptr) return orx::util::null_order(a, b);
  if (n < 1) n = 1;
  for (uint32_t i = 1; i < n && *a != '\0' && *a == *b; ++i) {
    ++a;
    ++b;
  }
  return char_difference(*a, *b);
}

int STR_abbr(const char *name, const char *pattern) {
  if (name == nullptr || pattern == nullptr) return 0;
  bool past_star = false;
  for (; *pattern != '\0'; ++pattern) {
    if (*pattern == '*') {
      past_star = true;
      continue;
    }
    if (*name == '\0') return past_star ? 1 : 0;
    if (*name != *pattern) return 0;
    ++name;
  }
  return *name == '\0' ? 1 : 0;
}

int STR_abbr_compare(const char *a, const char *b) {
  if (a == nullptr || b == nullptr) return orx::util::null_order(a, b);
  for (;; ++a, ++b) {
    while (*a == '*') ++a;
    while (*b == '*') ++b;
    if (*a == '\0' || *a != *b) return char_difference(*a, *b);
  }
}

char **STR_find_string(char **array, const char *s) {
  return orx::util::find_string<false>(array, s);
}

char **STR_find_string_reverse(char **array, const char *s) {
  return orx::util::find_string<true>(array, s);
}

char *STR_find_space(const char *s) {
  if (s == nullptr) return nullptr;
  if (*s != '\0') ++s;
  while (*s != '\0' && !is_space(*s)) ++s;
  return const_cast<char *>(s);
}

char *STR_skip_space(const char *s) {
  if (s == nullptr) return nullptr;
  while (is_space(*s)) ++s;
  return const_cast<char *>(s);
}

int STR_is_numeric(const char *s) {
  if (s == nullptr || *s == '\0') return 0;
  return *orx::util::skip_digits(s) == '\0' ? 1 : 0;
}

int STR_is_integer(const char *s) {
  if (s == nullptr) return 0;
  const orx::util::IntegerLimits &limits = orx::util::integer_limits();
  bool negative = *s == '-';
  const char *digits = (*s == '+' || negative) ? s + 1 : s;
  const char *end = orx::util::skip_digits(digits);
  if (end == digits || *end != '\0') return 0;
  std::size_t count = static_cast<std::size_t>(end - digits);
  if (count < 10) return 1;
  if (count > 10) return 0;
  // Ten digits: equal-length decimal texts order like their values.
  const char *limit = negative ? limits.smallest + 1 : limits.largest;
  return std::strcmp(digits, limit) <= 0 ? 1 : 0;
}

int STR_is_real(const char *s) {
  if (s == nullptr || *s == '\0') return 0;
  const char *p = s;
  if (*p == '+' || *p == '-') ++p;
  p = orx::util::skip_digits(p);
  if (*p == '.') p = orx::util::skip_digits(p + 1);
  if (*p == 'e' || *p == 'E') {
    ++p;
    if (*p == '+' || *p == '-') ++p;
    if (!is_digit(*p)) return 0;
    p = orx::util::skip_digits(p);
  }
  return *p == '\0' ? 1 : 0;
}

char **STR_parse(char *s) {
  if (s == nullptr) return nullptr;
  // Count first so that a failed allocation leaves s untouched.
  std::size_t words = 0;
  char *end = nullptr;
  for (char *p = s; (p = orx::util::next_word(p, &end)) != nullptr; p = end) ++words;
  auto **array = static_cast<char **>(orx::heap::allocate((words + 1) * sizeof(char *)));
  if (array == nullptr) return nullptr;
  std::size_t n = 0;
  for (char *p = s; (p = orx::util::next_word(p, &end)) != nullptr;) {
    array[n++] = p;
    p = end;
    if (*p != '\0') *p++ = '\0';
  }
  array[n] = nullptr;
  return array;
}

}  // extern "C"
