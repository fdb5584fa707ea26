#include "util/arena.hpp"

#include "err/heap.hpp"

namespace orx::util {

namespace {
constexpr uint32_t kLink = 8;  // room for the chunk link, keeping 8-byte alignment
constexpr int kClasses = 8;
}  // namespace

void *arena_carve(Arena *arena, uint32_t size) {
  uint64_t rounded = (uint64_t{size} + 7) & ~uint64_t{7};
  if (rounded <= arena->left) {
    char *p = arena->next;
    arena->next += rounded;
    arena->left -= static_cast<uint32_t>(rounded);
    return p;
  }
  // The chunk holds its link and the block, however the block compares with
  // the usual chunk size.
  const uint64_t chunk = rounded + kLink > arena->chunk_size ? rounded + kLink : arena->chunk_size;
  if (chunk > UINT32_MAX) return nullptr;
  auto *block = static_cast<char *>(heap::allocate(static_cast<std::size_t>(chunk)));
  if (block == nullptr) return nullptr;
  *reinterpret_cast<void **>(block) = arena->chunks;
  arena->chunks = block;
  char *p = block + kLink;
  arena->next = p + rounded;
  uint64_t room = chunk - kLink;
  arena->left = room > rounded ? static_cast<uint32_t>(room - rounded) : 0;
  return p;
}

void arena_release(Arena *arena) {
  void *c = arena->chunks;
  while (c != nullptr) {
    void *prev = *static_cast<void **>(c);
    heap::release(c);
    c = prev;
  }
  arena->chunks = nullptr;
  arena->next = nullptr;
  arena->left = 0;
}

char *small_allocate(SmallBlocks *pool, int n) {
  if (n < 0 || n >= 1022) return nullptr;
  int cls = 0;
  while ((8 << cls) <= n + 2) ++cls;
  char *block;
  if (pool->free_lists[cls] != nullptr) {
    block = static_cast<char *>(pool->free_lists[cls]);
    pool->free_lists[cls] = *reinterpret_cast<void **>(block);
  } else {
    block = static_cast<char *>(arena_carve(&pool->arena, 8u << cls));
    if (block == nullptr) return nullptr;
  }
  block[0] = static_cast<char>(cls);
  block[1] = '\0';
  return block + 1;
}

void small_release(SmallBlocks *pool, char *p) {
  if (p == nullptr) return;
  char *block = p - 1;
  int cls = block[0];
  if (cls < 0 || cls >= kClasses) return;
  *reinterpret_cast<void **>(block) = pool->free_lists[cls];
  pool->free_lists[cls] = block;
}

}  // namespace orx::util
