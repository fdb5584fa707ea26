/* liborx: reading a rectangle of an open image into one packed pixel array.
 *
 * Layouts (the pixel of each):
 *   ORX_REGION_GREY16  1: one 16-bit value, the first image channel
 *   ORX_REGION_RGBA16  3: four 16-bit values, red, green, blue, alpha
 *   ORX_REGION_RGBA8   5: four 8-bit values
 *   ORX_REGION_GREY8   7: one 8-bit value, the first image channel
 *   ORX_REGION_RGB8    8: three 8-bit values
 * Red is channel 0; green channel 1 and blue channel 2 when the image has
 * them, else channel 0 (grey); alpha is the first matte (for images of four
 * or more colour channels, their fourth channel), or full when there is no
 * matte.  Values are scaled from the channels' widths (integer channels of
 * at most 16 bits) to the output's and truncated.
 */
#ifndef ORX_REGION_H
#define ORX_REGION_H

#include <stdint.h>

#include "orx/export.h"
#include "orx/plugin.h"

ORX_BEGIN_DECLS

#define ORX_REGION_GREY16 1
#define ORX_REGION_RGBA16 3
#define ORX_REGION_RGBA8 5
#define ORX_REGION_GREY8 7
#define ORX_REGION_RGB8 8

/* Reads columns x_left..x_right of lines y_bottom..y_top into buffer: row 0
 * is line y_bottom, rows stride bytes apart (-1: packed, that is
 * (x_right - x_left + 1) * pixel bytes; a smaller stride is refused), pixel
 * x at (x - x_left) * pixel bytes.  The caller owns buffer, which must hold
 * (y_top - y_bottom + 1) rows.  Parts outside the stored (active) window are
 * zeros.  Lines are read in the order the image stores them, under the
 * object's lock.  Reading may reopen the file, so the object is passed by
 * address and may be replaced.  When the image's format has a region reader
 * of its own (the object's region slot), every call goes to it instead.
 * Returns orx__err: 0; -5 for a null object or buffer; -16 for a layout,
 * rectangle or channels it cannot convert (reported, naming the format by
 * the object's type; channels are refused only after the zeros outside the
 * active window are written, and a rectangle wholly outside it reads as
 * zeros whatever the channels); or the status of the failing seek or scanline read, the rows read before
 * it being written. */
ORX_API int ORX_get_region(ORX_OBJECT **object, int32_t x_left, int32_t x_right,
                           int32_t y_bottom, int32_t y_top, void *buffer, int32_t stride,
                           int32_t layout);

ORX_END_DECLS

#endif /* ORX_REGION_H */
