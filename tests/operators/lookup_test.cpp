// Lookups through tables of 256 floats: the byte-shuffling kernel, where the
// processor has it, gives the portable loop's values for every code, any
// length and any alignment of the codes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "operators/lookup.hpp"

namespace {

using namespace orx::operators;

TEST(Lookup, ShufflingGivesThePortableLoopsValues) {
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
      ASSERT_EQ(std::memcmp(want.data(), got.data(), sizeof(float) * want.size()), 0) << n << " from " << offset;
    }
  }
}

}  // namespace
