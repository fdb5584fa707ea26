// Lookups through tables of 256 floats: the portable loop, and 64 codes at
// a time by byte shuffles on processors with AVX-512 VBMI.
#include "operators/lookup.hpp"

#include <cstring>

#include "operators/resample_engine.hpp"
#include "util/cpu.hpp"

namespace orx::operators {
namespace {

void lookup_portable(const FloatTable &t, const void *codes, int32_t n, float *out) {
  lookup_row(t.values, codes, n, out);
}

#ifdef ORX_X86_KERNELS

// Each plane's 256 bytes sit in four registers; a code's bit 7 picks the
// pair that two-register shuffles look in.  The four planes' bytes are then
// interleaved into floats by unpacking, which works within 128-bit lanes
// and so moves position 16L + 4j + i (lane L) to 16j + 4L + i: the codes
// are first permuted the other way (kOrder), and the floats come out in
// order.
struct Order {
  uint8_t at[64];
};

constexpr Order order() {
  Order o{};
  for (int lane = 0; lane < 4; ++lane)
    for (int j = 0; j < 4; ++j)
      for (int i = 0; i < 4; ++i) o.at[16 * lane + 4 * j + i] = static_cast<uint8_t>(16 * j + 4 * lane + i);
  return o;
}

constexpr Order kOrder = order();

__attribute__((target("avx512f,avx512bw,avx512vbmi"))) void lookup_vbmi(const FloatTable &t,
                                                                          const void *codes,
                                                                          int32_t n, float *out) {
  const auto *in = static_cast<const uint8_t *>(codes);
  __m512i planes[4][4];
  for (int k = 0; k < 4; ++k)
    for (int q = 0; q < 4; ++q) planes[k][q] = _mm512_loadu_si512(t.planes[k] + 64 * q);
  const __m512i permute = _mm512_loadu_si512(kOrder.at);
  int32_t x = 0;
  for (; x + 64 <= n; x += 64) {
    // (The zero-masking form: GCC 12 warns of the plain form's undefined
    // pass-through operand.)
    const __m512i index = _mm512_maskz_permutexvar_epi8(~__mmask64{0}, permute, _mm512_loadu_si512(in + x));
    const __mmask64 high = _mm512_movepi8_mask(index);
    __m512i bytes[4];
    for (int k = 0; k < 4; ++k) {
      const __m512i low_half = _mm512_permutex2var_epi8(planes[k][0], index, planes[k][1]);
      const __m512i high_half = _mm512_permutex2var_epi8(planes[k][2], index, planes[k][3]);
      bytes[k] = _mm512_mask_blend_epi8(high, low_half, high_half);
    }
    const __m512i low01 = _mm512_unpacklo_epi8(bytes[0], bytes[1]);
    const __m512i high01 = _mm512_unpackhi_epi8(bytes[0], bytes[1]);
    const __m512i low23 = _mm512_unpacklo_epi8(bytes[2], bytes[3]);
    const __m512i high23 = _mm512_unpackhi_epi8(bytes[2], bytes[3]);
    _mm512_storeu_si512(out + x, _mm512_unpacklo_epi16(low01, low23));
    _mm512_storeu_si512(out + x + 16, _mm512_unpackhi_epi16(low01, low23));
    _mm512_storeu_si512(out + x + 32, _mm512_unpacklo_epi16(high01, high23));
    _mm512_storeu_si512(out + x + 48, _mm512_unpackhi_epi16(high01, high23));
  }
  lookup_row(t.values, in + x, n - x, out + x);
}

#endif

}  // namespace

void float_table_init(FloatTable &t, const float *values) {
  t.values = values;
  for (int v = 0; v < 256; ++v) {
    uint8_t bytes[4];
    std::memcpy(bytes, &values[v], sizeof bytes);
    for (int k = 0; k < 4; ++k) t.planes[k][v] = bytes[k];
  }
}

FloatLookup shuffling_lookup() {
#ifdef ORX_X86_KERNELS
  return cpu::has_avx512_vbmi() ? lookup_vbmi : nullptr;
#else
  return nullptr;
#endif
}

void lookup_floats(const FloatTable &t, const void *codes, int32_t n, float *out) {
  static const FloatLookup chosen = [] {
    const FloatLookup shuffling = shuffling_lookup();
    return shuffling != nullptr && vector_kernels_chosen() ? shuffling : lookup_portable;
  }();
  chosen(t, codes, n, out);
}

}  // namespace orx::operators
