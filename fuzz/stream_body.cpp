// RLA through the reader for streams that cannot seek, as the "pipe" format
// reads standard input and commands: the bytes come from memory.
#include <cstdio>
#include <vector>

#include "bodies.hpp"
#include "formats/rla/stream.hpp"
#include "orx/plugin.h"
#include "orx/str.h"
#include "quiet.hpp"

namespace orx::fuzz {
namespace {

int close_memory(std::FILE *stream) { return std::fclose(stream) == 0 ? 0 : -1; }

}  // namespace

int rla_stream(const std::uint8_t *data, std::size_t size) {
  silence_reports();
  if (size == 0) return 0;
  std::vector<std::uint8_t> bytes(data, data + size);
  std::FILE *stream = fmemopen(bytes.data(), bytes.size(), "rb");
  if (stream == nullptr) return 0;
  ORX_OBJECT *object = orx__new_obj(ORX_ACCESS_READ);
  if (object == nullptr) {
    std::fclose(stream);
    return 0;
  }
  object->info.handle = STR_save("-");
  if (!rla::read_open_stream(object, stream, close_memory)) {
    orx__free_obj(object);
    return 0;
  }
  const ORX_IFD &ifd = object->info.images[0];
  void *state = object->private_cell[0];
  void **rows = nullptr;
  // A stored row already passed is refused; the reader must say so, not fault.
  for (int32_t y = ifd.window.bottom; y <= ifd.window.top; ++y)
    if (object->scan(state, y, &rows) != 0) break;
  object->seek(state, ifd.window.bottom);
  object->scan(state, ifd.active.bottom, &rows);
  object->close(object, 0);
  return 0;
}

}  // namespace orx::fuzz
