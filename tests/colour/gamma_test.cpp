#include "colour/gamma.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <string>

#include "config/config_fixture.hpp"
#include "orx/orx.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

// Every test sees a fresh format-defaults database read from a ".orxrc" of
// its own (none unless written), so the resolution is the built-in 4096.
class GammaTables : public orx::test::ConfigTest {
 protected:
  void use_resolution(const std::string &setting) {
    write_config("fmt__gamma_table_res " + setting + "\n");
    FMT_exit();
  }
  void SetUp() override {
    ConfigTest::SetUp();
    capture_.emplace();
  }
  void TearDown() override {
    capture_.reset();
    ConfigTest::TearDown();
  }
  std::optional<orx::test::ErrorCapture> capture_;
};

TEST_F(GammaTables, EightBitToLinearCodesRoundAndKeepTheFloor) {
  uint16_t *flat = ORX_gamma_btos(1.0f);
  ASSERT_NE(flat, nullptr);
  EXPECT_EQ(flat[0], 0);
  EXPECT_EQ(flat[1], 16);      // 4095 / 255 = 16.06
  EXPECT_EQ(flat[128], 2056);  // 2055.53 rounds up
  EXPECT_EQ(flat[255], 4095);
  uint16_t *dark = ORX_gamma_btos(2.2f);
  ASSERT_NE(dark, nullptr);
  EXPECT_EQ(dark[1], 1);  // pow rounds to 0; the floor i lifts it
  EXPECT_EQ(dark[255], 4095);
  for (int i = 0; i < 256; ++i) EXPECT_GE(dark[i], i) << i;
  EXPECT_EQ(ORX_gamma_done(flat), 1);
  EXPECT_EQ(ORX_gamma_done(dark), 1);

  float *f = ORX_gamma_btof(2.2f);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(f[0], 0.0f);
  EXPECT_EQ(f[1], 1.0f / 4095.0f);  // the linear floor beats pow(1/255, 2.2)
  EXPECT_EQ(f[128], static_cast<float>(std::pow(128 / 255.0, 2.2f)));
  EXPECT_EQ(f[255], 1.0f);
  ORX_gamma_done(f);
}

TEST_F(GammaTables, LinearToEightBitCapsAtTheCodeAndEndsAt254Point9) {
  uint8_t *b = ORX_gamma_tob(2.2f);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b[0], 0);
  EXPECT_EQ(b[1], 1);  // pow gives 6; the cap j holds it to 1
  EXPECT_EQ(b[5], 5);
  EXPECT_EQ(b[2048], 186);  // round(pow(0.50012, 1 / 2.2) * 255)
  EXPECT_EQ(b[4095], 255);
  ORX_gamma_done(b);

  float *f = ORX_gamma_tof(2.2f);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(f[0], 0.0f);
  EXPECT_EQ(f[1], 1.0f);
  EXPECT_EQ(f[4095], 254.9f);
  EXPECT_LT(f[4094], 254.9f);
  ORX_gamma_done(f);
  EXPECT_EQ(capture_->size(), 0u);
}

TEST_F(GammaTables, ResolutionComesFromTheConfigurationAndIsHeldToTwoAtLeast) {
  use_resolution("256");
  EXPECT_EQ(orx::colour::gamma_table_res(), 256);
  uint16_t *s = ORX_gamma_btos(1.0f);
  uint8_t *b = ORX_gamma_tob(1.0f);
  float *f = ORX_gamma_tof(1.0f);
  ASSERT_TRUE(s != nullptr && b != nullptr && f != nullptr);
  for (int i = 0; i < 256; ++i) {
    EXPECT_EQ(s[i], i);
    EXPECT_EQ(b[i], i);
  }
  EXPECT_EQ(f[255], 254.9f);
  ORX_gamma_done(s);
  ORX_gamma_done(b);
  ORX_gamma_done(f);

  // A resolution without steps would divide by zero: it is taken as 2.
  for (const char *setting : {"1", "0", "-5"}) {
    use_resolution(setting);
    EXPECT_EQ(orx::colour::gamma_table_res(), 2) << setting;
  }
  uint8_t *two = ORX_gamma_tob(2.2f);
  float *twof = ORX_gamma_tof(2.2f);
  uint16_t *codes = ORX_gamma_btos(1.0f);
  ASSERT_TRUE(two != nullptr && twof != nullptr && codes != nullptr);
  EXPECT_EQ(two[0], 0);
  EXPECT_EQ(two[1], 1);
  EXPECT_EQ(twof[1], 1.0f);
  EXPECT_EQ(codes[1], 1);
  ORX_gamma_done(two);
  ORX_gamma_done(twof);
  ORX_gamma_done(codes);

  // Linear codes must fit the 16-bit table.
  use_resolution("100000");
  EXPECT_EQ(orx::colour::gamma_table_res(), 65536);
  uint16_t *wide = ORX_gamma_btos(1.0f);
  ASSERT_NE(wide, nullptr);
  EXPECT_EQ(wide[255], 65535);
  ORX_gamma_done(wide);
}

TEST_F(GammaTables, OutOfMemoryReturnsNullWithoutReport) {
  orx::colour::gamma_table_res();  // build the database before failing allocations
  capture_->clear();
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
  EXPECT_EQ(capture_->size(), 0u);
  EXPECT_EQ(orx__err, 0);
}

}  // namespace
