/* Truevision Targa files: the plug-in's shared record and its parts. */
#ifndef ORX_PLUGIN_TARGA_H
#define ORX_PLUGIN_TARGA_H

#include <stdio.h>

#include "plugin_kit.h"

/* The capability table's entries (targa_plugin.c). */
enum { kTgaCapCompression = 0, kTgaCapUnassociated = 1 };

/* The sizes of the header, the extension area and the footer. */
enum { kTgaHeader = 18, kTgaExtension = 495, kTgaFooter = 26 };

/* How a file's pixels turn into 8-bit samples. */
typedef enum {
  TGA_GREY,       /* 8-bit grey */
  TGA_GREY_ALPHA, /* 8-bit grey, then 8-bit alpha */
  TGA_BGR15,      /* 5 bits each in 16, the top bit unused */
  TGA_BGR24,
  TGA_BGRA32,
  TGA_INDEX8,     /* colour map indices */
  TGA_INDEX16
} TgaPixels;

/* One open file, read or written. */
typedef struct Tga {
  FILE *file;
  const char *path; /* the object's handle */
  ORX_IFD *ifd;
  KitPlane plane;
  int writing;
  int decoded;      /* reading: 1 once the plane holds the image */
  int created;      /* writing: the open created the file */
  int straight;     /* colour passes as stored ("unassociated alpha") */
  /* Reading. */
  TgaPixels pixels;
  int rle;
  int bytes;        /* bytes of one stored pixel */
  int flip_x, flip_y;
  int alpha_type;   /* the extension area's attributes type, -1 without one */
  long data_at;     /* where the pixels start */
  long data_end;    /* where the file's pixels must end at the latest */
  unsigned char *map;   /* colour map as RGB, one entry per index (map_size) */
  unsigned char *valid; /* 1 for each index the file's map holds */
  int map_size;
  /* Writing. */
  int compress;     /* run-length packets */
  int origin;       /* the descriptor's origin bits: 0x20 top, 0x10 right to left */
  int associated;   /* the colour is stored premultiplied */
} Tga;

/* Decodes the pixels into the plane; 0 or a negative status (targa_decode.c). */
int tga_decode(void *data);

/* Writing (targa_write.c). */
int tga_write_open(ORX_OBJECT *object, Tga *t);
int tga_encode(ORX_OBJECT *object, Tga *t);

#endif
