// The row engine the resampling filter and the scale operator share: one
// axis's weights as a table of normalised weights per output pixel, padded
// with zeros to a fixed tap count so that every pixel's taps are one run of
// whole vectors, the row kernels that apply such tables (across rows, and
// down a stack of rows with the sums held in registers), and the widening
// of integer source rows to float.
//
// The kernels are chosen once per process from the environment variable
// ORX_KERNELS, read at the first use: unset (or "auto"), AVX2 with FMA where
// the processor has them, else the portable loops; "portable", the portable
// loops whatever the processor (how both are tested on one machine);
// "exact", the resampling filter's reference arithmetic (with which the
// filter also keeps its reference order, across first): each column's taps
// added in order with the weights as the kernel gave them and the sum then
// divided by theirs, each output line's rows added in order, all in single
// precision, one rounding per operation (slower; for hosts that must match
// results computed that way to the bit).
#pragma once

#include <cstdint>

namespace orx::operators {

// One axis: count output pixels, each the weighted sum of stride source
// samples from first[j] on (weights beyond a pixel's own taps are 0).
struct TapTable {
  int32_t count = 0;   // output pixels
  int32_t stride = 0;  // taps per pixel: padded_stride() of the widest pixel's
  int32_t source = 0;  // source samples along the axis
  int32_t fast = 0;    // pixels 0..fast-1 read whole strides inside the source
  float *weights = nullptr;  // count x stride
  float *normalisers = nullptr;  // count, exact arithmetic only: the sums' divisors' reciprocals
  int32_t *first = nullptr;  // count
  int32_t *used = nullptr;   // count: taps up to the last non-padding one
};

constexpr int32_t kTapBlock = 4;

// The stride for pixels of at most taps taps: 4, or a multiple of 8 (whole
// vectors of eight, each one multiply-add, cost less than a last half
// vector added into the sum on its own).
int32_t padded_stride(int32_t taps);

// Allocates a table for count pixels of at most taps taps each (weights 0);
// false when memory ran out (reported by the allocator, the table emptied).
// With normalisers, the table also holds one per pixel (set to 1).
bool tap_table_alloc(TapTable &t, int32_t count, int32_t taps, int32_t source,
                     bool normalisers = false);
void tap_table_free(TapTable &t);
// Drops each pixel's zero weights at either end of its taps (a kernel's
// support seldom starts on a source pixel) and narrows the stride to the
// widest pixel left: fewer multiply-adds for every row filtered.
void tap_table_trim(TapTable &t);
// Once every pixel's first and used are set: the fast prefix.
void tap_table_finish(TapTable &t);

// Filters channels source rows (t.source floats each) into t.count floats
// each; the channels of a few pixels at a time, so that their weights are
// read from memory once.
using HorizontalKernel = void (*)(const TapTable &t, void *const *in, void *const *out,
                                  int32_t channels);
// out[j] = (sum over k < n of weights[k] x rows[k][j]) x scale for j < width,
// then cut below 0 when cut is set.
using VerticalKernel = void (*)(const float *const *rows, const float *weights, int32_t n,
                                int32_t width, float scale, bool cut, float *out);

// Two neighbouring lines of a reduction at once, from the rows they draw
// on between them in source order: first `only_a` rows of line a alone,
// then `shared` rows of both, then `only_b` rows of line b alone.  weights_a
// holds only_a + shared weights, weights_b shared + only_b.  Each line's sums
// are rounded exactly as the vertical kernel rounds them over its own rows
// with scale 1 and no cut; the shared rows are read once for both.
struct RowSpans {
  int32_t only_a, shared, only_b;
};
using VerticalPairKernel = void (*)(const float *const *rows, RowSpans spans,
                                    const float *weights_a, const float *weights_b,
                                    int32_t width, float *out_a, float *out_b);

// sums[j] += weight x row[j] for j < width, each sum rounded exactly as
// the vertical kernel rounds its running sums: adding rows one at a time in
// order and finishing with the same scale and cut gives its result to the
// bit.
using AccumulateKernel = void (*)(const float *row, float weight, int32_t width, float *sums);

// The storage a source row's samples come in.
enum class SourceKind : int32_t { kFloat, kU8, kU16 };

// n samples of a source row as float, exactly as the cast operator gives
// them: integers divided by their maximum (2^bits - 1) in single precision,
// which for every code of 1 to 16 bits is the float nearest to the cast's
// double product; floats copied.  Rows need no alignment.
using WidenKernel = void (*)(const void *in, SourceKind kind, int32_t n, float maximum, float *out);

struct RowKernels {
  HorizontalKernel horizontal;
  VerticalKernel vertical;
  VerticalPairKernel vertical_pair;
  AccumulateKernel accumulate;
  WidenKernel widen;
  const char *name;  // "avx2", "portable" or "exact"
  bool exact;        // tables keep raw weights and normalisers
};

// The kernels for this processor (see above).
const RowKernels &row_kernels();
// Whether row_kernels() are the vector ones: the other row kernels of the
// library (table lookups, float-to-code conversion) follow this choice, so
// that ORX_KERNELS selects their portable loops too.
bool vector_kernels_chosen();
// The portable kernels and, where the processor has it, the AVX2 ones (null
// otherwise), whatever the environment says: for tests that compare them.
const RowKernels &portable_kernels();
const RowKernels *avx2_kernels();
const RowKernels &exact_kernels();

}  // namespace orx::operators
