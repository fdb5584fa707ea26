// Running programs as processes from a test: the orx tool, and the image
// tools other people use (OpenImageIO, GraphicsMagick, ImageMagick) to check
// our files against theirs.  A test whose tool is missing is skipped.
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

namespace orx::test {

struct ToolRun {
  int status;
  std::string output;  // standard output and standard error together
};

// Runs a shell command; its raw wait status and everything it printed.
inline ToolRun run(const std::string &command) {
  ToolRun r{-1, ""};
  std::FILE *p = popen((command + " 2>&1").c_str(), "r");
  if (p == nullptr) return r;
  char buf[4096];
  std::size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) r.output.append(buf, n);
  r.status = pclose(p);
  return r;
}

// Runs a shell command in dir; its exit status (-1 when it did not exit).
inline int shell_in(const std::string &dir, const std::string &command) {
  const int raw = std::system(("cd '" + dir + "' && " + command).c_str());
  return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

inline bool have_tool(const char *tool) {
  return run(std::string("command -v ") + tool + " >/dev/null").status == 0;
}

#define ORX_REQUIRE_TOOL(tool)                                                   \
  do {                                                                           \
    if (!::orx::test::have_tool(tool)) GTEST_SKIP() << tool " is not installed"; \
  } while (0)

}  // namespace orx::test
