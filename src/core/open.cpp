// ORX_open: a request becomes an image object bound to one format.  The
// whole open runs under the library mutex, so formats' open functions and
// the registry they consult see one open at a time.
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <utility>

#include "core/info_copy.hpp"
#include "core/multiframe.hpp"
#include "core/registry.hpp"
#include "err/messages.hpp"
#include "orx/attributes.h"
#include "orx/err.h"
#include "orx/registry.h"

namespace orx::core {
namespace {

constexpr const char *kUnknown = "unknown";
constexpr const char *kDefaultKey = "rla";

bool ends_with(const char *text, const char *suffix) {
  const std::size_t n = std::strlen(text);
  const std::size_t m = std::strlen(suffix);
  return m > 0 && m <= n && std::strcmp(text + n - m, suffix) == 0;
}

// The format named by type, else the first whose extension ends handle,
// else the default; null (reported, orx__err -4) when none.
FormatRecord *choose_format(const char *type, const char *handle) {
  if (type == nullptr && handle != nullptr) {
    Registry &r = registry();
    for (int32_t i = 0; i < r.count; ++i)
      if (ends_with(handle, r.records[i].pub.extension)) return &r.records[i];
  }
  const char *wanted = type != nullptr ? type : kDefaultKey;
  FormatRecord *record = find_record(wanted);
  if (record == nullptr) fail(ORX_E_INVALID_TYPE, Msg::kInvalidType, wanted);
  return record;
}

ORX_OBJECT *discard(ORX_OBJECT *object) {
  orx__free_obj(object);
  return nullptr;
}

ORX_OBJECT *no_memory(ORX_OBJECT *object) {
  orx__err = ORX_E_NO_MEMORY;
  return discard(object);
}

// Bind object to record's open function and call it.
ORX_OBJECT *open_with(ORX_OBJECT *object, FormatRecord *record, ORX_OPEN_FN open) {
  if (open == nullptr) {
    fail(ORX_E_UNSUPPORTED, Msg::kCannotHandleRequest, record->pub.key);
    return discard(object);
  }
  if (!copy_string(&object->info.type, record->pub.key, nullptr) ||
      !copy_string(&object->info.extension, record->pub.extension, nullptr))
    return discard(object);
  object->format = &record->pub;
  if (open(object) == 0) return discard(object);
  return object;
}

ORX_OBJECT *read_open(ORX_INFO *info) {
  if (ORX_OBJECT *cached = multiframe_open(info)) return cached;
  ORX_OBJECT *object = orx__new_obj(ORX_ACCESS_READ);
  if (object == nullptr) return nullptr;
  ORX_INFO &to = object->info;
  if (!copy_string(&to.type, info->type, nullptr) ||
      !copy_string(&to.handle, info->handle, nullptr))
    return no_memory(object);
  to.full_path = info->full_path;
  to.settings = info->settings;
  to.enabled = info->enabled;
  FormatRecord *record = choose_format(info->type, info->handle);
  if (record == nullptr) return discard(object);
  object = open_with(object, record, record->read_open);
  if (object == nullptr) return nullptr;
  multiframe_add(object, info);
  orx__err = 0;
  return object;
}

// The date a written image gets when the request has none: "{seconds}".
bool default_date(ORX_INFO &to) {
  const std::int64_t now = platform::wall_seconds();
  if (now < 0) {
    ERR_report_errno(errno, to.handle);
    return copy_string(&to.date, nullptr, kUnknown);
  }
  char stamp[32];
  std::snprintf(stamp, sizeof stamp, "{%u}", static_cast<unsigned>(now));
  return copy_string(&to.date, stamp, nullptr);
}

// Machine or user name of the system, "unknown" when it cannot tell.
bool default_name(char **field, bool (*query)(char *, std::size_t)) {
  char name[256];
  return copy_string(field, query(name, sizeof name) ? name : nullptr, kUnknown);
}

// The whole request, into the embedded info of a new write object.
bool copy_request(ORX_INFO &to, const ORX_INFO &from) {
  if (!copy_string(&to.type, from.type, nullptr)) return false;
  for (auto [field, text] : {std::pair{&to.handle, from.handle},
                             {&to.name, from.name},
                             {&to.desc, from.desc},
                             {&to.program, from.program},
                             {&to.filter, from.filter},
                             {&to.compression, from.compression},
                             {&to.time, from.time}})
    if (!copy_string(field, text, kUnknown)) return false;
  if (from.machine != nullptr ? !copy_string(&to.machine, from.machine, nullptr)
                              : !default_name(&to.machine, platform::host_name))
    return false;
  if (from.user != nullptr ? !copy_string(&to.user, from.user, nullptr)
                           : !default_name(&to.user, platform::user_name))
    return false;
  if (from.date != nullptr ? !copy_string(&to.date, from.date, nullptr) : !default_date(to))
    return false;
  to.full_path = from.full_path;
  to.settings = from.settings;
  to.client_data = from.client_data;
  to.job = from.job;
  if (to.job == 0) {
    if (const char *job = platform::get_env("KV_JOB_NUM")) to.job = std::atoi(job);
  }
  to.frame = from.frame;
  to.client_flags = from.client_flags;
  for (int i = 0; i < 3; ++i) {
    to.red[i] = from.red[i];
    to.green[i] = from.green[i];
    to.blue[i] = from.blue[i];
    to.white[i] = from.white[i];
  }
  to.timing_mode = from.timing_mode;
  to.frame_rate = from.frame_rate;
  to.timing_start = from.timing_start;
  to.timing_end = from.timing_end;
  to.frame_count = from.frame_count;
  to.enabled = from.enabled;
  // The first reserved word holds the attribute list, which gets its own copy.
  for (int i = 1; i < 3; ++i) to.reserved[i] = from.reserved[i];
  if (ORX_attr_copy(&to, 0, &from, ORX_ATTR_ANY_IMAGE) != 0) return false;
  return copy_images(&to, &from);
}

ORX_OBJECT *write_open(ORX_INFO *info) {
  if (info->handle == nullptr) {
    fail(ORX_E_FIELD_MISSING, Msg::kFieldMissing, "handle");
    return nullptr;
  }
  ORX_OBJECT *object = orx__new_obj(ORX_ACCESS_WRITE);
  if (object == nullptr) return nullptr;
  if (!copy_request(object->info, *info)) return discard(object);
  FormatRecord *record = choose_format(info->type, info->handle);
  if (record == nullptr) return discard(object);
  return open_with(object, record, record->write_open);
}

void complain_uninitialised() {
  std::fputs("ORX_open: application programming error.\n", stderr);
  std::fputs("The application must call ORX_info_init or ORX_info_alloc\n", stderr);
  std::fputs("on the info structure before passing it to ORX_open.\n", stderr);
}

}  // namespace
}  // namespace orx::core

extern "C" {

ORX_OBJECT *ORX_open(ORX_INFO *info, const char *mode) {
  using namespace orx::core;
  if (!ensure_initialised("ORX_open")) return nullptr;
  orx::platform::Lock lock(library_mutex());
  // Cleared under the lock: opens on other threads write it too.
  orx__err = 0;
  if (info == nullptr) {
    orx::fail(ORX_E_FIELD_MISSING, orx::Msg::kFieldMissing, "info");
    return nullptr;
  }
  if (info->valid != ORX_INFO_VALID) complain_uninitialised();
  const bool reading = mode != nullptr && std::strcmp(mode, "r") == 0;
  const bool writing = mode != nullptr && std::strcmp(mode, "w") == 0;
  if (!reading && !writing) {
    orx::fail(ORX_E_UNSUPPORTED, orx::Msg::kOpenModeUnknown, mode != nullptr ? mode : "(null)");
    return nullptr;
  }
  ORX_OBJECT *object = reading ? read_open(info) : write_open(info);
  if (object == nullptr) return nullptr;
  if (reading) {
    const ORX_IFD *first = object->info.image_count > 0 ? object->info.images : nullptr;
    if (first != nullptr)
      object->current_line = (first->orientation & 1) != 0 ? -1 : first->window.top + 1;
  }
  if (const FormatRecord *record = find_record(object->info.type)) object->format = &record->pub;
  return object;
}

}  // extern "C"
