/* Targa pixels into the plane: stored rows (or run-length packets, whose
 * runs may cross from one row into the next, as real files have them) are
 * unpacked a row at a time into 8-bit samples and put where the origin bits
 * say the row belongs, top row first, left to right, as other readers show
 * them.  A 32-bit file's straight colour is then multiplied by its alpha. */
#include <stdlib.h>
#include <string.h>

#include "orx/err.h"
#include "raster8.h"
#include "targa.h"

/* The run-length state, kept from one row to the next. */
typedef struct Packets {
  const unsigned char *at, *end;
  int left;              /* pixels left in the current packet */
  int run;               /* the packet repeats one pixel */
  unsigned char pixel[4];
} Packets;

/* One row of n stored pixels of `bytes` bytes into raw; 0 when the data
 * ends first. */
static int next_row(Packets *p, int rle, int bytes, int n, unsigned char *raw) {
  const size_t size = (size_t)bytes;
  if (!rle) {
    if ((size_t)(p->end - p->at) < size * (size_t)n) return 0;
    memcpy(raw, p->at, size * (size_t)n);
    p->at += size * (size_t)n;
    return 1;
  }
  for (int x = 0; x < n;) {
    if (p->left == 0) {
      if (p->at >= p->end) return 0;
      const unsigned char head = *p->at++;
      p->left = (head & 0x7f) + 1;
      p->run = (head & 0x80) != 0;
      if (p->run) {
        if ((size_t)(p->end - p->at) < size) return 0;
        memcpy(p->pixel, p->at, size);
        p->at += size;
      }
    }
    const int k = p->left < n - x ? p->left : n - x;
    if (p->run) {
      for (int i = 0; i < k; ++i) memcpy(raw + (size_t)(x + i) * size, p->pixel, size);
    } else {
      if ((size_t)(p->end - p->at) < size * (size_t)k) return 0;
      memcpy(raw + (size_t)x * size, p->at, size * (size_t)k);
      p->at += size * (size_t)k;
    }
    x += k;
    p->left -= k;
  }
  return 1;
}

/* Stored pixels into 8-bit samples, in the plane's channel order; the
 * number of colour map indices outside the map. */
static long unpack(const Tga *t, const unsigned char *raw, int n, unsigned char *out) {
  long outside = 0;
  switch (t->pixels) {
    case TGA_GREY:
    case TGA_GREY_ALPHA:
      memcpy(out, raw, (size_t)n * (size_t)t->bytes);
      break;
    case TGA_BGR15:
      for (int x = 0; x < n; ++x, out += 3) {
        const uint32_t v = r8_le16(raw + 2 * x);
        out[0] = r8_widen(v >> 10 & 31, 5);
        out[1] = r8_widen(v >> 5 & 31, 5);
        out[2] = r8_widen(v & 31, 5);
      }
      break;
    case TGA_BGR24:
      for (int x = 0; x < n; ++x, out += 3, raw += 3) {
        out[0] = raw[2];
        out[1] = raw[1];
        out[2] = raw[0];
      }
      break;
    case TGA_BGRA32:
      for (int x = 0; x < n; ++x, out += 4, raw += 4) {
        out[0] = raw[2];
        out[1] = raw[1];
        out[2] = raw[0];
        out[3] = raw[3];
      }
      break;
    case TGA_INDEX8:
    case TGA_INDEX16:
      for (int x = 0; x < n; ++x, out += 3) {
        const uint32_t i = t->pixels == TGA_INDEX8 ? raw[x] : r8_le16(raw + 2 * x);
        outside += !t->valid[i];
        memcpy(out, t->map + 3 * (size_t)i, 3);
      }
      break;
  }
  return outside;
}

/* Reverses the order of n pixels of `size` bytes. */
static void mirror(unsigned char *row, int n, int size) {
  unsigned char swap[4];
  for (int a = 0, b = n - 1; a < b; ++a, --b) {
    memcpy(swap, row + (size_t)a * size, (size_t)size);
    memcpy(row + (size_t)a * size, row + (size_t)b * size, (size_t)size);
    memcpy(row + (size_t)b * size, swap, (size_t)size);
  }
}

int tga_decode(void *data) {
  Tga *t = (Tga *)data;
  const int32_t width = kit_plane_width(&t->plane), height = kit_plane_height(&t->plane);
  const size_t n = (size_t)(t->data_end - t->data_at);
  unsigned char *bytes = r8_load(t->file, t->data_at, n, "targa", t->path);
  if (bytes == NULL) return orx__err != 0 ? orx__err : ORX_E_READ;
  const size_t channels = (size_t)kit_layout_channels(&t->plane.layout);
  unsigned char *raw = (unsigned char *)malloc((size_t)width * (size_t)t->bytes);
  unsigned char *row = (unsigned char *)malloc((size_t)width * channels);
  if (raw == NULL || row == NULL) {
    free(bytes);
    free(raw);
    free(row);
    kit_fail(ORX_E_NO_MEMORY, "targa: %s: no memory for the decoding rows", t->path);
    return ORX_E_NO_MEMORY;
  }
  Packets p = {bytes, bytes + n, 0, 0, {0, 0, 0, 0}};
  long outside = 0;
  int32_t y = 0;
  for (; y < height && next_row(&p, t->rle, t->bytes, width, raw); ++y) {
    outside += unpack(t, raw, width, row);
    if (t->flip_x) mirror(row, width, (int)channels);
    kit_plane_spread(&t->plane, t->flip_y ? height - 1 - y : y, row);
  }
  const int overrun = t->rle && p.left > 0;
  free(bytes);
  free(raw);
  free(row);
  if (y < height) {
    kit_fail(ORX_E_READ, "targa: cannot read %s: the pixel data ends after %d of %d rows "
             "(truncated)", t->path, (int)y, (int)height);
    return ORX_E_READ;
  }
  if (outside > 0)
    kit_warn("targa: %s: %ld pixels index beyond the colour map (read as black)", t->path,
             outside);
  if (overrun)
    kit_warn("targa: %s: a run-length packet reaches past the last pixel (ignored)", t->path);
  /* Straight colour is associated, unless the file says it is
   * premultiplied (attributes type 4), or, without an extension area to
   * say what the fourth byte is, every alpha is zero: then it is no
   * coverage, and the colour is handed out as stored (as OpenImageIO
   * reads it). */
  if (t->plane.layout.count[1] > 0 && !t->straight && t->alpha_type != 4 &&
      (t->alpha_type >= 0 || r8_any_alpha(&t->plane)))
    for (int32_t r = 0; r < height; ++r) kit_plane_associate(&t->plane, r, KIT_ALPHA_TRUNCATE);
  return 0;
}
