// Intrusive singly linked queue with a read cursor.  An element is any
// record whose first field is the link to the next element; the queue does
// not own its elements.
#pragma once

#include <cstdint>

namespace orx::util {

struct QueueLink {
  QueueLink *next;
};

struct Queue {
  QueueLink *head;
  QueueLink *tail;
  QueueLink *cursor;
  uint32_t count;
};

// A zeroed queue from the heap (null when memory is exhausted); free it with
// ERR_free.
Queue *queue_create();
void queue_init(Queue *q);
void queue_append(Queue *q, void *element);
void queue_rewind(Queue *q);
// The element at the cursor, advancing it; null at the end (the cursor is
// not rewound by itself).
void *queue_next(Queue *q);
// Remove and return the head; null when empty.
void *queue_pop(Queue *q);

}  // namespace orx::util
