// orx formats: the formats the registry knows.
#include <cstdio>
#include <string>

#include "commands.hpp"
#include "orx/registry.h"
#include "tool.hpp"

namespace orx::tool {
namespace {

void print(const ORX_FORMAT *f) {
  std::printf("%-8s %-20s %-8s %-5s %-5s %s\n", f->key ? f->key : "",
              f->name ? f->name : "", f->extension ? f->extension : "",
              (f->access & ORX_ACCESS_READ) ? "yes" : "no",
              (f->access & ORX_ACCESS_WRITE) ? "yes" : "no", f->multi_frame >= 2 ? "yes" : "no");
}

}  // namespace

int run_formats() {
  std::printf("%-8s %-20s %-8s %-5s %-5s %s\n", "KEY", "NAME", "EXT", "READ", "WRITE",
              "MULTI-FRAME");
  for (const ORX_FORMAT *f : all_formats()) print(f);
  std::printf("\nSettings of the written file (copy, resize and maketx: --set NAME=VALUE):\n");
  for (const ORX_FORMAT *f : all_formats()) {
    std::string lines = describe_settings(f);
    for (std::size_t at = 0, end; (end = lines.find('\n', at)) != std::string::npos; at = end + 1)
      std::printf("%-8s %s\n", at == 0 ? f->key : "", lines.substr(at, end - at).c_str());
  }
  return kOk;
}

}  // namespace orx::tool
