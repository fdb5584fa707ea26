/* Radiance scanlines: RGBE pixels (three 8-bit mantissas sharing an 8-bit
 * exponent) stored flat, with the old run-length encoding (a pixel of
 * 1, 1, 1, n repeats the one before it n times, shifted by 8 bits more for
 * each further such pixel in a row) or with the new one (2, 2, width, then
 * each of the four components in runs and literals); every scanline says
 * for itself which it uses. */
#ifndef ORX_HDR_RLE_H
#define ORX_HDR_RLE_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

/* The new encoding holds widths from 8 to 32767 only; other widths are
 * always stored flat or with the old encoding. */
enum { HDR_RLE_MIN_WIDTH = 8, HDR_RLE_MAX_WIDTH = 0x7fff };

/* Bytes read from memory: the rest of a file. */
typedef struct HdrSource {
  const unsigned char *at;
  const unsigned char *end;
} HdrSource;

/* Decodes one scanline of width RGBE pixels (4 * width bytes) from the
 * source.  NULL when it decodes, else what is wrong (the bytes end, a run
 * overruns the line, a repeat comes before any pixel). */
const char *hdr_read_scanline(HdrSource *source, unsigned char *rgbe, int32_t width);

/* The fewest bytes a scanline of width pixels can take, for bounding what
 * a file's dimensions may claim. */
uint64_t hdr_least_scanline_bytes(int32_t width);

/* RGBE pixels to linear floats: n pixels of rgbe to three float rows. */
void hdr_rgbe_to_floats(const unsigned char *rgbe, int32_t n, float *r, float *g, float *b);

/* Three float rows to n RGBE pixels: negative and not-a-number samples
 * become 0, values beyond RGBE's range its largest. */
void hdr_floats_to_rgbe(const float *r, const float *g, const float *b, int32_t n,
                        unsigned char *rgbe);

/* Encodes one scanline of width RGBE pixels into out (at most
 * 4 * width + 4 + width / 64 bytes), with the new run-length encoding when
 * rle is set and the width allows it, else flat; the number of bytes. */
size_t hdr_encode_scanline(const unsigned char *rgbe, int32_t width, int rle,
                           unsigned char *out);
size_t hdr_encoded_bound(int32_t width);

#endif /* ORX_HDR_RLE_H */
