/* liborx: strings (the STR_ family).
 *
 * Functions over plain null-terminated 8-bit strings: heap copies and
 * growth, comparison and search, splitting into words, classification of
 * numbers, file-name surgery, environment expansion, sorting of string
 * arrays and a reference-counted table of shared strings.
 *
 * Ownership.  Every string or array these functions return new is allocated
 * from the C heap; free it with free() or ERR_free().  Functions named
 * "_save" return new copies.  In-place functions write into the caller's
 * string and return it.  Growing functions (STR_more, STR_append, the
 * inserts) may move their argument and return the new address: keep the old
 * pointer until the result has been checked, because on failure they return
 * NULL and leave the argument allocated and unchanged.  Nothing here reports
 * through the error service (except the fatal misuse noted at
 * STR_expand_filename) and nothing sets orx__err.
 *
 * String arrays are pointer arrays: heap vectors of char pointers ended by a
 * NULL slot, with no stored count.
 *
 * Characters are compared as signed bytes.  NULL arguments give 0, false or
 * NULL unless a function says otherwise.  The shared-string table is global
 * state without locks: use it from one thread at a time.
 */
#ifndef ORX_STR_H
#define ORX_STR_H

#include <stdint.h>

#include "orx/export.h"

ORX_BEGIN_DECLS

/* --- Allocation and copies ------------------------------------------------ */

/* Make room in s for a string of n characters (n + 1 bytes).  With s NULL,
 * allocate a new block holding the empty string; otherwise resize s and
 * write a terminator at position n.  Returns the block, or NULL when memory
 * ran out (s is then left as it was). */
ORX_API char *STR_more(char *s, uint32_t n);

/* A new copy of s, or NULL when s is NULL or memory ran out. */
ORX_API char *STR_save(const char *s);

/* A new copy of at most the first n characters of s, always terminated.
 * NULL when s is NULL or memory ran out. */
ORX_API char *STR_n_save(const char *s, uint32_t n);

/* A new string holding the concatenation of the count strings that follow
 * (each a const char *; NULL ones count as empty).  A count below 1 gives a
 * new empty string.  NULL only when memory ran out. */
ORX_API char *STR_save_n(int count, ...);

/* Grow s and append t.  With s NULL, a new copy of t; with t NULL, s as it
 * is.  Returns the possibly moved s, or NULL when memory ran out. */
ORX_API char *STR_append(char *s, const char *t);

/* Grow s and append at most the first n characters of t, always
 * terminated.  NULL s and t behave as in STR_append. */
ORX_API char *STR_n_append(char *s, const char *t, uint32_t n);

/* Grow s by one and insert the character c at index, clamped to 0 .. the
 * length (an index past the end appends).  With s NULL, a new one-character
 * string.  Returns the possibly moved s, or NULL when memory ran out. */
ORX_API char *STR_insert(char *s, int c, int index);

/* Grow s and insert at most the first n characters of t at index, clamped
 * as in STR_insert.  With s NULL, a new copy of those characters; with t
 * NULL, s as it is.  Returns the possibly moved s, or NULL when memory ran
 * out. */
ORX_API char *STR_n_insert(char *s, const char *t, uint32_t n, int index);

/* Delete from s in place the first, the last or every occurrence of the
 * character c (a c of 0 deletes nothing).  Return s. */
ORX_API char *STR_remove(char *s, int c);
ORX_API char *STR_remove_reverse(char *s, int c);
ORX_API char *STR_remove_all(char *s, int c);

/* Delete the character at index in place; an index outside the string
 * deletes nothing.  Returns s. */
ORX_API char *STR_remove_index(char *s, int index);

/* Delete n characters from index in place.  A negative index deletes from
 * the start and shortens n by as much; a count running past the end deletes
 * to the end; a count below 1 deletes nothing.  Returns s. */
ORX_API char *STR_n_remove_index(char *s, int index, int n);

/* When s is shorter than width, fill it with the character c up to width
 * characters and terminate it there; s must have room for width + 1 bytes.
 * Returns s. */
ORX_API char *STR_pad(char *s, int c, uint32_t width);

/* Convert s to lower or upper case in place (tolower/toupper of the current
 * locale).  Return s. */
ORX_API char *STR_tolower(char *s);
ORX_API char *STR_toupper(char *s);

/* --- Comparison and search ------------------------------------------------ */

/* Number of characters in s before its terminator; 0 for NULL. */
ORX_API uint32_t STR_length(const char *s);

/* Compare a and b byte by byte: the difference of the first differing
 * characters as signed bytes, 0 when equal.  NULL sorts before any string
 * (negative when only a is NULL, positive when only b is) and two NULLs are
 * equal. */
ORX_API int STR_compare(const char *a, const char *b);

/* STR_compare over at most the first n characters; an n below 2 compares
 * the first characters only. */
ORX_API int STR_n_compare(const char *a, const char *b, uint32_t n);

/* True (1) when name matches the abbreviation pattern: a '*' in pattern
 * marks the shortest allowed abbreviation.  The characters before the '*'
 * must be present; name may stop anywhere after them, but what it has must
 * match the rest of pattern ("del*ete" accepts "del", "dele" and "delete",
 * refuses "de", "delx" and "deletex").  A pattern without '*' must match
 * whole.  False (0) when either is NULL. */
ORX_API int STR_abbr(const char *name, const char *pattern);

/* Ordering for sorting and searching tables of abbreviation patterns: as
 * STR_compare, but every '*' on either side is skipped. */
ORX_API int STR_abbr_compare(const char *a, const char *b);

/* The slot of the string array holding a string equal to s, searching from
 * the start (STR_find_string) or from the end (STR_find_string_reverse);
 * NULL when none does or either argument is NULL. */
ORX_API char **STR_find_string(char **array, const char *s);
ORX_API char **STR_find_string_reverse(char **array, const char *s);

/* Pointer to the first white-space character after the first character of
 * s, or to its terminator when there is none.  NULL for NULL. */
ORX_API char *STR_find_space(const char *s);

/* Pointer to the first character of s that is not white space.  NULL for
 * NULL. */
ORX_API char *STR_skip_space(const char *s);

/* True when s is not empty and holds only decimal digits. */
ORX_API int STR_is_numeric(const char *s);

/* True when s is an optional '+' or '-', at least one digit and nothing
 * else, and its value fits a signed 32-bit integer.  Leading zeros count as
 * digits, so more than ten digits are refused whatever their value. */
ORX_API int STR_is_integer(const char *s);

/* True when s is an optional sign, digits (possibly none), optionally '.'
 * and digits, and optionally 'e' or 'E' with an optional sign and at least
 * one digit, and nothing else.  A lone sign (even a lone ".") is accepted;
 * the empty string and an exponent letter with no digits are refused. */
ORX_API int STR_is_real(const char *s);

/* --- Words and names ------------------------------------------------------ */

/* Split s in place into its white-space separated words: the character
 * ending each word is overwritten with a terminator.  Returns a new string
 * array of pointers into s, one per word (an empty array for a string with
 * no words).  Free the array alone (not its elements) with free() or
 * ERR_free(); s keeps the text.  NULL when s is NULL or memory ran out, in
 * which case s is unchanged. */
ORX_API char **STR_parse(char *s);

/* Cut path in place at its last '/' (a run of '/' counts as one separator
 * and the cut is at its first) and return path.  When path has no '/',
 * return NULL and leave it unchanged. */
ORX_API char *STR_head(char *path);

/* Pointer to what follows the last '/' of path, or path itself. */
ORX_API char *STR_tail(const char *path);

/* Cut name in place at its last '.' and return it (unchanged when it has
 * none). */
ORX_API char *STR_root(char *name);

/* Pointer to what follows the last '.' of name, or NULL when there is
 * none. */
ORX_API char *STR_extension(const char *name);

/* A host prefix is a non-empty host name, a ':', then the path, with no '/'
 * before that ':' ("machine:/images/a.rla").  When name starts with one,
 * STR_host cuts name at the ':' in place and returns it (leaving the host
 * name); otherwise it returns NULL and leaves name unchanged. */
ORX_API char *STR_host(char *name);

/* Pointer past the last ':' that comes before the first '/' of name, or
 * name itself when there is no such ':'. */
ORX_API char *STR_host_remove(const char *name);

/* When name has a host prefix, copy the host name into buffer (if buffer is
 * not NULL; it must have room) and return 1; otherwise return 0. */
ORX_API int STR_filename_host(char *buffer, const char *name);

/* Expand environment variables in name: leading white space is skipped,
 * then each '$' followed by a name, or by a name in braces ("${NAME}"),
 * made of letters, digits and '_', is replaced by that variable's value.
 * A '$' not followed by such a name is kept as it is.  On success stores a
 * new copy of the expanded text in *result and returns 1.  When a variable
 * is not set, stores a new copy of that variable's name in *result and
 * returns 0.  When memory runs out or name is NULL, stores NULL and returns
 * 0.  The caller frees *result.  Variable names and the expanded text are
 * limited to 259 characters: going past that is a caller fault, reported as
 * FATAL (the default handler aborts; when a handler stops the report, the
 * call stores NULL and returns 0). */
ORX_API int STR_expand_filename(const char *name, char **result);

/* Make an absolute file name in buffer from directory and name, and return
 * buffer.  A NULL or empty name gives an empty buffer.  A name starting
 * with '/' or with a host prefix is copied unchanged.  Otherwise the leading
 * "." and ".." components of name are consumed; directory is copied with
 * one trailing component removed per "..", and the rest of name follows
 * after a single '/'.  When directory runs out of components the result is
 * "/" followed by the rest of name.  Buffer needs room for the directory
 * and the name together plus two bytes; it may be the same block as
 * directory but must not overlap name.  NULL when buffer is NULL. */
ORX_API char *STR_filename_absolute(char *buffer, const char *directory, const char *name);

/* Express name relative to directory in buffer, and return buffer: a ".."
 * for each component of directory not shared with name, then the rest of
 * name ("." when they are the same place).  "." components and runs of '/'
 * are ignored.  The name is copied unchanged when it is NULL or empty
 * (giving ""), has a host prefix, when directory is NULL or empty, when one
 * of them is absolute and the other not, or when the unshared part of
 * directory holds a ".." (clean both with STR_filename_clean first for the
 * best result).  Buffer needs room for the name plus three bytes per
 * directory component; it must not overlap the arguments.  NULL when buffer
 * is NULL. */
ORX_API char *STR_filename_relative(char *buffer, const char *directory, const char *name);

/* Tidy a path in place and return it: a host prefix is left untouched;
 * runs of '/' collapse to one; "." components are dropped; each ".." is
 * removed with the component before it, except that a ".." with nothing
 * before it, or after another "..", is kept and a ".." right after a
 * leading '/' is dropped; a trailing '/' is dropped (a lone "/" stays); an
 * empty result becomes "." (so an empty path needs a two-byte buffer). */
ORX_API char *STR_filename_clean(char *name);

/* --- Hashing, sorting and shared strings ---------------------------------- */

/* h = h * 33 + c over the characters of s (as signed bytes, in 32-bit
 * unsigned arithmetic, h starting at 0), then h modulo modulus.  NULL and
 * the empty string hash to 0; so does everything when modulus is 0 (a
 * caller fault). */
ORX_API uint32_t STR_hash(const char *s, uint32_t modulus);

/* Sort a string array in place by STR_compare (STR_sort) or by the
 * locale's collation, strcoll (STR_sort_collate), with heap sort (not
 * stable).  Return the array. */
ORX_API char **STR_sort(char **array);
ORX_API char **STR_sort_collate(char **array);

/* The shared copy of s from the library's table of shared strings: created
 * with one reference, or the existing one with one more.  Equal strings
 * give the same pointer.  The copy belongs to the table: never free it or
 * write into it; give each reference back with STR_undefine.  NULL when s
 * is NULL or memory ran out. */
ORX_API char *STR_define(const char *s);

/* Drop one reference to the shared string equal to s; the last one frees
 * it.  A string not in the table is ignored.  Returns 0. */
ORX_API int STR_undefine(const char *s);

/* STR_undefine every string of the array, then free the array itself.
 * Returns 0. */
ORX_API int STR_undefine_array(char **array);

ORX_END_DECLS

#endif /* ORX_STR_H */
