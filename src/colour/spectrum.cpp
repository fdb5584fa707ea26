// Spectra to CIE XYZ through the colour database's colour-matching table.
#include <cmath>

#include "orx/clr.h"

extern "C" {

int CLR_spectrum_to_xyz(const float *samples, uint32_t count, float start, float step,
                        float xyz[3]) {
  xyz[0] = xyz[1] = xyz[2] = 0.0f;
  if (samples == nullptr || count == 0 || !(step > 0.0f)) return -1;
  // The white of the table: a flat spectrum over the same samples.
  double sum[3] = {}, white_y = 0.0;
  bool inside = false;
  for (uint32_t i = 0; i < count; ++i) {
    float cmf[3];
    if (CLR_cmf_at(start + static_cast<float>(i) * step, cmf) == 0) continue;
    inside = true;
    for (int c = 0; c < 3; ++c) sum[c] += double{samples[i]} * cmf[c];
    white_y += cmf[1];
  }
  if (!inside || white_y <= 0.0) return -1;
  for (int c = 0; c < 3; ++c) xyz[c] = static_cast<float>(sum[c] / white_y);
  return 0;
}

}  // extern "C"
