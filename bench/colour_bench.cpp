// The rgb transform on a UHD float RGBA frame and the display chain of a UHD
// 16-bit RGBA frame onto the "full" framebuffer, both held in "mem", read
// line by line, single thread; oiio/oiio_colour_bench.cpp runs OpenImageIO's
// colormatrixtransform on the same pixels.
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

const char *frame(bool floats) {
  return floats ? orx::bench::mem_frame("colour_f", ORX_C_FLOAT, 32)
                : orx::bench::mem_frame("colour_16", ORX_C_INTEGER, 16);
}

template <class Install>
void run(benchmark::State &state, bool floats, Install install) {
  const char *name = frame(floats);
  for (auto _ : state) {
    ORX_OBJECT *h = orx::bench::open_mem_frame(name);
    install(h);
    const int32_t top = h->info.images[0].window.top;
    for (int32_t y = 0; y <= top; ++y) {
      void **rows = nullptr;
      ORX_scan_read(h, y, &rows);
      benchmark::DoNotOptimize(rows);
    }
    ORX_close(h);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kWidth * kHeight);
}

void BM_RgbTransformFloat(benchmark::State &s) {
  static const float wide[8] = {0.7347f, 0.2653f, 0.1152f, 0.8264f, 0.1566f, 0.0177f, 0.3457f, 0.3585f};
  run(s, true, [](ORX_OBJECT *h) { orx__rgb_transform_operator(h, wide); });
}
void BM_DisplaySixteenBitOnFull(benchmark::State &s) {
  run(s, false, [](ORX_OBJECT *h) { ORX__display(h, "full"); });
}
BENCHMARK(BM_RgbTransformFloat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DisplaySixteenBitOnFull)->Unit(benchmark::kMillisecond);

}  // namespace
