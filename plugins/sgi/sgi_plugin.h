/* SGI image files (.sgi, .rgb, .rgba, .bw, .int, .inta): the pieces the
 * reader (sgi_plugin.c) and the writer (sgi_write.c) share.
 *
 * A file is a 512-byte big-endian header, then either every scanline of
 * every channel verbatim (channel after channel, bottom row first), or,
 * for run-length encoded files, a table of each scanline's offset, a table
 * of each scanline's length and the encoded scanlines.  Samples are 1 or 2
 * bytes wide.  Scanline y of channel z is entry y + z * height of the
 * tables, y counted from the bottom of the picture. */
#ifndef ORX_SGI_PLUGIN_H
#define ORX_SGI_PLUGIN_H

#include <stdint.h>

#include "orx/plugin.h"

enum {
  kSgiMagic = 474,
  kSgiHeader = 512,
  kSgiNameBytes = 80,
  kSgiVerbatim = 0,
  kSgiRle = 1,
  /* Settings: the compression ("none" or "rle"). */
  kSgiCapCompression = 0
};

extern ORX_CAP_LIST sgi_compression;
extern const char sgi_who[];

#endif /* ORX_SGI_PLUGIN_H */
