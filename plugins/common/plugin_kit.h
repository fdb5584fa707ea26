/* Shared pieces of the format plug-ins shipped with liborx.
 *
 * They are written only against the public headers, as any third-party
 * plug-in would be.  The codecs these plug-ins wrap decode and encode whole
 * images in file order (top row first), while hosts may move lines in any
 * order; so each image lives in memory as a "plane": every line of its
 * active window in the layout of a channel scanline buffer (one row per
 * channel, window-wide), from which reads hand rows out without copying and
 * into which writes copy the host's rows until close encodes them.
 *
 * Line numbers are rows of the window with window.top the top row of the
 * picture, so file row r (counted from the top) is line window.top - r.
 */
#ifndef ORX_PLUGIN_KIT_H
#define ORX_PLUGIN_KIT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "orx/attributes.h"
#include "orx/orx.h"
#include "orx/plugin.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reports an error through the library's error service, leaves status in
 * orx__err and in the thread's own status (orx__set_err) and returns 0, the
 * open functions' failure value. */
int kit_fail(int32_t status, const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    ;
/* Reports an information note. */
void kit_note(const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;
/* Reports a warning: damage a reader worked around, which a host shows. */
void kit_warn(const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;

/* ERR_malloc for the kit's blocks: NULL after a report when memory is
 * short, with ORX_E_NO_MEMORY as the status (ERR_malloc reports a shortage
 * itself; the status is the caller's to set). */
void *kit_allocate(size_t size);

/* Replaces an owned string of a record with a copy of text (NULL clears
 * it); 0 after reporting when memory is short, 1 otherwise. */
int kit_save(char **field, const char *text);
/* Texts are UTF-8 in the library.  Whether text is well-formed UTF-8;
 * and Latin-1 text (what a format's text that is not UTF-8 usually is)
 * converted to UTF-8, to free, or NULL when memory is short. */
int kit_is_utf8(const char *text);
char *kit_latin1_to_utf8(const char *text);
/* Whether a header text carries information: not NULL, not empty and not
 * the "unknown" the library fills in for missing texts. */
int kit_has_text(const char *text);
/* A date text as a file should carry it.  The library stamps a written
 * image without a date "{seconds}" (seconds since the epoch), which only its
 * own readers turn back into a date; other formats get the moment in local
 * time as "YYYY:MM:DD HH:MM:SS", the form TIFF, EXIF and OpenEXR define.
 * Any other text is returned as it is; the stamp's form is written into
 * scratch (at least 20 bytes) and scratch returned. */
const char *kit_date_text(const char *text, char *scratch, size_t size);

/* Allocates count descriptors (library defaults) and a private cell of
 * count NULL entries for a read object; 0 after reporting when memory is
 * short. */
int kit_new_images(ORX_OBJECT *object, int32_t count);

/* A private cell of count NULL entries for a write object. */
int kit_new_cell(ORX_OBJECT *object, int32_t count);

/* A file's picture of width x height pixels as a descriptor sees it: the
 * window and active window from (0, 0), top row first, resolution the
 * picture's size and an aspect ratio of width / height times the pixel
 * aspect. */
void kit_describe_size(ORX_IFD *ifd, int32_t width, int32_t height, double pixel_aspect);

/* The pixel aspect (a pixel's width over its height) that a descriptor's
 * aspect ratio gives its resolution (else its window), 1 when it gives none; and densities x and
 * y (pixels per unit across and down, as PNG and JFIF store them) of at
 * most `most`, the smallest whose ratio y / x is that aspect. */
double kit_pixel_aspect(const ORX_IFD *ifd);
void kit_aspect_densities(double pixel_aspect, uint32_t most, uint32_t *x, uint32_t *y);

/* Print resolution, as OpenImageIO names it: "XResolution" and
 * "YResolution" (pixels per unit across and down) and "ResolutionUnit":
 * "in", "cm", or "none" for densities that give only the pixels' shape
 * (kept when the pixels are not square, so that a copy stores the same
 * numbers), absent where a TIFF file leaves its unit to the default,
 * inches.  A reader sets them (0 after reporting when memory is short).  A
 * writer asks kit_resolution for the densities to store: those of the
 * attributes when they agree with the pixel aspect (y / x), with their
 * unit; 0 when there are none or they disagree (a resize left them
 * behind), and then it stores the aspect. */
enum { KIT_UNIT_UNSTATED = 0, KIT_INCHES = 1, KIT_CENTIMETRES = 2, KIT_UNIT_NONE = 3 };
int kit_set_resolution(ORX_INFO *info, int32_t image, double x, double y, int unit);
int kit_resolution(const ORX_INFO *info, int32_t image, double pixel_aspect, double *x, double *y,
                   int *unit);

/* Channel groups as a plug-in stores them: the image, matte and auxiliary
 * groups of a descriptor, in channel order. */
typedef struct KitLayout {
  int32_t count[3];
  int32_t type[3];
  int32_t bits[3];
} KitLayout;

/* The groups of a descriptor. */
KitLayout kit_layout_of(const ORX_IFD *ifd);
/* Total channel count of a layout. */
int32_t kit_layout_channels(const KitLayout *layout);
/* Copies the layout's counts, types and widths into a descriptor. */
void kit_layout_apply(const KitLayout *layout, ORX_IFD *ifd);

/* A whole image held in memory (see the top of this file; kit_plane.c).
 * A writer's plane may be interleaved instead: each line one row of pixels,
 * channel after channel, as codecs take them, so storing a host's line is
 * the one pass that interleaves it.  A writer's plane is not cleared when it is
 * made (clearing a frame costs about as much as copying it in): it keeps
 * which lines were stored, and kit_plane_complete clears the others before
 * the plane is encoded. */
typedef struct KitPlane {
  KitLayout layout;
  ORX_WINDOW window;
  ORX_WINDOW active;
  int32_t channels;
  int32_t interleaved;
  size_t line_bytes;      /* one line: every channel's row, or the pixels */
  size_t pixel_bytes;     /* one pixel of every channel */
  size_t *offsets;        /* channel row offsets within a line, or sample
                             offsets within a pixel */
  uint8_t *sample_bytes;  /* bytes per sample of each channel */
  unsigned char *data;    /* active lines, top first, then one zero line */
  void **rows;            /* channels + 1 row pointers handed to hosts */
  uint8_t *stored;        /* a writer's: 1 for each file row stored */
} KitPlane;

/* Flags of kit_plane_init: an interleaved plane, a writer's plane. */
enum { KIT_PLANE_INTERLEAVED = 1, KIT_PLANE_WRITE = 2 };

/* Lays out and allocates a plane; who and path name the format and file in
 * messages.  Checks the channel and row-memory limits of orx/limits.h
 * before allocating.  0, or a negative status after a report. */
int kit_plane_init(KitPlane *plane, const KitLayout *layout, ORX_WINDOW window,
                   ORX_WINDOW active, int flags, const char *who, const char *path);
void kit_plane_free(KitPlane *plane);

/* Clears every row of a writer's plane the host did not store. */
void kit_plane_complete(KitPlane *plane);

/* Active height and width. */
int32_t kit_plane_height(const KitPlane *plane);
int32_t kit_plane_width(const KitPlane *plane);

/* The channel row pointers of a line of a planar plane (zero rows outside
 * the active window); NULL for a line outside the window. */
void **kit_plane_line(KitPlane *plane, int32_t line);

/* Sample 0 of the active columns of channel c in file row r (0: the active
 * window's top line); the channel's next sample lies kit_plane_step bytes
 * further. */
unsigned char *kit_plane_at(const KitPlane *plane, int32_t r, int32_t c);
size_t kit_plane_step(const KitPlane *plane, int32_t c);
/* The pixels of file row r of an interleaved plane. */
const unsigned char *kit_plane_pixels(const KitPlane *plane, int32_t r);

/* Spreads one interleaved file row (active width pixels, every channel
 * stored in the plane's sample size) over the channel rows of file row r. */
void kit_plane_spread(KitPlane *plane, int32_t r, const void *pixels);
/* The same for n pixels from active column x (0: the first active column)
 * and the nc channels from c0: pixels hold nc interleaved samples each. */
void kit_plane_put(KitPlane *plane, int32_t r, int32_t x, int32_t n, const void *pixels,
                   int32_t c0, int32_t nc);
void kit_plane_get(const KitPlane *plane, int32_t r, int32_t x, int32_t n, void *pixels,
                   int32_t c0, int32_t nc);


/* The body of a reader's scan function, for readers that decode the whole
 * image on the first request: decode(data) runs once, its status kept in
 * *decoded (1 once done), so a failed image keeps failing with the same
 * status; then the rows of line go out through out (a void ***). */
int kit_scan_decoded(KitPlane *plane, int *decoded, int (*decode)(void *), void *data,
                     int32_t line, void *out, const char *who, const char *path);

/* The file row a host's line goes to, for a writer that fills rows itself:
 * *r is the row (recorded as stored) or -1 for a line outside the active
 * window, which is dropped.  -2 (reported) for a line outside the window,
 * otherwise 0. */
int kit_plane_take(KitPlane *plane, int32_t line, const char *who, int32_t *r);

/* Copies the host's rows for line into the plane, converting from the host
 * descriptor's channel types and widths to the plane's.  -2 (reported) for a
 * line outside the window; lines outside the active window are dropped. */
int kit_plane_store(KitPlane *plane, const ORX_IFD *host, int32_t line, void **rows,
                    const char *who);

/* n samples of a host's channel row of the given type and width, from
 * sample first on, as floats: integers scaled to 0..1, floating point as
 * stored. */
void kit_row_floats(int32_t type, int32_t bits, const void *row, size_t first, float *out,
                    int32_t n);

/* Straight and associated alpha (kit_alpha.c).  Formats that store straight
 * colour multiply each decoded row by its matte and divide each row before
 * encoding it; the colour channels (the image group) are converted, the
 * first matte is the alpha and auxiliary channels are left alone.  Integer
 * products are rounded or truncated as the format's reference reader does
 * it, and the division is the exact inverse of that product: a row divided
 * and multiplied again comes back unchanged.  Zero alpha divides to zero
 * colour.  Nothing happens when the matte and the colour channels differ in
 * type or width (no format stores them so). */
typedef enum { KIT_ALPHA_TRUNCATE, KIT_ALPHA_ROUND } KitAlphaRounding;
int kit_alpha_matches(const KitLayout *layout);
void kit_plane_associate(KitPlane *plane, int32_t r, KitAlphaRounding rounding);
void kit_plane_dissociate(KitPlane *plane, int32_t r, KitAlphaRounding rounding);

/* The value of a setting the host passed for capability index, or fallback
 * when it passed none.  Settings pair with the capability table by
 * position: settings[i] sets entry i. */
int32_t kit_setting_int(const ORX_OBJECT *object, int32_t index, int32_t fallback);
float kit_setting_float(const ORX_OBJECT *object, int32_t index, float fallback);

/* Writers encode at close, but a file that cannot be created should fail
 * the open: kit_claim creates (or truncates) path and records whether it
 * existed before; 0 after reporting when it cannot be created.  After a
 * failed encode kit_release removes the file only when the open created it
 * and it is a regular file. */
int kit_claim(const char *who, const char *path, int *created);
void kit_release(const char *path, int created);

/* Reads up to size bytes from the start of name or of stream (rewound
 * first, as imageIsFile must); the number read. */
size_t kit_peek(const char *name, FILE *stream, void *buffer, size_t size);

/* Attributes (orx/attributes.h).  A write open stores the attributes it can
 * hold and removes the others with ORX_attr_keep.  kit_narrowed appends a
 * note (printf-style, e.g. "float samples stored as 16-bit integers") to
 * image's "orx:narrowed" text, which hosts show as what the write loses; 0
 * when memory is short. */
int kit_narrowed(ORX_OBJECT *object, int32_t image, const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;
/* For formats whose pixels start at column 0, row 0: notes as narrowed
 * that a window starting elsewhere loses its position.  0 when memory is
 * short. */
int kit_window_at_origin(ORX_OBJECT *object, int32_t image);

/* Whether an ICC profile attribute describes colour of `channels` image
 * channels: its header's colour space is GRAY for one, RGB for three.  A
 * writer drops one that does not (a CMYK file's profile, whose pixels a
 * reader turned into RGB), which would misdescribe the pixels. */
int kit_profile_fits(const ORX_ATTR *profile, int32_t channels);
/* Keeps of a writer's attributes those a picture file carries (an ICC
 * profile that fits its image's colour, the orientation and the print
 * resolution) and drops the others, which tells the host what the file
 * will not carry. */
void kit_keep_picture_attributes(ORX_INFO *info);

/* The EXIF orientation (kit_exif.c): tag 274 of the first directory of
 * a TIFF structure of size bytes (an EXIF block after its "Exif\0\0"), 1
 * to 8, or 0 when it has none; and the smallest such structure holding
 * orientation alone, written into out (its size returned). */
enum { KIT_EXIF_BLOCK = 26 };
int kit_exif_orientation(const unsigned char *tiff, size_t size);
size_t kit_exif_orientation_block(int orientation, unsigned char out[KIT_EXIF_BLOCK]);

/* Colour metadata is never invented.  kit_rec709 holds the x, y pairs of
 * red, green, blue and white of Rec.709 with a D65 white, which OpenEXR
 * defines for a file without chromaticities and sRGB shares.  A reader that
 * finds none sets its format's own with kit_set_chromaticities; a writer
 * stores a record's only when kit_chromaticities_informative: they are
 * neither the library's placeholder defaults (ORX_info_init) nor the
 * format's own default (NULL: the format has none). */
extern const float kit_rec709[8];
void kit_set_chromaticities(ORX_INFO *info, const float xy[8]);
int kit_chromaticities_informative(const ORX_INFO *info, const float format_default[8]);

#ifdef __cplusplus
}
#endif

#endif /* ORX_PLUGIN_KIT_H */
