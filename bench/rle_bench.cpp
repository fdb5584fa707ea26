// Throughput of the RLA channel codec on a UHD frame (3840 x 2160, four
// channels) of 8-bit and 16-bit samples, measured in bytes of decoded samples
// per second.  Two kinds of content bracket what renderers produce: "noisy"
// (a smooth gradient with a little film grain, so most of the frame is
// literal) and "flat" (large uniform areas, so most of it is runs).
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "formats/rla/rle.hpp"

namespace {

using orx::rla::Sample;

constexpr int kWidth = 3840;
constexpr int kHeight = 2160;
constexpr int kChannels = 4;
constexpr int kRows = kHeight * kChannels;  // one channel row per chunk

enum class Content { kNoisy, kFlat };

// The frame as the writer sees it: channel rows one after the other.
template <int Bytes>
struct Frame {
  std::vector<Sample<Bytes>> samples;    // kRows rows of kWidth samples
  std::vector<std::uint8_t> encoded;     // every chunk, back to back
  std::vector<std::size_t> chunk_begin;  // kRows + 1 offsets into encoded
};

template <int Bytes>
Sample<Bytes> sample_at(Content content, int channel, int x, int y, std::mt19937 &rng) {
  constexpr double kMax = Bytes == 1 ? 255.0 : 65535.0;
  double v;
  if (content == Content::kNoisy) {
    // A diagonal gradient per channel plus grain of about +-1% of full scale.
    double ramp = (x + 0.5 * y + 700.0 * channel) / (kWidth + 0.5 * kHeight + 2100.0);
    std::uniform_int_distribution<int> grain(Bytes == 1 ? -2 : -600, Bytes == 1 ? 2 : 600);
    v = ramp * kMax + grain(rng);
  } else {
    // 480 x 270 tiles of one value each, a quarter of the frame black.
    int tile = (x / 480) * 7 + (y / 270) * 3 + channel;
    v = (x < kWidth / 2 && y < kHeight / 2) ? 0.0 : (tile % 11) * kMax / 10.0;
  }
  if (v < 0) v = 0;
  if (v > kMax) v = kMax;
  return static_cast<Sample<Bytes>>(v);
}

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
      for (int x = 0; x < kWidth; ++x) row[x] = sample_at<Bytes>(content, c, x, y, rng);
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

BENCHMARK_MAIN();
