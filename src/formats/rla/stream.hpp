// RLA over a stream that cannot seek back: standard input or output, or a
// pipe to a command.  The "pipe" format is built on these.  Only the first
// image of a file is read (later images' headers follow their rows), and
// rows must be asked for in ascending order: reading or seeking to a stored
// row already passed fails with ORX_E_BAD_SCANLINE (-2) and "Bad scanline"
// (message 53), as for any line the image cannot give.  The offset table is
// skipped when reading and left as first written when writing.
#pragma once

#include <cstdio>

#include "orx/plugin.h"

namespace orx::rla {

// Closes a stream at the end; returns 0, or non-zero when the stream (or the
// command behind it) failed.  Null leaves the stream open.
using CloseStream = int (*)(std::FILE *stream);

// Open object for reading from stream, or for writing to it.  Like
// ORX_rla_r_open / ORX_rla_w_open: 1 on success, 0 on failure with orx__err
// set.  The stream then belongs to the object, which closes it with close
// (on failure too).
int read_open_stream(ORX_OBJECT *object, std::FILE *stream, CloseStream close);
int write_open_stream(ORX_OBJECT *object, std::FILE *stream, CloseStream close);

}  // namespace orx::rla
