// Comparison, classification, words and hashing of random strings against
// straightforward models of their rules.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orx/str.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

using Str = orx::test::CleanErrors;

std::string random_text(std::mt19937 &rng, const std::string &alphabet, unsigned longest) {
  std::string s(rng() % (longest + 1), ' ');
  for (char &c : s) c = alphabet[rng() % alphabet.size()];
  return s;
}

int signed_difference(const std::string &a, const std::string &b, std::size_t n) {
  std::size_t i = 0;
  while (i + 1 < std::max<std::size_t>(n, 1) && i < a.size() && a[i] == b[i]) ++i;
  auto at = [i](const std::string &s) { return i < s.size() ? static_cast<signed char>(s[i]) : 0; };
  return at(a) - at(b);
}

// The number rules, written as the rules read.
bool model_integer(const std::string &s) {
  static const std::regex shape("[+-]?([0-9]+)");
  std::smatch m;
  if (!std::regex_match(s, m, shape)) return false;
  const std::string digits = m[1];
  if (digits.size() != 10) return digits.size() < 10;
  return digits <= (s[0] == '-' ? "2147483648" : "2147483647");
}

bool model_real(const std::string &s) {
  static const std::regex shape("[+-]?[0-9]*(\\.[0-9]*)?([eE][+-]?[0-9]+)?");
  return !s.empty() && std::regex_match(s, shape);
}

// The pattern without its "*" must start with name, and name must reach the
// first "*" (the whole pattern when there is none).
bool model_abbr(const std::string &name, const std::string &pattern) {
  std::string full = pattern;
  std::erase(full, '*');
  const std::size_t star = pattern.find('*');
  return full.compare(0, name.size(), name) == 0 && name.size() <= full.size() &&
         name.size() >= (star == std::string::npos ? full.size() : star);
}

std::vector<std::string> model_words(const std::string &s) {
  std::vector<std::string> words;
  for (std::size_t i = 0; i < s.size();) {
    const std::size_t start = s.find_first_not_of(" \t\n", i);
    if (start == std::string::npos) break;
    i = std::min(s.find_first_of(" \t\n", start), s.size());
    words.push_back(s.substr(start, i - start));
  }
  return words;
}

TEST_F(Str, RandomStringsFollowTheModels) {
  std::mt19937 rng(2024);
  for (int i = 0; i < 4000; ++i) {
    const std::string a = random_text(rng, "ab\x80", 4), b = random_text(rng, "ab\x80", 4);
    const auto n = static_cast<uint32_t>(rng() % 6);
    SCOPED_TRACE(testing::Message() << '"' << a << "\" \"" << b << "\" " << n);
    ASSERT_EQ(STR_compare(a.c_str(), b.c_str()), signed_difference(a, b, std::string::npos));
    ASSERT_EQ(STR_n_compare(a.c_str(), b.c_str(), n), signed_difference(a, b, n));
    ASSERT_EQ(STR_length(a.c_str()), a.size());
    uint32_t h = 0;
    for (char c : a) h = h * 33u + static_cast<uint32_t>(static_cast<signed char>(c));
    ASSERT_EQ(STR_hash(a.c_str(), 1023), h % 1023);

    const std::string number = random_text(rng, "+-0123456789.eE", 12);
    const std::string big = random_text(rng, "-", 1) + random_text(rng, "0", 1) +
                            std::to_string(2147483600 + rng() % 100);
    for (const std::string &s : {number, big}) {
      ASSERT_EQ(STR_is_integer(s.c_str()) != 0, model_integer(s)) << s;
      ASSERT_EQ(STR_is_real(s.c_str()) != 0, model_real(s)) << s;
      ASSERT_EQ(STR_is_numeric(s.c_str()) != 0,
                !s.empty() && s.find_first_not_of("0123456789") == std::string::npos) << s;
    }

    const std::string name = random_text(rng, "de", 4), pattern = random_text(rng, "de*", 5);
    if (std::count(pattern.begin(), pattern.end(), '*') <= 1) {
      ASSERT_EQ(STR_abbr(name.c_str(), pattern.c_str()) != 0, model_abbr(name, pattern))
          << name << " " << pattern;
    }
    const std::string other = random_text(rng, "de*", 5);
    std::string plain_a = pattern, plain_b = other;
    std::erase(plain_a, '*');
    std::erase(plain_b, '*');
    ASSERT_EQ(STR_abbr_compare(pattern.c_str(), other.c_str()),
              signed_difference(plain_a, plain_b, std::string::npos));

    std::string line = random_text(rng, "ab \t\n", 10);
    const std::string text = line;
    char **words = STR_parse(line.data());
    ASSERT_NE(words, nullptr);
    std::vector<std::string> got;
    for (char **w = words; *w != nullptr; ++w) got.push_back(*w);
    ASSERT_EQ(got, model_words(text));
    std::free(words);
    const std::size_t skip = std::min(text.find_first_not_of(" \t\n"), text.size());
    const std::size_t space = text.empty() ? 0 : std::min(text.find_first_of(" \t\n", 1), text.size());
    ASSERT_EQ(STR_skip_space(text.c_str()) - text.c_str(), static_cast<long>(skip));
    ASSERT_EQ(STR_find_space(text.c_str()) - text.c_str(), static_cast<long>(space));
  }
}

TEST_F(Str, NullArgumentsAndSlots) {
  EXPECT_LT(STR_compare(nullptr, "a"), 0);
  EXPECT_GT(STR_compare("a", nullptr), 0);
  EXPECT_EQ(STR_compare(nullptr, nullptr) + STR_length(nullptr) + STR_hash(nullptr, 7), 0);
  EXPECT_LT(STR_n_compare(nullptr, "a", 3), 0);
  EXPECT_LT(STR_abbr_compare(nullptr, "a"), 0);
  EXPECT_EQ(STR_hash("abc", 0), 0u);
  for (int null : {STR_abbr(nullptr, "a*"), STR_abbr("a", nullptr), STR_is_integer(nullptr),
                   STR_is_real(nullptr), STR_is_numeric(nullptr)})
    EXPECT_EQ(null, 0);
  EXPECT_EQ(STR_parse(nullptr), nullptr);
  EXPECT_EQ(STR_find_space(nullptr), STR_skip_space(nullptr));

  char a[] = "red", b[] = "green", c[] = "red";
  char *array[] = {a, b, c, nullptr};
  EXPECT_EQ(STR_find_string(array, "red"), &array[0]);
  EXPECT_EQ(STR_find_string_reverse(array, "red"), &array[2]);
  EXPECT_EQ(STR_find_string_reverse(array, "blue"), nullptr);
  EXPECT_EQ(STR_find_string(nullptr, "red"), STR_find_string(array, nullptr));

  char kept[] = "a b";
  {
    orx::test::FailNthAllocation fail(1);
    EXPECT_EQ(STR_parse(kept), nullptr);
  }
  EXPECT_STREQ(kept, "a b");  // untouched when the array could not be made
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

}  // namespace
