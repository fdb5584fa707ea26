// ORX_pathname_build: a format's own way of naming numbered files.
#include "err/messages.hpp"
#include "orx/err.h"
#include "orx/naming.h"
#include "orx/registry.h"

extern "C" char *ORX_pathname_build(const char *key, const char *base, int32_t frame) {
  const ORX_FORMAT *format = key != nullptr ? ORX_find(key) : nullptr;
  if (format == nullptr) {
    orx::fail(ORX_E_INVALID_TYPE, orx::Msg::kInvalidType, key != nullptr ? key : "(null)");
    return nullptr;
  }
  const char *extension = format->add_extension != 0 ? format->extension : nullptr;
  if (format->name_syntax != nullptr && format->name_syntax[0] != '\0')
    return ORX_pathname_build_from_name_syntax(format->name_syntax, base, frame, extension);
  return ORX_pathname_build_no_name_syntax(format->format_string, base, frame, extension);
}
