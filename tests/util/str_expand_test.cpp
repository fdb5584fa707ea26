#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "orx/str.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

using StrExpandFilename = orx::test::CleanErrors;

using Result = std::pair<int, std::string>;

// Expands name; returns the flag and the stored text ("(null)" for none).
Result expand(const char *name) {
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
  EXPECT_EQ(expand("  $ORX_T_DIR/${ORX_T_SHOT_2}x.rla"), Result(1, "/job/img/s2x.rla"));
  EXPECT_EQ(expand("$ORX_T_SHOT_2.$ORX_T_EMPTY."), Result(1, "s2.."));
  // A "$" that starts no name stays as it is.
  EXPECT_EQ(expand("cost$/${}/$-/${ORX_T_DIR"), Result(1, "cost$/${}/$-/${ORX_T_DIR"));
  EXPECT_EQ(expand(""), Result(1, ""));
}

TEST_F(StrExpandFilename, UnsetVariableGivesItsNameAndFalse) {
  orx::test::ScopedEnv dir("ORX_T_DIR", "/job/img");
  orx::test::ScopedEnv unset("ORX_T_UNSET", std::nullopt);
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

// Every way past the limit (a long value, a long name, long plain text) is a
// fatal fault; the default handler would abort, a handler returning 0 stops it.
TEST_F(StrExpandFilename, OverlongTextIsAFatalFaultThatAHandlerCanStop) {
  orx::test::ScopedEnv big("ORX_T_BIG", std::string(200, 'x'));
  EXPECT_EQ(expand((std::string(59, 'a') + "$ORX_T_BIG").c_str()).first, 1);  // exactly 259
  orx::test::ErrorCapture capture;
  for (const std::string &text : {std::string(60, 'a') + "$ORX_T_BIG", "$" + std::string(260, 'V'),
                                  std::string(300, 'n')}) {
    capture.clear();
    EXPECT_EQ(expand(text.c_str()), Result(0, "(null)"));
    EXPECT_TRUE(capture.has(ERR_FATAL, "File name longer than 259 characters after expansion"));
  }
}

}  // namespace
