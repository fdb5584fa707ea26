#include "support/error_capture.hpp"

namespace orx::test {

ErrorCapture::ErrorCapture(bool pass_on) : pass_on_(pass_on) {
  ERR_dcl_handler(nullptr, &ErrorCapture::handle, reinterpret_cast<intptr_t>(this));
}

ErrorCapture::~ErrorCapture() { ERR_can_handler(nullptr); }

int ErrorCapture::handle(const char *name, int severity, const char *message, ERR_RECORD *,
                         intptr_t data) {
  auto *self = reinterpret_cast<ErrorCapture *>(data);
  self->reports_.push_back({severity, name ? name : "", message ? message : ""});
  return self->pass_on_ ? 1 : 0;
}

bool ErrorCapture::has(int severity, std::string_view text) const {
  for (const auto &r : reports_)
    if (r.severity == severity && r.message.find(text) != std::string::npos) return true;
  return false;
}

std::string ErrorCapture::last() const { return reports_.empty() ? "" : reports_.back().message; }

}  // namespace orx::test
