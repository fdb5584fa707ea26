// A progress bar on standard error for commands that go through many rows,
// shown only when standard error is a terminal (pipes and logs stay quiet)
// and not for the frames of a sequence, which has a bar of its own.
#pragma once

#include <unistd.h>

#include <cstdio>

#include "tool.hpp"

namespace orx::tool {

class Progress {
 public:
  explicit Progress(long total)
      : total_(total), shown_(total > 4000 && isatty(2) == 1 && !in_frame()) {}
  ~Progress() {
    if (shown_) show_status("");
  }
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;

  void step() {
    if (!shown_ || ++done_ % 64 != 0) return;
    const int width = 40;
    const int filled = static_cast<int>(width * done_ / total_);
    char bar[64];
    std::snprintf(bar, sizeof bar, "[%-*.*s] %3ld%%", width, filled,
                  "########################################", 100 * done_ / total_);
    show_status(bar);
  }

 private:
  long total_;
  long done_ = 0;
  bool shown_;
};

}  // namespace orx::tool
