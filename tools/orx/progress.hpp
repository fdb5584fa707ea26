// A progress bar on standard error for commands that go through many rows,
// shown only when standard error is a terminal: pipes and logs stay quiet.
#pragma once

#include <unistd.h>

#include <cstdio>

namespace orx::tool {

class Progress {
 public:
  explicit Progress(long total) : total_(total), shown_(total > 4000 && isatty(2) == 1) {}
  ~Progress() {
    if (shown_) std::fprintf(stderr, "\r%60s\r", "");
  }
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;

  void step() {
    if (!shown_ || ++done_ % 64 != 0) return;
    const int width = 40;
    const int filled = static_cast<int>(width * done_ / total_);
    std::fprintf(stderr, "\r[%-*.*s] %3ld%%", width, filled,
                 "########################################", 100 * done_ / total_);
  }

 private:
  long total_;
  long done_ = 0;
  bool shown_;
};

}  // namespace orx::tool
