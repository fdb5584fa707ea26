// Writes a luminance/chroma OpenEXR file (Y full size, RY and BY
// subsampled 2x2, and alpha) of a colour ramp through OpenEXR's RGBA
// interface, which no packaged tool writes, and REF, an RGBA file of what
// that interface decodes from it (OpenImageIO reads no subsampled
// channels): make_exr_yc OUT REF.
#include <ImfRgbaFile.h>

#include <vector>

int main(int argc, char **argv) {
  if (argc != 3) return 2;
  const int w = 24, h = 14;
  std::vector<Imf::Rgba> pixels(static_cast<std::size_t>(w * h));
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      pixels[static_cast<std::size_t>(y * w + x)] =
          Imf::Rgba(x / float(w), y / float(h), 0.25f + 0.5f * ((x + y) % 2), 1.0f - x / float(2 * w));
  {
    Imf::RgbaOutputFile out(argv[1], w, h, Imf::WRITE_YCA);
    out.setFrameBuffer(pixels.data(), 1, w);
    out.writePixels(h);
  }
  Imf::RgbaInputFile in(argv[1]);
  in.setFrameBuffer(pixels.data(), 1, w);
  in.readPixels(0, h - 1);
  Imf::RgbaOutputFile ref(argv[2], w, h, Imf::WRITE_RGBA);
  ref.setFrameBuffer(pixels.data(), 1, w);
  ref.writePixels(h);
  return 0;
}
