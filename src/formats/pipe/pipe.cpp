// The "pipe" format: RLA streamed without seeking.  A handle of "-" is
// standard input (reading) or standard output (writing); a handle starting
// with "|" runs the rest as a shell command and reads its standard output or
// writes its standard input.  Any other handle is a file read or written in
// stream order.  `cat a.rla | host` and `host > a.pipe` both work.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "err/messages.hpp"
#include "formats/builtin.hpp"
#include "formats/rla/stream.hpp"
#include "orx/err.h"
#include "platform/platform.hpp"

namespace orx::formats {
namespace {

int close_file(std::FILE *stream) { return std::fclose(stream) == 0 ? 0 : -1; }

// Opens the stream a handle names; null after a report.  A plain file
// opened for writing notes in *created whether the open made it.
std::FILE *open_stream(const char *handle, bool writing, rla::CloseStream *close,
                       platform::CreatedFile *created) {
  if (handle == nullptr) {
    fail(ORX_E_FIELD_MISSING, Msg::kFieldMissing, "handle");
    return nullptr;
  }
  std::FILE *stream = nullptr;
  if (std::strcmp(handle, "-") == 0) {
    *close = nullptr;
    return writing ? stdout : stdin;
  }
  if (handle[0] == '|') {
    *close = platform::close_command;
    stream = platform::open_command(handle + 1, writing ? "w" : "r");
  } else {
    *close = close_file;
    stream = writing ? platform::create_file(handle, created) : std::fopen(handle, "rb");
  }
  if (stream == nullptr) fail(ORX_E_FIELD_MISSING, Msg::kCannotOpen, handle, std::strerror(errno));
  return stream;
}

}  // namespace

int pipe_read_open(ORX_OBJECT *object) {
  rla::CloseStream close = nullptr;
  platform::CreatedFile created;
  std::FILE *stream = open_stream(object->info.handle, false, &close, &created);
  return stream != nullptr && rla::read_open_stream(object, stream, close) ? 1 : 0;
}

int pipe_write_open(ORX_OBJECT *object) {
  rla::CloseStream close = nullptr;
  platform::CreatedFile created;
  std::FILE *stream = open_stream(object->info.handle, true, &close, &created);
  if (stream == nullptr) return 0;
  if (rla::write_open_stream(object, stream, close) != 0) return 1;
  // The stream is closed; a file the open created goes with it.
  platform::remove_created_file(object->info.handle, created);
  return 0;
}

uint8_t pipe_is_file(const char *name, std::FILE *) {
  return name != nullptr && (std::strcmp(name, "-") == 0 || name[0] == '|') ? 1 : 0;
}

}  // namespace orx::formats
