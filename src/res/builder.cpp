// Making resource files: resources are collected, sorted by type and name,
// and written beside the target under a temporary name that is renamed into
// place once the file is complete.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "err/heap.hpp"
#include "err/messages.hpp"
#include "orx/byt.h"
#include "orx/str.h"
#include "platform/platform.hpp"
#include "res/res_file.hpp"
#include "util/owned.hpp"

namespace {

struct Resource {
  char type[5];
  char *name;
  unsigned char *data;
  uint32_t size;
};

}  // namespace

struct ORX_RES_BUILDER {
  Resource *items;
  uint32_t count;
  uint32_t capacity;
  uint64_t data_size;  // bytes of every resource so far
};

namespace orx::res {
namespace {

int out_of_memory() { return fail(ORX_E_NO_MEMORY, Msg::kNoMemory); }

bool put32(std::FILE *out, uint32_t v) { return BYT_write_int(out, &v) == 1; }

// Writes the file's bytes; false on the first failed write.
bool write_all(std::FILE *out, const ORX_RES_BUILDER &b, Resource *const *order) {
  uint64_t data_end = kHeaderSize;
  for (uint32_t i = 0; i < b.count; ++i) data_end += order[i]->size;
  const unsigned char head[8] = {'O', 'R', 'X', 'R', 0, kVersion, 0, 0};
  if (std::fwrite(head, 1, sizeof head, out) != sizeof head || !put32(out, b.count) ||
      !put32(out, static_cast<uint32_t>(data_end)))
    return false;
  for (uint32_t i = 0; i < b.count; ++i)
    if (order[i]->size > 0 && std::fwrite(order[i]->data, 1, order[i]->size, out) != order[i]->size)
      return false;
  uint32_t offset = kHeaderSize, name = 0;
  for (uint32_t i = 0; i < b.count; ++i) {
    const Resource &r = *order[i];
    if (std::fwrite(r.type, 1, 4, out) != 4 || !put32(out, name) || !put32(out, r.size) ||
        !put32(out, offset))
      return false;
    offset += r.size;
    name += static_cast<uint32_t>(std::strlen(r.name)) + 1;
  }
  if (!put32(out, name)) return false;
  for (uint32_t i = 0; i < b.count; ++i) {
    const std::size_t n = std::strlen(order[i]->name) + 1;
    if (std::fwrite(order[i]->name, 1, n, out) != n) return false;
  }
  return std::fflush(out) == 0;
}

}  // namespace
}  // namespace orx::res

using namespace orx::res;

extern "C" {

ORX_RES_BUILDER *ORX_res_builder_new(void) {
  auto *b = static_cast<ORX_RES_BUILDER *>(orx::heap::allocate(sizeof(ORX_RES_BUILDER)));
  if (b == nullptr) {
    out_of_memory();
    return nullptr;
  }
  *b = ORX_RES_BUILDER{};
  return b;
}

void ORX_res_builder_free(ORX_RES_BUILDER *builder) {
  if (builder == nullptr) return;
  for (uint32_t i = 0; i < builder->count; ++i) {
    ERR_free(builder->items[i].name);
    ERR_free(builder->items[i].data);
  }
  ERR_free(builder->items);
  ERR_free(builder);
}

int ORX_res_add(ORX_RES_BUILDER *builder, const char *type, const char *name, const void *data,
                uint32_t size) {
  using orx::fail;
  using orx::Msg;
  if (builder == nullptr || (data == nullptr && size > 0))
    return fail(ORX_E_FIELD_MISSING, Msg::kFieldMissing, "resource");
  if (!valid_type(type) || !valid_name(name))
    return fail(ORX_E_INVALID_TYPE, Msg::kResBadName, type != nullptr ? type : "(null)",
                name != nullptr ? name : "(null)");
  // The index holds 32-bit offsets: the whole data must stay below 4 GiB.
  if (kHeaderSize + builder->data_size + size > UINT32_MAX) return fail(ORX_E_INVALID_TYPE, Msg::kResBadName, type, name);
  if (builder->count == builder->capacity) {
    const uint32_t grown = builder->capacity == 0 ? 16 : builder->capacity * 2;
    void *items = orx::heap::reallocate(builder->items, grown * sizeof(Resource));
    if (items == nullptr) return out_of_memory();
    builder->items = static_cast<Resource *>(items);
    builder->capacity = grown;
  }
  orx::Owned<char> copy(STR_save(name));
  orx::Owned<unsigned char> bytes(static_cast<unsigned char *>(orx::heap::allocate(size > 0 ? size : 1)));
  if (!copy || !bytes) return out_of_memory();
  if (size > 0) std::memcpy(bytes.get(), data, size);
  Resource &r = builder->items[builder->count++];
  std::memcpy(r.type, type, 5);
  r.name = copy.release();
  r.data = bytes.release();
  r.size = size;
  builder->data_size += size;
  orx__err = ORX_OK;
  return 0;
}

int ORX_res_add_message(ORX_RES_BUILDER *builder, int set, int number, int severity,
                        const char *format) {
  if (format == nullptr || severity < 0 || severity > 255)
    return orx::fail(ORX_E_FIELD_MISSING, orx::Msg::kFieldMissing, "format");
  char name[32];
  std::snprintf(name, sizeof name, "%d.%d", set, number);
  const std::size_t length = std::strlen(format);
  orx::Owned<unsigned char> bytes(static_cast<unsigned char *>(orx::heap::allocate(length + 1)));
  if (!bytes) return out_of_memory();
  bytes.get()[0] = static_cast<unsigned char>(severity);
  std::memcpy(bytes.get() + 1, format, length);
  return ORX_res_add(builder, "ERRO", name, bytes.get(), static_cast<uint32_t>(length + 1));
}

int ORX_res_save(ORX_RES_BUILDER *builder, const char *path) {
  using orx::fail;
  using orx::Msg;
  if (builder == nullptr || path == nullptr)
    return fail(ORX_E_FIELD_MISSING, Msg::kFieldMissing, "path");
  orx::Owned<Resource *> order(
      static_cast<Resource **>(orx::heap::allocate((builder->count + 1) * sizeof(Resource *))));
  if (!order) return out_of_memory();
  for (uint32_t i = 0; i < builder->count; ++i) order.get()[i] = &builder->items[i];
  std::sort(order.get(), order.get() + builder->count, [](const Resource *a, const Resource *b) {
    return compare(a->type, a->name, b->type, b->name) < 0;
  });
  for (uint32_t i = 1; i < builder->count; ++i) {
    const Resource &a = *order.get()[i - 1], &b = *order.get()[i];
    if (compare(a.type, a.name, b.type, b.name) == 0)
      return fail(ORX_E_INVALID_TYPE, Msg::kResDuplicate, b.type, b.name);
  }
  orx::Owned<char> temp(STR_save_n(2, path, ".XXXXXX"));
  if (!temp) return out_of_memory();
  std::FILE *out = orx::platform::create_temp_file(temp.get());
  if (out == nullptr) return fail(ORX_E_WRITE, Msg::kCannotWriteTo, path, std::strerror(errno));
  errno = 0;
  bool written = write_all(out, *builder, order.get());
  const int write_error = errno;
  written = std::fclose(out) == 0 && written;
  if (!written || orx::platform::rename_file(temp.get(), path) != 0) {
    const int error = written ? errno : write_error;
    orx::platform::remove_file(temp.get());
    return fail(ORX_E_WRITE, Msg::kCannotWriteTo, path,
                std::strerror(error != 0 ? error : EIO));
  }
  orx__err = ORX_OK;
  return 0;
}

}  // extern "C"
