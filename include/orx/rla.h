/* liborx: the built-in RLA format.
 *
 * RLA files hold one or more images, each a 740-byte header, a table of
 * scanline offsets and run-length encoded scanlines with every channel stored
 * separately.  These three functions are what a format record for RLA is
 * built on; a host rarely calls them itself, since ORX_open chooses the
 * format and calls the open functions for it.
 *
 * Both open functions take an image object from orx__new_obj (orx/plugin.h)
 * whose embedded info names the file (info.handle; info.full_path non-zero
 * uses it as given, otherwise the format's extension is added and the
 * directory named by KV_IMG_DIR is tried).  The format's name in messages and
 * its extension are info.type and info.extension when set, else "rla" and
 * ".rla".  On success the object's private cell, scan and close slots are
 * set, and the object belongs to its close function, which completes and
 * closes the file, frees the object and returns orx__err.  On failure the
 * open releases everything it took; the caller still owns the object and
 * frees it with orx__free_obj.
 */
#ifndef ORX_RLA_H
#define ORX_RLA_H

#include <stdio.h>

#include "orx/export.h"
#include "orx/plugin.h"

ORX_BEGIN_DECLS

/* 1 when the first 740 bytes form a valid RLA header, else 0.  With a stream
 * it rewinds it and reads from it, leaving it open; without one (NULL) it
 * opens path and closes it again.  A short file or a failed open give 0;
 * nothing is reported. */
ORX_API int ORX_rla_is_file(const char *path, FILE *stream);

/* Open the file named in object for reading: fills info.image_count,
 * info.images (one descriptor per image of the file), the image name,
 * description, program, machine, user, date, time, filter, frame, job and
 * chromaticities.  The scan slot then takes (private_cell[i], line, void ***)
 * and stores the format's own channel scanline buffer holding the line; rows
 * inside the window but outside the stored part read as zeros.  Returns 1 on
 * success, 0 on failure with orx__err set (-5 cannot open, -8 not an RLA
 * file, or one whose header asks for more channels or row memory than the
 * limits of orx/limits.h allow, or more offset-table and scanline bytes than
 * the file holds; -10 out of memory, -16 unsupported channels) and one report, except
 * for "/dev/stdin", which is refused without a report (the reader must
 * seek). */
ORX_API int ORX_rla_r_open(ORX_OBJECT *object);

/* Create the file named in object for writing from info.images; "/dev/stdout"
 * writes to standard output, which keeps the placeholder offset table since
 * it cannot seek back.  The scan slot takes (private_cell[i], line, void **)
 * and stores the caller's channel scanline buffer; rows go strictly in
 * ascending order from the window bottom.  Float and double channels are
 * written 32 and 64 bits wide whatever their declared width.  Returns 1 on
 * success, 0 on failure with orx__err set and one report.
 *
 * What a failure leaves behind:
 *  - A failed open removes the file only when the open itself created it
 *    as a new regular file.  An existing file it emptied, a link, a named
 *    pipe or a device is never removed.
 *  - A failed row write (-20, "Cannot write scanline %d; %s") leaves the
 *    file open: rows already written stay, the object can still be closed,
 *    and closing writes the headers, links, offset table and time it can,
 *    returning its own status.  The file is then incomplete; the library
 *    does not remove it, since the host named it.  A host that wants no
 *    partial file removes it after closing. */
ORX_API int ORX_rla_w_open(ORX_OBJECT *object);

ORX_END_DECLS

#endif /* ORX_RLA_H */
