// Channel rows to and from float, for the texture code: one template over
// the stored sample type, chosen per channel once.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "operators/convert.hpp"
#include "orx/orx.h"

namespace orx::texture {

// How one channel's samples are stored in a row of the channel buffer.
struct SampleKind {
  int32_t type = ORX_C_INTEGER;  // ORX_C_INTEGER, ORX_C_FLOAT or ORX_C_DOUBLE
  int32_t bits = 8;              // integer width
};

using operators::load_at;
using operators::store_at;

// The loops below are built for AVX2 as well (ORX_ROW_KERNEL); Step 1 is
// their contiguous form, which vectorises, any other the strided one.

// Integer samples of width bits in a T, as value / (2^bits - 1).
template <class T, bool Contiguous>
ORX_ROW_KERNEL void integers_to_float(const void *row, int32_t bits, float *out, int32_t n,
                                      int32_t step) {
  const std::size_t s = Contiguous ? 1 : static_cast<std::size_t>(step);
  const double scale = 1.0 / static_cast<double>((uint64_t{1} << bits) - 1);
  for (int32_t x = 0; x < n; ++x)
    out[static_cast<std::size_t>(x) * s] = static_cast<float>(load_at<T>(row, static_cast<std::size_t>(x)) * scale);
}

template <class T, bool Contiguous>
ORX_ROW_KERNEL void float_to_integers(const float *in, int32_t step, int32_t bits, void *row, int32_t n) {
  const std::size_t s = Contiguous ? 1 : static_cast<std::size_t>(step);
  const double top = static_cast<double>((uint64_t{1} << bits) - 1);
  for (int32_t x = 0; x < n; ++x) {
    double v = in[static_cast<std::size_t>(x) * s];
    if constexpr (sizeof(T) < 4) {
      // A float times a code of up to 16 bits is exact in double, so the
      // clamp may follow the scaling: in this form the loop has no branches.
      const double low = 0.5, high = top + 0.5;
      v = v * top + low;
      v = v < low ? low : v;
      v = v > high ? high : v;
      store_at<T>(row, static_cast<std::size_t>(x), static_cast<T>(v == v ? static_cast<int32_t>(v) : 0));
    } else {
      v = v < 0.0 ? 0.0 : v > 1.0 ? 1.0 : v;
      store_at<T>(row, static_cast<std::size_t>(x), static_cast<T>(v * top + 0.5));
    }
  }
}

template <class T, bool Contiguous>
ORX_ROW_KERNEL void reals_to_float(const void *row, float *out, int32_t n, int32_t step) {
  const std::size_t s = Contiguous ? 1 : static_cast<std::size_t>(step);
  for (int32_t x = 0; x < n; ++x)
    out[static_cast<std::size_t>(x) * s] = static_cast<float>(load_at<T>(row, static_cast<std::size_t>(x)));
}

template <class T, bool Contiguous>
ORX_ROW_KERNEL void float_to_reals(const float *in, int32_t step, void *row, int32_t n) {
  const std::size_t s = Contiguous ? 1 : static_cast<std::size_t>(step);
  for (int32_t x = 0; x < n; ++x)
    store_at<T>(row, static_cast<std::size_t>(x), static_cast<T>(in[static_cast<std::size_t>(x) * s]));
}

template <bool Contiguous>
void row_to_float_of(SampleKind k, const void *row, float *out, int32_t n, int32_t step) {
  if (k.type == ORX_C_FLOAT) return reals_to_float<float, Contiguous>(row, out, n, step);
  if (k.type == ORX_C_DOUBLE) return reals_to_float<double, Contiguous>(row, out, n, step);
  if (k.bits <= 8) return integers_to_float<uint8_t, Contiguous>(row, k.bits, out, n, step);
  if (k.bits <= 16) return integers_to_float<uint16_t, Contiguous>(row, k.bits, out, n, step);
  integers_to_float<uint32_t, Contiguous>(row, k.bits, out, n, step);
}

template <bool Contiguous>
void float_to_row_of(SampleKind k, const float *in, int32_t step, void *row, int32_t n) {
  if (k.type == ORX_C_FLOAT) return float_to_reals<float, Contiguous>(in, step, row, n);
  if (k.type == ORX_C_DOUBLE) return float_to_reals<double, Contiguous>(in, step, row, n);
  if (k.bits <= 8) return float_to_integers<uint8_t, Contiguous>(in, step, k.bits, row, n);
  if (k.bits <= 16) return float_to_integers<uint16_t, Contiguous>(in, step, k.bits, row, n);
  float_to_integers<uint32_t, Contiguous>(in, step, k.bits, row, n);
}

// n samples of one channel row into out[0], out[step], ...
inline void row_to_float(SampleKind k, const void *row, float *out, int32_t n, int32_t step) {
  if (step == 1) return row_to_float_of<true>(k, row, out, n, step);
  row_to_float_of<false>(k, row, out, n, step);
}

// The reverse, rounding and clamping to the integer range.
inline void float_to_row(SampleKind k, const float *in, int32_t step, void *row, int32_t n) {
  if (step == 1) return float_to_row_of<true>(k, in, step, row, n);
  float_to_row_of<false>(k, in, step, row, n);
}

// Whether row_to_float then float_to_row gives every sample of k back as it
// was: floats, and integer codes of up to 16 bits.
inline bool round_trips(SampleKind k) {
  return k.type == ORX_C_FLOAT || (k.type == ORX_C_INTEGER && k.bits >= 1 && k.bits <= 16);
}

// The kinds of the image and matte channels of a descriptor, in buffer
// order; their number (at most max).
inline int32_t colour_channels(const ORX_IFD &ifd, SampleKind *kinds, int32_t max) {
  int32_t n = 0;
  for (const ORX_CHANNELS *g : {&ifd.image, &ifd.matte})
    for (int32_t c = 0; c < g->count && n < max; ++c) kinds[n++] = SampleKind{g->type, g->bits};
  return n;
}

}  // namespace orx::texture
