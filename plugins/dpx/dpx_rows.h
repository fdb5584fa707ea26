/* Reading rows of DPX and Cineon files: both store their pixels
 * uncompressed, row after row at a fixed stride, so any line is one seek
 * and one read away, and is decoded as it is asked for. */
#ifndef ORX_DPX_ROWS_H
#define ORX_DPX_ROWS_H

#include <stdint.h>
#include <stdio.h>

#include "dpx_bits.h"
#include "orx/orx.h"

enum { DPX_MOST_CHANNELS = 8 };

/* A run of rows in the file: an image element of DPX, a Cineon image. */
typedef struct DpxSource {
  uint64_t offset;   /* of the top row */
  uint64_t stride;   /* from one row to the next */
  DpxCoding coding;
  int channels;      /* samples per pixel */
  int to[4];         /* the library's channel of each sample of a pixel */
} DpxSource;

typedef struct DpxRows {
  FILE *file;
  const char *who, *path;
  ORX_WINDOW window, active;  /* the active window holds the file's rows, top first */
  int channels;               /* the library's channels */
  int sample_size;            /* bytes of a sample of every channel */
  int sources;
  DpxSource source[2];
  unsigned char *raw;         /* one row of a source as stored */
  unsigned char *samples;     /* the same row unpacked */
  unsigned char *block;       /* the channel rows handed out, window-wide */
  size_t row_size;            /* one channel row, rounded to an even size */
  void *rows[DPX_MOST_CHANNELS + 1];
} DpxRows;

/* Checks that every source's rows lie within a file of file_size bytes and
 * allocates the buffers; 1, or 0 after a report. */
int dpx_rows_init(DpxRows *rows, uint64_t file_size);
/* The scan function of a reader whose private data starts with DpxRows. */
int dpx_rows_scan(void *data, int32_t line, void *out);
void dpx_rows_free(DpxRows *rows);
/* The window and active window of a picture of width x height placed at
 * x, y (from the left and the top) in a display of the original size (0:
 * the picture's): the window spans both, as OpenImageIO's data and display
 * windows do. */
void dpx_windows(ORX_IFD *ifd, uint32_t width, uint32_t height, uint32_t x, uint32_t y,
                 uint32_t original_width, uint32_t original_height, double pixel_aspect);
/* The size of an open file, or -1. */
int64_t dpx_file_size(FILE *file);

#endif /* ORX_DPX_ROWS_H */
