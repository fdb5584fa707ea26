/* Radiance scanlines: decoding any of the three encodings, encoding the
 * new one, and RGBE to floats and back as Radiance and OpenImageIO convert
 * them (no half-step added on decoding, mantissas truncated on encoding). */
#include "hdr_rle.h"

#include <float.h>
#include <math.h>
#include <string.h>

/* The old encoding: flat pixels, where 1, 1, 1, n repeats the pixel before
 * n << shift times, the shift growing by 8 with each repeat in a row. */
static const char *read_old(HdrSource *s, unsigned char *rgbe, int32_t width, int32_t x) {
  int shift = 0;
  while (x < width) {
    if (s->end - s->at < 4) return "the file ends inside a scanline (truncated)";
    const unsigned char *p = s->at;
    s->at += 4;
    if (p[0] == 1 && p[1] == 1 && p[2] == 1) {
      if (x == 0) return "a repeat before the first pixel of a scanline";
      if (shift > 24) return "a repeat count too large";
      const uint64_t n = (uint64_t)p[3] << shift;
      if (n > (uint64_t)(width - x)) return "a repeat runs past the end of its scanline";
      for (uint64_t k = 0; k < n; ++k, ++x) memcpy(rgbe + 4 * (size_t)x, rgbe + 4 * (size_t)(x - 1), 4);
      shift += 8;
      continue;
    }
    memcpy(rgbe + 4 * (size_t)x, p, 4);
    ++x;
    shift = 0;
  }
  return NULL;
}

/* The new encoding, component after component: a code above 128 repeats
 * the next byte code - 128 times, another gives that many literal bytes. */
static const char *read_new(HdrSource *s, unsigned char *rgbe, int32_t width) {
  for (int c = 0; c < 4; ++c) {
    int32_t x = 0;
    while (x < width) {
      if (s->at >= s->end) return "the file ends inside a scanline (truncated)";
      const unsigned code = *s->at++;
      if (code > 128) {
        const int32_t n = (int32_t)(code - 128);
        if (n > width - x) return "a run overruns its scanline";
        if (s->at >= s->end) return "the file ends inside a scanline (truncated)";
        const unsigned char v = *s->at++;
        for (int32_t k = 0; k < n; ++k) rgbe[4 * (size_t)(x + k) + c] = v;
        x += n;
      } else {
        const int32_t n = (int32_t)code;
        if (n == 0) return "a literal of no bytes in a run-length scanline";
        if (n > width - x) return "a literal overruns its scanline";
        if (s->end - s->at < n) return "the file ends inside a scanline (truncated)";
        for (int32_t k = 0; k < n; ++k) rgbe[4 * (size_t)(x + k) + c] = s->at[k];
        s->at += n;
        x += n;
      }
    }
  }
  return NULL;
}

const char *hdr_read_scanline(HdrSource *s, unsigned char *rgbe, int32_t width) {
  if (width < HDR_RLE_MIN_WIDTH || width > HDR_RLE_MAX_WIDTH) return read_old(s, rgbe, width, 0);
  if (s->end - s->at < 4) return "the file ends inside a scanline (truncated)";
  const unsigned char *p = s->at;
  if (p[0] != 2 || p[1] != 2 || (p[2] & 0x80) != 0) return read_old(s, rgbe, width, 0);
  if ((((int32_t)p[2] << 8) | p[3]) != width) return "a scanline of another width";
  s->at += 4;
  return read_new(s, rgbe, width);
}

uint64_t hdr_least_scanline_bytes(int32_t width) {
  /* One pixel, then repeats of up to 255 << 8k pixels, four bytes each. */
  uint64_t bytes = 4;
  for (uint64_t covered = 1; covered < (uint64_t)width; covered += (uint64_t)255 << (8 * (bytes / 4 - 1)))
    bytes += 4;
  /* The new encoding takes two bytes per component for each 127 pixels. */
  if (width >= HDR_RLE_MIN_WIDTH && width <= HDR_RLE_MAX_WIDTH) {
    const uint64_t runs = 4 + 8 * (((uint64_t)width + 126) / 127);
    if (runs < bytes) bytes = runs;
  }
  return bytes;
}

/* 2^(e - 136), the weight of a mantissa step at exponent byte e. */
static float step_of(unsigned e) {
  if (e >= 10) {
    const uint32_t bits = (uint32_t)(e - 9) << 23;
    float f;
    memcpy(&f, &bits, 4);
    return f;
  }
  return ldexpf(1.0f, (int)e - 136);
}

void hdr_rgbe_to_floats(const unsigned char *rgbe, int32_t n, float *r, float *g, float *b) {
  for (int32_t x = 0; x < n; ++x, rgbe += 4) {
    const float f = rgbe[3] != 0 ? step_of(rgbe[3]) : 0.0f;
    r[x] = rgbe[0] * f;
    g[x] = rgbe[1] * f;
    b[x] = rgbe[2] * f;
  }
}

/* Negative and not-a-number samples as 0, infinities as the largest float
 * (which is beyond RGBE's range). */
static float usable(float v) { return v > 0.0f ? (v < FLT_MAX ? v : FLT_MAX) : 0.0f; }

void hdr_floats_to_rgbe(const float *r, const float *g, const float *b, int32_t n,
                        unsigned char *rgbe) {
  for (int32_t x = 0; x < n; ++x, rgbe += 4) {
    const float c[3] = {usable(r[x]), usable(g[x]), usable(b[x])};
    float v = c[0] > c[1] ? c[0] : c[1];
    if (c[2] > v) v = c[2];
    int e = 0;
    const double m = frexp(v, &e);
    if (!(v >= 1e-32f)) {
      memset(rgbe, 0, 4);
    } else if (e > 127) {
      memset(rgbe, 255, 4);
    } else {
      const double scale = m * 256.0 / v;
      for (int k = 0; k < 3; ++k) rgbe[k] = (unsigned char)(c[k] * scale);
      rgbe[3] = (unsigned char)(e + 128);
    }
  }
}

size_t hdr_encoded_bound(int32_t width) { return 4 * (size_t)width + 4 + (size_t)width / 32 + 8; }

/* One component of the new encoding: runs of 4 or more equal bytes as
 * runs, the bytes between them as literals of up to 128. */
static size_t encode_component(const unsigned char *rgbe, int32_t width, unsigned char *out) {
  size_t n = 0;
  int32_t x = 0;
  while (x < width) {
    /* The next run of at least 4 from x on. */
    int32_t run_at = x, run = 0;
    while (run_at < width) {
      run = 1;
      while (run_at + run < width && run < 127 &&
             rgbe[4 * (size_t)(run_at + run)] == rgbe[4 * (size_t)run_at])
        ++run;
      if (run >= 4) break;
      run_at += run;
      run = 0;
    }
    while (x < run_at) { /* literals up to the run */
      const int32_t k = run_at - x > 128 ? 128 : run_at - x;
      out[n++] = (unsigned char)k;
      for (int32_t i = 0; i < k; ++i) out[n++] = rgbe[4 * (size_t)(x + i)];
      x += k;
    }
    if (run >= 4) {
      out[n++] = (unsigned char)(128 + run);
      out[n++] = rgbe[4 * (size_t)x];
      x += run;
    }
  }
  return n;
}

size_t hdr_encode_scanline(const unsigned char *rgbe, int32_t width, int rle, unsigned char *out) {
  if (!rle || width < HDR_RLE_MIN_WIDTH || width > HDR_RLE_MAX_WIDTH) {
    memcpy(out, rgbe, 4 * (size_t)width);
    return 4 * (size_t)width;
  }
  size_t n = 0;
  out[n++] = 2;
  out[n++] = 2;
  out[n++] = (unsigned char)(width >> 8);
  out[n++] = (unsigned char)(width & 255);
  for (int c = 0; c < 4; ++c) n += encode_component(rgbe + c, width, out + n);
  return n;
}
