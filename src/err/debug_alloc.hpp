// Diagnostic allocators for hunting memory faults.  No module uses them by
// default; a debugging build or a tool wires them in.  Both print to the
// standard streams rather than through the error handlers, so they keep
// working while the error service itself is being debugged.
#pragma once

#include <cstdint>
#include <cstdio>

namespace orx::dbg {

// --- Pointer database ------------------------------------------------------
// Records every block it hands out (size, element size, live or freed) so
// that indexes and pointers can be checked against the block's bounds,
// double frees detected and leaks counted.  Freed memory is deliberately not
// released, so later checks still recognise the block.

void *utl_allocate(uint32_t size, uint32_t element_size);
void *utl_reallocate(void *block, uint32_t size, uint32_t element_size);
int utl_free(void *block);
// Check that block[index] lies inside the block; returns index.
int utl_check_index(void *block, int index);
// Check that pointer lies inside the block; returns pointer.
void *utl_check_pointer(void *block, void *pointer);
// Print the four statistics lines to the output stream.
void utl_statistics();

// Streams used for reports and the "Continue? (y/n)" question (stdout and
// stdin unless a test redirects them).
void utl_set_streams(std::FILE *in, std::FILE *out);
// Release every recorded block and the database itself (for tests).
void utl_reset();

// --- Allocation tracing -----------------------------------------------------
// Three hooks that normally lead to ERR_malloc, ERR_realloc and ERR_free and
// can be switched to versions that log every call to ".memstat".

using AllocateHook = void *(*)(uint32_t size, const char *name);
using ReallocateHook = void *(*)(void *block, uint32_t size, const char *name);
using FreeHook = int (*)(void *block, const char *name);

struct Hooks {
  AllocateHook allocate;
  ReallocateHook reallocate;
  FreeHook free;
};
// The hooks in force.
const Hooks &hooks();

// Nested: the first call switches the hooks and opens ".memstat" (returns 0
// and says so on standard error when it cannot); later calls only count.
int trace_on();
// The last matching call closes the file and restores the plain hooks.
int trace_off();
// Flush the trace and run $KV_BIN_DIR + "tools/memstat" over it; without
// KV_BIN_DIR set, says so and ends the process with status 0 (deliberate).
int run_analysis();

// Eight hex digits of value, least significant byte first (deliberate), in
// a static buffer that the next call overwrites.
const char *hex_word(uint32_t value);

}  // namespace orx::dbg
