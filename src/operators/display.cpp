// ORX__display: the chain of layers that turns an image into what a
// framebuffer of the framebuffer database shows.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "err/messages.hpp"
#include "operators/layer.hpp"
#include "orx/err.h"
#include "orx/fmt.h"
#include "orx/matrix.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

using Remove = int (*)(ORX_OBJECT *);
constexpr int kMaxSteps = 8;

// The display record: the removes of the layers it pushed, in push order.
struct DisplayRecord {
  LayerHeader header;
  Remove removes[kMaxSteps];
  int32_t count;
};

// The display layer passes lines through; it is there to hold the chain.
int display_scan(void *data, int32_t line, void *rows) {
  if (data == nullptr) return locked();
  return forward(&static_cast<DisplayRecord *>(data)->header, line, rows);
}

void release(ORX_OBJECT *handle, LayerHeader *header) {
  auto *r = reinterpret_cast<DisplayRecord *>(header);
  for (int32_t i = r->count - 1; i >= 0; --i) r->removes[i](handle);
  ERR_free(r);
}

using Layer = Kind<release>;

// Runs one step; records its remove when it pushed a layer.
template <class Step>
bool step(ORX_OBJECT *handle, DisplayRecord &r, Remove remove, Step install) {
  const ORX_SCAN_FN before = handle->scan;
  install();
  if (err::last_status() != 0) return false;  // this thread's install, not another's
  if (handle->scan != before) r.removes[r.count++] = remove;
  return true;
}

// The destination size fitting w x h inside the framebuffer and showing the
// same shape: an image pixel is image_aspect / (w / h) wide for 1 high, a
// framebuffer pixel fb.aspect / (x_resolution / y_resolution).
void fit(int32_t w, int32_t h, float image_aspect, const FB_FRAMEBUFFER &fb, int32_t *dw,
         int32_t *dh) {
  const double image_pixel = image_aspect > 0.0f ? image_aspect / (double(w) / h) : 1.0;
  const double fb_pixel =
      fb.aspect > 0.0f ? fb.aspect / (double(fb.x_resolution) / fb.y_resolution) : 1.0;
  const double width = w * image_pixel / fb_pixel;  // in framebuffer pixels
  const double scale = std::fmin(fb.x_resolution / width, double(fb.y_resolution) / h);
  *dw = std::clamp(static_cast<int32_t>(width * scale + 0.5), 1, fb.x_resolution);
  *dh = std::clamp(static_cast<int32_t>(h * scale + 0.5), 1, fb.y_resolution);
}

}  // namespace
}  // namespace orx::operators

using namespace orx::operators;

extern "C" {

ORX_OBJECT *ORX__display(ORX_OBJECT *handle, const char *framebuffer) {
  orx__err = 0;
  if (!has_image(handle) || handle->access != ORX_ACCESS_READ) return handle;
  const FB_FRAMEBUFFER *fb = FB_find(framebuffer != nullptr ? framebuffer : FB_def_framebuffer());
  if (fb == nullptr) {
    orx::fail(ORX_E_INVALID_TYPE, orx::Msg::kInvalidType, framebuffer);
    return handle;
  }
  auto *r = new_record<DisplayRecord>();
  if (r == nullptr) return handle;
  const auto undo = [&] {
    for (int32_t i = r->count - 1; i >= 0; --i) r->removes[i](handle);
    ERR_free(r);
  };
  float target[8];
  ORX_chromaticities_of_framebuffer(fb->name, target);
  const ORX_IFD &d0 = handle->info.images[0];
  const int32_t w = d0.window.right - d0.window.left + 1, h = d0.window.top - d0.window.bottom + 1;
  int32_t dw = w, dh = h;
  const bool too_big = w > fb->x_resolution || h > fb->y_resolution;
  if (too_big) fit(w, h, d0.aspect_ratio, *fb, &dw, &dh);
  const int32_t bits = fb->depth >= 3 ? std::min(16, fb->depth / 3) : 8;
  const int32_t wanted[2] = {ORX_C_INTEGER, bits};
  const int32_t *const targets[3] = {wanted, wanted, nullptr};
  ORX_RESPONSE_CURVE curve{ORX_CURVE_PARAMETRIC, fb->gamma, 0, 0, 1, 256, ORX_C_INTEGER, 8, nullptr};
  const ORX_FILTER *mitchell = ORX_filter_find("mitchell");
  // The clamp comes after the resize, whose kernel may overshoot: quantizing
  // does not clamp.  Skipped where they would change nothing: select with one image, the cast
  // of a float image, the colour transform into the framebuffer's own
  // primaries, the resize of an image that fits (an image is never
  // enlarged), the gamma correction of a display gamma of 1.0 or of more
  // than 8 bits.
  const bool ok =
      step(handle, *r, ORX__select_remove, [&] { ORX__select(handle, 0); }) &&
      step(handle, *r, orx__cast_remove, [&] { orx__cast_operator(handle); }) &&
      (handle->info.images[0].image.count < 3 ||
       step(handle, *r, orx__colour_transform_remove,
            [&] { orx__rgb_transform_operator(handle, target); })) &&
      (!too_big || step(handle, *r, orx__resample_remove, [&] {
         orx__resample_operator(handle, mitchell, 0, dw - 1, 0, dh - 1);
       })) &&
      step(handle, *r, orx__clamp_remove, [&] { install_clamp(handle, false); }) &&
      step(handle, *r, orx__quantize_remove,
           [&] { orx__quantize_read_operator(handle, targets); }) &&
      (bits > 8 || fb->gamma == 1.0f ||
       step(handle, *r, orx__gamma_remove, [&] { orx__gamma_operator(handle, &curve); }));
  if (!ok) {
    const int status = orx::err::last_status();
    undo();
    orx__err = status;
    return handle;
  }
  push(handle, &r->header, kDisplay, display_scan, Layer::close);
  return handle;
}

int ORX__display_remove(ORX_OBJECT *handle) { return Layer::remove(handle); }

}  // extern "C"
