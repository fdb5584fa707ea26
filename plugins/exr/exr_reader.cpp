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
#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "exr_plugin.hpp"
#include "orx/attributes.h"
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
  InFile *file = nullptr;
  ORX_IFD *ifd = nullptr;
  int part = 0;
  std::vector<int32_t> plane_channel;  // plane channel of each file channel
  int decoded = 0;                     // 1 once the plane holds the image, or a status
  KitPlane plane{};
  int level = 0;                       // the mip level of a mipmapped part
  bool luminance_chroma = false;       // decoded through OpenEXR's RGBA interface
  bool deep = false;                   // flattened through OpenEXR's compositing
  bool classic = false;                // decoded through OpenEXR's C++ library
  std::vector<std::string> names;      // file channel of each plane channel
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
  if (storage == EXR_STORAGE_SCANLINE || storage == EXR_STORAGE_DEEP_SCANLINE) {
    int32_t lines = 0;
    if (exr_get_scanlines_per_chunk(context, part, &lines) != EXR_ERR_SUCCESS || lines <= 0)
      return kDamaged;
    if (too_large(int64_t{window.max.x} - window.min.x + 1, lines)) return kLarge;
    for (int64_t y = window.min.y; y <= window.max.y; y += lines)
      if (exr_read_scanline_chunk_info(context, part, static_cast<int>(y), &chunk) !=
          EXR_ERR_SUCCESS)
        return kDamaged;
  } else if (storage == EXR_STORAGE_TILED || storage == EXR_STORAGE_DEEP_TILED) {
    int32_t levels_x = 0, levels_y = 0;
    if (exr_get_tile_levels(context, part, &levels_x, &levels_y) != EXR_ERR_SUCCESS)
      return kDamaged;
    exr_tile_level_mode_t mode = EXR_TILE_ONE_LEVEL;
    exr_tile_round_mode_t round;
    uint32_t xs, ys;
    if (exr_get_tile_descriptor(context, part, &xs, &ys, &mode, &round) != EXR_ERR_SUCCESS)
      return kDamaged;
    // The levels read: every level (l, l) of a mipmap, each an image, and
    // only the full size of a ripmap (OpenEXR's C library 3.1 looks for
    // the chunks of a ripmap's other levels in the wrong places).
    const int levels = mode == EXR_TILE_RIPMAP_LEVELS ? 1 : std::min(levels_x, levels_y);
    for (int l = 0; l < levels; ++l) {
      int32_t w = 0, h = 0, tw = 0, th = 0;
      if (exr_get_level_sizes(context, part, l, l, &w, &h) != EXR_ERR_SUCCESS ||
          exr_get_tile_sizes(context, part, l, l, &tw, &th) != EXR_ERR_SUCCESS || tw <= 0 || th <= 0)
        return kDamaged;
      if (too_large(tw, th)) return kLarge;
      const int64_t across = (int64_t{w} + tw - 1) / tw, down = (int64_t{h} + th - 1) / th;
      for (int64_t ty = 0; ty < down; ++ty)
        for (int64_t tx = 0; tx < across; ++tx)
          if (exr_read_tile_chunk_info(context, part, static_cast<int>(tx),
                                       static_cast<int>(ty), l, l, &chunk) != EXR_ERR_SUCCESS)
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
    // Integer plane channels hold OpenEXR's UINT samples as they are; the
    // others floats, half samples widened.
    ch.user_data_type = p.sample_bytes[pc] == 4 && integer_channel(p, pc) ? EXR_PIXEL_UINT
                                                                           : EXR_PIXEL_FLOAT;
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
  const int l = image.level;
  if ((r = exr_get_level_sizes(context, part, l, l, &w, &h)) != EXR_ERR_SUCCESS ||
      (r = exr_get_tile_sizes(context, part, l, l, &tw, &th)) != EXR_ERR_SUCCESS)
    return r;
  for (int64_t ty = 0; ty * th < h; ++ty)
    for (int64_t tx = 0; tx * tw < w; ++tx) {
      if ((r = exr_read_tile_chunk_info(context, part, static_cast<int>(tx), static_cast<int>(ty),
                                        l, l, &chunk)) != EXR_ERR_SUCCESS ||
          (r = decode_chunk(image, pipe, chunk, static_cast<int>(dw.min.x + tx * tw),
                            static_cast<int>(dw.min.y + ty * th), scratch)) != EXR_ERR_SUCCESS)
        return r;
    }
  return EXR_ERR_SUCCESS;
}

int decode(void *data) {
  auto &image = *static_cast<InImage *>(data);
  if (image.luminance_chroma)
    return decode_luminance_chroma(image.file->path.c_str(), &image.plane);
  if (image.deep) return decode_deep(image.file->path.c_str(), image.part, image.names, &image.plane);
  if (image.classic)
    return decode_classic(image.file->path.c_str(), image.part, image.level, image.names,
                          &image.plane);
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
// channel) as the image, A as the matte, the rest auxiliary; in a part
// without them, those of its first layer that has them.  Fills
// plane_channel and names (every plane channel's, comma-separated).  A
// group whose channels are all half is float of 16 bits (the library's mark
// of half precision), all UINT 32-bit integer, otherwise 32-bit float.
KitLayout order_channels(const exr_attr_chlist_t &list, std::vector<int32_t> &plane_channel,
                         std::string &names) {
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
  std::vector<int> order;
  const auto take = [&](int i) {
    if (i >= 0) plane_channel[static_cast<size_t>(i)] = next++, order.push_back(i);
    return i >= 0;
  };
  KitLayout layout = {{0, 0, 0}, {ORX_C_FLOAT, ORX_C_FLOAT, ORX_C_FLOAT}, {32, 32, 32}};
  // The layer the image comes from: unnamed, or else the first layer
  // ("diffuse." of "diffuse.R") with colour, or else with luminance, as
  // renderers write files whose every channel belongs to a layer.
  const auto has = [&](const std::string &layer, const char *channel) {
    return find((layer + channel).c_str()) >= 0;
  };
  const auto colour = [&](const std::string &layer) {
    return has(layer, "R") && has(layer, "G") && has(layer, "B");
  };
  std::string layer;
  for (int pass = 0; pass < 2 && !colour("") && !has("", "Y") && layer.empty(); ++pass)
    for (int i = 0; i < n && layer.empty(); ++i) {
      const std::string name = name_of(i);
      const std::string prefix = name.substr(0, name.rfind('.') + 1);
      if (!prefix.empty() && (pass == 0 ? colour(prefix) : has(prefix, "Y"))) layer = prefix;
    }
  if (colour(layer)) {
    for (const char *c : {"R", "G", "B"}) take(find((layer + c).c_str()));
  } else if (!take(find((layer + "Y").c_str()))) {
    for (int i = 0; i < n; ++i)
      if (name_of(i) != "A" && take(i)) break;
  }
  layout.count[0] = next;
  layout.count[1] = take(find((layer + "A").c_str())) ? 1 : 0;
  for (int i = 0; i < n; ++i)
    if (plane_channel[static_cast<size_t>(i)] < 0) take(i);
  layout.count[2] = next - layout.count[0] - layout.count[1];
  for (int g = 0, first = 0; g < 3; first += layout.count[g++]) {
    bool halves = true, uints = true;
    for (int k = first; k < first + layout.count[g]; ++k) {
      halves = halves && list.entries[order[static_cast<size_t>(k)]].pixel_type == EXR_PIXEL_HALF;
      uints = uints && list.entries[order[static_cast<size_t>(k)]].pixel_type == EXR_PIXEL_UINT;
    }
    if (layout.count[g] > 0 && halves) layout.bits[g] = 16;
    if (layout.count[g] > 0 && uints) layout.type[g] = ORX_C_INTEGER;
  }
  for (int i : order) names += (names.empty() ? "" : ",") + name_of(i);
  return layout;
}

// Whether a part holds luminance/chroma channels: Y with RY and BY.
bool luminance_chroma(const exr_attr_chlist_t &list) {
  int found = 0;
  for (int i = 0; i < list.num_channels; ++i) {
    const std::string name(list.entries[i].name.str, static_cast<size_t>(list.entries[i].name.length));
    found |= name == "Y" ? 1 : name == "RY" ? 2 : name == "BY" ? 4 : 0;
  }
  return found == 7;
}

// The layout OpenEXR's RGBA interface gives a luminance/chroma part: R, G, B
// and A when the part has it, all of half precision.
KitLayout rgba_of(const exr_attr_chlist_t &list, std::string &names) {
  bool alpha = false;
  for (int i = 0; i < list.num_channels; ++i)
    alpha = alpha || (list.entries[i].name.length == 1 && list.entries[i].name.str[0] == 'A');
  names = alpha ? "R,G,B,A" : "R,G,B";
  return KitLayout{{3, alpha ? 1 : 0, 0}, {ORX_C_FLOAT, ORX_C_FLOAT, ORX_C_FLOAT}, {16, 16, 16}};
}

// Whether OpenEXR's C library cannot decode a part of this compression
// and these channels (see exr_classic.cpp).
bool beyond_c_library(exr_compression_t method, const exr_attr_chlist_t &list) {
  if (method == EXR_COMPRESSION_DWAA || method == EXR_COMPRESSION_DWAB) return true;
  if (method != EXR_COMPRESSION_B44 && method != EXR_COMPRESSION_B44A) return false;
  for (int i = 0; i < list.num_channels; ++i)
    if (list.entries[i].pixel_type == EXR_PIXEL_HALF) return false;
  return true;
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

// The header texts and chromaticities of the file, from its first part.  A
// file without chromaticities is Rec.709 with a D65 white by OpenEXR's own
// definition, which is what the record then says.
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
    const float xy[8] = {c.red_x, c.red_y, c.green_x, c.green_y,
                         c.blue_x, c.blue_y, c.white_x, c.white_y};
    kit_set_chromaticities(&info, xy);
  } else {
    kit_set_chromaticities(&info, kit_rec709);
  }
  exr_compression_t method = EXR_COMPRESSION_NONE;
  exr_get_compression(context, 0, &method);
  return kit_save(&info.compression, compression_name(static_cast<int>(method)));
}

// A header attribute as a record attribute "openexr:NAME": strings, numbers
// and the small vectors and matrices, which keep their element type.
int copy_attribute(ORX_INFO &info, int32_t image, const exr_attribute_t &a) {
  const std::string name = std::string("openexr:") + a.name;
  switch (a.type) {
    case EXR_ATTR_STRING:
      return ORX_attr_set_string(&info, image, name.c_str(),
                                 std::string(a.string->str, static_cast<size_t>(
                                                                a.string->length > 0 ? a.string->length : 0))
                                     .c_str());
    case EXR_ATTR_INT: return ORX_attr_set_int(&info, image, name.c_str(), a.i);
    case EXR_ATTR_FLOAT: return ORX_attr_set_float(&info, image, name.c_str(), a.f);
    case EXR_ATTR_DOUBLE: return ORX_attr_set_double(&info, image, name.c_str(), a.d);
    case EXR_ATTR_V2I: return ORX_attr_set(&info, image, name.c_str(), ORX_ATTR_INT, 2, a.v2i);
    case EXR_ATTR_V2F: return ORX_attr_set(&info, image, name.c_str(), ORX_ATTR_FLOAT, 2, a.v2f);
    case EXR_ATTR_V3F: return ORX_attr_set(&info, image, name.c_str(), ORX_ATTR_FLOAT, 3, a.v3f);
    case EXR_ATTR_M33F: return ORX_attr_set(&info, image, name.c_str(), ORX_ATTR_FLOAT, 9, a.m33f);
    case EXR_ATTR_M44F: return ORX_attr_set(&info, image, name.c_str(), ORX_ATTR_FLOAT, 16, a.m44f);
    default: return 0;  // kept out: no host has a use for them without their type
  }
}

// Attributes the descriptor or the record carry already, or that describe
// the file's layout rather than the image.
bool described_elsewhere(const char *name) {
  static const char *const kNames[] = {
      "channels", "compression", "dataWindow", "displayWindow", "lineOrder",
      "pixelAspectRatio", "screenWindowCenter", "screenWindowWidth", "tiles", "chunkCount",
      "name", "type", "version", "view", "chromaticities", "maxSamplesPerPixel", "xDensity",
      "ResolutionUnit"};
  for (const char *n : kNames)
    if (std::strcmp(n, name) == 0) return true;
  for (const Text &t : kTexts)
    if (std::strcmp(t.attribute, name) == 0) return true;
  return false;
}

// The attributes of a part: its display window, name, view, channel names
// and whatever else its header holds.
bool describe_attributes(exr_const_context_t context, int part, int32_t index,
                         const exr_attr_box2i_t &display, const std::string &names,
                         ORX_INFO &info) {
  const int32_t window[4] = {display.min.x, display.min.y, display.max.x, display.max.y};
  if (ORX_attr_set(&info, index, "openexr:displayWindow", ORX_ATTR_INT, 4, window) != 0 ||
      ORX_attr_set_string(&info, index, "channelnames", names.c_str()) != 0)
    return false;
  const char *part_name = nullptr;
  if (exr_get_name(context, part, &part_name) == EXR_ERR_SUCCESS && part_name != nullptr &&
      ORX_attr_set_string(&info, index, "oiio:subimagename", part_name) != 0)
    return false;
  int32_t length = 0;
  const char *view = nullptr;
  if (exr_attr_get_string(context, part, "view", &length, &view) == EXR_ERR_SUCCESS &&
      view != nullptr && length >= 0 &&
      ORX_attr_set_string(&info, index, "openexr:view",
                          std::string(view, static_cast<size_t>(length)).c_str()) != 0)
    return false;
  // xDensity is the print resolution in pixels per inch across; the
  // pixel aspect gives it down (a ResolutionUnit beside it, as OpenImageIO
  // writes, says inches again).
  float density = 0.0f, pixel_aspect = 1.0f;
  if (exr_attr_get_float(context, part, "xDensity", &density) == EXR_ERR_SUCCESS &&
      density > 0.0f) {
    exr_get_pixel_aspect_ratio(context, part, &pixel_aspect);
    if (!kit_set_resolution(&info, index, density, density * pixel_aspect, KIT_INCHES))
      return false;
  }
  int32_t count = 0;
  exr_get_attribute_count(context, part, &count);
  for (int32_t i = 0; i < count; ++i) {
    const exr_attribute_t *a = nullptr;
    if (exr_get_attribute_by_index(context, part, EXR_ATTR_LIST_FILE_ORDER, i, &a) !=
            EXR_ERR_SUCCESS ||
        a == nullptr || a->name == nullptr || described_elsewhere(a->name))
      continue;
    if (copy_attribute(info, index, *a) != 0) return false;
  }
  return true;
}

// The descriptor and plane of part image.part: the window is the union of
// the display and data windows, so that no stored pixel is lost, and the
// active window the data window; the display window goes to an attribute.
bool describe(InImage &image, ORX_INFO &info, int32_t index) {
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
  image.deep = storage == EXR_STORAGE_DEEP_SCANLINE || storage == EXR_STORAGE_DEEP_TILED;
  int parts = 0;
  exr_get_count(context, &parts);
  image.luminance_chroma = luminance_chroma(*list);
  if (image.luminance_chroma && (parts != 1 || image.level != 0))
    return kit_fail(ORX_E_UNSUPPORTED, "exr: %s: luminance/chroma channels are read from "
                    "single-part files of one level only", path);
  if (const char *problem = image.luminance_chroma ? nullptr : channel_problem(*list))
    return kit_fail(ORX_E_UNSUPPORTED, "exr: %s: part %d %s", path, part, problem);
  exr_get_pixel_aspect_ratio(context, part, &pixel_aspect);
  ORX_IFD &ifd = *image.ifd;
  const int64_t width = int64_t{display.max.x} - display.min.x + 1;
  const int64_t height = int64_t{display.max.y} - display.min.y + 1;
  if (width <= 0 || height <= 0 || width > INT32_MAX || height > INT32_MAX ||
      data.max.x < data.min.x || data.max.y < data.min.y)
    return kit_fail(ORX_E_NOT_OUR_FILE, "exr: %s: part %d has an empty window", path, part);
  if (image.level > 0) {
    // A mip level: its own size from the data window's corner.
    int32_t lw = 0, lh = 0;
    if (exr_get_level_sizes(context, part, image.level, image.level, &lw, &lh) != EXR_ERR_SUCCESS ||
        lw <= 0 || lh <= 0)
      return kit_fail(ORX_E_NOT_OUR_FILE, "exr: %s: part %d has a damaged level", path, part);
    display = data;
    data.max.x = display.max.x = data.min.x + lw - 1;
    data.max.y = display.max.y = data.min.y + lh - 1;
  }
  kit_describe_size(&ifd, display.max.x - display.min.x + 1, display.max.y - display.min.y + 1,
                    pixel_aspect);
  const auto least = [](int32_t a, int32_t b) { return a < b ? a : b; };
  const auto most = [](int32_t a, int32_t b) { return a > b ? a : b; };
  ifd.window = {least(display.min.x, data.min.x), most(display.max.x, data.max.x),
                least(display.min.y, data.min.y), most(display.max.y, data.max.y)};
  const ORX_WINDOW &w = ifd.window;
  ifd.active = {data.min.x, data.max.x, exr_row(w, data.max.y), exr_row(w, data.min.y)};
  ifd.curve.gamma = 1.0f;
  std::string names;
  KitLayout layout = image.luminance_chroma ? rgba_of(*list, names)
                                           : order_channels(*list, image.plane_channel, names);
  exr_compression_t method = EXR_COMPRESSION_NONE;
  exr_get_compression(context, part, &method);
  image.classic = !image.deep && !image.luminance_chroma && beyond_c_library(method, *list);
  if (image.deep || image.classic)
    for (std::size_t at = 0; at <= names.size();) {
      const std::size_t end = names.find(',', at) == std::string::npos ? names.size() : names.find(',', at);
      image.names.push_back(names.substr(at, end - at));
      at = end + 1;
    }
  if (image.deep) {
    // Composited samples are floats whatever the file stored.
    for (int g = 0; g < 3; ++g) layout.type[g] = ORX_C_FLOAT, layout.bits[g] = 32;
    if (const char *problem = deep_problem(image.names))
      return kit_fail(ORX_E_UNSUPPORTED, "exr: %s: part %d %s", path, part, problem);
    if (ORX_attr_set_string(&info, index, "orx:flattened",
                            "deep samples composited front to back") != 0)
      return false;
  }
  kit_layout_apply(&layout, &ifd);
  // Group names: "rgb" or the image channel's own name, and the auxiliary
  // channels' names, comma-separated.
  const auto first_comma = [&](size_t skip) {
    size_t at = 0;
    for (size_t k = 0; k < skip && at != std::string::npos; ++k) at = names.find(',', at) + 1;
    return at;
  };
  const size_t aux_at = first_comma(static_cast<size_t>(layout.count[0] + layout.count[1]));
  const std::string image_name =
      layout.count[0] == 3 ? "rgb" : layout.count[0] == 1 ? names.substr(0, names.find(',')) : "";
  const std::string aux_names = layout.count[2] > 0 ? names.substr(aux_at) : "";
  if (!kit_save(&ifd.image.name, image_name.empty() ? nullptr : image_name.c_str()) ||
      !kit_save(&ifd.aux.name, aux_names.empty() ? nullptr : aux_names.c_str()) ||
      !describe_attributes(context, part, index, display, names, info))
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
  // Every part is an image, and every level of a mipmapped part.
  std::vector<std::pair<int, int>> images;
  for (int p = 0; p < parts; ++p) {
    int32_t levels = 1, levels_y = 1;
    exr_tile_level_mode_t mode = EXR_TILE_ONE_LEVEL;
    exr_tile_round_mode_t round;
    uint32_t xs, ys;
    exr_storage_t storage;
    if (exr_get_storage(file->context, p, &storage) == EXR_ERR_SUCCESS &&
        storage == EXR_STORAGE_TILED &&
        exr_get_tile_descriptor(file->context, p, &xs, &ys, &mode, &round) == EXR_ERR_SUCCESS &&
        mode == EXR_TILE_MIPMAP_LEVELS &&
        exr_get_tile_levels(file->context, p, &levels, &levels_y) == EXR_ERR_SUCCESS) {
      levels = levels < 1 ? 1 : levels;
    } else {
      levels = 1;
    }
    for (int l = 0; l < levels; ++l) images.emplace_back(p, l);
  }
  const auto count = static_cast<int32_t>(images.size());
  if (!kit_new_images(object, count)) {
    delete file;
    return 0;
  }
  for (int32_t i = 0; i < count; ++i) {
    auto *image = new (std::nothrow) InImage;
    object->private_cell[i] = image;
    if (image == nullptr) {
      release(object, file);
      return kit_fail(ORX_E_NO_MEMORY, "exr: no memory for %s", path);
    }
    image->file = file;
    image->ifd = &object->info.images[i];
    image->part = images[static_cast<size_t>(i)].first;
    image->level = images[static_cast<size_t>(i)].second;
    if (!describe(*image, object->info, i)) {
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
