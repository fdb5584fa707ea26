// Points HOME at a temporary directory holding a ".orxrc" of the test's
// making, and leaves every configuration database unbuilt afterwards.
#pragma once

#include <fstream>
#include <string>

#include "orx/clr.h"
#include "orx/fmt.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace orx::test {

class ConfigTest : public CleanErrors {
 protected:
  void SetUp() override {
    CleanErrors::SetUp();
    FB_exit();
    FMT_exit();
    CLR_exit();
  }
  void TearDown() override {
    FB_exit();
    FMT_exit();
    CLR_exit();
    CleanErrors::TearDown();
  }
  // Write text as $HOME/.orxrc.
  void write_config(const std::string &text) { std::ofstream(home_.file(".orxrc")) << text; }
  std::string config_path() const { return home_.file(".orxrc"); }

  TempDir home_;
  TempDir root_;
  ScopedEnv home_env_{"HOME", home_.path()};
  ScopedEnv root_env_{"KV_ROOT", std::nullopt};
};

}  // namespace orx::test
