// The same UHD RGBA frames written and read scanline by scanline through
// OpenImageIO's RLA plug-in, to put beside BM_RlaWrite and BM_RlaRead.  Built
// only when OpenImageIO's development files are installed.
#include <benchmark/benchmark.h>

#include <OpenImageIO/imageio.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "content.hpp"

namespace {

using orx::bench::Content;
using orx::bench::kChannels;
using orx::bench::kHeight;
using orx::bench::kWidth;

template <class T>
OIIO::TypeDesc type_of() {
  if constexpr (std::is_same_v<T, std::uint8_t>) return OIIO::TypeDesc::UINT8;
  if constexpr (std::is_same_v<T, std::uint16_t>) return OIIO::TypeDesc::UINT16;
  return OIIO::TypeDesc::FLOAT;
}

// Interleaved RGBA with the same sample values as the library's frames.
template <class T>
const std::vector<T> &interleaved(Content content) {
  static std::vector<T> frames[2];
  std::vector<T> &f = frames[static_cast<int>(content)];
  if (!f.empty()) return f;
  std::mt19937 rng(1234);
  f.resize(std::size_t{kHeight} * kChannels * kWidth);
  for (int y = 0; y < kHeight; ++y)
    for (int c = 0; c < kChannels; ++c)
      for (int x = 0; x < kWidth; ++x)
        f[(std::size_t{static_cast<unsigned>(y)} * kWidth + x) * kChannels + c] =
            orx::bench::sample_at<T>(content, c, x, y, rng);
  return f;
}

template <class T>
std::string path_for(Content content) {
  return (std::filesystem::temp_directory_path() /
          ("orx-bench-oiio-" + std::to_string(sizeof(T)) +
           (content == Content::kNoisy ? "-noisy" : "-flat") + ".rla"))
      .string();
}

template <class T>
bool oiio_write(const std::string &path, const std::vector<T> &f) {
  auto out = OIIO::ImageOutput::create(path);
  if (!out) return false;
  OIIO::ImageSpec shape(kWidth, kHeight, kChannels, type_of<T>());
  if (!out->open(path, shape)) return false;
  for (int y = 0; y < kHeight; ++y)
    if (!out->write_scanline(y, 0, type_of<T>(), &f[std::size_t{static_cast<unsigned>(y)} *
                                                    kWidth * kChannels]))
      return false;
  return out->close();
}

template <class T, Content C>
void BM_OiioRlaWrite(benchmark::State &state) {
  const std::vector<T> &f = interleaved<T>(C);
  std::string path = path_for<T>(C);
  for (auto _ : state)
    if (!oiio_write(path, f)) state.SkipWithError("OpenImageIO write failed");
  state.SetBytesProcessed(state.iterations() * std::int64_t{kWidth} * kHeight * kChannels *
                          std::int64_t{sizeof(T)});
}

template <class T, Content C>
void BM_OiioRlaRead(benchmark::State &state) {
  std::string path = path_for<T>(C);
  if (!oiio_write(path, interleaved<T>(C))) state.SkipWithError("OpenImageIO write failed");
  std::vector<T> row(std::size_t{kWidth} * kChannels);
  for (auto _ : state) {
    auto in = OIIO::ImageInput::open(path);
    if (!in) {
      state.SkipWithError("OpenImageIO open failed");
      break;
    }
    for (int y = 0; y < kHeight; ++y) in->read_scanline(y, 0, type_of<T>(), row.data());
    in->close();
  }
  state.SetBytesProcessed(state.iterations() * std::int64_t{kWidth} * kHeight * kChannels *
                          std::int64_t{sizeof(T)});
}

#define ORX_OIIO_BENCH(T)                                                                   \
  BENCHMARK_TEMPLATE(BM_OiioRlaWrite, T, Content::kNoisy)->Unit(benchmark::kMillisecond);  \
  BENCHMARK_TEMPLATE(BM_OiioRlaRead, T, Content::kNoisy)->Unit(benchmark::kMillisecond)

ORX_OIIO_BENCH(std::uint8_t);
ORX_OIIO_BENCH(std::uint16_t);
ORX_OIIO_BENCH(float);

}  // namespace
