#include <gtest/gtest.h>

#include "support/error_capture.hpp"
#include "support/fixtures.hpp"
#include "support/messages.hpp"
#include "util/node_pool.hpp"

namespace {

using NodePool = orx::test::CleanErrors;

TEST_F(NodePool, ReusesGivenBackNodesNewestFirstAndReportsExhaustion) {
  orx::util::NodePool pool;
  void *a = orx::util::pool_take(&pool, 24);
  void *b = orx::util::pool_take(&pool, 24);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  orx::util::pool_give_back(&pool, a);
  orx::util::pool_give_back(&pool, b);
  orx::util::pool_give_back(&pool, nullptr);  // harmless
  EXPECT_EQ(pool.free_head, b);
  EXPECT_EQ(orx::util::pool_take(&pool, 24), b);
  EXPECT_EQ(orx::util::pool_take(&pool, 24), a);
  {
    orx::test::ErrorCapture cap;
    orx::test::FailNthAllocation fail(1);
    EXPECT_EQ(orx::util::pool_take(&pool, 24), nullptr);
    EXPECT_TRUE(cap.has_at(orx::Msg::kNoMemory, ERR_ERROR));
  }
  std::free(a);
  std::free(b);
}

}  // namespace
