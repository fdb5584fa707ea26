// orx: inspect, convert, compare and make image files with liborx.
#include <CLI/CLI.hpp>

#include <cstdio>

#include "cli.hpp"
#include "commands.hpp"
#include "plugins.hpp"
#include "safe_output.hpp"
#include "tool.hpp"

int main(int argc, char **argv) {
  using namespace orx::tool;
  CLI::App app{"orx: inspect, convert, compare and make image files"};
  app.require_subcommand(1);
  app.fallthrough();  // the tool's own options anywhere on the line, -v among them
  bool verbose = false;
  app.add_flag("-v,--verbose", verbose, "Show information and debug notes of the library");

  std::vector<std::string> info_files;
  std::string info_type;
  bool json = false;
  auto *info = app.add_subcommand("info", "Describe every image of each file");
  info->add_option("files", info_files, "Image files")->required();
  info->add_option("--type", info_type, "Format key, when the name does not tell");
  info->add_flag("--json", json, "Print JSON");
  bool brief = false;
  info->add_flag("--brief", brief, "One line per file: size, channels, sample type, format");

  CopyOptions copy;
  auto *copy_cmd = app.add_subcommand("copy", "Convert a file to another file or format");
  copy_cmd->add_option("in", copy.in, "Input file (a name with #### for --frames)")->required();
  copy_cmd->add_option("out", copy.out, "Output file")->required();
  copy_cmd->add_option("--type", copy.type, "Format key of the output");
  add_setting_option(copy_cmd, &copy.settings);
  add_sequence_options(copy_cmd, &copy.sequence);
  copy_cmd->add_option("--depth", copy.depth, "Sample type of the copy: int8, int16, int32 or float");
  copy_cmd->add_option("--gamma", copy.gamma, "Gamma-correct 8-bit images to gamma G");
  copy_cmd->add_option("--image", copy.image, "Copy only image N of a multi-image file");
  copy_cmd->add_option("--range", copy.range, "Map 8-bit samples into MIN,MAX (0..1)");
  copy_cmd->add_option("--primaries", copy.primaries,
                       "Convert to these primaries: a framebuffer name or xr,yr,xg,yg,xb,yb,xw,yw");
  copy_cmd->add_flag("--xyz", copy.xyz, "Convert RGB to CIE XYZ");
  copy_cmd->add_option("--crop", copy.crop,
                       "Copy columns X0..X1 and rows Y0..Y1 (from the left and bottom, end "
                       "excluded; fractions pan by parts of a pixel)");
  copy_cmd->add_option("--display", copy.display,
                       "Write what framebuffer FB shows (\"default\": the default one)");
  copy_cmd->add_flag("--fields", copy.fields,
                     "Merge field file NAME.NNNN with its partner (odd: first field) into a frame");
  copy_cmd->add_flag("--clamp", copy.clamp, "Clip float samples to 0..1 (premultiplied for rgb)");
  copy_cmd->add_flag("--unassociated", copy.unassociated,
                     "Keep straight (unassociated) colour as the files store it: PNG and TIFF "
                     "colour is otherwise multiplied by the matte on reading and divided by it "
                     "on writing");
  copy_cmd->footer("Mattes are associated (premultiplied) inside liborx: PNG and TIFF files with\n"
                   "straight alpha are multiplied as they are read and divided as they are\n"
                   "written (zero alpha, zero colour); EXR passes through; JPEG has no matte.\n"
                   "--unassociated asks both formats to leave the colour as stored.");

  DiffOptions diff;
  auto *diff_cmd = app.add_subcommand("diff", "Compare two images channel by channel");
  diff_cmd->add_option("a", diff.a, "First image")->required();
  diff_cmd->add_option("b", diff.b, "Second image")->required();
  diff_cmd->add_option("--fail", diff.fail, "Largest difference that passes (default 0)");
  diff_cmd->add_option("--warn", diff.warn, "Mention differences above this");
  diff_cmd->add_option("--type", diff.type, "Format key of both files, when the names do not tell");
  diff_cmd->footer("Exit status: 0 when the largest difference is within --fail, 1 when it is\n"
                   "beyond, 2 when a file cannot be read or the images differ in size or channels.");

  std::vector<std::string> stats_files;
  std::string stats_type;
  auto *stats_cmd = app.add_subcommand(
      "stats", "Per-channel minimum, maximum, mean, standard deviation and NaN/Inf counts");
  stats_cmd->add_option("files", stats_files, "Image files")->required();
  stats_cmd->add_option("--type", stats_type, "Format key, when the name does not tell");

  auto *formats = app.add_subcommand("formats", "List the formats the library knows");

  PatternOptions pattern;
  auto *pattern_cmd = app.add_subcommand("pattern", "Write a test image");
  pattern_cmd->add_option("out", pattern.out, "Output file")->required();
  pattern_cmd->add_option("--size", pattern.size, "WxH (default 640x480)");
  pattern_cmd->add_option("--type", pattern.type, "int8, int16 or float (default int8)");
  pattern_cmd->add_option("--channels", pattern.channels, "Colour channels, 1 to 3 (default 3)");
  pattern_cmd->add_flag("--matte", pattern.matte, "Add a matte channel");

  ResizeOptions resize;
  auto *resize_cmd = app.add_subcommand("resize", "Resize a file's first image");
  resize_cmd->add_option("in", resize.in, "Input image")->required();
  resize_cmd->add_option("out", resize.out, "File to write")->required();
  resize_cmd->add_option("--size", resize.size, "Size of the result, WxH");
  resize_cmd->add_option("--scale", resize.scale, "Size of the result as a factor of the input's");
  resize_cmd->add_option("--filter", resize.filter, "Kernel: box, triangle, gaussian, mitchell, "
                                                    "catmull-rom or lanczos3 (default)");
  resize_cmd->add_flag("--fit", resize.fit, "With --size: keep the shape, fit inside WxH");
  resize_cmd->add_option("--type", resize.type, "Format key of the output");
  add_setting_option(resize_cmd, &resize.settings);
  add_sequence_options(resize_cmd, &resize.sequence);

  MaketxOptions maketx;
  auto *maketx_cmd = app.add_subcommand("maketx", "Make a mipmap texture of a file's first image");
  maketx_cmd->add_option("in", maketx.in, "Input image")->required();
  maketx_cmd->add_option("out", maketx.out, "Texture file to write")->required();
  maketx_cmd->add_option("--type", maketx.type, "color, scalar or bump (default color)");
  maketx_cmd->add_option("--filter", maketx.filter, "Level filter: box (default)");
  add_setting_option(maketx_cmd, &maketx.settings);
  add_sequence_options(maketx_cmd, &maketx.sequence);

  SwatchOptions swatch;
  auto *swatch_cmd = app.add_subcommand("swatch", "Write a file's first image with a swatch");
  swatch_cmd->add_option("in", swatch.in, "Input image")->required();
  swatch_cmd->add_option("out", swatch.out, "File to write")->required();
  swatch_cmd->add_option("--size", swatch.size, "Pixels of the swatch's longer side (default 64)");

  ResOptions res;
  auto *res_cmd = app.add_subcommand("res", "Resource files and message catalogues");
  res_cmd->require_subcommand(1);
  auto *res_dump = res_cmd->add_subcommand("dump", "Print a resource file as text");
  res_dump->add_option("file", res.in, "Resource file")->required();
  auto *res_build = res_cmd->add_subcommand("build", "Make a resource file from its text form");
  res_build->add_option("text", res.in, "Text form, as dump prints it")->required();
  res_build->add_option("out", res.out, "Resource file to write")->required();
  auto *res_messages = res_cmd->add_subcommand(
      "messages", "Print the library's messages as the text of a message catalogue");

  if (const int status = parse_command_line(app, argc, argv); status >= 0) return status;
  if (*res_dump) res.action = "dump";
  if (*res_build) res.action = "build";
  if (*res_messages) res.action = "messages";

  remove_temporaries_on_interrupt();
  install_reporting(verbose);
  echo_errors(true);  // a refused plug-in has no command to report it
  const int started = start_library(verbose);
  echo_errors(false);
  if (started != 0) {
    std::fprintf(stderr, "orx: the library could not start\n");
    return kFailed;
  }
  int status = kFailed;
  if (*info) status = run_info(info_files, info_type, json, brief);
  if (*copy_cmd) status = run_copy(copy);
  if (*diff_cmd) status = run_diff(diff);
  if (*stats_cmd) status = run_stats(stats_files, stats_type);
  if (*formats) status = run_formats();
  if (*pattern_cmd) status = run_pattern(pattern);
  if (*res_cmd) status = run_res(res);
  if (*maketx_cmd) status = run_maketx(maketx);
  if (*resize_cmd) status = run_resize(resize);
  if (*swatch_cmd) status = run_swatch(swatch);
  stop_library();
  return status;
}
