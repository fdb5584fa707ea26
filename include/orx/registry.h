/* liborx: the format registry, and the open, scanline, seek and close path.
 *
 * The library knows formats only through its registry: the plug-in modules
 * the host hands to ORX_init (see orx/plugin.h and docs/writing-plugins.md)
 * and the formats built into the library: "pipe", "mem" and "rla" (the
 * default format).  Most entry points initialise the registry lazily when
 * the host has not (announced by a DEBUG report "orx, initializing database
 * for ... request").
 *
 * Strings returned by the registry belong to it and stay valid until
 * ORX_exit, unless said otherwise.  Failures leave a status in orx__err
 * (orx/err.h) and are reported through the error service.
 *
 * Threads: ORX_open, ORX_get_file_type and ORX_close serialise on one
 * library mutex; scanline, seek and close calls on one object serialise on
 * that object's mutex, so different objects may be used from different
 * threads at once.  The other registry queries take no lock: use them from
 * one thread, or under the host's own lock.
 */
#ifndef ORX_REGISTRY_H
#define ORX_REGISTRY_H

#include <stdint.h>
#include <stdio.h>

#include "orx/export.h"
#include "orx/orx.h"
#include "orx/plugin.h"

ORX_BEGIN_DECLS

/* --- Initialisation --------------------------------------------------------- */

/* Build the registry: keep the message catalogue handle (passed to every
 * report), initialise the format-defaults and colour databases, register
 * each plug-in that plugins yields (may be NULL: built-in formats only) and
 * then the built-in formats.  A refused plug-in is reported and skipped:
 * "%s: %s must be defined" for a missing version, imageKey, imageName,
 * imageOrientation or open function; the version message when version is
 * not "3.2"; silently when its imageInit returns 0.  A later plug-in
 * replaces an earlier one with the same key.  The multi-frame cache holds
 * KV_ORX_MULTIFRAME_OPEN objects (15 when unset).  Returns 0 (also when
 * already initialised, which rewinds ORX_info), or -1 when memory ran out
 * (orx__err -10) or a database or built-in format failed to start; the
 * registry is then left uninitialised. */
ORX_API int ORX_init(void *message_catalogue, ORX_PLUGIN_ENUM plugins);

/* Call each plug-in's imageDone in registration order, free the registry
 * and the "mem" store, and shut down the colour and format-defaults
 * databases.  Returns 0; does nothing when not initialised. */
ORX_API int ORX_exit(void);

/* --- Queries ---------------------------------------------------------------- */

/* The first format whose key, or else whose extension, equals key exactly
 * (case-sensitive); NULL when none.  The record belongs to the registry. */
ORX_API ORX_FORMAT *ORX_find(const char *key);

/* Iterate over the plug-in formats (built-in ones are skipped): each call
 * returns the next one, NULL when none is left.  ORX_init rewinds. */
ORX_API ORX_FORMAT *ORX_info(void);

/* The display name of the format found by ORX_find(key); key itself when
 * the format has no name, or when it is unknown (then reported: "Unknown
 * file type key ...").  NULL for a NULL key. */
ORX_API const char *ORX_name_from_key(const char *key);

/* The library defaults: format key "rla" and base name "im" of image files
 * (NULL when the registry could not start). */
ORX_API const char *ORX_def_key(void);
ORX_API const char *ORX_def_base_name(void);

/* Ask every format's file test, in registry order (plug-ins first), whether
 * the file (name, or stream when not NULL) is of its format; returns the key
 * of the first that says yes.  *known (when known is not NULL) is set to 1,
 * and to 0 when some format asked (before the one that says yes, if any) has
 * no file test.  When none says yes: "__none_" if *known stayed 1, else NULL. */
ORX_API const char *ORX_get_file_type(const char *name, FILE *stream, int32_t *known);

/* With a NULL key, ORX_get_file_type.  Otherwise test only the formats whose
 * key equals key (the one that matched last time first) and return the key
 * when one says yes, else NULL; *known as above. */
ORX_API const char *ORX_is_file_type(const char *name, FILE *stream, const char *key,
                                     int32_t *known);

/* Non-zero when the format ORX_find(key) exists and can read (access bit 4)
 * or write (bit 8); 0 for a NULL or unknown key.  No lazy initialisation. */
ORX_API int ORX_hasReadSupport(const char *key);
ORX_API int ORX_hasWriteSupport(const char *key);
/* 1 when the plug-in with that key stores many frames in one file
 * (imageMultiFrame 2 or more), else 0. */
ORX_API int ORX_isMultiFrameFormat(const char *key);

/* --- Plug-in name queries ----------------------------------------------------
 * These read the registered plug-ins only (not the built-in formats) and do
 * not initialise the registry.  Bad arguments print a line on standard error
 * ("NULL pointer passed", "NULL key passed in", "NULL pluginName passed in",
 * "NULL buffer passed in") and give 0 or -1; with no plug-ins they print
 * "Plugins not loaded, so Load!!" and give an empty result.  Buffers are the
 * caller's and must be large enough; the _sized variants below take their
 * capacity. */

/* Store each plug-in's key (owned by the registry) in keys; returns the count. */
ORX_API int ORX_getFormatKeys(char **keys);
/* Store a copy of each plug-in's name in names (free each with ERR_free);
 * returns the count. */
ORX_API int ORX_getPluginNames(char **names);
/* Store each plug-in's extension (owned by the registry); returns the count. */
ORX_API int ORX_getPluginExtensions(char **extensions);
/* Write "*EXT;" for each plug-in, one after another, into buffer (emptied
 * first); returns the count. */
ORX_API int ORX_getOnlyExtensions(char *buffer);
/* Copy into buffer the name of the plug-in with that key (0), or -1. */
ORX_API int ORX_getPluginNameFromKey(const char *key, char *buffer);
/* Copy into buffer the key, or the extension, of the plug-in with that
 * name (0), or -1. */
ORX_API int ORX_getKeyFromPluginName(const char *name, char *buffer);
ORX_API int ORX_getExtFromPluginName(const char *name, char *buffer);
/* The extension of the plug-in with that key (0), or -1. */
ORX_API int ORX_getExtFromFormatKey(const char *key, char *buffer);
/* File-dialog filters: for each plug-in two NUL-terminated texts, "NAME
 * (*EXT)" and "*EXT" ("NAME (all formats)" when the pattern is 25
 * characters or longer), then an empty text.  Returns the byte size of the
 * last pair written (not of the whole list), 0 when none. */
ORX_API int ORX_getPluginNamesWithFilters(char *buffer);

/* Sized variants of the five getters above that write into a buffer: the
 * same text, but at most capacity bytes of it are stored in buffer, which is
 * always terminated when capacity is not 0 (a longer text is cut).  *needed
 * (when needed is not NULL) receives the bytes the whole text takes with
 * its terminator, so a host may ask with capacity 0 (buffer may then be
 * NULL), allocate, and ask again.  Return values are the unsized ones';
 * *needed is 0 when nothing was found.  ORX_getExtFromFormatKey_sized
 * gives the extension of the plug-in with that key. */
ORX_API int ORX_getOnlyExtensions_sized(char *buffer, size_t capacity, size_t *needed);
ORX_API int ORX_getPluginNameFromKey_sized(const char *key, char *buffer, size_t capacity,
                                           size_t *needed);
ORX_API int ORX_getKeyFromPluginName_sized(const char *name, char *buffer, size_t capacity,
                                           size_t *needed);
ORX_API int ORX_getExtFromPluginName_sized(const char *name, char *buffer, size_t capacity,
                                           size_t *needed);
ORX_API int ORX_getExtFromFormatKey_sized(const char *key, char *buffer, size_t capacity,
                                          size_t *needed);
ORX_API int ORX_getPluginNamesWithFilters_sized(char *buffer, size_t capacity, size_t *needed);

/* Not for applications: keeps internal routines referenced; prints a note. */
ORX_API void ORX_symbols(void);

/* --- Open, scanlines, seek and close ---------------------------------------- */

/* Open the image that info describes, mode "r" or "w" exactly.  The format
 * is info->type (a key, or else an extension); without a type, the first
 * format whose extension ends info->handle, else "rla".  A write open needs
 * info->handle and copies the whole request into the object, filling a
 * missing machine, user and date ("{seconds}") from the system, "unknown"
 * for other missing strings, and a job of 0 from KV_JOB_NUM when set.
 * info stays the caller's.  Returns the image object, or NULL with
 * orx__err -4 (no such format), -5 (no handle), -10 (memory), -16 (the
 * format cannot read or write) or the format's own status; each reported.
 * An info that was never initialised gets a three-line complaint on
 * standard error, and the open carries on. */
ORX_API ORX_OBJECT *ORX_open(ORX_INFO *info, const char *mode);

/* Read line into the format's own buffer: *channels receives its channel
 * scanline buffer (valid until the next call on the object).  The buffer is
 * the format's: read it, do not write into it (a format may hand rows it
 * left untouched back for the next line; copy a row to change it).  Returns 0, or
 * a negative status (-16 when the object cannot scan).  On success the
 * object's current line becomes line. */
ORX_API int ORX_scan_read(ORX_OBJECT *object, int32_t line, void ***channels);
/* Write line from the caller's channel scanline buffer; as ORX_scan_read.
 * Only on an object opened with "w": the call goes to the same scan function
 * as a read, so on an object opened for reading it reads line instead and
 * overwrites channels[0] with a pointer to the format's own buffer, losing
 * the caller's first row pointer (keep a copy of it to free the buffer). */
ORX_API int ORX_scan_write(ORX_OBJECT *object, int32_t line, void **channels);
/* The same through the format's direct-scan slot, which moves a line
 * straight into (or from) the caller's layout; a1..a5 pass through. */
ORX_API int ORX_direct_scan_read(ORX_OBJECT *object, int32_t line, void *a1, void *a2, void *a3,
                                 void *a4, void *a5);
ORX_API int ORX_direct_scan_write(ORX_OBJECT *object, int32_t line, void *a1, void *a2, void *a3,
                                  void *a4, void *a5);

/* Position *object so that the next read returns line (-1: the first line in
 * scan order).  A format that reads lines in order is read forward, or, for
 * a line already passed, closed and opened again: *object then points to
 * the new object (NULL when reopening failed).  Returns orx__err. */
ORX_API int ORX_seek(ORX_OBJECT **object, int32_t line);

/* Close the object (completing a written file) and free it, unless the
 * multi-frame cache keeps it.  Returns the format's close status. */
ORX_API int ORX_close(ORX_OBJECT *object);
/* Call the object's close function with argument, bypassing the cache. */
ORX_API int ORX_close_do_it(ORX_OBJECT *object, intptr_t argument);

ORX_END_DECLS

#endif /* ORX_REGISTRY_H */
