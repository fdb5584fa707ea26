// The scale operator: a source rectangle in float coordinates (sub-pixel pan
// and crop) resized to a destination size, for display and zoom.  Each axis
// on its own: minifying averages the source area each destination pixel
// covers (no shimmer when panning by fractions of a pixel), magnifying
// interpolates linearly between source pixel centres (no ringing).
#include <cmath>
#include <cstring>
#include <initializer_list>

#include "operators/layer.hpp"
#include "orx/err.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

constexpr int32_t kScale = 32;

// The source pixels (clamped to the image: the edges repeat) and weights of
// every destination pixel along one axis.
struct Axis {
  int32_t size;       // destination pixels
  int32_t taps;       // weights per pixel
  int32_t *count;
  int32_t *index;     // taps x size
  float *weights;     // taps x size
};

bool make_axis(Axis &a, float start, float end, int32_t source, int32_t size) {
  const double step = (double(end) - start) / size;
  a.size = size;
  a.taps = step >= 1.0 ? static_cast<int32_t>(std::ceil(step)) + 1 : 2;
  a.count = static_cast<int32_t *>(ERR_malloc(sizeof(int32_t) * static_cast<uint32_t>(size)));
  const uint64_t table = uint64_t{sizeof(float)} * static_cast<uint64_t>(a.taps) * size;
  if (table > UINT32_MAX) return false;
  a.index = static_cast<int32_t *>(ERR_malloc(static_cast<uint32_t>(table)));
  a.weights = static_cast<float *>(ERR_malloc(static_cast<uint32_t>(table)));
  if (a.count == nullptr || a.index == nullptr || a.weights == nullptr) return false;
  const auto clamp = [source](int64_t i) { return static_cast<int32_t>(i < 0 ? 0 : i >= source ? source - 1 : i); };
  for (int32_t j = 0; j < size; ++j) {
    float *w = a.weights + static_cast<std::size_t>(j) * a.taps;
    int32_t *at = a.index + static_cast<std::size_t>(j) * a.taps;
    int32_t n = 0;
    if (step >= 1.0) {  // the covered interval, each source pixel by its overlap
      const double lo = start + j * step, hi = lo + step;
      const auto i0 = static_cast<int64_t>(std::floor(lo));
      for (int64_t i = i0; static_cast<double>(i) < hi && n < a.taps; ++i) {
        const double overlap = std::fmin(hi, double(i + 1)) - std::fmax(lo, double(i));
        if (overlap <= 0.0) continue;
        at[n] = clamp(i);
        w[n++] = static_cast<float>(overlap / step);
      }
    } else {  // linear between the two nearest source pixel centres
      const double u = start + (j + 0.5) * step - 0.5;
      const double f = std::floor(u);
      const auto fraction = static_cast<float>(u - f);
      at[0] = clamp(static_cast<int64_t>(f));
      at[1] = clamp(static_cast<int64_t>(f) + 1);
      w[0] = 1.0f - fraction;
      w[1] = fraction;
      n = 2;
    }
    a.count[j] = n;
  }
  return true;
}

void free_axis(Axis &a) {
  ERR_free(a.index);
  ERR_free(a.count);
  ERR_free(a.weights);
}

struct ScaleRecord {
  LayerHeader header;
  ORX_WINDOW window, active;
  int32_t source_width, source_height, source_bottom;
  int32_t channels;
  Axis x, y;
  void **cache_rows[64];  // horizontally scaled rows, by source line modulo the size
  int32_t cache_lines[64];
  int32_t cached;
  void **out;
  int32_t next_line;
  bool pushed_cast;
};

// Source line s scaled horizontally, from the cache or read now.
void **scaled_row(ScaleRecord &r, int32_t s) {
  const int32_t slot = s % r.cached;
  if (r.cache_lines[slot] == s) return r.cache_rows[slot];
  void **source = nullptr;
  void **dest = r.cache_rows[slot];
  r.cache_lines[slot] = s;
  if (forward(&r.header, r.source_bottom + s, &source) < 0 || source == nullptr) {
    for (int32_t c = 0; c < r.channels; ++c) std::memset(dest[c], 0, sizeof(float) * static_cast<std::size_t>(r.x.size));
    return dest;
  }
  for (int32_t c = 0; c < r.channels; ++c) {
    const float *in = static_cast<const float *>(source[c]);
    float *out = static_cast<float *>(dest[c]);
    for (int32_t j = 0; j < r.x.size; ++j) {
      const float *w = r.x.weights + static_cast<std::size_t>(j) * r.x.taps;
      const int32_t *at = r.x.index + static_cast<std::size_t>(j) * r.x.taps;
      float v = 0.0f;
      for (int32_t t = 0; t < r.x.count[j]; ++t) v += w[t] * in[at[t]];
      out[j] = v;
    }
  }
  return dest;
}

int scale_scan(void *data, int32_t line, void *rows) {
  if (data == nullptr) return locked();
  ScaleRecord &r = *static_cast<ScaleRecord *>(data);
  const int32_t i = line - r.window.bottom;
  if (i < 0 || i >= r.y.size) return orx__err = ORX_E_BAD_SCANLINE;
  for (int32_t c = 0; c < r.channels; ++c)
    std::memset(r.out[c], 0, sizeof(float) * static_cast<std::size_t>(r.x.size));
  const float *w = r.y.weights + static_cast<std::size_t>(i) * r.y.taps;
  const int32_t *at = r.y.index + static_cast<std::size_t>(i) * r.y.taps;
  for (int32_t t = 0; t < r.y.count[i]; ++t) {
    void **row = scaled_row(r, at[t]);
    for (int32_t c = 0; c < r.channels; ++c) {
      float *out = static_cast<float *>(r.out[c]);
      const float *in = static_cast<const float *>(row[c]);
      for (int32_t j = 0; j < r.x.size; ++j) out[j] += w[t] * in[j];
    }
  }
  *static_cast<void ***>(rows) = r.out;
  return 0;
}

void free_record(ScaleRecord *r) {
  free_axis(r->x);
  free_axis(r->y);
  for (int32_t i = 0; i < r->cached; ++i) orx__chan_free(r->cache_rows[i]);
  orx__chan_free(r->out);
  ERR_free(r);
}

void release(ORX_OBJECT *handle, LayerHeader *header) {
  auto *r = reinterpret_cast<ScaleRecord *>(header);
  handle->info.images[0].window = r->window;
  handle->info.images[0].active = r->active;
  const bool pushed_cast = r->pushed_cast;
  free_record(r);
  if (pushed_cast) orx__cast_remove(handle);
}

int scale_close(ORX_OBJECT *handle, intptr_t argument) {
  return close_layer(handle, argument, scale_close, release);
}

}  // namespace
}  // namespace orx::operators

using namespace orx::operators;

extern "C" {

ORX_OBJECT *orx__scale_operator(ORX_OBJECT *handle, float x0, float y0, float x1, float y1,
                                int32_t width, int32_t height) {
  orx__err = 0;
  if (!has_image(handle) || handle->access != ORX_ACCESS_READ) return handle;
  if (!(x1 > x0) || !(y1 > y0) || width < 1 || height < 1 || !std::isfinite(x0 + y0 + x1 + y1)) {
    orx__err = ORX_E_DIMENSIONS;
    return handle;
  }
  ORX_IFD &d = handle->info.images[0];
  // More source lines per destination line than the cache can hold: the
  // filter of the resampling family is the tool for such reductions.
  if ((double(y1) - y0) / height > 62.0) {
    orx__err = ORX_E_DIMENSIONS;
    return handle;
  }
  const ORX_SCAN_FN before = handle->scan;
  if (install_cast(handle) != 0) return handle;
  const bool pushed_cast = handle->scan != before;
  auto *r = new_record<ScaleRecord>();
  if (r == nullptr) {
    if (pushed_cast) orx__cast_remove(handle);
    orx__err = ORX_E_NO_MEMORY;
    return handle;
  }
  r->pushed_cast = pushed_cast;
  r->window = d.window;
  r->active = d.active;
  r->source_width = d.window.right - d.window.left + 1;
  r->source_height = d.window.top - d.window.bottom + 1;
  r->source_bottom = d.window.bottom;
  r->channels = (d.image.count > 0 ? d.image.count : 0) + (d.matte.count > 0 ? d.matte.count : 0) +
                (d.aux.count > 0 ? d.aux.count : 0);
  bool ok = make_axis(r->x, x0, x1, r->source_width, width) &&
            make_axis(r->y, y0, y1, r->source_height, height);
  r->cached = ok ? r->y.taps + 1 : 0;
  for (int32_t i = 0; ok && i < r->cached; ++i) {
    r->cache_lines[i] = -1;
    ok = (r->cache_rows[i] = orx__chan_alloc(&d, width, "scale operator")) != nullptr;
  }
  if (ok) ok = (r->out = orx__chan_alloc(&d, width, "scale operator")) != nullptr;
  if (!ok) {
    const bool reported = orx::err::last_status() != ORX_E_NO_MEMORY;
    free_record(r);
    if (pushed_cast) orx__cast_remove(handle);
    if (!reported) no_memory();
    orx__err = ORX_E_NO_MEMORY;
    return handle;
  }
  d.window = d.active = ORX_WINDOW{0, width - 1, 0, height - 1};
  push(handle, &r->header, kScale, scale_scan, scale_close);
  return handle;
}

int orx__scale_remove(ORX_OBJECT *handle) { return remove(handle, scale_close, release); }

}  // extern "C"
