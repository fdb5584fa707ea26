// Format settings by name: the capabilities a format offers (compression,
// quality...), asked for as "name=value" on the command line and resolved
// into the settings array of the format that reads or writes a file.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <utility>
#include <vector>

#include "orx/plugin.h"

namespace orx::tool {

// Capability names and the choice asked for in each: a list entry's name
// ({"compression", "dwaa"}) or a number for a value capability
// ({"quality", "95"}).  Names and choices match ignoring case, with "-" and
// "_" standing for spaces ("pixel-type=float").
using NamedSettings = std::vector<std::pair<std::string, std::string>>;

// Adds --set NAME=VALUE (repeatable) to a command that writes files; a
// text without "=" is a usage error.
void add_setting_option(CLI::App *command, std::vector<std::string> *texts);
// The settings --set asked for, checked against the format that writes
// path (type, or the name's extension): false with *why naming a setting
// the format does not offer, a choice not in its list or a value that is
// not a number.
bool output_settings(const std::vector<std::string> &texts, const std::string &path,
                     const std::string &type, NamedSettings *out, std::string *why);
// One line per setting format offers ("compression: none, rle, zip
// (default)"), for orx formats; "" when it offers none.
std::string describe_settings(const ORX_FORMAT *format);

// The format that writes path: the one with key type, else the one whose
// extension ends the name (nullptr when none does).
const ORX_FORMAT *writing_format(const std::string &path, const std::string &type);
// The format that reads path: the one with key type, else the one that
// recognises its contents.
const ORX_FORMAT *reading_format(const std::string &path, const std::string &type);

// A settings array resolved for one format, alive as long as this is: one
// setting per capability, in table order (settings pair with entries by
// position), unset where names ask nothing.  Names the format does not
// offer are ignored (the tool asks every format for the straight-alpha
// setting); the command line's own are checked first by output_settings.
class SettingArray {
 public:
  // The NULL-terminated array for ORX_INFO.settings, or nullptr when names
  // is empty or the format offers nothing.
  ORX_CAP_SETTING **resolve(const ORX_FORMAT *format, const NamedSettings &names);

 private:
  std::vector<ORX_CAP_SETTING> settings_;
  std::vector<ORX_CAP_SETTING *> pointers_;
};

}  // namespace orx::tool
