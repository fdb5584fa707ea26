// The layer protocol every operator follows.  A layer is pushed onto an
// open handle: its record saves the handle's scan function, close function
// and first private-data entry, and takes their places; closing the handle
// unwinds the layers from the top, each calling the one below.
#pragma once

#include <cstdint>

#include "orx/err.h"
#include "orx/plugin.h"

namespace orx::operators {

// Operator kinds.
enum Tag : int32_t {
  kSelect = 1,
  kGammaCorrection = 2,
  kFieldMerge = 14,
  kMinMax = 15,
  kCast = 17,
  kClamp = 18,
  kDisplay = 19,
  kQuantize = 22,
  kResample = 25,
};

// The start of every operator record.
struct LayerHeader {
  int32_t tag;
  ORX_SCAN_FN next_scan;
  ORX_CLOSE_FN next_close;
  void *next_data;
};

// Push record (whose first member is a LayerHeader) onto handle with the
// layer's own scan and close functions.
void push(ORX_OBJECT *handle, LayerHeader *record, int32_t tag, ORX_SCAN_FN scan,
          ORX_CLOSE_FN close);

// Whether the handle has an operator layer on top (of any kind).
bool has_layers(const ORX_OBJECT *handle);

// The layer on top of handle when it is of the kind whose close function is
// close, else null.  A layer is recognised by its close function being the
// handle's, never by reading a record that may belong to a format.
LayerHeader *top(const ORX_OBJECT *handle, ORX_CLOSE_FN close);

// Restore what record saved (the layer must be on top) and return it.
LayerHeader *pop(ORX_OBJECT *handle, LayerHeader *record);

// The remove protocol: 1 when the slot is empty, 0 when another kind is on
// top (nothing changes), else pops the layer, hands it to release and
// returns 1.
int remove(ORX_OBJECT *handle, ORX_CLOSE_FN close, void (*release)(ORX_OBJECT *, LayerHeader *));

// The close protocol: remove when this kind is on top, then close through
// whatever close function the handle has now.
int close_layer(ORX_OBJECT *handle, intptr_t argument, ORX_CLOSE_FN close,
                void (*release)(ORX_OBJECT *, LayerHeader *));

// A scan that finds no record: "Cannot access sub image (attempted to
// access a locked sub image)", -1.
int locked();

// Memory ran out where nothing reported it: "No more internal memory", -10.
void no_memory();

// A zeroed operator record from ERR_malloc, or null with orx__err -10 (the
// allocator reported it).
template <class Record>
Record *new_record() {
  auto *r = static_cast<Record *>(ERR_malloc(sizeof(Record)));
  if (r == nullptr) {
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  *r = Record{};
  return r;
}

// The handle has a description to work on.
inline bool has_image(const ORX_OBJECT *handle) {
  return handle != nullptr && handle->info.images != nullptr && handle->info.image_count >= 1;
}

// The cast operator's install: 0 when the handle reads floats (the cast
// pushed, or not needed), else the failure's status (reported, as
// orx__cast_operator reports it).  Layers built on floats ask this, not the
// status word, whether they can go on.
int install_cast(ORX_OBJECT *handle);

// The gamut clamp, also where there is no matte (the display chain clamps
// every image before quantizing it).
ORX_OBJECT *install_clamp(ORX_OBJECT *handle, bool needs_matte);

// Call the layer below: locked() when its entry was emptied by a select.
inline int forward(const LayerHeader *record, int32_t line, void *rows) {
  if (record->next_data == nullptr) return locked();
  return record->next_scan(record->next_data, line, rows);
}

}  // namespace orx::operators
