// Helpers shared by the name-syntax tests: a parse that hands back the token
// list as plain values, and a fixture that starts with no working copy.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include "naming/name_syntax.hpp"
#include "orx/naming.h"
#include "support/fixtures.hpp"

namespace orx::test {

struct Token {
  int kind;
  std::string text;
  bool operator==(const Token &) const = default;
};

// The tokens of syntax without the end record, or nothing when the parse
// fails.  Checks the end record and the fixed fields on the way.
inline std::vector<Token> tokens_of(const char *syntax) {
  ORX_NAME_TOKEN *array = nullptr;
  std::vector<Token> out;
  if (ORX_parse_name_syntax(syntax, &array, 0) == 0) return out;
  const ORX_NAME_TOKEN *t = array;
  for (; t->kind != ORX_TOKEN_END; ++t) {
    EXPECT_EQ(t->default_width, 4);
    EXPECT_EQ(t->reserved1 | t->reserved2 | t->build_flags | t->reserved4, 0);
    EXPECT_EQ(t->reserved3 | t->reserved5, 0);
    out.push_back({t->kind, std::string(t->text, static_cast<std::size_t>(t->length))});
  }
  EXPECT_EQ(t->length, 1);
  EXPECT_EQ(*t->text, '\0');
  std::free(array);
  return out;
}

class NamingTest : public CleanErrors {
 protected:
  void SetUp() override {
    CleanErrors::SetUp();
    naming::reset();
  }
  void TearDown() override {
    naming::reset();
    CleanErrors::TearDown();
  }
};

}  // namespace orx::test
