#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "err/debug_alloc.hpp"
#include "support/fixtures.hpp"

namespace {

using namespace orx::dbg;

// Feeds answers to "Continue? (y/n)" and collects what the database prints.
class DebugAlloc : public ::testing::Test {
 protected:
  void SetUp() override {
    in_ = std::tmpfile();
    out_ = std::tmpfile();
    utl_set_streams(in_, out_);
  }
  void TearDown() override {
    utl_reset();
    utl_set_streams(nullptr, nullptr);
    std::fclose(in_);
    std::fclose(out_);
  }
  void answer(const char *text) {
    std::fputs(text, in_);
    std::rewind(in_);
  }
  std::string printed() {
    std::fflush(out_);
    std::rewind(out_);
    std::string s;
    char buf[256];
    while (std::fgets(buf, sizeof buf, out_)) s += buf;
    std::rewind(out_);
    return s;
  }
  std::FILE *in_ = nullptr;
  std::FILE *out_ = nullptr;
};

TEST_F(DebugAlloc, BoundsChecksAskToContinueAndUnknownBlocksWarn) {
  auto *block = static_cast<int *>(utl_allocate(40, 4));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(utl_check_index(block, 9), 9);
  EXPECT_EQ(utl_check_pointer(block, block + 9), block + 9);
  EXPECT_EQ(printed(), "");
  answer("yes\ny\nY\n");
  EXPECT_EQ(utl_check_index(block, 10), 10);
  EXPECT_EQ(utl_check_index(block, -1), -1);
  utl_check_pointer(block, block + 10);
  int other = 0;
  utl_check_index(&other, 0);
  utl_free(&other);
  EXPECT_EQ(utl_reallocate(&other, 8, 1), &other);
  EXPECT_EQ(printed(),
            "FATAL  : Ptr exceeds upper bound.\nContinue? (y/n)"
            "FATAL  : Ptr exceeds lower bound.\nContinue? (y/n)"
            "FATAL  : Ptr exceeds upper bound.\nContinue? (y/n)"
            "WARNING: Base pointer not in database.\n"
            "WARNING: Base pointer not in database.\n"
            "WARNING: Base pointer not in database.\n");
}

TEST_F(DebugAlloc, StatisticsStartAtZeroAndADoubleFreeIsReportedOnce) {
  utl_statistics();
  EXPECT_EQ(printed(),
            "UTL: number of pointers        : 0\n"
            "UTL: amount of allocated memory: 0\n"
            "UTL: number of unfreed         : 0\n"
            "UTL: amount of unfreed memory  : 0\n");
  void *a = utl_allocate(24, 8);
  void *b = utl_allocate(10, 1);
  utl_free(a);
  utl_free(a);
  utl_statistics();
  // Three entries: the database's own array of 100 entries, a and b.
  std::string out = printed();
  EXPECT_NE(out.find("WARNING: Ptr previously freed.\n"), std::string::npos);
  EXPECT_NE(out.find("UTL: number of pointers        : 3\n"), std::string::npos);
  EXPECT_NE(out.find("UTL: number of unfreed         : 2\n"), std::string::npos);
  (void)b;
}

TEST_F(DebugAlloc, ManyBlocksGrowTheDatabaseAndReallocationKeepsChecksRight) {
  void *blocks[250];
  for (auto &b : blocks) b = utl_allocate(8, 8);
  void *r = utl_reallocate(blocks[3], 800, 8);
  ASSERT_NE(r, nullptr);
  // A check returns its index whatever it finds: in bounds, it prints nothing.
  utl_check_index(r, 99);
  for (int i = 0; i < 250; ++i)
    if (i != 3) utl_check_index(blocks[i], 0);
  EXPECT_EQ(printed(), "");
  utl_statistics();
  EXPECT_NE(printed().find("UTL: number of pointers        : 251\n"), std::string::npos);
}

TEST_F(DebugAlloc, ModuleMismatchAsksAndAbortsOnNo) {
  answer("n\n");
  EXPECT_DEATH(utl_allocate(10, 4), "");
  answer("no\n");
  void *block = utl_allocate(8, 8);
  EXPECT_DEATH(utl_check_index(block, 2), "");
}

TEST(DebugAllocHex, LeastSignificantByteFirst) {
  EXPECT_STREQ(hex_word(0x12345678u), "78563412");
  EXPECT_STREQ(hex_word(0xabu), "ab000000");
}

TEST(AllocTrace, NestedTracingWritesMemstatUntilTheLastOff) {
  orx::test::TempDir dir;
  std::string cwd = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  EXPECT_EQ(trace_on(), 1);
  EXPECT_EQ(trace_on(), 1);
  void *p = hooks().allocate(16, "buf");
  p = hooks().reallocate(p, 32, "buf");
  hooks().free(p, "buf");
  EXPECT_EQ(trace_off(), 1);
  void *q = hooks().allocate(4, "still traced");
  hooks().free(q, "still traced");
  EXPECT_EQ(trace_off(), 1);
  void *plain = hooks().allocate(4, "untraced");
  hooks().free(plain, "untraced");
  EXPECT_EQ(trace_off(), 1);  // already off: nothing happens
  const std::string log = orx::test::slurp(".memstat");
  std::filesystem::current_path(cwd);
  EXPECT_NE(log.find("size 16 name buf\n"), std::string::npos);
  EXPECT_NE(log.find("realloc: ptr from "), std::string::npos);
  EXPECT_NE(log.find("free: ptr "), std::string::npos);
  EXPECT_NE(log.find("name still traced"), std::string::npos);
  EXPECT_EQ(log.find("untraced"), std::string::npos);
}

TEST(AllocTraceDeathTest, AnalysisWithoutBinDirExitsCleanly) {
  orx::test::ScopedEnv env("KV_BIN_DIR", std::nullopt);
  EXPECT_EXIT(run_analysis(), ::testing::ExitedWithCode(0),
              "set korvantel environment variables, please.");
}

}  // namespace
