// Filtered texture lookups at random (s, t) with small footprints on a
// 1024 x 1024 RGBA 8-bit mipmap, single thread; see oiio/oiio_texture_bench.cpp
// for OpenImageIO's TextureSystem on the same texels.
#include <benchmark/benchmark.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "orx/imp.h"
#include "orx/registry.h"
#include "orx/texture.h"
#include "texture_source.hpp"

namespace {

using namespace orx::bench;

const std::string &texture_path() {
  static const std::string path = [] {
    const std::string p = (std::filesystem::temp_directory_path() / "orx_bench_texture.rla").string();
    ORX_IFD ifd;
    orx__init_ifd(&ifd);
    ifd.window = {0, kTextureSide - 1, 0, kTextureSide - 1};
    ifd.active = ifd.window;
    ifd.image = {nullptr, 3, ORX_C_INTEGER, 8, 0};
    ifd.matte = {nullptr, 1, ORX_C_INTEGER, 8, 0};
    ORX_INFO info;
    ORX_info_init(&info);
    info.handle = const_cast<char *>(p.c_str());
    info.full_path = 1;
    info.images = &ifd;
    info.image_count = 1;
    IMP_REQUEST request{"mipmap", 0, IMP_TEXTURE_COLOR, 0, 0};
    ORX_OBJECT *object = IMP_open(&info, &request, "w");
    std::vector<std::uint8_t> rows(std::size_t{kTextureSide} * 4);
    void *channels[5];
    for (int c = 0; c < 4; ++c) channels[c] = rows.data() + std::size_t{kTextureSide} * c;
    channels[4] = nullptr;
    const auto &pixels = texture_pixels();
    // Line y of the file is row kTextureSide - 1 - y of the picture (files
    // count upwards), as OpenImageIO reads it.
    for (int y = 0; y < kTextureSide; ++y) {
      const std::uint8_t *src = pixels.data() + std::size_t{kTextureSide - 1 - static_cast<unsigned>(y)} * kTextureSide * 4;
      for (int x = 0; x < kTextureSide; ++x)
        for (int c = 0; c < 4; ++c) rows[std::size_t{kTextureSide} * c + x] = src[x * 4 + c];
      ORX_scan_write(object, y, channels);
    }
    ORX_close(object);
    return p;
  }();
  return path;
}

void BM_TextureLookup(benchmark::State &state) {
  ORX_TEXTURE *texture = ORX_tex_open(texture_path().c_str(), IMP_TEXTURE_COLOR);
  if (texture == nullptr) {
    state.SkipWithError("cannot open the texture");
    return;
  }
  ORX_tex_set_cache(texture, 4096);
  const auto &all = lookups();
  float out[4];
  std::size_t i = 0;
  for (auto _ : state) {
    const Lookup &l = all[i++ & (all.size() - 1)];
    ORX_tex_lookup(texture, l.s, l.t, l.ds, l.dt, ORX_WRAP_PERIODIC, out);
    benchmark::DoNotOptimize(out);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
  ORX_tex_close(texture);
}
BENCHMARK(BM_TextureLookup);

}  // namespace
