// The quantize operator: channel groups change between floating point and
// integers, on reading (the layer below gives floats, the caller gets
// integers) or on writing (the caller hands floats, the layer below stores
// integers).
#include <cstring>

#include "operators/convert.hpp"
#include "operators/layer.hpp"
#include "orx/err.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

struct GroupConverter {
  int32_t count, type, bits;
  QuantizeConverter convert;  // null: the rows pass as they are
};

struct QuantizeRecord {
  LayerHeader header;
  Span span;  // its last line one further when writing
  GroupTypes saved;
  GroupConverter groups[3];
  void **buffers;   // integer rows of the window's width
  void **pointers;  // what is handed on: own rows or the rows given
};

// The converter from floating-point type `from` to integers of bits.
QuantizeConverter to_integers(int32_t from, int32_t bits) {
  if (from == ORX_C_FLOAT) return quantize_converter<float>(bits);
  if (from == ORX_C_DOUBLE) return quantize_converter<double>(bits);
  return nullptr;
}

// Convert or pass every group's rows into the pointer array.
void gather(QuantizeRecord &r, void **rows) {
  int32_t at = 0;
  for (const GroupConverter &g : r.groups) {
    for (int32_t c = 0; c < g.count; ++c, ++at) {
      if (g.convert != nullptr) {
        g.convert(rows[at], r.buffers[at], r.span.x_offset, r.span.active_width, g.bits);
        r.pointers[at] = r.buffers[at];
      } else {
        r.pointers[at] = rows[at];
      }
    }
  }
}

int quantize_read_rows(QuantizeRecord &r, int32_t, void ***rows, int) {
  gather(r, *rows);
  *rows = r.pointers;
  return 0;
}

int quantize_write_rows(QuantizeRecord &r, int32_t line, void *rows) {
  if (!r.span.active(line)) return forward(&r.header, line, rows);
  gather(r, static_cast<void **>(rows));
  return forward(&r.header, line, r.pointers);
}

void release(ORX_OBJECT *handle, LayerHeader *header) {
  auto *r = reinterpret_cast<QuantizeRecord *>(header);
  r->saved.restore(handle->info.images[0]);
  ERR_free(r->pointers);
  orx__chan_free(r->buffers);
  ERR_free(r);
}

using Layer = Kind<release>;

// A target naming the group's own type leaves it alone, whatever width it
// names: retyping the width alone would describe rows of one storage size
// as another to the layers above.
bool differs(const ORX_CHANNELS &g, const int32_t *target) {
  return target != nullptr && target[0] != g.type;
}

// Both installs: writing selects converters from the target (float or
// double) to the current integers, reading from the current type to the
// target integers.  The description takes every target that differs, even
// where no converter exists (those rows then pass unconverted).
ORX_OBJECT *install(ORX_OBJECT *handle, const int32_t *const target[3], bool writing) {
  orx__err = 0;
  if (handle == nullptr || handle->info.images == nullptr || handle->info.image_count < 1 ||
      target == nullptr)
    return handle;
  ORX_IFD &d = handle->info.images[0];
  if (d.pixel_flags != 1) return handle;  // one row per channel only
  bool wanted = false;
  for (int g = 0; g < 3; ++g) {
    const ORX_CHANNELS &c = *group_of(d, g);
    if (writing)
      wanted |= c.count > 0 && differs(c, target[g]) &&
                (target[g][0] == ORX_C_FLOAT || target[g][0] == ORX_C_DOUBLE);
    else
      wanted |= c.type != ORX_C_INTEGER;
  }
  if (!wanted) return handle;
  auto *r = new_record<QuantizeRecord>();
  if (r == nullptr) return handle;
  r->span = span_of(d);
  // Deliberately one line more when writing: the line above the active
  // window is converted too.
  r->span.last_line += writing ? 1 : 0;
  ORX_IFD integers = d;  // the layout of the operator's own rows
  r->saved.save(d);
  for (int g = 0; g < 3; ++g) {
    ORX_CHANNELS &c = *group_of(d, g);
    GroupConverter &conv = r->groups[g];
    conv.count = c.count > 0 ? c.count : 0;
    if (!differs(c, target[g])) continue;
    if (writing) {
      if (c.type == ORX_C_INTEGER && c.count > 0) conv.convert = to_integers(target[g][0], c.bits);
      conv.bits = c.bits;
    } else {
      if (target[g][0] == ORX_C_INTEGER && c.count > 0) conv.convert = to_integers(c.type, target[g][1]);
      conv.bits = target[g][1];
      group_of(integers, g)->type = target[g][0];
      group_of(integers, g)->bits = target[g][1];
    }
    c.type = target[g][0];
    c.bits = target[g][1];
  }
  const int32_t width = r->span.width;
  const int32_t channels = r->groups[0].count + r->groups[1].count + r->groups[2].count;
  r->buffers = channel_rows(integers, width, "quantize operator");
  if (r->buffers != nullptr)
    r->pointers = static_cast<void **>(allocate(sizeof(void *) * static_cast<uint64_t>(channels + 1)));
  if (r->pointers == nullptr) {
    r->saved.restore(handle->info.images[0]);
    orx__chan_free(r->buffers);
    ERR_free(r);
    orx__err = ORX_E_NO_MEMORY;
    return handle;
  }
  for (int32_t c = 0; c <= channels; ++c) r->pointers[c] = c < channels ? r->buffers[c] : nullptr;
  push(handle, &r->header, kQuantize,
       writing ? scan<QuantizeRecord, quantize_write_rows> : read_scan<QuantizeRecord, quantize_read_rows>,
       Layer::close);
  return handle;
}

}  // namespace
}  // namespace orx::operators

using namespace orx::operators;

extern "C" {

ORX_OBJECT *orx__quantize_read_operator(ORX_OBJECT *handle, const int32_t *const target[3]) {
  return install(handle, target, false);
}

ORX_OBJECT *orx__quantize_write_operator(ORX_OBJECT *handle, const int32_t *const target[3]) {
  return install(handle, target, true);
}

int orx__quantize_remove(ORX_OBJECT *handle) { return Layer::remove(handle); }

}  // extern "C"
