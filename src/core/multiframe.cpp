// Multi-frame handling with the cache disabled: nothing is kept, so every
// open reaches its format and every close really closes.
#include "core/multiframe.hpp"

namespace orx::core {

void multiframe_init(int) {}
void multiframe_exit() {}
ORX_OBJECT *multiframe_open(ORX_INFO *) { return nullptr; }
void multiframe_add(ORX_OBJECT *, ORX_INFO *) {}
bool multiframe_close(ORX_OBJECT *) { return false; }

}  // namespace orx::core
