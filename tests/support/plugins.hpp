// Plug-in modules loaded with dlopen and handed to ORX_init through an
// enumerator, as a host hands over the modules it found.  The test program
// must export the library (ENABLE_EXPORTS) for the modules to link against.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace orx::test {

class PluginModules {
 public:
  // Loads the modules at paths, in order, each named by its file's stem.
  explicit PluginModules(const std::vector<std::string> &paths);
  // Stops the library (which calls into the modules until then) and
  // unloads them.
  ~PluginModules();
  PluginModules(const PluginModules &) = delete;
  PluginModules &operator=(const PluginModules &) = delete;

  // Every module (.so) of dir, in name order.
  static std::vector<std::string> in_directory(const std::string &dir);

  // ORX_init with these modules; its status.
  int init();
  void *handle(std::size_t i) const { return handles_[i]; }
  // What the int-returning function symbol of module i returns; -1 without it.
  int counter(std::size_t i, const char *symbol) const;

 private:
  static uint8_t enumerate(void **module, const char **name);
  std::vector<std::string> names_;
  std::vector<void *> handles_;
};

}  // namespace orx::test
