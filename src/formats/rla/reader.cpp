// The RLA reader: the file test, the read open that turns every header of a
// file into a per-image descriptor, and the scanline reader.
//
// The reader trusts nothing in the file.  Before the offset table and the
// buffers of an image are allocated, the file must be large enough to hold
// every header read so far with its offset table and one chunk length per
// channel per active row (later images' rows may precede their header, so
// the sizes are summed rather than placed), the image may have no more
// channels than ORX_LIMIT_CHANNELS, and the row buffers of all its images no
// more bytes than ORX_LIMIT_ROW_MEMORY (orx/limits.h).  A tiny file with a
// huge window or channel count fails there, with status -8 and a message
// naming what it lacks, rather than making the library allocate what the
// header claims.  The next-image links must move forward: a link that does
// not point past the previous image's offset table is refused as corrupt
// (message 167), which also ends any cycle.
//
// Rows outside the active window read as zeros.  While no layer sits above
// the reader, nobody writes into its rows, so a buffer already zero is not
// zeroed again and the columns outside the active window are zeroed once:
// a window of thousands of empty rows costs nothing per row.  A layer above
// may transform the rows in place, and then every row is written in full.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/channels.hpp"
#include "core/info_copy.hpp"
#include "core/limits.hpp"
#include "err/heap.hpp"
#include "err/messages.hpp"
#include "formats/rla/channels.hpp"
#include "formats/rla/header.hpp"
#include "formats/rla/rle.hpp"
#include "formats/rla/stream.hpp"
#include "orx/err.h"
#include "orx/fmt.h"
#include "orx/limits.h"
#include "orx/orx.h"
#include "orx/rla.h"
#include "orx/str.h"
#include "platform/platform.hpp"

namespace orx::rla {
namespace {

// What all images of one open file share.
struct ReadFile {
  const ORX_OBJECT *object = nullptr;  // whose scan slot tells whether a layer sits above
  std::FILE *stream = nullptr;
  char *buffer = nullptr;      // the stream's buffer, released after closing
  std::uint32_t position = 0;  // the stream's offset, so in-order reads make no seeks
  bool synced = true;          // false after a failed row left the stream elsewhere
  int current = 0;             // the image whose rows were read last
  bool is_stdin = false;
  bool sequential = false;     // a stream that cannot seek: rows in file order only
  CloseStream close_stream = nullptr;  // how a sequential stream is closed
  // Bytes of row buffers the images read so far demand.
  std::uint64_t row_memory = 0;
};

// One image of the file.
struct ReadImage {
  ReadFile *file = nullptr;
  int index = 0;
  int channels = 0;
  Kind *kinds = nullptr;
  void **buffer = nullptr;  // channel scanline buffer handed to callers
  int width = 0;
  int window_bottom = 0, window_top = 0;
  int active_bottom = 0, active_top = 0;
  int active_width = 0;
  int left_pad = 0, right_pad = 0;
  std::size_t decode_size = 0;
  std::uint8_t *table = nullptr;  // offsets as stored, one per active row
  std::uint8_t *decode = nullptr;
  int next_row = 0;
  int stream_row = 0;  // next stored row of a sequential stream
  long table_position = 0;
  bool zeros = true;       // the whole channel buffer holds zeros
  bool pads_zero = true;   // the columns outside the active window hold zeros
};

// Images read so far and their descriptors, grown by one per header.
struct Images {
  ReadImage *states = nullptr;
  int count = 0;
};

void release_image(ReadImage &image) {
  orx__chan_free(image.buffer);
  heap::release(image.decode);
  heap::release(image.table);
  heap::release(image.kinds);
  image = ReadImage{};
}

void release_all(ReadImage *states, int count) {
  if (states == nullptr) return;
  ReadFile *file = states[0].file;
  for (int i = 0; i < count; ++i) release_image(states[i]);
  if (file != nullptr && file->stream != nullptr && !file->is_stdin) {
    if (!file->sequential) {
      std::fclose(file->stream);
    } else if (file->close_stream != nullptr && file->close_stream(file->stream) != 0 &&
               orx::err::last_status() == 0) {
      // Reported only when nothing failed before: an earlier failure is the cause.
      fail(ORX_E_READ, Msg::kCannotRead, states[0].stream_row, "the stream ended in failure");
    }
  }
  if (file != nullptr) heap::release(file->buffer);
  heap::release(file);
  heap::release(states);
}

bool gamma_ok(const char *text) {
  while (*text == ' ' || *text == '\t') ++text;
  return *text == '\0' || STR_is_real(text) != 0;
}

// Replaces *field with a copy of text; false (reported, -10) when memory is short.
bool save(char **field, const char *text) {
  char *copy = STR_save(text);
  if (copy == nullptr) {
    fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
    return false;
  }
  heap::release(*field);
  *field = copy;
  return true;
}

// What the text holds of x and y replaces them (a half-written field
// changes x only), and z follows.  A blank field says nothing: the record
// keeps its placeholder values, which stand for "not known".
void chromaticity(const char *text, float *xyz) {
  if (std::sscanf(text, "%f %f", &xyz[0], &xyz[1]) >= 1) xyz[2] = 1.0f - xyz[0] - xyz[1];
}

int not_ours(const char *path) {
  fail(ORX_E_NOT_OUR_FILE, Msg::kNotOurFile, path);
  return -1;
}

// Resolution and aspect ratio: those of the named format when the format
// database knows it, else the window's size with the stored ratio (or the
// window's shape when the stored ratio is not a positive number).
void describe_aspect(const Header &h, ORX_IFD &ifd) {
  if (const FMT_FORMAT *format = FMT_find(h.aspect.data())) {
    ifd.x_resolution = format->x_resolution;
    ifd.y_resolution = format->y_resolution;
    ifd.aspect_ratio = format->aspect;
    return;
  }
  const int width = ifd.window.right - ifd.window.left + 1;
  const int height = ifd.window.top - ifd.window.bottom + 1;
  ifd.x_resolution = width;
  ifd.y_resolution = height;
  float stored = 0.0f;
  const char *text = STR_skip_space(h.aspect_ratio.data());
  if (text != nullptr && *text != '\0' && STR_is_real(text)) stored = std::strtof(text, nullptr);
  ifd.aspect_ratio = stored > 0.0f   ? stored
                     : height > 0    ? static_cast<float>(width) / static_cast<float>(height)
                                     : 1.0f;
}

// The descriptor and object fields that come from header h of image index.
int describe(ORX_OBJECT *object, int index, const Header &h, ORX_IFD &ifd) {
  ifd.version = index == 0 ? 1 : 2;
  ifd.window = {h.window.left, h.window.right, h.window.bottom, h.window.top};
  ifd.active = {h.active.left, h.active.right, h.active.bottom, h.active.top};
  ORX_CHANNELS *groups[] = {&ifd.image, &ifd.matte, &ifd.aux};
  const ChannelGroup *stored[] = {&h.image, &h.matte, &h.aux};
  for (int g = 0; g < 3; ++g) {
    groups[g]->count = stored[g]->count;
    groups[g]->type = stored[g]->type;
    groups[g]->bits = stored[g]->bits;
  }
  ifd.field = h.field;
  ifd.curve.gamma = static_cast<float>(std::atof(h.gamma.data()));
  // Older layouts have no auxiliary description at all.
  if (!save(&ifd.aspect, h.aspect.data()) || !save(&ifd.image.name, h.channel_desc.data()) ||
      (h.revision == kCurrentRevision && !save(&ifd.aux.name, h.aux_desc.data())))
    return ORX_E_NO_MEMORY;
  describe_aspect(h, ifd);
  ORX_INFO &info = object->info;
  info.frame = h.frame;
  info.job = h.job;
  // Like the frame and job numbers, the time and filter of the last header
  // read stand for the file.
  if (!save(&info.time, h.time.data()) || !save(&info.filter, h.filter.data()))
    return ORX_E_NO_MEMORY;
  if (index != 0) return 0;
  char date[kDateTextSize];
  const char *date_text = expand_date(h.date.data(), date) ? date : h.date.data();
  if (!save(&info.name, h.name.data()) || !save(&info.desc, h.desc.data()) ||
      !save(&info.program, h.program.data()) || !save(&info.machine, h.machine.data()) ||
      !save(&info.user, h.user.data()) || !save(&info.date, date_text))
    return ORX_E_NO_MEMORY;
  chromaticity(h.red.data(), info.red);
  chromaticity(h.green.data(), info.green);
  chromaticity(h.blue.data(), info.blue);
  chromaticity(h.white.data(), info.white);
  return save(&info.compression, "run length encoded") ? 0 : ORX_E_NO_MEMORY;
}

int over_limit(const char *path, std::int32_t which, std::uint64_t need, const char *what) {
  return fail(ORX_E_NOT_OUR_FILE, Msg::kLimitExceeded, path, static_cast<unsigned long long>(need),
              what, static_cast<unsigned long long>(ORX_limit(which)),
              core::limit_variable(which));
}

// Whether the library may give image its buffers before anything its
// header sizes is allocated; 0, or -8 after a report.  A file too short for
// its offset table fails when the table is read; rows the file lacks fail
// when they are read.
int check_demands(const char *path, const ReadImage &image, const ORX_IFD &ifd) {
  ReadFile &file = *image.file;
  const auto channels = static_cast<std::uint64_t>(image.channels);
  if (static_cast<std::int64_t>(channels) > ORX_limit(ORX_LIMIT_CHANNELS))
    return over_limit(path, ORX_LIMIT_CHANNELS, channels, "channels");
  // The decode buffer is at most 16 bytes a sample, whatever the widths.
  file.row_memory += core::channel_block_bytes(ifd, image.width) +
                     decode_buffer_size(image.active_width, 64);
  if (static_cast<std::int64_t>(file.row_memory) > ORX_limit(ORX_LIMIT_ROW_MEMORY))
    return over_limit(path, ORX_LIMIT_ROW_MEMORY, file.row_memory, "bytes of row buffers");
  return 0;
}

// Reads the header at the stream's position as image `index` into the last
// state and descriptor.  Returns 0, or -1 / -10 after a report.
int read_header(ORX_OBJECT *object, const char *path, long *end, Images &images,
                Header &h) {
  const int index = images.count - 1;
  ReadImage &image = images.states[index];
  ORX_IFD &ifd = object->info.images[index];
  ReadFile &file = *image.file;
  long at = file.sequential ? static_cast<long>(file.position) : std::ftell(file.stream);
  HeaderBytes bytes;
  if (at < 0 || std::fread(bytes, 1, kHeaderSize, image.file->stream) != kHeaderSize)
    return not_ours(path);
  decode_header(bytes, is_rlb(object), &h);
  if (!header_valid(h, MatteStorageRule::kSkip) || !gamma_ok(h.gamma.data()))
    return not_ours(path);
  if (describe(object, index, h, ifd) != 0) return ORX_E_NO_MEMORY;

  image.channels = channel_total(ifd);
  image.width = h.window.right - h.window.left + 1;
  image.window_bottom = h.window.bottom;
  image.window_top = h.window.top;
  image.active_bottom = h.active.bottom;
  image.active_top = h.active.top;
  image.active_width = h.active.right - h.active.left + 1;
  image.left_pad = h.active.left - h.window.left;
  image.right_pad = h.window.right - h.active.right;
  image.next_row = h.window.bottom;
  image.stream_row = h.active.bottom;
  const int rows = active_rows(h);
  const std::size_t table_size = offset_table_size(rows);
  if (int status = check_demands(path, image, ifd); status != 0)
    return status;
  image.table = static_cast<std::uint8_t *>(heap::allocate(table_size > 0 ? table_size : 1));
  if (image.table == nullptr) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  image.table_position = at + static_cast<long>(kHeaderSize);
  if (std::fread(image.table, 1, table_size, image.file->stream) != table_size)
    return not_ours(path);
  *end = image.table_position + static_cast<long>(table_size);
  if (file.sequential) file.position = static_cast<std::uint32_t>(*end);

  const char *who = format_name(object);
  image.kinds = static_cast<Kind *>(
      heap::allocate(static_cast<std::size_t>(image.channels > 0 ? image.channels : 1)));
  if (image.kinds == nullptr) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  int max_bits = 0;
  if (!channel_kinds(ifd, who, image.kinds, &max_bits)) return -1;
  image.decode_size = decode_buffer_size(image.active_width, max_bits);
  image.decode = static_cast<std::uint8_t *>(heap::allocate(image.decode_size));
  if (image.decode == nullptr) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  image.buffer = orx__chan_alloc(&ifd, image.width, who);
  if (image.buffer != nullptr) return 0;
  // The buffer's own refusals are reported; its memory shortage is not.
  const int32_t status = orx::err::last_status();
  if (status == 0 || status == ORX_E_NO_MEMORY) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  return status;
}

// Grows the state and descriptor arrays by one, the new entries initialised.
bool grow(ORX_OBJECT *object, Images &images, ReadFile *file) {
  const auto n = static_cast<std::size_t>(images.count) + 1;
  auto *states = static_cast<ReadImage *>(heap::reallocate(images.states, n * sizeof(ReadImage)));
  if (states == nullptr) return false;
  images.states = states;
  states[n - 1] = ReadImage{};
  states[n - 1].file = file;
  states[n - 1].index = images.count;
  ORX_INFO &info = object->info;
  auto *ifds = static_cast<ORX_IFD *>(heap::reallocate(info.images, n * sizeof(ORX_IFD)));
  if (ifds == nullptr) return false;
  info.images = ifds;
  orx__init_ifd(&ifds[n - 1]);
  info.image_count = static_cast<int32_t>(n);
  images.count = static_cast<int>(n);
  return true;
}

std::FILE *open_named(ORX_OBJECT *object, const char **path) {
  const char *name = object->info.handle != nullptr ? object->info.handle : "";
  if (object->info.full_path != 0) {
    *path = name;
    return std::fopen(name, "rb");
  }
  *path = orx__build_handle(nullptr, name, format_extension(object));
  std::FILE *stream = std::fopen(*path, "rb");
  if (stream != nullptr) return stream;
  *path = orx__build_handle(platform::get_env("KV_IMG_DIR"), name, format_extension(object));
  return std::fopen(*path, "rb");
}

int open_images(ORX_OBJECT *object, Images &images) {
  auto *file = static_cast<ReadFile *>(heap::allocate(sizeof(ReadFile)));
  if (file == nullptr) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  *file = ReadFile{};
  file->object = object;
  if (!grow(object, images, file)) {
    if (images.states == nullptr) heap::release(file);  // else the first state holds it
    return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  }
  const char *name = object->info.handle;
  if (name != nullptr && std::strcmp(name, "/dev/stdin") == 0) {
    // Deliberately refused without a report: the reader must seek.
    file->stream = stdin;
    file->is_stdin = true;
    orx__err = ORX_E_FIELD_MISSING;
    return ORX_E_FIELD_MISSING;
  }
  const char *path = nullptr;
  file->stream = open_named(object, &path);
  if (file->stream == nullptr)
    return fail(ORX_E_FIELD_MISSING, Msg::kCannotOpen, path, std::strerror(errno));
  file->buffer = buffer_stream(file->stream);
  if (file->buffer == nullptr) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  long file_size = -1;
  if (std::fseek(file->stream, 0, SEEK_END) == 0) file_size = std::ftell(file->stream);
  if (file_size < 0 || std::fseek(file->stream, 0, SEEK_SET) != 0) return not_ours(path);

  Header h;
  long end = 0;
  for (;;) {
    int status = read_header(object, path, &end, images, h);
    if (status != 0) return status;
    if (h.next == 0) break;
    if (static_cast<long long>(h.next) < end || h.next > static_cast<std::uint32_t>(file_size))
      return not_ours(path);
    if (std::fseek(file->stream, static_cast<long>(h.next), SEEK_SET) != 0) return not_ours(path);
    if (!grow(object, images, file)) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  }
  auto **cell =
      static_cast<void **>(heap::allocate(static_cast<std::size_t>(images.count) * sizeof(void *)));
  if (cell == nullptr) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  for (int i = 0; i < images.count; ++i) cell[i] = &images.states[i];
  heap::release(object->private_cell);
  object->private_cell = cell;
  file->current = 0;
  file->position = static_cast<std::uint32_t>(std::ftell(file->stream));
  return 0;
}

int read_row(void *data, int32_t y, void *out);

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

}  // namespace

namespace {

int open_stream_images(ORX_OBJECT *object, Images &images, std::FILE *stream,
                       CloseStream close) {
  auto *file = static_cast<ReadFile *>(heap::allocate(sizeof(ReadFile)));
  if (file == nullptr) {
    if (close != nullptr) close(stream);
    return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  }
  *file = ReadFile{};
  file->object = object;
  file->stream = stream;
  file->sequential = true;
  file->close_stream = close;
  file->is_stdin = close == nullptr;
  if (!grow(object, images, file)) {
    if (images.states == nullptr) {
      if (close != nullptr) close(stream);
      heap::release(file);
    }
    return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  }
  // Standard input outlives the object and keeps its own buffer: one given
  // here would be freed at close while stdin still points into it, and
  // replacing a buffer that holds read-ahead drops the bytes of whatever
  // follows the image in the stream.
  if (close != nullptr) {
    file->buffer = buffer_stream(stream);
    if (file->buffer == nullptr) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  }
  const char *name = object->info.handle != nullptr ? object->info.handle : "-";
  Header h;
  long end = 0;
  // Only the first image: later headers follow their rows in the stream.
  if (int status = read_header(object, name, &end, images, h); status != 0)
    return status;
  auto **cell = static_cast<void **>(heap::allocate(sizeof(void *)));
  if (cell == nullptr) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  cell[0] = &images.states[0];
  heap::release(object->private_cell);
  object->private_cell = cell;
  return 0;
}

}  // namespace

int read_open_stream(ORX_OBJECT *object, std::FILE *stream, CloseStream close) {
  if (object == nullptr || stream == nullptr) return 0;
  object->info.image_count = 0;
  Images images;
  if (open_stream_images(object, images, stream, close) != 0) {
    release_all(images.states, images.count);
    return 0;
  }
  object->scan = read_row;
  object->seek = seek_in_sequence;
  object->close = close_object;
  return 1;
}

void release_reader(ORX_OBJECT *object) {
  if (object->private_cell == nullptr || object->private_cell[0] == nullptr) return;
  release_all(static_cast<ReadImage *>(object->private_cell[0]), object->info.image_count);
}

}  // namespace orx::rla

extern "C" {

int ORX_rla_is_file(const char *path, FILE *stream) {
  using namespace orx::rla;
  std::FILE *in = stream;
  if (in == nullptr) {
    if (path == nullptr || (in = std::fopen(path, "rb")) == nullptr) return 0;
  } else {
    std::rewind(in);
  }
  HeaderBytes bytes;
  bool full = std::fread(bytes, 1, kHeaderSize, in) == kHeaderSize;
  if (stream == nullptr) std::fclose(in);
  if (!full) return 0;
  Header h;
  decode_header(bytes, false, &h);
  return header_valid(h, MatteStorageRule::kApply) ? 1 : 0;
}

int ORX_rla_r_open(ORX_OBJECT *object) {
  using namespace orx::rla;
  if (object == nullptr) return 0;
  object->info.image_count = 0;
  Images images;
  if (open_images(object, images) != 0) {
    release_all(images.states, images.count);
    // A failed open leaves no image behind: the descriptors read so far go.
    ORX_INFO &info = object->info;
    for (int32_t i = 0; info.images != nullptr && i < info.image_count; ++i)
      orx::core::release_image(&info.images[i]);
    orx::heap::release(info.images);
    info.images = nullptr;
    info.image_count = 0;
    return 0;
  }
  object->scan = read_row;
  object->close = close_object;
  return 1;
}

}  // extern "C"
