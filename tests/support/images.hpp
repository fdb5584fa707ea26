// Images written through ORX_open from a sample function, and samples read
// back through a handle by its description, whatever the channel types.
#pragma once

#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orx/plugin.h"
#include "orx/registry.h"
#include "orx/str.h"
#include "support/fixtures.hpp"

namespace orx::test {

// Raw sample c of pixel x on line y: an integer code or a float value.
using Sample = std::function<double(int c, int32_t x, int32_t y)>;

inline std::size_t bytes_of(const ORX_CHANNELS &g) {
  if (g.type == ORX_C_FLOAT) return 4;
  if (g.type == ORX_C_DOUBLE) return 8;
  return g.bits <= 8 ? 1 : g.bits <= 16 ? 2 : 4;
}

// Calls f with a value of the storage type of group g (its type) and the
// address of sample x of a row of it.
template <class Byte, class F>
auto with_sample(const ORX_CHANNELS &g, Byte *row, int32_t x, F f) {
  Byte *p = row + bytes_of(g) * static_cast<std::size_t>(x);
  if (g.type == ORX_C_FLOAT) return f(float{}, p);
  if (g.type == ORX_C_DOUBLE) return f(double{}, p);
  if (bytes_of(g) == 1) return f(uint8_t{}, p);
  if (bytes_of(g) == 2) return f(uint16_t{}, p);
  return f(uint32_t{}, p);
}

inline void put(const ORX_CHANNELS &g, void *row, int32_t x, double v) {
  with_sample(g, static_cast<unsigned char *>(row), x, [v](auto type, unsigned char *p) {
    const auto s = static_cast<decltype(type)>(v);
    std::memcpy(p, &s, sizeof s);
  });
}

inline double get(const ORX_CHANNELS &g, const void *row, int32_t x) {
  return with_sample(g, static_cast<const unsigned char *>(row), x, [](auto s, const unsigned char *p) {
    std::memcpy(&s, p, sizeof s);
    return static_cast<double>(s);
  });
}

// A sample as a value: integers scaled to 0..1, floating point as stored.
inline double unit_scale(const ORX_CHANNELS &g) {
  return g.type == ORX_C_INTEGER ? std::ldexp(1.0, g.bits) - 1.0 : 1.0;
}
inline double get_unit(const ORX_CHANNELS &g, const void *row, int32_t x) {
  return get(g, row, x) / unit_scale(g);
}

// One channel group in a few fields: {count}, {count, type, bits}, or the
// library's own record.
struct Group {
  int32_t count = 0;
  int32_t type = ORX_C_INTEGER;
  int32_t bits = 8;
  const char *name = nullptr;
  constexpr Group() = default;
  constexpr Group(int32_t c, int32_t t = ORX_C_INTEGER, int32_t b = 8)
      : count(c), type(t), bits(b) {}
  constexpr Group(const char *n, int32_t c, int32_t t, int32_t b, int32_t /*reserved*/)
      : count(c), type(t), bits(b), name(n) {}
  ORX_CHANNELS channels() const { return {const_cast<char *>(name), count, type, bits, 0}; }
};

// An image described in a few fields: a 10 x 6 window of three 8-bit
// channels unless told otherwise.  A gamma of 0 keeps the library's default.
struct ImageShape {
  ORX_WINDOW window{0, 9, 0, 5};
  ORX_WINDOW active{0, 9, 0, 5};
  Group image{3, ORX_C_INTEGER, 8};
  Group matte{};
  Group aux{};
  float gamma = 0.0f;
};

// A descriptor with the library's defaults and the shape's fields.
inline ORX_IFD describe(const ImageShape &shape) {
  ORX_IFD d;
  orx__init_ifd(&d);
  d.window = shape.window;
  d.active = shape.active;
  d.image = shape.image.channels();
  d.matte = shape.matte.channels();
  d.aux = shape.aux.channels();
  if (shape.gamma != 0.0f) d.curve.gamma = shape.gamma;
  return d;
}

// The operator tests' image: 8 x 4, linear.
struct Groups : ImageShape {
  Groups() {
    window = active = {0, 7, 0, 3};
    gamma = 1.0f;
  }
};

// width x height, the active window the whole window, of the given groups.
inline ImageShape sized(int32_t width, int32_t height, Group image = {3},
                        Group matte = {}, Group aux = {}) {
  return {{0, width - 1, 0, height - 1}, {0, width - 1, 0, height - 1}, image, matte, aux};
}

inline int channel_count(const ORX_IFD &d) { return d.image.count + d.matte.count + d.aux.count; }

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
// object.  Returns the first non-zero status of the writes and the close;
// with stop, no line is written after one fails.
inline int write_lines(ORX_OBJECT *object, const Sample &sample, std::vector<int32_t> order = {},
                       bool stop = false) {
  const ORX_IFD &d = object->info.images[0];
  const int32_t width = d.window.right - d.window.left + 1;
  const int channels = channel_count(d);
  std::vector<std::vector<double>> storage(static_cast<std::size_t>(channels),
                                           std::vector<double>(static_cast<std::size_t>(width)));
  std::vector<void *> rows;
  for (auto &s : storage) rows.push_back(s.data());
  rows.push_back(nullptr);
  if (order.empty())
    for (int32_t y = d.window.bottom; y <= d.window.top; ++y) order.push_back(y);
  int status = 0;
  for (int32_t y : order) {
    if (stop && status != 0) break;
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

inline void write_image(const std::string &handle, const ImageShape &shape, const Sample &sample,
                        const char *type = "rla") {
  write_image(handle, describe(shape), sample, type);
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

// A request for handle through type (by the name when null), with its
// strings and the description of its one image, when given, in the library's
// memory: made before a failure sweep, it leaves only the call's own
// allocations to fail.
struct Request {
  ORX_INFO info;
  Request(const char *type, const std::string &handle) {
    ORX_info_init(&info);
    info.type = type != nullptr ? STR_save(type) : nullptr;
    info.handle = STR_save(handle.c_str());
    info.full_path = 1;
  }
  Request(const char *type, const std::string &handle, const ORX_IFD &image)
      : Request(type, handle) {
    info.image_count = 1;
    info.images = static_cast<ORX_IFD *>(ERR_malloc(sizeof(ORX_IFD)));
    info.images[0] = image;
  }
  ~Request() { ORX_info_cleanup(&info, 1); }
  Request(const Request &) = delete;
  Request &operator=(const Request &) = delete;
};

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
