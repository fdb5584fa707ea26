// What the OpenEXR plug-in's reader and writer share: the settings, the
// header texts and the mapping between EXR rows and the library's lines.
#ifndef ORX_EXR_PLUGIN_HPP
#define ORX_EXR_PLUGIN_HPP

#include <exception>
#include <string>
#include <vector>

#include "orx/err.h"
#include "orx/plugin.h"
#include "plugin_kit.h"

namespace exr_plugin {

constexpr char kWho[] = "exr";

// Capability settings: the compression and the pixel type of written
// channels (by default each channel's own precision; half or float force
// every channel).  The compression values are OpenEXR's own numbering,
// shared by its C and C++ interfaces.
enum { kCapCompression = 0, kCapPixelType = 1 };
enum { kHalf = 0, kFloat = 1, kSource = 2 };
extern ORX_CAP_LIST_ENTRY compressions[];
extern ORX_CAP_LIST compression;
extern ORX_CAP_LIST pixel_type;

// The name of a compression method, "unknown" for a value not in the list.
const char *compression_name(int method);

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

// EXR rows run downwards and the library's lines upwards: the EXR row of
// line L of a window, and the reverse.
inline int exr_row(const ORX_WINDOW &w, int line) { return w.bottom + w.top - line; }

// Frees the images of an object (each with a plane, in its private cell)
// and the file they share.
template <class Image, class File>
void release(ORX_OBJECT *object, File *file) {
  for (int32_t i = 0; object->private_cell != nullptr && i < object->info.image_count; ++i) {
    auto *image = static_cast<Image *>(object->private_cell[i]);
    if (image == nullptr) continue;
    kit_plane_free(&image->plane);
    delete image;
    object->private_cell[i] = nullptr;
  }
  delete file;
}

// Runs decode, a read through OpenEXR's C++ library, which reports failures
// by exception: decode's status, or ORX_E_READ after a report.
template <class Decode>
int read_with_openexr(const char *path, Decode &&decode) {
  try {
    return decode();
  } catch (const std::exception &e) {
    kit_fail(ORX_E_READ, "exr: cannot read %s: %s", path, e.what());
  } catch (...) {
    kit_fail(ORX_E_READ, "exr: cannot read %s", path);
  }
  return ORX_E_READ;
}

// Whether the data window dw is the one the plane was laid out for (the
// file may have changed since the open): 0, or ORX_E_READ after a report.
template <class Window>
int check_window(const char *path, const KitPlane *plane, const Window &dw) {
  if (dw.max.x - dw.min.x + 1 == kit_plane_width(plane) &&
      dw.max.y - dw.min.y + 1 == kit_plane_height(plane))
    return 0;
  kit_fail(ORX_E_READ, "exr: cannot read %s: its data window changed", path);
  return ORX_E_READ;
}

// Decodes the luminance/chroma file at path as RGB(A) floats into a plane
// laid out for its data window; 0 or a status after a report.
int decode_luminance_chroma(const char *path, KitPlane *plane);

// Why a deep part with these channels cannot be flattened, or null.
const char *deep_problem(const std::vector<std::string> &names);

// Decodes part of the deep file at path (scanline or tiled) flattened front
// to back into a plane of floats laid out for its data window, names[c] the
// file channel of plane channel c; 0 or a status after a report.
int decode_deep(const char *path, int part, const std::vector<std::string> &names,
                KitPlane *plane);

// Whether plane channel c belongs to an integer group (which holds
// OpenEXR's UINT samples as they are; other groups hold floats, half
// samples widened).
inline bool integer_channel(const KitPlane &p, int32_t c) {
  for (int g = 0, first = 0; g < 3; first += p.layout.count[g++])
    if (c < first + p.layout.count[g]) return p.layout.type[g] == ORX_C_INTEGER;
  return false;
}

// Decodes level `level` of part `part` (scanline or tiled, not deep) of the
// file at path through OpenEXR's C++ library into a plane laid out for the
// level's data window, names[c] the file channel of plane channel c; 0 or a
// status after a report.  For the compressions its C library cannot decode.
int decode_classic(const char *path, int part, int level, const std::vector<std::string> &names,
                   KitPlane *plane);

int read_open(ORX_OBJECT *object);
int write_open(ORX_OBJECT *object);

}  // namespace exr_plugin

#endif
