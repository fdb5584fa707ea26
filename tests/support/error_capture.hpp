// Records the reports that reach a handler declared for the scope of a test.
// Behaviour tests check what failed by the status and the catalogue message
// (orx::Msg), never by the wording, which only the catalogue test pins.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "err/messages.hpp"
#include "orx/err.h"

namespace orx::test {

using Msg = orx::Msg;

struct Captured {
  int severity;
  std::string name;     // the catalogue's default format for catalogue reports
  std::string message;  // the text as formatted
  // set * 1000 + number, 0 when not from the catalogue.  Handlers see the
  // default format, not the number, so two messages of one text share the
  // first one's id; has(Msg) matches either.
  int id;
};

class ErrorCapture {
 public:
  // Declares a global handler; reports stop here and nothing reaches
  // standard error.
  ErrorCapture();
  ~ErrorCapture();
  ErrorCapture(const ErrorCapture &) = delete;
  ErrorCapture &operator=(const ErrorCapture &) = delete;

  const std::vector<Captured> &reports() const { return reports_; }
  std::size_t size() const { return reports_.size(); }
  // True when some report was catalogue message m (and, when given, one
  // of its arguments, a file name or a count, reads arg).
  bool has(Msg m, std::string_view arg = {}) const;
  // True when some report was message m at this severity.
  bool has_at(Msg m, int severity) const;
  // True when the newest report was message m.
  bool last_is(Msg m) const;
  // True when some report of this severity contains text (for reports that
  // are not in the catalogue: system errors, plug-ins' own texts).
  bool has(int severity, std::string_view text) const;
  // The newest message, or "" when none; the newest catalogue id, or 0.
  std::string last() const;
  int last_id() const;
  void clear() { reports_.clear(); }
  // The calling thread's status and message m among the reports.
  ::testing::AssertionResult failed_with(int status, Msg m) const;

 private:
  static int handle(const char *name, int severity, const char *message, ERR_RECORD *,
                    intptr_t data);
  std::vector<Captured> reports_;
};

}  // namespace orx::test
