// The multi-frame cache seen from the registry and the open path: started
// and stopped with the registry, read opens are offered to it first and
// successful read opens are registered with it.  ORX_close hands objects to
// ORX_multiframe_set_closed (orx/multiframe.h) while the cache is in use.
#pragma once

#include "orx/multiframe.h"
#include "orx/plugin.h"

namespace orx::core {

// Start multi-frame handling with room for limit cached objects (ORX_init).
void multiframe_init(int limit);
// Close every unused cached object and stop (ORX_exit).
void multiframe_exit();
// A cached object that serves this read request, or null.
ORX_OBJECT *multiframe_open(ORX_INFO *info);
// Remember a freshly read-opened object with the request that opened it.
void multiframe_add(ORX_OBJECT *object, ORX_INFO *info);

}  // namespace orx::core
