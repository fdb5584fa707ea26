/* liborx: 4x4 colour matrices.
 *
 * Matrices are 16 floats, row-major: out = M x (in, 1).  The routines work
 * in double precision and round to float only at the end.  Colour spaces
 * are described by their chromaticities, eight floats in the order
 *   xr yr  xg yg  xb yb  xw yw
 * (the x and y of the red, green and blue primaries and of the white
 * point).  The RGB-to-XYZ matrix of a space maps RGB 1 1 1 to its white
 * point with Y = 1.
 *
 * Failures return -1 with orx__err ORX_E_INVALID_TYPE and one report:
 * "Singular matrix cannot be inverted" or "Degenerate chromaticities (a
 * primary or the white point with y = 0, or primaries on one line)".
 */
#ifndef ORX_MATRIX_H
#define ORX_MATRIX_H

#include "orx/export.h"
#include "orx/orx.h"

ORX_BEGIN_DECLS

ORX_API void ORX_matrix_identity(float m[16]);
/* out = a x b: applying out is applying b, then a.  out may be a or b. */
ORX_API void ORX_matrix_multiply(const float a[16], const float b[16], float out[16]);
/* 0, or -1 for a singular matrix (out untouched).  out may be m. */
ORX_API int ORX_matrix_invert(const float m[16], float out[16]);
/* out = M x (in, 1), divided by the resulting w when it is neither 0 nor 1.
 * out may be in. */
ORX_API void ORX_matrix_transform(const float m[16], const float in[3], float out[3]);

/* RGB of the space to CIE XYZ, and back. */
ORX_API int ORX_matrix_rgb_to_xyz(const float chromaticities[8], float out[16]);
ORX_API int ORX_matrix_xyz_to_rgb(const float chromaticities[8], float out[16]);
/* Chromatic adaptation of XYZ colours from one white point (x, y) to
 * another with the Bradford cone response. */
ORX_API int ORX_matrix_bradford(const float from_white[2], const float to_white[2],
                                float out[16]);
/* RGB of one space to RGB of another: to XYZ, Bradford adaptation when the
 * white points differ, from XYZ. */
ORX_API int ORX_matrix_rgb_to_rgb(const float from[8], const float to[8], float out[16]);

/* Chromaticities of an image's request record (its red, green, blue and
 * white fields), of a framebuffer of the framebuffer database (NULL: the
 * default framebuffer; -1 with orx__err ORX_E_INVALID_TYPE when there is no
 * such framebuffer), and the colour database's defaults. */
ORX_API void ORX_chromaticities_of_info(const ORX_INFO *info, float out[8]);
ORX_API int ORX_chromaticities_of_framebuffer(const char *name, float out[8]);
ORX_API void ORX_chromaticities_default(float out[8]);

ORX_END_DECLS

#endif /* ORX_MATRIX_H */
