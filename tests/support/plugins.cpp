#include "support/plugins.hpp"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "orx/registry.h"

namespace orx::test {
namespace {

const PluginModules *g_current = nullptr;
std::size_t g_next = 0;

}  // namespace

PluginModules::PluginModules(const std::vector<std::string> &paths) {
  for (const std::string &path : paths) {
    void *h = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(h, nullptr) << dlerror();
    handles_.push_back(h);
    names_.push_back(std::filesystem::path(path).stem().string());
  }
}

PluginModules::~PluginModules() {
  ORX_exit();
  for (void *h : handles_)
    if (h != nullptr) dlclose(h);
  if (g_current == this) g_current = nullptr;
}

std::vector<std::string> PluginModules::in_directory(const std::string &dir) {
  std::vector<std::string> files;
  std::error_code ec;
  for (const auto &e : std::filesystem::directory_iterator(dir, ec))
    if (e.path().extension() == ".so") files.push_back(e.path().string());
  std::sort(files.begin(), files.end());
  return files;
}

int PluginModules::init() {
  g_current = this;
  g_next = 0;
  return ORX_init(nullptr, enumerate);
}

int PluginModules::counter(std::size_t i, const char *symbol) const {
  auto fn = reinterpret_cast<int (*)()>(dlsym(handles_[i], symbol));
  return fn != nullptr ? fn() : -1;
}

uint8_t PluginModules::enumerate(void **module, const char **name) {
  // A module that failed to load is skipped, as a host skips it.
  while (g_next < g_current->handles_.size() && g_current->handles_[g_next] == nullptr) ++g_next;
  if (g_next >= g_current->handles_.size()) return 0;
  *module = g_current->handles_[g_next];
  *name = g_current->names_[g_next].c_str();
  ++g_next;
  return 1;
}

}  // namespace orx::test
