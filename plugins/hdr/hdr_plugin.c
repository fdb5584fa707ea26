/* Radiance pictures (.hdr, .pic, .rgbe): RGBE or XYZE pixels, flat or
 * run-length encoded, read as three 32-bit float channels and written as
 * run-length encoded RGBE.  Read as OpenImageIO reads them: the pixels as
 * stored, the resolution string as the "Orientation" attribute (the
 * pixels stay in the file's order), EXPOSURE as "hdr:exposure" without
 * scaling the pixels (the product of the lines, where Radiance's tools
 * multiply them), GAMMA g as a gamma of 1 / g (the exponent the values were
 * encoded with, as PNG's gAMA; no GAMMA: linear).  Beyond OpenImageIO,
 * which leaves them: PRIMARIES as the chromaticities (Radiance's own
 * without it; XYZ's for an XYZE file, whose pixels stay X, Y, Z),
 * PIXASPECT (a pixel's height over its width) as the pixel aspect,
 * SOFTWARE, CAPDATE and the comment lines as the program, date and
 * description.  All of it is written back. */
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "hdr_header.h"
#include "hdr_rle.h"
#include "orx/err.h"
#include "orx/plugin.h"
#include "plugin_kit.h"

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "hdr";
const char *imageExtension = ".hdr";
const char *imageName = "Radiance HDR";
const char *imageDescription = "Radiance RGBE/XYZE pictures: 32-bit float RGB";
const char *imageNameSyntax = "Name.####.hdr";
int imageOrientation = 0; /* scanlines are stored top first */
int imageNumberOfChannels = 3;
int imageBitsPerChannel = -1;
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_WRITE | ORX_ACCESS_RANDOM;

/* Setting: scanlines run-length encoded (the default) or flat. */
enum { kCapCompression = 0 };
static ORX_CAP_LIST_ENTRY kCompressions[] = {
    {0, "none", 0, NULL}, {1, "rle", 0, NULL}, {0, NULL, 0, NULL}};
static ORX_CAP_LIST kCompression = {1, 0, kCompressions};
static ORX_CAP_ENTRY capabilities[] = {
    {kCapCompression, "compression", 0, NULL, 0, &kCompression, 0},
};

void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second, int32_t *count) {
  *table = capabilities;
  *first = 1;
  *second = 0;
  *count = 1;
}

static const char kWho[] = "hdr";

typedef struct Hdr {
  FILE *file;
  const char *path;
  ORX_IFD *ifd;
  KitPlane plane;
  HdrHeader header;
  long data_at;    /* reading: where the pixels start */
  int decoded;
  int created;     /* writing: the open created the file */
  int rle;         /* writing: run-length encoded scanlines */
} Hdr;

static int release(ORX_OBJECT *object) {
  Hdr *h = object->private_cell != NULL ? (Hdr *)object->private_cell[0] : NULL;
  if (h == NULL) return 0;
  object->private_cell[0] = NULL;
  if (h->file != NULL) fclose(h->file);
  kit_plane_free(&h->plane);
  ERR_free(h);
  return 0;
}

static Hdr *new_hdr(ORX_OBJECT *object) {
  Hdr *h = (Hdr *)kit_allocate(sizeof(Hdr));
  if (h == NULL) return NULL;
  memset(h, 0, sizeof *h);
  h->path = object->info.handle;
  h->ifd = &object->info.images[0];
  object->private_cell[0] = h;
  return h;
}

/* --- Reading ------------------------------------------------------------- */

/* Decodes every scanline into the plane; 0 or a negative status. */
static int decode(void *data) {
  Hdr *h = (Hdr *)data;
  const int32_t width = h->header.width, height = h->header.height;
  long end = -1;
  if (fseek(h->file, 0, SEEK_END) == 0) end = ftell(h->file);
  if (end < h->data_at || fseek(h->file, h->data_at, SEEK_SET) != 0) {
    kit_fail(ORX_E_READ, "hdr: cannot read %s", h->path);
    return ORX_E_READ;
  }
  const size_t size = (size_t)(end - h->data_at);
  unsigned char *bytes = (unsigned char *)malloc(size + 1);
  unsigned char *rgbe = (unsigned char *)malloc(4 * (size_t)width);
  if (bytes == NULL || rgbe == NULL) {
    free(bytes);
    free(rgbe);
    kit_fail(ORX_E_NO_MEMORY, "hdr: %s: no memory for the pixels", h->path);
    return ORX_E_NO_MEMORY;
  }
  int status = 0;
  if (fread(bytes, 1, size, h->file) != size) {
    kit_fail(ORX_E_READ, "hdr: cannot read %s", h->path);
    status = ORX_E_READ;
  }
  HdrSource source = {bytes, bytes + size};
  for (int32_t r = 0; status == 0 && r < height; ++r) {
    const char *why = hdr_read_scanline(&source, rgbe, width);
    if (why != NULL) {
      kit_fail(ORX_E_READ, "hdr: %s: scanline %d of %d: %s", h->path, (int)r, (int)height, why);
      status = ORX_E_READ;
      break;
    }
    hdr_rgbe_to_floats(rgbe, width, (float *)kit_plane_at(&h->plane, r, 0),
                       (float *)kit_plane_at(&h->plane, r, 1),
                       (float *)kit_plane_at(&h->plane, r, 2));
  }
  free(bytes);
  free(rgbe);
  return status;
}

static int scan_read(void *data, int32_t line, void *out) {
  Hdr *h = (Hdr *)data;
  return kit_scan_decoded(&h->plane, &h->decoded, decode, data, line, out, kWho, h->path);
}

static int close_object(ORX_OBJECT *object, intptr_t argument);

/* The descriptor and the attributes from the header; 0 after a report. */
static int describe(ORX_OBJECT *object, Hdr *h) {
  const HdrHeader *hd = &h->header;
  ORX_IFD *ifd = h->ifd;
  ORX_INFO *info = &object->info;
  kit_describe_size(ifd, hd->width, hd->height, 1.0 / hd->pixaspect);
  const KitLayout layout = {{3, 0, 0}, {ORX_C_FLOAT, ORX_C_FLOAT, ORX_C_FLOAT}, {32, 32, 32}};
  kit_layout_apply(&layout, ifd);
  ifd->curve.gamma = hd->gamma > 0 ? (float)(1.0 / hd->gamma) : 1.0f;
  kit_set_chromaticities(info, hd->xyze            ? hdr_xyz_primaries
                               : hd->has_primaries ? hd->primaries
                                                   : hdr_radiance_primaries);
  if (!kit_save(&ifd->image.name, hd->xyze ? "xyz" : "rgb") ||
      !kit_save(&info->compression, "rle") ||
      (hd->software[0] != 0 && !kit_save(&info->program, hd->software)) ||
      (hd->date[0] != 0 && !kit_save(&info->date, hd->date)) ||
      (hd->comment[0] != 0 && !kit_save(&info->desc, hd->comment)) ||
      (hd->orientation > 1 && ORX_attr_set_int(info, 0, "Orientation", hd->orientation) != 0) ||
      (hd->exposure > 0 && ORX_attr_set_float(info, 0, "hdr:exposure", (float)hd->exposure) != 0))
    return kit_fail(ORX_E_NO_MEMORY, "hdr: no memory to read %s", h->path);
  return kit_plane_init(&h->plane, &layout, ifd->window, ifd->window, 0, kWho, h->path) == 0;
}

int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == NULL) return kit_fail(ORX_E_FIELD_MISSING, "hdr: no file name to read");
  if (!kit_new_images(object, 1)) return 0;
  Hdr *h = new_hdr(object);
  if (h == NULL) return 0;
  h->file = fopen(path, "rb");
  if (h->file == NULL) {
    release(object);
    return kit_fail(ORX_E_FIELD_MISSING, "hdr: cannot open %s", path);
  }
  const char *why = hdr_header_read(h->file, &h->header);
  h->data_at = ftell(h->file);
  long end = -1;
  if (why == NULL && fseek(h->file, 0, SEEK_END) == 0) end = ftell(h->file);
  /* Every scanline takes some bytes: a short file claiming a huge picture
   * is refused before its plane is allocated. */
  if (why == NULL && end >= h->data_at &&
      (uint64_t)h->header.height * hdr_least_scanline_bytes(h->header.width) >
          (uint64_t)(end - h->data_at)) {
    kit_fail(ORX_E_NOT_OUR_FILE,
             "hdr: %s: %ld x %ld pixels cannot come out of the %ld bytes left in the file "
             "(truncated or damaged)",
             path, (long)h->header.width, (long)h->header.height, end - h->data_at);
    return release(object);
  }
  if (why != NULL) {
    release(object);
    return kit_fail(ORX_E_NOT_OUR_FILE, "hdr: %s: %s", path, why);
  }
  if (!describe(object, h)) return release(object);
  object->scan = scan_read;
  object->close = close_object;
  return 1;
}

uint8_t imageIsFile(const char *name, FILE *stream) {
  char magic[10];
  const size_t n = kit_peek(name, stream, magic, sizeof magic);
  return (n >= 10 && memcmp(magic, "#?RADIANCE", 10) == 0) ||
         (n >= 6 && memcmp(magic, "#?RGBE", 6) == 0);
}

/* --- Writing ------------------------------------------------------------- */

/* What the file keeps of the host's header, attributes and descriptor. */
static void plan_header(ORX_OBJECT *object, Hdr *h) {
  const ORX_INFO *in = &object->info;
  HdrHeader *hd = &h->header;
  memset(hd, 0, sizeof *hd);
  hd->width = kit_plane_width(&h->plane);
  hd->height = kit_plane_height(&h->plane);
  int32_t orientation = 1;
  if (ORX_attr_get_int(in, 0, "Orientation", &orientation) && orientation >= 1 && orientation <= 8)
    hd->orientation = orientation;
  float exposure = 0.0f;
  if (ORX_attr_get_float(in, 0, "hdr:exposure", &exposure) && exposure > 0 && exposure != 1.0f)
    hd->exposure = exposure;
  const float gamma = h->ifd->curve.gamma;
  if (gamma > 0.0f && fabsf(gamma - 1.0f) > 1e-6f) hd->gamma = 1.0 / gamma;
  const double aspect = kit_pixel_aspect(h->ifd);
  hd->pixaspect = fabs(aspect - 1.0) > 1e-5 ? 1.0 / aspect : 1.0;
  /* XYZ primaries: the pixels are X, Y, Z, which the file can say. */
  const float *have[4] = {in->red, in->green, in->blue, in->white};
  int xyz = 1;
  for (int i = 0; i < 4; ++i) {
    hd->primaries[2 * i] = have[i][0];
    hd->primaries[2 * i + 1] = have[i][1];
    xyz &= fabsf(have[i][0] - hdr_xyz_primaries[2 * i]) < 1e-4f &&
           fabsf(have[i][1] - hdr_xyz_primaries[2 * i + 1]) < 1e-4f;
  }
  hd->xyze = xyz;
  hd->has_primaries = !xyz && kit_chromaticities_informative(in, hdr_radiance_primaries);
  char date[32];
  const char *when = kit_date_text(in->date, date, sizeof date);
  if (kit_has_text(in->program)) snprintf(hd->software, sizeof hd->software, "%s", in->program);
  if (kit_has_text(when)) snprintf(hd->date, sizeof hd->date, "%s", when);
  if (kit_has_text(in->desc)) snprintf(hd->comment, sizeof hd->comment, "%s", in->desc);
}

static int scan_write(void *data, int32_t line, void *in) {
  Hdr *h = (Hdr *)data;
  int32_t r;
  const int status = kit_plane_take(&h->plane, line, kWho, &r);
  if (status != 0 || r < 0) return status;
  /* Grey goes to all three channels; a matte and auxiliary channels come
   * after the image's and are not read. */
  void **rows = (void **)in;
  const ORX_CHANNELS *image = &h->ifd->image;
  const size_t left = (size_t)(h->plane.active.left - h->plane.window.left);
  for (int32_t c = 0; c < 3; ++c)
    kit_row_floats(image->type, image->bits, rows[image->count == 1 ? 0 : c], left,
                   (float *)kit_plane_at(&h->plane, r, c), kit_plane_width(&h->plane));
  return 0;
}

int imageWriteOpen(ORX_OBJECT *object) {
  static const char *const kept[] = {"Orientation", "hdr:exposure", NULL};
  ORX_attr_keep(&object->info, kept);
  const char *path = object->info.handle;
  if (object->info.image_count != 1)
    return kit_fail(ORX_E_UNSUPPORTED, "hdr: %s: a file holds one image, not %d", path,
                    (int)object->info.image_count);
  const ORX_IFD *ifd = &object->info.images[0];
  if (ifd->image.count != 1 && ifd->image.count != 3)
    return kit_fail(ORX_E_UNSUPPORTED, "hdr: %s: cannot store %d image channels (1 or 3)", path,
                    (int)ifd->image.count);
  if ((ifd->matte.count > 0 && !kit_narrowed(object, 0, "matte dropped")) ||
      (ifd->aux.count > 0 && !kit_narrowed(object, 0, "auxiliary channels dropped")) ||
      !kit_window_at_origin(object, 0))
    return 0;
  if (ifd->image.count == 1 && !kit_narrowed(object, 0, "grey stored as RGB")) return 0;
  if (!kit_new_cell(object, 1)) return 0;
  Hdr *h = new_hdr(object);
  if (h == NULL) return 0;
  h->rle = kit_setting_int(object, kCapCompression, 1) != 0;
  const KitLayout layout = {{3, 0, 0}, {ORX_C_FLOAT, ORX_C_FLOAT, ORX_C_FLOAT}, {32, 32, 32}};
  if (kit_plane_init(&h->plane, &layout, ifd->window, ifd->window, KIT_PLANE_WRITE, kWho, path) !=
          0 ||
      !kit_claim(kWho, path, &h->created))
    return release(object);
  plan_header(object, h);
  object->scan = scan_write;
  object->close = close_object;
  return 1;
}

/* Encodes the plane into the file; 0 or a negative status. */
static int encode(Hdr *h) {
  kit_plane_complete(&h->plane);
  const int32_t width = kit_plane_width(&h->plane), height = kit_plane_height(&h->plane);
  unsigned char *rgbe = (unsigned char *)malloc(4 * (size_t)width);
  unsigned char *out = (unsigned char *)malloc(hdr_encoded_bound(width));
  h->file = rgbe != NULL && out != NULL ? fopen(h->path, "wb") : NULL;
  int ok = h->file != NULL && hdr_header_write(h->file, &h->header);
  for (int32_t r = 0; ok && r < height; ++r) {
    hdr_floats_to_rgbe((const float *)kit_plane_at(&h->plane, r, 0),
                       (const float *)kit_plane_at(&h->plane, r, 1),
                       (const float *)kit_plane_at(&h->plane, r, 2), width, rgbe);
    const size_t n = hdr_encode_scanline(rgbe, width, h->rle, out);
    ok = fwrite(out, 1, n, h->file) == n;
  }
  free(rgbe);
  free(out);
  if (h->file != NULL) {
    ok &= fclose(h->file) == 0;
    h->file = NULL;
  }
  if (!ok) {
    kit_fail(ORX_E_WRITE, "hdr: cannot write %s", h->path);
    return ORX_E_WRITE;
  }
  return 0;
}

static int close_object(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  int status = 0;
  Hdr *h = object->private_cell != NULL ? (Hdr *)object->private_cell[0] : NULL;
  if (h != NULL && object->access == ORX_ACCESS_WRITE) {
    status = encode(h);
    if (status != 0) kit_release(h->path, h->created);
  }
  release(object);
  orx__free_obj(object);
  return status;
}
