// The RLA writer: the write open that creates the file and writes the first
// header, the row writer, and the completion of the file on close (headers
// of later images, next-image links, offset tables, elapsed time).
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "err/heap.hpp"
#include "err/messages.hpp"
#include "formats/rla/channels.hpp"
#include "formats/rla/header.hpp"
#include "formats/rla/rle.hpp"
#include "formats/rla/stream.hpp"
#include "orx/attributes.h"
#include "orx/err.h"
#include "orx/orx.h"
#include "orx/rla.h"
#include "platform/platform.hpp"

namespace orx::rla {
namespace {

// What all images of one written file share.
struct WriteFile {
  std::FILE *stream = nullptr;
  char *buffer = nullptr;  // the stream's buffer, released after closing
  bool to_stdout = false;  // a stream that cannot seek back: nothing is patched
  CloseStream close_stream = nullptr;  // how a given stream is closed at the end
  platform::CreatedFile created;       // what a failed open may remove
  double start = 0.0;  // tick seconds at open
  // The stream's offset while rows are appended (-1: not known, ask the
  // stream), so that a row's offset costs no system call.
  long position = -1;
};

struct WriteImage {
  WriteFile *file = nullptr;
  bool header_pending = true;
  int channels = 0;
  Kind *kinds = nullptr;
  int window_bottom = 0, window_top = 0;
  int active_bottom = 0, active_top = 0;
  int active_width = 0, active_height = 0;
  int left_pad = 0;
  int next_row = 0;
  std::uint8_t *table = nullptr;  // offsets as stored, one per active row
  std::uint8_t *encode = nullptr;
  std::size_t encode_size = 0;
  long header_position = 0;
  std::uint8_t header_link[4] = {};  // header_position big-endian, for the previous next field
  long table_position = 0;
};

constexpr long kTimeOffset = static_cast<long>(layout::kTime.offset);

template <std::size_t N>
void put_text(std::array<char, N> &dst, const char *text) {
  dst.fill('\0');
  if (text != nullptr) std::strncpy(dst.data(), text, N - 1);
}

std::int16_t clamp_frame(int32_t frame) {
  if (frame > 32767) return 32767;
  if (frame < -1) return 0;  // deliberate: -1 itself stays, as FF FF
  return static_cast<std::int16_t>(frame);
}

std::int16_t clamp16(int32_t v) {
  return static_cast<std::int16_t>(v < -32768 ? -32768 : v > 32767 ? 32767 : v);
}

void put_group(ChannelGroup &group, const ORX_CHANNELS &channels) {
  group.count = clamp16(channels.count > 0 ? channels.count : 0);
  group.storage = storage_code(channels.type);
  group.bits = channels.type == ORX_C_FLOAT    ? 32
               : channels.type == ORX_C_DOUBLE ? 64
                                               : clamp16(channels.bits);
}

void put_xy(std::array<char, layout::kRedPrimary.size + 1> &dst, const float *xyz) {
  std::snprintf(dst.data(), dst.size(), "%7.4f %7.4f", static_cast<double>(xyz[0]),
                static_cast<double>(xyz[1]));
}

// Whether the record's chromaticities say anything: a record starts with
// placeholder values (ORX_info_init) that stand for "not known", and RLA has
// no colour space of its own to fall back on, so those leave the four
// fields blank, as a file without colour information has them.
bool chromaticities_known(const ORX_INFO &info) {
  ORX_INFO fresh;
  ORX_info_init(&fresh);
  const float *have[] = {info.red, info.green, info.blue, info.white};
  const float *placeholder[] = {fresh.red, fresh.green, fresh.blue, fresh.white};
  bool known = false;
  for (int i = 0; i < 4; ++i)
    for (int k = 0; k < 2; ++k) known = known || std::fabs(have[i][k] - placeholder[i][k]) > 1e-4f;
  ORX_info_cleanup(&fresh, 0);
  return known;
}

void build_header(const ORX_OBJECT *object, int index, Header &h) {
  const ORX_INFO &info = object->info;
  const ORX_IFD &ifd = info.images[index];
  h = Header{};
  // RLA coordinates are not negative: a window reaching below zero (an
  // OpenEXR overscan) is stored moved to zero, every pixel kept.
  const int32_t dx = ifd.window.left < 0 ? -ifd.window.left : 0;
  const int32_t dy = ifd.window.bottom < 0 ? -ifd.window.bottom : 0;
  h.window = {clamp16(ifd.window.left + dx), clamp16(ifd.window.right + dx),
              clamp16(ifd.window.bottom + dy), clamp16(ifd.window.top + dy)};
  h.active = {clamp16(ifd.active.left + dx), clamp16(ifd.active.right + dx),
              clamp16(ifd.active.bottom + dy), clamp16(ifd.active.top + dy)};
  h.frame = clamp_frame(info.frame);
  put_group(h.image, ifd.image);
  put_group(h.matte, ifd.matte);
  put_group(h.aux, ifd.aux);
  h.job = info.job;
  std::snprintf(h.gamma.data(), h.gamma.size(), "%7.4f", static_cast<double>(ifd.curve.gamma));
  if (chromaticities_known(info)) {
    put_xy(h.red, info.red);
    put_xy(h.green, info.green);
    put_xy(h.blue, info.blue);
    put_xy(h.white, info.white);
  }
  put_text(h.name, info.name);
  put_text(h.desc, info.desc);
  put_text(h.program, info.program);
  put_text(h.machine, info.machine);
  put_text(h.user, info.user);
  put_text(h.date, info.date);
  put_text(h.aspect, ifd.aspect);
  put_text(h.channel_desc, ifd.image.name);
  h.field = clamp16(ifd.field);
  put_text(h.time, info.time);
  put_text(h.filter, info.filter);
  put_text(h.aux_desc, ifd.aux.name);
  // Without an aspect ratio of its own the image's is the window's shape.
  const int width = ifd.window.right - ifd.window.left + 1;
  const int height = ifd.window.top - ifd.window.bottom + 1;
  const double ratio = ifd.aspect_ratio > 0.0f ? double{ifd.aspect_ratio}
                       : height > 0            ? static_cast<double>(width) / height
                                               : 1.0;
  std::snprintf(h.aspect_ratio.data(), h.aspect_ratio.size(), "%5.3f", ratio);
  h.next = 0;
}

int write_failed(const ORX_OBJECT *object) {
  const char *name = object->info.handle != nullptr ? object->info.handle : "";
  fail(ORX_E_WRITE, Msg::kCannotWriteTo, name, std::strerror(errno));
  return -1;
}

int write_header(const ORX_OBJECT *object, WriteImage &image, int index) {
  std::FILE *stream = image.file->stream;
  long at = std::ftell(stream);
  image.header_position = at > 0 ? at : 0;
  store_be32(image.header_link, static_cast<std::uint32_t>(image.header_position));
  Header h;
  build_header(object, index, h);
  HeaderBytes bytes;
  encode_header(h, bytes);
  if (std::fwrite(bytes, 1, kHeaderSize, stream) != kHeaderSize) return write_failed(object);
  image.table_position = image.header_position + static_cast<long>(kHeaderSize);
  const std::size_t size = offset_table_size(image.active_height);
  if (std::fwrite(image.table, 1, size, stream) != size) return write_failed(object);
  image.file->position = at >= 0 ? image.table_position + static_cast<long>(size) : -1;
  return 0;
}

void release_images(WriteImage *states, int count) {
  if (states == nullptr) return;
  for (int i = 0; i < count; ++i) {
    heap::release(states[i].kinds);
    heap::release(states[i].table);
    heap::release(states[i].encode);
  }
  heap::release(states[0].file);
  heap::release(states);
}

// Fills image's state from its descriptor; 0 or a negative status (reported).
int fill_state(const ORX_OBJECT *object, const ORX_IFD &ifd, WriteImage &image) {
  image.channels = channel_total(ifd);
  image.window_bottom = ifd.window.bottom;
  image.window_top = ifd.window.top;
  image.active_bottom = ifd.active.bottom;
  image.active_top = ifd.active.top;
  image.active_width = ifd.active.right - ifd.active.left + 1;
  image.active_height = ifd.active.top - ifd.active.bottom + 1;
  if (image.active_width < 0) image.active_width = 0;
  if (image.active_height < 0) image.active_height = 0;
  image.left_pad = ifd.active.left - ifd.window.left;
  if (image.left_pad < 0) image.left_pad = 0;
  image.next_row = ifd.window.bottom;
  const std::size_t table_size = offset_table_size(image.active_height);
  image.table = static_cast<std::uint8_t *>(heap::allocate(table_size > 0 ? table_size : 1));
  image.kinds = static_cast<Kind *>(
      heap::allocate(static_cast<std::size_t>(image.channels > 0 ? image.channels : 1)));
  if (image.table == nullptr || image.kinds == nullptr) return ORX_E_NO_MEMORY;
  std::memset(image.table, 0, table_size);
  int max_bits = 0;
  if (!channel_kinds(ifd, format_name(object), image.kinds, &max_bits)) return ORX_E_UNSUPPORTED;
  image.encode_size = encode_buffer_size(image.active_width, max_bits) + 2;
  image.encode = static_cast<std::uint8_t *>(heap::allocate(image.encode_size));
  return image.encode == nullptr ? ORX_E_NO_MEMORY : 0;
}

std::size_t encode_channel(const WriteImage &image, int channel, const void *row,
                           std::uint8_t *out) {
  const Kind kind = image.kinds[channel];
  const auto *src = static_cast<const std::uint8_t *>(row) +
                    static_cast<std::size_t>(image.left_pad) * kind_bytes(kind);
  const int n = image.active_width;
  switch (kind) {
    case Kind::kInt8: return encode_row<1>(src, n, out);
    case Kind::kInt16: return encode_row<2>(reinterpret_cast<const std::uint16_t *>(src), n, out);
    case Kind::kInt32: return encode_row<4>(reinterpret_cast<const std::uint32_t *>(src), n, out);
    case Kind::kFloat: return encode_raw<float>(reinterpret_cast<const float *>(src), n, out);
    case Kind::kDouble: return encode_raw<double>(reinterpret_cast<const double *>(src), n, out);
  }
  return 0;
}

int write_row(void *data, int32_t y, void *channels) {
  auto &image = *static_cast<WriteImage *>(data);
  if (y != image.next_row) return fail(ORX_E_BAD_SCANLINE, Msg::kBadScanline, y);
  if (y >= image.active_bottom && y <= image.active_top) {
    WriteFile &file = *image.file;
    if (file.position < 0) file.position = std::ftell(file.stream);
    const long at = file.position;
    set_offset(image.table, y - image.active_bottom, static_cast<std::uint32_t>(at > 0 ? at : 0));
    auto **rows = static_cast<void **>(channels);
    for (int c = 0; c < image.channels; ++c) {
      const std::size_t n = encode_channel(image, c, rows[c], image.encode + 2);
      store_be16(image.encode, static_cast<std::uint16_t>(n));
      if (std::fwrite(image.encode, 1, n + 2, file.stream) != n + 2) {
        file.position = -1;
        return fail(ORX_E_WRITE, Msg::kCannotWriteScanline, y, std::strerror(errno));
      }
      if (file.position >= 0) file.position += static_cast<long>(n + 2);
    }
  }
  ++image.next_row;
  orx__err = 0;
  return 0;
}

int open_file(ORX_OBJECT *object, WriteImage *states, const char **path) {
  WriteFile &file = *states[0].file;
  const char *name = object->info.handle != nullptr ? object->info.handle : "";
  if (file.stream != nullptr) {  // given by the caller
    *path = nullptr;
    // A stream the object will close gets a large buffer; standard output
    // outlives the object and keeps its own.
    if (file.close_stream == nullptr) return 0;
    file.buffer = buffer_stream(file.stream);
    return file.buffer != nullptr ? 0 : fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  }
  if (std::strcmp(name, "/dev/stdout") == 0) {
    file.stream = stdout;
    file.to_stdout = true;
    *path = nullptr;
    return 0;
  }
  *path = object->info.full_path != 0
              ? name
              : orx__build_handle(platform::get_env("KV_IMG_DIR"), name, format_extension(object));
  file.stream = platform::create_file(*path, &file.created);
  if (file.stream == nullptr)
    return fail(ORX_E_FIELD_MISSING, Msg::kCannotOpen, *path, std::strerror(errno));
  file.buffer = buffer_stream(file.stream);
  if (file.buffer == nullptr) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  return 0;
}

int open_images(ORX_OBJECT *object, WriteImage *states, int count, const char **path) {
  int status = open_file(object, states, path);
  if (status != 0) return status;
  states[0].file->start = platform::tick_seconds();
  for (int i = 0; i < count; ++i) {
    status = fill_state(object, object->info.images[i], states[i]);
    if (status == ORX_E_NO_MEMORY) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
    if (status != 0) return status;
    // Float and double samples are stored at their full width whatever was
    // declared, and the description says so.
    ORX_IFD &ifd = object->info.images[i];
    if ((ifd.window.left < 0 || ifd.window.bottom < 0) &&
        ORX_attr_set_string(&object->info, i, "orx:narrowed",
                            "a window below zero stored moved to zero") != 0)
      return ORX_E_NO_MEMORY;
    for (ORX_CHANNELS *g : {&ifd.image, &ifd.matte, &ifd.aux}) {
      if (g->type == ORX_C_FLOAT) g->bits = 32;
      if (g->type == ORX_C_DOUBLE) g->bits = 64;
    }
  }
  return write_header(object, states[0], 0) != 0 ? ORX_E_WRITE : 0;
}

bool seek_write(std::FILE *stream, long at, const void *bytes, std::size_t size) {
  return std::fseek(stream, at, SEEK_SET) == 0 && std::fwrite(bytes, 1, size, stream) == size;
}

// Headers of later images, next-image links and image 0's table; false
// after a report when a header could not be written.
bool complete(const ORX_OBJECT *object, WriteImage *states, int count) {
  WriteFile &file = *states[0].file;
  file.position = -1;  // the stream seeks from here on
  if (states[0].header_pending) {
    for (int i = 1; i < count; ++i) {
      if (!file.to_stdout && std::fseek(file.stream, 0, SEEK_END) != 0) {
        write_failed(object);
        return false;
      }
      if (write_header(object, states[i], i) != 0) return false;
    }
    for (int i = 0; i + 1 < count && !file.to_stdout; ++i) {
      if (states[i].table_position <= 0) continue;
      seek_write(file.stream, states[i].table_position - 4, states[i + 1].header_link, 4);
    }
    for (int i = 0; i < count; ++i) states[i].header_pending = false;
  }
  if (states[0].table_position > 0 && !file.to_stdout)
    seek_write(file.stream, states[0].table_position, states[0].table,
               offset_table_size(states[0].active_height));
  const auto elapsed = static_cast<long>(platform::tick_seconds() - file.start);
  char stamp[layout::kTime.size] = {};
  std::snprintf(stamp, sizeof stamp, "%02d:%02d:%02d", static_cast<int>(elapsed / 3600),
                static_cast<int>(elapsed / 60 % 60), static_cast<int>(elapsed % 60));
  // Not on standard output or a given stream: even when one can seek (output
  // redirected to a file), going back would leave its position inside this
  // header, and whatever is written next would overwrite the image.
  if (!file.to_stdout) seek_write(file.stream, kTimeOffset, stamp, sizeof stamp);
  return true;
}

}  // namespace

void finish_writer(ORX_OBJECT *object) {
  if (object->private_cell == nullptr || object->private_cell[0] == nullptr) return;
  auto *states = static_cast<WriteImage *>(object->private_cell[0]);
  const int count = object->info.image_count;
  WriteFile *file = states[0].file;
  std::FILE *stream = file->stream;
  char *buffer = file->buffer;
  const bool standard = file->to_stdout;
  const CloseStream close_stream = file->close_stream;
  complete(object, states, count);
  const int status = orx::err::last_status();
  release_images(states, count);
  object->private_cell[0] = nullptr;
  if (standard) {
    std::fflush(stream);
    const bool closed = close_stream == nullptr || close_stream(stream) == 0;
    heap::release(buffer);
    if (!closed) {
      write_failed(object);
      return;
    }
  } else {
    const bool closed = std::fclose(stream) == 0;
    heap::release(buffer);
    if (!closed) {
      write_failed(object);
      return;
    }
  }
  orx__err = status;
}

}  // namespace orx::rla

namespace orx::rla {
namespace {

// Both opens: a named file, or a stream the caller gives (stream not null).
int write_open(ORX_OBJECT *object, std::FILE *stream, CloseStream close) {
  if (object == nullptr) return 0;
  const int count = object->info.image_count;
  if (count <= 0 || object->info.images == nullptr) {
    if (stream != nullptr && close != nullptr) close(stream);
    orx__err = ORX_E_FIELD_MISSING;
    return 0;
  }
  object->scan = write_row;
  object->close = close_object;
  const auto n = static_cast<std::size_t>(count);
  auto **cell = static_cast<void **>(orx::heap::allocate(n * sizeof(void *)));
  auto *states = static_cast<WriteImage *>(orx::heap::allocate(n * sizeof(WriteImage)));
  auto *file = static_cast<WriteFile *>(orx::heap::allocate(sizeof(WriteFile)));
  if (cell == nullptr || states == nullptr || file == nullptr) {
    orx::heap::release(cell);
    orx::heap::release(states);
    orx::heap::release(file);
    if (stream != nullptr && close != nullptr) close(stream);
    fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
    return 0;
  }
  *file = WriteFile{};
  file->stream = stream;
  file->to_stdout = stream != nullptr;
  file->close_stream = close;
  for (std::size_t i = 0; i < n; ++i) {
    states[i] = WriteImage{};
    states[i].file = file;
    cell[i] = &states[i];
  }
  const char *path = nullptr;
  if (open_images(object, states, count, &path) != 0) {
    if (file->stream != nullptr && !file->to_stdout) {
      std::fclose(file->stream);
      orx::heap::release(file->buffer);
      // Only a regular file this open created: never a device, a link or a
      // file that was there before.
      orx::platform::remove_created_file(path, file->created);
    } else if (file->close_stream != nullptr) {
      file->close_stream(file->stream);
      orx::heap::release(file->buffer);
    }
    release_images(states, count);
    orx::heap::release(cell);
    return 0;
  }
  orx::heap::release(object->private_cell);
  object->private_cell = cell;
  // An RLA header has no place for attributes: the object keeps none, which
  // tells the host that they are dropped.
  static const char *const kKept[] = {nullptr};
  ORX_attr_keep(&object->info, kKept);
  return 1;
}

}  // namespace

int write_open_stream(ORX_OBJECT *object, std::FILE *stream, CloseStream close) {
  if (stream == nullptr) return 0;
  return write_open(object, stream, close);
}

}  // namespace orx::rla

extern "C" int ORX_rla_w_open(ORX_OBJECT *object) {
  return orx::rla::write_open(object, nullptr, nullptr);
}
