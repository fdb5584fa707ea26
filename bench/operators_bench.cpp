// Operators on a UHD RGBA frame held in "mem", read line by line through
// ORX_scan_read, single thread, in samples per second: the plain read (the
// floor), every byte of the float frame touched once (the memory floor of
// converting it), cast 8-bit and 16-bit to float, cast 8-bit with gamma 2.2 (table),
// quantize float to 8 and 16 bits, gamma correction of 8 bits, min-max.
// oiio/oiio_operators_bench.cpp converts the same pixels with OpenImageIO.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "content.hpp"
#include "mem_frames.hpp"
#include "orx/operators.h"
#include "orx/registry.h"

namespace {

using orx::bench::kChannels;
using orx::bench::kHeight;
using orx::bench::kWidth;

enum class Source { kInt8, kInt16, kFloat };

// The frame of one sample type (and gamma) under a "mem" name.
const char *frame(Source source, float gamma) {
  static const char *names[3][2] = {{"ops8", "ops8g"}, {"ops16", "ops16g"}, {"opsf", "opsfg"}};
  const int s = static_cast<int>(source), g = gamma != 1.0f;
  const int32_t type = source == Source::kFloat ? ORX_C_FLOAT : ORX_C_INTEGER;
  const int32_t bits = source == Source::kInt8 ? 8 : source == Source::kInt16 ? 16 : 32;
  return orx::bench::mem_frame(names[s][g], type, bits, gamma);
}

enum class Op { kPlain, kTouch, kCast, kQuantize8, kQuantize16, kGamma, kMinMax };

void run(benchmark::State &state, Source source, float gamma, Op op) {
  const char *name = frame(source, gamma);
  ORX_OBJECT *h = orx::bench::open_mem_frame(name);
  const int32_t eight[2] = {ORX_C_INTEGER, 8}, sixteen[2] = {ORX_C_INTEGER, 16};
  const int32_t *const to8[3] = {eight, eight, eight}, *const to16[3] = {sixteen, sixteen, sixteen};
  ORX_RESPONSE_CURVE linear{ORX_CURVE_PARAMETRIC, 1.0f, 0, 0, 1, 256, ORX_C_INTEGER, 8, nullptr};
  switch (op) {
    case Op::kPlain:
    case Op::kTouch: break;
    case Op::kCast: orx__cast_operator(h); break;
    case Op::kQuantize8: orx__quantize_read_operator(h, to8); break;
    case Op::kQuantize16: orx__quantize_read_operator(h, to16); break;
    case Op::kGamma: orx__gamma_operator(h, &linear); break;
    case Op::kMinMax: orx__min_max_operator(h, 0.25, 0.75); break;
  }
  const std::size_t row_bytes =
      std::size_t{kWidth} * (source == Source::kInt8 ? 1 : source == Source::kInt16 ? 2 : 4);
  for (auto _ : state)
    for (int y = 0; y < kHeight; ++y) {
      void **rows = nullptr;
      ORX_scan_read(h, y, &rows);
      if (op == Op::kTouch) {  // every byte read once: the memory floor of a conversion
        std::uint64_t sum = 0;
        for (int c = 0; c < kChannels; ++c) {
          const auto *p = static_cast<const std::uint8_t *>(rows[c]);
          for (std::size_t i = 0; i < row_bytes; i += 8) {
            std::uint64_t v;
            std::memcpy(&v, p + i, 8);
            sum += v;
          }
        }
        benchmark::DoNotOptimize(sum);
      }
      benchmark::DoNotOptimize(rows);
    }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kWidth * kHeight * kChannels);
  ORX_close(h);
}

void BM_OpPlainRead8(benchmark::State &s) { run(s, Source::kInt8, 1.0f, Op::kPlain); }
void BM_OpTouchFloat(benchmark::State &s) { run(s, Source::kFloat, 1.0f, Op::kTouch); }
void BM_OpCast8ToFloat(benchmark::State &s) { run(s, Source::kInt8, 1.0f, Op::kCast); }
void BM_OpCast16ToFloat(benchmark::State &s) { run(s, Source::kInt16, 1.0f, Op::kCast); }
void BM_OpCast8Gamma22(benchmark::State &s) { run(s, Source::kInt8, 2.2f, Op::kCast); }
void BM_OpQuantizeFloatTo8(benchmark::State &s) { run(s, Source::kFloat, 1.0f, Op::kQuantize8); }
void BM_OpQuantizeFloatTo16(benchmark::State &s) { run(s, Source::kFloat, 1.0f, Op::kQuantize16); }
void BM_OpGammaCorrection8(benchmark::State &s) { run(s, Source::kInt8, 2.2f, Op::kGamma); }
void BM_OpMinMax8(benchmark::State &s) { run(s, Source::kInt8, 1.0f, Op::kMinMax); }
BENCHMARK(BM_OpPlainRead8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpTouchFloat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpCast8ToFloat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpCast16ToFloat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpCast8Gamma22)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpQuantizeFloatTo8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpQuantizeFloatTo16)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpGammaCorrection8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpMinMax8)->Unit(benchmark::kMillisecond);

}  // namespace
