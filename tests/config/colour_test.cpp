#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "config_fixture.hpp"

namespace {

using Colour = orx::test::ConfigTest;

// The primaries and the white point (x y z each), the sampling and the size
// of the matching-function table, in one line.
std::string colours() {
  float r[3], g[3], b[3], w[3], start, end, step;
  CLR_def_primaries(r, g, b);
  CLR_def_white(w);
  CLR_def_wavelengths(&start, &end, &step);
  uint32_t n = 0;
  CLR_def_cmf(&n);
  std::ostringstream out;
  for (const float *xyz : {r, g, b, w}) out << xyz[0] << " " << xyz[1] << " " << xyz[2] << ", ";
  out << start << "-" << end << "/" << step << " nm, " << n << " rows";
  return out.str();
}

// Between two rows of the built-in CIE 1931 table, beside its peak of 1.0 at
// 555 nm: the mean of the rows.
TEST_F(Colour, TheBuiltInTableInterpolatesAndEndsAtItsRange) {
  float xyz[3];
  EXPECT_EQ(CLR_cmf_at(557.5f, xyz), 1);
  EXPECT_NEAR(xyz[1], (1.0f + 0.995f) / 2, 1e-6);
  EXPECT_EQ(CLR_cmf_at(300.0f, xyz), 0);
  EXPECT_EQ(xyz[0], 0.0f);
}

TEST_F(Colour, FileOverridesPrimariesSamplingAndTable) {
  write_config(
      "clr__red_primary 0.64 0.33\n"
      "clr__white_point 0.3127 0.3290\n"
      "clr__green_primary 0.3\n"            // wrong count: reported, skipped
      "clr__wavelength 400 700 10\n"
      "clr__cmf_table\n"
      "# wavelength x y z\n"
      "600 1 0.5 0\n"
      "500 0 0.25 0.5\n"
      "end_cmf_table\n");
  orx::test::ErrorCapture cap;
  float any[3];  // every argument may be null
  CLR_def_primaries(any, nullptr, nullptr);
  CLR_def_wavelengths(any, nullptr, nullptr);
  EXPECT_EQ(colours(),
            "0.64 0.33 0.03, 0.21 0.71 0.08, 0.14 0.08 0.78, 0.3127 0.329 0.3583, 400-700/10 nm, 2 rows");
  EXPECT_EQ(cap.last(), orx::test::message(orx::Msg::kConfigSyntax, config_path().c_str(), 3));
  uint32_t n = 0;
  EXPECT_EQ(CLR_def_cmf(&n)[0].wavelength, 500.0f);  // sorted
  float xyz[3];
  EXPECT_EQ(CLR_cmf_at(550.0f, xyz), 1);
  EXPECT_NEAR(xyz[0], 0.5f, 1e-6);
  EXPECT_NEAR(xyz[1], 0.375f, 1e-6);
}

TEST_F(Colour, ExhaustionKeepsTheBuiltInValues) {
  std::string text = "clr__cmf_table\n";
  for (int wl = 400; wl < 1400; wl += 5) text += std::to_string(wl) + " 1 1 1\n";
  write_config(text + "end_cmf_table\n");
  orx::test::ErrorCapture cap;
  orx::test::for_each_allocation_failure([&] {
    orx__err = 0;
    const bool built = CLR_init(nullptr) == 0;
    if (!built) {
      EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
    }
    uint32_t n = 0;
    CLR_def_cmf(&n);  // after a failed init this builds again, and may succeed
    CLR_exit();
    return built && n == 200;
  });
}

}  // namespace
