// The registry's answers about formats: look-up by key or extension, the
// plug-in iterator, display names, defaults and file-type tests.
#include <cstdio>
#include <cstring>

#include "core/registry.hpp"
#include "err/messages.hpp"
#include "orx/err.h"
#include "orx/registry.h"

namespace orx::core {
namespace {

constexpr const char *kNone = "__none_";

// Whether format says name is one of its files; *known drops to 0 when it
// cannot tell.
bool says_yes(const FormatRecord &record, const char *name, std::FILE *stream, int32_t *known) {
  if (record.pub.is_file == nullptr) {
    if (known != nullptr) *known = 0;
    return false;
  }
  return record.pub.is_file(name, stream) == 1;
}

bool key_is(const FormatRecord *record, const char *key) {
  return record != nullptr && std::strcmp(record->pub.key, key) == 0;
}

}  // namespace
}  // namespace orx::core

extern "C" {

ORX_FORMAT *ORX_find(const char *key) {
  using namespace orx::core;
  if (!ensure_initialised("ORX_find")) return nullptr;
  FormatRecord *record = find_record(key);
  return record != nullptr ? &record->pub : nullptr;
}

ORX_FORMAT *ORX_info(void) {
  using namespace orx::core;
  if (!ensure_initialised("ORX_find")) return nullptr;
  Registry &r = registry();
  while (r.position < r.count) {
    FormatRecord &record = r.records[r.position++];
    if (record.builtin == 0) return &record.pub;
  }
  return nullptr;
}

const char *ORX_name_from_key(const char *key) {
  if (key == nullptr) return nullptr;
  const ORX_FORMAT *format = ORX_find(key);
  if (format == nullptr) {
    orx::report(orx::Msg::kUnknownKey, key);
    return key;
  }
  return format->name != nullptr ? format->name : key;
}

const char *ORX_def_key(void) {
  if (!orx::core::ensure_initialised("ORX_def_key")) return nullptr;
  return "rla";
}

const char *ORX_def_base_name(void) {
  if (!orx::core::ensure_initialised("ORX_def_base_name")) return nullptr;
  return "im";
}

const char *ORX_get_file_type(const char *name, FILE *stream, int32_t *known) {
  using namespace orx::core;
  if (known != nullptr) *known = 1;
  if (!ensure_initialised("ORX_get_file_type")) return nullptr;
  orx::platform::Lock lock(library_mutex());
  Registry &r = registry();
  // known tells whether every format asked so far could answer, also when
  // a later one says yes.
  int32_t all_answered = 1;
  for (int32_t i = 0; i < r.count; ++i) {
    const bool yes = says_yes(r.records[i], name, stream, &all_answered);
    if (known != nullptr) *known = all_answered;
    if (yes) return r.records[i].pub.key;
  }
  return all_answered != 0 ? kNone : nullptr;
}

const char *ORX_is_file_type(const char *name, FILE *stream, const char *key, int32_t *known) {
  using namespace orx::core;
  if (known != nullptr) *known = 1;
  if (!ensure_initialised("ORX_is_file_type")) return nullptr;
  if (key == nullptr) return ORX_get_file_type(name, stream, known);
  Registry &r = registry();
  if (key_is(r.last_match, key) && says_yes(*r.last_match, name, stream, known))
    return r.last_match->pub.key;
  for (int32_t i = 0; i < r.count; ++i) {
    const FormatRecord *record = &r.records[i];
    if (record == r.last_match || !key_is(record, key)) continue;
    if (says_yes(*record, name, stream, known)) {
      r.last_match = record;
      return record->pub.key;
    }
  }
  return nullptr;
}

int ORX_hasReadSupport(const char *key) {
  const orx::core::FormatRecord *record = orx::core::find_record(key);
  return record != nullptr && (record->pub.access & ORX_ACCESS_READ) != 0 ? 1 : 0;
}

int ORX_hasWriteSupport(const char *key) {
  const orx::core::FormatRecord *record = orx::core::find_record(key);
  return record != nullptr && (record->pub.access & ORX_ACCESS_WRITE) != 0 ? 1 : 0;
}

int ORX_isMultiFrameFormat(const char *key) {
  using namespace orx::core;
  if (key == nullptr) return 0;
  Registry &r = registry();
  for (int32_t i = 0; i < r.plugin_count; ++i)
    if (key_is(&r.records[i], key)) return r.records[i].pub.multi_frame >= 2 ? 1 : 0;
  return 0;
}

}  // extern "C"
