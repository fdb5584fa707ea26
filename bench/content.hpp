// Test images for the benchmarks: a UHD frame (3840 x 2160, four channels)
// whose content brackets what renderers produce.  "Noisy" is a smooth
// gradient with a little film grain, so most of a row is literal; "flat" is
// large uniform tiles, so most of it is runs.
#pragma once

#include <cstdint>
#include <random>
#include <type_traits>

namespace orx::bench {

constexpr int kWidth = 3840;
constexpr int kHeight = 2160;
constexpr int kChannels = 4;

enum class Content { kNoisy, kFlat };

// Full scale of a sample type: 255, 65535, or 1.0 for floating point.
template <class T>
constexpr double full_scale() {
  if constexpr (std::is_floating_point_v<T>)
    return 1.0;
  else
    return static_cast<double>((std::uint64_t{1} << (8 * sizeof(T))) - 1);
}

template <class T>
T sample_at(Content content, int channel, int x, int y, std::mt19937 &rng) {
  constexpr double kMax = full_scale<T>();
  double v;
  if (content == Content::kNoisy) {
    // A diagonal gradient per channel plus grain of about +-1% of full scale.
    double ramp = (x + 0.5 * y + 700.0 * channel) / (kWidth + 0.5 * kHeight + 2100.0);
    std::uniform_int_distribution<int> grain(-100, 100);
    v = ramp * kMax + grain(rng) * kMax / 10000.0;
  } else {
    // 480 x 270 tiles of one value each, a quarter of the frame black.
    int tile = (x / 480) * 7 + (y / 270) * 3 + channel;
    v = (x < kWidth / 2 && y < kHeight / 2) ? 0.0 : (tile % 11) * kMax / 10.0;
  }
  if (v < 0) v = 0;
  if (v > kMax) v = kMax;
  return static_cast<T>(v);
}

}  // namespace orx::bench
