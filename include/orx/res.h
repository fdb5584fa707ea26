/* liborx: resource files and message catalogues.
 *
 * A resource file holds typed, named resources: blocks of bytes, each with a
 * four-character type code and a name.  Hosts keep settings, tables and
 * translated messages in them; the library reads its message catalogues from
 * them.  The layout is in docs/resource-files.md; all numbers are
 * big-endian, so a file reads the same on every machine.
 *
 * Type codes are exactly four printable ASCII characters without blanks.
 * Four of them have a meaning for the dump and the text form:
 *   "TEXT"  text, without a terminating NUL
 *   "INTS"  32-bit signed integers, big-endian
 *   "REAL"  32-bit IEEE floats, big-endian
 *   "ERRO"  a message: one severity byte (0 DEBUG .. 4 FATAL), then its
 *           printf format, without a terminating NUL
 * Names are 1 to 255 bytes, any but NUL; within a type they are unique.
 *
 * Failing functions set orx__err, report one message and return NULL or a
 * negative status: -4 a bad type, name or duplicate, -5 a file that cannot
 * be opened, -7 a syntax error in a text description, -8 a file that is not
 * a well-formed resource file, -10 memory, -18 a failed read, -20 a failed
 * write.  No function keeps state between calls apart from its handle;
 * different handles may be used from different threads.
 */
#ifndef ORX_RES_H
#define ORX_RES_H

#include <stdint.h>
#include <stdio.h>

#include "orx/export.h"

ORX_BEGIN_DECLS

/* One resource of an open file.  The strings belong to the file and stay
 * valid until ORX_res_close. */
typedef struct ORX_RES_ENTRY {
  char type[5];       /* the type code, NUL-terminated */
  const char *name;
  uint32_t size;      /* bytes */
  uint32_t offset;    /* where the bytes start in the file */
} ORX_RES_ENTRY;

typedef struct ORX_RES_FILE ORX_RES_FILE;       /* an open resource file */
typedef struct ORX_RES_BUILDER ORX_RES_BUILDER; /* a resource file being made */

/* --- Reading ---------------------------------------------------------------- */

/* Open path and check its whole index against the file's size: offsets and
 * sizes inside the file, names terminated, entries sorted without
 * duplicates.  Memory taken is bounded by the file's size.  NULL with
 * orx__err -5, -8, -10 or -18 (reported). */
ORX_API ORX_RES_FILE *ORX_res_open(const char *path);
/* Close the file and free everything of it (NULL accepted).  Returns 0. */
ORX_API int ORX_res_close(ORX_RES_FILE *file);

/* The number of resources, and resource index (0 .. count-1, in order of
 * type then name; NULL outside). */
ORX_API int32_t ORX_res_count(const ORX_RES_FILE *file);
ORX_API const ORX_RES_ENTRY *ORX_res_entry(const ORX_RES_FILE *file, int32_t index);
/* The resource of that type and name, by binary search; NULL when there is
 * none (not reported: absence is an answer). */
ORX_API const ORX_RES_ENTRY *ORX_res_find(const ORX_RES_FILE *file, const char *type,
                                          const char *name);
/* Iterate the resources of a type (NULL: of every type), in name order:
 * after NULL gives the first, after an entry the one following it; NULL at
 * the end. */
ORX_API const ORX_RES_ENTRY *ORX_res_next(const ORX_RES_FILE *file, const char *type,
                                          const ORX_RES_ENTRY *after);
/* Read the resource's size bytes into buffer.  0, or -18 (reported). */
ORX_API int ORX_res_read(ORX_RES_FILE *file, const ORX_RES_ENTRY *entry, void *buffer);
/* The resource's bytes in a new block from ERR_malloc, with one NUL byte
 * after them (so TEXT reads as a string); free with ERR_free.  NULL with
 * orx__err -10 or -18. */
ORX_API void *ORX_res_load(ORX_RES_FILE *file, const ORX_RES_ENTRY *entry);

/* Print the index and every resource in the text form that
 * ORX_res_build_text reads: the dump of a file, built again, gives the same
 * file.  TEXT and ERRO print as quoted text, INTS with "%d", REAL with "%f"
 * (or more digits when "%f" would not give the same float back), anything
 * else as hexadecimal bytes.  0, or -18 / -20. */
ORX_API int ORX_res_dump(ORX_RES_FILE *file, FILE *out);

/* --- Writing ---------------------------------------------------------------- */

/* An empty builder; NULL with orx__err -10. */
ORX_API ORX_RES_BUILDER *ORX_res_builder_new(void);
/* Free a builder and the copies it holds (NULL accepted). */
ORX_API void ORX_res_builder_free(ORX_RES_BUILDER *builder);
/* Add a copy of size bytes of data as resource (type, name).  0, -4 for a
 * bad type code or name, -10. */
ORX_API int ORX_res_add(ORX_RES_BUILDER *builder, const char *type, const char *name,
                        const void *data, uint32_t size);
/* Add message (set, number) of a catalogue: an "ERRO" resource named
 * "SET.NUMBER" holding severity and format. */
ORX_API int ORX_res_add_message(ORX_RES_BUILDER *builder, int set, int number, int severity,
                                const char *format);
/* Write every added resource to path.  The file is written beside path
 * under a temporary name and renamed into place only when complete, so a
 * failure never leaves a partial file nor harms an existing one.  0, -4
 * for two resources of the same type and name, -10, -20. */
ORX_API int ORX_res_save(ORX_RES_BUILDER *builder, const char *path);

/* Compile the text form in file text_path (as ORX_res_dump prints it) into
 * the resource file out_path:
 *   # a comment line
 *   resource TYPE "name"      starts a resource; the lines below fill it
 *   text "quoted"             appends the bytes (escapes \" \\ \n \t \r \xHH)
 *   message SEVERITY "fmt"    appends the severity byte and the text
 *   int N N ...               appends 32-bit big-endian integers
 *   real X X ...              appends 32-bit big-endian floats
 *   hex 00ff...               appends bytes
 * 0, or -7 with the line reported, or a status of ORX_res_save. */
ORX_API int ORX_res_build_text(const char *text_path, const char *out_path);

/* --- Message catalogues ------------------------------------------------------- */

/* A message catalogue is a resource file of "ERRO" resources named
 * "SET.NUMBER" (decimal: "902.44").  Open one and pass the handle to
 * ORX_init (or set orx__msg_cat): reports of the library then take their
 * text, and only their text, from the catalogue when it holds that set and
 * number, and the default text otherwise.  The severity stays the
 * reporter's.
 *
 * A translation must take the same arguments as the default text, in the
 * same order: entries whose conversions differ from the library's own
 * message are dropped at open with a warning report, and any entry whose
 * conversions differ from the default text of a report is ignored for that
 * report, so a bad translation cannot mislead printf.  Entries with a
 * malformed name are dropped with a warning too.
 *
 * Open and close catalogues while no other thread is inside the library,
 * as with ORX_init and ORX_exit.  NULL with orx__err as ORX_res_open. */
ORX_API void *ORX_msg_cat_open(const char *path);
/* Close a catalogue; a catalogue still set as orx__msg_cat is unset first.
 * Returns 0, or -4 for a handle that is not an open catalogue. */
ORX_API int ORX_msg_cat_close(void *catalogue);
/* Print the library's own messages in the text form, one "ERRO" resource
 * each, for a translator to start from.  0, or -20. */
ORX_API int ORX_msg_cat_write_defaults(FILE *out);

ORX_END_DECLS

#endif /* ORX_RES_H */
