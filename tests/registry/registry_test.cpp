#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "orx/naming.h"
#include "registry/registry_fixture.hpp"
#include "support/error_capture.hpp"

namespace {

using namespace orx::test;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// A format record's names and syntaxes (between bars), then its numbers.
std::string fields(const ORX_FORMAT *f) {
  if (f == nullptr) return "(none)";
  std::ostringstream out;
  for (const char *s : {f->key, f->name, f->extension, f->description, f->format_string, f->name_syntax})
    out << (s != nullptr ? s : "(null)") << "|";
  out << " add " << f->add_extension << " usage " << f->usage << " orientation " << f->orientation
      << " channels " << f->channels << "x" << f->bits_per_channel << " mattes " << f->mattes
      << " z " << f->z_channels << " window " << f->active_window << " access " << f->access
      << " links " << int(f->hard_link) << int(f->remote_access);
  return out.str();
}

TEST_F(RegistryTest, WithoutPluginsOnlyTheBuiltInFormatsAreRegisteredAndNamed) {
  ASSERT_EQ(ORX_init(nullptr, nullptr), 0);
  EXPECT_EQ(ORX_info(), nullptr);
  for (const char *key : {".mem", "pipe", "rla"}) EXPECT_NE(ORX_find(key), nullptr) << key;
  EXPECT_EQ(ORX_find("Rla"), nullptr);  // exact comparison
  EXPECT_STREQ(ORX_name_from_key("mem"), "memory");
  EXPECT_STREQ(ORX_name_from_key(".pipe"), "pipe");
  EXPECT_EQ(ORX_name_from_key(nullptr), nullptr);
  const char *unknown = "tiff";  // comes back itself, with a report
  ErrorCapture errors;
  EXPECT_EQ(ORX_name_from_key(unknown), unknown);
  EXPECT_TRUE(errors.has(Msg::kUnknownKey));
  char *keys[4] = {};
  CaptureStderr();
  EXPECT_EQ(ORX_getFormatKeys(keys), 0);
  EXPECT_EQ(GetCapturedStderr(), "Plugins not loaded, so Load!!\n\nNo Plugins!\n");
  // A second init only rewinds.
  EXPECT_EQ(ORX_init(nullptr, nullptr), 0);
}

TEST_F(RegistryTest, RefusedPluginsAreReportedAndSkippedInitZeroSilently) {
  PluginSet set({"plugin_good", "plugin_v31", "plugin_no_orientation", "plugin_init_zero"});
  ErrorCapture errors;
  ASSERT_EQ(set.init(), 0);
  EXPECT_TRUE(errors.has(Msg::kVersionProtocol));
  EXPECT_TRUE(errors.has(Msg::kMustBeDefined));
  EXPECT_EQ(errors.size(), 2u);
  EXPECT_EQ(set.counter(3, "test_plugin_init_calls"), 1);
  EXPECT_EQ(ORX_find("tzero"), nullptr);
  EXPECT_EQ(ORX_find("tv31"), nullptr);
  EXPECT_EQ(ORX_find("tnoor"), nullptr);
  const ORX_FORMAT *good = ORX_info();
  ASSERT_NE(good, nullptr);
  EXPECT_EQ(fields(good), "tgood|Test good|.tgd|registry test plug-in|%s.%04.4d%s|(null)| add 1 "
            "usage 1 orientation 1 channels 4x128 mattes 0 z 0 window 0 access 12 links 10");
  EXPECT_EQ(good->is_file, nullptr);
  EXPECT_EQ(ORX_info(), nullptr);
  ORX_init(nullptr, nullptr);  // rewinds the iterator
  EXPECT_EQ(ORX_info(), good);
  EXPECT_EQ(ORX_hasReadSupport("tgood"), 1);
  EXPECT_EQ(ORX_hasWriteSupport(".tgd"), 1);
  EXPECT_EQ(ORX_hasReadSupport("nope"), 0);
  EXPECT_EQ(ORX_hasWriteSupport(nullptr), 0);
  EXPECT_EQ(ORX_isMultiFrameFormat("tgood"), 0);
  ORX_exit();
  EXPECT_EQ(set.counter(0, "test_plugin_done_calls"), 1);
  EXPECT_EQ(set.counter(3, "test_plugin_done_calls"), 0);
}

TEST_F(RegistryTest, ALaterPluginReplacesAnEarlierOneWithTheSameKey) {
  PluginSet set({"plugin_dup_a", "plugin_good", "plugin_dup_b"});
  ASSERT_EQ(set.init(), 0);
  EXPECT_STREQ(ORX_find("tdup")->name, "Dup B");
  EXPECT_EQ(ORX_find(".tda"), nullptr);
  char *keys[4] = {};
  ASSERT_EQ(ORX_getFormatKeys(keys), 2);
  EXPECT_STREQ(keys[0], "tgood");
  EXPECT_STREQ(keys[1], "tdup");
  EXPECT_EQ(ORX_find("tdup")->owns_format_string, 0);
  ORX_exit();

  // The earlier one goes as soon as the later one's key is read, even when
  // the later one is then refused.
  ErrorCapture errors;
  PluginSet refused({"plugin_dup_a", "plugin_dup_refused"});
  ASSERT_EQ(refused.init(), 0);
  EXPECT_EQ(ORX_find("tdup"), nullptr);
  EXPECT_TRUE(errors.has(Msg::kMustBeDefined));
}

TEST_F(RegistryTest, NullStringSymbolsTakeTheirDefaults) {
  PluginSet set({"plugin_null_extension"});
  ASSERT_EQ(set.init(), 0);
  const ORX_FORMAT *format = ORX_find("tnull");
  ASSERT_NE(format, nullptr);
  EXPECT_STREQ(format->extension, "");
  char buffer[64];
  EXPECT_EQ(ORX_getOnlyExtensions(buffer), 1);
  EXPECT_STREQ(buffer, "*;");
}

// The entry points the registry announced its initialisation for.
std::vector<std::string> announcements(const ErrorCapture &errors) {
  std::vector<std::string> out;
  for (const Captured &c : errors.reports())
    if (c.id == int(Msg::kInitDatabase) && c.severity == ERR_DEBUG)
      out.push_back(c.message.substr(c.message.rfind(' ', c.message.size() - 9) + 1));
  return out;
}

TEST_F(RegistryTest, LazyInitialisationIsAnnouncedWithTheEntryPointsName) {
  ERR_unmask_s(ERR_DEBUG);
  ErrorCapture errors;
  ASSERT_NE(ORX_find("rla"), nullptr);
  EXPECT_STREQ(ORX_def_key(), "rla");  // already initialised: no announcement
  ORX_exit();
  EXPECT_STREQ(ORX_def_base_name(), "im");
  ORX_exit();
  EXPECT_EQ(ORX_info(), nullptr);
  ORX_exit();
  EXPECT_EQ(ORX_open(nullptr, "r"), nullptr);
  ORX_exit();
  EXPECT_STREQ(ORX_is_file_type("none", nullptr, nullptr, nullptr), "__none_");
  const std::vector<std::string> expected = {
      "ORX_find request", "ORX_def_base_name request", "ORX_find request", "ORX_open request",
      "ORX_is_file_type request"};
  EXPECT_EQ(announcements(errors), expected);
}

TEST_F(RegistryTest, NameQueriesListPluginsAndComplainAboutBadArguments) {
  PluginSet set({"plugin_good", "plugin_multi"});
  ASSERT_EQ(set.init(), 0);
  char *list[4] = {};
  ASSERT_EQ(ORX_getPluginNames(list), 2);
  EXPECT_STREQ(list[0], "Test good");
  EXPECT_STREQ(list[1], "Multi");
  ERR_free(list[0]);
  ERR_free(list[1]);
  ASSERT_EQ(ORX_getPluginExtensions(list), 2);
  EXPECT_STREQ(list[1], ".a_very_long_multiframe_ext");
  char buffer[256];
  EXPECT_EQ(ORX_getExtFromFormatKey("mem", buffer), -1);  // built-ins are not listed
  EXPECT_EQ(ORX_getKeyFromPluginName("memory", buffer), -1);
  EXPECT_EQ(ORX_isMultiFrameFormat("tmulti"), 1);

  CaptureStderr();
  EXPECT_EQ(ORX_getFormatKeys(nullptr), 0);
  EXPECT_EQ(ORX_getPluginNameFromKey(nullptr, buffer), -1);
  EXPECT_EQ(ORX_getKeyFromPluginName(nullptr, buffer), -1);
  EXPECT_EQ(ORX_getExtFromPluginName("Multi", nullptr), -1);
  EXPECT_EQ(ORX_getPluginNamesWithFilters(nullptr), 0);
  ORX_symbols();
  EXPECT_EQ(GetCapturedStderr(),
            "NULL pointer passed\nNULL key passed in\nNULL pluginName passed in\n"
            "NULL buffer passed in\nNULL pointer passed!\n"
            "ORX_symbols: should not be called by the application\n");
}

using Sized = std::function<int(char *, size_t, size_t *)>;
using Unsized = std::function<int(char *)>;
struct Twins {
  Unsized unsized;
  Sized sized;
  std::string text;
  int result;
};

// A getter of one name and its sized twin, both asked about name.
template <auto Get, auto GetSized>
Twins about(const char *name, std::string text) {
  return {[name](char *b) { return Get(name, b); },
          [name](char *b, size_t c, size_t *n) { return GetSized(name, b, c, n); }, text, 0};
}

// Each name getter's text, and its sized twin against it: at every capacity
// the twin stores the text cut to fit and terminated, never a byte past
// capacity, and tells the whole size.
TEST_F(RegistryTest, SizedNameQueriesStoreWhatFitsAndTellTheSize) {
  PluginSet set({"plugin_good", "plugin_multi"});
  ASSERT_EQ(set.init(), 0);
  // Filters: "NAME (*EXT)\0*EXT\0" per plug-in, long patterns shown as
  // "all formats"; the result is the size of the last pair.
  const std::string filters("Test good (*.tgd)\0*.tgd\0Multi (all formats)\0"
                            "*.a_very_long_multiframe_ext\0", 73);
  const Twins twins[] = {
      {ORX_getOnlyExtensions, ORX_getOnlyExtensions_sized, "*.tgd;*.a_very_long_multiframe_ext;",
       2},
      about<ORX_getPluginNameFromKey, ORX_getPluginNameFromKey_sized>("tmulti", "Multi"),
      about<ORX_getKeyFromPluginName, ORX_getKeyFromPluginName_sized>("Test good", "tgood"),
      about<ORX_getExtFromPluginName, ORX_getExtFromPluginName_sized>(
          "Multi", ".a_very_long_multiframe_ext"),
      about<ORX_getExtFromPluginName, ORX_getExtFromPluginName_sized>("Test good", ".tgd"),
      about<ORX_getExtFromFormatKey, ORX_getExtFromFormatKey_sized>("tgood", ".tgd"),
      {ORX_getPluginNamesWithFilters, ORX_getPluginNamesWithFilters_sized, filters, 49},
  };
  for (const auto &[unsized, sized, text, expected] : twins) {
    char whole[256];
    std::memset(whole, 'x', sizeof whole);
    const int result = unsized(whole);
    EXPECT_EQ(result, expected) << text;
    EXPECT_EQ(std::string(whole, text.size() + 1), text + '\0');
    size_t needed = 0;
    EXPECT_EQ(sized(nullptr, 0, &needed), result);
    ASSERT_GT(needed, 0u);
    ASSERT_LT(needed, sizeof whole);
    for (size_t capacity = 1; capacity <= needed + 1; ++capacity) {
      std::string out(needed + 2, 'x');
      size_t told = 0;
      EXPECT_EQ(sized(out.data(), capacity, &told), result);
      EXPECT_EQ(told, needed);
      const size_t kept = std::min(capacity, needed) - 1;
      EXPECT_EQ(out.substr(0, kept), std::string(whole, kept)) << capacity;
      EXPECT_EQ(out[kept], '\0');
      EXPECT_EQ(out.substr(capacity), std::string(needed + 2 - capacity, 'x'));
    }
  }
  size_t needed = 1;
  EXPECT_EQ(ORX_getPluginNameFromKey_sized("nope", nullptr, 0, &needed), -1);
  EXPECT_EQ(needed, 0u);
}

TEST_F(RegistryTest, FileTypeTestsAskEachFormatAndTellWhetherAllCouldAnswer) {
  TempDir dir;
  const std::string missing = dir.file("none.bin");
  int32_t known = -1;
  // Every built-in format can answer, so a file none claims is "__none_".
  ASSERT_EQ(ORX_init(nullptr, nullptr), 0);
  EXPECT_STREQ(ORX_get_file_type(missing.c_str(), nullptr, &known), "__none_");
  EXPECT_EQ(known, 1);
  ORX_exit();

  PluginSet set({"plugin_good", "plugin_multi"});
  ASSERT_EQ(set.init(), 0);
  EXPECT_EQ(ORX_get_file_type(missing.c_str(), nullptr, &known), nullptr);
  EXPECT_EQ(known, 0);  // the good plug-in has no file test
  EXPECT_STREQ(ORX_get_file_type("shot.tmf", nullptr, &known), "tmulti");
  EXPECT_EQ(known, 0);  // asked first, the good plug-in could not answer
  EXPECT_STREQ(ORX_is_file_type("shot.tmf", nullptr, "tmulti", &known), "tmulti");
  EXPECT_EQ(known, 1);
  EXPECT_STREQ(ORX_is_file_type("again.tmf", nullptr, "tmulti", &known), "tmulti");
  EXPECT_EQ(ORX_is_file_type("shot.tmf", nullptr, "rla", &known), nullptr);
  EXPECT_EQ(ORX_is_file_type("shot.tmf", nullptr, "tgood", &known), nullptr);
  EXPECT_EQ(known, 0);
  EXPECT_STREQ(ORX_is_file_type("shot.tmf", nullptr, nullptr, &known), "tmulti");
}

TEST_F(RegistryTest, OutOfMemoryWhileBuildingFailsCleanly) {
  PluginSet set({"plugin_good", "plugin_multi"});
  ErrorCapture errors;
  for_each_allocation_failure([&] {
    if (set.init() != 0) {
      EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
      EXPECT_EQ(ORX_hasReadSupport("rla"), 0);  // left uninitialised
      return false;
    }
    const bool complete = ORX_hasReadSupport("tmulti") == 1 && ORX_hasReadSupport("rla") == 1;
    ORX_exit();
    return complete;
  });
}

// The built name, "(null)" when building failed.
std::string take(char *s) {
  std::string out = s != nullptr ? s : "(null)";
  ERR_free(s);
  return out;
}

TEST_F(RegistryTest, PathnamesByKeyUseTheFormatsSyntaxAndExtension) {
  ASSERT_EQ(ORX_init(nullptr, nullptr), 0);
  EXPECT_EQ(take(ORX_pathname_build("rla", "shot", 7)), "shot.0007.rla");
  EXPECT_EQ(take(ORX_pathname_build(".mem", "plate", -12)), "plate.-0012.mem");
  EXPECT_EQ(take(ORX_pathname_build("pipe", "take", 123456)), "take.123456.pipe");

  // Without a name syntax the format string decides; without the
  // add-extension flag no extension is added.
  ORX_FORMAT *rla = ORX_find("rla");
  ASSERT_NE(rla, nullptr);
  char *syntax = rla->name_syntax;
  rla->name_syntax = nullptr;
  rla->add_extension = 0;
  EXPECT_EQ(take(ORX_pathname_build("rla", "shot", 7)), "shot.0007");
  rla->name_syntax = syntax;
  rla->add_extension = 1;

  ErrorCapture cap;
  EXPECT_EQ(ORX_pathname_build("nosuch", "a", 1), nullptr);
  EXPECT_TRUE(cap.failed_with(ORX_E_INVALID_TYPE, orx::Msg::kInvalidType));
}

}  // namespace
