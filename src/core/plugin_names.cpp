// Name queries over the registered plug-ins, for hosts that fill menus and
// file dialogs.  They never initialise the registry: a host asks them after
// loading its plug-ins, and an empty registry is a host mistake worth a line
// on standard error.
#include <cstdio>
#include <cstring>

#include "core/registry.hpp"
#include "orx/registry.h"
#include "orx/str.h"

namespace orx::core {
namespace {

constexpr std::size_t kAllFormatsAt = 25;  // patterns this long are not shown

// The plug-in records, or null (count 0) after the complaint when there are
// none; no_plugins adds the second line.
const FormatRecord *plugins(int32_t *count, bool no_plugins = true) {
  const Registry &r = registry();
  *count = r.initialised ? r.plugin_count : 0;
  if (*count > 0) return r.records;
  std::fputs("Plugins not loaded, so Load!!\n\n", stderr);
  if (no_plugins) std::fputs("No Plugins!\n", stderr);
  return nullptr;
}

bool null_argument(const void *p, const char *text) {
  if (p != nullptr) return false;
  std::fputs(text, stderr);
  return true;
}

// A text built into the caller's buffer of capacity bytes: what does not
// fit is counted but not stored, and the buffer is always terminated when
// it has room for anything.  The unsized getters use an unbounded one.
struct Sink {
  char *buffer;
  std::size_t capacity;
  std::size_t used = 0;  // bytes the whole text takes so far
  void put(const char *text, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i, ++used)
      if (used + 1 < capacity) buffer[used] = text[i];
  }
  void put(const char *text) { put(text, std::strlen(text)); }
  // Terminates the text; returns its whole size with the terminator.
  std::size_t finish() {
    if (capacity > 0) buffer[used < capacity ? used : capacity - 1] = '\0';
    return ++used;
  }
};

Sink unbounded(char *buffer) { return Sink{buffer, SIZE_MAX}; }

// Put field to of the plug-in whose field from equals text; 0 or -1.
int lookup(const char *text, char *ORX_FORMAT::*from, char *ORX_FORMAT::*to, Sink &out) {
  int32_t count = 0;
  const FormatRecord *records = plugins(&count, false);
  for (int32_t i = 0; i < count; ++i) {
    const ORX_FORMAT &f = records[i].pub;
    if (f.*from == nullptr || std::strcmp(f.*from, text) != 0) continue;
    out.put(f.*to != nullptr ? f.*to : "");
    out.finish();
    return 0;
  }
  return -1;
}

// The sized lookups: the arguments checked as the unsized ones check them
// (a null buffer is allowed with capacity 0), the size needed in *needed.
int sized_lookup(const char *text, const char *missing, char *ORX_FORMAT::*from,
                 char *ORX_FORMAT::*to, char *buffer, std::size_t capacity,
                 std::size_t *needed) {
  if (needed != nullptr) *needed = 0;
  if (null_argument(text, missing) ||
      (capacity > 0 && null_argument(buffer, "NULL buffer passed in\n")))
    return -1;
  Sink out{buffer, capacity};
  const int found = lookup(text, from, to, out);
  if (needed != nullptr) *needed = out.used;
  return found;
}

// Store field of each plug-in in out; the count.
int list(char **out, char *ORX_FORMAT::*field) {
  if (null_argument(out, "NULL pointer passed\n")) return 0;
  int32_t count = 0;
  const FormatRecord *records = plugins(&count);
  for (int32_t i = 0; i < count; ++i) out[i] = records[i].pub.*field;
  return count;
}

}  // namespace
}  // namespace orx::core

extern "C" {

int ORX_getFormatKeys(char **keys) { return orx::core::list(keys, &ORX_FORMAT::key); }

int ORX_getPluginExtensions(char **extensions) {
  return orx::core::list(extensions, &ORX_FORMAT::extension);
}

int ORX_getPluginNames(char **names) {
  const int count = orx::core::list(names, &ORX_FORMAT::name);
  // The names are the caller's copies.
  for (int i = 0; i < count; ++i) names[i] = STR_save(names[i]);
  return count;
}

int ORX_getOnlyExtensions(char *buffer) {
  if (orx::core::null_argument(buffer, "NULL buffer passed in\n")) return 0;
  return ORX_getOnlyExtensions_sized(buffer, SIZE_MAX, nullptr);
}

int ORX_getOnlyExtensions_sized(char *buffer, size_t capacity, size_t *needed) {
  using namespace orx::core;
  if (needed != nullptr) *needed = 0;
  if (capacity > 0 && null_argument(buffer, "NULL buffer passed in\n")) return 0;
  Sink out{buffer, capacity};
  int32_t count = 0;
  const FormatRecord *records = plugins(&count);
  for (int32_t i = 0; i < count; ++i) {
    out.put("*");
    out.put(records[i].pub.extension);
    out.put(";");
  }
  const std::size_t size = out.finish();
  if (needed != nullptr) *needed = size;
  return count;
}

int ORX_getPluginNameFromKey(const char *key, char *buffer) {
  using namespace orx::core;
  if (null_argument(key, "NULL key passed in\n") ||
      null_argument(buffer, "NULL buffer passed in\n"))
    return -1;
  Sink out = unbounded(buffer);
  return lookup(key, &ORX_FORMAT::key, &ORX_FORMAT::name, out);
}

int ORX_getPluginNameFromKey_sized(const char *key, char *buffer, size_t capacity,
                                   size_t *needed) {
  return orx::core::sized_lookup(key, "NULL key passed in\n", &ORX_FORMAT::key,
                                 &ORX_FORMAT::name, buffer, capacity, needed);
}

int ORX_getKeyFromPluginName(const char *name, char *buffer) {
  using namespace orx::core;
  if (null_argument(name, "NULL pluginName passed in\n") ||
      null_argument(buffer, "NULL buffer passed in\n"))
    return -1;
  Sink out = unbounded(buffer);
  return lookup(name, &ORX_FORMAT::name, &ORX_FORMAT::key, out);
}

int ORX_getKeyFromPluginName_sized(const char *name, char *buffer, size_t capacity,
                                   size_t *needed) {
  return orx::core::sized_lookup(name, "NULL pluginName passed in\n", &ORX_FORMAT::name,
                                 &ORX_FORMAT::key, buffer, capacity, needed);
}

int ORX_getExtFromPluginName(const char *name, char *buffer) {
  using namespace orx::core;
  if (null_argument(name, "NULL pluginName passed in\n") ||
      null_argument(buffer, "NULL buffer passed in\n"))
    return -1;
  Sink out = unbounded(buffer);
  return lookup(name, &ORX_FORMAT::name, &ORX_FORMAT::extension, out);
}

int ORX_getExtFromPluginName_sized(const char *name, char *buffer, size_t capacity,
                                   size_t *needed) {
  return orx::core::sized_lookup(name, "NULL pluginName passed in\n", &ORX_FORMAT::name,
                                 &ORX_FORMAT::extension, buffer, capacity, needed);
}

int ORX_getExtFromFormatKey_sized(const char *key, char *buffer, size_t capacity,
                                  size_t *needed) {
  return orx::core::sized_lookup(key, "NULL key passed in\n", &ORX_FORMAT::key,
                                 &ORX_FORMAT::extension, buffer, capacity, needed);
}

int ORX_getExtFromFormatKey(const char *key, char *buffer) {
  if (ORX_getPluginNameFromKey(key, buffer) != 0) return -1;
  char name[1024];
  std::snprintf(name, sizeof name, "%s", buffer);
  return ORX_getExtFromPluginName(name, buffer);
}

int ORX_getPluginNamesWithFilters(char *buffer) {
  if (orx::core::null_argument(buffer, "NULL pointer passed!\n")) return 0;
  return ORX_getPluginNamesWithFilters_sized(buffer, SIZE_MAX, nullptr);
}

int ORX_getPluginNamesWithFilters_sized(char *buffer, size_t capacity, size_t *needed) {
  using namespace orx::core;
  if (needed != nullptr) *needed = 0;
  if (capacity > 0 && null_argument(buffer, "NULL pointer passed!\n")) return 0;
  Sink out{buffer, capacity};
  int32_t count = 0;
  const FormatRecord *records = plugins(&count);
  int last = 0;
  for (int32_t i = 0; i < count; ++i) {
    const ORX_FORMAT &f = records[i].pub;
    const std::size_t pair = out.used;
    out.put(f.name);
    const bool all = 1 + std::strlen(f.extension) >= kAllFormatsAt;
    out.put(all ? " (all formats)" : " (*");
    if (!all) {
      out.put(f.extension);
      out.put(")");
    }
    out.put("\0*", 2);
    out.put(f.extension);
    out.put("", 1);
    last = static_cast<int>(out.used - pair);
  }
  const std::size_t size = out.finish();
  if (needed != nullptr) *needed = size;
  return last;
}

void ORX_symbols(void) {
  std::fputs("ORX_symbols: should not be called by the application\n", stderr);
}

}  // extern "C"
