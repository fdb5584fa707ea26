// The colour-sample transform: N spectral samples per pixel (the colour
// database's wavelength sampling) become CIE XYZ, or RGB of the record's
// primaries, through the colour-matching table.
#include <cstring>
#include <initializer_list>

#include "err/messages.hpp"
#include "operators/layer.hpp"
#include "orx/clr.h"
#include "orx/err.h"
#include "orx/matrix.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

constexpr int32_t kSpectralTransform = 31;
constexpr const char *kName = "color sample transform operator";

struct SpectralRecord {
  LayerHeader header;
  int32_t width;
  int32_t samples;       // spectral channels in
  int32_t extra;         // matte and auxiliary channels, passed through
  float *weights;        // 3 x samples: the output channels' weights
  void **out;            // three float rows, then the extra rows' pointers
  ORX_CHANNELS saved_image;
  bool pushed_cast;
};

int spectral_rows(SpectralRecord &r, int32_t, void ***rows, int status) {
  void **in = *rows;
  for (int o = 0; o < 3; ++o) {
    float *out = static_cast<float *>(r.out[o]);
    const float *w = r.weights + static_cast<std::size_t>(o) * r.samples;
    for (int32_t x = 0; x < r.width; ++x) out[x] = 0.0f;
    for (int32_t s = 0; s < r.samples; ++s) {
      const float *row = static_cast<const float *>(in[s]);  // the cast's rows
      for (int32_t x = 0; x < r.width; ++x) out[x] += w[s] * row[x];
    }
  }
  for (int32_t e = 0; e < r.extra; ++e) r.out[3 + e] = in[r.samples + e];
  *static_cast<void ***>(rows) = r.out;
  return status;
}

void release(ORX_OBJECT *handle, LayerHeader *header) {
  auto *r = reinterpret_cast<SpectralRecord *>(header);
  handle->info.images[0].image = r->saved_image;
  const bool pushed_cast = r->pushed_cast;
  ERR_free(r->weights);
  ERR_free(r->out[0]);
  ERR_free(r->out);
  ERR_free(r);
  undo_cast(handle, pushed_cast);
}

using Layer = Kind<release>;

}  // namespace
}  // namespace orx::operators

using namespace orx::operators;

extern "C" {

ORX_OBJECT *orx__spectral_transform_operator(ORX_OBJECT *handle, int32_t to_xyz) {
  using orx::Msg;
  orx__err = 0;
  if (!has_image(handle) || handle->access != ORX_ACCESS_READ) return handle;
  ORX_IFD &d = handle->info.images[0];
  const int32_t samples = d.image.count;
  float start = 0, end = 0, step = 0;
  CLR_def_wavelengths(&start, &end, &step);
  if (samples < 1 || d.pixel_flags != 1 || !(step > 0.0f)) {
    orx::fail(ORX_E_UNSUPPORTED, Msg::kImageType, kName);
    return handle;
  }
  // The weights: the colour-matching values at each sample, scaled so that
  // a flat spectrum of 1.0 has Y = 1 (as CLR_spectrum_to_xyz scales).
  auto *weights = static_cast<float *>(ERR_malloc(sizeof(float) * 3 * static_cast<uint32_t>(samples)));
  if (weights == nullptr) return orx__err = ORX_E_NO_MEMORY, handle;
  double white = 0.0;
  for (int32_t s = 0; s < samples; ++s) {
    float cmf[3] = {};
    CLR_cmf_at(start + static_cast<float>(s) * step, cmf);
    for (int o = 0; o < 3; ++o) weights[o * samples + s] = cmf[o];
    white += cmf[1];
  }
  if (!(white > 0.0)) {
    ERR_free(weights);
    orx::fail(ORX_E_UNSUPPORTED, Msg::kImageType, kName);
    return handle;
  }
  for (int32_t i = 0; i < 3 * samples; ++i) weights[i] = static_cast<float>(weights[i] / white);
  if (to_xyz == 0) {  // on to the record's RGB
    float chroma[8], m[16];
    ORX_chromaticities_of_info(&handle->info, chroma);
    if (ORX_matrix_xyz_to_rgb(chroma, m) != 0) {
      ERR_free(weights);
      return handle;
    }
    for (int32_t s = 0; s < samples; ++s) {
      const float xyz[3] = {weights[s], weights[samples + s], weights[2 * samples + s]};
      float rgb[3];
      ORX_matrix_transform(m, xyz, rgb);
      for (int o = 0; o < 3; ++o) weights[o * samples + s] = rgb[o];
    }
  }
  const CastBelow cast(handle);
  if (!cast.ok()) {  // reported
    ERR_free(weights);
    return handle;
  }
  const bool pushed_cast = cast.pushed();
  auto *r = new_record<SpectralRecord>();
  const int32_t extra = (d.matte.count > 0 ? d.matte.count : 0) + (d.aux.count > 0 ? d.aux.count : 0);
  const int32_t width = span_of(d).width;
  void **out = static_cast<void **>(ERR_malloc(sizeof(void *) * static_cast<uint32_t>(4 + extra)));
  auto *block = static_cast<float *>(ERR_malloc(sizeof(float) * 3 * static_cast<uint32_t>(width)));
  if (r == nullptr || out == nullptr || block == nullptr) {
    for (void *p : {static_cast<void *>(r), static_cast<void *>(out), static_cast<void *>(block),
                    static_cast<void *>(weights)})
      ERR_free(p);
    undo_cast(handle, pushed_cast);
    orx__err = ORX_E_NO_MEMORY;
    return handle;
  }
  for (int o = 0; o < 3; ++o) out[o] = block + static_cast<std::size_t>(o) * width;
  out[3 + extra] = nullptr;
  r->width = width;
  r->samples = samples;
  r->extra = extra;
  r->weights = weights;
  r->out = out;
  r->saved_image = d.image;
  r->pushed_cast = pushed_cast;
  d.image.count = 3;
  d.image.name = nullptr;  // the group's name belonged to the samples
  push(handle, &r->header, kSpectralTransform, read_scan<SpectralRecord, spectral_rows>, Layer::close);
  return handle;
}

int orx__spectral_transform_remove(ORX_OBJECT *handle) { return Layer::remove(handle); }

}  // extern "C"
