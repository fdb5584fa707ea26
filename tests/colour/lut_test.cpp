#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "orx/orx.h"
#include "orx/plugin.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

using Lut = orx::test::CleanErrors;

// Allocations, copies and resizes against a vector of entries: a new
// palette is zeroed with max_index count - 1 and gamma 1; a copy is deep and
// equal; a resize keeps the entries it can, zeroes the new ones and leaves
// max_index and gamma as the caller set them.
TEST_F(Lut, AllocCopyAndReallocFollowAVectorOfEntries) {
  std::vector<ORX_LUT_ENTRY> model(4, ORX_LUT_ENTRY{0, 0, 0, 0});
  int32_t max_index = 3;
  float gamma = 1.0f;
  const auto expect_model = [&](const ORX_LUT *l) {
    ASSERT_NE(l, nullptr);
    ASSERT_EQ(l->count, model.size());
    EXPECT_EQ(l->max_index, max_index);
    EXPECT_EQ(l->gamma, gamma);
    EXPECT_EQ(std::memcmp(l->entries, model.data(), model.size() * sizeof(ORX_LUT_ENTRY)), 0);
  };
  ORX_LUT *lut = ORX_lut_alloc(4);
  expect_model(lut);
  std::mt19937 rng(9);
  for (uint32_t count : {300u, 1u, 17u, 4096u}) {
    for (std::size_t i = 0; i < model.size(); i += 1 + rng() % 3) {
      model[i] = {uint16_t(rng()), uint16_t(rng()), uint16_t(rng()), uint16_t(rng())};
      lut->entries[i] = model[i];
    }
    lut->max_index = max_index = int32_t(rng() % 300);
    lut->gamma = gamma = 2.2f;
    ORX_LUT *copy = ORX_lut_copy(lut);
    expect_model(copy);
    EXPECT_NE(copy->entries, lut->entries);
    EXPECT_EQ(ORX_lut_free(copy), 0);
    lut = ORX_lut_realloc(lut, count);
    model.resize(count, ORX_LUT_ENTRY{0, 0, 0, 0});
    expect_model(lut);
  }
  EXPECT_EQ(ORX_lut_free(lut), 0);
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
