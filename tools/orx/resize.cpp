// orx resize: a file's first image through the resampling filter, line by
// line, written at the same sample type.
#include <cstdio>
#include <string>
#include <vector>

#include "commands.hpp"
#include "orx/operators.h"
#include "tool.hpp"

namespace orx::tool {
namespace {

// The filter samples its kernels in destination pixels, which widens them
// when reducing (as it should) but narrows them below a source pixel when
// enlarging.  For an enlargement the kernel is stretched back to source
// pixels: argument and width scaled by the ratio.  Kernels take no data of
// their own, and each thread resizes one image at a time, so the scale lives
// here, per thread.
struct Stretch {
  static inline thread_local const ORX_FILTER *base = nullptr;
  static inline thread_local double sx = 1.0, sy = 1.0;
  static double x(double t) { return base->x_kernel(t * sx); }
  static double y(double t) { return base->y_kernel(t * sy); }
};

bool parse_size(const std::string &text, int *w, int *h) {
  return std::sscanf(text.c_str(), "%dx%d", w, h) == 2 && *w > 0 && *h > 0;
}

int resize_one(const std::string &in_path, const std::string &out_path, const ResizeOptions &o,
               const ORX_FILTER *kernel) {
  Image in;
  if (!in.open_read(in_path, "")) return complain(in_path);
  ORX__select(in.get(), 0);
  const ORX_IFD source = in.ifd(0);
  const int ws = width_of(source), hs = height_of(source);
  int wd = 0, hd = 0;
  if (!o.size.empty()) {
    if (!parse_size(o.size, &wd, &hd)) return complain("--size " + o.size, "expected WxH");
    if (o.fit) {  // the largest size inside WxH with the image's shape
      const double scale = std::min(double(wd) / ws, double(hd) / hs);
      wd = std::max(1, static_cast<int>(ws * scale + 0.5));
      hd = std::max(1, static_cast<int>(hs * scale + 0.5));
    }
  } else if (o.scale > 0.0) {
    wd = std::max(1, static_cast<int>(ws * o.scale + 0.5));
    hd = std::max(1, static_cast<int>(hs * o.scale + 0.5));
  } else {
    return complain("resize", "give --size WxH or --scale F");
  }
  static thread_local ORX_FILTER filter;  // the layer keeps a pointer to it
  filter = *kernel;
  Stretch::sx = Stretch::sy = 1.0;
  Stretch::base = kernel;
  const double rx = double(ws) / wd, ry = double(hs) / hd;
  if (rx < 1.0) {
    Stretch::sx = rx;
    filter.x_kernel = Stretch::x;
    filter.x_width = static_cast<float>(kernel->x_width / rx);
  }
  if (ry < 1.0) {
    Stretch::sy = ry;
    filter.y_kernel = Stretch::y;
    filter.y_width = static_cast<float>(kernel->y_width / ry);
  }
  // Samples are filtered as they are coded, as other resizers do: the cast
  // below the filter must scale 8-bit codes, not linearise them, so the
  // image's gamma is set aside while the layers are pushed.
  in.get()->info.images[0].curve.gamma = 1.0f;
  orx__resample_operator(in.get(), &filter, 0, wd - 1, 0, hd - 1);
  if (ORX_last_status() != 0) return complain(in_path, last_error());
  in.get()->info.images[0].curve.gamma = source.curve.gamma;
  // The result is written at the input's sample types, rounded and clamped
  // (kernels with negative lobes overshoot at edges).
  ORX_INFO like = in.info();
  ORX_IFD written = source;
  written.window = written.active = ORX_WINDOW{0, wd - 1, 0, hd - 1};
  written.x_resolution = wd;
  written.y_resolution = hd;
  like.images = &written;
  like.image_count = 1;
  Image out;
  NamedSettings asked;
  std::string why;
  if (!output_settings(o.settings, out_path, o.type, &asked, &why)) return complain(out_path, why);
  if (!out.open_write(out_path, o.type, like, asked)) return complain(out_path);
  const int channels = channels_of(written);
  RowBuffers storage(channels, wd);
  const ORX_IFD &filtered = in.ifd(0);
  for (int32_t y = 0; y < hd; ++y) {
    void **rows = nullptr;
    if (!in.read_row(0, y, &rows)) return complain(in_path);
    // The filter reads the rows it needs without checking them (a damaged
    // file's missing lines give it whatever its rows held): the frame fails
    // on the reader's report, which is the thread's status after the line.
    if (ORX_last_status() != 0) return complain(in_path, last_error());
    for (int c = 0; c < channels; ++c)
      ORX_convert_row(&group_of(filtered, c), rows[c], &group_of(written, c), storage.row(c), wd);
    if (!out.write_row(0, y, storage.rows())) return complain(out_path);
  }
  if (!out.close()) return complain(out_path);
  return kOk;
}

}  // namespace

int run_resize(const ResizeOptions &o) {
  const ORX_FILTER *kernel = ORX_filter_find(o.filter.c_str());
  if (kernel == nullptr) {
    std::string names;
    for (int32_t i = 0; const char *n = ORX_filter_name(i); ++i) names += (i ? ", " : "") + std::string(n);
    return complain("--filter " + o.filter, "the filters are " + names);
  }
  int w = 0, h = 0;
  if (!o.size.empty() && !parse_size(o.size, &w, &h)) return complain("--size " + o.size, "expected WxH");
  if (o.size.empty() && !(o.scale > 0.0)) return complain("resize", "give --size WxH or --scale F");
  return run_frames(o.sequence, o.in, o.out, o.type,
                    [&](const std::string &in, const std::string &out) {
                      return resize_one(in, out, o, kernel);
                    });
}

}  // namespace orx::tool
