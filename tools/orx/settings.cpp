#include "settings.hpp"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "orx/capability.h"
#include "orx/registry.h"
#include "tool.hpp"

namespace orx::tool {
namespace {

// Lower case, with "-" and "_" as spaces.
std::string folded(const char *text) {
  std::string out = text != nullptr ? text : "";
  for (char &c : out)
    c = c == '-' || c == '_' ? ' ' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

bool same(const std::string &asked, const char *name) {
  return name != nullptr && folded(asked.c_str()) == folded(name);
}

// The format's capability table, or an empty span.
struct Table {
  ORX_CAP_ENTRY *entries = nullptr;
  int32_t count = 0;
  explicit Table(const ORX_FORMAT *format) {
    int32_t first = 0, second = 0;
    if (format != nullptr) ORX_info_get_specific(nullptr, format, &entries, &first, &second, &count);
    if (entries == nullptr) count = 0;
  }
};

const ORX_CAP_LIST_ENTRY *choice_of(const ORX_CAP_ENTRY &entry, const std::string &choice) {
  for (const ORX_CAP_LIST_ENTRY *e = entry.list != nullptr ? entry.list->entries : nullptr;
       e != nullptr && e->name != nullptr; ++e)
    if (same(choice, e->name)) return e;
  return nullptr;
}

bool is_list(const ORX_CAP_ENTRY &entry) { return !entry.is_value || entry.list != nullptr; }

// The integer a value capability takes, or false.
bool number(const std::string &text, int32_t *value) {
  errno = 0;
  char *end = nullptr;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != 0 || errno != 0 || v < INT32_MIN || v > INT32_MAX) return false;
  *value = static_cast<int32_t>(v);
  return true;
}

std::string choices(const ORX_CAP_ENTRY &entry) {
  std::string out;
  for (const ORX_CAP_LIST_ENTRY *e = entry.list->entries; e->name != nullptr; ++e)
    out += (out.empty() ? "" : ", ") + std::string(e->name) +
           (e->value == entry.list->default_value ? " (default)" : "");
  return out;
}

// Why format cannot take settings, or "".
std::string setting_problem(const ORX_FORMAT *format, const NamedSettings &settings) {
  const Table table(format);
  for (const auto &[name, choice] : settings) {
    const ORX_CAP_ENTRY *entry = nullptr;
    for (int32_t i = 0; i < table.count && entry == nullptr; ++i)
      if (same(name, table.entries[i].name)) entry = &table.entries[i];
    if (entry == nullptr) {
      std::string names;
      for (int32_t i = 0; i < table.count; ++i)
        if (table.entries[i].name != nullptr)
          names += (names.empty() ? "" : ", ") + std::string(table.entries[i].name);
      return "the " + std::string(format->key) + " format has no setting \"" + name + "\"" +
             (names.empty() ? " (it has none)" : " (its settings: " + names + ")");
    }
    int32_t value = 0;
    if (is_list(*entry) && entry->list != nullptr && choice_of(*entry, choice) == nullptr)
      return std::string(entry->name) + " is one of " + choices(*entry) + ", not \"" + choice + "\"";
    if (!is_list(*entry) && !number(choice, &value))
      return std::string(entry->name) + " takes a number, not \"" + choice + "\"";
  }
  return "";
}

}  // namespace

void add_setting_option(CLI::App *command, std::vector<std::string> *texts) {
  command
      ->add_option("--set", *texts,
                   "A setting of the output's format, NAME=VALUE (repeatable): compression=dwaa, "
                   "quality=95... (\"orx formats\" lists them)")
      ->check([](const std::string &text) {
        return text.find('=') == std::string::npos || text[0] == '=' ? "expected NAME=VALUE"
                                                                     : "";
      });
}

bool output_settings(const std::vector<std::string> &texts, const std::string &path,
                     const std::string &type, NamedSettings *out, std::string *why) {
  out->clear();
  for (const std::string &t : texts) out->emplace_back(t.substr(0, t.find('=')), t.substr(t.find('=') + 1));
  // Without a format the open itself says what is wrong with the name.
  const ORX_FORMAT *format = writing_format(path, type);
  *why = format != nullptr ? setting_problem(format, *out) : "";
  return why->empty();
}

std::string describe_settings(const ORX_FORMAT *format) {
  const Table table(format);
  std::string out;
  for (int32_t i = 0; i < table.count; ++i) {
    const ORX_CAP_ENTRY &e = table.entries[i];
    if (e.name == nullptr) continue;
    out += std::string(e.name) + ": " +
           (is_list(e) && e.list != nullptr ? choices(e) : std::string("a number")) + "\n";
  }
  return out;
}

const ORX_FORMAT *writing_format(const std::string &path, const std::string &type) {
  for (const ORX_FORMAT *f : all_formats())
    if (type.empty() ? ends_with(path, f->extension) : type == f->key) return f;
  return nullptr;
}

const ORX_FORMAT *reading_format(const std::string &path, const std::string &type) {
  if (!type.empty()) return ORX_find(type.c_str());
  int32_t known = 0;
  const char *key = ORX_get_file_type(path.c_str(), nullptr, &known);
  return key != nullptr && std::strcmp(key, "__none_") != 0 ? ORX_find(key) : nullptr;
}

ORX_CAP_SETTING **SettingArray::resolve(const ORX_FORMAT *format, const NamedSettings &names) {
  settings_.clear();
  pointers_.clear();
  const Table table(format);
  if (names.empty() || table.count == 0) return nullptr;
  for (int32_t i = 0; i < table.count; ++i) {
    const ORX_CAP_ENTRY &entry = table.entries[i];
    ORX_CAP_SETTING s{ORX_CAP_UNSET, {0}};
    for (const auto &[name, choice] : names) {  // a later name wins
      if (!same(name, entry.name)) continue;
      int32_t value = 0;
      if (!is_list(entry) && number(choice, &value)) s = ORX_CAP_SETTING{ORX_CAP_INTEGER, {value}};
      if (const ORX_CAP_LIST_ENTRY *e = is_list(entry) ? choice_of(entry, choice) : nullptr)
        s = ORX_CAP_SETTING{ORX_CAP_INTEGER, {e->value}};
    }
    settings_.push_back(s);
  }
  for (ORX_CAP_SETTING &s : settings_) pointers_.push_back(&s);
  pointers_.push_back(nullptr);
  return pointers_.data();
}

}  // namespace orx::tool
