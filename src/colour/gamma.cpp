// Gamma tables: fixed-size arrays built from one exponent, between 8-bit
// codes and the linear scale of the gamma table resolution.
#include "colour/gamma.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "colour/rounding.hpp"
#include "err/heap.hpp"
#include "orx/fmt.h"
#include "orx/orx.h"

namespace orx::colour {
namespace {

// pow(x, e) for linear code j of a table of res entries, x = j / (res - 1)
// taken in single precision and the power in double.
double linear_power(int j, int res, float e) {
  float x = static_cast<float>(j) / static_cast<float>(res - 1);
  return std::pow(static_cast<double>(x), static_cast<double>(e));
}

// A new table of count entries, entry i = fill(i); null when memory is short.
// Gamma tables are plain heap blocks, released by ORX_gamma_done, and their
// failure is left to the caller to notice: nothing is reported.
template <class T, class F>
T *make_table(int count, F fill) {
  auto *table = static_cast<T *>(heap::allocate(static_cast<std::size_t>(count) * sizeof(T)));
  if (table == nullptr) return nullptr;
  for (int i = 0; i < count; ++i) table[i] = fill(i);
  return table;
}

}  // namespace

int gamma_table_res() {
  return std::clamp(FMT_def_gamma_tab_res(), kMinGammaTableRes, kMaxGammaTableRes);
}

}  // namespace orx::colour

extern "C" {

float *ORX_gamma_btof(float gamma) {
  const int top = orx::colour::gamma_table_res() - 1;
  return orx::colour::make_table<float>(256, [&](int i) {
    auto p = static_cast<float>(std::pow(i / 255.0, gamma));
    // The linear floor keeps the dark end from collapsing below one step of
    // the linear resolution.
    float f = static_cast<float>(i) / static_cast<float>(top);
    return std::max(p, f);
  });
}

uint16_t *ORX_gamma_btos(float gamma) {
  const int top = orx::colour::gamma_table_res() - 1;
  return orx::colour::make_table<uint16_t>(256, [&](int i) {
    double v = orx::colour::round_half_up(std::pow(i / 255.0, gamma) * top);
    return static_cast<uint16_t>(std::max<int64_t>(orx::colour::to_code(v, top), i));
  });
}

uint8_t *ORX_gamma_tob(float gamma) {
  const int res = orx::colour::gamma_table_res();
  const auto e = static_cast<float>(1.0 / gamma);
  return orx::colour::make_table<uint8_t>(res, [&](int j) {
    double v = orx::colour::round_half_up(orx::colour::linear_power(j, res, e) * 255.0);
    int64_t low = orx::colour::to_code(v, 1e18) & 0xff;
    return static_cast<uint8_t>(std::min<int64_t>(low, j));
  });
}

float *ORX_gamma_tof(float gamma) {
  const int res = orx::colour::gamma_table_res();
  const auto e = static_cast<float>(1.0 / gamma);
  return orx::colour::make_table<float>(res, [&](int j) {
    // 254.9, not 255: a later truncation of value plus dither noise never
    // reaches 256.
    auto v = static_cast<float>(orx::colour::linear_power(j, res, e) * 254.9);
    return std::min(v, static_cast<float>(j));
  });
}

int ORX_gamma_done(void *table) {
  orx::heap::release(table);
  return 1;
}

}  // extern "C"
