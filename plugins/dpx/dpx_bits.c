/* Row coding of DPX and Cineon samples (see dpx_bits.h).  One loop per
 * layout over the whole row: the coding is chosen once a row, never per
 * sample. */
#include "dpx_bits.h"

#include <string.h>

int dpx_sample_size(int bits) {
  return bits <= 8 ? 1 : bits <= 16 ? 2 : bits == 32 ? 4 : 8;
}

/* Where the three samples of a filled 10-bit word sit, first to last. */
static void filled_shifts(const DpxCoding *c, int shift[3]) {
  const int low = c->packing == DPX_FILLED_B ? 0 : 2;
  for (int k = 0; k < 3; ++k) shift[k] = low + 10 * (c->low_first ? k : 2 - k);
}

uint64_t dpx_row_bytes(const DpxCoding *c, uint64_t n) {
  uint64_t bytes;
  if (c->bits == 10 && c->packing != DPX_PACKED)
    bytes = (n + 2) / 3 * 4;
  else if ((c->bits == 10 || c->bits == 12) && c->packing == DPX_PACKED)
    bytes = (n * (uint64_t)c->bits + 31) / 32 * 4;
  else
    bytes = n * (uint64_t)(c->bits == 12 ? 2 : c->bits / 8);
  if (c->pad_rows) bytes = (bytes + 3) / 4 * 4;
  return bytes > UINT32_MAX ? 0 : bytes;
}

void dpx_unpack(const DpxCoding *c, const unsigned char *in, void *out, size_t n) {
  uint16_t *o16 = (uint16_t *)out;
  if (c->bits == 8) {
    memcpy(out, in, n);
  } else if (c->bits == 16 || (c->bits == 12 && c->packing != DPX_PACKED)) {
    const int shift = c->bits == 12 && c->packing == DPX_FILLED_A ? 4 : 0;
    const uint16_t mask = (uint16_t)((1u << c->bits) - 1u);
    for (size_t i = 0; i < n; ++i) o16[i] = (uint16_t)(dpx_get16(in + 2 * i, c->big) >> shift) & mask;
  } else if (c->bits == 10 && c->packing != DPX_PACKED) {
    int s[3];
    filled_shifts(c, s);
    size_t i = 0;
    for (; i + 3 <= n; i += 3, in += 4) {
      const uint32_t w = dpx_get32(in, c->big);
      o16[i] = (uint16_t)(w >> s[0] & 0x3ff);
      o16[i + 1] = (uint16_t)(w >> s[1] & 0x3ff);
      o16[i + 2] = (uint16_t)(w >> s[2] & 0x3ff);
    }
    for (int k = 0; i < n; ++i, ++k) o16[i] = (uint16_t)(dpx_get32(in, c->big) >> s[k] & 0x3ff);
  } else if (c->bits == 10 || c->bits == 12) {
    /* Packed: a stream of bits, each 32-bit word filled from its low end. */
    const uint64_t mask = (1u << c->bits) - 1u;
    uint64_t bits = 0;
    int have = 0;
    for (size_t i = 0; i < n; ++i) {
      if (have < c->bits) {
        bits |= (uint64_t)dpx_get32(in, c->big) << have;
        in += 4;
        have += 32;
      }
      o16[i] = (uint16_t)(bits & mask);
      bits >>= c->bits;
      have -= c->bits;
    }
  } else if (c->bits == 32) {
    for (size_t i = 0; i < n; ++i) {
      const uint32_t w = dpx_get32(in + 4 * i, c->big);
      memcpy((unsigned char *)out + 4 * i, &w, 4);
    }
  } else {
    for (size_t i = 0; i < n; ++i) {
      const uint64_t hi = dpx_get32(in + 8 * i + (c->big ? 0 : 4), c->big);
      const uint64_t w = hi << 32 | dpx_get32(in + 8 * i + (c->big ? 4 : 0), c->big);
      memcpy((unsigned char *)out + 8 * i, &w, 8);
    }
  }
}

void dpx_pack(const DpxCoding *c, const void *in, unsigned char *out, size_t n) {
  const uint16_t *i16 = (const uint16_t *)in;
  memset(out, 0, (size_t)dpx_row_bytes(c, n));
  if (c->bits == 8) {
    memcpy(out, in, n);
  } else if (c->bits == 16 || (c->bits == 12 && c->packing != DPX_PACKED)) {
    const int shift = c->bits == 12 && c->packing == DPX_FILLED_A ? 4 : 0;
    for (size_t i = 0; i < n; ++i) dpx_put16(out + 2 * i, (uint16_t)(i16[i] << shift), c->big);
  } else if (c->bits == 10 && c->packing != DPX_PACKED) {
    int s[3];
    filled_shifts(c, s);
    for (size_t i = 0; i < n; i += 3, out += 4) {
      uint32_t w = 0;
      for (int k = 0; k < 3 && i + (size_t)k < n; ++k) w |= (uint32_t)(i16[i + k] & 0x3ff) << s[k];
      dpx_put32(out, w, c->big);
    }
  } else if (c->bits == 10 || c->bits == 12) {
    const uint64_t mask = (1u << c->bits) - 1u;
    uint64_t bits = 0;
    int have = 0;
    for (size_t i = 0; i < n; ++i) {
      bits |= (i16[i] & mask) << have;
      have += c->bits;
      if (have >= 32) {
        dpx_put32(out, (uint32_t)bits, c->big);
        out += 4;
        bits >>= 32;
        have -= 32;
      }
    }
    if (have > 0) dpx_put32(out, (uint32_t)bits, c->big);
  } else if (c->bits == 32) {
    for (size_t i = 0; i < n; ++i) {
      uint32_t w;
      memcpy(&w, (const unsigned char *)in + 4 * i, 4);
      dpx_put32(out + 4 * i, w, c->big);
    }
  } else {
    for (size_t i = 0; i < n; ++i) {
      uint64_t w;
      memcpy(&w, (const unsigned char *)in + 8 * i, 8);
      dpx_put32(out + 8 * i + (c->big ? 0 : 4), (uint32_t)(w >> 32), c->big);
      dpx_put32(out + 8 * i + (c->big ? 4 : 0), (uint32_t)w, c->big);
    }
  }
}

/* One loop per sample size keeps each copy a fixed-size move. */
#define DPX_SPREAD(SIZE)                                                          \
  for (int ch = 0; ch < nc; ++ch) {                                               \
    unsigned char *o = (unsigned char *)rows[ch];                                 \
    const unsigned char *s = (const unsigned char *)samples + (size_t)ch * SIZE;  \
    for (size_t x = 0; x < width; ++x) memcpy(o + x * SIZE, s + x * step, SIZE); \
  }

void dpx_spread(void *const *rows, const void *samples, int nc, size_t width, int size) {
  const size_t step = (size_t)nc * (size_t)size;
  if (nc == 1) {
    memcpy(rows[0], samples, width * (size_t)size);
    return;
  }
  switch (size) {
    case 1: DPX_SPREAD(1); break;
    case 2: DPX_SPREAD(2); break;
    case 4: DPX_SPREAD(4); break;
    default: DPX_SPREAD(8); break;
  }
}
