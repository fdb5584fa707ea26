#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pthread.h>

#include "naming/naming_support.hpp"
#include "orx/err.h"

namespace {

using NameSyntax = orx::test::NamingTest;

// The grammar is checked against a model in property_test.cpp; here what
// the generated syntaxes cannot reach: null and empty ones.
TEST_F(NameSyntax, NullAndEmptySyntaxes) {
  EXPECT_EQ(ORX_name_syntax_verify(nullptr), 0);
  EXPECT_EQ(orx__err, ORX_E_EMPTY_SYNTAX);
  EXPECT_EQ(ORX_name_syntax_ends_ext(nullptr), 0);
  orx__err = ORX_OK;
  EXPECT_EQ(ORX_name_syntax_has_frame(""), 0);
  EXPECT_EQ(orx__err, ORX_E_EMPTY_SYNTAX);  // as every syntax function says of ""
  orx__err = ORX_OK;
  testing::internal::CaptureStderr();
  EXPECT_EQ(ORX_name_syntax_has_frame(nullptr), 0);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("programming error"), std::string::npos);
  EXPECT_STREQ(ORX_name_syntax_name(), "name");
}

// A pattern of a few hundred thousand tokens, parsed on a thread with a small
// stack: the parser must not need a stack frame per token.
TEST_F(NameSyntax, LongPatternsParseInConstantStack) {
  struct Job {
    std::string syntax = "name";
    std::vector<orx::test::Token> tokens;
  } job;
  for (int i = 0; i < 100000; ++i) job.syntax += ".name";
  job.syntax += ".####.ext";
  const auto parse = [](void *arg) -> void * {
    auto *j = static_cast<Job *>(arg);
    j->tokens = orx::test::tokens_of(j->syntax.c_str());
    return nullptr;
  };
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 64 * 1024);
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attr, parse, &job), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
  ASSERT_EQ(job.tokens.size(), 2 * 100000 + 5u);  // name (. name)* . #### . ext
  EXPECT_EQ(job.tokens.back().kind, ORX_TOKEN_EXT);
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
