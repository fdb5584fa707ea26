// Records the reports that reach a handler declared for the scope of a test.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "orx/err.h"

namespace orx::test {

struct Captured {
  int severity;
  std::string name;
  std::string message;
};

class ErrorCapture {
 public:
  // Declares a global handler.  With pass_on false (the default) reports
  // stop here and nothing reaches standard error.
  explicit ErrorCapture(bool pass_on = false);
  ~ErrorCapture();
  ErrorCapture(const ErrorCapture &) = delete;
  ErrorCapture &operator=(const ErrorCapture &) = delete;

  const std::vector<Captured> &reports() const { return reports_; }
  std::size_t size() const { return reports_.size(); }
  // True when some report of this severity contains text.
  bool has(int severity, std::string_view text) const;
  // The newest message, or "" when none.
  std::string last() const;
  void clear() { reports_.clear(); }

 private:
  static int handle(const char *name, int severity, const char *message, ERR_RECORD *,
                    intptr_t data);
  std::vector<Captured> reports_;
  bool pass_on_;
};

}  // namespace orx::test
