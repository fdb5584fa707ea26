#include "plugins.hpp"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "orx/registry.h"

namespace orx::tool {
namespace {

struct Module {
  void *handle;
  std::string name;
};

std::vector<Module> g_modules;
std::size_t g_next = 0;

uint8_t enumerate(void **module, const char **name) {
  if (g_next >= g_modules.size()) return 0;
  *module = g_modules[g_next].handle;
  *name = g_modules[g_next].name.c_str();
  ++g_next;
  return 1;
}

void load_directory(const std::filesystem::path &dir, bool verbose) {
  std::error_code ec;
  if (!std::filesystem::is_directory(dir, ec)) return;
  std::vector<std::filesystem::path> files;
  for (const auto &e : std::filesystem::directory_iterator(dir, ec))
    if (e.path().extension() == ".so") files.push_back(e.path());
  std::sort(files.begin(), files.end());
  for (const auto &file : files) {
    void *handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      std::fprintf(stderr, "orx: warning: cannot load plug-in %s: %s\n", file.c_str(), dlerror());
      continue;
    }
    if (verbose) std::fprintf(stderr, "orx: plug-in %s\n", file.c_str());
    g_modules.push_back({handle, file.stem().string()});
  }
}

}  // namespace

int start_library(bool verbose) {
  if (const char *path = std::getenv("ORX_PLUGIN_PATH")) {
    std::string list = path;
    std::size_t start = 0;
    while (start <= list.size()) {
      std::size_t end = list.find(':', start);
      if (end == std::string::npos) end = list.size();
      if (end > start) load_directory(list.substr(start, end - start), verbose);
      start = end + 1;
    }
  }
  // The directory beside the installed library, found from the tool's own
  // place rather than from where the build meant to install it.
  std::error_code ec;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (!ec) load_directory(self.parent_path() / ORX_PLUGIN_DIR_FROM_TOOL, verbose);
  g_next = 0;
  return ORX_init(nullptr, enumerate);
}

void stop_library() {
  ORX_exit();
  for (const Module &m : g_modules) dlclose(m.handle);
  g_modules.clear();
}

}  // namespace orx::tool
