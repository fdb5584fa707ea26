#include <gtest/gtest.h>

#include "orx/orx.h"
#include "orx/plugin.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"
#include "support/messages.hpp"

namespace {

using Lut = orx::test::CleanErrors;

TEST_F(Lut, AllocCopyAndReallocKeepEntriesAndLeaveMaxIndexToTheCaller) {
  ORX_LUT *lut = ORX_lut_alloc(4);
  ASSERT_NE(lut, nullptr);
  EXPECT_EQ(lut->count, 4u);
  EXPECT_EQ(lut->max_index, 3);
  EXPECT_EQ(lut->gamma, 1.0f);
  for (uint32_t i = 0; i < 4; ++i) {
    EXPECT_EQ(lut->entries[i].red, 0);
    EXPECT_EQ(lut->entries[i].alpha, 0);
  }
  lut->entries[3] = ORX_LUT_ENTRY{1, 2, 3, 4};
  lut->max_index = 2;
  lut->gamma = 2.2f;

  ORX_LUT *copy = ORX_lut_copy(lut);
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy->entries, lut->entries);
  EXPECT_EQ(copy->count, 4u);
  EXPECT_EQ(copy->max_index, 2);
  EXPECT_EQ(copy->gamma, 2.2f);
  EXPECT_EQ(copy->entries[3].blue, 3);
  EXPECT_EQ(copy->entries[3].alpha, 4);

  lut = ORX_lut_realloc(lut, 300);
  ASSERT_NE(lut, nullptr);
  EXPECT_EQ(lut->count, 300u);
  EXPECT_EQ(lut->max_index, 2);
  EXPECT_EQ(lut->entries[3].green, 2);
  for (uint32_t i = 4; i < 300; ++i) EXPECT_EQ(lut->entries[i].red | lut->entries[i].alpha, 0);
  lut = ORX_lut_realloc(lut, 1);
  ASSERT_NE(lut, nullptr);
  EXPECT_EQ(lut->count, 1u);

  EXPECT_EQ(ORX_lut_free(lut), 0);
  EXPECT_EQ(ORX_lut_free(copy), 0);
  EXPECT_EQ(ORX_lut_free(nullptr), 0);
  EXPECT_EQ(ORX_lut_copy(nullptr), nullptr);
  EXPECT_EQ(ORX_lut_realloc(nullptr, 3), nullptr);
}

TEST_F(Lut, OutOfMemoryReportsAndFreesTheRecord) {
  orx::test::ErrorCapture capture;
  ORX_LUT *kept = ORX_lut_alloc(8);
  ASSERT_NE(kept, nullptr);
  orx::test::for_each_allocation_failure([&] {
    capture.clear();
    ORX_LUT *lut = ORX_lut_alloc(16);
    if (lut == nullptr) {
      EXPECT_TRUE(capture.last_is(orx::Msg::kNoMemory));
      return false;
    }
    ORX_LUT *copy = ORX_lut_copy(lut);
    ORX_lut_free(lut);
    if (copy == nullptr) return false;
    // A failed resize frees the record: nothing may be left to leak.
    copy = ORX_lut_realloc(copy, 4096);
    if (copy == nullptr) {
      EXPECT_TRUE(capture.last_is(orx::Msg::kNoMemory));
      return false;
    }
    ORX_lut_free(copy);
    return true;
  });
  // Counts the allocator can never serve are refused like a shortage.
  capture.clear();
  EXPECT_EQ(ORX_lut_alloc(0x40000000u), nullptr);
  EXPECT_TRUE(capture.last_is(orx::Msg::kNoMemory));
  EXPECT_EQ(ORX_lut_realloc(kept, 0x40000000u), nullptr);
}

int read_palette(void *data, ORX_LUT **lut) {
  *lut = ORX_lut_alloc(*static_cast<uint32_t *>(data));
  return *lut != nullptr;
}
int refuse_palette(void *, ORX_LUT **) { return 0; }

TEST_F(Lut, ReadAsksTheFormatsPaletteReaderWithItsPrivateData) {
  ORX_OBJECT *object = orx__new_obj(ORX_ACCESS_READ);
  ASSERT_NE(object, nullptr);
  ORX_LUT *lut = reinterpret_cast<ORX_LUT *>(1);
  EXPECT_EQ(ORX_lut_read(object, &lut), 1);  // no reader: success, no palette
  EXPECT_EQ(lut, nullptr);

  uint32_t count = 16;
  void *cell[1] = {&count};
  object->private_cell = cell;
  object->lut_read = read_palette;
  ASSERT_EQ(ORX_lut_read(object, &lut), 1);
  ASSERT_NE(lut, nullptr);
  EXPECT_EQ(lut->count, 16u);
  ORX_lut_free(lut);
  object->lut_read = refuse_palette;
  EXPECT_EQ(ORX_lut_read(object, &lut), 0);
  object->private_cell = nullptr;
  orx__free_obj(object);
}

}  // namespace
