// The row conversions: ORX_convert_row for every pair of sample types
// against the formula in double precision (integers as code / (2^bits - 1),
// integer targets clamped and rounded to the nearest code, not a number to
// 0), and the vector kernels against the portable loops to the bit.
#include "operators/row_convert.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "operators/lookup.hpp"
#include "orx/err.h"
#include "orx/operators.h"
#include "support/images.hpp"

namespace {

using orx::test::get_unit;
using orx::test::unit_scale;

TEST(RowConvert, EveryPairOfTypesFollowsTheFormula) {
  const ORX_CHANNELS kinds[] = {
      {nullptr, 1, ORX_C_INTEGER, 8, 0},  {nullptr, 1, ORX_C_INTEGER, 5, 0},
      {nullptr, 1, ORX_C_INTEGER, 16, 0}, {nullptr, 1, ORX_C_INTEGER, 12, 0},
      {nullptr, 1, ORX_C_INTEGER, 32, 0}, {nullptr, 1, ORX_C_FLOAT, 32, 0},
      {nullptr, 1, ORX_C_DOUBLE, 64, 0}};
  std::mt19937 rng(3);
  const int n = 37;
  for (const ORX_CHANNELS &from : kinds)
    for (const ORX_CHANNELS &to : kinds) {
      std::vector<unsigned char> src(8 * n + 1), dst(8 * n + 1);
      for (int x = 0; x < n; ++x) {  // integers: any code; reals: -0.5..1.5, and a NaN
        const uint32_t code =
            static_cast<uint32_t>(rng()) & static_cast<uint32_t>(unit_scale(from));
        const double real = x == 5 ? NAN : double(rng() % 2001) / 1000.0 - 0.5;
        orx::test::put(from, src.data() + 1, x,
                       from.type == ORX_C_INTEGER ? code : real);  // unaligned
      }
      src.erase(src.begin());
      ASSERT_EQ(ORX_convert_row(&from, src.data(), &to, dst.data(), n), 0);
      for (int x = 0; x < n; ++x) {
        const double v = get_unit(from, src.data(), x), got = get_unit(to, dst.data(), x);
        if (to.type != ORX_C_INTEGER) {
          if (std::isnan(v)) {
            EXPECT_TRUE(std::isnan(got));
          } else {
            EXPECT_NEAR(got, v, 1e-6 * (1 + std::fabs(v))) << from.bits << " -> " << to.bits;
          }
          continue;
        }
        const double top = unit_scale(to);
        const double want =
            std::isnan(v) ? 0 : std::floor(std::fmin(1.0, std::fmax(0.0, v)) * top + 0.5);
        EXPECT_NEAR(got * top, want, 1.0 + 1e-9) << from.bits << " -> " << to.bits << " at " << x;
        if (from.type == ORX_C_INTEGER && from.bits == to.bits) {
          EXPECT_EQ(got * top, want);
        }
      }
    }
  const ORX_CHANNELS bad{nullptr, 1, 9, 8, 0};
  unsigned char b[4] = {};
  EXPECT_EQ(ORX_convert_row(&bad, b, &kinds[0], b, 1), ORX_E_UNSUPPORTED);
}

// The float-to-code kernels, portable and AVX2, against a scalar model of
// their arithmetic (product rounded to float, the half added, clamped, not a
// number to 0), to the bit: the float patterns on either side of every
// code's rounding boundary and of the clamps, the special values and a few
// million random patterns, for every code width, at row lengths and byte
// offsets that take the vector kernels through their tails.
uint32_t model_code(float v, int bits) {
  const auto top = static_cast<float>(std::ldexp(1.0, bits) - 1.0);
  // Exact in double, rounded once: no fused multiply-add can creep in.
  const float t = static_cast<float>(static_cast<double>(v) * top) + 0.5f;
  if (!(t > 0.5f)) return 0;
  return static_cast<uint32_t>(std::fmin(t, top + 0.5f));
}

std::vector<float> quantize_inputs(int bits, std::mt19937 &rng) {
  std::vector<float> v;
  const float inf = std::numeric_limits<float>::infinity();
  for (uint32_t b : {0x7fc00000u, 0xffc00000u, 0x7f800001u, 0xff800001u, 0x7fffffffu, 0x00000001u,
                     0x80000001u, 0x007fffffu, 0x807fffffu})
    v.push_back(std::bit_cast<float>(b));
  for (float f : {0.0f, -0.0f, inf, -inf, 1.0f, -1.0f, std::numeric_limits<float>::max(),
                  -std::numeric_limits<float>::max(), 2147483648.0f, 4294967296.0f, 1e20f})
    v.push_back(f);
  const double top = std::ldexp(1.0, bits) - 1.0;
  for (double k = 0; k <= top + 1; ++k)  // where code k begins, and the top's end
    for (float edge : {static_cast<float>((k - 0.5) / top), static_cast<float>((k + 0.5) / top)})
      for (int32_t d = -12; d <= 12; ++d)
        v.push_back(std::bit_cast<float>(std::bit_cast<uint32_t>(edge) + static_cast<uint32_t>(d)));
  const int random = bits == 8 || bits == 16 ? 2000000 : 100000;
  for (int i = 0; i < random; ++i) v.push_back(std::bit_cast<float>(static_cast<uint32_t>(rng())));
  return v;
}

TEST(RowConvert, VectorQuantizingEqualsThePortableLoopToTheBit) {
  std::vector<const orx::operators::QuantizeKernels *> sets{&orx::operators::portable_quantize()};
  if (const auto *avx2 = orx::operators::avx2_quantize()) sets.push_back(avx2);
  std::mt19937 rng(11);
  for (int bits = 1; bits <= 16; ++bits) {
    const std::vector<float> in = quantize_inputs(bits, rng);
    const std::size_t size = bits <= 8 ? 1 : 2;
    std::vector<uint32_t> want(in.size());
    for (std::size_t i = 0; i < in.size(); ++i) want[i] = model_code(in[i], bits);
    std::vector<unsigned char> src(4 * in.size() + 8), dst(size * in.size() + 8);
    for (const auto *k : sets) {
      SCOPED_TRACE(k->name);
      const auto convert = bits <= 8 ? k->to_u8 : k->to_u16;
      // The whole set, then short rows from odd byte offsets.
      const auto whole = static_cast<int32_t>(in.size());
      for (int32_t n : {whole, 1, 7, 15, 16, 17, 31, 33, 47, 63, 64, 65, 99})
        for (std::size_t offset : {0, 1, 3}) {
          if (n == whole && offset != 1) continue;
          const std::size_t start = n == whole ? 0 : 40 * offset, count = std::size_t(n);
          std::memcpy(src.data() + offset, in.data() + start, 4 * count);
          std::memset(dst.data(), 0xa5, dst.size());
          convert(src.data() + offset, dst.data() + offset, n, 32, bits);
          uint32_t mismatches = 0;
          for (std::size_t x = 0, i = start; x < count; ++x, ++i) {
            uint32_t got = 0;
            std::memcpy(&got, dst.data() + offset + size * x, size);
            if (got != want[i] && ++mismatches <= 3)
              ADD_FAILURE() << bits << " bits, input " << in[i] << ": " << got << " for "
                            << want[i];
          }
          EXPECT_EQ(dst[offset + size * count], 0xa5) << "wrote past the row";
        }
    }
  }
}

// Lookups through tables of 256 floats: the byte-shuffling kernel, where the
// processor has it, gives the portable loop's values for every code, any
// length and any alignment of the codes.
TEST(Lookup, ShufflingGivesThePortableLoopsValues) {
  using namespace orx::operators;
  const FloatLookup shuffling = shuffling_lookup();
  if (shuffling == nullptr) GTEST_SKIP() << "no AVX-512 VBMI";
  std::mt19937 rng(3);
  std::vector<float> values(256);
  for (float &v : values) v = std::ldexp(float(rng() % 100000) - 5e4f, int(rng() % 40) - 20);
  values[7] = -0.0f;
  FloatTable table;
  float_table_init(table, values.data());
  std::vector<uint8_t> codes(300);
  for (std::size_t i = 0; i < codes.size(); ++i) codes[i] = uint8_t(i);
  std::shuffle(codes.begin(), codes.end(), rng);
  for (int32_t n : {0, 1, 63, 64, 65, 191, 256}) {
    for (int32_t offset : {0, 1, 13}) {
      std::vector<float> want(std::size_t(n) + 1, 9.0f), got(std::size_t(n) + 1, 9.0f);
      lookup_row(values.data(), codes.data() + offset, n, want.data());
      shuffling(table, codes.data() + offset, n, got.data());
      ASSERT_EQ(std::memcmp(want.data(), got.data(), sizeof(float) * want.size()), 0)
          << n << " from " << offset;
    }
  }
}

}  // namespace
