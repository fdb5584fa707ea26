// OpenImageIO's type conversion of the same UHD RGBA pixels, one thread, to
// put beside BM_OpCast8ToFloat, BM_OpCast16ToFloat and BM_OpQuantizeFloatTo8.
#include <benchmark/benchmark.h>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>

#include <random>

#include "content.hpp"

namespace {

using orx::bench::kChannels;
using orx::bench::kHeight;
using orx::bench::kWidth;

void convert(benchmark::State &state, OIIO::TypeDesc from, OIIO::TypeDesc to) {
  OIIO::attribute("threads", 1);
  OIIO::ImageBuf source(OIIO::ImageSpec(kWidth, kHeight, kChannels, from));
  OIIO::ImageBufAlgo::noise(source, "uniform", 0.0f, 1.0f);
  for (auto _ : state) {
    OIIO::ImageBuf out;
    out.copy(source, to);
    benchmark::DoNotOptimize(out.localpixels());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kWidth * kHeight * kChannels);
}

void BM_OiioConvert8ToFloat(benchmark::State &s) { convert(s, OIIO::TypeDesc::UINT8, OIIO::TypeDesc::FLOAT); }
void BM_OiioConvert16ToFloat(benchmark::State &s) { convert(s, OIIO::TypeDesc::UINT16, OIIO::TypeDesc::FLOAT); }
void BM_OiioConvertFloatTo8(benchmark::State &s) { convert(s, OIIO::TypeDesc::FLOAT, OIIO::TypeDesc::UINT8); }
void BM_OiioConvertFloatTo16(benchmark::State &s) { convert(s, OIIO::TypeDesc::FLOAT, OIIO::TypeDesc::UINT16); }
BENCHMARK(BM_OiioConvert8ToFloat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OiioConvert16ToFloat)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OiioConvertFloatTo8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OiioConvertFloatTo16)->Unit(benchmark::kMillisecond);

}  // namespace
