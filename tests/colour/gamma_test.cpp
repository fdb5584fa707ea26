#include "colour/gamma.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "config/config_fixture.hpp"
#include "orx/orx.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

// Every test sees a fresh format-defaults database read from a ".orxrc" of
// its own (none unless written), so the resolution is the built-in 4096.
using GammaTables = orx::test::ConfigTest;

double round_half(double v) { return std::trunc(v + 0.5); }

// Every entry of the four tables against their formulas, for a resolution
// from the configuration held to 2..65536 (no steps would divide by zero;
// linear codes must fit 16 bits).
TEST_F(GammaTables, EveryEntryFollowsItsFormulaAtEveryResolution) {
  orx::test::ErrorCapture capture;
  const std::pair<const char *, int> resolutions[] = {
      {nullptr, 4096}, {"256", 256}, {"1", 2}, {"0", 2}, {"-5", 2}, {"100000", 65536}};
  for (const auto &[setting, r] : resolutions) {
    if (setting != nullptr) {
      write_config(std::string("fmt__gamma_table_res ") + setting + "\n");
      FMT_exit();
    }
    ASSERT_EQ(orx::colour::gamma_table_res(), r);
    for (float gamma : {1.0f, 2.2f, 0.45f}) {
      SCOPED_TRACE(testing::Message() << "resolution " << r << " gamma " << gamma);
      float *btof = ORX_gamma_btof(gamma), *tof = ORX_gamma_tof(gamma);
      uint16_t *btos = ORX_gamma_btos(gamma);
      uint8_t *tob = ORX_gamma_tob(gamma);
      ASSERT_TRUE(btof != nullptr && tof != nullptr && btos != nullptr && tob != nullptr);
      for (int i = 0; i < 256; ++i) {
        const double p = std::pow(i / 255.0, static_cast<double>(gamma));
        ASSERT_EQ(btof[i], std::max(static_cast<float>(p), static_cast<float>(i) / static_cast<float>(r - 1)));
        ASSERT_EQ(btos[i], std::max(round_half(p * (r - 1)), static_cast<double>(i))) << i;
      }
      const auto e = static_cast<double>(static_cast<float>(1.0 / gamma));
      for (int j = 0; j < r; ++j) {
        const double p = std::pow(static_cast<double>(static_cast<float>(j) / static_cast<float>(r - 1)), e);
        const auto low8 = static_cast<uint8_t>(static_cast<long>(round_half(p * 255.0)));
        ASSERT_EQ(tob[j], low8 > j ? j : low8) << j;
        ASSERT_EQ(tof[j], std::min(static_cast<float>(p * 254.9), static_cast<float>(j))) << j;
      }
      for (void *table : {static_cast<void *>(btof), static_cast<void *>(tof),
                          static_cast<void *>(btos), static_cast<void *>(tob)})
        EXPECT_EQ(ORX_gamma_done(table), 1);
    }
  }
  EXPECT_EQ(capture.size(), 0u);
}

TEST_F(GammaTables, OutOfMemoryReturnsNullWithoutReport) {
  orx::test::ErrorCapture capture;
  orx::colour::gamma_table_res();  // build the database before failing allocations
  capture.clear();
  orx__err = 0;
  for (auto make : {+[] { return static_cast<void *>(ORX_gamma_btof(2.2f)); },
                    +[] { return static_cast<void *>(ORX_gamma_btos(2.2f)); },
                    +[] { return static_cast<void *>(ORX_gamma_tob(2.2f)); },
                    +[] { return static_cast<void *>(ORX_gamma_tof(2.2f)); }}) {
    void *table = nullptr;
    orx::test::for_each_allocation_failure([&] {
      table = make();
      return table != nullptr;
    });
    ORX_gamma_done(table);
  }
  EXPECT_EQ(capture.size(), 0u);
  EXPECT_EQ(orx__err, 0);
}

}  // namespace
