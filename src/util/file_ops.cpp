// Testing, copying and finding files.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "platform/platform.hpp"
#include "util/env.hpp"

namespace orx::util {
namespace {

constexpr std::size_t kCopyBlock = 512;
constexpr std::size_t kPathMax = 4096;

// Printable in the C locale, whatever locale the host has set.
bool printable(char c) {
  auto byte = static_cast<unsigned char>(c);
  return byte >= 0x20 && byte < 0x7f;
}

bool printable_last_component(const char *name) {
  std::string_view path(name);
  std::size_t slash = path.rfind('/');
  std::string_view last = slash == std::string_view::npos ? path : path.substr(slash + 1);
  for (char c : last)
    if (!printable(c)) return false;
  return true;
}

// Closes the destination of a failed copy and removes what was written, when
// it is a regular file: a device, pipe or link named as the destination is
// never unlinked.
int discard_copy(std::FILE *out, const char *destination) {
  if (out != nullptr) std::fclose(out);
  platform::remove_regular_file(destination);
  return -3;
}

}  // namespace

int check_file(const char *name) {
  platform::FileStatus status{};
  int error = platform::file_status(name, &status);
  if (error != 0 && error != ENOENT) return 0;
  if (!printable_last_component(name)) return 0;
  return error == 0 ? 1 : -1;
}

int copy_file(const char *source, const char *destination) {
  int checked = check_file(source);
  if (checked != 1) return checked;
  if (check_file(destination) == 0) return 0;

  std::FILE *in = std::fopen(source, "r");
  if (in == nullptr) return -2;
  std::FILE *out = std::fopen(destination, "w");
  if (out == nullptr) {
    std::fclose(in);
    return -3;
  }
  // The copy ends at the first short read; a source that opens but cannot be
  // read (a directory) ends it at once.  -2 belongs to a source that does
  // not open, and -3 to the destination.
  char block[kCopyBlock];
  std::size_t got;
  do {
    got = std::fread(block, 1, sizeof block, in);
    if (got > 0 && std::fwrite(block, 1, got, out) != got) {
      std::fclose(in);
      return discard_copy(out, destination);
    }
  } while (got == sizeof block);
  std::fclose(in);
  if (std::fclose(out) != 0) return discard_copy(nullptr, destination);
  return 1;
}

const char *find_file(const char *name, const char *search_path) {
  static char found[kPathMax];
  if (std::strchr(name, '/') != nullptr || search_path == nullptr || *search_path == '\0')
    return platform::file_exists(name) ? name : nullptr;

  std::string_view rest(search_path);
  while (!rest.empty()) {
    std::size_t colon = rest.find(':');
    std::string_view dir = rest.substr(0, colon);
    rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
    if (dir.empty()) continue;
    if (dir.back() == '/') dir.remove_suffix(1);
    int written = std::snprintf(found, sizeof found, "%.*s/%s", static_cast<int>(dir.size()),
                                dir.data(), name);
    if (written < 0 || static_cast<std::size_t>(written) >= sizeof found) continue;
    if (platform::file_exists(found)) return found;
  }
  return nullptr;
}

}  // namespace orx::util
