// The formats the library carries itself, registered after the plug-ins:
// "pipe" and "mem", then "rla", the default format, built on the exported
// RLA reader and writer.  "rla" comes last so that a plug-in or the other
// built-ins claim a matching name first, and the default applies only when
// nothing else does.
#include <array>

#include "core/registry.hpp"
#include "formats/builtin.hpp"
#include "orx/rla.h"

namespace orx::core {
namespace {

constexpr int32_t kAllWidths = ~0;  // every bit set: samples of any width
constexpr const char *kFormatString = "%s.%04.4d%s";
constexpr const char *kNameSyntax = "Name.####.Ext";

struct Builtin {
  const char *key;
  const char *extension;
  const char *name;
  int32_t channels, bits_per_channel;
  int32_t mattes, bits_per_matte;
  int32_t z_channels, bits_per_z_channel;
  int32_t access;
  int32_t usage;
  ORX_OPEN_FN read_open;
  ORX_OPEN_FN write_open;
  ORX_IS_FILE_FN is_file;
};

uint8_t rla_is_file(const char *name, std::FILE *stream) {
  return ORX_rla_is_file(name, stream) == 1 ? 1 : 0;
}

constexpr std::array kBuiltins = {
    Builtin{"pipe", ".pipe", "pipe", 3, kAllWidths, 1, kAllWidths, 0, 0, 12, 1,
            formats::pipe_read_open, formats::pipe_write_open, formats::pipe_is_file},
    Builtin{"mem", ".mem", "memory", 32767, kAllWidths, 32767, kAllWidths, 32767, kAllWidths, 60,
            255, formats::mem_read_open, formats::mem_write_open, formats::mem_is_file},
    Builtin{"rla", ".rla", "rla", 3, kAllWidths, 1, kAllWidths, 1, kAllWidths, 12, 1,
            ORX_rla_r_open, ORX_rla_w_open, rla_is_file},
};

}  // namespace

int builtin_count() { return static_cast<int>(kBuiltins.size()); }

bool builtin_record(int n, FormatRecord *record) {
  const Builtin &b = kBuiltins[static_cast<std::size_t>(n)];
  *record = FormatRecord{};
  record->builtin = 1;
  ORX_FORMAT &f = record->pub;
  f.key = save(b.key);
  f.extension = save(b.extension);
  f.name = save(b.name);
  f.format_string = save(kFormatString);
  f.name_syntax = save(kNameSyntax);
  if (f.key == nullptr || f.extension == nullptr || f.name == nullptr ||
      f.format_string == nullptr || f.name_syntax == nullptr) {
    release_record(*record);
    return false;
  }
  f.owns_format_string = 1;
  f.add_extension = 1;
  f.usage = b.usage;
  f.orientation = 1;
  f.channels = b.channels;
  f.bits_per_channel = b.bits_per_channel;
  f.mattes = b.mattes;
  f.bits_per_matte = b.bits_per_matte;
  f.z_channels = b.z_channels;
  f.bits_per_z_channel = b.bits_per_z_channel;
  f.active_window = 1;
  f.access = b.access;
  f.is_file = b.is_file;
  record->read_open = b.read_open;
  record->write_open = b.write_open;
  return true;
}

}  // namespace orx::core
