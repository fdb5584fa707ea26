// Channel rows to and from float, for the texture code: one template over
// the stored sample type, chosen per channel once.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "orx/orx.h"

namespace orx::texture {

// How one channel's samples are stored in a row of the channel buffer.
struct SampleKind {
  int32_t type = ORX_C_INTEGER;  // ORX_C_INTEGER, ORX_C_FLOAT or ORX_C_DOUBLE
  int32_t bits = 8;              // integer width
};

template <class T>
T load(const unsigned char *p) {
  T v;
  std::memcpy(&v, p, sizeof v);  // rows are only 2-byte aligned
  return v;
}

template <class T>
void store(unsigned char *p, T v) {
  std::memcpy(p, &v, sizeof v);
}

// Integer samples of width bits in a T, as value / (2^bits - 1).
template <class T>
void integers_to_float(const unsigned char *row, int32_t bits, float *out, int32_t n, int32_t step) {
  const double scale = 1.0 / static_cast<double>((uint64_t{1} << bits) - 1);
  for (int32_t x = 0; x < n; ++x)
    out[static_cast<std::size_t>(x) * step] =
        static_cast<float>(load<T>(row + static_cast<std::size_t>(x) * sizeof(T)) * scale);
}

template <class T>
void float_to_integers(const float *in, int32_t step, int32_t bits, unsigned char *row, int32_t n) {
  const double top = static_cast<double>((uint64_t{1} << bits) - 1);
  for (int32_t x = 0; x < n; ++x) {
    double v = in[static_cast<std::size_t>(x) * step];
    if constexpr (sizeof(T) < 4) {
      // A float times a code of up to 16 bits is exact in double, so the
      // clamp may follow the scaling: in this form the loop has no branches.
      const double low = 0.5, high = top + 0.5;
      v = v * top + low;
      v = v < low ? low : v;
      v = v > high ? high : v;
      store<T>(row + static_cast<std::size_t>(x) * sizeof(T), static_cast<T>(v == v ? static_cast<int32_t>(v) : 0));
    } else {
      v = v < 0.0 ? 0.0 : v > 1.0 ? 1.0 : v;
      store<T>(row + static_cast<std::size_t>(x) * sizeof(T), static_cast<T>(v * top + 0.5));
    }
  }
}

template <class T>
void reals_to_float(const unsigned char *row, float *out, int32_t n, int32_t step) {
  for (int32_t x = 0; x < n; ++x)
    out[static_cast<std::size_t>(x) * step] =
        static_cast<float>(load<T>(row + static_cast<std::size_t>(x) * sizeof(T)));
}

template <class T>
void float_to_reals(const float *in, int32_t step, unsigned char *row, int32_t n) {
  for (int32_t x = 0; x < n; ++x)
    store<T>(row + static_cast<std::size_t>(x) * sizeof(T),
             static_cast<T>(in[static_cast<std::size_t>(x) * step]));
}

// n samples of one channel row into out[0], out[step], ...
inline void row_to_float(SampleKind k, const void *row, float *out, int32_t n, int32_t step) {
  const auto *p = static_cast<const unsigned char *>(row);
  if (k.type == ORX_C_FLOAT) return reals_to_float<float>(p, out, n, step);
  if (k.type == ORX_C_DOUBLE) return reals_to_float<double>(p, out, n, step);
  if (k.bits <= 8) return integers_to_float<uint8_t>(p, k.bits, out, n, step);
  if (k.bits <= 16) return integers_to_float<uint16_t>(p, k.bits, out, n, step);
  integers_to_float<uint32_t>(p, k.bits, out, n, step);
}

// The reverse, rounding and clamping to the integer range.
inline void float_to_row(SampleKind k, const float *in, int32_t step, void *row, int32_t n) {
  auto *p = static_cast<unsigned char *>(row);
  if (k.type == ORX_C_FLOAT) return float_to_reals<float>(in, step, p, n);
  if (k.type == ORX_C_DOUBLE) return float_to_reals<double>(in, step, p, n);
  if (k.bits <= 8) return float_to_integers<uint8_t>(in, step, k.bits, p, n);
  if (k.bits <= 16) return float_to_integers<uint16_t>(in, step, k.bits, p, n);
  float_to_integers<uint32_t>(in, step, k.bits, p, n);
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
