/* Writing Targa files: 8-bit grey, 24-bit RGB or 32-bit RGBA (grey with a
 * matte as RGBA), stored or in run-length packets that end with each row,
 * then a TGA 2.0 extension area with the header texts, date, pixel aspect,
 * gamma and what the alpha means, and the footer.  Rows go out in the
 * image's own order with the origin its orientation gives (top-left unless
 * the Orientation attribute says the rows or columns run the other way),
 * so readers show the picture as the host meant it. */
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "orx/err.h"
#include "raster8.h"
#include "targa.h"

static int scan_write(void *data, int32_t line, void *in) {
  Tga *t = (Tga *)data;
  return kit_plane_store(&t->plane, t->ifd, line, (void **)in, "targa");
}

/* Keeps the attributes a Targa file carries: the image ID, job time and
 * alpha type (written from the pixels), and an orientation an origin can
 * say (1 to 4). */
static void keep_attributes(ORX_INFO *info) {
  static const char *const kept[] = {"targa:ImageID", "targa:JobTime", "targa:alpha_type",
                                     "Orientation", NULL};
  ORX_attr_keep(info, kept);
  int32_t orientation = 1;
  if (ORX_attr_find(info, 0, "Orientation") != NULL &&
      (!ORX_attr_get_int(info, 0, "Orientation", &orientation) || orientation < 1 ||
       orientation > 4))
    ORX_attr_remove(info, 0, "Orientation");
}

int tga_write_open(ORX_OBJECT *object, Tga *t) {
  keep_attributes(&object->info);
  KitLayout layout;
  if (!r8_plan(object, "targa", 65535, &layout)) return 0;
  t->compress = kit_setting_int(object, kTgaCapCompression, 0) == 1;
  t->straight = kit_setting_int(object, kTgaCapUnassociated, 0) != 0;
  int32_t orientation = 1;
  ORX_attr_get_int(&object->info, 0, "Orientation", &orientation);
  static const int origins[5] = {0x20, 0x20, 0x30, 0x10, 0x00};
  t->origin = origins[orientation >= 1 && orientation <= 4 ? orientation : 1];
  if (!r8_begin(object, "targa", &layout, &t->plane, &t->created)) return 0;
  object->scan = scan_write;
  return 1;
}

/* One row of n pixels of `size` bytes as run-length packets into out; the
 * bytes written (at most n * (size + 1)). */
static size_t pack_row(const unsigned char *row, int n, int size, unsigned char *out) {
  unsigned char *o = out;
  const size_t s = (size_t)size;
  for (int x = 0; x < n;) {
    int run = 1;
    while (x + run < n && run < 128 && memcmp(row + (size_t)(x + run) * s, row + (size_t)x * s, s) == 0)
      ++run;
    if (run > 1) {
      *o++ = (unsigned char)(0x80 | (run - 1));
      memcpy(o, row + (size_t)x * s, s);
      o += s;
      x += run;
      continue;
    }
    /* Stored pixels up to the next pair of equal ones. */
    int k = 1;
    while (x + k < n && k < 128 &&
           !(x + k + 1 < n &&
             memcmp(row + (size_t)(x + k) * s, row + (size_t)(x + k + 1) * s, s) == 0))
      ++k;
    *o++ = (unsigned char)(k - 1);
    memcpy(o, row + (size_t)x * s, s * (size_t)k);
    o += s * (size_t)k;
    x += k;
  }
  return (size_t)(o - out);
}

/* Copies text into a field of n bytes (n - 1 characters and a NUL). */
static void put_text(unsigned char *field, size_t n, const char *text) {
  if (!kit_has_text(text)) return;
  const size_t k = strlen(text);
  memcpy(field, text, k < n - 1 ? k : n - 1);
}

/* The software text as its name and a trailing version ("Painter 1.23b",
 * as readers show the two), so that a text read from a file goes back
 * into the same fields. */
static void put_software(unsigned char *e, const char *text) {
  if (!kit_has_text(text)) return;
  const char *space = strrchr(text, ' ');
  unsigned whole = 0, part = 0;
  int n = 0;
  char letter = ' ';
  if (space != NULL && (size_t)(space - text) < 41 &&
      sscanf(space + 1, "%u.%u%n", &whole, &part, &n) == 2 && part < 100 &&
      whole * 100 + part <= 0xffff && (space[1 + n] == 0 || space[2 + n] == 0)) {
    if (space[1 + n] != 0) letter = space[1 + n];
    memcpy(e + 426, text, (size_t)(space - text));
    r8_put16(e + 467, whole * 100 + part);
    e[469] = (unsigned char)letter;
    return;
  }
  put_text(e + 426, 41, text);
  e[469] = ' ';
}

/* The extension area of the written file. */
static void extension_area(ORX_OBJECT *object, Tga *t, unsigned char *e) {
  const ORX_INFO *in = &object->info;
  memset(e, 0, kTgaExtension);
  r8_put16(e, kTgaExtension);
  put_text(e + 2, 41, in->user);
  if (kit_has_text(in->desc)) {
    const char *line = in->desc;
    for (int k = 0; k < 4 && *line != 0; ++k) {
      const size_t n = strcspn(line, "\n");
      memcpy(e + 43 + 81 * k, line, n < 80 ? n : 80);
      line += n + (line[n] == '\n');
    }
  }
  char scratch[32];
  const char *date = kit_date_text(in->date, scratch, sizeof scratch);
  unsigned year, month, day, hour, minute, second;
  if (kit_has_text(date) && sscanf(date, "%u:%u:%u %u:%u:%u", &year, &month, &day, &hour, &minute,
                                   &second) == 6) {
    const unsigned stamp[6] = {month, day, year, hour, minute, second};
    for (int k = 0; k < 6; ++k) r8_put16(e + 367 + 2 * k, stamp[k] & 0xffff);
  }
  put_text(e + 379, 41, in->name);
  const char *job = ORX_attr_get_string(in, 0, "targa:JobTime");
  unsigned h, m, s;
  if (job != NULL && sscanf(job, "%u:%u:%u", &h, &m, &s) == 3) {
    r8_put16(e + 420, h & 0xffff);
    r8_put16(e + 422, m & 0xffff);
    r8_put16(e + 424, s & 0xffff);
  }
  put_software(e, in->program);
  const double aspect = kit_pixel_aspect(t->ifd);
  if (fabs(aspect - 1.0) > 1e-5) {
    uint32_t x = 1, y = 1;
    kit_aspect_densities(aspect, 65535, &x, &y);
    r8_put16(e + 474, y);
    r8_put16(e + 476, x);
  }
  /* No gamma stands for the usual 2.2, as in PNG. */
  const float gamma = t->ifd->curve.gamma;
  if (gamma > 0.0f && gamma != 2.2f && gamma < 65.0f) {
    r8_put16(e + 478, (uint32_t)floor(gamma * 1000.0 + 0.5));
    r8_put16(e + 480, 1000);
  }
  e[494] = t->plane.layout.count[1] == 0 ? 0 : t->associated ? 4 : 3;
}

/* Whether a colour sample of the plane lies above its alpha: light a
 * matte does not cover (a file's colour under zero alpha), which only
 * premultiplied colour can hold. */
static int colour_above_alpha(const KitPlane *plane) {
  const int32_t colours = plane->layout.count[0];
  const size_t size = (size_t)colours + 1;
  for (int32_t r = 0; r < kit_plane_height(plane); ++r) {
    const unsigned char *p = kit_plane_pixels(plane, r);
    for (int32_t x = 0; x < kit_plane_width(plane); ++x, p += size)
      for (int32_t c = 0; c < colours; ++c)
        if (p[c] > p[colours]) return 1;
  }
  return 0;
}

/* Writes the plane, the extension area and the footer; 0 or a status. */
int tga_encode(ORX_OBJECT *object, Tga *t) {
  KitPlane *plane = &t->plane;
  kit_plane_complete(plane);
  const int32_t width = kit_plane_width(plane), height = kit_plane_height(plane);
  const int grey = plane->layout.count[0] == 1, alpha = plane->layout.count[1] > 0;
  const int size = grey && !alpha ? 1 : alpha ? 4 : 3;
  const char *id = ORX_attr_get_string(&object->info, 0, "targa:ImageID");
  const size_t id_length = id != NULL ? strlen(id) < 255 ? strlen(id) : 255 : 0;
  unsigned char head[kTgaHeader] = {0};
  head[0] = (unsigned char)id_length;
  head[2] = (unsigned char)((grey && !alpha ? 3 : 2) + (t->compress ? 8 : 0));
  r8_put16(head + 12, (uint32_t)width);
  r8_put16(head + 14, (uint32_t)height);
  head[16] = (unsigned char)(8 * size);
  head[17] = (unsigned char)(t->origin | (alpha ? 8 : 0));
  /* Straight colour (type 3), as other writers store it, unless some of it
   * cannot be divided out (type 4, premultiplied). */
  t->associated = alpha && !t->straight && colour_above_alpha(plane);
  unsigned char *row = (unsigned char *)malloc((size_t)width * (size_t)size);
  unsigned char *packed = (unsigned char *)malloc((size_t)width * (size_t)(size + 1));
  t->file = row != NULL && packed != NULL ? fopen(t->path, "wb") : NULL;
  int ok = t->file != NULL && fwrite(head, 1, kTgaHeader, t->file) == kTgaHeader &&
           (id_length == 0 || fwrite(id, 1, id_length, t->file) == id_length);
  for (int32_t r = 0; ok && r < height; ++r) {
    if (alpha && !t->straight && !t->associated) kit_plane_dissociate(plane, r, KIT_ALPHA_TRUNCATE);
    const unsigned char *in = kit_plane_pixels(plane, r);
    unsigned char *o = row;
    if (grey && !alpha) memcpy(row, in, (size_t)width);
    else if (grey)
      for (int32_t x = 0; x < width; ++x, in += 2, o += 4) {
        o[0] = o[1] = o[2] = in[0];
        o[3] = in[1];
      }
    else
      for (int32_t x = 0; x < width; ++x, in += size, o += size) {
        o[0] = in[2];
        o[1] = in[1];
        o[2] = in[0];
        if (alpha) o[3] = in[3];
      }
    const size_t n = t->compress ? pack_row(row, width, size, packed) : (size_t)width * size;
    ok = fwrite(t->compress ? packed : row, 1, n, t->file) == n;
  }
  free(row);
  free(packed);
  unsigned char e[kTgaExtension], foot[kTgaFooter];
  const long at = ok ? ftell(t->file) : -1;
  extension_area(object, t, e);
  r8_put32(foot, (uint32_t)at);
  r8_put32(foot + 4, 0);
  memcpy(foot + 8, "TRUEVISION-XFILE.\0", 18);
  ok = ok && at > 0 && fwrite(e, 1, kTgaExtension, t->file) == kTgaExtension &&
       fwrite(foot, 1, kTgaFooter, t->file) == kTgaFooter;
  if (t->file != NULL && fclose(t->file) != 0) ok = 0;
  t->file = NULL;
  if (!ok) {
    kit_fail(ORX_E_WRITE, "targa: cannot write %s", t->path);
    return ORX_E_WRITE;
  }
  return 0;
}
