// The RLA reader's open path: the file test, and the read open that checks
// every header of a file and its offset table and sets up the image's state
// (the header's fields become a descriptor in describe.cpp; rows are read in
// scanlines.cpp).
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
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "core/channels.hpp"
#include "core/info_copy.hpp"
#include "core/limits.hpp"
#include "err/heap.hpp"
#include "err/messages.hpp"
#include "formats/rla/reader_state.hpp"
#include "formats/rla/rle.hpp"
#include "orx/err.h"
#include "orx/limits.h"
#include "orx/orx.h"
#include "orx/rla.h"
#include "orx/str.h"
#include "platform/platform.hpp"

namespace orx::rla {
namespace {

// The window rows are read through: a few dozen rows of a wide image per
// read, and never more than the file.
constexpr std::size_t kReadWindow = std::size_t{1} << 19;

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
  if (file != nullptr) {
    heap::release(file->buffer);
    heap::release(file->window);
  }
  heap::release(file);
  heap::release(states);
}

bool gamma_ok(const char *text) {
  while (*text == ' ' || *text == '\t') ++text;
  return *text == '\0' || STR_is_real(text) != 0;
}

int not_ours(const char *path) {
  fail(ORX_E_NOT_OUR_FILE, Msg::kNotOurFile, path);
  return -1;
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
  if (describe_header(object, index, h, ifd) != 0) return ORX_E_NO_MEMORY;

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
  file->window_capacity = std::min<std::size_t>(kReadWindow, static_cast<std::size_t>(file_size));
  file->window = static_cast<std::uint8_t *>(heap::allocate(file->window_capacity));
  if (file->window == nullptr) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
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
