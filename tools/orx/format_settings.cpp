#include "format_settings.hpp"

#include <cstring>

#include "orx/capability.h"
#include "orx/registry.h"
#include "tool.hpp"

namespace orx::tool {

FormatSettings::FormatSettings(const std::string &key, const std::vector<std::string> &names) {
  if (key.empty() || names.empty()) return;
  ORX_CAP_ENTRY *table = nullptr;
  int32_t first = 0, second = 0, count = 0;
  ORX_info_get_specific(key.c_str(), nullptr, &table, &first, &second, &count);
  for (int32_t i = 0; table != nullptr && i < count; ++i) {
    if (table[i].name == nullptr) break;
    for (const std::string &name : names) {
      if (name != table[i].name) continue;
      // Settings pair with the table by position: the ones before stay unset.
      values_.resize(static_cast<std::size_t>(i) + 1, ORX_CAP_SETTING{ORX_CAP_UNSET, {0}});
      values_[static_cast<std::size_t>(i)] = ORX_CAP_SETTING{ORX_CAP_INTEGER, {1}};
    }
  }
  for (ORX_CAP_SETTING &s : values_) pointers_.push_back(&s);
  if (!pointers_.empty()) pointers_.push_back(nullptr);
}

std::string format_reading(const std::string &path) {
  int32_t known = 0;
  const char *key = ORX_get_file_type(path.c_str(), nullptr, &known);
  return key != nullptr && std::strcmp(key, "__none_") != 0 ? key : "";
}

std::string format_writing(const std::string &path, const std::string &type) {
  if (!type.empty()) return type;
  for (const ORX_FORMAT *f : all_formats())
    if (f->extension != nullptr && f->extension[0] != '\0' && path.size() >= std::strlen(f->extension) &&
        path.compare(path.size() - std::strlen(f->extension), std::string::npos, f->extension) == 0)
      return f->key;
  return "";
}

}  // namespace orx::tool
