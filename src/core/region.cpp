// ORX_get_region: a rectangle of an image into one packed pixel array.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <type_traits>

#include "err/messages.hpp"
#include "orx/err.h"
#include "orx/region.h"
#include "orx/registry.h"
#include "platform/platform.hpp"

namespace orx::core {
namespace {

// Scaling of one sample.  A factor of one (8-bit samples into 8-bit
// outputs, 16 into 16) copies; a whole factor (8 into 16 bits: 257, narrow
// samples into 8 bits: 17, 85, 255) multiplies in 16 bits, which is exact
// since the product never exceeds the output's full value and lets SIMD
// multiply in narrow lanes; any other factor multiplies in single precision
// and truncates towards zero.
struct Identity {
  std::uint16_t operator()(std::uint16_t v) const { return v; }
};
struct WholeScale {
  std::uint16_t k;
  std::uint16_t operator()(std::uint16_t v) const { return static_cast<std::uint16_t>(v * k); }
};
struct FloatScale {
  float f;
  std::uint32_t operator()(float v) const { return static_cast<std::uint32_t>(v * f); }
};

// Converts n pixels: Comps output components of type Out from colour
// sources of type C (channels 0, 1, 2) and an alpha source of type A (void:
// no matte, alpha is full).  Sources and factors are fixed before the row
// loop, so the loop only loads, scales and stores, one store per component:
// the form compilers turn into SIMD interleaves, faster here than packing
// each pixel into one wide word.  Source rows are aligned for their sample
// type; the caller's buffer need not be, so components are stored through
// memcpy.  Values beyond the output's range (an alpha taken from a fourth
// colour channel wider than the mattes) keep their low bits.
template <class Out, int Comps, class C, class A, class Scale>
void convert(std::uint8_t *__restrict__ out, const void *const *src, int n, Scale fc, Scale fa) {
  constexpr std::uint32_t kFull = sizeof(Out) == 1 ? 255u : 65535u;
  using V = std::conditional_t<std::is_same_v<Scale, FloatScale>, float, std::uint16_t>;
  using Alpha = std::conditional_t<std::is_void_v<A>, C, A>;
  const C *__restrict__ r = static_cast<const C *>(src[0]);
  const C *__restrict__ g = static_cast<const C *>(src[1]);
  const C *__restrict__ b = static_cast<const C *>(src[2]);
  const Alpha *__restrict__ a = static_cast<const Alpha *>(src[3]);
  auto put = [](std::uint8_t *p, std::uint32_t v) {
    const auto o = static_cast<Out>(v);
    std::memcpy(p, &o, sizeof o);
  };
  for (int i = 0; i < n; ++i) {
    std::uint8_t *px = out + static_cast<std::size_t>(i) * (Comps * sizeof(Out));
    put(px, fc(static_cast<V>(r[i])));
    if constexpr (Comps >= 3) {
      put(px + sizeof(Out), fc(static_cast<V>(g[i])));
      put(px + 2 * sizeof(Out), fc(static_cast<V>(b[i])));
    }
    if constexpr (Comps == 4) {
      if constexpr (std::is_void_v<A>)
        put(px + 3 * sizeof(Out), kFull);
      else
        put(px + 3 * sizeof(Out), fa(static_cast<V>(a[i])));
    }
  }
}

struct Factors {
  float colour, alpha;
};

using RowFn = void (*)(std::uint8_t *, const void *const *, int, Factors);

template <class Out, int Comps, class C, class A>
void convert_row(std::uint8_t *out, const void *const *src, int n, Factors f) {
  auto whole = [](float k) { return k == static_cast<float>(static_cast<std::uint16_t>(k)); };
  // Without a matte the alpha factor is 0 and unused.
  if (f.colour == 1.0f && (f.alpha == 1.0f || f.alpha == 0.0f))
    convert<Out, Comps, C, A>(out, src, n, Identity{}, Identity{});
  else if (whole(f.colour) && whole(f.alpha))
    convert<Out, Comps, C, A>(out, src, n, WholeScale{static_cast<std::uint16_t>(f.colour)},
                              WholeScale{static_cast<std::uint16_t>(f.alpha)});
  else
    convert<Out, Comps, C, A>(out, src, n, FloatScale{f.colour}, FloatScale{f.alpha});
}

template <class Out, int Comps, class C>
RowFn pick_alpha(int alpha_bytes) {
  if (alpha_bytes == 0) return convert_row<Out, Comps, C, void>;
  return alpha_bytes == 1 ? convert_row<Out, Comps, C, std::uint8_t>
                          : convert_row<Out, Comps, C, std::uint16_t>;
}

template <class Out, int Comps>
RowFn pick(int colour_bytes, int alpha_bytes) {
  return colour_bytes == 1 ? pick_alpha<Out, Comps, std::uint8_t>(alpha_bytes)
                           : pick_alpha<Out, Comps, std::uint16_t>(alpha_bytes);
}

struct Layout {
  int code;
  int bytes;  // per pixel
  int comps;
  bool wide;  // 16-bit components
};

constexpr Layout kLayouts[] = {
    {ORX_REGION_GREY16, 2, 1, true}, {ORX_REGION_RGBA16, 8, 4, true},
    {ORX_REGION_RGBA8, 4, 4, false}, {ORX_REGION_GREY8, 1, 1, false},
    {ORX_REGION_RGB8, 3, 3, false},
};

RowFn row_function(const Layout &l, int colour_bytes, int alpha_bytes) {
  if (l.wide)
    return l.comps == 1 ? pick<std::uint16_t, 1>(colour_bytes, 0)
                        : pick<std::uint16_t, 4>(colour_bytes, alpha_bytes);
  if (l.comps == 1) return pick<std::uint8_t, 1>(colour_bytes, 0);
  return l.comps == 3 ? pick<std::uint8_t, 3>(colour_bytes, 0)
                      : pick<std::uint8_t, 4>(colour_bytes, alpha_bytes);
}

// Named by the object's type as the registry knows it: its name, else the
// key (an unknown key is reported too).
int refuse(const ORX_OBJECT *object) {
  const char *key = object->info.type;
  if (key == nullptr && object->format != nullptr) key = object->format->key;
  const char *who = key != nullptr ? ORX_name_from_key(key) : nullptr;
  return fail(ORX_E_UNSUPPORTED, Msg::kCannotHandleRequest, who != nullptr ? who : "rla");
}

bool convertible(const ORX_CHANNELS &g) {
  return g.type == ORX_C_INTEGER && g.bits >= 1 && g.bits <= 16;
}

}  // namespace
}  // namespace orx::core

extern "C" int ORX_get_region(ORX_OBJECT **objectp, int32_t x_left, int32_t x_right,
                              int32_t y_bottom, int32_t y_top, void *buffer, int32_t stride,
                              int32_t layout) {
  using namespace orx::core;
  if (objectp == nullptr || *objectp == nullptr || buffer == nullptr)
    return orx::fail(ORX_E_FIELD_MISSING, orx::Msg::kFieldMissing, "object");
  ORX_OBJECT *object = *objectp;
  orx__err = 0;
  if (object->region != nullptr) {
    auto &lock = *static_cast<orx::platform::Mutex *>(object->lock);
    orx::platform::Lock hold(lock);
    void *data = object->private_cell != nullptr ? object->private_cell[0] : nullptr;
    object->region(data, x_left, x_right, y_bottom, y_top, buffer, stride, layout);
    return orx::err::last_status();
  }
  const Layout *l = std::find_if(std::begin(kLayouts), std::end(kLayouts),
                                 [&](const Layout &k) { return k.code == layout; });
  if (l == std::end(kLayouts) || object->info.image_count < 1 || object->info.images == nullptr)
    return refuse(object);
  const ORX_IFD &ifd = object->info.images[0];
  const int colours = ifd.image.count;
  const bool has_alpha = l->comps == 4 && ifd.matte.count > 0;
  // The alpha source: the first matte, or the fourth colour channel of images
  // with four or more (kept so, as hosts of older releases expect).
  const int alpha_channel = std::min(colours, 3);
  const ORX_CHANNELS &alpha_group = colours >= 4 ? ifd.image : ifd.matte;
  const int src[4] = {0, colours >= 2 ? 1 : 0, colours >= 3 ? 2 : 0, alpha_channel};
  // Channels the conversion cannot take are refused only after the zeros
  // around the active window are written and the first line is sought.
  const bool unconvertible =
      colours < 1 || !convertible(ifd.image) || (has_alpha && !convertible(alpha_group));
  const float full = l->wide ? 65535.0f : 255.0f;
  const auto factor = [&](const ORX_CHANNELS &g) {
    return g.bits < 1 || g.bits > 31 ? 0.0f : full / static_cast<float>((1u << g.bits) - 1u);
  };
  const float fc = factor(ifd.image);
  const float fa = has_alpha ? factor(ifd.matte) : 0.0f;
  const int colour_bytes = ifd.image.bits <= 8 ? 1 : 2;
  const int alpha_bytes = !has_alpha ? 0 : alpha_group.bits <= 8 ? 1 : 2;
  const RowFn row_fn = row_function(*l, colour_bytes, alpha_bytes);

  const auto width = static_cast<std::int64_t>(x_right) - x_left + 1;
  const std::int64_t row_bytes = stride == -1 ? width * l->bytes : stride;
  const std::int64_t rows = static_cast<std::int64_t>(y_top) - y_bottom + 1;
  if (width <= 0 || rows <= 0 || row_bytes < width * l->bytes) return refuse(object);
  auto *out = static_cast<std::uint8_t *>(buffer);
  const ORX_WINDOW &a = ifd.active;
  if (y_top < a.bottom || y_bottom > a.top || x_right < a.left || x_left > a.right) {
    std::memset(out, 0, static_cast<std::size_t>(rows * row_bytes));
    return 0;
  }
  const int32_t x0 = std::max(x_left, a.left), x1 = std::min(x_right, a.right);
  const int32_t y0 = std::max(y_bottom, a.bottom), y1 = std::min(y_top, a.top);
  if (x_left < a.left || x_right > a.right) {
    std::memset(out, 0, static_cast<std::size_t>(rows * row_bytes));
  } else {
    for (int32_t y = y_bottom; y < y0; ++y)
      std::memset(out + (y - y_bottom) * row_bytes, 0, static_cast<std::size_t>(row_bytes));
    for (int32_t y = y1 + 1; y <= y_top; ++y)
      std::memset(out + (y - y_bottom) * row_bytes, 0, static_cast<std::size_t>(row_bytes));
  }

  const bool upwards = (ifd.orientation & 1) != 0;
  const int32_t first = upwards ? y0 : y1;
  if (int status = ORX_seek(objectp, first); status != 0) return status;
  object = *objectp;
  if (unconvertible) return refuse(object);
  const std::size_t skip = static_cast<std::size_t>(x0 - object->info.images[0].window.left);
  for (int32_t k = 0; k <= y1 - y0; ++k) {
    const int32_t y = upwards ? y0 + k : y1 - k;
    void **channels = nullptr;
    if (int status = ORX_scan_read(object, y, &channels); status != 0) return status;
    const void *sources[4];
    for (int c = 0; c < 4; ++c) {
      const int bytes = c == 3 ? alpha_bytes : colour_bytes;
      sources[c] = (c == 3 && !has_alpha)
                       ? nullptr
                       : static_cast<const std::uint8_t *>(channels[src[c]]) + skip * bytes;
    }
    row_fn(out + (y - y_bottom) * row_bytes + (x0 - x_left) * l->bytes, sources, x1 - x0 + 1,
           Factors{fc, fa});
  }
  orx__err = 0;
  return 0;
}
