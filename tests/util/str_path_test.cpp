#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "orx/str.h"
#include "support/fixtures.hpp"

namespace {

using StrPath = orx::test::CleanErrors;

std::string head(const char *path) {
  std::string s = path;
  return STR_head(s.data()) != nullptr ? std::string(s.c_str()) : "(null)";
}

std::string absolute(const char *directory, const char *name) {
  char buffer[256];
  return STR_filename_absolute(buffer, directory, name);
}

std::string relative(const char *directory, const char *name) {
  char buffer[256];
  return STR_filename_relative(buffer, directory, name);
}

std::string clean(const char *path) {
  char buffer[256];
  std::strcpy(buffer, path);
  return STR_filename_clean(buffer);
}

TEST_F(StrPath, HeadTailRootExtensionCutAtTheLastSeparator) {
  EXPECT_EQ(head("/img/seq/a.rla"), "/img/seq");
  EXPECT_EQ(head("img//a.rla"), "img");  // a run of "/" is one separator
  EXPECT_EQ(head("/a"), "");
  EXPECT_EQ(head("a.rla"), "(null)");
  EXPECT_EQ(STR_head(nullptr), nullptr);

  const char *path = "/img/a.0001.rla";
  EXPECT_EQ(STR_tail(path), path + 5);
  EXPECT_EQ(STR_tail("a.rla"), std::string("a.rla"));
  EXPECT_STREQ(STR_extension(path), "rla");
  EXPECT_EQ(STR_extension("noext"), nullptr);
  char name[] = "a.0001.rla";
  EXPECT_STREQ(STR_root(name), "a.0001");
  char plain[] = "plain";
  EXPECT_STREQ(STR_root(plain), "plain");
}

TEST_F(StrPath, HostPrefixNeedsANameAndNoSlashBeforeTheColon) {
  char remote[] = "render1:/img/a.rla";
  EXPECT_STREQ(STR_host(remote), "render1");
  for (const char *no : {"/img/a:b", ":/img", "plain", ""}) {
    std::string s = no;
    EXPECT_EQ(STR_host(s.data()), nullptr) << no;
    EXPECT_EQ(s, no);
  }

  const char *nested = "a:b:/c:d";
  EXPECT_EQ(STR_host_remove(nested), nested + 4);
  const char *local = "/c:d";
  EXPECT_EQ(STR_host_remove(local), local);

  char buffer[32] = "unchanged";
  EXPECT_EQ(STR_filename_host(buffer, "render1:/img"), 1);
  EXPECT_STREQ(buffer, "render1");
  EXPECT_EQ(STR_filename_host(nullptr, "render1:/img"), 1);
  EXPECT_EQ(STR_filename_host(buffer, "/img/a:b"), 0);
  EXPECT_EQ(STR_filename_host(buffer, nullptr), 0);
}

TEST_F(StrPath, AbsoluteConsumesDotsAgainstTheDirectory) {
  EXPECT_EQ(absolute("/usr/img", "a.rla"), "/usr/img/a.rla");
  EXPECT_EQ(absolute("/usr/img/", "./a.rla"), "/usr/img/a.rla");
  EXPECT_EQ(absolute("/usr/img", "../a.rla"), "/usr/a.rla");
  EXPECT_EQ(absolute("/usr/img//", "./../.././/a/../b"), "/a/../b");  // only leading dots
  EXPECT_EQ(absolute("/usr/img", "../../../../a"), "/a");  // beyond the directory
  EXPECT_EQ(absolute("/usr/img", ".."), "/usr");
  EXPECT_EQ(absolute("/usr/img", "."), "/usr/img");
  EXPECT_EQ(absolute("/usr", "../.."), "/");
  EXPECT_EQ(absolute("/", "a"), "/a");
  EXPECT_EQ(absolute(nullptr, "a"), "/a");
  EXPECT_EQ(absolute("/usr", "..hidden"), "/usr/..hidden");
  EXPECT_EQ(absolute("/usr", "/etc/orx"), "/etc/orx");
  EXPECT_EQ(absolute("/usr", "render1:img"), "render1:img");
  EXPECT_EQ(absolute("/usr", ""), "");
  EXPECT_EQ(absolute("/usr", nullptr), "");
  EXPECT_EQ(STR_filename_absolute(nullptr, "/usr", "a"), nullptr);

  char shared[64] = "/usr/img";  // the buffer may hold the directory itself
  EXPECT_STREQ(STR_filename_absolute(shared, shared, "../lib/a"), "/usr/lib/a");
}

TEST_F(StrPath, RelativeClimbsOutOfUnsharedDirectoryComponents) {
  EXPECT_EQ(relative("/usr/local/lib", "/usr/share/img/a.rla"), "../../share/img/a.rla");
  EXPECT_EQ(relative("/usr/img", "/usr/img/seq/a.rla"), "seq/a.rla");
  EXPECT_EQ(relative("/usr/img/", "/usr//img/./"), ".");
  EXPECT_EQ(relative("/usr/ab", "/usr/a/b"), "../a/b");  // whole components only
  EXPECT_EQ(relative("/", "/etc/orx"), "etc/orx");
  EXPECT_EQ(relative("/etc/orx", "/"), "../..");
  EXPECT_EQ(relative("a/b", "a/c"), "../c");
  EXPECT_EQ(relative("/usr/x/..", "/usr/a"), "/usr/a");  // unknown what ".." named
  EXPECT_EQ(relative("/usr", "img/a"), "img/a");
  EXPECT_EQ(relative("usr", "/img/a"), "/img/a");
  EXPECT_EQ(relative("/usr", "render1:/usr/a"), "render1:/usr/a");
  EXPECT_EQ(relative(nullptr, "/usr/a"), "/usr/a");
  EXPECT_EQ(relative("/usr", nullptr), "");
  EXPECT_EQ(STR_filename_relative(nullptr, "/usr", "/usr/a"), nullptr);

  // Relative undoes absolute for clean names.
  for (const char *name : {"a.rla", "../a.rla", "../../x/y", "."}) {
    std::string full = absolute("/job/shot/img", name);
    EXPECT_EQ(absolute("/job/shot/img", relative("/job/shot/img", full.c_str()).c_str()), full);
  }
}

TEST_F(StrPath, CleanCollapsesSlashesDotsAndParents) {
  EXPECT_EQ(clean(""), ".");
  EXPECT_EQ(clean("render1:"), "render1:.");
  EXPECT_EQ(clean("render1://img/./a/../b/"), "render1:/img/b");
  EXPECT_EQ(clean("/"), "/");
  EXPECT_EQ(clean("///"), "/");
  EXPECT_EQ(clean("a//b///c"), "a/b/c");
  EXPECT_EQ(clean("./a/./b/."), "a/b");
  EXPECT_EQ(clean("a/b/"), "a/b");
  EXPECT_EQ(clean("a/.."), ".");
  EXPECT_EQ(clean("./"), ".");
  EXPECT_EQ(clean("a/b/../../.."), "..");
  EXPECT_EQ(clean("../../a/../b"), "../../b");
  EXPECT_EQ(clean("/../a/.."), "/");
  EXPECT_EQ(clean("/a/b/../../../c"), "/c");
  EXPECT_EQ(clean("a/...b/.."), "a");
  EXPECT_EQ(STR_filename_clean(nullptr), nullptr);
}

}  // namespace
