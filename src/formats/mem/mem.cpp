// "mem": an in-process image store.  Writing a handle keeps the image
// (header strings, descriptors and every scanline) under that handle once
// the object is closed, replacing an older one; reading hands it back with
// lines in any order.  Hosts use it to pass images between stages without
// touching disk.
//
// The store and the reference counts change only in open and close, which
// run under the library mutex; scans touch nothing but the image's own
// lines, which no longer change once stored.
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <utility>

#include "core/info_copy.hpp"
#include "err/heap.hpp"
#include "err/messages.hpp"
#include "formats/builtin.hpp"
#include "orx/attributes.h"
#include "orx/err.h"

namespace orx::formats {
namespace {

constexpr const char *kWho = "mem";

// One stored image file: what was written, with its lines.
struct Stored {
  char *handle;
  ORX_INFO info;
  unsigned char **lines;  // per image: rows of one channel-buffer block each
  int32_t count;          // entries of lines
  int32_t refs;           // the store's own, plus one per open reader
  Stored *next;
};

Stored *g_store = nullptr;

// Per-image state of an open object.
struct Image {
  Stored *stored;  // the reader's image file; the writer's until it is stored
  int32_t index;
  // The channel groups as they were at open: layers pushed later may retype
  // the description, but the stored lines keep the layout they were sized for.
  ORX_CHANNELS groups[4];
  void **buffer;  // channel scanline buffer of one line
  uint32_t size;  // its block's byte size
  int32_t bottom, top, width;
};

void release_stored(Stored *s) {
  if (s == nullptr || --s->refs > 0) return;
  for (int32_t i = 0; s->lines != nullptr && i < s->count; ++i) heap::release(s->lines[i]);
  ERR_free(s->lines);
  ERR_free(s->handle);
  core::release_info(&s->info);
  ERR_free(s);
}

Stored *find(const char *handle) {
  if (handle == nullptr) return nullptr;
  for (Stored *s = g_store; s != nullptr; s = s->next)
    if (std::strcmp(s->handle, handle) == 0) return s;
  return nullptr;
}

// Keep s in the store, in place of an older image of the same handle.
void store(Stored *s) {
  for (Stored **at = &g_store; *at != nullptr; at = &(*at)->next) {
    if (std::strcmp((*at)->handle, s->handle) != 0) continue;
    Stored *old = *at;
    *at = old->next;
    release_stored(old);
    break;
  }
  s->next = g_store;
  g_store = s;
}

// Bytes one sample of group g (0 image, 1 matte, 2 aux, 3 index) takes.
uint32_t sample_bytes(const ORX_CHANNELS &c, int g) {
  if (g == 3) return 2;
  if (c.type == ORX_C_FLOAT) return 4;
  if (c.type == ORX_C_DOUBLE) return 8;
  return c.bits <= 8 ? 1 : c.bits <= 16 ? 2 : 4;
}

// Calls f(channel, exact row bytes) for each channel row of a line.
template <class F>
void for_each_row(const Image &image, F f) {
  int k = 0;
  for (int g = 0; g < 4; ++g)
    for (int32_t c = 0; c < image.groups[g].count; ++c)
      f(k++, static_cast<std::size_t>(image.width) * sample_bytes(image.groups[g], g));
}

unsigned char *line_at(const Image &image, int32_t line) {
  return image.stored->lines[image.index] +
         static_cast<std::size_t>(line - image.bottom) * image.size;
}

int bad_line(int32_t line) { return fail(ORX_E_BAD_SCANLINE, Msg::kBadScanline, line); }

int read_line(void *data, int32_t line, void *out) {
  const Image &image = *static_cast<Image *>(data);
  if (line < image.bottom || line > image.top) return bad_line(line);
  if (image.size > 0) std::memcpy(image.buffer[0], line_at(image, line), image.size);
  *static_cast<void ***>(out) = image.buffer;
  return 0;
}

int write_line(void *data, int32_t line, void *in) {
  const Image &image = *static_cast<Image *>(data);
  if (line < image.bottom || line > image.top) return bad_line(line);
  auto **rows = static_cast<void **>(in);
  unsigned char *to = line_at(image, line);
  auto *base = static_cast<unsigned char *>(image.buffer[0]);
  for_each_row(image, [&](int k, std::size_t bytes) {
    std::memcpy(to + (static_cast<unsigned char *>(image.buffer[k]) - base), rows[k], bytes);
  });
  return 0;
}

Image *images_of(ORX_OBJECT *object) {
  return object->private_cell != nullptr ? static_cast<Image *>(object->private_cell[0]) : nullptr;
}

void release_images(ORX_OBJECT *object) {
  Image *images = images_of(object);
  if (images == nullptr) return;
  for (int32_t i = 0; i < object->info.image_count; ++i) ORX_chan_free(images[i].buffer);
  ERR_free(images);
  ERR_free(object->private_cell);
  object->private_cell = nullptr;
}

// Per-image states and line buffers for s's images as described by object.
bool make_images(ORX_OBJECT *object, Stored *s) {
  const int32_t n = object->info.image_count;
  const auto bytes = static_cast<uint64_t>(n) * (sizeof(Image) + sizeof(void *));
  if (bytes > UINT32_MAX) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory) == 0;
  auto *cell = static_cast<void **>(ERR_malloc(static_cast<uint32_t>(n * sizeof(void *))));
  auto *images = static_cast<Image *>(ERR_malloc(static_cast<uint32_t>(n * sizeof(Image))));
  if (cell == nullptr || images == nullptr) {
    ERR_free(cell);
    ERR_free(images);
    orx__err = ORX_E_NO_MEMORY;
    return false;
  }
  for (int32_t i = 0; i < n; ++i) {
    images[i] = Image{};
    cell[i] = &images[i];
  }
  object->private_cell = cell;
  for (int32_t i = 0; i < n; ++i) {
    ORX_IFD &ifd = object->info.images[i];
    Image &image = images[i];
    image = Image{s,
                  i,
                  {},
                  nullptr,
                  0,
                  ifd.window.bottom,
                  ifd.window.top,
                  ifd.window.right - ifd.window.left + 1};
    if (image.width < 1 || image.top < image.bottom)
      return fail(ORX_E_DIMENSIONS, Msg::kCannotHandleRequest, kWho) == 0;
    image.buffer = ORX_chan_alloc(&ifd, image.width, kWho, &image.size);
    for (int g = 0; const ORX_CHANNELS *c : {&ifd.image, &ifd.matte, &ifd.aux, &ifd.index})
      image.groups[g++] = *c;
    if (image.buffer == nullptr) {
      if (orx__err == ORX_E_NO_MEMORY) report(Msg::kNoMemory);
      return false;
    }
  }
  return true;
}

int close_reader(ORX_OBJECT *object, intptr_t) {
  Image *images = images_of(object);
  if (images != nullptr) release_stored(images[0].stored);
  release_images(object);
  orx__free_obj(object);
  return 0;
}

int close_writer(ORX_OBJECT *object, intptr_t) {
  Stored *s = images_of(object)[0].stored;
  release_images(object);
  // The written request becomes the stored image's record.
  s->info = object->info;
  s->info.settings = nullptr;
  ORX_info_init(&object->info);
  store(s);
  orx__free_obj(object);
  return 0;
}

// The stored image's header, read back into a new object.
bool copy_header(ORX_INFO &to, const ORX_INFO &from) {
  using core::copy_string;
  for (auto [field, text] : {std::pair{&to.name, from.name},
                             {&to.desc, from.desc},
                             {&to.program, from.program},
                             {&to.machine, from.machine},
                             {&to.user, from.user},
                             {&to.date, from.date},
                             {&to.time, from.time},
                             {&to.filter, from.filter},
                             {&to.compression, from.compression}})
    if (!copy_string(field, text, nullptr)) return false;
  to.job = from.job;
  to.frame = from.frame;
  std::memcpy(to.red, from.red, sizeof to.red);
  std::memcpy(to.green, from.green, sizeof to.green);
  std::memcpy(to.blue, from.blue, sizeof to.blue);
  std::memcpy(to.white, from.white, sizeof to.white);
  return ORX_attr_copy(&to, 0, &from, ORX_ATTR_ANY_IMAGE) == 0 && core::copy_images(&to, &from);
}

}  // namespace

int mem_read_open(ORX_OBJECT *object) {
  Stored *s = find(object->info.handle);
  if (s == nullptr)
    return fail(ORX_E_FIELD_MISSING, Msg::kCannotOpen, object->info.handle,
                std::strerror(ENOENT)) == 0;
  if (!copy_header(object->info, s->info) || !make_images(object, s)) {
    release_images(object);
    return 0;
  }
  ++s->refs;
  object->scan = read_line;
  object->close = close_reader;
  return 1;
}

int mem_write_open(ORX_OBJECT *object) {
  if (object->info.image_count < 1 || object->info.images == nullptr)
    return fail(ORX_E_FIELD_MISSING, Msg::kFieldMissing, "images") == 0;
  auto *s = static_cast<Stored *>(ERR_malloc(sizeof(Stored)));
  if (s == nullptr) return (orx__err = ORX_E_NO_MEMORY) == 0;
  *s = Stored{};
  s->refs = 1;
  ORX_info_init(&s->info);
  const auto n = static_cast<uint32_t>(object->info.image_count);
  s->handle =
      static_cast<char *>(ERR_malloc(static_cast<uint32_t>(std::strlen(object->info.handle) + 1)));
  s->lines = static_cast<unsigned char **>(ERR_malloc(n * sizeof(unsigned char *)));
  bool ok = s->handle != nullptr && s->lines != nullptr;
  if (ok) {
    std::strcpy(s->handle, object->info.handle);
    std::memset(s->lines, 0, n * sizeof(unsigned char *));
    s->count = static_cast<int32_t>(n);
    ok = make_images(object, s);
  }
  for (uint32_t i = 0; ok && i < n; ++i) {
    const Image &image = images_of(object)[i];
    const uint64_t bytes =
        static_cast<uint64_t>(image.size) * static_cast<uint64_t>(image.top - image.bottom + 1);
    s->lines[i] =
        static_cast<unsigned char *>(bytes <= SIZE_MAX / 2 ? heap::allocate(bytes) : nullptr);
    if (s->lines[i] == nullptr) {
      ok = fail(ORX_E_NO_MEMORY, Msg::kNoMemory) == 0;
    } else {
      std::memset(s->lines[i], 0, bytes);
    }
  }
  if (!ok) {
    release_images(object);
    release_stored(s);
    if (orx__err == 0) orx__err = ORX_E_NO_MEMORY;
    return 0;
  }
  object->scan = write_line;
  object->close = close_writer;
  return 1;
}

uint8_t mem_is_file(const char *name, std::FILE *) { return find(name) != nullptr ? 1 : 0; }

void mem_clear() {
  while (g_store != nullptr) {
    Stored *s = g_store;
    g_store = s->next;
    release_stored(s);
  }
}

}  // namespace orx::formats
