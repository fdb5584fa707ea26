// Inside the library, orx__err is write-only.
//
// Every library file is compiled with this header included first (see
// src/CMakeLists.txt).  It turns the name orx__err into a small object whose
// only operation is assignment: assigning sets the calling thread's own
// status (what ORX_last_status returns) and publishes the same value in the
// exported orx__err, so the two never disagree on the thread that made the
// call.  Reading orx__err does not compile here: the shared word changes
// under the feet of every thread while others are in the library, so no
// decision may be taken from it.  Code that needs to know how a call below it
// went asks that call's return value, the handle, or err::last_status().
#pragma once

#include <cstdint>

#include "orx/err.h"

namespace orx::err {

// Set the calling thread's status and publish it in orx__err.
void set_status(int32_t status);

// The calling thread's status, as the last library call on it left it.
int32_t last_status();

// Remember the text of a report made on the calling thread, to describe the
// failure whose status follows (reports below ERROR are not kept).
void note_report(int severity, const char *message);

struct StatusWord {
  // `orx__err = s` keeps its value, so `return orx__err = s;` still reads well.
  int32_t operator=(int32_t status) const {
    set_status(status);
    return status;
  }
};

}  // namespace orx::err

#define orx__err (::orx::err::StatusWord{})
