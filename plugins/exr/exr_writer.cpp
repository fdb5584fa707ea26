// Writing OpenEXR files through OpenEXR's C++ library: the host's lines are
// kept in a plane per part until close encodes every part in one file.
//
// OpenEXR reports failures by exception; none leaves this file.
#include <half.h>
#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfMultiPartOutputFile.h>
#include <ImfOutputPart.h>
#include <ImfPartType.h>
#include <ImfStandardAttributes.h>
#include <ImfTiledOutputFile.h>
#include <ImfStringAttribute.h>
#include <ImfDoubleAttribute.h>
#include <ImfFloatAttribute.h>
#include <ImfIntAttribute.h>
#include <ImfMatrixAttribute.h>
#include <ImfVecAttribute.h>
#include <strings.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "exr_plugin.hpp"
#include "orx/attributes.h"
#include "orx/err.h"
#include "plugin_kit.h"

namespace exr_plugin {
namespace {

// The file being written, shared by its images.
struct OutFile {
  std::string path;
  int created = 0;
  Imf::Compression compression = Imf::ZIP_COMPRESSION;
  int32_t forced = kSource;  // the pixel-type setting
};

// One image: a part of the file.
struct OutImage {
  OutFile *file;
  ORX_IFD *ifd;
  int part;
  std::vector<std::string> channels;   // file channel of each plane channel
  std::vector<Imf::PixelType> types;   // file pixel type of each plane channel
  std::vector<float> line;             // a host row as floats
  KitPlane plane{};
};

void release(ORX_OBJECT *object, OutFile *file) { exr_plugin::release<OutImage>(object, file); }

std::vector<std::string> split(const char *list) {
  std::vector<std::string> names;
  const std::string text = list != nullptr ? list : "";
  for (std::size_t start = 0; !text.empty() && start <= text.size();) {
    std::size_t end = text.find(',', start);
    if (end == std::string::npos) end = text.size();
    names.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return names;
}

// A name list that names count channels, none of them empty or twice.
bool usable(const std::vector<std::string> &names, std::size_t count) {
  if (names.size() != count) return false;
  for (std::size_t i = 0; i < names.size(); ++i)
    for (std::size_t j = 0; j <= i; ++j)
      if (names[i].empty() || (j < i && names[i] == names[j])) return false;
  return true;
}

// The file channel names of image i: the "channelnames" attribute when it
// names every channel (a file read before keeps its names); otherwise R, G,
// B or Y (the image group's name says what kind of channels it holds, not
// what to call them), then A, then the auxiliary group's names when there
// are as many as channels, else Z for a lone channel or aux.0, aux.1, ...
std::vector<std::string> channel_names(const ORX_INFO &info, int32_t i) {
  const ORX_IFD &ifd = info.images[i];
  const auto total = static_cast<std::size_t>(ifd.image.count + ifd.matte.count + ifd.aux.count);
  std::vector<std::string> names = split(ORX_attr_get_string(&info, i, "channelnames"));
  if (usable(names, total)) return names;
  names.clear();
  if (ifd.image.count == 3) names = {"R", "G", "B"};
  for (int32_t k = 0; ifd.image.count != 3 && k < ifd.image.count; ++k)
    names.push_back(ifd.image.count == 1 ? "Y" : "image." + std::to_string(k));
  for (int32_t k = 0; k < ifd.matte.count; ++k)
    names.push_back(ifd.matte.count == 1 ? "A" : "A." + std::to_string(k));
  std::vector<std::string> aux = split(ifd.aux.name);
  if (!usable(aux, static_cast<std::size_t>(ifd.aux.count))) {
    aux.clear();
    for (int32_t k = 0; k < ifd.aux.count; ++k)
      aux.push_back(ifd.aux.count == 1 ? "Z" : "aux." + std::to_string(k));
  }
  names.insert(names.end(), aux.begin(), aux.end());
  if (!usable(names, total)) {  // the groups' names collide: number them
    names.clear();
    for (std::size_t k = 0; k < total; ++k) names.push_back("channel." + std::to_string(k));
  }
  return names;
}

// The pixel type a group is stored in: what holds its samples, unless a
// setting forces half or float.  Float of at most 16 bits is half
// precision; integers of up to 16 bits fit half as closely as any reader
// resolves them; 32-bit integers stay integers.
Imf::PixelType pixel_type_of(const ORX_CHANNELS &g, int32_t forced) {
  if (forced == kHalf) return Imf::HALF;
  if (forced == kFloat) return Imf::FLOAT;
  if (g.type == ORX_C_INTEGER) return g.bits <= 16 ? Imf::HALF : g.bits == 32 ? Imf::UINT : Imf::FLOAT;
  if (g.type == ORX_C_FLOAT && g.bits > 0 && g.bits <= 16) return Imf::HALF;
  return Imf::FLOAT;
}

// What storing a group in type loses, or null.
const char *narrowing(const ORX_CHANNELS &g, Imf::PixelType type) {
  if (g.count <= 0) return nullptr;
  if (type == Imf::HALF)
    return g.type == ORX_C_INTEGER ? (g.bits > 8 ? "integer samples stored as half" : nullptr)
           : g.bits > 16          ? "float samples stored as half"
                                  : nullptr;
  if (type == Imf::FLOAT)
    return g.type == ORX_C_DOUBLE                      ? "double samples stored as float"
           : g.type == ORX_C_INTEGER && g.bits > 24 ? "32-bit integer samples stored as float"
                                                    : nullptr;
  return nullptr;
}

bool plan(const ORX_IFD &ifd, const char *path) {
  if (ifd.image.count + ifd.matte.count + ifd.aux.count < 1)
    return kit_fail(ORX_E_UNSUPPORTED, "exr: %s: an image without channels", path);
  return true;
}

// Stores the host's rows for line, each channel in its file type: half
// samples converted as the lines arrive (the plane is half the size of a
// float one, and no pass over the whole image converts it at close).
int scan_write(void *data, int32_t line, void *in) {
  auto &image = *static_cast<OutImage *>(data);
  KitPlane &p = image.plane;
  int32_t r;
  const int status = kit_plane_take(&p, line, kWho, &r);
  if (status != 0 || r < 0) return status;
  const int32_t width = kit_plane_width(&p);
  const std::size_t left = static_cast<std::size_t>(p.active.left - p.window.left);
  const ORX_CHANNELS *groups[3] = {&image.ifd->image, &image.ifd->matte, &image.ifd->aux};
  void **rows = static_cast<void **>(in);
  int32_t c = 0;
  for (const ORX_CHANNELS *g : groups) {
    for (int32_t k = 0; k < g->count; ++k, ++c) {
      unsigned char *dst = kit_plane_at(&p, r, c);
      const Imf::PixelType type = image.types[static_cast<std::size_t>(c)];
      if (type == Imf::UINT) {  // 32-bit integers as they are
        std::memcpy(dst, static_cast<const unsigned char *>(rows[c]) + left * 4,
                    static_cast<std::size_t>(width) * 4);
        continue;
      }
      // Float rows are used in place; others become floats first.
      const unsigned char *src = static_cast<const unsigned char *>(rows[c]) + left * 4;
      if (g->type != ORX_C_FLOAT) {
        kit_row_floats(g->type, g->bits, rows[c], left, image.line.data(), width);
        src = reinterpret_cast<const unsigned char *>(image.line.data());
      }
      if (type == Imf::FLOAT) {
        std::memcpy(dst, src, static_cast<std::size_t>(width) * 4);
        continue;
      }
      for (int32_t x = 0; x < width; ++x) {
        float v;
        std::memcpy(&v, src + static_cast<std::size_t>(x) * 4, 4);
        const half h(v);
        std::memcpy(dst + static_cast<std::size_t>(x) * 2, &h, 2);
      }
    }
  }
  return 0;
}

// The "openexr:" attributes written back into the header, by element type
// and count; the display window and view have their own places.
void add_attributes(Imf::Header &h, const ORX_INFO &info, int32_t i) {
  for (int32_t k = 0; const ORX_ATTR *a = ORX_attr_at(&info, i, k); ++k) {
    if (strncasecmp(a->name, "openexr:", 8) != 0) continue;
    const std::string name = a->name + 8;
    if (name == "displayWindow" || name == "view" || h.find(name) != h.end())
      continue;
    const auto *f = static_cast<const float *>(a->data);
    const auto *n = static_cast<const int32_t *>(a->data);
    if (a->type == ORX_ATTR_STRING)
      h.insert(name, Imf::StringAttribute(static_cast<const char *>(a->data)));
    else if (a->type == ORX_ATTR_INT && a->count == 1) h.insert(name, Imf::IntAttribute(n[0]));
    else if (a->type == ORX_ATTR_INT && a->count == 2)
      h.insert(name, Imf::V2iAttribute(Imath::V2i(n[0], n[1])));
    else if (a->type == ORX_ATTR_FLOAT && a->count == 1) h.insert(name, Imf::FloatAttribute(f[0]));
    else if (a->type == ORX_ATTR_FLOAT && a->count == 2)
      h.insert(name, Imf::V2fAttribute(Imath::V2f(f[0], f[1])));
    else if (a->type == ORX_ATTR_FLOAT && a->count == 3)
      h.insert(name, Imf::V3fAttribute(Imath::V3f(f[0], f[1], f[2])));
    else if (a->type == ORX_ATTR_FLOAT && a->count == 9)
      h.insert(name, Imf::M33fAttribute(Imath::M33f(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8])));
    else if (a->type == ORX_ATTR_FLOAT && a->count == 16)
      h.insert(name, Imf::M44fAttribute(Imath::M44f(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8],
                                                    f[9], f[10], f[11], f[12], f[13], f[14], f[15])));
    else if (a->type == ORX_ATTR_DOUBLE && a->count == 1)
      h.insert(name, Imf::DoubleAttribute(static_cast<const double *>(a->data)[0]));
  }
}

// The display window: the attribute a reader left, when it and the data
// window still make up the window (an image resized or cropped since has a
// window of its own, and the attribute no longer describes it), else the
// window itself.
Imath::Box2i display_window(const ORX_INFO &info, int32_t i, const ORX_WINDOW &w,
                            const Imath::Box2i &data) {
  const Imath::Box2i window({w.left, w.bottom}, {w.right, w.top});
  const ORX_ATTR *a = ORX_attr_find(&info, i, "openexr:displayWindow");
  if (a == nullptr || a->type != ORX_ATTR_INT || a->count != 4) return window;
  const auto *v = static_cast<const int32_t *>(a->data);
  Imath::Box2i display({v[0], v[1]}, {v[2], v[3]});
  if (display.isEmpty()) return window;
  Imath::Box2i both = display;
  both.extendBy(data);
  return both == window ? display : window;
}

bool mip_chain(const ORX_OBJECT *object);

Imf::Header header_of(ORX_OBJECT *object, const OutImage &image) {
  const ORX_INFO &info = object->info;
  const ORX_WINDOW &w = image.plane.window, &a = image.plane.active;
  const Imath::Box2i data({a.left, exr_row(w, a.top)}, {a.right, exr_row(w, a.bottom)});
  const Imath::Box2i display = display_window(info, image.part, w, data);
  const Imath::V2i size = display.size() + Imath::V2i(1, 1);
  Imf::Header h(display, data,
                image.ifd->aspect_ratio > 0 && image.ifd->y_resolution > 0
                    ? image.ifd->aspect_ratio * static_cast<float>(size.y) /
                          static_cast<float>(size.x)
                    : 1.0f);
  h.compression() = image.file->compression;
  for (std::size_t c = 0; c < image.channels.size(); ++c)
    h.channels().insert(image.channels[c], Imf::Channel(image.types[c]));
  h.setType(Imf::SCANLINEIMAGE);
  const char *part_name = ORX_attr_get_string(&info, image.part, "oiio:subimagename");
  if (part_name != nullptr && *part_name != 0) h.setName(part_name);
  else if (info.image_count > 1 && !mip_chain(object))  // parts need names; mip levels not
    h.setName("image" + std::to_string(image.part));
  if (const char *view = ORX_attr_get_string(&info, image.part, "openexr:view"))
    h.insert("view", Imf::StringAttribute(view));
  // The print resolution as OpenEXR's xDensity, pixels per inch across.
  double dx = 0.0, dy = 0.0;
  int unit = KIT_UNIT_UNSTATED;
  if (kit_resolution(&info, image.part, h.pixelAspectRatio(), &dx, &dy, &unit) &&
      unit != KIT_UNIT_NONE)
    h.insert("xDensity", Imf::FloatAttribute(static_cast<float>(unit == KIT_CENTIMETRES ? dx * 2.54 : dx)));
  char date[32];
  for (const Text &t : kTexts) {
    const char *text = kit_date_text(info.*t.field, date, sizeof date);
    if (kit_has_text(text)) h.insert(t.attribute, Imf::StringAttribute(text));
  }
  if (kit_chromaticities_informative(&info, kit_rec709))
    Imf::addChromaticities(
        h, Imf::Chromaticities({info.red[0], info.red[1]}, {info.green[0], info.green[1]},
                               {info.blue[0], info.blue[1]}, {info.white[0], info.white[1]}));
  add_attributes(h, info, image.part);
  return h;
}

// Slices of every plane channel, placed so that EXR pixel (x, y) of the
// data window lands in the plane.  The plane holds the file's own pixel
// types, so OpenEXR copies them as they are.
Imf::FrameBuffer frame_buffer(OutImage &image) {
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
              Imf::Slice(image.types[static_cast<std::size_t>(c)], origin, step, p.line_bytes, 1,
                         1, 0.0));
  }
  return fb;
}

// Whether the images are the levels of one mipmap as OpenEXR rounds them
// down: image k is image 0's data window halved k times, from the same
// corner, down to 1x1, all with the same channels.  Such a file goes out as
// one tiled part with OpenEXR's own mip levels (levels as parts could not
// be written: parts share one display window).
bool mip_chain(const ORX_OBJECT *object) {
  const int32_t n = object->info.image_count;
  const auto *top = static_cast<const OutImage *>(object->private_cell[0]);
  const ORX_WINDOW &a = top->plane.active;
  const int32_t w = a.right - a.left + 1, h = a.top - a.bottom + 1;
  int32_t levels = 1;
  for (int32_t m = w > h ? w : h; m > 1; m >>= 1) ++levels;
  if (n < 2 || n != levels) return false;
  const int32_t ymin = exr_row(top->plane.window, a.top);
  for (int32_t k = 1; k < n; ++k) {
    const auto *image = static_cast<const OutImage *>(object->private_cell[k]);
    const ORX_WINDOW &lw = image->plane.window, &la = image->plane.active;
    const int32_t want_w = (w >> k) > 0 ? w >> k : 1, want_h = (h >> k) > 0 ? h >> k : 1;
    if (lw.left != a.left || lw.bottom != ymin || lw.right - lw.left + 1 != want_w ||
        lw.top - lw.bottom + 1 != want_h || la.left != lw.left || la.right != lw.right ||
        la.bottom != lw.bottom || la.top != lw.top || image->channels != top->channels ||
        image->types != top->types)
      return false;
  }
  return true;
}

void encode_mipmap(ORX_OBJECT *object, OutFile &file) {
  auto &top = *static_cast<OutImage *>(object->private_cell[0]);
  Imf::Header h = header_of(object, top);
  h.setType(Imf::TILEDIMAGE);
  h.setTileDescription(Imf::TileDescription(64, 64, Imf::MIPMAP_LEVELS, Imf::ROUND_DOWN));
  Imf::TiledOutputFile out(file.path.c_str(), h);
  for (int32_t l = 0; l < object->info.image_count; ++l) {
    auto &image = *static_cast<OutImage *>(object->private_cell[l]);
    kit_plane_complete(&image.plane);
    out.setFrameBuffer(frame_buffer(image));
    out.writeTiles(0, out.numXTiles(l) - 1, 0, out.numYTiles(l) - 1, l);
  }
}

int encode(ORX_OBJECT *object, OutFile &file) {
  try {
    if (mip_chain(object)) {
      encode_mipmap(object, file);
      return 0;
    }
    std::vector<Imf::Header> headers;
    for (int32_t i = 0; i < object->info.image_count; ++i)
      headers.push_back(header_of(object, *static_cast<OutImage *>(object->private_cell[i])));
    Imf::MultiPartOutputFile out(file.path.c_str(), headers.data(),
                                 static_cast<int>(headers.size()));
    for (int32_t i = 0; i < object->info.image_count; ++i) {
      auto &image = *static_cast<OutImage *>(object->private_cell[i]);
      kit_plane_complete(&image.plane);
      Imf::OutputPart part(out, i);
      part.setFrameBuffer(frame_buffer(image));
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
  auto *first = object->private_cell != nullptr ? static_cast<OutImage *>(object->private_cell[0])
                                                : nullptr;
  OutFile *file = first != nullptr ? first->file : nullptr;
  int status = 0;
  if (file != nullptr) {
    status = encode(object, *file);
    if (status != 0) kit_release(file->path.c_str(), file->created);
  }
  release(object, file);
  orx__free_obj(object);
  return status;
}

}  // namespace

// The names written files keep: the part's name, its view, its channel
// names, the resolution and every header attribute carried over from a
// file read before.
const char *const kKept[] = {"oiio:subimagename", "channelnames", "openexr:", "XResolution",
                             "YResolution", "ResolutionUnit", nullptr};

int write_open(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (object->info.image_count < 1)
    return kit_fail(ORX_E_UNSUPPORTED, "exr: %s: no image to write", path);
  for (int32_t i = 0; i < object->info.image_count; ++i)
    if (!plan(object->info.images[i], path)) return 0;
  if (!kit_new_cell(object, object->info.image_count)) return 0;
  auto *file = new (std::nothrow) OutFile;
  if (file == nullptr) return kit_fail(ORX_E_NO_MEMORY, "exr: no memory for %s", path);
  file->path = path != nullptr ? path : "";
  const int32_t method = kit_setting_int(object, kCapCompression, compression.default_value);
  file->compression = method >= 0 && method < Imf::NUM_COMPRESSION_METHODS
                          ? static_cast<Imf::Compression>(method)
                          : Imf::ZIP_COMPRESSION;
  file->forced = kit_setting_int(object, kCapPixelType, pixel_type.default_value);
  ORX_attr_keep(&object->info, kKept);
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    auto *image = new (std::nothrow) OutImage{file, &object->info.images[i], i, {}, {}, {}, {}};
    if (image == nullptr) {
      release(object, file);
      return kit_fail(ORX_E_NO_MEMORY, "exr: no memory for %s", path);
    }
    object->private_cell[i] = image;
    image->channels = channel_names(object->info, i);
    // The plane holds each channel as the file does: two-byte halves, or
    // four-byte floats and integers, one row per channel.
    KitLayout layout = kit_layout_of(image->ifd);
    const ORX_CHANNELS *groups[3] = {&image->ifd->image, &image->ifd->matte, &image->ifd->aux};
    for (int g = 0; g < 3; ++g) {
      const Imf::PixelType type = pixel_type_of(*groups[g], file->forced);
      layout.type[g] = type == Imf::FLOAT ? ORX_C_FLOAT : ORX_C_INTEGER;
      layout.bits[g] = type == Imf::HALF ? 16 : 32;
      image->types.insert(image->types.end(), static_cast<std::size_t>(groups[g]->count), type);
      if (const char *lost = narrowing(*groups[g], type))
        if (!kit_narrowed(object, i, "%s", lost)) {
          release(object, file);
          return 0;
        }
    }
    if (kit_plane_init(&image->plane, &layout, image->ifd->window, image->ifd->active,
                       KIT_PLANE_WRITE, kWho, path) != 0) {
      release(object, file);
      return 0;
    }
    image->line.resize(static_cast<std::size_t>(kit_plane_width(&image->plane)));
  }
  if (!kit_claim(kWho, path, &file->created)) {
    release(object, file);
    return 0;
  }
  object->scan = scan_write;
  object->close = close_object;
  return 1;
}

}  // namespace exr_plugin
