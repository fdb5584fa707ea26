/* liborx: merging field files into frames.
 *
 * Video stored one file per field: each odd frame number holds the first
 * field, the following even number the second ("take.0007.rla" and
 * "take.0008.rla").  ORX__field_merge turns a handle open for reading on
 * either file into a new handle that reads the interlaced frame: line 2k is
 * line k of the first field, line 2k+1 line k of the second (a negative line
 * is divided toward zero), the windows are doubled in height (a 0..242 field
 * gives 0..485), and the active window spans both fields' active windows.
 */
#ifndef ORX_FIELD_MERGE_H
#define ORX_FIELD_MERGE_H

#include "orx/export.h"
#include "orx/plugin.h"

ORX_BEGIN_DECLS

/* The merged handle, which owns both field handles: closing it (ORX_close)
 * closes the partner the merge opened, then the handle passed in, and
 * returns orx__err.  Returns the handle passed in, unchanged, when:
 *   - its first image's field code is 0 (not a field file);
 *   - its name, less a registered format's extension, has no frame number
 *     after its last "." (an empty one counts as 0);
 *   - the partner ("NAME.%04d" of the partner's number, without the
 *     extension) does not open;
 *   - the fields differ (reported as an error, orx__err -1, partner closed):
 *     "Field frames have different color primaries", "... gammas",
 *     "... image channel properties", "... matte channel properties",
 *     "... aspect types", "... image window sizes";
 *   - memory runs out (orx__err -10; the partner then stays open).
 * Only image 0 of a multi-image field file is read through the merge. */
ORX_API ORX_OBJECT *ORX__field_merge(ORX_OBJECT *handle);

ORX_END_DECLS

#endif /* ORX_FIELD_MERGE_H */
