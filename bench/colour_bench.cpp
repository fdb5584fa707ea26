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
#include "orx/operators.h"
#include "orx/registry.h"

namespace {

using orx::bench::kChannels;
using orx::bench::kHeight;
using orx::bench::kWidth;

const char *frame(bool floats) {
  static bool written[2] = {};
  const char *name = floats ? "colour_f" : "colour_16";
  if (written[floats]) return name;
  ORX_IFD d;
  orx__init_ifd(&d);
  d.window = d.active = ORX_WINDOW{0, kWidth - 1, 0, kHeight - 1};
  const int32_t type = floats ? ORX_C_FLOAT : ORX_C_INTEGER, bits = floats ? 32 : 16;
  d.image = ORX_CHANNELS{nullptr, 3, type, bits, 0};
  d.matte = ORX_CHANNELS{nullptr, 1, type, bits, 0};
  ORX_INFO info;
  ORX_info_init(&info);
  info.type = const_cast<char *>("mem");
  info.handle = const_cast<char *>(name);
  info.images = &d;
  info.image_count = 1;
  ORX_OBJECT *out = ORX_open(&info, "w");
  const std::size_t bytes = floats ? 4 : 2;
  std::vector<unsigned char> rows(bytes * kWidth * kChannels);
  std::mt19937 rng(9);
  for (std::size_t i = 0; i < rows.size() / bytes; ++i) {
    if (floats) {
      const float v = static_cast<float>(rng() % 1000) / 999.0f;
      std::memcpy(rows.data() + 4 * i, &v, 4);
    } else {
      const auto v = static_cast<uint16_t>(rng());
      std::memcpy(rows.data() + 2 * i, &v, 2);
    }
  }
  void *channels[kChannels + 1] = {};
  for (int c = 0; c < kChannels; ++c) channels[c] = rows.data() + bytes * kWidth * c;
  for (int y = 0; y < kHeight; ++y) ORX_scan_write(out, y, channels);
  ORX_close(out);
  written[floats] = true;
  return name;
}

template <class Install>
void run(benchmark::State &state, bool floats, Install install) {
  const char *name = frame(floats);
  for (auto _ : state) {
    ORX_INFO info;
    ORX_info_init(&info);
    info.type = const_cast<char *>("mem");
    info.handle = const_cast<char *>(name);
    ORX_OBJECT *h = ORX_open(&info, "r");
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
