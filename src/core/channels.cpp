// The channel scanline buffer: one row per channel in one zero-filled block.
#include <cstring>

#include "err/heap.hpp"
#include "err/messages.hpp"
#include "orx/err.h"
#include "orx/orx.h"

namespace orx::core {
namespace {

// Bytes one sample of a group takes in a row.
uint32_t sample_bytes(const ORX_CHANNELS &g) {
  switch (g.type) {
    case ORX_C_FLOAT: return 4;
    case ORX_C_DOUBLE: return 8;
    default: return g.bits <= 8 ? 1 : g.bits <= 16 ? 2 : 4;
  }
}

struct GroupCheck {
  Msg type;
  Msg width;
};

bool check(const ORX_CHANNELS &g, GroupCheck msgs, const char *who) {
  if (g.count <= 0) return true;
  if (g.type != ORX_C_INTEGER && g.type != ORX_C_FLOAT && g.type != ORX_C_DOUBLE) {
    fail(ORX_E_UNSUPPORTED, msgs.type, who);
    return false;
  }
  if (g.type == ORX_C_INTEGER && g.bits > 32) {
    fail(ORX_E_UNSUPPORTED, msgs.width, who);
    return false;
  }
  return true;
}

}  // namespace
}  // namespace orx::core

extern "C" {

void **ORX_chan_alloc(ORX_IFD *ifd, int32_t width, const char *who, uint32_t *size) {
  using namespace orx::core;
  using orx::Msg;
  if (ifd == nullptr) return nullptr;
  if (who == nullptr) who = "unknown";
  if (ifd->image.count > 0) ifd->index.count = 0;
  if (!check(ifd->image, {Msg::kImageType, Msg::kImageWidth}, who) ||
      !check(ifd->matte, {Msg::kMatteType, Msg::kMatteWidth}, who) ||
      !check(ifd->aux, {Msg::kAuxType, Msg::kAuxWidth}, who))
    return nullptr;
  if (ifd->index.count > 0) {
    if (ifd->index.type != ORX_C_INTEGER) {
      orx::fail(ORX_E_UNSUPPORTED, Msg::kIndexType, who);
      return nullptr;
    }
    if (ifd->index.bits > 16) {
      orx::fail(ORX_E_UNSUPPORTED, Msg::kIndexWidth, who);
      return nullptr;
    }
  }
  const ORX_CHANNELS *groups[] = {&ifd->image, &ifd->matte, &ifd->aux, &ifd->index};
  uint64_t pixels = width > 0 ? static_cast<uint64_t>(width) : 0;
  uint64_t channels = 0;
  uint64_t bytes = 0;
  for (int g = 0; g < 4; ++g) {
    if (groups[g]->count <= 0) continue;
    uint64_t row = pixels * (g == 3 ? 2 : sample_bytes(*groups[g]));
    row += row & 1;  // rows keep an even byte count
    channels += static_cast<uint64_t>(groups[g]->count);
    bytes += row * static_cast<uint64_t>(groups[g]->count);
  }
  if (bytes > UINT32_MAX || channels > 1u << 20) {
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  auto **rows = static_cast<void **>(orx::heap::allocate((channels + 1) * sizeof(void *)));
  auto *block = static_cast<unsigned char *>(channels > 0 ? orx::heap::allocate(bytes) : nullptr);
  if (rows == nullptr || (channels > 0 && block == nullptr)) {
    orx::heap::release(rows);
    orx::heap::release(block);
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  if (block != nullptr) std::memset(block, 0, bytes);
  uint64_t at = 0;
  uint64_t k = 0;
  for (int g = 0; g < 4; ++g) {
    uint64_t row = pixels * (g == 3 ? 2 : sample_bytes(*groups[g]));
    row += row & 1;
    for (int32_t c = 0; c < groups[g]->count; ++c) {
      rows[k++] = block + at;
      at += row;
    }
  }
  rows[k] = nullptr;
  if (size != nullptr) *size = static_cast<uint32_t>(bytes);
  return rows;
}

void **orx__chan_alloc(ORX_IFD *ifd, int32_t width, const char *who) {
  return ORX_chan_alloc(ifd, width, who, nullptr);
}

void ORX_chan_free(void **buffer) {
  if (buffer == nullptr) return;
  orx::heap::release(buffer[0]);
  orx::heap::release(buffer);
}

int orx__chan_free(void **buffer) {
  ORX_chan_free(buffer);
  return 1;
}

}  // extern "C"
