// The plug-ins against the tools other people use, as processes: files the
// orx tool writes through a plug-in are read by OpenImageIO and ImageMagick,
// which write them again for the orx tool to read; every step pixel-exact.
// The orx tool runs with nothing set, so it also proves the plug-ins load by
// default from the build tree.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/process.hpp"
#include "plugin_host.hpp"
#include "support/fixtures.hpp"

namespace orx::test {
namespace {

std::string orx(const std::string &args) {
  return std::string("env -u ORX_PLUGIN_PATH '") + ORX_TOOL + "' " + args;
}

// `orx diff` with no more than `error` of difference allowed.
void expect_same(const std::string &a, const std::string &b, double error = 0) {
  ToolRun r = run(orx("diff '" + a + "' '" + b + "' --fail " + std::to_string(error)));
  EXPECT_EQ(r.status, 0) << a << " vs " << b << "\n" << r.output;
}

void expect_runs(const std::string &command) {
  ToolRun r = run(command);
  ASSERT_EQ(r.status, 0) << command << "\n" << r.output;
}

struct Peer {
  const char *ext;
  const char *pattern;  // orx pattern arguments
  const char *oiio;     // oiiotool output options: the layout its file takes
  bool magick;          // ImageMagick keeps these samples exactly
  double error;         // what our file may differ from the source by
  // What OpenImageIO's own re-encoding of straight alpha may move a sample
  // by: it truncates as it multiplies and rounds as it divides.
  double rewrite = 0;
};

// ImageMagick divides associated alpha out and keeps 16 bits of a float,
// so TIFF mattes and floats are OpenImageIO's alone; it has no EXR here.
// Our EXR files are half unless asked otherwise.  JPEG cannot be written
// again unchanged: the fidelity rows hold what peers make of ours.
const Peer kPeers[] = {
    {"png", "--type int8 --channels 1", "", true, 0},
    {"png", "--type int8 --channels 3 --matte", "", true, 0, 1.5 / 255},
    {"png", "--type int16 --channels 1 --matte", "", true, 0, 1.5 / 65535},
    {"png", "--type int16 --channels 3", "", true, 0},
    {"tif", "--type int8 --channels 3", "", true, 0},
    {"tif", "--type int16 --channels 1", "--tile 16 16", true, 0},
    {"tif", "--type int16 --channels 3 --matte", "--tile 32 16 --planarconfig separate", false, 0},
    {"tif", "--type float --channels 3 --matte", "--compression zip", false, 0},
    {"exr", "--type float --channels 3 --matte", "", false, 1e-3},
    {"exr", "--type float --channels 1", "--compression piz --tile 32 32", false, 1e-3},
    {"exr", "--type float --channels 3", "-d float --compression none", false, 1e-3},
};

class PeerTools : public ::testing::TestWithParam<Peer> {};

TEST_P(PeerTools, ReadOursAndWriteWhatWeRead) {
  const Peer &p = GetParam();
  if (!built(p.ext)) GTEST_SKIP() << p.ext << " plug-in not built";
  TempDir dir;
  const std::string source = dir.file("source.rla");
  const std::string ours = dir.file(std::string("ours.") + p.ext);
  expect_runs(orx("pattern '" + source + "' --size 67x31 " + p.pattern));
  expect_runs(orx("copy '" + source + "' '" + ours + "'"));
  expect_same(source, ours, p.error);
  // Each peer reads our file and writes it again in the same format, which
  // we read back as we read ours.  OpenImageIO at its defaults: associated
  // alpha, as ours.
  const std::string oiio = dir.file(std::string("oiio.") + p.ext);
  const std::string magick = dir.file(std::string("magick.") + p.ext);
  if (have_tool("oiiotool")) {
    expect_runs("oiiotool '" + ours + "' " + p.oiio + " -o '" + oiio + "'");
    expect_same(ours, oiio, p.rewrite);
  }
  if (p.magick && have_tool("convert")) {
    expect_runs("convert '" + ours + "' '" + magick + "'");
    expect_same(ours, magick);
  }
}

INSTANTIATE_TEST_SUITE_P(Formats, PeerTools, ::testing::ValuesIn(kPeers),
                         [](const ::testing::TestParamInfo<Peer> &i) {
                           return std::string(i.param.ext) + std::to_string(i.index);
                         });

// Image 0's attributes as `orx info --json` gives them, name to JSON value,
// and its windows as "[window]" and "[active]".
std::map<std::string, std::string> attributes(const std::string &file) {
  const ToolRun r = run(orx("info --json '" + file + "'") +
                        " | /usr/bin/python3 -c 'import json, sys\n"
                        "i = json.load(sys.stdin)[0][\"images\"][0]\n"
                        "for k, v in i[\"attributes\"].items(): print(k, json.dumps(v))\n"
                        "print(\"[window]\", i[\"window\"])\nprint(\"[active]\", i[\"active\"])'");
  std::map<std::string, std::string> out;
  std::istringstream lines(r.output);
  for (std::string line; std::getline(lines, line);)
    out[line.substr(0, line.find(' '))] = line.substr(line.find(' ') + 1);
  return out;
}

// `orx copy` between every ordered pair of RLA, PNG, TIFF and EXR, and into
// JPEG, of pictures holding what some of them cannot: a matte, 16-bit and
// float samples, a data window beyond a display window away from the
// origin, an ICC profile, a print resolution and texts.  Each copy says in
// at most one line what it narrowed or dropped; every attribute the copy
// lacks is named there, every one it holds has its value; and a copy that says nothing has lost nothing:
// copied back it is the file it came from, windows included (but for the
// rounding of associated colour through PNG's straight alpha).
TEST(Copy, BetweenEveryPairOfFormats) {
  TempDir dir;
  const std::string icc = dir.file("p.icc");
  const bool profile = run("/usr/bin/python3 -c \"from PIL import ImageCms as C; open('" + icc +
                           "', 'wb').write(C.ImageCmsProfile(C.createProfile('sRGB')).tobytes())\"")
                           .status == 0;
  const struct {
    const char *file, *make;
    double straight;  // what associated colour may move by through PNG
  } sources[] = {
      {"rgb8.rla", "pattern {out} --size 45x27 --type int8 --channels 3", 0},
      {"matte16.rla", "pattern {out} --size 45x27 --type int16 --channels 3 --matte", 2.0 / 65535},
      {"window.exr", "oiiotool --pattern fill:left=0,0,0,0:right=1,0.5,0.25,1 40x20 4 -d float "
                     "--origin +10+12 --fullsize 45x27+3+2 -o {out}", 1e-6},
      {"icc.png",
       "convert -size 45x27 gradient:red-blue -profile {icc} -set comment 'a note ©' {out}", 0},
  };
  std::vector<std::string> formats = {"rla"};
  for (const char *ext : {"png", "tif", "exr"})
    if (built(ext)) formats.emplace_back(ext);
  for (const auto &s : sources) {
    const std::string source = dir.file(s.file), ext = source.substr(source.rfind('.') + 1);
    std::string make = s.make;
    for (const auto &[key, value] : {std::pair<std::string, std::string>{"{out}", "'" + source + "'"},
                                     {"{icc}", "'" + icc + "'"}})
      if (make.find(key) != std::string::npos) make.replace(make.find(key), key.size(), value);
    if (!built(ext) || (make.find("oiiotool") == 0 && !have_tool("oiiotool")) ||
        (make.find("convert") == 0 && (!have_tool("convert") || !profile)))
      continue;
    expect_runs(make.find("pattern") == 0 ? orx(make) : make);
    // ImageMagick's texts follow the image data, and are read all the same;
    // a copy's non-ASCII text reads in Pillow as it was, and a JPEG comment
    // in Latin-1 reads as UTF-8.
    if (ext == "png") {
      EXPECT_EQ(attributes(source)["comment"], "\"a note \\u00a9\"");
      expect_runs(orx("copy '" + source + "' '" + dir.file("c.png") + "'"));
      EXPECT_EQ(run("/usr/bin/python3 -c \"from PIL import Image; print(Image.open('" +
                    dir.file("c.png") + "').text['comment'])\"").output, "a note ©\n");
      expect_runs("convert -size 8x4 xc:red -set comment \"$(printf 'caf\\351')\" " +
                  dir.file("c.jpg"));
      EXPECT_EQ(run(orx("info --json " + dir.file("c.jpg")) + " | /usr/bin/python3 -c 'import json, "
                    "sys; print(json.load(sys.stdin)[0][\"desc\"])'").output, "café\n");
    }
    for (const std::string &from : formats) {
      const std::string in = dir.file(std::string(s.file) + "." + from);
      expect_runs(orx("copy '" + source + "' '" + in + "'"));
      const std::map<std::string, std::string> held = attributes(in);
      std::vector<std::string> to = formats;
      if (built("jpg")) to.emplace_back("jpg");
      for (const std::string &format : to) {
        SCOPED_TRACE(std::string(s.file) + ": " + from + " to " + format);
        const std::string out = dir.file("out." + format), back = dir.file("back." + from);
        const ToolRun copied = run(orx("copy '" + in + "' '" + out + "'"));
        ASSERT_EQ(copied.status, 0) << copied.output;
        EXPECT_LE(std::count(copied.output.begin(), copied.output.end(), '\n'), 1) << copied.output;
        const std::map<std::string, std::string> kept = attributes(out);
        for (const auto &[name, value] : held) {
          if (name.rfind("orx:", 0) == 0 || name[0] == '[') continue;
          if (kept.count(name) != 0) EXPECT_EQ(kept.at(name), value) << name;
          else EXPECT_NE(copied.output.find(name), std::string::npos) << name << copied.output;
        }
        if (format == "jpg") {  // lossy, and without the matte no longer comparable
          if (copied.output.find("matte dropped") == std::string::npos) expect_same(in, out, 0.1);
          continue;
        }
        if (!copied.output.empty()) continue;
        expect_runs(orx("copy '" + out + "' '" + back + "'"));
        expect_same(in, back, from == "png" || format == "png" ? s.straight : 0);
        const std::map<std::string, std::string> again = attributes(back);
        for (const char *window : {"[window]", "[active]"}) EXPECT_EQ(again.at(window), held.at(window));
      }
    }
  }
}

// `--set NAME=VALUE` reaches the format that writes the file, as
// OpenImageIO reads the file back; a choice the format lacks is refused
// with the list of its choices, and nothing is written.
TEST(Copy, SettingsReachTheWrittenFile) {
  ORX_REQUIRE_TOOL("oiiotool");
  TempDir dir;
  const std::string source = dir.file("s.rla");
  expect_runs(orx("pattern '" + source + "' --size 40x24 --matte"));
  const struct {
    const char *ext, *set, *says;
  } cases[] = {
      {"exr", "compression=dwaa", "compression: \"dwaa\""},
      {"exr", "Compression=B44 --set pixel_type=float", "compression: \"b44\""},
      {"tif", "compression=deflate --set tiles=64x64-tiles", "tile size: 64 x 64"},
      {"jpg", "subsampling=4:4:4 --set quality=98", "jpeg:subsampling: \"4:4:4\""},
  };
  for (const auto &c : cases) {
    if (!built(c.ext)) continue;
    const std::string out = dir.file(std::string("out.") + c.ext);
    expect_runs(orx("copy '" + source + "' '" + out + "' --set " + c.set));
    if (c.ext != std::string("jpg")) expect_same(source, out, 0.03);  // b44 and dwa are lossy
    EXPECT_NE(run("oiiotool --info -v '" + out + "'").output.find(c.says), std::string::npos) << c.set;
  }
  if (!built("exr")) return;
  const ToolRun refused = run(orx("copy '" + source + "' '" + dir.file("no.exr") + "' --set compression=dwa"));
  EXPECT_EQ(refused.status, 2 << 8);  // exit status 2
  EXPECT_NE(refused.output.find("compression is one of none, rle, zips, zip (default), piz"),
            std::string::npos) << refused.output;
  EXPECT_FALSE(std::filesystem::exists(dir.file("no.exr")));
}

// `orx copy --unassociated` hands straight colour through as stored, where
// the default multiplies and divides it (which changes colour under a small
// matte); ImageMagick, which reads PNG and TIFF alpha as straight, finds
// every sample of the source in the copies.
TEST(PeerTools, UnassociatedCopiesKeepStoredColour) {
  ORX_REQUIRE_TOOL("convert");
  if (!built("png") || !built("tif")) GTEST_SKIP() << "png or tiff plug-in not built";
  TempDir dir;
  auto f = [&](const std::string &name) { return "'" + dir.file(name) + "'"; };
  // Full colour under a 5% matte: associating keeps 14 levels of it.
  expect_runs("convert -size 64x32 gradient:red-blue -alpha set -channel A -evaluate set 5% "
              "+channel " + f("a.png"));
  expect_runs(orx("copy " + f("a.png") + " " + f("associated.png")));
  EXPECT_NE(run("compare -metric AE " + f("a.png") + " " + f("associated.png") + " null:").output,
            "0");
  for (const char *ext : {"png", "tif"}) {
    const std::string out = std::string("straight.") + ext;
    expect_runs(orx("copy --unassociated " + f("a.png") + " " + f(out)));
    const ToolRun same = run("compare -metric AE " + f("a.png") + " " + f(out) + " null:");
    EXPECT_EQ(same.output, "0") << ext;
  }
  const ToolRun tags = run("tiffinfo " + f("straight.tif"));
  if (tags.status == 0) {
    EXPECT_NE(tags.output.find("unassoc-alpha"), std::string::npos);
  }
}

}  // namespace
}  // namespace orx::test
