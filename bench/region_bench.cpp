// Region reads of a whole UHD 8-bit RGBA RLA frame into the packed RGBA8
// and RGBA16 layouts, next to plain scanline reads of the same file through
// ORX_open and ORX_scan_read (the floor a region read is measured against).
#include <benchmark/benchmark.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "content.hpp"
#include "orx/err.h"
#include "orx/region.h"
#include "orx/registry.h"
#include "orx/str.h"

namespace {

using orx::bench::Content;
using orx::bench::kChannels;
using orx::bench::kHeight;
using orx::bench::kWidth;

const std::string &frame_file() {
  static const std::string path =
      (std::filesystem::temp_directory_path() / "orx-bench-region.rla").string();
  static bool written = false;
  if (written) return path;
  std::vector<std::uint8_t> rows(std::size_t{kWidth} * kChannels);
  ORX_INFO info;
  ORX_info_init(&info);
  info.handle = STR_save(path.c_str());
  info.full_path = 1;
  info.image_count = 1;
  info.images = static_cast<ORX_IFD *>(ERR_malloc(sizeof(ORX_IFD)));
  orx__init_ifd(info.images);
  info.images[0].window = info.images[0].active = ORX_WINDOW{0, kWidth - 1, 0, kHeight - 1};
  info.images[0].image = ORX_CHANNELS{nullptr, 3, ORX_C_INTEGER, 8, 0};
  info.images[0].matte = ORX_CHANNELS{nullptr, 1, ORX_C_INTEGER, 8, 0};
  ORX_OBJECT *out = ORX_open(&info, "w");
  ORX_info_cleanup(&info, 1);
  std::mt19937 rng(1234);
  void *channels[kChannels + 1] = {};
  for (int c = 0; c < kChannels; ++c) channels[c] = rows.data() + std::size_t{kWidth} * c;
  for (int y = 0; y < kHeight; ++y) {
    for (int c = 0; c < kChannels; ++c)
      for (int x = 0; x < kWidth; ++x)
        rows[std::size_t{kWidth} * c + x] =
            orx::bench::sample_at<std::uint8_t>(Content::kNoisy, c, x, y, rng);
    ORX_scan_write(out, y, channels);
  }
  ORX_close(out);
  written = true;
  return path;
}

ORX_OBJECT *open_frame() {
  ORX_INFO info;
  ORX_info_init(&info);
  info.handle = STR_save(frame_file().c_str());
  info.full_path = 1;
  ORX_OBJECT *object = ORX_open(&info, "r");
  ORX_info_cleanup(&info, 1);
  return object;
}

constexpr std::int64_t kPixels = std::int64_t{kWidth} * kHeight;

void BM_ScanlineRead(benchmark::State &state) {
  for (auto _ : state) {
    ORX_OBJECT *object = open_frame();
    void **rows = nullptr;
    // In stored order (bottom up, as the region read goes), so that the floor
    // is the plain decode and not a seek per row.
    for (int y = 0; y < kHeight; ++y) ORX_scan_read(object, y, &rows);
    benchmark::DoNotOptimize(rows);
    ORX_close(object);
  }
  state.SetBytesProcessed(state.iterations() * kPixels * kChannels);
}

template <int Layout, int Bytes>
void BM_Region(benchmark::State &state) {
  std::vector<std::uint8_t> buffer(static_cast<std::size_t>(kPixels) * Bytes);
  for (auto _ : state) {
    ORX_OBJECT *object = open_frame();
    if (ORX_get_region(&object, 0, kWidth - 1, 0, kHeight - 1, buffer.data(), -1, Layout) != 0)
      state.SkipWithError("region read failed");
    benchmark::DoNotOptimize(buffer.data());
    ORX_close(object);
  }
  state.SetBytesProcessed(state.iterations() * kPixels * kChannels);
}

BENCHMARK(BM_ScanlineRead)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Region, ORX_REGION_RGBA8, 4)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Region, ORX_REGION_RGBA16, 8)->Unit(benchmark::kMillisecond);

}  // namespace
