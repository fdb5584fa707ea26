#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

#include "support/error_capture.hpp"
#include "support/fixtures.hpp"
#include "support/messages.hpp"
#include "util/arena.hpp"
#include "util/grow_array.hpp"
#include "util/node_pool.hpp"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

using namespace orx::util;
using Containers = orx::test::CleanErrors;

// Growth against a model of the rule: whole increments, and always at least
// one spare element (reaching the allocated count exactly grows too).
TEST_F(Containers, GrowArrayFollowsItsModel) {
  std::mt19937 rng(5);
  for (int round = 0; round < 200; ++round) {
    const auto increment = static_cast<uint32_t>(1 + rng() % 5), size = static_cast<uint32_t>(1 + rng() % 8);
    const auto n = static_cast<uint32_t>(rng() % 7);
    void *data = reinterpret_cast<void *>(1);
    GrowArray *a = grow_create(static_cast<int>(n), static_cast<int>(increment), static_cast<int>(size), &data);
    ASSERT_NE(a, nullptr);
    uint32_t allocated = (n + increment - 1) / increment * increment, used = n;
    ASSERT_EQ(data == nullptr, n == 0);
    for (int step = 0; step < 10; ++step) {
      const auto count = static_cast<uint32_t>(rng() % 9);
      if (used + count >= allocated)
        allocated += std::max<uint32_t>(1, (used + count - allocated + increment - 1) / increment) * increment;
      used += count;
      ASSERT_EQ(grow_add(a, count, &data), 1);
      ASSERT_EQ(a->allocated, allocated);
      ASSERT_EQ(a->used, used);
      std::memset(data, 0xab, allocated * size);  // the block really is that big (ASan)
    }
    EXPECT_EQ(grow_destroy(a, &data), 1);
    EXPECT_EQ(data, nullptr);
  }
  void *data = nullptr;
  EXPECT_EQ(grow_destroy(grow_create(0, 1, 1, &data), &data), 0);  // no data block
}

TEST_F(Containers, GrowArrayRefusesBadArgumentsAndReportsExhaustion) {
  void *data = nullptr;
  {
#if defined(__SANITIZE_ADDRESS__)
    __lsan::ScopedDisabler keep_quiet;  // the refused header is kept on purpose
#endif
    EXPECT_EQ(grow_create(1, 0, 4, &data), nullptr);
    EXPECT_EQ(grow_create(1, 4, 0, &data), nullptr);
    EXPECT_EQ(grow_create(-1, 4, 4, &data), nullptr);
  }
  orx::test::ErrorCapture cap;
  GrowArray *a = grow_create(1, 2, 4, &data);
  ASSERT_NE(a, nullptr);
  {
    orx::test::FailNthAllocation fail(1);
    EXPECT_EQ(grow_add(a, 5, &data), 0);
  }
  EXPECT_EQ(data, nullptr);  // freed, not leaked
  EXPECT_TRUE(cap.has_at(orx::Msg::kNoMemory, ERR_ERROR));
  EXPECT_EQ(grow_destroy(a, &data), 0);
  orx::test::for_each_allocation_failure([&] {
    GrowArray *b = grow_create(3, 2, 4, &data);
    if (b == nullptr) return false;
    grow_destroy(b, &data);
    return true;
  });
}

TEST_F(Containers, ArenaRoundsToEightAndOpensChunksForLargeRequests) {
  Arena arena;
  arena.chunk_size = 64;
  auto *a = static_cast<char *>(arena_carve(&arena, 1));
  auto *b = static_cast<char *>(arena_carve(&arena, 9));
  EXPECT_EQ(b - a, 8);
  void *first_chunk = arena.chunks;
  auto *big = static_cast<char *>(arena_carve(&arena, 100));  // beyond the chunk size
  ASSERT_NE(big, nullptr);
  std::memset(big, 1, 100);
  EXPECT_NE(arena.chunks, first_chunk);
  EXPECT_EQ(*static_cast<void **>(arena.chunks), first_chunk);
  // Blocks at the chunk size and just under it fit whole beside the link
  // (ASan reports an overrun).
  for (uint32_t size : {56u, 57u, 64u}) {
    arena.left = 0;
    std::memset(arena_carve(&arena, size), 2, size);
  }
  arena_release(&arena);
  EXPECT_EQ(arena.chunks, nullptr);
  {
    orx::test::FailNthAllocation fail(1);
    EXPECT_EQ(arena_carve(&arena, 8), nullptr);
  }
}

TEST_F(Containers, SmallBlocksPickTheClassThatLeavesRoomForTheHeader) {
  SmallBlocks pool;
  char *five = small_allocate(&pool, 5);
  char *six = small_allocate(&pool, 6);
  char *last = small_allocate(&pool, 1021);
  ASSERT_NE(five, nullptr);
  ASSERT_NE(six, nullptr);
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(five[-1], 0);  // 8-byte class
  EXPECT_EQ(six[-1], 1);   // 16-byte class
  EXPECT_EQ(last[-1], 7);  // 1024-byte class
  EXPECT_EQ(five[0], '\0');
  EXPECT_EQ(small_allocate(&pool, 1022), nullptr);
  EXPECT_EQ(small_allocate(&pool, -1), nullptr);
  std::memset(six, 'x', 14);
  small_release(&pool, six);
  EXPECT_EQ(small_allocate(&pool, 13), six);  // reused from the class's free list
  arena_release(&pool.arena);
}

TEST_F(Containers, NodePoolReusesGivenBackNodesNewestFirstAndReportsExhaustion) {
  NodePool pool;
  void *a = pool_take(&pool, 24);
  void *b = pool_take(&pool, 24);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  pool_give_back(&pool, a);
  pool_give_back(&pool, b);
  pool_give_back(&pool, nullptr);  // harmless
  EXPECT_EQ(pool.free_head, b);
  EXPECT_EQ(pool_take(&pool, 24), b);
  EXPECT_EQ(pool_take(&pool, 24), a);
  {
    orx::test::ErrorCapture cap;
    orx::test::FailNthAllocation fail(1);
    EXPECT_EQ(pool_take(&pool, 24), nullptr);
    EXPECT_TRUE(cap.has_at(orx::Msg::kNoMemory, ERR_ERROR));
  }
  std::free(a);
  std::free(b);
}

}  // namespace
