// Running the image tools other people use (OpenImageIO, GraphicsMagick,
// ImageMagick) as processes, to check our files against theirs.  A test
// whose tool is missing is skipped with a message.
#pragma once

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

namespace orx::test {

struct ToolRun {
  int status;
  std::string output;  // standard output and standard error together
};

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

inline bool have_tool(const char *tool) {
  return run(std::string("command -v ") + tool + " >/dev/null").status == 0;
}

#define ORX_REQUIRE_TOOL(tool)                                              \
  do {                                                                      \
    if (!::orx::test::have_tool(tool)) GTEST_SKIP() << tool " is not installed"; \
  } while (0)

}  // namespace orx::test
