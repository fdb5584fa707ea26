#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "orx/str.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

using StrExpandFilename = orx::test::CleanErrors;
using StrExpandFilenameDeathTest = orx::test::CleanErrors;

// Expands name; returns the flag and the stored text ("(null)" for none).
std::pair<int, std::string> expand(const char *name) {
  char *result = reinterpret_cast<char *>(1);
  int ok = STR_expand_filename(name, &result);
  std::string text = result != nullptr ? result : "(null)";
  std::free(result);
  return {ok, text};
}

TEST_F(StrExpandFilename, ReplacesBareAndBracedVariables) {
  orx::test::ScopedEnv dir("ORX_T_DIR", "/job/img");
  orx::test::ScopedEnv shot("ORX_T_SHOT_2", "s2");
  orx::test::ScopedEnv empty("ORX_T_EMPTY", "");
  using Result = std::pair<int, std::string>;
  EXPECT_EQ(expand("  $ORX_T_DIR/${ORX_T_SHOT_2}x.rla"), Result(1, "/job/img/s2x.rla"));
  EXPECT_EQ(expand("$ORX_T_SHOT_2.$ORX_T_EMPTY."), Result(1, "s2.."));
  // A "$" that starts no name stays as it is.
  EXPECT_EQ(expand("cost$/${}/$-/${ORX_T_DIR"), Result(1, "cost$/${}/$-/${ORX_T_DIR"));
  EXPECT_EQ(expand(""), Result(1, ""));
}

TEST_F(StrExpandFilename, UnsetVariableGivesItsNameAndFalse) {
  orx::test::ScopedEnv dir("ORX_T_DIR", "/job/img");
  orx::test::ScopedEnv unset("ORX_T_UNSET", std::nullopt);
  using Result = std::pair<int, std::string>;
  EXPECT_EQ(expand("$ORX_T_DIR/${ORX_T_UNSET}/a"), Result(0, "ORX_T_UNSET"));
  EXPECT_EQ(expand(nullptr), Result(0, "(null)"));
  EXPECT_EQ(STR_expand_filename("a", nullptr), 0);

  orx::test::for_each_allocation_failure([] {
    auto [ok, text] = expand("$ORX_T_DIR/a");
    if (ok) {
      EXPECT_EQ(text, "/job/img/a");
    }
    return ok == 1;
  });
}

TEST_F(StrExpandFilename, OverlongTextIsAFatalFaultThatAHandlerCanStop) {
  orx::test::ScopedEnv big("ORX_T_BIG", std::string(200, 'x'));
  using Result = std::pair<int, std::string>;
  EXPECT_EQ(expand((std::string(59, 'a') + "$ORX_T_BIG").c_str()).first, 1);  // exactly 259
  orx::test::ErrorCapture capture;
  EXPECT_EQ(expand((std::string(60, 'a') + "$ORX_T_BIG").c_str()), Result(0, "(null)"));
  EXPECT_TRUE(capture.has(ERR_FATAL, "longer than 259"));
  capture.clear();
  EXPECT_EQ(expand(("$" + std::string(260, 'V')).c_str()), Result(0, "(null)"));
  EXPECT_TRUE(capture.has(ERR_FATAL, "longer than 259"));
}

TEST_F(StrExpandFilenameDeathTest, OverlongTextAbortsThroughTheDefaultHandler) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::string name(300, 'n');
  EXPECT_DEATH(expand(name.c_str()), "FATAL, File name longer than 259");
}

}  // namespace
