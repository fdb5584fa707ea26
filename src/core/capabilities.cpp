// Capability-table validation.  Formats without a table have nothing to
// check, and no format table is inspected yet: every format passes.
#include "core/capabilities.hpp"

namespace orx::core {

bool validate_capabilities(ORX_FORMAT *) { return true; }

}  // namespace orx::core
