/* liborx: name syntaxes and the building of numbered file names.
 *
 * A name syntax is a short pattern saying how a format builds the file name
 * of an image from a base name, a frame number and an extension, for example
 * "name.####.ext" (what a format plug-in publishes as imageNameSyntax).  It
 * is matched without regard to case and is made of:
 *
 *   "name"          the base name; repeats written back to back are one token
 *   "ext"           the format's extension, at most once
 *   a run of "#"    the frame number, at most one run; its length is the
 *                   field width
 *   punctuation     a separator, copied literally ("/" is never allowed)
 *
 * A syntax is valid when it is not empty, holds no "/", no character of code
 * 128 or above, no letters other than the two tokens, at most one "ext" and
 * at most one run of "#", and at least one "name" or run of "#".
 *
 * Status: every function here leaves 0 in orx__err on success and, on
 * failure, ORX_E_EMPTY_SYNTAX for an empty syntax, ORX_E_BAD_SYNTAX for an
 * invalid one and ORX_E_NO_MEMORY when memory is short.  None of them sends
 * an error report.
 *
 * Threads: the functions share one lower-cased working copy of the syntax and
 * the parser's state; call them from one thread at a time.  Token texts and
 * the parse result's pointers stay valid until the next call of any function
 * of this header. */
#ifndef ORX_NAMING_H
#define ORX_NAMING_H

#include <stdint.h>

#include "orx/export.h"

ORX_BEGIN_DECLS

/* Status codes of this header (see also orx/err.h). */
#define ORX_E_BAD_SYNTAX (-11)
#define ORX_E_EMPTY_SYNTAX (-13)

/* Token kinds (ORX_NAME_TOKEN.kind). */
#define ORX_TOKEN_END 0       /* end of the syntax; length 1, text at the NUL */
#define ORX_TOKEN_EXT 1       /* the extension token "ext" */
#define ORX_TOKEN_FRAME 3     /* a run of "#"; length is the frame width */
#define ORX_TOKEN_NAME 4      /* the base-name token, repeats merged */
#define ORX_TOKEN_SEPARATOR 5 /* a run of punctuation, copied literally */

/* One token of a parsed syntax.  Fields in this order are part of the
 * interface; the reserved ones are 0 after parsing. */
typedef struct ORX_NAME_TOKEN {
  int32_t reserved1;
  int32_t reserved2;
  int64_t reserved3;
  int32_t default_width; /* 4 after parsing: the usual frame width */
  int32_t build_flags;   /* 0 after parsing; free for path building */
  int32_t length;        /* characters of the token */
  const char *text;      /* first character, inside the lower-cased copy */
  int32_t reserved4;
  int64_t reserved5;
  int32_t kind;          /* ORX_TOKEN_END .. ORX_TOKEN_SEPARATOR */
} ORX_NAME_TOKEN;

/* 1 when syntax is valid, else 0.  A NULL or empty syntax gives 0 with
 * ORX_E_EMPTY_SYNTAX. */
ORX_API int ORX_name_syntax_verify(const char *syntax);

/* 1 when syntax is valid and holds the extension token, else 0.  A NULL
 * syntax is treated as empty. */
ORX_API uint8_t ORX_name_syntax_has_ext(const char *syntax);

/* 1 when the syntax ends with "ext" in any case, whether it is valid or not;
 * 0 otherwise, and for NULL or "" (status ORX_E_EMPTY_SYNTAX). */
ORX_API uint8_t ORX_name_syntax_ends_ext(const char *syntax);

/* 1 when the syntax holds a "#" anywhere, without checking validity
 * (orx__err -13 for "").  NULL is an application programming error: it is
 * printed to standard error and the answer is 0. */
ORX_API uint8_t ORX_name_syntax_has_frame(const char *syntax);

/* The library's base-name token, "name" (a static string). */
ORX_API const char *ORX_name_syntax_name(void);

/* Splits syntax into tokens.  Call with depth 0; a depth above 0 parses
 * syntax as it stands (not lower-cased, the flags of the previous parse kept)
 * into records from that index on, the records before it zeroed.  The parser
 * loops rather than recursing, so a syntax of any length parses in constant
 * stack.  On success stores through tokens a new
 * array, one record per token in order followed by an ORX_TOKEN_END record,
 * and returns 1; free the array with free() or ERR_free.  The records' text
 * pointers point into the library's working copy, valid until the next call
 * of a function of this header.  On failure returns 0, leaves *tokens alone
 * and sets orx__err. */
ORX_API uint8_t ORX_parse_name_syntax(const char *syntax, ORX_NAME_TOKEN **tokens, int32_t depth);

/* Builds the file name that syntax gives for base, frame and extension:
 * "name" becomes base, the run of "#" the frame number with at least as many
 * digits as the run is long (zero-padded; wider numbers keep all their
 * digits; a negative number gets its "-" in front of the padded digits, as
 * printf's "%.4d" does), "ext" the extension, and separators are copied.
 * An extension that starts with "." right after a separator ending in "."
 * keeps only one dot: "name.####.ext", "shot", 7, ".rla" gives
 * "shot.0007.rla".  A NULL or empty extension drops the "ext" token and the
 * separator right before it ("shot.0007"); a NULL base counts as "".
 * Returns a new string to free with ERR_free, or NULL with orx__err set as
 * the parser sets it (ORX_E_BAD_SYNTAX for an invalid syntax). */
ORX_API char *ORX_pathname_build_from_name_syntax(const char *syntax, const char *base,
                                                  int32_t frame, const char *extension);

/* Builds a file name from a printf-style format taking, in this order, the
 * base name (%s), the frame number (%d) and the extension (%s), such as the
 * registry's default "%s.%04.4d%s".  Trailing conversions may be left out
 * ("%s.%04d" ignores the extension, "%s" both frame and extension).  Flags,
 * field widths and precisions are allowed, "*" and length modifiers are not;
 * "%%" is a literal percent sign.  NULL base or extension counts as "".
 * Returns a new string to free with ERR_free, or NULL with orx__err set:
 * ORX_E_EMPTY_SYNTAX for a NULL or empty format, ORX_E_BAD_SYNTAX for any
 * other conversion sequence, ORX_E_NO_MEMORY. */
ORX_API char *ORX_pathname_build_no_name_syntax(const char *format, const char *base,
                                                int32_t frame, const char *extension);

/* Builds a file name for the format named by key (ORX_find): from the
 * format's name syntax when it has one, else from its format string, with the
 * format's extension unless its add-extension flag is 0.  Returns a new
 * string to free with ERR_free, or NULL with orx__err set as the two builders
 * set it, or -4 with a report for an unknown key. */
ORX_API char *ORX_pathname_build(const char *key, const char *base, int32_t frame);

/* Looks for the frames first..last of a sequence in directory: builds each
 * frame's name as ORX_pathname_build_from_name_syntax does, joined to
 * directory with "/" (NULL or "" means the current directory), and checks
 * that the file exists.  When exists is not NULL it receives last - first + 1
 * flags, 1 for a frame found, in frame order.  Returns the number of frames
 * found (0 when last < first), or -1 with orx__err set as the builder sets
 * it; after -1 the flags are only partly written. */
ORX_API int32_t ORX_pathname_probe_frames(const char *directory, const char *syntax,
                                          const char *base, const char *extension, int32_t first,
                                          int32_t last, uint8_t *exists);

ORX_END_DECLS

#endif /* ORX_NAMING_H */
