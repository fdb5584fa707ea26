// Throughput of the RLA channel codec alone on a UHD frame of 8-bit and
// 16-bit samples, in bytes of decoded samples per second.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "content.hpp"
#include "formats/rla/rle.hpp"

namespace {

using orx::rla::Sample;

using orx::bench::Content;
using orx::bench::kChannels;
using orx::bench::kHeight;
using orx::bench::kWidth;
constexpr int kRows = kHeight * kChannels;  // one channel row per chunk

// The frame as the writer sees it: channel rows one after the other.
template <int Bytes>
struct Frame {
  std::vector<Sample<Bytes>> samples;    // kRows rows of kWidth samples
  std::vector<std::uint8_t> encoded;     // every chunk, back to back
  std::vector<std::size_t> chunk_begin;  // kRows + 1 offsets into encoded
};

template <int Bytes>
const Frame<Bytes> &frame(Content content) {
  static Frame<Bytes> frames[2];
  Frame<Bytes> &f = frames[static_cast<int>(content)];
  if (!f.samples.empty()) return f;
  std::mt19937 rng(1234);
  f.samples.resize(static_cast<std::size_t>(kRows) * kWidth);
  for (int y = 0; y < kHeight; ++y) {
    for (int c = 0; c < kChannels; ++c) {
      Sample<Bytes> *row = &f.samples[(static_cast<std::size_t>(y) * kChannels + c) * kWidth];
      for (int x = 0; x < kWidth; ++x)
        row[x] = orx::bench::sample_at<Sample<Bytes>>(content, c, x, y, rng);
    }
  }
  std::vector<std::uint8_t> chunk(orx::rla::encode_buffer_size(kWidth, 8 * Bytes));
  f.chunk_begin.push_back(0);
  for (int r = 0; r < kRows; ++r) {
    std::size_t n = orx::rla::encode_row<Bytes>(&f.samples[static_cast<std::size_t>(r) * kWidth],
                                                kWidth, chunk.data());
    f.encoded.insert(f.encoded.end(), chunk.begin(), chunk.begin() + static_cast<long>(n));
    f.chunk_begin.push_back(f.encoded.size());
  }
  return f;
}

constexpr std::int64_t kFrameBytes = std::int64_t{kRows} * kWidth;

template <int Bytes, Content C>
void BM_Encode(benchmark::State &state) {
  const Frame<Bytes> &f = frame<Bytes>(C);
  std::vector<std::uint8_t> chunk(orx::rla::encode_buffer_size(kWidth, 8 * Bytes));
  for (auto _ : state) {
    for (int r = 0; r < kRows; ++r) {
      std::size_t n = orx::rla::encode_row<Bytes>(&f.samples[static_cast<std::size_t>(r) * kWidth],
                                                  kWidth, chunk.data());
      benchmark::DoNotOptimize(n);
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kFrameBytes * Bytes);
  state.counters["ratio"] = static_cast<double>(f.encoded.size()) / (kFrameBytes * Bytes);
}

template <int Bytes, Content C>
void BM_Decode(benchmark::State &state) {
  const Frame<Bytes> &f = frame<Bytes>(C);
  std::vector<Sample<Bytes>> row(kWidth);
  for (auto _ : state) {
    for (int r = 0; r < kRows; ++r) {
      std::size_t begin = f.chunk_begin[static_cast<std::size_t>(r)];
      std::size_t len = f.chunk_begin[static_cast<std::size_t>(r) + 1] - begin;
      int got = orx::rla::decode_row<Bytes>(&f.encoded[begin], len, kWidth, row.data());
      if (got != kWidth) state.SkipWithError("chunk did not decode");
      benchmark::DoNotOptimize(row.data());
    }
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kFrameBytes * Bytes);
}

BENCHMARK_TEMPLATE(BM_Encode, 1, Content::kNoisy)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Encode, 2, Content::kNoisy)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Encode, 1, Content::kFlat)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Encode, 2, Content::kFlat)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Decode, 1, Content::kNoisy)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Decode, 2, Content::kNoisy)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Decode, 1, Content::kFlat)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_Decode, 2, Content::kFlat)->Unit(benchmark::kMillisecond);

}  // namespace

