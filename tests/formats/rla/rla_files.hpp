// Helpers of the RLA tests: image objects described in a few fields, a
// deterministic sample pattern with runs and literals, and whole files
// written through the writer and read back through the reader.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orx/err.h"
#include "orx/orx.h"
#include "orx/plugin.h"
#include "orx/rla.h"
#include "orx/str.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"
#include "support/images.hpp"

namespace orx::test {

// A write object for path (used as given) with one descriptor per shape.
inline ORX_OBJECT *writer_object(const std::string &path, const std::vector<ImageShape> &shapes) {
  ORX_OBJECT *object = orx__new_obj(ORX_ACCESS_WRITE);
  object->info.handle = STR_save(path.c_str());
  object->info.full_path = 1;
  object->info.image_count = static_cast<int32_t>(shapes.size());
  object->info.images =
      static_cast<ORX_IFD *>(ERR_malloc(static_cast<uint32_t>(shapes.size() * sizeof(ORX_IFD))));
  for (std::size_t i = 0; i < shapes.size(); ++i) {
    object->info.images[i] = describe(shapes[i]);
    object->info.images[i].aspect = STR_save("ntsc_640");
  }
  return object;
}

// A read object for path (used as given); null when memory is short.
inline ORX_OBJECT *reader_object(const std::string &path) {
  ORX_OBJECT *object = orx__new_obj(ORX_ACCESS_READ);
  if (object == nullptr) return nullptr;
  object->info.handle = STR_save(path.c_str());
  object->info.full_path = 1;
  if (object->info.handle != nullptr) return object;
  orx__free_obj(object);
  return nullptr;
}

// Opens path for reading; on failure frees the object and returns null.
inline ORX_OBJECT *open_or_free(const std::string &path) {
  ORX_OBJECT *object = reader_object(path);
  if (ORX_rla_r_open(object) == 1) return object;
  orx__free_obj(object);
  return nullptr;
}

// Whether path opens for reading; an opened file is closed again.
inline bool opens(const std::string &path) {
  ORX_OBJECT *object = open_or_free(path);
  if (object == nullptr) return false;
  EXPECT_EQ(object->close(object, 0), 0);
  return true;
}

// The expected bytes of channel c's row y over the whole window: the pattern
// inside the active window, zeros elsewhere.  Columns come in groups of
// four equal values so that rows mix runs and literals.
inline std::vector<uint8_t> expected_row(const ORX_IFD &ifd, int c, int y) {
  const ORX_CHANNELS &g = group_of(ifd, c);
  const int width = ifd.window.right - ifd.window.left + 1;
  std::vector<uint8_t> row(static_cast<std::size_t>(width) * bytes_of(g), 0);
  if (y < ifd.active.bottom || y > ifd.active.top) return row;
  const uint64_t mask = g.bits >= 32 ? 0xffffffffu : ((uint64_t{1} << g.bits) - 1);
  for (int x = ifd.active.left; x <= ifd.active.right; ++x) {
    const uint64_t v = (x % 8 < 4) ? static_cast<uint64_t>(c * 11 + y * 3)
                                   : static_cast<uint64_t>(c * 11 + x * 7 + y * 13 + 0x12345);
    const double sample = g.type == ORX_C_INTEGER ? static_cast<double>(v & mask)
                          : g.type == ORX_C_DOUBLE  ? static_cast<double>(v) / 7.0
                                                    : double{static_cast<float>(v) / 7.0f};
    put(g, row.data(), x - ifd.window.left, sample);
  }
  return row;
}

// Whether every channel row of rows holds the pattern of row y.
inline ::testing::AssertionResult holds_pattern(const ORX_IFD &ifd, void *const *rows, int y) {
  const int channels = channel_count(ifd);
  for (int c = 0; c < channels; ++c) {
    std::vector<uint8_t> want = expected_row(ifd, c, y);
    if (std::memcmp(rows[c], want.data(), want.size()) != 0)
      return ::testing::AssertionFailure() << "row " << y << " channel " << c;
  }
  return ::testing::AssertionSuccess();
}

// Writes the pattern into every row of image i of an opened write object,
// bottom up; false when the rows cannot be had or one is refused.
inline bool write_rows(ORX_OBJECT *object, int i = 0) {
  ORX_IFD &ifd = object->info.images[i];
  void **rows = orx__chan_alloc(&ifd, ifd.window.right - ifd.window.left + 1, "test");
  bool written = rows != nullptr;
  for (int y = ifd.window.bottom; y <= ifd.window.top && written; ++y) {
    for (int c = 0; c < channel_count(ifd); ++c) {
      const std::vector<uint8_t> row = expected_row(ifd, c, y);
      std::memcpy(rows[c], row.data(), row.size());
    }
    written = object->scan(object->private_cell[i], y, rows) == 0;
  }
  orx__chan_free(rows);
  return written;
}

// Writes every row of every image of an opened write object, then closes it.
inline void write_all_rows_and_close(ORX_OBJECT *object) {
  for (int i = 0; i < object->info.image_count; ++i) EXPECT_TRUE(write_rows(object, i)) << i;
  EXPECT_EQ(object->close(object, 0), 0);
}

// Writes path with the shapes, the image channels named when a name is given.
inline void write_file(const std::string &path, const std::vector<ImageShape> &shapes,
                       const char *image_name = nullptr) {
  ORX_OBJECT *object = writer_object(path, shapes);
  if (image_name != nullptr) object->info.images[0].image.name = STR_save(image_name);
  ASSERT_EQ(ORX_rla_w_open(object), 1);
  write_all_rows_and_close(object);
}

// Reads every row of every image of an opened read object and compares with
// the pattern.
inline void expect_pattern(ORX_OBJECT *object) {
  for (int i = 0; i < object->info.image_count; ++i) {
    const ORX_IFD &ifd = object->info.images[i];
    for (int y = ifd.window.bottom; y <= ifd.window.top; ++y) {
      void **rows = nullptr;
      ASSERT_EQ(object->scan(object->private_cell[i], y, &rows), 0)
          << "image " << i << " row " << y;
      ASSERT_TRUE(holds_pattern(ifd, rows, y)) << "image " << i;
    }
  }
}

// The error service clean for every test, and a directory of the test's own.
class RlaTest : public CleanErrors {
 protected:
  TempDir dir;
};

// Points a standard descriptor somewhere else for the life of the object.
class Redirect {
 public:
  Redirect(int fd, int to) : fd_(fd), saved_(dup(fd)) {
    std::fflush(nullptr);
    dup2(to, fd);
    close(to);
  }
  ~Redirect() {
    std::fflush(nullptr);
    dup2(saved_, fd_);
    close(saved_);
    std::clearerr(stdin);
  }

 private:
  int fd_, saved_;
};

inline uint32_t be32(const std::vector<uint8_t> &b, std::size_t at) {
  return (uint32_t{b[at]} << 24) | (uint32_t{b[at + 1]} << 16) | (uint32_t{b[at + 2]} << 8) |
         b[at + 3];
}

}  // namespace orx::test
