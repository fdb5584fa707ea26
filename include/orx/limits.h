/* liborx: limits on what a file may make the library allocate.
 *
 * A file's header decides how large the buffers of its reader are (the
 * window width times the channel count), so a small hostile file could make
 * the library ask for gigabytes.  Readers refuse any image beyond these
 * limits with orx__err ORX_E_NOT_OUR_FILE (-8) and one report that names the
 * limit, before allocating anything the header sized.
 *
 * Each limit is, in order of precedence: the value a host set with
 * ORX_set_limit; else the environment variable named below, a positive
 * decimal number of units with an optional binary suffix k, m or g
 * ("512m" is 512 MiB), read at every open; else the default.
 *
 *   ORX_LIMIT_CHANNELS    channels of one image (image, matte and auxiliary
 *                         together); KV_ORX_MAX_CHANNELS; default 1024.
 *   ORX_LIMIT_ROW_MEMORY  bytes of scanline and decode buffers that the
 *                         images of one open file may take together;
 *                         KV_ORX_MAX_ROW_MEMORY; default 1 GiB.
 *
 * The limits are process-wide and may be read and set from any thread.
 */
#ifndef ORX_LIMITS_H
#define ORX_LIMITS_H

#include <stdint.h>

#include "orx/export.h"

ORX_BEGIN_DECLS

#define ORX_LIMIT_CHANNELS 1
#define ORX_LIMIT_ROW_MEMORY 2

/* The limit in force (see above), or -1 for an unknown limit. */
ORX_API int64_t ORX_limit(int32_t which);

/* Set a limit for the whole process: a value above 0 overrides the
 * environment; 0 or less goes back to the environment and the default.
 * Returns the limit that was in force before, or -1 for an unknown limit
 * (orx__err -16, reported). */
ORX_API int64_t ORX_set_limit(int32_t which, int64_t value);

ORX_END_DECLS

#endif /* ORX_LIMITS_H */
