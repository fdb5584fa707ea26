/* liborx: the image-file core.
 *
 * An application describes the image it wants in an ORX_INFO record
 * (ORX_info_init or ORX_info_alloc), opens it, moves scanlines and closes
 * it.  Each image stored in a file is described by a per-image descriptor,
 * ORX_IFD: its window, active window, response curve and channel groups.
 *
 * Sample types: ORX_C_INTEGER (unsigned, 1 to 32 bits, held in 8-bit
 * samples up to 8 bits, 16-bit samples for 9 to 16, 32-bit above),
 * ORX_C_FLOAT (32-bit), ORX_C_DOUBLE (64-bit).  An integer sample of width w
 * stands for value / (2^w - 1).  A float group of 16 bits holds values of
 * half precision (read from 16-bit float samples, or to be written as
 * such): its rows still hold 32-bit floats, as every float row does.
 *
 * Strings in these records are owned by the record and released with
 * ERR_free by ORX_info_cleanup.  Failing functions leave a status in
 * orx__err (see orx/err.h).
 *
 * A host's life with the library (orx/registry.h unless said otherwise):
 *   1. ORX_init once, with the plug-ins to load (or NULL for the built-in
 *      formats); ORX_open also initialises on first use.
 *   2. ORX_open(&info, "r" or "w"): the object's info.images describe the
 *      file's images (read) or the ones given (written).  The host keeps and
 *      cleans up its own request record (ORX_info_cleanup).
 *   3. Optionally push operator layers on a read object (orx/operators.h);
 *      ORX_close pops them.
 *   4. ORX_scan_read / ORX_scan_write per line (ORX_seek to move).  A read
 *      fills the format's own buffer, valid until the next call; a write
 *      takes the host's buffer (ORX_chan_alloc, freed with ORX_chan_free).
 *   5. ORX_close: completes the file and frees the object and everything it
 *      holds; the object pointer is dead afterwards.
 *   6. ORX_exit at the end.
 * Line numbers are rows of the image's window, window.bottom to
 * window.top, whatever the orientation; the orientation only tells the
 * order in which a sequential file gives its lines (bit 0 set: from the
 * bottom row up; clear: from the top row down).  The active window is the
 * stored part of the window.
 */
#ifndef ORX_ORX_H
#define ORX_ORX_H

#include <stdint.h>

#include "orx/export.h"

ORX_BEGIN_DECLS

/* Channel sample types. */
#define ORX_C_INTEGER 1
#define ORX_C_FLOAT 2
#define ORX_C_DOUBLE 3

/* Validity marker of an initialised ORX_INFO. */
#define ORX_INFO_VALID 22839u

/* Access bits of an open image object. */
#define ORX_ACCESS_READ 4
#define ORX_ACCESS_WRITE 8

/* Kinds of response curve. */
#define ORX_CURVE_PARAMETRIC 1
#define ORX_CURVE_TABULATED 2

/* How stored values map to light: a gamma alone (parametric) or one table
 * per channel (tabulated).  All tables live in one block owned by
 * curves[0]; curves[k] = curves[0] + k * length entries.  Entries are 8-bit
 * unsigned for depth 8, 16-bit unsigned for depth 9..16, float for
 * ORX_C_FLOAT. */
typedef struct ORX_RESPONSE_CURVE {
  int32_t kind;      /* ORX_CURVE_PARAMETRIC or ORX_CURVE_TABULATED */
  float gamma;
  int32_t flags;     /* cleared by ORX_response_curve_init; not interpreted */
  int32_t reserved;
  int32_t channels;  /* number of per-channel tables */
  int32_t length;    /* entries per table */
  int32_t type;      /* ORX_C_INTEGER or ORX_C_FLOAT */
  int32_t depth;     /* bits per integer entry, 8 to 16 */
  void **curves;
} ORX_RESPONSE_CURVE;

/* A group of channels of one kind. */
typedef struct ORX_CHANNELS {
  char *name;        /* owned; "unknown" when copied into an object without one */
  int32_t count;
  int32_t type;      /* ORX_C_INTEGER, ORX_C_FLOAT or ORX_C_DOUBLE */
  int32_t bits;      /* bits per sample; 16 on a float group: half precision */
  int32_t reserved;
} ORX_CHANNELS;

/* An inclusive rectangle: columns left..right, rows bottom..top. */
typedef struct ORX_WINDOW {
  int32_t left, right, bottom, top;
} ORX_WINDOW;

/* Per-image descriptor: one for each image stored in a file. */
typedef struct ORX_IFD {
  int32_t version;             /* 1 */
  ORX_RESPONSE_CURVE curve;    /* parametric, gamma 2.2, by default */
  char *aspect;                /* owned: name of a format of the format-defaults database */
  int32_t x_resolution;        /* resolution and pixel aspect ratio of that format; */
  int32_t y_resolution;        /* a reader without the format takes the window's size */
  float aspect_ratio;
  ORX_WINDOW window;           /* the full image */
  ORX_WINDOW active;           /* the stored part */
  int32_t pixel_flags;         /* 1; copied through */
  int32_t orientation;         /* 1; bit 0 set: lines are read bottom row
                                  first, upwards; clear: top row first */
  ORX_CHANNELS image;          /* colour channels */
  ORX_CHANNELS matte;          /* mattes (alpha) */
  ORX_CHANNELS aux;            /* auxiliary channels (Z and others) */
  ORX_CHANNELS index;          /* colour index; used only without image channels;
                                  integer, at most 16 bits */
  int32_t field;               /* field (interlace) code; 0, passed through */
} ORX_IFD;

struct ORX_CAP_SETTING;

/* The application's request record. */
typedef struct ORX_INFO {
  char *type;          /* format key or extension; may be NULL */
  char *handle;        /* the file name */
  uint8_t full_path;   /* non-zero: handle is used as given, without directories */
  char *name;          /* image name */
  char *extension;     /* set at open from the format */
  char *desc;          /* description */
  char *program;       /* program that made the image */
  char *machine;       /* host that made the image */
  char *user;          /* user who made the image */
  char *date;          /* creation stamp */
  char *time;          /* rendering time */
  char *filter;        /* filter used */
  char *compression;   /* how the pixels are stored, e.g. "run length encoded" */
  struct ORX_CAP_SETTING **settings; /* format-specific settings asked for; not freed
                                        by ORX_info_cleanup */
  uint8_t transient;   /* cleared; not copied at open */
  uint64_t client_data; /* copied through unchanged */
  int32_t job;         /* job number written into files; -1 none */
  int32_t frame;       /* frame number; 1 */
  uint32_t client_flags; /* copied through unchanged */
  uint32_t valid;      /* ORX_INFO_VALID while initialised */
  float red[3];        /* chromaticity x, y, z of the primaries and white point */
  float green[3];
  float blue[3];
  float white[3];
  int32_t image_count; /* descriptors in images */
  ORX_IFD *images;     /* owned */
  int32_t timing_mode; /* 1; copied with the four words after it */
  float frame_rate;    /* frames per second; 29.97 */
  int32_t timing_start;
  int32_t timing_end;
  int32_t frame_count; /* frames in a multi-frame file; 0 */
  uint8_t enabled;     /* 1 */
  uint64_t reserved[3]; /* [0]: the record's attribute list, reached only through
                           orx/attributes.h (0: none); [1], [2]: unused, copied
                           through unchanged */
} ORX_INFO;

/* --- Records --------------------------------------------------------------- */

/* Set every field of info to its default, the validity marker included. */
ORX_API void ORX_info_init(ORX_INFO *info);
/* A new initialised record from ERR_malloc, or NULL when memory is short. */
ORX_API ORX_INFO *ORX_info_alloc(void);
/* Clear the validity marker; with free_strings non-zero also free the
 * record's strings, its attributes (orx/attributes.h), the four channel-group names of each descriptor and the
 * descriptor array, nulling each pointer.  A descriptor's aspect and curve
 * tables stay the caller's.  A record that is not initialised gets a
 * two-line complaint on standard error, and the call carries on. */
ORX_API void ORX_info_cleanup(ORX_INFO *info, uint8_t free_strings);
/* ORX_info_cleanup, then ERR_free of the record.  Returns 0. */
ORX_API int ORX_info_free(ORX_INFO *info, uint8_t free_strings);

/* Set a descriptor to the defaults the core gives every new image.  (From
 * C++, orx__init_ifd(object) does so for every descriptor of an object; see
 * orx/plugin.h.) */
ORX_API void orx__init_ifd(ORX_IFD *ifd);

/* Build the channel scanline buffer for width pixels of descriptor ifd: one
 * row pointer per channel (image, matte, auxiliary, colour index) into one
 * zero-filled block owned by the first pointer.  Rows take 1, 2 or 4 bytes a
 * sample for integer widths up to 8, 16 or 32 bits, 4 for float, 8 for
 * double, 2 for colour index, rounded up to an even byte count.  who names
 * the format in messages.  *size (when size is not NULL) receives the
 * block's byte size.  NULL with orx__err -16 for a channel type or width
 * that cannot be held (reported), -10 when memory is short.  With image
 * channels, ifd->index.count is set to 0 first.  Free with ORX_chan_free. */
ORX_API void **ORX_chan_alloc(ORX_IFD *ifd, int32_t width, const char *who, uint32_t *size);
ORX_API void **orx__chan_alloc(ORX_IFD *ifd, int32_t width, const char *who);
/* Free a channel scanline buffer; NULL is accepted. */
ORX_API void ORX_chan_free(void **buffer);
ORX_API int orx__chan_free(void **buffer);

/* Build dir/name+extension in a static buffer that the next call
 * overwrites.  A name starting with "/" or "./", or a NULL dir, is used
 * alone; the extension is not added when the name already ends with it, and
 * its dot is not doubled. */
ORX_API const char *orx__build_handle(const char *dir, const char *name, const char *extension);

/* --- Hardware framebuffer data ---------------------------------------------- */

/* The format strings of pixel data laid out for a hardware framebuffer, for
 * the format-string fields of records and plug-in tables: "raw" (samples as
 * the device holds them) and "rgb" (red, green, blue triples).  Compare by
 * content (strcmp), not by address. */
ORX_API extern const char *const ORX_LITERAL_HARD_FORMAT_TYPE_RAW;
ORX_API extern const char *const ORX_LITERAL_HARD_FORMAT_TYPE_RGB;

/* --- Gamma tables, look-up tables and response curves ---------------------- */

/* Tables from one gamma exponent, sized by the gamma table resolution R of
 * the format-defaults database (FMT_def_gamma_tab_res, 4096 built in).  A
 * setting below 2 is taken as 2 and one above 65536 as 65536 (the most a
 * 16-bit table can address).  Each returns a new table, or NULL when memory
 * is short (nothing is reported); free with ORX_gamma_done, which returns 1.
 *   ORX_gamma_btof: 256 floats, 8-bit code to linear 0..1
 *   ORX_gamma_btos: 256 uint16_t, 8-bit code to linear code 0..R-1
 *   ORX_gamma_tob:  R uint8_t, linear code to 8-bit code
 *   ORX_gamma_tof:  R floats, linear code to an 8-bit scaled value 0..254.9 */
ORX_API float *ORX_gamma_btof(float gamma);
ORX_API uint16_t *ORX_gamma_btos(float gamma);
ORX_API uint8_t *ORX_gamma_tob(float gamma);
ORX_API float *ORX_gamma_tof(float gamma);
ORX_API int ORX_gamma_done(void *table);

/* One colour of a palette. */
typedef struct ORX_LUT_ENTRY {
  uint16_t red, green, blue, alpha;
} ORX_LUT_ENTRY;

/* A palette of colour-index images. */
typedef struct ORX_LUT {
  ORX_LUT_ENTRY *entries;
  int32_t max_index; /* count - 1 when allocated; callers keep it */
  uint32_t count;
  float gamma;       /* 1.0 when allocated */
} ORX_LUT;

/* A new palette of count zeroed entries, gamma 1.0; NULL when memory is
 * short (reported as "No more internal memory").  Free with ORX_lut_free. */
ORX_API ORX_LUT *ORX_lut_alloc(uint32_t count);
/* A new palette with lut's count, entries, max_index and gamma; NULL when
 * lut is NULL or memory is short. */
ORX_API ORX_LUT *ORX_lut_copy(const ORX_LUT *lut);
/* Free the entries and the record (NULL accepted).  Returns 0. */
ORX_API int ORX_lut_free(ORX_LUT *lut);
/* Resize the entries (new ones zeroed) and set count; max_index is left for
 * the caller to set.  Returns the record, or NULL when lut is NULL; on
 * failure the record is freed and NULL returned. */
ORX_API ORX_LUT *ORX_lut_realloc(ORX_LUT *lut, uint32_t count);

struct ORX_OBJECT;
/* The palette of an open colour-index image: *lut becomes NULL, then the
 * format's palette reader (when it has one) stores a new ORX_LUT there, which
 * the caller frees with ORX_lut_free.  Returns non-zero on success; an image
 * whose format has no palette reader succeeds with *lut NULL. */
ORX_API int ORX_lut_read(struct ORX_OBJECT *object, ORX_LUT **lut);

/* Fill a curve's tables from its gamma, channels, length, type and depth;
 * the curve becomes tabulated and flags is cleared.  Integer entries run
 * from 0 to 2^depth - 1, float entries from 0 to 1.  A curve of length 1 is
 * a constant: its one entry is the value at input 0.  Tables the curve held
 * before are not freed (call ORX_response_curve_done first).  Returns 0, or
 * -1 with curves NULL on a bad type or depth, channels or length below 1
 * (none of these is reported), or when memory is short (orx__err -10). */
ORX_API int ORX_response_curve_init(ORX_RESPONSE_CURVE *curve);
/* Copy src's header and deep-copy its tables into dst, which then owns its
 * own tables; a parametric src copies the header only.  0, or -1 with
 * dst->curves NULL on a bad type or depth (reported) or when memory is short
 * (orx__err -10). */
ORX_API int ORX_response_curve_copy(ORX_RESPONSE_CURVE *dst, const ORX_RESPONSE_CURVE *src);
/* out = a after b (b applied first, its results indexing a): out gets b's
 * channels and length, a's type and depth, and new tables.  Tabulated
 * curves must have equal channel counts, b must be an integer curve and a
 * must have 2^(b's depth) entries (each mismatch is reported).  A
 * parametric side is first tabulated.  Two parametric curves give the
 * tabulated curve of gamma b.gamma / a.gamma.  Returns 0, or -1 with out
 * untouched; curves of other kinds return 0 and leave out untouched. */
ORX_API int ORX_response_curve_comp(const ORX_RESPONSE_CURVE *a, const ORX_RESPONSE_CURVE *b,
                                    ORX_RESPONSE_CURVE *out);
/* Free a tabulated curve's tables and null curves; a parametric curve is
 * left as it is.  Returns 1. */
ORX_API int ORX_response_curve_done(ORX_RESPONSE_CURVE *curve);

ORX_END_DECLS

#endif /* ORX_ORX_H */
