// "pipe" until its streams are written: the format is registered so that
// names and keys resolve, and every open is refused as an action it cannot
// handle.
#include "err/messages.hpp"
#include "formats/builtin.hpp"
#include "orx/err.h"

namespace orx::formats {

int pipe_read_open(ORX_OBJECT *) {
  return fail(ORX_E_UNSUPPORTED, Msg::kCannotHandleRequest, "pipe") == 0;
}
int pipe_write_open(ORX_OBJECT *) {
  return fail(ORX_E_UNSUPPORTED, Msg::kCannotHandleRequest, "pipe") == 0;
}
uint8_t pipe_is_file(const char *, std::FILE *) { return 0; }

}  // namespace orx::formats
