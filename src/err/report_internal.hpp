// Internal entry points of the error service shared by its own files and by
// the message catalogue.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "orx/err.h"

namespace orx::err {

// ERR_report_cat with a va_list.
int vreport_cat(void *catalogue, int set, int number, int severity, const char *format,
                va_list args);

// A report to the global handlers, as ERR_printf makes.
int vreport_global(int severity, const char *format, va_list args);

// Build a message with the mini-format into out (at most size bytes,
// terminated).  Returns out.
char *mini_format(char *out, std::size_t size, const char *format, va_list args);

// True when reports of this record are suppressed by the global mask, the
// record's severity mask or the record's own mask bit.
bool record_masked(const ERR_RECORD *record);

// Return the service to its initial state: masks, counters, ring, handler
// chains and the multi-process gate.  For tests that must start clean.
void reset();

}  // namespace orx::err
