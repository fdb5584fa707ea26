/* WebP files through libwebp: lossy and lossless, RGB or RGBA, 8 bits a
 * sample.  The ICCP, EXIF and XMP chunks map to the "ICCProfile", the
 * "Orientation" (from the EXIF block) and the "XMP" attributes, both ways;
 * the compression of a file is its descriptor's compression text.  Each
 * frame of an animation is an image, composited on the canvas as players
 * show it, with its duration.  WebP's colour is straight and the
 * library's matte associated: reading multiplies the colour by the alpha,
 * writing divides it out again, unless the host asks for "unassociated
 * alpha".
 *
 * The file is demultiplexed at open (which checks its RIFF structure and
 * every chunk's size against the file) and decoded on the first scanline
 * request. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <webp/decode.h>
#include <webp/demux.h>

#include "orx/err.h"
#include "webp_plugin.h"

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "webp";
const char *imageExtension = ".webp";
const char *imageName = "WebP";
const char *imageDescription = "WebP: lossy or lossless 8-bit RGB and RGBA";
const char *imageNameSyntax = "Name.####.webp";
int imageOrientation = 0; /* rows are stored top first */
int imageNumberOfChannels = 3;
int imageBitsPerChannel = 1 << 7;
int imageNumberOfMattes = 1;
int imageBitsPerMatte = 1 << 7;
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_WRITE | ORX_ACCESS_RANDOM;

const char webp_who[] = "webp";

static ORX_CAP_LIST_ENTRY compressions[] = {
    {kWebpLossy, "lossy", 0, NULL},
    {kWebpLossless, "lossless", 0, NULL},
    {0, NULL, 0, NULL},
};
ORX_CAP_LIST webp_compression = {kWebpLossy, 0, compressions};
static ORX_CAP_ENTRY capabilities[] = {
    {kWebpCapCompression, "compression", 0, NULL, 0, &webp_compression, 0},
    {kWebpCapQuality, "quality", 0, NULL, 1, NULL, 0},
    {kWebpCapUnassociated, "unassociated alpha", 0, NULL, 1, NULL, 0},
};

void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second, int32_t *count) {
  *table = capabilities;
  *first = 2;
  *second = 0;
  *count = 3;
}

/* An open file being read. */
typedef struct Webp {
  const char *path;
  unsigned char *bytes;       /* the whole file */
  size_t size;
  WebPDemuxer *demux;
  int alpha;
  int frames;
  int animated;               /* frames on a canvas (even a single one) */
  int straight;               /* colour passes as stored ("unassociated alpha") */
  WebPAnimDecoder *animation; /* an animation's decoder, once a frame is asked for */
  int position;               /* the frames it has given */
  struct Frame *shown;        /* the image whose plane holds pixels */
} Webp;

/* One image: the picture of a still file, or a frame of an animation
 * composited on the canvas.  Only one frame's pixels are kept at a time. */
typedef struct Frame {
  Webp *file;
  const ORX_IFD *ifd;
  int index;
  int decoded;
  KitPlane plane;
} Frame;

static int release(ORX_OBJECT *object) {
  Frame *frames = object->private_cell != NULL ? (Frame *)object->private_cell[0] : NULL;
  if (frames == NULL) return 0;
  Webp *w = frames[0].file;
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    kit_plane_free(&frames[i].plane);
    object->private_cell[i] = NULL;
  }
  if (w != NULL) {
    WebPAnimDecoderDelete(w->animation);
    WebPDemuxDelete(w->demux);
    free(w->bytes);
    ERR_free(w);
  }
  ERR_free(frames);
  return 0;
}

/* --- Decoding ------------------------------------------------------------ */

/* Frame f of an animation, composited on the canvas: the decoder goes back
 * to the start only for a frame before the last it gave. */
static int decode_frame(Frame *f) {
  Webp *w = f->file;
  if (w->animation == NULL) {
    WebPAnimDecoderOptions options;
    if (!WebPAnimDecoderOptionsInit(&options)) return ORX_E_UNDECODABLE;
    options.color_mode = MODE_RGBA;
    options.use_threads = 0;
    const WebPData whole = {w->bytes, w->size};
    w->animation = WebPAnimDecoderNew(&whole, &options);
    w->position = 0;
  }
  if (w->animation != NULL && w->position > f->index) {
    WebPAnimDecoderReset(w->animation);
    w->position = 0;
  }
  uint8_t *canvas = NULL;
  int timestamp = 0;
  while (w->animation != NULL && w->position <= f->index &&
         WebPAnimDecoderGetNext(w->animation, &canvas, &timestamp))
    ++w->position;
  if (w->animation == NULL || w->position <= f->index) {
    kit_fail(ORX_E_READ, "webp: cannot decode frame %d of %s (damaged)", f->index + 1, w->path);
    return ORX_E_READ;
  }
  const int32_t height = kit_plane_height(&f->plane), width = kit_plane_width(&f->plane);
  const size_t stride = (size_t)width * 4;
  /* Without alpha each row of the canvas (which the decoder composites the
   * next frame on) closes up into RGB in a row of its own. */
  uint8_t *rgb = w->alpha ? NULL : (uint8_t *)malloc((size_t)width * 3);
  if (!w->alpha && rgb == NULL) {
    kit_fail(ORX_E_NO_MEMORY, "webp: %s: no memory for a decoded row", w->path);
    return ORX_E_NO_MEMORY;
  }
  for (int32_t r = 0; r < height; ++r) {
    const uint8_t *row = canvas + stride * (size_t)r;
    for (int32_t x = 0; rgb != NULL && x < width; ++x) memcpy(rgb + 3 * x, row + 4 * x, 3);
    kit_plane_spread(&f->plane, r, rgb != NULL ? rgb : row);
  }
  free(rgb);
  return 0;
}

static int decode_still(Frame *f) {
  Webp *w = f->file;
  const int32_t height = kit_plane_height(&f->plane);
  const int32_t width = kit_plane_width(&f->plane);
  const size_t stride = (size_t)width * (w->alpha ? 4 : 3);
  unsigned char *pixels = (unsigned char *)malloc(stride * (size_t)height);
  if (pixels == NULL) {
    kit_fail(ORX_E_NO_MEMORY, "webp: %s: no memory for the decoded pixels", w->path);
    return ORX_E_NO_MEMORY;
  }
  WebPDecoderConfig config;
  if (!WebPInitDecoderConfig(&config)) {
    free(pixels);
    return ORX_E_UNDECODABLE;
  }
  config.output.colorspace = w->alpha ? MODE_RGBA : MODE_RGB;
  config.output.is_external_memory = 1;
  config.output.u.RGBA.rgba = pixels;
  config.output.u.RGBA.stride = (int)stride;
  config.output.u.RGBA.size = stride * (size_t)height;
  const VP8StatusCode status = WebPDecode(w->bytes, w->size, &config);
  WebPFreeDecBuffer(&config.output);
  if (status != VP8_STATUS_OK) {
    free(pixels);
    kit_fail(ORX_E_READ, "webp: cannot decode %s: %s", w->path,
             status == VP8_STATUS_NOT_ENOUGH_DATA ? "the image data ends early (truncated)"
                                                  : "damaged image data");
    return ORX_E_READ;
  }
  for (int32_t r = 0; r < height; ++r) kit_plane_spread(&f->plane, r, pixels + stride * (size_t)r);
  free(pixels);
  return 0;
}

/* Decodes an image into its plane, releasing the pixels of the one decoded
 * before (a host's rows stay valid only until its next call). */
static int decode(void *data) {
  Frame *f = (Frame *)data;
  Webp *w = f->file;
  if (w->shown != NULL && w->shown != f) {
    kit_plane_free(&w->shown->plane);
    w->shown->decoded = 0;
  }
  w->shown = f;
  const KitLayout layout = kit_layout_of(f->ifd);
  int status = f->plane.data != NULL ? 0
                                     : kit_plane_init(&f->plane, &layout, f->ifd->window,
                                                      f->ifd->window, 0, webp_who, w->path);
  if (status == 0) status = w->animated ? decode_frame(f) : decode_still(f);
  if (status != 0) return status;
  for (int32_t r = 0; w->alpha && !w->straight && r < kit_plane_height(&f->plane); ++r)
    kit_plane_associate(&f->plane, r, kWebpRounding);
  return 0;
}

static int scan_read(void *data, int32_t line, void *out) {
  Frame *f = (Frame *)data;
  return kit_scan_decoded(&f->plane, &f->decoded, decode, data, line, out, webp_who,
                          f->file->path);
}

static int close_read(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  release(object);
  orx__free_obj(object);
  return 0;
}

/* --- Opening ------------------------------------------------------------- */

/* The chunk named fourcc, if the file has one. */
static int chunk(Webp *w, const char *fourcc, const uint8_t **bytes, size_t *size) {
  WebPChunkIterator it;
  if (!WebPDemuxGetChunk(w->demux, fourcc, 1, &it)) return 0;
  *bytes = it.chunk.bytes;
  *size = it.chunk.size;
  WebPDemuxReleaseChunkIterator(&it);
  return *size > 0;
}

/* The ICC profile, the EXIF orientation and the XMP packet; 0 after a
 * report. */
static int describe_chunks(ORX_INFO *info, Webp *w) {
  const uint8_t *bytes;
  size_t size;
  if (chunk(w, "ICCP", &bytes, &size) && size <= INT32_MAX &&
      ORX_attr_set(info, 0, "ICCProfile", ORX_ATTR_BYTES, (int32_t)size, bytes) != 0)
    return 0;
  if (chunk(w, "EXIF", &bytes, &size)) {
    /* The block is a TIFF structure; some writers put JPEG's "Exif\0\0" before it. */
    if (size >= 6 && memcmp(bytes, "Exif\0\0", 6) == 0) {
      bytes += 6;
      size -= 6;
    }
    const int orientation = kit_exif_orientation(bytes, size);
    if (orientation > 1 && ORX_attr_set_int(info, 0, "Orientation", orientation) != 0) return 0;
  }
  if (chunk(w, "XMP ", &bytes, &size)) {
    char *text = (char *)malloc(size + 1);
    if (text == NULL) return kit_fail(ORX_E_NO_MEMORY, "webp: no memory to read %s", w->path);
    memcpy(text, bytes, size);
    text[size] = 0;
    /* A packet padded with NULs ends at the first; one that is not UTF-8
     * is no XMP. */
    const int failed = kit_is_utf8(text) && ORX_attr_set_string(info, 0, "XMP", text) != 0;
    free(text);
    if (failed) return 0;
  }
  return 1;
}

/* Reads the whole file; 0 after a report. */
static int slurp(Webp *w) {
  FILE *file = fopen(w->path, "rb");
  if (file == NULL) return kit_fail(ORX_E_FIELD_MISSING, "webp: cannot open %s", w->path);
  long size = -1;
  if (fseek(file, 0, SEEK_END) == 0) size = ftell(file);
  /* A RIFF file holds at most 4 GiB after its 8-byte header. */
  if (size < 12 || (uint64_t)size > 0xffffffffull + 8 || fseek(file, 0, SEEK_SET) != 0) {
    fclose(file);
    return kit_fail(ORX_E_NOT_OUR_FILE, "webp: %s is not a WebP file", w->path);
  }
  w->size = (size_t)size;
  w->bytes = (unsigned char *)malloc(w->size);
  const int read = w->bytes != NULL && fread(w->bytes, 1, w->size, file) == w->size;
  fclose(file);
  if (w->bytes == NULL) return kit_fail(ORX_E_NO_MEMORY, "webp: no memory to read %s", w->path);
  if (!read) return kit_fail(ORX_E_READ, "webp: cannot read %s", w->path);
  if (memcmp(w->bytes, "RIFF", 4) != 0 || memcmp(w->bytes + 8, "WEBP", 4) != 0)
    return kit_fail(ORX_E_NOT_OUR_FILE, "webp: %s is not a WebP file", w->path);
  return 1;
}

/* The chunks of the file, checked against its size; 0 after a report. */
static int demultiplex(Webp *w) {
  const WebPData data = {w->bytes, w->size};
  WebPDemuxState state = WEBP_DEMUX_PARSE_ERROR;
  w->demux = WebPDemuxPartial(&data, &state);
  if (w->demux == NULL || state != WEBP_DEMUX_DONE) {
    const uint32_t riff = (uint32_t)w->bytes[4] | (uint32_t)w->bytes[5] << 8 |
                          (uint32_t)w->bytes[6] << 16 | (uint32_t)w->bytes[7] << 24;
    return kit_fail(ORX_E_NOT_OUR_FILE, "webp: %s: %s", w->path,
                    state == WEBP_DEMUX_PARSE_ERROR || w->demux == NULL
                        ? "damaged chunks (a size that lies, or a chunk out of place)"
                    : (uint64_t)riff + 8 > w->size ? "the file ends before its RIFF size (truncated)"
                                                   : "the file ends early (truncated)");
  }
  w->frames = (int)WebPDemuxGetI(w->demux, WEBP_FF_FRAME_COUNT);
  if (WebPDemuxGetI(w->demux, WEBP_FF_CANVAS_WIDTH) == 0 ||
      WebPDemuxGetI(w->demux, WEBP_FF_CANVAS_HEIGHT) == 0 || w->frames < 1)
    return kit_fail(ORX_E_NOT_OUR_FILE, "webp: %s holds no image", w->path);
  return 1;
}

/* Every image's descriptor (a frame of an animation is the whole canvas,
 * its duration in milliseconds "webp:duration", the animation's loop count
 * "webp:loop"), and the file's chunks on the first; 0 after a report. */
static int describe(ORX_OBJECT *object, Webp *w) {
  const uint32_t width = WebPDemuxGetI(w->demux, WEBP_FF_CANVAS_WIDTH);
  const uint32_t height = WebPDemuxGetI(w->demux, WEBP_FF_CANVAS_HEIGHT);
  const uint32_t flags = WebPDemuxGetI(w->demux, WEBP_FF_FORMAT_FLAGS);
  Frame *frames = (Frame *)object->private_cell[0];
  w->animated = (flags & ANIMATION_FLAG) != 0 || w->frames > 1;
  int lossless = 1;
  WebPIterator it;
  for (int i = 0; i < w->frames; ++i) {
    if (!WebPDemuxGetFrame(w->demux, i + 1, &it))
      return kit_fail(ORX_E_NOT_OUR_FILE, "webp: %s: frame %d is missing", w->path, i + 1);
    WebPBitstreamFeatures features;
    const int found = WebPGetFeatures(it.fragment.bytes, it.fragment.size, &features) == VP8_STATUS_OK;
    lossless &= found && features.format == 2;
    w->alpha |= (flags & ALPHA_FLAG) != 0 || (found && features.has_alpha);
    const int duration = it.duration;
    WebPDemuxReleaseIterator(&it);
    if (w->frames > 1 && ORX_attr_set_int(&object->info, i, "webp:duration", duration) != 0)
      return 0;
  }
  if (w->frames > 1 && ORX_attr_set_int(&object->info, 0, "webp:loop",
                                        (int32_t)WebPDemuxGetI(w->demux, WEBP_FF_LOOP_COUNT)) != 0)
    return 0;
  const KitLayout layout = {{3, w->alpha ? 1 : 0, 0},
                            {ORX_C_INTEGER, ORX_C_INTEGER, ORX_C_INTEGER},
                            {8, 8, 8}};
  for (int i = 0; i < w->frames; ++i) {
    ORX_IFD *ifd = &object->info.images[i];
    kit_describe_size(ifd, (int32_t)width, (int32_t)height, 1.0);
    kit_layout_apply(&layout, ifd);
    if (!kit_save(&ifd->image.name, "rgb")) return 0;
    frames[i].file = w;
    frames[i].ifd = ifd;
    frames[i].index = i;
    object->private_cell[i] = &frames[i];
  }
  if (!kit_save(&object->info.compression, lossless ? "lossless" : "lossy") ||
      !describe_chunks(&object->info, w))
    return 0;
  /* Without a profile the colour is sRGB, as WebP readers take it. */
  if ((flags & ICCP_FLAG) == 0) kit_set_chromaticities(&object->info, kit_rec709);
  /* The first image's plane is made now, so that a picture beyond the
   * memory limit is refused at open; the others when they are asked for. */
  return kit_plane_init(&frames[0].plane, &layout, frames[0].ifd->window, frames[0].ifd->window, 0,
                        webp_who, w->path) == 0;
}

static void free_file(Webp *w) {
  WebPDemuxDelete(w->demux);
  free(w->bytes);
  ERR_free(w);
}

int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == NULL) return kit_fail(ORX_E_FIELD_MISSING, "webp: no file name to read");
  Webp *w = (Webp *)kit_allocate(sizeof(Webp));
  if (w == NULL) return 0;
  memset(w, 0, sizeof *w);
  w->path = path;
  w->straight = kit_setting_int(object, kWebpCapUnassociated, 0) != 0;
  if (!slurp(w) || !demultiplex(w) || !kit_new_images(object, w->frames)) {
    free_file(w);
    return 0;
  }
  Frame *frames = (Frame *)kit_allocate((size_t)w->frames * sizeof(Frame));
  if (frames == NULL) {
    free_file(w);
    return 0;
  }
  memset(frames, 0, (size_t)w->frames * sizeof(Frame));
  frames[0].file = w;
  object->private_cell[0] = frames;
  if (!describe(object, w)) return release(object);
  object->scan = scan_read;
  object->close = close_read;
  return 1;
}

uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char h[12];
  return kit_peek(name, stream, h, 12) == 12 && memcmp(h, "RIFF", 4) == 0 &&
         memcmp(h + 8, "WEBP", 4) == 0;
}
