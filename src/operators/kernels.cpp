// The kernel library: the usual resampling kernels as filter descriptions
// the resampling filter can sample, found by name.
#include <cmath>
#include <cstring>
#include <iterator>

#include "orx/operators.h"

namespace orx::operators {
namespace {

constexpr double kPi = 3.14159265358979323846;

double box(double t) { return t > -0.5 && t <= 0.5 ? 1.0 : 0.0; }

double triangle(double t) {
  t = std::fabs(t);
  return t < 1.0 ? 1.0 - t : 0.0;
}

// sigma 0.5: about 2 % of the peak at the support's edge, 1.5.
double gaussian(double t) { return std::exp(-2.0 * t * t); }

// The cubic family of Mitchell and Netravali with parameters b and c.
template <int B3, int C6>  // b = B3 / 3, c = C6 / 6
double cubic(double t) {
  constexpr double b = B3 / 3.0, c = C6 / 6.0;
  t = std::fabs(t);
  if (t < 1.0)
    return ((12 - 9 * b - 6 * c) * t * t * t + (-18 + 12 * b + 6 * c) * t * t + (6 - 2 * b)) / 6.0;
  if (t < 2.0)
    return ((-b - 6 * c) * t * t * t + (6 * b + 30 * c) * t * t + (-12 * b - 48 * c) * t +
            (8 * b + 24 * c)) /
           6.0;
  return 0.0;
}

// sinc(t) sinc(t/3) with one sine: sin(pi t) is had from sin(pi t/3) by the
// triple-angle formula (the resampling filter evaluates this once per tap
// of every column and every output line).
double lanczos3(double t) {
  t = std::fabs(t);
  if (t >= 3.0) return 0.0;
  if (t == 0.0) return 1.0;
  const double third = kPi * t / 3.0, s = std::sin(third);
  return s * (3.0 - 4.0 * s * s) / (kPi * t) * (s / third);
}

struct Named {
  const char *name;
  ORX_FILTER filter;
};

const Named kFilters[] = {
    {"box", {0.0f, 0.0f, 1.0f, 1.0f, box, box}},
    {"triangle", {0.0f, 0.0f, 2.0f, 2.0f, triangle, triangle}},
    {"gaussian", {0.0f, 0.0f, 3.0f, 3.0f, gaussian, gaussian}},
    {"mitchell", {0.0f, 0.0f, 4.0f, 4.0f, cubic<1, 2>, cubic<1, 2>}},
    {"catmull-rom", {0.0f, 0.0f, 4.0f, 4.0f, cubic<0, 3>, cubic<0, 3>}},
    {"lanczos3", {0.0f, 0.0f, 6.0f, 6.0f, lanczos3, lanczos3}},
};

}  // namespace
}  // namespace orx::operators

extern "C" {

const ORX_FILTER *ORX_filter_find(const char *name) {
  if (name == nullptr) return nullptr;
  for (const auto &f : orx::operators::kFilters)
    if (std::strcmp(f.name, name) == 0) return &f.filter;
  return nullptr;
}

const char *ORX_filter_name(int32_t index) {
  const auto n = static_cast<int32_t>(std::size(orx::operators::kFilters));
  return index >= 0 && index < n ? orx::operators::kFilters[index].name : nullptr;
}

}  // extern "C"
