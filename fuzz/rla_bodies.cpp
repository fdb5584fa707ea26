// The RLA reader under hostile bytes: read as a file (every stored row of
// every image, plus the window's first and last rows), through the reader
// for streams that cannot seek (as the "pipe" format reads standard input
// and commands), and through a stack of operators the first byte chooses.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "bodies.hpp"
#include "formats/rla/stream.hpp"
#include "orx/err.h"
#include "orx/operators.h"
#include "orx/plugin.h"
#include "orx/registry.h"
#include "orx/rla.h"
#include "orx/str.h"
#include "quiet.hpp"

namespace orx::fuzz {
namespace {

int close_memory(std::FILE *stream) { return std::fclose(stream) == 0 ? 0 : -1; }

}  // namespace

int rla_read(const std::uint8_t *data, std::size_t size) {
  silence_reports();
  static const std::string path = scratch_path("read.rla");
  if (!write_bytes(path, data, size)) return 0;
  ORX_rla_is_file(path.c_str(), nullptr);

  ORX_OBJECT *object = orx__new_obj(ORX_ACCESS_READ);
  if (object == nullptr) return 0;
  object->info.handle = STR_save(path.c_str());
  object->info.full_path = 1;
  if (object->info.handle == nullptr || !ORX_rla_r_open(object)) {
    orx__free_obj(object);
    return 0;
  }
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    const ORX_IFD &ifd = object->info.images[i];
    void *state = object->private_cell[i];
    void **rows = nullptr;
    object->scan(state, ifd.window.bottom, &rows);
    object->scan(state, ifd.window.top, &rows);
    int32_t first = std::max(ifd.active.bottom, ifd.window.bottom);
    int32_t last = std::min(ifd.active.top, ifd.window.top);
    for (int32_t y = first; y <= last; ++y) object->scan(state, y, &rows);
  }
  object->close(object, 0);
  return 0;
}

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

// Every row of the window is read through the stack and the handle closed,
// which unwinds it.
int operator_stack(const std::uint8_t *data, std::size_t size) {
  silence_reports();
  if (size < 2) return 0;
  static const std::string path = scratch_path("ops.rla");
  if (!write_bytes(path, data + 1, size - 1)) return 0;
  ORX_OBJECT *h = open_read(path, "rla");
  if (h == nullptr) return 0;
  const unsigned choice = data[0];
  if (choice & 1) ORX__select(h, static_cast<int32_t>(choice >> 6));
  if (choice & 2) {
    ORX_RESPONSE_CURVE target{ORX_CURVE_PARAMETRIC, 1.8f, 0, 0, 1, 256, ORX_C_INTEGER, 8, nullptr};
    orx__gamma_operator(h, &target);
  }
  if (choice & 4) orx__min_max_operator(h, 0.25, 0.75);
  bool cast_ok = true;
  if (choice & 8) {
    orx__cast_operator(h);
    cast_ok = orx__err == 0;  // a failed cast leaves a description that must not be layered on
  }
  if ((choice & 16) && cast_ok) orx__clamp_operator(h);
  if ((choice & 32) && cast_ok) {
    const int32_t eight[2] = {ORX_C_INTEGER, 8};
    const int32_t *const targets[3] = {eight, eight, eight};
    orx__quantize_read_operator(h, targets);
  }
  const ORX_IFD &d = h->info.images[0];
  for (int32_t y = d.window.bottom; y <= d.window.top && y - d.window.bottom < 4096; ++y) {
    void **rows = nullptr;
    ORX_scan_read(h, y, &rows);
  }
  ORX_close(h);
  return 0;
}

}  // namespace orx::fuzz
