#include <regex>
#include <string>

#include "orx/attributes.h"
#include "orx/rla.h"
#include "registry/registry_fixture.hpp"
#include "support/error_capture.hpp"

namespace {

using namespace orx::test;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using Open = RegistryTest;

TEST_F(Open, AnUninitialisedRequestGetsTheComplaintAndStillOpens) {
  write_pattern("mem", "pic");
  ORX_INFO info{};
  info.type = const_cast<char *>("mem");
  info.handle = const_cast<char *>("pic");
  CaptureStderr();
  ORX_OBJECT *object = ORX_open(&info, "r");
  EXPECT_EQ(GetCapturedStderr(),
            "ORX_open: application programming error.\n"
            "The application must call ORX_info_init or ORX_info_alloc\n"
            "on the info structure before passing it to ORX_open.\n");
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(ORX_close(object), 0);
}

TEST_F(Open, ModesOtherThanReadAndWriteAreRefused) {
  write_pattern("mem", "pic");
  ErrorCapture errors;
  ORX_INFO info;
  ORX_info_init(&info);
  info.handle = const_cast<char *>("pic");
  for (const char *mode : {"rw", ""}) {
    errors.clear();
    EXPECT_EQ(ORX_open(&info, mode), nullptr);
    EXPECT_EQ(errors.last_id(), int(Msg::kOpenModeUnknown));
  }
  info.handle = nullptr;
  EXPECT_EQ(ORX_open(&info, "w"), nullptr);
  EXPECT_TRUE(errors.failed_with(ORX_E_FIELD_MISSING, Msg::kFieldMissing));
}

TEST_F(Open, TheFormatComesFromTheTypeThenTheExtensionThenRla) {
  PluginSet set({"plugin_good"});
  ASSERT_EQ(set.init(), 0);
  ORX_OBJECT *object = open_image("shot.tgd", nullptr);
  ASSERT_NE(object, nullptr);
  EXPECT_STREQ(object->format->key, "tgood");
  EXPECT_STREQ(object->info.type, "tgood");
  EXPECT_STREQ(object->info.extension, ".tgd");
  EXPECT_EQ(object->current_line, -1);  // orientation bit set: upwards from the bottom
  void **rows = nullptr;
  ASSERT_EQ(ORX_scan_read(object, 2, &rows), 0);
  EXPECT_EQ(static_cast<uint8_t *>(rows[0])[0], 3);
  EXPECT_EQ(object->current_line, 2);
  EXPECT_EQ(ORX_scan_read(object, 9, &rows), -2);
  EXPECT_EQ(object->current_line, 2);
  EXPECT_EQ(ORX_close(object), 0);

  object = open_image("any name", ".tgd");
  ASSERT_NE(object, nullptr);
  EXPECT_STREQ(object->format->key, "tgood");
  // Orientation bit set: the bottom row is read first, then upwards.
  ASSERT_EQ(ORX_seek(&object, 1), 0);
  EXPECT_EQ(object->current_line, 0);
  ORX_close(object);

  // No type and no matching extension: the default "rla".
  TempDir dir;
  write_pattern(nullptr, dir.file("frame.xyz"));
  EXPECT_EQ(ORX_rla_is_file(dir.file("frame.xyz").c_str(), nullptr), 1);
  object = open_image(dir.file("frame.xyz"), nullptr);
  ASSERT_NE(object, nullptr);
  EXPECT_STREQ(object->format->key, "rla");
  ORX_close(object);

  ErrorCapture errors;
  EXPECT_EQ(open_image("x", "nope"), nullptr);
  EXPECT_TRUE(errors.failed_with(ORX_E_INVALID_TYPE, Msg::kInvalidType));
}

TEST_F(Open, WrittenImagesGetMachineUserDateAndJobDefaults) {
  ASSERT_EQ(ORX_init(nullptr, nullptr), 0);
  ScopedEnv job("KV_JOB_NUM", "42");
  Request r("mem", "stamped", rgba(2, 2, ORX_C_INTEGER, 8));
  ORX_INFO &info = r.info;
  info.job = 0;
  ORX_OBJECT *object = ORX_open(&info, "w");
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->info.job, 42);
  EXPECT_STRNE(object->info.machine, "");
  EXPECT_NE(object->info.user, nullptr);
  EXPECT_TRUE(std::regex_match(object->info.date, std::regex("\\{[0-9]+\\}"))) << object->info.date;
  for (const char *s : {object->info.name, object->info.desc, object->info.program,
                        object->info.filter, object->info.compression, object->info.time,
                        object->info.images[0].image.name, object->info.images[0].aspect})
    EXPECT_STREQ(s, "unknown");
  EXPECT_STREQ(object->info.handle, "stamped");
  EXPECT_NE(object->info.handle, info.handle);  // the object's own copy
  ORX_close(object);

  info.job = -1;  // the default never consults the variable
  info.machine = STR_save("render7");
  const uint64_t reserved[3] = {0, 8, 9};
  for (int i = 1; i < 3; ++i) info.reserved[i] = reserved[i];
  ASSERT_EQ(ORX_attr_set_string(&info, 1, "ImageDescription", "kept"), 0);
  object = ORX_open(&info, "w");
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->info.job, -1);
  EXPECT_STREQ(object->info.machine, "render7");
  for (int i = 1; i < 3; ++i) EXPECT_EQ(object->info.reserved[i], reserved[i]);  // whole request
  EXPECT_STREQ(ORX_attr_get_string(&object->info, 1, "imagedescription"), "kept");
  EXPECT_NE(ORX_attr_find(&object->info, 1, "ImageDescription"),
            ORX_attr_find(&info, 1, "ImageDescription"));  // the object's own copy
  ORX_close(object);
}

TEST_F(Open, SeekingReadsForwardAndReopensToGoBack) {
  ASSERT_EQ(ORX_init(nullptr, nullptr), 0);
  TempDir dir;
  const std::string path = dir.file("seek.rla");
  write_pattern("rla", path);
  ORX_OBJECT *object = open_image(path, nullptr);
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(ORX_seek(&object, 2), 0);
  EXPECT_EQ(object->current_line, 1);
  void **rows = nullptr;
  ASSERT_EQ(ORX_scan_read(object, 2, &rows), 0);
  EXPECT_EQ(static_cast<uint8_t *>(rows[0])[1], static_cast<uint8_t>(pattern(1, 2, 0)));

  ORX_OBJECT *before = object;
  EXPECT_EQ(ORX_seek(&object, 1), 0);
  ASSERT_NE(object, nullptr);
#if defined(__SANITIZE_ADDRESS__)
  EXPECT_NE(object, before);  // the quarantine keeps the old address out of reuse
#else
  (void)before;
#endif
  EXPECT_EQ(object->current_line, 0);  // only a reopen can move back
  ASSERT_EQ(ORX_scan_read(object, 1, &rows), 0);
  EXPECT_EQ(static_cast<uint8_t *>(rows[3])[2], static_cast<uint8_t>(pattern(2, 1, 3)));
  EXPECT_EQ(ORX_seek(&object, -1), 0);  // the first line in scan order
  EXPECT_EQ(object->current_line, -1);
  ORX_close(object);
}

TEST_F(Open, OutOfMemoryFailsTheOpenWithoutLeaks) {
  write_pattern("mem", "source");
  ErrorCapture errors;
  Request target("mem", "target", rgba(3, 3, ORX_C_FLOAT, 32)), source("mem", "source");
  for (const auto &[r, mode] : {std::pair{&target, "w"}, {&source, "r"}}) {
    for_each_allocation_failure([&] {
      ORX_OBJECT *object = ORX_open(&r->info, mode);
      if (object == nullptr) {
        EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
        return false;
      }
      return ORX_close(object) == 0;
    });
  }
}

using Slots = RegistryTest;

void *g_seen[5];
intptr_t g_close_argument;

TEST_F(Slots, CallsGoThroughTheObjectsSlotsAndMissingOnesGiveMinus16) {
  ORX_OBJECT *object = orx__new_obj(ORX_ACCESS_READ);
  ASSERT_NE(object, nullptr);
  void **rows = nullptr;
  EXPECT_EQ(ORX_scan_read(object, 0, &rows), ORX_E_UNSUPPORTED);  // no scan, no private data
  EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED);
  object->direct_scan = [](void *data, int32_t line, void *a1, void *a2, void *a3, void *a4,
                           void *a5) {
    g_seen[0] = a1, g_seen[1] = a2, g_seen[2] = a3, g_seen[3] = a4, g_seen[4] = a5;
    return data != nullptr && line == 7 ? 0 : -2;
  };
  EXPECT_EQ(ORX_direct_scan_read(object, 7, g_seen, nullptr, nullptr, nullptr, nullptr),
            ORX_E_UNSUPPORTED);  // still no private data
  object->private_cell = static_cast<void **>(ERR_malloc(sizeof(void *)));
  object->private_cell[0] = object;
  int a = 0, b = 0, c = 0, d = 0, e = 0;
  EXPECT_EQ(ORX_direct_scan_write(object, 7, &a, &b, &c, &d, &e), 0);
  EXPECT_EQ(g_seen[0], &a);
  EXPECT_EQ(g_seen[4], &e);
  EXPECT_EQ(object->current_line, 7);
  EXPECT_EQ(ORX_direct_scan_read(object, 8, &a, &b, &c, &d, &e), -2);
  EXPECT_EQ(object->current_line, 7);
  EXPECT_EQ(ORX_scan_write(object, 1, rows), ORX_E_UNSUPPORTED);
  object->close = [](ORX_OBJECT *o, intptr_t argument) {
    g_close_argument = argument;
    orx__free_obj(o);
    return 5;
  };
  EXPECT_EQ(ORX_close_do_it(object, 3), 5);
  EXPECT_EQ(g_close_argument, 3);

  object = orx__new_obj(ORX_ACCESS_WRITE);
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(ORX_close(object), ORX_E_UNSUPPORTED);  // no close slot: freed all the same
}

}  // namespace
