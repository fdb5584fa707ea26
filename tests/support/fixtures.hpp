// Small test fixtures: allocation-failure injection, environment variables
// and temporary directories that clean up after themselves.
#pragma once

#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "err/heap.hpp"
#include "err/report_internal.hpp"

namespace orx::test {

// Fails the n-th allocation made while in scope.
class FailNthAllocation {
 public:
  explicit FailNthAllocation(long n) { heap::fail_nth(n); }
  ~FailNthAllocation() { heap::fail_nth(0); }
  FailNthAllocation(const FailNthAllocation &) = delete;
  FailNthAllocation &operator=(const FailNthAllocation &) = delete;
  bool fired() const { return heap::failure_fired(); }
};

// Runs op with the 1st, 2nd, ... allocation failing until op completes
// without the injected failure firing.  op returns whether it succeeded; a
// run in which the failure fired must report failure.  Returns the number of
// allocations the successful run needed.
long for_each_allocation_failure(const std::function<bool()> &op, long limit = 10000);

// The same for an operation that returns a status (0 on success): every run
// in which the injected failure fired must return ORX_E_NO_MEMORY with "No
// more internal memory" reported, and leave `clean` true after it (for
// instance: no file left behind).  Returns the allocations the successful
// run needed.
long for_each_reported_allocation_failure(const std::function<int()> &op,
                                          const std::function<bool()> &clean = {},
                                          long limit = 10000);

// Sets (or with nullopt, unsets) an environment variable for the scope.
class ScopedEnv {
 public:
  ScopedEnv(const char *name, std::optional<std::string> value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv &) = delete;
  ScopedEnv &operator=(const ScopedEnv &) = delete;

 private:
  std::string name_;
  std::optional<std::string> old_;
};

// A fresh directory, removed with its contents at the end of the scope.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;
  const std::string &path() const { return path_; }
  std::string file(const std::string &name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// The whole of a file ("" or nothing when it cannot be read), and a file
// written whole.
inline std::string slurp(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
inline std::vector<uint8_t> load(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}
inline void write_text(const std::string &path, const std::string &text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}
inline void save_bytes(const std::string &path, const std::vector<uint8_t> &bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// Base fixture: the error service starts clean for every test.
class CleanErrors : public ::testing::Test {
 protected:
  void SetUp() override { err::reset(); }
  void TearDown() override {
    heap::fail_nth(0);
    err::reset();
  }
};

}  // namespace orx::test
