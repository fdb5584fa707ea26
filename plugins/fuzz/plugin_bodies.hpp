// Fuzz bodies for the format plug-ins: the bytes become a file of the
// format, opened through ORX_open with the plug-in loaded as a host loads
// it, and every line of every image is read.  Any report is fine; a crash,
// a hang, a leak or an unbounded allocation is what the fuzzer looks for.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orx::fuzz {

int png_read(const std::uint8_t *data, std::size_t size);
int jpeg_read(const std::uint8_t *data, std::size_t size);
int tiff_read(const std::uint8_t *data, std::size_t size);
int exr_read(const std::uint8_t *data, std::size_t size);

}  // namespace orx::fuzz
