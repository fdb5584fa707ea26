// Format-specific settings asked for by name: a format numbers its settings
// by position in its capability table, so a request names the setting and
// the table of the format that will open the file says where it goes.
#pragma once

#include <string>
#include <vector>

#include "orx/plugin.h"

namespace orx::tool {

// The setting of formats that store straight colour (PNG, TIFF): with it a
// reader hands the colour over as stored instead of multiplying it by the
// matte, and a writer stores the host's colour as it comes.
inline constexpr const char *kUnassociatedAlpha = "unassociated alpha";

class FormatSettings {
 public:
  // The settings of `names` (each set to 1) that the format with this key
  // offers; formats that offer none of them get no settings at all.
  FormatSettings(const std::string &key, const std::vector<std::string> &names);
  FormatSettings(const FormatSettings &) = delete;
  FormatSettings &operator=(const FormatSettings &) = delete;

  // The NULL-terminated array for ORX_INFO.settings, or NULL.
  ORX_CAP_SETTING **get() { return pointers_.empty() ? nullptr : pointers_.data(); }

 private:
  std::vector<ORX_CAP_SETTING> values_;
  std::vector<ORX_CAP_SETTING *> pointers_;
};

// The key of the format that reads path (by its contents), or "".
std::string format_reading(const std::string &path);
// The key of the format that writes path: type when given, else the format
// whose extension ends the name; "" when none.
std::string format_writing(const std::string &path, const std::string &type);

}  // namespace orx::tool
