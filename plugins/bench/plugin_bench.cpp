// Whole UHD frames written and read through each format plug-in, beside
// OpenImageIO writing and reading the same frames with the same codec
// libraries and settings, one thread each.  Files go to the temporary
// directory, so the figures include the page cache but not the disk.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <OpenImageIO/imageio.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "content.hpp"
#include "orx/err.h"
#include "orx/orx.h"
#include "orx/plugin.h"
#include "orx/registry.h"
#include "orx/str.h"

namespace {

using orx::bench::Content;
using orx::bench::kHeight;
using orx::bench::kWidth;

// One row of the table: the format, the host's samples and the file's.
struct Format {
  const char *key;
  const char *ext;
  int channels;
  int type;  // ORX_C_INTEGER or ORX_C_FLOAT
  int bits;
  OIIO::TypeDesc host;
  OIIO::TypeDesc file;
  const char *compression;  // OpenImageIO's name of our default
};

const Format kFormats[] = {
    {"png", ".png", 4, ORX_C_INTEGER, 8, OIIO::TypeDesc::UINT8, OIIO::TypeDesc::UINT8, ""},
    {"jpeg", ".jpg", 3, ORX_C_INTEGER, 8, OIIO::TypeDesc::UINT8, OIIO::TypeDesc::UINT8, "jpeg:90"},
    {"tiff", ".tif", 4, ORX_C_INTEGER, 16, OIIO::TypeDesc::UINT16, OIIO::TypeDesc::UINT16, "lzw"},
    {"exr", ".exr", 4, ORX_C_FLOAT, 32, OIIO::TypeDesc::FLOAT, OIIO::TypeDesc::HALF, "zip"},
    {"dpx", ".dpx", 3, ORX_C_INTEGER, 16, OIIO::TypeDesc::UINT16, OIIO::TypeDesc::UINT16, ""},
    {"hdr", ".hdr", 3, ORX_C_FLOAT, 32, OIIO::TypeDesc::FLOAT, OIIO::TypeDesc::FLOAT, ""},
    {"pnm", ".pnm", 3, ORX_C_INTEGER, 8, OIIO::TypeDesc::UINT8, OIIO::TypeDesc::UINT8, ""},
    {"targa", ".tga", 4, ORX_C_INTEGER, 8, OIIO::TypeDesc::UINT8, OIIO::TypeDesc::UINT8, "none"},
    {"bmp", ".bmp", 3, ORX_C_INTEGER, 8, OIIO::TypeDesc::UINT8, OIIO::TypeDesc::UINT8, ""},
    // OpenImageIO writes SGI verbatim only: both read its file, each writes its default.
    {"sgi", ".sgi", 4, ORX_C_INTEGER, 8, OIIO::TypeDesc::UINT8, OIIO::TypeDesc::UINT8, ""},
    {"webp", ".webp", 4, ORX_C_INTEGER, 8, OIIO::TypeDesc::UINT8, OIIO::TypeDesc::UINT8, "webp:75"},
};
constexpr std::size_t kFormatCount = sizeof kFormats / sizeof kFormats[0];

std::size_t sample_bytes(const Format &f) { return f.type == ORX_C_FLOAT ? 4 : f.bits / 8; }

// The frame as one buffer of interleaved pixels; channel rows for the
// library are gathered from it per line.
const std::vector<unsigned char> &frame(const Format &f) {
  static std::vector<unsigned char> frames[kFormatCount];
  std::vector<unsigned char> &v = frames[&f - kFormats];
  if (!v.empty()) return v;
  std::mt19937 rng(1234);
  const std::size_t size = sample_bytes(f);
  v.resize(std::size_t{kWidth} * kHeight * f.channels * size);
  unsigned char *p = v.data();
  for (int y = 0; y < kHeight; ++y)
    for (int x = 0; x < kWidth; ++x)
      for (int c = 0; c < f.channels; ++c, p += size) {
        if (f.type == ORX_C_FLOAT) {
          const float s = orx::bench::sample_at<float>(Content::kNoisy, c, x, y, rng);
          std::memcpy(p, &s, 4);
        } else if (f.bits == 16) {
          const auto s = orx::bench::sample_at<std::uint16_t>(Content::kNoisy, c, x, y, rng);
          std::memcpy(p, &s, 2);
        } else {
          *p = orx::bench::sample_at<std::uint8_t>(Content::kNoisy, c, x, y, rng);
        }
      }
  return v;
}

// Planar copy of the frame: for each line, one row per channel.
const std::vector<unsigned char> &planar(const Format &f) {
  static std::vector<unsigned char> frames[kFormatCount];
  std::vector<unsigned char> &v = frames[&f - kFormats];
  if (!v.empty()) return v;
  const std::vector<unsigned char> &in = frame(f);
  const std::size_t size = sample_bytes(f), row = std::size_t{kWidth} * size;
  v.resize(in.size());
  for (std::size_t y = 0; y < kHeight; ++y)
    for (int c = 0; c < f.channels; ++c)
      for (std::size_t x = 0; x < kWidth; ++x)
        std::memcpy(&v[(y * f.channels + c) * row + x * size],
                    &in[((y * kWidth + x) * f.channels + c) * size], size);
  return v;
}

std::string path_for(const Format &f, const char *who) {
  return (std::filesystem::temp_directory_path() / (std::string("orx-bench-") + who + f.ext))
      .string();
}

// The plug-ins of the build, loaded once and handed to the library.
std::vector<void *> g_modules;
std::size_t g_next = 0;
uint8_t enumerate(void **module, const char **name) {
  if (g_next >= g_modules.size()) return 0;
  *module = g_modules[g_next++];
  *name = "plug-in";
  return 1;
}
bool load_plugins() {
  static const bool loaded = [] {
    for (const auto &e : std::filesystem::directory_iterator(ORX_PLUGIN_BUILD_DIR))
      if (void *h = dlopen(e.path().c_str(), RTLD_NOW | RTLD_LOCAL)) g_modules.push_back(h);
    OIIO::attribute("threads", 1);
    OIIO::attribute("exr_threads", -1);  // no OpenEXR thread pool
    return ORX_init(nullptr, enumerate) == 0;
  }();
  return loaded;
}

bool orx_write(const Format &f, const std::string &path) {
  ORX_INFO *info = ORX_info_alloc();
  info->handle = STR_save(path.c_str());
  info->type = STR_save(f.key);
  info->full_path = 1;
  info->image_count = 1;
  info->images = static_cast<ORX_IFD *>(ERR_malloc(sizeof(ORX_IFD)));
  ORX_IFD &ifd = info->images[0];
  orx__init_ifd(&ifd);
  ifd.window = ifd.active = ORX_WINDOW{0, kWidth - 1, 0, kHeight - 1};
  ifd.image = ORX_CHANNELS{nullptr, 3, f.type, f.bits, 0};
  ifd.matte = ORX_CHANNELS{nullptr, f.channels - 3, f.type, f.bits, 0};
  ORX_OBJECT *o = ORX_open(info, "w");
  ORX_info_free(info, 1);
  if (o == nullptr) return false;
  const std::vector<unsigned char> &v = planar(f);
  const std::size_t row = std::size_t{kWidth} * sample_bytes(f);
  void *rows[5] = {};
  bool ok = true;
  // Lines count upwards from the bottom row, which is the file's last.
  for (int y = 0; y < kHeight && ok; ++y) {
    const std::size_t r = static_cast<std::size_t>(kHeight - 1 - y);
    for (int c = 0; c < f.channels; ++c)
      rows[c] = const_cast<unsigned char *>(&v[(r * f.channels + c) * row]);
    ok = ORX_scan_write(o, y, rows) == 0;
  }
  return ORX_close(o) == 0 && ok;
}

bool orx_read(const std::string &path) {
  ORX_INFO info;
  ORX_info_init(&info);
  std::string handle = path;
  info.handle = handle.data();
  info.full_path = 1;
  ORX_OBJECT *o = ORX_open(&info, "r");
  ORX_info_cleanup(&info, 0);
  if (o == nullptr) return false;
  bool ok = true;
  void **rows = nullptr;
  for (int y = kHeight - 1; y >= 0 && ok; --y) {
    ok = ORX_scan_read(o, y, &rows) == 0;
    benchmark::DoNotOptimize(rows[0]);
  }
  return ORX_close(o) == 0 && ok;
}

bool oiio_write(const Format &f, const std::string &path) {
  auto out = OIIO::ImageOutput::create(path);
  if (!out) return false;
  OIIO::ImageSpec layout(kWidth, kHeight, f.channels, f.file);
  // The samples go to the file as they are, as the plug-ins store them.
  layout.attribute("oiio:UnassociatedAlpha", 1);
  if (*f.compression) layout.attribute("compression", f.compression);
  if (std::string(f.key) == "png") layout.attribute("png:compressionLevel", 6);
  return out->open(path, layout) && out->write_image(f.host, frame(f).data()) && out->close();
}

bool oiio_read(const Format &f, const std::string &path, std::vector<unsigned char> &buffer) {
  OIIO::ImageSpec config;
  config.attribute("oiio:UnassociatedAlpha", 1);
  auto in = OIIO::ImageInput::open(path, &config);
  if (!in) return false;
  buffer.resize(frame(f).size());
  return in->read_image(0, 0, 0, f.channels, f.host, buffer.data()) && in->close();
}

void register_all() {
  for (const Format &f : kFormats) {
    const std::int64_t bytes = std::int64_t{kWidth} * kHeight * f.channels *
                               static_cast<std::int64_t>(sample_bytes(f));
    const std::string name = f.key;
    benchmark::RegisterBenchmark(("BM_PluginWrite/" + name).c_str(), [&f, bytes](benchmark::State &s) {
      if (!load_plugins() || ORX_find(f.key) == nullptr) return s.SkipWithError("no plug-in");
      frame(f), planar(f);
      const std::string path = path_for(f, "plugin");
      for (auto _ : s)
        if (!orx_write(f, path)) s.SkipWithError("write failed");
      s.SetBytesProcessed(s.iterations() * bytes);
      s.counters["file_MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
    })->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("BM_OiioWrite/" + name).c_str(), [&f, bytes](benchmark::State &s) {
      load_plugins();
      frame(f);
      const std::string path = path_for(f, "oiio");
      for (auto _ : s)
        if (!oiio_write(f, path)) s.SkipWithError("write failed");
      s.SetBytesProcessed(s.iterations() * bytes);
      s.counters["file_MB"] = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
    })->Unit(benchmark::kMillisecond);
    // Both read the file OpenImageIO wrote.
    benchmark::RegisterBenchmark(("BM_PluginRead/" + name).c_str(), [&f, bytes](benchmark::State &s) {
      if (!load_plugins() || ORX_find(f.key) == nullptr) return s.SkipWithError("no plug-in");
      const std::string path = path_for(f, "oiio");
      if (!oiio_write(f, path)) return s.SkipWithError("cannot make the file");
      for (auto _ : s)
        if (!orx_read(path)) s.SkipWithError("read failed");
      s.SetBytesProcessed(s.iterations() * bytes);
    })->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("BM_OiioRead/" + name).c_str(), [&f, bytes](benchmark::State &s) {
      load_plugins();
      const std::string path = path_for(f, "oiio");
      if (!oiio_write(f, path)) return s.SkipWithError("cannot make the file");
      std::vector<unsigned char> buffer;
      for (auto _ : s)
        if (!oiio_read(f, path, buffer)) s.SkipWithError("read failed");
      s.SetBytesProcessed(s.iterations() * bytes);
    })->Unit(benchmark::kMillisecond);
  }
}

const bool g_registered = (register_all(), true);

}  // namespace
