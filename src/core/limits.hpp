// What the library's own modules need of the limits beyond orx/limits.h.
#pragma once

#include <cstdint>

namespace orx::core {

// The environment variable behind a limit ("" for an unknown one), named in
// the reports of refused files so a host knows what to raise.
const char *limit_variable(std::int32_t which);

}  // namespace orx::core
