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

// Replace the string *field by an owned copy of text, or of fallback when
// text is null.  false when memory ran out (reported, orx__err -10).
bool copy_string(char **field, const char *text, const char *fallback);

}  // namespace orx::core
