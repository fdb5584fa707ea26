// Message catalogues: translated message texts held as "ERRO" resources,
// loaded whole at open so that reporting never reads a file or allocates.
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "err/heap.hpp"
#include "err/messages.hpp"
#include "err/report_internal.hpp"
#include "res/catalogue.hpp"
#include "res/res_file.hpp"
#include "util/owned.hpp"

namespace orx::res {
namespace {

struct Message {
  int32_t id;  // set * 1000 + number
  char *text;  // owned
};

struct Catalogue {
  Message *messages;  // sorted by id
  uint32_t count;
  Catalogue *next;
};

// The open catalogues; a handle is used only when it is found here, so a
// host's handle of another kind is never taken for one.
Catalogue *g_open = nullptr;

void free_catalogue(Catalogue *c) {
  for (uint32_t i = 0; i < c->count; ++i) ERR_free(c->messages[i].text);
  ERR_free(c->messages);
  ERR_free(c);
}

// "SET.NUMBER" with SET 0..2147482 and NUMBER 0..999; -1 otherwise.
int32_t message_id(const char *name) {
  char *end = nullptr;
  const long set = std::strtol(name, &end, 10);
  if (end == name || *end != '.' || set < 0 || set > INT32_MAX / 1000 - 1) return -1;
  const char *rest = end + 1;
  const long number = std::strtol(rest, &end, 10);
  if (end == rest || *end != '\0' || number < 0 || number > 999) return -1;
  return static_cast<int32_t>(set * 1000 + number);
}

constexpr int kMaxArguments = 64;

// The arguments a format consumes, in order, as small codes (kind << 8 |
// length modifier) in codes; their number, or -1 for a conversion that is
// never passed on (%n, an unknown letter) or more than kMaxArguments.
int signature(const char *p, int *codes) {
  int n = 0;
  const auto add = [&](int code) {
    if (n == kMaxArguments) return false;
    codes[n++] = code;
    return true;
  };
  while ((p = std::strchr(p, '%')) != nullptr) {
    ++p;
    if (*p == '%') {
      ++p;
      continue;
    }
    while (*p != '\0' && std::strchr("-+ #0'", *p) != nullptr) ++p;
    // A "*" width or precision takes an int before the value itself.
    if (*p == '*' && !add('i' << 8)) return -1;
    if (*p == '*') ++p;
    while (*p >= '0' && *p <= '9') ++p;
    if (*p == '.') {
      ++p;
      if (*p == '*' && !add('i' << 8)) return -1;
      if (*p == '*') ++p;
      while (*p >= '0' && *p <= '9') ++p;
    }
    int length = 0;  // h and hh promote to int: no mark
    if (*p == 'h') {
      p += p[1] == 'h' ? 2 : 1;
    } else if (*p == 'l') {
      length = p[1] == 'l' ? 'q' : 'l';
      p += p[1] == 'l' ? 2 : 1;
    } else if (*p == 'j' || *p == 'z' || *p == 't' || *p == 'L') {
      length = *p++;
    }
    int kind;
    if (*p != '\0' && std::strchr("diouxXc", *p) != nullptr)
      kind = 'i';
    else if (*p != '\0' && std::strchr("fFeEgGaA", *p) != nullptr)
      kind = 'f';
    else if (*p == 's' || *p == 'p')
      kind = *p;
    else
      return -1;
    ++p;
    if (!add(kind << 8 | length)) return -1;
  }
  return n;
}

const Catalogue *find_open(const void *handle) {
  for (const Catalogue *c = g_open; c != nullptr; c = c->next)
    if (c == handle) return c;
  return nullptr;
}

}  // namespace

bool same_conversions(const char *a, const char *b) {
  int codes_a[kMaxArguments], codes_b[kMaxArguments];
  const int n = signature(a, codes_a);
  return n >= 0 && n == signature(b, codes_b) &&
         std::memcmp(codes_a, codes_b, sizeof(int) * static_cast<std::size_t>(n)) == 0;
}

const char *catalogue_text(const void *catalogue, int set, int number, const char *format) {
  const Catalogue *c = catalogue != nullptr ? find_open(catalogue) : nullptr;
  if (c == nullptr || set < 0 || number < 0 || number > 999 || set > INT32_MAX / 1000 - 1)
    return format;
  const int32_t id = set * 1000 + number;
  uint32_t low = 0, high = c->count;
  while (low < high) {
    const uint32_t mid = low + (high - low) / 2;
    if (c->messages[mid].id < id)
      low = mid + 1;
    else
      high = mid;
  }
  if (low == c->count || c->messages[low].id != id) return format;
  const char *text = c->messages[low].text;
  return format != nullptr && same_conversions(format, text) ? text : format;
}

int report_named(ORX_RES_FILE *file, const char *name, ...) {
  const ORX_RES_ENTRY *entry = ORX_res_find(file, "ERRO", name);
  if (entry == nullptr || entry->size == 0) return -1;
  Owned<unsigned char> bytes(static_cast<unsigned char *>(ORX_res_load(file, entry)));
  if (!bytes) return -1;
  va_list args;
  va_start(args, name);
  const int r = err::vreport_global(bytes.get()[0], reinterpret_cast<char *>(bytes.get() + 1),
                                    args);
  va_end(args);
  return r;
}

}  // namespace orx::res

using namespace orx::res;

extern "C" {

void *ORX_msg_cat_open(const char *path) {
  using orx::Msg;
  ORX_RES_FILE *file = ORX_res_open(path);
  if (file == nullptr) return nullptr;
  orx::ScopeGuard close([&] { ORX_res_close(file); });
  auto *c = static_cast<Catalogue *>(orx::heap::allocate(sizeof(Catalogue)));
  uint32_t total = 0;
  for (const ORX_RES_ENTRY *e = nullptr; (e = ORX_res_next(file, "ERRO", e)) != nullptr;) ++total;
  auto *messages = static_cast<Message *>(orx::heap::allocate((total + 1) * sizeof(Message)));
  if (c == nullptr || messages == nullptr) {
    ERR_free(c);
    ERR_free(messages);
    orx::fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
    return nullptr;
  }
  *c = Catalogue{messages, 0, nullptr};
  for (const ORX_RES_ENTRY *e = nullptr; (e = ORX_res_next(file, "ERRO", e)) != nullptr;) {
    const int32_t id = message_id(e->name);
    if (id < 0 || e->size == 0) {
      orx::report(Msg::kCatEntryDropped, path, e->name, "not a message: set.number and a severity");
      continue;
    }
    auto *bytes = static_cast<char *>(ORX_res_load(file, e));
    if (bytes == nullptr) {
      free_catalogue(c);
      return nullptr;
    }
    // Texts are kept without the severity byte: the reporter's stands.
    std::memmove(bytes, bytes + 1, e->size);
    const char *own = orx::msg_text(static_cast<orx::Msg>(id));
    if (own != nullptr ? !same_conversions(own, bytes) : !same_conversions(bytes, bytes)) {
      orx::report(Msg::kCatEntryDropped, path, e->name,
                  "its conversions differ from the library's text");
      ERR_free(bytes);
      continue;
    }
    // Names sort as text ("902.100" before "902.44"): insert by number.
    uint32_t at = c->count;
    while (at > 0 && c->messages[at - 1].id > id) --at;
    std::memmove(c->messages + at + 1, c->messages + at, (c->count - at) * sizeof(Message));
    c->messages[at] = Message{id, bytes};
    ++c->count;
  }
  c->next = g_open;
  g_open = c;
  orx__err = ORX_OK;
  return c;
}

int ORX_msg_cat_close(void *catalogue) {
  for (Catalogue **link = &g_open; *link != nullptr; link = &(*link)->next) {
    if (*link != catalogue) continue;
    Catalogue *c = *link;
    *link = c->next;
    if (orx__msg_cat == catalogue) orx__msg_cat = nullptr;
    free_catalogue(c);
    return 0;
  }
  return orx__err = ORX_E_INVALID_TYPE;
}

int ORX_msg_cat_write_defaults(FILE *out) {
  if (out == nullptr) return orx__err = ORX_E_FIELD_MISSING;
  std::fputs("# The library's messages, one ERRO resource each, named set.number.\n"
             "# Translate the quoted texts; keep every % conversion, in order.\n",
             out);
  for (std::size_t i = 0; i < orx::msg_count(); ++i) {
    const orx::Msg m = orx::msg_at(i);
    const char *text = orx::msg_text(m);
    std::fprintf(out, "\nresource ERRO \"%d.%d\"\nmessage %d ", orx::msg_set(m),
                 orx::msg_number(m), orx::msg_severity(m));
    put_quoted(out, reinterpret_cast<const unsigned char *>(text), std::strlen(text));
    std::fputc('\n', out);
  }
  if (std::fflush(out) != 0 || std::ferror(out) != 0) return orx__err = ORX_E_WRITE;
  return orx__err = ORX_OK;
}

}  // extern "C"
