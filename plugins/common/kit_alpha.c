/* Associated and straight alpha.  Inside the library a matte is associated:
 * colour samples are already multiplied by it.  Files that store straight
 * colour (PNG always, TIFF with an unassociated extra sample) are multiplied
 * as they are read and divided again as they are written. */
#include <string.h>

#include "plugin_kit.h"

/* One pass over a row per sample size; integers in 64 bits, where even two
 * 32-bit samples multiply exactly.  The division is the inverse of the
 * multiplication: a straight value it gives multiplies back to the
 * associated one it came from.  TOP, the largest sample, is a constant for
 * the common 8 and 16-bit samples, so that the compiler divides by it with
 * a multiplication (a division per sample costs more than the decode of a
 * compressed file). */
#define KIT_ASSOCIATE_INT(T, TOP)                                                    \
  do {                                                                               \
    for (int32_t x = 0; x < width; ++x) {                                            \
      T a, c;                                                                        \
      memcpy(&a, alpha + (size_t)x * astep, sizeof a);                               \
      memcpy(&c, colour + (size_t)x * cstep, sizeof c);                              \
      uint64_t v;                                                                    \
      if (!divide)                                                                   \
        v = ((uint64_t)c * a + half) / (TOP);                                        \
      else if (a == 0)                                                               \
        v = 0;                                                                       \
      else                                                                           \
        v = ((uint64_t)c * (TOP) + (round ? a / 2 : a - 1u)) / a;                   \
      c = (T)(v > (TOP) ? (TOP) : v);                                                \
      memcpy(colour + (size_t)x * cstep, &c, sizeof c);                              \
    }                                                                                \
  } while (0)

#define KIT_ASSOCIATE_REAL(T)                                                        \
  do {                                                                               \
    for (int32_t x = 0; x < width; ++x) {                                            \
      T a, c;                                                                        \
      memcpy(&a, alpha + (size_t)x * astep, sizeof a);                               \
      memcpy(&c, colour + (size_t)x * cstep, sizeof c);                              \
      c = !divide ? c * a : a != 0 ? c / a : 0;                                      \
      memcpy(colour + (size_t)x * cstep, &c, sizeof c);                              \
    }                                                                                \
  } while (0)

static void convert_row(KitPlane *plane, int32_t r, KitAlphaRounding rounding, int divide) {
  const KitLayout *l = &plane->layout;
  if (l->count[1] < 1) return;
  const int32_t width = kit_plane_width(plane);
  const int32_t matte = l->count[0];
  const unsigned char *alpha = kit_plane_at(plane, r, matte);
  const size_t astep = kit_plane_step(plane, matte);
  const int round = rounding == KIT_ALPHA_ROUND;
  const uint64_t top = l->bits[1] >= 32 ? 0xFFFFFFFFu : ((uint64_t)1 << l->bits[1]) - 1;
  const uint64_t half = round ? top / 2 : 0;
  for (int32_t k = 0; k < matte; ++k) {
    unsigned char *colour = kit_plane_at(plane, r, k);
    const size_t cstep = kit_plane_step(plane, k);
    if (l->type[1] == ORX_C_FLOAT) KIT_ASSOCIATE_REAL(float);
    else if (l->type[1] == ORX_C_DOUBLE) KIT_ASSOCIATE_REAL(double);
    else if (l->bits[1] == 8) KIT_ASSOCIATE_INT(uint8_t, UINT64_C(255));
    else if (l->bits[1] < 8) KIT_ASSOCIATE_INT(uint8_t, top);
    else if (l->bits[1] == 16) KIT_ASSOCIATE_INT(uint16_t, UINT64_C(65535));
    else if (l->bits[1] < 16) KIT_ASSOCIATE_INT(uint16_t, top);
    else KIT_ASSOCIATE_INT(uint32_t, top);
  }
}

int kit_alpha_matches(const KitLayout *layout) {
  return layout->count[1] > 0 && layout->type[0] == layout->type[1] &&
         layout->bits[0] == layout->bits[1];
}

void kit_plane_associate(KitPlane *plane, int32_t r, KitAlphaRounding rounding) {
  if (kit_alpha_matches(&plane->layout)) convert_row(plane, r, rounding, 0);
}

void kit_plane_dissociate(KitPlane *plane, int32_t r, KitAlphaRounding rounding) {
  if (kit_alpha_matches(&plane->layout)) convert_row(plane, r, rounding, 1);
}
