// 4x4 colour matrices: products, inverses, and the matrices between RGB
// spaces and CIE XYZ, in double precision with float at the edges.
#include <cmath>
#include <cstring>

#include "err/messages.hpp"
#include "orx/clr.h"
#include "orx/err.h"
#include "orx/fmt.h"
#include "orx/matrix.h"

namespace orx::colour {
namespace {

struct M4 {
  double v[4][4];
};

M4 from_float(const float m[16]) {
  M4 r;
  for (int i = 0; i < 16; ++i) r.v[i / 4][i % 4] = m[i];
  return r;
}

void to_float(const M4 &m, float out[16]) {
  for (int i = 0; i < 16; ++i) out[i] = static_cast<float>(m.v[i / 4][i % 4]);
}

M4 identity() {
  M4 r{};
  for (int i = 0; i < 4; ++i) r.v[i][i] = 1.0;
  return r;
}

M4 product(const M4 &a, const M4 &b) {
  M4 r{};
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j)
      for (int k = 0; k < 4; ++k) r.v[i][j] += a.v[i][k] * b.v[k][j];
  return r;
}

// Gauss-Jordan elimination with partial pivoting; false when singular.
bool inverse(M4 a, M4 *out) {
  M4 r = identity();
  for (int c = 0; c < 4; ++c) {
    int pivot = c;
    for (int i = c + 1; i < 4; ++i)
      if (std::fabs(a.v[i][c]) > std::fabs(a.v[pivot][c])) pivot = i;
    if (std::fabs(a.v[pivot][c]) < 1e-12 || !std::isfinite(a.v[pivot][c])) return false;
    std::swap(a.v[c], a.v[pivot]);
    std::swap(r.v[c], r.v[pivot]);
    const double d = a.v[c][c];
    for (int j = 0; j < 4; ++j) a.v[c][j] /= d, r.v[c][j] /= d;
    for (int i = 0; i < 4; ++i) {
      if (i == c) continue;
      const double f = a.v[i][c];
      for (int j = 0; j < 4; ++j) a.v[i][j] -= f * a.v[c][j], r.v[i][j] -= f * r.v[c][j];
    }
  }
  *out = r;
  return true;
}

M4 from3(const double m[9]) {
  M4 r = identity();
  for (int i = 0; i < 9; ++i) r.v[i / 3][i % 3] = m[i];
  return r;
}

int degenerate() {
  fail(ORX_E_INVALID_TYPE, Msg::kDegenerateChromaticities);
  return -1;
}

bool rgb_to_xyz(const float c[8], M4 *out) {
  double m[9];
  if (CLR_rgb_to_xyz_matrix(c, c + 2, c + 4, c + 6, m) != 0) return false;
  *out = from3(m);
  return true;
}

// XYZ of a white point (x, y) with Y = 1.
bool white_xyz(const float w[2], double out[3]) {
  if (!(w[1] > 0.0f) || !std::isfinite(w[0])) return false;
  out[0] = w[0] / static_cast<double>(w[1]);
  out[1] = 1.0;
  out[2] = (1.0 - w[0] - static_cast<double>(w[1])) / w[1];
  return true;
}

bool bradford(const float from[2], const float to[2], M4 *out) {
  static const double kCone[9] = {0.8951, 0.2664, -0.1614, -0.7502, 1.7135,
                                  0.0367, 0.0389, -0.0685, 1.0296};
  double a[3], b[3];
  if (!white_xyz(from, a) || !white_xyz(to, b)) return false;
  const M4 cone = from3(kCone);
  M4 back;
  if (!inverse(cone, &back)) return false;
  M4 scale = identity();
  for (int i = 0; i < 3; ++i) {
    double ca = 0, cb = 0;
    for (int j = 0; j < 3; ++j) ca += kCone[i * 3 + j] * a[j], cb += kCone[i * 3 + j] * b[j];
    if (ca == 0.0) return false;
    scale.v[i][i] = cb / ca;
  }
  *out = product(back, product(scale, cone));
  return true;
}

void copy_xy(const float xyz[3], float *out) {
  out[0] = xyz[0];
  out[1] = xyz[1];
}

}  // namespace
}  // namespace orx::colour

using namespace orx::colour;

extern "C" {

void ORX_matrix_identity(float m[16]) { to_float(identity(), m); }

void ORX_matrix_multiply(const float a[16], const float b[16], float out[16]) {
  to_float(product(from_float(a), from_float(b)), out);
}

int ORX_matrix_invert(const float m[16], float out[16]) {
  M4 r;
  if (!inverse(from_float(m), &r)) {
    orx::fail(ORX_E_INVALID_TYPE, orx::Msg::kSingularMatrix);
    return -1;
  }
  to_float(r, out);
  return 0;
}

void ORX_matrix_transform(const float m[16], const float in[3], float out[3]) {
  double r[4];
  for (int i = 0; i < 4; ++i)
    r[i] = double{m[i * 4]} * in[0] + double{m[i * 4 + 1]} * in[1] + double{m[i * 4 + 2]} * in[2] +
           m[i * 4 + 3];
  const double w = r[3] != 0.0 && r[3] != 1.0 ? r[3] : 1.0;
  for (int i = 0; i < 3; ++i) out[i] = static_cast<float>(r[i] / w);
}

int ORX_matrix_rgb_to_xyz(const float chromaticities[8], float out[16]) {
  M4 m;
  if (!rgb_to_xyz(chromaticities, &m)) return degenerate();
  to_float(m, out);
  return 0;
}

int ORX_matrix_xyz_to_rgb(const float chromaticities[8], float out[16]) {
  M4 m;
  if (!rgb_to_xyz(chromaticities, &m) || !inverse(m, &m)) return degenerate();
  to_float(m, out);
  return 0;
}

int ORX_matrix_bradford(const float from_white[2], const float to_white[2], float out[16]) {
  M4 m;
  if (!bradford(from_white, to_white, &m)) return degenerate();
  to_float(m, out);
  return 0;
}

int ORX_matrix_rgb_to_rgb(const float from[8], const float to[8], float out[16]) {
  M4 a, b, adapt = identity();
  if (!rgb_to_xyz(from, &a) || !rgb_to_xyz(to, &b) || !inverse(b, &b)) return degenerate();
  if ((from[6] != to[6] || from[7] != to[7]) && !bradford(from + 6, to + 6, &adapt))
    return degenerate();
  to_float(product(b, product(adapt, a)), out);
  return 0;
}

void ORX_chromaticities_of_info(const ORX_INFO *info, float out[8]) {
  copy_xy(info->red, out);
  copy_xy(info->green, out + 2);
  copy_xy(info->blue, out + 4);
  copy_xy(info->white, out + 6);
}

int ORX_chromaticities_of_framebuffer(const char *name, float out[8]) {
  const FB_FRAMEBUFFER *fb = FB_find(name != nullptr ? name : FB_def_framebuffer());
  if (fb == nullptr) {
    orx__err = ORX_E_INVALID_TYPE;
    orx::report(orx::Msg::kInvalidType, name);
    return -1;
  }
  copy_xy(fb->red, out);
  copy_xy(fb->green, out + 2);
  copy_xy(fb->blue, out + 4);
  copy_xy(fb->white, out + 6);
  return 0;
}

void ORX_chromaticities_default(float out[8]) {
  float r[3], g[3], b[3], w[3];
  CLR_def_primaries(r, g, b);
  CLR_def_white(w);
  copy_xy(r, out);
  copy_xy(g, out + 2);
  copy_xy(b, out + 4);
  copy_xy(w, out + 6);
}

}  // extern "C"
