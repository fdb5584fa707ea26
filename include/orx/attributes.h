/* liborx: named, typed attributes of the images of a record.
 *
 * The records of orx/orx.h have a field for what every format shares; the
 * rest of what a file carries travels as attributes: a name, the image it
 * belongs to (the index into info->images) and a typed value.  Each record
 * (ORX_INFO) owns one list of them, reached through the functions below
 * only; the record keeps it in its first reserved word (info->reserved[0]),
 * which is why hosts built before the list existed keep working: they never
 * touch that word, and ORX_info_init sets it to 0 (an empty list).
 *
 * Reading: after ORX_open(info, "r") the object's own record,
 * &object->info, holds what the format found in the file, for instance
 *
 *   const char *space = ORX_attr_get_string(&object->info, 0, "oiio:ColorSpace");
 *   const ORX_ATTR *icc = ORX_attr_find(&object->info, 0, "ICCProfile");
 *
 * and ORX_attr_count / ORX_attr_at list them all.  They go with the object
 * at ORX_close.
 *
 * Writing: set attributes on the request before ORX_open(info, "w"); the
 * open copies them into the object with the rest of the request, and the
 * format stores those it can hold and removes the others from the object's
 * record (ORX_attr_keep), so that after the open &object->info lists what
 * the file will carry; a format that narrows samples or drops channels says
 * so in the image's "orx:narrowed" text.  To copy a file's
 * attributes to another, ORX_attr_copy from the read object's record to the
 * write request.
 *
 * Plug-ins report what they read with ORX_attr_set_* on &object->info in
 * their read open, and look up what the host asked for with ORX_attr_get_*
 * on &object->info in their write open, then ORX_attr_keep what they store.
 *
 * Names follow OpenImageIO's ImageSpec attributes where it has one, so
 * hosts that know its list know these (the conventions every format keeps
 * to; the README's format table says which attributes each one reads and
 * writes):
 *   "ImageDescription"   string  a descriptive text (PNG Comment/Description,
 *                                TIFF ImageDescription)
 *   "ICCProfile"         bytes   an embedded ICC colour profile, as stored
 *   "Orientation"        int     EXIF/TIFF orientation, 1..8; reported only:
 *                                pixels are never reoriented
 *   "oiio:ColorSpace"    string  the colour space the file declares, e.g.
 *                                "sRGB" for a PNG or JPEG without cHRM/ICC
 *   "oiio:Gamma"         float   the file's gamma, as stored
 *   "oiio:subimagename"  string  the name of a part of a multi-part file
 *   "channelnames"       string  every channel's name in file order (image,
 *                                matte, auxiliary), comma-separated
 * and format-specific ones carry the format's prefix ("openexr:",
 * "png:", "tiff:", "jpeg:"), for instance
 *   "openexr:displayWindow" int[4]  xmin, ymin, xmax, ymax of the display
 *                                   window in OpenEXR's own coordinates
 *   "openexr:halfChannels"  string  the channels stored as half, by name
 *   "openexr:view"          string  the view of a part ("left", "right")
 *   "openexr:deep"          int     1: deep samples flattened front to back
 * docs/host-guide.md lists what each shipped format reads and writes.
 * Names compare without regard to case, as OpenImageIO's do.
 *
 * Memory: values are copied in; the list, its names and its values belong
 * to the record and are freed by ORX_attr_clear, ORX_info_cleanup and, for
 * an object, ORX_close.  Pointers handed out (ORX_ATTR, strings, values)
 * stay valid until the list changes.  A record copied by assignment shares
 * its list: clear one copy's reserved[0] (or use ORX_attr_copy) before
 * cleaning both.  Like the rest of a record, a list is used from one thread
 * at a time.
 */
#ifndef ORX_ATTRIBUTES_H
#define ORX_ATTRIBUTES_H

#include <stdint.h>

#include "orx/export.h"
#include "orx/orx.h"

ORX_BEGIN_DECLS

/* Value types.  count is the number of elements: values of an INT (int32_t),
 * FLOAT or DOUBLE array, bytes of BYTES, 1 for a STRING (NUL-terminated). */
#define ORX_ATTR_STRING 1
#define ORX_ATTR_INT 2
#define ORX_ATTR_FLOAT 3
#define ORX_ATTR_DOUBLE 4
#define ORX_ATTR_BYTES 5

/* Every image, for ORX_attr_count and ORX_attr_at. */
#define ORX_ATTR_ANY_IMAGE (-1)

/* One attribute, as the list holds it (read only). */
typedef struct ORX_ATTR {
  const char *name;
  int32_t image;      /* index of the image it describes */
  int32_t type;       /* ORX_ATTR_* */
  int32_t count;      /* elements of data */
  int32_t reserved;   /* 0 */
  const void *data;   /* the value(s); a string for ORX_ATTR_STRING */
} ORX_ATTR;

/* Set (add, or replace the value of) attribute name of image: count
 * elements of type from data, copied.  0 on success; -2 for a NULL record,
 * name or data, a negative image, an unknown type or a count below 1 (or
 * above 1 for a string); -10 when memory is short (reported).  A failed set
 * leaves the list as it was. */
ORX_API int ORX_attr_set(ORX_INFO *info, int32_t image, const char *name, int32_t type,
                         int32_t count, const void *data);
/* Shorthands of ORX_attr_set for one value. */
ORX_API int ORX_attr_set_string(ORX_INFO *info, int32_t image, const char *name,
                                const char *value);
ORX_API int ORX_attr_set_int(ORX_INFO *info, int32_t image, const char *name, int32_t value);
ORX_API int ORX_attr_set_float(ORX_INFO *info, int32_t image, const char *name, float value);
ORX_API int ORX_attr_set_double(ORX_INFO *info, int32_t image, const char *name, double value);

/* The attribute name of image, or NULL when there is none. */
ORX_API const ORX_ATTR *ORX_attr_find(const ORX_INFO *info, int32_t image, const char *name);
/* The value of a string attribute, or NULL when missing or not a string. */
ORX_API const char *ORX_attr_get_string(const ORX_INFO *info, int32_t image, const char *name);
/* The first value of a numeric attribute into *value: 1 when found, else 0
 * with *value untouched.  get_int takes INT attributes only; get_float and
 * get_double convert from INT, FLOAT and DOUBLE. */
ORX_API int ORX_attr_get_int(const ORX_INFO *info, int32_t image, const char *name,
                             int32_t *value);
ORX_API int ORX_attr_get_float(const ORX_INFO *info, int32_t image, const char *name,
                               float *value);
ORX_API int ORX_attr_get_double(const ORX_INFO *info, int32_t image, const char *name,
                                double *value);

/* Remove an attribute: 1 when it was there, else 0. */
ORX_API int ORX_attr_remove(ORX_INFO *info, int32_t image, const char *name);

/* The number of attributes of image (ORX_ATTR_ANY_IMAGE: of all images),
 * and the index-th of them (0 ..), in the order they were first set;
 * NULL past the end. */
ORX_API int32_t ORX_attr_count(const ORX_INFO *info, int32_t image);
ORX_API const ORX_ATTR *ORX_attr_at(const ORX_INFO *info, int32_t image, int32_t index);

/* Set on dst's image dst_image every attribute of src's image src_image
 * (src_image ORX_ATTR_ANY_IMAGE: of every image, each onto its own index;
 * dst_image is then ignored).  0, or the first failing set's status, the
 * attributes copied so far kept. */
ORX_API int ORX_attr_copy(ORX_INFO *dst, int32_t dst_image, const ORX_INFO *src,
                          int32_t src_image);

/* Remove from every image each attribute not named in names (a NULL-
 * terminated list; a name ending in ':' keeps its whole namespace, as
 * "openexr:" does), keeping the library's own "orx:" ones.  A format's write
 * open calls it with the names it stores, so that the object lists what the
 * file will carry.  Returns the number removed. */
ORX_API int ORX_attr_keep(ORX_INFO *info, const char *const *names);

/* Free every attribute of the record; the list is empty afterwards. */
ORX_API void ORX_attr_clear(ORX_INFO *info);

ORX_END_DECLS

#endif /* ORX_ATTRIBUTES_H */
