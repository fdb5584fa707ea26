// ORX_convert_row for every pair of sample types against the formula in
// double precision: integers as code / (2^bits - 1), integer targets clamped
// and rounded to the nearest code, not a number to 0.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "orx/err.h"
#include "orx/operators.h"
#include "support/images.hpp"

namespace {

using orx::test::get_unit;
using orx::test::unit_scale;

TEST(RowConvert, EveryPairOfTypesFollowsTheFormula) {
  const ORX_CHANNELS kinds[] = {{nullptr, 1, ORX_C_INTEGER, 8, 0},  {nullptr, 1, ORX_C_INTEGER, 5, 0},
                                {nullptr, 1, ORX_C_INTEGER, 16, 0}, {nullptr, 1, ORX_C_INTEGER, 12, 0},
                                {nullptr, 1, ORX_C_INTEGER, 32, 0}, {nullptr, 1, ORX_C_FLOAT, 32, 0},
                                {nullptr, 1, ORX_C_DOUBLE, 64, 0}};
  std::mt19937 rng(3);
  const int n = 37;
  for (const ORX_CHANNELS &from : kinds)
    for (const ORX_CHANNELS &to : kinds) {
      std::vector<unsigned char> src(8 * n + 1), dst(8 * n + 1);
      for (int x = 0; x < n; ++x) {  // integers: any code; reals: -0.5..1.5, and a NaN
        const uint32_t code = static_cast<uint32_t>(rng()) & static_cast<uint32_t>(unit_scale(from));
        const double real = x == 5 ? NAN : double(rng() % 2001) / 1000.0 - 0.5;
        orx::test::put(from, src.data() + 1, x, from.type == ORX_C_INTEGER ? code : real);  // unaligned
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
        const double want = std::isnan(v) ? 0 : std::floor(std::fmin(1.0, std::fmax(0.0, v)) * top + 0.5);
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

}  // namespace
