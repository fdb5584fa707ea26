/* Netpbm images (PBM, PGM, PPM, plain and raw, and PAM) and PFM, read and
 * written without a library.  Images that follow one another in a file
 * (as ImageMagick writes a sequence) are the file's images, in order.
 * Reading keeps the samples' width where the maxval is 2^n - 1 (1 to 16
 * bits), scales other maxvals as OpenImageIO does (pnm_read.c), reads
 * PFM as 32-bit float and PAM's straight alpha as the matte (associated
 * unless the host asks for "unassociated alpha").  OpenImageIO's
 * "pnm:binary" and "pnm:bigendian" are reported and honoured by the
 * writer, PFM's scale when it is not 1 as "pnm:scale", the header's
 * comments as the description; samples are Rec.709's, as Netpbm defines
 * them, PFM's linear.  The writer is pnm_write.c. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orx/err.h"
#include "pnm.h"

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "pnm";
const char *imageExtension = ".pnm";
const char *imageName = "Netpbm and PFM";
const char *imageDescription =
    "PBM, PGM, PPM (plain and raw, maxval 1-65535), PAM with alpha, PFM 32-bit float";
const char *imageNameSyntax = "Name.####.pnm";
int imageOrientation = 0; /* rows are stored top first (PFM's are turned over) */
int imageNumberOfChannels = 3;
int imageBitsPerChannel = -1;
int imageNumberOfMattes = 1;
int imageBitsPerMatte = 0xffff;
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_WRITE | ORX_ACCESS_RANDOM;

static ORX_CAP_LIST_ENTRY kEncodings[] = {
    {0, "binary", 0, NULL}, {1, "plain", 0, NULL}, {0, NULL, 0, NULL}};
static ORX_CAP_LIST kEncoding = {0, 0, kEncodings};
static ORX_CAP_ENTRY capabilities[] = {
    {PNM_CAP_ENCODING, "encoding", 0, NULL, 0, &kEncoding, 0},
    {PNM_CAP_UNASSOCIATED, "unassociated alpha", 0, NULL, 1, NULL, 0},
};

void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second, int32_t *count) {
  *table = capabilities;
  *first = 2;
  *second = 0;
  *count = 2;
}

static const char kWho[] = "pnm";
/* A file of more images than this is damaged, not a sequence. */
enum { kMostImages = 4096, kComment = 4096 };

/* One image of a file being read; image 0 owns the file's bytes. */
typedef struct PnmReader {
  PnmImage image;
  KitPlane plane;
  int decoded;
  int straight;
  const char *path;
  const unsigned char *bytes;
  unsigned char *owned;
} PnmReader;

static void release_readers(ORX_OBJECT *object) {
  for (int32_t i = 0; object->private_cell != NULL && i < object->info.image_count; ++i) {
    PnmReader *r = (PnmReader *)object->private_cell[i];
    object->private_cell[i] = NULL;
    if (r == NULL) continue;
    kit_plane_free(&r->plane);
    free(r->owned);
    ERR_free(r);
  }
}

static int decode(void *data) {
  PnmReader *r = (PnmReader *)data;
  const char *why = pnm_decode(&r->image, r->bytes, &r->plane, r->straight);
  if (why == NULL) return 0;
  const int32_t status = why == pnm_no_memory ? ORX_E_NO_MEMORY : ORX_E_READ;
  kit_fail(status, "pnm: cannot read %s: %s", r->path, why);
  return status;
}

static int scan_read(void *data, int32_t line, void *out) {
  PnmReader *r = (PnmReader *)data;
  return kit_scan_decoded(&r->plane, &r->decoded, decode, data, line, out, kWho, r->path);
}

static int close_object(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  int status = 0;
  if (object->access == ORX_ACCESS_WRITE) {
    status = pnm_encode(object);
    pnm_release_writer(object);
  } else {
    release_readers(object);
  }
  orx__free_obj(object);
  return status;
}

/* The whole file; NULL after a report. */
static unsigned char *slurp(const char *path, size_t *size) {
  FILE *file = fopen(path, "rb");
  if (file == NULL) {
    kit_fail(ORX_E_FIELD_MISSING, "pnm: cannot open %s", path);
    return NULL;
  }
  long end = -1;
  if (fseek(file, 0, SEEK_END) == 0) end = ftell(file);
  unsigned char *bytes = end >= 0 && fseek(file, 0, SEEK_SET) == 0 ? (unsigned char *)malloc((size_t)end + 1) : NULL;
  if (bytes == NULL || fread(bytes, 1, (size_t)end, file) != (size_t)end) {
    free(bytes);
    fclose(file);
    kit_fail(end < 0 ? ORX_E_READ : ORX_E_NO_MEMORY, "pnm: cannot read %s", path);
    return NULL;
  }
  fclose(file);
  *size = (size_t)end;
  return bytes;
}

/* Descriptor, attributes and plane of image i. */
static int describe(ORX_OBJECT *object, int32_t i, PnmReader *r) {
  const PnmImage *im = &r->image;
  ORX_IFD *ifd = &object->info.images[i];
  ORX_INFO *info = &object->info;
  const int floating = im->kind == 'F' || im->kind == 'f';
  kit_describe_size(ifd, im->width, im->height, 1.0);
  const KitLayout layout = pnm_layout(im);
  kit_layout_apply(&layout, ifd);
  if (floating) ifd->curve.gamma = 1.0f;
  if (!kit_save(&ifd->image.name, layout.count[0] == 3 ? "rgb" : "grey") ||
      ORX_attr_set_int(info, i, "pnm:binary", im->kind >= '4') != 0 ||
      (floating && ORX_attr_set_int(info, i, "pnm:bigendian", !im->little) != 0) ||
      (im->scale != 1.0f && ORX_attr_set_float(info, i, "pnm:scale", im->scale) != 0))
    return kit_fail(ORX_E_NO_MEMORY, "pnm: no memory to read %s", r->path);
  return kit_plane_init(&r->plane, &layout, ifd->window, ifd->window, 0, kWho, r->path) == 0;
}

int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == NULL) return kit_fail(ORX_E_FIELD_MISSING, "pnm: no file name to read");
  size_t size = 0;
  unsigned char *bytes = slurp(path, &size);
  if (bytes == NULL) return 0;
  PnmImage *images = NULL;
  int32_t count = 0;
  char comment[kComment];
  for (size_t at = 0; count < kMostImages;) {
    PnmImage im;
    const char *why = pnm_parse(bytes, size, at, &im, count == 0 ? comment : NULL, sizeof comment);
    if (why != NULL) {
      if (count == 0) {
        free(bytes);
        return kit_fail(ORX_E_NOT_OUR_FILE, "pnm: %s: %s", path, why);
      }
      kit_warn("pnm: %s: what follows image %d is not an image (%s): ignored", path, (int)count,
               why);
      break;
    }
    PnmImage *more = (PnmImage *)realloc(images, ((size_t)count + 1) * sizeof *images);
    if (more == NULL) break;
    images = more;
    images[count++] = im;
    at = im.end;
    if (pnm_only_space(bytes, size, at)) break;
  }
  if (images == NULL || !kit_new_images(object, count)) {
    free(images);
    free(bytes);
    return images == NULL ? kit_fail(ORX_E_NO_MEMORY, "pnm: no memory to read %s", path) : 0;
  }
  const int straight = kit_setting_int(object, PNM_CAP_UNASSOCIATED, 0) != 0;
  int ok = 1;
  for (int32_t i = 0; ok && i < count; ++i) {
    PnmReader *r = (PnmReader *)kit_allocate(sizeof(PnmReader));
    ok = r != NULL;
    if (!ok) break;
    memset(r, 0, sizeof *r);
    r->image = images[i];
    r->path = path;
    r->bytes = bytes;
    r->straight = straight;
    if (i == 0) r->owned = bytes;
    object->private_cell[i] = r;
    ok = describe(object, i, r);
  }
  free(images);
  if (ok) {
    kit_set_chromaticities(&object->info, kit_rec709);
    ok = (comment[0] == 0 || kit_save(&object->info.desc, comment)) &&
         kit_save(&object->info.compression, "none");
  }
  if (!ok) {
    if (object->private_cell[0] == NULL) free(bytes);
    release_readers(object);
    return 0;
  }
  object->scan = scan_read;
  object->close = close_object;
  return 1;
}

uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char magic[3];
  return kit_peek(name, stream, magic, 3) == 3 && magic[0] == 'P' &&
         strchr("1234567Ff", magic[1]) != NULL && magic[1] != 0 &&
         (magic[2] == ' ' || magic[2] == '\t' || magic[2] == '\n' || magic[2] == '\r' ||
          magic[2] == '#');
}

int imageWriteOpen(ORX_OBJECT *object) {
  if (!pnm_write_open(object)) {
    pnm_release_writer(object);
    return 0;
  }
  object->close = close_object;
  return 1;
}
