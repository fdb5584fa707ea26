// Channel kinds, the format's names and the close function shared by the
// RLA reader and writer.
#include "formats/rla/channels.hpp"

#include "err/heap.hpp"

#include <cstring>

#include "err/messages.hpp"
#include "orx/err.h"

namespace orx::rla {

const char *format_name(const ORX_OBJECT *object) {
  const char *type = object->info.type;
  return type != nullptr && type[0] != '\0' ? type : "rla";
}

const char *format_extension(const ORX_OBJECT *object) {
  const char *ext = object->info.extension;
  return ext != nullptr && ext[0] != '\0' ? ext : ".rla";
}

bool is_rlb(const ORX_OBJECT *object) {
  if (std::strcmp(format_name(object), "rlb") == 0) return true;
  // The file's own name decides too: an "old.rlb" opened without a key, or
  // through the default "rla" record, is still the variant.
  const char *handle = object->info.handle;
  const std::size_t n = handle != nullptr ? std::strlen(handle) : 0;
  return n >= 4 && std::strcmp(handle + n - 4, ".rlb") == 0;
}

std::size_t kind_bytes(Kind kind) {
  switch (kind) {
    case Kind::kInt8: return 1;
    case Kind::kInt16: return 2;
    case Kind::kInt32:
    case Kind::kFloat: return 4;
    case Kind::kDouble: return 8;
  }
  return 1;
}

int kind_bits(Kind kind) { return static_cast<int>(kind_bytes(kind)) * 8; }

bool channel_kind(const ORX_CHANNELS &channels, Group group, const char *who, Kind *out) {
  static constexpr Msg kType[] = {Msg::kImageType, Msg::kMatteType, Msg::kAuxType};
  static constexpr Msg kWidth[] = {Msg::kImageWidth, Msg::kMatteWidth, Msg::kAuxWidth};
  const auto g = static_cast<std::size_t>(group);
  switch (channels.type) {
    case ORX_C_INTEGER:
      if (channels.bits > 32) {
        fail(ORX_E_UNSUPPORTED, kWidth[g], who);
        return false;
      }
      *out = channels.bits <= 8 ? Kind::kInt8 : channels.bits <= 16 ? Kind::kInt16 : Kind::kInt32;
      return true;
    case ORX_C_FLOAT: *out = Kind::kFloat; return true;
    case ORX_C_DOUBLE: *out = Kind::kDouble; return true;
    default: fail(ORX_E_UNSUPPORTED, kType[g], who); return false;
  }
}

int channel_total(const ORX_IFD &ifd) {
  auto n = [](int32_t count) { return count > 0 ? count : 0; };
  return n(ifd.image.count) + n(ifd.matte.count) + n(ifd.aux.count);
}

bool channel_kinds(const ORX_IFD &ifd, const char *who, Kind *kinds, int *max_bits) {
  const ORX_CHANNELS *groups[] = {&ifd.image, &ifd.matte, &ifd.aux};
  int at = 0;
  *max_bits = 0;
  for (int g = 0; g < 3; ++g) {
    if (groups[g]->count <= 0) continue;
    Kind kind;
    if (!channel_kind(*groups[g], static_cast<Group>(g), who, &kind)) return false;
    // The declared integer width, not the sample size, bounds the chunks.
    int bits = kind == Kind::kFloat || kind == Kind::kDouble ? kind_bits(kind) : groups[g]->bits;
    if (bits > *max_bits) *max_bits = bits;
    for (int32_t c = 0; c < groups[g]->count; ++c) kinds[at++] = kind;
  }
  return true;
}

int close_object(ORX_OBJECT *object, intptr_t) {
  orx__err = 0;
  if (object == nullptr) return orx::err::last_status();
  if (object->access == ORX_ACCESS_WRITE)
    finish_writer(object);
  else
    release_reader(object);
  orx__free_obj(object);
  return orx::err::last_status();
}

char *buffer_stream(std::FILE *stream) {
  constexpr std::size_t kSize = 64 * 1024;
  auto *buffer = static_cast<char *>(heap::allocate(kSize));
  if (buffer != nullptr && std::setvbuf(stream, buffer, _IOFBF, kSize) != 0) {
    heap::release(buffer);
    buffer = nullptr;
  }
  return buffer;
}

}  // namespace orx::rla
