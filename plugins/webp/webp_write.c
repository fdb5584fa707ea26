/* Writing WebP files: RGB, or RGBA with the first matte, 8 bits a sample.
 * Grey is stored as RGB, wider and floating-point samples are narrowed to
 * 8 bits, mattes after the first and auxiliary channels are dropped, each
 * said as narrowed.  Several images of one size make an animation, a frame
 * each, shown for its "webp:duration" (milliseconds, 100 without one) and
 * repeated "webp:loop" times (0, the default: for ever).  Lossy at the
 * "quality" setting unless the "compression" setting asks for "lossless"
 * (without the setting, a picture read from a lossless file is written
 * lossless); an ICC profile, the EXIF orientation and an XMP packet go in
 * their chunks through libwebpmux. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include "orx/err.h"
#include "webp_plugin.h"

/* An open file being written, and each of its images. */
typedef struct WebpOut {
  const char *path;
  int created;
  int lossless;
  int quality;
  int straight;
} WebpOut;

typedef struct Picture {
  WebpOut *file;
  const ORX_IFD *ifd;
  KitPlane plane;
} Picture;

static int release(ORX_OBJECT *object) {
  Picture *pictures = object->private_cell != NULL ? (Picture *)object->private_cell[0] : NULL;
  if (pictures == NULL) return 0;
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    kit_plane_free(&pictures[i].plane);
    object->private_cell[i] = NULL;
  }
  ERR_free(pictures[0].file);
  ERR_free(pictures);
  return 0;
}

/* The plane's pixels as libwebp takes them: RGB or RGBA rows, grey spread
 * over the three colours; the colour divided by the alpha unless it passes
 * as it came.  NULL when memory is short. */
static unsigned char *pixels_of(Picture *p, int *stride) {
  KitPlane *plane = &p->plane;
  const int32_t width = kit_plane_width(plane), height = kit_plane_height(plane);
  const int alpha = plane->layout.count[1] > 0;
  const int grey = plane->layout.count[0] == 1;
  const size_t bytes = (size_t)width * (alpha ? 4 : 3);
  unsigned char *out = (unsigned char *)malloc(bytes * (size_t)height);
  if (out == NULL) return NULL;
  for (int32_t r = 0; r < height; ++r) {
    if (alpha && !p->file->straight) kit_plane_dissociate(plane, r, kWebpRounding);
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

/* A picture of libwebp's (to free with WebPPictureFree) holding p's pixels;
 * 0 after a report. */
static int import(Picture *p, WebPPicture *picture) {
  if (!WebPPictureInit(picture))
    return kit_fail(ORX_E_WRITE, "webp: libwebp does not match its headers");
  int stride = 0;
  unsigned char *pixels = pixels_of(p, &stride);
  if (pixels == NULL) return kit_fail(ORX_E_NO_MEMORY, "webp: no memory to write %s", p->file->path);
  picture->use_argb = p->file->lossless;
  picture->width = kit_plane_width(&p->plane);
  picture->height = kit_plane_height(&p->plane);
  const int imported = p->plane.layout.count[1] > 0 ? WebPPictureImportRGBA(picture, pixels, stride)
                                                    : WebPPictureImportRGB(picture, pixels, stride);
  free(pixels);
  if (!imported) return kit_fail(ORX_E_NO_MEMORY, "webp: no memory to write %s", p->file->path);
  return 1;
}

/* The encoded image, or the animation of count pictures, in *out (to clear
 * with WebPDataClear); 0 after a report. */
static int compress_images(ORX_OBJECT *object, Picture *pictures, int32_t count, WebPData *out) {
  WebpOut *w = pictures[0].file;
  WebPConfig config;
  if (!WebPConfigInit(&config)) return kit_fail(ORX_E_WRITE, "webp: libwebp does not match its headers");
  config.lossless = w->lossless;
  config.quality = (float)w->quality;
  config.exact = w->lossless; /* keep the colour under transparent pixels */
  WebPPicture picture;
  WebPAnimEncoder *animation = NULL;
  WebPMemoryWriter writer;
  WebPMemoryWriterInit(&writer);
  if (count > 1) {
    WebPAnimEncoderOptions options;
    int32_t loop = 0;
    ORX_attr_get_int(&object->info, 0, "webp:loop", &loop);
    if (WebPAnimEncoderOptionsInit(&options)) {
      options.anim_params.loop_count = loop >= 0 && loop <= 65535 ? loop : 0;
      animation = WebPAnimEncoderNew(kit_plane_width(&pictures[0].plane),
                                     kit_plane_height(&pictures[0].plane), &options);
    }
    if (animation == NULL) return kit_fail(ORX_E_NO_MEMORY, "webp: no memory to write %s", w->path);
  }
  int ok = 1, timestamp = 0, error = 0;
  for (int32_t i = 0; ok && i < count; ++i) {
    if (!import(&pictures[i], &picture)) {
      WebPAnimEncoderDelete(animation);
      WebPMemoryWriterClear(&writer);
      return 0;
    }
    if (animation == NULL) {
      picture.writer = WebPMemoryWrite;
      picture.custom_ptr = &writer;
      ok = WebPEncode(&config, &picture);
    } else {
      ok = WebPAnimEncoderAdd(animation, &picture, timestamp, &config);
      int32_t duration = 100;
      ORX_attr_get_int(&object->info, i, "webp:duration", &duration);
      timestamp += duration > 0 && duration < (1 << 24) ? duration : 100;
    }
    error = picture.error_code;
    WebPPictureFree(&picture);
  }
  if (animation != NULL) {
    ok = ok && WebPAnimEncoderAdd(animation, NULL, timestamp, NULL) &&
         WebPAnimEncoderAssemble(animation, out);
    WebPAnimEncoderDelete(animation);
  } else {
    out->bytes = writer.mem;
    out->size = writer.size;
  }
  if (!ok) {
    WebPDataClear(out);
    return kit_fail(error == VP8_ENC_ERROR_OUT_OF_MEMORY ? ORX_E_NO_MEMORY : ORX_E_WRITE,
                    "webp: cannot encode %s (libwebp error %d)", w->path, error);
  }
  return 1;
}

/* The file: the image alone, or with its chunks through the muxer.  0
 * after a report. */
static int assemble(ORX_OBJECT *object, const WebPData *image, FILE *file) {
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
  WebPMux *mux = WebPMuxCreate(image, 0);
  WebPData whole = {NULL, 0};
  int ok = mux != NULL;
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
    return kit_fail(ORX_E_WRITE, "webp: cannot assemble the chunks of %s", object->info.handle);
  }
  ok = fwrite(whole.bytes, 1, whole.size, file) == whole.size;
  WebPDataClear(&whole);
  return ok;
}

static int encode(ORX_OBJECT *object, Picture *pictures) {
  const char *path = pictures[0].file->path;
  for (int32_t i = 0; i < object->info.image_count; ++i) kit_plane_complete(&pictures[i].plane);
  WebPData image = {NULL, 0};
  if (!compress_images(object, pictures, object->info.image_count, &image))
    return orx__err != 0 ? orx__err : ORX_E_WRITE;
  FILE *file = fopen(path, "wb");
  int ok = file != NULL && assemble(object, &image, file);
  if (file != NULL && fclose(file) != 0) ok = 0;
  WebPDataClear(&image);
  if (!ok) {
    kit_fail(ORX_E_WRITE, "webp: cannot write %s", path);
    return ORX_E_WRITE;
  }
  return 0;
}

static int scan_write(void *data, int32_t line, void *in) {
  Picture *p = (Picture *)data;
  return kit_plane_store(&p->plane, p->ifd, line, (void **)in, webp_who);
}

static int close_write(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  Picture *pictures = object->private_cell != NULL ? (Picture *)object->private_cell[0] : NULL;
  int status = 0;
  if (pictures != NULL) {
    status = encode(object, pictures);
    if (status != 0) kit_release(pictures[0].file->path, pictures[0].file->created);
  }
  release(object);
  orx__free_obj(object);
  return status;
}

/* The layout image i stores and the notes of what it loses; 0 after a
 * report.  The frames of an animation share the first one's size. */
static int plan(ORX_OBJECT *object, int32_t i, KitLayout *layout) {
  const ORX_IFD *ifd = &object->info.images[i];
  const ORX_WINDOW *first = &object->info.images[0].window;
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
  if (width != first->right - first->left + 1 || height != first->top - first->bottom + 1)
    return kit_fail(ORX_E_UNSUPPORTED, "webp: %s: image %d is not of the first one's size", path,
                    (int)i);
  if (layout->count[0] == 1 && !kit_narrowed(object, i, "grey stored as RGB")) return 0;
  if (layout->count[1] > 1 && !kit_narrowed(object, i, "mattes after the first dropped")) return 0;
  if (layout->count[2] > 0 && !kit_narrowed(object, i, "auxiliary channels dropped")) return 0;
  if (!kit_window_at_origin(object, i)) return 0;
  for (int g = 0; g < 2; ++g) {
    if (layout->count[g] <= 0) continue;
    if (layout->type[g] != ORX_C_INTEGER &&
        !kit_narrowed(object, i, "floating-point samples stored as 8-bit integers"))
      return 0;
    if (layout->type[g] == ORX_C_INTEGER && layout->bits[g] > 8 &&
        !kit_narrowed(object, i, "%d-bit samples stored in 8 bits", (int)layout->bits[g]))
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
 * file stores, grey included), the orientation, the XMP packet and the
 * timing of an animation. */
static void keep_attributes(ORX_INFO *info) {
  static const char *const kept[] = {"ICCProfile", "Orientation", "XMP", "webp:", NULL};
  ORX_attr_keep(info, kept);
  const ORX_ATTR *profile = ORX_attr_find(info, 0, "ICCProfile");
  if (profile != NULL && !kit_profile_fits(profile, 3)) ORX_attr_remove(info, 0, "ICCProfile");
  const ORX_ATTR *xmp = ORX_attr_find(info, 0, "XMP");
  if (xmp != NULL && xmp->type != ORX_ATTR_STRING) ORX_attr_remove(info, 0, "XMP");
}

int imageWriteOpen(ORX_OBJECT *object) {
  keep_attributes(&object->info);
  const int32_t count = object->info.image_count;
  if (count < 1) return kit_fail(ORX_E_UNSUPPORTED, "webp: %s: no image to write", object->info.handle);
  if (!kit_new_cell(object, count)) return 0;
  WebpOut *w = (WebpOut *)kit_allocate(sizeof(WebpOut));
  Picture *pictures = w != NULL ? (Picture *)kit_allocate((size_t)count * sizeof(Picture)) : NULL;
  if (pictures == NULL) {
    ERR_free(w);
    return 0;
  }
  memset(w, 0, sizeof *w);
  memset(pictures, 0, (size_t)count * sizeof(Picture));
  w->path = object->info.handle;
  /* Without a setting, a copy of a lossless file stays lossless. */
  const char *was = object->info.compression;
  const int fallback = was != NULL && strcmp(was, "lossless") == 0 ? kWebpLossless
                                                                    : webp_compression.default_value;
  w->lossless = kit_setting_int(object, kWebpCapCompression, fallback) == kWebpLossless;
  w->quality = kit_setting_int(object, kWebpCapQuality, kWebpDefaultQuality);
  if (w->quality < 0 || w->quality > 100) w->quality = kWebpDefaultQuality;
  w->straight = kit_setting_int(object, kWebpCapUnassociated, 0) != 0;
  for (int32_t i = 0; i < count; ++i) {
    pictures[i].file = w;
    pictures[i].ifd = &object->info.images[i];
    object->private_cell[i] = &pictures[i];
  }
  for (int32_t i = 0; i < count; ++i) {
    KitLayout layout;
    if (!plan(object, i, &layout) ||
        kit_plane_init(&pictures[i].plane, &layout, pictures[i].ifd->window, pictures[i].ifd->window,
                       KIT_PLANE_INTERLEAVED | KIT_PLANE_WRITE, webp_who, w->path) != 0)
      return release(object);
  }
  if (!kit_claim(webp_who, w->path, &w->created)) return release(object);
  object->scan = scan_write;
  object->close = close_write;
  return 1;
}
