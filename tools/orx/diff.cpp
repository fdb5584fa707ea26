// orx diff: compare two images channel by channel.  Exit status 0 when the
// largest difference is within --fail, 1 beyond it, 2 when a file cannot be
// read or the images do not match in size or channels.
#include <cmath>
#include <cstdio>
#include <string>

#include "commands.hpp"
#include "progress.hpp"
#include "orx/operators.h"
#include "tool.hpp"

namespace orx::tool {

int run_diff(const DiffOptions &o) {
  Image a, b;
  if (!a.open_read(o.a, o.type)) return complain(o.a);
  if (!b.open_read(o.b, o.type)) return complain(o.b);
  const ORX_IFD &da = a.ifd(0);
  const ORX_IFD &db = b.ifd(0);
  const int width = width_of(da), height = height_of(da), channels = channels_of(da);
  if (width != width_of(db) || height != height_of(db))
    return complain(o.b, "size differs from " + o.a);
  if (channels != channels_of(db)) return complain(o.b, "channel count differs from " + o.a);

  double max_diff = 0.0, sum = 0.0, sum_sq = 0.0;
  long differing = 0;
  int max_x = 0, max_y = 0, max_c = 0;  // where the largest difference is
  Progress progress(height);
  RowBuffers va(channels, width), vb(channels, width);
  for (int r = 0; r < height; ++r) {
    void **ra = nullptr, **rb = nullptr;
    if (!a.read_row(0, da.window.bottom + r, &ra)) return complain(o.a);
    if (!b.read_row(0, db.window.bottom + r, &rb)) return complain(o.b);
    for (int c = 0; c < channels; ++c) {
      ORX_convert_row(&group_of(da, c), ra[c], &double_channel(), va.row(c), width);
      ORX_convert_row(&group_of(db, c), rb[c], &double_channel(), vb.row(c), width);
    }
    for (int x = 0; x < width; ++x) {
      bool pixel_differs = false;
      for (int c = 0; c < channels; ++c) {
        const double d = std::fabs(va.doubles(c)[x] - vb.doubles(c)[x]);
        if (d > max_diff) {
          max_diff = d;
          max_x = da.window.left + x;
          max_y = da.window.bottom + r;
          max_c = c;
        }
        sum += d;
        sum_sq += d * d;
        pixel_differs = pixel_differs || d > 0.0;
      }
      differing += pixel_differs ? 1 : 0;
    }
    progress.step();
  }
  const double samples = double{static_cast<double>(width)} * height * channels;
  const double mse = samples > 0 ? sum_sq / samples : 0.0;
  std::printf("max difference   %.6g\n", max_diff);
  if (max_diff > 0.0)
    std::printf("largest at       x %d, y %d, channel %d (%s)\n", max_x, max_y, max_c,
                channel_label(da, max_c).c_str());
  std::printf("mean difference  %.6g\ndiffering pixels %ld of %ld\n",
              samples > 0 ? sum / samples : 0.0, differing, static_cast<long>(width) * height);
  if (mse > 0.0)
    std::printf("PSNR             %.2f dB\n", 10.0 * std::log10(1.0 / mse));
  else
    std::printf("PSNR             inf\n");
  if (max_diff > o.fail) {
    std::printf("FAIL: difference %.6g above %.6g\n", max_diff, o.fail);
    return kDifferent;
  }
  if (o.warn > 0.0 && max_diff > o.warn)
    std::printf("WARNING: difference %.6g above %.6g\n", max_diff, o.warn);
  std::printf("PASS\n");
  return kOk;
}

}  // namespace orx::tool
