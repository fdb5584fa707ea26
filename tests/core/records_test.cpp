#include <gtest/gtest.h>

#include <cstring>
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
}

TEST_F(Records, CleanupWithoutFreeOnlyClearsTheMarker) {
  ORX_INFO info;
  ORX_info_init(&info);
  char name[] = "caller's";
  info.name = name;
  ORX_info_cleanup(&info, 0);
  EXPECT_EQ(info.valid, 0u);
  EXPECT_EQ(info.name, name);
}

// Byte distance between consecutive rows of a channel buffer.
std::ptrdiff_t gap(void **rows, int a, int b) {
  return static_cast<char *>(rows[b]) - static_cast<char *>(rows[a]);
}

TEST_F(Records, ChannelRowsTakeTheirStorageSizeRoundedEven) {
  ORX_IFD ifd;
  orx__init_ifd(&ifd);
  ifd.image = {nullptr, 3, ORX_C_INTEGER, 9, 0};
  ifd.matte = {nullptr, 1, ORX_C_INTEGER, 17, 0};
  ifd.aux = {nullptr, 2, ORX_C_FLOAT, 32, 0};
  ifd.index = {nullptr, 2, ORX_C_INTEGER, 16, 0};
  uint32_t size = 0;
  void **rows = ORX_chan_alloc(&ifd, 3, "test", &size);
  ASSERT_NE(rows, nullptr);
  EXPECT_EQ(ifd.index.count, 0);  // image channels make the colour index unused
  EXPECT_EQ(gap(rows, 0, 1), 6);  // 3 x 2 bytes
  EXPECT_EQ(gap(rows, 2, 3), 6);
  EXPECT_EQ(gap(rows, 3, 4), 12);  // 17 bits: 4-byte samples
  EXPECT_EQ(gap(rows, 4, 5), 12);  // float
  EXPECT_EQ(rows[6], nullptr);
  EXPECT_EQ(size, 3u * 6 + 12 + 2 * 12);
  for (uint32_t i = 0; i < size; ++i) EXPECT_EQ(static_cast<char *>(rows[0])[i], 0);
  ORX_chan_free(rows);

  ORX_IFD index;
  orx__init_ifd(&index);
  index.index.count = 2;
  rows = ORX_chan_alloc(&index, 5, "test", &size);
  ASSERT_NE(rows, nullptr);
  EXPECT_EQ(gap(rows, 0, 1), 10);
  EXPECT_EQ(size, 20u);
  EXPECT_EQ(orx__chan_free(rows), 1);

  ORX_IFD odd;
  orx__init_ifd(&odd);
  odd.image = {nullptr, 2, ORX_C_INTEGER, 8, 0};
  odd.matte = {nullptr, 1, ORX_C_DOUBLE, 64, 0};
  rows = orx__chan_alloc(&odd, 3, "test");
  ASSERT_NE(rows, nullptr);
  EXPECT_EQ(gap(rows, 0, 1), 4);  // three bytes rounded up
  EXPECT_EQ(gap(rows, 1, 2), 4);
  ORX_chan_free(rows);
  ORX_chan_free(nullptr);
}

TEST_F(Records, ChannelBufferRefusalsNameTheFormat) {
  orx::test::ErrorCapture cap;
  struct Case {
    orx::Msg message;
    void (*set)(ORX_IFD &);
  } cases[] = {
      {orx::Msg::kImageType, [](ORX_IFD &d) { d.image = {nullptr, 1, 7, 8, 0}; }},
      {orx::Msg::kImageWidth,
       [](ORX_IFD &d) { d.image = {nullptr, 1, ORX_C_INTEGER, 33, 0}; }},
      {orx::Msg::kMatteType, [](ORX_IFD &d) { d.matte = {nullptr, 1, 0, 8, 0}; }},
      {orx::Msg::kMatteWidth,
       [](ORX_IFD &d) { d.matte = {nullptr, 1, ORX_C_INTEGER, 40, 0}; }},
      {orx::Msg::kAuxType, [](ORX_IFD &d) { d.aux = {nullptr, 1, 4, 8, 0}; }},
      {orx::Msg::kAuxWidth,
       [](ORX_IFD &d) { d.aux = {nullptr, 1, ORX_C_INTEGER, 33, 0}; }},
      {orx::Msg::kIndexType,
       [](ORX_IFD &d) { d.index = {nullptr, 1, ORX_C_FLOAT, 16, 0}; }},
      {orx::Msg::kIndexWidth,
       [](ORX_IFD &d) { d.index = {nullptr, 1, ORX_C_INTEGER, 17, 0}; }},
  };
  for (const auto &c : cases) {
    ORX_IFD ifd;
    orx__init_ifd(&ifd);
    c.set(ifd);
    orx__err = 0;
    EXPECT_EQ(ORX_chan_alloc(&ifd, 4, "fmt", nullptr), nullptr);
    EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED);
    EXPECT_EQ(cap.last(), orx::test::message(c.message, "fmt"));
  }
  // An empty group's type does not matter.
  ORX_IFD ifd;
  orx__init_ifd(&ifd);
  ifd.matte.type = 0;
  void **rows = ORX_chan_alloc(&ifd, 4, "fmt", nullptr);
  EXPECT_NE(rows, nullptr);
  ORX_chan_free(rows);
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
  EXPECT_STREQ(orx__build_handle("dir", "a.rla", ".rla"), "dir/a.rla");
  EXPECT_STREQ(orx__build_handle("dir/", "a.", ".rla"), "dir/a.rla");
  EXPECT_STREQ(orx__build_handle("dir", "a", ".rla"), "dir/a.rla");
  EXPECT_STREQ(orx__build_handle("dir", "/abs/a", ".rla"), "/abs/a.rla");
  EXPECT_STREQ(orx__build_handle("dir", "./rel", ".rla"), "./rel.rla");
  EXPECT_STREQ(orx__build_handle(nullptr, "a", ".rla"), "a.rla");
  EXPECT_STREQ(orx__build_handle("dir", "a", nullptr), "dir/a");
  std::string long_name(5000, 'n');
  EXPECT_EQ(std::strlen(orx__build_handle("dir", long_name.c_str(), ".rla")), 4095u);
}

TEST_F(Records, ObjectsStartClearedAndFreeEverythingTheyOwn) {
  ORX_OBJECT *object = orx__new_obj(ORX_ACCESS_READ);
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->current_line, -1);
  EXPECT_EQ(object->info.valid, ORX_INFO_VALID);
  object->info.handle = STR_save("x.rla");
  object->info.image_count = 2;
  object->info.images = static_cast<ORX_IFD *>(ERR_malloc(2 * sizeof(ORX_IFD)));
  std::memset(object->info.images, 0xAB, 2 * sizeof(ORX_IFD));
  orx__init_ifd(object);  // every descriptor of the object
  for (const ORX_IFD &d : {object->info.images[0], object->info.images[1]}) {
    EXPECT_EQ(d.version, 1);
    EXPECT_FLOAT_EQ(d.curve.gamma, 2.2f);
    EXPECT_EQ(d.aspect, nullptr);
    EXPECT_EQ(d.index.bits, 16);
  }
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
