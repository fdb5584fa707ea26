// The swatch process: a small point-sampled preview appended to a file's
// images, computed on the fly when reading and stored beside the image when
// writing.
#include <cstring>
#include <initializer_list>

#include "core/channels.hpp"
#include "core/info_copy.hpp"
#include "err/heap.hpp"
#include "err/messages.hpp"
#include "operators/layer.hpp"
#include "orx/err.h"
#include "orx/registry.h"
#include "texture/process.hpp"

namespace orx::texture {
namespace {

constexpr int32_t kFits = -1;
constexpr int32_t kNone = -2;

struct Swatch;

// One per image of the object; the object's private entries point here.
// The first one's header is the layer's: it keeps what the object had.
struct Record {
  operators::LayerHeader header;
  Swatch *owner;
  void *saved_private;  // the format's entry for the image
  bool is_swatch;
};

struct Swatch {
  bool reading;
  int32_t count;       // images, the swatch included
  Record *records;
  void **cell;
  int32_t source;      // the sampled image
  int32_t width, height;
  int32_t *columns;    // source column of each swatch column
  int32_t *rows;       // source line of each swatch row
  void **buffer;       // the swatch's channel rows
  int32_t channels;
  uint32_t *bytes;     // sample bytes of each channel
  int32_t next_row;    // writing: the next swatch row to store
};

int32_t width_of(const ORX_IFD &ifd) { return ifd.window.right - ifd.window.left + 1; }
int32_t height_of(const ORX_IFD &ifd) { return ifd.window.top - ifd.window.bottom + 1; }

// The image to sample, kFits when one already has the swatch's size, kNone
// when none reaches it.
int32_t choose_source(const ORX_IFD *images, int32_t n, int32_t s) {
  for (int32_t i = n - 1; i >= 0; --i) {
    const int32_t w = width_of(images[i]), h = height_of(images[i]);
    if ((w == s && h <= s) || (h == s && w <= s)) return kFits;
  }
  for (int32_t i = 0; i < n; ++i)
    if (width_of(images[i]) >= s || height_of(images[i]) >= s) return i;
  return kNone;
}

// The swatch's description: the source's, resized (deliberately from S - 1,
// in single precision).  Strings are shared with src: the caller copies.
ORX_IFD describe(const ORX_IFD &src, int32_t s) {
  ORX_IFD d = src;
  const int32_t w = width_of(src), h = height_of(src);
  const float last = static_cast<float>(s - 1);
  int32_t x2, y2;
  if (w <= h) {
    y2 = s - 1;
    x2 = static_cast<int32_t>(last * static_cast<float>(w) / static_cast<float>(h));
  } else {
    x2 = s - 1;
    y2 = static_cast<int32_t>(last * static_cast<float>(h) / static_cast<float>(w));
  }
  d.window = ORX_WINDOW{0, x2, 0, y2};
  d.active = d.window;
  d.x_resolution = x2 + 1;
  d.y_resolution = y2 + 1;
  d.aspect_ratio = static_cast<float>(x2 + 1) / static_cast<float>(y2 + 1);
  d.aspect = const_cast<char *>("unknown");
  if (d.version == 1) d.version = 2;  // as any image after the first of a file
  return d;
}

// Positions trunc(p) of p = 0, step, 2 step, ...: the step is added in
// double and the sum rounded back to single each time, as it always was.
void sample_positions(int32_t *out, int32_t n, float step, int32_t base, int32_t limit) {
  float p = 0.0f;
  for (int32_t i = 0; i < n; ++i) {
    const auto at = static_cast<int32_t>(p);
    out[i] = base + (at < limit ? at : limit - 1);
    p = static_cast<float>(static_cast<double>(p) + static_cast<double>(step));
  }
}

void free_swatch(Swatch *s) {
  if (s == nullptr) return;
  ORX_chan_free(s->buffer);
  for (void *p : {static_cast<void *>(s->records), static_cast<void *>(s->cell),
                  static_cast<void *>(s->columns), static_cast<void *>(s->rows),
                  static_cast<void *>(s->bytes)})
    ERR_free(p);
  ERR_free(s);
}

// Point-sample one source line (channel rows of the source's window) into
// the swatch's rows.
void subsample(Swatch &s, void *const *source_rows) {
  for (int32_t c = s.channels - 1; c >= 0; --c) {
    const uint32_t b = s.bytes[c];
    auto *out = static_cast<unsigned char *>(s.buffer[c]);
    const auto *in = static_cast<const unsigned char *>(source_rows[c]);
    for (int32_t x = 0; x < s.width; ++x)
      std::memcpy(out + static_cast<std::size_t>(x) * b,
                  in + static_cast<std::size_t>(s.columns[x]) * b, b);
  }
}

int scan(void *data, int32_t line, void *channels) {
  auto *r = static_cast<Record *>(data);
  Swatch &s = *r->owner;
  const ORX_SCAN_FN below = s.records[0].header.next_scan;
  if (!r->is_swatch) {
    const int status = below(r->saved_private, line, channels);
    if (status != 0 || s.reading || r != &s.records[s.source]) return status;
    // A written line of the source: store the swatch rows it feeds.
    while (s.next_row < s.height && s.rows[s.next_row] < line) ++s.next_row;
    while (s.next_row < s.height && s.rows[s.next_row] == line) {
      subsample(s, static_cast<void **>(channels));
      const int stored = below(s.records[s.count - 1].saved_private, s.next_row, s.buffer);
      if (stored != 0) return stored;
      ++s.next_row;
    }
    return 0;
  }
  if (line < 0 || line >= s.height) return orx__err = ORX_E_BAD_SCANLINE;
  void **source_rows = nullptr;
  const int status = below(s.records[s.source].saved_private, s.rows[line], &source_rows);
  if (status != 0) return status;
  subsample(s, source_rows);
  *static_cast<void ***>(channels) = s.buffer;
  return 0;
}

// The layer comes off: a swatch computed when reading goes with it.
void release(ORX_OBJECT *object, operators::LayerHeader *header) {
  Swatch *s = reinterpret_cast<Record *>(header)->owner;
  if (s->reading) {
    core::release_image(&object->info.images[s->count - 1]);
    --object->info.image_count;
  }
  free_swatch(s);
}

using Layer = operators::Kind<release>;

// Layer the process onto object, whose last image is the swatch; false when
// memory ran out (the allocator reported it; the object is left as it was).
bool install(ORX_OBJECT *object, int32_t source, bool reading) {
  ORX_INFO &info = object->info;
  Swatch *s = nullptr;
  if (!operators::allocate_array(s, 1)) return false;
  *s = Swatch{};
  const ORX_IFD &swatch = info.images[info.image_count - 1];
  const ORX_IFD &src = info.images[source];
  s->reading = reading;
  s->count = info.image_count;
  s->source = source;
  s->width = width_of(swatch);
  s->height = height_of(swatch);
  const ORX_CHANNELS *groups[] = {&swatch.image, &swatch.matte, &swatch.aux, &swatch.index};
  for (int g = 0; g < 4; ++g)
    if (groups[g]->count > 0 && (g < 3 || swatch.image.count <= 0)) s->channels += groups[g]->count;
  using operators::allocate_array;
  if (allocate_array(s->records, s->count) && allocate_array(s->cell, s->count) &&
      allocate_array(s->columns, s->width) && allocate_array(s->rows, s->height) &&
      allocate_array(s->bytes, s->channels))
    s->buffer = operators::channel_rows(const_cast<ORX_IFD &>(swatch), s->width, "swatch");
  if (s->buffer == nullptr) {
    free_swatch(s);
    return false;
  }
  int32_t c = 0;
  for (int g = 0; g < 4; ++g) {
    if (groups[g]->count <= 0 || (g == 3 && swatch.image.count > 0)) continue;
    for (int32_t k = 0; k < groups[g]->count; ++k) s->bytes[c++] = core::group_sample_bytes(*groups[g], g);
  }
  const int32_t src_w = width_of(src), src_h = height_of(src);
  sample_positions(s->columns, s->width, static_cast<float>(src_w) / static_cast<float>(s->width), 0,
                   src_w);
  sample_positions(s->rows, s->height, static_cast<float>(src_h) / static_cast<float>(s->height),
                   src.window.bottom, src_h);
  const int32_t formats_entries = reading ? s->count - 1 : s->count;
  for (int32_t i = 0; i < s->count; ++i) {
    s->records[i] = Record{{}, s, i < formats_entries ? object->private_cell[i] : nullptr,
                           reading && i == s->count - 1};
    s->cell[i] = &s->records[i];
  }
  operators::push_entries(object, &s->records[0].header, operators::kSwatch, scan, Layer::close,
                          s->cell, true);
  return true;
}

bool valid_size(const IMP_REQUEST *request) {
  if (request != nullptr && request->swatch_size >= 1 && request->swatch_size <= INT32_MAX)
    return true;
  orx__err = ORX_E_DIMENSIONS;
  report(Msg::kSwatchDimension);
  return false;
}

// While the write open runs: complaints about the extra image or its size
// are swallowed and mark the open as retryable without the swatch.
int write_handler(const char *name, int severity, const char *, ERR_RECORD *, intptr_t) {
  if (severity < ERR_ERROR) return 0;
  if (name != nullptr && (std::strcmp(name, "%s cannot store multiple images") == 0 ||
                          std::strcmp(name, "%s cannot handle image dimensions") == 0)) {
    set_error(0);
    return 0;
  }
  set_error(-1);
  return 1;
}

}  // namespace

ORX_OBJECT *swatch_read(ORX_INFO *image, IMP_REQUEST *request) {
  if (!valid_size(request)) return nullptr;
  const auto size = static_cast<int32_t>(request->swatch_size);
  ORX_OBJECT *object = ORX_open(image, "r");
  if (object == nullptr) return nullptr;
  ORX_INFO &info = object->info;
  const int32_t source = choose_source(info.images, info.image_count, size);
  if (source == kFits) return object;
  if (source == kNone) {
    ORX_close(object);
    orx__err = ORX_E_DIMENSIONS;
    report(Msg::kSwatchDimension);
    return nullptr;
  }
  const ORX_IFD described = describe(info.images[source], size);
  void *grown = heap::reallocate(info.images, sizeof(ORX_IFD) * (static_cast<std::size_t>(info.image_count) + 1));
  if (grown == nullptr) {
    ORX_close(object);
    fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
    return nullptr;
  }
  info.images = static_cast<ORX_IFD *>(grown);
  ORX_IFD &swatch = info.images[info.image_count];
  orx__init_ifd(&swatch);
  ++info.image_count;
  // Both report what failed.  The format's close expects its own image
  // count, so the swatch's descriptor goes first.
  if (!core::copy_image(&swatch, described) || !install(object, source, true)) {
    core::release_image(&swatch);
    --info.image_count;
    ORX_close(object);
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  return object;
}

ORX_OBJECT *swatch_write(ORX_INFO *image, IMP_REQUEST *request) {
  if (!valid_size(request)) return nullptr;
  const auto size = static_cast<int32_t>(request->swatch_size);
  const int32_t n = image != nullptr && image->images != nullptr ? image->image_count : 0;
  const int32_t source = n > 0 ? choose_source(image->images, n, size) : kNone;
  if (source == kFits) return ORX_open(image, "w");
  if (source == kNone) {
    orx__err = ORX_E_DIMENSIONS;
    report(Msg::kSwatchDimension);
    return nullptr;
  }
  // The host's record stays untouched: the open gets a copy whose image list
  // ends with the swatch (the open copies every string it is given).
  ORX_IFD *images = nullptr;
  if (!operators::allocate_array(images, static_cast<uint64_t>(n) + 1)) {
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  std::memcpy(images, image->images, sizeof(ORX_IFD) * static_cast<std::size_t>(n));
  images[n] = describe(image->images[source], size);
  ORX_INFO request_copy = *image;
  request_copy.images = images;
  request_copy.image_count = n + 1;
  if (ERR_dcl_handler(nullptr, write_handler, 0) == 0) {
    ERR_free(images);
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  set_error(-1);
  ORX_OBJECT *object = ORX_open(&request_copy, "w");
  ERR_can_handler(nullptr);
  ERR_free(images);
  if (object == nullptr) return error() == 0 ? ORX_open(image, "w") : nullptr;
  set_error(0);
  if (!install(object, source, false)) {
    ORX_close(object);
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  return object;
}

}  // namespace orx::texture
