// The scanline reader: the chunks of a row decoded into the channel
// buffer at the active window's columns, rows read in place or in file order
// from a stream that cannot seek back.
//
// Rows outside the active window read as zeros.  While no layer sits above
// the reader, nobody writes into its rows, so a buffer already zero is not
// zeroed again and the columns outside the active window are zeroed once:
// a window of thousands of empty rows costs nothing per row.  A layer above
// may transform the rows in place, and then every row is written in full.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "err/messages.hpp"
#include "formats/rla/reader_state.hpp"
#include "formats/rla/rle.hpp"
#include "orx/err.h"
#include "orx/orx.h"

namespace orx::rla {
namespace {

// Whether the caller gets the rows as the reader leaves them: true while no
// layer sits above the reader (layers may transform rows in place).
bool rows_untouched(const ReadImage &image) {
  const ORX_OBJECT *object = image.file->object;
  return object != nullptr && object->scan == read_row;
}

// Zeros columns [from, from + count) of every channel row.
void zero_columns(const ReadImage &image, int from, int count) {
  for (int c = 0; c < image.channels; ++c) {
    const std::size_t size = kind_bytes(image.kinds[c]);
    auto *row = static_cast<std::uint8_t *>(image.buffer[c]);
    std::memset(row + static_cast<std::size_t>(from) * size, 0,
                static_cast<std::size_t>(count) * size);
  }
}

// A row outside the active window: zeros over the window width, written only
// where the buffer may hold something else.
void zero_row(ReadImage &image) {
  const bool untouched = rows_untouched(image);
  if (!untouched || !image.pads_zero)
    zero_columns(image, 0, image.width);
  else if (!image.zeros)
    zero_columns(image, image.left_pad, image.active_width);
  image.zeros = image.pads_zero = untouched;
}

// Before a row of the active window is decoded: zeros outside its columns.
void prepare_active_row(ReadImage &image) {
  const bool untouched = rows_untouched(image);
  if (!untouched || !image.pads_zero) {
    zero_columns(image, 0, image.left_pad);
    zero_columns(image, image.left_pad + image.active_width, image.right_pad);
  }
  image.zeros = false;
  image.pads_zero = untouched;
}

// Decodes the len bytes of one chunk into a channel row; true when they
// held exactly the row.
bool decode_chunk(const ReadImage &image, int channel, const std::uint8_t *in, std::size_t len) {
  const Kind kind = image.kinds[channel];
  const std::size_t size = kind_bytes(kind);
  auto *row = static_cast<std::uint8_t *>(image.buffer[channel]);
  std::uint8_t *dst = row + static_cast<std::size_t>(image.left_pad) * size;
  const int n = image.active_width;
  switch (kind) {
    case Kind::kInt8: {
      std::size_t used = 0;
      return decode_row<1>(in, len, n, dst, &used) == n && used == len;
    }
    // Wider integer chunks may carry trailing bytes: only the samples count.
    case Kind::kInt16: return decode_row<2>(in, len, n, reinterpret_cast<std::uint16_t *>(dst)) == n;
    case Kind::kInt32: return decode_row<4>(in, len, n, reinterpret_cast<std::uint32_t *>(dst)) == n;
    case Kind::kFloat: return decode_raw<float>(in, len, n, reinterpret_cast<float *>(dst)) == n;
    case Kind::kDouble: return decode_raw<double>(in, len, n, reinterpret_cast<double *>(dst)) == n;
  }
  return false;
}

// Reads and decodes the chunks of row y; next(n, &bytes) points bytes at the
// row's next n bytes, or fails after a report.
template <class Next>
int read_chunks(ReadImage &image, int32_t y, Next next) {
  prepare_active_row(image);
  for (int c = 0; c < image.channels; ++c) {
    const std::uint8_t *bytes = nullptr;
    if (int status = next(2, &bytes); status != 0) return status;
    const auto len = static_cast<std::int16_t>(load_be16(bytes));
    if (len < 0 || static_cast<std::size_t>(len) > image.decode_size)
      return fail(ORX_E_READ, Msg::kCannotRead, y, "chunk too long");
    const auto n = static_cast<std::size_t>(len);
    if (int status = next(n, &bytes); status != 0) return status;
    if (!decode_chunk(image, c, bytes, n)) return fail(ORX_E_UNDECODABLE, Msg::kCannotDecode, y);
  }
  return 0;
}

// The chunks of row y at the sequential stream's position, read through the
// decode buffer.
int read_chunks_in_sequence(ReadImage &image, int32_t y) {
  ReadFile &file = *image.file;
  return read_chunks(image, y, [&](std::size_t n, const std::uint8_t **bytes) {
    if (std::fread(image.decode, 1, n, file.stream) != n)
      return fail(ORX_E_READ, Msg::kCannotRead, y, "short read");
    file.position += static_cast<std::uint32_t>(n);
    *bytes = image.decode;
    return 0;
  });
}

// Points bytes at [at, at + n) of a file read in place, part of a row that
// ends before reach, refilling the window when they are not all in it.  A
// window placed before the last one (files are mostly read against their
// order: rows are stored bottom up) ends where the row can reach, so that
// the row is in it whole, and the rows before it too; else it starts at the
// bytes.
int window_bytes(ReadFile &file, int32_t y, std::uint64_t at, std::size_t n, std::uint64_t reach,
                 const std::uint8_t **bytes) {
  if (at < file.window_at || at - file.window_at + n > file.window_used) {
    std::uint64_t start = at;
    const std::uint64_t end = std::max<std::uint64_t>(reach, at + n);
    if (at < file.window_at && end - at <= file.window_capacity)
      start = end > file.window_capacity ? end - file.window_capacity : 0;
    file.window_used = 0;
    if (std::fseek(file.stream, static_cast<long>(start), SEEK_SET) != 0)
      return fail(ORX_E_READ, Msg::kCannotRead, y, std::strerror(errno));
    file.window_at = start;
    file.window_used = std::fread(file.window, 1, file.window_capacity, file.stream);
    if (at - start + n > file.window_used) return fail(ORX_E_READ, Msg::kCannotRead, y, "short read");
  }
  *bytes = file.window + (at - file.window_at);
  return 0;
}

// A sequential stream holds the stored rows in ascending order: rows before
// the wanted one are read past, rows already passed cannot be had again.
int read_row_in_sequence(ReadImage &image, int32_t y) {
  if (y < image.stream_row) return fail(ORX_E_BAD_SCANLINE, Msg::kBadScanline, y);
  while (image.stream_row <= y) {
    const int32_t row = image.stream_row;
    if (int status = read_chunks_in_sequence(image, row); status != 0) return status;
    image.stream_row = row + 1;
  }
  return 0;
}

}  // namespace

// Seeking a sequential stream: forward is left to the next read, which reads
// past the rows before it; a stored row already passed cannot be had again,
// so going back is refused as reading it would be (instead of the reopen the
// core would try, which cannot restart standard input or a command's output).
int seek_in_sequence(void *data, int32_t line) {
  auto &image = *static_cast<ReadImage *>(data);
  const int32_t target = line == -1 ? image.window_bottom : line;
  if (std::max(target, image.active_bottom) < image.stream_row)
    return fail(ORX_E_BAD_SCANLINE, Msg::kBadScanline, target);
  orx__err = 0;
  return 0;
}

int read_row(void *data, int32_t y, void *out) {
  auto &image = *static_cast<ReadImage *>(data);
  ReadFile &file = *image.file;
  if (y < image.window_bottom || y > image.window_top)
    return fail(ORX_E_BAD_SCANLINE, Msg::kBadScanline, y);
  if (y < image.active_bottom || y > image.active_top) {
    zero_row(image);
    *static_cast<void ***>(out) = image.buffer;
    orx__err = 0;
    return 0;
  }
  if (file.sequential) {
    if (int status = read_row_in_sequence(image, y); status != 0) return status;
    image.next_row = y + 1;
    *static_cast<void ***>(out) = image.buffer;
    orx__err = 0;
    return 0;
  }
  if (file.current != image.index) {
    file.current = image.index;
    image.next_row = y;
  }
  std::uint64_t at = offset_at(image.table, y - image.active_bottom);
  // A chunk's length is a positive 16-bit number, and at most the decode
  // buffer's size.
  const std::size_t chunk = std::min<std::size_t>(image.decode_size, 32767) + 2;
  const std::uint64_t reach = at + chunk * static_cast<std::size_t>(image.channels);
  const int status = read_chunks(image, y, [&](std::size_t n, const std::uint8_t **bytes) {
    const int got = window_bytes(file, y, at, n, reach, bytes);
    at += n;
    return got;
  });
  if (status != 0) return status;
  image.next_row = y + 1;
  *static_cast<void ***>(out) = image.buffer;
  orx__err = 0;
  return 0;
}

}  // namespace orx::rla
