// Exported format strings of hardware framebuffer data (exported through
// their declarations in orx/orx.h).
#include "orx/orx.h"

extern "C" {

const char *const ORX_LITERAL_HARD_FORMAT_TYPE_RAW = "raw";
const char *const ORX_LITERAL_HARD_FORMAT_TYPE_RGB = "rgb";

}  // extern "C"
