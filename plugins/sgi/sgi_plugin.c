/* SGI image files, the format of Silicon Graphics' image library that older
 * 3D pipelines still write: grey, grey with alpha, RGB and RGBA (channels
 * beyond the fourth as auxiliary channels), 8 or 16 bits a sample, stored
 * verbatim or run-length encoded (sgi_plugin.h has the layout).  The name
 * field of the header is the image description; a pixmin or pixmax other
 * than the full range of the samples is kept as "sgi:pixmin" and
 * "sgi:pixmax".  Files of another colormap type than "normal" (dithered,
 * screen or colour-map files of the old display tools) are refused.
 *
 * Scanlines are stored from the bottom of the picture up: line y of the
 * window is file scanline y, and the descriptor reads upwards.  The alpha
 * of an SGI file is taken as it is stored, as OpenImageIO takes it.
 *
 * The whole picture is decoded on the first scanline request; a run that
 * reaches past the end of its scanline, or a scanline that ends short, is
 * cut or completed with zeros and warned of.  Tables pointing outside the
 * file, or dimensions the file is too short to hold, are refused at open. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orx/err.h"
#include "plugin_kit.h"
#include "sgi_plugin.h"

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "sgi";
const char *imageExtension = ".sgi";
const char *imageName = "SGI";
const char *imageDescription =
    "Silicon Graphics image: 8/16-bit grey, grey+alpha, RGB and RGBA, verbatim or run-length";
const char *imageNameSyntax = "Name.####.sgi";
int imageOrientation = 1; /* rows are stored bottom first */
int imageNumberOfChannels = 3;
int imageBitsPerChannel = (1 << 7) | (1 << 15);
int imageNumberOfMattes = 1;
int imageBitsPerMatte = (1 << 7) | (1 << 15);
int imageNumberOfZChannels = 8;
int imageBitsPerZChannel = (1 << 7) | (1 << 15);
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_WRITE | ORX_ACCESS_RANDOM;

const char sgi_who[] = "sgi";

static ORX_CAP_LIST_ENTRY compressions[] = {
    {kSgiVerbatim, "none", 0, NULL},
    {kSgiRle, "rle", 0, NULL},
    {0, NULL, 0, NULL},
};
ORX_CAP_LIST sgi_compression = {kSgiRle, 0, compressions};
static ORX_CAP_ENTRY capabilities[] = {
    {kSgiCapCompression, "compression", 0, NULL, 0, &sgi_compression, 0},
};

void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second, int32_t *count) {
  *table = capabilities;
  *first = 1;
  *second = 0;
  *count = 1;
}

/* An open file being read. */
typedef struct Sgi {
  FILE *file;
  const char *path;
  KitPlane plane;
  int decoded;
  int storage;
  int bpc;             /* bytes per sample, 1 or 2 */
  uint32_t width, height, depth;
  long size;           /* of the file */
  uint32_t *starts;    /* run-length files: each scanline's offset */
  uint32_t *lengths;   /* and length, y + z * height */
} Sgi;

static uint32_t be16(const unsigned char *b) { return (uint32_t)b[0] << 8 | b[1]; }
static uint32_t be32(const unsigned char *b) {
  return (uint32_t)b[0] << 24 | (uint32_t)b[1] << 16 | (uint32_t)b[2] << 8 | b[3];
}

static int release(ORX_OBJECT *object) {
  Sgi *s = object->private_cell != NULL ? (Sgi *)object->private_cell[0] : NULL;
  if (s == NULL) return 0;
  object->private_cell[0] = NULL;
  if (s->file != NULL) fclose(s->file);
  kit_plane_free(&s->plane);
  free(s->starts);
  free(s->lengths);
  ERR_free(s);
  return 0;
}

/* --- Decoding ------------------------------------------------------------ */

/* One item of a run-length scanline: a byte, or a big-endian short. */
static unsigned item(const unsigned char *p, int bpc) {
  return bpc == 1 ? p[0] : (unsigned)p[0] << 8 | p[1];
}

static void put(unsigned char *out, uint32_t x, int bpc, unsigned value) {
  if (bpc == 1) {
    out[x] = (unsigned char)value;
  } else {
    const uint16_t v = (uint16_t)value;
    memcpy(out + 2 * (size_t)x, &v, 2);
  }
}

/* Expands the n bytes of one run-length scanline into the width samples of
 * out (bpc bytes each, host order).  Each item's low 7 bits count the run
 * (0 ends the scanline); with the high bit set that many items follow
 * verbatim, else one item is repeated.  A run is cut where the scanline
 * ends; the samples decoded, with *cut set when a run went past the end of
 * the scanline or the bytes ended inside a run. */
static uint32_t expand(const unsigned char *in, size_t n, int bpc, unsigned char *out,
                       uint32_t width, int *cut) {
  size_t at = 0;
  uint32_t x = 0;
  const size_t step = (size_t)bpc;
  while (at + step <= n) {
    const unsigned head = item(in + at, bpc);
    at += step;
    uint32_t count = head & 0x7f;
    if (count == 0) return x;
    if (count > width - x) {
      *cut = 1;
      count = width - x;
    }
    if (head & 0x80) {
      if ((n - at) / step < count) {
        *cut = 1;
        count = (uint32_t)((n - at) / step);
      }
      if (bpc == 1) {
        memcpy(out + x, in + at, count);
      } else {
        for (uint32_t k = 0; k < count; ++k) put(out, x + k, 2, item(in + at + 2 * (size_t)k, 2));
      }
      at += count * step;
    } else {
      if (at + step > n) {
        *cut = 1;
        return x;
      }
      const unsigned value = item(in + at, bpc);
      at += step;
      if (bpc == 1) {
        memset(out + x, (int)value, count);
      } else {
        for (uint32_t k = 0; k < count; ++k) put(out, x + k, 2, value);
      }
    }
    x += count;
    if (x == width) return x;
  }
  return x;
}

/* Turns big-endian shorts into host order, in place. */
static void swap_shorts(unsigned char *row, uint32_t n) {
  for (uint32_t x = 0; x < n; ++x) {
    const unsigned char *b = row + 2 * (size_t)x;
    const uint16_t v = (uint16_t)(b[0] << 8 | b[1]);
    memcpy(row + 2 * (size_t)x, &v, 2);
  }
}

static int decode_verbatim(Sgi *s) {
  const size_t row = (size_t)s->width * (size_t)s->bpc;
  for (uint32_t z = 0; z < s->depth; ++z)
    for (uint32_t y = 0; y < s->height; ++y) {
      unsigned char *out = kit_plane_at(&s->plane, (int32_t)(s->height - 1 - y), (int32_t)z);
      const long at = kSgiHeader + (long)(((uint64_t)z * s->height + y) * row);
      if (fseek(s->file, at, SEEK_SET) != 0 || fread(out, 1, row, s->file) != row) {
        kit_fail(ORX_E_READ, "sgi: cannot read %s: the file ends early (truncated)", s->path);
        return ORX_E_READ;
      }
      if (s->bpc == 2) swap_shorts(out, s->width);
    }
  return 0;
}

static int decode_rle(Sgi *s) {
  unsigned char *bytes = (unsigned char *)malloc((size_t)s->size);
  if (bytes == NULL) {
    kit_fail(ORX_E_NO_MEMORY, "sgi: no memory to read %s", s->path);
    return ORX_E_NO_MEMORY;
  }
  if (fseek(s->file, 0, SEEK_SET) != 0 || fread(bytes, 1, (size_t)s->size, s->file) != (size_t)s->size) {
    free(bytes);
    kit_fail(ORX_E_READ, "sgi: cannot read %s", s->path);
    return ORX_E_READ;
  }
  uint32_t cut = 0, short_lines = 0;
  for (uint32_t z = 0; z < s->depth; ++z)
    for (uint32_t y = 0; y < s->height; ++y) {
      const size_t k = (size_t)z * s->height + y;
      unsigned char *out = kit_plane_at(&s->plane, (int32_t)(s->height - 1 - y), (int32_t)z);
      int overrun = 0;
      const uint32_t got = expand(bytes + s->starts[k], s->lengths[k], s->bpc, out, s->width, &overrun);
      cut += overrun != 0;
      if (got < s->width) {
        memset(out + (size_t)got * s->bpc, 0, (size_t)(s->width - got) * s->bpc);
        ++short_lines;
      }
    }
  free(bytes);
  if (cut > 0)
    kit_warn("sgi: %s: %lu scanlines hold runs reaching past their end (cut there)", s->path,
             (unsigned long)cut);
  if (short_lines > 0)
    kit_warn("sgi: %s: %lu scanlines end short (completed with zeros)", s->path,
             (unsigned long)short_lines);
  return 0;
}

static int decode(void *data) {
  Sgi *s = (Sgi *)data;
  return s->storage == kSgiRle ? decode_rle(s) : decode_verbatim(s);
}

static int scan_read(void *data, int32_t line, void *out) {
  Sgi *s = (Sgi *)data;
  return kit_scan_decoded(&s->plane, &s->decoded, decode, data, line, out, sgi_who, s->path);
}

static int close_read(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  release(object);
  orx__free_obj(object);
  return 0;
}

/* --- Opening ------------------------------------------------------------- */

/* The offset and length tables of a run-length file, every scanline
 * checked to lie within the file; 0 after a report. */
static int read_tables(Sgi *s) {
  const uint64_t lines = (uint64_t)s->height * s->depth;
  if (kSgiHeader + lines * 8 > (uint64_t)s->size)
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    "sgi: %s: the tables of %lu scanlines run past the end of the file "
                    "(truncated or damaged)",
                    s->path, (unsigned long)lines);
  unsigned char *raw = (unsigned char *)malloc((size_t)lines * 8);
  s->starts = (uint32_t *)malloc((size_t)lines * sizeof *s->starts);
  s->lengths = (uint32_t *)malloc((size_t)lines * sizeof *s->lengths);
  if (raw == NULL || s->starts == NULL || s->lengths == NULL) {
    free(raw);
    return kit_fail(ORX_E_NO_MEMORY, "sgi: no memory to read %s", s->path);
  }
  if (fseek(s->file, kSgiHeader, SEEK_SET) != 0 || fread(raw, 8, (size_t)lines, s->file) != lines) {
    free(raw);
    return kit_fail(ORX_E_NOT_OUR_FILE, "sgi: cannot read the tables of %s", s->path);
  }
  for (size_t k = 0; k < lines; ++k) {
    s->starts[k] = be32(raw + 4 * k);
    s->lengths[k] = be32(raw + 4 * (lines + k));
    if (s->starts[k] < kSgiHeader || (uint64_t)s->starts[k] + s->lengths[k] > (uint64_t)s->size) {
      free(raw);
      return kit_fail(ORX_E_NOT_OUR_FILE,
                      "sgi: %s: scanline %lu of channel %lu (%lu bytes at %lu) lies outside the "
                      "file (truncated or damaged)",
                      s->path, (unsigned long)(k % s->height), (unsigned long)(k / s->height),
                      (unsigned long)s->lengths[k], (unsigned long)s->starts[k]);
    }
  }
  free(raw);
  return 1;
}

/* The header: the descriptor, the name and the sample range; 0 after a
 * report. */
static int describe(ORX_OBJECT *object, Sgi *s, const unsigned char *h) {
  static const char *const kColourMaps[] = {"normal", "dithered", "screen", "colour-map"};
  const uint32_t dimension = be16(h + 4);
  const uint32_t colourmap = be32(h + 104);
  s->storage = h[2];
  s->bpc = h[3];
  s->width = be16(h + 6);
  s->height = dimension >= 2 ? be16(h + 8) : 1;
  s->depth = dimension >= 3 ? be16(h + 10) : 1;
  if (s->storage > kSgiRle || (s->bpc != 1 && s->bpc != 2) || dimension < 1 || dimension > 3)
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    "sgi: %s: storage %d, %d bytes a sample, dimension %lu: not an SGI image",
                    s->path, s->storage, s->bpc, (unsigned long)dimension);
  if (colourmap != 0)
    return kit_fail(ORX_E_UNSUPPORTED,
                    "sgi: %s: a %s file (colormap type %lu) holds no picture of its own; only "
                    "normal files are read",
                    s->path, colourmap < 4 ? kColourMaps[colourmap] : "unknown",
                    (unsigned long)colourmap);
  if (s->width == 0 || s->height == 0 || s->depth == 0)
    return kit_fail(ORX_E_NOT_OUR_FILE, "sgi: %s: an empty picture (%lu x %lu x %lu)", s->path,
                    (unsigned long)s->width, (unsigned long)s->height, (unsigned long)s->depth);
  /* A verbatim file holds every sample; a run-length one can pack at most
   * 127 samples into two items (a file that shares scanlines may pack
   * more: within a megabyte of samples it is believed). */
  const uint64_t samples = (uint64_t)s->width * s->height * s->depth * (uint64_t)s->bpc;
  const uint64_t room = (uint64_t)(s->size - kSgiHeader);
  if (s->storage == kSgiVerbatim ? samples > room : samples > room * 64 + (1u << 20))
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    "sgi: %s: %lu x %lu pixels of %lu channels cannot come out of the %lu bytes "
                    "of the file (truncated or damaged)",
                    s->path, (unsigned long)s->width, (unsigned long)s->height,
                    (unsigned long)s->depth, (unsigned long)s->size);
  if (s->storage == kSgiRle && !read_tables(s)) return 0;

  ORX_IFD *ifd = &object->info.images[0];
  kit_describe_size(ifd, (int32_t)s->width, (int32_t)s->height, 1.0);
  ifd->orientation = 1;
  const int bits = 8 * s->bpc;
  KitLayout layout = {{s->depth >= 3 ? 3 : 1, s->depth == 2 || s->depth >= 4 ? 1 : 0,
                       s->depth > 4 ? (int32_t)s->depth - 4 : 0},
                      {ORX_C_INTEGER, ORX_C_INTEGER, ORX_C_INTEGER},
                      {bits, bits, bits}};
  kit_layout_apply(&layout, ifd);
  if (!kit_save(&ifd->image.name, layout.count[0] == 3 ? "rgb" : "grey") ||
      !kit_save(&object->info.compression, s->storage == kSgiRle ? "rle" : "none"))
    return 0;

  char name[kSgiNameBytes + 1];
  memcpy(name, h + 24, kSgiNameBytes);
  name[kSgiNameBytes] = 0;
  /* A name with control characters is none: some writers leave whatever
   * memory held in the field (OpenImageIO 2.4 does, when it has no
   * description). */
  int text = 1;
  for (const unsigned char *c = (const unsigned char *)name; *c != 0; ++c) text &= *c >= 32 && *c != 127;
  if (name[0] != 0 && text) {
    char *utf8 = kit_is_utf8(name) ? NULL : kit_latin1_to_utf8(name);
    const int saved = kit_save(&object->info.desc, utf8 != NULL ? utf8 : name);
    free(utf8);
    if (!saved) return 0;
  }
  const int32_t pixmin = (int32_t)be32(h + 12), pixmax = (int32_t)be32(h + 16);
  const int32_t top = s->bpc == 1 ? 255 : 65535;
  if ((pixmin != 0 || pixmax != top) &&
      (ORX_attr_set_int(&object->info, 0, "sgi:pixmin", pixmin) != 0 ||
       ORX_attr_set_int(&object->info, 0, "sgi:pixmax", pixmax) != 0))
    return 0;
  return kit_plane_init(&s->plane, &layout, ifd->window, ifd->window, 0, sgi_who, s->path) == 0;
}

int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == NULL) return kit_fail(ORX_E_FIELD_MISSING, "sgi: no file name to read");
  if (!kit_new_images(object, 1)) return 0;
  Sgi *s = (Sgi *)kit_allocate(sizeof(Sgi));
  if (s == NULL) return 0;
  memset(s, 0, sizeof *s);
  s->path = path;
  object->private_cell[0] = s;
  s->file = fopen(path, "rb");
  if (s->file == NULL) {
    release(object);
    return kit_fail(ORX_E_FIELD_MISSING, "sgi: cannot open %s", path);
  }
  unsigned char header[kSgiHeader];
  if (fseek(s->file, 0, SEEK_END) == 0) s->size = ftell(s->file);
  if (s->size < kSgiHeader || fseek(s->file, 0, SEEK_SET) != 0 ||
      fread(header, 1, kSgiHeader, s->file) != kSgiHeader || be16(header) != kSgiMagic) {
    release(object);
    return kit_fail(ORX_E_NOT_OUR_FILE, "sgi: %s is not an SGI image (or is cut in its header)",
                    path);
  }
  if (!describe(object, s, header)) return release(object);
  object->scan = scan_read;
  object->close = close_read;
  return 1;
}

uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char h[4];
  return kit_peek(name, stream, h, 4) == 4 && be16(h) == kSgiMagic && h[2] <= kSgiRle &&
         (h[3] == 1 || h[3] == 2);
}
