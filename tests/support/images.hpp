// Images written through ORX_open from a sample function, and samples read
// back through a handle by its description, whatever the channel types.
#pragma once

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orx/registry.h"
#include "support/fixtures.hpp"

namespace orx::test {

// Raw sample c of pixel x on line y: an integer code or a float value.
using Sample = std::function<double(int c, int32_t x, int32_t y)>;

inline std::size_t bytes_of(const ORX_CHANNELS &g) {
  if (g.type == ORX_C_FLOAT) return 4;
  if (g.type == ORX_C_DOUBLE) return 8;
  return g.bits <= 8 ? 1 : g.bits <= 16 ? 2 : 4;
}

inline void put(const ORX_CHANNELS &g, void *row, int32_t x, double v) {
  auto *p = static_cast<unsigned char *>(row) + bytes_of(g) * static_cast<std::size_t>(x);
  if (g.type == ORX_C_FLOAT) {
    const float f = static_cast<float>(v);
    std::memcpy(p, &f, 4);
  } else if (g.type == ORX_C_DOUBLE) {
    std::memcpy(p, &v, 8);
  } else if (bytes_of(g) == 1) {
    *p = static_cast<uint8_t>(v);
  } else if (bytes_of(g) == 2) {
    const auto s = static_cast<uint16_t>(v);
    std::memcpy(p, &s, 2);
  } else {
    const auto s = static_cast<uint32_t>(v);
    std::memcpy(p, &s, 4);
  }
}

inline double get(const ORX_CHANNELS &g, const void *row, int32_t x) {
  const auto *p = static_cast<const unsigned char *>(row) + bytes_of(g) * static_cast<std::size_t>(x);
  if (g.type == ORX_C_FLOAT) {
    float f;
    std::memcpy(&f, p, 4);
    return f;
  }
  if (g.type == ORX_C_DOUBLE) {
    double d;
    std::memcpy(&d, p, 8);
    return d;
  }
  if (bytes_of(g) == 1) return *p;
  if (bytes_of(g) == 2) {
    uint16_t s;
    std::memcpy(&s, p, 2);
    return s;
  }
  uint32_t s;
  std::memcpy(&s, p, 4);
  return s;
}

// The group of channel c in buffer order.
inline const ORX_CHANNELS &group_of(const ORX_IFD &d, int c) {
  if (c < d.image.count) return d.image;
  if (c < d.image.count + d.matte.count) return d.matte;
  return d.aux;
}

// Opens handle for writing the count images described from d on, through
// the format of the type (by the name when null).
inline ORX_OBJECT *open_write(const std::string &handle, ORX_IFD *d, int32_t count = 1,
                              const char *type = "rla") {
  ORX_INFO info;
  ORX_info_init(&info);
  info.type = const_cast<char *>(type);
  info.handle = const_cast<char *>(handle.c_str());
  info.full_path = 1;
  info.images = d;
  info.image_count = count;
  return ORX_open(&info, "w");
}

// Writes every line of image 0 of object, bottom up or in the given order,
// each sample from sample stored as the description says, then closes the
// object.  Returns the first non-zero status of the writes and the close.
inline int write_lines(ORX_OBJECT *object, const Sample &sample, std::vector<int32_t> order = {}) {
  const ORX_IFD &d = object->info.images[0];
  const int32_t width = d.window.right - d.window.left + 1;
  const int channels = d.image.count + d.matte.count + d.aux.count;
  std::vector<std::vector<double>> storage(static_cast<std::size_t>(channels),
                                           std::vector<double>(static_cast<std::size_t>(width)));
  std::vector<void *> rows;
  for (auto &s : storage) rows.push_back(s.data());
  rows.push_back(nullptr);
  if (order.empty())
    for (int32_t y = d.window.bottom; y <= d.window.top; ++y) order.push_back(y);
  int status = 0;
  for (int32_t y : order) {
    for (int c = 0; c < channels; ++c)
      for (int32_t x = 0; x < width; ++x)
        put(group_of(d, c), rows[static_cast<std::size_t>(c)], x, sample(c, x, y));
    const int written = ORX_scan_write(object, y, rows.data());
    if (status == 0) status = written;
  }
  const int closed = ORX_close(object);
  return status != 0 ? status : closed;
}

// Writes handle as one image of the description d with the given samples.
inline void write_image(const std::string &handle, ORX_IFD d, const Sample &sample,
                        const char *type = "rla") {
  ORX_OBJECT *object = open_write(handle, &d, 1, type);
  ASSERT_NE(object, nullptr);
  ASSERT_EQ(write_lines(object, sample), 0);
}

inline ORX_OBJECT *open_image(const std::string &path, const char *type = "rla") {
  ORX_INFO info;
  ORX_info_init(&info);
  info.type = const_cast<char *>(type);
  info.handle = const_cast<char *>(path.c_str());
  info.full_path = 1;
  return ORX_open(&info, "r");
}

// Sample c at x of line y as the handle reads it now, by its description.
inline double read_sample(ORX_OBJECT *handle, int32_t y, int c, int32_t x) {
  void **rows = nullptr;
  EXPECT_EQ(ORX_scan_read(handle, y, &rows), 0);
  if (rows == nullptr) return -1e30;
  return get(group_of(handle->info.images[0], c), rows[c], x);
}

// A directory of the test's own; the registry is down after every test.
class ImageTest : public CleanErrors {
 protected:
  void TearDown() override {
    ORX_exit();
    CleanErrors::TearDown();
  }
  TempDir dir_;
};

}  // namespace orx::test
