/* liborx: format-specific settings (capabilities).
 *
 * A format may offer settings of its own beyond what ORX_INFO describes
 * (compression, quality...).  It publishes them as a capability table
 * (ORX_CAP_ENTRY, orx/plugin.h) through its imageCapability function; the
 * library checks every table once when the registry is built (ORX_init),
 * replacing each name that has a second name by a copy of the second name
 * (owned by the library until ORX_exit) and counting each list.
 *
 * An application asks for settings with a NULL-terminated pointer array of
 * ORX_CAP_SETTING (see orx/ptr.h), put in ORX_INFO.settings.
 */
#ifndef ORX_CAPABILITY_H
#define ORX_CAPABILITY_H

#include <stdint.h>

#include "orx/export.h"
#include "orx/plugin.h"

ORX_BEGIN_DECLS

/* --- Settings --------------------------------------------------------------- */

/* An array of n settings in one block, each with code ORX_CAP_UNSET and
 * value 0.  Free it with ERR_free.  NULL (reported, "No more internal
 * memory") when memory is short. */
ORX_API ORX_CAP_SETTING *ORX_cap_setting_alloc(int32_t n);

/* A deep copy of a NULL-terminated pointer array of settings: a new pointer
 * array of the same length, each setting in its own allocation.  Free each
 * setting and then the array with ERR_free.  NULL for a NULL or empty array.
 * When memory runs out the report "No more internal memory" is made and the
 * copy built so far is returned, terminated where it stopped (NULL when not
 * even the array could be had). */
ORX_API ORX_CAP_SETTING **ORX_cap_setting_copy(ORX_CAP_SETTING **settings);

/* Non-zero when every setting of a is matched in b.  A NULL or empty a equals
 * a NULL or empty b; a non-empty a never equals a NULL or empty b.  Each
 * setting of a is looked for in b by code, starting where the previous one
 * was found (so b must hold the codes in the same order, and may hold more);
 * the values then compare as integers (ORX_CAP_INTEGER) or floats
 * (ORX_CAP_FLOAT, a NaN equals nothing).  Any other code is reported
 * ("Unknown type-specific capability code (%d) ...", a warning) and makes
 * the arrays unequal.  Settings of b that a does not ask for do not count. */
ORX_API int ORX_cap_setting_compare(ORX_CAP_SETTING **a, ORX_CAP_SETTING **b);

/* --- Capability tables ------------------------------------------------------- */

/* The capability table of the format with that key (or, with a NULL key, of
 * format), with the format's entry count and its two further counts; the
 * table belongs to the format.  A format without imageCapability, a NULL
 * key and format, or an unknown key (reported: "Unknown file type key ...")
 * give a NULL table and zero counts.  Out-arguments may not be NULL. */
ORX_API void ORX_info_get_specific(const char *key, const ORX_FORMAT *format,
                                   ORX_CAP_ENTRY **table, int32_t *first, int32_t *second,
                                   int32_t *count);

/* The largest first and second counts any registered format's
 * imageCapability reported (0 before ORX_init).  Either pointer may be
 * NULL. */
ORX_API void ORX_info_num_specific(int32_t *first, int32_t *second);

/* Ask the format's imageCapsAvailUpdate to refresh which capabilities are
 * available; argument and flag pass through.  Returns its answer, or 0 when
 * format is NULL or has no such function. */
ORX_API uint8_t ORX_capabilities_available(const ORX_FORMAT *format, intptr_t argument,
                                           uint8_t flag);

/* Mark a capability available (available non-zero: clears
 * ORX_CAP_UNAVAILABLE in entry->state) or unavailable (sets it).  Returns 1
 * when the state changed, 0 when it already was so or entry is NULL. */
ORX_API int ORX_set_available(ORX_CAP_ENTRY *entry, int available);

/* --- A format's own settings dialog ------------------------------------------ */

/* Show format's settings dialog.  A dialog still open (of any format) is
 * first closed with its popdown function, called with
 * ((intptr_t)format, a, b, c).  Then, when the format has both
 * imagePrivateUIPopup and imagePrivateUIPopdown, its popdown is remembered
 * and the result of its popup(a) returned; otherwise orx__err and the
 * result are -16.  One dialog is open at a time in the whole library. */
ORX_API int ORX_private_ui_popup(const ORX_FORMAT *format, intptr_t a, intptr_t b, intptr_t c);

/* Close the open dialog: call the remembered popdown with the four
 * arguments, forget it and return its result; 0 when no dialog is open. */
ORX_API int ORX_private_ui_popdown(intptr_t a, intptr_t b, intptr_t c, intptr_t d);

ORX_END_DECLS

#endif /* ORX_CAPABILITY_H */
