// What the reader and the writer share: the format's name and extension as
// an object knows them, the storage kind of each channel, and the close
// function installed by both opens.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "orx/plugin.h"

namespace orx::rla {

// The format's name for messages and its file extension: the object's own
// (set from the format record at open) when present, else those of RLA.
const char *format_name(const ORX_OBJECT *object);
const char *format_extension(const ORX_OBJECT *object);
// Whether the object is read or written through the "rlb" variant.
bool is_rlb(const ORX_OBJECT *object);

// How one channel's samples are held in a row and stored in a chunk.
enum class Kind : std::uint8_t { kInt8, kInt16, kInt32, kFloat, kDouble };

// Bytes one sample of a kind takes in a row, and its width in bits on disk.
std::size_t kind_bytes(Kind kind);
int kind_bits(Kind kind);

enum class Group { kImage, kMatte, kAux };

// The kind of a channel group's samples.  An unknown type or an integer width
// above 32 bits is reported with the group's message and who, orx__err -16,
// and gives false.
bool channel_kind(const ORX_CHANNELS &channels, Group group, const char *who, Kind *out);

// Fills *kinds (image, matte then auxiliary channels of ifd, count entries
// each) and the largest width in bits; false after a report as above.
bool channel_kinds(const ORX_IFD &ifd, const char *who, Kind *kinds, int *max_bits);

// Total channels of a descriptor (negative counts count as none).
int channel_total(const ORX_IFD &ifd);

// Gives a file stream a buffer of the library's large enough for whole rows,
// so that a row moves in one system call rather than one per chunk.  Returns
// the buffer, to be released after the stream is closed, or null when memory
// is short (the stream is then left as it was).
char *buffer_stream(std::FILE *stream);

// Close function of both opens: completes the file when writing, releases
// every state, closes the stream, frees the object and returns orx__err.
int close_object(ORX_OBJECT *object, intptr_t argument);

// The two halves of closing, in reader.cpp and writer.cpp.
void release_reader(ORX_OBJECT *object);
void finish_writer(ORX_OBJECT *object);

}  // namespace orx::rla
