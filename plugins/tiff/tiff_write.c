/* Writing TIFF directories: each image in the nearest depth that holds the
 * host's samples, kept in an interleaved plane until close encodes it. */
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "orx/attributes.h"
#include "orx/err.h"
#include "tiff_plugin.h"

/* How an image is stored: every channel in one sample type and width, the
 * nearest that holds every group: integers of 1, 2 or 4 bits packed (grey
 * without other channels), 8, 16 or 32 bits; 32-bit floating point when a
 * group is floating point, 64-bit when one is double or an integer group
 * is too wide for a float's 24 bits.  0 after reporting what TIFF cannot
 * store. */
static int plan(const ORX_IFD *ifd, const char *path, KitLayout *layout) {
  *layout = kit_layout_of(ifd);
  if (layout->count[0] != 1 && layout->count[0] != 3)
    return kit_fail(ORX_E_UNSUPPORTED, "tiff: %s: cannot store %d image channels (1 or 3)", path,
                    (int)layout->count[0]);
  /* TIFF has one associated alpha: further mattes follow it as extra
   * samples of no stated meaning, which read back as auxiliary channels. */
  if (layout->count[1] > 1) {
    layout->count[2] += layout->count[1] - 1;
    layout->count[1] = 1;
  }
  int widest = 0, floating = 0, doubles = 0;
  for (int g = 0; g < 3; ++g) {
    if (layout->count[g] == 0) continue;
    if (layout->type[g] == ORX_C_DOUBLE) doubles = 1;
    if (layout->type[g] != ORX_C_INTEGER) floating = 1;
    else if (layout->bits[g] > widest) widest = layout->bits[g];
  }
  const int alone = kit_layout_channels(layout) == 1;
  int bits = widest > 16 ? 32 : widest > 8 ? 16 : widest > 4 || !alone ? 8 : widest > 2 ? 4 : widest;
  if (floating) bits = doubles || widest > 24 ? 64 : 32;
  for (int g = 0; g < 3; ++g) {
    layout->type[g] = !floating ? ORX_C_INTEGER : bits == 64 ? ORX_C_DOUBLE : ORX_C_FLOAT;
    layout->bits[g] = bits;
  }
  return 1;
}

static int scan_write(void *data, int32_t line, void *in) {
  TiffImage *image = (TiffImage *)data;
  return kit_plane_store(&image->plane, image->ifd, line, (void **)in, TIFF_WHO);
}

int imageWriteOpen(ORX_OBJECT *object) {
  kit_keep_picture_attributes(&object->info);
  const char *path = object->info.handle;
  if (object->info.image_count < 1)
    return kit_fail(ORX_E_UNSUPPORTED, "tiff: %s: no image to write", path);
  KitLayout layout;
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    if (!plan(&object->info.images[i], path, &layout)) return 0;
    if (object->info.images[i].matte.count > 1 &&
        !kit_narrowed(object, i, "mattes after the first stored as extra samples"))
      return 0;
  }
  if (!kit_new_cell(object, object->info.image_count)) return 0;
  TiffFile *file = tiff_new_file(path);
  if (file == NULL) return 0;
  file->writing = 1;
  const int32_t method = kit_setting_int(object, kCapCompression, tiff_compression.default_value);
  file->compression =
      tiff_methods[method >= 0 && method < 4 ? method : tiff_compression.default_value];
  file->tile = kit_setting_int(object, kCapTiles, tiff_tiles.default_value);
  if (file->tile < 0 || file->tile % 16 != 0) file->tile = 0;
  file->straight = kit_setting_int(object, kCapUnassociated, 0) != 0;
  if (!tiff_new_images(object, file)) {
    tiff_release(object, file);
    return 0;
  }
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    TiffImage *image = (TiffImage *)object->private_cell[i];
    plan(image->ifd, path, &layout);
    if (!kit_window_at_origin(object, i)) {
      tiff_release(object, file);
      return 0;
    }
    if (kit_plane_init(&image->plane, &layout, image->ifd->window, image->ifd->window,
                       KIT_PLANE_INTERLEAVED | KIT_PLANE_WRITE, TIFF_WHO, path) != 0) {
      tiff_release(object, file);
      return 0;
    }
  }
  if (!kit_claim(TIFF_WHO, path, &file->created)) {
    tiff_release(object, file);
    return 0;
  }
  object->scan = scan_write;
  object->close = tiff_close_object;
  return 1;
}

/* The tags of one directory. */
static void write_tags(ORX_OBJECT *object, TiffImage *image) {
  TIFF *tif = image->file->tif;
  const KitPlane *plane = &image->plane;
  const KitLayout *l = &plane->layout;
  const int floating = l->type[0] != ORX_C_INTEGER;
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, (uint32_t)kit_plane_width(plane));
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, (uint32_t)kit_plane_height(plane));
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, (uint16_t)plane->channels);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, (uint16_t)l->bits[0]);
  TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, floating ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC,
               l->count[0] == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  /* The rows go out in the order the host holds them; the orientation
   * read from a file goes back with them. */
  int32_t orientation = ORIENTATION_TOPLEFT;
  ORX_attr_get_int(&object->info, (int32_t)image->directory, "Orientation", &orientation);
  if (orientation < ORIENTATION_TOPLEFT || orientation > ORIENTATION_LEFTBOT)
    orientation = ORIENTATION_TOPLEFT;
  TIFFSetField(tif, TIFFTAG_ORIENTATION, (uint16_t)orientation);
  /* The print resolution; else, for pixels that are not square,
   * resolutions of no unit whose ratio is their aspect, as they are read. */
  const ORX_IFD *d = image->ifd;
  const double pixel_aspect = d->aspect_ratio > 0 && d->x_resolution > 0 && d->y_resolution > 0
                                  ? (double)d->aspect_ratio * d->y_resolution / d->x_resolution
                                  : 1.0;
  double dx = 0.0, dy = 0.0;
  int unit = KIT_UNIT_UNSTATED;
  if (kit_resolution(&object->info, (int32_t)image->directory, pixel_aspect, &dx, &dy, &unit)) {
    TIFFSetField(tif, TIFFTAG_XRESOLUTION, dx);
    TIFFSetField(tif, TIFFTAG_YRESOLUTION, dy);
    if (unit != KIT_UNIT_UNSTATED)
      TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT,
                   (uint16_t)(unit == KIT_CENTIMETRES ? RESUNIT_CENTIMETER
                              : unit == KIT_UNIT_NONE   ? RESUNIT_NONE
                                                        : RESUNIT_INCH));
  } else if (fabs(pixel_aspect - 1.0) > 1e-4) {
    TIFFSetField(tif, TIFFTAG_XRESOLUTION, 1.0);
    TIFFSetField(tif, TIFFTAG_YRESOLUTION, pixel_aspect);
    TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, (uint16_t)RESUNIT_NONE);
  }
  const ORX_ATTR *profile = ORX_attr_find(&object->info, (int32_t)image->directory, "ICCProfile");
  if (profile != NULL && profile->type == ORX_ATTR_BYTES)
    TIFFSetField(tif, TIFFTAG_ICCPROFILE, (uint32_t)profile->count, profile->data);
  const int extras = l->count[1] + l->count[2];
  if (extras > 0) {
    uint16_t *kinds = (uint16_t *)calloc((size_t)extras, sizeof(uint16_t));
    if (kinds != NULL) {
      /* The library's mattes are associated; a host that asked for
       * "unassociated alpha" hands over straight colour. */
      if (l->count[1] == 1)
        kinds[0] = image->file->straight ? EXTRASAMPLE_UNASSALPHA : EXTRASAMPLE_ASSOCALPHA;
      TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, (uint16_t)extras, kinds);
      free(kinds);
    }
  }
  TIFFSetField(tif, TIFFTAG_COMPRESSION, (uint16_t)image->file->compression);
  if ((image->file->compression == COMPRESSION_LZW ||
       image->file->compression == COMPRESSION_ADOBE_DEFLATE) &&
      l->bits[0] >= 8)
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
  char date[32];
  for (int i = 0; i < tiff_text_count; ++i) {
    const char *text = kit_date_text(*tiff_text_field(info, i), date, sizeof date);
    if (kit_has_text(text)) TIFFSetField(tif, tiff_texts[i].tag, text);
  }
  float primaries[6] = {info->red[0],   info->red[1],  info->green[0],
                        info->green[1], info->blue[0], info->blue[1]};
  float white[2] = {info->white[0], info->white[1]};
  /* Only chromaticities a reader gave: not the library's placeholders. */
  if (!kit_chromaticities_informative(info, NULL)) return;
  TIFFSetField(tif, TIFFTAG_PRIMARYCHROMATICITIES, primaries);
  TIFFSetField(tif, TIFFTAG_WHITEPOINT, white);
}

/* Row r of the plane as the file stores it: as it is, or with samples of
 * fewer than 8 bits packed into packed (most significant bits first). */
static const unsigned char *file_row(const KitPlane *plane, int32_t r, unsigned char *packed) {
  const unsigned char *pixels = kit_plane_pixels(plane, r);
  const int bits = plane->layout.bits[0];
  if (plane->layout.type[0] != ORX_C_INTEGER || bits >= 8) return pixels;
  const size_t n = (size_t)kit_plane_width(plane) * (size_t)plane->channels;
  memset(packed, 0, (n * (size_t)bits + 7) / 8);
  for (size_t i = 0; i < n; ++i) {
    const size_t at = i * (size_t)bits;
    packed[at / 8] |= (unsigned char)(pixels[i] << (8 - bits - at % 8));
  }
  return packed;
}

/* The pixels of one directory, in strips or tiles. */
static int write_pixels(TiffImage *image) {
  TIFF *tif = image->file->tif;
  KitPlane *plane = &image->plane;
  const int32_t width = kit_plane_width(plane), height = kit_plane_height(plane);
  const int32_t side = image->file->tile;
  unsigned char *packed = (unsigned char *)malloc(plane->line_bytes + 8);
  if (packed == NULL) return 0;
  int ok = 1;
  /* Strips take the rows as they are (the predictor may change them in
   * place, which is fine at close). */
  for (int32_t r = 0; side == 0 && ok && r < height; ++r)
    ok = TIFFWriteScanline(tif, (void *)file_row(plane, r, packed), (uint32_t)r, 0) == 1;
  if (side == 0) {
    free(packed);
    return ok;
  }
  const size_t tile_row = (size_t)TIFFTileRowSize(tif);
  const size_t size = tile_row * (size_t)side;
  unsigned char *block = (unsigned char *)malloc(size);
  if (block == NULL) {
    free(packed);
    return 0;
  }
  const size_t pixel_bits = plane->layout.type[0] == ORX_C_INTEGER && plane->layout.bits[0] < 8
                                ? (size_t)plane->layout.bits[0] * (size_t)plane->channels
                                : plane->pixel_bytes * 8;
  for (int32_t y = 0; ok && y < height; y += side)
    for (int32_t x = 0; ok && x < width; x += side) {
      memset(block, 0, size);
      const int32_t rows = y + side > height ? height - y : side;
      const int32_t cols = x + side > width ? width - x : side;
      for (int32_t r = 0; r < rows; ++r) {
        const unsigned char *from = file_row(plane, y + r, packed);
        /* Tile sides are multiples of 16, so a packed tile starts on a byte. */
        memcpy(block + (size_t)r * tile_row, from + (size_t)x * pixel_bits / 8,
               ((size_t)cols * pixel_bits + 7) / 8);
      }
      ok = TIFFWriteEncodedTile(tif, TIFFComputeTile(tif, (uint32_t)x, (uint32_t)y, 0, 0), block,
                                (tmsize_t)size) >= 0;
    }
  free(block);
  free(packed);
  return ok;
}

int tiff_encode(ORX_OBJECT *object, TiffFile *file) {
  file->tif = tiff_open(file, "w");
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
