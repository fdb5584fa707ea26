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

// Decodes one chunk into a channel row; true when it held exactly the row.
bool decode_chunk(const ReadImage &image, int channel, std::size_t len) {
  const Kind kind = image.kinds[channel];
  const std::size_t size = kind_bytes(kind);
  auto *row = static_cast<std::uint8_t *>(image.buffer[channel]);
  std::uint8_t *dst = row + static_cast<std::size_t>(image.left_pad) * size;
  const int n = image.active_width;
  const std::uint8_t *in = image.decode;
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

// Reads and decodes the chunks of row y at the stream's position.
int read_chunks(ReadImage &image, int32_t y) {
  ReadFile &file = *image.file;
  prepare_active_row(image);
  for (int c = 0; c < image.channels; ++c) {
    std::uint8_t length[2];
    if (std::fread(length, 1, 2, file.stream) != 2)
      return fail(ORX_E_READ, Msg::kCannotRead, y, "short read");
    const auto len = static_cast<std::int16_t>(load_be16(length));
    if (len < 0 || static_cast<std::size_t>(len) > image.decode_size)
      return fail(ORX_E_READ, Msg::kCannotRead, y, "chunk too long");
    const auto n = static_cast<std::size_t>(len);
    if (std::fread(image.decode, 1, n, file.stream) != n)
      return fail(ORX_E_READ, Msg::kCannotRead, y, "short read");
    file.position += static_cast<std::uint32_t>(n + 2);
    if (!decode_chunk(image, c, n)) return fail(ORX_E_UNDECODABLE, Msg::kCannotDecode, y);
  }
  return 0;
}

// A sequential stream holds the stored rows in ascending order: rows before
// the wanted one are read past, rows already passed cannot be had again.
int read_row_in_sequence(ReadImage &image, int32_t y) {
  if (y < image.stream_row) return fail(ORX_E_BAD_SCANLINE, Msg::kBadScanline, y);
  while (image.stream_row <= y) {
    const int32_t row = image.stream_row;
    if (int status = read_chunks(image, row); status != 0) return status;
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
  const std::uint32_t offset = offset_at(image.table, y - image.active_bottom);
  if (offset != file.position || !file.synced) {
    if (std::fseek(file.stream, static_cast<long>(offset), SEEK_SET) != 0)
      return fail(ORX_E_READ, Msg::kCannotRead, y, std::strerror(errno));
    file.position = offset;
    file.synced = true;
  }
  // Until the row is complete, a failure leaves the stream inside a chunk.
  file.synced = false;
  if (int status = read_chunks(image, y); status != 0) return status;
  file.synced = true;
  image.next_row = y + 1;
  *static_cast<void ***>(out) = image.buffer;
  orx__err = 0;
  return 0;
}

}  // namespace orx::rla
