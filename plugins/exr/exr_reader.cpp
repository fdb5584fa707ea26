// Reading OpenEXR files through OpenEXR's C library.  Its C++ reader trusts
// the chunk tables and chunk headers of the file (damaged ones made it copy
// through uninitialised pointers); the C library checks each chunk against
// the file before it decodes it, and allocates through the library's own
// allocator here, so a damaged or hostile file ends in a report and a
// status.  Each image decodes whole on its first line, chunk by chunk,
// straight into its plane where the chunk lies within the active window.
#include <openexr.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "exr_plugin.hpp"
#include "orx/err.h"
#include "orx/limits.h"
#include "plugin_kit.h"

namespace exr_plugin {
namespace {

// OpenEXR's last complaint on this thread, for the report that follows it
// (a fixed buffer: nothing may throw through OpenEXR's C code).
thread_local char complaint[256];

void remember(exr_const_context_t, exr_result_t code, const char *message) {
  std::snprintf(complaint, sizeof complaint, "%s",
                message != nullptr ? message : exr_get_default_error_message(code));
}

// What OpenEXR said about a failure.
const char *said(exr_result_t result) {
  return complaint[0] != 0 ? complaint : exr_get_default_error_message(result);
}

// Whether an allocation of OpenEXR's failed since the operation began: it
// does not always say so (a failure while reading a header reads as a
// missing attribute).
thread_local bool short_of_memory = false;

void *allocate(size_t size) {
  void *block =
      size <= UINT32_MAX ? ERR_malloc(static_cast<uint32_t>(size == 0 ? 1 : size)) : nullptr;
  if (block == nullptr) short_of_memory = true;
  return block;
}

// Starts an operation of OpenEXR's: no complaint, no failed allocation.
void begin() {
  complaint[0] = 0;
  short_of_memory = false;
}

void release_block(void *block) { ERR_free(block); }

// The status a failure of OpenEXR leaves: short of memory is the library's
// -10, anything else the given status.
int32_t status_of(exr_result_t result, int32_t otherwise) {
  return result == EXR_ERR_OUT_OF_MEMORY || short_of_memory ? ORX_E_NO_MEMORY : otherwise;
}

// The file, shared by its images.
struct InFile {
  std::string path;
  exr_context_t context = nullptr;
  ~InFile() {
    if (context != nullptr) exr_finish(&context);
  }
};

// One image: a part of the file.
struct InImage {
  InFile *file;
  ORX_IFD *ifd;
  int part;
  std::vector<int32_t> plane_channel;  // plane channel of each file channel
  int decoded = 0;                     // 1 once the plane holds the image, or a status
  KitPlane plane{};
};

void release(ORX_OBJECT *object, InFile *file) { exr_plugin::release<InImage>(object, file); }

// A block of the library's memory, freed when it goes.
struct Block {
  void *data = nullptr;
  size_t size = 0;
  ~Block() { ERR_free(data); }
  bool reserve(size_t bytes) {
    if (bytes <= size) return true;
    ERR_free(data);
    data = allocate(bytes);
    size = data != nullptr ? bytes : 0;
    return data != nullptr;
  }
};

// What is wrong with a part's offset table, its chunks' headers or its chunk
// sizes, or null when nothing is.  No pixel is decoded: under a millisecond
// for a UHD scanline file, and a damaged file is refused at open rather than
// on its first line.  A chunk must decode within the image memory limit
// (OpenEXR allocates a chunk whole, and a data window may be far wider than
// the picture).
const char *chunk_problem(exr_const_context_t context, int part) {
  static const char kDamaged[] = "the chunk offsets or a chunk header are damaged";
  static const char kLarge[] = "its chunks need more than the image memory limit";
  exr_storage_t storage;
  exr_attr_box2i_t window;
  const exr_attr_chlist_t *channels = nullptr;
  if (exr_get_storage(context, part, &storage) != EXR_ERR_SUCCESS ||
      exr_get_data_window(context, part, &window) != EXR_ERR_SUCCESS ||
      exr_get_channels(context, part, &channels) != EXR_ERR_SUCCESS)
    return kDamaged;
  // A chunk decodes into at most four bytes a sample, in every channel.
  const auto too_large = [&](int64_t width, int64_t height) {
    return width <= 0 || height <= 0 ||
           static_cast<uint64_t>(width) * static_cast<uint64_t>(height) *
                   static_cast<uint64_t>(channels->num_channels) * 4 >
               static_cast<uint64_t>(ORX_limit(ORX_LIMIT_ROW_MEMORY));
  };
  exr_chunk_info_t chunk;
  if (storage == EXR_STORAGE_SCANLINE) {
    int32_t lines = 0;
    if (exr_get_scanlines_per_chunk(context, part, &lines) != EXR_ERR_SUCCESS || lines <= 0)
      return kDamaged;
    if (too_large(int64_t{window.max.x} - window.min.x + 1, lines)) return kLarge;
    for (int64_t y = window.min.y; y <= window.max.y; y += lines)
      if (exr_read_scanline_chunk_info(context, part, static_cast<int>(y), &chunk) !=
          EXR_ERR_SUCCESS)
        return kDamaged;
  } else if (storage == EXR_STORAGE_TILED) {
    int32_t levels_x = 0, levels_y = 0;
    if (exr_get_tile_levels(context, part, &levels_x, &levels_y) != EXR_ERR_SUCCESS)
      return kDamaged;
    exr_tile_level_mode_t mode = EXR_TILE_ONE_LEVEL;
    exr_tile_round_mode_t round;
    uint32_t xs, ys;
    if (exr_get_tile_descriptor(context, part, &xs, &ys, &mode, &round) != EXR_ERR_SUCCESS)
      return kDamaged;
    // A mipmap has the levels (l, l); a ripmap every pair.
    for (int lx = 0; lx < levels_x; ++lx)
      for (int ly = mode == EXR_TILE_RIPMAP_LEVELS ? 0 : lx;
           ly < (mode == EXR_TILE_RIPMAP_LEVELS ? levels_y : lx + 1) && ly < levels_y; ++ly) {
        int32_t w = 0, h = 0, tw = 0, th = 0;
        if (exr_get_level_sizes(context, part, lx, ly, &w, &h) != EXR_ERR_SUCCESS ||
            exr_get_tile_sizes(context, part, lx, ly, &tw, &th) != EXR_ERR_SUCCESS || tw <= 0 ||
            th <= 0)
          return kDamaged;
        if (too_large(tw, th)) return kLarge;
        const int64_t across = (int64_t{w} + tw - 1) / tw, down = (int64_t{h} + th - 1) / th;
        for (int64_t ty = 0; ty < down; ++ty)
          for (int64_t tx = 0; tx < across; ++tx)
            if (exr_read_tile_chunk_info(context, part, static_cast<int>(tx), static_cast<int>(ty),
                                         lx, ly, &chunk) != EXR_ERR_SUCCESS)
              return kDamaged;
      }
  }
  return nullptr;
}

// --- Decoding --------------------------------------------------------------

// A decoding pipeline, destroyed when it goes.
struct Pipeline {
  exr_const_context_t context;
  exr_decode_pipeline_t decoder{};
  bool started = false;
  ~Pipeline() {
    if (started) exr_decoding_destroy(context, &decoder);
  }
};

// Decodes one chunk whose pixels start at EXR pixel (x0, y0) into the
// plane: straight in when it lies within the active window, otherwise
// through scratch memory, copying the part that does.
exr_result_t decode_chunk(InImage &image, Pipeline &pipe, const exr_chunk_info_t &chunk, int x0,
                          int y0, Block &scratch) {
  KitPlane &p = image.plane;
  const int ax0 = p.active.left, ax1 = p.active.right;
  const int ay0 = exr_row(p.window, p.active.top), ay1 = exr_row(p.window, p.active.bottom);
  const int64_t x1 = int64_t{x0} + chunk.width - 1, y1 = int64_t{y0} + chunk.height - 1;
  if (x1 < ax0 || x0 > ax1 || y1 < ay0 || y0 > ay1) return EXR_ERR_SUCCESS;  // nothing shown
  exr_decode_pipeline_t &d = pipe.decoder;
  exr_result_t r = pipe.started ? exr_decoding_update(pipe.context, image.part, &chunk, &d)
                                : exr_decoding_initialize(pipe.context, image.part, &chunk, &d);
  if (r != EXR_ERR_SUCCESS) return r;
  pipe.started = true;
  const bool within = x0 >= ax0 && x1 <= ax1 && y0 >= ay0 && y1 <= ay1 &&
                      p.line_bytes <= static_cast<size_t>(INT32_MAX);
  const size_t samples = static_cast<size_t>(chunk.width) * static_cast<size_t>(chunk.height);
  if (!within) {
    if (!scratch.reserve(samples * 4 * static_cast<size_t>(d.channel_count)))
      return EXR_ERR_OUT_OF_MEMORY;
    std::memset(scratch.data, 0, samples * 4 * static_cast<size_t>(d.channel_count));
  }
  for (int16_t c = 0; c < d.channel_count; ++c) {
    exr_coding_channel_info_t &ch = d.channels[c];
    const int32_t pc = image.plane_channel[static_cast<size_t>(c)];
    ch.user_data_type = EXR_PIXEL_FLOAT;
    ch.user_bytes_per_element = 4;
    ch.user_pixel_stride = 4;
    if (within) {
      ch.decode_to_ptr = kit_plane_at(&p, y0 - ay0, pc) + static_cast<size_t>(x0 - ax0) * 4;
      ch.user_line_stride = static_cast<int32_t>(p.line_bytes);
    } else {
      ch.decode_to_ptr = static_cast<uint8_t *>(scratch.data) + static_cast<size_t>(c) * samples * 4;
      ch.user_line_stride = chunk.width * 4;
    }
  }
  if ((r = exr_decoding_choose_default_routines(pipe.context, image.part, &d)) != EXR_ERR_SUCCESS ||
      (r = exr_decoding_run(pipe.context, image.part, &d)) != EXR_ERR_SUCCESS || within)
    return r;
  // The part of the chunk within the active window.
  const int from_x = x0 > ax0 ? x0 : ax0, to_x = x1 < ax1 ? static_cast<int>(x1) : ax1;
  const int from_y = y0 > ay0 ? y0 : ay0, to_y = y1 < ay1 ? static_cast<int>(y1) : ay1;
  const size_t bytes = static_cast<size_t>(to_x - from_x + 1) * 4;
  for (int16_t c = 0; c < d.channel_count; ++c) {
    const auto *block = static_cast<const uint8_t *>(scratch.data) + static_cast<size_t>(c) * samples * 4;
    const int32_t pc = image.plane_channel[static_cast<size_t>(c)];
    for (int y = from_y; y <= to_y; ++y)
      std::memcpy(kit_plane_at(&p, y - ay0, pc) + static_cast<size_t>(from_x - ax0) * 4,
                  block + (static_cast<size_t>(y - y0) * static_cast<size_t>(chunk.width) +
                           static_cast<size_t>(from_x - x0)) * 4,
                  bytes);
  }
  return EXR_ERR_SUCCESS;
}

// Decodes every chunk of level 0 into the plane.
exr_result_t decode_chunks(InImage &image) {
  exr_const_context_t context = image.file->context;
  const int part = image.part;
  exr_storage_t storage;
  exr_attr_box2i_t dw;
  exr_result_t r;
  if ((r = exr_get_storage(context, part, &storage)) != EXR_ERR_SUCCESS ||
      (r = exr_get_data_window(context, part, &dw)) != EXR_ERR_SUCCESS)
    return r;
  Pipeline pipe{context};
  Block scratch;
  exr_chunk_info_t chunk;
  if (storage == EXR_STORAGE_SCANLINE) {
    int32_t lines = 1;
    if ((r = exr_get_scanlines_per_chunk(context, part, &lines)) != EXR_ERR_SUCCESS) return r;
    for (int64_t y = dw.min.y; y <= dw.max.y; y += lines) {
      if ((r = exr_read_scanline_chunk_info(context, part, static_cast<int>(y), &chunk)) !=
              EXR_ERR_SUCCESS ||
          (r = decode_chunk(image, pipe, chunk, dw.min.x, chunk.start_y, scratch)) !=
              EXR_ERR_SUCCESS)
        return r;
    }
    return EXR_ERR_SUCCESS;
  }
  int32_t w = 0, h = 0, tw = 0, th = 0;
  if ((r = exr_get_level_sizes(context, part, 0, 0, &w, &h)) != EXR_ERR_SUCCESS ||
      (r = exr_get_tile_sizes(context, part, 0, 0, &tw, &th)) != EXR_ERR_SUCCESS)
    return r;
  for (int64_t ty = 0; ty * th < h; ++ty)
    for (int64_t tx = 0; tx * tw < w; ++tx) {
      if ((r = exr_read_tile_chunk_info(context, part, static_cast<int>(tx), static_cast<int>(ty),
                                        0, 0, &chunk)) != EXR_ERR_SUCCESS ||
          (r = decode_chunk(image, pipe, chunk, static_cast<int>(dw.min.x + tx * tw),
                            static_cast<int>(dw.min.y + ty * th), scratch)) != EXR_ERR_SUCCESS)
        return r;
    }
  return EXR_ERR_SUCCESS;
}

int decode(void *data) {
  auto &image = *static_cast<InImage *>(data);
  begin();
  const exr_result_t r = decode_chunks(image);
  if (r == EXR_ERR_SUCCESS) return 0;
  const int32_t status = status_of(r, ORX_E_READ);
  kit_fail(status, "exr: cannot read %s: %s", image.file->path.c_str(),
           said(r));
  return status;
}

int scan_read(void *data, int32_t line, void *out) {
  auto &image = *static_cast<InImage *>(data);
  return kit_scan_decoded(&image.plane, &image.decoded, decode, data, line, out, kWho,
                          image.file->path.c_str());
}

// --- Describing ------------------------------------------------------------

// The channels of a part in plane order: R, G, B (or Y, or the first other
// channel) as the image, A as the matte, the rest auxiliary, whose names go
// to aux_names.  Fills plane_channel.
KitLayout order_channels(const exr_attr_chlist_t &list, std::vector<int32_t> &plane_channel,
                         std::string &aux_names) {
  const int n = list.num_channels;
  plane_channel.assign(static_cast<size_t>(n), -1);
  int32_t next = 0;
  const auto name_of = [&](int i) {
    return std::string(list.entries[i].name.str, static_cast<size_t>(list.entries[i].name.length));
  };
  const auto find = [&](const char *name) {
    for (int i = 0; i < n; ++i)
      if (plane_channel[static_cast<size_t>(i)] < 0 && name_of(i) == name) return i;
    return -1;
  };
  const auto take = [&](int i) {
    if (i >= 0) plane_channel[static_cast<size_t>(i)] = next++;
    return i >= 0;
  };
  KitLayout layout = {{0, 0, 0}, {ORX_C_FLOAT, ORX_C_FLOAT, ORX_C_FLOAT}, {32, 32, 32}};
  if (find("R") >= 0 && find("G") >= 0 && find("B") >= 0) {
    take(find("R"));
    take(find("G"));
    take(find("B"));
  } else if (!take(find("Y"))) {
    for (int i = 0; i < n; ++i)
      if (name_of(i) != "A" && take(i)) break;
  }
  layout.count[0] = next;
  layout.count[1] = take(find("A")) ? 1 : 0;
  for (int i = 0; i < n; ++i)
    if (plane_channel[static_cast<size_t>(i)] < 0) {
      take(i);
      aux_names += (aux_names.empty() ? "" : ",") + name_of(i);
    }
  layout.count[2] = next - layout.count[0] - layout.count[1];
  return layout;
}

// What keeps a part's channels from being read, or null.
const char *channel_problem(const exr_attr_chlist_t &list) {
  if (list.num_channels <= 0) return "has no channels";
  for (int i = 0; i < list.num_channels; ++i) {
    const exr_attr_chlist_entry_t &e = list.entries[i];
    if (e.x_sampling != 1 || e.y_sampling != 1) return "has subsampled channels";
    for (int j = 0; j < i; ++j)
      if (e.name.length == list.entries[j].name.length &&
          std::memcmp(e.name.str, list.entries[j].name.str, static_cast<size_t>(e.name.length)) == 0)
        return "names a channel twice";
  }
  return nullptr;
}

// The header texts and chromaticities of the file, from its first part.
bool describe_file(exr_const_context_t context, ORX_INFO &info) {
  for (const Text &t : kTexts) {
    int32_t length = 0;
    const char *text = nullptr;
    if (exr_attr_get_string(context, 0, t.attribute, &length, &text) == EXR_ERR_SUCCESS &&
        text != nullptr && length >= 0 &&
        !kit_save(&(info.*t.field), std::string(text, static_cast<size_t>(length)).c_str()))
      return false;
  }
  exr_attr_chromaticities_t c;
  if (exr_attr_get_chromaticities(context, 0, "chromaticities", &c) == EXR_ERR_SUCCESS) {
    const float xy[4][2] = {{c.red_x, c.red_y}, {c.green_x, c.green_y}, {c.blue_x, c.blue_y},
                            {c.white_x, c.white_y}};
    float *to[4] = {info.red, info.green, info.blue, info.white};
    for (int i = 0; i < 4; ++i) {
      to[i][0] = xy[i][0];
      to[i][1] = xy[i][1];
      to[i][2] = 1.0f - xy[i][0] - xy[i][1];
    }
  }
  exr_compression_t method = EXR_COMPRESSION_NONE;
  exr_get_compression(context, 0, &method);
  return kit_save(&info.compression, compression_name(static_cast<int>(method)));
}

// The descriptor and plane of part image.part.
bool describe(InImage &image) {
  exr_const_context_t context = image.file->context;
  const char *path = image.file->path.c_str();
  const int part = image.part;
  exr_storage_t storage;
  exr_attr_box2i_t display, data;
  float pixel_aspect = 1.0f;
  const exr_attr_chlist_t *list = nullptr;
  if (exr_get_storage(context, part, &storage) != EXR_ERR_SUCCESS ||
      exr_get_display_window(context, part, &display) != EXR_ERR_SUCCESS ||
      exr_get_data_window(context, part, &data) != EXR_ERR_SUCCESS ||
      exr_get_channels(context, part, &list) != EXR_ERR_SUCCESS || list == nullptr)
    return kit_fail(ORX_E_NOT_OUR_FILE, "exr: %s: part %d lacks a required attribute", path, part);
  if (storage != EXR_STORAGE_SCANLINE && storage != EXR_STORAGE_TILED)
    return kit_fail(ORX_E_UNSUPPORTED, "exr: %s: part %d holds deep data", path, part);
  if (const char *problem = channel_problem(*list))
    return kit_fail(ORX_E_UNSUPPORTED, "exr: %s: part %d %s", path, part, problem);
  exr_get_pixel_aspect_ratio(context, part, &pixel_aspect);
  ORX_IFD &ifd = *image.ifd;
  const int64_t width = int64_t{display.max.x} - display.min.x + 1;
  const int64_t height = int64_t{display.max.y} - display.min.y + 1;
  if (width <= 0 || height <= 0 || width > INT32_MAX || height > INT32_MAX)
    return kit_fail(ORX_E_NOT_OUR_FILE, "exr: %s: part %d has an empty display window", path, part);
  kit_describe_size(&ifd, static_cast<int32_t>(width), static_cast<int32_t>(height), pixel_aspect);
  ifd.window = {display.min.x, display.max.x, display.min.y, display.max.y};
  // The data window, clipped to the display window.
  const ORX_WINDOW &w = ifd.window;
  ifd.active = {data.min.x > w.left ? data.min.x : w.left,
                data.max.x < w.right ? data.max.x : w.right,
                exr_row(w, data.max.y) > w.bottom ? exr_row(w, data.max.y) : w.bottom,
                exr_row(w, data.min.y) < w.top ? exr_row(w, data.min.y) : w.top};
  if (ifd.active.left > ifd.active.right || ifd.active.bottom > ifd.active.top) {
    // No stored pixel within the window: keep one empty line of it.
    ifd.active = {w.left, w.left, w.bottom, w.bottom};
  }
  ifd.curve.gamma = 1.0f;
  std::string aux_names;
  const KitLayout layout = order_channels(*list, image.plane_channel, aux_names);
  kit_layout_apply(&layout, &ifd);
  // The image group's name: "rgb", or the name of the first plane channel.
  std::string image_name = layout.count[0] == 3 ? "rgb" : "";
  for (size_t i = 0; layout.count[0] != 3 && i < image.plane_channel.size(); ++i)
    if (image.plane_channel[i] == 0)
      image_name.assign(list->entries[i].name.str,
                        static_cast<size_t>(list->entries[i].name.length));
  if (!kit_save(&ifd.image.name, image_name.empty() ? nullptr : image_name.c_str()) ||
      !kit_save(&ifd.aux.name, aux_names.empty() ? nullptr : aux_names.c_str()))
    return false;
  return kit_plane_init(&image.plane, &layout, ifd.window, ifd.active, 0, kWho, path) == 0;
}

int close_object(ORX_OBJECT *object, intptr_t) {
  auto *first = object->private_cell != nullptr ? static_cast<InImage *>(object->private_cell[0])
                                                : nullptr;
  release(object, first != nullptr ? first->file : nullptr);
  orx__free_obj(object);
  return 0;
}

}  // namespace

int read_open(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == nullptr) return kit_fail(ORX_E_FIELD_MISSING, "exr: no file name to read");
  auto *file = new (std::nothrow) InFile;
  if (file == nullptr) return kit_fail(ORX_E_NO_MEMORY, "exr: no memory for %s", path);
  file->path = path;
  exr_context_initializer_t init = EXR_DEFAULT_CONTEXT_INITIALIZER;
  init.error_handler_fn = remember;
  init.alloc_fn = allocate;
  init.free_fn = release_block;
  begin();
  const exr_result_t r = exr_start_read(&file->context, path, &init);
  if (r != EXR_ERR_SUCCESS) {
    delete file;
    return kit_fail(status_of(r, ORX_E_NOT_OUR_FILE), "exr: cannot open %s: %s", path,
                    said(r));
  }
  int parts = 0;
  if (exr_get_count(file->context, &parts) != EXR_ERR_SUCCESS || parts < 1) {
    delete file;
    return kit_fail(ORX_E_NOT_OUR_FILE, "exr: cannot open %s: no part", path);
  }
  const char *problem = nullptr;
  for (int p = 0; p < parts && problem == nullptr; ++p) problem = chunk_problem(file->context, p);
  // OpenEXR may carry on past a failed allocation with a header short of an
  // attribute, or read it as damage: either way the file is not read.
  if (short_of_memory || problem != nullptr) {
    delete file;
    return short_of_memory ? kit_fail(ORX_E_NO_MEMORY, "exr: no memory to open %s", path)
                           : kit_fail(ORX_E_NOT_OUR_FILE, "exr: %s: %s", path, problem);
  }
  if (!kit_new_images(object, parts)) {
    delete file;
    return 0;
  }
  for (int i = 0; i < parts; ++i) {
    auto *image = new (std::nothrow) InImage{file, &object->info.images[i], i, {}, 0, {}};
    object->private_cell[i] = image;
    if (image == nullptr) {
      release(object, file);
      return kit_fail(ORX_E_NO_MEMORY, "exr: no memory for %s", path);
    }
    if (!describe(*image)) {
      release(object, file);
      return 0;
    }
  }
  if (!describe_file(file->context, object->info)) {
    release(object, file);
    return 0;
  }
  object->scan = scan_read;
  object->close = close_object;
  return 1;
}

}  // namespace exr_plugin
