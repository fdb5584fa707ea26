// A catalogue message with its arguments filled in, for the few tests that
// check a report's whole text; which message a failure reported is asked of
// ErrorCapture (has, has_at, last_is, failed_with).
#pragma once

#include <cstdio>
#include <string>

#include "err/messages.hpp"
#include "support/error_capture.hpp"

namespace orx::test {

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
