/* liborx: error reporting and allocation (the ERR_ family).
 *
 * Every failure, warning and progress note of the library is a report: a
 * severity plus a message.  A report passes down a chain of handlers that the
 * host declares (newest first) and ends in the default handler, which writes
 * "SEVERITY, message" to standard error; a FATAL report then aborts.  Beside
 * the report, a failing library function leaves a status code in orx__err.
 *
 * Reports may come from several threads at once (image objects used on
 * separate threads report their own failures): each report is formatted and
 * delivered whole, one at a time, and its handlers run on the reporting
 * thread, so a handler sees one report at a time and may report again.  The
 * rest of the service is set-up state to be used from one thread at a time:
 * declaring and cancelling handlers, masks, counters and the ring of recent
 * reports.  orx__err is shared by every thread; each thread also keeps its
 * own status and message (ORX_last_status, ORX_last_message), which is the
 * one to read when the library is used from several threads.
 */
#ifndef ORX_ERR_H
#define ORX_ERR_H

#include <stddef.h>
#include <stdint.h>

#include "orx/export.h"

ORX_BEGIN_DECLS

/* Severities: indexes into the names "DEBUG", "INFORMATION", "WARNING",
 * "ERROR" and "FATAL". */
#define ERR_DEBUG 0
#define ERR_INFORMATION 1
#define ERR_WARNING 2
#define ERR_ERROR 3
#define ERR_FATAL 4

/* Status codes left in orx__err by failing library functions. */
#define ORX_OK 0
#define ORX_E_BAD_SCANLINE (-2)
#define ORX_E_INVALID_TYPE (-4)
#define ORX_E_FIELD_MISSING (-5)
#define ORX_E_UNDECODABLE (-7)
#define ORX_E_NOT_OUR_FILE (-8)
#define ORX_E_NO_MEMORY (-10)
#define ORX_E_UNSUPPORTED (-16)
#define ORX_E_READ (-18)
#define ORX_E_DIMENSIONS (-19)
#define ORX_E_WRITE (-20)

struct ERR_RECORD;

/* A handler receives (name, severity, message, record or NULL, data).  It
 * returns 0 when it has handled the report, which then goes no further, and
 * non-zero to pass it on to the next handler. */
typedef int (*ERR_HANDLER)(const char *name, int severity, const char *message,
                           struct ERR_RECORD *record, intptr_t data);

/* One declared handler in a chain.  Nodes are owned by the library. */
typedef struct ERR_HANDLER_NODE {
  struct ERR_HANDLER_NODE *next;
  ERR_HANDLER handler;
  intptr_t data;
} ERR_HANDLER_NODE;

/* An error record, declared (usually static) by a module that reports
 * through ERR_report.  The library keeps only pointers to it. */
typedef struct ERR_RECORD {
  unsigned char kind;        /* free for the declaring module */
  unsigned char severity;    /* ERR_DEBUG .. ERR_FATAL */
  uint32_t flags;            /* bit 0: this record is masked */
  const char *name;          /* handed to every handler as its first argument */
  const char *format;        /* message in the mini-format, see ERR_report */
  uint32_t count;            /* times reported, masked or not */
  ERR_HANDLER handler;       /* optional handler of this record alone */
  ERR_HANDLER_NODE *chain;   /* handlers declared on this record */
  intptr_t info1;            /* returned by ERR_query, not interpreted */
  intptr_t info2;
  const char *const *arg_names; /* optional names of the format's arguments */
} ERR_RECORD;

/* Last failure status of the library (0 after success).  One variable for
 * the whole process, written by every library call on every thread: its
 * value is meaningful only on the thread that made the failing call, and
 * only while no other thread is inside the library.  A host that calls the
 * library from several threads reads ORX_last_status instead (below), or
 * takes the status from the call's return value. */
ORX_API extern int32_t orx__err;
/* Message catalogue handle passed with every library report; NULL unless
 * the host sets it.  The default texts are used either way. */
ORX_API extern void *orx__msg_cat;

/* --- The calling thread's status ---------------------------------------- *
 *
 * Beside orx__err every thread keeps its own status: each time a library
 * call sets, clears or leaves orx__err, it does the same to the status of
 * the thread it runs on, so on a single thread the two always agree.  Other
 * threads' calls never change it.  A threaded host (a renderer reading
 * textures on every core, a tool converting frames in parallel) reads these
 * after a call on the same thread, never orx__err.
 */

/* The status the calling thread's last library call left: the value the
 * call wrote in orx__err (0 after a call that clears it on success), and
 * whatever an earlier call left when this one does not touch it. */
ORX_API int32_t ORX_last_status(void);

/* Why the calling thread's last failure failed: "" while its status is 0;
 * otherwise the message of the ERROR (or FATAL) report made on this thread
 * for that failure (cut at 255 characters), or, when the failure made none,
 * ORX_strerror of the status.  Masked reports count too; handlers do not
 * change it.  The text belongs to the thread and stays valid until its next
 * library call. */
ORX_API const char *ORX_last_message(void);

/* A short English description of a status code ("out of memory" for -10,
 * "success" for 0, "unknown status" for a code the library never sets).
 * Static text; never NULL. */
ORX_API const char *ORX_strerror(int32_t status);

/* For format plug-ins: set orx__err and the calling thread's status
 * together, as the library's own failures do.  A plug-in that writes
 * orx__err directly is seen by single-threaded hosts only; the library then
 * takes the status a failing plug-in function returns. */
ORX_API void orx__set_err(int32_t status);

/* --- Reporting ----------------------------------------------------------- */

/* Report through a record.  The variable arguments follow the record's
 * format, written in the mini-format: "%d" (int), "%f" (double), "%s"
 * (string) and "%%"; "%c" prints nothing and takes no argument; any other
 * "%x" is copied as is.  No flags, widths or precisions.  Messages are cut
 * at 255 characters.  Raises the record's count and its severity's counter
 * even when masked.  Always returns 0. */
ORX_API int ERR_report(ERR_RECORD *record, ...);

/* Report with catalogue coordinates (catalogue, set, number) and a default
 * printf format, which is what the message is built from.  Returns what the
 * last handler that ran returned (0 from the default handler). */
ORX_API int ERR_report_cat(void *catalogue, int set, int number, int severity,
                           const char *format, ...) ORX_PRINTF(5, 6);

/* Report a printf-formatted message of the given severity.  Returns what
 * the last handler that ran returned. */
ORX_API int ERR_printf(int severity, const char *format, ...) ORX_PRINTF(2, 3);

/* Report a system error number at ERROR severity: "prefix: strerror text"
 * for errnum > 0, "prefix: error N" for errnum < 0 (without the "prefix: "
 * when prefix is NULL or empty).  errnum 0 reports nothing.  Returns what
 * ERR_printf returned, or 0. */
ORX_API int ERR_report_errno(int errnum, const char *prefix);

/* Multi-process gate: with flag non-zero returns 0 unless the gate is set;
 * with flag zero records value and returns 1 unless the gate is set.
 * Nothing in the library sets the gate. */
ORX_API int ERR_report_mp(int value, int flag);

/* --- Formatting without reporting --------------------------------------- */

/* Build the record's message into buffer with the mini-format.  When the
 * global mask, the record's severity mask or the record's own mask is set,
 * buffer is returned untouched (not even terminated).  Returns buffer. */
ORX_API char *ERR_format(char *buffer, ERR_RECORD *record, ...);

/* Build a display template of the record's message into buffer: "%%"
 * becomes "%" and every other conversion "<name>", the name taken from the
 * record's arg_names or, when there is none (or a NULL entry is reached),
 * the conversion's type word ("character", "integer", "real", "string" or
 * "unknown type").  Masks are not consulted.  Returns buffer. */
ORX_API char *ERR_format_fill(ERR_RECORD *record, char *buffer);

/* --- Handlers ------------------------------------------------------------ */

/* Push a handler at the head of the record's chain (the global chain when
 * record is NULL); it runs before those declared earlier.  Returns 1, or 0
 * when no memory was left for the node (reported). */
ORX_API int ERR_dcl_handler(ERR_RECORD *record, ERR_HANDLER handler, intptr_t data);

/* Pop the newest handler of the record's chain (global when NULL) and
 * return its function, or NULL when the chain is empty. */
ORX_API ERR_HANDLER ERR_can_handler(ERR_RECORD *record);

/* The default handler: writes "SEVERITY, message\n" to standard error; for
 * FATAL it also shows a "Fatal Error" box where the platform has one and
 * aborts the process.  Returns 0. */
ORX_API int ERR_def_handler(const char *name, int severity, const char *message,
                            ERR_RECORD *record, intptr_t data);

/* --- Masks (each returns the previous state, 0 or 1) --------------------- */

/* Mask one record, or every report when record is NULL. */
ORX_API int ERR_mask(ERR_RECORD *record);
ORX_API int ERR_unmask(ERR_RECORD *record);
/* Mask or unmask one severity; DEBUG starts masked.  Out-of-range
 * severities do nothing and return 0. */
ORX_API int ERR_mask_s(int severity);
ORX_API int ERR_unmask_s(int severity);

/* --- Queries ------------------------------------------------------------- */

/* Copy a record's fields out; any output pointer may be NULL. */
ORX_API void ERR_query(const ERR_RECORD *record, int *severity, int *masked, uint32_t *count,
                       const char **name, const char **format, intptr_t *info1,
                       intptr_t *info2);

/* Record of the n-th most recent unmasked report (0 = newest, up to 15);
 * NULL for a slot never written or n out of range.  Reports made through
 * ERR_report_cat share one record (likewise ERR_printf), which describes
 * only the newest report of its kind. */
ORX_API ERR_RECORD *ERR_last(int n);

/* Name of a severity ("DEBUG" .. "FATAL"); "UNKNOWN" outside 0..4. */
ORX_API const char *ERR_type(int severity);

/* Number of reports of a severity; -1 gives the sum over all five; any
 * other value outside 0..4 gives 0. */
ORX_API uint32_t ERR_stats(int severity);

/* Compare a string with a record's name for sorting and searching; skip
 * non-zero ignores the record name's five-character module prefix.  A
 * string shorter than the name compares as a prefix.  Returns -1, 0 or 1. */
ORX_API int ERR_compare(const char *name, const ERR_RECORD *record, int skip);

/* --- Allocation ---------------------------------------------------------- */

/* Allocate size bytes; on failure report "No more internal memory" (message
 * 94, ERROR) and return NULL.  orx__err is not set.  Free with ERR_free. */
ORX_API void *ERR_malloc(uint32_t size);
/* Resize a block from ERR_malloc/ERR_realloc (NULL allocates).  On failure
 * report as ERR_malloc, return NULL and leave the old block as it was. */
ORX_API void *ERR_realloc(void *pointer, uint32_t size);
/* Release a block; NULL is harmless.  Returns 1. */
ORX_API int ERR_free(void *pointer);

ORX_END_DECLS

#endif /* ORX_ERR_H */
