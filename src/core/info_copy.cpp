// Deep copies between ORX_INFO records.
#include "core/info_copy.hpp"

#include "core/registry.hpp"
#include "orx/err.h"

namespace orx::core {

namespace {

constexpr const char *kUnknown = "unknown";

}  // namespace

bool copy_image(ORX_IFD *dst, const ORX_IFD &src) {
  ORX_IFD copy = src;
  // Nothing of src's is owned by dst until copied below.
  copy.aspect = nullptr;
  copy.curve.curves = nullptr;
  ORX_CHANNELS *groups[] = {&copy.image, &copy.matte, &copy.aux, &copy.index};
  for (ORX_CHANNELS *g : groups) g->name = nullptr;
  *dst = copy;
  const ORX_CHANNELS *from[] = {&src.image, &src.matte, &src.aux, &src.index};
  ORX_CHANNELS *to[] = {&dst->image, &dst->matte, &dst->aux, &dst->index};
  if (!copy_string(&dst->aspect, src.aspect, kUnknown)) return false;
  for (int g = 0; g < 4; ++g)
    if (!copy_string(&to[g]->name, from[g]->name, kUnknown)) return false;
  if (ORX_response_curve_copy(&dst->curve, &src.curve) != 0) {
    if (orx::err::last_status() == 0) orx__err = ORX_E_INVALID_TYPE;
    return false;
  }
  return true;
}

bool copy_string(char **field, const char *text, const char *fallback) {
  ERR_free(*field);
  *field = nullptr;
  const char *from = text != nullptr ? text : fallback;
  if (from == nullptr) return true;
  *field = save(from);
  if (*field != nullptr) return true;
  orx__err = ORX_E_NO_MEMORY;
  return false;
}

bool copy_images(ORX_INFO *dst, const ORX_INFO *src) {
  const int32_t n = src->images != nullptr && src->image_count > 0 ? src->image_count : 0;
  if (n == 0) return true;
  if (static_cast<uint64_t>(n) * sizeof(ORX_IFD) > UINT32_MAX) {
    orx__err = ORX_E_NO_MEMORY;
    return false;
  }
  auto *images = static_cast<ORX_IFD *>(
      ERR_malloc(static_cast<uint32_t>(sizeof(ORX_IFD)) * static_cast<uint32_t>(n)));
  if (images == nullptr) {
    orx__err = ORX_E_NO_MEMORY;
    return false;
  }
  for (int32_t i = 0; i < n; ++i) orx__init_ifd(&images[i]);
  // Release what dst held before, keeping its validity marker.
  const uint32_t valid = dst->valid;
  ORX_INFO old{};
  old.image_count = dst->image_count;
  old.images = dst->images;
  release_info(&old);
  dst->valid = valid;
  dst->images = images;
  dst->image_count = n;
  for (int32_t i = 0; i < n; ++i)
    if (!copy_image(&images[i], src->images[i])) return false;
  return true;
}

}  // namespace orx::core
