/* Windows and OS/2 bitmaps (BMP, DIB), read and written by the plug-in's
 * own codec: the OS/2 core header (12 bytes) and the Windows info headers
 * of 40, 52, 56, 108 (V4) and 124 (V5) bytes; 1, 4 and 8-bit palettes
 * (8-bit palettes of greys as grey, 1 and 4-bit ones as RGB, as
 * OpenImageIO reads them), RLE8 and RLE4, 16-bit pixels (5-5-5, or the
 * fields BI_BITFIELDS gives), 24-bit BGR and 32-bit pixels, bottom-up or
 * top-down.  A 32-bit pixel's fourth byte is a matte, as OpenImageIO reads
 * it, unless BI_BITFIELDS masks say the pixel has no alpha; straight alpha
 * is multiplied into the colour (rounding), except in a file whose every
 * alpha is zero.  Pixels per metre are the resolution in centimetres
 * (`XResolution`, `YResolution`, `ResolutionUnit` "cm") and their ratio
 * the pixel aspect; a V5 header's embedded profile is `ICCProfile`. */
#include <stdlib.h>
#include <string.h>

#include "bmp.h"
#include "orx/err.h"
#include "orx/plugin.h"
#include "plugin_kit.h"
#include "raster8.h"

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "bmp";
const char *imageExtension = ".bmp";
const char *imageName = "BMP";
const char *imageDescription =
    "Windows and OS/2 bitmaps: 1/4/8-bit palettes, RLE, 16, 24 and 32-bit";
const char *imageNameSyntax = "Name.####.bmp";
int imageOrientation = 0;
int imageNumberOfChannels = 3;
int imageBitsPerChannel = (1 << 0) | (1 << 7);
int imageNumberOfMattes = 1;
int imageBitsPerMatte = 1 << 7;
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_WRITE | ORX_ACCESS_RANDOM;

/* Settings: "unassociated alpha" (colour handed over and stored straight,
 * as the file holds it). */
static ORX_CAP_ENTRY capabilities[] = {
    {kBmpCapUnassociated, "unassociated alpha", 0, NULL, 1, NULL, 0},
};

void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second, int32_t *count) {
  *table = capabilities;
  *first = 1;
  *second = 0;
  *count = 1;
}

static int release(ORX_OBJECT *object) {
  Bmp *b = object->private_cell != NULL ? (Bmp *)object->private_cell[0] : NULL;
  if (b == NULL) return 0;
  object->private_cell[0] = NULL;
  if (b->file != NULL) fclose(b->file);
  kit_plane_free(&b->plane);
  ERR_free(b);
  return 0;
}

static Bmp *new_bmp(ORX_OBJECT *object) {
  Bmp *b = (Bmp *)kit_allocate(sizeof(Bmp));
  if (b == NULL) return NULL;
  memset(b, 0, sizeof *b);
  b->path = object->info.handle;
  b->ifd = &object->info.images[0];
  object->private_cell[0] = b;
  return b;
}

static int close_object(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  int status = 0;
  Bmp *b = object->private_cell != NULL ? (Bmp *)object->private_cell[0] : NULL;
  if (b != NULL && b->writing) {
    status = bmp_encode(object, b);
    if (b->file != NULL) fclose(b->file);
    b->file = NULL;
    if (status != 0) kit_release(b->path, b->created);
  }
  release(object);
  orx__free_obj(object);
  return status;
}

/* --- Reading ------------------------------------------------------------- */

/* The info header sizes this reader knows. */
static int known_header(uint32_t size) {
  return size == 12 || size == 40 || size == 52 || size == 56 || size == 108 || size == 124;
}

/* The palette (entries of 3 bytes after an OS/2 core header, else 4) and
 * whether every entry is grey. */
static int read_palette(Bmp *b, long at, int entry, uint32_t used, int *grey) {
  long room = (b->data_at - at) / entry;
  long count = used != 0 ? (long)used : 1L << b->bits;
  if (count > 256) count = 256;
  if (count > room) count = room > 0 ? room : 0;
  unsigned char raw[256 * 4];
  if (count > 0 && (fseek(b->file, at, SEEK_SET) != 0 ||
                    fread(raw, (size_t)entry, (size_t)count, b->file) != (size_t)count))
    return kit_fail(ORX_E_NOT_OUR_FILE, "bmp: %s: the palette ends early", b->path);
  *grey = count > 0;
  for (long i = 0; i < count; ++i) {
    const unsigned char *e = raw + i * entry;
    b->palette[3 * i] = e[2];
    b->palette[3 * i + 1] = e[1];
    b->palette[3 * i + 2] = e[0];
    *grey &= e[0] == e[1] && e[1] == e[2];
  }
  b->colours = (int)count;
  return 1;
}

/* A V5 header's embedded profile (at `offset` from the info header). */
static int read_profile(ORX_OBJECT *object, Bmp *b, uint32_t offset, uint32_t size, long file) {
  if (size == 0 || (uint64_t)14 + offset + size > (uint64_t)file || size > INT32_MAX) {
    if (size != 0) kit_warn("bmp: %s: the embedded profile lies outside the file (ignored)", b->path);
    return 1;
  }
  unsigned char *profile = r8_load(b->file, 14 + (long)offset, size, "bmp", b->path);
  if (profile == NULL) return 0;
  const int set = ORX_attr_set(&object->info, 0, "ICCProfile", ORX_ATTR_BYTES, (int32_t)size,
                               profile) == 0;
  free(profile);
  return set;
}

/* The descriptor, palette and metadata of the file; 0 after a report. */
static int describe(ORX_OBJECT *object, Bmp *b) {
  unsigned char h[14 + 124 + 16];
  memset(h, 0, sizeof h);
  const long file = r8_file_size(b->file);
  if (fread(h, 1, 18, b->file) != 18 || h[0] != 'B' || h[1] != 'M')
    return kit_fail(ORX_E_NOT_OUR_FILE, "bmp: %s is not a BMP file", b->path);
  const uint32_t size = r8_le32(h + 14);
  if (!known_header(size))
    return kit_fail(ORX_E_NOT_OUR_FILE, "bmp: %s: an info header of %lu bytes is not one of "
                    "a BMP file's", b->path, (unsigned long)size);
  const size_t extra = size == 40 ? 16 : 0; /* masks after a 40-byte header */
  const size_t want = size - 4 + extra;
  const size_t got = fread(h + 18, 1, want, b->file);
  if (got < size - 4)
    return kit_fail(ORX_E_NOT_OUR_FILE, "bmp: %s: the info header ends early", b->path);
  const unsigned char *i = h + 14;
  int64_t width, height;
  uint32_t compression = BMP_RGB, used = 0;
  int32_t xppm = 0, yppm = 0;
  if (size == 12) {
    width = r8_le16(i + 4);
    height = r8_le16(i + 6);
    b->bits = (int)r8_le16(i + 10);
  } else {
    width = (int32_t)r8_le32(i + 4);
    height = (int32_t)r8_le32(i + 8);
    b->bits = (int)r8_le16(i + 14);
    compression = r8_le32(i + 16);
    xppm = (int32_t)r8_le32(i + 24);
    yppm = (int32_t)r8_le32(i + 28);
    used = r8_le32(i + 32);
  }
  b->top_down = height < 0;
  if (height < 0) height = -height;
  b->compression = (int)compression;
  const int bits = b->bits;
  const int indexed = bits == 1 || bits == 2 || bits == 4 || bits == 8;
  const int fields = compression == BMP_BITFIELDS || compression == BMP_ALPHABITFIELDS;
  if (!((compression == BMP_RGB && (indexed || bits == 16 || bits == 24 || bits == 32)) ||
        (compression == BMP_RLE8 && bits == 8) || (compression == BMP_RLE4 && bits == 4) ||
        (fields && (bits == 16 || bits == 32))) ||
      (b->top_down && compression != BMP_RGB && !fields))
    return kit_fail(ORX_E_NOT_OUR_FILE, "bmp: %s: %d bits a pixel with compression %lu is not a "
                    "layout this reader knows", b->path, bits, (unsigned long)compression);
  if (width < 1 || height < 1 || width > INT32_MAX / 4 || height > INT32_MAX / 4)
    return kit_fail(ORX_E_NOT_OUR_FILE, "bmp: %s: %lld x %lld pixels is no image", b->path,
                    (long long)width, (long long)height);
  /* Masks: in the header from 52 bytes on, else after a 40-byte one. */
  if (bits == 16) {
    const uint32_t five[4] = {0x7c00, 0x3e0, 0x1f, 0};
    memcpy(b->masks, five, sizeof five);
  } else if (bits == 32) {
    const uint32_t eight[4] = {0xff0000, 0xff00, 0xff, 0xff000000};
    memcpy(b->masks, eight, sizeof eight);
  }
  if (fields) {
    const int count = size >= 56 || compression == BMP_ALPHABITFIELDS ? 4 : 3;
    if (size == 40 && got < (size_t)count * 4 + 36)
      return kit_fail(ORX_E_NOT_OUR_FILE, "bmp: %s: the colour masks end early", b->path);
    for (int c = 0; c < 4; ++c) b->masks[c] = c < count ? r8_le32(i + 40 + 4 * c) : 0;
  }
  b->data_at = (long)r8_le32(h + 10);
  b->data_end = file;
  if (b->data_at < 14 + (long)size || b->data_at > file)
    return kit_fail(ORX_E_NOT_OUR_FILE, "bmp: %s: the pixels' offset %ld lies outside the file",
                    b->path, b->data_at);
  /* The pixels must fit in the file: stored rows byte for byte, a
   * run-length pair of bytes covers at most 255 pixels, and a delta of
   * four bytes at most 255 rows. */
  const uint64_t room = (uint64_t)(file - b->data_at);
  const uint64_t stride = ((uint64_t)width * (uint64_t)bits + 31) / 32 * 4;
  const int rle = compression == BMP_RLE8 || compression == BMP_RLE4;
  if (rle ? (uint64_t)height > room * 64 + 1 || (uint64_t)width * height > room * 2048 + 65536
          : stride * (uint64_t)(height - 1) + ((uint64_t)width * bits + 7) / 8 > room)
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    "bmp: %s: %lld x %lld pixels cannot come out of the %llu bytes left in the "
                    "file (truncated or damaged)",
                    b->path, (long long)width, (long long)height, (unsigned long long)room);
  int grey = 0;
  if (indexed && !read_palette(b, 14 + (long)size, size == 12 ? 3 : 4, used, &grey))
    return 0;
  grey &= bits == 8;
  ORX_INFO *info = &object->info;
  kit_describe_size(b->ifd, (int32_t)width, (int32_t)height,
                    xppm > 0 && yppm > 0 ? (double)yppm / xppm : 1.0);
  if (xppm > 0 && yppm > 0 &&
      !kit_set_resolution(info, 0, xppm / 100.0, yppm / 100.0, KIT_CENTIMETRES))
    return 0;
  if (size == 124 && r8_le32(i + 56) == 0x4D424544u && /* "MBED" */
      !read_profile(object, b, r8_le32(i + 112), r8_le32(i + 116), file))
    return 0;
  const int alpha = bits == 32 && b->masks[3] != 0;
  KitLayout layout = {{grey ? 1 : 3, alpha, 0},
                      {ORX_C_INTEGER, ORX_C_INTEGER, ORX_C_INTEGER},
                      {8, 8, 8}};
  kit_layout_apply(&layout, b->ifd);
  if (!kit_save(&b->ifd->image.name, grey ? "grey" : "rgb")) return 0;
  if (rle && !kit_save(&info->compression, compression == BMP_RLE8 ? "rle8" : "rle4")) return 0;
  ORX_WINDOW window = b->ifd->window;
  return kit_plane_init(&b->plane, &layout, window, window, 0, "bmp", b->path) == 0;
}

static int scan_read(void *data, int32_t line, void *out) {
  Bmp *b = (Bmp *)data;
  return kit_scan_decoded(&b->plane, &b->decoded, bmp_decode, data, line, out, "bmp", b->path);
}

int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == NULL) return kit_fail(ORX_E_FIELD_MISSING, "bmp: no file name to read");
  if (!kit_new_images(object, 1)) return 0;
  Bmp *b = new_bmp(object);
  if (b == NULL) return 0;
  b->file = fopen(path, "rb");
  if (b->file == NULL) {
    release(object);
    return kit_fail(ORX_E_FIELD_MISSING, "bmp: cannot open %s", path);
  }
  b->straight = kit_setting_int(object, kBmpCapUnassociated, 0) != 0;
  if (!describe(object, b)) return release(object);
  object->scan = scan_read;
  object->close = close_object;
  return 1;
}

uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char h[18];
  return kit_peek(name, stream, h, sizeof h) == sizeof h && h[0] == 'B' && h[1] == 'M' &&
         known_header(r8_le32(h + 14));
}

int imageWriteOpen(ORX_OBJECT *object) {
  if (object->info.image_count != 1)
    return kit_fail(ORX_E_UNSUPPORTED, "bmp: %s: a file holds one image, not %d",
                    object->info.handle, (int)object->info.image_count);
  if (!kit_new_cell(object, 1)) return 0;
  Bmp *b = new_bmp(object);
  if (b == NULL) return 0;
  b->writing = 1;
  if (!bmp_write_open(object, b)) return release(object);
  object->close = close_object;
  return 1;
}
