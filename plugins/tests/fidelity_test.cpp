// Files made by other people's tools, read by us and by OpenImageIO at its
// defaults: every pixel of every image must agree over the union of the
// data and display windows (zero where the file stores nothing), and `orx
// copy` to the same format must keep the pixels, the sample formats, the
// display window, the chromaticities (or their absence), the profile and
// the names, silently.  One row per file.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>
#include <sstream>
#include <string>
#include <vector>

#include "support/process.hpp"
#include "orx/attributes.h"
#include "plugin_host.hpp"
#include "support/fixtures.hpp"
#include "support/images.hpp"

namespace orx::test {
namespace {

struct Row {
  const char *name;
  const char *make;  // shell command writing {out} (scratch files go in {dir})
  const char *ext;
  double tolerance;  // of our reading against OpenImageIO's
  // The file OpenImageIO reads in place of {out}, for files it cannot read.
  const char *oracle = nullptr;
  // Negative: `orx copy` to the same format must read in OpenImageIO exactly
  // as the file did, metadata included.  Otherwise the writer stores the
  // samples another way (palette or CMYK as RGB, a lossy codec): OpenImageIO
  // must read the copy as we read the file, within this, with the same
  // profile and orientation.
  double copy_tolerance = -1;
};

// "oiio" makes a pattern with oiiotool: its arguments then -o {out}.
#define OIIO(args) "oiiotool " args " -o {out}"
#define BASE                                                                                  \
  "oiiotool --pattern fill:topleft=0,0,0:topright=1,0,0:bottomleft=0,1,1:bottomright=1,1,0.5 " \
  "64x48 3 -d uint8 -o {dir}/s.png -o {dir}/s.tif --pattern noise:type=uniform:min=0:max=1 "   \
  "64x48 1 --chappend --chnames R,G,B,A -o {dir}/a.png && "
// Deep layers of a size: half red at depth 1 (near), opaque blue at depth
// 2, merged far one first.
#define LAYER(colour, size) "--pattern constant:color=" colour " " size " 5 --chnames R,G,B,A,Z --deepen "
#define NEAR(size) LAYER("0.5,0,0,0.5,1", size)
#define DEEP(size) "oiiotool " LAYER("0,0,1,1,2", size) NEAR(size) "--deepmerge "
#define LAB_ORACLE "convert {out} -colorspace sRGB -depth 16 {dir}/ref.png"
#define WARM                                                                                   \
  "oiiotool --pattern fill:topleft=1,0,0:topright=1,0.5,0:bottomleft=0.6,0.3,0.2:"              \
  "bottomright=1,0.8,0.7 64x48 3 -d uint8 -o {dir}/w.png && "
#define ICC                                                                                    \
  "/usr/bin/python3 -c \"from PIL import ImageCms as C; open('{dir}/p.icc', 'wb').write("     \
  "C.ImageCmsProfile(C.createProfile('sRGB')).tobytes())\" && "
// Radiance scanlines of 300 pixels (runs of 5, one row a single run):
// flat, old-style runs and new-style runs by turns, and all flat in ref.hdr.
#define HDR_RUNS                                                                                \
  "w, h = 300, 6\n"                                                                             \
  "P = [[bytes([128 + (x // 5 if y != 3 else 0) % 120, 9 * y, 50, 120 + y]) for x in range(w)] " \
  "for y in range(h)]\n"                                                                        \
  "hd = b'#?RADIANCE\\nFORMAT=32-bit_rle_rgbe\\n\\n-Y %d +X %d\\n' % (h, w)\n"                    \
  "def old(r):\n o, x = b'', 0\n while x < w:\n  n = 1\n"                                       \
  "  while x + n < w and r[x + n] == r[x]: n += 1\n"                                           \
  "  o, m, x = o + r[x], n - 1, x + n\n"                                                        \
  "  while m: o, m = o + bytes([1, 1, 1, m & 255]), m >> 8\n return o\n"                        \
  "def new(r):\n o = bytes([2, 2, w >> 8, w & 255])\n for c in range(3):\n"                     \
  "  for i in range(0, w, 128): o += bytes([min(128, w - i)]) + bytes(p[c] for p in r[i:i + 128])\n" \
  " return o + bytes([128 + 127, r[0][3]] * 2 + [128 + w - 254, r[0][3]])\n"                    \
  "open('{dir}/ref.hdr', 'wb').write(hd + b''.join(b''.join(r) for r in P))\n"                  \
  "open('{out}', 'wb').write(hd + b''.join([b''.join(r), old(r), new(r)][y % 3] "               \
  "for y, r in enumerate(P)))"
// OpenImageIO's HDR file with one replacement in its header.
#define HDR_EDIT(replace)                                                                       \
  "oiiotool --pattern fill:topleft=0,0,0:topright=9,0,0:bottomleft=0,1,1:bottomright=1,1,4 "     \
  "64x48 3 -d float -o {dir}/a.hdr && /usr/bin/python3 -c \"open('{out}', 'wb').write(open("     \
  "'{dir}/a.hdr', 'rb').read().replace(" replace ", 1))\""
#define PNM_BYTES(expression) \
  "/usr/bin/python3 -c \"import struct; open('{out}', 'wb').write(" expression ")\""
// Python with PIL and struct over a picture: im, its size w, h, pixels p.
#define PIL_OF(name)                                                                         \
  "/usr/bin/python3 -c \"import itertools as I, struct as S; from PIL import Image; im = "    \
  "Image.open('{dir}/" name ".png'); w, h = im.size; p = im.load(); "
#define PIL PIL_OF("s")
const Row kRows[] = {
    {"exr_half_rgba", OIIO("--pattern fill:topleft=0,0,0,0:topright=1,0,0,1:bottomleft=0,1,0,0.5:"
                           "bottomright=0,0,1,1 40x24 4 -d half"), "exr", 0},
    {"exr_float_beyond_half", OIIO("--pattern constant:color=70000,0.1,-3 16x8 3 -d float"), "exr", 0},
    {"exr_uint_id", OIIO("--pattern constant:color=0.25 8x4 1 -d uint32 --chnames id"), "exr", 0},
    {"exr_single_z", OIIO("--pattern checker:color1=0.5:color2=2 8x8 1 --chnames Z -d float "
                                 "--attrib:type=int frames 24"), "exr", 0},
    {"exr_overscan", OIIO("--pattern checker:width=4:height=4 32x16 3 --origin -6-3 --fullsize 20x10+0+0 "
                          "-d half"), "exr", 0},
    {"exr_data_outside", OIIO("--pattern fill:left=1,0,0:right=0,0,1 12x6 3 --origin +30+12 "
                              "--fullsize 20x10+0+0 -d half --tile 16 16"), "exr", 0},
    {"exr_chromaticities", OIIO("--pattern constant:color=0.2,0.4,0.6 8x4 3 -d half --attrib:type=float[8] "
                                "chromaticities 0.7,0.3,0.2,0.75,0.12,0.05,0.32,0.33"), "exr", 0},
    {"exr_parts_named", "oiiotool --pattern constant:color=1,0,0 8x4 3 --attrib oiio:subimagename left "
                        "--pattern constant:color=0,0,1,1 8x4 4 --attrib oiio:subimagename right "
                        "--siappend -d half -o {out}", "exr", 0},
    {"exr_views", "oiiotool --pattern constant:color=1,0,0 8x4 3 -d half -o {dir}/l.exr && "
                  "oiiotool --pattern constant:color=0,1,0,1 8x4 4 -d float -o {dir}/r.exr && "
                  "exrmultipart -combine -i {dir}/l.exr::beauty -view left {dir}/r.exr::beauty_r "
                  "-view right -o {out}", "exr", 0},
    {"exr_data_inside", OIIO("--pattern checker:width=4:height=4 67x31 3 --crop 20x10+5+3 -d half"),
     "exr", 0},
    {"exr_mipmap", "oiiotool --pattern fill:left=0,0,0:right=1,0.5,0.25 37x21 3 -d half -o {dir}/s.exr && "
                   "exrmaketiled -m -t 16 16 {dir}/s.exr {out}", "exr", 0},
    // A ripmap is its full-size level (OpenImageIO lists its levels oddly).
    {"exr_ripmap",
     "oiiotool --pattern fill:left=0,0,0:right=1,0.5,0.25 37x21 3 -d half -o {dir}/s.exr && "
     "exrmaketiled -r -t 8 8 {dir}/s.exr {out}", "exr", 0, "{dir}/s.exr", 0},
    {"exr_oiio_texture", "oiiotool --pattern fill:left=0,0,0:right=1,0.5,0.25 37x21 3 -d half -otex {out}",
     "exr", 0},
    {"exr_maketx", "oiiotool --pattern fill:left=0,0,0:right=1,0.5,0.25 37x21 3 -d half -o {dir}/s.exr && "
                   "{orx} maketx {dir}/s.exr {out}", "exr", 0},
    {"exr_deep", DEEP("8x4") "-o {out}", "exr", 1e-6},
    {"exr_deep_tiled", DEEP("40x20") "--tile 16 16 -o {out}", "exr", 1e-6},
    {"exr_deep_without_z", "oiiotool " NEAR("8x4") "--ch R,G,B,A -o {out}", "exr", 0},
    // Compressions OpenEXR's C library does not decode (DWA) or decodes
    // wrongly (B44 without half channels), with a tiled mipmap of DWA.
    {"exr_dwaa", OIIO("--pattern fill:topleft=0,0,0,0:topright=1,0,0,1:bottomleft=0,1,0,0.5:"
                      "bottomright=0,0,1,1 40x24 4 -d half --compression dwaa"), "exr", 0},
    {"exr_b44_float", OIIO("--pattern fill:left=0,0,0,1:right=1,0.5,0.25,0.5 40x24 4 -d float "
                           "--compression b44"), "exr", 0},
    {"exr_dwab_mipmap", "oiiotool --pattern fill:left=0,0,0:right=1,0.5,0.25 37x21 3 -d half -o "
                        "{dir}/s.exr && maketx --compression dwab {dir}/s.exr -o {out}", "exr", 0},
    // Every channel in a layer: its R, G, B and A are the image and matte,
    // in that order in a TIFF copy.
    {"exr_layer_as_tiff",
     "oiiotool --pattern fill:left=0,0,0,0:right=1,0.5,0.25,1 29x19 4 -d half --chnames diffuse.R,"
     "diffuse.G,diffuse.B,diffuse.A -o {dir}/l.exr && {orx} copy {dir}/l.exr {out}",
     "tif", 1e-6, "{dir}/l.exr", 0},
    {"exr_luminance_chroma", "{make_exr_yc} {out} {dir}/ref.exr", "exr", 0, "{dir}/ref.exr"},
    // TIFF, PNG and JPEG variants made by ImageMagick, libtiff's tools and
    // OpenImageIO from one picture ({dir}/s.png, and {dir}/a.png with a
    // matte); PIL supplies a real ICC profile ({dir}/p.icc).  1e-6: our
    // floats of 8-bit samples and OpenImageIO's differ in the last bit.
    {"tiff_int8", BASE "oiiotool {dir}/s.png -d int8 -o {out}", "tif", 1e-6, nullptr, 0},
    {"tiff_int16", BASE "oiiotool {dir}/s.png -d int16 -o {out}", "tif", 1e-6, nullptr, 0},
    {"tiff_half", BASE "oiiotool {dir}/s.png -d half --attrib tiff:half 1 -o {out}", "tif", 1e-6, nullptr, 0},
    {"tiff_double", BASE "oiiotool {dir}/s.png -d double -o {out}", "tif", 1e-6},
    {"tiff_uint12", BASE "oiiotool {dir}/s.png -d uint12 -o {out}", "tif", 2e-5, nullptr, 2e-5},
    {"tiff_uint24", BASE "convert {dir}/s.png -depth 24 {out}", "tif", 1e-6},
    {"tiff_palette", BASE "convert {dir}/s.png -type Palette {out}", "tif", 1.0 / 255, nullptr, 1e-6},
    {"tiff_cmyk8", BASE "convert {dir}/s.png -colorspace CMYK {out}", "tif", 1e-6, nullptr, 1e-6},
    {"tiff_cmyk16", BASE "convert {dir}/s.png -colorspace CMYK -depth 16 {out}", "tif", 1e-6, nullptr, 1e-6},
    {"tiff_miniswhite", BASE "convert {dir}/s.png -colorspace gray {out} && tiffset -s 262 0 {out}",
     "tif", 1e-6},
    {"tiff_1bit", BASE "convert {dir}/s.png -colorspace gray -depth 1 -type bilevel {out}", "tif", 1e-6},
    {"tiff_4bit", BASE "convert {dir}/s.png -colorspace gray -depth 4 {out}", "tif", 1e-6},
    {"tiff_ycbcr_jpeg", BASE "tiffcp -c jpeg {dir}/s.tif {out}", "tif", 1e-6, nullptr, 1e-6},
    // OpenImageIO associates in float, we in the file's 8 bits.
    {"tiff_unassociated", BASE "convert {dir}/a.png -define tiff:alpha=unassociated {out}", "tif",
     0.5 / 255 + 1e-6, nullptr, 1e-6},
    // CIE L*a*b* against ImageMagick's conversion to sRGB, the exact one
    // (libtiff's tiff2rgba models a display with a pure 2.4 power and is
    // up to 49 levels of 255 off).  ImageMagick reads negative 8-bit a*, b*
    // one unit high and 16-bit ones in units of 255/65535 rather than
    // TIFF's 1/256, so the picture is warm (a*, b* positive) and 16 bits
    // agree within what that 0.4% of chroma moves.
    {"tiff_lab8", WARM "convert {dir}/w.png -colorspace Lab {out} && " LAB_ORACLE, "tif",
     1.0 / 255, "{dir}/ref.png", 1e-6},
    {"tiff_lab16", WARM "convert {dir}/w.png -depth 16 -colorspace Lab {out} && " LAB_ORACLE, "tif",
     0.015, "{dir}/ref.png", 1e-6},
    // LogLuv holds CIE XYZ: the oracle is the linear RGB that was encoded
    // (its 8-bit u'v' steps move a dark primary by up to 0.012).
    {"tiff_logluv",
     "oiiotool --pattern fill:topleft=0.1,0.1,0.1:topright=0.9,0.5,0.2:bottomleft=0.2,0.6,0.8:"
     "bottomright=0.8,0.8,0.7 37x29 3 -d float -o {dir}/rgb.tif --ccmatrix 0.4124564,0.2126728,"
     "0.0193339,0.3575761,0.7151522,0.1191920,0.1804375,0.0721750,0.9503041 -o {dir}/xyz.tif && "
     "tiffcp -c sgilog {dir}/xyz.tif {out}", "tif", 0.02, "{dir}/rgb.tif", 1e-6},
    {"tiff_two_directories",
     BASE "convert {dir}/s.png \\( {dir}/s.png -resize 30x25! -colorspace gray -depth 16 \\) {out}",
     "tif", 1e-6},
    // The alpha after another extra sample becomes the matte, ahead of it
    // (the other sample zero, which OpenImageIO would multiply by alpha).
    {"tiff_late_alpha",
     OIIO("--pattern fill:left=0.2,0.4,0.6,0,0.25:right=1,0.5,0.25,0,1 24x8 5 --chnames R,G,B,Z,A -d uint8")
     " && oiiotool {out} --ch R,G,B,A,Z -o {dir}/ref.tif", "tif", 1e-6, "{dir}/ref.tif", 1e-6},
    {"tiff_orientation", BASE "cp {dir}/s.tif {out} && tiffset -s 274 6 {out}", "tif", 1e-6},
    {"tiff_pixel_aspect",
     BASE "cp {dir}/s.tif {out} && tiffset -s 282 72 {out} && tiffset -s 283 144 {out}", "tif", 1e-6},
    {"tiff_icc", BASE ICC "convert {dir}/s.png -profile {dir}/p.icc {out}", "tif", 1e-6},
    {"png_straight_alpha", BASE "cp {dir}/a.png {out}", "png", 1e-6},
    {"png_straight_alpha16", BASE "oiiotool {dir}/a.png -d uint16 -o {out}", "png", 1e-6},
    {"png_palette", BASE "convert {dir}/s.png -colors 16 PNG8:{out}", "png", 1e-6},
    {"png_trns", BASE "convert {dir}/a.png -channel A -threshold 50% +channel -colors 16 PNG8:{out}",
     "png", 1e-6},
    // ImageMagick writes its texts after the image data, where OpenImageIO
    // does not look: the comment comes from OpenImageIO, before it.
    {"png_gamma", BASE "convert {dir}/s.png -set gamma 0.35 {out}", "png", 1e-6},
    {"png_comment", BASE "oiiotool {dir}/s.png --attrib Comment 'made by hand' -o {out}", "png", 1e-6},
    {"png_icc", BASE ICC "convert {dir}/s.png -profile {dir}/p.icc {out}", "png", 1e-6},
    {"png_exif_orientation", BASE "/usr/bin/python3 -c \"from PIL import Image; e = Image.Exif(); "
     "e[274] = 6; Image.open('{dir}/s.png').save('{out}', exif=e)\"", "png", 1e-6},
    {"png_pixel_aspect", BASE "convert {dir}/s.png -density 72x144 -units PixelsPerInch {out}", "png", 1e-6},
    {"jpeg_cmyk_adobe", BASE "convert {dir}/s.png -colorspace CMYK -quality 95 {out}", "jpg", 1e-6, nullptr, 0.1},
    {"jpeg_grey", BASE "convert {dir}/s.png -colorspace gray -quality 90 {out}", "jpg", 1e-6, nullptr, 0.1},
    // OpenImageIO's JPEG carries an EXIF block (without an orientation).
    {"jpeg_oiio_grey", BASE "oiiotool {dir}/s.png --ch R -o {out}", "jpg", 1e-6, nullptr, 0.1},
    {"jpeg_pixel_aspect", BASE "convert {dir}/s.png -density 72x144 -quality 95 {out}", "jpg", 1e-6,
     nullptr, 0.1},
    {"jpeg_orientation_icc",
     BASE ICC "convert {dir}/s.png -profile {dir}/p.icc -orient RightTop {out}", "jpg", 1e-6, nullptr, 0.1},
    // Radiance HDR: OpenImageIO's and ImageMagick's files; old-style runs
    // (neither peer reads them), flat and new-style scanlines mixed, against
    // the same pixels flat; resolution strings and header lines rewritten.
    {"hdr_oiio", OIIO("--pattern fill:topleft=0,0,0:topright=9,0,0:bottomleft=0,1,1:bottomright=1,1e-3,4 "
                      "64x48 3 -d float"), "hdr", 0},
    {"hdr_magick", BASE "convert {dir}/s.png {out}", "hdr", 0},
    {"hdr_runs_mixed", "/usr/bin/python3 -c \"" HDR_RUNS "\"", "hdr", 0, "{dir}/ref.hdr"},
    {"hdr_transposed", HDR_EDIT("b'-Y 48 +X 64', b'+X 48 -Y 64'"), "hdr", 0},
    {"hdr_bottom_up", HDR_EDIT("b'-Y 48 +X 64', b'+Y 48 -X 64'"), "hdr", 0},
    {"hdr_header_lines", HDR_EDIT("b'FORMAT', b'# made by hand\\\\nEXPOSURE=2\\\\nEXPOSURE=1.5\\\\nGAMMA=2.2\\\\n"
                                  "PRIMARIES=0.7 0.3 0.2 0.75 0.12 0.05 0.32 0.33\\\\nPIXASPECT=2\\\\n"
                                  "SOFTWARE=hand\\\\nFORMAT'"), "hdr", 0},
    // Netpbm and PFM.  OpenImageIO reads 16-bit samples of maxval 65535 from
    // 32769 on one step low (ImageMagick and we do not): 1.6e-5, and such
    // files grey (ImageMagick's reading of a colour copy would differ).
    {"pnm_oiio_p6", BASE "oiiotool {dir}/s.png -o {out}", "pnm", 1e-6},
    {"pnm_oiio_p5_16", BASE "oiiotool {dir}/s.png --ch R -d uint16 -o {out}", "pnm", 1.6e-5},
    {"pnm_oiio_plain", BASE "oiiotool {dir}/s.png --attrib pnm:binary 0 -o {out}", "pnm", 1e-6},
    {"pnm_magick_plain16", BASE "convert {dir}/s.png -colorspace gray -compress none -depth 16 {out}",
     "pnm", 1.6e-5},
    {"pnm_pbm", BASE "convert {dir}/s.png -colorspace gray -threshold 50% pbm:{out}", "pnm", 0},
    {"pnm_pbm_plain", BASE "convert {dir}/s.png -colorspace gray -threshold 50% -compress none pbm:{out}",
     "pnm", 0},
    {"pnm_pillow_grey", BASE "/usr/bin/python3 -c \"from PIL import Image; Image.open('{dir}/s.png')."
                        "convert('L').save('{out}', 'PPM')\"", "pnm", 1e-6},
    // Maxvals 1000 (scaled to 16 bits, as OpenImageIO scales; the copy holds
    // 65535) and 1, with comments between the header's tokens.
    {"pnm_maxval_1000", PNM_BYTES("b'P5 #a\\\\n5 #b\\\\n3\\\\n#c\\\\n1000\\\\n' + b''.join(struct.pack('>H', "
                                  "(i * 97) % 1003) for i in range(15))"), "pnm", 1e-6, nullptr, 1.6e-5},
    {"pnm_maxval_1", PNM_BYTES("b'P2\\\\n# one\\\\n4 2 1\\\\n1 0 1 1\\\\n0 0 1 0\\\\n'"), "pnm", 0},
    {"pfm_magick", BASE "convert {dir}/s.png -endian LSB pfm:{out}", "pnm", 0},
    {"pfm_scaled_big_endian", PNM_BYTES("b'PF\\\\n2 2\\\\n4\\\\n' + struct.pack('>12f', *[i / 8 for i in range(12)])"),
     "pnm", 0},
    // DPX from OpenImageIO (little-endian) and ImageMagick (big-endian),
    // Cineon from ImageMagick (read only).  OpenImageIO widens 10 and 12
    // bits by repeating their high bits (1.2e-5 off v / 1023) and reads a
    // 12-bit filled sample as its 16-bit word (a copy within 2.3e-4).
    {"dpx_10bit", BASE "oiiotool {dir}/s.png -d uint10 -o {out}", "dpx", 2e-5},
    {"dpx_10bit_packed", BASE "oiiotool {dir}/s.png -d uint10 --attrib dpx:Packing Packed -o {out}", "dpx", 2e-5},
    {"dpx_10bit_method_b", BASE "oiiotool {dir}/s.png -d uint10 --attrib dpx:Packing 'Filled, method B' -o {out}",
     "dpx", 2e-5},
    {"dpx_12bit_packed", BASE "oiiotool {dir}/s.png -d uint12 -o {out}", "dpx", 2.5e-4, nullptr, 2.5e-4},
    // ImageMagick misreads float DPX files (OpenImageIO's too): those are
    // compared with the source picture.
    {"dpx_16bit_8bit_float", BASE "oiiotool {dir}/s.png -d uint8 -o {dir}/8.dpx -d float -o {dir}/f.dpx "
     "-d uint16 -o {out} && {orx} diff {dir}/8.dpx {dir}/s.png && {orx} diff {dir}/f.dpx {dir}/s.png "
     "--fail 1e-6", "dpx", 1e-6},
    {"dpx_luma_window_orientation", OIIO("--pattern fill:left=0:right=1 33x7 1 --origin +6+3 --fullsize 50x30 "
     "-d uint10 --orientation 3 --attrib:type=float PixelAspectRatio 2"), "dpx", 2e-5},
    {"dpx_magick_rgba_be", BASE "convert {dir}/a.png -depth 10 {out}", "dpx", 2e-5},
    {"dpx_magick_luma16", BASE "convert {dir}/s.png -colorspace gray -depth 16 {out}", "dpx", 1e-6},
    // ImageMagick ends its 8-bit rows on a word, which OpenImageIO does not skip.
    {"dpx_magick_8bit_odd_width", BASE "convert {dir}/s.png -resize 33x7! -depth 8 {out} && "
     "convert {out} {dir}/ref.png", "dpx", 1e-6, "{dir}/ref.png", 1e-6},
    {"cineon_10bit", BASE "convert {dir}/s.png -depth 10 {out}", "cin", 2e-5},
    {"cineon_16bit", BASE "convert {dir}/s.png -depth 16 {out}", "cin", 1e-6},
    {"cineon_8bit", BASE "convert {dir}/s.png -depth 8 {out}", "cin", 1e-6},
    // SGI: OpenImageIO writes verbatim only and ImageMagick 16-bit verbatim
    // only; our own writer's run-length copies are read back by OpenImageIO.
    {"sgi_oiio8", BASE "oiiotool {dir}/s.png -o {out}", "sgi", 1e-6},
    {"sgi_oiio16_grey_alpha", BASE "oiiotool {dir}/a.png --ch R,A -d uint16 -o {out}", "sgi", 1e-6},
    {"sgi_oiio_five_channels", BASE "oiiotool {dir}/a.png --ch R,G,B,A,R -o {out}", "sgi", 1e-6},
    {"sgi_magick_rle_rgba", BASE "convert {dir}/a.png -compress RLE SGI:{out}", "sgi", 1e-6},
    {"sgi_magick_grey", BASE "convert {dir}/s.png -colorspace gray SGI:{out}", "sgi", 1e-6},
    {"sgi_magick16", BASE "convert {dir}/s.png -depth 16 -compress None SGI:{out}", "sgi", 1e-6},
    {"sgi_pil", BASE "/usr/bin/python3 -c \"from PIL import Image; "
     "Image.open('{dir}/s.png').save('{out}', format='SGI')\"", "sgi", 1e-6},
    // WebP: a lossy copy is read within what the codec loses again.
    {"webp_oiio_lossy", BASE "oiiotool {dir}/s.png -o {out}", "webp", 1e-6, nullptr, 0.2},
    {"webp_oiio_lossless_alpha", BASE "oiiotool {dir}/a.png --attrib compression lossless -o {out}",
     "webp", 1e-6},
    {"webp_magick_lossless", BASE "convert {dir}/s.png -define webp:lossless=true {out}", "webp", 1e-6},
    {"webp_magick_alpha", BASE "convert {dir}/a.png -quality 60 {out}", "webp", 1e-6, nullptr, 0.2},
    {"webp_cwebp_alpha", BASE "cwebp -quiet -q 50 -alpha_q 50 {dir}/a.png -o {out}", "webp", 1e-6,
     nullptr, 0.2},
    // Each frame of an animation an image, composited as OpenImageIO shows it.
    {"webp_magick_animation", BASE WARM "convert -delay 10 {dir}/s.png {dir}/w.png {out}", "webp",
     1e-6, nullptr, 0.2},
    {"webp_img2webp_lossless", BASE WARM "img2webp -lossless {dir}/w.png {dir}/s.png -o {out}",
     "webp", 1e-6},
    // A lone frame in an animation's container, which only the animation
    // decoder reads.
    {"webp_one_frame_animation", BASE "oiiotool {dir}/s.png -o {dir}/s.webp && /usr/bin/python3 -c "
     "\"import struct; v = open('{dir}/s.webp', 'rb').read()[12:]; "
     "c = lambda t, d: t + struct.pack('<I', len(d)) + d; b = b'WEBP' + c(b'VP8X', bytes([2, 0, 0, "
     "0, 63, 0, 0, 47, 0, 0])) + c(b'ANIM', bytes(6)) + c(b'ANMF', bytes(6) + bytes([63, 0, 0, 47, "
     "0, 0, 100, 0, 0, 0]) + v); open('{out}', 'wb').write(b'RIFF' + struct.pack('<I', len(b)) + b)\"",
     "webp", 1e-6, nullptr, 0.2},
    {"webp_pil_icc_exif", BASE ICC "/usr/bin/python3 -c \"from PIL import Image; e = Image.Exif(); "
     "e[274] = 6; Image.open('{dir}/s.png').save('{out}', lossless=True, exif=e, "
     "icc_profile=open('{dir}/p.icc', 'rb').read())\"", "webp", 1e-6},
    // Targa: straight alpha associated (truncating) as OpenImageIO does;
    // struct-made files for what no peer writes: 16-bit pixels with an
    // alpha bit stored right to left, runs crossing rows, a 15-bit colour
    // map from entry 2 (OpenImageIO ignores the first entry's index,
    // ImageMagick reads it, its 5-bit fields up to a level lower).
    {"targa_oiio_rgba_texts", BASE "oiiotool {dir}/a.png --attrib Artist me --attrib DocumentName "
     "job --attrib ImageDescription 'a b' --attrib oiio:Gamma 1.8 --attrib PixelAspectRatio 2 "
     "--attrib targa:ImageID id -o {out}", "tga", 1e-6},
    {"targa_oiio_grey_rle", BASE "oiiotool {dir}/s.png --ch R --compression rle -o {out}", "tga", 1e-6},
    {"targa_magick_rle", BASE "convert {dir}/s.png -compress RLE {out}", "tga", 1e-6},
    {"targa_pillow_map_rle", BASE PIL "q = im.quantize(16); q.save('{out}', rle=True)\"", "tga", 1e-6,
     nullptr, 1e-6},
    {"targa_pillow_bottom_left", BASE PIL "im.save('{out}')\"", "tga", 1e-6},
    {"targa_16bit_right_to_left", BASE PIL "open('{out}', 'wb').write(S.pack('<3B2HB4H2B', 0, 0, 2, 0, "
     "0, 0, 0, 0, w, h, 16, 0x31) + b''.join(S.pack('<H', p[x, y][0] >> 3 << 10 | p[x, y][1] >> 3 << "
     "5 | p[x, y][2] >> 3 | (x & 1) << 15) for y in range(h) for x in reversed(range(w))))\"", "tga", 1e-6},
    {"targa_runs_across_rows", "oiiotool --pattern checker:width=24:height=5:color1=1,0,0:color2=0,0,1 "
     "64x48 3 -d uint8 -o "
     "{dir}/k.png && " PIL_OF("k") "s = [bytes(p[x, y])[::-1] for y in reversed(range(h)) for x in "
     "range(w)]; r = [(k, len(list(g))) for k, g in I.groupby(s)]; open('{out}', 'wb').write(S.pack("
     "'<3B2HB4H2B', 0, 0, 10, 0, 0, 0, 0, 0, w, h, 24, 0) + b''.join(bytes([127 + min(n - i, 128)]) + "
     "k for k, n in r for i in range(0, n, 128)))\"", "tga", 1e-6},
    {"targa_15bit_map_from_2", BASE PIL "q = im.quantize(16); c = q.getpalette()[:48]; open('{out}', "
     "'wb').write(S.pack('<3B2HB4H2B', 0, 1, 1, 2, 16, 15, 0, 0, w, h, 8, 0x20) + b''.join(S.pack('<H',"
     " c[i] >> 3 << 10 | c[i + 1] >> 3 << 5 | c[i + 2] >> 3) for i in range(0, 48, 3)) + bytes(i + 2 "
     "for i in q.tobytes()))\" && convert {out} {dir}/ref.png", "tga", 1.0 / 255, "{dir}/ref.png", 1e-6},
    // BMP: OpenImageIO hands BMP alpha out straight and cannot read
    // ImageMagick's RLE8 (its last end of line) or these RLE4 deltas:
    // ImageMagick is the oracle there; alpha rows hold 0 or 1 only.
    {"bmp_magick_rle8", BASE "convert {dir}/s.png -type Palette {out} && convert {out} {dir}/ref.png",
     "bmp", 1e-6, "{dir}/ref.png", 1e-6},
    {"bmp_rle4_deltas", "/usr/bin/python3 -c \"import struct as S; d = bytes([6, 0x12, 0, 0, 0, 2, 2, 0, 4, 0x55, 0, 0, "
     "0, 6, 0x34, 0x50, 0x12, 0, 0, 1]); open('{out}', 'wb').write(b'BM' + S.pack('<IHHIIiiHHI"
     "IiiII', 118 + len(d), 0, 0, 118, 40, 6, 3, 1, 4, 2, len(d), 0, 0, 16, 0) + b''.join(bytes([i * 16, "
     "255 - i * 16, 99, 0]) for i in range(16)) + d)\" && convert {out} {dir}/ref.png", "bmp", 1e-6,
     "{dir}/ref.png", 1e-6},
    {"bmp_magick_4bit", BASE "convert {dir}/s.png -colors 16 {out}", "bmp", 1e-6, nullptr, 1e-6},
    {"bmp_magick_1bit", BASE "convert {dir}/s.png -colors 2 {out}", "bmp", 1e-6, nullptr, 1e-6},
    {"bmp_magick_os2_palette", BASE "convert {dir}/s.png -colors 16 BMP2:{out}", "bmp", 1e-6, nullptr, 1e-6},
    {"bmp_magick_bmp3", BASE "convert {dir}/s.png BMP3:{out}", "bmp", 1e-6},
    {"bmp_magick_v4_alpha", BASE "convert {dir}/a.png -channel A -threshold 50% +channel -background "
     "black -alpha background -define bmp:format=bmp4 {out}", "bmp", 1e-6},
    {"bmp_oiio_rgba", BASE "convert {dir}/a.png -channel A -threshold 50% +channel -background black "
     "-alpha background {dir}/b.png && oiiotool {dir}/b.png -o {out}", "bmp", 1e-6, nullptr, 1e-6},
    {"bmp_pillow_grey_density", BASE PIL "im.convert('L').save('{out}')\"", "bmp", 1e-6},
    {"bmp_pillow_palette", BASE PIL "im.quantize(16).save('{out}')\"", "bmp", 1e-6, nullptr, 1e-6},
    {"bmp_565_top_down", BASE PIL "open('{out}', 'wb').write(b'BM' + S.pack('<IHHIIiiHHIIiiIIIII', 66 + "
     "2 * w * h, 0, 0, 66, 40, w, -h, 1, 16, 3, 2 * w * h, 0, 0, 0, 0, 0xf800, 0x7e0, 0x1f) + b''.join("
     "S.pack('<H', p[x, y][0] >> 3 << 11 | p[x, y][1] >> 2 << 5 | p[x, y][2] >> 3) for y in range(h) "
     "for x in range(w)))\"", "bmp", 1e-6, nullptr, 1e-6},
    {"bmp_v5_icc_dpi", BASE ICC "convert {dir}/s.png -profile {dir}/p.icc -density 72 -units "
     "PixelsPerInch {out}", "bmp", 1e-6},
};
#undef OIIO
#undef PIL
#undef PIL_OF
#undef BASE
#undef HDR_RUNS
#undef HDR_EDIT
#undef PNM_BYTES
#undef ICC
#undef LAB_ORACLE
#undef WARM

#ifndef ORX_MAKE_EXR_YC
#define ORX_MAKE_EXR_YC "false"
#endif

const std::string kOrx = std::string("env -u ORX_PLUGIN_PATH '") + ORX_TOOL + "'";

std::string expand(std::string text, const std::string &dir, const std::string &out) {
  for (const auto &[key, value] : {std::pair<std::string, std::string>{"{dir}", dir},
                                   {"{out}", out}, {"{orx}", kOrx},
                                   {"{make_exr_yc}", std::string(ORX_MAKE_EXR_YC)}})
    for (std::size_t at; (at = text.find(key)) != std::string::npos;) text.replace(at, key.size(), value);
  return text;
}

// Makes file as row `name` of the table makes its file; the command's status.
int make(const char *name, const TempDir &dir, const std::string &file) {
  const Row *row = std::find_if(std::begin(kRows), std::end(kRows),
                                [&](const Row &r) { return std::string(r.name) == name; });
  return row == std::end(kRows) ? -1 : run(expand(row->make, dir.path(), file)).status;
}

// One image as OpenImageIO reads it: the header line, the metadata lines
// and the pixels of its data window.
struct Theirs {
  int x, y, w, h, fx, fy, fw, fh, channels;
  std::vector<std::string> names;
  std::string meta;
  std::vector<float> pixels;
};

std::vector<std::string> split(const std::string &text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string s; std::getline(in, s, ',');) out.push_back(s);
  return out;
}

std::vector<Theirs> oiio_read(const std::string &path, const TempDir &dir) {
  const std::string prefix = dir.file("oiio");
  ToolRun r = run("/usr/bin/python3 '" ORX_TEST_SOURCE_ROOT "/plugins/tests/oiio_read.py' '" + path +
                  "' '" + prefix + "'");
  EXPECT_EQ(r.status, 0) << r.output;
  std::vector<Theirs> images;
  std::istringstream in(r.output);
  for (std::string line; std::getline(in, line);) {
    Theirs t{};
    if (std::sscanf(line.c_str(), "image %d %d %d %d %d %d %d %d %d", &t.x, &t.y, &t.w, &t.h, &t.fx,
                    &t.fy, &t.fw, &t.fh, &t.channels) == 9) {
      const std::string raw = slurp(prefix + "." + std::to_string(images.size()));
      t.pixels.resize(raw.size() / 4);
      std::memcpy(t.pixels.data(), raw.data(), t.pixels.size() * 4);
      images.push_back(t);
    } else if (!images.empty()) {
      images.back().meta += line + "\n";
      if (line.rfind("channels ", 0) == 0) images.back().names = split(line.substr(9));
    }
  }
  return images;
}

// Our reading of image i against theirs: the window is the union of their
// data and display windows, the active window their data window, and every
// sample equal (zero outside the data window).
void compare(ORX_OBJECT *object, int32_t i, const Theirs &t, double tolerance) {
  const ORX_IFD &d = object->info.images[i];
  const ORX_WINDOW &w = d.window;
  EXPECT_EQ(w.left, std::min(t.x, t.fx));
  EXPECT_EQ(w.right, std::max(t.x + t.w, t.fx + t.fw) - 1);
  EXPECT_EQ(w.bottom, std::min(t.y, t.fy));
  EXPECT_EQ(w.top, std::max(t.y + t.h, t.fy + t.fh) - 1);
  const int flip = w.bottom + w.top;  // our line L is their row flip - L
  EXPECT_EQ(d.active.left, t.x);
  EXPECT_EQ(d.active.top, flip - t.y);
  const int count = d.image.count + d.matte.count + d.aux.count;
  ASSERT_EQ(count, t.channels);
  // Our channel c is their channel map[c], by name where we name them.
  std::vector<int> map(static_cast<std::size_t>(count));
  const char *ours = ORX_attr_get_string(&object->info, i, "channelnames");
  const std::vector<std::string> names = split(ours != nullptr ? ours : "");
  for (int c = 0; c < count; ++c) {
    map[c] = c;
    for (int k = 0; names.size() == map.size() && k < count; ++k)
      if (t.names[k] == names[c]) map[c] = k;
  }
  double worst = 0;
  for (int32_t line = w.bottom; line <= w.top; ++line) {
    void **rows = nullptr;
    ASSERT_EQ(object->scan(object->private_cell[i], line, &rows), 0) << "line " << line;
    const int y = flip - line;
    for (int x = w.left; x <= w.right; ++x)
      for (int c = 0; c < count; ++c) {
        // As OpenImageIO hands samples out: 32-bit floats.
        const double v = static_cast<float>(get_unit(group_of(d, c), rows[c], x - w.left));
        const bool stored = x >= t.x && x < t.x + t.w && y >= t.y && y < t.y + t.h;
        const double want =
            stored ? t.pixels[(static_cast<std::size_t>(y - t.y) * t.w + (x - t.x)) * count + map[c]]
                   : 0.0;
        worst = std::max(worst, std::fabs(v - want));
        if (std::fabs(v - want) > tolerance) {
          ADD_FAILURE() << "image " << i << " pixel " << x << "," << y << " channel " << c << ": "
                        << v << " against " << want;
          return;
        }
      }
  }
}

// The metadata line starting with key.
std::string meta_line(const std::string &meta, const std::string &key) {
  const std::size_t at = meta.find(key);
  return at == std::string::npos ? "" : meta.substr(at, meta.find('\n', at) - at);
}

class Fidelity : public ::testing::TestWithParam<Row> {};

TEST_P(Fidelity, ReadAsOpenImageIOReadsAndCopiedWhole) {
  const Row &row = GetParam();
  if (!built(row.ext)) GTEST_SKIP() << row.ext << " plug-in not built";
  ORX_REQUIRE_TOOL("oiiotool");
  if (run("/usr/bin/python3 -c 'import OpenImageIO'").status != 0)
    GTEST_SKIP() << "python3-openimageio is not installed";
  TempDir dir;
  const std::string file = dir.file(std::string("peer.") + row.ext);
  const ToolRun made = run(expand(row.make, dir.path(), file));
  if (made.output.find("not found") != std::string::npos) GTEST_SKIP() << made.output;
  ASSERT_EQ(made.status, 0) << made.output;
  const std::vector<Theirs> theirs =
      oiio_read(row.oracle != nullptr ? expand(row.oracle, dir.path(), file) : file, dir);
  // Our reading of the file against the images OpenImageIO read.
  const auto compare_file = [&](const std::vector<Theirs> &images, double tolerance) {
    FormatPlugins plugins;
    ORX_OBJECT *object = open_image(file, nullptr);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->info.image_count, static_cast<int32_t>(images.size()));
    for (std::size_t i = 0; i < images.size() && i < std::size_t(object->info.image_count); ++i)
      compare(object, static_cast<int32_t>(i), images[i], tolerance);
    ORX_close(object);
  };
  compare_file(theirs, row.tolerance);
  if (row.ext == std::string("cin")) return;  // read only
  // The copy holds what the file held, sample formats and metadata included,
  // and says nothing about losses.
  const std::string copy = dir.file(std::string("copy.") + row.ext);
  const ToolRun copied = run(kOrx + " copy '" + file + "' '" + copy + "'");
  ASSERT_EQ(copied.status, 0) << copied.output;
  EXPECT_EQ(copied.output, "");
  const std::vector<Theirs> again = oiio_read(copy, dir);
  ASSERT_EQ(again.size(), theirs.size());
  // ImageMagick reads the copy's colour as OpenImageIO does (it reads no
  // EXR here, and divides associated alpha out; its HDR reader knows only
  // the "-Y N +X M" resolution string, and it clips beyond 1).
  const bool clipped = std::any_of(again[0].pixels.begin(), again[0].pixels.end(),
                                   [](float v) { return v > 1; });
  if (row.ext != std::string("exr") && row.ext != std::string("hdr") && !clipped &&
      again[0].channels == 3 && have_tool("convert")) {
    const std::string png = dir.file("magick.png");
    ASSERT_EQ(run("convert '" + copy + "[0]' -depth 16 '" + png + "'").status, 0);
    const std::vector<Theirs> magick = oiio_read(png, dir);
    ASSERT_EQ(magick.size(), 1u);
    ASSERT_EQ(magick[0].pixels.size(), again[0].pixels.size());
    for (std::size_t k = 0; k < again[0].pixels.size(); ++k)
      ASSERT_NEAR(magick[0].pixels[k], again[0].pixels[k], std::max(0.5 / 65535, row.tolerance))
          << "sample " << k;
  }
  if (row.copy_tolerance >= 0) {
    compare_file(again, row.copy_tolerance);
    for (std::size_t i = 0; i < theirs.size(); ++i)
      for (const char *key : {"icc ", "orientation ", "pixelaspect ", "resolution "})
        EXPECT_EQ(meta_line(theirs[i].meta, key), meta_line(again[i].meta, key));
    return;
  }
  for (std::size_t i = 0; i < theirs.size(); ++i) {
    const Theirs &a = theirs[i], &b = again[i];
    EXPECT_EQ(std::vector<int>({a.x, a.y, a.w, a.h, a.fx, a.fy, a.fw, a.fh}),
              std::vector<int>({b.x, b.y, b.w, b.h, b.fx, b.fy, b.fw, b.fh}));
    EXPECT_EQ(a.meta, b.meta) << "image " << i;
    EXPECT_EQ(a.pixels, b.pixels) << "image " << i;
  }
}

// What the output cannot hold is said once per file: RLA has no place for
// the attributes of an EXR part.
TEST(FidelityCopy, SaysOnceWhatTheOutputDrops) {
  if (!built("exr")) GTEST_SKIP() << "exr plug-in not built";
  ORX_REQUIRE_TOOL("oiiotool");
  TempDir dir;
  ASSERT_EQ(make("exr_half_rgba", dir, dir.file("a.exr")), 0);
  const ToolRun r = run(kOrx + " copy '" + dir.file("a.exr") + "' '" + dir.file("a.rla") + "'");
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_EQ(r.output, "orx: " + dir.file("a.rla") + ": dropped attributes openexr:displayWindow, " +
                          "channelnames, openexr:Exif:ImageHistory, openexr:Software, openexr:capDate\n");
  // --depth float makes a half file float.
  ASSERT_EQ(run(kOrx + " copy --depth float '" + dir.file("a.exr") + "' '" + dir.file("f.exr") + "'")
                .status,
            0);
  const std::vector<Theirs> f = oiio_read(dir.file("f.exr"), dir);
  ASSERT_EQ(f.size(), 1u);
  EXPECT_NE(f[0].meta.find("formats float,float,float,float\n"), std::string::npos) << f[0].meta;
  // An overscan reaches below zero, where RLA stores nothing: moved, kept whole.
  ASSERT_EQ(make("exr_overscan", dir, dir.file("o.exr")), 0);
  const ToolRun moved = run(kOrx + " copy '" + dir.file("o.exr") + "' '" + dir.file("o.rla") + "'");
  EXPECT_NE(moved.output.find("a window below zero stored moved to zero"), std::string::npos)
      << moved.output;
  const ToolRun same = run(kOrx + " diff '" + dir.file("o.exr") + "' '" + dir.file("o.rla") + "'");
  EXPECT_EQ(same.status, 0) << same.output;
  // The data window inside the display window is the active window.
  ASSERT_EQ(make("exr_data_inside", dir, dir.file("c.exr")), 0);
  const ToolRun info = run(kOrx + " info '" + dir.file("c.exr") + "'");
  EXPECT_NE(info.output.find("active    5..24 x 18..27"), std::string::npos) << info.output;
  // A CMYK JPEG's profile does not describe the RGB it reads as: dropped.
  if (built("jpg")) {
    ASSERT_EQ(run("/usr/bin/python3 -c \"from PIL import Image, ImageCms as C; p = bytearray(C."
                  "ImageCmsProfile(C.createProfile('sRGB')).tobytes()); p[16:20] = b'CMYK'; Image."
                  "new('CMYK', (8, 4)).save('" + dir.file("k.jpg") + "', icc_profile=bytes(p))\"")
                  .status, 0);
    for (const char *to : {"k2.jpg", "k2.tif"}) {
      if (!built(std::strrchr(to, '.') + 1)) continue;
      const ToolRun k = run(kOrx + " copy '" + dir.file("k.jpg") + "' '" + dir.file(to) + "'");
      EXPECT_NE(k.output.find("dropped attributes ICCProfile"), std::string::npos) << to << k.output;
    }
  }
  // A format of one image per file keeps the first of two, and says so.
  if (!built("png") || !built("tif")) return;
  for (const char *row : {"exr_parts_named", "tiff_two_directories"}) {
    const std::string two = dir.file(row[0] == 'e' ? "two.exr" : "two.tif");
    ASSERT_EQ(make(row, dir, two), 0) << row;
    const ToolRun first = run(kOrx + " copy '" + two + "' '" + dir.file("first.png") + "'");
    EXPECT_EQ(first.status, 0) << first.output;
    EXPECT_NE(first.output.find("kept the first of 2 images"), std::string::npos) << first.output;
  }
}

// Netpbm images one after another are the file's images (the first as
// OpenImageIO, which reads only that one, reads it), a maxval of 4 scales
// as OpenImageIO scales it, what follows the last is warned of and dropped,
// and a copy keeps every image.
TEST(FidelityPnm, ImagesOneAfterAnotherAreTheFilesImages) {
  if (!built("pnm")) GTEST_SKIP() << "pnm plug-in not built";
  ORX_REQUIRE_TOOL("oiiotool");
  TempDir dir;
  const std::string two = dir.file("two.pnm"), copy = dir.file("copy.pnm");
  ASSERT_EQ(run("oiiotool --pattern fill:left=0,0,0:right=1,0.5,0.25 7x5 3 -o " + two).status, 0);
  std::ofstream(two, std::ios::binary | std::ios::app) << "P2 2 1 4\n1 4\nP9";
  const ToolRun r = run(kOrx + " copy '" + two + "' '" + copy + "'");
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_NE(r.output.find("what follows image 2 is not an image"), std::string::npos) << r.output;
  const std::vector<Theirs> first = oiio_read(two, dir);
  FormatPlugins plugins;
  ORX_OBJECT *object = open_image(copy, nullptr);
  ASSERT_NE(object, nullptr);
  ASSERT_EQ(object->info.image_count, 2);
  compare(object, 0, first.at(0), 1e-6);
  void **rows = nullptr;
  ASSERT_EQ(object->scan(object->private_cell[1], 0, &rows), 0);
  EXPECT_EQ(static_cast<const uint8_t *>(rows[0])[0], 63);  // 1 * 255 / 4, truncated
  EXPECT_EQ(static_cast<const uint8_t *>(rows[0])[1], 255);
  ORX_close(object);
}

// Deep samples that say nothing of what they cover (no alpha), or of their
// order (no Z, several to a pixel), are refused with the reason, and the
// copy leaves nothing behind.
TEST(FidelityDeep, UndefinedFlatteningIsRefused) {
  if (!built("exr")) GTEST_SKIP() << "exr plug-in not built";
  ORX_REQUIRE_TOOL("oiiotool");
  TempDir dir;
  const struct {
    const char *make, *said;
  } files[] = {{DEEP("8x4") "--ch R,G,B,Z -o {out}", "without alpha (A)"},
               {DEEP("8x4") "--ch R,G,B,A -o {out}", "holds 2 deep samples and no Z"}};
  for (const auto &f : files) {
    ASSERT_EQ(run(expand(f.make, dir.path(), dir.file("d.exr"))).status, 0);
    const ToolRun r = run(kOrx + " copy '" + dir.file("d.exr") + "' '" + dir.file("d.tif") + "'");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.output.find(f.said), std::string::npos) << r.output;
    EXPECT_FALSE(std::filesystem::exists(dir.file("d.tif")));
  }
}
#undef LAYER
#undef NEAR
#undef DEEP

INSTANTIATE_TEST_SUITE_P(Files, Fidelity, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row> &i) { return i.param.name; });

}  // namespace
}  // namespace orx::test
