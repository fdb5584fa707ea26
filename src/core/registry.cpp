// Building and tearing down the format registry: plug-in symbols bound in
// table order with their defaults, refusals reported, built-in formats
// appended after the plug-ins.
#include "core/registry.hpp"

#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "core/capabilities.hpp"
#include "core/multiframe.hpp"
#include "err/messages.hpp"
#include "formats/builtin.hpp"
#include "orx/clr.h"
#include "orx/err.h"
#include "orx/fmt.h"
#include "orx/registry.h"

namespace orx::core {
namespace {

Registry g_registry;

constexpr int32_t kGrowBy = 20;
constexpr const char *kFormatString = "%s.%04.4d%s";
constexpr int kDefaultMultiframeOpen = 15;

// A function symbol as its function type; the platform hands symbols out as
// data addresses.
template <class F>
F as_function(void *symbol) {
  static_assert(sizeof(F) == sizeof(void *));
  F f;
  std::memcpy(&f, &symbol, sizeof f);
  return f;
}

struct IntSymbol {
  const char *name;
  int32_t ORX_FORMAT::*field;
  int32_t fallback;
};

// The 32-bit data symbols, in binding order; imageOrientation has no
// fallback because a plug-in must declare it.
constexpr IntSymbol kIntSymbols[] = {
    {"imageAddExtension", &ORX_FORMAT::add_extension, 1},
    {"imageUsage", &ORX_FORMAT::usage, 1},
    {"imageOrientation", &ORX_FORMAT::orientation, 0},
    {"imageBitsPerPaletteEntry", &ORX_FORMAT::bits_per_palette_entry, 0},
    {"imageNumberOfChannels", &ORX_FORMAT::channels, 3},
    {"imageBitsPerChannel", &ORX_FORMAT::bits_per_channel, 128},
    {"imageNumberOfMattes", &ORX_FORMAT::mattes, 0},
    {"imageBitsPerMatte", &ORX_FORMAT::bits_per_matte, 0},
    {"imageNumberOfZChannels", &ORX_FORMAT::z_channels, 0},
    {"imageBitsPerZChannel", &ORX_FORMAT::bits_per_z_channel, 0},
    {"imageSupportsActiveWindow", &ORX_FORMAT::active_window, 0},
    {"imageAccess", &ORX_FORMAT::access, 12},
    {"imageMultiFrame", &ORX_FORMAT::multi_frame, 0},
};

struct StringSymbol {
  const char *name;
  char *ORX_FORMAT::*field;
  const char *fallback;
};

constexpr StringSymbol kStringSymbols[] = {
    {"imageExtension", &ORX_FORMAT::extension, ""},
    {"imageName", &ORX_FORMAT::name, nullptr},
    {"imageDescription", &ORX_FORMAT::description, nullptr},
    {"imageFormatString", &ORX_FORMAT::format_string, kFormatString},
    {"imageNameSyntax", &ORX_FORMAT::name_syntax, nullptr},
};

// Outcome of binding one plug-in.
enum class Bind { kAccepted, kRefused, kNoMemory };

Bind refuse(FormatRecord &record, const char *plugin, const char *symbol) {
  report(Msg::kMustBeDefined, plugin, symbol);
  release_record(record);
  return Bind::kRefused;
}

bool copy_field(char *&field, const char *text) {
  if (text == nullptr) return true;
  field = save(text);
  return field != nullptr;
}

// Everything after imageKey, into record (whose key is already set).
Bind bind_rest(void *module, const char *plugin, FormatRecord &record) {
  ORX_FORMAT &f = record.pub;
  for (const StringSymbol &s : kStringSymbols) {
    auto *cell = static_cast<const char *const *>(platform::module_symbol(module, s.name));
    const char *text = cell != nullptr && *cell != nullptr ? *cell : s.fallback;
    if (cell == nullptr && s.field == &ORX_FORMAT::name) return refuse(record, plugin, s.name);
    if (!copy_field(f.*s.field, text)) return Bind::kNoMemory;
  }
  f.owns_format_string = 0;  // plug-ins never; the registry frees its copies anyway
  for (const IntSymbol &s : kIntSymbols) {
    auto *cell = static_cast<const int32_t *>(platform::module_symbol(module, s.name));
    if (cell == nullptr && s.field == &ORX_FORMAT::orientation)
      return refuse(record, plugin, s.name);
    f.*s.field = cell != nullptr ? *cell : s.fallback;
  }
  auto flag = [&](const char *name, uint8_t fallback) {
    auto *cell = static_cast<const uint8_t *>(platform::module_symbol(module, name));
    return cell != nullptr ? *cell : fallback;
  };
  f.hard_link = flag("imageHardLinkDuplicates", 1);
  f.remote_access = flag("imageSupportRemoteAccess", 0);
  auto fn = [&](const char *name) { return platform::module_symbol(module, name); };
  f.capability = as_function<ORX_CAPABILITY_FN>(fn("imageCapability"));
  f.caps_update = as_function<ORX_CAPS_UPDATE_FN>(fn("imageCapsAvailUpdate"));
  record.read_open = as_function<ORX_OPEN_FN>(fn("imageReadOpen"));
  record.write_open = as_function<ORX_OPEN_FN>(fn("imageWriteOpen"));
  record.done = as_function<ORX_DONE_FN>(fn("imageDone"));
  f.is_file = as_function<ORX_IS_FILE_FN>(fn("imageIsFile"));
  f.popup = as_function<ORX_POPUP_FN>(fn("imagePrivateUIPopup"));
  f.popdown = as_function<ORX_POPDOWN_FN>(fn("imagePrivateUIPopdown"));
  if ((f.access & ORX_ACCESS_READ) != 0 && record.read_open == nullptr)
    return refuse(record, plugin, "imageReadOpen");
  if ((f.access & ORX_ACCESS_WRITE) != 0 && record.write_open == nullptr)
    return refuse(record, plugin, "imageWriteOpen");
  return Bind::kAccepted;
}

// on_key runs once the key is bound, before the rest is: an earlier plug-in
// with the same key goes even when this one is refused afterwards.
template <typename OnKey>
Bind bind_plugin(void *module, const char *plugin, FormatRecord &record, OnKey on_key) {
  record = FormatRecord{};
  auto *version_cell = static_cast<const char *const *>(platform::module_symbol(module, "version"));
  if (version_cell == nullptr) {
    report(Msg::kMustBeDefined, plugin, "version");
    return Bind::kRefused;
  }
  const char *version = *version_cell;
  if (version == nullptr || std::strcmp(version, ORX_PLUGIN_VERSION) != 0) {
    report(Msg::kVersionProtocol, plugin, "version", ORX_PLUGIN_VERSION,
           version != nullptr ? version : "(null)");
    return Bind::kRefused;
  }
  record.init = as_function<ORX_INIT_FN>(platform::module_symbol(module, "imageInit"));
  if (record.init != nullptr && record.init() == 0) return Bind::kRefused;
  auto *key_cell = static_cast<const char *const *>(platform::module_symbol(module, "imageKey"));
  if (key_cell == nullptr || *key_cell == nullptr) return refuse(record, plugin, "imageKey");
  if (!copy_field(record.pub.key, *key_cell)) return Bind::kNoMemory;
  on_key(record.pub.key);
  return bind_rest(module, plugin, record);
}

// Room for one more record; false when memory ran out.
bool reserve(Registry &r, int32_t &capacity) {
  if (r.count < capacity) return true;
  const auto bytes = static_cast<uint64_t>(capacity + kGrowBy) * sizeof(FormatRecord);
  if (bytes > UINT32_MAX) return false;
  auto *grown = static_cast<FormatRecord *>(ERR_realloc(r.records, static_cast<uint32_t>(bytes)));
  if (grown == nullptr) return false;
  r.records = grown;
  capacity += kGrowBy;
  return true;
}

// The later plug-in replaces an earlier one with the same key.
void drop_same_key(Registry &r, const char *key) {
  for (int32_t i = 0; i < r.count; ++i) {
    if (std::strcmp(r.records[i].pub.key, key) != 0) continue;
    release_record(r.records[i]);
    std::memmove(&r.records[i], &r.records[i + 1],
                 static_cast<std::size_t>(r.count - i - 1) * sizeof(FormatRecord));
    --r.count;
    return;
  }
}

bool add_plugins(Registry &r, int32_t &capacity, ORX_PLUGIN_ENUM plugins) {
  void *module = nullptr;
  const char *plugin = nullptr;
  while (plugins(&module, &plugin) != 0) {
    if (module == nullptr) continue;
    if (plugin == nullptr) plugin = "(unnamed)";
    if (!reserve(r, capacity)) return false;
    FormatRecord record;
    switch (bind_plugin(module, plugin, record, [&](const char *key) { drop_same_key(r, key); })) {
      case Bind::kRefused:
        continue;
      case Bind::kNoMemory:
        release_record(record);
        return false;
      case Bind::kAccepted:
        break;
    }
    r.records[r.count++] = record;
  }
  return true;
}

// 0, -1 (failing built-in) or -10 (memory).
int add_builtins(Registry &r, int32_t &capacity) {
  for (int n = 0; n < builtin_count(); ++n) {
    if (!reserve(r, capacity)) return ORX_E_NO_MEMORY;
    FormatRecord &record = r.records[r.count];
    if (!builtin_record(n, &record)) return ORX_E_NO_MEMORY;
    ++r.count;
    if (record.init != nullptr && record.init() == 0) return -1;
  }
  return 0;
}

int multiframe_limit() {
  const char *text = platform::get_env("KV_ORX_MULTIFRAME_OPEN");
  return text != nullptr ? std::atoi(text) : kDefaultMultiframeOpen;
}

int init_failed(int status) {
  ORX_exit();
  orx__err = status;
  return -1;
}

}  // namespace

Registry &registry() { return g_registry; }

platform::Mutex &library_mutex() {
  static platform::Mutex mutex;
  return mutex;
}

bool ensure_initialised(const char *who) {
  if (g_registry.initialised) return true;
  if (ORX_init(nullptr, nullptr) != 0) return false;
  report(Msg::kInitDatabase, "orx", who);
  return true;
}

char *save(const char *text) {
  if (text == nullptr) return nullptr;
  const std::size_t n = std::strlen(text) + 1;
  auto *copy = static_cast<char *>(ERR_malloc(static_cast<uint32_t>(n)));
  if (copy != nullptr) std::memcpy(copy, text, n);
  return copy;
}

void release_record(FormatRecord &record) {
  ORX_FORMAT &f = record.pub;
  for (char **s :
       {&f.key, &f.extension, &f.name, &f.description, &f.format_string, &f.name_syntax}) {
    ERR_free(*s);
    *s = nullptr;
  }
}

FormatRecord *find_record(const char *text) {
  Registry &r = g_registry;
  if (text == nullptr || !r.initialised) return nullptr;
  for (int32_t i = 0; i < r.count; ++i)
    if (std::strcmp(r.records[i].pub.key, text) == 0) return &r.records[i];
  for (int32_t i = 0; i < r.count; ++i)
    if (std::strcmp(r.records[i].pub.extension, text) == 0) return &r.records[i];
  return nullptr;
}

FormatRecord *record_of(const ORX_FORMAT *format) {
  Registry &r = g_registry;
  for (int32_t i = 0; i < r.count; ++i)
    if (&r.records[i].pub == format) return &r.records[i];
  return nullptr;
}

}  // namespace orx::core

extern "C" {

int ORX_init(void *message_catalogue, ORX_PLUGIN_ENUM plugins) {
  using namespace orx::core;
  orx__err = 0;
  Registry &r = g_registry;
  if (r.initialised) {
    r.position = 0;
    return 0;
  }
  orx__msg_cat = message_catalogue;
  library_mutex();
  if (FMT_init(message_catalogue) != 0 || CLR_init(message_catalogue) != 0) {
    CLR_exit();
    FMT_exit();
    orx__err = ORX_E_NO_MEMORY;
    return -1;
  }
  r.initialised = true;
  int32_t capacity = 0;
  if (plugins != nullptr && !add_plugins(r, capacity, plugins)) return init_failed(ORX_E_NO_MEMORY);
  r.plugin_count = r.count;
  if (const int status = add_builtins(r, capacity); status != 0)
    return init_failed(status == -1 ? orx::err::last_status() : status);
  // A table that cannot be completed for want of memory fails the whole
  // initialisation, like any other exhausted allocation here.
  for (int32_t i = 0; i < r.count; ++i)
    if (!validate_capabilities(&r.records[i].pub) && orx::err::last_status() == ORX_E_NO_MEMORY)
      return init_failed(ORX_E_NO_MEMORY);
  multiframe_init(multiframe_limit());
  return orx::err::last_status();
}

int ORX_exit(void) {
  using namespace orx::core;
  Registry &r = g_registry;
  if (!r.initialised) return 0;
  multiframe_exit();
  release_capabilities();
  for (int32_t i = 0; i < r.plugin_count; ++i)
    if (r.records[i].done != nullptr) r.records[i].done();
  for (int32_t i = 0; i < r.count; ++i) release_record(r.records[i]);
  ERR_free(r.records);
  orx::formats::mem_clear();
  r = Registry{};
  CLR_exit();
  FMT_exit();
  return 0;
}

}  // extern "C"
