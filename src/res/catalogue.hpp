// The error service's view of message catalogues.
#pragma once

namespace orx::res {

// The text to report for (set, number): the catalogue's translation when
// catalogue is an open catalogue holding one that takes the same arguments
// as format, else format itself.
const char *catalogue_text(const void *catalogue, int set, int number, const char *format);

}  // namespace orx::res
