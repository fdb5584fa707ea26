// The shared resampling row kernels, portable and AVX2+FMA, and the choice
// between them.
#include "operators/resample_engine.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "operators/layer.hpp"
#include "util/cpu.hpp"

namespace orx::operators {

int32_t padded_stride(int32_t taps) {
  return taps <= kTapBlock ? kTapBlock : (taps + 7) / 8 * 8;
}

bool tap_table_alloc(TapTable &t, int32_t count, int32_t taps, int32_t source, bool normalisers) {
  t = TapTable{};
  t.count = count;
  t.source = source;
  t.stride = padded_stride(taps);
  const uint64_t n = static_cast<uint64_t>(count);
  t.weights = static_cast<float *>(allocate(sizeof(float) * n * static_cast<uint64_t>(t.stride)));
  t.first = static_cast<int32_t *>(allocate(sizeof(int32_t) * n));
  t.used = static_cast<int32_t *>(allocate(sizeof(int32_t) * n));
  if (normalisers) t.normalisers = static_cast<float *>(allocate(sizeof(float) * n));
  if (t.weights == nullptr || t.first == nullptr || t.used == nullptr ||
      (normalisers && t.normalisers == nullptr)) {
    tap_table_free(t);
    return false;
  }
  for (uint64_t j = 0; normalisers && j < n; ++j) t.normalisers[j] = 1.0f;
  std::memset(t.weights, 0, sizeof(float) * n * static_cast<uint64_t>(t.stride));
  std::memset(t.first, 0, sizeof(int32_t) * n);
  std::memset(t.used, 0, sizeof(int32_t) * n);
  return true;
}

void tap_table_free(TapTable &t) {
  ERR_free(t.weights);
  ERR_free(t.first);
  ERR_free(t.used);
  ERR_free(t.normalisers);
  t = TapTable{};
}

// The zero weights a pixel's taps start with.
int32_t leading_zeros(const float *w, int32_t used) {
  int32_t lead = 0;
  while (lead < used && w[lead] == 0.0f) ++lead;
  return lead;
}

void tap_table_trim(TapTable &t) {
  const auto old_stride = static_cast<std::size_t>(t.stride);
  int32_t widest = 1;
  for (int32_t j = 0; j < t.count; ++j) {
    const float *w = t.weights + static_cast<std::size_t>(j) * old_stride;
    int32_t end = t.used[j];
    while (end > 0 && w[end - 1] == 0.0f) --end;
    t.used[j] = end;  // leading zeros still counted: they go below
    widest = std::max(widest, end - leading_zeros(w, end));
  }
  const auto stride = static_cast<std::size_t>(padded_stride(widest));
  // Rows only move down: row j's new place ends where its old one starts
  // at the latest, so each is packed in place in turn.
  for (int32_t j = 0; j < t.count; ++j) {
    const float *from = t.weights + static_cast<std::size_t>(j) * old_stride;
    float *to = t.weights + static_cast<std::size_t>(j) * stride;
    const int32_t lead = leading_zeros(from, t.used[j]);
    t.first[j] += lead;
    t.used[j] -= lead;
    const auto used = static_cast<std::size_t>(t.used[j]);
    std::memmove(to, from + lead, sizeof(float) * used);
    std::memset(to + used, 0, sizeof(float) * (stride - used));
  }
  t.stride = static_cast<int32_t>(stride);
}

void tap_table_finish(TapTable &t) {
  // The pixels up to the first whose whole stride does not lie inside the
  // source (first[] seldom decreases along the axis: those are the last
  // few); the rest are summed tap by tap.
  t.fast = 0;
  while (t.fast < t.count && int64_t{t.first[t.fast]} + t.stride <= t.source) ++t.fast;
}

namespace {

// Pixels j0..count-1 tap by tap, in order: the fast kernels' tail, and the
// exact arithmetic (with the normaliser) for every pixel.
inline void horizontal_ordered(const TapTable &t, int32_t j0, const float *in, float *out) {
  for (int32_t j = j0; j < t.count; ++j) {
    const float *w = t.weights + static_cast<std::size_t>(j) * static_cast<std::size_t>(t.stride);
    const float *s = in + t.first[j];
    float sum = 0.0f;
    for (int32_t k = 0; k < t.used[j]; ++k) sum += w[k] * s[k];
    out[j] = t.normalisers != nullptr ? sum * t.normalisers[j] : sum;
  }
}

void horizontal_exact(const TapTable &t, void *const *in, void *const *out, int32_t channels) {
  for (int32_t c = 0; c < channels; ++c)
    horizontal_ordered(t, 0, static_cast<const float *>(in[c]), static_cast<float *>(out[c]));
}

void horizontal_portable(const TapTable &t, void *const *in, void *const *out, int32_t channels) {
  const auto stride = static_cast<std::size_t>(t.stride);
  for (int32_t j = 0; j < t.fast; ++j) {
    const float *w = t.weights + static_cast<std::size_t>(j) * stride;
    for (int32_t c = 0; c < channels; ++c) {
      const float *s = static_cast<const float *>(in[c]) + t.first[j];
      float lanes[kTapBlock] = {};
      for (std::size_t k = 0; k < stride; k += kTapBlock)
        for (int32_t l = 0; l < kTapBlock; ++l) lanes[l] += w[k + l] * s[k + l];
      static_cast<float *>(out[c])[j] = (lanes[0] + lanes[2]) + (lanes[1] + lanes[3]);
    }
  }
  for (int32_t c = 0; c < channels; ++c)
    horizontal_ordered(t, t.fast, static_cast<const float *>(in[c]), static_cast<float *>(out[c]));
}

inline float finish_one(float v, float scale, bool cut) {
  v *= scale;
  return cut && v < 0.0f ? 0.0f : v;
}

void vertical_portable(const float *const *rows, const float *weights, int32_t n, int32_t width,
                       float scale, bool cut, float *out) {
  constexpr int32_t kBlock = 64;  // sums kept in a small block the compiler can hold in registers
  for (int32_t x0 = 0; x0 < width; x0 += kBlock) {
    const int32_t m = width - x0 < kBlock ? width - x0 : kBlock;
    float sums[kBlock] = {};
    for (int32_t k = 0; k < n; ++k) {
      const float w = weights[k];
      const float *row = rows[k] + x0;
      for (int32_t x = 0; x < m; ++x) sums[x] += w * row[x];
    }
    for (int32_t x = 0; x < m; ++x) out[x0 + x] = finish_one(sums[x], scale, cut);
  }
}

void vertical_pair_portable(const float *const *rows, RowSpans spans, const float *weights_a,
                            const float *weights_b, int32_t width, float *out_a, float *out_b) {
  constexpr int32_t kBlock = 64;
  const int32_t n = spans.only_a + spans.shared + spans.only_b;
  for (int32_t x0 = 0; x0 < width; x0 += kBlock) {
    const int32_t m = width - x0 < kBlock ? width - x0 : kBlock;
    float a[kBlock] = {}, b[kBlock] = {};
    for (int32_t k = 0; k < n; ++k) {
      const float *row = rows[k] + x0;
      if (k < spans.only_a + spans.shared)
        for (int32_t x = 0; x < m; ++x) a[x] += weights_a[k] * row[x];
      if (k >= spans.only_a)
        for (int32_t x = 0; x < m; ++x) b[x] += weights_b[k - spans.only_a] * row[x];
    }
    std::memcpy(out_a + x0, a, sizeof(float) * static_cast<std::size_t>(m));
    std::memcpy(out_b + x0, b, sizeof(float) * static_cast<std::size_t>(m));
  }
}

void accumulate_portable(const float *row, float weight, int32_t width, float *sums) {
  for (int32_t x = 0; x < width; ++x) sums[x] += weight * row[x];
}

// Samples x0..n-1 of an integer row, one at a time.
template <class S>
void widen_from(const void *in, int32_t x0, int32_t n, float maximum, float *out) {
  const auto *bytes = static_cast<const unsigned char *>(in);
  for (int32_t x = x0; x < n; ++x) {
    S v;
    std::memcpy(&v, bytes + static_cast<std::size_t>(x) * sizeof(S), sizeof v);
    out[x] = static_cast<float>(v) / maximum;
  }
}

void widen_portable(const void *in, SourceKind kind, int32_t n, float maximum, float *out) {
  if (kind == SourceKind::kFloat)
    std::memcpy(out, in, sizeof(float) * static_cast<std::size_t>(n));
  else if (kind == SourceKind::kU8)
    widen_from<uint8_t>(in, 0, n, maximum, out);
  else
    widen_from<uint16_t>(in, 0, n, maximum, out);
}

#ifdef ORX_X86_KERNELS

// A pixel's taps in blocks of eight, and a last block of four where the
// stride has one (strides are multiples of four) added into the low half.
template <std::size_t kStride>
__attribute__((target("avx2,fma"))) inline __m256 dot(const float *w, const float *s,
                                                       std::size_t stride) {
  if constexpr (kStride != 0) stride = kStride;  // unrolled
  __m256 acc = _mm256_setzero_ps();
  std::size_t k = 0;
  for (; k + 8 <= stride; k += 8)
    acc = _mm256_fmadd_ps(_mm256_loadu_ps(w + k), _mm256_loadu_ps(s + k), acc);
  if (k < stride) {
    const __m128 last = _mm_mul_ps(_mm_loadu_ps(w + k), _mm_loadu_ps(s + k));
    acc = _mm256_add_ps(acc, _mm256_insertf128_ps(_mm256_setzero_ps(), last, 0));
  }
  return acc;
}

// dot() with the pixel's weights already in registers: w[b] holds taps
// 8b..8b+7, the last block's four in its low half.
template <std::size_t kStride>
__attribute__((target("avx2,fma"))) inline __m256 dot_held(const __m256 *w, const float *s) {
  __m256 acc = _mm256_setzero_ps();
  std::size_t k = 0;
  for (; k + 8 <= kStride; k += 8) acc = _mm256_fmadd_ps(w[k / 8], _mm256_loadu_ps(s + k), acc);
  if constexpr (kStride % 8 != 0) {
    const __m128 last = _mm_mul_ps(_mm256_castps256_ps128(w[k / 8]), _mm_loadu_ps(s + k));
    acc = _mm256_add_ps(acc, _mm256_insertf128_ps(_mm256_setzero_ps(), last, 0));
  }
  return acc;
}

// Four pixels' partial sums a0..a3 added across by a tree of horizontal
// adds that leaves pixel i in lane i, each pixel's eight partial sums
// added in pairs, then the pairs' sums, then the halves.
__attribute__((target("avx2,fma"))) inline __m128 across4(__m256 a0, __m256 a1, __m256 a2,
                                                          __m256 a3) {
  const __m256 s = _mm256_hadd_ps(_mm256_hadd_ps(a0, a1), _mm256_hadd_ps(a2, a3));
  return _mm_add_ps(_mm256_castps256_ps128(s), _mm256_extractf128_ps(s, 1));
}

// Four pixels from j at a time, every channel in turn.  With a short
// stride (kHeld) the four pixels' weights are loaded once for all
// channels and held in registers; else each dot product reads them.
// kStride: the table's stride when it is one of the common ones, else 0.
template <std::size_t kStride>
__attribute__((target("avx2,fma"))) inline void horizontal_quad(const TapTable &t, int32_t j,
                                                                void *const *in_rows,
                                                                void *const *out_rows,
                                                                int32_t channels) {
  const auto stride = static_cast<std::size_t>(t.stride);
  const float *w = t.weights + static_cast<std::size_t>(j) * stride;
  const int32_t *f = t.first + j;
  constexpr bool kHeld = kStride != 0 && kStride <= 16;
  constexpr std::size_t kBlocks = kHeld ? (kStride + 7) / 8 : 1;
  __m256 held[4][kBlocks];
  if constexpr (kHeld)
    for (std::size_t p = 0; p < 4; ++p)
      for (std::size_t b = 0; b < kBlocks; ++b)
        held[p][b] = 8 * b + 8 <= kStride
                         ? _mm256_loadu_ps(w + p * kStride + 8 * b)
                         : _mm256_castps128_ps256(_mm_loadu_ps(w + p * kStride + 8 * b));
  for (int32_t c = 0; c < channels; ++c) {
    const auto *in = static_cast<const float *>(in_rows[c]);
    __m256 a[4];
    for (std::size_t p = 0; p < 4; ++p) {
      if constexpr (kHeld)
        a[p] = dot_held<kStride>(held[p], in + f[p]);
      else
        a[p] = dot<kStride>(w + p * stride, in + f[p], stride);
    }
    _mm_storeu_ps(static_cast<float *>(out_rows[c]) + j, across4(a[0], a[1], a[2], a[3]));
  }
}

// Eight pixels at a time, as two fours; the last few (fewer than eight)
// each by itself, its partial sums added in another order.
template <std::size_t kStride>
__attribute__((target("avx2,fma"))) void horizontal_avx2_of(const TapTable &t, void *const *in_rows,
                                                            void *const *out_rows, int32_t channels) {
  const auto stride = static_cast<std::size_t>(t.stride);
  int32_t j = 0;
  for (; j + 8 <= t.fast; j += 8) {
    horizontal_quad<kStride>(t, j, in_rows, out_rows, channels);
    horizontal_quad<kStride>(t, j + 4, in_rows, out_rows, channels);
  }
  for (int32_t c = 0; c < channels; ++c) {
    const auto *in = static_cast<const float *>(in_rows[c]);
    auto *out = static_cast<float *>(out_rows[c]);
    for (int32_t i = j; i < t.fast; ++i) {
      const __m256 a = dot<kStride>(t.weights + static_cast<std::size_t>(i) * stride, in + t.first[i], stride);
      const __m128 q = _mm_add_ps(_mm256_castps256_ps128(a), _mm256_extractf128_ps(a, 1));
      const __m128 p = _mm_add_ps(q, _mm_movehl_ps(q, q));
      out[i] = _mm_cvtss_f32(_mm_add_ss(p, _mm_shuffle_ps(p, p, 1)));
    }
    horizontal_ordered(t, t.fast, in, out);
  }
}

void horizontal_avx2(const TapTable &t, void *const *in, void *const *out, int32_t channels) {
  switch (t.stride) {
    case 4: return horizontal_avx2_of<4>(t, in, out, channels);
    case 8: return horizontal_avx2_of<8>(t, in, out, channels);
    case 16: return horizontal_avx2_of<16>(t, in, out, channels);
    case 24: return horizontal_avx2_of<24>(t, in, out, channels);
    default: return horizontal_avx2_of<0>(t, in, out, channels);
  }
}

// Blocks of kLanes vectors of sums, each a chain of multiply-adds down the
// rows: enough independent chains to cover the multiply-add's latency.
template <int kLanes>
__attribute__((target("avx2,fma"))) inline void vertical_block(const float *const *rows,
                                                               const float *weights, int32_t n,
                                                               int32_t x, __m256 scale, bool cut,
                                                               float *out) {
  __m256 s[kLanes];
  for (int l = 0; l < kLanes; ++l) s[l] = _mm256_setzero_ps();
  for (int32_t k = 0; k < n; ++k) {
    const __m256 w = _mm256_set1_ps(weights[k]);
    const float *row = rows[k] + x;
    for (int l = 0; l < kLanes; ++l) s[l] = _mm256_fmadd_ps(w, _mm256_loadu_ps(row + 8 * l), s[l]);
  }
  for (int l = 0; l < kLanes; ++l) {
    __m256 v = _mm256_mul_ps(s[l], scale);
    if (cut) v = _mm256_max_ps(_mm256_setzero_ps(), v);  // a sum that is not a number stays one
    _mm256_storeu_ps(out + x + 8 * l, v);
  }
}

// The first column (at most width) where the first row's samples start a
// cache line: rows of one width from one allocator are mostly aligned
// alike, and whole vectors from there on then never straddle two lines.
// The columns before it are summed by themselves, each the same sum.
inline int32_t aligned_column(const float *const *rows, int32_t n, int32_t width) {
  if (n <= 0) return 0;
  const auto misaligned = reinterpret_cast<std::uintptr_t>(rows[0]) % 64;
  if (misaligned % sizeof(float) != 0) return 0;  // never for float rows
  const auto column = static_cast<int32_t>((64 - misaligned) % 64 / sizeof(float));
  return column < width ? column : width;
}

// Columns x0..width-1.
__attribute__((target("avx2,fma"))) void vertical_columns_avx2(const float *const *rows,
                                                               const float *weights, int32_t n,
                                                               int32_t x0, int32_t width,
                                                               float scale, bool cut, float *out) {
  const __m256 vscale = _mm256_set1_ps(scale);
  int32_t x = x0;
  for (; x + 64 <= width; x += 64) vertical_block<8>(rows, weights, n, x, vscale, cut, out);
  for (; x + 8 <= width; x += 8) vertical_block<1>(rows, weights, n, x, vscale, cut, out);
  for (; x < width; ++x) {
    float s = 0.0f;
    for (int32_t k = 0; k < n; ++k) s = std::fma(weights[k], rows[k][x], s);
    out[x] = finish_one(s, scale, cut);
  }
}

__attribute__((target("avx2,fma"))) void vertical_avx2(const float *const *rows,
                                                       const float *weights, int32_t n,
                                                       int32_t width, float scale, bool cut,
                                                       float *out) {
  const int32_t aligned = aligned_column(rows, n, width);
  vertical_columns_avx2(rows, weights, n, 0, aligned, scale, cut, out);
  vertical_columns_avx2(rows, weights, n, aligned, width, scale, cut, out);
}

// kLanes vectors of both lines' sums from column x: the shared rows'
// vectors loaded once and added to both.
template <int kLanes>
__attribute__((target("avx2,fma"))) inline void vertical_pair_block(
    const float *const *rows, RowSpans spans, const float *weights_a, const float *weights_b,
    int32_t x, float *out_a, float *out_b) {
  __m256 a[kLanes], b[kLanes];
  for (int l = 0; l < kLanes; ++l) a[l] = _mm256_setzero_ps();
  for (int l = 0; l < kLanes; ++l) b[l] = _mm256_setzero_ps();
  int32_t k = 0;
  for (; k < spans.only_a; ++k) {
    const __m256 w = _mm256_set1_ps(weights_a[k]);
    for (int l = 0; l < kLanes; ++l)
      a[l] = _mm256_fmadd_ps(w, _mm256_loadu_ps(rows[k] + x + 8 * l), a[l]);
  }
  for (int32_t i = 0; i < spans.shared; ++i, ++k) {
    const __m256 wa = _mm256_set1_ps(weights_a[k]), wb = _mm256_set1_ps(weights_b[i]);
    for (int l = 0; l < kLanes; ++l) {
      const __m256 v = _mm256_loadu_ps(rows[k] + x + 8 * l);
      a[l] = _mm256_fmadd_ps(wa, v, a[l]);
      b[l] = _mm256_fmadd_ps(wb, v, b[l]);
    }
  }
  for (int32_t i = spans.shared; i < spans.shared + spans.only_b; ++i, ++k) {
    const __m256 w = _mm256_set1_ps(weights_b[i]);
    for (int l = 0; l < kLanes; ++l)
      b[l] = _mm256_fmadd_ps(w, _mm256_loadu_ps(rows[k] + x + 8 * l), b[l]);
  }
  for (int l = 0; l < kLanes; ++l) _mm256_storeu_ps(out_a + x + 8 * l, a[l]);
  for (int l = 0; l < kLanes; ++l) _mm256_storeu_ps(out_b + x + 8 * l, b[l]);
}

__attribute__((target("avx2,fma"))) void vertical_pair_avx2(const float *const *rows, RowSpans spans,
                                                            const float *weights_a,
                                                            const float *weights_b, int32_t width,
                                                            float *out_a, float *out_b) {
  int32_t x = 0;
  for (; x + 32 <= width; x += 32)
    vertical_pair_block<4>(rows, spans, weights_a, weights_b, x, out_a, out_b);
  for (; x + 8 <= width; x += 8)
    vertical_pair_block<1>(rows, spans, weights_a, weights_b, x, out_a, out_b);
  const int32_t n = spans.only_a + spans.shared + spans.only_b;
  for (; x < width; ++x) {
    float a = 0.0f, b = 0.0f;
    for (int32_t k = 0; k < n; ++k) {
      if (k < spans.only_a + spans.shared) a = std::fma(weights_a[k], rows[k][x], a);
      if (k >= spans.only_a) b = std::fma(weights_b[k - spans.only_a], rows[k][x], b);
    }
    out_a[x] = a;
    out_b[x] = b;
  }
}

__attribute__((target("avx2,fma"))) void accumulate_avx2(const float *row, float weight,
                                                         int32_t width, float *sums) {
  const __m256 w = _mm256_set1_ps(weight);
  int32_t x = 0;
  for (; x + 8 <= width; x += 8)
    _mm256_storeu_ps(sums + x, _mm256_fmadd_ps(w, _mm256_loadu_ps(row + x), _mm256_loadu_ps(sums + x)));
  for (; x < width; ++x) sums[x] = std::fma(weight, row[x], sums[x]);
}

// Eight samples at a time: the quotient by the reciprocal, corrected once
// by its remainder (exact through the multiply-add), which for every code
// of 1 to 16 bits is the correctly rounded quotient the scalar loop gives,
// at a fraction of a division's cost.
template <class S>
__attribute__((target("avx2,fma"))) void widen_avx2_of(const void *in, int32_t n, float maximum,
                                                        float *out) {
  const auto *bytes = static_cast<const unsigned char *>(in);
  const __m256 divisor = _mm256_set1_ps(maximum), reciprocal = _mm256_set1_ps(1.0f / maximum);
  int32_t x = 0;
  for (; x + 8 <= n; x += 8) {
    const unsigned char *at = bytes + static_cast<std::size_t>(x) * sizeof(S);
    __m256i v;
    if constexpr (sizeof(S) == 1)
      v = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(at)));
    else
      v = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(at)));
    const __m256 code = _mm256_cvtepi32_ps(v);
    const __m256 guess = _mm256_mul_ps(code, reciprocal);
    const __m256 remainder = _mm256_fnmadd_ps(guess, divisor, code);
    _mm256_storeu_ps(out + x, _mm256_fmadd_ps(remainder, reciprocal, guess));
  }
  widen_from<S>(in, x, n, maximum, out);
}

__attribute__((target("avx2,fma"))) void widen_avx2(const void *in, SourceKind kind, int32_t n,
                                                    float maximum, float *out) {
  if (kind == SourceKind::kFloat)
    std::memcpy(out, in, sizeof(float) * static_cast<std::size_t>(n));
  else if (kind == SourceKind::kU8)
    widen_avx2_of<uint8_t>(in, n, maximum, out);
  else
    widen_avx2_of<uint16_t>(in, n, maximum, out);
}

const RowKernels kAvx2{horizontal_avx2, vertical_avx2, vertical_pair_avx2, accumulate_avx2,
                       widen_avx2,      "avx2",        false};

#endif

const RowKernels kPortable{horizontal_portable, vertical_portable, vertical_pair_portable,
                           accumulate_portable, widen_portable,    "portable", false};
// The portable vertical kernels already add rows in order, one rounding each.
const RowKernels kExact{horizontal_exact,    vertical_portable, vertical_pair_portable,
                        accumulate_portable, widen_portable,    "exact", true};

}  // namespace

const RowKernels &portable_kernels() { return kPortable; }
const RowKernels &exact_kernels() { return kExact; }

const RowKernels *avx2_kernels() {
#ifdef ORX_X86_KERNELS
  return cpu::has_avx2_fma() ? &kAvx2 : nullptr;
#else
  return nullptr;
#endif
}

const RowKernels &row_kernels() {
  static const RowKernels *chosen = [] {
    const char *wanted = std::getenv("ORX_KERNELS");
    if (wanted != nullptr && std::strcmp(wanted, "exact") == 0) return &kExact;
    if (wanted != nullptr && std::strcmp(wanted, "portable") == 0) return &kPortable;
    const RowKernels *fast = avx2_kernels();
    return fast != nullptr ? fast : &kPortable;
  }();
  return *chosen;
}

bool vector_kernels_chosen() { return &row_kernels() == avx2_kernels(); }

}  // namespace orx::operators
