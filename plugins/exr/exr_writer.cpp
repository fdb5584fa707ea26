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
#include <ImfStringAttribute.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "exr_plugin.hpp"
#include "orx/err.h"
#include "plugin_kit.h"

namespace exr_plugin {
namespace {

// The file being written, shared by its images.
struct OutFile {
  std::string path;
  int created = 0;
  Imf::Compression compression = Imf::ZIP_COMPRESSION;
  Imf::PixelType type = Imf::HALF;
};

// One image: a part of the file.
struct OutImage {
  OutFile *file;
  ORX_IFD *ifd;
  int part;
  std::vector<std::string> channels;  // file channel of each plane channel
  std::vector<float> line;            // a host row as floats, for half files
  KitPlane plane{};
};

void release(ORX_OBJECT *object, OutFile *file) { exr_plugin::release<OutImage>(object, file); }

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
  auto &image = *static_cast<OutImage *>(data);
  return kit_plane_store(&image.plane, image.ifd, line, static_cast<void **>(in), kWho);
}

// Half files keep half samples, converted as the host's lines arrive: the
// plane is half the size of a float one and no pass over the whole image
// converts it at close.
int scan_write_half(void *data, int32_t line, void *in) {
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
      // Float rows convert in place; others become floats first.
      const unsigned char *src = static_cast<const unsigned char *>(rows[c]) + left * 4;
      if (g->type != ORX_C_FLOAT) {
        kit_row_floats(g->type, g->bits, rows[c], left, image.line.data(), width);
        src = reinterpret_cast<const unsigned char *>(image.line.data());
      }
      unsigned char *dst = kit_plane_at(&p, r, c);
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

Imf::Header header_of(ORX_OBJECT *object, const OutImage &image) {
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

// Slices of every plane channel, placed so that EXR pixel (x, y) of the
// data window lands in the plane.  The plane holds the file's own pixel
// type, so OpenEXR copies it as it is.
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
              Imf::Slice(image.file->type, origin, step, p.line_bytes, 1, 1, 0.0));
  }
  return fb;
}

int encode(ORX_OBJECT *object, OutFile &file) {
  try {
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
  file->type = kit_setting_int(object, kCapPixelType, pixel_type.default_value) == kFloat
                   ? Imf::FLOAT
                   : Imf::HALF;
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    auto *image = new (std::nothrow) OutImage{file, &object->info.images[i], i, {}, {}, {}};
    if (image == nullptr) {
      release(object, file);
      return kit_fail(ORX_E_NO_MEMORY, "exr: no memory for %s", path);
    }
    object->private_cell[i] = image;
    image->channels = channel_names(*image->ifd);
    // A half plane holds two-byte samples, one row per channel, as the file
    // does; a float plane the pixels whole.
    const bool halves = file->type == Imf::HALF;
    KitLayout layout = kit_layout_of(image->ifd);
    for (int g = 0; g < 3; ++g) {
      layout.type[g] = halves ? ORX_C_INTEGER : ORX_C_FLOAT;
      layout.bits[g] = halves ? 16 : 32;
    }
    if (kit_plane_init(&image->plane, &layout, image->ifd->window, image->ifd->active,
                       halves ? KIT_PLANE_WRITE : KIT_PLANE_INTERLEAVED | KIT_PLANE_WRITE,
                       kWho, path) != 0) {
      release(object, file);
      return 0;
    }
    if (halves) image->line.resize(static_cast<std::size_t>(kit_plane_width(&image->plane)));
  }
  if (!kit_claim(kWho, path, &file->created)) {
    release(object, file);
    return 0;
  }
  object->scan = file->type == Imf::HALF ? scan_write_half : scan_write;
  object->close = close_object;
  return 1;
}

}  // namespace exr_plugin
