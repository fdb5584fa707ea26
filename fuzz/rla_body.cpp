#include <algorithm>
#include <string>

#include "bodies.hpp"
#include "quiet.hpp"
#include "orx/err.h"
#include "orx/plugin.h"
#include "orx/rla.h"
#include "orx/str.h"

namespace orx::fuzz {

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

}  // namespace orx::fuzz
