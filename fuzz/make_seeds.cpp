// Writes a seed corpus of small valid RLA files for the fuzz target: every
// channel type and width class, mattes and auxiliary channels, an active
// window smaller than the window, and a two-image file.
//   orx_fuzz_seeds DIR
#include <cstdio>
#include <cstring>
#include <string>

#include "orx/err.h"
#include "orx/plugin.h"
#include "orx/rla.h"
#include "orx/str.h"

namespace {

struct Seed {
  const char *name;
  int channels, type, bits;
  int mattes, aux;
  bool inset;   // active window smaller than the window
  int images;
};

void fill_group(ORX_CHANNELS &g, int count, int type, int bits) {
  g.count = count;
  g.type = type;
  g.bits = bits;
}

bool write_seed(const std::string &dir, const Seed &s) {
  ORX_OBJECT *o = orx__new_obj(ORX_ACCESS_WRITE);
  if (o == nullptr) return false;
  std::string path = dir + "/" + s.name + ".rla";
  o->info.handle = STR_save(path.c_str());
  o->info.full_path = 1;
  o->info.name = STR_save(s.name);
  o->info.image_count = s.images;
  o->info.images = static_cast<ORX_IFD *>(ERR_malloc(static_cast<uint32_t>(sizeof(ORX_IFD)) * static_cast<uint32_t>(s.images)));
  for (int i = 0; i < s.images; ++i) {
    ORX_IFD &ifd = o->info.images[i];
    orx__init_ifd(&ifd);
    ifd.aspect = STR_save("ntsc_640");
    ifd.window = {0, 12 + i, 0, 6};
    ifd.active = s.inset ? ORX_WINDOW{2, 9, 1, 4} : ifd.window;
    fill_group(ifd.image, s.channels, s.type, s.bits);
    fill_group(ifd.matte, s.mattes, s.type, s.bits);
    fill_group(ifd.aux, s.aux, ORX_C_FLOAT, 32);
  }
  if (!ORX_rla_w_open(o)) {
    orx__free_obj(o);
    return false;
  }
  for (int i = 0; i < s.images; ++i) {
    ORX_IFD &ifd = o->info.images[i];
    int width = ifd.window.right - ifd.window.left + 1;
    uint32_t size = 0;
    void **rows = ORX_chan_alloc(&ifd, width, "seed", &size);
    if (rows == nullptr) return false;
    auto *end = static_cast<unsigned char *>(rows[0]) + size;
    int n = ifd.image.count + ifd.matte.count + ifd.aux.count;
    for (int y = ifd.window.bottom; y <= ifd.window.top; ++y) {
      for (int c = 0; c < n; ++c) {
        auto *bytes = static_cast<unsigned char *>(rows[c]);
        std::size_t row_bytes = static_cast<std::size_t>(
            (c + 1 < n ? static_cast<unsigned char *>(rows[c + 1]) : end) - bytes);
        for (std::size_t k = 0; k < row_bytes; ++k)
          bytes[k] = static_cast<unsigned char>((k / 3) * 7 + static_cast<unsigned>(y * c));
      }
      o->scan(o->private_cell[i], y, rows);
    }
    ORX_chan_free(rows);
  }
  return o->close(o, 0) == 0;
}

}  // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
    return 2;
  }
  const Seed seeds[] = {
      {"rgb8", 3, ORX_C_INTEGER, 8, 0, 0, false, 1},
      {"rgba8_inset", 3, ORX_C_INTEGER, 8, 1, 0, true, 1},
      {"rgba16", 3, ORX_C_INTEGER, 16, 1, 0, false, 1},
      {"grey12_z", 1, ORX_C_INTEGER, 12, 0, 1, true, 1},
      {"rgb32", 3, ORX_C_INTEGER, 32, 0, 0, false, 1},
      {"rgbf", 3, ORX_C_FLOAT, 32, 1, 1, false, 1},
      {"rgbd", 3, ORX_C_DOUBLE, 64, 0, 0, true, 1},
      {"two_images", 3, ORX_C_INTEGER, 8, 1, 0, true, 2},
  };
  int failed = 0;
  for (const Seed &s : seeds) {
    if (!write_seed(argv[1], s)) {
      std::fprintf(stderr, "could not write seed %s\n", s.name);
      ++failed;
    }
  }
  return failed == 0 ? 0 : 1;
}
