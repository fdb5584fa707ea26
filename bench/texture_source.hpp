// A 1024 x 1024 RGBA 8-bit noise image, made once per process, written as a
// mipmap texture by the library and as a plain TIFF for OpenImageIO's maketx,
// so both lookup benchmarks sample the same texels.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace orx::bench {

constexpr int kTextureSide = 1024;

inline const std::vector<std::uint8_t> &texture_pixels() {  // interleaved RGBA, row 0 first
  static const std::vector<std::uint8_t> pixels = [] {
    std::vector<std::uint8_t> p(std::size_t{kTextureSide} * kTextureSide * 4);
    std::mt19937 rng(42);
    for (auto &v : p) v = static_cast<std::uint8_t>(rng());
    return p;
  }();
  return pixels;
}

// Random lookups with small footprints, the same sequence for every run.
struct Lookup {
  float s, t, ds, dt;
};
inline const std::vector<Lookup> &lookups() {
  static const std::vector<Lookup> all = [] {
    std::vector<Lookup> l(1 << 16);
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(0.0f, 1.0f), f(0.5f / kTextureSide, 4.0f / kTextureSide);
    for (auto &k : l) k = {u(rng), u(rng), f(rng), f(rng)};
    return l;
  }();
  return all;
}

}  // namespace orx::bench
