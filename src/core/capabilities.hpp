// Capability tables of the registered formats: checked once when the
// registry is built.
#pragma once

#include "orx/plugin.h"

namespace orx::core {

// Check (and complete) one format's capability table.  Called by ORX_init
// for every registered format once the registry is built; false when the
// table was found unusable.
bool validate_capabilities(ORX_FORMAT *format);

}  // namespace orx::core
