#include "plugin_host.hpp"

#include <algorithm>
#include <filesystem>

#include "support/images.hpp"

namespace orx::test {
namespace {

FormatPlugins *g_current = nullptr;
std::size_t g_next = 0;

int channel_count(const Layout &l) { return l.image + l.matte + l.aux; }

std::size_t sample_bytes(int32_t type, int32_t bits) {
  if (type == ORX_C_FLOAT) return 4;
  if (type == ORX_C_DOUBLE) return 8;
  return bits <= 8 ? 1 : bits <= 16 ? 2 : 4;
}

}  // namespace

FormatPlugins::FormatPlugins() {
  namespace fs = std::filesystem;
  std::vector<fs::path> files;
  std::error_code ec;
  for (const auto &e : fs::directory_iterator(ORX_PLUGIN_BUILD_DIR, ec))
    if (e.path().extension() == ".so") files.push_back(e.path());
  std::sort(files.begin(), files.end());
  for (const auto &f : files) {
    void *h = dlopen(f.c_str(), RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(h, nullptr) << dlerror();
    if (h == nullptr) continue;
    handles_.push_back(h);
    names_.push_back(f.stem().string());
  }
  ORX_exit();
  g_current = this;
  g_next = 0;
  EXPECT_EQ(ORX_init(nullptr, enumerate), 0);
}

FormatPlugins::~FormatPlugins() {
  ORX_exit();
  for (void *h : handles_) dlclose(h);
}

uint8_t FormatPlugins::enumerate(void **module, const char **name) {
  if (g_next >= g_current->handles_.size()) return 0;
  *module = g_current->handles_[g_next];
  *name = g_current->names_[g_next].c_str();
  ++g_next;
  return 1;
}

double pattern_value(const Layout &l, int x, int y, int c, bool smooth) {
  // Colour is associated with the matte, as in every image of the library:
  // never above it.
  if (c < l.image && l.matte > 0)
    return std::min(pattern_value(Layout{l.image, 0, 0, l.type, l.bits}, x, y, c, smooth),
                    pattern_value(l, x, y, l.image, smooth));
  if (smooth) {
    const double v = 0.5 + 0.4 * std::sin(x / 6.0 + c) * std::cos(y / 5.0 - c);
    if (l.type != ORX_C_INTEGER) return static_cast<float>(v);
    const double top = std::ldexp(1.0, l.bits) - 1.0;
    return std::round(v * top) / top;
  }
  uint32_t h = static_cast<uint32_t>(x) * 73856093u ^ static_cast<uint32_t>(y) * 19349663u ^
               static_cast<uint32_t>(c + 1) * 83492791u;
  h ^= h >> 13;
  h *= 0x5bd1e995u;
  h ^= h >> 15;
  if (l.type != ORX_C_INTEGER) return (static_cast<int>(h % 2048) - 512) / 256.0;
  const double top = std::ldexp(1.0, l.bits) - 1.0;
  const uint32_t mask = l.bits >= 32 ? 0xffffffffu : (1u << l.bits) - 1u;
  return (h & mask) / top;
}

double get_sample(int32_t type, int32_t bits, const void *row, int x) {
  const auto *p = static_cast<const unsigned char *>(row) + x * sample_bytes(type, bits);
  if (type == ORX_C_FLOAT) {
    float f;
    std::memcpy(&f, p, 4);
    return f;
  }
  if (type == ORX_C_DOUBLE) {
    double d;
    std::memcpy(&d, p, 8);
    return d;
  }
  uint32_t v = 0;
  if (bits <= 8) {
    v = *p;
  } else if (bits <= 16) {
    uint16_t w;
    std::memcpy(&w, p, 2);
    v = w;
  } else {
    std::memcpy(&v, p, 4);
  }
  return v / (std::ldexp(1.0, bits) - 1.0);
}

void put_sample(int32_t type, int32_t bits, void *row, int x, double v) {
  auto *p = static_cast<unsigned char *>(row) + x * sample_bytes(type, bits);
  if (type == ORX_C_FLOAT) {
    const auto f = static_cast<float>(v);
    std::memcpy(p, &f, 4);
    return;
  }
  const auto q = static_cast<uint32_t>(std::llround(v * (std::ldexp(1.0, bits) - 1.0)));
  if (bits <= 8) {
    *p = static_cast<unsigned char>(q);
  } else if (bits <= 16) {
    const auto w = static_cast<uint16_t>(q);
    std::memcpy(p, &w, 2);
  } else {
    std::memcpy(p, &q, 4);
  }
}

ORX_INFO *new_request(const std::string &path, const Layout &l, int width, int height) {
  ORX_INFO *info = ORX_info_alloc();
  info->handle = STR_save(path.c_str());
  info->full_path = 1;
  info->image_count = 1;
  info->images = static_cast<ORX_IFD *>(ERR_malloc(sizeof(ORX_IFD)));
  orx__init_ifd(info->images);
  ORX_IFD &ifd = info->images[0];
  ifd.window = {0, width - 1, 0, height - 1};
  ifd.active = ifd.window;
  for (ORX_CHANNELS *g : {&ifd.image, &ifd.matte, &ifd.aux}) {
    g->type = l.type;
    g->bits = l.bits;
  }
  ifd.image.count = l.image;
  ifd.matte.count = l.matte;
  ifd.aux.count = l.aux;
  return info;
}

int write_pattern(ORX_INFO *request, const Layout &l, bool smooth, int step) {
  // The rows are the test's own, so that failure injection meets only the
  // library's open, scan and close and the plug-in.
  const int width = request->images[0].window.right + 1;
  const std::size_t sample = sample_bytes(l.type, l.bits);
  std::vector<std::vector<unsigned char>> channel_rows(
      static_cast<std::size_t>(channel_count(l)),
      std::vector<unsigned char>(static_cast<std::size_t>(width) * sample));
  std::vector<void *> rows;
  for (auto &row : channel_rows) rows.push_back(row.data());
  ORX_OBJECT *object = ORX_open(request, "w");
  if (object == nullptr) return orx__err != 0 ? orx__err : -1;
  const ORX_IFD &ifd = object->info.images[0];
  int status = 0;
  for (int y = 0; status == 0 && y <= ifd.window.top; y += step) {
    for (int c = 0; c < channel_count(l); ++c)
      for (int x = 0; x < width; ++x)
        put_sample(l.type, l.bits, rows[static_cast<std::size_t>(c)], x,
                   pattern_value(l, x, y, c, smooth));
    status = ORX_scan_write(object, y, rows.data());
  }
  const int closed = ORX_close(object);
  return status != 0 ? status : closed;
}

double read_difference(const std::string &path, const Layout &l, bool smooth,
                       ORX_IFD *read_back) {
  // Nothing allocated here, so that failure injection meets only the
  // library and the plug-in.
  ORX_OBJECT *object = open_image(path, nullptr);
  if (object == nullptr) return -1.0;
  const ORX_IFD ifd = object->info.images[0];
  if (read_back != nullptr) *read_back = ifd;
  double worst = 0.0;
  const ORX_CHANNELS *groups[] = {&ifd.image, &ifd.matte, &ifd.aux};
  // Top row first: the file's own order, and the reverse of the writes.
  for (int y = ifd.window.top; y >= ifd.window.bottom; --y) {
    void **rows = nullptr;
    if (ORX_scan_read(object, y, &rows) != 0) {
      worst = -1.0;
      break;
    }
    int c = 0;
    for (const ORX_CHANNELS *g : groups)
      for (int k = 0; k < g->count && c < channel_count(l); ++k, ++c)
        for (int x = 0; x <= ifd.window.right - ifd.window.left; ++x)
          worst = std::max(worst, std::fabs(get_sample(g->type, g->bits, rows[c], x) -
                                            pattern_value(l, x, y, c, smooth)));
  }
  ORX_close(object);
  return worst;
}

}  // namespace orx::test
