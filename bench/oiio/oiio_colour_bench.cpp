// OpenImageIO's colormatrixtransform, one thread, on UHD float RGBA, beside
// BM_RgbTransformFloat.
#include <benchmark/benchmark.h>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <Imath/ImathMatrix.h>

#include "content.hpp"

namespace {

using orx::bench::kChannels;
using orx::bench::kHeight;
using orx::bench::kWidth;

void BM_OiioColorMatrixFloat(benchmark::State &state) {
  OIIO::attribute("threads", 1);
  OIIO::ImageBuf source(OIIO::ImageSpec(kWidth, kHeight, kChannels, OIIO::TypeDesc::FLOAT));
  OIIO::ImageBufAlgo::noise(source, "uniform", 0.0f, 1.0f);
  const Imath::M44f m(1.66f, -0.12f, -0.02f, 0, -0.59f, 1.13f, -0.1f, 0, -0.07f, -0.01f, 1.12f, 0,
                      0, 0, 0, 1);
  for (auto _ : state) {
    OIIO::ImageBuf out = OIIO::ImageBufAlgo::colormatrixtransform(source, m, false, {}, 1);
    benchmark::DoNotOptimize(out.localpixels());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kWidth * kHeight);
}
BENCHMARK(BM_OiioColorMatrixFloat)->Unit(benchmark::kMillisecond);

}  // namespace
