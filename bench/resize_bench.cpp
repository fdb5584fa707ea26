// Resizing a UHD RGBA frame held in "mem" through the resampling filter,
// single thread: Lanczos-3 to HD and to 8K, Mitchell to 720p, 8-bit and
// float sources.  oiio/oiio_resize_bench.cpp does the same with OpenImageIO.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "content.hpp"
#include "orx/operators.h"
#include "orx/registry.h"

namespace {

using orx::bench::kChannels;
using orx::bench::kHeight;
using orx::bench::kWidth;

const char *frame(bool floats) {
  static bool written[2] = {};
  const char *name = floats ? "resize_f" : "resize_8";
  if (written[floats]) return name;
  ORX_IFD d;
  orx__init_ifd(&d);
  d.window = d.active = ORX_WINDOW{0, kWidth - 1, 0, kHeight - 1};
  const int32_t type = floats ? ORX_C_FLOAT : ORX_C_INTEGER, bits = floats ? 32 : 8;
  d.image = ORX_CHANNELS{nullptr, 3, type, bits, 0};
  d.matte = ORX_CHANNELS{nullptr, 1, type, bits, 0};
  d.curve.gamma = 1.0f;
  ORX_INFO info;
  ORX_info_init(&info);
  info.type = const_cast<char *>("mem");
  info.handle = const_cast<char *>(name);
  info.images = &d;
  info.image_count = 1;
  ORX_OBJECT *out = ORX_open(&info, "w");
  const std::size_t bytes = floats ? 4 : 1;
  std::vector<unsigned char> rows(bytes * kWidth * kChannels);
  std::mt19937 rng(3);
  for (std::size_t i = 0; i < rows.size() / bytes; ++i) {
    if (floats) {
      const float v = static_cast<float>(rng() % 1000) / 999.0f;
      std::memcpy(rows.data() + 4 * i, &v, 4);
    } else {
      rows[i] = static_cast<unsigned char>(rng());
    }
  }
  void *channels[kChannels + 1] = {};
  for (int c = 0; c < kChannels; ++c) channels[c] = rows.data() + bytes * kWidth * c;
  for (int y = 0; y < kHeight; ++y) ORX_scan_write(out, y, channels);
  ORX_close(out);
  written[floats] = true;
  return name;
}

void resize(benchmark::State &state, bool floats, const char *kernel, int w, int h) {
  const char *name = frame(floats);
  const ORX_FILTER *filter = ORX_filter_find(kernel);
  for (auto _ : state) {
    ORX_INFO info;
    ORX_info_init(&info);
    info.type = const_cast<char *>("mem");
    info.handle = const_cast<char *>(name);
    ORX_OBJECT *h_in = ORX_open(&info, "r");
    orx__resample_operator(h_in, filter, 0, w - 1, 0, h - 1);
    for (int y = 0; y < h; ++y) {
      void **rows = nullptr;
      ORX_scan_read(h_in, y, &rows);
      benchmark::DoNotOptimize(rows);
    }
    ORX_close(h_in);
  }
}

void BM_ResizeLanczosToHd8(benchmark::State &s) { resize(s, false, "lanczos3", 1920, 1080); }
void BM_ResizeLanczosTo8k8(benchmark::State &s) { resize(s, false, "lanczos3", 7680, 4320); }
void BM_ResizeMitchellTo720p8(benchmark::State &s) { resize(s, false, "mitchell", 1280, 720); }
void BM_ResizeLanczosToHdFloat(benchmark::State &s) { resize(s, true, "lanczos3", 1920, 1080); }
BENCHMARK(BM_ResizeLanczosToHd8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ResizeLanczosTo8k8)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_ResizeMitchellTo720p8)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ResizeLanczosToHdFloat)->Unit(benchmark::kMillisecond);

}  // namespace
