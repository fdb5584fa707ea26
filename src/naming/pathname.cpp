// Building numbered file names, from a name syntax or from a printf-style
// format string.  Both give the same name for the built-in formats, whose
// syntax is "Name.####.Ext" and whose format string is "%s.%04.4d%s": the
// frame width is a minimum digit count, so a negative frame reads "-0007" in
// both, and an absent extension leaves no trailing dot in either.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "err/heap.hpp"
#include "orx/err.h"
#include "orx/naming.h"
#include "platform/platform.hpp"

namespace orx::naming {
namespace {

// Collects the pieces of a name.  Without a buffer it only counts, so the
// same walk first measures and then writes.
class Out {
 public:
  Out() = default;
  Out(char *buffer, std::size_t capacity) : buffer_(buffer), capacity_(capacity) {}

  void put(std::string_view text) {
    if (buffer_ != nullptr) std::memcpy(buffer_ + length_, text.data(), text.size());
    length_ += text.size();
  }

  void put_frame(int32_t frame, int32_t width) {
    char *at = buffer_ != nullptr ? buffer_ + length_ : nullptr;
    const std::size_t room = buffer_ != nullptr ? capacity_ - length_ : 0;
    const int n = std::snprintf(at, room, "%.*d", static_cast<int>(width), static_cast<int>(frame));
    length_ += n > 0 ? static_cast<std::size_t>(n) : 0;
  }

  std::size_t length() const { return length_; }

 private:
  char *buffer_ = nullptr;
  std::size_t capacity_ = 0;
  std::size_t length_ = 0;
};

std::string_view text_of(const ORX_NAME_TOKEN &t) {
  return {t.text, static_cast<std::size_t>(t.length)};
}

// Deliberate: an extension written with its dot after a separator that ends in
// a dot keeps one dot, so "name.####.ext" and ".rla" give "x.0001.rla".
bool after_dot_separator(const ORX_NAME_TOKEN *tokens, const ORX_NAME_TOKEN *t) {
  return t != tokens && t[-1].kind == ORX_TOKEN_SEPARATOR && text_of(t[-1]).ends_with('.');
}

void emit(const ORX_NAME_TOKEN *tokens, std::string_view base, int32_t frame,
          std::string_view extension, Out &out) {
  for (const ORX_NAME_TOKEN *t = tokens; t->kind != ORX_TOKEN_END; ++t) {
    switch (t->kind) {
      case ORX_TOKEN_NAME:
        out.put(base);
        break;
      case ORX_TOKEN_FRAME:
        out.put_frame(frame, t->length);
        break;
      case ORX_TOKEN_EXT: {
        std::string_view e = extension;
        if (e.starts_with('.') && after_dot_separator(tokens, t)) e.remove_prefix(1);
        out.put(e);
        break;
      }
      default:
        // Without an extension the separator that leads to it goes too, so
        // no name ends in a dangling dot.
        if (extension.empty() && t[1].kind == ORX_TOKEN_EXT) break;
        out.put(text_of(*t));
        break;
    }
  }
}

char *fail(int32_t status) {
  orx__err = status;
  return nullptr;
}

std::string_view or_empty(const char *s) { return s != nullptr ? s : ""; }

// Steps over a field width or precision; false for one too long for printf
// to count safely.
bool skip_count(const char *&p) {
  constexpr int kMaxDigits = 4;
  int digits = 0;
  for (; *p >= '0' && *p <= '9'; ++p) ++digits;
  return digits <= kMaxDigits;
}

// Checks that format's conversions are, in order, a non-empty prefix of
// %s (base), %d (frame), %s (extension), with no "*" or length modifier, so
// that handing it to snprintf with those three arguments is safe.
bool format_is_usable(const char *format) {
  constexpr std::string_view kOrder = "sds";
  std::size_t used = 0;
  for (const char *p = format; *p != '\0'; ++p) {
    if (*p != '%') continue;
    if (*++p == '%') continue;
    bool numeric_flag = false;
    for (; *p != '\0' && std::strchr("-+ 0", *p) != nullptr; ++p) numeric_flag |= *p != '-';
    if (!skip_count(p)) return false;
    if (*p == '.' && !skip_count(++p)) return false;
    if (used == kOrder.size() || *p != kOrder[used]) return false;
    if (*p == 's' && numeric_flag) return false;
    ++used;
  }
  return used > 0;
}

// Tokens of syntax, or null with orx__err set; the caller releases them.
ORX_NAME_TOKEN *parse(const char *syntax) {
  if (syntax == nullptr) {
    fail(ORX_E_EMPTY_SYNTAX);
    return nullptr;
  }
  ORX_NAME_TOKEN *tokens = nullptr;
  return ORX_parse_name_syntax(syntax, &tokens, 0) != 0 ? tokens : nullptr;
}

// The name the tokens give, after folder and a "/" when folder is not empty;
// a new string, or null with orx__err -10.
char *build(const ORX_NAME_TOKEN *tokens, std::string_view folder, std::string_view base,
            int32_t frame, std::string_view extension) {
  const auto walk = [&](Out &out) {
    if (!folder.empty()) {
      out.put(folder);
      if (!folder.ends_with('/')) out.put("/");
    }
    emit(tokens, base, frame, extension, out);
  };
  Out measure;
  walk(measure);
  const std::size_t capacity = measure.length() + 1;
  auto *name = static_cast<char *>(heap::allocate(capacity));
  if (name == nullptr) return fail(ORX_E_NO_MEMORY);
  Out write(name, capacity);
  walk(write);
  name[write.length()] = '\0';
  orx__err = ORX_OK;
  return name;
}

}  // namespace
}  // namespace orx::naming

extern "C" {

char *ORX_pathname_build_from_name_syntax(const char *syntax, const char *base, int32_t frame,
                                          const char *extension) {
  using namespace orx::naming;
  ORX_NAME_TOKEN *tokens = parse(syntax);
  if (tokens == nullptr) return nullptr;
  char *name = build(tokens, {}, or_empty(base), frame, or_empty(extension));
  orx::heap::release(tokens);
  return name;
}

int32_t ORX_pathname_probe_frames(const char *directory, const char *syntax, const char *base,
                                  const char *extension, int32_t first, int32_t last,
                                  uint8_t *exists) {
  using namespace orx::naming;
  ORX_NAME_TOKEN *tokens = parse(syntax);
  if (tokens == nullptr) return -1;
  const std::string_view folder = or_empty(directory);
  int32_t found = 0;
  for (int64_t frame = first; frame <= last; ++frame) {
    char *path = build(tokens, folder, or_empty(base), static_cast<int32_t>(frame),
                       or_empty(extension));
    if (path == nullptr) {
      found = -1;
      break;
    }
    const bool present = orx::platform::file_exists(path);
    orx::heap::release(path);
    if (exists != nullptr) exists[static_cast<std::size_t>(frame - first)] = present ? 1 : 0;
    found += present ? 1 : 0;
  }
  orx::heap::release(tokens);
  if (found >= 0) orx__err = ORX_OK;
  return found;
}

char *ORX_pathname_build_no_name_syntax(const char *format, const char *base, int32_t frame,
                                        const char *extension) {
  using namespace orx::naming;
  if (format == nullptr || *format == '\0') return fail(ORX_E_EMPTY_SYNTAX);
  if (!format_is_usable(format)) return fail(ORX_E_BAD_SYNTAX);
  const char *b = base != nullptr ? base : "";
  const char *e = extension != nullptr ? extension : "";
  const int n = std::snprintf(nullptr, 0, format, b, static_cast<int>(frame), e);
  if (n < 0) return fail(ORX_E_BAD_SYNTAX);  // a width beyond what printf can count
  const auto capacity = static_cast<std::size_t>(n) + 1;
  auto *name = static_cast<char *>(orx::heap::allocate(capacity));
  if (name == nullptr) return fail(ORX_E_NO_MEMORY);
  std::snprintf(name, capacity, format, b, static_cast<int>(frame), e);
  orx__err = ORX_OK;
  return name;
}

}  // extern "C"
