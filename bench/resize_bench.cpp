// Resizing a UHD RGBA frame held in "mem" through the resampling filter,
// single thread: Lanczos-3 to HD and to 8K, Mitchell to 720p, 8-bit,
// 16-bit and float sources.  oiio/oiio_resize_bench.cpp does the same with OpenImageIO.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "content.hpp"
#include "mem_frames.hpp"
#include "orx/operators.h"
#include "orx/registry.h"

namespace {

using orx::bench::kChannels;
using orx::bench::kHeight;
using orx::bench::kWidth;

const char *frame(int bits) {
  if (bits == 32) return orx::bench::mem_frame("resize_f", ORX_C_FLOAT, 32);
  if (bits == 16) return orx::bench::mem_frame("resize_16", ORX_C_INTEGER, 16);
  return orx::bench::mem_frame("resize_8", ORX_C_INTEGER, 8);
}

void resize(benchmark::State &state, int bits, const char *kernel, int w, int h) {
  const char *name = frame(bits);
  const ORX_FILTER *filter = ORX_filter_find(kernel);
  for (auto _ : state) {
    ORX_OBJECT *h_in = orx::bench::open_mem_frame(name);
    orx__resample_operator(h_in, filter, 0, w - 1, 0, h - 1);
    for (int y = 0; y < h; ++y) {
      void **rows = nullptr;
      ORX_scan_read(h_in, y, &rows);
      benchmark::DoNotOptimize(rows);
    }
    ORX_close(h_in);
  }
}

void BM_ResizeLanczosToHd8(benchmark::State &s) { resize(s, 8, "lanczos3", 1920, 1080); }
void BM_ResizeLanczosTo8k8(benchmark::State &s) { resize(s, 8, "lanczos3", 7680, 4320); }
void BM_ResizeMitchellTo720p8(benchmark::State &s) { resize(s, 8, "mitchell", 1280, 720); }
void BM_ResizeLanczosToHd16(benchmark::State &s) { resize(s, 16, "lanczos3", 1920, 1080); }
void BM_ResizeLanczosToHdFloat(benchmark::State &s) { resize(s, 32, "lanczos3", 1920, 1080); }
BENCHMARK(BM_ResizeLanczosToHd8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ResizeLanczosTo8k8)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_ResizeMitchellTo720p8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ResizeLanczosToHd16)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ResizeLanczosToHdFloat)->Unit(benchmark::kMillisecond);

}  // namespace
