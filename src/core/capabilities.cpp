// Capability tables: the check every format's table gets when the registry
// is built, and the queries that read the tables afterwards.
#include "core/capabilities.hpp"

#include <cstdio>
#include <cstdlib>

#include "core/registry.hpp"
#include "err/messages.hpp"
#include "orx/capability.h"
#include "orx/err.h"
#include "orx/registry.h"

namespace orx::core {
namespace {

// A name the check replaced: the plug-in's table lives in the plug-in's own
// data, so the original pointer is put back at ORX_exit, before the copy is
// freed, and the table looks the same to the next ORX_init.
struct OwnedName {
  char **slot;
  char *original;
  char *copy;
};

struct OwnedNames {
  OwnedName *names = nullptr;
  int32_t count = 0;
  int32_t capacity = 0;
};

OwnedNames g_owned;
int32_t g_max_first = 0;
int32_t g_max_second = 0;
ORX_POPDOWN_FN g_pending_popdown = nullptr;

constexpr int32_t kOwnedGrowBy = 16;

// Replace *slot by an owned copy of second; false (status -10, reported)
// when memory ran out.
bool own_second_name(char **slot, const char *second) {
  if (g_owned.count == g_owned.capacity) {
    const auto bytes = static_cast<uint64_t>(g_owned.capacity + kOwnedGrowBy) * sizeof(OwnedName);
    auto *grown =
        static_cast<OwnedName *>(ERR_realloc(g_owned.names, static_cast<uint32_t>(bytes)));
    if (grown == nullptr) {
      orx__err = ORX_E_NO_MEMORY;
      return false;
    }
    g_owned.names = grown;
    g_owned.capacity += kOwnedGrowBy;
  }
  char *copy = save(second);
  if (copy == nullptr) {
    orx__err = ORX_E_NO_MEMORY;
    return false;
  }
  g_owned.names[g_owned.count++] = OwnedName{slot, *slot, copy};
  *slot = copy;
  return true;
}

// The name an entry ends up with: its second name when it carries one.
// False when memory ran out.
template <class Entry>
bool settle_name(Entry &entry) {
  if (entry.has_second == 0 || entry.second_name == nullptr) return true;
  return own_second_name(&entry.name, entry.second_name);
}

// The end mark of a list: an entry with neither a name nor a second name.
bool ends_list(const ORX_CAP_LIST_ENTRY &entry) {
  return entry.name == nullptr && entry.has_second == 0;
}

// Walk a list capability: names settled, entries counted, default checked.
bool validate_list(const char *key, int32_t index, const ORX_CAP_ENTRY &cap) {
  ORX_CAP_LIST &list = *cap.list;
  bool default_found = false;
  int32_t n = 0;
  for (; list.entries != nullptr && !ends_list(list.entries[n]); ++n) {
    ORX_CAP_LIST_ENTRY &entry = list.entries[n];
    if (!settle_name(entry)) return false;
    if (entry.name == nullptr) {
      report(Msg::kCapabilityListName, key, index, n);
      return false;
    }
    if (entry.value == list.default_value) default_found = true;
  }
  list.count = n;
  if (!default_found) {
    // Deliberate: a default that is none of the list's values can only come
    // from a broken plug-in build, and every later use of the list would
    // misbehave, so the process stops here where the cause is plain.
    std::fprintf(stderr, "%s: capability `%s' has invalid list default %d\n", key, cap.name,
                 static_cast<int>(list.default_value));
    std::abort();
  }
  return true;
}

void clear_out(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second, int32_t *count) {
  *table = nullptr;
  *first = *second = *count = 0;
}

}  // namespace

bool validate_capabilities(ORX_FORMAT *format) {
  if (format == nullptr || format->capability == nullptr) return true;
  ORX_CAP_ENTRY *table = nullptr;
  int32_t first = 0;
  int32_t second = 0;
  int32_t count = 0;
  ORX_info_get_specific(format->key, nullptr, &table, &first, &second, &count);
  for (int32_t i = 0; table != nullptr && i < count; ++i) {
    ORX_CAP_ENTRY &cap = table[i];
    if (!settle_name(cap)) return false;
    if (cap.name == nullptr) {
      report(Msg::kCapabilityName, format->key, i);
      return false;
    }
    if (cap.is_value == 0 && cap.list != nullptr && !validate_list(format->key, i, cap))
      return false;
  }
  if (first > g_max_first) g_max_first = first;
  if (second > g_max_second) g_max_second = second;
  return true;
}

void release_capabilities() {
  // Newest first: a table validated twice (one module registered under two
  // keys) gets each earlier name back in turn.
  for (int32_t i = g_owned.count - 1; i >= 0; --i) {
    OwnedName &owned = g_owned.names[i];
    if (*owned.slot == owned.copy) *owned.slot = owned.original;
    ERR_free(owned.copy);
  }
  ERR_free(g_owned.names);
  g_owned = OwnedNames{};
  g_max_first = g_max_second = 0;
  g_pending_popdown = nullptr;
}

}  // namespace orx::core

extern "C" {

void ORX_info_get_specific(const char *key, const ORX_FORMAT *format, ORX_CAP_ENTRY **table,
                           int32_t *first, int32_t *second, int32_t *count) {
  using namespace orx::core;
  clear_out(table, first, second, count);
  if (key != nullptr) {
    const FormatRecord *record = find_record(key);
    if (record == nullptr) {
      orx::report(orx::Msg::kUnknownKey, key);
      return;
    }
    format = &record->pub;
  }
  if (format == nullptr || format->capability == nullptr) return;
  format->capability(table, first, second, count);
}

void ORX_info_num_specific(int32_t *first, int32_t *second) {
  if (first != nullptr) *first = orx::core::g_max_first;
  if (second != nullptr) *second = orx::core::g_max_second;
}

uint8_t ORX_capabilities_available(const ORX_FORMAT *format, intptr_t argument, uint8_t flag) {
  if (format == nullptr || format->caps_update == nullptr) return 0;
  return format->caps_update(argument, flag);
}

int ORX_set_available(ORX_CAP_ENTRY *entry, int available) {
  if (entry == nullptr) return 0;
  const auto before = entry->state;
  if (available != 0)
    entry->state = static_cast<uint8_t>(entry->state & ~ORX_CAP_UNAVAILABLE);
  else
    entry->state = static_cast<uint8_t>(entry->state | ORX_CAP_UNAVAILABLE);
  return entry->state != before ? 1 : 0;
}

int ORX_private_ui_popup(const ORX_FORMAT *format, intptr_t a, intptr_t b, intptr_t c) {
  using orx::core::g_pending_popdown;
  if (ORX_POPDOWN_FN pending = g_pending_popdown) {
    g_pending_popdown = nullptr;
    pending(reinterpret_cast<intptr_t>(format), a, b, c);
  }
  if (format == nullptr || format->popup == nullptr || format->popdown == nullptr)
    return orx__err = ORX_E_UNSUPPORTED;
  g_pending_popdown = format->popdown;
  return format->popup(a);
}

int ORX_private_ui_popdown(intptr_t a, intptr_t b, intptr_t c, intptr_t d) {
  using orx::core::g_pending_popdown;
  ORX_POPDOWN_FN pending = g_pending_popdown;
  if (pending == nullptr) return 0;
  g_pending_popdown = nullptr;
  return pending(a, b, c, d);
}

}  // extern "C"
