// What every fuzz body needs: reports kept off standard error (they come by
// the thousand) and a scratch file of its own per process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "orx/orx.h"

namespace orx::fuzz {

// Declares, once, a handler that swallows every report.
void silence_reports();

// A path under /tmp unique to this process and to `name`.
std::string scratch_path(const char *name);

// Writes the bytes to path; false when it cannot.
bool write_bytes(const std::string &path, const std::uint8_t *data, std::size_t size);

// Opens the file at path for reading through the format of the key: null
// when the library refuses it.
ORX_OBJECT *open_read(const std::string &path, const char *key);

}  // namespace orx::fuzz
