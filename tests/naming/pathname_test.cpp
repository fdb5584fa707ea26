#include <climits>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "naming/naming_support.hpp"
#include "orx/err.h"

namespace {

using PathnameBuild = orx::test::NamingTest;

// The built name, "(null)" when building failed.
std::string taken(char *name) {
  const std::string s = name != nullptr ? name : "(null)";
  ERR_free(name);
  return s;
}

std::string from_syntax(const char *syntax, const char *base, int32_t frame, const char *ext) {
  return taken(ORX_pathname_build_from_name_syntax(syntax, base, frame, ext));
}

std::string from_format(const char *format, const char *base, int32_t frame, const char *ext) {
  return taken(ORX_pathname_build_no_name_syntax(format, base, frame, ext));
}

// Generated syntaxes build names checked against a model in property_test.cpp;
// here the null syntax and a frame wider than any generated one.
TEST_F(PathnameBuild, NullSyntaxAndAWideFrame) {
  EXPECT_EQ(from_syntax(nullptr, "s", 1, ".x"), "(null)");
  EXPECT_EQ(orx__err, ORX_E_EMPTY_SYNTAX);
  EXPECT_EQ(from_syntax(("name." + std::string(40, '#')).c_str(), "s", 5, nullptr),
            "s." + std::string(39, '0') + "5");
}

// The built-in formats publish both forms; hosts get the same names either way.
TEST_F(PathnameBuild, DefaultFormatStringAgreesWithTheBuiltInSyntax) {
  for (int32_t frame : {0, 7, 42, 9999, 10000, 123456, -1, -7, -12345, INT32_MIN, INT32_MAX}) {
    for (const char *extension : {".rla", ".mem", "", static_cast<const char *>(nullptr)}) {
      SCOPED_TRACE(frame);
      EXPECT_EQ(from_format("%s.%04.4d%s", "shot", frame, extension),
                from_syntax("Name.####.Ext", "shot", frame, extension));
    }
  }
}

TEST_F(PathnameBuild, FormatStringTakesBaseFrameAndExtensionInThatOrderOnly) {
  EXPECT_EQ(from_format("%s.%04d", "shot", 7, ".rla"), "shot.0007");
  EXPECT_EQ(from_format("%s", "shot", 7, ".rla"), "shot");
  EXPECT_EQ(from_format("%-6s|%+d%%%s", "ab", 3, ".x"), "ab    |+3%.x");
  EXPECT_EQ(from_format("img_%s_%3d%s", nullptr, 7, ".x"), "img__  7.x");
  for (const char *bad : {"plain", "%d%s", "%s%s%s", "%s%d%s%s", "%s%*d", "%s%ld", "%n",
                          "%s%", "%+s", "%0s", "%s%99999d", "%s%.99999d", "%s%x", "%s%c"}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(from_format(bad, "s", 1, ".x"), "(null)");
    EXPECT_EQ(orx__err, ORX_E_BAD_SYNTAX);
  }
  for (const char *empty : {"", static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(from_format(empty, "s", 1, ".x"), "(null)");
    EXPECT_EQ(orx__err, ORX_E_EMPTY_SYNTAX);
  }
}

TEST_F(PathnameBuild, OutOfMemoryGivesNullStatusAndNoLeak) {
  const auto sweep = [](decltype(&ORX_pathname_build_no_name_syntax) build, const char *form) {
    return orx::test::for_each_allocation_failure([&] {
      orx::naming::reset();
      char *name = build(form, "shot", 7, ".rla");
      if (name == nullptr) {
        EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
      }
      ERR_free(name);
      return name != nullptr;
    });
  };
  EXPECT_EQ(sweep(ORX_pathname_build_from_name_syntax, "name.####.ext"), 3);  // copy, tokens, result
  sweep(ORX_pathname_build_no_name_syntax, "%s.%04.4d%s");
}

using PathnameProbe = orx::test::NamingTest;

void touch(const std::string &path) {
  std::FILE *f = std::fopen(path.c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fclose(f);
}

TEST_F(PathnameProbe, ReportsWhichFramesOfASequenceExist) {
  orx::test::TempDir dir;
  touch(dir.file("shot.0001.rla"));
  touch(dir.file("shot.0003.rla"));
  touch(dir.file("shot.0004.tif"));
  uint8_t exists[5] = {9, 9, 9, 9, 9};
  const auto probe = [&](const std::string &directory, const char *syntax, int32_t first,
                         int32_t last, uint8_t *found) {
    return ORX_pathname_probe_frames(directory.c_str(), syntax, "shot", ".rla", first, last, found);
  };
  EXPECT_EQ(probe(dir.path(), "Name.####.Ext", 0, 4, exists), 2);
  EXPECT_EQ(orx__err, ORX_OK);
  EXPECT_EQ(std::string(exists, exists + 5), std::string({0, 1, 0, 1, 0}));
  EXPECT_EQ(probe(dir.path() + "/", "name.####.ext", 1, 1, nullptr), 1);
  EXPECT_EQ(probe(dir.path(), "name.####.ext", 4, 3, nullptr), 0);
  EXPECT_EQ(probe(dir.path(), "name/####", 0, 4, exists), -1);
  EXPECT_EQ(orx__err, ORX_E_BAD_SYNTAX);
  orx::test::for_each_allocation_failure([&] {
    orx::naming::reset();
    const int32_t found = probe(dir.path(), "name.####.ext", 0, 4, exists);
    if (found < 0) {
      EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
    } else {
      EXPECT_EQ(found, 2);
    }
    return found >= 0;
  });
}

}  // namespace
