/* PNG files through libpng: 1, 2, 4, 8 and 16-bit grey, 8 and 16-bit grey
 * with alpha, RGB and RGBA.  Palette images read as RGB (RGBA with a
 * transparency chunk); gAMA, cHRM, eXIf, pHYs and text chunks map to the
 * descriptor's gamma, the chromaticities, the orientation, the pixel aspect
 * and print resolution and the header texts, both ways.  PNG's colour is straight and the library's matte
 * associated: reading multiplies the colour by the matte, writing divides
 * it out again (zero alpha, zero colour), unless the host asks for
 * "unassociated alpha".
 *
 * This is the full worked example of a format plug-in: it is written only
 * against the public headers, as any third party would write one.  The
 * image is decoded on the first scanline request and encoded at close, so
 * hosts may read and write lines in any order.  libpng reports errors by
 * longjmp to the setjmp of the function that called it; everything a
 * longjmp may skip over is either volatile or reachable from the private
 * data, which the close function frees. */
#include <math.h>
#include <png.h>
#include <setjmp.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zlib.h>

#include "orx/err.h"
#include "orx/plugin.h"
#include "plugin_kit.h"

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "png";
const char *imageExtension = ".png";
const char *imageName = "PNG";
const char *imageDescription =
    "Portable Network Graphics: 1-16 bit grey, 8/16-bit grey+alpha, RGB and RGBA";
const char *imageNameSyntax = "Name.####.png";
int imageOrientation = 0; /* rows are stored top first */
int imageNumberOfChannels = 3;
int imageBitsPerChannel = (1 << 0) | (1 << 1) | (1 << 3) | (1 << 7) | (1 << 15);
int imageNumberOfMattes = 1;
int imageBitsPerMatte = (1 << 7) | (1 << 15);
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_WRITE | ORX_ACCESS_RANDOM;

/* Settings: the zlib compression level, 0 (none) to 9 (smallest), and
 * "unassociated alpha": non-zero hands a reader PNG's straight colour as it
 * is stored and stores a writer's colour as it comes, instead of
 * multiplying it by the matte on reading and dividing it on writing. */
enum { kCapLevel = 0, kCapUnassociated = 1, kDefaultLevel = 6 };
static ORX_CAP_ENTRY capabilities[] = {
    {kCapLevel, "compression level", 0, NULL, 1, NULL, 0},
    {kCapUnassociated, "unassociated alpha", 0, NULL, 1, NULL, 0},
};

void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second, int32_t *count) {
  *table = capabilities;
  *first = 2;
  *second = 0;
  *count = 2;
}

/* PNG colour is straight; the library's is associated with its matte.  The
 * product truncates, as OpenImageIO's PNG reader's does. */
static const KitAlphaRounding kRounding = KIT_ALPHA_TRUNCATE;

static const char kWho[] = "png";
static const float kDefaultGamma = 2.2f;
enum { kChunkMemory = 16 << 20 };

/* The header texts and the text keywords that carry them. */
static const struct {
  const char *keyword;
  size_t field;
} kTexts[] = {
    {"Title", offsetof(ORX_INFO, name)},          {"Description", offsetof(ORX_INFO, desc)},
    {"Software", offsetof(ORX_INFO, program)},    {"Source", offsetof(ORX_INFO, machine)},
    {"Author", offsetof(ORX_INFO, user)},         {"Creation Time", offsetof(ORX_INFO, date)},
    {"Render Time", offsetof(ORX_INFO, time)},    {"Filter", offsetof(ORX_INFO, filter)},
};
enum { kTextCount = sizeof kTexts / sizeof kTexts[0] };

static char **text_field(ORX_INFO *info, int i) {
  return (char **)((char *)info + kTexts[i].field);
}

/* One open file, read or written. */
typedef struct Png {
  png_structp png;
  png_infop info;
  FILE *file;
  const char *path;   /* the object's handle */
  ORX_IFD *ifd;
  KitPlane plane;
  int writing;
  int decoded;        /* reading: 1 once the plane holds the image */
  int created;        /* writing: the open created the file */
  int level;          /* writing: compression level */
  int straight;       /* colour passes as stored ("unassociated alpha") */
  int colour, depth;  /* writing: what the file stores */
  char error[200];    /* libpng's last error message */
} Png;

static void on_error(png_structp png, png_const_charp message) {
  Png *p = (Png *)png_get_error_ptr(png);
  snprintf(p->error, sizeof p->error, "%s", message);
  png_longjmp(png, 1);
}

static void on_warning(png_structp png, png_const_charp message) {
  (void)png;
  kit_note("png: %s", message);
}

/* Frees the private data of the object's one image; returns 0, the open
 * functions' failure value. */
static int release(ORX_OBJECT *object) {
  Png *p = object->private_cell != NULL ? (Png *)object->private_cell[0] : NULL;
  if (p == NULL) return 0;
  object->private_cell[0] = NULL;
  if (p->png != NULL) {
    if (p->writing)
      png_destroy_write_struct(&p->png, &p->info);
    else
      png_destroy_read_struct(&p->png, &p->info, NULL);
  }
  if (p->file != NULL) fclose(p->file);
  kit_plane_free(&p->plane);
  ERR_free(p);
  return 0;
}

static Png *new_png(ORX_OBJECT *object) {
  Png *p = (Png *)ERR_malloc(sizeof(Png));
  if (p == NULL) {
    orx__set_err(ORX_E_NO_MEMORY);
    return NULL;
  }
  memset(p, 0, sizeof *p);
  p->path = object->info.handle;
  p->ifd = &object->info.images[0];
  object->private_cell[0] = p;
  return p;
}

/* --- Reading ------------------------------------------------------------- */

/* libpng's reads from the file, saying so when it ends early (libpng's own
 * says only "Read Error"). */
static void read_bytes(png_structp png, png_bytep data, size_t n) {
  Png *p = (Png *)png_get_io_ptr(png);
  if (fread(data, 1, n, p->file) != n)
    png_error(png, ferror(p->file) ? "read error" : "the file ends early (truncated)");
}

/* Decodes the whole image into the plane; 0 or a negative status. */
static int decode(void *data) {
  Png *p = (Png *)data;
  unsigned char *volatile pixels = NULL;
  volatile int whole = 0; /* every pixel is in the plane */
  const int32_t height = kit_plane_height(&p->plane);
  const int32_t width = kit_plane_width(&p->plane);
  if (setjmp(png_jmpbuf(p->png))) {
    free(pixels);
    /* Damage after the image data (a bad or missing end chunk, a file cut
     * after the last pixel) costs nothing: the image is kept, as other
     * readers keep it, and the damage is said.  Damage in the image data
     * itself (a bad checksum found once the pixels are out) still fails:
     * those pixels may be wrong. */
    if (whole && strncmp(p->error, "IDAT", 4) != 0) {
      kit_warn("png: %s: %s after the image data (the image is whole)", p->path, p->error);
      return 0;
    }
    kit_fail(ORX_E_READ, "png: cannot read %s: %s", p->path, p->error);
    return ORX_E_READ;
  }
  const int passes = png_set_interlace_handling(p->png);
  png_read_update_info(p->png, p->info);
  const size_t row_bytes = png_get_rowbytes(p->png, p->info);
  if (row_bytes != p->plane.pixel_bytes * (size_t)width) {
    kit_fail(ORX_E_UNDECODABLE, "png: %s: unexpected row size %lu", p->path,
             (unsigned long)row_bytes);
    return ORX_E_UNDECODABLE;
  }
  /* Interlaced images need every row at once; others one row at a time. */
  const int32_t rows = passes > 1 ? height : 1;
  pixels = (unsigned char *)malloc(row_bytes * (size_t)rows);
  if (pixels == NULL) {
    kit_fail(ORX_E_NO_MEMORY, "png: %s: no memory for the decoding rows", p->path);
    return ORX_E_NO_MEMORY;
  }
  if (passes > 1) {
    for (int pass = 0; pass < passes; ++pass)
      for (int32_t r = 0; r < height; ++r) png_read_row(p->png, pixels + (size_t)r * row_bytes, NULL);
    for (int32_t r = 0; r < height; ++r)
      kit_plane_spread(&p->plane, r, pixels + (size_t)r * row_bytes);
  } else {
    for (int32_t r = 0; r < height; ++r) {
      png_read_row(p->png, pixels, NULL);
      kit_plane_spread(&p->plane, r, pixels);
    }
  }
  for (int32_t r = 0; !p->straight && r < height; ++r)
    kit_plane_associate(&p->plane, r, kRounding);
  free(pixels);
  pixels = NULL;
  whole = 1;
  png_read_end(p->png, NULL);
  return 0;
}

static int scan_read(void *data, int32_t line, void *out) {
  Png *p = (Png *)data;
  return kit_scan_decoded(&p->plane, &p->decoded, decode, data, line, out, kWho, p->path);
}

static int close_object(ORX_OBJECT *object, intptr_t argument);

/* The text chunks (tEXt, zTXt, iTXt): those of the header's keywords go
 * into its texts, every other (a Comment, a Copyright...) becomes a string
 * attribute named by its keyword, which the writer stores again.  Texts
 * are UTF-8 in the library; tEXt and zTXt hold Latin-1 (latin1 set), which
 * is converted, unless it reads as UTF-8: ImageMagick stores UTF-8 there,
 * and Latin-1 text seldom happens to be well-formed UTF-8.  1, or 0 when
 * memory ran out. */
static int take_text(ORX_INFO *to, const char *key, const char *text, int latin1) {
  char *utf8 = NULL;
  if (latin1 && !kit_is_utf8(text)) {
    utf8 = kit_latin1_to_utf8(text);
    if (utf8 == NULL) return 0;
    text = utf8;
  }
  int field = -1;
  for (int i = 0; i < kTextCount; ++i)
    if (strcmp(key, kTexts[i].keyword) == 0) field = i;
  const int taken = field >= 0 ? kit_save(text_field(to, field), text)
                               : ORX_attr_set_string(to, 0, key, text) == 0;
  free(utf8);
  return taken;
}

static int describe_texts(ORX_INFO *to, png_structp png, png_infop info) {
  png_textp texts;
  int count = 0;
  png_get_text(png, info, &texts, &count);
  for (int t = 0; t < count; ++t)
    if (!take_text(to, texts[t].key, texts[t].text,
                   texts[t].compression <= PNG_TEXT_COMPRESSION_zTXt))
      return 0;
  return 1;
}

/* One inch in metres, for pHYs's pixels per metre. */
static const double kMetresPerInch = 0.0254;

/* The descriptor, texts and chromaticities from the chunks before the
 * pixels, and the transformations that give one sample per channel in the
 * plane's sizes. */
static int describe(ORX_OBJECT *object, Png *p) {
  png_structp png = p->png;
  png_infop info = p->info;
  const png_uint_32 width = png_get_image_width(png, info);
  const png_uint_32 height = png_get_image_height(png, info);
  int depth = png_get_bit_depth(png, info);
  const int colour = png_get_color_type(png, info);
  const int has_trns = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
  KitLayout layout = {{0, 0, 0}, {ORX_C_INTEGER, ORX_C_INTEGER, ORX_C_INTEGER}, {8, 8, 8}};
  layout.count[0] = (colour & PNG_COLOR_MASK_COLOR) != 0 ? 3 : 1;
  layout.count[1] = (colour & PNG_COLOR_MASK_ALPHA) != 0 || has_trns ? 1 : 0;
  if (colour == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (has_trns) png_set_tRNS_to_alpha(png);
  if (colour == PNG_COLOR_TYPE_PALETTE || (depth < 8 && has_trns)) depth = 8;
  if (depth < 8) png_set_packing(png); /* one byte a sample, values kept */
  if (depth == 16) png_set_swap(png);  /* host byte order */
  layout.bits[0] = layout.bits[1] = depth;

  ORX_IFD *ifd = p->ifd;
  png_uint_32 px = 1, py = 1;
  int unit;
  png_get_pHYs(png, info, &px, &py, &unit);
  if (width > INT32_MAX || height > INT32_MAX)
    return kit_fail(ORX_E_NOT_OUR_FILE, "png: %s: %lu x %lu pixels is too large", p->path,
                    (unsigned long)width, (unsigned long)height);
  /* Deflate packs at most 1032 bytes into one, so the rest of the file
   * bounds the pixels it can hold: a short file that claims a huge image is
   * refused before its plane is allocated. */
  const long here = ftell(p->file);
  long end = -1;
  if (here >= 0 && fseek(p->file, 0, SEEK_END) == 0) end = ftell(p->file);
  if (here < 0 || fseek(p->file, here, SEEK_SET) != 0) end = -1;
  const uint64_t raw = (uint64_t)height * (((uint64_t)width * png_get_channels(png, info) *
                                                (uint64_t)png_get_bit_depth(png, info) + 7) / 8 + 1);
  if (end >= here && raw > (uint64_t)(end - here) * 1032 + 1032)
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    "png: %s: %lu x %lu pixels cannot come out of the %ld bytes left in the "
                    "file (truncated or damaged)",
                    p->path, (unsigned long)width, (unsigned long)height, end - here);
  kit_describe_size(ifd, (int32_t)width, (int32_t)height, px > 0 && py > 0 ? (double)py / px : 1.0);
  /* Densities per metre, as dots per inch (as OpenImageIO gives them). */
  if (px > 0 && py > 0 && (unit == PNG_RESOLUTION_METER || px != py) &&
      !(unit == PNG_RESOLUTION_METER
            ? kit_set_resolution(&object->info, 0, px * kMetresPerInch, py * kMetresPerInch,
                                 KIT_INCHES)
            : kit_set_resolution(&object->info, 0, px, py, KIT_UNIT_NONE)))
    return 0;
  kit_layout_apply(&layout, ifd);
  if (!kit_save(&ifd->image.name, layout.count[0] == 3 ? "rgb" : "grey")) return 0;
  png_fixed_point gamma;
  /* gAMA holds 1/gamma in units of 1e-5.  The float keeps the inverse to
   * within 1e-7 of itself, so inverting it again on writing and rounding
   * gives back the same chunk. */
  /* An sRGB chunk implies a gAMA of its own, which is not the file's. */
  if (!png_get_valid(png, info, PNG_INFO_sRGB) && png_get_gAMA_fixed(png, info, &gamma) &&
      gamma > 0)
    ifd->curve.gamma = (float)(1e5 / gamma);
  double wx, wy, rx, ry, gx, gy, bx, by;
  if (png_get_cHRM(png, info, &wx, &wy, &rx, &ry, &gx, &gy, &bx, &by)) {
    const double xy[4][2] = {{rx, ry}, {gx, gy}, {bx, by}, {wx, wy}};
    float *to[4] = {object->info.red, object->info.green, object->info.blue, object->info.white};
    for (int i = 0; i < 4; ++i) {
      to[i][0] = (float)xy[i][0];
      to[i][1] = (float)xy[i][1];
      to[i][2] = (float)(1.0 - xy[i][0] - xy[i][1]);
    }
  } else if (!png_get_valid(png, info, PNG_INFO_iCCP)) {
    /* Neither cHRM nor a profile: sRGB, as PNG readers take it. */
    kit_set_chromaticities(&object->info, kit_rec709);
  }
  if (!describe_texts(&object->info, png, info)) return 0;
  png_charp profile_name = NULL;
  png_bytep profile = NULL;
  png_uint_32 profile_length = 0;
  int profile_compression = 0;
  if (png_get_iCCP(png, info, &profile_name, &profile_compression, &profile, &profile_length) &&
      profile != NULL && profile_length > 0 && profile_length <= INT32_MAX &&
      ORX_attr_set(&object->info, 0, "ICCProfile", ORX_ATTR_BYTES, (int32_t)profile_length,
                   profile) != 0)
    return 0;
  /* The EXIF orientation tells a host how to show the pixels, which stay
   * as stored; 1 is what a file without it means. */
  png_bytep exif = NULL;
  png_uint_32 exif_length = 0;
  const int orientation = png_get_eXIf_1(png, info, &exif_length, &exif) && exif != NULL
                              ? kit_exif_orientation(exif, exif_length)
                              : 0;
  if (orientation > 1 && ORX_attr_set_int(&object->info, 0, "Orientation", orientation) != 0)
    return 0;
  if (!kit_save(&object->info.compression, "deflate")) return 0;
  ORX_WINDOW window = ifd->window;
  return kit_plane_init(&p->plane, &layout, window, window, 0, kWho, p->path) == 0;
}

/* The text of a zTXt or compressed iTXt chunk, inflated within the chunk
 * memory limit (NUL-terminated, to free), or NULL when it does not inflate. */
static char *inflate_text(const unsigned char *in, size_t n) {
  for (uLongf size = (uLongf)n * 4 + 256; size <= kChunkMemory; size *= 4) {
    char *out = (char *)malloc(size + 1);
    uLongf length = size;
    const int r = out != NULL ? uncompress((Bytef *)out, &length, in, (uLong)n) : Z_MEM_ERROR;
    if (r == Z_OK) {
      out[length] = 0;
      return out;
    }
    free(out);
    if (r != Z_BUF_ERROR) break;
  }
  return NULL;
}

/* A text chunk (tEXt, zTXt or iTXt) of n bytes as the header text or the
 * attribute its keyword names; a damaged one says nothing.  1, or 0 when
 * memory ran out. */
static int take_text_chunk(ORX_INFO *to, const unsigned char *type, const unsigned char *data,
                           size_t n) {
  const unsigned char *end = (const unsigned char *)memchr(data, 0, n);
  if (end == NULL) return 1;
  size_t at = (size_t)(end - data) + 1;
  int compressed = memcmp(type, "zTXt", 4) == 0;
  if (compressed) ++at;  /* the compression method */
  if (memcmp(type, "iTXt", 4) == 0) {
    if (at + 2 > n) return 1;
    compressed = data[at];
    at += 2;  /* the flag and the method, then the language and the translated keyword */
    for (int k = 0; k < 2; ++k) {
      const unsigned char *z = at < n ? (const unsigned char *)memchr(data + at, 0, n - at) : NULL;
      if (z == NULL) return 1;
      at = (size_t)(z - data) + 1;
    }
  }
  if (at > n) return 1;
  char *text = compressed ? inflate_text(data + at, n - at) : (char *)malloc(n - at + 1);
  if (text == NULL) return 1;
  if (!compressed) {
    memcpy(text, data + at, n - at);
    text[n - at] = 0;
  }
  const int taken = take_text(to, (const char *)data, text, memcmp(type, "iTXt", 4) != 0);
  free(text);
  return taken;
}

/* Text chunks after the image data (ImageMagick writes its comment and
 * dates there) reach libpng only at the end of the pixels: they are read
 * at open by walking the chunks from the first image data on (chunks_fit
 * found every chunk within the file).  Leaves the stream where it was; 1,
 * or 0 after a report. */
static int describe_late_texts(ORX_OBJECT *object, Png *p) {
  const long here = ftell(p->file);
  if (here < 0) return 1; /* a stream that cannot seek: the texts before the data only */
  long at = here - 8;     /* libpng stopped after the first image data's length and type */
  unsigned char head[8];
  int taken = 1;
  while (taken && at > 8 && fseek(p->file, at, SEEK_SET) == 0 && fread(head, 1, 8, p->file) == 8 &&
         memcmp(head + 4, "IEND", 4) != 0) {
    const uint32_t length = (uint32_t)head[0] << 24 | (uint32_t)head[1] << 16 |
                            (uint32_t)head[2] << 8 | head[3];
    if (length > kChunkMemory) break;
    if (memcmp(head + 4, "tEXt", 4) == 0 || memcmp(head + 4, "zTXt", 4) == 0 ||
        memcmp(head + 4, "iTXt", 4) == 0) {
      unsigned char *data = (unsigned char *)malloc(length + 1);
      if (data == NULL) return kit_fail(ORX_E_NO_MEMORY, "png: no memory to read %s", p->path);
      if (fread(data, 1, length, p->file) == length)
        taken = take_text_chunk(&object->info, head + 4, data, length);
      free(data);
    }
    at += 12 + (long)length;
  }
  if (!taken) return kit_fail(ORX_E_NO_MEMORY, "png: no memory to read %s", p->path);
  if (fseek(p->file, here, SEEK_SET) != 0)
    return kit_fail(ORX_E_READ, "png: cannot read %s", p->path);
  return 1;
}

/* libpng allocates (and clears) a chunk's declared length before reading
 * its data, so a short file whose text chunk claims 2 GB would cost 2 GB:
 * every chunk before the image data must fit in the file (the image data
 * is streamed, and a chunk cut short after it is met once the pixels are
 * read, and only warned of).
 * Leaves the stream just after the signature.  1 when they fit (or the
 * stream cannot be measured), else 0 after reporting. */
static int chunks_fit(FILE *file, const char *path) {
  long size = -1;
  if (fseek(file, 0, SEEK_END) == 0) size = ftell(file);
  long at = 8;
  int after_data = 0; /* a chunk past the image data is cut: warned of on reading */
  while (size > 0 && at + 8 <= size && fseek(file, at, SEEK_SET) == 0) {
    unsigned char head[8];
    if (fread(head, 1, 8, file) != 8) break;
    const uint32_t length = (uint32_t)head[0] << 24 | (uint32_t)head[1] << 16 |
                            (uint32_t)head[2] << 8 | head[3];
    const int image_data = memcmp(head + 4, "IDAT", 4) == 0;
    after_data |= image_data;
    if (!image_data && (uint64_t)at + 12 + length > (uint64_t)size) {
      if (after_data) break;
      fseek(file, 8, SEEK_SET);
      return kit_fail(ORX_E_NOT_OUR_FILE,
                      "png: %s: a %.4s chunk of %lu bytes runs past the end of the file "
                      "(truncated or damaged)",
                      path, (const char *)(head + 4), (unsigned long)length);
    }
    if (memcmp(head + 4, "IEND", 4) == 0) break;
    at += 12 + (long)length;
  }
  return fseek(file, 8, SEEK_SET) == 0 || size < 0;
}

int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == NULL) return kit_fail(ORX_E_FIELD_MISSING, "png: no file name to read");
  if (!kit_new_images(object, 1)) return 0;
  Png *p = new_png(object);
  if (p == NULL) return 0;
  p->file = fopen(path, "rb");
  if (p->file == NULL) {
    release(object);
    return kit_fail(ORX_E_FIELD_MISSING, "png: cannot open %s", path);
  }
  unsigned char signature[8];
  if (fread(signature, 1, 8, p->file) != 8 || png_sig_cmp(signature, 0, 8) != 0) {
    release(object);
    return kit_fail(ORX_E_NOT_OUR_FILE, "png: %s is not a PNG file", path);
  }
  if (!chunks_fit(p->file, path)) {
    release(object);
    return 0;
  }
  p->png = png_create_read_struct(PNG_LIBPNG_VER_STRING, p, on_error, on_warning);
  p->info = p->png != NULL ? png_create_info_struct(p->png) : NULL;
  if (p->info == NULL) {
    release(object);
    return kit_fail(ORX_E_NO_MEMORY, "png: no memory to read %s", path);
  }
  if (setjmp(png_jmpbuf(p->png))) {
    kit_fail(ORX_E_NOT_OUR_FILE, "png: cannot read %s: %s", path, p->error);
    return release(object);
  }
  png_set_benign_errors(p->png, 1);
  /* No ancillary chunk may make libpng allocate more than this (a header
   * can declare any chunk length). */
  png_set_chunk_malloc_max(p->png, kChunkMemory);
  png_set_read_fn(p->png, p, read_bytes);
  png_set_sig_bytes(p->png, 8);
  p->straight = kit_setting_int(object, kCapUnassociated, 0) != 0;
  png_read_info(p->png, p->info);
  if (!describe(object, p) || !describe_late_texts(object, p)) {
    return release(object);
  }
  object->scan = scan_read;
  object->close = close_object;
  return 1;
}

uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char signature[8];
  return kit_peek(name, stream, signature, 8) == 8 && png_sig_cmp(signature, 0, 8) == 0;
}

/* --- Writing ------------------------------------------------------------- */

/* What a descriptor becomes in a PNG file: the colour type and the depth,
 * or 0 after reporting what the file cannot store. */
static int plan(ORX_OBJECT *object, int *colour, int *depth) {
  const ORX_IFD *ifd = &object->info.images[0];
  const char *path = object->info.handle;
  const ORX_CHANNELS *image = &ifd->image, *matte = &ifd->matte;
  if (image->count != 1 && image->count != 3)
    return kit_fail(ORX_E_UNSUPPORTED, "png: %s: cannot store %d image channels (1 or 3)", path,
                    (int)image->count);
  if (matte->count > 1 && !kit_narrowed(object, 0, "mattes after the first dropped")) return 0;
  if (ifd->aux.count > 0 && !kit_narrowed(object, 0, "auxiliary channels dropped")) return 0;
  if (!kit_window_at_origin(object, 0)) return 0;
  /* One depth for all channels: the widest asked for, floating point as 16
   * bits; widths PNG lacks are widened (which loses nothing). */
  int widest = 0;
  int floating = 0;
  const ORX_CHANNELS *groups[2] = {image, matte};
  for (int g = 0; g < 2; ++g) {
    if (groups[g]->count <= 0) continue;
    if (groups[g]->type != ORX_C_INTEGER) floating = 1;
    else if (groups[g]->bits > widest) widest = groups[g]->bits;
  }
  if (floating && !kit_narrowed(object, 0, "floating-point samples stored as 16-bit integers"))
    return 0;
  if (widest > 16 && !kit_narrowed(object, 0, "%d-bit samples stored in 16 bits", widest))
    return 0;
  *depth = floating || widest > 8 ? 16 : widest;
  const int alpha = matte->count >= 1;
  if (*depth < 8 && (image->count != 1 || alpha || (*depth != 1 && *depth != 2 && *depth != 4)))
    *depth = 8;
  *colour = image->count == 3 ? (alpha ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB)
                              : (alpha ? PNG_COLOR_TYPE_GRAY_ALPHA : PNG_COLOR_TYPE_GRAY);
  return 1;
}

static int scan_write(void *data, int32_t line, void *in) {
  Png *p = (Png *)data;
  return kit_plane_store(&p->plane, p->ifd, line, (void **)in, kWho);
}

/* Whether a name can be a text chunk's keyword: 1 to 79 printable Latin-1
 * characters without leading, trailing or double spaces, and not in the
 * namespace of another format's own attributes (an "openexr:..." is not a
 * text of a PNG file; a PNG's own "Exif:..." or "oiio:..." texts are). */
static int is_keyword(const char *name) {
  static const char *const kForeign[] = {"openexr:", "tiff:", "jpeg:", "orx:"};
  const size_t n = strlen(name);
  if (n < 1 || n > 79 || name[0] == ' ' || name[n - 1] == ' ' || strstr(name, "  ") != NULL)
    return 0;
  for (size_t i = 0; i < sizeof kForeign / sizeof kForeign[0]; ++i)
    if (strncmp(name, kForeign[i], strlen(kForeign[i])) == 0) return 0;
  for (const unsigned char *c = (const unsigned char *)name; *c != 0; ++c)
    if (*c < 32 || (*c > 126 && *c < 161)) return 0;
  return 1;
}

/* Whether a PNG file holds the attribute: an ICC profile of its colour,
 * the EXIF orientation and texts (but not another format's channel names: a PNG's
 * follow from its colour type). */
static int png_holds(const ORX_ATTR *a, int32_t channels) {
  return a->image == 0 && ((strcmp(a->name, "ICCProfile") == 0 && kit_profile_fits(a, channels)) ||
                           strcmp(a->name, "XResolution") == 0 ||
                           strcmp(a->name, "YResolution") == 0 ||
                           strcmp(a->name, "ResolutionUnit") == 0 ||
                           (a->type == ORX_ATTR_INT && strcmp(a->name, "Orientation") == 0) ||
                           (a->type == ORX_ATTR_STRING && is_keyword(a->name) &&
                            strcmp(a->name, "channelnames") != 0));
}

/* Drops from the object the attributes the file will not carry, which
 * tells the host what is lost (the library's own "orx:" notes stay). */
static void keep_attributes(ORX_INFO *info) {
  const int32_t channels = info->image_count > 0 ? info->images[0].image.count : 0;
  for (int32_t k = ORX_attr_count(info, ORX_ATTR_ANY_IMAGE) - 1; k >= 0; --k) {
    const ORX_ATTR *a = ORX_attr_at(info, ORX_ATTR_ANY_IMAGE, k);
    if (a == NULL || strncmp(a->name, "orx:", 4) == 0 || png_holds(a, channels)) continue;
    char name[256];
    snprintf(name, sizeof name, "%s", a->name);
    ORX_attr_remove(info, a->image, name);
  }
}

int imageWriteOpen(ORX_OBJECT *object) {
  keep_attributes(&object->info);
  if (object->info.image_count != 1)
    return kit_fail(ORX_E_UNSUPPORTED, "png: %s: a file holds one image, not %d",
                    object->info.handle, (int)object->info.image_count);
  int colour = 0, depth = 0;
  if (!plan(object, &colour, &depth)) return 0;
  if (!kit_new_cell(object, 1)) return 0;
  Png *p = new_png(object);
  if (p == NULL) return 0;
  p->writing = 1;
  p->colour = colour;
  p->depth = depth;
  p->level = kit_setting_int(object, kCapLevel, kDefaultLevel);
  p->straight = kit_setting_int(object, kCapUnassociated, 0) != 0;
  if (p->level < 0 || p->level > 9) p->level = kDefaultLevel;
  KitLayout layout = kit_layout_of(p->ifd);
  for (int g = 0; g < 2; ++g) {
    layout.type[g] = ORX_C_INTEGER;
    layout.bits[g] = depth;
  }
  /* Mattes after the first and auxiliary channels come last in a host's
   * rows, so the plane simply stops before them. */
  if (layout.count[1] > 1) layout.count[1] = 1;
  layout.count[2] = 0;
  if (kit_plane_init(&p->plane, &layout, p->ifd->window, p->ifd->window,
                     KIT_PLANE_INTERLEAVED | KIT_PLANE_WRITE, kWho, p->path) != 0 ||
      !kit_claim(kWho, p->path, &p->created)) {
    return release(object);
  }
  object->scan = scan_write;
  object->close = close_object;
  return 1;
}

/* The chunk a text goes in: iTXt, the chunk of UTF-8, when it is UTF-8
 * beyond ASCII, else tEXt (Latin-1, which a text that is not UTF-8 is
 * taken to be). */
static int text_compression(const char *text) {
  for (const unsigned char *c = (const unsigned char *)text; *c != 0; ++c)
    if (*c >= 0x80)
      return kit_is_utf8(text) ? PNG_ITXT_COMPRESSION_NONE : PNG_TEXT_COMPRESSION_NONE;
  return PNG_TEXT_COMPRESSION_NONE;
}

/* The header chunks of a written file. */
static void write_header(ORX_OBJECT *object, Png *p) {
  const int depth = p->depth;
  png_structp png = p->png;
  png_infop info = p->info;
  const ORX_INFO *in = &object->info;
  png_set_IHDR(png, info, (png_uint_32)kit_plane_width(&p->plane),
               (png_uint_32)kit_plane_height(&p->plane), depth, p->colour, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  /* A file without gAMA is taken as sRGB, a gamma of about 2.2: the chunk
   * is written only when it says something else (a file's own 1/2.2,
   * 45455, reads as 2.19998 and goes back as it came). */
  if (p->ifd->curve.gamma > 0.0f && p->ifd->curve.gamma != kDefaultGamma) {
    const double inverse = floor(1e5 / p->ifd->curve.gamma + 0.5);
    if (inverse >= 1 && inverse <= PNG_UINT_31_MAX)
      png_set_gAMA_fixed(png, info, (png_fixed_point)inverse);
  }
  if (kit_chromaticities_informative(in, kit_rec709))
    png_set_cHRM(png, info, in->white[0], in->white[1], in->red[0], in->red[1], in->green[0],
                 in->green[1], in->blue[0], in->blue[1]);
  enum { kMostTexts = kTextCount + 64 };
  png_text texts[kMostTexts];
  char date[32];
  int count = 0;
  for (int i = 0; i < kTextCount; ++i) {
    char *text = (char *)kit_date_text(*text_field(&object->info, i), date, sizeof date);
    if (!kit_has_text(text)) continue;
    memset(&texts[count], 0, sizeof texts[count]);
    texts[count].compression = text_compression(text);
    texts[count].key = (png_charp)kTexts[i].keyword;
    texts[count].text = text;
    ++count;
  }
  /* Then the text attributes (the write open kept only those a chunk can
   * carry), after the header's own keywords. */
  for (int32_t k = 0; count < kMostTexts; ++k) {
    const ORX_ATTR *a = ORX_attr_at(in, 0, k);
    if (a == NULL) break;
    int header = 0;
    for (int i = 0; i < kTextCount; ++i) header |= strcmp(a->name, kTexts[i].keyword) == 0;
    if (a->type != ORX_ATTR_STRING || header || strncmp(a->name, "orx:", 4) == 0) continue;
    memset(&texts[count], 0, sizeof texts[count]);
    texts[count].compression = text_compression((const char *)a->data);
    texts[count].key = (png_charp)a->name;
    texts[count].text = (png_charp)a->data;
    ++count;
  }
  if (count > 0) png_set_text(png, info, texts, count);
  const ORX_ATTR *profile = ORX_attr_find(in, 0, "ICCProfile");
  if (profile != NULL && profile->type == ORX_ATTR_BYTES)
    png_set_iCCP(png, info, "ICC profile", PNG_COMPRESSION_TYPE_BASE,
                 (png_const_bytep)profile->data, (png_uint_32)profile->count);
  /* The print resolution as pHYs in pixels per metre; else a pixel aspect
   * other than square, in no unit (PNG readers take the ratio of its
   * densities as the pixel's shape). */
  const double pixel_aspect = kit_pixel_aspect(p->ifd);
  double dx = 0.0, dy = 0.0;
  int unit = KIT_INCHES;
  if (kit_resolution(in, 0, pixel_aspect, &dx, &dy, &unit)) {
    const double metre = unit == KIT_CENTIMETRES ? 100.0
                         : unit == KIT_UNIT_NONE ? 1.0
                                                 : 1.0 / kMetresPerInch;
    png_set_pHYs(png, info, (png_uint_32)fmax(1.0, fmin(floor(dx * metre + 0.5), 2147483647.0)),
                 (png_uint_32)fmax(1.0, fmin(floor(dy * metre + 0.5), 2147483647.0)),
                 unit == KIT_UNIT_NONE ? PNG_RESOLUTION_UNKNOWN : PNG_RESOLUTION_METER);
  } else if (fabs(pixel_aspect - 1.0) > 1e-5) {
    uint32_t x = 1, y = 1;
    kit_aspect_densities(pixel_aspect, 100000, &x, &y);
    png_set_pHYs(png, info, x, y, PNG_RESOLUTION_UNKNOWN);
  }
  int32_t orientation = 0;
  unsigned char exif[KIT_EXIF_BLOCK];
  if (ORX_attr_get_int(in, 0, "Orientation", &orientation) && orientation > 1 && orientation <= 8)
    png_set_eXIf_1(png, info, (png_uint_32)kit_exif_orientation_block(orientation, exif), exif);
  png_set_compression_level(png, p->level);
  /* zlib's default strategy, as other writers use: the filtered strategy
   * libpng would pick makes files some 7% smaller in nearly twice the time. */
  png_set_compression_strategy(png, Z_DEFAULT_STRATEGY);
  png_write_info(png, info);
  if (depth < 8) png_set_packing(png);
  if (depth == 16) png_set_swap(png);
}

/* Encodes the plane into the file; 0 or a negative status. */
static int encode(ORX_OBJECT *object, Png *p) {
  kit_plane_complete(&p->plane);
  p->file = fopen(p->path, "wb");
  if (p->file == NULL) {
    kit_fail(ORX_E_WRITE, "png: cannot write %s", p->path);
    return ORX_E_WRITE;
  }
  p->png = png_create_write_struct(PNG_LIBPNG_VER_STRING, p, on_error, on_warning);
  p->info = p->png != NULL ? png_create_info_struct(p->png) : NULL;
  if (p->info == NULL) {
    kit_fail(ORX_E_NO_MEMORY, "png: no memory to write %s", p->path);
    return ORX_E_NO_MEMORY;
  }
  if (setjmp(png_jmpbuf(p->png))) {
    kit_fail(ORX_E_WRITE, "png: cannot write %s: %s", p->path, p->error);
    return ORX_E_WRITE;
  }
  png_set_benign_errors(p->png, 1);
  png_init_io(p->png, p->file);
  write_header(object, p);
  /* libpng copies each row before it filters it. */
  for (int32_t r = 0; r < kit_plane_height(&p->plane); ++r) {
    if (!p->straight) kit_plane_dissociate(&p->plane, r, kRounding);
    png_write_row(p->png, (png_const_bytep)kit_plane_pixels(&p->plane, r));
  }
  png_write_end(p->png, p->info);
  if (fclose(p->file) != 0) {
    p->file = NULL;
    kit_fail(ORX_E_WRITE, "png: cannot complete %s", p->path);
    return ORX_E_WRITE;
  }
  p->file = NULL;
  return 0;
}

static int close_object(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  int status = 0;
  Png *p = object->private_cell != NULL ? (Png *)object->private_cell[0] : NULL;
  if (p != NULL && object->access == ORX_ACCESS_WRITE) {
    status = encode(object, p);
    if (status != 0) {
      if (p->file != NULL) fclose(p->file);
      p->file = NULL;
      kit_release(p->path, p->created);
    }
  }
  release(object);
  orx__free_obj(object);
  return status;
}
