/* The DPX header: what a reader needs of it to find the pixels, the
 * metadata it carries as the library's header texts and attributes (the
 * names OpenImageIO gives them), and the header a writer stores. */
#ifndef ORX_DPX_HEADER_H
#define ORX_DPX_HEADER_H

#include <stddef.h>
#include <stdint.h>

#include "dpx_bits.h"
#include "orx/orx.h"

enum {
  DPX_HEADER_SIZE = 2048,  /* the generic and the industry headers */
  DPX_GENERIC_SIZE = 1664, /* the file, image and orientation headers */
  DPX_ELEMENT_AT = 780,    /* the first of the eight image elements */
  DPX_ELEMENT_SIZE = 72
};

/* Descriptors of an image element this plug-in reads and writes. */
enum { DPX_ALPHA = 4, DPX_LUMA = 6, DPX_RGB = 50, DPX_RGBA = 51, DPX_ABGR = 52 };

/* One image element: where its samples are and how they are coded. */
typedef struct DpxElement {
  int descriptor;
  int transfer, colorimetric;
  int encoding;          /* 1: run-length */
  int sign;              /* 1: signed samples */
  uint32_t offset;       /* of its data in the file */
  uint32_t line_padding; /* bytes after each row */
  DpxCoding coding;
} DpxElement;

typedef struct DpxImage {
  int big;
  uint32_t width, height;
  int elements;            /* in the file */
  DpxElement element[2];   /* the first, and an alpha element after luma */
  int has_alpha_element;
  int orientation;         /* the file's code, 0 to 7 */
  uint32_t x_offset, y_offset, original_width, original_height;
  double pixel_aspect;
} DpxImage;

/* A header field that is an attribute of the image, both in DPX and in
 * Cineon files: text of length bytes, a byte, a 32-bit unsigned integer or
 * real, or a BCD time code.  Fields of all one bits are undefined. */
typedef enum { DPX_TEXT, DPX_U8, DPX_U32, DPX_REAL, DPX_TIMECODE } DpxFieldKind;
typedef struct DpxField {
  const char *name;
  uint16_t at;
  uint8_t kind;
  uint8_t length;
} DpxField;

/* The defined fields of a header of size bytes as attributes of image 0;
 * 0 when memory ran out. */
int dpx_describe_fields(ORX_INFO *info, const unsigned char *h, size_t size, int big,
                        const DpxField *fields, int count);
/* A text field's characters up to its first NUL (out holds length + 1
 * bytes); "" when the field is undefined. */
void dpx_field_text(const unsigned char *p, size_t length, char *out);
/* A header text as UTF-8 (Latin-1 converted) into a header text field of
 * the library; 0 when memory ran out. */
int dpx_save_text(char **field, const char *text);

/* Fills image from the header (h: n bytes read from the file's start, at
 * least DPX_GENERIC_SIZE); 1, or 0 after a report naming path of what makes
 * the file unreadable. */
int dpx_parse(const unsigned char *h, size_t n, DpxImage *image, const char *path);
/* Channels of an element's descriptor (0 for one this plug-in cannot
 * read). */
int dpx_descriptor_channels(int descriptor);
/* The header's texts and attributes into info; 0 when memory ran out. */
int dpx_describe(ORX_INFO *info, const unsigned char *h, size_t n, const DpxImage *image);
/* Drops the attributes a DPX file cannot hold (the library's own notes
 * stay). */
void dpx_keep_attributes(ORX_INFO *info);
/* The header of a file of image, its metadata taken from info (the
 * attributes dpx_keep_attributes kept); file_size is the whole file's.  The
 * attributes that describe the file's layout are set to what it stores; 0
 * when memory ran out. */
int dpx_format(unsigned char h[DPX_HEADER_SIZE], ORX_INFO *info, const DpxImage *image,
               uint32_t file_size);
/* The transfer and colorimetric codes a writer stores: those of the
 * attributes, else the transfer of the colour space a host names; 255
 * (undefined) for none. */
void dpx_transfer_codes(const ORX_INFO *info, int *transfer, int *colorimetric);
/* The names of the packing methods, as the dpx:Packing attribute says them. */
const char *dpx_packing_name(int packing);

#endif /* ORX_DPX_HEADER_H */
