// The gamma correction operator: 8-bit image channels re-encoded from the
// image's response curve to a requested one through one composed table per
// channel.
#include <cmath>
#include <cstring>

#include "err/messages.hpp"
#include "operators/layer.hpp"
#include "operators/lookup.hpp"
#include "orx/err.h"
#include "orx/fmt.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

constexpr const char *kName = "gamma correction operator";

struct GammaRecord {
  LayerHeader header;
  int32_t saved_width;
  Span span;
  int32_t right_pad;
  int32_t image_count;
  ORX_RESPONSE_CURVE curve;  // the composed tables, 8-bit entries
};

const uint8_t *table(const GammaRecord &r, int32_t c) {
  return static_cast<const uint8_t *>(r.curve.curves[c]);
}

int gamma_read_rows(GammaRecord &r, int32_t, void ***rows, int status) {
  void **channels = *rows;
  for (int32_t c = 0; c < r.image_count; ++c) {
    auto *row = static_cast<uint8_t *>(channels[c]) + r.span.x_offset;
    lookup_row(table(r, c), row, r.span.active_width, row);
  }
  return status;
}

// The caller's 16-bit linear samples narrow in place to 8-bit codes.
int gamma_write_rows(GammaRecord &r, int32_t line, void *rows) {
  if (!r.span.active(line)) return forward(&r.header, line, rows);
  void **channels = static_cast<void **>(rows);
  const std::size_t mask = r.curve.length > 0 ? static_cast<std::size_t>(r.curve.length) - 1 : 0;
  for (int32_t c = 0; c < r.image_count; ++c) {
    const uint8_t *t = table(r, c);
    auto *bytes = static_cast<uint8_t *>(channels[c]);
    for (int32_t x = r.span.x_offset; x < r.span.x_offset + r.span.active_width; ++x) {
      uint16_t sample;
      std::memcpy(&sample, bytes + 2 * static_cast<std::size_t>(x), sizeof sample);
      bytes[x] = t[sample & mask];  // byte x lies at or before sample x: safe going up
    }
    std::memset(bytes + r.span.x_offset + r.span.active_width, 0, static_cast<std::size_t>(r.right_pad));
  }
  return forward(&r.header, line, rows);
}

void release(ORX_OBJECT *handle, LayerHeader *header) {
  auto *r = reinterpret_cast<GammaRecord *>(header);
  ORX_response_curve_done(&r->curve);
  if (handle->access == ORX_ACCESS_WRITE) handle->info.images[0].image.bits = r->saved_width;
  ERR_free(r);
}

using Layer = Kind<release>;

}  // namespace
}  // namespace orx::operators

using namespace orx::operators;

extern "C" {

ORX_OBJECT *orx__gamma_operator(ORX_OBJECT *handle, const ORX_RESPONSE_CURVE *target) {
  using orx::Msg;
  orx__err = 0;
  if (handle == nullptr || target == nullptr) return handle;
  bool refused = false;
  if (handle->info.image_count < 1) {
    orx::fail(ORX_E_UNSUPPORTED, Msg::kNoMultipleImages, kName);
    refused = true;
  }
  if (handle->info.images == nullptr) return handle;
  ORX_IFD &d = handle->info.images[0];
  if (d.image.type == ORX_C_INTEGER && d.image.bits >= 9) {
    orx::fail(ORX_E_UNSUPPORTED, Msg::kImageWidth, kName);
    return handle;
  }
  if (refused) return handle;
  if (d.curve.kind == ORX_CURVE_PARAMETRIC && target->kind == ORX_CURVE_PARAMETRIC &&
      d.curve.gamma == target->gamma)
    return handle;
  auto *r = new_record<GammaRecord>();
  if (r == nullptr) return handle;
  r->span = span_of(d);
  r->right_pad = d.window.right - d.active.right;
  r->image_count = d.image.count;
  r->curve = ORX_RESPONSE_CURVE{ORX_CURVE_PARAMETRIC, 1.0f, 0, 0, 1, 256, ORX_C_INTEGER, 8, nullptr};
  const int resolution = FMT_def_gamma_tab_res();
  const auto bits = static_cast<int32_t>(std::log(static_cast<double>(resolution)) / std::log(2.0));
  ORX_RESPONSE_CURVE goal = *target;
  int composed;
  if (handle->access == ORX_ACCESS_READ) {
    if (d.curve.kind == ORX_CURVE_PARAMETRIC) {
      d.curve.type = ORX_C_INTEGER;
      d.curve.length = 256;
      d.curve.depth = bits;
      d.curve.channels = d.image.count;
    }
    if (goal.kind == ORX_CURVE_PARAMETRIC) {
      goal.channels = d.image.count;
      goal.length = 1 << bits;
      goal.type = ORX_C_INTEGER;
      goal.depth = 8;
    }
    composed = ORX_response_curve_comp(&goal, &d.curve, &r->curve);
  } else {
    if (d.curve.kind == ORX_CURVE_PARAMETRIC) {
      d.curve.channels = d.image.count;
      d.curve.length = 1 << d.image.bits;
      d.curve.type = ORX_C_INTEGER;
      d.curve.depth = d.image.bits;
    }
    if (goal.kind == ORX_CURVE_PARAMETRIC) {
      goal.channels = d.image.count;
      goal.type = ORX_C_INTEGER;
      goal.length = 1 << bits;
      goal.depth = d.curve.depth;
    }
    composed = ORX_response_curve_comp(&d.curve, &goal, &r->curve);
  }
  if (composed != 0 || r->curve.curves == nullptr || r->curve.channels < r->image_count) {
    ORX_response_curve_done(&r->curve);
    ERR_free(r);
    return handle;
  }
  if (handle->access != ORX_ACCESS_READ) {
    r->saved_width = d.image.bits;
    d.image.bits = bits;  // the caller now writes B-bit linear samples in 16-bit storage
  }
  push(handle, &r->header, kGammaCorrection,
       handle->access == ORX_ACCESS_READ ? read_scan<GammaRecord, gamma_read_rows>
                                       : scan<GammaRecord, gamma_write_rows>, Layer::close);
  return handle;
}

int orx__gamma_remove(ORX_OBJECT *handle) { return Layer::remove(handle); }

}  // extern "C"
