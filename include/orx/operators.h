/* liborx: operators layered onto an open image.
 *
 * An operator is a layer pushed onto a handle that ORX_open returned: it
 * takes the handle's place in ORX_scan_read / ORX_scan_write and transforms
 * the lines passing through.  Layers stack; each install function pushes at
 * most one, and its remove function pops it again.  Layers come off strictly
 * last in, first out: a remove finding another kind of layer on top returns
 * 0 and changes nothing; it returns 1 when it popped its layer or when the
 * handle has no private data at all.  ORX_close unwinds every layer from the
 * top and then closes the file.
 *
 * Every install returns the handle it was given, whether or not it pushed a
 * layer.  To tell: orx__err is 0 and nothing was reported when the layer is
 * in place or was not needed; a refusal reports one message and sets
 * orx__err (-16 for data the operator cannot handle, -10 when memory ran
 * out).  A host with threads reads ORX_last_status() and ORX_last_message()
 * instead of orx__err, which other threads' calls overwrite.  Installing and
 * removing are done by the thread that owns the handle; the layers' scans
 * run under the handle's lock.
 *
 * Layers edit the handle's description (info.images[0]) while they are in
 * place, and restore it when popped, so that what the description says is
 * what ORX_scan_read hands out (or what ORX_scan_write expects).  A scan
 * that reaches a layer whose private data was taken by ORX__select reports
 * "Cannot access sub image (attempted to access a locked sub image)" and
 * returns -1.
 */
#ifndef ORX_OPERATORS_H
#define ORX_OPERATORS_H

#include <stdint.h>

#include "orx/export.h"
#include "orx/orx.h"
#include "orx/plugin.h"

ORX_BEGIN_DECLS

/* --- Cast: every channel group as 32-bit float -------------------------------
 * Pushes nothing when all three groups are already float.  Otherwise the
 * description becomes gamma 1.0 and float, 32 bits, for image, matte and
 * auxiliary channels, and reading hands out float rows of the window's
 * width: integers as value / (2^width - 1) (a 4-bit 15 and a 16-bit 65535
 * both give 1.0); an 8-bit image whose gamma is not 1.0 is linearised
 * through the 256-entry table of ORX_gamma_btof; double samples narrowed,
 * float groups copied.  Kept as it always was: when the row buffers cannot
 * be allocated, the description stays rewritten though no layer is pushed
 * (orx__err -10): check the status before layering anything on it, since the
 * rows still hold the original samples. */
ORX_API ORX_OBJECT *orx__cast_operator(ORX_OBJECT *handle);
ORX_API int orx__cast_remove(ORX_OBJECT *handle);

/* --- Gamut clamp: float pixels into 0..1 ----------------------------------
 * Only for float or double image and matte channels, both present (else
 * nothing is pushed).  Samples of the active window are clipped to 0..1;
 * when the image channel name is "rgb" the colour is treated as
 * premultiplied by the first matte: a pixel outside 0..a is pulled toward
 * its grey level (r + g + b) x 0.3333333 until it fits, keeping its hue;
 * a = 0 gives black.  Lines outside the active window pass untouched.  On a
 * handle open for reading the lines read are clamped in place; open for
 * writing, the caller's lines are clamped in place before they are written.
 * The layout comes from the description's pixel_flags: 1 one row per
 * channel, 0 samples interleaved in row 0. */
ORX_API ORX_OBJECT *orx__clamp_operator(ORX_OBJECT *handle);
ORX_API int orx__clamp_remove(ORX_OBJECT *handle);

/* --- Gamma correction: 8-bit images to another response curve ------------
 * Re-encodes the image channels (integer, at most 8 bits) from the image's
 * response curve to target through one composed 8-bit table per channel.
 * Refused: a handle without images ("%s cannot store multiple images"),
 * integer channels of 9 bits or more ("%s cannot handle image channel
 * width"), both with "gamma correction operator" and orx__err -16.  Nothing
 * is pushed when both curves are parametric with the same gamma.
 * Reading maps every line in place.  Writing: the caller hands B-bit linear
 * samples in 16-bit storage (B = log2 of the gamma table resolution, 12 by
 * default; the description's image width says B while the layer is on); the
 * layer narrows them in place to 8-bit codes and zeroes the row right of the
 * active window. */
ORX_API ORX_OBJECT *orx__gamma_operator(ORX_OBJECT *handle, const ORX_RESPONSE_CURVE *target);
ORX_API int orx__gamma_remove(ORX_OBJECT *handle);

/* --- Quantize: floating point to and from integers -----------------------
 * target holds three pointers, for the image, matte and auxiliary groups:
 * NULL leaves the group alone, otherwise a pair { type, bits }.  Each group
 * whose target differs takes the target's type and width in the
 * description, even where no converter exists (its rows then pass on
 * unconverted).  Conversion: truncate(v x (2^bits - 1 + 0.95)), without
 * clamping (1.0 gives the top code, 0.999 still 255 at 8 bits, 0.5 gives
 * 127; values outside 0..1 wrap).  Only for one row per channel
 * (pixel_flags 1), over the active window's columns.
 * Read: float or double groups become integers as the layer below is read;
 * nothing is pushed when every group is already integer.
 * Write: the caller hands float (or double) rows for groups the file stores
 * as integers; the target names what the caller hands, the file keeps its
 * type.  Lines from the active window's bottom to one line above its top
 * are converted. */
ORX_API ORX_OBJECT *orx__quantize_read_operator(ORX_OBJECT *handle, const int32_t *const target[3]);
ORX_API ORX_OBJECT *orx__quantize_write_operator(ORX_OBJECT *handle, const int32_t *const target[3]);
ORX_API int orx__quantize_remove(ORX_OBJECT *handle);

/* --- Select: one image of a multi-image file ------------------------------
 * With two images or more, the handle reports one image, a copy of image's
 * description, and reads it.  A handle of one image, or an index outside
 * the file, is returned unchanged.  On a handle that already has layers
 * only image 0 can be selected (another is refused with "select operator
 * cannot handle the requested action", -16): select first, then layer. */
ORX_API ORX_OBJECT *ORX__select(ORX_OBJECT *handle, int32_t image);
ORX_API int ORX__select_remove(ORX_OBJECT *handle);

/* --- Min-max: 8-bit samples into a sub-range -------------------------------
 * Every sample of every group over the active window's columns becomes
 * (uint8)((int)(sample x (maximum - minimum)) + (int)(2^w x minimum)),
 * w the image width, without clamping (0.25..1.0 maps 0 to 64 and 255 to
 * 255).  0.0..1.0 pushes nothing.  Refused, with "min-max transform
 * operator", unless every group is integer of at most 8 bits. */
ORX_API ORX_OBJECT *orx__min_max_operator(ORX_OBJECT *handle, double minimum, double maximum);
ORX_API int orx__min_max_remove(ORX_OBJECT *handle);

/* --- Resampling: resize to a destination rectangle ------------------------
 * A filter description: two kernels (functions of one double) sampled at
 * distances measured in destination pixels, with their support widths (in
 * destination pixels) and phase parameters, which shift the sampling point
 * by phase x width / 2 / 3.1415927 destination pixels.  The description
 * must outlive the layer. */
typedef double (*ORX_KERNEL_FN)(double);
typedef struct ORX_FILTER {
  float x_phase, y_phase;
  float x_width, y_width;
  ORX_KERNEL_FN x_kernel, y_kernel;
} ORX_FILTER;

/* On a handle open for reading: pushes the cast (all groups to float), then
 * the filter; the description's window and active window become the
 * destination rectangle (left..right x bottom..top) while it is in place.
 * Each output pixel is the weighted sum of the source pixels under the
 * kernels' supports (scaled by the source-to-destination ratio), normalised
 * by the weights' sum; a column near the right edge uses fewer taps and its
 * own sum.  Vertically, negative results are set to 0 unless the weights of
 * the line sum to exactly 1.0.  Output lines must be read in order, each
 * once (the line number is not looked at).  Refused: groups that are not
 * float after the cast, a layout other than one row per channel ("%s cannot
 * handle ... channel type" with "symmetric separable resampling filter",
 * -16); an empty rectangle or a negative width (-19).  A width of 0 is one
 * tap, the kernel's value at the centre.
 * On a handle open for writing the description must already be float with
 * samples interleaved (pixel_flags 0), else the same reports and -16.  The
 * rectangle is the source the caller writes (its lines in order from the
 * bottom, samples interleaved in row 0) and the description's window is the
 * destination handed to the layer below, interleaved too; each output line
 * goes down as soon as the rows under its support have arrived, so memory
 * stays a few lines deep.  ORX_close unwinds it; the remove pops the filter
 * and the cast it pushed when reading.
 * Arithmetic: single precision, the weights of each column normalised to sum
 * to 1 and the taps summed in vector registers, with AVX2 and FMA where the
 * processor has them; results agree with the formulas above to about 1e-6
 * relative.  A host that needs the reference arithmetic to the bit (each
 * column's taps added in order with the kernel's own weights, the sum then
 * multiplied by the reciprocal of theirs; each line's rows added in order)
 * sets the environment variable ORX_KERNELS to "exact" before the library's
 * first resampling or scaling; "portable" selects the portable loops
 * instead of AVX2.  Reading and writing always use the same arithmetic, so
 * writing stores exactly what reading gives for the same float rows. */
ORX_API ORX_OBJECT *orx__resample_operator(ORX_OBJECT *handle, const ORX_FILTER *filter,
                                           int32_t left, int32_t right, int32_t bottom,
                                           int32_t top);
ORX_API int orx__resample_remove(ORX_OBJECT *handle);

/* --- Scale: a float source rectangle to a destination size ----------------
 * For display and zoom.  Pushes the cast, then a layer showing the source
 * rectangle x0..x1 by y0..y1 (pixel i covers [i, i+1); coordinates measured
 * from the window's left and bottom edges; fractions pan by parts of a
 * pixel; outside the image the edge pixels repeat) at width x height.  Each
 * axis on its own: minifying averages the source area each destination
 * pixel covers (exact for whole-pixel steps: a whole-pixel pan is an exact
 * shift, 1:1 the identity), magnifying interpolates linearly between source
 * pixel centres.  Lines may be read in any order.  Refused (-19): an empty
 * rectangle, a size below 1, more than 62 source lines per destination
 * line (reduce with the resampling filter instead).  Reading handles only;
 * the remove also takes off the cast it pushed. */
ORX_API ORX_OBJECT *orx__scale_operator(ORX_OBJECT *handle, float x0, float y0, float x1,
                                        float y1, int32_t width, int32_t height);
ORX_API int orx__scale_remove(ORX_OBJECT *handle);

/* The kernel library, by name: "box" (width 1), "triangle" (2), "gaussian"
 * (sigma 0.5, width 3), "mitchell" (b = c = 1/3, width 4), "catmull-rom"
 * (width 4), "lanczos3" (width 6); phases 0.  NULL for another name.
 * ORX_filter_name lists the names (index 0, 1, ...; NULL after the last). */
ORX_API const ORX_FILTER *ORX_filter_find(const char *name);
ORX_API const char *ORX_filter_name(int32_t index);

/* --- Row conversion between sample types --------------------------------------
 * Converts n samples of one channel row from the sample type of from (its
 * type and bits) to that of to.  Integer samples stand for value /
 * (2^bits - 1), floating-point ones for themselves; an integer target takes
 * the value clamped to 0..1 (not a number: 0) and rounded to the nearest
 * code.  The rows need no alignment and must not overlap.  Returns 0, or -16
 * (nothing reported, nothing written) when either type is none of integer
 * (1 to 32 bits), float and double.  Thread-safe. */
ORX_API int ORX_convert_row(const ORX_CHANNELS *from, const void *src, const ORX_CHANNELS *to,
                            void *dst, int32_t n);

/* --- Colour transforms: float RGB to other primaries, or to XYZ -----------
 * Push the cast when the image is not float, then a layer multiplying the
 * first three image channels (read as red, green, blue) by a 3x3 matrix
 * (orx/matrix.h) over the whole window.  The source space is the request
 * record's red, green, blue and white chromaticities.
 * rgb: to the target chromaticities (xr yr xg yg xb yb xw yw), with
 * Bradford adaptation when the white points differ; the record then carries
 * the target chromaticities (restored when the layer comes off).  Nothing is
 * pushed when the target equals the source.
 * xyz: to CIE XYZ (to_xyz non-zero) or from XYZ back to the record's RGB.
 * Refused with fewer than three image channels or another layout
 * ("color transform operator cannot handle image channel type", -16),
 * degenerate chromaticities (-4), or on a handle open for writing (nothing
 * pushed).  The remove also takes off the cast it pushed. */
ORX_API ORX_OBJECT *orx__rgb_transform_operator(ORX_OBJECT *handle, const float target[8]);
ORX_API ORX_OBJECT *orx__xyz_transform_operator(ORX_OBJECT *handle, int32_t to_xyz);
ORX_API int orx__colour_transform_remove(ORX_OBJECT *handle);

/* The colour-sample transform: the image channels are N spectral samples
 * at the colour database's wavelengths (CLR_def_wavelengths: the first
 * channel at the start, one step apart); they become three channels, CIE
 * XYZ (to_xyz non-zero) or RGB of the record's chromaticities, weighted by
 * the colour-matching table so that a flat spectrum of 1.0 has Y = 1.
 * Matte and auxiliary channels pass through.  The description shows three
 * float image channels while the layer is on; the cast is pushed first for
 * integer samples and taken off by the remove. */
ORX_API ORX_OBJECT *orx__spectral_transform_operator(ORX_OBJECT *handle, int32_t to_xyz);
ORX_API int orx__spectral_transform_remove(ORX_OBJECT *handle);

/* --- The display chain ----------------------------------------------------
 * ORX__display pushes, in this order, what turns the image into what the
 * framebuffer (FB_ database; NULL: the default framebuffer) shows: select
 * image 0; cast to float (8-bit codes with a gamma are linearised); the rgb
 * transform to the framebuffer's primaries and white point (three colour
 * channels or more); a Mitchell resize to fit the framebuffer's resolution,
 * keeping the image's shape in the framebuffer's pixel aspect (never an
 * enlargement); the gamut clamp, matte or not (after the resize, whose
 * kernel may overshoot: quantizing does not clamp); quantize to the
 * framebuffer's depth / 3 bits per channel; gamma correction to the
 * framebuffer's gamma (8 bits and a gamma other than 1.0 only).  Steps that
 * would change nothing push nothing.  The chain is held by one record (tag
 * 19) on top: ORX__display_remove takes every layer off in reverse order,
 * and ORX_close unwinds it.  Refused: an unknown framebuffer (-4), a handle
 * not open for reading; a step that fails takes the steps before it off
 * again and leaves its status. */
ORX_API ORX_OBJECT *ORX__display(ORX_OBJECT *handle, const char *framebuffer);
ORX_API int ORX__display_remove(ORX_OBJECT *handle);

/* --- Description checks shared by the 8-bit operators -----------------------
 * For image index image of handle: the group must be integer ("%s cannot
 * handle image channel type", or matte, auxiliary) and at most 8 bits wide
 * ("%s cannot handle image channel width", ...), each -16 with the report
 * naming operator; an index outside the file reports "%s cannot store
 * multiple images" and gives -16 after the other checks.  0 when it fits. */
ORX_API int orx__check_image_description(const char *operator_name, const ORX_OBJECT *handle,
                                         int32_t image);
ORX_API int orx__check_matte_description(const char *operator_name, const ORX_OBJECT *handle,
                                         int32_t image);
ORX_API int orx__check_aux_description(const char *operator_name, const ORX_OBJECT *handle,
                                       int32_t image);

ORX_END_DECLS

#endif /* ORX_OPERATORS_H */
