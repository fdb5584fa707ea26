// OpenImageIO's resize with one thread on UHD RGBA, beside bench/resize_bench.cpp.
#include <benchmark/benchmark.h>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include "content.hpp"

namespace {

using orx::bench::kChannels;
using orx::bench::kHeight;
using orx::bench::kWidth;

void resize(benchmark::State &state, OIIO::TypeDesc type, const char *filter, int w, int h) {
  OIIO::attribute("threads", 1);
  OIIO::ImageBuf source(OIIO::ImageSpec(kWidth, kHeight, kChannels, type));
  OIIO::ImageBufAlgo::noise(source, "uniform", 0.0f, 1.0f);
  for (auto _ : state) {
    OIIO::ImageBuf out(OIIO::ImageSpec(w, h, kChannels, type));
    OIIO::ImageBufAlgo::resize(out, source, filter, 0.0f, {}, 1);
    benchmark::DoNotOptimize(out.localpixels());
  }
}

void BM_OiioResizeLanczosToHd8(benchmark::State &s) { resize(s, OIIO::TypeDesc::UINT8, "lanczos3", 1920, 1080); }
void BM_OiioResizeLanczosTo8k8(benchmark::State &s) { resize(s, OIIO::TypeDesc::UINT8, "lanczos3", 7680, 4320); }
void BM_OiioResizeMitchellTo720p8(benchmark::State &s) { resize(s, OIIO::TypeDesc::UINT8, "mitchell", 1280, 720); }
void BM_OiioResizeLanczosToHdFloat(benchmark::State &s) { resize(s, OIIO::TypeDesc::FLOAT, "lanczos3", 1920, 1080); }
BENCHMARK(BM_OiioResizeLanczosToHd8)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_OiioResizeLanczosTo8k8)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_OiioResizeMitchellTo720p8)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_OiioResizeLanczosToHdFloat)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
