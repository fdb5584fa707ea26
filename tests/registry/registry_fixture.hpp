// Shared pieces of the registry tests: the test plug-ins loaded with dlopen
// and handed to ORX_init through an enumerator, and small image helpers.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "orx/err.h"
#include "orx/registry.h"
#include "orx/str.h"
#include "support/fixtures.hpp"
#include "support/images.hpp"
#include "support/plugins.hpp"

namespace orx::test {

// Test plug-in modules of the build, by name, handed to ORX_init.
struct PluginSet : PluginModules {
  explicit PluginSet(const std::vector<std::string> &names) : PluginModules(paths(names)) {}
  static std::vector<std::string> paths(const std::vector<std::string> &names) {
    std::vector<std::string> out;
    for (const std::string &n : names)
      out.push_back(std::string(ORX_TEST_PLUGIN_DIR) + "/" + n + ".so");
    return out;
  }
  // The function of module i exported as symbol, of type Fn (a test fails without it).
  template <class Fn>
  Fn *function(std::size_t i, const char *symbol) const {
    auto *fn = reinterpret_cast<Fn *>(dlsym(handle(i), symbol));
    EXPECT_NE(fn, nullptr) << symbol;
    return fn;
  }
};

// Every test starts and ends with the registry down.
class RegistryTest : public CleanErrors {
 protected:
  void SetUp() override {
    CleanErrors::SetUp();
    ORX_exit();
  }
  void TearDown() override {
    ORX_exit();
    CleanErrors::TearDown();
  }
};

// One image of width x height with 3 image channels and a matte, of the
// given sample type and bits.
inline ORX_IFD rgba(int32_t width, int32_t height, int32_t type, int32_t bits) {
  return describe(sized(width, height, {3, type, bits}, {1, type, bits}));
}

// Sample c of pixel x on line y, as the tests write it.
inline uint16_t pattern(int32_t x, int32_t y, int c) {
  return static_cast<uint16_t>(x * 7 + y * 131 + c * 1009);
}

// The pattern in 8 bits, in the argument order of a sample writer.
inline uint8_t pattern8(int c, int32_t x, int32_t y) { return uint8_t(pattern(x, y, c)); }

// A w x h image of 8-bit pattern samples (3 colours and a matte) written
// under handle through type (by the name when null).
inline void write_pattern(const char *type, const std::string &handle, int32_t w = 4, int32_t h = 3,
                          int32_t field = 0) {
  ORX_IFD d = rgba(w, h, ORX_C_INTEGER, 8);
  d.field = field;
  write_image(handle, d, pattern8, type);
}

}  // namespace orx::test
