/* Writing SGI files: grey, grey with alpha, RGB and RGBA at 8 or 16 bits,
 * run-length encoded unless the "compression" setting asks for "none".
 * Auxiliary channels follow an RGBA picture as channels 5 on (which
 * readers take as extra channels); any other layout has no place for
 * them, and they are dropped, as are mattes after the first.  Widths of
 * more than 8 bits are stored in 16, floating point as 16-bit integers.
 * The image description goes in the header's name field (79 bytes). */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orx/err.h"
#include "plugin_kit.h"
#include "sgi_plugin.h"

/* An open file being written. */
typedef struct SgiOut {
  const char *path;
  const ORX_IFD *ifd;
  KitPlane plane;
  FILE *file;
  int created;
  int storage;
  int bpc;
  uint32_t depth;
  int32_t pixmin, pixmax;
  char name[kSgiNameBytes];
} SgiOut;

static void put16(unsigned char *b, uint32_t v) {
  b[0] = (unsigned char)(v >> 8);
  b[1] = (unsigned char)v;
}
static void put32(unsigned char *b, uint32_t v) {
  put16(b, v >> 16);
  put16(b + 2, v);
}

static int release(ORX_OBJECT *object) {
  SgiOut *s = object->private_cell != NULL ? (SgiOut *)object->private_cell[0] : NULL;
  if (s == NULL) return 0;
  object->private_cell[0] = NULL;
  if (s->file != NULL) fclose(s->file);
  kit_plane_free(&s->plane);
  ERR_free(s);
  return 0;
}

/* Sample x of a plane row of bpc-byte samples (host order). */
static unsigned sample(const unsigned char *row, uint32_t x, int bpc) {
  if (bpc == 1) return row[x];
  uint16_t v;
  memcpy(&v, row + 2 * (size_t)x, 2);
  return v;
}

static size_t emit(unsigned char *out, size_t at, unsigned value, int bpc) {
  if (bpc == 1) {
    out[at] = (unsigned char)value;
  } else {
    put16(out + at, value);
  }
  return at + (size_t)bpc;
}

/* Run-length encodes n samples into out (room for n + n / 127 + 2 items):
 * three or more equal samples make a run, anything else goes verbatim, 127
 * samples at most to a piece, and a zero item ends the scanline.  The bytes
 * written. */
static size_t compress_line(const unsigned char *row, uint32_t n, int bpc, unsigned char *out) {
  size_t at = 0;
  uint32_t x = 0;
  while (x < n) {
    uint32_t start = x;
    while (x < n && !(x + 2 < n && sample(row, x, bpc) == sample(row, x + 1, bpc) &&
                      sample(row, x, bpc) == sample(row, x + 2, bpc)))
      ++x;
    while (start < x) {
      const uint32_t count = x - start < 127 ? x - start : 127;
      at = emit(out, at, 0x80 | count, bpc);
      if (bpc == 1) {
        memcpy(out + at, row + start, count);
        at += count;
      } else {
        for (uint32_t k = 0; k < count; ++k) at = emit(out, at, sample(row, start + k, 2), 2);
      }
      start += count;
    }
    if (x < n) {
      const unsigned value = sample(row, x, bpc);
      start = x;
      while (x < n && x - start < 127 && sample(row, x, bpc) == value) ++x;
      at = emit(out, at, x - start, bpc);
      at = emit(out, at, value, bpc);
    }
  }
  return emit(out, at, 0, bpc);
}

static void header(const SgiOut *s, unsigned char *h) {
  const uint32_t width = (uint32_t)kit_plane_width(&s->plane);
  const uint32_t height = (uint32_t)kit_plane_height(&s->plane);
  memset(h, 0, kSgiHeader);
  put16(h, kSgiMagic);
  h[2] = (unsigned char)s->storage;
  h[3] = (unsigned char)s->bpc;
  put16(h + 4, s->depth > 1 ? 3 : 2);
  put16(h + 6, width);
  put16(h + 8, height);
  put16(h + 10, s->depth);
  put32(h + 12, (uint32_t)s->pixmin);
  put32(h + 16, (uint32_t)s->pixmax);
  memcpy(h + 24, s->name, kSgiNameBytes);
}

/* Writes the scanlines, channel after channel from the bottom; 1, or 0
 * when a write failed. */
static int write_lines(SgiOut *s) {
  const uint32_t width = (uint32_t)kit_plane_width(&s->plane);
  const uint32_t height = (uint32_t)kit_plane_height(&s->plane);
  const size_t lines = (size_t)height * s->depth;
  const size_t room = ((size_t)width + width / 127 + 2) * (size_t)s->bpc;
  unsigned char *buffer = (unsigned char *)malloc(s->storage == kSgiRle ? room : (size_t)width * 2);
  unsigned char *tables = s->storage == kSgiRle ? (unsigned char *)malloc(lines * 8) : NULL;
  int ok = buffer != NULL && (s->storage != kSgiRle || tables != NULL);
  uint64_t at = kSgiHeader + (s->storage == kSgiRle ? (uint64_t)lines * 8 : 0);
  if (ok && s->storage == kSgiRle) ok = fseek(s->file, (long)at, SEEK_SET) == 0;
  for (uint32_t z = 0; ok && z < s->depth; ++z)
    for (uint32_t y = 0; ok && y < height; ++y) {
      const unsigned char *row = kit_plane_at(&s->plane, (int32_t)(height - 1 - y), (int32_t)z);
      if (s->storage == kSgiRle) {
        const size_t n = compress_line(row, width, s->bpc, buffer);
        const size_t k = (size_t)z * height + y;
        ok = at + n <= UINT32_MAX && fwrite(buffer, 1, n, s->file) == n;
        put32(tables + 4 * k, (uint32_t)at);
        put32(tables + 4 * (lines + k), (uint32_t)n);
        at += n;
      } else if (s->bpc == 1) {
        ok = fwrite(row, 1, width, s->file) == width;
      } else {
        for (uint32_t x = 0; x < width; ++x) put16(buffer + 2 * (size_t)x, sample(row, x, 2));
        ok = fwrite(buffer, 2, width, s->file) == width;
      }
    }
  if (ok && tables != NULL)
    ok = fseek(s->file, kSgiHeader, SEEK_SET) == 0 && fwrite(tables, 8, lines, s->file) == lines;
  free(buffer);
  free(tables);
  return ok;
}

static int encode(SgiOut *s) {
  kit_plane_complete(&s->plane);
  unsigned char h[kSgiHeader];
  header(s, h);
  s->file = fopen(s->path, "wb");
  int ok = s->file != NULL && fwrite(h, 1, kSgiHeader, s->file) == kSgiHeader && write_lines(s);
  if (s->file != NULL && fclose(s->file) != 0) ok = 0;
  s->file = NULL;
  if (!ok) {
    kit_fail(ORX_E_WRITE, "sgi: cannot write %s", s->path);
    return ORX_E_WRITE;
  }
  return 0;
}

static int scan_write(void *data, int32_t line, void *in) {
  SgiOut *s = (SgiOut *)data;
  return kit_plane_store(&s->plane, s->ifd, line, (void **)in, sgi_who);
}

static int close_write(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  SgiOut *s = object->private_cell != NULL ? (SgiOut *)object->private_cell[0] : NULL;
  int status = 0;
  if (s != NULL) {
    status = encode(s);
    if (status != 0) kit_release(s->path, s->created);
  }
  release(object);
  orx__free_obj(object);
  return status;
}

/* The layout the file stores and the notes of what it loses; 0 after a
 * report. */
static int plan(ORX_OBJECT *object, KitLayout *layout, int *bpc) {
  const ORX_IFD *ifd = &object->info.images[0];
  const char *path = object->info.handle;
  *layout = kit_layout_of(ifd);
  if (layout->count[0] != 1 && layout->count[0] != 3)
    return kit_fail(ORX_E_UNSUPPORTED, "sgi: %s: cannot store %d image channels (1 or 3)", path,
                    (int)layout->count[0]);
  const int32_t width = ifd->window.right - ifd->window.left + 1;
  const int32_t height = ifd->window.top - ifd->window.bottom + 1;
  if (width > 65535 || height > 65535)
    return kit_fail(ORX_E_UNSUPPORTED, "sgi: %s: %d x %d pixels is more than 65535 a side", path,
                    (int)width, (int)height);
  if (layout->count[1] > 1 && !kit_narrowed(object, 0, "mattes after the first dropped")) return 0;
  if (layout->count[1] > 1) layout->count[1] = 1;
  const int keep_aux = layout->count[0] == 3 && layout->count[1] == 1 && ifd->matte.count == 1;
  if (layout->count[2] > 0 && !keep_aux &&
      !kit_narrowed(object, 0, "auxiliary channels dropped (only an RGBA picture holds more)"))
    return 0;
  if (!keep_aux) layout->count[2] = 0;
  if (!kit_window_at_origin(object, 0)) return 0;
  int widest = 0, floating = 0;
  for (int g = 0; g < 3; ++g) {
    if (layout->count[g] <= 0) continue;
    if (layout->type[g] != ORX_C_INTEGER) floating = 1;
    else if (layout->bits[g] > widest) widest = layout->bits[g];
  }
  if (floating && !kit_narrowed(object, 0, "floating-point samples stored as 16-bit integers"))
    return 0;
  if (widest > 16 && !kit_narrowed(object, 0, "%d-bit samples stored in 16 bits", widest))
    return 0;
  *bpc = floating || widest > 8 ? 2 : 1;
  for (int g = 0; g < 3; ++g) {
    layout->type[g] = ORX_C_INTEGER;
    layout->bits[g] = 8 * *bpc;
  }
  return 1;
}

/* The header's name from the image description, and the sample range. */
static int take_header(ORX_OBJECT *object, SgiOut *s) {
  ORX_INFO *info = &object->info;
  const ORX_ATTR *a = ORX_attr_find(info, 0, "ImageDescription");
  const char *text = a != NULL && a->type == ORX_ATTR_STRING ? (const char *)a->data : info->desc;
  if (kit_has_text(text)) {
    size_t n = strlen(text);
    if (n >= kSgiNameBytes) {
      n = kSgiNameBytes - 1;
      while (n > 0 && ((unsigned char)text[n] & 0xc0) == 0x80) --n;  /* whole characters */
      if (!kit_narrowed(object, 0, "image description cut to %d bytes", (int)n)) return 0;
    }
    memcpy(s->name, text, n);
  }
  const int32_t top = s->bpc == 1 ? 255 : 65535;
  s->pixmin = 0;
  s->pixmax = top;
  int32_t low = 0, high = top;
  if (ORX_attr_get_int(info, 0, "sgi:pixmin", &low) && ORX_attr_get_int(info, 0, "sgi:pixmax", &high) &&
      low >= 0 && low <= high && high <= top) {
    s->pixmin = low;
    s->pixmax = high;
  }
  return 1;
}

int imageWriteOpen(ORX_OBJECT *object) {
  static const char *const kept[] = {"ImageDescription", "sgi:", NULL};
  ORX_attr_keep(&object->info, kept);
  if (object->info.image_count != 1)
    return kit_fail(ORX_E_UNSUPPORTED, "sgi: %s: a file holds one image, not %d",
                    object->info.handle, (int)object->info.image_count);
  KitLayout layout;
  int bpc = 1;
  if (!plan(object, &layout, &bpc) || !kit_new_cell(object, 1)) return 0;
  SgiOut *s = (SgiOut *)kit_allocate(sizeof(SgiOut));
  if (s == NULL) return 0;
  memset(s, 0, sizeof *s);
  object->private_cell[0] = s;
  s->path = object->info.handle;
  s->ifd = &object->info.images[0];
  s->bpc = bpc;
  s->depth = (uint32_t)kit_layout_channels(&layout);
  s->storage = kit_setting_int(object, kSgiCapCompression, sgi_compression.default_value);
  if (s->storage != kSgiVerbatim && s->storage != kSgiRle) s->storage = kSgiRle;
  if (!take_header(object, s) ||
      kit_plane_init(&s->plane, &layout, s->ifd->window, s->ifd->window, KIT_PLANE_WRITE, sgi_who,
                     s->path) != 0 ||
      !kit_claim(sgi_who, s->path, &s->created))
    return release(object);
  object->scan = scan_write;
  object->close = close_write;
  return 1;
}
