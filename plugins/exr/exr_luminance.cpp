// Luminance/chroma ("YC") OpenEXR files: Y at full resolution with RY and
// BY subsampled, which OpenEXR's RGBA interface turns back into RGB (and A).
// The chunk tables were checked through the C library at open, before this
// C++ reader, which trusts them, sees the file.
#include <ImfRgbaFile.h>

#include <cstring>
#include <vector>

#include "exr_plugin.hpp"
#include "plugin_kit.h"

namespace exr_plugin {

int decode_luminance_chroma(const char *path, KitPlane *plane) {
  return read_with_openexr(path, [&] {
    Imf::RgbaInputFile in(path, 1);
    const Imath::Box2i dw = in.dataWindow();
    if (const int status = check_window(path, plane, dw)) return status;
    const int width = dw.max.x - dw.min.x + 1;
    std::vector<Imf::Rgba> row(static_cast<std::size_t>(width));
    for (int y = dw.min.y; y <= dw.max.y; ++y) {
      in.setFrameBuffer(row.data() - dw.min.x - static_cast<std::ptrdiff_t>(y) * width, 1,
                        static_cast<std::size_t>(width));
      in.readPixels(y);
      for (int32_t c = 0; c < plane->channels; ++c) {
        unsigned char *to = kit_plane_at(plane, y - dw.min.y, c);
        for (int x = 0; x < width; ++x) {
          const Imf::Rgba &p = row[static_cast<std::size_t>(x)];
          const float v = c == 0 ? p.r : c == 1 ? p.g : c == 2 ? p.b : p.a;
          std::memcpy(to + static_cast<std::size_t>(x) * 4, &v, 4);
        }
      }
    }
    return 0;
  });
}

}  // namespace exr_plugin
