/* liborx: the framebuffer database (FB_) and the format-defaults database
 * (FMT_).
 *
 * Both are read from the per-user configuration file ".orxrc", looked for
 * in $HOME, then in $KV_ROOT/userconfig, then in the installation
 * directory.  Each database is built on its first query (announced by a
 * DEBUG report "…, initializing database for … request") and holds its
 * built-in entries when there is no file.  Syntax errors in the file are
 * reported as "PATH: Invalid configuration file syntax, line N" and the line
 * is skipped.
 *
 * Framebuffer keywords: "framebuffer NAME" … "end_framebuffer" around
 * "resolution X Y", "aspect A", "gamma G", "red_primary x y z",
 * "green_primary x y z", "blue_primary x y z", "white_point x y z"; and
 * "fb__default NAME".  A new entry starts as a copy of "full"; redefining a
 * name replaces the old entry, which moves to the end of the list.
 *
 * Format keywords: "fmt__aspect_table" … "end_aspect_table" around lines
 * "NAME XRES YRES ASPECT" ("#" lines are comments), "fmt__aspect_default",
 * "fmt__gamma_table_res", "fmt__gamma_default", "fmt__input_gamma_default",
 * "fmt__key_default", "fmt__name_default", "fmt__chan_default",
 * "fmt__dominance" ("even" or other), "fmt__frame_rate", "fmt__swatch_size"
 * ("none" or a size).
 *
 * Words may be quoted with double quotes, single quotes or ESC (27) to keep
 * blanks.  Not thread-safe: use from one thread at a time.
 */
#ifndef ORX_FMT_H
#define ORX_FMT_H

#include <stdint.h>

#include "orx/export.h"

ORX_BEGIN_DECLS

/* A display device.  Entries belong to the database: do not free them. */
typedef struct FB_FRAMEBUFFER {
  char *name;
  int32_t x_origin;       /* origin of the visible area; 0, never set from the file */
  int32_t y_origin;
  int32_t x_resolution;
  int32_t y_resolution;
  float aspect;
  float red[3];           /* chromaticity x, y, z of each primary */
  float green[3];
  float blue[3];
  float white[3];         /* white point x, y, z */
  float gamma;
  int32_t depth;          /* bits per pixel: 24 in the built-in entries */
  int32_t reserved;       /* 0 */
} FB_FRAMEBUFFER;

/* Build the database on the first call (later calls rewind its listing);
 * catalogue is the message catalogue handle.  0, or -1 when memory ran out
 * (reported as "No more internal memory", orx__err -10, database unbuilt). */
ORX_API int FB_init(void *catalogue);
/* Free what was read from the file and mark the database unbuilt. */
ORX_API void FB_exit(void);
/* The framebuffer named exactly name, or NULL. */
ORX_API FB_FRAMEBUFFER *FB_find(const char *name);
/* The next framebuffer on each call, NULL after the last: built-ins "full",
 * "ntsc", "pal" first, then those read from the file. */
ORX_API FB_FRAMEBUFFER *FB_info(void);
/* Name of the default framebuffer ("full" unless "fb__default" says). */
ORX_API const char *FB_def_framebuffer(void);
/* Not for applications: prints a note on standard error. */
ORX_API void FB_symbols(void);

/* A named image format. */
typedef struct FMT_FORMAT {
  char *name;
  int32_t x_resolution;
  int32_t y_resolution;
  float aspect;
} FMT_FORMAT;

/* Build the database on the first call (later calls rewind its listing).
 * 0; -10 when a string copy ran out of memory, -1 when an entry could not
 * be allocated; either way "No more internal memory" is reported, orx__err
 * is -10 and the database is left unbuilt. */
ORX_API int FMT_init(void *catalogue);
/* Free what was read from the file and mark the database unbuilt. */
ORX_API void FMT_exit(void);
/* The format named exactly name, or NULL. */
ORX_API FMT_FORMAT *FMT_find(const char *name);
/* The next format on each call, NULL after the last ("ntsc_640" first). */
ORX_API FMT_FORMAT *FMT_info(void);

/* Defaults (built-in value in brackets). */
ORX_API const char *FMT_def_aspect(void);     /* default format name ["ntsc_640"] */
ORX_API int FMT_def_dominance(void);          /* field dominance, 0 even [1] */
ORX_API int FMT_def_frame_rate(void);         /* frames per second [30] */
ORX_API float FMT_def_gamma(void);            /* [2.2] */
ORX_API int FMT_def_gamma_tab_res(void);      /* gamma table resolution [4096] */
ORX_API const char *FMT_def_image_data(void); /* channel set ["rgb"] */
ORX_API float FMT_def_input_gamma(void);      /* [1.0] */
ORX_API int FMT_def_swatch(void);             /* swatch size, 0 none [0] */
ORX_API const char *FMT_def_key(void);        /* format key ["rla"] */
ORX_API const char *FMT_def_base_name(void);  /* base name of new files ["im"] */

ORX_END_DECLS

#endif /* ORX_FMT_H */
