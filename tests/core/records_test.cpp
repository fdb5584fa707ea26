#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <random>
#include <vector>
#include <string>

#include "orx/orx.h"
#include "orx/plugin.h"
#include "orx/str.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"
#include "support/messages.hpp"

namespace {

using Records = orx::test::CleanErrors;

TEST_F(Records, InfoDefaultsAndCleanupFreesItsStringsOnce) {
  ORX_INFO *info = ORX_info_alloc();
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->valid, ORX_INFO_VALID);

  info->handle = STR_save("a.rla");
  info->compression = STR_save("n");
  info->image_count = 2;
  info->images = static_cast<ORX_IFD *>(ERR_malloc(2 * sizeof(ORX_IFD)));
  for (int i = 0; i < 2; ++i) {
    orx__init_ifd(&info->images[i]);
    info->images[i].image.name = STR_save("rgb");
    info->images[i].aux.name = STR_save("z");
    info->images[i].aspect = const_cast<char *>("ntsc_640");  // the host's: not freed
  }
  testing::internal::CaptureStderr();
  ORX_info_cleanup(info, 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(info->valid, 0u);
  EXPECT_EQ(info->handle, nullptr);
  EXPECT_EQ(info->images, nullptr);
  // A second cleanup complains and frees nothing twice.
  testing::internal::CaptureStderr();
  ORX_info_cleanup(info, 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ORX_info_cleanup: application programming error.\n"
            "The ORX_INFO structure being freed has either been freed already or else was "
            "never initialised.\n");
  testing::internal::CaptureStderr();
  EXPECT_EQ(ORX_info_free(info, 1), 0);
  testing::internal::GetCapturedStderr();
  // Without freeing, cleanup only clears the marker: the strings stay the caller's.
  ORX_INFO caller;
  ORX_info_init(&caller);
  char name[] = "caller's";
  caller.name = name;
  ORX_info_cleanup(&caller, 0);
  EXPECT_EQ(caller.valid, 0u);
  EXPECT_EQ(caller.name, name);
}

// Channel buffers of random descriptors against a model of the layout: a row
// per channel in group order (no colour index beside image channels), each
// the width times the sample's storage size, rounded up to even.  A group
// the buffer cannot hold is refused with its message naming the format;
// an empty group's type does not matter.
TEST_F(Records, ChannelBuffersFollowTheLayoutModel) {
  using orx::Msg;
  const Msg refusals[4][2] = {{Msg::kImageType, Msg::kImageWidth},
                              {Msg::kMatteType, Msg::kMatteWidth},
                              {Msg::kAuxType, Msg::kAuxWidth},
                              {Msg::kIndexType, Msg::kIndexWidth}};
  orx::test::ErrorCapture cap;
  std::mt19937 rng(11);
  for (int round = 0; round < 600; ++round) {
    ORX_IFD ifd;
    orx__init_ifd(&ifd);
    ORX_CHANNELS *groups[] = {&ifd.image, &ifd.matte, &ifd.aux, &ifd.index};
    for (int g = 0; g < 4; ++g) {
      const bool index = g == 3;
      const int pick = static_cast<int>(rng() % 10);  // 8 and 9: a bad type or width
      const int type = index ? ORX_C_INTEGER : 1 + pick % 3;
      const int bits = type == ORX_C_FLOAT    ? 32
                       : type == ORX_C_DOUBLE ? 64
                                              : 1 + static_cast<int>(rng() % (index ? 16 : 32));
      *groups[g] = {nullptr, static_cast<int32_t>(rng() % 3),
                    pick == 8 ? (index ? ORX_C_FLOAT : 4) : type,
                    pick == 9 ? (index ? 17 : 33) : bits, 0};
    }
    if (ifd.image.count + ifd.matte.count + ifd.aux.count + ifd.index.count == 0) ifd.aux.count = 1;
    const int32_t width = 1 + static_cast<int32_t>(rng() % 7);
    std::vector<std::ptrdiff_t> rows_model;
    std::optional<Msg> refused;
    for (int g = 0; g < 4 && !refused; ++g) {
      const ORX_CHANNELS &c = *groups[g];
      if (c.count == 0 || (g == 3 && ifd.image.count > 0)) continue;
      if (g == 3 ? c.type != ORX_C_INTEGER : (c.type < 1 || c.type > 3)) refused = refusals[g][0];
      else if (c.type == ORX_C_INTEGER && c.bits > (g == 3 ? 16 : 32)) refused = refusals[g][1];
      const int sample = g == 3 ? 2
                         : c.type != ORX_C_INTEGER ? c.bits / 8
                                                   : (c.bits <= 8 ? 1 : c.bits <= 16 ? 2 : 4);
      rows_model.insert(rows_model.end(), c.count, (width * sample + 1) / 2 * 2);
    }
    SCOPED_TRACE(round);
    orx__err = 0;
    uint32_t size = 0;
    void **rows = ORX_chan_alloc(&ifd, width, "fmt", &size);
    if (refused) {
      EXPECT_EQ(rows, nullptr);
      EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED);
      EXPECT_EQ(cap.last(), orx::test::message(*refused, "fmt"));
      continue;
    }
    ASSERT_NE(rows, nullptr);
    std::ptrdiff_t total = 0;
    for (std::size_t k = 0; k < rows_model.size(); ++k) {
      ASSERT_EQ(static_cast<char *>(rows[k]) - static_cast<char *>(rows[0]), total) << k;
      total += rows_model[k];
    }
    EXPECT_EQ(rows[rows_model.size()], nullptr);
    EXPECT_EQ(size, static_cast<uint32_t>(total));
    if (ifd.image.count > 0) {
      EXPECT_EQ(ifd.index.count, 0);
    }
    for (uint32_t i = 0; i < size; ++i) ASSERT_EQ(static_cast<char *>(rows[0])[i], 0);
    if (round % 2 == 0) {
      EXPECT_EQ(orx__chan_free(rows), 1);
    } else {
      ORX_chan_free(rows);
    }
  }
  ORX_IFD ifd;
  orx__init_ifd(&ifd);
  ifd.matte.type = 0;
  void **rows = orx__chan_alloc(&ifd, 3, "fmt");
  EXPECT_NE(rows, nullptr);
  ORX_chan_free(rows);
  ORX_chan_free(nullptr);
}

TEST_F(Records, ChannelBufferExhaustionIsSilentWithStatus) {
  orx::test::ErrorCapture cap;
  ORX_IFD ifd;
  orx__init_ifd(&ifd);
  ifd.image.count = 3;
  orx::test::for_each_allocation_failure([&] {
    orx__err = 0;
    void **rows = ORX_chan_alloc(&ifd, 64, "fmt", nullptr);
    if (rows == nullptr) {
      EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
      return false;
    }
    ORX_chan_free(rows);
    return true;
  });
  EXPECT_EQ(cap.size(), 0u);
}

TEST(BuildHandle, JoinsDirectoryNameAndExtension) {
  const char *const cases[][4] = {
      {"dir", "a.rla", ".rla", "dir/a.rla"}, {"dir/", "a.", ".rla", "dir/a.rla"},
      {"dir", "a", ".rla", "dir/a.rla"},     {"dir", "/abs/a", ".rla", "/abs/a.rla"},
      {"dir", "./rel", ".rla", "./rel.rla"}, {nullptr, "a", ".rla", "a.rla"},
      {"dir", "a", nullptr, "dir/a"}};
  for (const auto &c : cases) EXPECT_STREQ(orx__build_handle(c[0], c[1], c[2]), c[3]) << c[1];
  std::string long_name(5000, 'n');
  EXPECT_EQ(std::strlen(orx__build_handle("dir", long_name.c_str(), ".rla")), 4095u);
}

TEST_F(Records, ObjectsStartClearedAndFreeEverythingTheyOwn) {
  ORX_OBJECT *object = orx__new_obj(ORX_ACCESS_READ);
  ASSERT_NE(object, nullptr);
  object->info.handle = STR_save("x.rla");
  object->info.image_count = 2;
  object->info.images = static_cast<ORX_IFD *>(ERR_malloc(2 * sizeof(ORX_IFD)));
  std::memset(object->info.images, 0xAB, 2 * sizeof(ORX_IFD));
  orx__init_ifd(object);  // every descriptor of the object
  for (const ORX_IFD &d : {object->info.images[0], object->info.images[1]})
    EXPECT_EQ(d.version, 1);  // initialised over the fill
  object->info.images[1].matte.name = STR_save("a");
  object->private_cell = static_cast<void **>(ERR_malloc(sizeof(void *)));
  orx__free_obj(object);  // the sanitizer build checks that nothing is left
  orx__free_obj(nullptr);

  orx::test::ErrorCapture cap;
  orx::test::for_each_allocation_failure([] {
    ORX_OBJECT *o = orx__new_obj(ORX_ACCESS_WRITE);
    if (o == nullptr) {
      EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
      return false;
    }
    orx__free_obj(o);
    return true;
  });
}

}  // namespace
