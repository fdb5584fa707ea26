#include "config/config_file.hpp"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "err/heap.hpp"
#include "err/messages.hpp"
#include "orx/str.h"
#include "platform/platform.hpp"
#include "util/queue.hpp"

namespace orx::config {
namespace {

constexpr char kFileName[] = ".orxrc";
// The installation directory ends with "/" and the format adds another: the
// doubled slash is what messages have always shown, so it is kept.
constexpr char kInstallDir[] = "/usr/pellomar/";
constexpr char kEscape = 27;

struct State {
  util::Queue lines = {};
  bool read = false;
  char *path = nullptr;
  void *catalogue = nullptr;
};
State g;

void free_lines() {
  while (void *line = util::queue_pop(&g.lines)) heap::release(line);
}

// Remember path (a copy) as the last candidate; false when out of memory.
bool save_path(const char *format, const char *dir) {
  char buf[4096];
  std::snprintf(buf, sizeof buf, format, dir, kFileName);
  char *copy = STR_save(buf);
  if (copy == nullptr) return false;
  heap::release(g.path);
  g.path = copy;
  return true;
}

bool is_quote(char c) { return c == '"' || c == '\'' || c == kEscape; }

}  // namespace

uint32_t split_words(char *p, char **words) {
  uint32_t n = 0;
  while (n < kMaxWords) {
    while (*p != '\0' && std::isspace(static_cast<unsigned char>(*p))) ++p;
    if (*p == '\0') break;
    if (is_quote(*p)) {
      char *end = std::strchr(p + 1, *p);
      if (end == nullptr) break;
      *end = '\0';
      words[n++] = p + 1;
      p = end + 1;
      continue;
    }
    char *start = p;
    while (std::isgraph(static_cast<unsigned char>(*p))) ++p;
    if (p == start) {  // a control or 8-bit character: neither word nor blank
      ++p;
      continue;
    }
    if (*p != '\0') *p++ = '\0';
    words[n++] = start;
  }
  words[n] = nullptr;
  return n;
}

ReadStatus read_config(void *catalogue) {
  g.catalogue = catalogue;
  if (g.read) {
    rewind_lines();
    return ReadStatus::kOk;
  }
  std::FILE *f = nullptr;
  bool memory = true;
  if (const char *home = platform::get_env("HOME")) {
    memory = save_path("%s/%s", home);
    if (memory) f = std::fopen(g.path, "r");
  }
  if (f == nullptr && memory) {
    if (const char *root = platform::get_env("KV_ROOT")) {
      memory = save_path("%s/userconfig/%s", root);
      if (memory) f = std::fopen(g.path, "r");
    }
  }
  if (f == nullptr && memory) {
    memory = save_path("%s/userconfig/%s", kInstallDir);
    if (memory) f = std::fopen(g.path, "r");
  }
  if (!memory) {
    report(Msg::kConfigNoMemory);
    return ReadStatus::kNoMemory;
  }
  if (f == nullptr) return ReadStatus::kNoFile;

  char buf[kLineLength + 1];
  while (std::fgets(buf, sizeof buf, f) != nullptr) {
    // A longer line keeps its first characters and loses the rest up to its
    // newline, so that its tail is never read as a line of its own.
    if (std::strchr(buf, '\n') == nullptr) {
      int c;
      while ((c = std::fgetc(f)) != EOF && c != '\n') {
      }
    }
    auto *line = static_cast<ConfigLine *>(heap::allocate(sizeof(ConfigLine)));
    if (line == nullptr) {
      std::fclose(f);
      free_lines();
      report(Msg::kConfigNoMemory);
      return ReadStatus::kNoMemory;
    }
    std::memcpy(line->text, buf, sizeof buf);
    line->count = split_words(line->text, line->words);
    util::queue_append(&g.lines, line);
  }
  std::fclose(f);
  g.read = true;
  rewind_lines();
  return ReadStatus::kOk;
}

const char *config_path() { return g.path != nullptr ? g.path : ""; }

void rewind_lines() { util::queue_rewind(&g.lines); }

ConfigLine *next_line() { return static_cast<ConfigLine *>(util::queue_next(&g.lines)); }

}  // namespace orx::config

extern "C" {

int orx__read_config(void *catalogue) {
  return orx::config::read_config(catalogue) == orx::config::ReadStatus::kOk ? 0 : -1;
}

orx::config::ConfigLine *orx__config_next_line(void) { return orx::config::next_line(); }

void orx__config_free(void) {
  orx::config::free_lines();
  orx::heap::release(orx::config::g.path);
  orx::config::g.path = nullptr;
  orx::config::g.read = false;
}

}  // extern "C"
