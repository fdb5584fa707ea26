// The configuration file: every database built from the bytes as ".orxrc"
// in a home directory of the fuzzer's own, then queried and torn down.
#include <sys/stat.h>

#include <cstdlib>
#include <string>

#include "bodies.hpp"
#include "config/config_file.hpp"
#include "orx/clr.h"
#include "orx/fmt.h"
#include "quiet.hpp"

namespace orx::fuzz {
namespace {

void drop_databases() {
  FB_exit();
  FMT_exit();
  CLR_exit();
  orx__config_free();
}

}  // namespace

int config_file(const std::uint8_t *data, std::size_t size) {
  silence_reports();
  static const std::string home = [] {
    std::string dir = scratch_path("home");
    mkdir(dir.c_str(), 0700);
    setenv("HOME", dir.c_str(), 1);
    unsetenv("KV_ROOT");
    return dir;
  }();
  if (!write_bytes(home + "/.orxrc", data, size)) return 0;
  drop_databases();
  FB_init(nullptr);
  FMT_init(nullptr);
  CLR_init(nullptr);
  for (const FB_FRAMEBUFFER *fb = FB_info(); fb != nullptr; fb = FB_info()) {
  }
  for (const FMT_FORMAT *f = FMT_info(); f != nullptr; f = FMT_info()) {
  }
  FB_find(FB_def_framebuffer());
  FMT_find(FMT_def_aspect());
  FMT_def_dominance();
  FMT_def_frame_rate();
  FMT_def_gamma();
  FMT_def_gamma_tab_res();
  FMT_def_image_data();
  FMT_def_input_gamma();
  FMT_def_swatch();
  FMT_def_key();
  FMT_def_base_name();
  float red[3], green[3], blue[3], white[3], start, end, step;
  CLR_def_primaries(red, green, blue);
  CLR_def_white(white);
  CLR_def_wavelengths(&start, &end, &step);
  uint32_t rows = 0;
  CLR_def_cmf(&rows);
  float xyz[3];
  CLR_cmf_at(start + step / 2, xyz);
  drop_databases();
  return 0;
}

}  // namespace orx::fuzz
