/* WebP files through libwebp: lossy and lossless, RGB or RGBA, 8 bits a
 * sample.  The ICCP, EXIF and XMP chunks map to the "ICCProfile", the
 * "Orientation" (from the EXIF block) and the "XMP" attributes, both ways;
 * the compression of a file is its descriptor's compression text.  An
 * animated file reads as its first frame composited on the canvas, with a
 * warning naming the frames left out.  WebP's colour is straight and the
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
  unsigned char *bytes; /* the whole file */
  size_t size;
  WebPDemuxer *demux;
  KitPlane plane;
  int decoded;
  int alpha;
  int frames;
  int straight;         /* colour passes as stored ("unassociated alpha") */
} Webp;

static int release(ORX_OBJECT *object) {
  Webp *w = object->private_cell != NULL ? (Webp *)object->private_cell[0] : NULL;
  if (w == NULL) return 0;
  object->private_cell[0] = NULL;
  WebPDemuxDelete(w->demux);
  free(w->bytes);
  kit_plane_free(&w->plane);
  ERR_free(w);
  return 0;
}

/* --- Decoding ------------------------------------------------------------ */

/* The first frame of an animation, composited on the canvas (RGBA). */
static int decode_animation(Webp *w, const WebPData *data) {
  WebPAnimDecoderOptions options;
  if (!WebPAnimDecoderOptionsInit(&options)) return ORX_E_UNDECODABLE;
  options.color_mode = MODE_RGBA;
  options.use_threads = 0;
  WebPAnimDecoder *decoder = WebPAnimDecoderNew(data, &options);
  uint8_t *canvas = NULL;
  int timestamp = 0;
  if (decoder == NULL || !WebPAnimDecoderGetNext(decoder, &canvas, &timestamp)) {
    WebPAnimDecoderDelete(decoder);
    kit_fail(ORX_E_READ, "webp: cannot decode the first frame of %s (damaged)", w->path);
    return ORX_E_READ;
  }
  const int32_t height = kit_plane_height(&w->plane);
  const size_t stride = (size_t)kit_plane_width(&w->plane) * 4;
  const int32_t channels = w->plane.channels;
  const int32_t width = kit_plane_width(&w->plane);
  for (int32_t r = 0; r < height; ++r) {
    uint8_t *row = canvas + stride * (size_t)r;
    /* Without alpha the canvas's RGBA closes up into RGB, in place. */
    for (int32_t x = 1; channels == 3 && x < width; ++x) memmove(row + 3 * x, row + 4 * x, 3);
    kit_plane_spread(&w->plane, r, row);
  }
  WebPAnimDecoderDelete(decoder);
  kit_warn("webp: %s: the first of %d frames read, %d left out", w->path, w->frames,
           w->frames - 1);
  return 0;
}

static int decode_still(Webp *w) {
  const int32_t height = kit_plane_height(&w->plane);
  const int32_t width = kit_plane_width(&w->plane);
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
  for (int32_t r = 0; r < height; ++r) kit_plane_spread(&w->plane, r, pixels + stride * (size_t)r);
  free(pixels);
  return 0;
}

static int decode(void *data) {
  Webp *w = (Webp *)data;
  const WebPData whole = {w->bytes, w->size};
  const int status = w->frames > 1 ? decode_animation(w, &whole) : decode_still(w);
  if (status != 0) return status;
  for (int32_t r = 0; w->alpha && !w->straight && r < kit_plane_height(&w->plane); ++r)
    kit_plane_associate(&w->plane, r, kWebpRounding);
  /* The bytes are no longer needed. */
  WebPDemuxDelete(w->demux);
  w->demux = NULL;
  free(w->bytes);
  w->bytes = NULL;
  return 0;
}

static int scan_read(void *data, int32_t line, void *out) {
  Webp *w = (Webp *)data;
  return kit_scan_decoded(&w->plane, &w->decoded, decode, data, line, out, webp_who, w->path);
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
    const int bad = strlen(text) == size && kit_is_utf8(text) &&
                    ORX_attr_set_string(info, 0, "XMP", text) != 0;
    free(text);
    if (bad) return 0;
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

static int describe(ORX_OBJECT *object, Webp *w) {
  const WebPData data = {w->bytes, w->size};
  WebPDemuxState state = WEBP_DEMUX_PARSE_ERROR;
  w->demux = WebPDemuxPartial(&data, &state);
  if (w->demux == NULL || state != WEBP_DEMUX_DONE) {
    const uint32_t riff = (uint32_t)w->bytes[4] | (uint32_t)w->bytes[5] << 8 |
                          (uint32_t)w->bytes[6] << 16 | (uint32_t)w->bytes[7] << 24;
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    "webp: %s: %s", w->path,
                    state == WEBP_DEMUX_PARSE_ERROR || w->demux == NULL
                        ? "damaged chunks (a size that lies, or a chunk out of place)"
                    : (uint64_t)riff + 8 > w->size ? "the file ends before its RIFF size (truncated)"
                                                   : "the file ends early (truncated)");
  }
  const uint32_t width = WebPDemuxGetI(w->demux, WEBP_FF_CANVAS_WIDTH);
  const uint32_t height = WebPDemuxGetI(w->demux, WEBP_FF_CANVAS_HEIGHT);
  const uint32_t flags = WebPDemuxGetI(w->demux, WEBP_FF_FORMAT_FLAGS);
  w->frames = (int)WebPDemuxGetI(w->demux, WEBP_FF_FRAME_COUNT);
  WebPIterator frame;
  if (width == 0 || height == 0 || w->frames < 1 || !WebPDemuxGetFrame(w->demux, 1, &frame))
    return kit_fail(ORX_E_NOT_OUR_FILE, "webp: %s holds no image", w->path);
  WebPBitstreamFeatures features;
  const int lossless = WebPGetFeatures(frame.fragment.bytes, frame.fragment.size, &features) ==
                           VP8_STATUS_OK && features.format == 2;
  WebPDemuxReleaseIterator(&frame);
  w->alpha = (flags & ALPHA_FLAG) != 0 || (w->frames == 1 && features.has_alpha);
  ORX_IFD *ifd = &object->info.images[0];
  kit_describe_size(ifd, (int32_t)width, (int32_t)height, 1.0);
  KitLayout layout = {{3, w->alpha ? 1 : 0, 0},
                      {ORX_C_INTEGER, ORX_C_INTEGER, ORX_C_INTEGER},
                      {8, 8, 8}};
  kit_layout_apply(&layout, ifd);
  if (!kit_save(&ifd->image.name, "rgb") ||
      !kit_save(&object->info.compression, lossless ? "lossless" : "lossy") ||
      !describe_chunks(&object->info, w))
    return 0;
  /* Without a profile the colour is sRGB, as WebP readers take it. */
  if ((flags & ICCP_FLAG) == 0) kit_set_chromaticities(&object->info, kit_rec709);
  return kit_plane_init(&w->plane, &layout, ifd->window, ifd->window, 0, webp_who, w->path) == 0;
}

int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == NULL) return kit_fail(ORX_E_FIELD_MISSING, "webp: no file name to read");
  if (!kit_new_images(object, 1)) return 0;
  Webp *w = (Webp *)kit_allocate(sizeof(Webp));
  if (w == NULL) return 0;
  memset(w, 0, sizeof *w);
  w->path = path;
  w->straight = kit_setting_int(object, kWebpCapUnassociated, 0) != 0;
  object->private_cell[0] = w;
  if (!slurp(w) || !describe(object, w)) return release(object);
  object->scan = scan_read;
  object->close = close_read;
  return 1;
}

uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char h[12];
  return kit_peek(name, stream, h, 12) == 12 && memcmp(h, "RIFF", 4) == 0 &&
         memcmp(h + 8, "WEBP", 4) == 0;
}
