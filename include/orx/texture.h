/* liborx: texture access for renderers.
 *
 * A texture is a file the "mipmap" image process wrote (orx/imp.h: every
 * level of a pre-filtered texture down to 1x1, one image each), or any
 * image file, which is then a texture of one level.  Lookups return
 * filtered colours at texture coordinates (s, t) in [0, 1]: s = 0 is the
 * left edge of column 0, t = 0 the bottom edge of line 0 (the window's
 * bottom row), s = 1 and t = 1 the far edges.
 *
 * A handle keeps a bounded cache of decoded rows (floats), so lookups read
 * the file only when a row is not cached.  The library starts no thread and
 * a handle is not locked: use each handle from one thread at a time (open
 * one handle per thread to look up the same texture from several).
 *
 * Failures return NULL or a negative status with orx__err set and one
 * report: -5 no such file, -4 a file whose mipmap type is not the one
 * asked for, -16 a texture of more than 64 channels or of colour-index
 * data, -10 memory.
 */
#ifndef ORX_TEXTURE_H
#define ORX_TEXTURE_H

#include <stdint.h>

#include "orx/export.h"

ORX_BEGIN_DECLS

typedef struct ORX_TEXTURE ORX_TEXTURE;

/* What a lookup does outside [0, 1]. */
#define ORX_WRAP_BLACK 0    /* zeros */
#define ORX_WRAP_CLAMP 1    /* the edge texels */
#define ORX_WRAP_PERIODIC 2 /* the texture repeats */
#define ORX_WRAP_MIRROR 3   /* it repeats mirrored */

/* Open a texture by name: a name without "/" is looked for in the
 * directories of the environment variable KV_TEX_DIR (separated by ":"),
 * then as given.  type is IMP_TEXTURE_COLOR, _SCALAR or _BUMP; a mipmap file
 * of another type is refused, a plain image file accepted as one level. */
ORX_API ORX_TEXTURE *ORX_tex_open(const char *name, int32_t type);
/* Close and free (NULL accepted).  Returns 0. */
ORX_API int ORX_tex_close(ORX_TEXTURE *texture);

/* Levels (1 for a plain image), channels per texel, and the size of a
 * level (0 with the sizes, or -2 for a level that does not exist). */
ORX_API int32_t ORX_tex_levels(const ORX_TEXTURE *texture);
ORX_API int32_t ORX_tex_channels(const ORX_TEXTURE *texture);
ORX_API int ORX_tex_level_size(const ORX_TEXTURE *texture, int32_t level, int32_t *width,
                               int32_t *height);

/* The filtered colour at (s, t) for a footprint ds x dt (in texture
 * coordinates: ds = 1 spans the whole width) into out[0 .. channels-1]:
 * bilinear within the two levels whose texel size brackets the footprint,
 * blended linearly between them (trilinear); a footprint smaller than a
 * texel of level 0 reads level 0, one of the whole texture the 1x1 level.
 * Samples are in 0..1 for integer data, as stored for float data.  Returns
 * 0, or a negative status when a row cannot be read (out then holds
 * zeros). */
ORX_API int ORX_tex_lookup(ORX_TEXTURE *texture, float s, float t, float ds, float dt, int wrap,
                           float *out);

/* The cache: at most max_rows decoded rows (default 256; at least 4).
 * Returns 0.  ORX_tex_stats gives the rows read from the file so far and
 * the rows held now. */
ORX_API int ORX_tex_set_cache(ORX_TEXTURE *texture, uint32_t max_rows);
ORX_API void ORX_tex_stats(const ORX_TEXTURE *texture, uint64_t *rows_read, uint32_t *rows_held);

ORX_END_DECLS

#endif /* ORX_TEXTURE_H */
