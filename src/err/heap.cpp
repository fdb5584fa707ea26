#include "err/heap.hpp"

#include <atomic>
#include <cstdlib>

namespace orx::heap {
namespace {

// Atomics keep the counters sound when tests drive the library from several
// threads; the check costs one relaxed load when nothing is armed.
struct FaultSwitch {
  std::atomic<long> armed_at{0};
  std::atomic<long> seen{0};
  std::atomic<bool> fired{false};
};
FaultSwitch g_fault;

bool should_fail() {
  if (g_fault.armed_at.load(std::memory_order_relaxed) == 0) return false;
  long n = g_fault.seen.fetch_add(1, std::memory_order_relaxed) + 1;
  if (n != g_fault.armed_at.load(std::memory_order_relaxed)) return false;
  g_fault.fired.store(true, std::memory_order_relaxed);
  return true;
}

}  // namespace

void *allocate(std::size_t size) {
  if (should_fail()) return nullptr;
  return std::malloc(size == 0 ? 1 : size);
}

void *allocate_zeroed(std::size_t size) {
  if (should_fail()) return nullptr;
  return std::calloc(size == 0 ? 1 : size, 1);
}

void *reallocate(void *block, std::size_t size) {
  if (should_fail()) return nullptr;
  return std::realloc(block, size == 0 ? 1 : size);
}

void release(void *block) { std::free(block); }

void fail_nth(long n) {
  g_fault.seen.store(0);
  g_fault.fired.store(false);
  g_fault.armed_at.store(n < 0 ? 0 : n);
}

long allocations_seen() { return g_fault.seen.load(); }

bool failure_fired() { return g_fault.fired.load(); }

}  // namespace orx::heap
