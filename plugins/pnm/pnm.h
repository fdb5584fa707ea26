/* The Netpbm family and PFM: what the plug-in's files share.
 *
 * P1 (plain) and P4 (raw) bitmaps, P2 and P5 grey maps, P3 and P6 pixel
 * maps with any maxval from 1 to 65535, P7 (PAM) with grey, RGB and
 * black-and-white tuples with or without alpha, and PFM ("Pf" grey, "PF"
 * RGB, 32-bit floats whose byte order the scale's sign gives, rows from
 * the bottom).  Several images may follow one another in a file. */
#ifndef ORX_PNM_H
#define ORX_PNM_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "orx/plugin.h"
#include "plugin_kit.h"

/* One image of a file: its header, where its samples lie, and how they
 * become the plane's. */
typedef struct PnmImage {
  char kind;             /* '1' to '7', or 'F' (PF, RGB) and 'f' (Pf, grey) */
  int32_t width, height;
  int32_t depth;         /* samples a pixel */
  int32_t alpha;         /* PAM: the last sample is alpha */
  uint32_t maxval;       /* 1 for bitmaps */
  int32_t bits;          /* the plane's sample width: maxval's own when it is 2^n - 1 */
  int bilevel_white;     /* PAM BLACKANDWHITE: 1 is white (a bitmap's 1 is black) */
  int little;            /* PFM: little-endian */
  float scale;           /* PFM: the scale's magnitude, which multiplies the samples */
  size_t at, end;        /* the samples: from at to end in the file's bytes */
} PnmImage;

/* Whitespace and comments skipped, the header of the image at bytes[at]
 * read; its samples' extent found (binary ones by their size, plain ones
 * by counting their numbers).  comment, when not NULL, receives the
 * header's comment lines (size bytes).  NULL, or what is wrong. */
const char *pnm_parse(const unsigned char *bytes, size_t size, size_t at, PnmImage *image,
                      char *comment, size_t comment_size);

/* The next sample of a plain image from at (whitespace and comments
 * skipped; one digit when digit is set, as a plain bitmap's pixels may
 * run together), values above 65535 held at 65536; the position after it,
 * or (size_t)-1 when there is none. */
size_t pnm_next_sample(const unsigned char *bytes, size_t size, size_t at, int digit,
                       uint32_t *value);

/* Whether the rest from at holds nothing but whitespace. */
int pnm_only_space(const unsigned char *bytes, size_t size, size_t at);

/* The channel layout an image reads as. */
KitLayout pnm_layout(const PnmImage *image);

/* Decodes an image's samples into its plane; NULL, or what is wrong
 * (pnm_no_memory when memory is short). */
extern const char pnm_no_memory[];
const char *pnm_decode(const PnmImage *image, const unsigned char *bytes, KitPlane *plane,
                       int straight);

/* Writing (pnm_write.c). */
int pnm_write_open(ORX_OBJECT *object);
int pnm_encode(ORX_OBJECT *object);
void pnm_release_writer(ORX_OBJECT *object);

/* Settings: the encoding (binary, or plain ASCII for P1 to P3) and whether
 * PAM's straight alpha passes as stored. */
enum { PNM_CAP_ENCODING = 0, PNM_CAP_UNASSOCIATED = 1 };

/* PAM's colour is straight; the products truncate, as PNG's do, so that a
 * PNG copied to PAM keeps its straight colour exactly. */
static const KitAlphaRounding pnm_rounding = KIT_ALPHA_TRUNCATE;

/* Whether this machine stores numbers little-endian (PFM samples are
 * either order). */
static inline int pnm_host_little(void) {
  const uint16_t one = 1;
  unsigned char b;
  memcpy(&b, &one, 1);
  return b == 1;
}

#endif /* ORX_PNM_H */
