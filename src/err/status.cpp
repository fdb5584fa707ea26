// The status word shared by the whole process and the status each thread
// keeps of its own calls.
#include <cstring>

#include "err/status_word.hpp"
#include "orx/naming.h"

// The exported word itself, defined here under its own name.
#undef orx__err
extern "C" {
ORX_API int32_t orx__err = 0;
}

namespace orx::err {
namespace {

constexpr std::size_t kMessage = 256;

// One thread's view: its last status and the report that explains it.  A
// report made while the status is 0 waits for the failure it announces (the
// next non-zero status); one made while a failure stands describes that
// failure.  A different failure without a report of its own drops it, so an
// old message never describes a newer failure.
struct ThreadStatus {
  int32_t status = 0;
  bool pending = false;  // a report waits for its status
  char message[kMessage] = {};
};
thread_local ThreadStatus t;

}  // namespace

void set_status(int32_t status) {
  if (status == 0 || (!t.pending && status != t.status)) t.message[0] = '\0';
  t.pending = false;
  t.status = status;
  // Relaxed and atomic: threads that write the word at once do not race,
  // while a plain read of it beside another thread's write still shows up
  // under ThreadSanitizer as the race it is.
  __atomic_store_n(&orx__err, status, __ATOMIC_RELAXED);
}

int32_t last_status() { return t.status; }

void note_report(int severity, const char *message) {
  if (severity < ERR_ERROR || message == nullptr) return;
  std::strncpy(t.message, message, kMessage - 1);
  t.message[kMessage - 1] = '\0';
  t.pending = t.status == 0;
}

}  // namespace orx::err

extern "C" {

int32_t ORX_last_status(void) { return orx::err::t.status; }

const char *ORX_last_message(void) {
  const auto &t = orx::err::t;
  if (t.status == 0) return "";
  return t.message[0] != '\0' ? t.message : ORX_strerror(t.status);
}

const char *ORX_strerror(int32_t status) {
  switch (status) {
    case ORX_OK: return "success";
    case -1: return "the operation failed";
    case ORX_E_BAD_SCANLINE: return "bad scanline";
    case -3: return "the library could not be initialised";
    case ORX_E_INVALID_TYPE: return "invalid type";
    case ORX_E_FIELD_MISSING: return "required field missing";
    case ORX_E_UNDECODABLE: return "undecodable data";
    case ORX_E_NOT_OUR_FILE: return "not a file of this format";
    case -9: return "the action is not available for this type";
    case ORX_E_NO_MEMORY: return "out of memory";
    case ORX_E_BAD_SYNTAX: return "invalid name syntax";
    case ORX_E_EMPTY_SYNTAX: return "empty name syntax";
    case ORX_E_UNSUPPORTED: return "request not supported by the format";
    case ORX_E_READ: return "read failure";
    case ORX_E_DIMENSIONS: return "dimensions incompatible";
    case ORX_E_WRITE: return "write failure";
    default: return "unknown status";
  }
}

void orx__set_err(int32_t status) { orx::err::set_status(status); }

}  // extern "C"
