// ERR_malloc, ERR_realloc and ERR_free: the allocator of every library module.
#include "err/heap.hpp"
#include "err/messages.hpp"
#include "orx/err.h"

extern "C" {

void *ERR_malloc(uint32_t size) {
  void *p = orx::heap::allocate(size);
  if (p == nullptr) orx::report(orx::Msg::kNoMemory);
  return p;
}

void *ERR_realloc(void *pointer, uint32_t size) {
  void *p = orx::heap::reallocate(pointer, size);
  if (p == nullptr) orx::report(orx::Msg::kNoMemory);
  return p;
}

int ERR_free(void *pointer) {
  orx::heap::release(pointer);
  return 1;
}

}  // extern "C"
