/* The pieces the Targa and BMP plug-ins share (raster8.h). */
#include "raster8.h"

#include <stdlib.h>

#include "orx/err.h"

long r8_file_size(FILE *file) {
  const long here = ftell(file);
  long size = -1;
  if (here >= 0 && fseek(file, 0, SEEK_END) == 0) size = ftell(file);
  if (here < 0 || fseek(file, here, SEEK_SET) != 0) return -1;
  return size;
}

unsigned char *r8_load(FILE *file, long offset, size_t n, const char *who, const char *path) {
  unsigned char *block = (unsigned char *)malloc(n > 0 ? n : 1);
  if (block == NULL) {
    kit_fail(ORX_E_NO_MEMORY, "%s: %s: no memory for %lu bytes of pixels", who, path,
             (unsigned long)n);
    return NULL;
  }
  if (fseek(file, offset, SEEK_SET) != 0 || fread(block, 1, n, file) != n) {
    free(block);
    kit_fail(ORX_E_READ, "%s: cannot read %s: the pixel data ends early (truncated)", who, path);
    return NULL;
  }
  return block;
}

int r8_plan(ORX_OBJECT *object, const char *who, int32_t most, KitLayout *layout) {
  const ORX_IFD *ifd = &object->info.images[0];
  const char *path = object->info.handle;
  const ORX_CHANNELS *image = &ifd->image, *matte = &ifd->matte;
  if (image->count != 1 && image->count != 3)
    return kit_fail(ORX_E_UNSUPPORTED, "%s: %s: cannot store %d image channels (1 or 3)", who,
                    path, (int)image->count);
  const int64_t width = (int64_t)ifd->window.right - ifd->window.left + 1;
  const int64_t height = (int64_t)ifd->window.top - ifd->window.bottom + 1;
  if (width < 1 || height < 1 || width > most || height > most)
    return kit_fail(ORX_E_UNSUPPORTED, "%s: %s: cannot store %lld x %lld pixels (at most %d)",
                    who, path, (long long)width, (long long)height, (int)most);
  if (matte->count > 1 && !kit_narrowed(object, 0, "mattes after the first dropped")) return 0;
  if (ifd->aux.count > 0 && !kit_narrowed(object, 0, "auxiliary channels dropped")) return 0;
  if (!kit_window_at_origin(object, 0)) return 0;
  const ORX_CHANNELS *groups[2] = {image, matte};
  int floating = 0, widest = 0;
  for (int g = 0; g < 2; ++g) {
    if (groups[g]->count <= 0) continue;
    if (groups[g]->type != ORX_C_INTEGER) floating = 1;
    else if (groups[g]->bits > widest) widest = groups[g]->bits;
  }
  if (floating && !kit_narrowed(object, 0, "floating-point samples stored as 8-bit integers"))
    return 0;
  if (widest > 8 && !kit_narrowed(object, 0, "%d-bit samples stored in 8 bits", widest)) return 0;
  KitLayout l = {{image->count, matte->count > 0 ? 1 : 0, 0},
                 {ORX_C_INTEGER, ORX_C_INTEGER, ORX_C_INTEGER},
                 {8, 8, 8}};
  *layout = l;
  return 1;
}

int r8_begin(ORX_OBJECT *object, const char *who, const KitLayout *layout, KitPlane *plane,
             int *created) {
  const ORX_IFD *ifd = &object->info.images[0];
  return kit_plane_init(plane, layout, ifd->window, ifd->window,
                        KIT_PLANE_INTERLEAVED | KIT_PLANE_WRITE, who, object->info.handle) == 0 &&
         kit_claim(who, object->info.handle, created);
}

/* Whether any alpha sample of the plane is above zero. */
int r8_any_alpha(const KitPlane *plane) {
  const int32_t matte = plane->layout.count[0];
  const size_t step = kit_plane_step(plane, matte);
  for (int32_t r = 0; r < kit_plane_height(plane); ++r) {
    const unsigned char *a = kit_plane_at(plane, r, matte);
    for (int32_t x = 0; x < kit_plane_width(plane); ++x)
      if (a[(size_t)x * step] != 0) return 1;
  }
  return 0;
}
