// Whole-file RLA throughput through the library's writer and reader on a UHD
// RGBA frame of 8-bit, 16-bit and float channels, in bytes of decoded
// samples per second.  Files go to the temporary directory, so the figures
// include the page cache but not the disk.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "content.hpp"
#include "orx/err.h"
#include "orx/plugin.h"
#include "orx/rla.h"
#include "orx/str.h"

namespace {

using orx::bench::Content;
using orx::bench::kChannels;
using orx::bench::kHeight;
using orx::bench::kWidth;

template <class T>
constexpr int kType = std::is_floating_point_v<T> ? ORX_C_FLOAT : ORX_C_INTEGER;

// Channel rows one after the other, row by row: kHeight x kChannels rows.
template <class T>
const std::vector<T> &frame(Content content) {
  static std::vector<T> frames[2];
  std::vector<T> &f = frames[static_cast<int>(content)];
  if (!f.empty()) return f;
  std::mt19937 rng(1234);
  f.resize(std::size_t{kHeight} * kChannels * kWidth);
  std::size_t i = 0;
  for (int y = 0; y < kHeight; ++y)
    for (int c = 0; c < kChannels; ++c)
      for (int x = 0; x < kWidth; ++x) f[i++] = orx::bench::sample_at<T>(content, c, x, y, rng);
  return f;
}

template <class T>
std::string path_for(Content content) {
  return (std::filesystem::temp_directory_path() /
          ("orx-bench-" + std::to_string(sizeof(T)) + (kType<T> == ORX_C_FLOAT ? "f" : "i") +
           (content == Content::kNoisy ? "-noisy" : "-flat") + ".rla"))
      .string();
}

ORX_OBJECT *object_for(const std::string &path, int32_t access) {
  ORX_OBJECT *o = orx__new_obj(access);
  o->info.handle = STR_save(path.c_str());
  o->info.full_path = 1;
  return o;
}

template <class T>
bool write_file(const std::string &path, const std::vector<T> &f) {
  ORX_OBJECT *o = object_for(path, ORX_ACCESS_WRITE);
  o->info.image_count = 1;
  o->info.images = static_cast<ORX_IFD *>(ERR_malloc(sizeof(ORX_IFD)));
  ORX_IFD &ifd = o->info.images[0];
  orx__init_ifd(&ifd);
  ifd.aspect = STR_save("ntsc_640");
  ifd.window = ifd.active = ORX_WINDOW{0, kWidth - 1, 0, kHeight - 1};
  ifd.image = ORX_CHANNELS{STR_save("rgb"), 3, kType<T>, 8 * int(sizeof(T)), 0};
  ifd.matte = ORX_CHANNELS{nullptr, 1, kType<T>, 8 * int(sizeof(T)), 0};
  if (!ORX_rla_w_open(o)) {
    orx__free_obj(o);
    return false;
  }
  void *rows[kChannels + 1] = {};
  bool ok = true;
  for (int y = 0; y < kHeight && ok; ++y) {
    for (int c = 0; c < kChannels; ++c)
      rows[c] = const_cast<T *>(&f[(std::size_t{static_cast<unsigned>(y)} * kChannels + c) * kWidth]);
    ok = o->scan(o->private_cell[0], y, rows) == 0;
  }
  return o->close(o, 0) == 0 && ok;
}

template <class T>
bool read_file(const std::string &path) {
  ORX_OBJECT *o = object_for(path, ORX_ACCESS_READ);
  if (!ORX_rla_r_open(o)) {
    orx__free_obj(o);
    return false;
  }
  bool ok = true;
  void **rows = nullptr;
  for (int y = 0; y < kHeight && ok; ++y) {
    ok = o->scan(o->private_cell[0], y, &rows) == 0;
    benchmark::DoNotOptimize(rows[0]);
  }
  return o->close(o, 0) == 0 && ok;
}

constexpr std::int64_t kSamples = std::int64_t{kWidth} * kHeight * kChannels;

template <class T, Content C>
void BM_RlaWrite(benchmark::State &state) {
  const std::vector<T> &f = frame<T>(C);
  std::string path = path_for<T>(C);
  for (auto _ : state)
    if (!write_file(path, f)) state.SkipWithError("write failed");
  state.SetBytesProcessed(state.iterations() * kSamples * std::int64_t{sizeof(T)});
  state.counters["file_MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
}

template <class T, Content C>
void BM_RlaRead(benchmark::State &state) {
  std::string path = path_for<T>(C);
  if (!write_file(path, frame<T>(C))) state.SkipWithError("write failed");
  for (auto _ : state)
    if (!read_file<T>(path)) state.SkipWithError("read failed");
  state.SetBytesProcessed(state.iterations() * kSamples * std::int64_t{sizeof(T)});
}

#define ORX_RLA_FILE_BENCH(T)                                                             \
  BENCHMARK_TEMPLATE(BM_RlaWrite, T, Content::kNoisy)->Unit(benchmark::kMillisecond);    \
  BENCHMARK_TEMPLATE(BM_RlaWrite, T, Content::kFlat)->Unit(benchmark::kMillisecond);     \
  BENCHMARK_TEMPLATE(BM_RlaRead, T, Content::kNoisy)->Unit(benchmark::kMillisecond);     \
  BENCHMARK_TEMPLATE(BM_RlaRead, T, Content::kFlat)->Unit(benchmark::kMillisecond)

ORX_RLA_FILE_BENCH(std::uint8_t);
ORX_RLA_FILE_BENCH(std::uint16_t);
ORX_RLA_FILE_BENCH(float);

}  // namespace

namespace {

// Decode and encode of a given file through the RLA functions alone, the
// floor for a converter such as `orx copy`: ORX_BENCH_COPY_FILE=path.
void BM_RlaCopyFile(benchmark::State &state) {
  const char *in_path = std::getenv("ORX_BENCH_COPY_FILE");
  if (in_path == nullptr) {
    state.SkipWithError("set ORX_BENCH_COPY_FILE to an RLA file");
    return;
  }
  const std::string out_path =
      (std::filesystem::temp_directory_path() / "orx-bench-copy.rla").string();
  std::int64_t bytes = 0;
  for (auto _ : state) {
    ORX_OBJECT *in = object_for(in_path, ORX_ACCESS_READ);
    if (!ORX_rla_r_open(in)) {
      orx__free_obj(in);
      state.SkipWithError("cannot read the file");
      return;
    }
    ORX_OBJECT *out = object_for(out_path, ORX_ACCESS_WRITE);
    out->info.image_count = 1;
    out->info.images = static_cast<ORX_IFD *>(ERR_malloc(sizeof(ORX_IFD)));
    out->info.images[0] = in->info.images[0];
    ORX_IFD &ifd = out->info.images[0];
    ifd.aspect = nullptr;
    ifd.image.name = ifd.matte.name = ifd.aux.name = ifd.index.name = nullptr;
    ORX_rla_w_open(out);
    uint32_t row_bytes = 0;
    void **probe = ORX_chan_alloc(&ifd, ifd.window.right - ifd.window.left + 1, "bench", &row_bytes);
    ORX_chan_free(probe);
    for (int y = ifd.window.bottom; y <= ifd.window.top; ++y) {
      void **rows = nullptr;
      in->scan(in->private_cell[0], y, &rows);
      out->scan(out->private_cell[0], y, rows);
      bytes += row_bytes;
    }
    in->close(in, 0);
    out->close(out, 0);
  }
  state.SetBytesProcessed(bytes);
}
BENCHMARK(BM_RlaCopyFile)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
