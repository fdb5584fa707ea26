// The multi-frame cache: open objects of multi-frame files kept after
// ORX_close so that reopening the same file is cheap.  Entries are held in
// least-recently-used order, the most recently reopened last.
#include "core/multiframe.hpp"

#include <cerrno>
#include <cstring>

#include "core/registry.hpp"
#include "err/messages.hpp"
#include "orx/capability.h"
#include "orx/err.h"
#include "orx/ptr.h"
#include "orx/registry.h"
#include "platform/platform.hpp"

namespace orx::core {
namespace {

struct Entry {
  char *handle;                // owned copy of the request's handle
  ORX_CAP_SETTING **settings;  // deep copy of the request's settings
  ORX_OBJECT *object;
  int32_t open_count;     // holders that have not closed it yet
  std::int64_t modified;  // the file's modification time when entered
};

struct Cache {
  Entry **entries = nullptr;
  int32_t count = 0;
  int32_t room = 0;
  bool enabled = false;
  int32_t capacity = 0;
};

Cache g_cache;

constexpr int32_t kGrowBy = 5;
// The argument a close slot gets when the cache closes an object for good.
constexpr intptr_t kClosedByCache = 1;
// A modification time no file has: stands for "status unreadable".
constexpr std::int64_t kUnknownTime = INT64_MIN;

void free_settings(ORX_CAP_SETTING **settings) {
  if (settings == nullptr) return;
  for (ORX_CAP_SETTING **s = settings; *s != nullptr; ++s) ERR_free(*s);
  ERR_free(settings);
}

void free_entry(Entry *entry) {
  ERR_free(entry->handle);
  free_settings(entry->settings);
  ERR_free(entry);
}

// Forget every entry without closing its object.
void forget_all() {
  for (int32_t i = 0; i < g_cache.count; ++i) free_entry(g_cache.entries[i]);
  ERR_free(g_cache.entries);
  g_cache.entries = nullptr;
  g_cache.count = g_cache.room = 0;
}

void remove_at(int32_t index) {
  std::memmove(&g_cache.entries[index], &g_cache.entries[index + 1],
               static_cast<std::size_t>(g_cache.count - index - 1) * sizeof(Entry *));
  --g_cache.count;
}

// Close the entry's object for good and drop the entry.
void close_and_drop(int32_t index) {
  Entry *entry = g_cache.entries[index];
  remove_at(index);
  ORX_close_do_it(entry->object, kClosedByCache);
  free_entry(entry);
}

// Index of the oldest entry nobody holds, or -1.
int32_t oldest_unused() {
  for (int32_t i = 0; i < g_cache.count; ++i)
    if (g_cache.entries[i]->open_count == 0) return i;
  return -1;
}

int32_t index_of(const ORX_OBJECT *object) {
  for (int32_t i = 0; i < g_cache.count; ++i)
    if (g_cache.entries[i]->object == object) return i;
  return -1;
}

// The file's modification time; kUnknownTime (reported) when unreadable.
std::int64_t modified_time(const char *handle) {
  platform::FileStatus status{};
  const int error = handle != nullptr ? platform::file_status(handle, &status) : ENOENT;
  if (error != 0) {
    ERR_report_errno(error, handle);
    return kUnknownTime;
  }
  return status.modified;
}

bool is_multi_frame(const ORX_OBJECT *object) {
  return object->format != nullptr && object->format->multi_frame != 0;
}

// Room for one more entry pointer; false (reported) when memory ran out.
bool reserve_one() {
  if (g_cache.count < g_cache.room) return true;
  const auto bytes = static_cast<uint32_t>(g_cache.room + kGrowBy) * sizeof(Entry *);
  auto *grown = static_cast<Entry **>(ERR_realloc(g_cache.entries, static_cast<uint32_t>(bytes)));
  if (grown == nullptr) return false;
  g_cache.entries = grown;
  g_cache.room += kGrowBy;
  return true;
}

// A new entry for object, or null (reported) when memory ran out.
Entry *make_entry(ORX_OBJECT *object, const ORX_INFO *info, std::int64_t modified) {
  auto *entry = static_cast<Entry *>(ERR_malloc(sizeof(Entry)));
  if (entry == nullptr) return nullptr;
  *entry = Entry{save(info->handle), ORX_cap_setting_copy(info->settings), object, 1, modified};
  const uint32_t wanted = PTR_length(reinterpret_cast<void **>(info->settings));
  const uint32_t got = PTR_length(reinterpret_cast<void **>(entry->settings));
  if (entry->handle == nullptr || got != wanted) {
    free_entry(entry);
    return nullptr;
  }
  return entry;
}

}  // namespace

void multiframe_init(int limit) {
  ORX_multiframe_init();
  ORX_multiframe_set(1, limit);
}

void multiframe_exit() {
  // Unused objects are the cache's own and are closed; objects still held
  // stay open for their holders, whose ORX_close then reaches the format
  // directly because the cache is off.
  while (g_cache.count > 0) {
    const int32_t unused = oldest_unused();
    if (unused < 0) break;
    close_and_drop(unused);
  }
  ORX_multiframe_init();
}

ORX_OBJECT *multiframe_open(ORX_INFO *info) { return ORX_multiframe_open(info); }

void multiframe_add(ORX_OBJECT *object, ORX_INFO *info) { ORX_multiframe_add(object, info); }

}  // namespace orx::core

extern "C" {

void ORX_multiframe_init(void) {
  orx::core::forget_all();
  orx::core::g_cache.enabled = false;
  orx::core::g_cache.capacity = 0;
}

void ORX_multiframe_set(int enabled, int32_t capacity) {
  orx::core::forget_all();
  orx::core::g_cache.enabled = enabled != 0;
  orx::core::g_cache.capacity = capacity;
}

int ORX_multiframe_used(void) { return orx::core::g_cache.enabled ? 1 : 0; }

ORX_OBJECT *ORX_multiframe_open(ORX_INFO *info) {
  using namespace orx::core;
  Cache &c = g_cache;
  if (!c.enabled || c.count == 0 || info == nullptr || info->handle == nullptr) return nullptr;
  int32_t found = -1;
  for (int32_t i = 0; i < c.count && found < 0; ++i) {
    const Entry *entry = c.entries[i];
    if (std::strcmp(entry->handle, info->handle) == 0 &&
        ORX_cap_setting_compare(entry->settings, info->settings) != 0)
      found = i;
  }
  if (found < 0) return nullptr;
  Entry *entry = c.entries[found];
  if (modified_time(info->handle) != entry->modified && entry->open_count == 0) {
    close_and_drop(found);
    return nullptr;
  }
  ++entry->open_count;
  remove_at(found);
  c.entries[c.count++] = entry;
  return entry->object;
}

void ORX_multiframe_add(ORX_OBJECT *object, ORX_INFO *info) {
  using namespace orx::core;
  Cache &c = g_cache;
  if (!c.enabled || object == nullptr || info == nullptr || !is_multi_frame(object)) return;
  if (c.count > 0 && c.count >= c.capacity) {
    const int32_t unused = oldest_unused();
    if (unused >= 0) close_and_drop(unused);
  }
  const std::int64_t modified = modified_time(info->handle);
  if (modified == kUnknownTime || !reserve_one()) return;
  if (Entry *entry = make_entry(object, info, modified)) c.entries[c.count++] = entry;
}

int ORX_multiframe_set_closed(ORX_OBJECT *object) {
  using namespace orx::core;
  Cache &c = g_cache;
  if (!c.enabled) return 0;
  const int32_t index = index_of(object);
  if (index < 0) {
    if (object == nullptr) return orx__err = ORX_E_FIELD_MISSING;
    if (object->close == nullptr) {
      orx__free_obj(object);
      return orx__err = ORX_E_UNSUPPORTED;
    }
    return object->close(object, 0);
  }
  if (c.entries[index]->open_count > 0) --c.entries[index]->open_count;
  // Deliberate: trimmed down to the capacity, not below it, so that the
  // last capacity files closed stay ready for a reopen.
  while (c.count > c.capacity) {
    const int32_t unused = oldest_unused();
    if (unused < 0) break;
    close_and_drop(unused);
  }
  return 0;
}

}  // extern "C"
