// Internal access to the shared-string table behind STR_define, for tests
// that must start clean and check what the table holds.
#pragma once

#include <cstdint>

namespace orx::util {

// Free every shared string, whatever its count, and empty the table.
void str_table_reset();

// Reference count of the shared string equal to s; 0 when it is not held.
std::uint32_t str_table_references(const char *s);

}  // namespace orx::util
