// orx pattern: a test image (gradients, a checker and grain), so there is a
// file to work with before bringing one.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "commands.hpp"
#include "orx/str.h"
#include "orx/operators.h"
#include "tool.hpp"

namespace orx::tool {
namespace {

bool parse_size(const std::string &text, int *w, int *h) {
  return std::sscanf(text.c_str(), "%dx%d", w, h) == 2 && *w > 0 && *h > 0 && *w <= 32767 &&
         *h <= 32767;
}

// Grain from a small integer hash, the same on every machine.
double grain(uint32_t x, uint32_t y, uint32_t c) {
  uint32_t h = x * 0x9E3779B1u ^ (y + 0x7F4A7C15u) * 0x85EBCA77u ^ c * 0xC2B2AE3Du;
  h ^= h >> 15;
  h *= 0x2C1B3C6Du;
  h ^= h >> 12;
  return (static_cast<double>(h & 0xFFFF) / 65535.0 - 0.5) * 0.04;
}

double value(int c, int x, int y, int w, int h) {
  const double fx = (x + 0.5) / w, fy = (y + 0.5) / h;
  const double checker = ((x / 32 + y / 32) % 2 == 0) ? 0.12 : 0.0;
  const double ramp = c == 0 ? fx : c == 1 ? fy : 1.0 - 0.5 * (fx + fy);
  const double v = 0.8 * ramp + checker +
                   grain(static_cast<uint32_t>(x), static_cast<uint32_t>(y), static_cast<uint32_t>(c));
  return v < 0.0 ? 0.0 : v > 1.0 ? 1.0 : v;
}

}  // namespace

int run_pattern(const PatternOptions &o) {
  int w = 0, h = 0;
  if (!parse_size(o.size, &w, &h)) return complain("--size " + o.size, "expected WxH");
  if (o.channels < 1 || o.channels > 3) return complain("--channels", "expected 1 to 3");
  int type = ORX_C_INTEGER, bits = 8;
  if (o.type == "int16") {
    bits = 16;
  } else if (o.type == "float") {
    type = ORX_C_FLOAT;
    bits = 32;
  } else if (o.type != "int8") {
    return complain("--type " + o.type, "expected int8, int16 or float");
  }

  ORX_IFD ifd;
  orx__init_ifd(&ifd);
  ifd.window = ifd.active = ORX_WINDOW{0, w - 1, 0, h - 1};
  ifd.image = ORX_CHANNELS{const_cast<char *>(o.channels == 3 ? "rgb" : "grey"), o.channels,
                           type, bits, 0};
  if (o.matte) ifd.matte = ORX_CHANNELS{nullptr, 1, type, bits, 0};
  ORX_INFO like;
  ORX_info_init(&like);
  like.name = const_cast<char *>("orx pattern");
  like.program = const_cast<char *>("orx");
  like.image_count = 1;
  like.images = &ifd;
  Image out;
  if (!out.open_write(o.out, "", like)) return complain(o.out);

  const ORX_IFD &d = out.ifd(0);
  const int channels = channels_of(d);
  RowBuffers rows(channels, w);
  std::vector<double> line(static_cast<std::size_t>(w));
  for (int y = 0; y < h; ++y) {
    for (int c = 0; c < channels; ++c) {
      for (int x = 0; x < w; ++x) {
        // The matte is a soft disc; image rows count from the bottom.  The
        // colour is associated with it (premultiplied), as every matte of
        // the library is.
        const double dx = (x - w / 2.0) / w, dy = (y - h / 2.0) / h;
        const double matte =
            o.matte ? std::fmin(1.0, std::fmax(0.0, 1.6 - 3.0 * std::hypot(dx, dy))) : 1.0;
        line[static_cast<std::size_t>(x)] =
            c < o.channels ? value(c, x, h - 1 - y, w, h) * matte : matte;
      }
      ORX_convert_row(&double_channel(), line.data(), &group_of(d, c), rows.row(c), w);
    }
    if (!out.write_row(0, y, rows.rows())) return complain(o.out);
  }
  if (!out.close()) return complain(o.out);
  return kOk;
}

}  // namespace orx::tool
