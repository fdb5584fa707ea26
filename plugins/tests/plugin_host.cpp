#include "plugin_host.hpp"

#include <algorithm>
#include <cmath>

namespace orx::test {

double pattern_value(const Layout &l, int x, int y, int c, bool smooth) {
  // Colour is associated with the matte, as in every image of the library:
  // never above it.
  if (c < l.image && l.matte > 0)
    return std::min(pattern_value(Layout{l.image, 0, 0, l.type, l.bits}, x, y, c, smooth),
                    pattern_value(l, x, y, l.image, smooth));
  if (smooth) {
    const double v = 0.5 + 0.4 * std::sin(x / 6.0 + c) * std::cos(y / 5.0 - c);
    if (l.type != ORX_C_INTEGER) return static_cast<float>(v);
    const double top = std::ldexp(1.0, l.bits) - 1.0;
    return std::round(v * top) / top;
  }
  uint32_t h = static_cast<uint32_t>(x) * 73856093u ^ static_cast<uint32_t>(y) * 19349663u ^
               static_cast<uint32_t>(c + 1) * 83492791u;
  h ^= h >> 13;
  h *= 0x5bd1e995u;
  h ^= h >> 15;
  if (l.type != ORX_C_INTEGER) return (static_cast<int>(h % 2048) - 512) / 256.0;
  const double top = std::ldexp(1.0, l.bits) - 1.0;
  const uint32_t mask = l.bits >= 32 ? 0xffffffffu : (1u << l.bits) - 1u;
  return (h & mask) / top;
}

int write_pattern(ORX_INFO *request, const Layout &l, bool smooth, int step) {
  ORX_OBJECT *object = ORX_open(request, "w");
  if (object == nullptr) return orx__err != 0 ? orx__err : -1;
  std::vector<int32_t> lines;
  for (int32_t y = 0; y <= request->images[0].window.top; y += step) lines.push_back(y);
  const ORX_IFD &d = object->info.images[0];
  return write_lines(
      object,
      [&](int c, int32_t x, int32_t y) {
        const double v = pattern_value(l, x, y, c, smooth) * unit_scale(group_of(d, c));
        return group_of(d, c).type == ORX_C_INTEGER ? std::round(v) : v;
      },
      lines, true);
}

double read_difference(const std::string &path, const Layout &l, bool smooth,
                       ORX_IFD *read_back) {
  // Nothing allocated here, so that failure injection meets only the
  // library and the plug-in.
  ORX_OBJECT *object = open_image(path, nullptr);
  if (object == nullptr) return -1.0;
  const ORX_IFD ifd = object->info.images[0];
  if (read_back != nullptr) *read_back = ifd;
  double worst = 0.0;
  // Top row first: the file's own order, and the reverse of the writes.
  for (int y = ifd.window.top; y >= ifd.window.bottom; --y) {
    void **rows = nullptr;
    if (ORX_scan_read(object, y, &rows) != 0) {
      worst = -1.0;
      break;
    }
    for (int c = 0; c < std::min(channel_count(ifd), l.image + l.matte + l.aux); ++c)
      for (int x = 0; x <= ifd.window.right - ifd.window.left; ++x)
        worst = std::max(worst, std::fabs(get_unit(group_of(ifd, c), rows[c], x) -
                                          pattern_value(l, x, y, c, smooth)));
  }
  ORX_close(object);
  return worst;
}

}  // namespace orx::test
