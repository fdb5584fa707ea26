// Colour look-up tables: the palettes of colour-index images.
#include <cstdint>
#include <cstring>

#include "err/messages.hpp"
#include "orx/err.h"
#include "orx/orx.h"
#include "orx/plugin.h"

namespace orx::colour {
namespace {

// Byte size of count entries, or 0 when it cannot be asked of the allocator
// (which takes 32-bit sizes); the caller then treats it as memory shortage.
uint32_t entry_bytes(uint32_t count) {
  uint64_t bytes = static_cast<uint64_t>(count) * sizeof(ORX_LUT_ENTRY);
  return bytes > UINT32_MAX ? 0 : static_cast<uint32_t>(bytes);
}

// An entry array the allocator could never serve is reported like any other
// shortage, so the caller sees one kind of failure.
ORX_LUT_ENTRY *resize_entries(ORX_LUT_ENTRY *entries, uint32_t count) {
  uint32_t bytes = entry_bytes(count);
  if (bytes == 0 && count != 0) {
    report(Msg::kNoMemory);
    return nullptr;
  }
  return static_cast<ORX_LUT_ENTRY *>(ERR_realloc(entries, bytes));
}

}  // namespace
}  // namespace orx::colour

extern "C" {

ORX_LUT *ORX_lut_alloc(uint32_t count) {
  auto *lut = static_cast<ORX_LUT *>(ERR_malloc(sizeof(ORX_LUT)));
  if (lut == nullptr) return nullptr;
  lut->entries = orx::colour::resize_entries(nullptr, count);
  if (lut->entries == nullptr) {
    ERR_free(lut);
    return nullptr;
  }
  std::memset(lut->entries, 0, orx::colour::entry_bytes(count));
  lut->max_index = static_cast<int32_t>(count - 1);
  lut->count = count;
  lut->gamma = 1.0f;
  return lut;
}

ORX_LUT *ORX_lut_copy(const ORX_LUT *lut) {
  if (lut == nullptr) return nullptr;
  ORX_LUT *copy = ORX_lut_alloc(lut->count);
  if (copy == nullptr) return nullptr;
  if (lut->entries != nullptr)
    std::memcpy(copy->entries, lut->entries, orx::colour::entry_bytes(lut->count));
  copy->max_index = lut->max_index;
  copy->gamma = lut->gamma;
  return copy;
}

int ORX_lut_free(ORX_LUT *lut) {
  if (lut == nullptr) return 0;
  ERR_free(lut->entries);
  ERR_free(lut);
  return 0;
}

ORX_LUT *ORX_lut_realloc(ORX_LUT *lut, uint32_t count) {
  if (lut == nullptr) return nullptr;
  const uint32_t kept = lut->entries != nullptr ? lut->count : 0;
  ORX_LUT_ENTRY *entries = orx::colour::resize_entries(lut->entries, count);
  if (entries == nullptr) {
    ORX_lut_free(lut);
    return nullptr;
  }
  if (count > kept) std::memset(entries + kept, 0, orx::colour::entry_bytes(count - kept));
  lut->entries = entries;
  lut->count = count;
  // max_index is deliberately left alone: callers resize first and then say
  // how much of the palette is in use.
  return lut;
}

int ORX_lut_read(ORX_OBJECT *object, ORX_LUT **lut) {
  if (lut == nullptr) return 0;
  *lut = nullptr;
  if (object == nullptr || object->lut_read == nullptr) return 1;
  void *data = object->private_cell != nullptr ? object->private_cell[0] : nullptr;
  return object->lut_read(data, lut) != 0 ? 1 : 0;
}

}  // extern "C"
