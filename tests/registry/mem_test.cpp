#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "registry/registry_fixture.hpp"
#include "support/error_capture.hpp"
#include "support/images.hpp"

namespace {

using namespace orx::test;
using MemFormat = RegistryTest;

constexpr int32_t kWidth = 5;
constexpr int32_t kHeight = 7;

ORX_OBJECT *open_mem(const char *handle, const char *mode) {
  Request r(nullptr, handle, rgba(kWidth, kHeight, ORX_C_INTEGER, 16));
  r.info.desc = STR_save("plate");
  return ORX_open(&r.info, mode);
}

std::vector<int32_t> shuffled_lines(unsigned seed) {
  std::vector<int32_t> lines(kHeight);
  std::iota(lines.begin(), lines.end(), 0);
  std::shuffle(lines.begin(), lines.end(), std::mt19937(seed));
  return lines;
}

// Writes the pattern plus offset, its lines in a shuffled order.
void write_mem(const char *handle, int offset) {
  ORX_OBJECT *object = open_mem(handle, "w");
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(write_lines(object, [&](int c, int32_t x, int32_t y) { return pattern(x, y, c) + offset; },
                        shuffled_lines(1)),
            0);
}

void expect_lines(ORX_OBJECT *object, int offset, unsigned seed) {
  for (int32_t y : shuffled_lines(seed)) {
    void **rows = nullptr;
    ASSERT_EQ(ORX_scan_read(object, y, &rows), 0);
    for (int c = 0; c < 4; ++c)
      for (int x = 0; x < kWidth; ++x)
        ASSERT_EQ(static_cast<uint16_t *>(rows[c])[x],
                  static_cast<uint16_t>(pattern(x, y, c) + offset))
            << "line " << y << " channel " << c;
  }
}

TEST_F(MemFormat, RoundTripsLinesInAnyOrderAndSeeksAtOnce) {
  ASSERT_EQ(ORX_init(nullptr, nullptr), 0);
  EXPECT_EQ(ORX_find("mem")->is_file("plate.mem", nullptr), 0);
  write_mem("plate.mem", 0);
  EXPECT_EQ(ORX_find("mem")->is_file("plate.mem", nullptr), 1);
  int32_t known = 0;
  EXPECT_STREQ(ORX_get_file_type("plate.mem", nullptr, &known), "mem");

  ORX_OBJECT *object = open_mem("plate.mem", "r");
  ASSERT_NE(object, nullptr);
  EXPECT_STREQ(object->format->key, "mem");
  ASSERT_EQ(object->info.image_count, 1);
  EXPECT_EQ(object->info.images[0].image.bits, 16);
  EXPECT_EQ(object->info.images[0].window.top, kHeight - 1);
  EXPECT_STREQ(object->info.desc, "plate");
  expect_lines(object, 0, 2);
  ORX_OBJECT *same = object;
  EXPECT_EQ(ORX_seek(&object, 0), 0);  // random access: nothing to do
  EXPECT_EQ(object, same);
  void **rows = nullptr;
  ErrorCapture errors;
  EXPECT_EQ(ORX_scan_read(object, kHeight, &rows), ORX_E_BAD_SCANLINE);

  // Writing the handle again replaces the image; an open reader keeps the old one.
  write_mem("plate.mem", 3);
  expect_lines(object, 0, 3);
  EXPECT_EQ(ORX_close(object), 0);
  object = open_mem("plate.mem", "r");
  ASSERT_NE(object, nullptr);
  expect_lines(object, 3, 4);
  EXPECT_EQ(ORX_close(object), 0);

  EXPECT_EQ(open_mem("absent.mem", "r"), nullptr);
  ORX_exit();  // frees the store
  ASSERT_EQ(ORX_init(nullptr, nullptr), 0);
  EXPECT_EQ(ORX_find("mem")->is_file("plate.mem", nullptr), 0);
}

}  // namespace
