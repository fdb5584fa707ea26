#include "support/fixtures.hpp"

#include <cstdlib>
#include <filesystem>

#include "support/error_capture.hpp"

namespace orx::test {

long for_each_allocation_failure(const std::function<bool()> &op, long limit) {
  for (long n = 1; n <= limit; ++n) {
    bool ok;
    bool fired;
    {
      FailNthAllocation fail(n);
      ok = op();
      fired = fail.fired();
    }
    if (!fired) {
      EXPECT_TRUE(ok) << "operation failed without an injected failure";
      return n - 1;
    }
    EXPECT_FALSE(ok) << "operation claimed success although allocation " << n << " failed";
  }
  ADD_FAILURE() << "operation still allocating after " << limit << " allocations";
  return limit;
}

long for_each_reported_allocation_failure(const std::function<int()> &op,
                                          const std::function<bool()> &clean, long limit) {
  ErrorCapture errors;
  long n = 0;
  return for_each_allocation_failure(
      [&] {
        errors.clear();
        const int status = op();
        if (!heap::failure_fired()) {
          EXPECT_EQ(status, 0) << "failed without an injected failure: " << errors.last();
          return true;
        }
        EXPECT_EQ(status, ORX_E_NO_MEMORY) << "allocation " << ++n << ": " << errors.last();
        EXPECT_TRUE(errors.has(Msg::kNoMemory)) << "allocation " << n << " failed without a report";
        if (clean) {
          EXPECT_TRUE(clean()) << "left behind after allocation " << n << " failed";
        }
        return false;
      },
      limit);
}

ScopedEnv::ScopedEnv(const char *name, std::optional<std::string> value) : name_(name) {
  if (const char *old = std::getenv(name)) old_ = old;
  if (value)
    setenv(name, value->c_str(), 1);
  else
    unsetenv(name);
}

ScopedEnv::~ScopedEnv() {
  if (old_)
    setenv(name_.c_str(), old_->c_str(), 1);
  else
    unsetenv(name_.c_str());
}

TempDir::TempDir() {
  std::string tmpl = (std::filesystem::temp_directory_path() / "orx-test-XXXXXX").string();
  if (mkdtemp(tmpl.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed";
  path_ = tmpl;
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

}  // namespace orx::test
