/* Netpbm, PAM and PFM samples into a plane.  Integer samples keep their
 * maxval's width when it is 2^n - 1; other maxvals are scaled to 8 bits
 * (below 256) or 16, v * (2^n - 1) / maxval truncated, as OpenImageIO
 * scales them, and samples above maxval are held at it.  A bitmap's 1 is
 * black, so it reads as 0.  PFM rows are stored from the bottom and the
 * scale's magnitude multiplies the samples, as OpenImageIO and ImageMagick
 * read them. */
#include <string.h>

#include "orx/err.h"
#include "pnm.h"

const char pnm_no_memory[] = "no memory for a row";

/* The plane's value of a sample of the file. */
static uint32_t to_plane(const PnmImage *im, uint32_t v) {
  if (v > im->maxval) v = im->maxval;
  if (im->maxval == (1u << im->bits) - 1) return v;
  return (uint32_t)((uint64_t)v * ((1u << im->bits) - 1) / im->maxval);
}

/* Samples of one row, interleaved, in the plane's sizes, into file row r. */
static void put_row(KitPlane *plane, const PnmImage *im, int32_t r, const void *samples) {
  if (im->depth == 1)
    memcpy(kit_plane_at(plane, r, 0), samples, (size_t)im->width * plane->sample_bytes[0]);
  else
    kit_plane_spread(plane, r, samples);
}

static void put_sample(unsigned char *row, int wide, size_t k, uint32_t v) {
  if (wide) {
    const uint16_t s = (uint16_t)v;
    memcpy(row + 2 * k, &s, 2);
  } else {
    row[k] = (unsigned char)v;
  }
}

static const char *decode_plain(const PnmImage *im, const unsigned char *bytes, KitPlane *plane,
                                unsigned char *row) {
  const int wide = im->bits > 8;
  const size_t n = (size_t)im->width * (size_t)im->depth;
  size_t at = im->at;
  for (int32_t r = 0; r < im->height; ++r) {
    for (size_t k = 0; k < n; ++k) {
      uint32_t v = 0;
      at = pnm_next_sample(bytes, im->end, at, im->kind == '1', &v);
      if (at == (size_t)-1) return "the file ends before its last sample (truncated)";
      put_sample(row, wide, k, im->kind == '1' ? v == 0 : to_plane(im, v));
    }
    put_row(plane, im, r, row);
  }
  return NULL;
}

static const char *decode_binary(const PnmImage *im, const unsigned char *bytes, KitPlane *plane,
                                 unsigned char *row) {
  const size_t n = (size_t)im->width * (size_t)im->depth;
  const unsigned char *in = bytes + im->at;
  if (im->kind == '4') {
    const size_t stride = ((size_t)im->width + 7) / 8;
    for (int32_t r = 0; r < im->height; ++r, in += stride) {
      for (int32_t x = 0; x < im->width; ++x) row[x] = (unsigned char)(~in[x >> 3] >> (7 - (x & 7)) & 1);
      put_row(plane, im, r, row);
    }
    return NULL;
  }
  if (im->maxval <= 255) {
    unsigned char lut[256];
    for (uint32_t v = 0; v < 256; ++v) lut[v] = (unsigned char)to_plane(im, v);
    for (int32_t r = 0; r < im->height; ++r, in += n) {
      for (size_t k = 0; k < n; ++k) row[k] = lut[in[k]];
      put_row(plane, im, r, row);
    }
    return NULL;
  }
  const int exact = im->maxval == (1u << im->bits) - 1;
  for (int32_t r = 0; r < im->height; ++r, in += 2 * n) {
    uint16_t *out = (uint16_t *)row;
    if (exact)
      for (size_t k = 0; k < n; ++k) {
        const uint32_t v = (uint32_t)in[2 * k] << 8 | in[2 * k + 1];
        out[k] = (uint16_t)(v > im->maxval ? im->maxval : v);
      }
    else
      for (size_t k = 0; k < n; ++k) out[k] = (uint16_t)to_plane(im, (uint32_t)in[2 * k] << 8 | in[2 * k + 1]);
    put_row(plane, im, r, row);
  }
  return NULL;
}

static const char *decode_float(const PnmImage *im, const unsigned char *bytes, KitPlane *plane,
                                unsigned char *row) {
  const size_t n = (size_t)im->width * (size_t)im->depth;
  const int swap = im->little != pnm_host_little();
  for (int32_t k = 0; k < im->height; ++k) {
    const unsigned char *in = bytes + im->at + (size_t)k * n * 4;
    for (size_t i = 0; i < n; ++i) {
      unsigned char b[4];
      memcpy(b, in + 4 * i, 4);
      if (swap) {
        unsigned char t = b[0];
        b[0] = b[3];
        b[3] = t;
        t = b[1];
        b[1] = b[2];
        b[2] = t;
      }
      float f;
      memcpy(&f, b, 4);
      if (im->scale != 1.0f) f *= im->scale;
      memcpy(row + 4 * i, &f, 4);
    }
    put_row(plane, im, im->height - 1 - k, row); /* rows from the bottom */
  }
  return NULL;
}

const char *pnm_decode(const PnmImage *im, const unsigned char *bytes, KitPlane *plane,
                       int straight) {
  unsigned char *row = (unsigned char *)kit_allocate((size_t)im->width * (size_t)im->depth * 4 + 8);
  if (row == NULL) return pnm_no_memory;
  const char *why = im->kind == 'F' || im->kind == 'f'                  ? decode_float(im, bytes, plane, row)
                    : im->kind == '1' || im->kind == '2' || im->kind == '3' ? decode_plain(im, bytes, plane, row)
                                                                          : decode_binary(im, bytes, plane, row);
  ERR_free(row);
  for (int32_t r = 0; why == NULL && im->alpha && !straight && r < im->height; ++r)
    kit_plane_associate(plane, r, pnm_rounding);
  return why;
}
