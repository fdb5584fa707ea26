// OpenEXR files through the OpenEXR library: half, float and unsigned
// integer channels, all read as 32-bit float; R, G, B (or Y) are the image
// channels, A the matte and every other channel auxiliary, their names kept
// in the auxiliary group's name, comma-separated.  The display window is the
// window and the data window the active window (EXR rows run downwards, so
// line L is row bottom + top - L).  Every part of a multi-part file is an
// image.  Writing stores half or float channels and the compression chosen
// by the capability settings.
//
// OpenEXR reports failures by exception; none leaves this file.
#include <half.h>
#include <ImfChannelList.h>
#include <ImfChromaticitiesAttribute.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputPart.h>
#include <ImfMultiPartInputFile.h>
#include <ImfMultiPartOutputFile.h>
#include <ImfOutputPart.h>
#include <ImfPartType.h>
#include <ImfStandardAttributes.h>
#include <ImfStringAttribute.h>
#include <openexr.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "orx/err.h"
#include "orx/limits.h"
#include "orx/plugin.h"
#include "plugin_kit.h"

extern "C" {

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "exr";
const char *imageExtension = ".exr";
const char *imageName = "OpenEXR";
const char *imageDescription =
    "OpenEXR: half and float channels, data and display windows, multi-part files";
const char *imageNameSyntax = "Name.####.exr";
int imageOrientation = 0;
int imageNumberOfChannels = 3;
int imageBitsPerChannel = -1;
int imageNumberOfMattes = 1;
int imageBitsPerMatte = -1;
int imageNumberOfZChannels = 1;
int imageBitsPerZChannel = -1;
int imageSupportsActiveWindow = 1;
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_WRITE | ORX_ACCESS_RANDOM;

}  // extern "C"

namespace {

// Settings: the compression and the pixel type of written channels.
enum { kCapCompression = 0, kCapPixelType = 1 };
ORX_CAP_LIST_ENTRY compressions[] = {
    {Imf::NO_COMPRESSION, const_cast<char *>("none"), 0, nullptr},
    {Imf::RLE_COMPRESSION, const_cast<char *>("rle"), 0, nullptr},
    {Imf::ZIPS_COMPRESSION, const_cast<char *>("zips"), 0, nullptr},
    {Imf::ZIP_COMPRESSION, const_cast<char *>("zip"), 0, nullptr},
    {Imf::PIZ_COMPRESSION, const_cast<char *>("piz"), 0, nullptr},
    {Imf::PXR24_COMPRESSION, const_cast<char *>("pxr24"), 0, nullptr},
    {Imf::B44_COMPRESSION, const_cast<char *>("b44"), 0, nullptr},
    {Imf::B44A_COMPRESSION, const_cast<char *>("b44a"), 0, nullptr},
    {Imf::DWAA_COMPRESSION, const_cast<char *>("dwaa"), 0, nullptr},
    {Imf::DWAB_COMPRESSION, const_cast<char *>("dwab"), 0, nullptr},
    {0, nullptr, 0, nullptr},
};
ORX_CAP_LIST compression = {Imf::ZIP_COMPRESSION, 0, compressions};
enum { kHalf = 0, kFloat = 1 };
ORX_CAP_LIST_ENTRY pixel_types[] = {
    {kHalf, const_cast<char *>("half"), 0, nullptr},
    {kFloat, const_cast<char *>("float"), 0, nullptr},
    {0, nullptr, 0, nullptr},
};
ORX_CAP_LIST pixel_type = {kHalf, 0, pixel_types};
ORX_CAP_ENTRY capabilities[] = {
    {kCapCompression, const_cast<char *>("compression"), 0, nullptr, 0, &compression, 0},
    {kCapPixelType, const_cast<char *>("pixel type"), 0, nullptr, 0, &pixel_type, 0},
};

constexpr char kWho[] = "exr";

// The header texts and the string attributes that carry them.
struct Text {
  const char *attribute;
  char *ORX_INFO::*field;
};
constexpr Text kTexts[] = {
    {"imageName", &ORX_INFO::name},   {"comments", &ORX_INFO::desc},
    {"software", &ORX_INFO::program}, {"hostComputer", &ORX_INFO::machine},
    {"owner", &ORX_INFO::user},       {"creationDate", &ORX_INFO::date},
    {"renderTime", &ORX_INFO::time},  {"filter", &ORX_INFO::filter},
};

// The file, shared by its images.
struct ExrFile {
  std::string path;
  std::unique_ptr<Imf::MultiPartInputFile> input;
  bool writing = false;
  int created = 0;
  Imf::Compression compression = Imf::ZIP_COMPRESSION;
  Imf::PixelType type = Imf::HALF;
};

// One image: a part of the file.
struct ExrImage {
  ExrFile *file;
  ORX_IFD *ifd;
  int part;
  std::vector<std::string> channels;  // file channel of each plane channel
  int decoded = 0;                    // 1 once the plane holds the image, or a status
  KitPlane plane{};
};

// EXR row of line L of a window, and the reverse.
int exr_row(const ORX_WINDOW &w, int line) { return w.bottom + w.top - line; }

// Frees the images and the file.
void release(ORX_OBJECT *object, ExrFile *file) {
  for (int32_t i = 0; object->private_cell != nullptr && i < object->info.image_count; ++i) {
    auto *image = static_cast<ExrImage *>(object->private_cell[i]);
    if (image == nullptr) continue;
    kit_plane_free(&image->plane);
    delete image;
    object->private_cell[i] = nullptr;
  }
  delete file;
}

// One image record per descriptor; false when memory is short.
bool new_images(ORX_OBJECT *object, ExrFile *file) {
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    auto *image = new (std::nothrow) ExrImage;
    if (image != nullptr) *image = ExrImage{file, &object->info.images[i], i, {}, 0, {}};
    if (image == nullptr) {
      kit_fail(ORX_E_NO_MEMORY, "exr: no memory for %s", file->path.c_str());
      return false;
    }
    object->private_cell[i] = image;
  }
  return true;
}

// Slices of every plane channel as 32-bit floats, placed so that EXR pixel
// (x, y) of the data window lands in the plane.
Imf::FrameBuffer frame_buffer(ExrImage &image) {
  KitPlane &p = image.plane;
  const int x0 = p.active.left;
  const int y0 = exr_row(p.window, p.active.top);
  Imf::FrameBuffer fb;
  for (int32_t c = 0; c < p.channels; ++c) {
    const std::size_t step = kit_plane_step(&p, c);
    char *origin = reinterpret_cast<char *>(kit_plane_at(&p, 0, c)) -
                   static_cast<std::ptrdiff_t>(x0) * static_cast<std::ptrdiff_t>(step) -
                   static_cast<std::ptrdiff_t>(y0) * static_cast<std::ptrdiff_t>(p.line_bytes);
    fb.insert(image.channels[static_cast<std::size_t>(c)],
              Imf::Slice(Imf::FLOAT, origin, step, p.line_bytes, 1, 1, 0.0));
  }
  return fb;
}

// --- Reading ---------------------------------------------------------------

int decode(void *data) {
  auto &image = *static_cast<ExrImage *>(data);
  try {
    Imf::InputPart part(*image.file->input, image.part);
    part.setFrameBuffer(frame_buffer(image));
    const ORX_WINDOW &w = image.plane.window;
    part.readPixels(exr_row(w, image.plane.active.top), exr_row(w, image.plane.active.bottom));
    return 0;
  } catch (const std::exception &e) {
    kit_fail(ORX_E_READ, "exr: cannot read %s: %s", image.file->path.c_str(), e.what());
    return ORX_E_READ;
  }
}

int scan_read(void *data, int32_t line, void *out) {
  auto &image = *static_cast<ExrImage *>(data);
  return kit_scan_decoded(&image.plane, &image.decoded, decode, data, line, out, kWho,
                          image.file->path.c_str());
}

// The channels of a part in plane order: R, G, B (or Y, or the first other
// channel) as the image, A as the matte, the rest auxiliary.
KitLayout order_channels(const Imf::ChannelList &list, std::vector<std::string> &order,
                         std::string &aux_names) {
  std::vector<std::string> names;
  for (auto it = list.begin(); it != list.end(); ++it) names.emplace_back(it.name());
  auto take = [&](const char *name) {
    for (auto it = names.begin(); it != names.end(); ++it)
      if (*it == name) {
        order.push_back(*it);
        names.erase(it);
        return true;
      }
    return false;
  };
  KitLayout layout = {{0, 0, 0}, {ORX_C_FLOAT, ORX_C_FLOAT, ORX_C_FLOAT}, {32, 32, 32}};
  if (list.findChannel("R") && list.findChannel("G") && list.findChannel("B")) {
    take("R");
    take("G");
    take("B");
    layout.count[0] = 3;
  } else if (take("Y")) {
    layout.count[0] = 1;
  } else {
    auto first = names.begin();
    while (first != names.end() && *first == "A") ++first;
    if (first != names.end()) {
      order.push_back(*first);
      names.erase(first);
      layout.count[0] = 1;
    }
  }
  layout.count[1] = take("A") ? 1 : 0;
  for (const std::string &n : names) {
    order.push_back(n);
    aux_names += (aux_names.empty() ? "" : ",") + n;
  }
  layout.count[2] = static_cast<int32_t>(names.size());
  return layout;
}

// The descriptor of part `image.part`, and the header texts of the first.
bool describe(ORX_OBJECT *object, ExrImage &image) {
  const Imf::Header &h = image.file->input->header(image.part);
  if (h.hasType() && Imf::isDeepData(h.type()))
    return kit_fail(ORX_E_UNSUPPORTED, "exr: %s: part %d holds deep data", image.file->path.c_str(),
                    image.part);
  const Imath::Box2i &display = h.displayWindow();
  const Imath::Box2i &data = h.dataWindow();
  ORX_IFD &ifd = *image.ifd;
  const int width = display.max.x - display.min.x + 1, height = display.max.y - display.min.y + 1;
  kit_describe_size(&ifd, width, height, h.pixelAspectRatio());
  ifd.window = {display.min.x, display.max.x, display.min.y, display.max.y};
  // The data window, clipped to the display window.
  const ORX_WINDOW &w = ifd.window;
  ifd.active = {std::max(data.min.x, w.left), std::min(data.max.x, w.right),
                std::max(exr_row(w, data.max.y), w.bottom), std::min(exr_row(w, data.min.y), w.top)};
  if (ifd.active.left > ifd.active.right || ifd.active.bottom > ifd.active.top) {
    // No stored pixel within the window: keep one empty line of it.
    ifd.active = {w.left, w.left, w.bottom, w.bottom};
  }
  ifd.curve.gamma = 1.0f;
  std::string aux_names;
  const KitLayout layout = order_channels(h.channels(), image.channels, aux_names);
  kit_layout_apply(&layout, &ifd);
  if (!kit_save(&ifd.image.name, layout.count[0] == 3 ? "rgb" : image.channels.empty() ? nullptr
                                                                : image.channels[0].c_str()) ||
      !kit_save(&ifd.aux.name, aux_names.empty() ? nullptr : aux_names.c_str()))
    return false;
  if (kit_plane_init(&image.plane, &layout, ifd.window, ifd.active, 0, kWho,
                     image.file->path.c_str()) != 0)
    return false;
  if (image.part != 0) return true;
  ORX_INFO &info = object->info;
  for (const Text &t : kTexts)
    if (const auto *a = h.findTypedAttribute<Imf::StringAttribute>(t.attribute))
      if (!kit_save(&(info.*t.field), a->value().c_str())) return false;
  if (Imf::hasChromaticities(h)) {
    const Imf::Chromaticities &c = Imf::chromaticities(h);
    const Imath::V2f *xy[4] = {&c.red, &c.green, &c.blue, &c.white};
    float *to[4] = {info.red, info.green, info.blue, info.white};
    for (int i = 0; i < 4; ++i) {
      to[i][0] = xy[i]->x;
      to[i][1] = xy[i]->y;
      to[i][2] = 1.0f - xy[i]->x - xy[i]->y;
    }
  }
  const char *method = "unknown";
  for (const ORX_CAP_LIST_ENTRY *e = compressions; e->name != nullptr; ++e)
    if (e->value == h.compression()) method = e->name;
  return kit_save(&info.compression, method);
}

int close_object(ORX_OBJECT *object, intptr_t argument);

// What is wrong with the offset table, a chunk's header or the tile size,
// as OpenEXR's core library reads and checks them (no pixel is decoded:
// under a millisecond for a UHD scanline file), or null when nothing is.
// The C++ reader trusts them: a damaged tile header made it copy from an
// uninitialised pointer, and it sizes its buffers from the data window and
// the tile description, which may be far larger than the picture.  Deep
// parts are left to the refusal that names them.
const char *chunk_problem(const char *path) {
  static const char kDamaged[] = "the chunk offsets or a chunk header are damaged";
  static const char kLarge[] = "its chunks need more than the image memory limit";
  // A chunk decodes into at most four bytes a sample, in every channel.
  const auto too_large = [](std::uint64_t pixels, const exr_attr_chlist_t *channels) {
    return pixels * static_cast<std::uint64_t>(channels->num_channels) * 4 >
           static_cast<std::uint64_t>(ORX_limit(ORX_LIMIT_ROW_MEMORY));
  };
  exr_context_t context = nullptr;
  exr_context_initializer_t init = EXR_DEFAULT_CONTEXT_INITIALIZER;
  init.error_handler_fn = [](exr_const_context_t, exr_result_t, const char *) {};
  if (exr_start_read(&context, path, &init) != EXR_ERR_SUCCESS) {
    exr_finish(&context);
    return kDamaged;
  }
  const char *problem = nullptr;
  int parts = 0;
  bool sound = exr_get_count(context, &parts) == EXR_ERR_SUCCESS;
  for (int p = 0; sound && p < parts; ++p) {
    exr_storage_t storage;
    exr_attr_box2i_t window;
    sound = exr_get_storage(context, p, &storage) == EXR_ERR_SUCCESS &&
            exr_get_data_window(context, p, &window) == EXR_ERR_SUCCESS;
    exr_chunk_info_t chunk;
    const exr_attr_chlist_t *channels = nullptr;
    sound = sound && exr_get_channels(context, p, &channels) == EXR_ERR_SUCCESS;
    if (sound && storage == EXR_STORAGE_SCANLINE) {
      int32_t lines = 0;
      sound = exr_get_scanlines_per_chunk(context, p, &lines) == EXR_ERR_SUCCESS && lines > 0;
      const std::int64_t width = std::int64_t{window.max.x} - window.min.x + 1;
      if (sound && (width <= 0 || too_large(static_cast<std::uint64_t>(width) *
                                                static_cast<std::uint64_t>(lines),
                                            channels))) {
        problem = kLarge;
        sound = false;
      }
      for (std::int64_t y = window.min.y; sound && y <= window.max.y; y += lines)
        sound = exr_read_scanline_chunk_info(context, p, static_cast<int>(y), &chunk) ==
                EXR_ERR_SUCCESS;
    } else if (sound && storage == EXR_STORAGE_TILED) {
      int32_t levels_x = 0, levels_y = 0;
      sound = exr_get_tile_levels(context, p, &levels_x, &levels_y) == EXR_ERR_SUCCESS;
      for (int lx = 0; sound && lx < levels_x; ++lx)
        for (int ly = 0; sound && ly < levels_y; ++ly) {
          int32_t w = 0, h = 0, tw = 0, th = 0;
          sound = exr_get_level_sizes(context, p, lx, ly, &w, &h) == EXR_ERR_SUCCESS &&
                  exr_get_tile_sizes(context, p, lx, ly, &tw, &th) == EXR_ERR_SUCCESS &&
                  tw > 0 && th > 0;
          if (sound && too_large(static_cast<std::uint64_t>(tw) * static_cast<std::uint64_t>(th),
                                 channels)) {
            problem = kLarge;
            sound = false;
          }
          const std::int64_t across = sound ? (std::int64_t{w} + tw - 1) / tw : 0;
          const std::int64_t down = sound ? (std::int64_t{h} + th - 1) / th : 0;
          for (std::int64_t ty = 0; sound && ty < down; ++ty)
            for (std::int64_t tx = 0; sound && tx < across; ++tx)
              sound = exr_read_tile_chunk_info(context, p, static_cast<int>(tx),
                                               static_cast<int>(ty), lx, ly,
                                               &chunk) == EXR_ERR_SUCCESS;
        }
    }
  }
  exr_finish(&context);
  return sound ? nullptr : problem != nullptr ? problem : kDamaged;
}

// Bytes OpenEXR reads for the value of an attribute of a fixed-size type,
// whatever size the header declares for it; 0 for the types it reads by the
// declared size (strings, vectors, unknown types kept opaque).
std::int64_t fixed_value_size(const std::string &type) {
  static const struct {
    const char *type;
    std::int64_t size;
  } kFixed[] = {{"box2i", 16},  {"box2f", 16},     {"chromaticities", 32}, {"compression", 1},
                {"double", 8},  {"envmap", 1},     {"float", 4},           {"int", 4},
                {"keycode", 28}, {"lineOrder", 1}, {"m33f", 36},           {"m33d", 72},
                {"m44f", 64},   {"m44d", 128},     {"rational", 8},        {"tiledesc", 9},
                {"timecode", 8}, {"v2i", 8},       {"v2f", 8},             {"v2d", 16},
                {"v3i", 12},    {"v3f", 12},       {"v3d", 24},            {"deepImageState", 1}};
  for (const auto &f : kFixed)
    if (type == f.type) return f.size;
  return 0;
}

// Whether every attribute of the file's headers fits in the file.  OpenEXR
// sizes an attribute's buffer from the size the header declares before it
// reads a byte of it, so a few bytes could otherwise make it allocate and
// clear gigabytes.  Layout: magic and version (8 bytes), then headers of
// attributes (name, type name, 32-bit little-endian size, value), each
// header ended by an empty name, and for multi-part files an empty header
// after the last.  The walk reads values as OpenEXR does, which is not
// always by the declared size: fixed-size types take their own size, a
// channel list runs to its empty name and a preview image to its width
// times height, so the next attribute checked is the one OpenEXR reads.
bool headers_fit(const char *path) {
  std::FILE *f = std::fopen(path, "rb");
  if (f == nullptr) return true;  // OpenEXR reports what is wrong
  bool fit = std::fseek(f, 0, SEEK_END) == 0;
  const long size = std::ftell(f);
  unsigned char head[8];
  fit = fit && size >= 8 && std::fseek(f, 0, SEEK_SET) == 0 && std::fread(head, 1, 8, f) == 8;
  const bool multipart = fit && (head[5] & 0x10) != 0;
  // Reads a name; false at end of file or past 255 characters.
  auto name = [&](std::string &out) {
    out.clear();
    for (int c; (c = std::fgetc(f)) != 0;) {
      if (c == EOF || out.size() > 255) return false;
      out.push_back(static_cast<char>(c));
    }
    return true;
  };
  auto word = [&](std::int64_t *value) {
    unsigned char b[4];
    if (std::fread(b, 1, 4, f) != 4) return false;
    *value = static_cast<std::int32_t>(b[0] | b[1] << 8 | b[2] << 16 |
                                       static_cast<std::uint32_t>(b[3]) << 24);
    return true;
  };
  // Skips n bytes that must lie within the file.
  auto skip = [&](std::int64_t n) {
    return n >= 0 && n <= size - std::ftell(f) && std::fseek(f, static_cast<long>(n), SEEK_CUR) == 0;
  };
  std::string attribute, type, channel;
  for (bool more_headers = fit; more_headers && fit;) {
    int count = 0;
    for (; (fit = name(attribute)) && !attribute.empty(); ++count) {
      std::int64_t length = 0;
      fit = name(type) && word(&length) && length >= 0 && length <= size - std::ftell(f);
      if (fit && type == "chlist") {
        while ((fit = name(channel)) && !channel.empty() && (fit = skip(16))) {
        }
      } else if (fit && type == "preview") {
        std::int64_t width = 0, height = 0;
        fit = word(&width) && word(&height) && width >= 0 && height >= 0 &&
              (width == 0 || height <= (size / 4) / width) && skip(width * height * 4);
      } else if (fit) {
        const std::int64_t fixed = fixed_value_size(type);
        fit = skip(fixed > 0 ? fixed : length);
      }
      if (!fit) break;
    }
    more_headers = multipart && count > 0;
  }
  std::fclose(f);
  return fit;
}

}  // namespace

extern "C" int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == nullptr) return kit_fail(ORX_E_FIELD_MISSING, "exr: no file name to read");
  auto *file = new (std::nothrow) ExrFile;
  if (file == nullptr) return kit_fail(ORX_E_NO_MEMORY, "exr: no memory for %s", path);
  file->path = path;
  if (!headers_fit(path)) {
    delete file;
    return kit_fail(ORX_E_NOT_OUR_FILE, "exr: %s: a header attribute runs past the end of the file",
                    path);
  }
  if (const char *problem = chunk_problem(path)) {
    delete file;
    return kit_fail(ORX_E_NOT_OUR_FILE, "exr: %s: %s", path, problem);
  }
  try {
    file->input = std::make_unique<Imf::MultiPartInputFile>(path, 0);
  } catch (const std::exception &e) {
    delete file;
    return kit_fail(ORX_E_NOT_OUR_FILE, "exr: cannot open %s: %s", path, e.what());
  }
  const int parts = file->input->parts();
  if (!kit_new_images(object, parts) || !new_images(object, file)) {
    release(object, file);
    return 0;
  }
  for (int i = 0; i < parts; ++i)
    if (!describe(object, *static_cast<ExrImage *>(object->private_cell[i]))) {
      release(object, file);
      return 0;
    }
  object->scan = scan_read;
  object->close = close_object;
  return 1;
}

extern "C" uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char magic[4];
  return kit_peek(name, stream, magic, 4) == 4 && magic[0] == 0x76 && magic[1] == 0x2f &&
         magic[2] == 0x31 && magic[3] == 0x01;
}

extern "C" void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second,
                                        int32_t *count) {
  *table = capabilities;
  *first = 2;
  *second = 0;
  *count = 2;
}

// --- Writing ---------------------------------------------------------------

namespace {

// The file channel names of a descriptor's channels: R, G, B or Y, then A,
// then the auxiliary group's comma-separated names when there are as many
// as channels, otherwise Z for a lone channel or aux.0, aux.1, ...
std::vector<std::string> channel_names(const ORX_IFD &ifd) {
  std::vector<std::string> names;
  if (ifd.image.count == 3) names = {"R", "G", "B"};
  else if (ifd.image.count == 1) names = {"Y"};
  if (ifd.matte.count == 1) names.emplace_back("A");
  std::vector<std::string> aux;
  std::string list = ifd.aux.name != nullptr ? ifd.aux.name : "";
  for (std::size_t start = 0; !list.empty() && start <= list.size();) {
    std::size_t end = list.find(',', start);
    if (end == std::string::npos) end = list.size();
    aux.push_back(list.substr(start, end - start));
    start = end + 1;
  }
  if (static_cast<int32_t>(aux.size()) != ifd.aux.count) {
    aux.clear();
    for (int32_t k = 0; k < ifd.aux.count; ++k)
      aux.push_back(ifd.aux.count == 1 ? "Z" : "aux." + std::to_string(k));
  }
  names.insert(names.end(), aux.begin(), aux.end());
  return names;
}

bool plan(const ORX_IFD &ifd, const char *path) {
  if (ifd.image.count != 1 && ifd.image.count != 3)
    return kit_fail(ORX_E_UNSUPPORTED, "exr: %s: cannot store %d image channels (1 or 3)", path,
                    ifd.image.count);
  if (ifd.matte.count > 1)
    return kit_fail(ORX_E_UNSUPPORTED, "exr: %s: cannot store %d mattes (at most 1)", path,
                    ifd.matte.count);
  return true;
}

int scan_write(void *data, int32_t line, void *in) {
  auto &image = *static_cast<ExrImage *>(data);
  return kit_plane_store(&image.plane, image.ifd, line, static_cast<void **>(in), kWho);
}

}  // namespace

extern "C" int imageWriteOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (object->info.image_count < 1)
    return kit_fail(ORX_E_UNSUPPORTED, "exr: %s: no image to write", path);
  for (int32_t i = 0; i < object->info.image_count; ++i)
    if (!plan(object->info.images[i], path)) return 0;
  if (!kit_new_cell(object, object->info.image_count)) return 0;
  auto *file = new (std::nothrow) ExrFile;
  if (file == nullptr) return kit_fail(ORX_E_NO_MEMORY, "exr: no memory for %s", path);
  file->path = path != nullptr ? path : "";
  file->writing = true;
  const int32_t method = kit_setting_int(object, kCapCompression, compression.default_value);
  file->compression = method >= 0 && method < Imf::NUM_COMPRESSION_METHODS
                          ? static_cast<Imf::Compression>(method)
                          : Imf::ZIP_COMPRESSION;
  file->type = kit_setting_int(object, kCapPixelType, pixel_type.default_value) == kFloat
                   ? Imf::FLOAT
                   : Imf::HALF;
  if (!new_images(object, file)) {
    release(object, file);
    return 0;
  }
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    auto &image = *static_cast<ExrImage *>(object->private_cell[i]);
    image.channels = channel_names(*image.ifd);
    KitLayout layout = kit_layout_of(image.ifd);
    for (int g = 0; g < 3; ++g) {
      layout.type[g] = ORX_C_FLOAT;
      layout.bits[g] = 32;
    }
    if (kit_plane_init(&image.plane, &layout, image.ifd->window, image.ifd->active, 1, kWho,
                       path) != 0) {
      release(object, file);
      return 0;
    }
  }
  if (!kit_claim(kWho, path, &file->created)) {
    release(object, file);
    return 0;
  }
  object->scan = scan_write;
  object->close = close_object;
  return 1;
}

namespace {

Imf::Header header_of(ORX_OBJECT *object, const ExrImage &image) {
  const ORX_WINDOW &w = image.plane.window, &a = image.plane.active;
  Imf::Header h(Imath::Box2i({w.left, w.bottom}, {w.right, w.top}),
                Imath::Box2i({a.left, exr_row(w, a.top)}, {a.right, exr_row(w, a.bottom)}),
                image.ifd->aspect_ratio > 0 && image.ifd->y_resolution > 0
                    ? image.ifd->aspect_ratio * static_cast<float>(w.top - w.bottom + 1) /
                          static_cast<float>(w.right - w.left + 1)
                    : 1.0f);
  h.compression() = image.file->compression;
  for (const std::string &name : image.channels)
    h.channels().insert(name, Imf::Channel(image.file->type));
  h.setType(Imf::SCANLINEIMAGE);
  if (object->info.image_count > 1) h.setName("image" + std::to_string(image.part));
  const ORX_INFO &info = object->info;
  for (const Text &t : kTexts)
    if (kit_has_text(info.*t.field)) h.insert(t.attribute, Imf::StringAttribute(info.*t.field));
  Imf::addChromaticities(
      h, Imf::Chromaticities({info.red[0], info.red[1]}, {info.green[0], info.green[1]},
                             {info.blue[0], info.blue[1]}, {info.white[0], info.white[1]}));
  return h;
}

// Slices of a half copy of the plane, one block of rows per channel.
Imf::FrameBuffer half_buffer(ExrImage &image, std::vector<half> &halves) {
  KitPlane &p = image.plane;
  const std::size_t width = static_cast<std::size_t>(kit_plane_width(&p));
  const std::size_t height = static_cast<std::size_t>(kit_plane_height(&p));
  halves.resize(width * height * static_cast<std::size_t>(p.channels));
  const int x0 = p.active.left;
  const int y0 = exr_row(p.window, p.active.top);
  Imf::FrameBuffer fb;
  for (int32_t c = 0; c < p.channels; ++c) {
    half *block = halves.data() + static_cast<std::size_t>(c) * width * height;
    const std::size_t step = kit_plane_step(&p, c);
    for (std::size_t r = 0; r < height; ++r) {
      const unsigned char *row = kit_plane_at(&p, static_cast<int32_t>(r), c);
      for (std::size_t x = 0; x < width; ++x) {
        float v;
        std::memcpy(&v, row + step * x, 4);
        block[r * width + x] = half(v);
      }
    }
    char *origin = reinterpret_cast<char *>(block) - static_cast<std::ptrdiff_t>(x0) * 2 -
                   static_cast<std::ptrdiff_t>(y0) * static_cast<std::ptrdiff_t>(width * 2);
    fb.insert(image.channels[static_cast<std::size_t>(c)],
              Imf::Slice(Imf::HALF, origin, 2, width * 2, 1, 1, 0.0));
  }
  return fb;
}

int encode(ORX_OBJECT *object, ExrFile &file) {
  try {
    std::vector<Imf::Header> headers;
    for (int32_t i = 0; i < object->info.image_count; ++i)
      headers.push_back(header_of(object, *static_cast<ExrImage *>(object->private_cell[i])));
    Imf::MultiPartOutputFile out(file.path.c_str(), headers.data(),
                                 static_cast<int>(headers.size()));
    for (int32_t i = 0; i < object->info.image_count; ++i) {
      auto &image = *static_cast<ExrImage *>(object->private_cell[i]);
      Imf::OutputPart part(out, i);
      // OpenEXR converts types on reading only: half channels are written
      // from a half copy of the plane.
      std::vector<half> halves;
      part.setFrameBuffer(file.type == Imf::HALF ? half_buffer(image, halves)
                                                 : frame_buffer(image));
      part.writePixels(kit_plane_height(&image.plane));
    }
    return 0;
  } catch (const std::exception &e) {
    kit_fail(ORX_E_WRITE, "exr: cannot write %s: %s", file.path.c_str(), e.what());
    return ORX_E_WRITE;
  }
}

int close_object(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  auto *first = object->private_cell != nullptr ? static_cast<ExrImage *>(object->private_cell[0])
                                                : nullptr;
  ExrFile *file = first != nullptr ? first->file : nullptr;
  int status = 0;
  if (file != nullptr && file->writing) {
    status = encode(object, *file);
    if (status != 0) kit_release(file->path.c_str(), file->created);
  }
  release(object, file);
  orx__free_obj(object);
  return status;
}

}  // namespace
