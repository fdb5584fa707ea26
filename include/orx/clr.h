/* liborx: the colour database (CLR_).
 *
 * Holds the default chromaticities of the red, green and blue primaries and
 * of the white point, a wavelength sampling, and colour-matching functions,
 * with built-in values that ".orxrc" may override:
 *
 *   clr__red_primary   x y      (likewise clr__green_primary, clr__blue_primary)
 *   clr__white_point   x y      (z is always 1 - x - y)
 *   clr__wavelength    start end step      (nanometres)
 *   clr__cmf_table                          (rows until end_cmf_table)
 *   WAVELENGTH XBAR YBAR ZBAR               ("#" rows are comments)
 *   end_cmf_table
 *
 * Built-in values: red 0.67 0.33, green 0.21 0.71, blue 0.14 0.08, white
 * 0.31 0.316; sampling 380 to 780 nm by 5; the CIE 1931 2-degree standard
 * observer at that sampling.  A table from the file replaces the built-in
 * one and is kept sorted by wavelength.  Lines with the wrong number of
 * words are reported as syntax errors and skipped; words that are not
 * numbers leave the value unchanged.
 *
 * The database is built on the first query (a DEBUG report announces it).
 * Not thread-safe: use from one thread at a time.
 */
#ifndef ORX_CLR_H
#define ORX_CLR_H

#include <stdint.h>

#include "orx/export.h"

ORX_BEGIN_DECLS

/* One row of a colour-matching table. */
typedef struct CLR_CMF_ROW {
  float wavelength; /* nanometres */
  float x, y, z;    /* x-bar, y-bar, z-bar */
} CLR_CMF_ROW;

/* Build the database on the first call; later calls do nothing.  0, or -1
 * when memory ran out (reported as "No more internal memory", orx__err -10;
 * the built-in values then stand). */
ORX_API int CLR_init(void *catalogue);
/* Free what was read from the file and return to the built-in values. */
ORX_API void CLR_exit(void);

/* Chromaticity x, y, z of each primary; any pointer may be NULL. */
ORX_API void CLR_def_primaries(float red[3], float green[3], float blue[3]);
/* Chromaticity x, y, z of the white point. */
ORX_API void CLR_def_white(float white[3]);
/* The wavelength sampling in nanometres; any pointer may be NULL. */
ORX_API void CLR_def_wavelengths(float *start, float *end, float *step);
/* The colour-matching table, sorted by wavelength, and its row count.  The
 * rows belong to the database and stay valid until CLR_exit. */
ORX_API const CLR_CMF_ROW *CLR_def_cmf(uint32_t *count);
/* The colour-matching values at a wavelength, interpolated linearly between
 * rows; zeros outside the table.  Returns 1 inside the table, else 0. */
ORX_API int CLR_cmf_at(float wavelength, float xyz[3]);

/* The RGB-to-XYZ matrix (row-major: X, Y, Z rows) of the primaries' and the
 * white point's chromaticities (x, y each), scaled so that RGB 1 1 1 maps to
 * the white point with Y = 1.  Returns 0, or -1 when the chromaticities are
 * degenerate (a y of 0, or primaries on one line). */
ORX_API int CLR_rgb_to_xyz_matrix(const float red[2], const float green[2],
                                  const float blue[2], const float white[2],
                                  double matrix[9]);

/* CIE XYZ of a spectrum of count samples starting at start nanometres,
 * step nanometres apart, weighted by the colour-matching table and scaled so
 * that a flat spectrum of 1.0 over the table has Y = 1.  Returns 0, or -1
 * for no samples, a step that is not positive, or samples that miss the
 * table entirely (xyz then zero). */
ORX_API int CLR_spectrum_to_xyz(const float *samples, uint32_t count, float start, float step,
                                float xyz[3]);

ORX_END_DECLS

#endif /* ORX_CLR_H */
