/* Truevision Targa (TGA) files, read and written by the plug-in's own
 * codec: colour-mapped, true-colour and grey images, stored or run-length
 * encoded, of 8, 15, 16, 24 and 32 bits a pixel, with colour maps of 15,
 * 16, 24 and 32-bit entries.  Pixels are read into their place as the
 * descriptor's origin bits say (bottom-left by default), so the picture
 * comes out the right way up with no orientation to apply, as other
 * readers show it.  The TGA 2.0 extension area maps to the header texts
 * (author, comments, job, software, date), the pixel aspect, the gamma and
 * the alpha's meaning; the image ID is `targa:ImageID`, the job time
 * `targa:JobTime`.  Which alpha is coverage follows OpenImageIO: a 32-bit
 * pixel's fourth byte always, multiplied into the colour (truncating)
 * unless the file says it is premultiplied, or unless, without an
 * extension area, every alpha is zero; 16-bit pixels' alpha bit and
 * colour-map alpha are not read.  16-bit grey is grey with a matte (which
 * OpenImageIO reads as two plain channels). */
#include <stdlib.h>
#include <string.h>

#include "orx/err.h"
#include "orx/plugin.h"
#include "plugin_kit.h"
#include "raster8.h"
#include "targa.h"

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "targa";
const char *imageExtension = ".tga";
const char *imageName = "Targa";
const char *imageDescription =
    "Truevision Targa: colour-mapped, 15/16/24/32-bit and grey, stored or run-length";
const char *imageNameSyntax = "Name.####.tga";
int imageOrientation = 0;
int imageNumberOfChannels = 3;
int imageBitsPerChannel = 1 << 7;
int imageNumberOfMattes = 1;
int imageBitsPerMatte = 1 << 7;
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_WRITE | ORX_ACCESS_RANDOM;

/* Settings: run-length packets or none (the default, as OpenImageIO and
 * ImageMagick write), and "unassociated alpha" (colour handed over and
 * stored straight, as the file holds it). */
static ORX_CAP_LIST_ENTRY compressions[] = {
    {0, "none", 0, NULL}, {1, "rle", 0, NULL}, {0, NULL, 0, NULL}};
static ORX_CAP_LIST compression = {0, 0, compressions};
static ORX_CAP_ENTRY capabilities[] = {
    {kTgaCapCompression, "compression", 0, NULL, 0, &compression, 0},
    {kTgaCapUnassociated, "unassociated alpha", 0, NULL, 1, NULL, 0},
};

void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second, int32_t *count) {
  *table = capabilities;
  *first = 2;
  *second = 0;
  *count = 2;
}

static int release(ORX_OBJECT *object) {
  Tga *t = object->private_cell != NULL ? (Tga *)object->private_cell[0] : NULL;
  if (t == NULL) return 0;
  object->private_cell[0] = NULL;
  if (t->file != NULL) fclose(t->file);
  kit_plane_free(&t->plane);
  free(t->map);
  free(t->valid);
  ERR_free(t);
  return 0;
}

static Tga *new_tga(ORX_OBJECT *object) {
  Tga *t = (Tga *)kit_allocate(sizeof(Tga));
  if (t == NULL) return NULL;
  memset(t, 0, sizeof *t);
  t->path = object->info.handle;
  t->ifd = &object->info.images[0];
  t->alpha_type = -1;
  object->private_cell[0] = t;
  return t;
}

static int close_object(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  int status = 0;
  Tga *t = object->private_cell != NULL ? (Tga *)object->private_cell[0] : NULL;
  if (t != NULL && t->writing) {
    status = tga_encode(object, t);
    if (t->file != NULL) fclose(t->file);
    t->file = NULL;
    if (status != 0) kit_release(t->path, t->created);
  }
  release(object);
  orx__free_obj(object);
  return status;
}

/* --- Reading ------------------------------------------------------------- */

/* The header's fields. */
typedef struct Header {
  int id_length, map_type, type, map_first, map_length, map_bits;
  int width, height, bits, descriptor;
} Header;

static Header parse_header(const unsigned char *h) {
  Header d = {h[0], h[1], h[2], (int)r8_le16(h + 3), (int)r8_le16(h + 5), h[7],
              (int)r8_le16(h + 12), (int)r8_le16(h + 14), h[16], h[17]};
  return d;
}

/* What a header's image type and depth store; 0 for what no Targa file
 * holds. */
static int pixels_of(const Header *h, TgaPixels *pixels) {
  const int kind = h->type & 7, bits = h->bits;
  if (h->type != kind && h->type != kind + 8) return 0;
  if (kind == 1 && h->map_type == 1 && (bits == 8 || bits == 16) &&
      (h->map_bits == 15 || h->map_bits == 16 || h->map_bits == 24 || h->map_bits == 32))
    *pixels = bits == 8 ? TGA_INDEX8 : TGA_INDEX16;
  else if (kind == 2 && (bits == 15 || bits == 16))
    *pixels = TGA_BGR15;
  else if (kind == 2 && (bits == 24 || bits == 32))
    *pixels = bits == 24 ? TGA_BGR24 : TGA_BGRA32;
  else if (kind == 3 && (bits == 8 || bits == 16))
    *pixels = bits == 8 ? TGA_GREY : TGA_GREY_ALPHA;
  else
    return 0;
  return h->width > 0 && h->height > 0 && h->map_type <= 1;
}

/* Whether the footer of a file of `size` bytes names TGA 2.0, and its
 * extension area's offset (0: none). */
static int footer(FILE *file, long size, long *extension) {
  unsigned char f[kTgaFooter];
  *extension = 0;
  if (size < kTgaHeader + kTgaFooter || fseek(file, size - kTgaFooter, SEEK_SET) != 0 ||
      fread(f, 1, kTgaFooter, file) != kTgaFooter ||
      memcmp(f + 8, "TRUEVISION-XFILE.\0", 18) != 0)
    return 0;
  *extension = (long)r8_le32(f);
  return 1;
}

/* The colour map, expanded to RGB for every index a pixel can hold. */
static int read_map(Tga *t, const Header *h, long at) {
  const int entry = (h->map_bits + 7) / 8;
  const size_t n = (size_t)h->map_length * (size_t)entry;
  t->map_size = t->pixels == TGA_INDEX8 ? 256 : 65536;
  t->map = (unsigned char *)calloc((size_t)t->map_size, 3);
  t->valid = (unsigned char *)calloc((size_t)t->map_size, 1);
  if (t->map == NULL || t->valid == NULL)
    return kit_fail(ORX_E_NO_MEMORY, "targa: %s: no memory for the colour map", t->path);
  unsigned char *bytes = r8_load(t->file, at, n, "targa", t->path);
  if (bytes == NULL) return 0;
  for (int i = 0; i < h->map_length && h->map_first + i < t->map_size; ++i) {
    const unsigned char *e = bytes + (size_t)i * (size_t)entry;
    unsigned char *rgb = t->map + 3 * (size_t)(h->map_first + i);
    if (entry == 2) {
      const uint32_t v = r8_le16(e);
      rgb[0] = r8_widen(v >> 10 & 31, 5);
      rgb[1] = r8_widen(v >> 5 & 31, 5);
      rgb[2] = r8_widen(v & 31, 5);
    } else {
      rgb[0] = e[2];
      rgb[1] = e[1];
      rgb[2] = e[0];
    }
    t->valid[h->map_first + i] = 1;
  }
  free(bytes);
  return 1;
}

/* A text field of at most n bytes, up to its first NUL, with trailing
 * spaces removed, into out (n + 1 bytes). */
static const char *field_text(const unsigned char *field, size_t n, char *out) {
  size_t k = 0;
  while (k < n && field[k] != 0) ++k;
  while (k > 0 && field[k - 1] == ' ') --k;
  memcpy(out, field, k);
  out[k] = 0;
  return out;
}

/* A text of the file (Latin-1 unless it is UTF-8) as a header text. */
static int take_text(char **to, const char *text) {
  if (text[0] == 0) return 1;
  if (kit_is_utf8(text)) return kit_save(to, text);
  char *utf8 = kit_latin1_to_utf8(text);
  const int taken = utf8 != NULL && kit_save(to, utf8);
  free(utf8);
  return taken;
}

/* The extension area: header texts, date, job time, pixel aspect, gamma
 * and the attributes type.  *aspect receives the pixel aspect. */
static int describe_extension(ORX_OBJECT *object, Tga *t, const unsigned char *e, double *aspect) {
  ORX_INFO *info = &object->info;
  char text[330];
  if (!take_text(&info->user, field_text(e + 2, 41, text))) return 0;
  /* Four lines of comments, 80 characters each, up to the last one used. */
  char comments[4 * 82 + 1] = "";
  size_t used = 0;
  for (int line = 0; line < 4; ++line) {
    strcat(comments, field_text(e + 43 + 81 * line, 81, text));
    if (text[0] != 0) used = strlen(comments);
    strcat(comments, "\n");
  }
  comments[used] = 0;
  if (!take_text(&info->desc, comments)) return 0;
  const unsigned char *stamp = e + 367;
  const int month = (int)r8_le16(stamp), day = (int)r8_le16(stamp + 2),
            year = (int)r8_le16(stamp + 4);
  if (month > 0 || day > 0 || year > 0) {
    snprintf(text, sizeof text, "%04d:%02d:%02d %02d:%02d:%02d", year, month, day,
             (int)r8_le16(stamp + 6), (int)r8_le16(stamp + 8), (int)r8_le16(stamp + 10));
    if (!kit_save(&info->date, text)) return 0;
  }
  if (!take_text(&info->name, field_text(e + 379, 41, text))) return 0;
  const unsigned char *job = e + 420;
  if ((r8_le16(job) | r8_le16(job + 2) | r8_le16(job + 4)) != 0) {
    snprintf(text, sizeof text, "%u:%02u:%02u", (unsigned)r8_le16(job), (unsigned)r8_le16(job + 2),
             (unsigned)r8_le16(job + 4));
    if (ORX_attr_set_string(info, 0, "targa:JobTime", text) != 0) return 0;
  }
  /* The software's name, then its version (hundredths, shown as whole
   * and hundredths apart: 20407 is "204.7") and letter, as OpenImageIO
   * shows them. */
  field_text(e + 426, 41, text);
  const unsigned number = (unsigned)r8_le16(e + 467);
  const char letter = (char)e[469];
  if (text[0] != 0 && number != 0) {
    const size_t k = strlen(text);
    snprintf(text + k, sizeof text - k, " %u.%u%c", number / 100, number % 100,
             letter > ' ' ? letter : 0);
  }
  if (!take_text(&info->program, text)) return 0;
  const uint32_t an = r8_le16(e + 474), ad = r8_le16(e + 476);
  if (an > 0 && ad > 0) *aspect = (double)an / ad;
  const uint32_t gn = r8_le16(e + 478), gd = r8_le16(e + 480);
  if (gn > 0 && gd > 0) t->ifd->curve.gamma = (float)((double)gn / gd);
  t->alpha_type = e[494];
  return t->alpha_type == 0 || ORX_attr_set_int(info, 0, "targa:alpha_type", t->alpha_type) == 0;
}

/* The descriptor, colour map and metadata of the file; 0 after a report. */
static int describe(ORX_OBJECT *object, Tga *t) {
  unsigned char head[kTgaHeader];
  const long size = r8_file_size(t->file);
  if (size < kTgaHeader || fread(head, 1, kTgaHeader, t->file) != kTgaHeader)
    return kit_fail(ORX_E_NOT_OUR_FILE, "targa: %s is too short for a Targa file", t->path);
  const Header h = parse_header(head);
  if (!pixels_of(&h, &t->pixels))
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    "targa: %s: image type %d of %d bits a pixel (colour map type %d, %d-bit "
                    "entries) is not a Targa image",
                    t->path, h.type, h.bits, h.map_type, h.map_bits);
  t->rle = h.type >= 8;
  t->bytes = (h.bits + 7) / 8;
  t->flip_y = (h.descriptor & 0x20) == 0;
  t->flip_x = (h.descriptor & 0x10) != 0;
  const long map_at = kTgaHeader + h.id_length;
  const long map_bytes = h.map_type == 1 ? (long)h.map_length * ((h.map_bits + 7) / 8) : 0;
  t->data_at = map_at + map_bytes;
  /* A TGA 2.0 file's extension area (one that does not fit is ignored),
   * which the pixels end before when it follows them. */
  long extension = 0;
  unsigned char e[kTgaExtension];
  const int version2 = footer(t->file, size, &extension);
  t->data_end = version2 ? size - kTgaFooter : size;
  const int extended = version2 && extension >= kTgaHeader &&
                       extension + kTgaExtension <= t->data_end &&
                       fseek(t->file, extension, SEEK_SET) == 0 &&
                       fread(e, 1, kTgaExtension, t->file) == kTgaExtension &&
                       r8_le16(e) >= kTgaExtension;
  if (extended && extension >= t->data_at) t->data_end = extension;
  /* The pixels must fit in what follows them: stored ones byte for byte, a
   * packet of 1 + `bytes` bytes gives at most 128. */
  const uint64_t pixels = (uint64_t)h.width * (uint64_t)h.height;
  const uint64_t room = t->data_end > t->data_at ? (uint64_t)(t->data_end - t->data_at) : 0;
  if (t->rle ? pixels > room / (uint64_t)(1 + t->bytes) * 128 + 128 : pixels * t->bytes > room)
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    "targa: %s: %d x %d pixels cannot come out of the %llu bytes left in the file "
                    "(truncated or damaged)",
                    t->path, h.width, h.height, (unsigned long long)room);
  ORX_INFO *info = &object->info;
  if (h.id_length > 0) {
    unsigned char id[256];
    char text[256];
    if (fseek(t->file, kTgaHeader, SEEK_SET) != 0 ||
        fread(id, 1, (size_t)h.id_length, t->file) != (size_t)h.id_length)
      return kit_fail(ORX_E_NOT_OUR_FILE, "targa: %s: the image ID ends early", t->path);
    field_text(id, (size_t)h.id_length, text);
    char *utf8 = kit_is_utf8(text) ? NULL : kit_latin1_to_utf8(text);
    const int set = text[0] == 0 ||
                    ORX_attr_set_string(info, 0, "targa:ImageID", utf8 != NULL ? utf8 : text) == 0;
    free(utf8);
    if (!set) return 0;
  }
  if ((t->pixels == TGA_INDEX8 || t->pixels == TGA_INDEX16) && !read_map(t, &h, map_at)) return 0;
  double aspect = 1.0;
  if (extended && !describe_extension(object, t, e, &aspect)) return 0;
  kit_describe_size(t->ifd, h.width, h.height, aspect);
  const int alpha = t->pixels == TGA_BGRA32 || t->pixels == TGA_GREY_ALPHA;
  const int grey = t->pixels == TGA_GREY || t->pixels == TGA_GREY_ALPHA;
  KitLayout layout = {{grey ? 1 : 3, alpha, 0},
                      {ORX_C_INTEGER, ORX_C_INTEGER, ORX_C_INTEGER},
                      {8, 8, 8}};
  kit_layout_apply(&layout, t->ifd);
  if (!kit_save(&t->ifd->image.name, grey ? "grey" : "rgb")) return 0;
  if (t->rle && !kit_save(&info->compression, "rle")) return 0;
  ORX_WINDOW window = t->ifd->window;
  return kit_plane_init(&t->plane, &layout, window, window, 0, "targa", t->path) == 0;
}

static int scan_read(void *data, int32_t line, void *out) {
  Tga *t = (Tga *)data;
  return kit_scan_decoded(&t->plane, &t->decoded, tga_decode, data, line, out, "targa", t->path);
}

int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == NULL) return kit_fail(ORX_E_FIELD_MISSING, "targa: no file name to read");
  if (!kit_new_images(object, 1)) return 0;
  Tga *t = new_tga(object);
  if (t == NULL) return 0;
  t->file = fopen(path, "rb");
  if (t->file == NULL) {
    release(object);
    return kit_fail(ORX_E_FIELD_MISSING, "targa: cannot open %s", path);
  }
  t->straight = kit_setting_int(object, kTgaCapUnassociated, 0) != 0;
  if (!describe(object, t)) return release(object);
  object->scan = scan_read;
  object->close = close_object;
  return 1;
}

/* Targa files have no signature: a TGA 2.0 footer, or a header that
 * describes a Targa image in a file named as one. */
uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char head[kTgaHeader];
  if (kit_peek(name, stream, head, kTgaHeader) != kTgaHeader) return 0;
  const Header h = parse_header(head);
  TgaPixels pixels;
  if (!pixels_of(&h, &pixels)) return 0;
  const char *dot = name != NULL ? strrchr(name, '.') : NULL;
  if (dot != NULL && (strcmp(dot, ".tga") == 0 || strcmp(dot, ".TGA") == 0 ||
                      strcmp(dot, ".tpic") == 0 || strcmp(dot, ".TPIC") == 0))
    return 1;
  FILE *file = stream != NULL ? stream : name != NULL ? fopen(name, "rb") : NULL;
  if (file == NULL) return 0;
  long extension;
  const int yes = footer(file, r8_file_size(file), &extension);
  if (stream == NULL) fclose(file);
  else rewind(stream);
  return (uint8_t)yes;
}

int imageWriteOpen(ORX_OBJECT *object) {
  if (object->info.image_count != 1)
    return kit_fail(ORX_E_UNSUPPORTED, "targa: %s: a file holds one image, not %d",
                    object->info.handle, (int)object->info.image_count);
  if (!kit_new_cell(object, 1)) return 0;
  Tga *t = new_tga(object);
  if (t == NULL) return 0;
  t->writing = 1;
  if (!tga_write_open(object, t)) return release(object);
  object->close = close_object;
  return 1;
}
