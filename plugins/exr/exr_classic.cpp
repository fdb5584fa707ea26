// Parts that OpenEXR's C library (3.1) cannot decode, read through its C++
// library instead: DWAA and DWAB, which the C library does not implement,
// and B44 or B44A without a half channel, whose chunks it decodes wrongly
// (B44 compresses only half samples and stores the others as they are).
// Compositing programs often write DWA, so these files are common.  The chunk tables were checked through the C library at open,
// before this C++ reader, which trusts them, sees the file.
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfInputPart.h>
#include <ImfMultiPartInputFile.h>
#include <ImfPartType.h>
#include <ImfTiledInputPart.h>

#include <cstddef>

#include "exr_plugin.hpp"
#include "plugin_kit.h"

namespace exr_plugin {

int decode_classic(const char *path, int part, int level, const std::vector<std::string> &names,
                   KitPlane *plane) {
  return read_with_openexr(path, [&] {
    Imf::MultiPartInputFile file(path, 1);
    // OpenEXR addresses pixel (x, y) of the data window: each channel's
    // slice starts where pixel (dw.min.x, dw.min.y) lands in the plane.
    const auto frame_buffer = [&](const Imath::Box2i &dw) {
      const std::ptrdiff_t line = static_cast<std::ptrdiff_t>(plane->line_bytes);
      const std::ptrdiff_t origin = std::ptrdiff_t{dw.min.x} * 4 + std::ptrdiff_t{dw.min.y} * line;
      Imf::FrameBuffer fb;
      for (int32_t c = 0; c < static_cast<int32_t>(names.size()); ++c)
        fb.insert(names[static_cast<std::size_t>(c)],
                  Imf::Slice(integer_channel(*plane, c) ? Imf::UINT : Imf::FLOAT,
                             reinterpret_cast<char *>(kit_plane_at(plane, 0, c)) - origin, 4,
                             static_cast<std::size_t>(line)));
      return fb;
    };
    Imath::Box2i dw = file.header(part).dataWindow();
    if (file.header(part).type() == Imf::TILEDIMAGE) {
      // A mip level keeps the data window's corner, at its own size.
      Imf::TiledInputPart in(file, part);
      dw.max.x = dw.min.x + in.levelWidth(level) - 1;
      dw.max.y = dw.min.y + in.levelHeight(level) - 1;
      if (const int status = check_window(path, plane, dw)) return status;
      in.setFrameBuffer(frame_buffer(dw));
      in.readTiles(0, in.numXTiles(level) - 1, 0, in.numYTiles(level) - 1, level, level);
    } else {
      Imf::InputPart in(file, part);
      if (const int status = check_window(path, plane, dw)) return status;
      in.setFrameBuffer(frame_buffer(dw));
      in.readPixels(dw.min.y, dw.max.y);
    }
    return 0;
  });
}

}  // namespace exr_plugin
