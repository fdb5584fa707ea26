// The image-process frame's internals shared with the processes.
#pragma once

#include "orx/imp.h"

namespace orx::texture {

// The frame's error word.
void set_error(int value);
int error();

// The process entries: open the process on image for reading or writing.
ORX_OBJECT *swatch_read(ORX_INFO *image, IMP_REQUEST *request);
ORX_OBJECT *swatch_write(ORX_INFO *image, IMP_REQUEST *request);
ORX_OBJECT *mipmap_read(ORX_INFO *image, IMP_REQUEST *request);
ORX_OBJECT *mipmap_write(ORX_INFO *image, IMP_REQUEST *request);

// Free the database and clear the frame, as a failed build does (without
// stopping the library); for tests that need a first call again.
void reset();

}  // namespace orx::texture
