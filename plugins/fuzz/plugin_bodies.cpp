// The plug-ins' fuzz bodies (declared with the library's in bodies.hpp):
// any report is fine; a crash, a hang, a leak or an unbounded allocation is
// what the fuzzer looks for.
#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "bodies.hpp"
#include "orx/limits.h"
#include "orx/orx.h"
#include "orx/plugin.h"
#include "orx/registry.h"
#include "quiet.hpp"

namespace orx::fuzz {
namespace {

void *g_module = nullptr;
const char *g_name = nullptr;

uint8_t enumerate(void **module, const char **name) {
  if (g_module == nullptr) return 0;
  *module = g_module;
  *name = g_name;
  g_module = nullptr;
  return 1;
}

// Loads the plug-in once per process and starts the library with it.
bool load(const char *module) {
  static bool loaded = false;
  if (loaded) return true;
  const std::string path = std::string(ORX_PLUGIN_BUILD_DIR) + "/" + module + ".so";
  g_module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (g_module == nullptr) std::abort();  // a broken build, not an input
  g_name = module;
  // Codecs decode whole images, and a header may claim any size up to the
  // limit; a lower one keeps each run short without hiding a path (the
  // refusal of a larger image is the same code).
  ORX_set_limit(ORX_LIMIT_ROW_MEMORY, 64 << 20);
  ORX_exit();
  loaded = ORX_init(nullptr, enumerate) == 0;
  return loaded;
}

int read_all(const char *module, const char *key, const char *extension, const std::uint8_t *data,
             std::size_t size) {
  silence_reports();
  if (!load(module)) return 0;
  static const std::string path = scratch_path((std::string("read") + extension).c_str());
  if (!write_bytes(path, data, size)) return 0;
  ORX_OBJECT *object = open_read(path, key);
  if (object == nullptr) return 0;
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    const ORX_IFD &ifd = object->info.images[i];
    void **rows = nullptr;
    // Every line of the active window and the window's outermost lines:
    // an EXR display window may span billions of lines around a small data
    // window, and each line outside it is the same zero line.
    const int32_t top = std::min(ifd.active.top, ifd.window.top);
    const int32_t bottom = std::max(ifd.active.bottom, ifd.window.bottom);
    object->scan(object->private_cell[i], ifd.window.top, &rows);
    object->scan(object->private_cell[i], ifd.window.bottom, &rows);
    for (int32_t y = top; y >= bottom; --y)
      if (object->scan(object->private_cell[i], y, &rows) != 0) break;
  }
  ORX_close(object);
  return 0;
}

}  // namespace

int png_read(const std::uint8_t *data, std::size_t size) {
  return read_all("png", "png", ".png", data, size);
}
int jpeg_read(const std::uint8_t *data, std::size_t size) {
  return read_all("jpeg", "jpeg", ".jpg", data, size);
}
int tiff_read(const std::uint8_t *data, std::size_t size) {
  return read_all("tiff", "tiff", ".tif", data, size);
}
int exr_read(const std::uint8_t *data, std::size_t size) {
  return read_all("exr", "exr", ".exr", data, size);
}
int hdr_read(const std::uint8_t *data, std::size_t size) {
  return read_all("hdr", "hdr", ".hdr", data, size);
}
int pnm_read(const std::uint8_t *data, std::size_t size) {
  return read_all("pnm", "pnm", ".pnm", data, size);
}
int dpx_read(const std::uint8_t *data, std::size_t size) {
  return read_all("dpx", "dpx", ".dpx", data, size);
}
int cineon_read(const std::uint8_t *data, std::size_t size) {
  return read_all("cineon", "cineon", ".cin", data, size);
}
int sgi_read(const std::uint8_t *data, std::size_t size) {
  return read_all("sgi", "sgi", ".sgi", data, size);
}
int webp_read(const std::uint8_t *data, std::size_t size) {
  return read_all("webp", "webp", ".webp", data, size);
}
int targa_read(const std::uint8_t *data, std::size_t size) {
  return read_all("targa", "targa", ".tga", data, size);
}
int bmp_read(const std::uint8_t *data, std::size_t size) {
  return read_all("bmp", "bmp", ".bmp", data, size);
}

}  // namespace orx::fuzz
