// The shared resampling kernels, portable and AVX2 alike, against sums in
// double precision over random tables: odd widths, tap counts either side
// of the padding, pixels near the source's end (the tail path), and the
// accumulating kernel and the two-line kernel giving the vertical kernel's
// result to the bit, and source rows widened to float exactly as the cast
// gives them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "operators/resample_engine.hpp"

namespace {

using namespace orx::operators;

std::vector<const RowKernels *> every_kernel_set() {
  std::vector<const RowKernels *> sets{&portable_kernels(), &exact_kernels()};
  if (const RowKernels *avx2 = avx2_kernels()) sets.push_back(avx2);
  return sets;
}

TEST(ResampleEngine, KernelsAgreeWithDoublePrecisionSums) {
  std::mt19937 rng(5);
  std::uniform_real_distribution<float> value(-1.0f, 2.0f);
  for (const RowKernels *k : every_kernel_set()) {
    SCOPED_TRACE(k->name);
    // Every code of 1 to 16 bits from a row at an odd address: the cast's
    // value (the double product rounded once) to the bit; floats copied.
    for (int bits = 1; bits <= 16; ++bits) {
      const int32_t codes = 1 << bits;
      const std::size_t size = bits <= 8 ? 1 : 2;
      std::vector<unsigned char> bytes(size * std::size_t(codes) + 2);
      for (int32_t v = 0; v < codes; ++v) std::memcpy(&bytes[1 + size * std::size_t(v)], &v, size);
      std::vector<float> got(static_cast<std::size_t>(codes));
      const double maximum = codes - 1.0;
      k->widen(&bytes[1], size == 1 ? SourceKind::kU8 : SourceKind::kU16, codes,
               static_cast<float>(maximum), got.data());
      for (int32_t v = 0; v < codes; ++v)
        ASSERT_EQ(got[std::size_t(v)], static_cast<float>(v * (1.0 / maximum))) << bits << " bits, " << v;
      std::vector<float> copied(got.size());
      k->widen(got.data(), SourceKind::kFloat, codes, 0.0f, copied.data());
      ASSERT_EQ(copied, got);
    }
    for (int trial = 0; trial < 200; ++trial) {
      const int32_t source = 1 + static_cast<int32_t>(rng() % 97);
      const int32_t count = 1 + static_cast<int32_t>(rng() % 53);
      const int32_t taps = 1 + static_cast<int32_t>(rng() % 19);
      TapTable t;
      ASSERT_TRUE(tap_table_alloc(t, count, taps, source));
      for (int32_t j = 0; j < count; ++j) {
        // Starts that never decrease, some running into the source's end.
        t.first[j] = static_cast<int32_t>((int64_t{j} * source) / count);
        t.used[j] = std::min(taps, source - t.first[j]);
        for (int32_t i = 0; i < t.used[j]; ++i) t.weights[std::size_t(j) * std::size_t(t.stride) + std::size_t(i)] = value(rng);
      }
      tap_table_finish(t);
      std::vector<float> in(static_cast<std::size_t>(source)), out(static_cast<std::size_t>(count));
      for (float &v : in) v = value(rng);
      void *in_rows[] = {in.data()}, *out_rows[] = {out.data()};
      k->horizontal(t, in_rows, out_rows, 1);
      for (int32_t j = 0; j < count; ++j) {
        double want = 0, size = 0;
        for (int32_t i = 0; i < t.used[j]; ++i) {
          const double term = double(t.weights[std::size_t(j) * std::size_t(t.stride) + std::size_t(i)]) *
                              in[std::size_t(t.first[j] + i)];
          want += term;
          size += std::fabs(term);
        }
        ASSERT_NEAR(out[std::size_t(j)], want, 1e-6 * (1 + size)) << "pixel " << j << " trial " << trial;
        if (k->exact) {  // in order, in single precision
          float ordered = 0.0f;
          for (int32_t i = 0; i < t.used[j]; ++i)
            ordered += t.weights[std::size_t(j) * std::size_t(t.stride) + std::size_t(i)] * in[std::size_t(t.first[j] + i)];
          ASSERT_EQ(out[std::size_t(j)], ordered);
        }
      }
      tap_table_free(t);

      // Down a stack of rows, then the same rows added one at a time.
      const int32_t n = static_cast<int32_t>(rng() % 14), width = 1 + static_cast<int32_t>(rng() % 77);
      std::vector<std::vector<float>> rows(static_cast<std::size_t>(n), std::vector<float>(std::size_t(width)));
      std::vector<const float *> pointers;
      std::vector<float> weights;
      for (auto &row : rows) {
        for (float &v : row) v = value(rng);
        pointers.push_back(row.data());
        weights.push_back(value(rng));
      }
      const float scale = trial % 3 == 0 ? 1.0f : value(rng);
      const bool cut = trial % 2 == 0;
      std::vector<float> down(static_cast<std::size_t>(width)), sums(static_cast<std::size_t>(width), 0.0f);
      k->vertical(pointers.data(), weights.data(), n, width, scale, cut, down.data());
      for (int32_t i = 0; i < n; ++i) k->accumulate(pointers[std::size_t(i)], weights[std::size_t(i)], width, sums.data());
      for (int32_t x = 0; x < width; ++x) {
        double want = 0, size = 0;
        for (int32_t i = 0; i < n; ++i) {
          want += double(weights[std::size_t(i)]) * rows[std::size_t(i)][std::size_t(x)];
          size += std::fabs(double(weights[std::size_t(i)]) * rows[std::size_t(i)][std::size_t(x)]);
        }
        want *= scale;
        if (cut && want < 0) want = 0;
        ASSERT_NEAR(down[std::size_t(x)], want, 1e-6 * (1 + size * std::fabs(scale)));
        float finished = sums[std::size_t(x)] * scale;
        if (cut && finished < 0.0f) finished = 0.0f;
        ASSERT_EQ(down[std::size_t(x)], finished) << "column " << x;
      }
      // Two lines sharing the middle of the stack: each as the vertical
      // kernel sums its own rows.
      const int32_t only_a = n > 0 ? static_cast<int32_t>(rng() % std::uint32_t(n + 1)) : 0;
      const int32_t shared = static_cast<int32_t>(rng() % std::uint32_t(n - only_a + 1));
      const RowSpans spans{only_a, shared, n - only_a - shared};
      const auto rows_n = static_cast<std::size_t>(n), columns = static_cast<std::size_t>(width);
      std::vector<float> weights_b(rows_n), a(columns), b(columns), want_a(columns), want_b(columns);
      for (float &w : weights_b) w = value(rng);
      k->vertical_pair(pointers.data(), spans, weights.data(), weights_b.data(), width, a.data(), b.data());
      k->vertical(pointers.data(), weights.data(), only_a + shared, width, 1.0f, false, want_a.data());
      k->vertical(pointers.data() + only_a, weights_b.data(), shared + spans.only_b, width, 1.0f, false,
                  want_b.data());
      ASSERT_EQ(a, want_a);
      ASSERT_EQ(b, want_b);
    }
  }
}

}  // namespace
