// The attribute list of a record: an array of entries in the order they
// were first set, each entry's name and value in one block, so that setting
// one is a single allocation that either happens whole or not at all.  The
// record holds the list in its first reserved word.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "orx/attributes.h"
#include "orx/err.h"

namespace {

// Marks a list, so that a record that was never initialised (whose
// reserved word holds whatever was there) is not taken for one.
constexpr uint32_t kMagic = 0x41545452u;  // "ATTR"

struct List {
  uint32_t magic;
  int32_t count;
  int32_t capacity;
  ORX_ATTR *entries;  // entries[i].name heads the block that holds both
};

List *list_of(const ORX_INFO *info) {
  if (info == nullptr || info->valid != ORX_INFO_VALID) return nullptr;
  auto *list = reinterpret_cast<List *>(static_cast<uintptr_t>(info->reserved[0]));
  return list != nullptr && list->magic == kMagic ? list : nullptr;
}

std::size_t element_size(int32_t type) {
  switch (type) {
    case ORX_ATTR_STRING:
    case ORX_ATTR_BYTES: return 1;
    case ORX_ATTR_INT:
    case ORX_ATTR_FLOAT: return 4;
    case ORX_ATTR_DOUBLE: return 8;
    default: return 0;
  }
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

bool same_name(const char *a, const char *b) {
  for (;; ++a, ++b) {
    if (lower(*a) != lower(*b)) return false;
    if (*a == '\0') return true;
  }
}

// Whether name starts with the first length characters of prefix.
bool same_prefix(const char *name, const char *prefix, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i)
    if (name[i] == '\0' || lower(name[i]) != lower(prefix[i])) return false;
  return true;
}

ORX_ATTR *find(List *list, int32_t image, const char *name) {
  if (list == nullptr || name == nullptr) return nullptr;
  for (int32_t i = 0; i < list->count; ++i)
    if (list->entries[i].image == image && same_name(list->entries[i].name, name))
      return &list->entries[i];
  return nullptr;
}

void *no_memory() {
  orx__err = ORX_E_NO_MEMORY;
  return nullptr;
}

// A new entry's block: the name, then (8-byte aligned) the value.
bool make_entry(ORX_ATTR &entry, int32_t image, const char *name, int32_t type, int32_t count,
                const void *data) {
  const std::size_t name_bytes = std::strlen(name) + 1;
  const std::size_t offset = (name_bytes + 7) & ~std::size_t{7};
  const std::size_t value_bytes = type == ORX_ATTR_STRING
                                      ? std::strlen(static_cast<const char *>(data)) + 1
                                      : static_cast<std::size_t>(count) * element_size(type);
  if (offset + value_bytes > UINT32_MAX) return no_memory() != nullptr;
  auto *block = static_cast<char *>(ERR_malloc(static_cast<uint32_t>(offset + value_bytes)));
  if (block == nullptr) return no_memory() != nullptr;
  std::memcpy(block, name, name_bytes);
  std::memcpy(block + offset, data, value_bytes);
  entry = ORX_ATTR{block, image, type, count, 0, block + offset};
  return true;
}

void free_entry(ORX_ATTR &entry) { ERR_free(const_cast<char *>(entry.name)); }

// The list of a record, made when it has none.
List *ensure_list(ORX_INFO *info) {
  if (List *list = list_of(info)) return list;
  auto *list = static_cast<List *>(ERR_malloc(sizeof(List)));
  if (list == nullptr) return static_cast<List *>(no_memory());
  *list = List{kMagic, 0, 0, nullptr};
  info->reserved[0] = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(list));
  return list;
}

bool numeric(int32_t type) {
  return type == ORX_ATTR_INT || type == ORX_ATTR_FLOAT || type == ORX_ATTR_DOUBLE;
}

double number(const ORX_ATTR &a) {
  if (a.type == ORX_ATTR_INT) return *static_cast<const int32_t *>(a.data);
  if (a.type == ORX_ATTR_FLOAT) return *static_cast<const float *>(a.data);
  return *static_cast<const double *>(a.data);
}

}  // namespace

extern "C" {

int ORX_attr_set(ORX_INFO *info, int32_t image, const char *name, int32_t type, int32_t count,
                 const void *data) {
  if (info == nullptr || name == nullptr || data == nullptr || image < 0 ||
      element_size(type) == 0 || count < 1 || (type == ORX_ATTR_STRING && count != 1) ||
      info->valid != ORX_INFO_VALID)
    return ORX_E_BAD_SCANLINE;
  List *list = ensure_list(info);
  if (list == nullptr) return ORX_E_NO_MEMORY;
  ORX_ATTR entry;
  if (!make_entry(entry, image, name, type, count, data)) return ORX_E_NO_MEMORY;
  if (ORX_ATTR *old = find(list, image, name)) {
    free_entry(*old);
    *old = entry;
    return 0;
  }
  if (list->count == list->capacity) {
    const int32_t capacity = list->capacity == 0 ? 8 : list->capacity * 2;
    auto *grown = static_cast<ORX_ATTR *>(
        ERR_realloc(list->entries, static_cast<uint32_t>(capacity) * sizeof(ORX_ATTR)));
    if (grown == nullptr) {
      free_entry(entry);
      no_memory();
      return ORX_E_NO_MEMORY;
    }
    list->entries = grown;
    list->capacity = capacity;
  }
  list->entries[list->count++] = entry;
  return 0;
}

int ORX_attr_set_string(ORX_INFO *info, int32_t image, const char *name, const char *value) {
  return ORX_attr_set(info, image, name, ORX_ATTR_STRING, 1, value);
}
int ORX_attr_set_int(ORX_INFO *info, int32_t image, const char *name, int32_t value) {
  return ORX_attr_set(info, image, name, ORX_ATTR_INT, 1, &value);
}
int ORX_attr_set_float(ORX_INFO *info, int32_t image, const char *name, float value) {
  return ORX_attr_set(info, image, name, ORX_ATTR_FLOAT, 1, &value);
}
int ORX_attr_set_double(ORX_INFO *info, int32_t image, const char *name, double value) {
  return ORX_attr_set(info, image, name, ORX_ATTR_DOUBLE, 1, &value);
}

const ORX_ATTR *ORX_attr_find(const ORX_INFO *info, int32_t image, const char *name) {
  return find(list_of(info), image, name);
}

const char *ORX_attr_get_string(const ORX_INFO *info, int32_t image, const char *name) {
  const ORX_ATTR *a = ORX_attr_find(info, image, name);
  return a != nullptr && a->type == ORX_ATTR_STRING ? static_cast<const char *>(a->data)
                                                     : nullptr;
}

int ORX_attr_get_int(const ORX_INFO *info, int32_t image, const char *name, int32_t *value) {
  const ORX_ATTR *a = ORX_attr_find(info, image, name);
  if (a == nullptr || a->type != ORX_ATTR_INT || value == nullptr) return 0;
  *value = *static_cast<const int32_t *>(a->data);
  return 1;
}

int ORX_attr_get_double(const ORX_INFO *info, int32_t image, const char *name, double *value) {
  const ORX_ATTR *a = ORX_attr_find(info, image, name);
  if (a == nullptr || !numeric(a->type) || value == nullptr) return 0;
  *value = number(*a);
  return 1;
}

int ORX_attr_get_float(const ORX_INFO *info, int32_t image, const char *name, float *value) {
  double v;
  if (value == nullptr || ORX_attr_get_double(info, image, name, &v) == 0) return 0;
  *value = static_cast<float>(v);
  return 1;
}

int ORX_attr_remove(ORX_INFO *info, int32_t image, const char *name) {
  List *list = list_of(info);
  ORX_ATTR *a = find(list, image, name);
  if (a == nullptr) return 0;
  free_entry(*a);
  const std::ptrdiff_t at = a - list->entries;
  std::memmove(a, a + 1, static_cast<std::size_t>(list->count - 1 - at) * sizeof(ORX_ATTR));
  --list->count;
  return 1;
}

int32_t ORX_attr_count(const ORX_INFO *info, int32_t image) {
  const List *list = list_of(info);
  if (list == nullptr) return 0;
  if (image == ORX_ATTR_ANY_IMAGE) return list->count;
  int32_t n = 0;
  for (int32_t i = 0; i < list->count; ++i) n += list->entries[i].image == image ? 1 : 0;
  return n;
}

const ORX_ATTR *ORX_attr_at(const ORX_INFO *info, int32_t image, int32_t index) {
  const List *list = list_of(info);
  for (int32_t i = 0; list != nullptr && index >= 0 && i < list->count; ++i) {
    if (image != ORX_ATTR_ANY_IMAGE && list->entries[i].image != image) continue;
    if (index-- == 0) return &list->entries[i];
  }
  return nullptr;
}

int ORX_attr_copy(ORX_INFO *dst, int32_t dst_image, const ORX_INFO *src, int32_t src_image) {
  // Copying a list onto itself would walk entries it is replacing.
  if (dst == src && src_image == ORX_ATTR_ANY_IMAGE) return 0;
  for (int32_t i = 0;; ++i) {
    const ORX_ATTR *a = ORX_attr_at(src, src_image, i);
    if (a == nullptr) return 0;
    const int32_t to = src_image == ORX_ATTR_ANY_IMAGE ? a->image : dst_image;
    if (dst == src && to == a->image) continue;
    const int status = ORX_attr_set(dst, to, a->name, a->type, a->count, a->data);
    if (status != 0) return status;
  }
}

int ORX_attr_keep(ORX_INFO *info, const char *const *names) {
  List *list = list_of(info);
  int removed = 0;
  for (int32_t i = 0; list != nullptr && i < list->count;) {
    const char *name = list->entries[i].name;
    bool kept = std::strncmp(name, "orx:", 4) == 0;
    for (const char *const *n = names; !kept && n != nullptr && *n != nullptr; ++n) {
      const std::size_t length = std::strlen(*n);
      kept = length > 0 && (*n)[length - 1] == ':' ? same_prefix(name, *n, length)
                                                    : same_name(name, *n);
    }
    if (kept) {
      ++i;
      continue;
    }
    free_entry(list->entries[i]);
    std::memmove(&list->entries[i], &list->entries[i + 1],
                 static_cast<std::size_t>(list->count - 1 - i) * sizeof(ORX_ATTR));
    --list->count;
    ++removed;
  }
  return removed;
}

void ORX_attr_clear(ORX_INFO *info) {
  List *list = list_of(info);
  if (list == nullptr) return;
  for (int32_t i = 0; i < list->count; ++i) free_entry(list->entries[i]);
  ERR_free(list->entries);
  list->magic = 0;
  ERR_free(list);
  info->reserved[0] = 0;
}

}  // extern "C"
