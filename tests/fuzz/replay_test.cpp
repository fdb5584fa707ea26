// Every input kept under fuzz/regressions/<target> runs through the body its
// fuzz target runs: a fixed crash, hang, leak or wrong answer stays fixed.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "bodies.hpp"
#include "support/fixtures.hpp"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputs(const std::string &target) {
  std::vector<fs::path> files;
  const fs::path dir = fs::path(ORX_SOURCE_DIR) / "fuzz" / "regressions" / target;
  if (!fs::exists(dir)) return files;
  for (const auto &e : fs::directory_iterator(dir))
    if (e.is_regular_file() && e.path().filename() != "README.md") files.push_back(e.path());
  return files;
}

struct Target {
  const char *name;
  int (*body)(const std::uint8_t *, std::size_t);
};

void PrintTo(const Target &t, std::ostream *os) { *os << t.name; }

class FuzzReplay : public testing::TestWithParam<Target> {};

TEST_P(FuzzReplay, RegressionsRunWithoutFault) {
  const Target &t = GetParam();
  const std::vector<fs::path> files = inputs(t.name);
  EXPECT_FALSE(files.empty()) << "no inputs kept for " << t.name;
  for (const auto &file : files) {
    const std::vector<std::uint8_t> data = orx::test::load(file.string());
    EXPECT_EQ(t.body(data.data(), data.size()), 0) << file.string();
  }
  // The empty input and a block of zeros are the simplest hostile inputs.
  EXPECT_EQ(t.body(nullptr, 0), 0);
  const std::vector<std::uint8_t> zeros(740 + 8, 0);
  EXPECT_EQ(t.body(zeros.data(), zeros.size()), 0);
}

INSTANTIATE_TEST_SUITE_P(Targets, FuzzReplay,
                         testing::Values(Target{"rla", orx::fuzz::rla_read},
                                         Target{"rla_stream", orx::fuzz::rla_stream},
                                         Target{"config", orx::fuzz::config_file},
                                         Target{"names", orx::fuzz::name_syntax},
                                         Target{"round_trip", orx::fuzz::rla_round_trip},
                                         Target{"res", orx::fuzz::resource_file},
                                         Target{"operators", orx::fuzz::operator_stack}),
                         [](const testing::TestParamInfo<Target> &param) {
                           return std::string(param.param.name);
                         });

}  // namespace
