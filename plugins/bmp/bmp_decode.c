/* BMP pixels into the plane: stored rows of palette indices (1, 4, 8
 * bits), of 16 or 32-bit fields (BI_BITFIELDS masks, or 5-5-5 and BGRA
 * without them) or of BGR bytes, and RLE8 and RLE4 streams with their
 * end-of-line, end-of-bitmap and delta codes (pixels a delta or an early
 * end skips are index 0, as other readers leave them).  Rows go to their
 * place top first; straight alpha is multiplied into the colour, unless
 * every alpha is zero (a fourth byte that carries nothing). */
#include <stdlib.h>
#include <string.h>

#include "bmp.h"
#include "orx/err.h"
#include "raster8.h"

/* A mask's field: its lowest bit and its width. */
typedef struct Field {
  int shift, bits;
} Field;

static Field field_of(uint32_t mask) {
  Field f = {0, 0};
  if (mask == 0) return f;
  while ((mask >> f.shift & 1) == 0) ++f.shift;
  while (f.shift + f.bits < 32 && (mask >> (f.shift + f.bits) & 1) != 0) ++f.bits;
  return f;
}

/* What decoding met that readers work around. */
typedef struct Damage {
  long outside;  /* indices past the palette */
  long overrun;  /* run-length pixels past the end of their row or the image */
  int unended;   /* the run-length data ends without an end-of-bitmap */
} Damage;

/* Palette indices into 8-bit grey or RGB samples. */
static void expand(const Bmp *b, const unsigned char *index, int32_t n, int grey,
                   unsigned char *out, Damage *d) {
  for (int32_t x = 0; x < n; ++x) {
    d->outside += index[x] >= b->colours;
    if (grey) out[x] = b->palette[3 * index[x]];
    else memcpy(out + 3 * (size_t)x, b->palette + 3 * (size_t)index[x], 3);
  }
}

/* One stored row into samples (indices first where there is a palette). */
static void unpack(const Bmp *b, const unsigned char *src, int32_t n, unsigned char *index,
                   unsigned char *out, int channels, Damage *d) {
  if (b->bits <= 8) {
    const int per = 8 / b->bits, mask = (1 << b->bits) - 1;
    for (int32_t x = 0; x < n; ++x)
      index[x] = (unsigned char)(src[x / per] >> (8 - b->bits * (x % per + 1)) & mask);
    expand(b, index, n, channels == 1, out, d);
    return;
  }
  if (b->bits == 24) {
    for (int32_t x = 0; x < n; ++x, src += 3, out += 3) {
      out[0] = src[2];
      out[1] = src[1];
      out[2] = src[0];
    }
    return;
  }
  const int alpha = channels == 4;
  if (b->bits == 32 && b->masks[0] == 0xff0000u && b->masks[1] == 0xff00u && b->masks[2] == 0xffu &&
      (!alpha || b->masks[3] == 0xff000000u)) {
    for (int32_t x = 0; x < n; ++x, src += 4, out += channels) {
      out[0] = src[2];
      out[1] = src[1];
      out[2] = src[0];
      if (alpha) out[3] = src[3];
    }
    return;
  }
  Field f[4];
  for (int c = 0; c < 4; ++c) f[c] = field_of(b->masks[c]);
  for (int32_t x = 0; x < n; ++x, out += channels) {
    const uint32_t v = b->bits == 16 ? r8_le16(src + 2 * x) : r8_le32(src + 4 * x);
    for (int c = 0; c < channels; ++c)
      out[c] = f[c].bits > 0 ? r8_widen(v >> f[c].shift & (uint32_t)((1ull << f[c].bits) - 1),
                                        f[c].bits)
                             : 0;
  }
}

/* An RLE8 or RLE4 stream into width x height indices (file rows, bottom
 * first), which start at zero. */
static void run_length(const Bmp *b, const unsigned char *s, size_t n, int32_t width,
                       int32_t height, unsigned char *index, Damage *d) {
  const int four = b->compression == BMP_RLE4;
  int64_t x = 0, y = 0;
  size_t at = 0;
  for (;;) {
    if (at + 2 > n) {
      d->unended = 1;
      return;
    }
    const int count = s[at], code = s[at + 1];
    at += 2;
    if (count == 0 && code == 0) { /* end of line */
      x = 0;
      ++y;
      continue;
    }
    if (count == 0 && code == 1) return; /* end of bitmap */
    if (count == 0 && code == 2) {       /* delta */
      if (at + 2 > n) {
        d->unended = 1;
        return;
      }
      x += s[at];
      y += s[at + 1];
      at += 2;
      continue;
    }
    /* A run of `count` pixels, or `code` pixels stored absolutely (padded
     * to a whole number of 16-bit words). */
    const int absolute = count == 0;
    const int pixels = absolute ? code : count;
    const size_t bytes = absolute ? (four ? ((size_t)pixels + 3) / 4 * 2 : ((size_t)pixels + 1) / 2 * 2) : 0;
    if (absolute && at + bytes > n) {
      d->unended = 1;
      return;
    }
    for (int i = 0; i < pixels; ++i, ++x) {
      int v;
      if (absolute)
        v = four ? s[at + i / 2] >> (i % 2 ? 0 : 4) & 15 : s[at + i];
      else
        v = four ? code >> (i % 2 ? 0 : 4) & 15 : code;
      if (x >= width || y >= height) {
        ++d->overrun;
        continue;
      }
      index[(size_t)y * (size_t)width + (size_t)x] = (unsigned char)v;
    }
    at += bytes;
  }
}

int bmp_decode(void *data) {
  Bmp *b = (Bmp *)data;
  const int32_t width = kit_plane_width(&b->plane), height = kit_plane_height(&b->plane);
  const int channels = (int)kit_layout_channels(&b->plane.layout);
  const int rle = b->compression == BMP_RLE8 || b->compression == BMP_RLE4;
  const size_t stride = ((size_t)width * (size_t)b->bits + 31) / 32 * 4;
  const size_t n = (size_t)(b->data_end - b->data_at);
  unsigned char *bytes = r8_load(b->file, b->data_at, n, "bmp", b->path);
  if (bytes == NULL) return orx__err != 0 ? orx__err : ORX_E_READ;
  unsigned char *index = (unsigned char *)calloc(rle ? (size_t)height : 1, (size_t)width);
  unsigned char *row = (unsigned char *)malloc((size_t)width * (size_t)channels);
  if (index == NULL || row == NULL) {
    free(bytes);
    free(index);
    free(row);
    kit_fail(ORX_E_NO_MEMORY, "bmp: %s: no memory for the decoding rows", b->path);
    return ORX_E_NO_MEMORY;
  }
  Damage d = {0, 0, 0};
  if (rle) run_length(b, bytes, n, width, height, index, &d);
  for (int32_t y = 0; y < height; ++y) {
    if (rle)
      expand(b, index + (size_t)y * (size_t)width, width, channels == 1, row, &d);
    else
      unpack(b, bytes + (size_t)y * stride, width, index, row, channels, &d);
    kit_plane_spread(&b->plane, b->top_down ? y : height - 1 - y, row);
  }
  free(bytes);
  free(index);
  free(row);
  if (d.outside > 0)
    kit_warn("bmp: %s: %ld pixels index beyond the palette of %d colours (read as black)",
             b->path, d.outside, b->colours);
  if (d.overrun > 0)
    kit_warn("bmp: %s: %ld run-length pixels fall outside their row or the image (ignored)",
             b->path, d.overrun);
  if (d.unended)
    kit_warn("bmp: %s: the run-length data ends without an end of bitmap (truncated; the rest "
             "read as index 0)", b->path);
  if (b->plane.layout.count[1] > 0 && !b->straight && r8_any_alpha(&b->plane))
    for (int32_t r = 0; r < height; ++r) kit_plane_associate(&b->plane, r, KIT_ALPHA_ROUND);
  return 0;
}
