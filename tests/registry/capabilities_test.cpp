#include <cstring>
#include <limits>
#include <tuple>
#include <utility>

#include "orx/capability.h"
#include "orx/ptr.h"
#include "registry/registry_fixture.hpp"
#include "support/error_capture.hpp"

namespace {

using namespace orx::test;
using Capabilities = RegistryTest;

ORX_CAP_SETTING real(float v) {
  ORX_CAP_SETTING s{};
  s.code = ORX_CAP_FLOAT;
  s.value.f = v;
  return s;
}

void free_copy(ORX_CAP_SETTING **copy) {
  for (ORX_CAP_SETTING **s = copy; s != nullptr && *s != nullptr; ++s) ERR_free(*s);
  ERR_free(copy);
}

using Specific = std::tuple<ORX_CAP_ENTRY *, int32_t, int32_t, int32_t>;
const Specific kNothing{nullptr, 0, 0, 0};

// What the capability query tells of a key or a format: the table and its
// three numbers, each written over a value it would not give.
Specific specific(const char *key, const ORX_FORMAT *format) {
  static ORX_CAP_ENTRY unwritten;
  Specific out{&unwritten, -1, -1, -1};
  auto &[table, first, second, count] = out;
  ORX_info_get_specific(key, format, &table, &first, &second, &count);
  return out;
}

ORX_CAP_ENTRY *table_of(const PluginSet &set) {
  return set.function<ORX_CAP_ENTRY *()>(0, "test_plugin_capabilities")();
}

TEST_F(Capabilities, ComparisonMatchesInOrderByCodeAndValue) {
  ErrorCapture errors;
  ORX_CAP_SETTING i5{ORX_CAP_INTEGER, {5}}, i7{ORX_CAP_INTEGER, {7}}, f5 = real(5.0f);
  ORX_CAP_SETTING nan = real(std::numeric_limits<float>::quiet_NaN());
  ORX_CAP_SETTING *a[] = {&i5, nullptr};
  ORX_CAP_SETTING *b[] = {&f5, &i5, nullptr};
  ORX_CAP_SETTING *none[] = {nullptr};
  // The integer is found after skipping the float; b may hold more.
  EXPECT_EQ(ORX_cap_setting_compare(a, b), 1);
  EXPECT_EQ(ORX_cap_setting_compare(b, a), 0);  // no float in a to match
  ORX_CAP_SETTING *seven[] = {&i7, nullptr};
  EXPECT_EQ(ORX_cap_setting_compare(a, seven), 0);
  // The search resumes after the last match: order matters, and a repeated
  // code needs a setting of its own in b.
  ORX_CAP_SETTING *int_then_float[] = {&i5, &f5, nullptr};
  EXPECT_EQ(ORX_cap_setting_compare(int_then_float, b), 0);
  ORX_CAP_SETTING *twice[] = {&i5, &i5, nullptr};
  ORX_CAP_SETTING *twice_too[] = {&i5, &i5, nullptr};
  EXPECT_EQ(ORX_cap_setting_compare(twice, a), 0);
  EXPECT_EQ(ORX_cap_setting_compare(twice, twice_too), 1);
  ORX_CAP_SETTING *nans[] = {&nan, nullptr};
  EXPECT_EQ(ORX_cap_setting_compare(nans, nans), 0);
  // Null and empty arrays.
  EXPECT_EQ(ORX_cap_setting_compare(nullptr, nullptr), 1);
  EXPECT_EQ(ORX_cap_setting_compare(nullptr, none), 1);
  EXPECT_EQ(ORX_cap_setting_compare(none, nullptr), 1);
  EXPECT_EQ(ORX_cap_setting_compare(nullptr, a), 0);
  EXPECT_EQ(ORX_cap_setting_compare(none, a), 1);  // asks for nothing
  EXPECT_EQ(ORX_cap_setting_compare(a, nullptr), 0);
  EXPECT_EQ(ORX_cap_setting_compare(a, none), 0);
  EXPECT_EQ(errors.size(), 0u);
  // An unknown code is reported and never equal.
  ORX_CAP_SETTING odd{};
  odd.code = 2;
  ORX_CAP_SETTING *odds[] = {&odd, nullptr};
  EXPECT_EQ(ORX_cap_setting_compare(odds, odds), 0);
  EXPECT_TRUE(errors.has(Msg::kCapabilityCode));
}

TEST_F(Capabilities, SettingsAreAllocatedUnsetAndCopiedDeeply) {
  ORX_CAP_SETTING *block = ORX_cap_setting_alloc(3);
  ASSERT_NE(block, nullptr);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(block[i].code, ORX_CAP_UNSET);
    EXPECT_EQ(block[i].value.i, 0);
  }
  block[0] = {ORX_CAP_INTEGER, {4}};
  block[1] = real(0.5f);
  ORX_CAP_SETTING *source[] = {&block[0], &block[1], &block[2], nullptr};
  ORX_CAP_SETTING **copy = ORX_cap_setting_copy(source);
  ASSERT_NE(copy, nullptr);
  ASSERT_EQ(PTR_length(reinterpret_cast<void **>(copy)), 3u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_NE(copy[i], source[i]);
    EXPECT_EQ(copy[i]->code, source[i]->code);
    EXPECT_EQ(copy[i]->value.i, source[i]->value.i);
  }
  free_copy(copy);
  ORX_CAP_SETTING *none[] = {nullptr};
  EXPECT_EQ(ORX_cap_setting_copy(none), nullptr);
  EXPECT_EQ(ORX_cap_setting_copy(nullptr), nullptr);

  ErrorCapture errors;
  for_each_allocation_failure([&] {
    ORX_CAP_SETTING **partial = ORX_cap_setting_copy(source);
    const uint32_t n = PTR_length(reinterpret_cast<void **>(partial));
    free_copy(partial);
    if (n != 3u) {
      EXPECT_EQ(errors.last_id(), int(Msg::kNoMemory));
    }
    return n == 3u;
  });
  ERR_free(block);
}

TEST_F(Capabilities, AvailabilityBitChangesOnceEachWay) {
  ORX_CAP_ENTRY entry{};
  entry.state = ORX_CAP_UNAVAILABLE | 1;
  EXPECT_EQ(ORX_set_available(&entry, 1), 1);
  EXPECT_EQ(ORX_set_available(&entry, 1), 0);
  EXPECT_EQ(entry.state, 1);
  EXPECT_EQ(ORX_set_available(&entry, 0), 1);
  EXPECT_EQ(ORX_set_available(&entry, 0), 0);
  EXPECT_EQ(entry.state, ORX_CAP_UNAVAILABLE | 1);
  EXPECT_EQ(ORX_set_available(nullptr, 1), 0);
}

TEST_F(Capabilities, InitCompletesTablesAndExitGivesThemBack) {
  PluginSet set({"plugin_caps", "plugin_caps_wide", "plugin_good"});
  ORX_CAP_ENTRY *table = table_of(set);
  ASSERT_NE(table, nullptr);
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(set.init(), 0);
    EXPECT_STREQ(table[1].name, "Quality");
    ORX_CAP_LIST &list = *table[0].list;
    EXPECT_EQ(list.count, 3);
    EXPECT_STREQ(list.entries[0].name, "none");
    EXPECT_STREQ(list.entries[1].name, "Run length");
    EXPECT_STREQ(list.entries[2].name, "Zip");
    int32_t first = -1, second = -1;  // the largest of the tables
    ORX_info_num_specific(&first, &second);
    EXPECT_EQ(std::pair(first, second), std::pair(9, 5));
    EXPECT_EQ(specific("tcaps", nullptr), Specific(table, 3, 5, 2));
    EXPECT_EQ(specific(nullptr, ORX_find("tcaps")), Specific(table, 3, 5, 2));
    EXPECT_EQ(specific(nullptr, ORX_find("tgood")), kNothing);
    ORX_exit();
    // The plug-in's own names are back, and the counters cleared.
    EXPECT_STREQ(table[1].name, "q");
    EXPECT_STREQ(table[0].list->entries[1].name, "rle");
    EXPECT_EQ(table[0].list->entries[2].name, nullptr);
    ORX_info_num_specific(&first, &second);
    EXPECT_EQ(first + second, 0);
  }
}

TEST_F(Capabilities, QueriesWithoutATableOrKeyGiveNothing) {
  PluginSet set({"plugin_caps", "plugin_good"});
  ASSERT_EQ(set.init(), 0);
  ErrorCapture errors;
  EXPECT_EQ(specific("nosuch", nullptr), kNothing);
  EXPECT_EQ(errors.last_id(), int(Msg::kUnknownKey));
  EXPECT_EQ(specific(nullptr, nullptr), kNothing);
  EXPECT_EQ(ORX_capabilities_available(ORX_find("tcaps"), 3, 4), 7);
  EXPECT_EQ(ORX_capabilities_available(ORX_find("tgood"), 3, 4), 0);
  EXPECT_EQ(ORX_capabilities_available(nullptr, 3, 4), 0);
}

TEST_F(Capabilities, TablesWithoutNamesAreReportedAndKeepTheFormat) {
  PluginSet set({"plugin_cap_nameless", "plugin_cap_list_nameless"});
  ErrorCapture errors;
  ASSERT_EQ(set.init(), 0);
  EXPECT_TRUE(errors.has(Msg::kCapabilityName));
  EXPECT_TRUE(errors.has(Msg::kCapabilityListName));
  EXPECT_NE(ORX_find("tcapnn"), nullptr);
  EXPECT_NE(ORX_find("tcapln"), nullptr);
}

TEST_F(Capabilities, ValidationOutOfMemoryFailsInitAndLeavesTheTableAsItWas) {
  PluginSet set({"plugin_caps"});
  ORX_CAP_ENTRY *table = table_of(set);
  ErrorCapture errors;
  for_each_allocation_failure([&] {
    const int status = set.init();
    const bool complete = status == 0 && std::strcmp(table[1].name, "Quality") == 0 &&
                          std::strcmp(table[0].list->entries[2].name, "Zip") == 0;
    if (status != 0) {
      EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
    }
    ORX_exit();
    EXPECT_STREQ(table[1].name, "q");
    EXPECT_EQ(table[0].list->entries[2].name, nullptr);
    return complete;
  });
}

TEST_F(Capabilities, DialogsOpenOneAtATimeAndNeedBothFunctions) {
  PluginSet set({"plugin_caps", "plugin_caps_wide", "plugin_good"});
  ASSERT_EQ(set.init(), 0);
  auto popdowns = set.function<int()>(0, "test_plugin_popdown_calls");
  auto arg = set.function<intptr_t(int)>(0, "test_plugin_popdown_arg");
  const ORX_FORMAT *caps = ORX_find("tcaps");
  const ORX_FORMAT *popup_only = ORX_find("tcapw");
  EXPECT_EQ(ORX_private_ui_popdown(1, 2, 3, 4), 0);  // none open
  EXPECT_EQ(ORX_private_ui_popup(caps, 21, 0, 0), 42);
  // Another format's dialog closes the open one first, even when its own
  // cannot open for want of a popdown function.
  EXPECT_EQ(ORX_private_ui_popup(popup_only, 5, 6, 7), ORX_E_UNSUPPORTED);
  EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED);
  EXPECT_EQ(popdowns(), 1);
  EXPECT_EQ(arg(0), reinterpret_cast<intptr_t>(popup_only));
  EXPECT_EQ(arg(1), 5);
  EXPECT_EQ(arg(3), 7);
  EXPECT_EQ(ORX_private_ui_popdown(1, 2, 3, 4), 0);
  EXPECT_EQ(ORX_private_ui_popup(ORX_find("tgood"), 1, 0, 0), ORX_E_UNSUPPORTED);
  EXPECT_EQ(ORX_private_ui_popup(caps, 1, 0, 0), 2);
  EXPECT_EQ(ORX_private_ui_popdown(9, 8, 7, 6), 77);
  EXPECT_EQ(popdowns(), 2);
  EXPECT_EQ(arg(0), 9);
  EXPECT_EQ(arg(3), 6);
  EXPECT_EQ(ORX_private_ui_popdown(9, 8, 7, 6), 0);
}

using CapabilitiesDeathTest = Capabilities;

TEST_F(CapabilitiesDeathTest, AListDefaultOutsideTheListEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        PluginSet set({"plugin_cap_bad_default"});
        set.init();
      },
      "tcapbd: capability `compression' has invalid list default 9\n");
}

}  // namespace
