/* Writing BMP files: 8-bit grey as a palette of 256 greys (1-bit grey as
 * a palette of two), RGB as 24-bit BGR under the 40-byte header every
 * reader knows, and RGB with a matte (or grey with one) as 32-bit
 * BI_BITFIELDS pixels under a V4 header whose alpha mask readers
 * (OpenImageIO, ImageMagick, Pillow) take as alpha, straight.  A V5 header
 * carries an ICC profile.  Rows go bottom first, as most writers store
 * them; the resolution is stored as pixels per metre. */
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "bmp.h"
#include "orx/err.h"
#include "raster8.h"

static int scan_write(void *data, int32_t line, void *in) {
  Bmp *b = (Bmp *)data;
  return kit_plane_store(&b->plane, b->ifd, line, (void **)in, "bmp");
}

/* Keeps the attributes a BMP file carries: the resolution and an RGB ICC
 * profile (a palette of greys is RGB too). */
static void keep_attributes(ORX_INFO *info) {
  static const char *const kept[] = {"ICCProfile", "XResolution", "YResolution",
                                     "ResolutionUnit", NULL};
  ORX_attr_keep(info, kept);
  const ORX_ATTR *profile = ORX_attr_find(info, 0, "ICCProfile");
  if (profile != NULL && !kit_profile_fits(profile, 3)) ORX_attr_remove(info, 0, "ICCProfile");
}

int bmp_write_open(ORX_OBJECT *object, Bmp *b) {
  keep_attributes(&object->info);
  KitLayout layout;
  if (!r8_plan(object, "bmp", INT32_MAX / 4, &layout)) return 0;
  const ORX_IFD *ifd = b->ifd;
  b->one_bit = layout.count[0] == 1 && layout.count[1] == 0 && ifd->image.type == ORX_C_INTEGER &&
               ifd->image.bits == 1;
  b->straight = kit_setting_int(object, kBmpCapUnassociated, 0) != 0;
  if (!r8_begin(object, "bmp", &layout, &b->plane, &b->created)) return 0;
  object->scan = scan_write;
  return 1;
}

/* Pixels per metre of the written file, or 0 when it states none. */
static void densities(ORX_OBJECT *object, const Bmp *b, uint32_t *x, uint32_t *y) {
  const double aspect = kit_pixel_aspect(b->ifd);
  double dx = 0.0, dy = 0.0;
  int unit = KIT_INCHES;
  *x = *y = 0;
  if (kit_resolution(&object->info, 0, aspect, &dx, &dy, &unit)) {
    const double metre = unit == KIT_CENTIMETRES ? 100.0 : unit == KIT_UNIT_NONE ? 1.0 : 1.0 / 0.0254;
    *x = (uint32_t)fmax(1.0, fmin(floor(dx * metre + 0.5), 2147483647.0));
    *y = (uint32_t)fmax(1.0, fmin(floor(dy * metre + 0.5), 2147483647.0));
  } else if (fabs(aspect - 1.0) > 1e-5) {
    kit_aspect_densities(aspect, 100000, x, y);
  }
}

/* One plane row as stored pixels. */
static void pack_row(const Bmp *b, const unsigned char *in, int32_t width, int bits,
                     unsigned char *out) {
  const KitLayout *l = &b->plane.layout;
  if (bits == 1) {
    for (int32_t x = 0; x < width; ++x)
      if (in[x] >= 128) out[x / 8] |= (unsigned char)(0x80 >> (x % 8));
  } else if (bits == 8) {
    memcpy(out, in, (size_t)width);
  } else if (bits == 24) {
    for (int32_t x = 0; x < width; ++x, in += 3, out += 3) {
      out[0] = in[2];
      out[1] = in[1];
      out[2] = in[0];
    }
  } else if (l->count[0] == 1) {
    for (int32_t x = 0; x < width; ++x, in += 2, out += 4) {
      out[0] = out[1] = out[2] = in[0];
      out[3] = in[1];
    }
  } else {
    for (int32_t x = 0; x < width; ++x, in += 4, out += 4) {
      out[0] = in[2];
      out[1] = in[1];
      out[2] = in[0];
      out[3] = in[3];
    }
  }
}

/* Writes the headers, palette, rows and profile; 0 or a status. */
int bmp_encode(ORX_OBJECT *object, Bmp *b) {
  KitPlane *plane = &b->plane;
  kit_plane_complete(plane);
  const int32_t width = kit_plane_width(plane), height = kit_plane_height(plane);
  const int alpha = plane->layout.count[1] > 0;
  const int bits = alpha ? 32 : plane->layout.count[0] == 3 ? 24 : b->one_bit ? 1 : 8;
  const int colours = bits == 1 ? 2 : bits == 8 ? 256 : 0;
  const ORX_ATTR *profile = ORX_attr_find(&object->info, 0, "ICCProfile");
  const uint32_t header = profile != NULL ? 124 : alpha ? 108 : 40;
  const uint64_t stride = ((uint64_t)width * (uint64_t)bits + 31) / 32 * 4;
  const uint64_t offset = 14 + header + 4 * (uint64_t)colours;
  const uint64_t pixels = stride * (uint64_t)height;
  const uint64_t total = offset + pixels + (profile != NULL ? (uint64_t)profile->count : 0);
  if (total > 0xFFFFFFFFu) {
    kit_fail(ORX_E_UNSUPPORTED, "bmp: %s: %d x %d pixels need more than the 4 GB a BMP file "
             "can hold", b->path, (int)width, (int)height);
    return ORX_E_UNSUPPORTED;
  }
  unsigned char h[14 + 124 + 4 * 256];
  memset(h, 0, sizeof h);
  h[0] = 'B';
  h[1] = 'M';
  r8_put32(h + 2, (uint32_t)total);
  r8_put32(h + 10, (uint32_t)offset);
  unsigned char *i = h + 14;
  r8_put32(i, header);
  r8_put32(i + 4, (uint32_t)width);
  r8_put32(i + 8, (uint32_t)height);
  r8_put16(i + 12, 1);
  r8_put16(i + 14, (uint32_t)bits);
  r8_put32(i + 16, alpha ? BMP_BITFIELDS : BMP_RGB);
  r8_put32(i + 20, (uint32_t)pixels);
  uint32_t x = 0, y = 0;
  densities(object, b, &x, &y);
  r8_put32(i + 24, x);
  r8_put32(i + 28, y);
  r8_put32(i + 32, (uint32_t)colours);
  if (header > 40) {
    const uint32_t masks[4] = {0xff0000, 0xff00, 0xff, 0xff000000};
    for (int c = 0; c < 4 && alpha; ++c) r8_put32(i + 40 + 4 * c, masks[c]);
    r8_put32(i + 56, profile != NULL ? 0x4D424544u : 0x73524742u); /* "MBED" or "sRGB" */
  }
  if (header == 124) {
    r8_put32(i + 108, 4); /* the perceptual intent */
    r8_put32(i + 112, (uint32_t)(offset - 14 + pixels));
    r8_put32(i + 116, (uint32_t)profile->count);
  }
  for (int c = 0; c < colours; ++c) {
    const unsigned char v = (unsigned char)(colours == 2 ? 255 * c : c);
    memset(h + 14 + header + 4 * c, v, 3);
  }
  unsigned char *row = (unsigned char *)calloc((size_t)stride, 1);
  b->file = row != NULL ? fopen(b->path, "wb") : NULL;
  int ok = b->file != NULL && fwrite(h, 1, (size_t)offset, b->file) == offset;
  for (int32_t r = height - 1; ok && r >= 0; --r) {
    if (alpha && !b->straight) kit_plane_dissociate(plane, r, KIT_ALPHA_ROUND);
    memset(row, 0, (size_t)stride);
    pack_row(b, kit_plane_pixels(plane, r), width, bits, row);
    ok = fwrite(row, 1, (size_t)stride, b->file) == stride;
  }
  free(row);
  if (ok && profile != NULL)
    ok = fwrite(profile->data, 1, (size_t)profile->count, b->file) == (size_t)profile->count;
  if (b->file != NULL && fclose(b->file) != 0) ok = 0;
  b->file = NULL;
  if (!ok) {
    kit_fail(ORX_E_WRITE, "bmp: cannot write %s", b->path);
    return ORX_E_WRITE;
  }
  return 0;
}
