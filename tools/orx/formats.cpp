// orx formats: the formats the registry knows.
#include <cstdio>

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
  return kOk;
}

}  // namespace orx::tool
