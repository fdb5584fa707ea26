/* What the Targa and BMP plug-ins share: both store 8-bit grey, RGB and
 * RGBA pixels little-endian, read their pixel data whole before decoding
 * it, widen packed fields (5-bit, 6-bit...) to 8 bits, and store a host's
 * image as the nearest of those layouts, saying what that narrows. */
#ifndef ORX_PLUGIN_RASTER8_H
#define ORX_PLUGIN_RASTER8_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "plugin_kit.h"

#ifdef __cplusplus
extern "C" {
#endif

static inline uint32_t r8_le16(const unsigned char *p) { return (uint32_t)p[0] | (uint32_t)p[1] << 8; }
static inline uint32_t r8_le32(const unsigned char *p) {
  return (uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}
static inline void r8_put16(unsigned char *p, uint32_t v) {
  p[0] = (unsigned char)v;
  p[1] = (unsigned char)(v >> 8);
}
static inline void r8_put32(unsigned char *p, uint32_t v) {
  r8_put16(p, v);
  r8_put16(p + 2, v >> 16);
}

/* A field of `bits` bits (1 to 32) as an 8-bit sample: narrower fields
 * repeat their bits (5-bit 11000 is 11000110), as other readers widen
 * them; wider ones are rounded to the nearest. */
static inline unsigned char r8_widen(uint32_t v, int bits) {
  if (bits == 8) return (unsigned char)v;
  if (bits < 8) {
    uint32_t out = 0;
    int have = 0;
    for (; have < 8; have += bits) out = out << bits | v;
    return (unsigned char)(out >> (have - 8));
  }
  const uint64_t top = bits >= 32 ? 0xFFFFFFFFu : ((uint64_t)1 << bits) - 1;
  return (unsigned char)(((uint64_t)v * 255 + top / 2) / top);
}

/* The size of an open file, or -1. */
long r8_file_size(FILE *file);

/* The n bytes of the file from offset on, in a block to free; NULL after
 * reporting (a file too short for them is reported as truncated). */
unsigned char *r8_load(FILE *file, long offset, size_t n, const char *who, const char *path);

/* Whether any alpha sample of an 8-bit plane with a matte is above zero:
 * files whose fourth byte is all zero hold no coverage there. */
int r8_any_alpha(const KitPlane *plane);

/* The layout a host's first image is stored in: 8-bit grey or RGB, with
 * one matte or none; mattes after the first, auxiliary channels, deeper
 * and floating-point samples and a window away from 0,0 are noted as
 * narrowed.  0 after reporting what cannot be stored (image channels other
 * than 1 or 3, a size beyond `most` pixels across or down). */
int r8_plan(ORX_OBJECT *object, const char *who, int32_t most, KitLayout *layout);

/* The writer's interleaved plane for that layout, and the file claimed
 * (kit_claim); 0 after reporting. */
int r8_begin(ORX_OBJECT *object, const char *who, const KitLayout *layout, KitPlane *plane,
             int *created);

#ifdef __cplusplus
}
#endif

#endif
