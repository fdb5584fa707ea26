// The in-memory form of resource files, shared by the reader, the builder,
// the text form and the message catalogues.
//
// File layout (all numbers big-endian):
//   header   "ORXR", u16 version 1, u16 flags 0, u32 count, u32 index offset
//   data     the resources' bytes, from offset 16
//   index    count records of 16 bytes: type[4], u32 name offset (into the
//            name pool), u32 size, u32 offset; sorted by type, then name
//   pool     u32 pool size, then the names, each NUL-terminated; the pool
//            ends the file
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "orx/res.h"

struct ORX_RES_FILE {
  std::FILE *stream;
  char *path;
  uint32_t count;
  ORX_RES_ENTRY *entries;  // sorted by type, then name
  char *pool;              // the names
};

namespace orx::res {

constexpr char kMagic[4] = {'O', 'R', 'X', 'R'};
constexpr uint16_t kVersion = 1;
constexpr uint32_t kHeaderSize = 16;
constexpr uint32_t kIndexRecord = 16;
constexpr uint32_t kMaxName = 255;

// A type code: four printable ASCII characters, none blank.
bool valid_type(const char *type);
// A name: 1 to kMaxName bytes.
bool valid_name(const char *name);
// Order of the index: type, then name, bytewise.
int compare(const char *type_a, const char *name_a, const char *type_b, const char *name_b);

// Whether two printf formats consume the same arguments in the same order;
// false also when either holds a conversion the library does not pass on
// (such as %n) or a malformed one.
bool same_conversions(const char *a, const char *b);

// Print n bytes as a quoted string of the text form (escapes \" \\ \n \t
// \r \xHH).
void put_quoted(std::FILE *out, const unsigned char *p, std::size_t n);

// Report a message (set 902) held as an "ERRO" resource named name of file:
// its severity byte and format, with the arguments given, to the global
// handlers.  -1 when the file has no such message.
int report_named(ORX_RES_FILE *file, const char *name, ...);

}  // namespace orx::res
