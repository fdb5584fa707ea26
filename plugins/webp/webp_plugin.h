/* WebP files through libwebp: the pieces the reader (webp_plugin.c) and the
 * writer (webp_write.c) share. */
#ifndef ORX_WEBP_PLUGIN_H
#define ORX_WEBP_PLUGIN_H

#include "orx/plugin.h"
#include "plugin_kit.h"

/* Settings: the compression ("lossy" or "lossless"), the quality of lossy
 * files (0 to 100; for lossless ones, the effort spent making them small)
 * and "unassociated alpha", as the PNG plug-in offers it. */
enum {
  kWebpCapCompression = 0,
  kWebpCapQuality = 1,
  kWebpCapUnassociated = 2,
  kWebpLossy = 0,
  kWebpLossless = 1,
  kWebpDefaultQuality = 75, /* cwebp's and libwebp's own default */
  kWebpMostSide = 16383     /* the format's largest width and height */
};

/* WebP colour is straight; the library's is associated with its matte.
 * libwebp's own premultiplication rounds the product. */
static const KitAlphaRounding kWebpRounding = KIT_ALPHA_ROUND;

extern ORX_CAP_LIST webp_compression;
extern const char webp_who[];

#endif /* ORX_WEBP_PLUGIN_H */
