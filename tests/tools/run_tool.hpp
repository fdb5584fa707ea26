// Running the orx tool as a process from a test, in a directory of the
// test's own.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "support/fixtures.hpp"
#include "support/process.hpp"

namespace orx::test {

// Runs "orx ARGS" in dir with standard output and error into dir/out;
// returns the exit status (-1 when it did not exit).
inline int run_orx(const std::string &dir, const std::string &args, const std::string &out = "log") {
  return shell_in(dir, "'" ORX_TOOL "' " + args + " >'" + out + "' 2>&1");
}

// A directory of the test's own to run orx in; log_ holds what the last
// run printed.
class ToolTest : public ::testing::Test {
 protected:
  // Runs a shell command in the directory; returns its exit status.
  int shell(const std::string &command) { return shell_in(dir_.path(), command); }
  int run(const std::string &args) {
    const int status = run_orx(dir_.path(), args);
    log_ = slurp(dir_.file("log"));
    return status;
  }
  TempDir dir_;
  std::string log_;
};

}  // namespace orx::test
