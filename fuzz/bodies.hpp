// Fuzz bodies: each takes arbitrary bytes and drives one parser through
// them.  libFuzzer calls them from the fuzz targets; the replay test calls
// them on every file kept under fuzz/regressions/<target>, so a fixed crash
// stays fixed.  A body returns 0, or -1 when it found the library wrong
// (the fuzz target then traps, the replay test fails).
#pragma once

#include <cstddef>
#include <cstdint>

namespace orx::fuzz {

// Treat the bytes as an RLA file: test it, open it and read every stored
// row of every image, plus the window's first and last rows.
int rla_read(const std::uint8_t *data, std::size_t size);

// Treat the bytes as RLA arriving through a stream that cannot seek (the
// "pipe" format's reader): open it and read every row upwards.
int rla_stream(const std::uint8_t *data, std::size_t size);

// Treat the bytes as a ".orxrc" configuration file: build the framebuffer,
// format-defaults and colour databases from it and query them.
int config_file(const std::uint8_t *data, std::size_t size);

// Treat the bytes as a frame number, a name syntax (or printf-style name
// format), a base name and an extension: verify, parse and build names.
int name_syntax(const std::uint8_t *data, std::size_t size);

// Treat the bytes as image shapes (windows, channel groups, types, widths)
// and pixels: write them as RLA, read them back and require equality.
int rla_round_trip(const std::uint8_t *data, std::size_t size);

// Treat the bytes as a resource file: open, look up and load every
// resource, dump it, and use it as a message catalogue.
int resource_file(const std::uint8_t *data, std::size_t size);

// The first byte chooses a stack of operators, the rest is an RLA file read
// through them row by row.
int operator_stack(const std::uint8_t *data, std::size_t size);

// Built beside the plug-ins (plugins/fuzz): the bytes become a file of the
// plug-in's format, opened through ORX_open with the plug-in loaded as a
// host loads it, and every line of every image is read.
int png_read(const std::uint8_t *data, std::size_t size);
int jpeg_read(const std::uint8_t *data, std::size_t size);
int tiff_read(const std::uint8_t *data, std::size_t size);
int exr_read(const std::uint8_t *data, std::size_t size);
int hdr_read(const std::uint8_t *data, std::size_t size);
int pnm_read(const std::uint8_t *data, std::size_t size);
int dpx_read(const std::uint8_t *data, std::size_t size);
int cineon_read(const std::uint8_t *data, std::size_t size);
int sgi_read(const std::uint8_t *data, std::size_t size);
int webp_read(const std::uint8_t *data, std::size_t size);
int targa_read(const std::uint8_t *data, std::size_t size);
int bmp_read(const std::uint8_t *data, std::size_t size);

}  // namespace orx::fuzz
