// Opening resource files: the whole index is checked against the file's size
// before anything is trusted, so a hostile file costs no more memory than its
// own size and every later look-up stays inside the file.
#include <cerrno>
#include <cstring>

#include "err/heap.hpp"
#include "err/messages.hpp"
#include "orx/byt.h"
#include "orx/str.h"
#include "res/res_file.hpp"
#include "util/owned.hpp"

namespace orx::res {
namespace {

uint32_t be32(const unsigned char *p) {
  uint32_t v;
  BYT_decode_int(p, &v);
  return v;
}

uint16_t be16(const unsigned char *p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }

ORX_RES_FILE *refuse(const char *path, const char *why) {
  fail(ORX_E_NOT_OUR_FILE, Msg::kResNotResource, path, why);
  return nullptr;
}

ORX_RES_FILE *out_of_memory() {
  fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  return nullptr;
}

struct FileCloser {
  std::FILE *f;
  ~FileCloser() {
    if (f != nullptr) std::fclose(f);
  }
};

}  // namespace

bool valid_type(const char *type) {
  if (type == nullptr) return false;
  for (int i = 0; i < 4; ++i)
    if (type[i] <= ' ' || type[i] > '~') return false;
  return type[4] == '\0';
}

bool valid_name(const char *name) {
  return name != nullptr && name[0] != '\0' && std::strlen(name) <= kMaxName;
}

int compare(const char *type_a, const char *name_a, const char *type_b, const char *name_b) {
  const int by_type = std::memcmp(type_a, type_b, 4);
  return by_type != 0 ? by_type : std::strcmp(name_a, name_b);
}

}  // namespace orx::res

using namespace orx::res;

extern "C" {

ORX_RES_FILE *ORX_res_open(const char *path) {
  using orx::fail;
  using orx::Msg;
  if (path == nullptr) {
    fail(ORX_E_FIELD_MISSING, Msg::kFieldMissing, "path");
    return nullptr;
  }
  FileCloser in{std::fopen(path, "rb")};
  if (in.f == nullptr) {
    fail(ORX_E_FIELD_MISSING, Msg::kCannotOpen, path, std::strerror(errno));
    return nullptr;
  }
  unsigned char header[kHeaderSize];
  if (std::fseek(in.f, 0, SEEK_END) != 0) return refuse(path, "it cannot be measured");
  const long measured = std::ftell(in.f);
  if (measured < 0) return refuse(path, "it cannot be measured");
  const auto size = static_cast<uint64_t>(measured);
  std::rewind(in.f);
  if (size < kHeaderSize + 4 || std::fread(header, 1, sizeof header, in.f) != sizeof header)
    return refuse(path, "too short");
  if (std::memcmp(header, kMagic, 4) != 0) return refuse(path, "no ORXR mark");
  if (be16(header + 4) != kVersion) return refuse(path, "unknown version");
  const uint32_t count = be32(header + 8);
  const uint64_t index = be32(header + 12);
  const uint64_t pool_at = index + uint64_t{count} * kIndexRecord;
  if (index < kHeaderSize || pool_at + 4 > size) return refuse(path, "index outside the file");

  // The index and the name pool, read in one block: both fit in the file.
  const auto tail = static_cast<std::size_t>(size - index);
  orx::Owned<unsigned char> bytes(static_cast<unsigned char *>(orx::heap::allocate(tail + 1)));
  if (!bytes) return out_of_memory();
  if (std::fseek(in.f, static_cast<long>(index), SEEK_SET) != 0 ||
      std::fread(bytes.get(), 1, tail, in.f) != tail)
    return refuse(path, "index cannot be read");
  const unsigned char *pool_word = bytes.get() + (pool_at - index);
  const uint64_t pool_size = be32(pool_word);
  if (pool_at + 4 + pool_size != size) return refuse(path, "name pool does not end the file");

  orx::Owned<ORX_RES_FILE> file(static_cast<ORX_RES_FILE *>(orx::heap::allocate(sizeof(ORX_RES_FILE))));
  if (!file) return out_of_memory();
  *file = ORX_RES_FILE{};
  orx::ScopeGuard release([&] {
    ERR_free(file->entries);
    ERR_free(file->pool);
    ERR_free(file->path);
  });
  file->pool = static_cast<char *>(orx::heap::allocate(static_cast<std::size_t>(pool_size) + 1));
  file->entries = static_cast<ORX_RES_ENTRY *>(
      orx::heap::allocate((count == 0 ? 1 : count) * sizeof(ORX_RES_ENTRY)));
  file->path = STR_save(path);
  if (file->pool == nullptr || file->entries == nullptr || file->path == nullptr)
    return out_of_memory();
  std::memcpy(file->pool, pool_word + 4, static_cast<std::size_t>(pool_size));
  file->pool[pool_size] = '\0';

  for (uint32_t i = 0; i < count; ++i) {
    const unsigned char *r = bytes.get() + uint64_t{i} * kIndexRecord;
    ORX_RES_ENTRY &e = file->entries[i];
    std::memcpy(e.type, r, 4);
    e.type[4] = '\0';
    const uint32_t name = be32(r + 4);
    e.size = be32(r + 8);
    e.offset = be32(r + 12);
    if (!valid_type(e.type)) return refuse(path, "a type code is not four printable characters");
    if (name >= pool_size || std::memchr(file->pool + name, '\0', pool_size - name) == nullptr)
      return refuse(path, "a name lies outside the name pool");
    e.name = file->pool + name;
    if (!valid_name(e.name)) return refuse(path, "a name is empty or too long");
    if (e.offset < kHeaderSize || uint64_t{e.offset} + e.size > index)
      return refuse(path, "a resource lies outside the data");
    if (i > 0) {
      const ORX_RES_ENTRY &p = file->entries[i - 1];
      if (compare(p.type, p.name, e.type, e.name) >= 0)
        return refuse(path, "the index is out of order or names a resource twice");
    }
  }
  release.dismiss();
  file->count = count;
  file->stream = in.f;
  in.f = nullptr;
  orx__err = ORX_OK;
  return file.release();
}

int ORX_res_close(ORX_RES_FILE *file) {
  if (file == nullptr) return 0;
  if (file->stream != nullptr) std::fclose(file->stream);
  ERR_free(file->entries);
  ERR_free(file->pool);
  ERR_free(file->path);
  ERR_free(file);
  return 0;
}

int32_t ORX_res_count(const ORX_RES_FILE *file) {
  return file != nullptr ? static_cast<int32_t>(file->count) : 0;
}

const ORX_RES_ENTRY *ORX_res_entry(const ORX_RES_FILE *file, int32_t index) {
  if (file == nullptr || index < 0 || static_cast<uint32_t>(index) >= file->count) return nullptr;
  return &file->entries[index];
}

const ORX_RES_ENTRY *ORX_res_find(const ORX_RES_FILE *file, const char *type, const char *name) {
  if (file == nullptr || !valid_type(type) || name == nullptr) return nullptr;
  uint32_t low = 0, high = file->count;
  while (low < high) {
    const uint32_t mid = low + (high - low) / 2;
    const ORX_RES_ENTRY &e = file->entries[mid];
    const int order = compare(e.type, e.name, type, name);
    if (order == 0) return &e;
    if (order < 0)
      low = mid + 1;
    else
      high = mid;
  }
  return nullptr;
}

const ORX_RES_ENTRY *ORX_res_next(const ORX_RES_FILE *file, const char *type,
                                  const ORX_RES_ENTRY *after) {
  if (file == nullptr || (type != nullptr && !valid_type(type))) return nullptr;
  const ORX_RES_ENTRY *begin = file->entries;
  const ORX_RES_ENTRY *end = file->entries + file->count;
  const ORX_RES_ENTRY *next;
  if (after != nullptr) {
    if (after < begin || after >= end) return nullptr;
    next = after + 1;
  } else if (type == nullptr) {
    next = begin;
  } else {
    // The first entry of the type: entries are sorted by type first.
    uint32_t low = 0, high = file->count;
    while (low < high) {
      const uint32_t mid = low + (high - low) / 2;
      if (std::memcmp(file->entries[mid].type, type, 4) < 0)
        low = mid + 1;
      else
        high = mid;
    }
    next = begin + low;
  }
  if (next >= end) return nullptr;
  if (type != nullptr && std::memcmp(next->type, type, 4) != 0) return nullptr;
  return next;
}

int ORX_res_read(ORX_RES_FILE *file, const ORX_RES_ENTRY *entry, void *buffer) {
  using orx::fail;
  using orx::Msg;
  if (file == nullptr || entry == nullptr || (buffer == nullptr && entry->size > 0))
    return fail(ORX_E_FIELD_MISSING, Msg::kFieldMissing, "resource");
  if (entry->size == 0) return 0;
  errno = 0;
  if (std::fseek(file->stream, static_cast<long>(entry->offset), SEEK_SET) != 0 ||
      std::fread(buffer, 1, entry->size, file->stream) != entry->size)
    return fail(ORX_E_READ, Msg::kResRead, entry->type, entry->name, file->path,
                errno != 0 ? std::strerror(errno) : "the file is shorter than its index says");
  return 0;
}

void *ORX_res_load(ORX_RES_FILE *file, const ORX_RES_ENTRY *entry) {
  if (file == nullptr || entry == nullptr) {
    orx::fail(ORX_E_FIELD_MISSING, orx::Msg::kFieldMissing, "resource");
    return nullptr;
  }
  orx::Owned<char> bytes(static_cast<char *>(orx::heap::allocate(std::size_t{entry->size} + 1)));
  if (!bytes) return out_of_memory();
  if (ORX_res_read(file, entry, bytes.get()) != 0) return nullptr;
  bytes.get()[entry->size] = '\0';
  return bytes.release();
}

}  // extern "C"
