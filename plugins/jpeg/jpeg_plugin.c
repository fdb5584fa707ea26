/* JPEG files through libjpeg(-turbo): 8-bit grey and RGB (YCbCr files read
 * as RGB, CMYK and YCCK files converted to RGB, Adobe's inverted CMYK
 * included).  The comment marker carries the description; the JFIF
 * densities carry the pixel aspect and the resolution, both ways.  Writing
 * takes the quality and the chroma subsampling from the capability
 * settings; deeper or floating-point samples are stored in 8 bits, and
 * mattes and auxiliary channels, which JPEG has no place for, are left out
 * (the colour as it stands: over black), each said as narrowed.  libjpeg
 * reports errors through an error manager that longjmps back to the
 * caller's setjmp. */
#include <math.h>
#include <setjmp.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
/* After stdio.h, which it needs. */
#include <jpeglib.h>

#include "orx/err.h"
#include "orx/plugin.h"
#include "plugin_kit.h"

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "jpeg";
const char *imageExtension = ".jpg";
const char *imageName = "JPEG";
const char *imageDescription = "JPEG (JFIF): 8-bit grey and RGB (CMYK read as RGB), lossy";
const char *imageNameSyntax = "Name.####.jpg";
int imageOrientation = 0;
int imageNumberOfChannels = 3;
int imageBitsPerChannel = 1 << 7;
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_WRITE | ORX_ACCESS_RANDOM;

/* Settings: the quality, 1 (smallest) to 100 (best), and the chroma
 * subsampling of colour files, by the horizontal and vertical factors of
 * the luma (4:2:0, libjpeg's and most writers' default, halves colour both
 * ways; 4:4:4 keeps it whole, for previews that must not smear edges). */
enum { kCapQuality = 0, kCapSubsampling = 1, kDefaultQuality = 90 };
static ORX_CAP_LIST_ENTRY subsamplings[] = {
    {0x22, "4:2:0", 0, NULL},
    {0x21, "4:2:2", 0, NULL},
    {0x11, "4:4:4", 0, NULL},
    {0, NULL, 0, NULL},
};
static ORX_CAP_LIST subsampling = {0x22, 0, subsamplings};
static ORX_CAP_ENTRY capabilities[] = {
    {kCapQuality, "quality", 0, NULL, 1, NULL, 0},
    {kCapSubsampling, "subsampling", 0, NULL, 0, &subsampling, 0},
};

void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second, int32_t *count) {
  *table = capabilities;
  *first = 2;
  *second = 0;
  *count = 2;
}

static const char kWho[] = "jpeg";

/* libjpeg's error manager with the way back, the last message and the
 * file's name. */
typedef struct Errors {
  struct jpeg_error_mgr base;
  jmp_buf back;
  char message[JMSG_LENGTH_MAX];
  const char *path;
} Errors;

static void on_error(j_common_ptr cinfo) {
  Errors *e = (Errors *)cinfo->err;
  (*cinfo->err->format_message)(cinfo, e->message);
  longjmp(e->back, 1);
}

/* libjpeg's warnings (the first of a file) say what damage it worked
 * around: a file cut short, whose missing part it fills, or corrupt data.
 * The image still reads, so the host is warned. */
static void on_message(j_common_ptr cinfo) {
  char message[JMSG_LENGTH_MAX];
  (*cinfo->err->format_message)(cinfo, message);
  kit_warn("jpeg: %s: %s (read as libjpeg recovers it)", ((Errors *)cinfo->err)->path, message);
}

typedef struct Jpeg {
  struct jpeg_decompress_struct in;
  struct jpeg_compress_struct out;
  Errors errors;
  FILE *file;
  const char *path;
  ORX_IFD *ifd;
  KitPlane plane;
  int writing;
  int started;   /* the codec struct was created */
  int decoded;   /* reading: 1 once the plane holds the image, or a status */
  int created;   /* writing: the open created the file */
  int quality;
  int subsampling; /* the luma's sampling factors, horizontal * 16 + vertical */
  int cmyk;      /* reading: CMYK or YCCK samples, converted to RGB */
  int inverted;  /* reading: CMYK stored as 255 - ink (Adobe's files) */
} Jpeg;

/* Frees the private data of the object's one image; returns 0, the open
 * functions' failure value. */
static int release(ORX_OBJECT *object) {
  Jpeg *j = object->private_cell != NULL ? (Jpeg *)object->private_cell[0] : NULL;
  if (j == NULL) return 0;
  object->private_cell[0] = NULL;
  if (j->started) {
    if (j->writing) jpeg_destroy_compress(&j->out);
    else jpeg_destroy_decompress(&j->in);
  }
  if (j->file != NULL) fclose(j->file);
  kit_plane_free(&j->plane);
  ERR_free(j);
  return 0;
}

static Jpeg *new_jpeg(ORX_OBJECT *object) {
  Jpeg *j = (Jpeg *)ERR_malloc(sizeof(Jpeg));
  if (j == NULL) {
    orx__set_err(ORX_E_NO_MEMORY);
    return NULL;
  }
  memset(j, 0, sizeof *j);
  j->path = object->info.handle;
  j->ifd = &object->info.images[0];
  object->private_cell[0] = j;
  return j;
}

static int close_object(ORX_OBJECT *object, intptr_t argument);

/* --- Reading ------------------------------------------------------------- */

/* CMYK to RGB in place, n pixels: red is (1 - C)(1 - K) and so on, rounded;
 * an inverted file stores 1 - C and 1 - K, so its red is C K. */
static void cmyk_to_rgb(JSAMPLE *row, int32_t n, int inverted) {
  for (int32_t x = 0; x < n; ++x) {
    const JSAMPLE *in = row + 4 * (size_t)x;
    JSAMPLE *out = row + 3 * (size_t)x;
    const unsigned k = inverted ? in[3] : 255u - in[3];
    unsigned rgb[3];
    for (int c = 0; c < 3; ++c) rgb[c] = ((inverted ? in[c] : 255u - in[c]) * k + 127u) / 255u;
    for (int c = 0; c < 3; ++c) out[c] = (JSAMPLE)rgb[c];
  }
}

static int decode(void *data) {
  Jpeg *j = (Jpeg *)data;
  JSAMPLE *volatile row = NULL;
  if (setjmp(j->errors.back)) {
    free(row);
    kit_fail(ORX_E_READ, "jpeg: cannot read %s: %s", j->path, j->errors.message);
    return ORX_E_READ;
  }
  jpeg_start_decompress(&j->in);
  const int32_t width = kit_plane_width(&j->plane);
  const int components = j->cmyk ? 4 : j->plane.channels;
  if ((int32_t)j->in.output_width != width || j->in.output_components != components) {
    kit_fail(ORX_E_UNDECODABLE, "jpeg: %s: unexpected decoded layout", j->path);
    return ORX_E_UNDECODABLE;
  }
  row = (JSAMPLE *)malloc((size_t)width * (size_t)components);
  if (row == NULL) {
    kit_fail(ORX_E_NO_MEMORY, "jpeg: %s: no memory for a row", j->path);
    return ORX_E_NO_MEMORY;
  }
  while (j->in.output_scanline < j->in.output_height) {
    JSAMPROW rows[1] = {row};
    const int32_t r = (int32_t)j->in.output_scanline;
    jpeg_read_scanlines(&j->in, rows, 1);
    if (j->cmyk) cmyk_to_rgb(row, width, j->inverted);
    kit_plane_spread(&j->plane, r, row);
  }
  jpeg_finish_decompress(&j->in);
  free(row);
  row = NULL;
  return 0;
}

static int scan_read(void *data, int32_t line, void *out) {
  Jpeg *j = (Jpeg *)data;
  return kit_scan_decoded(&j->plane, &j->decoded, decode, data, line, out, kWho, j->path);
}

/* The ICC profile (APP2) and the EXIF orientation (APP1) as attributes.
 * The pixels stay as stored: the orientation tells a host how to show
 * them. */
static int describe_attributes(ORX_INFO *info, struct jpeg_decompress_struct *in) {
  JOCTET *profile = NULL;
  unsigned length = 0;
  if (jpeg_read_icc_profile(in, &profile, &length) && profile != NULL) {
    const int status = length <= INT32_MAX
                           ? ORX_attr_set(info, 0, "ICCProfile", ORX_ATTR_BYTES, (int32_t)length, profile)
                           : 0;
    free(profile);
    if (status != 0) return 0;
  }
  for (jpeg_saved_marker_ptr m = in->marker_list; m != NULL; m = m->next) {
    const int exif = m->marker == JPEG_APP0 + 1 && m->data_length > 6 &&
                     memcmp(m->data, "Exif\0\0", 6) == 0;
    const int orientation = exif ? kit_exif_orientation(m->data + 6, m->data_length - 6) : 0;
    /* 1, top row first and left to right, is what a file without it means. */
    if (orientation > 1) return ORX_attr_set_int(info, 0, "Orientation", orientation) == 0;
  }
  return 1;
}

/* The descriptor and header from the markers before the pixels. */
static int describe(ORX_OBJECT *object, Jpeg *j) {
  struct jpeg_decompress_struct *in = &j->in;
  /* libjpeg turns YCCK into CMYK, which is converted to RGB row by row. */
  j->cmyk = in->jpeg_color_space == JCS_CMYK || in->jpeg_color_space == JCS_YCCK;
  j->inverted = j->cmyk && in->saw_Adobe_marker;
  const int grey = in->num_components == 1;
  in->out_color_space = j->cmyk ? JCS_CMYK : grey ? JCS_GRAYSCALE : JCS_RGB;
  KitLayout layout = {{grey ? 1 : 3, 0, 0}, {ORX_C_INTEGER, ORX_C_INTEGER, ORX_C_INTEGER},
                      {8, 8, 8}};
  double pixel_aspect = 1.0;
  if (in->saw_JFIF_marker && in->X_density > 0 && in->Y_density > 0)
    pixel_aspect = (double)in->Y_density / in->X_density;
  kit_describe_size(j->ifd, (int32_t)in->image_width, (int32_t)in->image_height, pixel_aspect);
  /* JFIF density units: 1 dots per inch, 2 per centimetre, 0 none. */
  if (in->saw_JFIF_marker && in->X_density > 0 && in->Y_density > 0 &&
      (in->density_unit == 1 || in->density_unit == 2 || in->X_density != in->Y_density) &&
      !kit_set_resolution(&object->info, 0, in->X_density, in->Y_density,
                          in->density_unit == 2   ? KIT_CENTIMETRES
                          : in->density_unit == 1 ? KIT_INCHES
                                                  : KIT_UNIT_NONE))
    return 0;
  kit_layout_apply(&layout, j->ifd);
  if (!kit_save(&j->ifd->image.name, grey ? "grey" : "rgb")) return 0;
  for (jpeg_saved_marker_ptr m = in->marker_list; m != NULL; m = m->next) {
    if (m->marker != JPEG_COM) continue;
    char *text = (char *)malloc(m->data_length + 1);
    if (text == NULL) continue;
    memcpy(text, m->data, m->data_length);
    text[m->data_length] = '\0';
    /* A comment has no set encoding: UTF-8 when it reads as UTF-8, else
     * Latin-1, as older writers stored it. */
    char *utf8 = kit_is_utf8(text) ? NULL : kit_latin1_to_utf8(text);
    const int saved = kit_save(&object->info.desc, utf8 != NULL ? utf8 : text);
    free(utf8);
    free(text);
    if (!saved) return 0;
  }
  /* A JPEG says nothing of its primaries: it is sRGB by convention. */
  kit_set_chromaticities(&object->info, kit_rec709);
  if (!describe_attributes(&object->info, in)) return 0;
  if (!kit_save(&object->info.compression, "jpeg")) return 0;
  return kit_plane_init(&j->plane, &layout, j->ifd->window, j->ifd->window, 0, kWho, j->path) ==
         0;
}

int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == NULL) return kit_fail(ORX_E_FIELD_MISSING, "jpeg: no file name to read");
  if (!kit_new_images(object, 1)) return 0;
  Jpeg *j = new_jpeg(object);
  if (j == NULL) return 0;
  j->file = fopen(path, "rb");
  if (j->file == NULL) {
    release(object);
    return kit_fail(ORX_E_FIELD_MISSING, "jpeg: cannot open %s", path);
  }
  j->in.err = jpeg_std_error(&j->errors.base);
  j->errors.base.error_exit = on_error;
  j->errors.base.output_message = on_message;
  j->errors.path = j->path;
  if (setjmp(j->errors.back)) {
    kit_fail(ORX_E_NOT_OUR_FILE, "jpeg: cannot read %s: %s", path, j->errors.message);
    return release(object);
  }
  jpeg_create_decompress(&j->in);
  j->started = 1;
  jpeg_stdio_src(&j->in, j->file);
  jpeg_save_markers(&j->in, JPEG_COM, 0xffff);
  jpeg_save_markers(&j->in, JPEG_APP0 + 1, 0xffff); /* EXIF */
  jpeg_save_markers(&j->in, JPEG_APP0 + 2, 0xffff); /* ICC profile */
  jpeg_read_header(&j->in, TRUE);
  if (!describe(object, j)) {
    return release(object);
  }
  object->scan = scan_read;
  object->close = close_object;
  return 1;
}

uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char head[3];
  return kit_peek(name, stream, head, 3) == 3 && head[0] == 0xff && head[1] == 0xd8 &&
         head[2] == 0xff;
}

/* --- Writing ------------------------------------------------------------- */

static int scan_write(void *data, int32_t line, void *in) {
  Jpeg *j = (Jpeg *)data;
  return kit_plane_store(&j->plane, j->ifd, line, (void **)in, kWho);
}

int imageWriteOpen(ORX_OBJECT *object) {
  kit_keep_picture_attributes(&object->info);
  const char *path = object->info.handle;
  if (object->info.image_count != 1)
    return kit_fail(ORX_E_UNSUPPORTED, "jpeg: %s: a file holds one image, not %d", path,
                    (int)object->info.image_count);
  const ORX_IFD *ifd = &object->info.images[0];
  if (ifd->image.count != 1 && ifd->image.count != 3)
    return kit_fail(ORX_E_UNSUPPORTED, "jpeg: %s: cannot store %d image channels (1 or 3)", path,
                    (int)ifd->image.count);
  if (ifd->matte.count > 0 && !kit_narrowed(object, 0, "matte dropped")) return 0;
  if (ifd->aux.count > 0 && !kit_narrowed(object, 0, "auxiliary channels dropped")) return 0;
  if (!kit_window_at_origin(object, 0)) return 0;
  if (ifd->image.type != ORX_C_INTEGER || ifd->image.bits > 8)
    if (!kit_narrowed(object, 0, "samples stored in 8 bits")) return 0;
  if (!kit_new_cell(object, 1)) return 0;
  Jpeg *j = new_jpeg(object);
  if (j == NULL) return 0;
  j->writing = 1;
  j->quality = kit_setting_int(object, kCapQuality, kDefaultQuality);
  if (j->quality < 1 || j->quality > 100) j->quality = kDefaultQuality;
  j->subsampling = kit_setting_int(object, kCapSubsampling, subsampling.default_value);
  if (j->subsampling != 0x21 && j->subsampling != 0x11) j->subsampling = 0x22;
  KitLayout layout = kit_layout_of(j->ifd);
  layout.type[0] = ORX_C_INTEGER;
  layout.bits[0] = 8;
  layout.count[1] = layout.count[2] = 0; /* the image channels come first in a host's rows */
  if (kit_plane_init(&j->plane, &layout, j->ifd->window, j->ifd->window,
                     KIT_PLANE_INTERLEAVED | KIT_PLANE_WRITE, kWho, path) != 0 ||
      !kit_claim(kWho, path, &j->created)) {
    return release(object);
  }
  object->scan = scan_write;
  object->close = close_object;
  return 1;
}

/* The orientation as a minimal EXIF block (IFD0 holding tag 274 alone)
 * and the ICC profile, both as the host gave them. */
static void write_attributes(const ORX_INFO *info, struct jpeg_compress_struct *out) {
  int32_t orientation = 0;
  if (ORX_attr_get_int(info, 0, "Orientation", &orientation) && orientation > 1 &&
      orientation <= 8) {
    JOCTET exif[6 + KIT_EXIF_BLOCK] = {'E', 'x', 'i', 'f', 0, 0};
    kit_exif_orientation_block(orientation, exif + 6);
    jpeg_write_marker(out, JPEG_APP0 + 1, exif, sizeof exif);
  }
  const ORX_ATTR *profile = ORX_attr_find(info, 0, "ICCProfile");
  if (profile != NULL && profile->type == ORX_ATTR_BYTES)
    jpeg_write_icc_profile(out, (const JOCTET *)profile->data, (unsigned)profile->count);
}

static int encode(ORX_OBJECT *object, Jpeg *j) {
  kit_plane_complete(&j->plane);
  j->file = fopen(j->path, "wb");
  if (j->file == NULL) {
    kit_fail(ORX_E_WRITE, "jpeg: cannot write %s", j->path);
    return ORX_E_WRITE;
  }
  j->out.err = jpeg_std_error(&j->errors.base);
  j->errors.base.error_exit = on_error;
  j->errors.base.output_message = on_message;
  j->errors.path = j->path;
  if (setjmp(j->errors.back)) {
    kit_fail(ORX_E_WRITE, "jpeg: cannot write %s: %s", j->path, j->errors.message);
    return ORX_E_WRITE;
  }
  jpeg_create_compress(&j->out);
  j->started = 1;
  jpeg_stdio_dest(&j->out, j->file);
  j->out.image_width = (JDIMENSION)kit_plane_width(&j->plane);
  j->out.image_height = (JDIMENSION)kit_plane_height(&j->plane);
  j->out.input_components = j->plane.channels;
  j->out.in_color_space = j->plane.channels == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(&j->out);
  jpeg_set_quality(&j->out, j->quality, TRUE);
  if (j->out.num_components == 3) {
    j->out.comp_info[0].h_samp_factor = j->subsampling >> 4;
    j->out.comp_info[0].v_samp_factor = j->subsampling & 15;
  }
  /* The print resolution as the JFIF densities; else a pixel aspect other
   * than square, in no unit. */
  const double pixel_aspect = kit_pixel_aspect(j->ifd);
  double dx = 0.0, dy = 0.0;
  int unit = KIT_INCHES;
  if (kit_resolution(&object->info, 0, pixel_aspect, &dx, &dy, &unit)) {
    j->out.density_unit = (UINT8)(unit == KIT_CENTIMETRES ? 2 : unit == KIT_UNIT_NONE ? 0 : 1);
    j->out.X_density = (UINT16)fmax(1.0, fmin(floor(dx + 0.5), 65535.0));
    j->out.Y_density = (UINT16)fmax(1.0, fmin(floor(dy + 0.5), 65535.0));
  } else if (fabs(pixel_aspect - 1.0) > 1e-5) {
    uint32_t x = 1, y = 1;
    kit_aspect_densities(pixel_aspect, 65535, &x, &y);
    j->out.density_unit = 0;
    j->out.X_density = (UINT16)x;
    j->out.Y_density = (UINT16)y;
  }
  jpeg_start_compress(&j->out, TRUE);
  write_attributes(&object->info, &j->out);
  const char *desc = object->info.desc;
  if (kit_has_text(desc))
    jpeg_write_marker(&j->out, JPEG_COM, (const JOCTET *)desc,
                      (unsigned)(strlen(desc) < 65533 ? strlen(desc) : 65533));
  /* libjpeg reads the rows without changing them. */
  while (j->out.next_scanline < j->out.image_height) {
    JSAMPROW rows[1] = {(JSAMPROW)kit_plane_pixels(&j->plane, (int32_t)j->out.next_scanline)};
    jpeg_write_scanlines(&j->out, rows, 1);
  }
  jpeg_finish_compress(&j->out);
  const int closed = fclose(j->file);
  j->file = NULL;
  if (closed != 0) {
    kit_fail(ORX_E_WRITE, "jpeg: cannot complete %s", j->path);
    return ORX_E_WRITE;
  }
  return 0;
}

static int close_object(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  int status = 0;
  Jpeg *j = object->private_cell != NULL ? (Jpeg *)object->private_cell[0] : NULL;
  if (j != NULL && j->writing) {
    status = encode(object, j);
    if (status != 0) {
      if (j->file != NULL) fclose(j->file);
      j->file = NULL;
      kit_release(j->path, j->created);
    }
  }
  release(object);
  orx__free_obj(object);
  return status;
}
