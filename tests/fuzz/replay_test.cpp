#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "bodies.hpp"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputs(const char *target) {
  std::vector<fs::path> files;
  fs::path dir = fs::path(ORX_SOURCE_DIR) / "fuzz" / "regressions" / target;
  if (!fs::exists(dir)) return files;
  for (const auto &e : fs::directory_iterator(dir))
    if (e.is_regular_file()) files.push_back(e.path());
  return files;
}

std::vector<std::uint8_t> bytes_of(const fs::path &p) {
  std::ifstream f(p, std::ios::binary);
  return {std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
}

TEST(FuzzReplay, RlaRegressionsReadWithoutFault) {
  auto files = inputs("rla");
  for (const auto &file : files) {
    SCOPED_TRACE(file.string());
    auto data = bytes_of(file);
    orx::fuzz::rla_read(data.data(), data.size());
  }
  // The empty input and a lone header-sized block of zeros are the simplest
  // hostile files; they run even when no regression is kept.
  orx::fuzz::rla_read(nullptr, 0);
  std::vector<std::uint8_t> zeros(740 + 8, 0);
  orx::fuzz::rla_read(zeros.data(), zeros.size());
}

}  // namespace
