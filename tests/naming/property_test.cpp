// Random syntaxes against a model of the grammar: verification, parsing and
// the questions about a syntax agree with it on every one, and every valid
// one builds the names a model of the building rule gives.
#include <algorithm>
#include <climits>
#include <cctype>
#include <optional>
#include <random>
#include <cstring>
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
                                        "\x80", "e",    "na",   "nam", "ex",  "%%", ".",
                                        "@",    "{~"};
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

// The grammar as its rules read, over the lower-cased text: the tokens, or
// nothing when the syntax is invalid.
std::optional<std::vector<Token>> model_tokens(const std::string &syntax) {
  const std::string s = lower(syntax);
  const auto at = [&s](std::size_t i, const char *word) { return s.compare(i, std::strlen(word), word) == 0; };
  const auto punct = [](char c) { return std::ispunct(static_cast<unsigned char>(c)) != 0; };
  bool named = false, ext = false, frame = false;
  std::vector<Token> out;
  for (std::size_t i = 0, j = 0; i < s.size(); i = j) {
    int kind = ORX_TOKEN_SEPARATOR;
    if (s[i] == '#') {
      if (frame) return std::nullopt;
      j = std::min(s.find_first_not_of('#', i), s.size());
      kind = ORX_TOKEN_FRAME, frame = named = true;
    } else if (s[i] != '/' && punct(s[i])) {
      for (j = i + 1; j < s.size() && punct(s[j]) && s[j] != '/' && s[j] != '#';) ++j;
    } else if (at(i, "name")) {
      for (j = i; at(j, "name");) j += 4;
      kind = ORX_TOKEN_NAME, named = true;
    } else if (!ext && at(i, "ext")) {
      j = i + 3, kind = ORX_TOKEN_EXT, ext = true;
    } else {
      return std::nullopt;  // "/", a high byte, any other letter, a second extension
    }
    out.push_back({kind, s.substr(i, j - i)});
  }
  if (!named) return std::nullopt;
  return out;
}

// The name a valid syntax builds: the base for each name, the frame with at
// least as many digits as the token has "#", separators as written and the
// extension as given, except that a separator ending in "." takes the place
// of the extension's own dot, and one that leads to an absent extension goes.
std::string model_build(const std::vector<Token> &tokens, const std::string &base, int64_t frame,
                        const std::string &ext) {
  std::string name;
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    const Token &t = tokens[i];
    if (t.kind == ORX_TOKEN_NAME) {
      name += base;
    } else if (t.kind == ORX_TOKEN_FRAME) {
      const std::string digits = std::to_string(frame < 0 ? -frame : frame);
      const std::size_t pad = t.text.size() - std::min(t.text.size(), digits.size());
      name += (frame < 0 ? "-" : "") + std::string(pad, '0') + digits;
    } else if (t.kind == ORX_TOKEN_EXT) {
      const bool dotted =
          i > 0 && tokens[i - 1].kind == ORX_TOKEN_SEPARATOR && tokens[i - 1].text.ends_with('.');
      name += dotted && ext.starts_with('.') ? ext.substr(1) : ext;
    } else if (!(ext.empty() && i + 1 < tokens.size() && tokens[i + 1].kind == ORX_TOKEN_EXT)) {
      name += t.text;
    }
  }
  return name;
}

const int32_t kFrames[] = {0, 7, -7, 42, 9999, 10000, 123456, -12345, INT32_MIN, INT32_MAX};
const char *const kExtensions[] = {".rla", "rla", "", nullptr};

TEST_F(NameSyntaxProperty, VerifyParseAndBuildAgreeWithTheModel) {
  std::mt19937 rng(20240611);
  int valid = 0;
  for (int i = 0; i < 4000; ++i) {
    const std::string syntax = random_syntax(rng);
    SCOPED_TRACE("syntax \"" + syntax + "\"");
    const auto model = model_tokens(syntax);
    const int32_t status = syntax.empty() ? ORX_E_EMPTY_SYNTAX : model ? ORX_OK : ORX_E_BAD_SYNTAX;
    orx__err = 99;
    ASSERT_EQ(ORX_name_syntax_verify(syntax.c_str()), model ? 1 : 0);
    ASSERT_EQ(orx__err, status);
    orx__err = 99;
    const bool model_ext = model && std::any_of(model->begin(), model->end(), [](const Token &t) {
      return t.kind == ORX_TOKEN_EXT;
    });
    ASSERT_EQ(ORX_name_syntax_has_ext(syntax.c_str()), model_ext ? 1 : 0);
    ASSERT_EQ(orx__err, status);
    ASSERT_EQ(ORX_name_syntax_ends_ext(syntax.c_str()), lower(syntax).ends_with("ext") ? 1 : 0);
    ASSERT_EQ(ORX_name_syntax_has_frame(syntax.c_str()), syntax.find('#') != std::string::npos);
    ORX_NAME_TOKEN sentinel{};
    ORX_NAME_TOKEN *untouched = &sentinel;
    if (!model) {  // a failed parse leaves the caller's pointer alone
      ASSERT_EQ(ORX_parse_name_syntax(syntax.c_str(), &untouched, 0), 0);
      ASSERT_EQ(untouched, &sentinel);
      ASSERT_EQ(orx__err, status);
      ASSERT_EQ(ORX_pathname_build_from_name_syntax(syntax.c_str(), "shot", 1, ".x"), nullptr);
      ASSERT_EQ(orx__err, status);
      continue;
    }
    const std::vector<Token> tokens = orx::test::tokens_of(syntax.c_str());
    ASSERT_EQ(orx__err, ORX_OK);
    ASSERT_EQ(tokens, *model);
    ++valid;
    for (const char *ext : kExtensions)
      for (int32_t frame : kFrames) {
        const char *base = frame == 0 ? nullptr : "shot";
        char *built = ORX_pathname_build_from_name_syntax(syntax.c_str(), base, frame, ext);
        ASSERT_NE(built, nullptr);
        EXPECT_EQ(built, model_build(tokens, base ? base : "", frame, ext ? ext : "")) << frame;
        ERR_free(built);
      }
  }
  EXPECT_GT(valid, 200) << valid;  // the generator reaches the valid side often enough
  RecordProperty("valid_syntaxes", valid);
}

}  // namespace
