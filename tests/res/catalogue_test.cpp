#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "orx/err.h"
#include "orx/res.h"
#include "res/res_file.hpp"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

using orx::test::ErrorCapture;
using orx::test::TempDir;
using Catalogue = orx::test::CleanErrors;

// 902.44 is the library's "File open mode ("%s") not recognized; ...".
std::string make_catalogue(const TempDir &dir, const char *text) {
  const std::string source = dir.file("cat.txt"), path = dir.file("cat.res");
  std::ofstream(source) << text;
  EXPECT_EQ(ORX_res_build_text(source.c_str(), path.c_str()), 0);
  return path;
}

// A translation may reorder words, not arguments: the conversions of the
// two formats must take the same arguments in the same order, either way
// round; %n and a broken conversion never match.
TEST(Conversions, MatchWhenTheArgumentsMatch) {
  const struct {
    const char *a, *b;
    bool same;
  } pairs[] = {{"a %s b %d", "%-8s et %5d", true},
               {"%d%%", "%% %x", true},
               {"%*.*f", "%d %d %e", true},
               {"%hd %llu", "%d %lld", true},
               {"%s", "%d", false},
               {"%s %d", "%d %s", false},
               {"%d", "%ld", false},
               {"%s", "%s %s", false},
               {"%n", "%n", false},
               {"%d", "%", false},
               {"%d", "%y", false}};
  for (const auto &p : pairs) {
    EXPECT_EQ(orx::res::same_conversions(p.a, p.b), p.same) << p.a << " ~ " << p.b;
    EXPECT_EQ(orx::res::same_conversions(p.b, p.a), p.same) << p.b << " ~ " << p.a;
  }
}

TEST_F(Catalogue, TranslationsReplaceTheTextAndBadOnesAreDropped) {
  TempDir dir;
  const std::string path = make_catalogue(
      dir,
      "resource ERRO \"902.44\"\nmessage 3 \"Mode d'ouverture (\\\"%s\\\") inconnu\"\n"
      "resource ERRO \"902.52\"\nmessage 3 \"Impossible %d\"\n"  // default: %s %s
      "resource ERRO \"not.a.number\"\nmessage 3 \"x\"\n"
      "resource ERRO \"950.1\"\nmessage 1 \"plug-in %s\"\n");
  ErrorCapture errors;
  void *cat = ORX_msg_cat_open(path.c_str());
  ASSERT_NE(cat, nullptr);
  EXPECT_TRUE(errors.has(orx::Msg::kCatEntryDropped, "902.52"));
  EXPECT_TRUE(errors.has(orx::Msg::kCatEntryDropped, "not.a.number"));
  errors.clear();
  ERR_report_cat(cat, 902, 44, 3, "File open mode (\"%s\") not recognized", "rw");
  EXPECT_EQ(errors.last(), "Mode d'ouverture (\"rw\") inconnu");
  // Handlers still recognise the report by its default format.
  EXPECT_EQ(errors.reports().back().name, "File open mode (\"%s\") not recognized");
  ERR_report_cat(cat, 902, 52, 3, "Cannot open file %s; %s", "f", "gone");
  EXPECT_EQ(errors.last(), "Cannot open file f; gone");
  ERR_report_cat(cat, 950, 1, 3, "module %s", "m");  // a host's own message
  EXPECT_EQ(errors.last(), "plug-in m");
  ERR_report_cat(cat, 950, 1, 3, "module %d", 5);  // the reporter's arguments differ
  EXPECT_EQ(errors.last(), "module 5");
  int not_a_catalogue = 0;
  ERR_report_cat(&not_a_catalogue, 902, 44, 3, "mode %s", "w");
  EXPECT_EQ(errors.last(), "mode w");
  orx__msg_cat = cat;
  EXPECT_EQ(ORX_msg_cat_close(cat), 0);
  EXPECT_EQ(orx__msg_cat, nullptr);
  EXPECT_EQ(ORX_msg_cat_close(cat), ORX_E_INVALID_TYPE);
  ERR_report_cat(cat, 902, 44, 3, "mode %s", "r");  // closed: the default again
  EXPECT_EQ(errors.last(), "mode r");
}

TEST_F(Catalogue, NamedMessagesGoToTheGlobalHandlers) {
  TempDir dir;
  const std::string path =
      make_catalogue(dir, "resource ERRO \"hello\"\nmessage 1 \"hello %s, %d\"\n");
  ORX_RES_FILE *file = ORX_res_open(path.c_str());
  ASSERT_NE(file, nullptr);
  ErrorCapture errors;
  orx::res::report_named(file, "hello", "there", 7);
  EXPECT_TRUE(errors.has(1, "hello there, 7"));
  EXPECT_EQ(orx::res::report_named(file, "absent"), -1);
  ORX_res_close(file);
}

TEST_F(Catalogue, OutOfMemoryWhileOpeningIsReported) {
  TempDir dir;
  const std::string path = make_catalogue(
      dir,
      "resource ERRO \"902.44\"\nmessage 3 \"m %s\"\nresource ERRO \"9.1\"\nmessage 3 \"n\"\n");
  orx::test::for_each_reported_allocation_failure([&] {
    void *cat = ORX_msg_cat_open(path.c_str());
    if (cat == nullptr) return orx__err;
    return ORX_msg_cat_close(cat);
  });
}

}  // namespace
