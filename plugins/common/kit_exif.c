/* The EXIF orientation, which JPEG (APP1) and PNG (eXIf) files carry in a
 * TIFF structure: read from its first directory, and written as a minimal
 * one holding that tag alone. */
#include <string.h>

#include "plugin_kit.h"

enum { kOrientationTag = 274, kShort = 3 };

int kit_exif_orientation(const unsigned char *tiff, size_t size) {
  if (size < 8 || (memcmp(tiff, "MM", 2) != 0 && memcmp(tiff, "II", 2) != 0)) return 0;
  const int big = tiff[0] == 'M';
#define EXIF_U16(p) (big ? (unsigned)((p)[0] << 8 | (p)[1]) : (unsigned)((p)[1] << 8 | (p)[0]))
#define EXIF_U32(p) (big ? (uint32_t)EXIF_U16(p) << 16 | EXIF_U16((p) + 2) \
                         : (uint32_t)EXIF_U16((p) + 2) << 16 | EXIF_U16(p))
  const uint32_t ifd = EXIF_U32(tiff + 4);
  if (ifd > size - 2) return 0;
  const unsigned entries = EXIF_U16(tiff + ifd);
  for (unsigned e = 0; e < entries && ifd + 2 + 12 * (size_t)(e + 1) <= size; ++e) {
    const unsigned char *entry = tiff + ifd + 2 + 12 * e;
    if (EXIF_U16(entry) == kOrientationTag && EXIF_U16(entry + 2) == kShort) {
      const unsigned value = EXIF_U16(entry + 8);
      return value >= 1 && value <= 8 ? (int)value : 0;
    }
  }
#undef EXIF_U16
#undef EXIF_U32
  return 0;
}

size_t kit_exif_orientation_block(int orientation, unsigned char out[KIT_EXIF_BLOCK]) {
  const unsigned char block[KIT_EXIF_BLOCK] = {
      'M', 'M', 0, 42, 0, 0, 0, 8,                  /* big-endian TIFF, IFD0 at 8 */
      0, 1,                                         /* one entry: */
      kOrientationTag >> 8, kOrientationTag & 255,  /* the orientation, */
      0, kShort, 0, 0, 0, 1,                        /* one SHORT */
      0, (unsigned char)orientation, 0, 0,          /* the value */
      0, 0, 0, 0};                                  /* no next IFD */
  memcpy(out, block, sizeof block);
  return sizeof block;
}
