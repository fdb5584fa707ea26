// UHD RGBA frames of random samples held in "mem" under a name, written once
// per process, for the benchmarks that read through operators.
#pragma once

#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "content.hpp"
#include "orx/registry.h"

namespace orx::bench {

// The frame name, written the first time: 3 colour channels and a matte of
// the given type and width, random codes (integers) or values in 0..1.
inline const char *mem_frame(const char *name, int32_t type, int32_t bits, float gamma = 1.0f) {
  static std::set<std::string> written;
  if (!written.insert(name).second) return name;
  ORX_IFD d;
  orx__init_ifd(&d);
  d.window = d.active = ORX_WINDOW{0, kWidth - 1, 0, kHeight - 1};
  d.image = ORX_CHANNELS{nullptr, 3, type, bits, 0};
  d.matte = ORX_CHANNELS{nullptr, 1, type, bits, 0};
  d.curve.gamma = gamma;
  ORX_INFO info;
  ORX_info_init(&info);
  info.type = const_cast<char *>("mem");
  info.handle = const_cast<char *>(name);
  info.images = &d;
  info.image_count = 1;
  ORX_OBJECT *out = ORX_open(&info, "w");
  const std::size_t bytes = type == ORX_C_FLOAT ? 4 : bits <= 8 ? 1 : bits <= 16 ? 2 : 4;
  std::vector<unsigned char> rows(bytes * kWidth * kChannels);
  std::mt19937 rng(5);
  for (std::size_t i = 0; i < rows.size() / bytes; ++i) {
    if (type == ORX_C_FLOAT) {
      const float v = static_cast<float>(rng() % 1000) / 999.0f;
      std::memcpy(rows.data() + 4 * i, &v, 4);
    } else {
      const auto v = static_cast<uint32_t>(rng());
      std::memcpy(rows.data() + bytes * i, &v, bytes);  // little-endian: the low bytes
    }
  }
  void *channels[kChannels + 1] = {};
  for (int c = 0; c < kChannels; ++c) channels[c] = rows.data() + bytes * kWidth * c;
  for (int y = 0; y < kHeight; ++y) ORX_scan_write(out, y, channels);
  ORX_close(out);
  return name;
}

// Opens a "mem" frame for reading.
inline ORX_OBJECT *open_mem_frame(const char *name) {
  ORX_INFO info;
  ORX_info_init(&info);
  info.type = const_cast<char *>("mem");
  info.handle = const_cast<char *>(name);
  return ORX_open(&info, "r");
}

}  // namespace orx::bench
