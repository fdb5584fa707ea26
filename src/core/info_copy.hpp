// Deep copies between ORX_INFO records, for the open path and formats that
// keep images themselves.
#pragma once

#include "orx/orx.h"

namespace orx::core {

// Replace dst's descriptors by copies of src's: each starts from the
// defaults, then takes src's values with its own copies of the strings
// ("unknown" for missing ones) and response-curve tables.  false when memory
// ran out (reported, orx__err -10) or a curve could not be copied; dst then
// holds what was copied so far and stays releasable.
bool copy_images(ORX_INFO *dst, const ORX_INFO *src);

// Make dst a copy of src with its own strings ("unknown" for missing ones)
// and response-curve tables; dst holds nothing of its own before.  false
// when memory ran out (orx__err -10) or the curve could not be copied; dst
// then holds what was copied so far and stays releasable.
bool copy_image(ORX_IFD *dst, const ORX_IFD &src);

// Release the strings and curve tables a descriptor owns.
void release_image(ORX_IFD *ifd);

// Release everything a record the library owns holds (an object's info, a
// stored copy): ORX_info_cleanup, and each descriptor's aspect and curve
// tables too, which a host's record keeps.
void release_info(ORX_INFO *info);

// Replace the string *field by an owned copy of text, or of fallback when
// text is null.  false when memory ran out (reported, orx__err -10).
bool copy_string(char **field, const char *text, const char *fallback);

}  // namespace orx::core
