/* liborx: image processes (the IMP_ family).
 *
 * An image process is a named generator opened on an image the way an image
 * file is opened: name the process in an IMP_REQUEST, say "r" or "w", and
 * get back an ordinary image object (ORX_OBJECT) whose scanlines come from,
 * or go into, the process.  Known processes:
 *
 *   "none"    No operation (its entries do nothing and return NULL)
 *   "mipmap"  Mipmap texture generator
 *   "swatch"  Subsample image generator: the file's images plus a small
 *             preview image (the swatch), appended as the last image
 *
 * The frame keeps its own error word (IMP_error), apart from orx__err:
 * 0 success, -1 unknown process, -3 the process database could not be
 * built, -9 the process cannot open in the requested direction.  Every
 * failure is reported once through the error service.  Use the frame from
 * one thread at a time.
 */
#ifndef ORX_IMP_H
#define ORX_IMP_H

#include <stdint.h>

#include "orx/export.h"
#include "orx/orx.h"
#include "orx/plugin.h"

ORX_BEGIN_DECLS

/* flags of IMP_INFO */
#define IMP_CAN_READ 1
#define IMP_CAN_WRITE 2

/* What IMP_info tells about a process.  The strings are the library's. */
typedef struct IMP_INFO {
  char *key;
  char *name;
  char *description;
  int32_t flags;     /* IMP_CAN_READ | IMP_CAN_WRITE */
} IMP_INFO;

/* Mipmap texture kinds. */
#define IMP_TEXTURE_COLOR 0
#define IMP_TEXTURE_SCALAR 1
#define IMP_TEXTURE_BUMP 2

/* The process request: the key first, then the parameters the generators
 * read.  Fields a process does not use are ignored. */
typedef struct IMP_REQUEST {
  const char *key;        /* the process; NULL fails as an unknown process */
  uint32_t swatch_size;   /* swatch: pixels of the swatch's longer side */
  int32_t texture_type;   /* mipmap: IMP_TEXTURE_* */
  int32_t filter;         /* mipmap: filter of the level reduction */
  int32_t wrap;           /* mipmap: wrap mode stored with the texture */
} IMP_REQUEST;

/* The next process of the database, in the order "none", "mipmap",
 * "swatch"; NULL after the last.  The walk can be made once: nothing
 * rewinds it.  The first call of IMP_info or IMP_open builds the database
 * (starting the library when it has not been) and says so at severity 0. */
ORX_API IMP_INFO *IMP_info(void);

/* Open the process named by request->key on image (the request record of
 * the file, as for ORX_open) for access "r" or "w".  Returns the image
 * object the process gives, to scan and close like any other, or NULL:
 * "\"%s\" access not recognized" for any other access (IMP_error stays 0),
 * "Invalid image process type none" for an unknown key (-1), "%s cannot
 * handle the requested action" for a direction the process lacks (-9), or
 * the process's own report. */
ORX_API ORX_OBJECT *IMP_open(ORX_INFO *image, IMP_REQUEST *request, const char *access);

/* The frame's error word after the last IMP_info or IMP_open. */
ORX_API int IMP_error(void);

/* The swatch process.
 *
 * Reading: the file opens as usual and its last image index (image_count-1)
 * is the swatch: window 0..x2 by 0..y2 where the longer side is S pixels
 * (x2 or y2 = S-1) and the shorter is truncate((S-1) x short / long), aspect
 * "unknown", aspect ratio width / height, a first field of 1 becoming 2,
 * channels, widths and curves of the source.  The source is the
 * lowest-numbered image at least S pixels wide or high; its pixels are
 * point-sampled (no filtering).  Select the swatch with ORX__select, or scan
 * it through its private data entry.  When an image already fits (one side
 * exactly S, the other at most S) the file's object is returned unchanged.
 * No image reaching S in either direction: NULL, orx__err -19 (reported).
 *
 * Writing: the swatch is added to the written images and filled from the
 * rows of its source image as they are written; a format that refuses a second
 * image or its size gets the file without a swatch, silently. */

ORX_END_DECLS

#endif /* ORX_IMP_H */
