// OpenImageIO's TextureSystem, one thread, on a texture its maketx made from
// the same pixels as BM_TextureLookup's, with the same lookups.
#include <benchmark/benchmark.h>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/texture.h>

#include <filesystem>
#include <string>

#include "texture_source.hpp"

namespace {

using namespace orx::bench;

const std::string &oiio_texture_path() {
  static const std::string path = [] {
    const std::string p = (std::filesystem::temp_directory_path() / "orx_bench_texture.tx").string();
    OIIO::ImageSpec layout(kTextureSide, kTextureSide, 4, OIIO::TypeDesc::UINT8);
    OIIO::ImageBuf source(layout, const_cast<std::uint8_t *>(texture_pixels().data()));
    OIIO::ImageSpec config;
    config.attribute("maketx:filtername", "box");
    OIIO::ImageBufAlgo::make_texture(OIIO::ImageBufAlgo::MakeTxTexture, source, p, config);
    return p;
  }();
  return path;
}

void BM_OiioTextureLookup(benchmark::State &state) {
  OIIO::attribute("threads", 1);
  const OIIO::ustring name(oiio_texture_path());
  auto *system = OIIO::TextureSystem::create(true);
  OIIO::TextureOpt options;
  options.swrap = options.twrap = OIIO::TextureOpt::WrapPeriodic;
  const auto &all = lookups();
  float out[4];
  std::size_t i = 0;
  for (auto _ : state) {
    const Lookup &l = all[i++ & (all.size() - 1)];
    system->texture(name, options, l.s, l.t, l.ds, 0.0f, 0.0f, l.dt, 4, out);
    benchmark::DoNotOptimize(out);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_OiioTextureLookup);

}  // namespace
