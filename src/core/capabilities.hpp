// Capability tables of the registered formats: checked once when the
// registry is built, with the names the check copies kept until ORX_exit.
#pragma once

#include "orx/plugin.h"

namespace orx::core {

// Check (and complete) one format's capability table: second names become
// owned copies, list entries are counted, the library-wide counters grow.
// Called by ORX_init for every registered format once the registry is
// built; false when the table was found unusable (reported).  A list whose
// default is none of its values ends the process (a broken plug-in build).
bool validate_capabilities(ORX_FORMAT *format);

// Give every table back the names it had before validation, free the
// copies and clear the counters (ORX_exit).
void release_capabilities();

}  // namespace orx::core
