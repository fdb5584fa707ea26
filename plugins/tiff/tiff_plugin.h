/* The TIFF plug-in's own pieces, shared by its reading (tiff_read.c), its
 * sample conversions (tiff_samples.c) and its writing (tiff_write.c). */
#ifndef ORX_TIFF_PLUGIN_H
#define ORX_TIFF_PLUGIN_H

#include <stddef.h>
#include <stdint.h>
#include <tiffio.h>

#include "orx/plugin.h"
#include "plugin_kit.h"

#define TIFF_WHO "tiff"

/* Settings, by position in the capability table. */
enum { kCapCompression = 0, kCapTiles = 1, kCapUnassociated = 2 };
extern ORX_CAP_LIST tiff_compression;
extern ORX_CAP_LIST tiff_tiles;
extern const uint16_t tiff_methods[4];

/* The header texts and the tags that carry them. */
typedef struct TiffText {
  ttag_t tag;
  size_t field;
} TiffText;
extern const TiffText tiff_texts[];
extern const int tiff_text_count;
char **tiff_text_field(ORX_INFO *info, int i);

/* The file, shared by its images. */
typedef struct TiffFile {
  TIFF *tif;
  const char *path;
  int writing;
  int created;
  int compression;
  int tile;      /* tile side, 0 for strips */
  int straight;  /* "unassociated alpha": straight colour passes as stored */
  char error[200];
} TiffFile;

/* How a directory's samples reach the plane: as stored, converted sample
 * by sample (tiff_samples.c), or through libtiff's RGBA interface. */
typedef enum { TIFF_AS_STORED, TIFF_CONVERTED, TIFF_RGBA } TiffRoute;

/* What a directory stores, as far as reading it needs. */
typedef struct TiffSamples {
  TiffRoute route;
  uint16_t photometric, bits, format, spp, orientation;
  int separate;      /* one plane per sample */
  int colour;        /* colour samples per pixel in the file: 1, 3 or 4 (CMYK) */
  int matte;         /* index among the extra samples of the alpha (or their count) */
  int unassociated;  /* that alpha is straight */
  uint16_t *map[3];  /* the palette, owned by libtiff's current directory */
} TiffSamples;

/* One image: a directory of the file. */
typedef struct TiffImage {
  TiffFile *file;
  ORX_IFD *ifd;
  tdir_t directory;
  TiffSamples samples;
  int decoded;  /* 1 once the plane holds the image, or a negative status */
  KitPlane plane;
} TiffImage;

TIFF *tiff_open(TiffFile *f, const char *mode);
TiffFile *tiff_new_file(const char *path);
/* One image record per descriptor, sharing file; 0 when memory is short. */
int tiff_new_images(ORX_OBJECT *object, TiffFile *file);
/* Frees the image records and the file, which closes. */
void tiff_release(ORX_OBJECT *object, TiffFile *file);
int tiff_close_object(ORX_OBJECT *object, intptr_t argument);

/* tiff_samples.c: asks libtiff for the current directory's samples in the
 * form they are read in (LogL and LogLuv as floating point); 0 if it
 * cannot. */
int tiff_samples_prepare(TIFF *tif);
/* How the current directory is read and the plane layout
 * that holds it; 0 after reporting a kind no route reads. */
int tiff_samples_plan(TIFF *tif, const char *path, TiffSamples *s, KitLayout *layout);
/* The plane channel that holds file sample k of a pixel (the matte moves
 * ahead of the other extra samples). */
int32_t tiff_channel_of(const TiffSamples *s, const KitLayout *layout, int32_t k);
/* n pixels of count file samples each, from sample first of a pixel (the
 * packed bytes of one block row), into plane channels first.. of the
 * plane's sample types, interleaved in out. */
void tiff_samples_convert(const TiffSamples *s, const KitPlane *plane, const unsigned char *in,
                          int32_t n, int32_t first, int32_t count, unsigned char *out);

/* tiff_write.c: writes every image at close; 0 or a negative status. */
int tiff_encode(ORX_OBJECT *object, TiffFile *file);

#endif /* ORX_TIFF_PLUGIN_H */
