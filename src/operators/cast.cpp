// The cast operator: every channel group read as 32-bit float, integers
// scaled to 0..1, 8-bit images with a gamma linearised through a table.
#include "err/messages.hpp"
#include "operators/convert.hpp"
#include "operators/layer.hpp"
#include "operators/lookup.hpp"
#include "orx/err.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

struct CastRecord {
  LayerHeader header;
  float gamma;
  GroupTypes saved;  // as they were
  int32_t width;
  int32_t counts[3];
  float *gamma_table;
  FloatTable lookup;  // of gamma_table
  void **buffers;
  CastConverter converters[3];
};

int cast_rows(CastRecord &r, int32_t, void ***rows, int) {
  void **src = *rows;
  int32_t at = 0;
  for (int g = 0; g < 3; ++g) {
    if (g == 0 && r.gamma_table != nullptr) {
      for (int32_t c = r.counts[0] - 1; c >= 0; --c)
        lookup_floats(r.lookup, src[c], r.width, static_cast<float *>(r.buffers[c]));
    } else if (r.converters[g] != nullptr) {
      r.converters[g](r.buffers + at, r.width, r.saved.widths[g], r.counts[g], src + at);
    }
    at += r.counts[g];
  }
  *static_cast<void ***>(rows) = r.buffers;
  return 0;
}

void restore(ORX_OBJECT *handle, const CastRecord &r) {
  ORX_IFD &d = handle->info.images[0];
  d.curve.gamma = r.gamma;
  r.saved.restore(d);
}

void release(ORX_OBJECT *handle, LayerHeader *header) {
  auto *r = reinterpret_cast<CastRecord *>(header);
  restore(handle, *r);
  if (r->gamma_table != nullptr) ORX_gamma_done(r->gamma_table);
  orx__chan_free(r->buffers);
  ERR_free(r);
}

using Layer = Kind<release>;

}  // namespace

bool cast_source(const ORX_OBJECT *handle, CastSource *source) {
  const LayerHeader *layer = Layer::on_top(handle);
  if (layer == nullptr) return false;
  const auto *r = reinterpret_cast<const CastRecord *>(layer);
  source->types = r->saved;
  source->table = r->gamma_table != nullptr ? &r->lookup : nullptr;
  return true;
}

}  // namespace orx::operators

using namespace orx::operators;

extern "C" {

ORX_OBJECT *orx__cast_operator(ORX_OBJECT *handle) {
  orx__err = 0;
  if (!has_image(handle)) return handle;
  ORX_IFD &d = handle->info.images[0];
  if (d.image.type == ORX_C_FLOAT && d.matte.type == ORX_C_FLOAT && d.aux.type == ORX_C_FLOAT)
    return handle;
  auto *r = new_record<CastRecord>();
  if (r == nullptr) return handle;
  r->width = span_of(d).width;
  r->gamma = d.curve.gamma;
  r->saved.save(d);
  // The description is rewritten before the buffers exist: a failed buffer
  // leaves it rewritten, as it always has.
  d.curve.gamma = 1.0f;
  for (int g = 0; g < 3; ++g) {
    group_of(d, g)->type = ORX_C_FLOAT;
    group_of(d, g)->bits = 32;
  }
  r->buffers = channel_rows(d, r->width, "cast operator");
  if (r->buffers == nullptr) {
    ERR_free(r);
    return handle;
  }
  r->counts[0] = d.image.count;
  r->counts[1] = d.matte.count;
  r->counts[2] = d.aux.count;
  for (int g = 0; g < 3; ++g)
    r->converters[g] = cast_converter(r->saved.types[g], r->saved.widths[g], r->counts[g]);
  if (r->saved.types[0] == ORX_C_INTEGER && r->saved.widths[0] == 8 && r->gamma != 1.0f && r->counts[0] > 0) {
    r->gamma_table = ORX_gamma_btof(r->gamma);
    if (r->gamma_table == nullptr) {
      restore(handle, *r);
      orx__chan_free(r->buffers);
      ERR_free(r);
      no_memory();
      return handle;
    }
    float_table_init(r->lookup, r->gamma_table);
  }
  push(handle, &r->header, kCast, read_scan<CastRecord, cast_rows>, Layer::close);
  return handle;
}

int orx__cast_remove(ORX_OBJECT *handle) { return Layer::remove(handle); }

}  // extern "C"
