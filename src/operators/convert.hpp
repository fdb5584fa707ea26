// The sample converters of the operators: one template per family, chosen
// once at install so that the per-line loops have no type branches.  Rows
// are only 2-byte aligned, so samples move through memcpy.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

// Row kernels are built twice on x86-64, for AVX2 and for the baseline, and
// the loader picks one for the machine it runs on (with GCC, whose clones
// may be templates): the library stays
// portable and still gets the wider vectors where they exist.
// Sanitizer builds keep one version: the loader runs clone resolvers before
// a sanitizer runtime is ready, which ThreadSanitizer does not survive.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && \
    !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define ORX_ROW_KERNEL __attribute__((target_clones("avx2", "default")))
#else
#define ORX_ROW_KERNEL
#endif

// A row kernel whose lanes work out every case and then select one: it
// evaluates comparisons and divisions that scalar code would have skipped,
// which the compiler does only when told that they raise no trap (the
// library never enables floating-point traps).  The values are the same.
#if defined(__GNUC__) && !defined(__clang__)
#define ORX_SELECT_KERNEL ORX_ROW_KERNEL __attribute__((optimize("no-trapping-math")))
#else
#define ORX_SELECT_KERNEL ORX_ROW_KERNEL
#endif

namespace orx::operators {

template <class T>
inline T load_at(const void *row, std::size_t x) {
  T v;
  std::memcpy(&v, static_cast<const unsigned char *>(row) + x * sizeof(T), sizeof v);
  return v;
}

template <class T>
inline void store_at(void *row, std::size_t x, T v) {
  std::memcpy(static_cast<unsigned char *>(row) + x * sizeof(T), &v, sizeof v);
}

// 2^bits - 1, in double (0 for 0 bits).
inline double max_value(int32_t bits) {
  return bits <= 0 ? 0.0 : bits >= 64 ? 18446744073709551615.0 : std::ldexp(1.0, bits) - 1.0;
}

// The cast family: channels rows of n samples of type S into float rows,
// last channel first.  Integers scale by the reciprocal of their maximum,
// formed in double once per call, the product rounded to float once;
// floating-point sources are narrowed (or copied).
using CastConverter = int (*)(void **dst, int32_t n, int32_t bits, int32_t channels, void **src);

template <class S>
ORX_ROW_KERNEL int cast_rows(void **dst, int32_t n, int32_t bits, int32_t channels, void **src) {
  constexpr bool kInteger = !std::is_floating_point_v<S>;
  const double scale = kInteger ? 1.0 / max_value(bits) : 1.0;
  for (int32_t c = channels - 1; c >= 0; --c) {
    const void *in = src[c];
    auto *out = static_cast<float *>(dst[c]);  // the operator's own rows: float-aligned
    for (int32_t x = 0; x < n; ++x) {
      const auto s = load_at<S>(in, static_cast<std::size_t>(x));
      out[x] = kInteger ? static_cast<float>(static_cast<double>(s) * scale) : static_cast<float>(s);
    }
  }
  return 0;
}

// The quantize family: n samples of a floating-point source row from x0 on
// into integers of D storage, truncate(v x (2^bits - 1 + 0.95)), the factor
// formed in double (rounded to float for float sources).  No clamping:
// values outside 0..1 wrap to the storage size.
using QuantizeConverter = void (*)(const void *src, void *dst, int32_t x0, int32_t n, int32_t bits);

template <class S, class D>
ORX_ROW_KERNEL void quantize_row(const void *src, void *dst, int32_t x0, int32_t n, int32_t bits) {
  const auto factor = static_cast<S>(max_value(bits) + 0.95);
  // For 8- and 16-bit codes the value is limited to the 32-bit range first,
  // so the conversion is defined and the loop vectorises; within it values
  // wrap to the storage size as an integer conversion does (a sample beyond
  // about 8 million times full scale, or not a number, does not wrap).
  constexpr S kLow = S(-2147483648.0), kHigh = S(2147483520.0);
  const auto *in = static_cast<const unsigned char *>(src) + sizeof(S) * static_cast<std::size_t>(x0);
  auto *out = static_cast<unsigned char *>(dst) + sizeof(D) * static_cast<std::size_t>(x0);
  for (int32_t x = 0; x < n; ++x) {
    S v = load_at<S>(in, static_cast<std::size_t>(x)) * factor;
    if constexpr (sizeof(D) < 4) {
      v = v < kLow ? kLow : v;
      v = v > kHigh ? kHigh : v;
      const auto whole = v == v ? static_cast<int32_t>(v) : 0;
      store_at<D>(out, static_cast<std::size_t>(x), static_cast<D>(static_cast<uint32_t>(whole)));
    } else {
      // 32-bit codes reach 2^32 - 1: truncated through 64 bits.
      const int64_t whole = v == v && v > S(-9.2e18) && v < S(9.2e18) ? static_cast<int64_t>(v) : 0;
      store_at<D>(out, static_cast<std::size_t>(x), static_cast<D>(static_cast<uint64_t>(whole)));
    }
  }
}

// The cast converter of a group: by storage for integers, narrowing or
// copying for floating point; null for a group without channels.
inline CastConverter cast_converter(int32_t type, int32_t bits, int32_t count) {
  if (count <= 0) return nullptr;
  if (type == 2) return cast_rows<float>;   // ORX_C_FLOAT
  if (type == 3) return cast_rows<double>;  // ORX_C_DOUBLE
  if (bits <= 8) return cast_rows<uint8_t>;
  if (bits <= 16) return cast_rows<uint16_t>;
  return cast_rows<uint32_t>;
}

// The quantize converter from a floating-point type to integers of bits.
template <class S>
QuantizeConverter quantize_converter(int32_t bits) {
  if (bits <= 8) return quantize_row<S, uint8_t>;
  if (bits <= 16) return quantize_row<S, uint16_t>;
  return quantize_row<S, uint32_t>;
}

}  // namespace orx::operators
