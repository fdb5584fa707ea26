// The sub-commands of the orx tool.  Each returns the process exit status.
#pragma once

#include <string>
#include <vector>

namespace orx::tool {

int run_info(const std::vector<std::string> &files, const std::string &type, bool json);
int run_formats();

struct CopyOptions {
  std::string in, out, type, frames;
};
int run_copy(const CopyOptions &options);

struct DiffOptions {
  std::string a, b;
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

struct MaketxOptions {
  std::string in, out, type = "color", filter = "box";
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

}  // namespace orx::tool
