// Running the orx tool as a process from a test, in a directory of the
// test's own.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/fixtures.hpp"
#include "support/process.hpp"

namespace orx::test {

// One command of a session at the command line: its arguments, its exit
// status and the parts of what it prints.
struct Step {
  const char *args;
  int status;
  std::vector<std::string> says = {};
};

// A directory of the test's own to run orx in; log_ holds what the last
// run printed.
class ToolTest : public ::testing::Test {
 protected:
  // Runs a shell command in the directory; returns its exit status.
  int shell(const std::string &command) { return shell_in(dir_.path(), command); }
  // Runs "orx ARGS" with standard output and error into log_; returns the
  // exit status (-1 when it did not exit).
  int run(const std::string &args) {
    const int status = shell("'" ORX_TOOL "' " + args + " >log 2>&1");
    log_ = slurp(dir_.file("log"));
    return status;
  }
  // Runs the steps in order, each to its status and its parts; with
  // one_line, a refusal (status 2) says why in one line.
  void script(std::initializer_list<Step> steps, bool one_line = false) {
    for (const Step &s : steps) {
      EXPECT_EQ(run(s.args), s.status) << s.args << "\n" << log_;
      for (const std::string &part : s.says)
        EXPECT_NE(log_.find(part), std::string::npos) << s.args << ": " << part << "\n" << log_;
      if (one_line && s.status == 2) {
        EXPECT_EQ(std::count(log_.begin(), log_.end(), '\n'), 1) << s.args << "\n" << log_;
      }
    }
  }
  TempDir dir_;
  std::string log_;
};

}  // namespace orx::test
