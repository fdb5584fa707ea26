// Field frame merging through real RLA field files.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "orx/field_merge.h"
#include "orx/registry.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"
#include "support/images.hpp"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

using orx::Msg;
using orx::test::ErrorCapture;

using FieldMerge = orx::test::ImageTest;

// Sample of field `field` (0 first, 1 second) at x on field line y.
uint8_t value(int field, int32_t x, int32_t y) { return static_cast<uint8_t>(x + 10 * y + 100 * field); }

// Writes a field file of 8 x 3 grey pixels; edit changes its description.
void write_field(const std::string &path, int field, int32_t code = 1,
                 const std::function<void(ORX_INFO &)> &edit = {}) {
  ORX_IFD ifd = orx::test::describe(orx::test::sized(8, 3, {1}));
  ifd.field = code;
  ifd.aspect_ratio = 1.0f;  // stated, so a wider window does not change it
  ORX_INFO info;
  ORX_info_init(&info);
  info.type = const_cast<char *>("rla");
  info.handle = const_cast<char *>(path.c_str());
  info.full_path = 1;
  info.images = &ifd;
  info.image_count = 1;
  if (edit) edit(info);
  ORX_OBJECT *object = ORX_open(&info, "w");
  ASSERT_NE(object, nullptr);
  ASSERT_EQ(orx::test::write_lines(object, [&](int, int32_t x, int32_t y) { return value(field, x, y); }),
            0);
}

TEST_F(FieldMerge, EitherFieldGivesTheInterlacedFrame) {
  // The partner is named without the extension, as the merge looks for it.
  for (const auto &[passed, partner, first] :
       {std::tuple{"take.0007.rla", "take.0008", 0}, {"take.0008.rla", "take.0007", 1},
        {"take.12345.rla", "take.12346", 0}}) {
    write_field(dir_.file(passed), first);
    write_field(dir_.file(partner), 1 - first);
    ORX_OBJECT *handle = orx::test::open_image(dir_.file(passed));
    ASSERT_NE(handle, nullptr);
    ORX_OBJECT *merged = ORX__field_merge(handle);
    ASSERT_NE(merged, handle) << passed;
    const ORX_IFD &d = merged->info.images[0];
    EXPECT_EQ(d.window.bottom, 0);
    EXPECT_EQ(d.window.top, 5);
    EXPECT_EQ(d.active.top, 5);
    for (int32_t line = 0; line < 6; ++line) {
      void **rows = nullptr;
      ASSERT_EQ(ORX_scan_read(merged, line, &rows), 0);
      EXPECT_EQ(static_cast<uint8_t *>(rows[0])[3], value(line % 2, 3, line / 2)) << line;
    }
    EXPECT_EQ(ORX_close(merged), 0);
  }
}

TEST_F(FieldMerge, NothingToMergeLeavesTheHandle) {
  // Not a field file, no frame number, letters after the dot, no partner.
  for (const auto &[name, code] :
       {std::pair{"frame.0001.rla", 0}, {"take.rla", 1}, {"take.x7.rla", 1}, {"lone.0003.rla", 1}}) {
    write_field(dir_.file(name), 0, code);
    ORX_OBJECT *handle = orx::test::open_image(dir_.file(name));
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(ORX__field_merge(handle), handle) << name;
    ORX_close(handle);
  }
}

TEST_F(FieldMerge, FieldsThatDifferAreRefusedWithTheirMessage) {
  const std::pair<Msg, std::function<void(ORX_INFO &)>> cases[] = {
      {Msg::kFieldPrimaries, [](ORX_INFO &i) { i.red[1] = 0.31f; }},
      {Msg::kFieldGammas, [](ORX_INFO &i) { i.images[0].curve.gamma = 1.0f; }},
      {Msg::kFieldImageChannels, [](ORX_INFO &i) { i.images[0].image.count = 2; }},
      {Msg::kFieldMatteChannels, [](ORX_INFO &i) { i.images[0].matte.count = 1; }},
      {Msg::kFieldAspect, [](ORX_INFO &i) { i.images[0].aspect_ratio = 2.0f; }},
      {Msg::kFieldWindow, [](ORX_INFO &i) { i.images[0].window.right = 8; }},
  };
  ErrorCapture errors;
  for (const auto &[what, edit] : cases) {
    write_field(dir_.file("d.0001.rla"), 0);
    write_field(dir_.file("d.0002"), 1, 1, edit);
    ORX_OBJECT *handle = orx::test::open_image(dir_.file("d.0001.rla"));
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(ORX__field_merge(handle), handle);
    EXPECT_EQ(orx__err, -1);
    EXPECT_EQ(errors.last_id(), int(what));
    ORX_close(handle);
  }
}

TEST_F(FieldMerge, RunningOutOfMemoryKeepsTheHandle) {
  write_field(dir_.file("m.0001.rla"), 0);
  write_field(dir_.file("m.0002"), 1);
#if defined(__SANITIZE_ADDRESS__)
  __lsan_disable();  // a failure after the partner opened leaves it open, by design
#endif
  orx::test::for_each_reported_allocation_failure([&] {
    ORX_OBJECT *handle = orx::test::open_image(dir_.file("m.0001.rla"));
    if (handle == nullptr) return orx__err;
    ORX_OBJECT *merged = ORX__field_merge(handle);
    if (merged != handle) return ORX_close(merged);
    const int status = orx__err;
    ORX_close(handle);
    return status;
  });
#if defined(__SANITIZE_ADDRESS__)
  __lsan_enable();
#endif
}

}  // namespace
