// Rows of 8-bit codes through tables of 256 entries: the cast's
// linearising table (floats) and the gamma correction's composed tables
// (bytes).
#pragma once

#include <cstdint>

namespace orx::operators {

// n codes through a table of 256 T.  Four lookups are issued before their
// stores: a lookup does not vectorise through gathers (slower than scalar
// loads on common processors), but independent loads overlap where a
// one-at-a-time loop is held to about a sample a cycle.  Byte tables may
// work in place (codes == out).
template <class T>
inline void lookup_row(const T *table, const void *codes, int32_t n, void *out_row) {
  const auto *in = static_cast<const uint8_t *>(codes);
  auto *out = static_cast<T *>(out_row);
  int32_t x = 0;
  for (; x + 4 <= n; x += 4) {
    const T a = table[in[x]], b = table[in[x + 1]], c = table[in[x + 2]], d = table[in[x + 3]];
    out[x] = a;
    out[x + 1] = b;
    out[x + 2] = c;
    out[x + 3] = d;
  }
  for (; x < n; ++x) out[x] = table[in[x]];
}

// A table of 256 floats, also kept as four planes of bytes (byte k of every
// value in plane k): processors that shuffle bytes by a vector of indices
// (AVX-512 VBMI) look up 64 codes at a time in them.
struct FloatTable {
  const float *values;
  uint8_t planes[4][256];
};

// t for the 256 values (which must outlive it).
void float_table_init(FloatTable &t, const float *values);

// n codes through t into floats: the values lookup_row gives, by byte
// shuffles where the processor has them and the fast row kernels are in
// use (see resample_engine.hpp), else by lookup_row.
void lookup_floats(const FloatTable &t, const void *codes, int32_t n, float *out);

// The byte-shuffling lookup where the processor has it, whatever the
// environment asks (null otherwise): for tests that compare it.
using FloatLookup = void (*)(const FloatTable &t, const void *codes, int32_t n, float *out);
FloatLookup shuffling_lookup();

}  // namespace orx::operators
