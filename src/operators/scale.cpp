// The scale operator: a source rectangle in float coordinates (sub-pixel pan
// and crop) resized to a destination size, for display and zoom.  Each axis
// on its own: minifying averages the source area each destination pixel
// covers (no shimmer when panning by fractions of a pixel), magnifying
// interpolates linearly between source pixel centres (no ringing).
#include <cmath>
#include <cstring>
#include <initializer_list>

#include "operators/layer.hpp"
#include "operators/resample_engine.hpp"
#include "orx/err.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

constexpr int32_t kScale = 32;

// The weights of every destination pixel along one axis, as the shared
// engine's table: the source pixels each covers (clamped to the image, so
// the edges repeat; a clamped pixel's weight joins the edge pixel's).
bool make_axis(TapTable &a, float start, float end, int32_t source, int32_t size) {
  const double step = (double(end) - start) / size;
  const int32_t taps = step >= 1.0 ? static_cast<int32_t>(std::ceil(step)) + 1 : 2;
  if (!tap_table_alloc(a, size, taps, source)) return false;
  const auto clamp = [source](int64_t i) { return static_cast<int32_t>(i < 0 ? 0 : i >= source ? source - 1 : i); };
  int32_t at[2];
  float w[2];
  for (int32_t j = 0; j < size; ++j) {
    float *weights = a.weights + static_cast<std::size_t>(j) * static_cast<std::size_t>(a.stride);
    int32_t first = -1, last = -1;
    const auto add = [&](int32_t i, float weight) {
      if (first < 0) first = i;  // indices never decrease along a pixel
      weights[i - first] += weight;
      last = i;
    };
    if (step >= 1.0) {  // the covered interval, each source pixel by its overlap
      const double lo = start + j * step, hi = lo + step;
      const auto i0 = static_cast<int64_t>(std::floor(lo));
      int32_t n = 0;
      for (int64_t i = i0; static_cast<double>(i) < hi && n < taps; ++i) {
        const double overlap = std::fmin(hi, double(i + 1)) - std::fmax(lo, double(i));
        if (overlap <= 0.0) continue;
        add(clamp(i), static_cast<float>(overlap / step));
        ++n;
      }
    } else {  // linear between the two nearest source pixel centres
      const double u = start + (j + 0.5) * step - 0.5;
      const double f = std::floor(u);
      const auto fraction = static_cast<float>(u - f);
      at[0] = clamp(static_cast<int64_t>(f));
      at[1] = clamp(static_cast<int64_t>(f) + 1);
      w[0] = 1.0f - fraction;
      w[1] = fraction;
      for (int k = 0; k < 2; ++k) add(at[k], w[k]);
    }
    a.first[j] = first < 0 ? 0 : first;
    a.used[j] = first < 0 ? 0 : last - first + 1;
  }
  tap_table_finish(a);
  return true;
}

struct ScaleRecord {
  LayerHeader header;
  ORX_WINDOW window, active;
  int32_t source_width, source_height, source_bottom;
  int32_t channels;
  TapTable x, y;
  const float *tap_rows[64];  // one channel's rows of an output line
  float tap_weights[64];
  int32_t tap_lines[64];
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
    for (int32_t c = 0; c < r.channels; ++c) std::memset(dest[c], 0, sizeof(float) * static_cast<std::size_t>(r.x.count));
    return dest;
  }
  row_kernels().horizontal(r.x, source, dest, r.channels);
  return dest;
}

int scale_scan(void *data, int32_t line, void *rows) {
  if (data == nullptr) return locked();
  ScaleRecord &r = *static_cast<ScaleRecord *>(data);
  const int32_t i = line - r.window.bottom;
  if (i < 0 || i >= r.y.count) return orx__err = ORX_E_BAD_SCANLINE;
  const float *w = r.y.weights + static_cast<std::size_t>(i) * static_cast<std::size_t>(r.y.stride);
  // The source lines with a weight, each scaled across first (which may
  // read it); at most the cache's size minus one of them.
  int32_t n = 0;
  for (int32_t k = 0; k < r.y.used[i]; ++k)
    if (w[k] != 0.0f) {
      r.tap_lines[n] = r.y.first[i] + k;
      r.tap_weights[n++] = w[k];
    }
  void **scaled[64];
  for (int32_t k = 0; k < n; ++k) scaled[k] = scaled_row(r, r.tap_lines[k]);
  const VerticalKernel vertical = row_kernels().vertical;
  for (int32_t c = 0; c < r.channels; ++c) {
    for (int32_t k = 0; k < n; ++k) r.tap_rows[k] = static_cast<const float *>(scaled[k][c]);
    vertical(r.tap_rows, r.tap_weights, n, r.x.count, 1.0f, false, static_cast<float *>(r.out[c]));
  }
  *static_cast<void ***>(rows) = r.out;
  return 0;
}

void free_record(ScaleRecord *r) {
  tap_table_free(r->x);
  tap_table_free(r->y);
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
  undo_cast(handle, pushed_cast);
}

using Layer = Kind<release>;

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
  const CastBelow cast(handle);
  if (!cast.ok()) return handle;  // reported
  auto *r = new_record<ScaleRecord>();
  if (r == nullptr) {
    undo_cast(handle, cast.pushed());
    orx__err = ORX_E_NO_MEMORY;
    return handle;
  }
  r->pushed_cast = cast.pushed();
  r->window = d.window;
  r->active = d.active;
  r->source_width = d.window.right - d.window.left + 1;
  r->source_height = d.window.top - d.window.bottom + 1;
  r->source_bottom = d.window.bottom;
  r->channels = channel_count(d);
  bool ok = make_axis(r->x, x0, x1, r->source_width, width) &&
            make_axis(r->y, y0, y1, r->source_height, height);
  // A line's taps span at most ceil(step) + 1 source lines: with one more
  // the cache never evicts a row the same line still needs.
  r->cached = 0;
  for (int32_t i = 0; ok && i < r->y.count; ++i) r->cached = r->cached > r->y.used[i] ? r->cached : r->y.used[i];
  r->cached = ok ? r->cached + 1 : 0;
  for (int32_t i = 0; ok && i < r->cached; ++i) {
    r->cache_lines[i] = -1;
    ok = (r->cache_rows[i] = float_rows(d, width, "scale operator")) != nullptr;
  }
  if (ok) ok = (r->out = float_rows(d, width, "scale operator")) != nullptr;
  if (!ok) {  // reported by the allocator that failed
    free_record(r);
    undo_cast(handle, cast.pushed());
    orx__err = ORX_E_NO_MEMORY;
    return handle;
  }
  d.window = d.active = ORX_WINDOW{0, width - 1, 0, height - 1};
  push(handle, &r->header, kScale, scale_scan, Layer::close);
  return handle;
}

int orx__scale_remove(ORX_OBJECT *handle) { return Layer::remove(handle); }

}  // extern "C"
