#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "orx/capability.h"
#include "orx/multiframe.h"
#include "registry/registry_fixture.hpp"
#include "support/error_capture.hpp"

namespace {

using namespace orx::test;
using MultiFrame = RegistryTest;

// The multi-frame plug-in, loaded with a cache of two objects.
class MultiFrameCache : public MultiFrame {
 protected:
  void SetUp() override {
    MultiFrame::SetUp();
    ASSERT_EQ(set_.init(), 0);
  }
  int closes() const { return set_.counter(0, "test_plugin_close_calls"); }
  intptr_t last_close_argument() const {
    return set_.function<intptr_t()>(0, "test_plugin_last_close_argument")();
  }
  std::string file(const std::string &name) {
    const std::string path = dir_.file(name);
    std::ofstream(path) << name;
    return path;
  }

  ScopedEnv capacity_{"KV_ORX_MULTIFRAME_OPEN", "2"};
  TempDir dir_;
  PluginSet set_{{"plugin_multi", "plugin_good"}};
};

ORX_OBJECT *open_read(const char *type, const std::string &handle,
                      ORX_CAP_SETTING **settings = nullptr) {
  ORX_INFO info;
  ORX_info_init(&info);
  info.type = const_cast<char *>(type);
  info.handle = const_cast<char *>(handle.c_str());
  info.settings = settings;
  return ORX_open(&info, "r");
}

void age(const std::string &path, int seconds) {
  namespace fs = std::filesystem;
  fs::last_write_time(path, fs::last_write_time(path) - std::chrono::seconds(seconds));
}

TEST_F(MultiFrameCache, ClosedObjectsStayOpenUntilTheCacheNeedsRoom) {
  EXPECT_EQ(ORX_multiframe_used(), 1);
  const std::string a = file("a"), b = file("b"), c = file("c");
  ORX_OBJECT *first = open_read("tmulti", a);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(ORX_close(first), 0);
  ORX_OBJECT *second = open_read("tmulti", b);
  EXPECT_EQ(ORX_close(second), 0);
  EXPECT_EQ(closes(), 0);
  EXPECT_EQ(open_read("tmulti", a), first);  // served from the cache
  EXPECT_EQ(ORX_close(first), 0);
  // The third file pushes out the least recently used one: b.
  ORX_OBJECT *third = open_read("tmulti", c);
  ASSERT_NE(third, nullptr);
  EXPECT_EQ(closes(), 1);
  EXPECT_EQ(last_close_argument(), 1);
  EXPECT_EQ(ORX_close(third), 0);
  EXPECT_EQ(closes(), 1);  // two remain cached
  EXPECT_EQ(open_read("tmulti", a), first);
  // Held objects are never pushed out: the cache grows past its capacity
  // and shrinks back as they are closed.
  ORX_OBJECT *again = open_read("tmulti", c);
  EXPECT_EQ(again, third);
  ORX_OBJECT *fourth = open_read("tmulti", b);
  ASSERT_NE(fourth, nullptr);
  EXPECT_EQ(closes(), 1);
  EXPECT_EQ(ORX_close(first), 0);
  EXPECT_EQ(closes(), 2);
  EXPECT_EQ(ORX_close(again), 0);
  EXPECT_EQ(ORX_close(fourth), 0);
  EXPECT_EQ(closes(), 2);
  // Formats that are not multi-frame are closed at once.
  const std::string plain = file("plain");
  ORX_OBJECT *good = open_read("tgood", plain);
  ASSERT_NE(good, nullptr);
  EXPECT_EQ(ORX_close(good), 0);
  EXPECT_EQ(set_.counter(1, "test_plugin_close_calls"), 1);
  // Exit closes what is left unused.
  ORX_exit();
  EXPECT_EQ(closes(), 4);
  EXPECT_EQ(ORX_multiframe_used(), 0);
}

TEST_F(MultiFrameCache, AFileChangedOnDiskIsOpenedAfreshOnceNobodyHoldsIt) {
  const std::string a = file("a");
  ORX_OBJECT *held = open_read("tmulti", a);
  ASSERT_NE(held, nullptr);
  age(a, 100);
  EXPECT_EQ(open_read("tmulti", a), held);  // still held: shared as it is
  EXPECT_EQ(ORX_close(held), 0);
  EXPECT_EQ(ORX_close(held), 0);
  EXPECT_EQ(closes(), 0);
  age(a, 100);
  ORX_OBJECT *fresh = open_read("tmulti", a);
  ASSERT_NE(fresh, nullptr);
  EXPECT_EQ(closes(), 1);
  EXPECT_EQ(open_read("tmulti", a), fresh);
  EXPECT_EQ(ORX_close(fresh), 0);
  EXPECT_EQ(ORX_close(fresh), 0);
  EXPECT_EQ(closes(), 1);
}

TEST_F(MultiFrameCache, DifferentSettingsGetTheirOwnObject) {
  const std::string a = file("a");
  ORX_CAP_SETTING one{ORX_CAP_INTEGER, {1}}, two{ORX_CAP_INTEGER, {2}};
  ORX_CAP_SETTING *with_one[] = {&one, nullptr};
  ORX_CAP_SETTING *with_two[] = {&two, nullptr};
  ORX_OBJECT *plain = open_read("tmulti", a);
  ORX_OBJECT *first = open_read("tmulti", a, with_one);
  ASSERT_NE(first, nullptr);
  EXPECT_NE(first, plain);
  one.value.i = 2;  // the cache compares with its own copy, which holds 1
  ORX_OBJECT *second = open_read("tmulti", a, with_one);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, first);
  EXPECT_EQ(open_read("tmulti", a, with_two), second);
  for (ORX_OBJECT *o : {plain, first, second, second}) EXPECT_EQ(ORX_close(o), 0);
  EXPECT_EQ(closes(), 1);  // trimmed back to two
}

TEST_F(MultiFrameCache, AnUnreadableFileIsNotCached) {
  ErrorCapture errors;
  ORX_OBJECT *object = open_read("tmulti", dir_.file("missing"));
  ASSERT_NE(object, nullptr);
  EXPECT_NE(errors.last().find("missing"), std::string::npos);  // the plug-in names the file
  EXPECT_EQ(ORX_close(object), 0);
  EXPECT_EQ(closes(), 1);
}

TEST_F(MultiFrameCache, OutOfMemoryLeavesTheObjectUncached) {
  const std::string a = file("a");
  ORX_CAP_SETTING one{ORX_CAP_INTEGER, {1}}, half{ORX_CAP_FLOAT, {0}};
  half.value.f = 0.5f;
  ORX_CAP_SETTING *settings[] = {&one, &half, nullptr};
  ErrorCapture errors;
  for_each_allocation_failure([&] {
    const int before = closes();
    ORX_OBJECT *object = open_read("tmulti", a, settings);
    if (object == nullptr) return false;
    ORX_close(object);
    const bool cached = closes() == before;
    ORX_multiframe_set(1, 2);  // forgets the entry; its object is closed below
    if (cached) ORX_close_do_it(object, 1);
    return cached;
  });
}

TEST_F(MultiFrameCache, FramesAndPlaybackReachTheFormatsSlotsOrAreRefused) {
  const std::string a = file("a");
  ORX_OBJECT *object = open_read("tmulti", a);
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(ORX_get_frame(object), 0);
  EXPECT_EQ(ORX_set_frame(object, 5), 0);
  EXPECT_EQ(ORX_get_frame(object), 5);
  EXPECT_EQ(ORX_playback_bind(object, 1, 2, 3), 1321);
  EXPECT_EQ(ORX_playback_goto(object, 4, 0, 0), 2004);
  EXPECT_EQ(ORX_playback_play(object, 0, 1, 0), 3010);
  EXPECT_EQ(ORX_playback_params(object, 0, 0, 2), 4200);
  EXPECT_EQ(ORX_playback_stop(object), 5000);
  EXPECT_EQ(ORX_close(object), 0);
  // A file without frames is refused with each call's message even though
  // the slots are there, and so is a format without the slots (RLA).
  const std::string still = file("still"), rla = dir_.file("pic.rla");
  write_pattern(nullptr, rla, 2, 2);
  for (const std::string &path : {still, rla}) {
    object = open_read(path == still ? "tmulti" : nullptr, path);
    ASSERT_NE(object, nullptr);
    ErrorCapture errors;
    struct Case {
      int result;
      Msg says;
    } cases[] = {
        {ORX_get_frame(object), Msg::kSetFrame},
        {ORX_set_frame(object, 2), Msg::kSetFrame},
        {ORX_playback_bind(object, 0, 0, 0), Msg::kPlaybackBind},
        {ORX_playback_goto(object, 0, 0, 0), Msg::kPlaybackGoto},
        {ORX_playback_params(object, 0, 0, 0), Msg::kPlaybackParams},
        {ORX_playback_play(object, 0, 0, 0), Msg::kPlaybackPlay},
        {ORX_playback_stop(object), Msg::kPlaybackStop},
    };
    ASSERT_EQ(errors.size(), 7u) << path;
    for (std::size_t i = 0; i < 7; ++i) {
      EXPECT_EQ(cases[i].result, ORX_E_UNSUPPORTED);
      EXPECT_EQ(errors.reports()[i].severity, 2);
      EXPECT_EQ(errors.reports()[i].id, static_cast<int>(cases[i].says)) << i;
      EXPECT_EQ(errors.reports()[i].message.rfind(path, 0), 0u) << "names the file";
    }
    EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED);
    EXPECT_EQ(ORX_close(object), 0);
  }
}

TEST_F(MultiFrame, TheCacheCanBeSwitchedOffAndOn) {
  ORX_multiframe_set(1, 4);
  EXPECT_EQ(ORX_multiframe_used(), 1);
  ORX_multiframe_init();
  EXPECT_EQ(ORX_multiframe_used(), 0);
  EXPECT_EQ(ORX_multiframe_set_closed(nullptr), 0);  // disabled: nothing done
  ORX_INFO info;
  ORX_info_init(&info);
  info.handle = const_cast<char *>("x");
  EXPECT_EQ(ORX_multiframe_open(&info), nullptr);
}

}  // namespace
