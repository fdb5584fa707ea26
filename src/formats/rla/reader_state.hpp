// The state of an RLA file open for reading, shared by the open path
// (reader.cpp), the translation of headers into descriptors (describe.cpp)
// and the scanline reader (scanlines.cpp).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "formats/rla/channels.hpp"
#include "formats/rla/header.hpp"
#include "formats/rla/stream.hpp"
#include "orx/plugin.h"

namespace orx::rla {

// What all images of one open file share.
struct ReadFile {
  const ORX_OBJECT *object = nullptr;  // whose scan slot tells whether a layer sits above
  std::FILE *stream = nullptr;
  char *buffer = nullptr;      // the stream's buffer, released after closing
  std::uint32_t position = 0;  // a sequential stream's offset
  // A file read in place: rows are decoded from a window of it, read a large
  // block at a time (a stream's own buffer, refilled at every seek, would
  // read most bytes several times over when rows are read against the
  // file's order).
  std::uint8_t *window = nullptr;
  std::size_t window_capacity = 0;
  std::size_t window_used = 0;
  std::uint64_t window_at = 0;  // the file offset of window[0]
  int current = 0;             // the image whose rows were read last
  bool is_stdin = false;
  bool sequential = false;     // a stream that cannot seek: rows in file order only
  CloseStream close_stream = nullptr;  // how a sequential stream is closed
  // Bytes of row buffers the images read so far demand.
  std::uint64_t row_memory = 0;
};

// One image of the file.
struct ReadImage {
  ReadFile *file = nullptr;
  int index = 0;
  int channels = 0;
  Kind *kinds = nullptr;
  void **buffer = nullptr;  // channel scanline buffer handed to callers
  int width = 0;
  int window_bottom = 0, window_top = 0;
  int active_bottom = 0, active_top = 0;
  int active_width = 0;
  int left_pad = 0, right_pad = 0;
  std::size_t decode_size = 0;
  std::uint8_t *table = nullptr;  // offsets as stored, one per active row
  std::uint8_t *decode = nullptr;
  int next_row = 0;
  int stream_row = 0;  // next stored row of a sequential stream
  long table_position = 0;
  bool zeros = true;       // the whole channel buffer holds zeros
  bool pads_zero = true;   // the columns outside the active window hold zeros
};

// The descriptor and object fields that come from header h of image index:
// 0, or ORX_E_NO_MEMORY after a report.
int describe_header(ORX_OBJECT *object, int index, const Header &h, ORX_IFD &ifd);

// The scan function of a read object: line y of the image whose state is
// data, its channel rows handed out through out (a void ***).
int read_row(void *data, int32_t y, void *out);

// The seek function of an object reading a stream that cannot seek back.
int seek_in_sequence(void *data, int32_t line);

}  // namespace orx::rla
