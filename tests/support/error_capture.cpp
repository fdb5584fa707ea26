#include "support/error_capture.hpp"

namespace orx::test {

namespace {

// The catalogue message whose default format is name; 0 when none is.
int msg_id_of(std::string_view name) {
  for (std::size_t i = 0; i < msg_count(); ++i) {
    const Msg m = msg_at(i);
    if (const char *text = msg_text(m); text != nullptr && name == text)
      return static_cast<int>(m);
  }
  return 0;
}

}  // namespace

ErrorCapture::ErrorCapture() {
  ERR_dcl_handler(nullptr, &ErrorCapture::handle, reinterpret_cast<intptr_t>(this));
}

ErrorCapture::~ErrorCapture() { ERR_can_handler(nullptr); }

int ErrorCapture::handle(const char *name, int severity, const char *message, ERR_RECORD *,
                         intptr_t data) {
  auto *self = reinterpret_cast<ErrorCapture *>(data);
  const std::string key = name ? name : "";
  self->reports_.push_back({severity, key, message ? message : "", msg_id_of(key)});
  return 0;
}

bool ErrorCapture::has(Msg m, std::string_view arg) const {
  const char *text = msg_text(m);
  for (const auto &r : reports_)
    if (text != nullptr && r.name == text && r.message.find(arg) != std::string::npos) return true;
  return false;
}

bool ErrorCapture::has_at(Msg m, int severity) const {
  const char *text = msg_text(m);
  for (const auto &r : reports_)
    if (text != nullptr && r.name == text && r.severity == severity) return true;
  return false;
}

bool ErrorCapture::last_is(Msg m) const {
  const char *text = msg_text(m);
  return text != nullptr && !reports_.empty() && reports_.back().name == text;
}

bool ErrorCapture::has(int severity, std::string_view text) const {
  for (const auto &r : reports_)
    if (r.severity == severity && r.message.find(text) != std::string::npos) return true;
  return false;
}

std::string ErrorCapture::last() const { return reports_.empty() ? "" : reports_.back().message; }

int ErrorCapture::last_id() const { return reports_.empty() ? 0 : reports_.back().id; }

::testing::AssertionResult ErrorCapture::failed_with(int status, Msg m) const {
  if (ORX_last_status() != status)
    return ::testing::AssertionFailure() << "status " << ORX_last_status() << ", not " << status
                                         << " (" << last() << ")";
  if (!has(m))
    return ::testing::AssertionFailure() << "no message " << static_cast<int>(m) << " among "
                                         << size() << " reports; last: " << last();
  return ::testing::AssertionSuccess();
}

}  // namespace orx::test
