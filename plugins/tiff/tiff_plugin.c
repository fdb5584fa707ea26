/* TIFF files through libtiff: 8, 16 and 32-bit unsigned integer and 32-bit
 * floating-point samples, grey or RGB with any number of extra samples (an
 * alpha extra sample is the matte, the others auxiliary channels), in strips
 * or tiles, contiguous or in separate planes.  Every directory of a file is
 * an image.  Files of other kinds (palette, YCbCr, CMYK, bilevel) read as
 * 8-bit RGBA through libtiff's RGBA interface.  Primary chromaticities, the
 * white point and the text tags map to the header, both ways.  Writing
 * stores one directory per image, with the compression and the strip or
 * tile layout chosen by the capability settings. */
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tiffio.h>

#include "orx/err.h"
#include "orx/limits.h"
#include "orx/plugin.h"
#include "plugin_kit.h"

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "tiff";
const char *imageExtension = ".tif";
const char *imageName = "TIFF";
const char *imageDescription =
    "Tagged Image File Format: 8/16/32-bit integer and float, any channels, every directory";
const char *imageNameSyntax = "Name.####.tif";
int imageOrientation = 0;
int imageNumberOfChannels = 3;
int imageBitsPerChannel = (1 << 7) | (1 << 15) | (int)(1u << 31);
int imageNumberOfMattes = 1;
int imageBitsPerMatte = (1 << 7) | (1 << 15) | (int)(1u << 31);
int imageNumberOfZChannels = 1;
int imageBitsPerZChannel = (1 << 7) | (1 << 15) | (int)(1u << 31);
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_WRITE | ORX_ACCESS_RANDOM;

/* Settings: the compression and the layout of the pixel data. */
enum { kCapCompression = 0, kCapTiles = 1 };
/* List values are 16-bit, so the settings number the methods themselves. */
static const uint16_t kMethods[] = {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE,
                                    COMPRESSION_PACKBITS};
static ORX_CAP_LIST_ENTRY compressions[] = {
    {0, "none", 0, NULL},
    {1, "lzw", 0, NULL},
    {2, "deflate", 0, NULL},
    {3, "packbits", 0, NULL},
    {0, NULL, 0, NULL},
};
static ORX_CAP_LIST compression = {1, 0, compressions};
static ORX_CAP_LIST_ENTRY tilings[] = {
    {0, "strips", 0, NULL},
    {64, "64x64 tiles", 0, NULL},
    {256, "256x256 tiles", 0, NULL},
    {0, NULL, 0, NULL},
};
static ORX_CAP_LIST tiles = {0, 0, tilings};
static ORX_CAP_ENTRY capabilities[] = {
    {kCapCompression, "compression", 0, NULL, 0, &compression, 0},
    {kCapTiles, "tiles", 0, NULL, 0, &tiles, 0},
};

void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second, int32_t *count) {
  *table = capabilities;
  *first = 2;
  *second = 0;
  *count = 2;
}

static const char kWho[] = "tiff";

/* The header texts and the tags that carry them. */
static const struct {
  ttag_t tag;
  size_t field;
} kTexts[] = {
    {TIFFTAG_DOCUMENTNAME, offsetof(ORX_INFO, name)},
    {TIFFTAG_IMAGEDESCRIPTION, offsetof(ORX_INFO, desc)},
    {TIFFTAG_SOFTWARE, offsetof(ORX_INFO, program)},
    {TIFFTAG_HOSTCOMPUTER, offsetof(ORX_INFO, machine)},
    {TIFFTAG_ARTIST, offsetof(ORX_INFO, user)},
    {TIFFTAG_DATETIME, offsetof(ORX_INFO, date)},
};
enum { kTextCount = sizeof kTexts / sizeof kTexts[0] };

static char **text_field(ORX_INFO *info, int i) {
  return (char **)((char *)info + kTexts[i].field);
}

/* The file, shared by its images. */
typedef struct TiffFile {
  TIFF *tif;
  const char *path;
  int writing;
  int created;
  int compression;
  int tile;  /* tile side, 0 for strips */
  char error[200];
} TiffFile;

/* One image: a directory of the file. */
typedef struct TiffImage {
  TiffFile *file;
  ORX_IFD *ifd;
  tdir_t directory;
  int rgba;      /* read through the RGBA interface */
  int decoded;   /* 1 once the plane holds the image, or a negative status */
  KitPlane plane;
} TiffImage;

static int on_message(TIFF *tif, void *data, const char *module, const char *format,
                      va_list args) {
  (void)tif;
  (void)module;
  TiffFile *f = (TiffFile *)data;
  vsnprintf(f->error, sizeof f->error, format, args);
  return 1;
}

static int on_warning(TIFF *tif, void *data, const char *module, const char *format,
                      va_list args) {
  (void)tif;
  (void)data;
  (void)module;
  char message[200];
  vsnprintf(message, sizeof message, format, args);
  kit_note("tiff: %s", message);
  return 1;
}

static TIFF *open_tiff(TiffFile *f, const char *mode) {
  TIFFOpenOptions *options = TIFFOpenOptionsAlloc();
  if (options == NULL) return NULL;
  TIFFOpenOptionsSetErrorHandlerExtR(options, on_message, f);
  TIFFOpenOptionsSetWarningHandlerExtR(options, on_warning, f);
  const int64_t limit = ORX_limit(ORX_LIMIT_ROW_MEMORY);
  TIFFOpenOptionsSetMaxSingleMemAlloc(options, limit > 0 ? (tmsize_t)limit : 0);
  TIFF *tif = TIFFOpenExt(f->path, mode, options);
  TIFFOpenOptionsFree(options);
  return tif;
}

/* Frees the image records and the file, which closes. */
static void release(ORX_OBJECT *object, TiffFile *file) {
  for (int32_t i = 0; object->private_cell != NULL && i < object->info.image_count; ++i) {
    TiffImage *image = (TiffImage *)object->private_cell[i];
    if (image == NULL) continue;
    kit_plane_free(&image->plane);
    ERR_free(image);
    object->private_cell[i] = NULL;
  }
  if (file == NULL) return;
  if (file->tif != NULL) TIFFClose(file->tif);
  ERR_free(file);
}

static TiffFile *new_file(const char *path) {
  TiffFile *file = (TiffFile *)ERR_malloc(sizeof(TiffFile));
  if (file == NULL) {
    orx__err = ORX_E_NO_MEMORY;
    return NULL;
  }
  memset(file, 0, sizeof *file);
  file->path = path;
  return file;
}

/* One image record per descriptor, sharing file; 0 when memory is short
 * (what was made is released with the object's records). */
static int new_images(ORX_OBJECT *object, TiffFile *file) {
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    TiffImage *image = (TiffImage *)ERR_malloc(sizeof(TiffImage));
    if (image == NULL) {
      orx__err = ORX_E_NO_MEMORY;
      return 0;
    }
    memset(image, 0, sizeof *image);
    image->file = file;
    image->ifd = &object->info.images[i];
    image->directory = (tdir_t)i;
    object->private_cell[i] = image;
  }
  return 1;
}

/* --- Reading ------------------------------------------------------------- */

static int fail_read(TiffImage *image) {
  kit_fail(ORX_E_READ, "tiff: cannot read %s: %s", image->file->path, image->file->error);
  return ORX_E_READ;
}

/* The pixels of the current directory through the RGBA interface, bottom
 * row first as libtiff gives them. */
static int decode_rgba(TiffImage *image) {
  TIFF *tif = image->file->tif;
  const int32_t width = kit_plane_width(&image->plane);
  const int32_t height = kit_plane_height(&image->plane);
  uint32_t *pixels = (uint32_t *)malloc((size_t)width * (size_t)height * 4);
  if (pixels == NULL) {
    kit_fail(ORX_E_NO_MEMORY, "tiff: %s: no memory for the decoded image", image->file->path);
    return ORX_E_NO_MEMORY;
  }
  if (!TIFFReadRGBAImageOriented(tif, (uint32_t)width, (uint32_t)height, pixels,
                                 ORIENTATION_TOPLEFT, 0)) {
    free(pixels);
    return fail_read(image);
  }
  unsigned char *row = (unsigned char *)malloc((size_t)width * 4);
  if (row == NULL) {
    free(pixels);
    kit_fail(ORX_E_NO_MEMORY, "tiff: %s: no memory for the decoded image", image->file->path);
    return ORX_E_NO_MEMORY;
  }
  for (int32_t r = 0; r < height; ++r) {
    const uint32_t *in = pixels + (size_t)r * (size_t)width;
    for (int32_t x = 0; x < width; ++x) {
      row[4 * x] = (unsigned char)TIFFGetR(in[x]);
      row[4 * x + 1] = (unsigned char)TIFFGetG(in[x]);
      row[4 * x + 2] = (unsigned char)TIFFGetB(in[x]);
      row[4 * x + 3] = (unsigned char)TIFFGetA(in[x]);
    }
    kit_plane_spread(&image->plane, r, row);
  }
  free(row);
  free(pixels);
  return 0;
}

/* Strips or tiles, contiguous or one plane per sample, into the plane. */
static int decode_blocks(TiffImage *image) {
  TIFF *tif = image->file->tif;
  KitPlane *plane = &image->plane;
  const int32_t width = kit_plane_width(plane), height = kit_plane_height(plane);
  uint16_t config = PLANARCONFIG_CONTIG;
  TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &config);
  const int separate = config == PLANARCONFIG_SEPARATE;
  const int tiled = TIFFIsTiled(tif);
  uint32_t block_w = (uint32_t)width, block_h = 1;
  if (tiled) {
    TIFFGetField(tif, TIFFTAG_TILEWIDTH, &block_w);
    TIFFGetField(tif, TIFFTAG_TILELENGTH, &block_h);
  } else {
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &block_h);
    if (block_h > (uint32_t)height) block_h = (uint32_t)height;
  }
  const tmsize_t size = tiled ? TIFFTileSize(tif) : TIFFStripSize(tif);
  const int32_t planes = separate ? plane->channels : 1;
  const int32_t per_pixel = separate ? 1 : plane->channels;
  const size_t pixel = separate ? plane->sample_bytes[0] : plane->pixel_bytes;
  if (size <= 0 || block_w == 0 || block_h == 0 ||
      (uint64_t)block_w * block_h * pixel > (uint64_t)size)
    return fail_read(image);
  unsigned char *block = (unsigned char *)malloc((size_t)size);
  if (block == NULL) {
    kit_fail(ORX_E_NO_MEMORY, "tiff: %s: no memory for a block of %lld bytes", image->file->path,
             (long long)size);
    return ORX_E_NO_MEMORY;
  }
  for (int32_t s = 0; s < planes; ++s)
    for (uint32_t y = 0; y < (uint32_t)height; y += block_h)
      for (uint32_t x = 0; x < (uint32_t)width; x += block_w) {
        const tmsize_t got =
            tiled ? TIFFReadEncodedTile(tif, TIFFComputeTile(tif, x, y, 0, (uint16_t)s), block, size)
                  : TIFFReadEncodedStrip(tif, TIFFComputeStrip(tif, y, (uint16_t)s), block, size);
        if (got < 0) {
          free(block);
          return fail_read(image);
        }
        const uint32_t rows = y + block_h > (uint32_t)height ? (uint32_t)height - y : block_h;
        const uint32_t cols = x + block_w > (uint32_t)width ? (uint32_t)width - x : block_w;
        for (uint32_t r = 0; r < rows; ++r)
          kit_plane_put(plane, (int32_t)(y + r), (int32_t)x, (int32_t)cols,
                        block + (size_t)r * block_w * pixel, separate ? s : 0, per_pixel);
      }
  free(block);
  return 0;
}

static int decode(void *data) {
  TiffImage *image = (TiffImage *)data;
  if (!TIFFSetDirectory(image->file->tif, image->directory)) return fail_read(image);
  return image->rgba ? decode_rgba(image) : decode_blocks(image);
}

static int scan_read(void *data, int32_t line, void *out) {
  TiffImage *image = (TiffImage *)data;
  return kit_scan_decoded(&image->plane, &image->decoded, decode, data, line, out, kWho,
                          image->file->path);
}

/* The layout of the current directory: its samples as stored, or 8-bit
 * RGBA for the kinds only the RGBA interface reads. */
static KitLayout layout_of_directory(TIFF *tif, int *rgba) {
  uint16_t spp = 1, bits = 1, format = SAMPLEFORMAT_UINT, photometric = PHOTOMETRIC_MINISBLACK;
  uint16_t extra_count = 0, *extra = NULL;
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &spp);
  TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bits);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &format);
  TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric);
  TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extra_count, &extra);
  KitLayout layout = {{0, 0, 0}, {ORX_C_INTEGER, ORX_C_INTEGER, ORX_C_INTEGER}, {8, 8, 8}};
  const int colour = photometric == PHOTOMETRIC_RGB ? 3 : 1;
  const int plain = photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_RGB;
  const int integer = format == SAMPLEFORMAT_UINT && (bits == 8 || bits == 16 || bits == 32);
  const int real = format == SAMPLEFORMAT_IEEEFP && bits == 32;
  *rgba = !plain || !(integer || real) || spp < colour;
  if (*rgba) {
    layout.count[0] = 3;
    layout.count[1] = 1;
    return layout;
  }
  const int extras = spp - colour;
  const int alpha = extras > 0 && extra_count > 0 &&
                    (extra[0] == EXTRASAMPLE_ASSOCALPHA || extra[0] == EXTRASAMPLE_UNASSALPHA);
  layout.count[0] = colour;
  layout.count[1] = alpha;
  layout.count[2] = extras - alpha;
  for (int g = 0; g < 3; ++g) {
    layout.type[g] = real ? ORX_C_FLOAT : ORX_C_INTEGER;
    layout.bits[g] = bits;
  }
  return layout;
}

/* The descriptor of the current directory, and the header of the first. */
static int describe(ORX_OBJECT *object, TiffImage *image) {
  TIFF *tif = image->file->tif;
  uint32_t width = 0, height = 0;
  TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
  TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &height);
  if (width == 0 || height == 0 || width > INT32_MAX || height > INT32_MAX)
    return kit_fail(ORX_E_NOT_OUR_FILE, "tiff: %s: directory %d has %lu x %lu pixels",
                    image->file->path, (int)image->directory, (unsigned long)width,
                    (unsigned long)height);
  float xres = 1.0f, yres = 1.0f;
  const int has_res = TIFFGetField(tif, TIFFTAG_XRESOLUTION, &xres) &&
                      TIFFGetField(tif, TIFFTAG_YRESOLUTION, &yres) && xres > 0 && yres > 0;
  ORX_IFD *ifd = image->ifd;
  kit_describe_size(ifd, (int32_t)width, (int32_t)height, has_res ? (double)yres / xres : 1.0);
  const KitLayout layout = layout_of_directory(tif, &image->rgba);
  kit_layout_apply(&layout, ifd);
  if (!kit_save(&ifd->image.name, layout.count[0] == 3 ? "rgb" : "grey")) return 0;
  if (kit_plane_init(&image->plane, &layout, ifd->window, ifd->window, 0, kWho,
                     image->file->path) != 0)
    return 0;
  if (image->directory != 0) return 1;
  ORX_INFO *info = &object->info;
  for (int i = 0; i < kTextCount; ++i) {
    const char *text = NULL;
    if (TIFFGetField(tif, kTexts[i].tag, &text) && text != NULL &&
        !kit_save(text_field(info, i), text))
      return 0;
  }
  float *primaries = NULL, *white = NULL;
  if (TIFFGetField(tif, TIFFTAG_PRIMARYCHROMATICITIES, &primaries) && primaries != NULL) {
    float *to[3] = {info->red, info->green, info->blue};
    for (int i = 0; i < 3; ++i) {
      to[i][0] = primaries[2 * i];
      to[i][1] = primaries[2 * i + 1];
      to[i][2] = 1.0f - to[i][0] - to[i][1];
    }
  }
  if (TIFFGetField(tif, TIFFTAG_WHITEPOINT, &white) && white != NULL) {
    info->white[0] = white[0];
    info->white[1] = white[1];
    info->white[2] = 1.0f - white[0] - white[1];
  }
  uint16_t method = COMPRESSION_NONE;
  TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &method);
  const TIFFCodec *codec = TIFFFindCODEC(method);
  return kit_save(&info->compression, codec != NULL ? codec->name : "unknown");
}

/* Directories of a file, at most as many as the channel limit allows
 * images (a loop of directories is caught by libtiff). */
static tdir_t count_directories(TIFF *tif) {
  const int64_t most = ORX_limit(ORX_LIMIT_CHANNELS);
  tdir_t count = 1;
  while ((int64_t)count < most && TIFFReadDirectory(tif)) ++count;
  TIFFSetDirectory(tif, 0);
  return count;
}

static int close_object(ORX_OBJECT *object, intptr_t argument);

int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == NULL) return kit_fail(ORX_E_FIELD_MISSING, "tiff: no file name to read");
  TiffFile *file = new_file(path);
  if (file == NULL) return 0;
  TIFF *tif = file->tif = open_tiff(file, "r");
  if (tif == NULL) {
    kit_fail(ORX_E_NOT_OUR_FILE, "tiff: cannot open %s: %s", path, file->error);
    release(object, file);
    return 0;
  }
  const tdir_t count = count_directories(tif);
  if (!kit_new_images(object, (int32_t)count) || !new_images(object, file)) {
    release(object, file);
    return 0;
  }
  for (tdir_t d = 0; d < count; ++d) {
    if (!TIFFSetDirectory(tif, d) || !describe(object, (TiffImage *)object->private_cell[d])) {
      if (orx__err == 0 || orx__err == ORX_E_READ)
        kit_fail(ORX_E_NOT_OUR_FILE, "tiff: cannot read directory %d of %s: %s", (int)d, path,
                 file->error);
      release(object, file);
      return 0;
    }
  }
  object->scan = scan_read;
  object->close = close_object;
  return 1;
}

uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char head[4];
  if (kit_peek(name, stream, head, 4) != 4) return 0;
  return (head[0] == 'I' && head[1] == 'I' && (head[2] == 42 || head[2] == 43) && head[3] == 0) ||
         (head[0] == 'M' && head[1] == 'M' && head[2] == 0 && (head[3] == 42 || head[3] == 43));
}

/* --- Writing ------------------------------------------------------------- */

/* How an image is stored: every channel in one sample type and width (the
 * widest integer asked for, or 32-bit float when any group is floating
 * point); 0 after reporting what TIFF cannot store. */
static int plan(const ORX_IFD *ifd, const char *path, KitLayout *layout) {
  *layout = kit_layout_of(ifd);
  if (layout->count[0] != 1 && layout->count[0] != 3)
    return kit_fail(ORX_E_UNSUPPORTED, "tiff: %s: cannot store %d image channels (1 or 3)", path,
                    (int)layout->count[0]);
  if (layout->count[1] > 1)
    return kit_fail(ORX_E_UNSUPPORTED, "tiff: %s: cannot store %d mattes (at most 1)", path,
                    (int)layout->count[1]);
  int widest = 0, floating = 0;
  for (int g = 0; g < 3; ++g) {
    if (layout->count[g] == 0) continue;
    if (layout->type[g] != ORX_C_INTEGER) floating = 1;
    else if (layout->bits[g] > widest) widest = layout->bits[g];
  }
  for (int g = 0; g < 3; ++g) {
    layout->type[g] = floating ? ORX_C_FLOAT : ORX_C_INTEGER;
    layout->bits[g] = floating || widest > 16 ? 32 : widest > 8 ? 16 : 8;
  }
  return 1;
}

static int scan_write(void *data, int32_t line, void *in) {
  TiffImage *image = (TiffImage *)data;
  return kit_plane_store(&image->plane, image->ifd, line, (void **)in, kWho);
}

/* The attributes a written file keeps (none yet): the others are dropped
 * from the object, which tells the host what the file will not carry. */
static const char *const kKeptAttributes[] = {NULL};

int imageWriteOpen(ORX_OBJECT *object) {
  ORX_attr_keep(&object->info, kKeptAttributes);
  const char *path = object->info.handle;
  if (object->info.image_count < 1)
    return kit_fail(ORX_E_UNSUPPORTED, "tiff: %s: no image to write", path);
  KitLayout layout;
  for (int32_t i = 0; i < object->info.image_count; ++i)
    if (!plan(&object->info.images[i], path, &layout)) return 0;
  if (!kit_new_cell(object, object->info.image_count)) return 0;
  TiffFile *file = new_file(path);
  if (file == NULL) return 0;
  file->writing = 1;
  const int32_t method = kit_setting_int(object, kCapCompression, compression.default_value);
  file->compression = kMethods[method >= 0 && method < 4 ? method : compression.default_value];
  file->tile = kit_setting_int(object, kCapTiles, tiles.default_value);
  if (file->tile < 0 || file->tile % 16 != 0) file->tile = 0;
  if (!new_images(object, file)) {
    release(object, file);
    return 0;
  }
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    TiffImage *image = (TiffImage *)object->private_cell[i];
    plan(image->ifd, path, &layout);
    if (kit_plane_init(&image->plane, &layout, image->ifd->window, image->ifd->window,
                       KIT_PLANE_INTERLEAVED | KIT_PLANE_WRITE, kWho,
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

/* The tags of one directory. */
static void write_tags(ORX_OBJECT *object, TiffImage *image) {
  TIFF *tif = image->file->tif;
  const KitPlane *plane = &image->plane;
  const KitLayout *l = &plane->layout;
  const int floating = l->type[0] == ORX_C_FLOAT;
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, (uint32_t)kit_plane_width(plane));
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, (uint32_t)kit_plane_height(plane));
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, (uint16_t)plane->channels);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, (uint16_t)l->bits[0]);
  TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, floating ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC,
               l->count[0] == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
  const int extras = l->count[1] + l->count[2];
  if (extras > 0) {
    uint16_t *kinds = (uint16_t *)calloc((size_t)extras, sizeof(uint16_t));
    if (kinds != NULL) {
      /* The library's mattes are premultiplied: associated alpha. */
      if (l->count[1] == 1) kinds[0] = EXTRASAMPLE_ASSOCALPHA;
      TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, (uint16_t)extras, kinds);
      free(kinds);
    }
  }
  TIFFSetField(tif, TIFFTAG_COMPRESSION, (uint16_t)image->file->compression);
  if (image->file->compression == COMPRESSION_LZW ||
      image->file->compression == COMPRESSION_ADOBE_DEFLATE)
    TIFFSetField(tif, TIFFTAG_PREDICTOR,
                 floating ? PREDICTOR_FLOATINGPOINT : PREDICTOR_HORIZONTAL);
  if (image->file->tile > 0) {
    TIFFSetField(tif, TIFFTAG_TILEWIDTH, (uint32_t)image->file->tile);
    TIFFSetField(tif, TIFFTAG_TILELENGTH, (uint32_t)image->file->tile);
  } else {
    /* Strips of about a megabyte: libtiff's own default of 8 KB makes a
     * strip of every row of a wide picture, and restarting the codec for
     * each costs time and compression. */
    const uint64_t row = (uint64_t)kit_plane_width(&image->plane) * image->plane.pixel_bytes;
    const uint64_t rows = row > 0 && row < (1u << 20) ? (1u << 20) / row : 1;
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tif, (uint32_t)rows));
  }
  if (image->directory != 0) return;
  ORX_INFO *info = &object->info;
  for (int i = 0; i < kTextCount; ++i) {
    const char *text = *text_field(info, i);
    if (kit_has_text(text)) TIFFSetField(tif, kTexts[i].tag, text);
  }
  float primaries[6] = {info->red[0],   info->red[1],  info->green[0],
                        info->green[1], info->blue[0], info->blue[1]};
  float white[2] = {info->white[0], info->white[1]};
  /* Only chromaticities a reader gave: not the library's placeholders. */
  if (!kit_chromaticities_informative(info, NULL)) return;
  TIFFSetField(tif, TIFFTAG_PRIMARYCHROMATICITIES, primaries);
  TIFFSetField(tif, TIFFTAG_WHITEPOINT, white);
}

/* The pixels of one directory, in strips or tiles. */
static int write_pixels(TiffImage *image) {
  TIFF *tif = image->file->tif;
  KitPlane *plane = &image->plane;
  const int32_t width = kit_plane_width(plane), height = kit_plane_height(plane);
  const size_t pixel = plane->pixel_bytes;
  const int32_t side = image->file->tile;
  int ok = 1;
  /* The plane is interleaved: strips take its rows as they are (the
   * predictor may change them in place, which is fine at close). */
  for (int32_t r = 0; side == 0 && ok && r < height; ++r)
    ok = TIFFWriteScanline(tif, (void *)kit_plane_pixels(plane, r), (uint32_t)r, 0) == 1;
  if (side == 0) return ok;
  const size_t size = (size_t)side * (size_t)side * pixel;
  unsigned char *block = (unsigned char *)malloc(size);
  if (block == NULL) return 0;
  for (int32_t y = 0; ok && y < height; y += side)
    for (int32_t x = 0; ok && x < width; x += side) {
      memset(block, 0, size);
      const int32_t rows = y + side > height ? height - y : side;
      const int32_t cols = x + side > width ? width - x : side;
      for (int32_t r = 0; r < rows; ++r)
        memcpy(block + (size_t)r * (size_t)side * pixel,
               kit_plane_pixels(plane, y + r) + (size_t)x * pixel, (size_t)cols * pixel);
      ok = TIFFWriteEncodedTile(tif, TIFFComputeTile(tif, (uint32_t)x, (uint32_t)y, 0, 0), block,
                                (tmsize_t)size) >= 0;
    }
  free(block);
  return ok;
}

/* Writes every image; 0 or a negative status after a report. */
static int encode(ORX_OBJECT *object, TiffFile *file) {
  file->tif = open_tiff(file, "w");
  int ok = file->tif != NULL;
  for (int32_t i = 0; ok && i < object->info.image_count; ++i) {
    TiffImage *image = (TiffImage *)object->private_cell[i];
    kit_plane_complete(&image->plane);
    write_tags(object, image);
    ok = write_pixels(image) && TIFFWriteDirectory(file->tif);
  }
  if (file->tif != NULL) {
    TIFFClose(file->tif);
    file->tif = NULL;
  }
  if (ok) return 0;
  kit_fail(ORX_E_WRITE, "tiff: cannot write %s: %s", file->path, file->error);
  return ORX_E_WRITE;
}

static int close_object(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  TiffImage *first = object->private_cell != NULL ? (TiffImage *)object->private_cell[0] : NULL;
  TiffFile *file = first != NULL ? first->file : NULL;
  int status = 0;
  if (file != NULL && file->writing) {
    status = encode(object, file);
    if (status != 0) kit_release(file->path, file->created);
  }
  release(object, file);
  orx__free_obj(object);
  return status;
}
