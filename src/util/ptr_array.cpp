// Pointer arrays: NULL-terminated vectors of pointers with no stored count.
// Capacity is never recorded, so every growth reallocates to exactly the size
// needed; removal closes gaps in place and never shrinks the block.
#include "orx/ptr.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <functional>

#include "err/heap.hpp"

namespace orx::util {
namespace {

using Slots = void **;

// Indexes are int at the interface, so an array never holds more elements
// than an int can count.
constexpr std::uint64_t kMaxElements = INT32_MAX;

// Stands in for a null source, so that it reads as the empty array.
void *const kEmpty[1] = {nullptr};

void *const *source(void *const *array) { return array != nullptr ? array : kEmpty; }

std::size_t length_of(void *const *array) {
  std::size_t n = 0;
  if (array != nullptr)
    while (array[n] != nullptr) ++n;
  return n;
}

std::size_t clamped_index(int index, std::size_t length) {
  if (index < 0) return 0;
  return std::min(static_cast<std::size_t>(index), length);
}

// Reallocates array (allocates when null) to exactly elements + 1 slots.  On
// failure the array is left as it was.
Slots resize(Slots array, std::uint64_t elements) {
  if (elements > kMaxElements) return nullptr;
  auto bytes = static_cast<std::size_t>((elements + 1) * sizeof(void *));
  return static_cast<Slots>(heap::reallocate(array, bytes));
}

// Grows array (or makes a new one when null) and places count items at index,
// clamped to the length, then terminates it.  The items may lie inside the
// array itself (appending an array to itself): they are found again after
// the block moves.
Slots splice(Slots array, void *const *items, std::size_t count, int index) {
  std::size_t length = length_of(array);
  std::less<const void *> before;
  bool inside = array != nullptr && !before(items, array) && before(items, array + length + 1);
  std::size_t offset = inside ? static_cast<std::size_t>(items - array) : 0;

  Slots grown = resize(array, std::uint64_t{length} + count);
  if (grown == nullptr) return nullptr;
  std::size_t at = clamped_index(index, length);
  std::memmove(grown + at + count, grown + at, (length - at) * sizeof(void *));
  for (std::size_t i = 0; i < count; ++i) {
    if (!inside) {
      grown[at + i] = items[i];
      continue;
    }
    // Slots at or past the insertion point have just moved up by count;
    // neither place overlaps the slots being written.
    std::size_t from = offset + i;
    grown[at + i] = grown[from < at ? from : from + count];
  }
  grown[length + count] = nullptr;
  return grown;
}

// The first n elements of src at most.
std::size_t prefix_length(void *const *src, std::uint32_t n) {
  return std::min<std::size_t>(length_of(src), n);
}

// Deletes count slots at index of an array of the given length, keeping the
// terminator.
void erase(Slots array, std::size_t length, std::size_t index, std::size_t count) {
  std::memmove(array + index, array + index + count, (length - index - count + 1) * sizeof(void *));
}

}  // namespace
}  // namespace orx::util

using namespace orx::util;

extern "C" {

void **PTR_more(void **array, uint32_t n) {
  Slots block = resize(array, n);
  if (block != nullptr && array == nullptr) block[0] = nullptr;
  return block;
}

uint32_t PTR_length(void **array) { return static_cast<uint32_t>(length_of(array)); }

void **PTR_save(void **array) { return splice(nullptr, source(array), length_of(array), 0); }

void **PTR_n_save(void **array, uint32_t n) {
  return splice(nullptr, source(array), prefix_length(array, n), 0);
}

void **PTR_save_n(int count, ...) {
  std::va_list args;
  va_start(args, count);
  std::va_list again;
  va_copy(again, args);
  std::uint64_t total = 0;
  for (int i = 0; i < count; ++i) total += length_of(va_arg(args, void **));
  va_end(args);

  Slots result = resize(nullptr, total);
  if (result != nullptr) {
    Slots end = result;
    for (int i = 0; i < count; ++i) {
      void **src = va_arg(again, void **);
      std::size_t n = length_of(src);
      std::copy_n(source(src), n, end);
      end += n;
    }
    *end = nullptr;
  }
  va_end(again);
  return result;
}

void **PTR_copy(void **dest, void **src) {
  std::memmove(dest, source(src), (length_of(src) + 1) * sizeof(void *));
  return dest;
}

void **PTR_n_copy(void **dest, void **src, int n) {
  void *const *from = source(src);
  for (int i = 0; i < n; ++i) {
    dest[i] = from[i];
    if (from[i] == nullptr) break;
  }
  return dest;
}

void **PTR_append(void **array, void **src) {
  return splice(array, source(src), length_of(src), INT32_MAX);
}

void **PTR_n_append(void **array, void **src, uint32_t n) {
  return splice(array, source(src), prefix_length(src, n), INT32_MAX);
}

void **PTR_cat(void **array, void **src) {
  PTR_copy(array + length_of(array), src);
  return array;
}

void **PTR_n_cat(void **array, void **src, uint32_t n) {
  std::size_t count = prefix_length(src, n);
  Slots end = array + length_of(array);
  std::memmove(end, source(src), count * sizeof(void *));
  end[count] = nullptr;
  return array;
}

void **PTR_insert(void **array, void *element, int index) {
  return splice(array, &element, 1, index);
}

void **PTR_n_insert(void **array, void **src, uint32_t n, int index) {
  return splice(array, source(src), prefix_length(src, n), index);
}

void **PTR_find(void **array, void *element) {
  std::size_t length = length_of(array);
  Slots slot = std::find(array, array + length, element);
  return slot != array + length ? slot : nullptr;
}

void **PTR_find_reverse(void **array, void *element) {
  Slots last = nullptr;
  for (std::size_t i = 0, length = length_of(array); i < length; ++i)
    if (array[i] == element) last = array + i;
  return last;
}

int PTR_index(void **array, void *element) {
  Slots slot = PTR_find(array, element);
  return slot != nullptr ? static_cast<int>(slot - array) : -1;
}

void **PTR_remove(void **array, void *element) {
  if (Slots slot = PTR_find(array, element))
    erase(array, length_of(array), static_cast<std::size_t>(slot - array), 1);
  return array;
}

void **PTR_remove_reverse(void **array, void *element) {
  if (Slots slot = PTR_find_reverse(array, element))
    erase(array, length_of(array), static_cast<std::size_t>(slot - array), 1);
  return array;
}

void **PTR_remove_all(void **array, void *element) {
  if (array != nullptr) *std::remove(array, array + length_of(array), element) = nullptr;
  return array;
}

void **PTR_remove_index(void **array, int index) { return PTR_n_remove_index(array, index, 1); }

void **PTR_n_remove_index(void **array, int index, int n) {
  std::int64_t start = index;
  std::int64_t count = n;
  if (start < 0) {
    count += start;
    start = 0;
  }
  auto length = static_cast<std::int64_t>(length_of(array));
  if (count < 1 || start >= length) return array;
  count = std::min(count, length - start);
  erase(array, static_cast<std::size_t>(length), static_cast<std::size_t>(start),
        static_cast<std::size_t>(count));
  return array;
}

void **PTR_reverse(void **array) {
  if (array != nullptr) std::reverse(array, array + length_of(array));
  return array;
}

int PTR_free_ptr(void **array) {
  if (array == nullptr) return 0;
  for (Slots slot = array; *slot != nullptr; ++slot) orx::heap::release(*slot);
  orx::heap::release(array);
  return 0;
}

}  // extern "C"
