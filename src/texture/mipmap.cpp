// The "mipmap" process: its generator is not part of the library yet, so
// both directions refuse with the frame's "cannot handle" report.
#include "err/messages.hpp"
#include "orx/err.h"
#include "texture/process.hpp"

namespace orx::texture {
namespace {

ORX_OBJECT *refuse() {
  fail(ORX_E_UNSUPPORTED, Msg::kCannotHandleAction, "mipmap");
  return nullptr;
}

}  // namespace

ORX_OBJECT *mipmap_read(ORX_INFO *, IMP_REQUEST *) { return refuse(); }
ORX_OBJECT *mipmap_write(ORX_INFO *, IMP_REQUEST *) { return refuse(); }

}  // namespace orx::texture
