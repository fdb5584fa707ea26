// The name-syntax module's shared pieces, for the path builder and tests.
#pragma once

namespace orx::naming {

// Lower-cased copy of text in the module's one working buffer, which grows in
// steps of 16 bytes and is reused by every call; null (orx__err -10) when it
// cannot grow.  The copy is valid until the next call.
char *lower_copy(const char *text);

// Releases the working buffer, returning the module to its initial state.
void reset();

}  // namespace orx::naming
