/* liborx: the plug-in contract, part one: the image object.
 *
 * A format's open functions receive an image object that the core has
 * allocated and filled from the application's request (the embedded
 * ORX_INFO).  A read open fills the descriptors (info.image_count,
 * info.images) from the file; both opens set the private cell and the scan
 * and close slots, and the seek and direct-scan slots when the format
 * supports them, and return non-zero on success.
 *
 * A failing format function reports its message (ERR_report_cat or
 * ERR_printf at ERR_ERROR) and sets its status with orx__set_err
 * (orx/err.h), which sets orx__err and the calling thread's status
 * together, so threaded hosts see it too.
 *
 * The object's layout is part of the contract with plug-ins: fields keep
 * their order and meaning across releases of the same major version.
 */
#ifndef ORX_PLUGIN_H
#define ORX_PLUGIN_H

#include <stdint.h>
#include <stdio.h>

#include "orx/export.h"
#include "orx/orx.h"

ORX_BEGIN_DECLS

struct ORX_OBJECT;
struct ORX_FORMAT;

/* Scanline function: (private data, line number, channel argument); 0 on
 * success, a negative status otherwise.  Reading: the channel argument is a
 * void *** that receives the format's own channel scanline buffer holding
 * the line.  Writing: it is the caller's channel scanline buffer (void **). */
typedef int (*ORX_SCAN_FN)(void *private_data, int32_t line, void *channels);

/* Close function: completes and closes the file, frees the object with
 * orx__free_obj and returns the status.  argument is 0 unless the
 * multi-frame cache closes the object for good. */
typedef int (*ORX_CLOSE_FN)(struct ORX_OBJECT *object, intptr_t argument);

/* Seek function: position so that the next read returns line; 0 or a
 * negative status. */
typedef int (*ORX_SEEK_FN)(void *private_data, int32_t line);

/* Direct scanline function: a line straight into (or from) the caller's
 * layout; the five arguments pass through from the caller unchanged. */
typedef int (*ORX_DIRECT_SCAN_FN)(void *private_data, int32_t line, void *a1, void *a2,
                                  void *a3, void *a4, void *a5);

/* Frame, playback and region slots; their arguments are described with the
 * calls that use them. */
typedef int (*ORX_FRAME_FN)(void *private_data, int32_t frame);
typedef int (*ORX_PLAYBACK_FN)(void *private_data, intptr_t a1, intptr_t a2, intptr_t a3);
/* A format's own region reader: receives ORX_get_region's arguments after
 * the object (see orx/region.h) and leaves its status in orx__err. */
typedef int (*ORX_REGION_FN)(void *private_data, int32_t x_left, int32_t x_right,
                             int32_t y_bottom, int32_t y_top, void *buffer, int32_t stride,
                             int32_t layout);

/* Palette reader of a colour-index format: stores a new ORX_LUT (or NULL)
 * in *lut and returns non-zero on success. */
typedef int (*ORX_LUT_READ_FN)(void *private_data, ORX_LUT **lut);

/* The image object that ORX_open returns. */
typedef struct ORX_OBJECT {
  void **private_cell;          /* the format's private data, one entry per image
                                   (info.image_count entries, allocated with ERR_malloc);
                                   the scan function receives entry 0 */
  ORX_INFO info;                /* the request, copied at open; descriptors filled by the format */
  int32_t access;               /* ORX_ACCESS_READ or ORX_ACCESS_WRITE */
  int32_t reserved0;
  ORX_SCAN_FN scan;
  ORX_CLOSE_FN close;
  ORX_PLAYBACK_FN playback_bind;
  ORX_PLAYBACK_FN playback_goto;
  ORX_PLAYBACK_FN playback_play;
  ORX_PLAYBACK_FN playback_params;
  ORX_PLAYBACK_FN playback_stop;
  ORX_FRAME_FN get_frame;
  ORX_LUT_READ_FN lut_read;     /* palette reader, for colour-index formats */
  ORX_REGION_FN region;
  ORX_FRAME_FN set_frame;
  ORX_SEEK_FN seek;
  int32_t current_line;         /* last line read successfully; -1 at creation */
  const struct ORX_FORMAT *format; /* registry record of the file's format */
  ORX_DIRECT_SCAN_FN direct_scan;
  void *lock;                   /* the object's mutex; owned by the core */
} ORX_OBJECT;

/* --- Plug-in contract, part two: the symbols of a format plug-in ----------
 *
 * A plug-in is a module of the host's loader (what dlopen returned on POSIX)
 * exporting these names; the library binds them with the platform's symbol
 * lookup, in this order.  Two kinds of symbol:
 *   - data symbols (version, imageKey ... imageSupportRemoteAccess) are
 *     variables: the library reads the value at the symbol's address;
 *   - function symbols (imageInit, imageCapability, imageCapsAvailUpdate,
 *     imageReadOpen, imageWriteOpen, imageDone, imageIsFile,
 *     imagePrivateUIPopup, imagePrivateUIPopdown) are functions defined with
 *     the prototypes shown, not pointer variables: the symbol's address is
 *     the function itself.
 * Required: version ("3.2"), imageKey, imageName, imageOrientation, and
 * imageReadOpen / imageWriteOpen when imageAccess has bit 4 / bit 8.  See
 * docs/writing-plugins.md.
 *
 * imageBitsPerChannel (and the matte and Z masks) tell hosts which sample
 * widths the format stores: bit n-1 set means n-bit integer samples (bit 7,
 * 128: 8 bits; bit 15: 16 bits; bit 31: 32 bits), all bits set (-1) means
 * any width.  The library does not enforce the mask: a write open receives
 * whatever the host asked for and must refuse widths it cannot store.
 *
 * imageIsFile(name, stream): with a stream, read from it (rewind it first:
 * the library hands the same stream to each format in turn and does not
 * reposition it, before or after); without one, open name yourself and close
 * it again.  Return 1 for yes, 0 for no; a NULL imageIsFile makes the
 * format's answer "cannot tell".
 *
 * Channel rows in a channel scanline buffer are only 2-byte aligned (each
 * row is rounded up to an even byte count and the rows follow one another
 * in one block): read and write float and double rows with memcpy or
 * unaligned loads, never through a float or double pointer.
 *
 *   const char *version;                "3.2"
 *   int imageInit(void);                optional; 0 drops the plug-in quietly
 *   const char *imageKey;               the format key, unique in the registry
 *   const char *imageExtension;         with its dot; default ""
 *   const char *imageName;              display name
 *   const char *imageDescription;       default NULL
 *   const char *imageFormatString;      numbered file names; default "%s.%04.4d%s"
 *   const char *imageNameSyntax;        e.g. "Name.####.Ext"; default NULL
 *   int imageAddExtension;              default 1
 *   int imageUsage;                     default 1
 *   int imageOrientation;               scanline orientation of the files
 *   int imageBitsPerPaletteEntry;       default 0
 *   int imageNumberOfChannels;          default 3
 *   int imageBitsPerChannel;            width mask (all bits: any width); default 128
 *   int imageNumberOfMattes;            default 0
 *   int imageBitsPerMatte;              default 0
 *   int imageNumberOfZChannels;         default 0
 *   int imageBitsPerZChannel;           default 0
 *   int imageSupportsActiveWindow;      default 0
 *   int imageAccess;                    ORX_ACCESS_* bits; default 12
 *   int imageMultiFrame;                2 or more: one file holds many frames; default 0
 *   uint8_t imageHardLinkDuplicates;    default 1
 *   uint8_t imageSupportRemoteAccess;   default 0
 *
 * Function symbols, with the prototypes to define:
 *   void imageCapability(ORX_CAP_ENTRY **table, int32_t *first,
 *                        int32_t *second, int32_t *count);      optional
 *   uint8_t imageCapsAvailUpdate(intptr_t argument, uint8_t flag); optional
 *   int imageReadOpen(ORX_OBJECT *object);   non-zero on success
 *   int imageWriteOpen(ORX_OBJECT *object);  non-zero on success
 *   void imageDone(void);                     optional; called by ORX_exit
 *   uint8_t imageIsFile(const char *name, FILE *stream); optional
 *   int imagePrivateUIPopup(intptr_t a);      optional
 *   int imagePrivateUIPopdown(intptr_t a, intptr_t b, intptr_t c,
 *                             intptr_t d);    optional
 *
 * The capability table is checked once, at ORX_init: an entry or a list
 * entry without a name is reported ("%s: no name field was found for
 * capability %d ...", severity 2) and checking of that table stops there;
 * the format stays registered and ORX_info_get_specific still hands the
 * table out as it is, so a host sees it complete up to the bad entry.  A
 * list whose default is none of its values stops the process with a
 * message on standard error (it can only come from a broken build).
 */

/* The protocol version a plug-in must declare. */
#define ORX_PLUGIN_VERSION "3.2"

/* Access bits beyond read and write: lines may be read in any order (16),
 * and the format keeps images in memory (32). */
#define ORX_ACCESS_RANDOM 16
#define ORX_ACCESS_MEMORY 32

/* One value of a list capability. */
typedef struct ORX_CAP_LIST_ENTRY {
  int16_t value;
  char *name;
  int32_t has_second;  /* non-zero: second_name replaces name at validation */
  char *second_name;
} ORX_CAP_LIST_ENTRY;

/* The values of a list capability, ended by an entry with neither a name nor
 * has_second. */
typedef struct ORX_CAP_LIST {
  int16_t default_value;
  int32_t count;       /* filled in by the library */
  ORX_CAP_LIST_ENTRY *entries;
} ORX_CAP_LIST;

/* One format-specific setting a format offers. */
typedef struct ORX_CAP_ENTRY {
  int32_t id;          /* the format's own code; not interpreted */
  char *name;
  int32_t has_second;
  char *second_name;
  uint8_t is_value;    /* zero: a choice from list */
  ORX_CAP_LIST *list;
  uint8_t state;       /* ORX_CAP_UNAVAILABLE set: not offered now */
} ORX_CAP_ENTRY;

#define ORX_CAP_UNAVAILABLE 4

/* A setting asked for: code 0 integer, 1 float, ORX_CAP_UNSET not given. */
#define ORX_CAP_INTEGER 0
#define ORX_CAP_FLOAT 1
#define ORX_CAP_UNSET 65535
typedef struct ORX_CAP_SETTING {
  uint16_t code;
  union {
    int32_t i;
    float f;
  } value;
} ORX_CAP_SETTING;

typedef int (*ORX_INIT_FN)(void);
typedef void (*ORX_DONE_FN)(void);
typedef int (*ORX_OPEN_FN)(ORX_OBJECT *object);
/* Whether name (or the open stream, when not NULL) is a file of the format. */
typedef uint8_t (*ORX_IS_FILE_FN)(const char *name, FILE *stream);
/* The format's capability table, its entry count and two further counts. */
typedef void (*ORX_CAPABILITY_FN)(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second,
                                  int32_t *count);
typedef uint8_t (*ORX_CAPS_UPDATE_FN)(intptr_t argument, uint8_t flag);
typedef int (*ORX_POPUP_FN)(intptr_t a);
typedef int (*ORX_POPDOWN_FN)(intptr_t a, intptr_t b, intptr_t c, intptr_t d);

/* The registry's public record of a format (ORX_find, ORX_info). */
typedef struct ORX_FORMAT {
  char *key;
  char *extension;
  char *name;
  char *description;
  int32_t owns_format_string;
  char *format_string;
  char *name_syntax;
  int32_t add_extension;
  int32_t usage;
  int32_t orientation;
  int32_t bits_per_palette_entry;
  int32_t channels;
  int32_t bits_per_channel;
  int32_t mattes;
  int32_t bits_per_matte;
  int32_t z_channels;
  int32_t bits_per_z_channel;
  int32_t active_window;
  int32_t access;
  ORX_CAPABILITY_FN capability;
  ORX_CAPS_UPDATE_FN caps_update;
  int32_t multi_frame;
  uint8_t hard_link;
  uint8_t remote_access;
  ORX_IS_FILE_FN is_file;
  ORX_POPDOWN_FN popdown;
  ORX_POPUP_FN popup;
} ORX_FORMAT;

/* The host's plug-in enumerator: stores the next module handle and the
 * plug-in's name and returns non-zero, or returns 0 when there are no more. */
typedef uint8_t (*ORX_PLUGIN_ENUM)(void **module, const char **name);

/* A new object with access bits and a lock, every slot cleared, current
 * line -1 and the embedded info initialised; NULL with orx__err -10 when
 * memory is short (reported). */
ORX_API ORX_OBJECT *orx__new_obj(int32_t access);

/* Free the object: the embedded info's strings, the descriptors with their
 * strings and response curves, the private cell and the lock. */
ORX_API void orx__free_obj(ORX_OBJECT *object);

ORX_END_DECLS

#ifdef __cplusplus
/* C++ only: orx__init_ifd of every descriptor of a new object
 * (object->info.images[0 .. image_count-1]).  C code calls orx__init_ifd on
 * each descriptor. */
inline void orx__init_ifd(ORX_OBJECT *object) {
  if (object == nullptr || object->info.images == nullptr) return;
  for (int32_t i = 0; i < object->info.image_count; ++i) orx__init_ifd(&object->info.images[i]);
}
#endif

#endif /* ORX_PLUGIN_H */
