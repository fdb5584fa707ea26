// The format plug-ins loaded in-process as a host loads them, and the
// pieces of an image the tests write and read through them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "orx/err.h"
#include "orx/orx.h"
#include "orx/plugin.h"
#include "orx/registry.h"
#include "orx/str.h"
#include "support/images.hpp"
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
  const std::string module = ext == "tif" ? "tiff" : ext == "jpg" ? "jpeg" : ext;
  return std::filesystem::exists(std::string(ORX_PLUGIN_BUILD_DIR) + "/" + module + ".so");
}

// One channel layout of an image.
struct Layout {
  int32_t image, matte, aux;
  int32_t type, bits;
};

// The pattern value of channel c at (x, y) as a value from 0 to 1 (integers)
// or as stored (floating point); smooth patterns suit lossy codecs.  With a
// matte, colour never exceeds it (associated alpha).
double pattern_value(const Layout &l, int x, int y, int c, bool smooth);

// One width x height image of the layout.
inline ORX_IFD describe(const Layout &l, int width, int height) {
  return describe(sized(width, height, {l.image, l.type, l.bits}, {l.matte, l.type, l.bits},
                        {l.aux, l.type, l.bits}));
}

// Writes the pattern through the plug-ins (lines bottom to top, every
// step-th only); the status of close, or of the step that failed.
int write_pattern(ORX_INFO *request, const Layout &l, bool smooth, int step = 1);

// Reads path back and returns the largest difference from the pattern of
// layout l (integers compared as 0..1 values); -1 when it does not open or
// a line fails.  The file's descriptor is copied to *read_back.
double read_difference(const std::string &path, const Layout &l, bool smooth,
                       ORX_IFD *read_back);

}  // namespace orx::test
