// The whole-row converters behind ORX_convert_row, seen from inside the
// library: the float-to-code ones also come as AVX2 kernels, chosen with
// the resampling engine's kernels (ORX_KERNELS "portable" or "exact" keeps
// the portable loops), whose results equal the portable loops' to the bit
// for every input, not-a-number and infinities included.
#pragma once

#include <cstdint>

namespace orx::operators {

// n samples from src to dst, integers of from_bits and to_bits where an end
// holds codes (rows at any byte address).
using RowConverter = void (*)(const void *src, void *dst, int32_t n, int32_t from_bits,
                              int32_t to_bits);

// Floats to codes of up to 8 bits (one byte each) and of 9 to 16 bits (two
// bytes each): scaled by 2^to_bits - 1, rounded half up, clamped to the
// codes, not a number to 0.
struct QuantizeKernels {
  RowConverter to_u8;
  RowConverter to_u16;
  const char *name;
};

// The portable loops and, where the processor has AVX2, the vector kernels
// (null otherwise), whatever the environment says: for tests that compare
// them.
const QuantizeKernels &portable_quantize();
const QuantizeKernels *avx2_quantize();

}  // namespace orx::operators
