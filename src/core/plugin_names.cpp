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

// Copy field to of the plug-in whose field from equals text into buffer; 0
// or -1.
int lookup(const char *text, char *ORX_FORMAT::*from, char *ORX_FORMAT::*to, char *buffer) {
  int32_t count = 0;
  const FormatRecord *records = plugins(&count, false);
  for (int32_t i = 0; i < count; ++i) {
    const ORX_FORMAT &f = records[i].pub;
    if (f.*from == nullptr || std::strcmp(f.*from, text) != 0) continue;
    std::strcpy(buffer, f.*to != nullptr ? f.*to : "");
    return 0;
  }
  return -1;
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
  using namespace orx::core;
  if (null_argument(buffer, "NULL buffer passed in\n")) return 0;
  buffer[0] = '\0';
  int32_t count = 0;
  const FormatRecord *records = plugins(&count);
  char *end = buffer;
  for (int32_t i = 0; i < count; ++i) end += std::sprintf(end, "*%s;", records[i].pub.extension);
  return count;
}

int ORX_getPluginNameFromKey(const char *key, char *buffer) {
  using namespace orx::core;
  if (null_argument(key, "NULL key passed in\n") ||
      null_argument(buffer, "NULL buffer passed in\n"))
    return -1;
  return lookup(key, &ORX_FORMAT::key, &ORX_FORMAT::name, buffer);
}

int ORX_getKeyFromPluginName(const char *name, char *buffer) {
  using namespace orx::core;
  if (null_argument(name, "NULL pluginName passed in\n") ||
      null_argument(buffer, "NULL buffer passed in\n"))
    return -1;
  return lookup(name, &ORX_FORMAT::name, &ORX_FORMAT::key, buffer);
}

int ORX_getExtFromPluginName(const char *name, char *buffer) {
  using namespace orx::core;
  if (null_argument(name, "NULL pluginName passed in\n") ||
      null_argument(buffer, "NULL buffer passed in\n"))
    return -1;
  return lookup(name, &ORX_FORMAT::name, &ORX_FORMAT::extension, buffer);
}

int ORX_getExtFromFormatKey(const char *key, char *buffer) {
  if (ORX_getPluginNameFromKey(key, buffer) != 0) return -1;
  char name[1024];
  std::snprintf(name, sizeof name, "%s", buffer);
  return ORX_getExtFromPluginName(name, buffer);
}

int ORX_getPluginNamesWithFilters(char *buffer) {
  using namespace orx::core;
  if (null_argument(buffer, "NULL pointer passed!\n")) return 0;
  int32_t count = 0;
  const FormatRecord *records = plugins(&count);
  char *at = buffer;
  int last = 0;
  for (int32_t i = 0; i < count; ++i) {
    const ORX_FORMAT &f = records[i].pub;
    char *pair = at;
    const bool all = 1 + std::strlen(f.extension) >= kAllFormatsAt;
    at += (all ? std::sprintf(at, "%s (all formats)", f.name)
               : std::sprintf(at, "%s (*%s)", f.name, f.extension)) +
          1;
    at += std::sprintf(at, "*%s", f.extension) + 1;
    last = static_cast<int>(at - pair);
  }
  *at = '\0';
  return last;
}

void ORX_symbols(void) {
  std::fputs("ORX_symbols: should not be called by the application\n", stderr);
}

}  // extern "C"
