// Writes a seed corpus of small valid RLA files for the fuzz targets: every
// channel type and width class, mattes and auxiliary channels, an active
// window smaller than the window, and a two-image file.
//   orx_fuzz_seeds DIR
// Each seed is the file the round-trip body writes from a shape: the body
// also proves that the file reads back as written.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "bodies.hpp"
#include "quiet.hpp"

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIR\n", argv[0]);
    return 2;
  }
  // In the round-trip body's terms: the image count less one, then per
  // image the left, bottom, width - 1 and height - 1 of the window and the
  // active window's offsets, then the image, matte and auxiliary groups (a
  // byte of count and type, and for integers the bits less one).
#define WHOLE 0, 0, 12, 6, 0, 0, 12, 6
#define INSET 0, 0, 12, 6, 2, 1, 7, 3
  const struct {
    const char *name;
    std::vector<std::uint8_t> shape;
  } seeds[] = {
      {"rgb8", {0, WHOLE, 3, 7, 0, 0, 0, 0}},
      {"rgba8_inset", {0, INSET, 3, 7, 1, 7, 0, 0}},
      {"rgba16", {0, WHOLE, 3, 15, 1, 15, 0, 0}},
      {"grey12_z", {0, INSET, 1, 11, 0, 0, 10}},
      {"rgb32", {0, WHOLE, 3, 31, 0, 0, 0, 0}},
      {"rgbf", {0, WHOLE, 11, 10, 10}},
      {"rgbd", {0, INSET, 15, 0, 0, 0, 0}},
      {"two_images", {1, INSET, 3, 7, 1, 7, 0, 0, 0, 0, 13, 6, 2, 1, 7, 3, 3, 7, 1, 7, 0, 0}},
  };
#undef WHOLE
#undef INSET
  int failed = 0;
  for (const auto &s : seeds) {
    std::vector<std::uint8_t> bytes = s.shape;
    for (unsigned k = 0; k < 251; ++k) bytes.push_back(static_cast<std::uint8_t>(k * 7 + k / 3));
    std::error_code ec;
    if (orx::fuzz::rla_round_trip(bytes.data(), bytes.size()) != 0 ||
        !std::filesystem::copy_file(orx::fuzz::scratch_path("trip.rla"),
                                    std::string(argv[1]) + "/" + s.name + ".rla",
                                    std::filesystem::copy_options::overwrite_existing, ec)) {
      std::fprintf(stderr, "could not write seed %s\n", s.name);
      ++failed;
    }
  }
  return failed == 0 ? 0 : 1;
}
