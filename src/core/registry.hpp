// The registry's own records and state, shared by initialisation, the
// queries and the open path.
#pragma once

#include <cstdint>

#include "orx/plugin.h"
#include "platform/platform.hpp"

namespace orx::core {

// One registered format.  The registry owns every string of pub.  The
// open, init and done functions stay out of the public part: only the core
// calls them.
struct FormatRecord {
  int32_t builtin;  // 0 plug-in, 1 built into the library
  ORX_FORMAT pub;
  ORX_INIT_FN init;
  ORX_DONE_FN done;
  ORX_OPEN_FN read_open;
  ORX_OPEN_FN write_open;
};

// Records live in one array: the accepted plug-ins first (the "plug-in
// array" of the name queries is records[0 .. plugin_count)), then the
// built-in formats.
struct Registry {
  bool initialised = false;
  FormatRecord *records = nullptr;
  int32_t count = 0;
  int32_t plugin_count = 0;
  int32_t position = 0;                      // ORX_info's place in the list
  const FormatRecord *last_match = nullptr;  // ORX_is_file_type's memory
};

Registry &registry();
// The one library mutex (ORX_open, ORX_get_file_type, ORX_close).
platform::Mutex &library_mutex();

// Initialise lazily for entry point who; false when that failed.  A
// successful lazy initialisation is announced at DEBUG level.
bool ensure_initialised(const char *who);

// The first record whose key, or else whose extension, equals text; null
// when none or not initialised.
FormatRecord *find_record(const char *text);
// The record of a public part handed out by the registry.
FormatRecord *record_of(const ORX_FORMAT *format);

// The built-in formats, in registry order.
int builtin_count();
// Fill record from built-in n (strings copied); false when memory ran out.
bool builtin_record(int n, FormatRecord *record);

// Free the strings a record owns.
void release_record(FormatRecord &record);
// An ERR_malloc copy of text (null stays null); null with a report when
// memory ran out.
char *save(const char *text);

}  // namespace orx::core
