// Exported format strings of hardware framebuffer data.
#include "orx/orx.h"

extern "C" {

ORX_API const char *const ORX_LITERAL_HARD_FORMAT_TYPE_RAW = "raw";
ORX_API const char *const ORX_LITERAL_HARD_FORMAT_TYPE_RGB = "rgb";

}  // extern "C"
