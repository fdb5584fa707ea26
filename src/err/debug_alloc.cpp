// The pointer database: a checked allocator with bounds tests.
#include "err/debug_alloc.hpp"

#include <array>
#include <cstdlib>
#include <cstring>

#include "err/heap.hpp"

namespace orx::dbg {
namespace {

enum State : uint16_t { kLive = 1, kFreed = 2 };

struct Entry {
  void *block;
  uint32_t size;
  uint32_t element_size;  // the "module" of the allocation
  uint16_t state;
};

struct CachePair {
  void *block;
  uint32_t index;
};

constexpr uint32_t kGrowth = 100;
constexpr int kCache = 5;

struct Database {
  Entry *entries = nullptr;
  uint32_t count = 0;
  uint32_t capacity = 0;
  bool recording = true;
  std::array<CachePair, kCache> cache = {};
  int cached = 0;  // pairs in use, oldest first
  std::FILE *in = nullptr;
  std::FILE *out = nullptr;
};
Database db;

std::FILE *out() { return db.out != nullptr ? db.out : stdout; }
std::FILE *in() { return db.in != nullptr ? db.in : stdin; }

// Class 1 warns; class 2 asks whether to go on and aborts unless told yes.
void complain(int cls, const char *message) {
  std::fprintf(out(), "%s: %s\n", cls == 1 ? "WARNING" : "FATAL  ", message);
  if (cls != 2) return;
  std::fprintf(out(), "Continue? (y/n)");
  std::fflush(out());
  char line[81] = {};
  if (std::fgets(line, sizeof line, in()) == nullptr || (line[0] != 'y' && line[0] != 'Y'))
    std::abort();
}

void cache_forget(void *block) {
  for (int i = 0; i < db.cached; ++i) {
    if (db.cache[i].block != block) continue;
    for (int j = i + 1; j < db.cached; ++j) db.cache[j - 1] = db.cache[j];
    --db.cached;
    return;
  }
}

void cache_remember(void *block, uint32_t index) {
  if (db.cached == kCache) {
    for (int j = 1; j < kCache; ++j) db.cache[j - 1] = db.cache[j];
    --db.cached;
  }
  db.cache[db.cached++] = CachePair{block, index};
}

Entry *lookup(void *block) {
  for (int i = 0; i < db.cached; ++i)
    if (db.cache[i].block == block) return &db.entries[db.cache[i].index];
  for (uint32_t i = 0; i < db.count; ++i) {
    if (db.entries[i].block == block) {
      cache_remember(block, i);
      return &db.entries[i];
    }
  }
  return nullptr;
}

// Grow the database by 100 entries; its own array is an entry too.
bool grow() {
  db.recording = false;
  uint32_t capacity = db.capacity + kGrowth;
  void *old = db.entries;
  auto *moved =
      static_cast<Entry *>(heap::reallocate(db.entries, sizeof(Entry) * std::size_t{capacity}));
  db.recording = true;
  if (moved == nullptr) return false;
  db.entries = moved;
  db.capacity = capacity;
  auto bytes = static_cast<uint32_t>(sizeof(Entry) * capacity);
  if (old == nullptr) {
    db.entries[db.count++] = Entry{moved, bytes, sizeof(Entry), kLive};
  } else {
    cache_forget(old);
    for (uint32_t i = 0; i < db.count; ++i) {
      if (db.entries[i].block == old) {
        db.entries[i].block = moved;
        db.entries[i].size = bytes;
      }
    }
  }
  return true;
}

void record(void *block, uint32_t size, uint32_t element_size) {
  if (!db.recording) return;
  if (db.count == db.capacity && !grow()) return;
  db.entries[db.count++] = Entry{block, size, element_size, kLive};
}

}  // namespace

void *utl_allocate(uint32_t size, uint32_t element_size) {
  if (size != 0 && element_size != 0 && size % element_size != 0)
    complain(2, "Module not a multiple of size in malloc.");
  void *block = heap::allocate(size);
  if (block == nullptr) {
    complain(2, "malloc has denied memory request.");
    return nullptr;
  }
  record(block, size, element_size);
  return block;
}

void *utl_reallocate(void *block, uint32_t size, uint32_t element_size) {
  Entry *e = lookup(block);
  if (e == nullptr) {
    complain(1, "Base pointer not in database.");
    return block;
  }
  void *moved = heap::reallocate(block, size);
  if (moved == nullptr) {
    complain(2, "Ptr request denied in realloc.");
    return block;
  }
  if (db.recording) {
    if (moved != block) cache_forget(block);
    *e = Entry{moved, size, element_size, kLive};
  }
  return moved;
}

int utl_free(void *block) {
  Entry *e = lookup(block);
  if (e == nullptr)
    complain(1, "Base pointer not in database.");
  else if (e->state != kLive)
    complain(1, "Ptr previously freed.");
  else
    e->state = kFreed;
  return 0;
}

int utl_check_index(void *block, int index) {
  Entry *e = lookup(block);
  if (e == nullptr) {
    complain(1, "Base pointer not in database.");
    return index;
  }
  int64_t offset = int64_t{index} * e->element_size;
  if (offset >= int64_t{e->size})
    complain(2, "Ptr exceeds upper bound.");
  else if (offset < 0)
    complain(2, "Ptr exceeds lower bound.");
  return index;
}

void *utl_check_pointer(void *block, void *pointer) {
  Entry *e = lookup(block);
  if (e == nullptr) {
    complain(1, "Base pointer not in database.");
    return pointer;
  }
  auto base = reinterpret_cast<uintptr_t>(block);
  auto p = reinterpret_cast<uintptr_t>(pointer);
  if (p >= base + e->size)
    complain(2, "Ptr exceeds upper bound.");
  else if (p < base)
    complain(2, "Ptr exceeds lower bound.");
  return pointer;
}

void utl_statistics() {
  long entries = static_cast<long>(db.count);
  uint64_t total = 0;
  uint64_t unfreed_bytes = 0;
  int unfreed = 0;
  for (uint32_t i = 0; i < db.count; ++i) {
    total += db.entries[i].size;
    if (db.entries[i].state != kFreed) {
      ++unfreed;
      unfreed_bytes += db.entries[i].size;
    }
  }
  std::fprintf(out(), "UTL: number of pointers        : %ld\n", entries);
  std::fprintf(out(), "UTL: amount of allocated memory: %d\n", static_cast<int>(total));
  std::fprintf(out(), "UTL: number of unfreed         : %d\n", unfreed);
  std::fprintf(out(), "UTL: amount of unfreed memory  : %d\n", static_cast<int>(unfreed_bytes));
}

void utl_set_streams(std::FILE *input, std::FILE *output) {
  db.in = input;
  db.out = output;
}

void utl_reset() {
  for (uint32_t i = 0; i < db.count; ++i)
    if (db.entries[i].block != db.entries) heap::release(db.entries[i].block);
  heap::release(db.entries);
  std::FILE *input = db.in;
  std::FILE *output = db.out;
  db = Database{};
  db.in = input;
  db.out = output;
}

const char *hex_word(uint32_t value) {
  static char text[9];
  static constexpr char kDigits[] = "0123456789abcdef";
  for (int i = 0; i < 4; ++i) {
    auto byte = static_cast<unsigned>((value >> (8 * i)) & 0xffu);
    text[2 * i] = kDigits[byte >> 4];
    text[2 * i + 1] = kDigits[byte & 0xfu];
  }
  text[8] = '\0';
  return text;
}

}  // namespace orx::dbg
