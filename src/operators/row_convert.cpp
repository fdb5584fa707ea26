// Whole-row conversion between sample types for hosts (the orx tool among
// them): one template for every pair of storage types, chosen once per row;
// floats to 8- and 16-bit codes (how the tool writes what the operators
// give) also through AVX2 kernels equal to the template to the bit.
#include <cstring>

#include "operators/row_convert.hpp"

#include "operators/convert.hpp"
#include "operators/resample_engine.hpp"
#include "orx/err.h"
#include "orx/operators.h"
#include "util/cpu.hpp"

namespace orx::operators {
namespace {

enum class Storage { kU8, kU16, kU32, kFloat, kDouble, kNone };

Storage storage_of(const ORX_CHANNELS &g) {
  if (g.type == ORX_C_FLOAT) return Storage::kFloat;
  if (g.type == ORX_C_DOUBLE) return Storage::kDouble;
  if (g.type != ORX_C_INTEGER || g.bits < 1 || g.bits > 32) return Storage::kNone;
  return g.bits <= 8 ? Storage::kU8 : g.bits <= 16 ? Storage::kU16 : Storage::kU32;
}

// Values pass through W: float where both ends fit its precision (codes of
// up to 16 bits, float), else double.
template <class S, class D, class W>
ORX_ROW_KERNEL void convert(const void *src, void *dst, int32_t n, int32_t from_bits,
                            int32_t to_bits) {
  constexpr bool kFromInteger = !std::is_floating_point_v<S>;
  constexpr bool kToInteger = !std::is_floating_point_v<D>;
  const W in_scale = kFromInteger ? static_cast<W>(1.0 / max_value(from_bits)) : W(1);
  const W out_scale = kToInteger ? static_cast<W>(max_value(to_bits)) : W(1);
  for (int32_t x = 0; x < n; ++x) {
    W v = static_cast<W>(load_at<S>(src, static_cast<std::size_t>(x))) * in_scale;
    if constexpr (kToInteger) {
      // Clamped after scaling, in this form, and through a signed integer
      // of the working width, the loop vectorises.
      using Whole = std::conditional_t<(sizeof(D) < 4), int32_t, int64_t>;
      const W low = W(0.5), high = out_scale + W(0.5);
      v = v * out_scale + low;
      v = v < low ? low : v;
      v = v > high ? high : v;
      store_at<D>(dst, static_cast<std::size_t>(x), static_cast<D>(v == v ? static_cast<Whole>(v) : 0));
    } else {
      store_at<D>(dst, static_cast<std::size_t>(x), static_cast<D>(v));
    }
  }
}

using Converter = RowConverter;

const QuantizeKernels kPortableQuantize{convert<float, uint8_t, float>, convert<float, uint16_t, float>,
                                        "portable"};

#ifdef ORX_X86_KERNELS

// Eight floats to codes as the portable loop works them out: the product
// and then the half added, each rounded (no fused multiply-add), clamped
// to [0.5, scale + 0.5] and truncated.  max_ps gives its second operand
// when either is not a number, so a NaN becomes the low bound and its code
// 0, as the portable loop's; the clamped values all fit 32-bit integers.
__attribute__((target("avx2"))) inline __m256i codes_of(const float *in, __m256 scale, __m256 low,
                                                        __m256 high) {
  const __m256 v = _mm256_add_ps(_mm256_mul_ps(_mm256_loadu_ps(in), scale), low);
  return _mm256_cvttps_epi32(_mm256_min_ps(_mm256_max_ps(v, low), high));
}

// Packing works within 128-bit lanes: the codes come out in groups of four
// interleaved by lane, put back in order by one permutation.  The tail goes
// through the portable loop.
template <class D>
__attribute__((target("avx2"))) void quantize_avx2(const void *src, void *dst, int32_t n,
                                                   int32_t from_bits, int32_t to_bits) {
  const auto *in = static_cast<const float *>(src);  // loadu: any address
  auto *out = static_cast<unsigned char *>(dst);
  const auto top = static_cast<float>(max_value(to_bits));
  const __m256 scale = _mm256_set1_ps(top), low = _mm256_set1_ps(0.5f),
               high = _mm256_set1_ps(top + 0.5f);
  int32_t x = 0;
  if constexpr (sizeof(D) == 1) {
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    for (; x + 32 <= n; x += 32) {
      const __m256i a = codes_of(in + x, scale, low, high);
      const __m256i b = codes_of(in + x + 8, scale, low, high);
      const __m256i c = codes_of(in + x + 16, scale, low, high);
      const __m256i d = codes_of(in + x + 24, scale, low, high);
      const __m256i bytes = _mm256_packus_epi16(_mm256_packus_epi32(a, b), _mm256_packus_epi32(c, d));
      _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + x),
                          _mm256_permutevar8x32_epi32(bytes, order));
    }
  } else {
    for (; x + 16 <= n; x += 16) {
      const __m256i a = codes_of(in + x, scale, low, high), b = codes_of(in + x + 8, scale, low, high);
      _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + sizeof(D) * static_cast<std::size_t>(x)),
                          _mm256_permute4x64_epi64(_mm256_packus_epi32(a, b), 0xd8));
    }
  }
  convert<float, D, float>(in + x, out + sizeof(D) * static_cast<std::size_t>(x), n - x, from_bits,
                           to_bits);
}

const QuantizeKernels kAvx2Quantize{quantize_avx2<uint8_t>, quantize_avx2<uint16_t>, "avx2"};

#endif

// The float-to-code kernels follow the resampling engine's choice.
const QuantizeKernels &quantize_kernels() {
  static const QuantizeKernels *chosen = [] {
    const QuantizeKernels *fast = avx2_quantize();
    return fast != nullptr && vector_kernels_chosen() ? fast : &kPortableQuantize;
  }();
  return *chosen;
}

template <class S>
Converter to(Storage d) {
  constexpr bool kWide = std::is_same_v<S, uint32_t> || std::is_same_v<S, double>;
  switch (d) {
    case Storage::kU8: return convert<S, uint8_t, std::conditional_t<kWide, double, float>>;
    case Storage::kU16: return convert<S, uint16_t, std::conditional_t<kWide, double, float>>;
    case Storage::kU32: return convert<S, uint32_t, double>;
    case Storage::kFloat: return convert<S, float, std::conditional_t<kWide, double, float>>;
    case Storage::kDouble: return convert<S, double, double>;
    case Storage::kNone: break;
  }
  return nullptr;
}

Converter converter(Storage s, Storage d) {
  if (s == Storage::kFloat && d == Storage::kU8) return quantize_kernels().to_u8;
  if (s == Storage::kFloat && d == Storage::kU16) return quantize_kernels().to_u16;
  switch (s) {
    case Storage::kU8: return to<uint8_t>(d);
    case Storage::kU16: return to<uint16_t>(d);
    case Storage::kU32: return to<uint32_t>(d);
    case Storage::kFloat: return to<float>(d);
    case Storage::kDouble: return to<double>(d);
    case Storage::kNone: break;
  }
  return nullptr;
}

std::size_t size_of(Storage s) {
  return s == Storage::kU8 ? 1 : s == Storage::kU16 ? 2 : s == Storage::kDouble ? 8 : 4;
}

}  // namespace

const QuantizeKernels &portable_quantize() { return kPortableQuantize; }

const QuantizeKernels *avx2_quantize() {
#ifdef ORX_X86_KERNELS
  return cpu::has_avx2() ? &kAvx2Quantize : nullptr;
#else
  return nullptr;
#endif
}

}  // namespace orx::operators

extern "C" {

int ORX_convert_row(const ORX_CHANNELS *from, const void *src, const ORX_CHANNELS *to, void *dst,
                    int32_t n) {
  using namespace orx::operators;
  if (from == nullptr || to == nullptr) return ORX_E_UNSUPPORTED;
  const Storage s = storage_of(*from), d = storage_of(*to);
  const Converter convert = converter(s, d);
  if (convert == nullptr) return ORX_E_UNSUPPORTED;
  if (n <= 0) return 0;
  // The same type both ends: the samples as they are.
  if (s == d && (from->type != ORX_C_INTEGER || from->bits == to->bits)) {
    std::memcpy(dst, src, size_of(s) * static_cast<std::size_t>(n));
    return 0;
  }
  convert(src, dst, n, from->bits, to->bits);
  return 0;
}

}  // extern "C"
