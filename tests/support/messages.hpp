// Which catalogue message a failure reported.  Handlers receive a message's
// default text as the report's name whatever language the catalogue speaks,
// so behaviour tests compare that identity and leave the wording to the
// catalogue's own table test.
#pragma once

#include <cstdio>
#include <string>

#include "err/messages.hpp"
#include "support/error_capture.hpp"

namespace orx::test {

// Whether some report (or, with last, the newest one) was message m, at
// the given severity when one is given.
inline bool reported(const ErrorCapture &cap, Msg m, int severity = -1, bool last = false) {
  const auto &all = cap.reports();
  for (auto r = all.rbegin(); r != all.rend(); ++r) {
    if (r->name == msg_text(m) && (severity < 0 || r->severity == severity)) return true;
    if (last) break;
  }
  return false;
}

inline bool reported_last(const ErrorCapture &cap, Msg m) { return reported(cap, m, -1, true); }

// Message m with its arguments filled in, as a report of it reads.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
template <class... Args>
std::string message(Msg m, Args... args) {
  char text[1024];
  std::snprintf(text, sizeof text, msg_text(m), args...);
  return text;
}
#pragma GCC diagnostic pop

}  // namespace orx::test
