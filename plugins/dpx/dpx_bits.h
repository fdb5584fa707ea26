/* How DPX and Cineon files lay samples out in a row, and the loops that turn
 * such a row into samples and back.  The two formats share their word
 * layouts: bytes, 16-bit words, 10-bit samples three to a 32-bit word
 * (padding in the low bits, "filled method A", or in the high bits,
 * "method B"), and samples packed end to end across 32-bit words. */
#ifndef ORX_DPX_BITS_H
#define ORX_DPX_BITS_H

#include <stddef.h>
#include <stdint.h>

/* 16 and 32-bit words of either byte order, from and into bytes. */
static inline uint32_t dpx_get32(const unsigned char *p, int big) {
  return big ? (uint32_t)p[0] << 24 | (uint32_t)p[1] << 16 | (uint32_t)p[2] << 8 | p[3]
             : (uint32_t)p[3] << 24 | (uint32_t)p[2] << 16 | (uint32_t)p[1] << 8 | p[0];
}
static inline uint16_t dpx_get16(const unsigned char *p, int big) {
  return (uint16_t)(big ? p[0] << 8 | p[1] : p[1] << 8 | p[0]);
}
static inline void dpx_put32(unsigned char *p, uint32_t v, int big) {
  for (int k = 0; k < 4; ++k) p[big ? 3 - k : k] = (unsigned char)(v >> (8 * k));
}
static inline void dpx_put16(unsigned char *p, uint32_t v, int big) {
  p[big ? 1 : 0] = (unsigned char)v;
  p[big ? 0 : 1] = (unsigned char)(v >> 8);
}

enum { DPX_PACKED = 0, DPX_FILLED_A = 1, DPX_FILLED_B = 2 };

typedef struct DpxCoding {
  int bits;       /* 8, 10, 12, 16 integer; 32 and 64 floating point */
  int packing;    /* DPX_PACKED, DPX_FILLED_A or DPX_FILLED_B */
  int big;        /* words are big-endian */
  int low_first;  /* filled 10-bit: a word's first sample in its low bits */
  int pad_rows;   /* every row ends on a 32-bit boundary */
} DpxCoding;

/* Bytes of one unpacked sample: 1 for 8 bits, 2 for 10 to 16, 4 for float,
 * 8 for double. */
int dpx_sample_size(int bits);
/* Bytes of a row of n samples in the file, padding to the word included;
 * 0 when it would not fit in 32 bits. */
uint64_t dpx_row_bytes(const DpxCoding *c, uint64_t n);
/* n samples of a row from in (dpx_row_bytes of them) into out, each of
 * dpx_sample_size bytes in host order; integers keep their width (a 10-bit
 * sample is 0..1023). */
void dpx_unpack(const DpxCoding *c, const unsigned char *in, void *out, size_t n);
/* The reverse: n samples into a row of dpx_row_bytes bytes, padding zero. */
void dpx_pack(const DpxCoding *c, const void *in, unsigned char *out, size_t n);
/* Interleaved samples of nc channels to one row per channel (rows[c]), and
 * back; size is the bytes of a sample. */
void dpx_spread(void *const *rows, const void *samples, int nc, size_t width, int size);

#endif /* ORX_DPX_BITS_H */
