// Running the orx tool as a process from a test, in a directory of the
// test's own.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "support/fixtures.hpp"

namespace orx::test {

// Runs "orx ARGS" in dir with standard output and error into dir/out;
// returns the exit status (-1 when it did not exit).
inline int run_orx(const std::string &dir, const std::string &args, const std::string &out = "log") {
  const std::string command =
      "cd '" + dir + "' && '" ORX_TOOL "' " + args + " >'" + out + "' 2>&1";
  const int raw = std::system(command.c_str());
  return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

// A directory of the test's own to run orx in; log_ holds what the last
// run printed.
class ToolTest : public ::testing::Test {
 protected:
  int run(const std::string &args) {
    const int status = run_orx(dir_.path(), args);
    log_ = slurp(dir_.file("log"));
    return status;
  }
  TempDir dir_;
  std::string log_;
};

}  // namespace orx::test
