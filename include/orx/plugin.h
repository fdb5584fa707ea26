/* liborx: the plug-in contract, part one: the image object.
 *
 * A format's open functions receive an image object that the core has
 * allocated and filled from the application's request (the embedded
 * ORX_INFO).  A read open fills the descriptors (info.image_count,
 * info.images) from the file; both opens set the private cell and the scan
 * and close slots, and the seek and direct-scan slots when the format
 * supports them, and return non-zero on success.
 *
 * The object's layout is part of the contract with plug-ins: fields keep
 * their order and meaning across releases of the same major version.
 */
#ifndef ORX_PLUGIN_H
#define ORX_PLUGIN_H

#include <stdint.h>

#include "orx/export.h"
#include "orx/orx.h"

ORX_BEGIN_DECLS

struct ORX_OBJECT;
struct ORX_FORMAT;

/* Scanline function: (private data, line number, channel argument); 0 on
 * success, a negative status otherwise.  Reading: the channel argument is a
 * void *** that receives the format's own channel scanline buffer holding
 * the line.  Writing: it is the caller's channel scanline buffer (void **). */
typedef int (*ORX_SCAN_FN)(void *private_data, int32_t line, void *channels);

/* Close function: completes and closes the file, frees the object with
 * orx__free_obj and returns the status.  argument is 0 unless the
 * multi-frame cache closes the object for good. */
typedef int (*ORX_CLOSE_FN)(struct ORX_OBJECT *object, intptr_t argument);

/* Seek function: position so that the next read returns line; 0 or a
 * negative status. */
typedef int (*ORX_SEEK_FN)(void *private_data, int32_t line);

/* Direct scanline function: a line straight into (or from) the caller's
 * layout; the five arguments pass through from the caller unchanged. */
typedef int (*ORX_DIRECT_SCAN_FN)(void *private_data, int32_t line, void *a1, void *a2,
                                  void *a3, void *a4, void *a5);

/* Frame, playback and region slots; their arguments are described with the
 * calls that use them. */
typedef int (*ORX_FRAME_FN)(void *private_data, int32_t frame);
typedef int (*ORX_PLAYBACK_FN)(void *private_data, intptr_t a1, intptr_t a2, intptr_t a3);
typedef int (*ORX_REGION_FN)(void *private_data, void *region_request);

/* Palette reader of a colour-index format: stores a new ORX_LUT (or NULL)
 * in *lut and returns non-zero on success. */
typedef int (*ORX_LUT_READ_FN)(void *private_data, ORX_LUT **lut);

/* The image object that ORX_open returns. */
typedef struct ORX_OBJECT {
  void **private_cell;          /* the format's private data, one entry per image
                                   (info.image_count entries, allocated with ERR_malloc);
                                   the scan function receives entry 0 */
  ORX_INFO info;                /* the request, copied at open; descriptors filled by the format */
  int32_t access;               /* ORX_ACCESS_READ or ORX_ACCESS_WRITE */
  int32_t reserved0;
  ORX_SCAN_FN scan;
  ORX_CLOSE_FN close;
  ORX_PLAYBACK_FN playback_bind;
  ORX_PLAYBACK_FN playback_goto;
  ORX_PLAYBACK_FN playback_play;
  ORX_PLAYBACK_FN playback_params;
  ORX_PLAYBACK_FN playback_stop;
  ORX_FRAME_FN get_frame;
  ORX_LUT_READ_FN lut_read;     /* palette reader, for colour-index formats */
  ORX_REGION_FN region;
  ORX_FRAME_FN set_frame;
  ORX_SEEK_FN seek;
  int32_t current_line;         /* last line read successfully; -1 at creation */
  const struct ORX_FORMAT *format; /* registry record of the file's format */
  ORX_DIRECT_SCAN_FN direct_scan;
  void *lock;                   /* the object's mutex; owned by the core */
} ORX_OBJECT;

/* A new object with access bits and a lock, every slot cleared, current
 * line -1 and the embedded info initialised; NULL with orx__err -10 when
 * memory is short (reported). */
ORX_API ORX_OBJECT *orx__new_obj(int32_t access);

/* Free the object: the embedded info's strings, the descriptors with their
 * strings and response curves, the private cell and the lock. */
ORX_API void orx__free_obj(ORX_OBJECT *object);

ORX_END_DECLS

#endif /* ORX_PLUGIN_H */
