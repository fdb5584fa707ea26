// Images for the operator tests: RLA files of any channel groups written
// through ORX_open from a sample function, then opened for reading.
#pragma once

#include "support/images.hpp"

namespace orx::test {

struct Groups {
  ORX_CHANNELS image{nullptr, 3, ORX_C_INTEGER, 8, 0};
  ORX_CHANNELS matte{nullptr, 0, ORX_C_INTEGER, 8, 0};
  ORX_CHANNELS aux{nullptr, 0, ORX_C_INTEGER, 8, 0};
  ORX_WINDOW window{0, 7, 0, 3};
  ORX_WINDOW active{0, 7, 0, 3};
  float gamma = 1.0f;
};

inline ORX_IFD describe(const Groups &g) {
  ORX_IFD d;
  orx__init_ifd(&d);
  d.window = g.window;
  d.active = g.active;
  d.image = g.image;
  d.matte = g.matte;
  d.aux = g.aux;
  d.curve.gamma = g.gamma;
  return d;
}

inline void write_image(const std::string &path, const Groups &g, const Sample &sample,
                        const char *type = "rla") {
  write_image(path, describe(g), sample, type);
}

}  // namespace orx::test
