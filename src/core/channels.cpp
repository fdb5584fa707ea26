// The channel scanline buffer: one row per channel in one zero-filled block.
#include "core/channels.hpp"

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

// Bytes of one channel's row of group g (3: colour index), even.
uint64_t row_bytes(const ORX_CHANNELS &g, int group, int32_t width) {
  const uint64_t pixels = width > 0 ? static_cast<uint64_t>(width) : 0;
  const uint64_t row = pixels * (group == 3 ? 2 : sample_bytes(g));
  return row + (row & 1);
}

}  // namespace

uint32_t group_sample_bytes(const ORX_CHANNELS &g, int group) {
  return group == 3 ? 2 : sample_bytes(g);
}

uint64_t channel_block_bytes(const ORX_IFD &ifd, int32_t width) {
  const ORX_CHANNELS *groups[] = {&ifd.image, &ifd.matte, &ifd.aux, &ifd.index};
  uint64_t bytes = 0;
  for (int g = 0; g < 4; ++g) {
    // Colour-index channels count only in an image without image channels.
    if (groups[g]->count <= 0 || (g == 3 && ifd.image.count > 0)) continue;
    bytes += row_bytes(*groups[g], g, width) * static_cast<uint64_t>(groups[g]->count);
  }
  return bytes;
}

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
  uint64_t channels = 0;
  for (const ORX_CHANNELS *g : groups)
    channels += g->count > 0 ? static_cast<uint64_t>(g->count) : 0;
  const uint64_t bytes = channel_block_bytes(*ifd, width);
  if (bytes > UINT32_MAX || channels > 1u << 20) {
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  auto **rows = static_cast<void **>(orx::heap::allocate((channels + 1) * sizeof(void *)));
  // Zeroed by the system: pages of a large block are touched only when used.
  auto *block = static_cast<unsigned char *>(
      channels > 0 ? orx::heap::allocate_zeroed(bytes) : nullptr);
  if (rows == nullptr || (channels > 0 && block == nullptr)) {
    orx::heap::release(rows);
    orx::heap::release(block);
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  uint64_t at = 0;
  uint64_t k = 0;
  for (int g = 0; g < 4; ++g) {
    const uint64_t row = row_bytes(*groups[g], g, width);
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
