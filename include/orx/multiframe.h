/* liborx: multi-frame files and playback.
 *
 * A multi-frame format (imageMultiFrame non-zero) keeps many frames in one
 * file, and opening such a file is costly.  The library therefore keeps a
 * small cache of open multi-frame image objects: ORX_close only marks one
 * unused, and ORX_open of the same handle with equal capability settings
 * (ORX_cap_setting_compare, orx/capability.h) hands the cached object back,
 * unless the file was modified on disk since and nobody holds the object.
 * ORX_init enables the cache with room for KV_ORX_MULTIFRAME_OPEN objects
 * (15 when unset); objects beyond that are closed for good, oldest unused
 * first.  ORX_exit closes the unused ones; objects still open are left to
 * their holders' ORX_close.
 *
 * The cache functions are what ORX_open and ORX_close use; hosts rarely
 * need them.  They take no lock of their own: ORX_open and ORX_close call
 * them under the library mutex.
 *
 * Frame and playback calls forward to the object's slots (orx/plugin.h),
 * which only multi-frame formats fill, passing the format's private data
 * (the object's first private cell entry) and the further arguments
 * unchanged.  When the slot is empty or the object's info.frame_count is
 * below 1, each reports a warning naming the handle and the format
 * ("%s: cannot ... for this %s file; (it is not a multiframe file, or this
 * function is unsupported for this file type)") and returns -16.  They take
 * no lock.
 */
#ifndef ORX_MULTIFRAME_H
#define ORX_MULTIFRAME_H

#include <stdint.h>

#include "orx/export.h"
#include "orx/orx.h"
#include "orx/plugin.h"

ORX_BEGIN_DECLS

/* --- The cache ----------------------------------------------------------- */

/* Empty the cache (forgetting its objects without closing them) and disable
 * it with a capacity of 0. */
ORX_API void ORX_multiframe_init(void);

/* Forget every cached object (without closing it), then enable (enabled
 * non-zero) or disable the cache with room for capacity objects. */
ORX_API void ORX_multiframe_set(int enabled, int32_t capacity);

/* Non-zero when the cache is enabled. */
ORX_API int ORX_multiframe_used(void);

/* The cached object for a read request: same handle (exact), equal
 * settings, file unchanged on disk (or still held by someone); its open
 * count grows.  NULL when none, when the cache is disabled, or when the
 * matching entry was unused and its file changed (the entry is then closed
 * for good, so that the file is opened afresh). */
ORX_API ORX_OBJECT *ORX_multiframe_open(ORX_INFO *info);

/* Enter a freshly read-opened object of a multi-frame format with the
 * request that opened it (handle and settings copied), making room first by
 * closing the oldest unused object when the cache is full.  Nothing happens
 * when the cache is disabled, the format is not multi-frame, the file's
 * status cannot be read (reported) or memory runs out (reported). */
ORX_API void ORX_multiframe_add(ORX_OBJECT *object, ORX_INFO *info);

/* ORX_close's path when the cache is enabled: a cached object becomes
 * unused by one more holder and stays open, then unused objects are closed
 * for good, oldest first, while the cache holds more than its capacity.
 * An object not in the cache is closed at once through its close slot (a
 * missing slot frees it and gives -16).  Returns 0, or that close status;
 * 0 without doing anything when the cache is disabled. */
ORX_API int ORX_multiframe_set_closed(ORX_OBJECT *object);

/* --- Frames and playback -------------------------------------------------- */

/* The current frame: the get_frame slot called with (private data, 0). */
ORX_API int ORX_get_frame(ORX_OBJECT *object);
/* Make frame the current one: the set_frame slot's result. */
ORX_API int ORX_set_frame(ORX_OBJECT *object, int32_t frame);

/* Playback control; a1..a3 are the format's own and pass through (unused
 * ones may be 0).  Each returns its slot's result. */
ORX_API int ORX_playback_bind(ORX_OBJECT *object, intptr_t a1, intptr_t a2, intptr_t a3);
ORX_API int ORX_playback_goto(ORX_OBJECT *object, intptr_t a1, intptr_t a2, intptr_t a3);
ORX_API int ORX_playback_params(ORX_OBJECT *object, intptr_t a1, intptr_t a2, intptr_t a3);
ORX_API int ORX_playback_play(ORX_OBJECT *object, intptr_t a1, intptr_t a2, intptr_t a3);
/* Stop playback: the stop slot called with (private data, 0, 0, 0). */
ORX_API int ORX_playback_stop(ORX_OBJECT *object);

ORX_END_DECLS

#endif /* ORX_MULTIFRAME_H */
