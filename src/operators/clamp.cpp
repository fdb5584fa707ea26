// The gamut clamp operator: float or double image samples of the active
// window clipped to 0..1, or, for premultiplied "rgb", pulled toward their
// grey level until they fit under the matte, keeping their hue.
#include <cstring>
#include <initializer_list>

#include "operators/convert.hpp"
#include "operators/layer.hpp"
#include "orx/err.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

using ClampFn = void (*)(void **rows, int32_t x0, int32_t n, int32_t image, int32_t extra);

struct ClampRecord {
  LayerHeader header;
  Span span;
  int32_t image_count;
  int32_t extra_count;  // matte plus auxiliary
  ClampFn clamp;
};

template <class T>
void clip(T &v) {
  if (v < T(0)) v = T(0);
  if (v > T(1)) v = T(1);
}

// Pull r, g, b toward their grey level until they lie within 0..a.
template <class T>
void fit_under(T &r, T &g, T &b, T a) {
  if (a == T(0)) {
    r = g = b = T(0);
    return;
  }
  const auto outside = [a](T v) { return v < T(0) || v > a; };
  if (!outside(r) && !outside(g) && !outside(b)) return;
  const T grey = (r + g + b) * T(0.3333333);  // the decimal, in the image's precision
  if (grey <= T(0)) {
    r = g = b = T(0);
    return;
  }
  if (grey > a) {
    r = g = b = a;
    return;
  }
  T t = T(1);
  for (const T v : {r, g, b}) {
    if (v > a) {
      const T s = (a - grey) / (v - grey);
      t = s < t ? s : t;
    } else if (v < T(0)) {
      const T s = (T(0) - grey) / (v - grey);
      t = s < t ? s : t;
    }
  }
  for (T *v : {&r, &g, &b}) *v = (*v - grey) * t + grey;
}

// Samples of one pixel: row c at x (one row per channel), or sample c of
// pixel x of row 0 (interleaved, stride samples per pixel).
template <class T, bool Interleaved>
struct Pixels {
  void **rows;
  int32_t stride;
  void *at(int32_t c, int32_t x) const {
    const std::size_t index = Interleaved ? static_cast<std::size_t>(x) * stride + c : x;
    return static_cast<unsigned char *>(rows[Interleaved ? 0 : c]) + index * sizeof(T);
  }
  T get(int32_t c, int32_t x) const { return load_at<T>(at(c, x), 0); }
  void set(int32_t c, int32_t x, T v) const { store_at<T>(at(c, x), 0, v); }
};

// fit_under over rows of one channel each, written as selections so that
// the loop vectorises: every lane computes what fit_under computes, in the
// same order and precision, and keeps the case that applies to it.
// (The samples move through memcpy written out here: a helper built
// without that assumption would not be inlined into the loop.)
template <class T>
ORX_SELECT_KERNEL void fit_rows(void *red, void *green, void *blue, const void *matte, int32_t x0, int32_t n) {
  unsigned char *const rows[3] = {static_cast<unsigned char *>(red), static_cast<unsigned char *>(green),
                                  static_cast<unsigned char *>(blue)};
  const auto *mattes = static_cast<const unsigned char *>(matte);
  for (auto x = static_cast<std::size_t>(x0); x < static_cast<std::size_t>(x0) + static_cast<std::size_t>(n); ++x) {
    T a, v[3];
    std::memcpy(&a, mattes + x * sizeof(T), sizeof(T));
    bool over[3], out[3];
    for (int c = 0; c < 3; ++c) {
      std::memcpy(&v[c], rows[c] + x * sizeof(T), sizeof(T));
      over[c] = v[c] > a;
      out[c] = over[c] | (v[c] < T(0));
    }
    const T grey = (v[0] + v[1] + v[2]) * T(0.3333333);
    T t = T(1);
    for (int c = 0; c < 3; ++c) {
      const T s = (over[c] ? a - grey : T(0) - grey) / (v[c] - grey);
      t = out[c] & (s < t) ? s : t;
    }
    const bool keep = !(out[0] | out[1] | out[2]) & (a != T(0));
    const bool black = (a == T(0)) | (grey <= T(0));
    const bool under = grey > a;
    for (int c = 0; c < 3; ++c) {
      T w = (v[c] - grey) * t + grey;
      w = under ? a : w;
      w = black ? T(0) : w;
      w = keep ? v[c] : w;
      std::memcpy(rows[c] + x * sizeof(T), &w, sizeof(T));
    }
  }
}

template <class T, bool Interleaved, bool Premultiplied>
void clamp_rows(void **rows, int32_t x0, int32_t n, int32_t image, int32_t extra) {
  if constexpr (Premultiplied && !Interleaved) return fit_rows<T>(rows[0], rows[1], rows[2], rows[image], x0, n);
  const Pixels<T, Interleaved> p{rows, image + extra};
  for (int32_t x = x0; x < x0 + n; ++x) {
    if constexpr (Premultiplied) {
      T r = p.get(0, x), g = p.get(1, x), b = p.get(2, x);
      fit_under(r, g, b, p.get(image, x));
      p.set(0, x, r);
      p.set(1, x, g);
      p.set(2, x, b);
    } else {
      for (int32_t c = 0; c < image; ++c) {
        T v = p.get(c, x);
        clip(v);
        p.set(c, x, v);
      }
    }
  }
}

template <class T>
ClampFn choose(bool rgb, int32_t layout) {
  if (layout == 0) return rgb ? clamp_rows<T, true, true> : clamp_rows<T, true, false>;
  if (layout == 1) return rgb ? clamp_rows<T, false, true> : clamp_rows<T, false, false>;
  return nullptr;
}

int clamp_read_rows(ClampRecord &r, int32_t line, void ***rows, int status) {
  if (r.span.active(line)) r.clamp(*rows, r.span.x_offset, r.span.active_width, r.image_count, r.extra_count);
  return status;
}

int clamp_write_rows(ClampRecord &r, int32_t line, void *rows) {
  if (r.span.active(line))
    r.clamp(static_cast<void **>(rows), r.span.x_offset, r.span.active_width, r.image_count, r.extra_count);
  return forward(&r.header, line, rows);
}

void release(ORX_OBJECT *, LayerHeader *header) { ERR_free(header); }

using Layer = Kind<release>;

}  // namespace
}  // namespace orx::operators

using namespace orx::operators;

extern "C" {

ORX_OBJECT *orx__clamp_operator(ORX_OBJECT *handle) {
  return orx::operators::install_clamp(handle, true);
}

}  // extern "C"

namespace orx::operators {

ORX_OBJECT *install_clamp(ORX_OBJECT *handle, bool needs_matte) {
  orx__err = 0;
  if (!has_image(handle)) return handle;
  const ORX_IFD &d = handle->info.images[0];
  if (d.image.type == ORX_C_INTEGER || d.image.count == 0 ||
      (needs_matte && (d.matte.type == ORX_C_INTEGER || d.matte.count == 0)))
    return handle;
  const bool rgb = d.image.name != nullptr && std::strcmp(d.image.name, "rgb") == 0 &&
                   d.matte.count > 0;  // premultiplied by the matte, when there is one
  // The premultiplied clamp needs the three colours and the matte.
  const ClampFn clamp = rgb && d.image.count < 3 ? nullptr
                        : d.image.type == ORX_C_DOUBLE ? choose<double>(rgb, d.pixel_flags)
                        : d.image.type == ORX_C_FLOAT  ? choose<float>(rgb, d.pixel_flags)
                                                       : nullptr;
  if (clamp == nullptr) return handle;  // no such layout: the layer would come off at once
  auto *r = new_record<ClampRecord>();
  if (r == nullptr) return handle;
  r->span = span_of(d);
  r->image_count = d.image.count;
  r->extra_count = d.matte.count + (d.aux.count > 0 ? d.aux.count : 0);
  r->clamp = clamp;
  push(handle, &r->header, kClamp,
       handle->access == ORX_ACCESS_READ ? read_scan<ClampRecord, clamp_read_rows>
                                          : scan<ClampRecord, clamp_write_rows>,
       Layer::close);
  return handle;
}

}  // namespace orx::operators

extern "C" {

int orx__clamp_remove(ORX_OBJECT *handle) { return Layer::remove(handle); }

}  // extern "C"
