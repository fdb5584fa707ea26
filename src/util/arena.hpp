// Arena: carves small blocks out of large chunks and frees them all at once.
#pragma once

#include <array>
#include <cstdint>

namespace orx::util {

struct Arena {
  void *chunks = nullptr;    // newest chunk; each begins with a link to the previous one
  char *next = nullptr;      // next free byte of the current chunk
  uint32_t chunk_size = 4096;
  uint32_t left = 0;         // bytes left in the current chunk
};

// size bytes rounded up to a multiple of 8, from the current chunk or a new
// one (what was left of the old chunk is abandoned).  Null when memory is
// exhausted.
void *arena_carve(Arena *arena, uint32_t size);
// Release every chunk and return the arena to empty.
void arena_release(Arena *arena);

// Small blocks in eight size classes (8 to 1024 bytes) with a free list per
// class, carved from one arena.  A block's first byte holds its class; the
// caller gets the address of the second byte.
struct SmallBlocks {
  Arena arena;
  std::array<void *, 8> free_lists = {};
};

// A block for n bytes (an empty string with room for the class size less
// one); null for n of 1022 or more, negative n, or exhausted memory.
char *small_allocate(SmallBlocks *pool, int n);
// Give a block back to its class's free list.
void small_release(SmallBlocks *pool, char *p);

}  // namespace orx::util
