// Random syntaxes: verification and parsing must agree on every one, and
// every valid one must build names that read back to their base and frame.
#include <algorithm>
#include <random>
#include <regex>
#include <string>

#include <gtest/gtest.h>

#include "naming/naming_support.hpp"
#include "orx/err.h"

namespace {

using NameSyntaxProperty = orx::test::NamingTest;
using orx::test::Token;

std::string random_syntax(std::mt19937 &rng) {
  static const char *const kPieces[] = {"name", "NAME", "Name", "ext", "EXT", "#",  "##",
                                        ".",    "_",    "-",    "[",   "/",   "x",  " ",
                                        "\x80", "e",    "na",   "nam", "ex",  "%%", "."};
  std::uniform_int_distribution<int> count(0, 7);
  std::uniform_int_distribution<std::size_t> piece(0, std::size(kPieces) - 1);
  std::string s;
  for (int n = count(rng); n > 0; --n) s += kPieces[piece(rng)];
  return s;
}

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return s;
}

// A pattern that reads a built name back: the base as letters, the frame as
// a signed number, separators literally and the extension with an optional
// leading dot (a separator's dot may have absorbed it).
std::string reader_for(const std::vector<Token> &tokens) {
  std::string pattern;
  for (const Token &t : tokens) {
    switch (t.kind) {
      case ORX_TOKEN_NAME: pattern += "([a-z]+)"; break;
      case ORX_TOKEN_FRAME: pattern += "(-?[0-9]+)"; break;
      case ORX_TOKEN_EXT: pattern += "\\.?rla"; break;
      default:
        for (char c : t.text) pattern += std::string("\\") + c;
    }
  }
  return pattern;
}

void check_round_trip(const std::string &syntax, const std::vector<Token> &tokens,
                      int32_t frame) {
  char *built = ORX_pathname_build_from_name_syntax(syntax.c_str(), "shot", frame, ".rla");
  ASSERT_NE(built, nullptr);
  const std::string name = built;
  ERR_free(built);
  std::smatch match;
  ASSERT_TRUE(std::regex_match(name, match, std::regex(reader_for(tokens)))) << name;
  std::size_t group = 1;
  for (const Token &t : tokens) {
    if (t.kind == ORX_TOKEN_NAME) {
      EXPECT_EQ(match[group++].str(), "shot") << name;
    }
    if (t.kind != ORX_TOKEN_FRAME) continue;
    const std::string digits = match[group++].str();
    EXPECT_EQ(std::stol(digits), frame) << name;
    EXPECT_GE(digits.size() - (frame < 0 ? 1 : 0), t.text.size()) << name;
  }
}

TEST_F(NameSyntaxProperty, VerifyAndParseAgreeAndValidSyntaxesRoundTrip) {
  std::mt19937 rng(20240611);
  int valid = 0;
  for (int i = 0; i < 4000; ++i) {
    const std::string syntax = random_syntax(rng);
    SCOPED_TRACE("syntax \"" + syntax + "\"");
    const int verified = ORX_name_syntax_verify(syntax.c_str());
    const int32_t verify_status = orx__err;
    const uint8_t has_ext = ORX_name_syntax_has_ext(syntax.c_str());
    const std::vector<Token> tokens = orx::test::tokens_of(syntax.c_str());
    EXPECT_EQ(orx__err, verify_status);
    ASSERT_EQ(verified, tokens.empty() ? 0 : 1);
    if (verified == 0) continue;
    ++valid;
    // The tokens cover the lower-cased syntax exactly, in order.
    std::string joined;
    for (const Token &t : tokens) joined += t.text;
    EXPECT_EQ(joined, lower(syntax));
    const auto kind_count = [&](int kind) {
      return std::count_if(tokens.begin(), tokens.end(),
                           [kind](const Token &t) { return t.kind == kind; });
    };
    EXPECT_EQ(has_ext, kind_count(ORX_TOKEN_EXT) == 1 ? 1 : 0);
    EXPECT_LE(kind_count(ORX_TOKEN_FRAME), 1);
    for (int32_t frame : {0, 7, -7, 123456}) check_round_trip(syntax, tokens, frame);
  }
  EXPECT_GT(valid, 200) << valid;  // the generator reaches the valid side often enough
  RecordProperty("valid_syntaxes", valid);
}

}  // namespace
