// Fuzz bodies: each takes arbitrary bytes and drives one reader through
// them.  libFuzzer calls them from the fuzz targets; the replay test calls
// them on every file kept under fuzz/regressions, so a fixed crash stays
// fixed.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orx::fuzz {

// Treat the bytes as an RLA file: test it, open it and read every stored
// row of every image, plus the window's first and last rows.
int rla_read(const std::uint8_t *data, std::size_t size);

}  // namespace orx::fuzz
