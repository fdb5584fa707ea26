// Chromaticities to an RGB-to-XYZ matrix.
#include <cmath>

#include "orx/clr.h"

namespace {

// XYZ of a chromaticity with Y = 1.
bool to_xyz(const float c[2], double out[3]) {
  if (c[1] == 0.0f) return false;
  out[0] = c[0] / double{c[1]};
  out[1] = 1.0;
  out[2] = (1.0 - c[0] - c[1]) / double{c[1]};
  return true;
}

}  // namespace

extern "C" int CLR_rgb_to_xyz_matrix(const float red[2], const float green[2],
                                     const float blue[2], const float white[2],
                                     double matrix[9]) {
  // Columns are the primaries' XYZ; each is scaled so the three sum to white.
  double p[3][3];
  double w[3];
  if (!to_xyz(red, p[0]) || !to_xyz(green, p[1]) || !to_xyz(blue, p[2]) || !to_xyz(white, w))
    return -1;
  // M = [p0 p1 p2] as columns; solve M s = w by Cramer's rule.
  auto det3 = [](const double a[3], const double b[3], const double c[3]) {
    return a[0] * (b[1] * c[2] - b[2] * c[1]) - b[0] * (a[1] * c[2] - a[2] * c[1]) +
           c[0] * (a[1] * b[2] - a[2] * b[1]);
  };
  double d = det3(p[0], p[1], p[2]);
  if (std::fabs(d) < 1e-12) return -1;
  double s[3] = {det3(w, p[1], p[2]) / d, det3(p[0], w, p[2]) / d, det3(p[0], p[1], w) / d};
  for (int row = 0; row < 3; ++row)
    for (int col = 0; col < 3; ++col) matrix[row * 3 + col] = p[col][row] * s[col];
  return 0;
}
