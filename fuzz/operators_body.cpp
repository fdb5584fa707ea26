// Operators over hostile files: the first byte chooses a stack of layers,
// the rest is an RLA file; every row of the window is read through the stack
// and the handle closed (which unwinds it).
#include <string>

#include "bodies.hpp"
#include "orx/err.h"
#include "orx/operators.h"
#include "orx/registry.h"
#include "quiet.hpp"

namespace orx::fuzz {

int operator_stack(const std::uint8_t *data, std::size_t size) {
  silence_reports();
  if (size < 2) return 0;
  static const std::string path = scratch_path("ops.rla");
  if (!write_bytes(path, data + 1, size - 1)) return 0;
  ORX_INFO info;
  ORX_info_init(&info);
  info.type = const_cast<char *>("rla");
  info.handle = const_cast<char *>(path.c_str());
  info.full_path = 1;
  ORX_OBJECT *h = ORX_open(&info, "r");
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
