#include "util/queue.hpp"

#include <cstring>

#include "err/heap.hpp"

namespace orx::util {

Queue *queue_create() {
  auto *q = static_cast<Queue *>(heap::allocate(sizeof(Queue)));
  if (q != nullptr) queue_init(q);
  return q;
}

void queue_init(Queue *q) { *q = Queue{nullptr, nullptr, nullptr, 0}; }

void queue_append(Queue *q, void *element) {
  auto *link = static_cast<QueueLink *>(element);
  link->next = nullptr;
  if (q->tail != nullptr)
    q->tail->next = link;
  else
    q->head = link;
  q->tail = link;
  ++q->count;
}

void queue_rewind(Queue *q) { q->cursor = q->head; }

void *queue_next(Queue *q) {
  QueueLink *at = q->cursor;
  if (at != nullptr) q->cursor = at->next;
  return at;
}

void *queue_pop(Queue *q) {
  if (q->count == 0) return nullptr;
  QueueLink *first = q->head;
  if (first == q->tail) {
    queue_init(q);
  } else {
    if (q->cursor == first) q->cursor = first->next;
    q->head = first->next;
    --q->count;
  }
  return first;
}

}  // namespace orx::util
