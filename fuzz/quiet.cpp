#include "quiet.hpp"

#include <unistd.h>

#include <cstdio>

#include "orx/err.h"
#include "orx/registry.h"

namespace orx::fuzz {
namespace {

int swallow(const char *, int, const char *, ERR_RECORD *, intptr_t) { return 0; }

}  // namespace

void silence_reports() {
  static const bool declared = ERR_dcl_handler(nullptr, swallow, 0) != 0;
  (void)declared;
}

std::string scratch_path(const char *name) {
  return "/tmp/orx-fuzz-" + std::to_string(getpid()) + "-" + name;
}

bool write_bytes(const std::string &path, const std::uint8_t *data, std::size_t size) {
  std::FILE *f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = size == 0 || std::fwrite(data, 1, size, f) == size;
  return std::fclose(f) == 0 && ok;
}

ORX_OBJECT *open_read(const std::string &path, const char *key) {
  ORX_INFO info;
  ORX_info_init(&info);
  std::string handle = path, type = key;
  info.handle = handle.data();
  info.type = type.data();
  info.full_path = 1;
  ORX_OBJECT *object = ORX_open(&info, "r");
  ORX_info_cleanup(&info, 0);
  return object;
}

}  // namespace orx::fuzz
