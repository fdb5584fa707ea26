#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>

#include "naming/naming_support.hpp"
#include "orx/err.h"

namespace {

using orx::test::Token;
using orx::test::tokens_of;
using NameSyntax = orx::test::NamingTest;

constexpr int kName = ORX_TOKEN_NAME;
constexpr int kExt = ORX_TOKEN_EXT;
constexpr int kFrame = ORX_TOKEN_FRAME;
constexpr int kSep = ORX_TOKEN_SEPARATOR;

struct Case {
  const char *syntax;
  int32_t status;  // what verify and parse leave in orx__err
  bool has_ext;
};

TEST_F(NameSyntax, TokensIgnoreCaseAndComeInOrderWithTheirLengths) {
  const std::vector<Token> expected = {
      {kName, "name"}, {kSep, "."}, {kFrame, "####"}, {kSep, "."}, {kExt, "ext"}};
  EXPECT_EQ(tokens_of("Name.####.Ext"), expected);
  EXPECT_EQ(tokens_of("name.####.ext"), expected);
  EXPECT_EQ(orx__err, ORX_OK);
  // Repeats of the name token merge; separator runs stop before "#".
  EXPECT_EQ(tokens_of("NameNAME.ext"),
            (std::vector<Token>{{kName, "namename"}, {kSep, "."}, {kExt, "ext"}}));
  EXPECT_EQ(tokens_of("name-_.#"),
            (std::vector<Token>{{kName, "name"}, {kSep, "-_."}, {kFrame, "#"}}));
  EXPECT_EQ(tokens_of("##_name.name"), (std::vector<Token>{{kFrame, "##"}, {kSep, "_"},
                                                           {kName, "name"}, {kSep, "."},
                                                           {kName, "name"}}));
}

TEST_F(NameSyntax, VerifyHasExtAndParseAgreeOnValidAndInvalidGroups) {
  const Case cases[] = {
      {"Name.####.Ext", ORX_OK, true},
      {"name.##.##", ORX_E_BAD_SYNTAX, false},  // two frame runs
      {"name.####", ORX_OK, false},
      {"####.ext", ORX_OK, true},  // frame only
      {"#", ORX_OK, false},
      {".ext", ORX_E_BAD_SYNTAX, false},  // neither name nor frame
      {"name.ext.ext", ORX_E_BAD_SYNTAX, false},  // double extension
      {"namename.ext", ORX_OK, true},
      {"name_name", ORX_OK, false},
      {"dir/name.####.ext", ORX_E_BAD_SYNTAX, false},
      {"name.\x80.ext", ORX_E_BAD_SYNTAX, false},
      {"name ext", ORX_E_BAD_SYNTAX, false},  // space is no separator
      {"names", ORX_E_BAD_SYNTAX, false},
      {"nam", ORX_E_BAD_SYNTAX, false},
      {"ex.name", ORX_E_BAD_SYNTAX, false},
      {"[name]-{####}@ext~", ORX_OK, true},
      {"", ORX_E_EMPTY_SYNTAX, false},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.syntax);
    orx__err = 99;
    EXPECT_EQ(ORX_name_syntax_verify(c.syntax), c.status == ORX_OK ? 1 : 0);
    EXPECT_EQ(orx__err, c.status);
    orx__err = 99;
    EXPECT_EQ(ORX_name_syntax_has_ext(c.syntax), c.has_ext ? 1 : 0);
    EXPECT_EQ(orx__err, c.status);
    ORX_NAME_TOKEN sentinel{};
    ORX_NAME_TOKEN *tokens = &sentinel;
    orx__err = 99;
    const uint8_t parsed = ORX_parse_name_syntax(c.syntax, &tokens, 0);
    EXPECT_EQ(orx__err, c.status);
    if (parsed != 0) {
      EXPECT_EQ(c.status, ORX_OK);
      std::free(tokens);
    } else {
      EXPECT_EQ(tokens, &sentinel);  // untouched on failure
    }
  }
  EXPECT_EQ(ORX_name_syntax_verify(nullptr), 0);
  EXPECT_EQ(orx__err, ORX_E_EMPTY_SYNTAX);
}

TEST_F(NameSyntax, EndsExtLooksOnlyAtTheLastThreeLettersInAnyCase) {
  EXPECT_EQ(ORX_name_syntax_ends_ext("fooEXT"), 1);  // not a valid syntax
  EXPECT_EQ(ORX_name_syntax_ends_ext("a/b.eXt"), 1);
  EXPECT_EQ(ORX_name_syntax_ends_ext("ext"), 1);
  EXPECT_EQ(orx__err, ORX_OK);
  EXPECT_EQ(ORX_name_syntax_ends_ext("name.####.ext."), 0);
  EXPECT_EQ(ORX_name_syntax_ends_ext("xt"), 0);
  EXPECT_EQ(ORX_name_syntax_ends_ext(""), 0);
  EXPECT_EQ(orx__err, ORX_E_EMPTY_SYNTAX);
  EXPECT_EQ(ORX_name_syntax_ends_ext(nullptr), 0);
}

TEST_F(NameSyntax, HasFrameFindsAHashAnywhereWithoutCheckingValidity) {
  EXPECT_EQ(ORX_name_syntax_has_frame("bad/#"), 1);
  EXPECT_EQ(ORX_name_syntax_has_frame("name.####.ext"), 1);
  EXPECT_EQ(ORX_name_syntax_has_frame("name.ext"), 0);
  EXPECT_EQ(orx__err, ORX_OK);
  EXPECT_EQ(ORX_name_syntax_has_frame(""), 0);
  EXPECT_EQ(orx__err, ORX_E_EMPTY_SYNTAX);  // as every syntax function says of ""
  orx__err = ORX_OK;
  testing::internal::CaptureStderr();
  EXPECT_EQ(ORX_name_syntax_has_frame(nullptr), 0);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("programming error"), std::string::npos);
  EXPECT_STREQ(ORX_name_syntax_name(), "name");
}

TEST_F(NameSyntax, TokenTextsShareOneCopyReusedByTheNextCall) {
  ORX_NAME_TOKEN *first = nullptr;
  ORX_NAME_TOKEN *second = nullptr;
  ASSERT_EQ(ORX_parse_name_syntax("NAME.#", &first, 0), 1);
  ASSERT_EQ(ORX_parse_name_syntax("####", &second, 0), 1);
  EXPECT_EQ(first[0].text, second[0].text);  // same buffer, now holding "####"
  EXPECT_EQ(std::string(first[0].text, 4), "####");
  std::free(first);
  std::free(second);
}

// A pattern of a few hundred thousand tokens, parsed on a thread with a small
// stack: the parser must not need a stack frame per token.
TEST_F(NameSyntax, LongPatternsParseInConstantStack) {
  std::string syntax = "name";
  for (int i = 0; i < 100000; ++i) syntax += ".name";
  syntax += ".####.ext";
  std::size_t count = 0;
  int32_t last_kind = -1;
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 64 * 1024);
  struct Job {
    const std::string *syntax;
    std::size_t *count;
    int32_t *last_kind;
  } job{&syntax, &count, &last_kind};
  pthread_t thread;
  ASSERT_EQ(pthread_create(
                &thread, &attr,
                [](void *arg) -> void * {
                  auto *j = static_cast<Job *>(arg);
                  ORX_NAME_TOKEN *tokens = nullptr;
                  if (ORX_parse_name_syntax(j->syntax->c_str(), &tokens, 0) == 0) return nullptr;
                  while (tokens[*j->count].kind != ORX_TOKEN_END) ++*j->count;
                  *j->last_kind = tokens[*j->count - 1].kind;
                  std::free(tokens);
                  return nullptr;
                },
                &job),
            0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
  EXPECT_EQ(count, 2 * 100000 + 5u);  // name (. name)* . #### . ext
  EXPECT_EQ(last_kind, ORX_TOKEN_EXT);
}

// The copy buffer is sized to the next multiple of 16 above the length and
// only grows: a parse allocates the copy only when the syntax outgrows it.
TEST_F(NameSyntax, CopyBufferGrowsInSixteenByteSteps) {
  auto allocations = [](const std::string &syntax) {
    orx::heap::fail_nth(1000000);  // counts without failing
    ORX_NAME_TOKEN *tokens = nullptr;
    EXPECT_EQ(ORX_parse_name_syntax(syntax.c_str(), &tokens, 0), 1) << syntax;
    std::free(tokens);
    const long seen = orx::heap::allocations_seen();
    orx::heap::fail_nth(0);
    return seen;
  };
  EXPECT_EQ(allocations("name." + std::string(10, '#')), 2);  // 15 characters: 16 bytes
  EXPECT_EQ(allocations("name"), 1);
  EXPECT_EQ(allocations("name." + std::string(10, '#')), 1);
  EXPECT_EQ(allocations("name.." + std::string(10, '#')), 2);  // 16 characters: 32 bytes
  EXPECT_EQ(allocations("name." + std::string(26, '#')), 1);   // 31 still fits
}

TEST_F(NameSyntax, OutOfMemoryFailsWithStatusAndLeavesNothingBehind) {
  const long needed = orx::test::for_each_allocation_failure([] {
    orx::naming::reset();
    ORX_NAME_TOKEN *tokens = nullptr;
    const uint8_t ok = ORX_parse_name_syntax("Name.####.Ext", &tokens, 0);
    if (ok == 0) {
      EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
      EXPECT_EQ(tokens, nullptr);
    }
    std::free(tokens);
    return ok != 0;
  });
  EXPECT_EQ(needed, 2);  // the copy, then the token array
  orx::naming::reset();
  orx::test::FailNthAllocation fail(1);
  EXPECT_EQ(ORX_name_syntax_verify("name"), 0);
  EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
  EXPECT_EQ(ORX_name_syntax_has_ext("name.ext"), 1);  // only the first allocation failed
  orx::naming::reset();
  orx::test::FailNthAllocation fail_again(1);
  EXPECT_EQ(ORX_name_syntax_ends_ext("name.ext"), 0);
  EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
}

}  // namespace
