/* Windows and OS/2 bitmaps (BMP): the plug-in's shared record and parts. */
#ifndef ORX_PLUGIN_BMP_H
#define ORX_PLUGIN_BMP_H

#include <stdio.h>

#include "plugin_kit.h"

/* The capability table's entries (bmp_plugin.c). */
enum { kBmpCapUnassociated = 0 };

/* Compression codes of the info header. */
enum { BMP_RGB = 0, BMP_RLE8 = 1, BMP_RLE4 = 2, BMP_BITFIELDS = 3, BMP_ALPHABITFIELDS = 6 };

/* One open file, read or written. */
typedef struct Bmp {
  FILE *file;
  const char *path; /* the object's handle */
  ORX_IFD *ifd;
  KitPlane plane;
  int writing;
  int decoded;      /* reading: 1 once the plane holds the image */
  int created;      /* writing: the open created the file */
  int straight;     /* colour passes as stored ("unassociated alpha") */
  /* Reading. */
  int bits;         /* bits a pixel */
  int compression;
  int top_down;     /* rows stored top first (a negative height) */
  long data_at, data_end;
  unsigned char palette[256 * 3]; /* RGB; entries past `colours` black */
  int colours;
  uint32_t masks[4];              /* red, green, blue, alpha fields of 16/32-bit pixels */
  /* Writing. */
  int one_bit;      /* lone 1-bit grey, stored as 1-bit */
} Bmp;

/* Decodes the pixels into the plane; 0 or a negative status (bmp_decode.c). */
int bmp_decode(void *data);

/* Writing (bmp_write.c). */
int bmp_write_open(ORX_OBJECT *object, Bmp *b);
int bmp_encode(ORX_OBJECT *object, Bmp *b);

#endif
