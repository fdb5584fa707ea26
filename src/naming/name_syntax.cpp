// Name syntaxes: verification, the small queries and the token parser.  All
// work on one lower-cased copy of the syntax, kept in a buffer that survives
// between calls so that the parser's token texts can point into it.
#include "naming/name_syntax.hpp"

#include <cstdio>
#include <cstring>
#include <string_view>

#include "err/heap.hpp"
#include "orx/err.h"
#include "orx/naming.h"

namespace orx::naming {
namespace {

constexpr std::string_view kName = "name";
constexpr std::string_view kExt = "ext";
constexpr std::size_t kCopyStep = 16;
constexpr int32_t kDefaultWidth = 4;

struct State {
  char *copy = nullptr;
  std::size_t capacity = 0;
  // Parser flags, cleared by each parse at depth 0.
  bool name_or_frame = false;
  bool ext_seen = false;
  bool frame_seen = false;
};
State g_state;

// ASCII punctuation, independent of the host's locale.
bool is_punct(unsigned char c) {
  return (c >= '!' && c <= '/') || (c >= ':' && c <= '@') || (c >= '[' && c <= '`') ||
         (c >= '{' && c <= '~');
}

bool starts_with(const char *p, std::string_view word) {
  return std::strncmp(p, word.data(), word.size()) == 0;
}

// Length of the run of "name" tokens at p (0 when p does not start with one).
std::size_t name_run(const char *p) {
  std::size_t n = 0;
  while (starts_with(p + n, kName)) n += kName.size();
  return n;
}

struct Verdict {
  int32_t status;
  bool has_ext;
};

// The verification scan, one position at a time.
Verdict check(const char *syntax) {
  if (syntax == nullptr || *syntax == '\0') return {ORX_E_EMPTY_SYNTAX, false};
  const char *s = lower_copy(syntax);
  if (s == nullptr) return {ORX_E_NO_MEMORY, false};
  bool frame = false, name_or_frame = false, ext = false;
  for (const char *p = s; *p != '\0';) {
    const auto c = static_cast<unsigned char>(*p);
    if (c == '#') {
      if (frame && p[-1] != '#') return {ORX_E_BAD_SYNTAX, false};
      frame = name_or_frame = true;
      ++p;
    } else if (c == '/') {
      return {ORX_E_BAD_SYNTAX, false};
    } else if (is_punct(c)) {
      ++p;
    } else if (c >= 128) {
      return {ORX_E_BAD_SYNTAX, false};
    } else if (starts_with(p, kName)) {
      p += kName.size();
      name_or_frame = true;
    } else if (!ext && starts_with(p, kExt)) {
      p += kExt.size();
      ext = true;
    } else {
      return {ORX_E_BAD_SYNTAX, false};
    }
  }
  if (!name_or_frame) return {ORX_E_BAD_SYNTAX, false};
  return {ORX_OK, ext};
}

uint8_t fail(int32_t status) {
  orx__err = status;
  return 0;
}

void fill(ORX_NAME_TOKEN &t, int32_t kind, const char *text, std::size_t length) {
  t = ORX_NAME_TOKEN{};
  t.default_width = kDefaultWidth;
  t.kind = kind;
  t.text = text;
  t.length = static_cast<int32_t>(length);
}

struct Token {
  int32_t kind;
  std::size_t length;
};

// The token at p (not at the end), with the flags it sets; kind 0 when the
// syntax is invalid there.
Token next_token(const char *p, State &g) {
  const auto c = static_cast<unsigned char>(*p);
  std::size_t length = 0;
  if (c == '#') {
    if (g.frame_seen) return {0, 0};
    while (p[length] == '#') ++length;
    g.frame_seen = g.name_or_frame = true;
    return {ORX_TOKEN_FRAME, length};
  }
  if (c == '/' || c >= 128) return {0, 0};
  if (is_punct(c)) {
    do {
      ++length;
    } while (is_punct(static_cast<unsigned char>(p[length])) && p[length] != '/' &&
             p[length] != '#');
    return {ORX_TOKEN_SEPARATOR, length};
  }
  if ((length = name_run(p)) != 0) {
    g.name_or_frame = true;
    return {ORX_TOKEN_NAME, length};
  }
  if (g.ext_seen || !starts_with(p, kExt)) return {0, 0};
  g.ext_seen = true;
  return {ORX_TOKEN_EXT, kExt.size()};
}

// Tokens from p on, stored from index depth of a new array.  One pass counts
// and validates, a second fills: a loop rather than a call per token, so no
// pattern is long enough to exhaust a thread's stack.
uint8_t parse_from(const char *p, ORX_NAME_TOKEN **tokens, int32_t depth) {
  State &g = g_state;
  const State before = g;
  std::size_t count = static_cast<std::size_t>(depth);
  for (const char *q = p; *q != '\0'; ++count) {
    const Token t = next_token(q, g);
    if (t.kind == 0) return fail(ORX_E_BAD_SYNTAX);
    q += t.length;
  }
  if (!g.name_or_frame) return fail(ORX_E_BAD_SYNTAX);
  const State after = g;
  auto *array = static_cast<ORX_NAME_TOKEN *>(heap::allocate((count + 1) * sizeof(ORX_NAME_TOKEN)));
  if (array == nullptr) return fail(ORX_E_NO_MEMORY);
  std::memset(array, 0, static_cast<std::size_t>(depth) * sizeof(ORX_NAME_TOKEN));
  g = before;
  std::size_t i = static_cast<std::size_t>(depth);
  for (const char *q = p; *q != '\0'; ++i) {
    const Token t = next_token(q, g);
    fill(array[i], t.kind, q, t.length);
    q += t.length;
  }
  g = after;
  fill(array[i], ORX_TOKEN_END, p + std::strlen(p), 1);
  *tokens = array;
  orx__err = ORX_OK;
  return 1;
}

}  // namespace

char *lower_copy(const char *text) {
  State &g = g_state;
  const std::size_t length = std::strlen(text);
  const std::size_t needed = (length / kCopyStep + 1) * kCopyStep;
  if (needed > g.capacity) {
    void *grown = heap::reallocate(g.copy, needed);
    if (grown == nullptr) {
      orx__err = ORX_E_NO_MEMORY;
      return nullptr;
    }
    g.copy = static_cast<char *>(grown);
    g.capacity = needed;
  }
  for (std::size_t i = 0; i <= length; ++i) {
    const char ch = text[i];
    g.copy[i] = (ch >= 'A' && ch <= 'Z') ? static_cast<char>(ch - 'A' + 'a') : ch;
  }
  return g.copy;
}

void reset() {
  heap::release(g_state.copy);
  g_state = State{};
}

}  // namespace orx::naming

extern "C" {

int ORX_name_syntax_verify(const char *syntax) {
  const orx::naming::Verdict v = orx::naming::check(syntax);
  orx__err = v.status;
  return v.status == ORX_OK ? 1 : 0;
}

uint8_t ORX_name_syntax_has_ext(const char *syntax) {
  const orx::naming::Verdict v = orx::naming::check(syntax);
  orx__err = v.status;
  return v.status == ORX_OK && v.has_ext ? 1 : 0;
}

uint8_t ORX_name_syntax_ends_ext(const char *syntax) {
  if (syntax == nullptr || *syntax == '\0') {
    orx__err = ORX_E_EMPTY_SYNTAX;
    return 0;
  }
  const char *s = orx::naming::lower_copy(syntax);
  if (s == nullptr) return 0;
  orx__err = ORX_OK;
  const std::string_view text(s);
  return text.ends_with(orx::naming::kExt) ? 1 : 0;
}

uint8_t ORX_name_syntax_has_frame(const char *syntax) {
  if (syntax == nullptr) {
    std::fputs("ORX_name_syntax_has_frame: application programming error.\n", stderr);
    std::fputs("The name syntax given is NULL.\n", stderr);
    orx__err = ORX_E_EMPTY_SYNTAX;
    return 0;
  }
  orx__err = *syntax == '\0' ? ORX_E_EMPTY_SYNTAX : ORX_OK;
  return std::strchr(syntax, '#') != nullptr ? 1 : 0;
}

const char *ORX_name_syntax_name(void) { return orx::naming::kName.data(); }

uint8_t ORX_parse_name_syntax(const char *syntax, ORX_NAME_TOKEN **tokens, int32_t depth) {
  using orx::naming::g_state;
  if (syntax == nullptr || tokens == nullptr) {
    std::fputs("ORX_parse_name_syntax: application programming error.\n", stderr);
    std::fputs("The name syntax or the token pointer given is NULL.\n", stderr);
    orx__err = ORX_E_EMPTY_SYNTAX;
    return 0;
  }
  if (depth > 0) return orx::naming::parse_from(syntax, tokens, depth);
  if (*syntax == '\0') return orx::naming::fail(ORX_E_EMPTY_SYNTAX);
  const char *copy = orx::naming::lower_copy(syntax);
  if (copy == nullptr) return 0;
  g_state.name_or_frame = g_state.ext_seen = g_state.frame_seen = false;
  return orx::naming::parse_from(copy, tokens, 0);
}

}  // extern "C"
