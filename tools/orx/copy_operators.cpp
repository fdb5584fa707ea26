// The operators orx copy layers onto its input: --image, --gamma, --range,
// --depth and --clamp, in that order.
#include <cmath>
#include <cstdio>
#include <string>

#include "commands.hpp"
#include "orx/err.h"
#include "orx/matrix.h"
#include "orx/operators.h"
#include "tool.hpp"

namespace orx::tool {
namespace {

bool parse_depth(const std::string &depth, int32_t *type, int32_t *bits) {
  const struct {
    const char *name;
    int32_t type, bits;
  } depths[] = {{"int8", ORX_C_INTEGER, 8}, {"int16", ORX_C_INTEGER, 16},
                {"int32", ORX_C_INTEGER, 32}, {"float", ORX_C_FLOAT, 32}};
  for (const auto &d : depths)
    if (depth == d.name) {
      *type = d.type;
      *bits = d.bits;
      return true;
    }
  return false;
}

// What the library reported for a refusal, or the fallback.
std::string reason(const char *fallback) {
  return last_error().empty() ? std::string(fallback) : last_error();
}

}  // namespace

bool apply_operators(ORX_OBJECT *in, const CopyOptions &o, std::string *why) {
  if (!o.display.empty()) {
    ORX__display(in, o.display == "default" ? nullptr : o.display.c_str());
    if (ORX_last_status() != 0) return *why = reason("--display: no such framebuffer"), false;
    return true;
  }
  const bool any = !o.depth.empty() || o.gamma > 0.0 || o.image >= 0 || !o.range.empty() ||
                   o.clamp || !o.primaries.empty() || o.xyz || !o.crop.empty();
  if (!any) return true;
  int32_t type = 0, bits = 0;
  if (!o.depth.empty() && !parse_depth(o.depth, &type, &bits)) {
    *why = "--depth is int8, int16, int32 or float";
    return false;
  }
  // Layers work on one image: a multi-image file is copied as one image,
  // the one --image names (0 by default).
  const int image = o.image >= 0 ? o.image : 0;
  if (image >= in->info.image_count) {
    *why = "--image " + std::to_string(image) + ": the file has " +
           std::to_string(in->info.image_count) + " image(s)";
    return false;
  }
  ORX__select(in, image);
  if (o.gamma > 0.0) {
    ORX_RESPONSE_CURVE target{ORX_CURVE_PARAMETRIC, static_cast<float>(o.gamma), 0, 0, 1, 256,
                              ORX_C_INTEGER, 8, nullptr};
    orx__gamma_operator(in, &target);
    if (ORX_last_status() != 0) return *why = reason("--gamma needs 8-bit data"), false;
  }
  if (!o.range.empty()) {
    double low = 0, high = 1;
    if (std::sscanf(o.range.c_str(), "%lf,%lf", &low, &high) != 2) {
      *why = "--range is MIN,MAX";
      return false;
    }
    orx__min_max_operator(in, low, high);
    if (ORX_last_status() != 0) return *why = reason("--range needs 8-bit data"), false;
  }
  const ORX_IFD before = in->info.images[0];  // the types a crop writes back
  if (!o.crop.empty()) {
    float x0, y0, x1, y1;
    if (std::sscanf(o.crop.c_str(), "%f,%f,%f,%f", &x0, &y0, &x1, &y1) != 4 || !(x1 > x0) ||
        !(y1 > y0))
      return *why = "--crop is X0,Y0,X1,Y1 with X0 < X1 and Y0 < Y1", false;
    // Without colour work the crop moves coded values as they are: the cast
    // below it must scale 8-bit codes, not linearise them.
    const bool coded = o.primaries.empty() && !o.xyz && !o.clamp && o.depth.empty();
    if (coded) in->info.images[0].curve.gamma = 1.0f;
    orx__scale_operator(in, x0, y0, x1, y1, static_cast<int32_t>(std::lround(x1 - x0)),
                        static_cast<int32_t>(std::lround(y1 - y0)));
    if (coded) in->info.images[0].curve.gamma = before.curve.gamma;
    if (ORX_last_status() != 0) return *why = reason("--crop cannot be applied"), false;
  }
  if (!o.depth.empty() || o.clamp || !o.primaries.empty() || o.xyz) {
    orx__cast_operator(in);
    if (ORX_last_status() != 0) return *why = reason("out of memory"), false;
  }
  if (!o.primaries.empty()) {
    float target[8];
    if (std::sscanf(o.primaries.c_str(), "%f,%f,%f,%f,%f,%f,%f,%f", &target[0], &target[1],
                    &target[2], &target[3], &target[4], &target[5], &target[6], &target[7]) != 8 &&
        ORX_chromaticities_of_framebuffer(o.primaries.c_str(), target) != 0)
      return *why = "--primaries: no framebuffer \"" + o.primaries +
                    "\" and not eight chromaticities", false;
    orx__rgb_transform_operator(in, target);
    if (ORX_last_status() != 0)
      return *why = reason("--primaries needs three colour channels"), false;
  }
  if (o.xyz) {
    orx__xyz_transform_operator(in, 1);
    if (ORX_last_status() != 0) return *why = reason("--xyz needs three colour channels"), false;
  }
  if (o.clamp) orx__clamp_operator(in);
  if (type == ORX_C_INTEGER) {
    const int32_t target[2] = {type, bits};
    const int32_t *const targets[3] = {target, target, target};
    orx__quantize_read_operator(in, targets);
    if (ORX_last_status() != 0) return *why = reason("out of memory"), false;
  } else if (!o.crop.empty() && o.depth.empty()) {
    // A crop keeps the input's sample types: integer codes come back exactly.
    const int32_t colours[2] = {before.image.type, before.image.bits};
    const int32_t mattes[2] = {before.matte.type, before.matte.bits};
    const int32_t extras[2] = {before.aux.type, before.aux.bits};
    const int32_t *const targets[3] = {before.image.type == ORX_C_INTEGER ? colours : nullptr,
                                       before.matte.type == ORX_C_INTEGER ? mattes : nullptr,
                                       before.aux.type == ORX_C_INTEGER ? extras : nullptr};
    orx__quantize_read_operator(in, targets);
    if (ORX_last_status() != 0) return *why = reason("out of memory"), false;
  }
  return true;
}

}  // namespace orx::tool
