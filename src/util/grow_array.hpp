// Growable array whose header is kept apart from its data: the caller owns
// the data pointer and passes its address to every operation, so that
// growth can move the block.
#pragma once

#include <cstdint>

namespace orx::util {

struct GrowArray {
  uint32_t element_size;
  uint32_t increment;  // elements added per growth step
  uint32_t allocated;  // elements the data block holds
  uint32_t used;
};

// Make a header with n elements in use.  The data block holds the smallest
// multiple of the increment that is at least n (none when n is 0).  Returns
// null when an argument is out of range or memory is exhausted (reported).
GrowArray *grow_create(int n, int increment, int element_size, void **data);

// Add count elements to the used ones, growing the block by whole
// increments when needed (growth always leaves at least one spare element).
// Returns 1, or 0 when memory is exhausted, with the data freed and *data
// null.
int grow_add(GrowArray *array, uint32_t count, void **data);

// Free the header and the data; returns 1 when there was a data block.
int grow_destroy(GrowArray *array, void **data);

}  // namespace orx::util
