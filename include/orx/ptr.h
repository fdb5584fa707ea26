/* liborx: pointer arrays (the PTR_ family).
 *
 * A pointer array is a heap vector of pointers ended by a NULL slot, with no
 * stored count: its length is the number of slots before the first NULL, and
 * an empty array is a single NULL slot.  String arrays are pointer arrays
 * whose elements are strings.  Elements are compared by identity (pointer
 * equality), never by content.
 *
 * Arrays come from the library's heap without any error report; they may be
 * released with free() or ERR_free().  The elements are never copied: a saved
 * or appended array shares them with its source.
 *
 * Growing functions reallocate to exactly the size needed and may move the
 * array: they return the new address, or NULL when memory runs out.  On that
 * failure the array passed in is untouched and still valid, so keep the old
 * pointer until the result has been checked.  In-place functions return
 * their argument and never shrink the allocation.
 *
 * Unless stated otherwise, a NULL source array reads as empty and a NULL
 * array argument of an in-place function is returned unchanged.  Indexes
 * are int, so an array holds at most INT_MAX elements; a growth beyond that
 * fails like an exhausted heap.
 */
#ifndef ORX_PTR_H
#define ORX_PTR_H

#include <stdint.h>

#include "orx/export.h"

ORX_BEGIN_DECLS

/* Resizes array to room for n elements plus the terminator (n + 1 slots).
 * A NULL array gets a new block holding the empty array; an existing array
 * is reallocated and no terminator is written (the caller places it).
 * Returns the block, or NULL when memory runs out. */
ORX_API void **PTR_more(void **array, uint32_t n);

/* Number of elements before the terminator; 0 for a NULL array. */
ORX_API uint32_t PTR_length(void **array);

/* A new array holding the same elements as array.  The caller frees it.
 * NULL when memory runs out. */
ORX_API void **PTR_save(void **array);

/* A new array of the first n elements of array at most, terminated.  The
 * caller frees it.  NULL when memory runs out. */
ORX_API void **PTR_n_save(void **array, uint32_t n);

/* A new array holding the elements of count arrays (the void ** arguments
 * that follow) one after another.  A count below 1 gives an empty array (not
 * NULL).  The caller frees it.  NULL when memory runs out. */
ORX_API void **PTR_save_n(int count, ...);

/* Copies src with its terminator into dest, which must have room.  Returns
 * dest. */
ORX_API void **PTR_copy(void **dest, void **src);

/* Copies at most n slots of src into dest, stopping after a NULL slot.  No
 * terminator of its own is written.  n < 1 copies nothing.  Returns dest. */
ORX_API void **PTR_n_copy(void **dest, void **src, int n);

/* Grows array and appends all elements of src.  A NULL array gives a new
 * copy of src.  Returns the possibly moved array, or NULL (array unchanged)
 * when memory runs out. */
ORX_API void **PTR_append(void **array, void **src);

/* Grows array and appends the first n elements of src at most, then the
 * terminator.  A NULL array gives a new array of them.  Returns the possibly
 * moved array, or NULL (array unchanged) when memory runs out. */
ORX_API void **PTR_n_append(void **array, void **src, uint32_t n);

/* Appends src to array in place; array must have room.  Returns array. */
ORX_API void **PTR_cat(void **array, void **src);

/* Appends the first n elements of src at most to array in place and
 * terminates it; array must have room.  Returns array. */
ORX_API void **PTR_n_cat(void **array, void **src, uint32_t n);

/* Grows array by one slot and inserts element at index.  The index is
 * clamped to 0 .. length: a negative index inserts at the front, one past
 * the end appends.  A NULL array gives the one-element array.  Returns the
 * possibly moved array, or NULL (array unchanged) when memory runs out. */
ORX_API void **PTR_insert(void **array, void *element, int index);

/* Grows array and inserts the first n elements of src at most at index,
 * clamped as for PTR_insert.  A NULL array gives a new array of them.
 * Returns the possibly moved array, or NULL (array unchanged) when memory
 * runs out. */
ORX_API void **PTR_n_insert(void **array, void **src, uint32_t n, int index);

/* Address of the first slot holding element, or NULL when absent. */
ORX_API void **PTR_find(void **array, void *element);

/* Address of the last slot holding element, or NULL when absent. */
ORX_API void **PTR_find_reverse(void **array, void *element);

/* Index of the first slot holding element, or -1 when it is absent or the
 * array is empty. */
ORX_API int PTR_index(void **array, void *element);

/* Deletes the first slot holding element, closing the gap.  Returns array. */
ORX_API void **PTR_remove(void **array, void *element);

/* Deletes the last slot holding element, closing the gap.  Returns array. */
ORX_API void **PTR_remove_reverse(void **array, void *element);

/* Deletes every slot holding element.  Returns array. */
ORX_API void **PTR_remove_all(void **array, void *element);

/* Deletes the slot at index; an index outside the array does nothing.
 * Returns array. */
ORX_API void **PTR_remove_index(void **array, int index);

/* Deletes n slots starting at index.  A negative index deletes from the
 * start and shortens n by as much; a count running past the end deletes to
 * the end; n < 1 does nothing.  Returns array. */
ORX_API void **PTR_n_remove_index(void **array, int index, int n);

/* Reverses the order of the elements in place.  Returns array. */
ORX_API void **PTR_reverse(void **array);

/* Frees every element and then the array itself (elements must come from
 * the library's heap or malloc).  A NULL array is ignored.  Returns 0. */
ORX_API int PTR_free_ptr(void **array);

ORX_END_DECLS

#endif /* ORX_PTR_H */
