#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <regex>
#include <string>

#include "err/heap.hpp"
#include "support/fixtures.hpp"
#include "util/env.hpp"

namespace {

using orx::test::ScopedEnv;
using orx::test::TempDir;
using orx::test::write_text;
using orx::test::slurp;
using Env = orx::test::CleanErrors;

bool exists(const std::string &path) {
  struct stat st{};
  return stat(path.c_str(), &st) == 0;
}

std::string pattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + i * 7 % 26);
  return text;
}

TEST_F(Env, CopyFileCopiesWholeOrLeavesNoPartialCopy) {
  TempDir dir;
  write_text(dir.file("src"), pattern(3000));
  std::string src = dir.file("src");
  // check_file of each name: -1 absent, 0 unusable (a name with a control
  // character in its last component, or a status failure other than a
  // missing file, here a file used as a directory).
  EXPECT_EQ(orx::util::copy_file(dir.file("none").c_str(), dir.file("dst").c_str()), -1);
  EXPECT_EQ(orx::util::copy_file(dir.file("n\x02").c_str(), dir.file("dst").c_str()), 0);
  EXPECT_EQ(orx::util::copy_file(dir.file("bad\x7f").c_str(), dir.file("dst").c_str()), 0);
  EXPECT_EQ(orx::util::copy_file((dir.file("n\x01") + "/none").c_str(), dir.file("dst").c_str()), -1);
  EXPECT_EQ(orx::util::copy_file((src + "/child").c_str(), dir.file("dst").c_str()), 0);
  EXPECT_EQ(orx::util::copy_file(src.c_str(), dir.file("d\x02").c_str()), 0);
  EXPECT_FALSE(exists(dir.file("dst")));

  // Destinations that cannot be opened for writing.
  std::string no_parent = dir.file("no/such/dir");
  EXPECT_EQ(orx::util::copy_file(src.c_str(), no_parent.c_str()), -3);
  EXPECT_FALSE(exists(no_parent));
  EXPECT_EQ(orx::util::copy_file(src.c_str(), dir.path().c_str()), -3);
  EXPECT_TRUE(exists(dir.path()));

  // Whole blocks and a tail are copied; a source that opens but cannot be
  // read (a directory) ends the copy at once, leaving an empty destination:
  // -2 is only for a source that does not open.
  std::string dst = dir.file("dst");
  EXPECT_EQ(orx::util::copy_file(src.c_str(), dst.c_str()), 1);
  EXPECT_EQ(slurp(dst), pattern(3000));
  EXPECT_EQ(orx::util::copy_file(dir.path().c_str(), dst.c_str()), 1);
  EXPECT_EQ(slurp(dst), "");
  std::filesystem::remove(dst);

  // A failed write never unlinks what is not a regular file: here a link to
  // a device that is always full.
  const std::string link = dir.file("full");
  std::filesystem::create_symlink("/dev/full", link);
  EXPECT_EQ(orx::util::copy_file(src.c_str(), link.c_str()), -3);
  EXPECT_TRUE(std::filesystem::is_symlink(link));

  // Writes that fail part way: a file size limit below the source's size.
  void (*old_handler)(int) = std::signal(SIGXFSZ, SIG_IGN);
  rlimit old_limit{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old_limit), 0);
  rlimit small = old_limit;
  small.rlim_cur = 1024;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  int result = orx::util::copy_file(src.c_str(), dst.c_str());
  setrlimit(RLIMIT_FSIZE, &old_limit);
  std::signal(SIGXFSZ, old_handler);
  EXPECT_EQ(result, -3);
  EXPECT_FALSE(exists(dst));
}

TEST_F(Env, FindFileSearchesPathUnlessNameHasSlash) {
  TempDir first;
  TempDir second;
  write_text(second.file("tool"), "x");
  write_text(first.file("both"), "x");
  write_text(second.file("both"), "x");

  std::string path = "::" + first.path() + "/:" + second.path() + "/";
  const char *found = orx::util::find_file("tool", path.c_str());
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(std::string(found), second.file("tool"));  // one separator only
  const char *again = orx::util::find_file("both", path.c_str());
  EXPECT_EQ(again, found);  // the same static buffer, overwritten
  EXPECT_EQ(std::string(again), first.file("both"));
  EXPECT_EQ(orx::util::find_file("absent", path.c_str()), nullptr);

  std::string full = second.file("tool");
  EXPECT_EQ(orx::util::find_file(full.c_str(), first.path().c_str()), full.c_str());
  // A name with "/" is not looked up along the path, even where it exists.
  EXPECT_EQ(orx::util::find_file("./tool", second.path().c_str()), nullptr);
  EXPECT_EQ(orx::util::find_file(full.c_str(), nullptr), full.c_str());
  EXPECT_EQ(orx::util::find_file(full.c_str(), ""), full.c_str());
  EXPECT_EQ(orx::util::find_file("tool", ""), nullptr);
  EXPECT_EQ(orx::util::find_file("tool", "/:"), nullptr);
}

// The environment keeps the assignments add_to_env_list puts into it; once
// the test restores the variable, the orphaned string is freed here.
void release_assignment(const char *name, const char *value_part) {
  orx::heap::release(const_cast<char *>(value_part) - std::strlen(name) - 1);
}

TEST_F(Env, AddToEnvListSplicesValueAtEachPlus) {
  const char *name = "ORX_TEST_LIST";
  const char *value = nullptr;
  {
    ScopedEnv env(name, "+::+x:+");  // only items that are exactly "+"; empties kept
    value = orx::util::add_to_env_list(name, "/lib/orx");
    EXPECT_STREQ(value, "/lib/orx::+x:/lib/orx");
    EXPECT_EQ(std::getenv(name), value);
  }
  release_assignment(name, value);
  {
    ScopedEnv env(name, "a:b");
    const char *old = std::getenv(name);
    EXPECT_EQ(orx::util::add_to_env_list(name, "x"), old);
    EXPECT_EQ(std::getenv(name), old);
    EXPECT_STREQ(old, "a:b");
  }
  {
    ScopedEnv env(name, std::nullopt);
    const char *x = "x";
    EXPECT_EQ(orx::util::add_to_env_list(name, x), x);
    value = std::getenv(name);
    EXPECT_STREQ(value, "x");
  }
  release_assignment(name, value);
  EXPECT_EQ(orx::util::add_to_env_list(nullptr, "x"), nullptr);
  EXPECT_EQ(orx::util::add_to_env_list(name, nullptr), nullptr);
}

TEST_F(Env, AddToEnvListOutOfMemoryChangesNothing) {
  const char *name = "ORX_TEST_LIST";
  for (const char *initial : {"a:+", static_cast<const char *>(nullptr)}) {
    ScopedEnv env(name, initial ? std::optional<std::string>(initial) : std::nullopt);
    orx::test::FailNthAllocation fail(1);
    EXPECT_EQ(orx::util::add_to_env_list(name, "x"), nullptr);
    const char *now = std::getenv(name);
    EXPECT_EQ(now == nullptr ? std::string("(unset)") : std::string(now),
              initial ? initial : "(unset)");
  }
}

std::string banner(bool block_comment, const char *title) {
  std::FILE *out = std::tmpfile();
  EXPECT_NE(out, nullptr);
  // 2026-07-01 12:00 UTC: 2026 in every time zone.
  orx::util::write_banner(out, title, block_comment, 1782907200);
  std::rewind(out);
  std::string text;
  for (int c; (c = std::fgetc(out)) != EOF;) text.push_back(static_cast<char>(c));
  std::fclose(out);
  return text;
}

TEST_F(Env, BannerCentresTitleAndKeepsNineteenPrefixedYear) {
  const std::string block = banner(true, "Frame buffers");
  EXPECT_EQ(block,
            "/*\n"
            " * ****************************\n"
            " * *      Frame buffers       *\n"
            " * ****************************\n"
            " *\n"
            " * Copyright (c) 19126  Korvantel Imaging Systems\n"
            " * 2210 Quarry Lane, Suite 4\n"
            " * Portland, OR 97209\n"
            " *\n"
            " *   All rights reserved.\n"
            " */\n"
            "\n");
  // The hash style has the same lines behind "#"; a title wider than the
  // field runs on without padding.
  std::string hashed = std::regex_replace(block, std::regex("(^|\n)(/\\*| \\*/| \\*)"), "$1#");
  hashed = std::regex_replace(hashed, std::regex("\\*      Frame buffers       \\*"),
                              "*A title much longer than the field*");
  EXPECT_EQ(banner(false, "A title much longer than the field"), hashed);
}

}  // namespace
