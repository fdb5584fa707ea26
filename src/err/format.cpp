// The mini-format of ERR_report and ERR_format, and ERR_format_fill.
#include <cstdio>
#include <cstring>

#include "err/report_internal.hpp"

namespace orx::err {
namespace {

// Appends to a bounded buffer, always leaving it terminated.
class Out {
 public:
  Out(char *buf, std::size_t size) : buf_(buf), size_(size) {
    if (size_ > 0) buf_[0] = '\0';
  }
  void put(const char *text, std::size_t n) {
    if (size_ == 0) return;
    std::size_t room = size_ - 1 - used_;
    if (n > room) n = room;
    std::memcpy(buf_ + used_, text, n);
    used_ += n;
    buf_[used_] = '\0';
  }
  void put(const char *text) { put(text, std::strlen(text)); }
  void put(char c) { put(&c, 1); }

 private:
  char *buf_;
  std::size_t size_;
  std::size_t used_ = 0;
};

}  // namespace

char *mini_format(char *out, std::size_t size, const char *format, va_list args) {
  Out o(out, size);
  if (format == nullptr) return out;
  char number[512];
  for (const char *p = format; *p != '\0'; ++p) {
    if (*p != '%') {
      o.put(*p);
      continue;
    }
    char conv = p[1];
    if (conv == '\0') {  // a lone trailing "%" is copied as is
      o.put('%');
      break;
    }
    ++p;
    switch (conv) {
      case '%':
        o.put('%');
        break;
      case 'd':
        std::snprintf(number, sizeof number, "%d", va_arg(args, int));
        o.put(number);
        break;
      case 'f':
        std::snprintf(number, sizeof number, "%f", va_arg(args, double));
        o.put(number);
        break;
      case 's': {
        const char *s = va_arg(args, const char *);
        o.put(s != nullptr ? s : "(null)");
        break;
      }
      case 'c':  // character arguments are not supported: nothing is printed or consumed
        break;
      default:
        o.put('%');
        o.put(conv);
        break;
    }
  }
  return out;
}

}  // namespace orx::err

extern "C" {

char *ERR_format(char *buffer, ERR_RECORD *record, ...) {
  if (buffer == nullptr || record == nullptr || orx::err::record_masked(record)) return buffer;
  va_list args;
  va_start(args, record);
  // The caller's buffer carries no size; it must hold the whole message.
  orx::err::mini_format(buffer, static_cast<std::size_t>(-1) / 2, record->format, args);
  va_end(args);
  return buffer;
}

char *ERR_format_fill(ERR_RECORD *record, char *buffer) {
  if (buffer == nullptr) return buffer;
  buffer[0] = '\0';
  if (record == nullptr || record->format == nullptr) return buffer;
  const char *const *names = record->arg_names;
  char *o = buffer;
  for (const char *p = record->format; *p != '\0'; ++p) {
    if (*p != '%' || p[1] == '\0') {
      *o++ = *p;
      continue;
    }
    char conv = *++p;
    if (conv == '%') {
      *o++ = '%';
      continue;
    }
    const char *name = nullptr;
    if (names != nullptr && *names != nullptr) name = *names++;
    if (name == nullptr) {
      // A missing name stops the walk through the names for good.
      names = nullptr;
      switch (conv) {
        case 'c': name = "character"; break;
        case 'd': name = "integer"; break;
        case 'f': name = "real"; break;
        case 's': name = "string"; break;
        default: name = "unknown type"; break;
      }
    }
    o += std::sprintf(o, "<%s>", name);
  }
  *o = '\0';
  return buffer;
}

}  // extern "C"
