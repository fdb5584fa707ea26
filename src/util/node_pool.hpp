// Free-list pool of fixed-size nodes.  A free node's first field links to the
// next free node; nodes given back are kept for reuse, never released.
#pragma once

#include <cstddef>

namespace orx::util {

struct NodePool {
  void *free_head = nullptr;
};

// Pop a free node, or allocate size bytes (at least a pointer's worth) when
// none is free.  On failure reports "No more internal memory" and returns
// null.
void *pool_take(NodePool *pool, std::size_t size);

// Link node in front of the free nodes and return it as the new head; a null
// node leaves the head unchanged.
void *pool_give_back(void *node, void *head);
inline void pool_give_back(NodePool *pool, void *node) {
  pool->free_head = pool_give_back(node, pool->free_head);
}

}  // namespace orx::util
