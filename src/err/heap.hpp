// Raw heap access for every allocation the library makes, with the switch
// that lets tests fail the Nth allocation on purpose.  ERR_malloc/ERR_realloc
// add reporting on top; the STR_ and PTR_ families and the small allocators
// use these directly because they must not report.
#pragma once

#include <cstddef>
#include <cstdint>

namespace orx::heap {

// Allocate and resize through the C heap.  A size of 0 is served as 1 byte so
// that a null result always means "out of memory".
void *allocate(std::size_t size);
void *reallocate(void *block, std::size_t size);
// A zero-filled block, for large buffers: the system hands out fresh pages
// already zeroed, so memory that is never written is never touched.
void *allocate_zeroed(std::size_t size);
void release(void *block);

// Failure injection.  After fail_nth(n) with n >= 1, the n-th allocation from
// now (allocate or reallocate, counted across the whole library) returns null;
// later ones succeed again.  fail_nth(0) disarms.  Used by tests only.
void fail_nth(long n);
// Allocations counted while armed, since the last fail_nth call.
long allocations_seen();
// True once the armed allocation has been failed.
bool failure_fired();

}  // namespace orx::heap
