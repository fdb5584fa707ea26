// Points HOME at a temporary directory holding a ".orxrc" of the test's
// making, and leaves every configuration database unbuilt afterwards.
#pragma once

#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "orx/clr.h"
#include "orx/fmt.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"
#include "support/messages.hpp"

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
  // Runs init under every allocation failure: a failed build returns -1 (or
  // -10 where minus_ten is allowed), sets orx__err to -10 and reports it;
  // built says whether a build completed, tearing it down.
  static void sweep_exhaustion(int (*init)(void *), bool minus_ten,
                               const std::function<bool()> &built) {
    ErrorCapture cap;
    for_each_allocation_failure([&] {
      cap.clear();
      orx__err = 0;
      const int status = init(nullptr);
      if (status == 0) return built();
      EXPECT_TRUE(status == -1 || (minus_ten && status == -10)) << status;
      EXPECT_EQ(orx__err, -10);
      EXPECT_TRUE(cap.last_is(orx::Msg::kConfigNoMemory));
      return false;
    });
  }
  // The names a database lists after init, in its order.
  template <class Record>
  static std::vector<std::string> names(int (*init)(void *), Record *(*info)()) {
    std::vector<std::string> out;
    init(nullptr);
    while (Record *r = info()) out.push_back(r->name);
    return out;
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
