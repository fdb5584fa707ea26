// The layer protocol every operator follows.  A layer is pushed onto an
// open handle: its record saves the handle's scan function, close function
// and first private-data entry, and takes their places; closing the handle
// unwinds the layers from the top, each calling the one below.  A layer that
// works on several images of the handle (the texture processes) brings a
// private-data array of its own and keeps the handle's in its record.
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
  kSwatch = 33,
  kMipmap = 34,
};

// The start of every operator record.
struct LayerHeader {
  int32_t tag;
  ORX_SCAN_FN next_scan;
  ORX_CLOSE_FN next_close;
  void *next_data;
  // The handle's private-data array when the layer brought one of its own
  // (push_entries), else null: pop puts it back.
  void **next_entries;
  // Every entry of the layer's own array is a record of the layer's, one
  // for each image of the handle, so any one image can be selected.
  bool entry_per_image;
};

// Push record (whose first member is a LayerHeader) onto handle with the
// layer's own scan and close functions.
void push(ORX_OBJECT *handle, LayerHeader *record, int32_t tag, ORX_SCAN_FN scan,
          ORX_CLOSE_FN close);

// Push a layer that replaces the handle's whole private-data array with
// entries (which the layer owns; its first entry becomes record, as with
// push).  entry_per_image: entries holds a record of the layer's for every
// image the handle describes.
void push_entries(ORX_OBJECT *handle, LayerHeader *record, int32_t tag, ORX_SCAN_FN scan,
                  ORX_CLOSE_FN close, void **entries, bool entry_per_image);

// Whether the handle has an operator layer on top (of any kind).
bool has_layers(const ORX_OBJECT *handle);

// Whether an image other than the first can be read on its own: no layer
// on top, or one with a record for every image.
bool images_apart(const ORX_OBJECT *handle);

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

// ERR_malloc for a size that may not fit its 32-bit argument: null, and
// reported as ERR_malloc reports, when it does not.
void *allocate(uint64_t bytes);

// p becomes an array of n elements (at least one) from allocate: whether
// memory allowed it (when not, the allocator reported it).  Chained with
// &&, a record's arrays stop at the first refusal, reported once.
template <class T>
bool allocate_array(T *&p, uint64_t n) {
  p = static_cast<T *>(allocate(sizeof(T) * (n > 0 ? n : 1)));
  return p != nullptr;
}

// The channel rows orx__chan_alloc makes for d, with one rule for a
// refusal: a type or width it cannot hold is reported by the buffer itself
// (as who), memory running out as ERR_malloc reports it.  Null on either.
void **channel_rows(ORX_IFD &d, int32_t width, const char *who);

// channel_rows for d whose groups are all float by now, so that the only
// refusal left is memory running out.
void **float_rows(ORX_IFD &d, int32_t width, const char *who);

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

// The cast an operator that works on float samples pushes below itself.
// Whether it is there is learnt from the handle (its scan function changed,
// or every group was float already), never from the status word.  One undo
// rule: the operator's record keeps pushed(), and whoever takes the
// operator off (a failed install, remove or close) takes the cast off with
// it through undo_cast().
class CastBelow {
 public:
  explicit CastBelow(ORX_OBJECT *handle);
  // The samples are float now.
  bool ok() const { return ok_; }
  bool pushed() const { return pushed_; }

 private:
  bool ok_ = false, pushed_ = false;
};

// Takes off the cast an operator pushed (nothing when it pushed none).
void undo_cast(ORX_OBJECT *handle, bool pushed);

// Call the layer below: locked() when its entry was emptied by a select.
inline int forward(const LayerHeader *record, int32_t line, void *rows) {
  if (record->next_data == nullptr) return locked();
  return record->next_scan(record->next_data, line, rows);
}

// --- The shape of an operator -----------------------------------------------
// An operator is a record (a LayerHeader first), a row transform, a release
// and an install.  What every kind shares is generated here:
//
//   Kind<release>::close / ::remove    the close and remove protocol
//   scan<Record, fn>                   the scan slot: locked() without a
//                                      record, else fn(record, line, rows)
//   read_scan<Record, transform>       reading: the line from below, then
//                                      transform(record, line, rows, status)
//                                      unless the read failed
//   CastBelow / undo_cast               the float cast under a float operator
//   Span                               the window and active area in columns
//                                      and lines

// The close and remove of one kind of layer, from its release (which frees
// the record and restores what the layer changed).  The close function's
// address is the kind's identity on a handle, so every kind has its own
// release.
template <void (*Release)(ORX_OBJECT *, LayerHeader *)>
struct Kind {
  static int close(ORX_OBJECT *handle, intptr_t argument) {
    return close_layer(handle, argument, close, Release);
  }
  static int remove(ORX_OBJECT *handle) { return operators::remove(handle, close, Release); }
  static LayerHeader *on_top(const ORX_OBJECT *handle) { return top(handle, close); }
};

template <class Record, int (*Fn)(Record &, int32_t, void *)>
int scan(void *data, int32_t line, void *rows) {
  if (data == nullptr) return locked();
  return Fn(*static_cast<Record *>(data), line, rows);
}

template <class Record, int (*Transform)(Record &, int32_t, void ***, int)>
int read_scan(void *data, int32_t line, void *rows) {
  if (data == nullptr) return locked();
  Record &r = *static_cast<Record *>(data);
  const int status = forward(&r.header, line, rows);
  if (status < 0) return status;
  return Transform(r, line, static_cast<void ***>(rows), status);
}

// The columns and lines of a description's window and active area.
struct Span {
  int32_t width, height;    // of the window
  int32_t x_offset;         // the active area's first column, from the window's
  int32_t active_width;
  int32_t first_line, last_line;  // the active area's lines
  bool active(int32_t line) const { return line >= first_line && line <= last_line; }
};

inline Span span_of(const ORX_IFD &d) {
  return Span{d.window.right - d.window.left + 1, d.window.top - d.window.bottom + 1,
              d.active.left - d.window.left, d.active.right - d.active.left + 1,
              d.active.bottom, d.active.top};
}

// The image, matte and auxiliary groups of d, by index 0, 1, 2.
inline ORX_CHANNELS *group_of(ORX_IFD &d, int g) {
  ORX_CHANNELS *groups[] = {&d.image, &d.matte, &d.aux};
  return groups[g];
}

// The types and widths of the three groups, kept while a layer retypes the
// description and put back when it comes off.
struct GroupTypes {
  int32_t types[3], widths[3];  // image, matte, auxiliary
  void save(ORX_IFD &d) {
    for (int g = 0; g < 3; ++g) types[g] = group_of(d, g)->type, widths[g] = group_of(d, g)->bits;
  }
  void restore(ORX_IFD &d) const {
    for (int g = 0; g < 3; ++g) group_of(d, g)->type = types[g], group_of(d, g)->bits = widths[g];
  }
};

// What the cast operator reads from the layer below it: each group's type
// and width as stored there, and the table through which it linearises
// 8-bit image channels with a gamma (null when it scales them linearly;
// lookup_floats applies it).  A layer sitting on a cast may read from below
// it instead and widen the rows itself, giving what the cast would.
struct FloatTable;
struct CastSource {
  GroupTypes types;
  const FloatTable *table;
};

// The source of the cast on top of handle: false when the layer on top is
// not a cast.
bool cast_source(const ORX_OBJECT *handle, CastSource *source);

// Channels of the image, matte and auxiliary groups together.
inline int32_t channel_count(const ORX_IFD &d) {
  return (d.image.count > 0 ? d.image.count : 0) + (d.matte.count > 0 ? d.matte.count : 0) +
         (d.aux.count > 0 ? d.aux.count : 0);
}

}  // namespace orx::operators
