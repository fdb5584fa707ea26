// The text form of resource files: the dump prints it, the builder reads it
// back, and a dump built again gives the same file byte for byte.
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "err/heap.hpp"
#include "err/messages.hpp"
#include "orx/byt.h"
#include "res/res_file.hpp"
#include "util/owned.hpp"

namespace orx::res {
namespace {

constexpr int kPerLine = 8;       // numbers per dump line
constexpr int kBytesPerLine = 32; // bytes per hex line

uint32_t be32(const unsigned char *p) {
  uint32_t v;
  BYT_decode_int(p, &v);
  return v;
}

float as_float(uint32_t bits) {
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;
}

// The shortest of "%f" and "%.9g" that reads back as the same bits; false
// when neither does (a NaN payload, say).
bool real_text(uint32_t bits, char *out, std::size_t size) {
  for (const char *format : {"%f", "%.9g"}) {
    std::snprintf(out, size, format, static_cast<double>(as_float(bits)));
    const float back = std::strtof(out, nullptr);
    uint32_t back_bits;
    std::memcpy(&back_bits, &back, sizeof back_bits);
    if (back_bits == bits) return true;
  }
  return false;
}

void put_hex(std::FILE *out, const unsigned char *p, std::size_t n) {
  for (std::size_t i = 0; i < n; i += kBytesPerLine) {
    std::fputs("hex ", out);
    for (std::size_t j = i; j < n && j < i + kBytesPerLine; ++j) std::fprintf(out, "%02x", p[j]);
    std::fputc('\n', out);
  }
}

void put_body(std::FILE *out, const char *type, const unsigned char *p, uint32_t n) {
  if (std::strcmp(type, "TEXT") == 0) {
    std::fputs("text ", out);
    put_quoted(out, p, n);
    std::fputc('\n', out);
    return;
  }
  if (std::strcmp(type, "ERRO") == 0 && n > 0) {
    std::fprintf(out, "message %u ", p[0]);
    put_quoted(out, p + 1, n - 1);
    std::fputc('\n', out);
    return;
  }
  const bool ints = std::strcmp(type, "INTS") == 0 && n % 4 == 0;
  bool reals = std::strcmp(type, "REAL") == 0 && n % 4 == 0;
  char number[64];
  for (uint32_t i = 0; reals && i < n; i += 4) reals = real_text(be32(p + i), number, sizeof number);
  if (!ints && !reals) return put_hex(out, p, n);
  for (uint32_t i = 0; i < n; i += 4) {
    if (i % (4 * kPerLine) == 0) std::fputs(ints ? "int" : "real", out);
    if (ints)
      std::fprintf(out, " %d", static_cast<int32_t>(be32(p + i)));
    else if (real_text(be32(p + i), number, sizeof number))
      std::fprintf(out, " %s", number);
    if (i % (4 * kPerLine) == 4 * (kPerLine - 1) || i + 4 == n) std::fputc('\n', out);
  }
}

// --- Reading the text form -----------------------------------------------------

struct Bytes {
  unsigned char *data = nullptr;
  uint32_t size = 0;
  uint32_t capacity = 0;
  bool exhausted = false;  // memory ran out, as opposed to a resource over 4 GiB
  ~Bytes() { ERR_free(data); }
  bool push(const void *p, std::size_t n) {
    if (uint64_t{size} + n > UINT32_MAX) return false;
    if (size + n > capacity) {
      uint64_t grown = capacity == 0 ? 256 : uint64_t{capacity} * 2;
      while (grown < size + n) grown *= 2;
      if (grown > UINT32_MAX) grown = UINT32_MAX;
      void *block = orx::heap::reallocate(data, static_cast<std::size_t>(grown));
      if (block == nullptr) {
        exhausted = true;
        return false;
      }
      data = static_cast<unsigned char *>(block);
      capacity = static_cast<uint32_t>(grown);
    }
    if (n > 0) std::memcpy(data + size, p, n);
    size += static_cast<uint32_t>(n);
    return true;
  }
};

bool is_blank(char c) { return c == ' ' || c == '\t'; }

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// One line being read: a cursor over its words.
struct Line {
  char *p;
  const char *why = nullptr;  // the syntax error, once one is found

  void skip() {
    while (is_blank(*p)) ++p;
  }
  bool at_end() {
    skip();
    return *p == '\0';
  }
  // The next blank-separated word, terminated in place; null at the end.
  char *word() {
    if (at_end()) return nullptr;
    char *start = p;
    while (*p != '\0' && !is_blank(*p)) ++p;
    if (*p != '\0') *p++ = '\0';
    return start;
  }
  // A quoted string, unescaped in place; *n receives its length.
  char *quoted(std::size_t *n) {
    if (at_end() || *p != '"') {
      why = "a quoted string is expected";
      return nullptr;
    }
    char *out = ++p, *start = p;
    for (;;) {
      char c = *p++;
      if (c == '\0') {
        why = "the quoted string is not closed";
        return nullptr;
      }
      if (c == '"') break;
      if (c == '\\') {
        c = *p++;
        if (c == 'n') c = '\n';
        else if (c == 't') c = '\t';
        else if (c == 'r') c = '\r';
        else if (c == 'x') {
          const int hi = hex_digit(p[0]), lo = hi < 0 ? -1 : hex_digit(p[1]);
          if (lo < 0) {
            why = "\\x needs two hexadecimal digits";
            return nullptr;
          }
          c = static_cast<char>(hi * 16 + lo);
          p += 2;
        } else if (c != '"' && c != '\\') {
          why = "unknown escape";
          return nullptr;
        }
      }
      *out++ = c;
    }
    *n = static_cast<std::size_t>(out - start);
    return start;
  }
};

// Appends the data of one body line to bytes; false with line.why set.
bool body_line(Line &line, const char *keyword, Bytes &bytes) {
  const auto need = [&](bool ok, const char *why) {
    if (!ok && line.why == nullptr) line.why = why;
    return ok;
  };
  if (std::strcmp(keyword, "text") == 0 || std::strcmp(keyword, "message") == 0) {
    if (keyword[0] == 'm') {
      char *word = line.word();
      char *end = nullptr;
      const long severity = word != nullptr ? std::strtol(word, &end, 10) : -1;
      if (!need(word != nullptr && *end == '\0' && severity >= 0 && severity <= 255,
                "message needs a severity from 0 to 255"))
        return false;
      const auto byte = static_cast<unsigned char>(severity);
      if (!need(bytes.push(&byte, 1), "the resource is too large")) return false;
    }
    std::size_t n = 0;
    const char *text = line.quoted(&n);
    return text != nullptr && need(line.at_end(), "text after the quoted string") &&
           need(bytes.push(text, n), "the resource is too large");
  }
  const bool ints = std::strcmp(keyword, "int") == 0;
  if (ints || std::strcmp(keyword, "real") == 0) {
    while (char *word = line.word()) {
      char *end = nullptr;
      uint32_t bits;
      errno = 0;
      if (ints) {
        const long long v = std::strtoll(word, &end, 10);
        if (!need(*end == '\0' && errno == 0 && v >= INT32_MIN && v <= INT32_MAX,
                  "not a 32-bit integer"))
          return false;
        bits = static_cast<uint32_t>(static_cast<int32_t>(v));
      } else {
        const float f = std::strtof(word, &end);
        if (!need(*end == '\0' && end != word, "not a real number")) return false;
        std::memcpy(&bits, &f, sizeof bits);
      }
      unsigned char be[4];
      BYT_encode_int(&bits, be);
      if (!need(bytes.push(be, 4), "the resource is too large")) return false;
    }
    return true;
  }
  if (std::strcmp(keyword, "hex") == 0) {
    while (char *word = line.word()) {
      for (; *word != '\0'; word += 2) {
        const int hi = hex_digit(word[0]), lo = hi < 0 ? -1 : hex_digit(word[1]);
        if (!need(lo >= 0, "hex needs pairs of hexadecimal digits")) return false;
        const auto byte = static_cast<unsigned char>(hi * 16 + lo);
        if (!need(bytes.push(&byte, 1), "the resource is too large")) return false;
      }
    }
    return true;
  }
  line.why = "unknown keyword";
  return false;
}

// The whole of a text file, NUL-terminated, from ERR_malloc.
char *slurp(const char *path, int *status) {
  std::FILE *in = std::fopen(path, "rb");
  if (in == nullptr) {
    *status = fail(ORX_E_FIELD_MISSING, Msg::kCannotOpen, path, std::strerror(errno));
    return nullptr;
  }
  Bytes all;
  char block[4096];
  std::size_t got;
  bool ok = true;
  while (ok && (got = std::fread(block, 1, sizeof block, in)) > 0) ok = all.push(block, got);
  const bool read_error = std::ferror(in) != 0;
  std::fclose(in);
  const char nul = '\0';
  if (!ok || !all.push(&nul, 1)) {
    *status = fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
    return nullptr;
  }
  if (read_error) {
    *status = fail(ORX_E_READ, Msg::kCannotOpen, path, "read error");
    return nullptr;
  }
  char *text = reinterpret_cast<char *>(all.data);
  all.data = nullptr;
  return text;
}

}  // namespace

void put_quoted(std::FILE *out, const unsigned char *p, std::size_t n) {
  std::fputc('"', out);
  for (std::size_t i = 0; i < n; ++i) {
    const unsigned char c = p[i];
    if (c == '"' || c == '\\')
      std::fprintf(out, "\\%c", c);
    else if (c == '\n')
      std::fputs("\\n", out);
    else if (c == '\t')
      std::fputs("\\t", out);
    else if (c == '\r')
      std::fputs("\\r", out);
    else if (c < ' ' || c > '~')
      std::fprintf(out, "\\x%02x", c);
    else
      std::fputc(c, out);
  }
  std::fputc('"', out);
}

}  // namespace orx::res

using namespace orx::res;

extern "C" {

int ORX_res_dump(ORX_RES_FILE *file, FILE *out) {
  using orx::fail;
  using orx::Msg;
  if (file == nullptr || out == nullptr)
    return fail(ORX_E_FIELD_MISSING, Msg::kFieldMissing, "file");
  std::fprintf(out, "# resource file %s: %u resources\n", file->path, file->count);
  std::fputs("# type  size      offset    name\n", out);
  for (uint32_t i = 0; i < file->count; ++i) {
    const ORX_RES_ENTRY &e = file->entries[i];
    std::fprintf(out, "# %s  %-9u %-9u ", e.type, e.size, e.offset);
    put_quoted(out, reinterpret_cast<const unsigned char *>(e.name), std::strlen(e.name));
    std::fputc('\n', out);
  }
  for (uint32_t i = 0; i < file->count; ++i) {
    const ORX_RES_ENTRY &e = file->entries[i];
    orx::Owned<unsigned char> bytes(static_cast<unsigned char *>(ORX_res_load(file, &e)));
    if (!bytes) return orx::err::last_status();
    std::fprintf(out, "\nresource %s ", e.type);
    put_quoted(out, reinterpret_cast<const unsigned char *>(e.name), std::strlen(e.name));
    std::fputc('\n', out);
    put_body(out, e.type, bytes.get(), e.size);
  }
  if (std::fflush(out) != 0 || std::ferror(out) != 0)
    return fail(ORX_E_WRITE, Msg::kCannotWriteTo, "the dump", std::strerror(errno));
  orx__err = ORX_OK;
  return 0;
}

int ORX_res_build_text(const char *text_path, const char *out_path) {
  using orx::fail;
  using orx::Msg;
  if (text_path == nullptr || out_path == nullptr)
    return fail(ORX_E_FIELD_MISSING, Msg::kFieldMissing, "path");
  int status = 0;
  orx::Owned<char> text(slurp(text_path, &status));
  if (!text) return status;
  ORX_RES_BUILDER *builder = ORX_res_builder_new();
  if (builder == nullptr) return orx::err::last_status();
  orx::ScopeGuard free_builder([&] { ORX_res_builder_free(builder); });

  char type[5] = {};
  orx::Owned<char> name;
  Bytes bytes;
  bool open = false;
  const auto flush = [&]() -> int {
    if (!open) return 0;
    open = false;
    const int added = ORX_res_add(builder, type, name.get(), bytes.data, bytes.size);
    bytes.size = 0;
    return added;
  };
  int number = 0;
  for (char *p = text.get(); *p != '\0';) {
    char *end = std::strchr(p, '\n');
    char *next = end != nullptr ? end + 1 : p + std::strlen(p);
    if (end != nullptr) *end = '\0';
    if (end != nullptr && end > p && end[-1] == '\r') end[-1] = '\0';
    ++number;
    Line line{p};
    p = next;
    if (line.at_end() || *line.p == '#') continue;
    const char *keyword = line.word();
    if (std::strcmp(keyword, "resource") == 0) {
      if (flush() != 0) return orx::err::last_status();
      const char *code = line.word();
      std::size_t n = 0;
      const char *quoted = code != nullptr ? line.quoted(&n) : nullptr;
      if (code == nullptr || !valid_type(code) || quoted == nullptr || !line.at_end() ||
          std::memchr(quoted, '\0', n) != nullptr)
        return fail(ORX_E_UNDECODABLE, Msg::kResSyntax, text_path, number,
                    "resource needs a four-character type and a quoted name");
      std::memcpy(type, code, 5);
      name.reset(static_cast<char *>(orx::heap::allocate(n + 1)));
      if (!name) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
      std::memcpy(name.get(), quoted, n);
      name.get()[n] = '\0';
      open = true;
      continue;
    }
    if (!open)
      return fail(ORX_E_UNDECODABLE, Msg::kResSyntax, text_path, number,
                  "data before the first resource line");
    if (!body_line(line, keyword, bytes)) {
      if (bytes.exhausted) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
      return fail(ORX_E_UNDECODABLE, Msg::kResSyntax, text_path, number, line.why);
    }
  }
  if (flush() != 0) return orx::err::last_status();
  return ORX_res_save(builder, out_path);
}

}  // extern "C"
