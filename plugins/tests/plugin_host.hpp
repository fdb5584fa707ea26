// The format plug-ins loaded in-process as a host loads them.
#pragma once

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "orx/err.h"
#include "orx/orx.h"
#include "orx/registry.h"
#include "support/plugins.hpp"

namespace orx::test {

// Every module of the build's plug-in directory, the library started with
// them; stopped and unloaded at the end.
class FormatPlugins : public PluginModules {
 public:
  FormatPlugins() : PluginModules(in_directory(ORX_PLUGIN_BUILD_DIR)) {
    ORX_exit();
    EXPECT_EQ(init(), 0);
  }
  bool has(const char *key) const { return ORX_find(key) != nullptr; }
};

// Whether the plug-in for files ending in ext was built.
inline bool built(const std::string &ext) {
  const std::string module = ext == "tif"   ? "tiff"
                             : ext == "jpg" ? "jpeg"
                             : ext == "cin" ? "cineon"
                             : ext == "tga" ? "targa"
                                            : ext;
  return std::filesystem::exists(std::string(ORX_PLUGIN_BUILD_DIR) + "/" + module + ".so");
}

}  // namespace orx::test
