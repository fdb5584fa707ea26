/* Writing WebP files: RGB, or RGBA with the first matte, 8 bits a sample.
 * Grey is stored as RGB, wider and floating-point samples are narrowed to
 * 8 bits, mattes after the first and auxiliary channels are dropped, each
 * said as narrowed.  Lossy at the "quality" setting unless the
 * "compression" setting asks for "lossless" (without the setting, a
 * picture read from a lossless file is written lossless); an ICC profile, the EXIF
 * orientation and an XMP packet go in their chunks through libwebpmux. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include "orx/err.h"
#include "webp_plugin.h"

/* An open file being written. */
typedef struct WebpOut {
  const char *path;
  const ORX_IFD *ifd;
  KitPlane plane;
  int created;
  int lossless;
  int quality;
  int straight;
} WebpOut;

static int release(ORX_OBJECT *object) {
  WebpOut *w = object->private_cell != NULL ? (WebpOut *)object->private_cell[0] : NULL;
  if (w == NULL) return 0;
  object->private_cell[0] = NULL;
  kit_plane_free(&w->plane);
  ERR_free(w);
  return 0;
}

/* The plane's pixels as libwebp takes them: RGB or RGBA rows, grey spread
 * over the three colours; the colour divided by the alpha unless it passes
 * as it came.  NULL when memory is short. */
static unsigned char *pixels_of(WebpOut *w, int *stride) {
  KitPlane *plane = &w->plane;
  const int32_t width = kit_plane_width(plane), height = kit_plane_height(plane);
  const int alpha = plane->layout.count[1] > 0;
  const int grey = plane->layout.count[0] == 1;
  const size_t bytes = (size_t)width * (alpha ? 4 : 3);
  unsigned char *out = (unsigned char *)malloc(bytes * (size_t)height);
  if (out == NULL) return NULL;
  for (int32_t r = 0; r < height; ++r) {
    if (alpha && !w->straight) kit_plane_dissociate(plane, r, kWebpRounding);
    const unsigned char *in = kit_plane_pixels(plane, r);
    unsigned char *row = out + bytes * (size_t)r;
    if (!grey) {
      memcpy(row, in, bytes);
      continue;
    }
    for (int32_t x = 0; x < width; ++x, row += alpha ? 4 : 3, in += alpha ? 2 : 1) {
      row[0] = row[1] = row[2] = in[0];
      if (alpha) row[3] = in[1];
    }
  }
  *stride = (int)bytes;
  return out;
}

/* The encoded image, in writer (to clear); 0 after a report. */
static int compress_image(WebpOut *w, WebPMemoryWriter *writer) {
  WebPConfig config;
  WebPPicture picture;
  if (!WebPConfigInit(&config) || !WebPPictureInit(&picture))
    return kit_fail(ORX_E_WRITE, "webp: libwebp does not match its headers");
  config.lossless = w->lossless;
  config.quality = (float)w->quality;
  config.exact = w->lossless; /* keep the colour under transparent pixels */
  int stride = 0;
  unsigned char *pixels = pixels_of(w, &stride);
  if (pixels == NULL) return kit_fail(ORX_E_NO_MEMORY, "webp: no memory to write %s", w->path);
  picture.use_argb = w->lossless;
  picture.width = kit_plane_width(&w->plane);
  picture.height = kit_plane_height(&w->plane);
  picture.writer = WebPMemoryWrite;
  picture.custom_ptr = writer;
  const int imported = w->plane.layout.count[1] > 0
                           ? WebPPictureImportRGBA(&picture, pixels, stride)
                           : WebPPictureImportRGB(&picture, pixels, stride);
  free(pixels);
  const int encoded = imported && WebPEncode(&config, &picture);
  const int error = picture.error_code;
  WebPPictureFree(&picture);
  if (!encoded)
    return kit_fail(error == VP8_ENC_ERROR_OUT_OF_MEMORY ? ORX_E_NO_MEMORY : ORX_E_WRITE,
                    "webp: cannot encode %s (libwebp error %d)", w->path, error);
  return 1;
}

/* The file: the image alone, or with its chunks through the muxer.  0
 * after a report. */
static int assemble(ORX_OBJECT *object, WebpOut *w, const WebPData *image, FILE *file) {
  const ORX_INFO *info = &object->info;
  const ORX_ATTR *profile = ORX_attr_find(info, 0, "ICCProfile");
  const ORX_ATTR *xmp = ORX_attr_find(info, 0, "XMP");
  int32_t orientation = 1;
  ORX_attr_get_int(info, 0, "Orientation", &orientation);
  unsigned char exif[KIT_EXIF_BLOCK];
  const WebPData exif_data = {exif, orientation > 1 && orientation <= 8
                                        ? kit_exif_orientation_block(orientation, exif)
                                        : 0};
  if (profile == NULL && xmp == NULL && exif_data.size == 0)
    return fwrite(image->bytes, 1, image->size, file) == image->size;
  WebPMux *mux = WebPMuxNew();
  WebPData whole = {NULL, 0};
  int ok = mux != NULL && WebPMuxSetImage(mux, image, 0) == WEBP_MUX_OK;
  if (ok && profile != NULL) {
    const WebPData d = {(const uint8_t *)profile->data, (size_t)profile->count};
    ok = WebPMuxSetChunk(mux, "ICCP", &d, 0) == WEBP_MUX_OK;
  }
  if (ok && exif_data.size > 0) ok = WebPMuxSetChunk(mux, "EXIF", &exif_data, 0) == WEBP_MUX_OK;
  if (ok && xmp != NULL && xmp->type == ORX_ATTR_STRING) {
    const WebPData d = {(const uint8_t *)xmp->data, strlen((const char *)xmp->data)};
    ok = WebPMuxSetChunk(mux, "XMP ", &d, 0) == WEBP_MUX_OK;
  }
  ok = ok && WebPMuxAssemble(mux, &whole) == WEBP_MUX_OK;
  WebPMuxDelete(mux);
  if (!ok) {
    WebPDataClear(&whole);
    return kit_fail(ORX_E_WRITE, "webp: cannot assemble the chunks of %s", w->path);
  }
  ok = fwrite(whole.bytes, 1, whole.size, file) == whole.size;
  WebPDataClear(&whole);
  return ok;
}

static int encode(ORX_OBJECT *object, WebpOut *w) {
  kit_plane_complete(&w->plane);
  WebPMemoryWriter writer;
  WebPMemoryWriterInit(&writer);
  if (!compress_image(w, &writer)) {
    WebPMemoryWriterClear(&writer);
    return orx__err != 0 ? orx__err : ORX_E_WRITE;
  }
  const WebPData image = {writer.mem, writer.size};
  FILE *file = fopen(w->path, "wb");
  int ok = file != NULL && assemble(object, w, &image, file);
  if (file != NULL && fclose(file) != 0) ok = 0;
  WebPMemoryWriterClear(&writer);
  if (!ok) {
    kit_fail(ORX_E_WRITE, "webp: cannot write %s", w->path);
    return ORX_E_WRITE;
  }
  return 0;
}

static int scan_write(void *data, int32_t line, void *in) {
  WebpOut *w = (WebpOut *)data;
  return kit_plane_store(&w->plane, w->ifd, line, (void **)in, webp_who);
}

static int close_write(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  WebpOut *w = object->private_cell != NULL ? (WebpOut *)object->private_cell[0] : NULL;
  int status = 0;
  if (w != NULL) {
    status = encode(object, w);
    if (status != 0) kit_release(w->path, w->created);
  }
  release(object);
  orx__free_obj(object);
  return status;
}

/* The layout the file stores and the notes of what it loses; 0 after a
 * report. */
static int plan(ORX_OBJECT *object, KitLayout *layout) {
  const ORX_IFD *ifd = &object->info.images[0];
  const char *path = object->info.handle;
  *layout = kit_layout_of(ifd);
  if (layout->count[0] != 1 && layout->count[0] != 3)
    return kit_fail(ORX_E_UNSUPPORTED, "webp: %s: cannot store %d image channels (1 or 3)", path,
                    (int)layout->count[0]);
  const int32_t width = ifd->window.right - ifd->window.left + 1;
  const int32_t height = ifd->window.top - ifd->window.bottom + 1;
  if (width > kWebpMostSide || height > kWebpMostSide)
    return kit_fail(ORX_E_UNSUPPORTED, "webp: %s: %d x %d pixels is more than %d a side", path,
                    (int)width, (int)height, kWebpMostSide);
  if (layout->count[0] == 1 && !kit_narrowed(object, 0, "grey stored as RGB")) return 0;
  if (layout->count[1] > 1 && !kit_narrowed(object, 0, "mattes after the first dropped")) return 0;
  if (layout->count[2] > 0 && !kit_narrowed(object, 0, "auxiliary channels dropped")) return 0;
  if (!kit_window_at_origin(object, 0)) return 0;
  for (int g = 0; g < 2; ++g) {
    if (layout->count[g] <= 0) continue;
    if (layout->type[g] != ORX_C_INTEGER &&
        !kit_narrowed(object, 0, "floating-point samples stored as 8-bit integers"))
      return 0;
    if (layout->type[g] == ORX_C_INTEGER && layout->bits[g] > 8 &&
        !kit_narrowed(object, 0, "%d-bit samples stored in 8 bits", (int)layout->bits[g]))
      return 0;
  }
  if (layout->count[1] > 1) layout->count[1] = 1;
  layout->count[2] = 0;
  for (int g = 0; g < 3; ++g) {
    layout->type[g] = ORX_C_INTEGER;
    layout->bits[g] = 8;
  }
  return 1;
}

/* Keeps the attributes the chunks carry: a profile of RGB colour (what the
 * file stores, grey included), the orientation and the XMP packet. */
static void keep_attributes(ORX_INFO *info) {
  static const char *const kept[] = {"ICCProfile", "Orientation", "XMP", NULL};
  ORX_attr_keep(info, kept);
  const ORX_ATTR *profile = ORX_attr_find(info, 0, "ICCProfile");
  if (profile != NULL && !kit_profile_fits(profile, 3)) ORX_attr_remove(info, 0, "ICCProfile");
  const ORX_ATTR *xmp = ORX_attr_find(info, 0, "XMP");
  if (xmp != NULL && xmp->type != ORX_ATTR_STRING) ORX_attr_remove(info, 0, "XMP");
}

int imageWriteOpen(ORX_OBJECT *object) {
  keep_attributes(&object->info);
  if (object->info.image_count != 1)
    return kit_fail(ORX_E_UNSUPPORTED, "webp: %s: a file holds one image, not %d",
                    object->info.handle, (int)object->info.image_count);
  KitLayout layout;
  if (!plan(object, &layout) || !kit_new_cell(object, 1)) return 0;
  WebpOut *w = (WebpOut *)kit_allocate(sizeof(WebpOut));
  if (w == NULL) return 0;
  memset(w, 0, sizeof *w);
  object->private_cell[0] = w;
  w->path = object->info.handle;
  w->ifd = &object->info.images[0];
  /* Without a setting, a copy of a lossless file stays lossless. */
  const char *was = object->info.compression;
  const int fallback = was != NULL && strcmp(was, "lossless") == 0 ? kWebpLossless
                                                                    : webp_compression.default_value;
  w->lossless = kit_setting_int(object, kWebpCapCompression, fallback) == kWebpLossless;
  w->quality = kit_setting_int(object, kWebpCapQuality, kWebpDefaultQuality);
  if (w->quality < 0 || w->quality > 100) w->quality = kWebpDefaultQuality;
  w->straight = kit_setting_int(object, kWebpCapUnassociated, 0) != 0;
  if (kit_plane_init(&w->plane, &layout, w->ifd->window, w->ifd->window,
                     KIT_PLANE_INTERLEAVED | KIT_PLANE_WRITE, webp_who, w->path) != 0 ||
      !kit_claim(webp_who, w->path, &w->created))
    return release(object);
  object->scan = scan_write;
  object->close = close_write;
  return 1;
}
