// The multi-frame cache seen from the open and close path: read opens are
// offered to it first, successful read opens are registered with it, and
// closes ask it whether it keeps the object open.
#pragma once

#include "orx/plugin.h"

namespace orx::core {

// Start multi-frame handling with room for limit cached objects (ORX_init).
void multiframe_init(int limit);
// Close every cached object and stop (ORX_exit).
void multiframe_exit();
// A cached object that serves this read request, or null.
ORX_OBJECT *multiframe_open(ORX_INFO *info);
// Remember a freshly read-opened object with the request that opened it.
void multiframe_add(ORX_OBJECT *object, ORX_INFO *info);
// True when the cache keeps the object open instead of closing it.
bool multiframe_close(ORX_OBJECT *object);

}  // namespace orx::core
