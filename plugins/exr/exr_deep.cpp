// Deep OpenEXR files read flat: each pixel's samples sorted by depth and
// composited front to back with the over operator, through OpenEXR's
// compositing engine.  The chunk
// tables were checked through the C library at open, before this C++
// reader, which trusts them, sees the file.
#include <ImfCompositeDeepScanLine.h>
#include <ImfDeepCompositing.h>
#include <ImfDeepScanLineInputPart.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfMultiPartInputFile.h>

#include <algorithm>
#include <string>
#include <vector>

#include "exr_plugin.hpp"
#include "orx/limits.h"
#include "plugin_kit.h"

namespace exr_plugin {
namespace {

// Colours and alpha are composited as they are stored (premultiplied);
// depths are weighted by what each sample adds to the alpha, as OpenImageIO
// flattens them (OpenEXR's default keeps the last depth).  Samples are
// sorted even from one source, which OpenEXR's default does not do.
class FrontToBack : public Imf::DeepCompositing {
 public:
  void composite_pixel(float out[], const float *in[], const char *names[], int channels,
                       int samples, int sources) override {
    (void)names;
    (void)sources;
    order_.resize(static_cast<std::size_t>(samples > 0 ? samples : 0));
    for (int k = 0; k < samples; ++k) order_[static_cast<std::size_t>(k)] = k;
    std::stable_sort(order_.begin(), order_.end(), [&](int a, int b) { return in[0][a] < in[0][b]; });
    for (int c = 0; c < channels; ++c) out[c] = 0.0f;
    // Channel 0 is Z, 1 ZBack (or Z again), 2 alpha, then the others.
    for (int k = 0; k < samples && out[2] < 1.0f; ++k) {
      const int s = order_[static_cast<std::size_t>(k)];
      const float through = 1.0f - out[2];
      out[0] += through * in[2][s] * in[0][s];
      out[1] += through * in[2][s] * in[1][s];
      for (int c = 2; c < channels; ++c) out[c] += through * in[c][s];
    }
  }

 private:
  std::vector<int> order_;
};

}  // namespace

int decode_deep(const char *path, int part, const std::vector<std::string> &names,
                KitPlane *plane) {
  return read_with_openexr(path, [&] {
    Imf::MultiPartInputFile file(path, 1);
    Imf::DeepScanLineInputPart in(file, part);
    const Imath::Box2i dw = in.header().dataWindow();
    if (const int status = check_window(path, plane, dw)) return status;
    // A line's samples are held whole: no more of them than the image
    // memory limit allows a line (a hostile count table asks for any).
    Imf::CompositeDeepScanLine::setMaximumSampleCount(static_cast<int64_t>(
        static_cast<uint64_t>(ORX_limit(ORX_LIMIT_ROW_MEMORY)) /
        (4 * static_cast<uint64_t>(plane->channels > 0 ? plane->channels : 1))));
    FrontToBack compositing;
    Imf::CompositeDeepScanLine flat;
    flat.setCompositing(&compositing);
    flat.addSource(&in);
    // Each channel lands in its plane row: pixel (x, y) of the data window
    // at row y - dw.min.y, column x - dw.min.x.
    Imf::FrameBuffer fb;
    for (int32_t c = 0; c < plane->channels; ++c) {
      char *origin = reinterpret_cast<char *>(kit_plane_at(plane, 0, c)) -
                     static_cast<std::ptrdiff_t>(dw.min.x) * 4 -
                     static_cast<std::ptrdiff_t>(dw.min.y) * static_cast<std::ptrdiff_t>(plane->line_bytes);
      fb.insert(names[static_cast<std::size_t>(c)],
                Imf::Slice(Imf::FLOAT, origin, 4, plane->line_bytes));
    }
    flat.setFrameBuffer(fb);
    // A line at a time: OpenEXR holds every sample of the lines it composites.
    for (int y = dw.min.y; y <= dw.max.y; ++y) flat.readPixels(y, y);
    return 0;
  });
}

}  // namespace exr_plugin
