// orx__build_handle: directory, name and extension into one file name.
#include <cstring>

#include "orx/orx.h"

namespace {

bool ends_with(const char *s, std::size_t len, const char *tail) {
  std::size_t n = std::strlen(tail);
  return n <= len && std::memcmp(s + len - n, tail, n) == 0;
}

// Appends to a bounded buffer; text that does not fit is cut.
struct Builder {
  char *buf;
  std::size_t size;
  std::size_t len = 0;
  void add(const char *s) {
    std::size_t n = std::strlen(s);
    if (n > size - 1 - len) n = size - 1 - len;
    std::memcpy(buf + len, s, n);
    len += n;
    buf[len] = '\0';
  }
};

}  // namespace

extern "C" const char *orx__build_handle(const char *dir, const char *name,
                                         const char *extension) {
  static char result[4096];
  Builder b{result, sizeof result};
  result[0] = '\0';
  if (name == nullptr) name = "";
  bool alone = dir == nullptr || name[0] == '/' || std::strncmp(name, "./", 2) == 0;
  if (!alone) {
    b.add(dir);
    if (b.len == 0 || result[b.len - 1] != '/') b.add("/");
  }
  b.add(name);
  if (extension != nullptr && extension[0] != '\0' && !ends_with(result, b.len, extension)) {
    // A name ending in "." takes the extension without doubling the dot.
    b.add(b.len > 0 && result[b.len - 1] == '.' ? extension + 1 : extension);
  }
  return result;
}
