/* The text header of a Radiance picture: "#?RADIANCE" (or "#?RGBE"),
 * variable lines up to an empty line, then the resolution string. */
#ifndef ORX_HDR_HEADER_H
#define ORX_HDR_HEADER_H

#include <stdint.h>
#include <stdio.h>

/* Comment lines kept, joined with newlines. */
enum { HDR_TEXT = 4096 };

typedef struct HdrHeader {
  int xyze;              /* FORMAT=32-bit_rle_xyze: CIE XYZ rather than RGB */
  double exposure;       /* product of the EXPOSURE lines; 0 when there is none */
  double gamma;          /* GAMMA: the exponent the values were encoded with; 0: none */
  double pixaspect;      /* product of the PIXASPECT lines (pixel height over width); 1 */
  int has_primaries;
  float primaries[8];    /* red, green, blue and white x, y */
  char software[256];    /* SOFTWARE */
  char date[64];         /* CAPDATE */
  char comment[HDR_TEXT];/* the "#" lines, without their "#" and one space */
  int32_t width, height; /* as the pixels are stored: scanline length and count */
  int orientation;       /* the resolution string as an EXIF orientation, 1 to 8 */
} HdrHeader;

/* Reads the header and the resolution string from the start of file,
 * leaving the file at the first pixel.  NULL, or what is wrong with it. */
const char *hdr_header_read(FILE *file, HdrHeader *header);

/* Writes the header and the resolution string; 0 when the file fails. */
int hdr_header_write(FILE *file, const HdrHeader *header);

/* Radiance's primaries, which a file without PRIMARIES holds, and CIE XYZ's,
 * which describe the pixels of an XYZE file. */
extern const float hdr_radiance_primaries[8];
extern const float hdr_xyz_primaries[8];

#endif /* ORX_HDR_HEADER_H */
