/* Reading TIFF directories into planes: strips or tiles, contiguous or one
 * plane per sample, as stored or converted sample by sample; the kinds only
 * libtiff's RGBA interface decodes through it.  Each image is decoded on
 * its first scanline request. */
#include <stdlib.h>
#include <string.h>

#include "orx/attributes.h"
#include "orx/err.h"
#include "orx/limits.h"
#include "tiff_plugin.h"

static int fail_read(TiffImage *image) {
  kit_fail(ORX_E_READ, "tiff: cannot read %s: %s", image->file->path, image->file->error);
  return ORX_E_READ;
}

static int no_memory(TiffImage *image, const char *what) {
  kit_fail(ORX_E_NO_MEMORY, "tiff: %s: no memory for %s", image->file->path, what);
  return ORX_E_NO_MEMORY;
}

/* The pixels of the current directory through the RGBA interface, in the
 * file's own row order: asking for the file's orientation makes libtiff
 * flip nothing.  Straight alpha comes out associated. */
static int decode_rgba(TiffImage *image) {
  TIFF *tif = image->file->tif;
  const int32_t width = kit_plane_width(&image->plane);
  const int32_t height = kit_plane_height(&image->plane);
  uint32_t *pixels = (uint32_t *)malloc((size_t)width * (size_t)height * 4);
  if (pixels == NULL) return no_memory(image, "the decoded image");
  if (!TIFFReadRGBAImageOriented(tif, (uint32_t)width, (uint32_t)height, pixels,
                                 image->samples.orientation, 0)) {
    free(pixels);
    return fail_read(image);
  }
  const int32_t channels = image->plane.channels;
  unsigned char *row = (unsigned char *)malloc((size_t)width * 4);
  if (row == NULL) {
    free(pixels);
    return no_memory(image, "the decoded image");
  }
  for (int32_t r = 0; r < height; ++r) {
    const uint32_t *in = pixels + (size_t)r * (size_t)width;
    for (int32_t x = 0; x < width; ++x) {
      unsigned char *out = row + (size_t)x * (size_t)channels;
      out[0] = (unsigned char)TIFFGetR(in[x]);
      out[1] = (unsigned char)TIFFGetG(in[x]);
      out[2] = (unsigned char)TIFFGetB(in[x]);
      if (channels == 4) out[3] = (unsigned char)TIFFGetA(in[x]);
    }
    kit_plane_spread(&image->plane, r, row);
  }
  free(row);
  free(pixels);
  return 0;
}

/* Strips or tiles, contiguous or one plane per sample, into the plane;
 * converted rows go through a row of plane samples first. */
static int decode_blocks(TiffImage *image) {
  TIFF *tif = image->file->tif;
  KitPlane *plane = &image->plane;
  const TiffSamples *s = &image->samples;
  const int32_t width = kit_plane_width(plane), height = kit_plane_height(plane);
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
  const int32_t planes = s->separate ? s->spp : 1;
  const int32_t per_pixel = s->separate ? 1 : s->spp;
  /* Bytes of one row of a block: samples packed, each row from a byte. */
  const uint64_t row_bytes = ((uint64_t)block_w * (uint64_t)per_pixel * s->bits + 7) / 8;
  if (size <= 0 || block_w == 0 || block_h == 0 || row_bytes * block_h > (uint64_t)size)
    return fail_read(image);
  const int converted = s->route == TIFF_CONVERTED;
  unsigned char *block = (unsigned char *)malloc((size_t)size);
  unsigned char *row = converted ? (unsigned char *)malloc(plane->pixel_bytes * block_w + 8) : NULL;
  if (block == NULL || (converted && row == NULL)) {
    free(block);
    free(row);
    return no_memory(image, "a block");
  }
  for (int32_t p = 0; p < planes; ++p)
    for (uint32_t y = 0; y < (uint32_t)height; y += block_h)
      for (uint32_t x = 0; x < (uint32_t)width; x += block_w) {
        const tmsize_t got =
            tiled ? TIFFReadEncodedTile(tif, TIFFComputeTile(tif, x, y, 0, (uint16_t)p), block, size)
                  : TIFFReadEncodedStrip(tif, TIFFComputeStrip(tif, y, (uint16_t)p), block, size);
        if (got < 0) {
          free(block);
          free(row);
          return fail_read(image);
        }
        const uint32_t rows = y + block_h > (uint32_t)height ? (uint32_t)height - y : block_h;
        const uint32_t cols = x + block_w > (uint32_t)width ? (uint32_t)width - x : block_w;
        const int32_t c0 = s->separate ? tiff_channel_of(s, &plane->layout, p) : 0;
        const int32_t nc = s->separate ? 1 : plane->channels;
        for (uint32_t r = 0; r < rows; ++r) {
          const unsigned char *in = block + (size_t)(r * row_bytes);
          if (converted) {
            tiff_samples_convert(s, plane, in, (int32_t)cols, c0, per_pixel, row);
            in = row;
          }
          kit_plane_put(plane, (int32_t)(y + r), (int32_t)x, (int32_t)cols, in, c0, nc);
        }
      }
  free(block);
  free(row);
  for (int32_t r = 0; s->unassociated && !image->file->straight && r < height; ++r)
    kit_plane_associate(plane, r, KIT_ALPHA_ROUND);
  return 0;
}

static int decode(void *data) {
  TiffImage *image = (TiffImage *)data;
  TIFF *tif = image->file->tif;
  if (!TIFFSetDirectory(tif, image->directory) || !tiff_samples_prepare(tif)) return fail_read(image);
  /* The palette belongs to libtiff's copy of the directory, which changing
   * directories replaces. */
  uint16_t **map = image->samples.map;
  if (image->samples.photometric == PHOTOMETRIC_PALETTE &&
      !TIFFGetField(tif, TIFFTAG_COLORMAP, &map[0], &map[1], &map[2]))
    return fail_read(image);
  return image->samples.route == TIFF_RGBA ? decode_rgba(image) : decode_blocks(image);
}

static int scan_read(void *data, int32_t line, void *out) {
  TiffImage *image = (TiffImage *)data;
  return kit_scan_decoded(&image->plane, &image->decoded, decode, data, line, out, TIFF_WHO,
                          image->file->path);
}

/* The header of the first directory. */
static int describe_header(ORX_INFO *info, TIFF *tif) {
  for (int i = 0; i < tiff_text_count; ++i) {
    const char *text = NULL;
    if (TIFFGetField(tif, tiff_texts[i].tag, &text) && text != NULL &&
        !kit_save(tiff_text_field(info, i), text))
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

/* The current directory's ICC profile and orientation (unless 1) as
 * attributes of its image.  The pixels stay in the order the file stores them, as other
 * readers leave them: the Orientation attribute tells a host how to show
 * them. */
static int describe_attributes(ORX_INFO *info, int32_t index, TIFF *tif) {
  uint32_t length = 0;
  void *profile = NULL;
  if (TIFFGetField(tif, TIFFTAG_ICCPROFILE, &length, &profile) && profile != NULL && length > 0 &&
      length <= INT32_MAX &&
      ORX_attr_set(info, index, "ICCProfile", ORX_ATTR_BYTES, (int32_t)length, profile) != 0)
    return 0;
  /* Only an orientation that says something: top row first, left to
   * right (1) is what a file without the tag means. */
  uint16_t orientation = ORIENTATION_TOPLEFT;
  return !TIFFGetField(tif, TIFFTAG_ORIENTATION, &orientation) ||
         orientation == ORIENTATION_TOPLEFT ||
         ORX_attr_set_int(info, index, "Orientation", orientation) == 0;
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
  /* Without the unit tag, resolutions are in inches by default. */
  uint16_t unit = 0;
  const int stated = TIFFGetField(tif, TIFFTAG_RESOLUTIONUNIT, &unit);
  if (has_res && (unit != RESUNIT_NONE || xres != yres) &&
      !kit_set_resolution(&object->info, (int32_t)image->directory, xres, yres,
                          !stated                      ? KIT_UNIT_UNSTATED
                          : unit == RESUNIT_CENTIMETER ? KIT_CENTIMETRES
                          : unit == RESUNIT_NONE       ? KIT_UNIT_NONE
                                                       : KIT_INCHES))
    return 0;
  KitLayout layout;
  if (!tiff_samples_plan(tif, image->file->path, &image->samples, &layout)) return 0;
  kit_layout_apply(&layout, ifd);
  const uint16_t photometric = image->samples.photometric;
  if ((photometric == PHOTOMETRIC_LOGL || photometric == PHOTOMETRIC_LOGLUV) &&
      image->samples.route != TIFF_RGBA)
    ifd->curve.gamma = 1.0f;  /* luminance itself, as the encoding stores it */
  if (!kit_save(&ifd->image.name, layout.count[0] == 3 ? "rgb" : "grey")) return 0;
  if (kit_plane_init(&image->plane, &layout, ifd->window, ifd->window, 0, TIFF_WHO,
                     image->file->path) != 0)
    return 0;
  if (!describe_attributes(&object->info, (int32_t)image->directory, tif)) return 0;
  return image->directory != 0 || describe_header(&object->info, tif);
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

int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == NULL) return kit_fail(ORX_E_FIELD_MISSING, "tiff: no file name to read");
  TiffFile *file = tiff_new_file(path);
  if (file == NULL) return 0;
  file->straight = kit_setting_int(object, kCapUnassociated, 0) != 0;
  TIFF *tif = file->tif = tiff_open(file, "r");
  if (tif == NULL) {
    kit_fail(ORX_E_NOT_OUR_FILE, "tiff: cannot open %s: %s", path, file->error);
    tiff_release(object, file);
    return 0;
  }
  const tdir_t count = count_directories(tif);
  if (!kit_new_images(object, (int32_t)count) || !tiff_new_images(object, file)) {
    tiff_release(object, file);
    return 0;
  }
  for (tdir_t d = 0; d < count; ++d) {
    if (!TIFFSetDirectory(tif, d) || !describe(object, (TiffImage *)object->private_cell[d])) {
      if (ORX_last_status() == 0 || ORX_last_status() == ORX_E_READ)
        kit_fail(ORX_E_NOT_OUR_FILE, "tiff: cannot read directory %d of %s: %s", (int)d, path,
                 file->error);
      tiff_release(object, file);
      return 0;
    }
  }
  object->scan = scan_read;
  object->close = tiff_close_object;
  return 1;
}
