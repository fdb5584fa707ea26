// Deep OpenEXR files, scanline or tiled, read flat: each pixel's samples
// sorted by depth and composited front to back with the over operator.
// Colours and alpha are composited as they are stored (premultiplied);
// depths are weighted by what each sample adds to the alpha, as OpenImageIO
// flattens them.  Without an alpha channel nothing says how much a sample
// covers, and the part is refused at open; without Z nothing orders the
// samples, so a pixel may hold one sample at most (read as it stands).
// The chunk tables were checked through the C library at open, before this
// C++ reader, which trusts them, sees the file.
#include <ImfDeepFrameBuffer.h>
#include <ImfDeepScanLineInputPart.h>
#include <ImfDeepTiledInputPart.h>
#include <ImfHeader.h>
#include <ImfMultiPartInputFile.h>
#include <ImfPartType.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "exr_plugin.hpp"
#include "orx/limits.h"
#include "plugin_kit.h"

namespace exr_plugin {
namespace {

// The plane channels that hold depth and alpha; -1 where there is none.
struct Roles {
  int z = -1, zback = -1, alpha = -1;
  explicit Roles(const std::vector<std::string> &names) {
    for (int c = 0; c < static_cast<int>(names.size()); ++c) {
      const std::string &n = names[static_cast<std::size_t>(c)];
      if (n == "Z") z = c;
      if (n == "ZBack") zback = c;
      if (n == "A") alpha = c;
    }
  }
};

// Lines y0..y1 of a deep part, flattened into the plane (whose row 0 is
// the data window's top line): counts() reads the sample counts of the
// frame buffer set up here, samples() the samples.
class Band {
 public:
  Band(const Imath::Box2i &dw, int y0, int y1, const std::vector<std::string> &names)
      : dw_(dw), y0_(y0), width_(static_cast<std::size_t>(dw.max.x - dw.min.x + 1)),
        pixels_(width_ * static_cast<std::size_t>(y1 - y0 + 1)), names_(names), roles_(names) {}

  template <class Part, class Counts, class Samples>
  int flatten(const char *path, Part &in, KitPlane *plane, Counts &&counts, Samples &&samples) {
    const std::size_t n = names_.size();
    count_.assign(pixels_, 0);
    first_.assign(pixels_ * n, nullptr);
    // OpenEXR addresses pixel (x, y) of the data window: the buffers start
    // where pixel (dw.min.x, y0) lands.
    const std::ptrdiff_t origin = static_cast<std::ptrdiff_t>(dw_.min.x) +
                                  static_cast<std::ptrdiff_t>(y0_) * static_cast<std::ptrdiff_t>(width_);
    Imf::DeepFrameBuffer fb;
    fb.insertSampleCountSlice(Imf::Slice(
        Imf::UINT, reinterpret_cast<char *>(count_.data()) - origin * 4, 4, 4 * width_));
    for (std::size_t c = 0; c < n; ++c)
      fb.insert(names_[c],
                Imf::DeepSlice(Imf::FLOAT,
                               reinterpret_cast<char *>(first_.data() + c) -
                                   origin * static_cast<std::ptrdiff_t>(n * sizeof(float *)),
                               n * sizeof(float *), n * sizeof(float *) * width_, 4));
    in.setFrameBuffer(fb);
    counts();
    const uint64_t total = std::accumulate(count_.begin(), count_.end(), uint64_t{0});
    const uint64_t lines = pixels_ / width_;
    if (total * n * 4 > static_cast<uint64_t>(ORX_limit(ORX_LIMIT_ROW_MEMORY)) * lines) {
      kit_fail(ORX_E_READ, "exr: cannot read %s: its deep samples need more than the image "
               "memory limit", path);
      return ORX_E_READ;
    }
    samples_.resize(static_cast<std::size_t>(total * n));
    for (std::size_t p = 0, at = 0; p < pixels_; at += count_[p++])
      for (std::size_t c = 0; c < n; ++c) first_[p * n + c] = samples_.data() + c * total + at;
    samples();
    std::vector<float> out(n);
    for (std::size_t p = 0; p < pixels_; ++p) {
      const int x = dw_.min.x + static_cast<int>(p % width_), y = y0_ + static_cast<int>(p / width_);
      if (roles_.z < 0 && count_[p] > 1) {
        kit_fail(ORX_E_UNSUPPORTED, "exr: cannot read %s: pixel %d,%d holds %u deep samples and "
                 "no Z to order them", path, x, y, count_[p]);
        return ORX_E_UNSUPPORTED;
      }
      composite(out.data(), &first_[p * n], static_cast<int>(n), static_cast<int>(count_[p]));
      for (std::size_t c = 0; c < n; ++c)
        std::memcpy(kit_plane_at(plane, y - dw_.min.y, static_cast<int32_t>(c)) +
                        static_cast<std::size_t>(x - dw_.min.x) * 4,
                    &out[c], 4);
    }
    return 0;
  }

 private:
  // One pixel's samples, nearest first, over each other into out.
  void composite(float *out, float *const *in, int channels, int samples) {
    order_.resize(static_cast<std::size_t>(samples));
    std::iota(order_.begin(), order_.end(), 0);
    if (roles_.z >= 0)
      std::stable_sort(order_.begin(), order_.end(),
                       [&](int a, int b) { return in[roles_.z][a] < in[roles_.z][b]; });
    std::fill(out, out + channels, 0.0f);
    const int a = roles_.alpha;
    for (int k = 0; k < samples && out[a] < 1.0f; ++k) {
      const int s = order_[static_cast<std::size_t>(k)];
      const float through = 1.0f - out[a];
      for (int c = 0; c < channels; ++c)
        out[c] += through * in[c][s] * (c == roles_.z || c == roles_.zback ? in[a][s] : 1.0f);
    }
  }

  Imath::Box2i dw_;
  int y0_;
  std::size_t width_, pixels_;
  const std::vector<std::string> &names_;
  Roles roles_;
  std::vector<unsigned> count_;
  std::vector<float *> first_;
  std::vector<float> samples_;
  std::vector<int> order_;
};

}  // namespace

const char *deep_problem(const std::vector<std::string> &names) {
  return Roles(names).alpha < 0 ? "holds deep samples without alpha (A), which say nothing of "
                                  "what they cover and cannot be composited"
                                : nullptr;
}

int decode_deep(const char *path, int part, const std::vector<std::string> &names,
                KitPlane *plane) {
  return read_with_openexr(path, [&] {
    Imf::MultiPartInputFile file(path, 1);
    if (file.header(part).type() == Imf::DEEPTILE) {
      Imf::DeepTiledInputPart in(file, part);
      const Imath::Box2i dw = in.header().dataWindow();
      if (const int status = check_window(path, plane, dw)) return status;
      // A row of tiles at a time.
      const int across = in.numXTiles(0), th = static_cast<int>(in.tileYSize());
      for (int ty = 0; ty < in.numYTiles(0); ++ty) {
        const int y0 = dw.min.y + ty * th, y1 = std::min(dw.max.y, y0 + th - 1);
        Band band(dw, y0, y1, names);
        if (const int status = band.flatten(
                path, in, plane, [&] { in.readPixelSampleCounts(0, across - 1, ty, ty, 0, 0); },
                [&] { in.readTiles(0, across - 1, ty, ty, 0, 0); }))
          return status;
      }
      return 0;
    }
    Imf::DeepScanLineInputPart in(file, part);
    const Imath::Box2i dw = in.header().dataWindow();
    if (const int status = check_window(path, plane, dw)) return status;
    for (int y = dw.min.y; y <= dw.max.y; ++y) {
      Band band(dw, y, y, names);
      if (const int status = band.flatten(path, in, plane, [&] { in.readPixelSampleCounts(y, y); },
                                          [&] { in.readPixels(y, y); }))
        return status;
    }
    return 0;
  });
}

}  // namespace exr_plugin
