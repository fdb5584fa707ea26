/* DPX files (SMPTE 268M), with a codec of its own.  Reading: big- and
 * little-endian files; 8, 10, 12 and 16-bit integer and 32 and 64-bit
 * floating-point samples; 10-bit samples filled three to a word (padding
 * low, method A, or high, method B) or packed across words, 12-bit filled
 * or packed; luma, alpha, a single R, G or B, RGB, RGBA and ABGR elements
 * (ABGR read as RGBA), the first element of a file, with an alpha element
 * after luma as its matte.  The x and y offsets and the original size give
 * the active window within the window; the orientation code becomes
 * `Orientation` (pixels as stored); texts, film and television fields
 * become header texts and `dpx:` attributes (dpx_header.c).  Writing: luma,
 * RGB or RGBA (grey with a matte as RGBA), at the nearest depth that holds the
 * host's samples or the one the settings ask for, 10 and 12-bit samples
 * filled (method A or B) or packed, big- or little-endian.  Samples are
 * kept as the file holds them, alpha associated as OpenImageIO takes it. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "dpx_header.h"
#include "dpx_rows.h"
#include "orx/err.h"
#include "orx/plugin.h"
#include "plugin_kit.h"

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "dpx";
const char *imageExtension = ".dpx";
const char *imageName = "DPX";
const char *imageDescription =
    "Digital Picture Exchange: 8, 10, 12, 16-bit, float and double luma, RGB, RGBA; filled or "
    "packed";
const char *imageNameSyntax = "Name.####.dpx";
int imageOrientation = 0; /* rows are stored top first */
int imageNumberOfChannels = 3;
int imageBitsPerChannel = (1 << 7) | (1 << 9) | (1 << 11) | (1 << 15) | INT32_MIN;
int imageNumberOfMattes = 1;
int imageBitsPerMatte = (1 << 7) | (1 << 9) | (1 << 11) | (1 << 15) | INT32_MIN;
int imageSupportsActiveWindow = 1;
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_WRITE | ORX_ACCESS_RANDOM;

/* Settings: the sample depth ("source": the nearest that holds the host's
 * samples), the packing of 10 and 12-bit samples and the byte order. */
enum { kCapDepth = 0, kCapPacking = 1, kCapOrder = 2 };
static ORX_CAP_LIST_ENTRY depths[] = {
    {0, "source", 0, NULL}, {8, "8", 0, NULL},      {10, "10", 0, NULL}, {12, "12", 0, NULL},
    {16, "16", 0, NULL},    {32, "float", 0, NULL}, {64, "double", 0, NULL}, {0, NULL, 0, NULL},
};
static ORX_CAP_LIST depth = {0, 0, depths};
static ORX_CAP_LIST_ENTRY packings[] = {
    {1, "filled method A", 0, NULL},
    {2, "filled method B", 0, NULL},
    {0, "packed", 0, NULL},
    {0, NULL, 0, NULL},
};
static ORX_CAP_LIST packing = {1, 0, packings}; /* filled method A */
static ORX_CAP_LIST_ENTRY orders[] = {
    {1, "big-endian", 0, NULL}, {0, "little-endian", 0, NULL}, {0, NULL, 0, NULL}};
static ORX_CAP_LIST order = {1, 0, orders};
static ORX_CAP_ENTRY capabilities[] = {
    {kCapDepth, "bit depth", 0, NULL, 0, &depth, 0},
    {kCapPacking, "packing", 0, NULL, 0, &packing, 0},
    {kCapOrder, "byte order", 0, NULL, 0, &order, 0},
};

void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second, int32_t *count) {
  *table = capabilities;
  *first = 3;
  *second = 0;
  *count = 3;
}

static const char kWho[] = "dpx";

/* One open file.  Reading hands out rows (DpxRows, first, so that the scan
 * function's data is both); writing keeps the image in a plane until
 * close. */
typedef struct Dpx {
  DpxRows rows;
  const char *path;
  ORX_IFD *ifd;
  DpxImage image;
  KitPlane plane;
  int created;
} Dpx;

static int release(ORX_OBJECT *object) {
  Dpx *d = object->private_cell != NULL ? (Dpx *)object->private_cell[0] : NULL;
  if (d == NULL) return 0;
  object->private_cell[0] = NULL;
  dpx_rows_free(&d->rows);
  if (d->rows.file != NULL) fclose(d->rows.file);
  kit_plane_free(&d->plane);
  ERR_free(d);
  return 0;
}

static int close_object(ORX_OBJECT *object, intptr_t argument);

static Dpx *new_dpx(ORX_OBJECT *object) {
  Dpx *d = (Dpx *)kit_allocate(sizeof(Dpx));
  if (d == NULL) return NULL;
  memset(d, 0, sizeof *d);
  d->path = object->info.handle;
  d->ifd = &object->info.images[0];
  d->rows.who = kWho;
  d->rows.path = d->path;
  object->private_cell[0] = d;
  return d;
}

uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char magic[4];
  return kit_peek(name, stream, magic, 4) == 4 &&
         (memcmp(magic, "SDPX", 4) == 0 || memcmp(magic, "XPDS", 4) == 0);
}

/* --- Reading ------------------------------------------------------------- */

/* An element as a source of the library's channels from first on. */
static void add_source(DpxRows *rows, const DpxElement *el, uint32_t width, int first) {
  DpxSource *src = &rows->source[rows->sources++];
  src->coding = el->coding;
  src->channels = dpx_descriptor_channels(el->descriptor);
  src->offset = el->offset;
  src->stride = dpx_row_bytes(&src->coding, (uint64_t)width * (uint64_t)src->channels) +
                (uint64_t)el->line_padding;
  for (int k = 0; k < src->channels; ++k)
    src->to[k] = first + (el->descriptor == DPX_ABGR ? 3 - k : k);
}

static int describe(ORX_OBJECT *object, Dpx *d, const unsigned char *h, size_t n,
                    uint64_t size) {
  const DpxImage *image = &d->image;
  const DpxElement *el = &image->element[0];
  const int bits = el->coding.bits;
  const int channels = dpx_descriptor_channels(el->descriptor);
  KitLayout layout = {{0, 0, 0}, {ORX_C_INTEGER, ORX_C_INTEGER, ORX_C_INTEGER}, {0, 0, 0}};
  layout.count[0] = el->descriptor == DPX_ALPHA ? 0 : channels == 4 ? 3 : channels;
  layout.count[1] = el->descriptor == DPX_ALPHA || channels == 4 || image->has_alpha_element;
  for (int g = 0; g < 2; ++g) {
    layout.type[g] = bits == 32 ? ORX_C_FLOAT : bits == 64 ? ORX_C_DOUBLE : ORX_C_INTEGER;
    layout.bits[g] = bits;
  }
  ORX_IFD *ifd = d->ifd;
  kit_layout_apply(&layout, ifd);
  dpx_windows(ifd, image->width, image->height, image->x_offset, image->y_offset,
              image->original_width, image->original_height, image->pixel_aspect);
  if (!kit_save(&ifd->image.name, layout.count[0] == 3 ? "rgb" : "grey") ||
      !dpx_describe(&object->info, h, n, image))
    return 0;
  DpxRows *rows = &d->rows;
  rows->window = ifd->window;
  rows->active = ifd->active;
  rows->channels = kit_layout_channels(&layout);
  rows->sample_size = dpx_sample_size(bits);
  add_source(rows, el, image->width, 0);
  if (image->has_alpha_element) add_source(rows, &image->element[1], image->width, 1);
  return dpx_rows_init(rows, size);
}

int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == NULL) return kit_fail(ORX_E_FIELD_MISSING, "dpx: no file name to read");
  if (!kit_new_images(object, 1)) return 0;
  Dpx *d = new_dpx(object);
  if (d == NULL) return 0;
  d->rows.file = fopen(path, "rb");
  if (d->rows.file == NULL) {
    release(object);
    return kit_fail(ORX_E_FIELD_MISSING, "dpx: cannot open %s", path);
  }
  const int64_t size = dpx_file_size(d->rows.file);
  unsigned char h[DPX_HEADER_SIZE];
  const size_t n = fread(h, 1, sizeof h, d->rows.file);
  if (size < 0 || !dpx_parse(h, n, &d->image, path) || !describe(object, d, h, n, (uint64_t)size))
    return release(object);
  object->scan = dpx_rows_scan;
  object->close = close_object;
  return 1;
}

/* --- Writing ------------------------------------------------------------- */

/* The depth a file stores for the host's samples: the setting's, else the
 * nearest that holds them; what it narrows is said. */
static int plan_depth(ORX_OBJECT *object, int *bits) {
  const ORX_IFD *ifd = &object->info.images[0];
  const ORX_CHANNELS *groups[2] = {&ifd->image, &ifd->matte};
  int widest = 0, floating = 0;
  for (int g = 0; g < 2; ++g) {
    if (groups[g]->count <= 0) continue;
    if (groups[g]->type != ORX_C_INTEGER) floating = groups[g]->type == ORX_C_DOUBLE ? 2 : 1;
    else if (groups[g]->bits > widest) widest = groups[g]->bits;
  }
  const int asked = kit_setting_int(object, kCapDepth, 0);
  const int valid = asked == 8 || asked == 10 || asked == 12 || asked == 16 || asked == 32 ||
                    asked == 64;
  *bits = valid ? asked
          : floating ? 32 * floating
          : widest <= 8 ? 8
          : widest <= 10 ? 10
          : widest <= 12 ? 12
                         : 16;
  if (floating && *bits < 32 &&
      !kit_narrowed(object, 0, "floating-point samples stored as %d-bit integers", *bits))
    return 0;
  if (floating == 2 && *bits == 32 && !kit_narrowed(object, 0, "double samples stored as float"))
    return 0;
  if (!floating && *bits < 32 && widest > *bits &&
      !kit_narrowed(object, 0, "%d-bit samples stored in %d bits", widest, *bits))
    return 0;
  return 1;
}

/* What the host's descriptor becomes: element, depth, coding, windows. */
static int plan(ORX_OBJECT *object, DpxImage *image) {
  const ORX_IFD *ifd = &object->info.images[0];
  const char *path = object->info.handle;
  const int colour = ifd->image.count, alpha = ifd->matte.count > 0;
  if (colour != 1 && colour != 3)
    return kit_fail(ORX_E_UNSUPPORTED, "dpx: %s: cannot store %d image channels (1 or 3)", path,
                    (int)colour);
  if (ifd->matte.count > 1 && !kit_narrowed(object, 0, "mattes after the first dropped")) return 0;
  if (ifd->aux.count > 0 && !kit_narrowed(object, 0, "auxiliary channels dropped")) return 0;
  if (!kit_window_at_origin(object, 0)) return 0;
  int bits = 0;
  if (!plan_depth(object, &bits)) return 0;
  memset(image, 0, sizeof *image);
  image->big = kit_setting_int(object, kCapOrder, 1) != 0;
  const int32_t pack = kit_setting_int(object, kCapPacking, DPX_FILLED_A);
  const ORX_WINDOW *w = &ifd->window, *a = &ifd->active;
  image->width = (uint32_t)(a->right - a->left + 1);
  image->height = (uint32_t)(a->top - a->bottom + 1);
  image->x_offset = (uint32_t)(a->left - w->left);
  image->y_offset = (uint32_t)(w->top - a->top);
  image->original_width = (uint32_t)(w->right - w->left + 1);
  image->original_height = (uint32_t)(w->top - w->bottom + 1);
  image->pixel_aspect = kit_pixel_aspect(ifd);
  /* Grey with a matte is stored as RGBA, as ImageMagick stores it (neither
   * it nor OpenImageIO reads a matte from an element of its own). */
  if (colour == 1 && alpha && !kit_narrowed(object, 0, "grey with a matte stored as RGBA"))
    return 0;
  int transfer = 255, colorimetric = 255;
  dpx_transfer_codes(&object->info, &transfer, &colorimetric);
  DpxElement *el = &image->element[0];
  el->descriptor = alpha ? DPX_RGBA : colour == 1 ? DPX_LUMA : DPX_RGB;
  el->transfer = transfer;
  el->colorimetric = colorimetric;
  el->coding.bits = bits;
  el->coding.big = image->big;
  /* The packing is a choice for 10 and 12 bits; other widths fill. */
  el->coding.packing =
      (bits == 10 || bits == 12) && pack >= 0 && pack <= DPX_FILLED_B ? pack : DPX_FILLED_A;
  el->coding.low_first = el->descriptor == DPX_LUMA;
  el->coding.pad_rows = el->coding.packing == DPX_PACKED;
  /* Rows of 8 and 16-bit samples end on a word too, the padding said in
   * the header: ImageMagick reads such rows to the word, OpenImageIO skips
   * the padding the header states. */
  if (bits == 8 || bits == 16) {
    const uint64_t n = (uint64_t)image->width * (uint64_t)dpx_descriptor_channels(el->descriptor);
    el->line_padding = (uint32_t)((4 - n * (uint64_t)bits / 8 % 4) % 4);
  }
  return 1;
}

static int scan_write(void *data, int32_t line, void *in) {
  Dpx *d = (Dpx *)data;
  return kit_plane_store(&d->plane, d->ifd, line, (void **)in, kWho);
}

int imageWriteOpen(ORX_OBJECT *object) {
  dpx_keep_attributes(&object->info);
  if (object->info.image_count != 1)
    return kit_fail(ORX_E_UNSUPPORTED, "dpx: %s: a file holds one image, not %d",
                    object->info.handle, (int)object->info.image_count);
  DpxImage image;
  if (!plan(object, &image) || !kit_new_cell(object, 1)) return 0;
  Dpx *d = new_dpx(object);
  if (d == NULL) return 0;
  d->image = image;
  const int bits = image.element[0].coding.bits;
  KitLayout layout = kit_layout_of(d->ifd);
  for (int g = 0; g < 2; ++g) {
    layout.type[g] = bits == 32 ? ORX_C_FLOAT : bits == 64 ? ORX_C_DOUBLE : ORX_C_INTEGER;
    layout.bits[g] = bits;
  }
  if (layout.count[1] > 1) layout.count[1] = 1;
  layout.count[2] = 0;
  if (kit_plane_init(&d->plane, &layout, d->ifd->window, d->ifd->active,
                     KIT_PLANE_INTERLEAVED | KIT_PLANE_WRITE, kWho, d->path) != 0 ||
      !kit_claim(kWho, d->path, &d->created))
    return release(object);
  object->scan = scan_write;
  object->close = close_object;
  return 1;
}

/* Grey and matte pixels as RGBA ones, the grey repeated in R, G and B. */
static void grey_to_rgba(const unsigned char *in, unsigned char *out, size_t width, size_t size) {
  for (size_t x = 0; x < width; ++x, in += 2 * size, out += 4 * size) {
    for (int k = 0; k < 3; ++k) memcpy(out + (size_t)k * size, in, size);
    memcpy(out + 3 * size, in + size, size);
  }
}

/* Writes the header and the rows; 0 or a negative status. */
static int encode(ORX_OBJECT *object, Dpx *d) {
  kit_plane_complete(&d->plane);
  DpxImage *image = &d->image;
  DpxElement *el = &image->element[0];
  const int channels = d->plane.channels;
  const int samples = dpx_descriptor_channels(el->descriptor);
  const size_t width = image->width;
  const uint64_t row_bytes =
      dpx_row_bytes(&el->coding, (uint64_t)width * (uint64_t)samples) + el->line_padding;
  el->offset = DPX_HEADER_SIZE;
  const uint64_t size = DPX_HEADER_SIZE + row_bytes * image->height;
  if (size > UINT32_MAX || row_bytes == 0) {
    kit_fail(ORX_E_UNSUPPORTED, "dpx: %s: the image needs more than the 4 GB a file can hold",
             d->path);
    return ORX_E_UNSUPPORTED;
  }
  unsigned char header[DPX_HEADER_SIZE];
  if (!dpx_format(header, &object->info, image, (uint32_t)size)) return ORX_E_NO_MEMORY;
  const size_t sample = (size_t)dpx_sample_size(el->coding.bits);
  unsigned char *row = (unsigned char *)kit_allocate((size_t)row_bytes);
  unsigned char *rgba =
      samples != channels ? (unsigned char *)kit_allocate(width * 4 * sample) : NULL;
  if (row == NULL || (samples != channels && rgba == NULL)) {
    ERR_free(row);
    return ORX_E_NO_MEMORY;
  }
  memset(row, 0, (size_t)row_bytes);
  FILE *file = fopen(d->path, "wb");
  int ok = file != NULL && fwrite(header, 1, sizeof header, file) == sizeof header;
  for (int32_t r = 0; ok && r < (int32_t)image->height; ++r) {
    const unsigned char *pixels = kit_plane_pixels(&d->plane, r);
    if (rgba != NULL) {
      grey_to_rgba(pixels, rgba, width, sample);
      pixels = rgba;
    }
    dpx_pack(&el->coding, pixels, row, width * (size_t)samples);
    ok = fwrite(row, 1, (size_t)row_bytes, file) == row_bytes;
  }
  ERR_free(row);
  ERR_free(rgba);
  if (file != NULL && fclose(file) != 0) ok = 0;
  if (!ok) {
    kit_fail(ORX_E_WRITE, "dpx: cannot write %s", d->path);
    return ORX_E_WRITE;
  }
  return 0;
}

static int close_object(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  int status = 0;
  Dpx *d = object->private_cell != NULL ? (Dpx *)object->private_cell[0] : NULL;
  if (d != NULL && object->access == ORX_ACCESS_WRITE) {
    status = encode(object, d);
    if (status != 0) kit_release(d->path, d->created);
  }
  release(object);
  orx__free_obj(object);
  return status;
}
