// File-name surgery: head, tail, root, extension, host prefix, and the
// absolute, relative and cleaned forms of a path.  Paths use "/" as
// separator; a host prefix is a non-empty host name and a ":" with no "/"
// before it.
#include <cstring>
#include <string_view>

#include "orx/str.h"

namespace orx::util {
namespace {

using namespace std::string_view_literals;

// Length of the host name when name starts with a host prefix, else 0.
std::size_t host_length(const char *name) {
  const char *stop = std::strpbrk(name, ":/");
  return stop != nullptr && *stop == ':' ? static_cast<std::size_t>(stop - name) : 0;
}

// Walks the components of a path, skipping runs of "/" and "." components.
// The views point into the path itself.
class Components {
 public:
  explicit Components(const char *path) : p_(path) {}

  bool next(std::string_view *out) {
    for (;;) {
      while (*p_ == '/') ++p_;
      if (*p_ == '\0') return false;
      const char *start = p_;
      while (*p_ != '\0' && *p_ != '/') ++p_;
      std::string_view component(start, static_cast<std::size_t>(p_ - start));
      if (component == "."sv) continue;
      *out = component;
      return true;
    }
  }

 private:
  const char *p_;
};

// Length of directory once trailing "/" and then up trailing components are
// removed; 0 when it runs out of components.
std::size_t strip_components(const char *directory, std::size_t up) {
  std::size_t length = std::strlen(directory);
  while (length > 0 && directory[length - 1] == '/') --length;
  for (; up > 0 && length > 0; --up) {
    while (length > 0 && directory[length - 1] != '/') --length;
    while (length > 0 && directory[length - 1] == '/') --length;
  }
  return length;
}

char *copy_name(char *buffer, const char *name) {
  std::memmove(buffer, name, std::strlen(name) + 1);
  return buffer;
}

}  // namespace
}  // namespace orx::util

using orx::util::Components;
using orx::util::host_length;
using namespace std::string_view_literals;

extern "C" {

char *STR_head(char *path) {
  if (path == nullptr) return nullptr;
  char *slash = std::strrchr(path, '/');
  if (slash == nullptr) return nullptr;
  while (slash > path && slash[-1] == '/') --slash;
  *slash = '\0';
  return path;
}

char *STR_tail(const char *path) {
  if (path == nullptr) return nullptr;
  const char *slash = std::strrchr(path, '/');
  return const_cast<char *>(slash != nullptr ? slash + 1 : path);
}

char *STR_root(char *name) {
  if (name == nullptr) return nullptr;
  if (char *dot = std::strrchr(name, '.')) *dot = '\0';
  return name;
}

char *STR_extension(const char *name) {
  if (name == nullptr) return nullptr;
  const char *dot = std::strrchr(name, '.');
  return dot != nullptr ? const_cast<char *>(dot + 1) : nullptr;
}

char *STR_host(char *name) {
  if (name == nullptr) return nullptr;
  std::size_t length = host_length(name);
  if (length == 0) return nullptr;
  name[length] = '\0';
  return name;
}

char *STR_host_remove(const char *name) {
  if (name == nullptr) return nullptr;
  const char *after = name;
  for (const char *p = name; *p != '\0' && *p != '/'; ++p)
    if (*p == ':') after = p + 1;
  return const_cast<char *>(after);
}

int STR_filename_host(char *buffer, const char *name) {
  if (name == nullptr) return 0;
  std::size_t length = host_length(name);
  if (length == 0) return 0;
  if (buffer != nullptr) {
    std::memmove(buffer, name, length);
    buffer[length] = '\0';
  }
  return 1;
}

char *STR_filename_absolute(char *buffer, const char *directory, const char *name) {
  if (buffer == nullptr) return nullptr;
  if (name == nullptr || *name == '\0') {
    buffer[0] = '\0';
    return buffer;
  }
  if (*name == '/' || host_length(name) > 0) return orx::util::copy_name(buffer, name);

  // Leading "." components are skipped by the walk; count the ".." ones and
  // keep what follows them.
  std::size_t up = 0;
  const char *rest = name + std::strlen(name);
  Components walk(name);
  std::string_view component;
  while (walk.next(&component)) {
    if (component != ".."sv) {
      rest = component.data();
      break;
    }
    ++up;
  }

  const char *dir = directory != nullptr ? directory : "";
  std::size_t length = orx::util::strip_components(dir, up);
  std::memmove(buffer, dir, length);
  if (*rest != '\0' || length == 0) buffer[length++] = '/';
  std::strcpy(buffer + length, rest);
  return buffer;
}

char *STR_filename_relative(char *buffer, const char *directory, const char *name) {
  if (buffer == nullptr) return nullptr;
  if (name == nullptr) {
    buffer[0] = '\0';
    return buffer;
  }
  if (*name == '\0' || host_length(name) > 0 || directory == nullptr || *directory == '\0' ||
      (*name == '/') != (*directory == '/'))
    return orx::util::copy_name(buffer, name);

  Components dir(directory);
  Components target(name);
  std::string_view d;
  std::string_view t;
  bool more_dir = dir.next(&d);
  bool more_target = target.next(&t);
  while (more_dir && more_target && d == t) {
    more_dir = dir.next(&d);
    more_target = target.next(&t);
  }

  // Going up out of a ".." would need to know what it named: give up and
  // keep the name as it is.
  std::size_t up = 0;
  for (; more_dir; more_dir = dir.next(&d)) {
    if (d == ".."sv) return orx::util::copy_name(buffer, name);
    ++up;
  }

  char *out = buffer;
  for (; up > 0; --up) {
    std::memcpy(out, "../", 3);
    out += 3;
  }
  for (; more_target; more_target = target.next(&t)) {
    std::memcpy(out, t.data(), t.size());
    out += t.size();
    *out++ = '/';
  }
  if (out == buffer)
    *out++ = '.';
  else
    --out;  // the last "/" written
  *out = '\0';
  return buffer;
}

char *STR_filename_clean(char *name) {
  if (name == nullptr) return nullptr;
  std::size_t host = host_length(name);
  char *path = host > 0 ? name + host + 1 : name;
  // The output is written over the input behind the walk, which is always at
  // least as far on: every "/" written stands for one read.
  std::size_t base = *path == '/' ? 1 : 0;
  std::size_t used = base;
  Components walk(path);
  std::string_view component;
  while (walk.next(&component)) {
    if (component == ".."sv) {
      std::size_t last = used;
      while (last > base && path[last - 1] != '/') --last;
      std::string_view previous(path + last, used - last);
      if (used > base && previous != ".."sv) {
        used = last > base ? last - 1 : base;  // drop the component and its "/"
        continue;
      }
      if (base == 1 && used == base) continue;  // the root has no parent
    }
    if (used > base) path[used++] = '/';
    std::memmove(path + used, component.data(), component.size());
    used += component.size();
  }
  if (used == 0) path[used++] = '.';
  path[used] = '\0';
  return name;
}

}  // extern "C"
