#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "orx/str.h"
#include "support/error_capture.hpp"
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

// Models of the rules: a host prefix is a non-empty name before the first
// ":" with no "/" before it; clean works on components.
std::size_t model_host(const std::string &p) {
  const std::size_t stop = p.find_first_of(":/");
  return stop != std::string::npos && p[stop] == ':' ? stop : 0;
}

std::string model_clean(const std::string &path) {
  const std::size_t host = model_host(path) > 0 ? model_host(path) + 1 : 0;
  const std::string p = path.substr(host);
  const bool rooted = !p.empty() && p[0] == '/';
  std::vector<std::string> kept;
  std::stringstream in(p);
  for (std::string c; std::getline(in, c, '/');) {
    if (c.empty() || c == ".") continue;
    if (c != "..") kept.push_back(c);
    else if (!kept.empty() && kept.back() != "..") kept.pop_back();
    else if (!rooted) kept.push_back(c);  // the root has no parent
  }
  std::string out = rooted ? "/" : "";
  for (std::size_t i = 0; i < kept.size(); ++i) out += (i > 0 ? "/" : "") + kept[i];
  return path.substr(0, host) + (out.empty() ? "." : out);
}

TEST_F(StrPath, RandomPathsFollowTheModels) {
  std::mt19937 rng(31);
  const char *const pieces[] = {"/", "/", ".", "..", "a", "b.c", "h:", ":", "...b"};
  for (int i = 0; i < 5000; ++i) {
    std::string path;
    for (auto n = rng() % 8; n > 0; --n) path += pieces[rng() % std::size(pieces)];
    SCOPED_TRACE(path);
    std::string buffer = path;
    ASSERT_EQ(clean(path.c_str()), model_clean(path));

    const std::size_t slash = path.rfind('/'), dot = path.rfind('.');
    std::size_t cut = slash;
    while (cut != std::string::npos && cut > 0 && path[cut - 1] == '/') --cut;
    ASSERT_EQ(head(path.c_str()), slash == std::string::npos ? "(null)" : path.substr(0, cut));
    ASSERT_EQ(STR_tail(path.c_str()), path.c_str() + (slash == std::string::npos ? 0 : slash + 1));
    ASSERT_EQ(STR_extension(path.c_str()), dot == std::string::npos ? nullptr : path.c_str() + dot + 1);
    ASSERT_STREQ(STR_root(buffer.data()), path.substr(0, dot).c_str());

    const std::size_t host = model_host(path);
    buffer = path;
    char name[64] = "unchanged";
    ASSERT_EQ(STR_filename_host(name, path.c_str()), host > 0 ? 1 : 0);
    ASSERT_STREQ(name, host > 0 ? path.substr(0, host).c_str() : "unchanged");
    ASSERT_EQ(STR_host(buffer.data()), host > 0 ? buffer.data() : nullptr);
    ASSERT_EQ(std::string(buffer.c_str()), host > 0 ? path.substr(0, host) : path);
    const std::size_t last_colon = path.substr(0, path.find('/')).rfind(':');
    ASSERT_EQ(STR_host_remove(path.c_str()),
              path.c_str() + (last_colon == std::string::npos ? 0 : last_colon + 1));
  }
  for (const char *null : {STR_head(nullptr), STR_filename_clean(nullptr), STR_tail(nullptr),
                           STR_extension(nullptr), STR_root(nullptr), STR_host(nullptr),
                           STR_host_remove(nullptr)})
    EXPECT_EQ(null, nullptr);
  EXPECT_EQ(STR_filename_host(nullptr, "render1:/img"), 1);
  EXPECT_EQ(STR_filename_host(nullptr, nullptr), 0);
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

// File names with environment variables in them.
using StrExpandFilename = orx::test::CleanErrors;
using Result = std::pair<int, std::string>;

// Expands name; returns the flag and the stored text ("(null)" for none).
Result expand(const char *name) {
  char *result = reinterpret_cast<char *>(1);
  int ok = STR_expand_filename(name, &result);
  std::string text = result != nullptr ? result : "(null)";
  std::free(result);
  return {ok, text};
}

// Bare and braced variables are replaced; a "$" that starts no name stays
// as it is; an unset variable gives its name and false.
TEST_F(StrExpandFilename, ReplacesVariablesAndNamesAnUnsetOne) {
  orx::test::ScopedEnv dir("ORX_T_DIR", "/job/img");
  orx::test::ScopedEnv shot("ORX_T_SHOT_2", "s2");
  orx::test::ScopedEnv empty("ORX_T_EMPTY", "");
  orx::test::ScopedEnv unset("ORX_T_UNSET", std::nullopt);
  EXPECT_EQ(expand("  $ORX_T_DIR/${ORX_T_SHOT_2}x.rla"), Result(1, "/job/img/s2x.rla"));
  EXPECT_EQ(expand("$ORX_T_SHOT_2.$ORX_T_EMPTY."), Result(1, "s2.."));
  EXPECT_EQ(expand("cost$/${}/$-/${ORX_T_DIR"), Result(1, "cost$/${}/$-/${ORX_T_DIR"));
  EXPECT_EQ(expand(""), Result(1, ""));
  EXPECT_EQ(expand("$ORX_T_DIR/${ORX_T_UNSET}/a"), Result(0, "ORX_T_UNSET"));
  EXPECT_EQ(expand(nullptr), Result(0, "(null)"));
  EXPECT_EQ(STR_expand_filename("a", nullptr), 0);

  orx::test::for_each_allocation_failure([] {
    auto [ok, text] = expand("$ORX_T_DIR/a");
    if (ok) {
      EXPECT_EQ(text, "/job/img/a");
    }
    return ok == 1;
  });
}

// Every way past the limit (a long value, a long name, long plain text) is a
// fatal fault; the default handler would abort, a handler returning 0 stops it.
TEST_F(StrExpandFilename, OverlongTextIsAFatalFaultThatAHandlerCanStop) {
  orx::test::ScopedEnv big("ORX_T_BIG", std::string(200, 'x'));
  EXPECT_EQ(expand((std::string(59, 'a') + "$ORX_T_BIG").c_str()).first, 1);  // exactly 259
  orx::test::ErrorCapture capture;
  for (const std::string &text : {std::string(60, 'a') + "$ORX_T_BIG", "$" + std::string(260, 'V'),
                                  std::string(300, 'n')}) {
    capture.clear();
    EXPECT_EQ(expand(text.c_str()), Result(0, "(null)"));
    EXPECT_TRUE(capture.has(ERR_FATAL, "File name longer than 259 characters after expansion"));
  }
}

}  // namespace
