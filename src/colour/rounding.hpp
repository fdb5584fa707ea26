// The rounding shared by the gamma tables and the response curves.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace orx::colour {

// Add one half, then truncate toward zero, in double precision.
inline double round_half_up(double v) { return std::trunc(v + 0.5); }

// A whole number from v, held to 0..limit so that an odd exponent (negative,
// infinite or not a number) cannot overflow the conversion; not a number
// gives 0.
inline int64_t to_code(double v, double limit) {
  if (!(v > 0.0)) return 0;
  return static_cast<int64_t>(std::min(v, limit));
}

}  // namespace orx::colour
