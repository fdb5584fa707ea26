#include "util/node_pool.hpp"

#include "err/heap.hpp"
#include "err/messages.hpp"

namespace orx::util {

void *pool_take(NodePool *pool, std::size_t size) {
  if (pool->free_head != nullptr) {
    void *node = pool->free_head;
    pool->free_head = *static_cast<void **>(node);
    return node;
  }
  void *node = heap::allocate(size < sizeof(void *) ? sizeof(void *) : size);
  if (node == nullptr) report(Msg::kNoMemory);
  return node;
}

void *pool_give_back(void *node, void *head) {
  if (node == nullptr) return head;
  *static_cast<void **>(node) = head;
  return node;
}

}  // namespace orx::util
