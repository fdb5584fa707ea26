/* TIFF files through libtiff.  Every directory of a file is an image.
 * Reading (tiff_read.c): grey and RGB of 1 to 32-bit unsigned integers,
 * 16, 32 and 64-bit floating point and signed integers, palette, CMYK (8 and
 * 16-bit, extra samples kept), MinIsWhite, in strips or tiles, contiguous or
 * in separate planes; YCbCr, JPEG-compressed and CIE Lab files through
 * libtiff's RGBA interface.  Extra samples follow the colour: an alpha extra
 * sample is the matte (straight alpha is multiplied into the colour, as the
 * library's mattes are associated), the others auxiliary channels.  Pixels
 * stay in the order the file stores them, whatever its Orientation tag
 * says.  Writing (tiff_write.c) stores one directory per image in the
 * nearest depth that holds the host's samples, with associated alpha, and
 * the compression and the strip or tile layout chosen by the settings.
 * Primary chromaticities, the white point and the text tags map to the
 * header, both ways. */
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orx/err.h"
#include "orx/limits.h"
#include "tiff_plugin.h"

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "tiff";
const char *imageExtension = ".tif";
const char *imageName = "TIFF";
const char *imageDescription =
    "Tagged Image File Format: 1-32 bit integer, 16/32/64-bit float, palette, CMYK, YCbCr, Lab; "
    "any channels, every directory";
const char *imageNameSyntax = "Name.####.tif";
int imageOrientation = 0;
int imageNumberOfChannels = 3;
int imageBitsPerChannel = -1;
int imageNumberOfMattes = 1;
int imageBitsPerMatte = -1;
int imageNumberOfZChannels = 1;
int imageBitsPerZChannel = -1;
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_WRITE | ORX_ACCESS_RANDOM;

/* Settings: the compression, the layout of the pixel data, and "unassociated
 * alpha": non-zero hands a reader straight colour as stored (no
 * multiplication by the matte) and makes a writer store the host's colour
 * as it comes, labelled unassociated. */
/* List values are 16-bit, so the settings number the methods themselves. */
const uint16_t tiff_methods[4] = {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE,
                                  COMPRESSION_PACKBITS};
static ORX_CAP_LIST_ENTRY compressions[] = {
    {0, "none", 0, NULL},
    {1, "lzw", 0, NULL},
    {2, "deflate", 0, NULL},
    {3, "packbits", 0, NULL},
    {0, NULL, 0, NULL},
};
ORX_CAP_LIST tiff_compression = {1, 0, compressions};
static ORX_CAP_LIST_ENTRY tilings[] = {
    {0, "strips", 0, NULL},
    {64, "64x64 tiles", 0, NULL},
    {256, "256x256 tiles", 0, NULL},
    {0, NULL, 0, NULL},
};
ORX_CAP_LIST tiff_tiles = {0, 0, tilings};
static ORX_CAP_ENTRY capabilities[] = {
    {kCapCompression, "compression", 0, NULL, 0, &tiff_compression, 0},
    {kCapTiles, "tiles", 0, NULL, 0, &tiff_tiles, 0},
    {kCapUnassociated, "unassociated alpha", 0, NULL, 1, NULL, 0},
};

void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second, int32_t *count) {
  *table = capabilities;
  *first = 3;
  *second = 0;
  *count = 3;
}

const TiffText tiff_texts[] = {
    {TIFFTAG_DOCUMENTNAME, offsetof(ORX_INFO, name)},
    {TIFFTAG_IMAGEDESCRIPTION, offsetof(ORX_INFO, desc)},
    {TIFFTAG_SOFTWARE, offsetof(ORX_INFO, program)},
    {TIFFTAG_HOSTCOMPUTER, offsetof(ORX_INFO, machine)},
    {TIFFTAG_ARTIST, offsetof(ORX_INFO, user)},
    {TIFFTAG_DATETIME, offsetof(ORX_INFO, date)},
};
const int tiff_text_count = sizeof tiff_texts / sizeof tiff_texts[0];

char **tiff_text_field(ORX_INFO *info, int i) {
  return (char **)((char *)info + tiff_texts[i].field);
}

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

TIFF *tiff_open(TiffFile *f, const char *mode) {
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

void tiff_release(ORX_OBJECT *object, TiffFile *file) {
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

TiffFile *tiff_new_file(const char *path) {
  TiffFile *file = (TiffFile *)ERR_malloc(sizeof(TiffFile));
  if (file == NULL) {
    orx__set_err(ORX_E_NO_MEMORY);
    return NULL;
  }
  memset(file, 0, sizeof *file);
  file->path = path;
  return file;
}

int tiff_new_images(ORX_OBJECT *object, TiffFile *file) {
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    TiffImage *image = (TiffImage *)ERR_malloc(sizeof(TiffImage));
    if (image == NULL) {
      orx__set_err(ORX_E_NO_MEMORY);
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

uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char head[4];
  if (kit_peek(name, stream, head, 4) != 4) return 0;
  return (head[0] == 'I' && head[1] == 'I' && (head[2] == 42 || head[2] == 43) && head[3] == 0) ||
         (head[0] == 'M' && head[1] == 'M' && head[2] == 0 && (head[3] == 42 || head[3] == 43));
}

int tiff_close_object(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  TiffImage *first = object->private_cell != NULL ? (TiffImage *)object->private_cell[0] : NULL;
  TiffFile *file = first != NULL ? first->file : NULL;
  int status = 0;
  if (file != NULL && file->writing) {
    status = tiff_encode(object, file);
    if (status != 0) kit_release(file->path, file->created);
  }
  tiff_release(object, file);
  orx__free_obj(object);
  return status;
}
