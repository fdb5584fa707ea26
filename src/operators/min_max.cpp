// The min-max transform operator, and the description checks operators of
// 8-bit data share.
#include <cmath>

#include "err/messages.hpp"
#include "operators/layer.hpp"
#include "orx/err.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

constexpr const char *kName = "min-max transform operator";

struct MinMaxRecord {
  LayerHeader header;
  int32_t offset;  // (int)(2^w x minimum): deliberately 2^w, not 2^w - 1
  float scale;     // maximum - minimum
  int32_t channels;
  Span span;
};

int min_max_rows(MinMaxRecord &r, int32_t, void ***rows, int status) {
  void **channels = *rows;
  for (int32_t c = 0; c < r.channels; ++c) {
    auto *row = static_cast<uint8_t *>(channels[c]) + r.span.x_offset;
    // No clamping: the result wraps to 8 bits.
    for (int32_t x = 0; x < r.span.active_width; ++x)
      row[x] = static_cast<uint8_t>(static_cast<int32_t>(static_cast<float>(row[x]) * r.scale) + r.offset);
  }
  return status;
}

void release(ORX_OBJECT *, LayerHeader *header) { ERR_free(header); }

using Layer = Kind<release>;

struct GroupMessages {
  Msg type, width;
};

int check(const char *name, const ORX_OBJECT *handle, int32_t image, int g, GroupMessages m) {
  orx__err = 0;
  int result = 0;
  if (handle == nullptr || image >= handle->info.image_count || image < 0) {
    fail(ORX_E_UNSUPPORTED, Msg::kNoMultipleImages, name);
    result = ORX_E_UNSUPPORTED;
    if (handle == nullptr || handle->info.images == nullptr || image < 0 ||
        image >= handle->info.image_count)
      return result;  // there is no description to look at
  }
  const ORX_IFD &d = handle->info.images[image];
  const ORX_CHANNELS &c = g == 0 ? d.image : g == 1 ? d.matte : d.aux;
  if (c.type != ORX_C_INTEGER) return fail(ORX_E_UNSUPPORTED, m.type, name);
  if (c.bits >= 9) return fail(ORX_E_UNSUPPORTED, m.width, name);
  return result;
}

}  // namespace
}  // namespace orx::operators

using namespace orx::operators;

extern "C" {

int orx__check_image_description(const char *name, const ORX_OBJECT *handle, int32_t image) {
  return check(name, handle, image, 0, {orx::Msg::kImageType, orx::Msg::kImageWidth});
}

int orx__check_matte_description(const char *name, const ORX_OBJECT *handle, int32_t image) {
  return check(name, handle, image, 1, {orx::Msg::kMatteType, orx::Msg::kMatteWidth});
}

int orx__check_aux_description(const char *name, const ORX_OBJECT *handle, int32_t image) {
  return check(name, handle, image, 2, {orx::Msg::kAuxType, orx::Msg::kAuxWidth});
}

ORX_OBJECT *orx__min_max_operator(ORX_OBJECT *handle, double minimum, double maximum) {
  if (minimum == 0.0 && maximum == 1.0) return handle;
  if (orx__check_image_description(kName, handle, 0) != 0 ||
      orx__check_matte_description(kName, handle, 0) != 0 ||
      orx__check_aux_description(kName, handle, 0) != 0)
    return handle;
  auto *r = new_record<MinMaxRecord>();
  if (r == nullptr) return handle;
  const ORX_IFD &d = handle->info.images[0];
  r->offset = static_cast<int32_t>(std::ldexp(1.0, d.image.bits) * minimum);
  r->scale = static_cast<float>(maximum - minimum);
  r->channels = d.image.count + d.matte.count + d.aux.count;
  r->span = span_of(d);
  push(handle, &r->header, kMinMax, read_scan<MinMaxRecord, min_max_rows>, Layer::close);
  return handle;
}

int orx__min_max_remove(ORX_OBJECT *handle) { return Layer::remove(handle); }

}  // extern "C"
