// The sub-commands of the orx tool.  Each returns the process exit status.
#pragma once

#include <string>
#include <vector>

#include "orx/plugin.h"
#include "sequence.hpp"

namespace orx::tool {

int run_info(const std::vector<std::string> &files, const std::string &type, bool json,
             bool brief);
int run_formats();

struct CopyOptions {
  SequenceOptions sequence;
  std::string in, out, type;
  // Operators layered onto the input (copy_operators.cpp).
  std::string depth;     // int8, int16, int32 or float; "" leaves the types
  double gamma = 0.0;    // gamma correction to this gamma; 0: none
  int image = -1;        // the one image of a multi-image file to copy
  std::string range;     // "MIN,MAX": min-max of 8-bit data
  bool clamp = false;    // gamut clamp of float data
  std::string primaries; // a framebuffer's name or xr,yr,xg,yg,xb,yb,xw,yw
  bool xyz = false;      // to CIE XYZ
  bool fields = false;   // merge the field file with its partner into a frame
  std::string display;   // a framebuffer's name: write what it would show
  std::string crop;      // "X0,Y0,X1,Y1": the part of the image to copy
  bool unassociated = false;  // straight colour passes as stored, both ways
  std::vector<std::string> settings;  // --set NAME=VALUE: the output format's
};
// Layers the copy options onto a handle open for reading; false with the
// reason in *why when one of them cannot apply.
bool apply_operators(ORX_OBJECT *in, const CopyOptions &options, std::string *why);
int run_copy(const CopyOptions &options);

struct DiffOptions {
  std::string a, b, type;
  double fail = 0.0;  // largest difference that still passes
  double warn = 0.0;  // larger differences are mentioned
};
int run_diff(const DiffOptions &options);

struct PatternOptions {
  std::string out, size = "640x480", type = "int8";
  int channels = 3;
  bool matte = false;
};
int run_pattern(const PatternOptions &options);

struct ResizeOptions {
  SequenceOptions sequence;
  std::string in, out, type, size, filter = "lanczos3";
  double scale = 0.0;
  bool fit = false;
  std::vector<std::string> settings;  // --set NAME=VALUE: the output format's
};
int run_resize(const ResizeOptions &options);

struct MaketxOptions {
  SequenceOptions sequence;
  std::string in, out, type = "color", filter = "box";
  std::vector<std::string> settings;  // --set NAME=VALUE: the output format's
};
int run_maketx(const MaketxOptions &options);

struct SwatchOptions {
  std::string in, out;
  int size = 64;
};
int run_swatch(const SwatchOptions &options);

struct ResOptions {
  std::string action;  // "dump", "build" or "messages"
  std::string in, out;
};
int run_res(const ResOptions &options);

// Per-channel minimum, maximum, mean and standard deviation of each file's
// images, with NaN and infinity counts for floating-point channels.
int run_stats(const std::vector<std::string> &files, const std::string &type);

}  // namespace orx::tool
