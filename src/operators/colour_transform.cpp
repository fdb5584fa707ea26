// The colour transform operators: float RGB to other primaries and white
// point, or to CIE XYZ and back, through one 3x3 matrix per layer.
#include <cstring>

#include "err/messages.hpp"
#include "operators/convert.hpp"
#include "operators/layer.hpp"
#include "orx/err.h"
#include "orx/matrix.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

constexpr int32_t kColourTransform = 30;

struct ColourRecord {
  LayerHeader header;
  float m[9];              // row-major 3x3
  int32_t width;
  float saved[4][3];       // the request's red, green, blue, white
  bool pushed_cast;
};

// The matrix is read into locals so that the rows, which may be the
// record's neighbours in memory, cannot change it under the loop.
ORX_ROW_KERNEL void apply_matrix(const float *matrix, float *red, float *green, float *blue,
                                 int32_t n) {
  const float m0 = matrix[0], m1 = matrix[1], m2 = matrix[2], m3 = matrix[3], m4 = matrix[4],
              m5 = matrix[5], m6 = matrix[6], m7 = matrix[7], m8 = matrix[8];
  for (int32_t x = 0; x < n; ++x) {
    const float a = red[x], b = green[x], c = blue[x];
    red[x] = m0 * a + m1 * b + m2 * c;
    green[x] = m3 * a + m4 * b + m5 * c;
    blue[x] = m6 * a + m7 * b + m8 * c;
  }
}

int colour_rows(ColourRecord &r, int32_t, void ***rows, int status) {
  void **channels = *rows;
  // The cast's rows: float and float-aligned.
  apply_matrix(r.m, static_cast<float *>(channels[0]), static_cast<float *>(channels[1]),
               static_cast<float *>(channels[2]), r.width);
  return status;
}

void set_chromaticities(ORX_INFO &info, const float c[8]) {
  float *fields[] = {info.red, info.green, info.blue, info.white};
  for (int i = 0; i < 4; ++i) {
    fields[i][0] = c[2 * i];
    fields[i][1] = c[2 * i + 1];
    fields[i][2] = 1.0f - c[2 * i] - c[2 * i + 1];
  }
}

void release(ORX_OBJECT *handle, LayerHeader *header) {
  auto *r = reinterpret_cast<ColourRecord *>(header);
  float *fields[] = {handle->info.red, handle->info.green, handle->info.blue, handle->info.white};
  for (int i = 0; i < 4; ++i) std::memcpy(fields[i], r->saved[i], sizeof r->saved[i]);
  const bool pushed_cast = r->pushed_cast;
  ERR_free(r);
  undo_cast(handle, pushed_cast);
}

using Layer = Kind<release>;

// Push the layer with matrix m (4x4, of which the 3x3 part is used); the
// description then carries target (NULL: unchanged).
ORX_OBJECT *install(ORX_OBJECT *handle, const float m[16], const float *target) {
  ORX_IFD &d = handle->info.images[0];
  const CastBelow cast(handle);
  if (!cast.ok()) return handle;  // reported
  const bool pushed_cast = cast.pushed();
  if (d.image.count < 3 || d.image.type != ORX_C_FLOAT || d.pixel_flags != 1) {
    undo_cast(handle, pushed_cast);
    fail(ORX_E_UNSUPPORTED, Msg::kImageType, "color transform operator");
    return handle;
  }
  auto *r = new_record<ColourRecord>();
  if (r == nullptr) {
    undo_cast(handle, pushed_cast);
    orx__err = ORX_E_NO_MEMORY;
    return handle;
  }
  for (int i = 0; i < 9; ++i) r->m[i] = m[(i / 3) * 4 + i % 3];
  r->width = span_of(d).width;
  r->pushed_cast = pushed_cast;
  const float *fields[] = {handle->info.red, handle->info.green, handle->info.blue, handle->info.white};
  for (int i = 0; i < 4; ++i) std::memcpy(r->saved[i], fields[i], sizeof r->saved[i]);
  if (target != nullptr) set_chromaticities(handle->info, target);
  push(handle, &r->header, kColourTransform, read_scan<ColourRecord, colour_rows>, Layer::close);
  return handle;
}

bool usable(const ORX_OBJECT *handle) {
  return handle != nullptr && handle->info.images != nullptr && handle->info.image_count >= 1 &&
         handle->access == ORX_ACCESS_READ;
}

}  // namespace
}  // namespace orx::operators

using namespace orx::operators;

extern "C" {

ORX_OBJECT *orx__rgb_transform_operator(ORX_OBJECT *handle, const float target[8]) {
  orx__err = 0;
  if (!usable(handle) || target == nullptr) return handle;
  float source[8], m[16];
  ORX_chromaticities_of_info(&handle->info, source);
  if (std::memcmp(source, target, sizeof source) == 0) return handle;  // nothing to change
  if (ORX_matrix_rgb_to_rgb(source, target, m) != 0) return handle;
  return install(handle, m, target);
}

ORX_OBJECT *orx__xyz_transform_operator(ORX_OBJECT *handle, int32_t to_xyz) {
  orx__err = 0;
  if (!usable(handle)) return handle;
  float source[8], m[16];
  ORX_chromaticities_of_info(&handle->info, source);
  if ((to_xyz != 0 ? ORX_matrix_rgb_to_xyz(source, m) : ORX_matrix_xyz_to_rgb(source, m)) != 0)
    return handle;
  return install(handle, m, nullptr);
}

int orx__colour_transform_remove(ORX_OBJECT *handle) { return Layer::remove(handle); }

}  // extern "C"
