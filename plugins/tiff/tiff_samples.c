/* What a TIFF directory stores and how its samples become the plane's.
 *
 * Grey and RGB of 8, 16 or 32-bit unsigned integers and 32 or 64-bit
 * floating point are read as stored.  Other sample kinds are converted one
 * sample at a time: other unsigned widths (1 to 31 bits, packed, 24 bits
 * too) keep their width; signed integers (2 to 32 bits) become floating
 * point, value / (2^(bits-1) - 1);
 * 16-bit floating point becomes 32-bit; MinIsWhite grey is inverted;
 * palette indices become the 8-bit RGB of their colours (16-bit when the
 * palette holds more than 8 bits); CMYK becomes RGB of its own width,
 * (1 - C)(1 - K) and so on; CIE L*a*b* (8 or 16-bit, D65) becomes sRGB of
 * its width.  SGI's LogL and LogLuv, high dynamic range by design, are
 * decoded by libtiff to floating point luminance or CIE XYZ, kept linear:
 * luminance as a grey channel, XYZ as linear RGB of the sRGB primaries.
 * YCbCr, the other Lab encodings and anything else libtiff's RGBA
 * interface can decode become 8-bit RGB (with the matte when the file has
 * one). */
#include <math.h>
#include <string.h>

#include "orx/err.h"
#include "tiff_plugin.h"

/* A 16-bit IEEE float as a float. */
static float half_to_float(uint16_t h) {
  const int exponent = (h >> 10) & 0x1f;
  const int mantissa = h & 0x3ff;
  float v;
  if (exponent == 0) v = ldexpf((float)mantissa, -24);
  else if (exponent == 31) v = mantissa != 0 ? NAN : INFINITY;
  else v = ldexpf((float)(mantissa | 0x400), exponent - 25);
  return (h & 0x8000) != 0 ? -v : v;
}

int tiff_samples_prepare(TIFF *tif) {
  uint16_t photometric = PHOTOMETRIC_MINISBLACK, method = COMPRESSION_NONE;
  TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric);
  TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &method);
  const int log = photometric == PHOTOMETRIC_LOGL || photometric == PHOTOMETRIC_LOGLUV;
  const int sgilog = method == COMPRESSION_SGILOG || method == COMPRESSION_SGILOG24;
  return !log || !sgilog || TIFFSetField(tif, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT);
}

/* Whether the plane can take the file's samples byte for byte. */
static int stored_as_is(const TiffSamples *s) {
  const int plain = s->photometric == PHOTOMETRIC_MINISBLACK || s->photometric == PHOTOMETRIC_RGB ||
                    s->photometric == PHOTOMETRIC_LOGL;
  const int integer = s->format == SAMPLEFORMAT_UINT && (s->bits == 8 || s->bits == 16 || s->bits == 32);
  const int real = s->format == SAMPLEFORMAT_IEEEFP && (s->bits == 32 || s->bits == 64);
  return plain && (integer || real);
}

/* Whether the samples can be converted one by one. */
static int convertible(const TiffSamples *s) {
  const int kind_ok =
      s->photometric == PHOTOMETRIC_MINISBLACK || s->photometric == PHOTOMETRIC_MINISWHITE ||
      s->photometric == PHOTOMETRIC_RGB ||
      (s->photometric == PHOTOMETRIC_PALETTE && s->spp == 1 && s->format == SAMPLEFORMAT_UINT &&
       s->bits <= 16) ||
      ((s->photometric == PHOTOMETRIC_SEPARATED || s->photometric == PHOTOMETRIC_CIELAB) &&
       s->colour >= 3 && !s->separate && s->format == SAMPLEFORMAT_UINT &&
       (s->bits == 8 || s->bits == 16)) ||
      (s->photometric == PHOTOMETRIC_LOGLUV && !s->separate && s->format == SAMPLEFORMAT_IEEEFP &&
       s->bits == 32);
  const int width_ok =
      (s->format == SAMPLEFORMAT_UINT && s->bits >= 1 && s->bits <= 32) ||
      (s->format == SAMPLEFORMAT_INT && s->bits >= 2 && s->bits <= 32) ||
      (s->format == SAMPLEFORMAT_IEEEFP && (s->bits == 16 || s->bits == 32 || s->bits == 64));
  return kind_ok && width_ok;
}

/* Whether every palette colour is an 8-bit value spread over 16 bits. */
static int palette_is_8bit(const TiffSamples *s) {
  const uint32_t n = 1u << s->bits;
  for (int c = 0; c < 3; ++c)
    for (uint32_t i = 0; i < n; ++i)
      if (s->map[c][i] % 257 != 0) return 0;
  return 1;
}

int tiff_samples_plan(TIFF *tif, const char *path, TiffSamples *s, KitLayout *layout) {
  memset(s, 0, sizeof *s);
  if (!tiff_samples_prepare(tif))
    return kit_fail(ORX_E_UNSUPPORTED, "tiff: %s: cannot decode its LogLuv samples", path);
  uint16_t extra_count = 0, *extra = NULL, config = PLANARCONFIG_CONTIG, inks = INKSET_CMYK;
  s->spp = 1;
  s->bits = 1;
  s->format = SAMPLEFORMAT_UINT;
  s->photometric = PHOTOMETRIC_MINISBLACK;
  s->orientation = ORIENTATION_TOPLEFT;
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &s->spp);
  TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &s->bits);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &s->format);
  TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &s->photometric);
  TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extra_count, &extra);
  TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &config);
  TIFFGetFieldDefaulted(tif, TIFFTAG_INKSET, &inks);
  TIFFGetFieldDefaulted(tif, TIFFTAG_ORIENTATION, &s->orientation);
  if (s->orientation < ORIENTATION_TOPLEFT || s->orientation > ORIENTATION_LEFTBOT)
    s->orientation = ORIENTATION_TOPLEFT;
  s->separate = config == PLANARCONFIG_SEPARATE;
  const int trichromatic = s->photometric == PHOTOMETRIC_RGB ||
                           s->photometric == PHOTOMETRIC_CIELAB ||
                           s->photometric == PHOTOMETRIC_LOGLUV;
  s->colour = trichromatic                                                     ? 3
              : s->photometric == PHOTOMETRIC_SEPARATED && inks == INKSET_CMYK ? 4
                                                                               : 1;
  if (s->format == SAMPLEFORMAT_VOID) s->format = SAMPLEFORMAT_UINT;
  if (s->photometric == PHOTOMETRIC_PALETTE &&
      !TIFFGetField(tif, TIFFTAG_COLORMAP, &s->map[0], &s->map[1], &s->map[2]))
    s->map[0] = NULL;
  const int extras = s->spp > s->colour ? s->spp - s->colour : 0;
  /* The matte is the first extra sample that is alpha, wherever it is. */
  while (s->matte < extras && s->matte < extra_count && extra[s->matte] != EXTRASAMPLE_ASSOCALPHA &&
         extra[s->matte] != EXTRASAMPLE_UNASSALPHA)
    ++s->matte;
  const int alpha = s->matte < extras && s->matte < extra_count;
  s->unassociated = alpha && extra[s->matte] == EXTRASAMPLE_UNASSALPHA;
  const int palette = s->photometric == PHOTOMETRIC_PALETTE;
  /* A matte after other extra samples moves ahead of them sample by sample. */
  const int reordered = alpha && s->matte > 0 && !s->separate;
  if (s->spp >= s->colour && (!palette || s->map[0] != NULL) && stored_as_is(s) && !reordered)
    s->route = TIFF_AS_STORED;
  else if (s->spp >= s->colour && (!palette || s->map[0] != NULL) && convertible(s))
    s->route = TIFF_CONVERTED;
  else
    s->route = TIFF_RGBA;

  for (int g = 0; g < 3; ++g) {
    layout->type[g] = ORX_C_INTEGER;
    layout->bits[g] = s->bits;
  }
  if (s->route == TIFF_RGBA) {
    char why[1024] = "";
    if (!TIFFRGBAImageOK(tif, why))
      return kit_fail(ORX_E_UNSUPPORTED, "tiff: %s: cannot read these samples: %s", path, why);
    /* libtiff's RGBA interface associates straight alpha itself, and
     * takes only a first extra sample as alpha. */
    s->unassociated = 0;
    layout->count[0] = 3;
    layout->count[1] = alpha && s->matte == 0;
    layout->count[2] = 0;
    for (int g = 0; g < 3; ++g) layout->bits[g] = 8;
    return 1;
  }
  layout->count[0] = s->colour == 1 && !palette ? 1 : 3;
  layout->count[1] = alpha;
  layout->count[2] = extras - alpha;
  if (palette) layout->bits[0] = palette_is_8bit(s) ? 8 : 16;
  const int type = s->format == SAMPLEFORMAT_IEEEFP && s->bits == 64 ? ORX_C_DOUBLE
                   : s->format != SAMPLEFORMAT_UINT                  ? ORX_C_FLOAT
                                                                     : ORX_C_INTEGER;
  for (int g = 0; g < 3; ++g) {
    if (type == ORX_C_INTEGER) continue;
    layout->type[g] = type;
    layout->bits[g] = type == ORX_C_DOUBLE ? 64 : 32;
  }
  return 1;
}

/* Sample i of a packed row as a number: unsigned integers as their value,
 * signed ones scaled to -1..1, floating point as stored. */
static double sample_at(const TiffSamples *s, const unsigned char *in, size_t i) {
  const unsigned bits = s->bits;
  if (bits % 8 != 0 || bits == 24) {
    uint32_t v = 0;
    size_t at = i * bits;
    for (unsigned k = 0; k < bits; ++k, ++at) v = v << 1 | ((in[at / 8] >> (7 - at % 8)) & 1u);
    if (s->format != SAMPLEFORMAT_INT) return v;
    const double top = ldexp(1.0, (int)bits - 1);
    return (v >= top ? v - 2.0 * top : v) / (top - 1.0);
  }
  const unsigned char *p = in + i * (bits / 8);
  if (s->format == SAMPLEFORMAT_IEEEFP) {
    if (bits == 16) {
      uint16_t h;
      memcpy(&h, p, 2);
      return half_to_float(h);
    }
    if (bits == 32) {
      float f;
      memcpy(&f, p, 4);
      return f;
    }
    double d;
    memcpy(&d, p, 8);
    return d;
  }
  if (s->format == SAMPLEFORMAT_INT) {
    const double top = ldexp(1.0, (int)bits - 1) - 1.0;
    if (bits == 8) return (int8_t)*p / top;
    if (bits == 16) {
      int16_t v;
      memcpy(&v, p, 2);
      return v / top;
    }
    int32_t v;
    memcpy(&v, p, 4);
    return v / top;
  }
  if (bits == 8) return *p;
  if (bits == 16) {
    uint16_t v;
    memcpy(&v, p, 2);
    return v;
  }
  uint32_t v;
  memcpy(&v, p, 4);
  return v;
}

/* A number into a plane sample: integers are whole numbers already. */
static unsigned char *put(unsigned char *out, int32_t type, int32_t bits, double v) {
  if (type == ORX_C_DOUBLE) {
    memcpy(out, &v, 8);
    return out + 8;
  }
  if (type == ORX_C_FLOAT) {
    const float f = (float)v;
    memcpy(out, &f, 4);
    return out + 4;
  }
  const uint32_t q = (uint32_t)v;
  if (bits <= 8) {
    *out = (unsigned char)q;
    return out + 1;
  }
  if (bits <= 16) {
    const uint16_t w = (uint16_t)q;
    memcpy(out, &w, 2);
    return out + 2;
  }
  memcpy(out, &q, 4);
  return out + 4;
}

/* CIE XYZ (D65) as linear RGB of the sRGB primaries. */
static void xyz_to_linear(const double xyz[3], double rgb[3]) {
  static const double m[3][3] = {{3.2404542, -1.5371385, -0.4985314},
                                 {-0.9692660, 1.8760108, 0.0415560},
                                 {0.0556434, -0.2040259, 1.0572252}};
  for (int i = 0; i < 3; ++i) rgb[i] = m[i][0] * xyz[0] + m[i][1] * xyz[1] + m[i][2] * xyz[2];
}

/* CIE L*a*b* samples (L scaled to the sample range, a* and b* signed, in
 * 1/256 units at 16 bits) relative to D65, as sRGB values from 0 to 1. */
static void lab_to_srgb(const TiffSamples *s, double l, double a, double b, double rgb[3]) {
  const double top = ldexp(1.0, s->bits) - 1.0, half = ldexp(1.0, s->bits - 1);
  l = l * 100.0 / top;
  a = (a >= half ? a - 2 * half : a) / (s->bits == 16 ? 256.0 : 1.0);
  b = (b >= half ? b - 2 * half : b) / (s->bits == 16 ? 256.0 : 1.0);
  const double fy = (l + 16.0) / 116.0, f[3] = {fy + a / 500.0, fy, fy - b / 200.0};
  const double white[3] = {0.95047, 1.0, 1.08883};
  double xyz[3];
  for (int i = 0; i < 3; ++i)
    xyz[i] = white[i] * (f[i] * f[i] * f[i] > 216.0 / 24389.0 ? f[i] * f[i] * f[i]
                                                              : (f[i] - 16.0 / 116.0) * 108.0 / 841.0);
  xyz_to_linear(xyz, rgb);
  for (int i = 0; i < 3; ++i) {
    const double v = rgb[i] < 0.0 ? 0.0 : rgb[i] > 1.0 ? 1.0 : rgb[i];
    rgb[i] = v <= 0.0031308 ? 12.92 * v : 1.055 * pow(v, 1.0 / 2.4) - 0.055;
  }
}

int32_t tiff_channel_of(const TiffSamples *s, const KitLayout *l, int32_t k) {
  const int32_t image = l->count[0], e = k - s->colour;
  if (e < 0 || l->count[1] == 0) return k - s->colour + image;
  return image + (e == s->matte ? 0 : e < s->matte ? e + 1 : e);
}

/* The file sample within a pixel that plane channel c holds. */
static int32_t sample_of(const TiffSamples *s, const KitLayout *l, int32_t c) {
  const int32_t image = l->count[0], e = c - image;
  if (e < 0 || l->count[1] == 0) return c - image + s->colour;
  return s->colour + (e == 0 ? s->matte : e - 1 < s->matte ? e - 1 : e);
}

void tiff_samples_convert(const TiffSamples *s, const KitPlane *plane, const unsigned char *in,
                          int32_t n, int32_t first, int32_t count, unsigned char *out) {
  const KitLayout *l = &plane->layout;
  const double top = ldexp(1.0, s->bits) - 1.0;
  const int integer = s->format == SAMPLEFORMAT_UINT;
  for (int32_t x = 0; x < n; ++x) {
    const size_t base = (size_t)x * (size_t)count;
    int32_t k = 0; /* file sample within the pixel */
    int32_t c = first;
    if (s->photometric == PHOTOMETRIC_PALETTE) {
      const uint32_t index = (uint32_t)sample_at(s, in, base);
      const int wide = l->bits[0] > 8;
      for (int i = 0; i < 3; ++i)
        out = put(out, ORX_C_INTEGER, l->bits[0], wide ? s->map[i][index] : s->map[i][index] / 257);
      continue;
    }
    if (s->photometric == PHOTOMETRIC_CIELAB) {
      double rgb[3];
      lab_to_srgb(s, sample_at(s, in, base), sample_at(s, in, base + 1),
                  sample_at(s, in, base + 2), rgb);
      for (int i = 0; i < 3; ++i) out = put(out, ORX_C_INTEGER, l->bits[0], floor(rgb[i] * top + 0.5));
      k = c = 3;
    } else if (s->photometric == PHOTOMETRIC_LOGLUV) {
      const double xyz[3] = {sample_at(s, in, base), sample_at(s, in, base + 1),
                             sample_at(s, in, base + 2)};
      double rgb[3];
      xyz_to_linear(xyz, rgb);
      for (int i = 0; i < 3; ++i) out = put(out, l->type[0], l->bits[0], rgb[i]);
      k = c = 3;
    } else if (s->photometric == PHOTOMETRIC_SEPARATED) {
      const double cmyk[4] = {sample_at(s, in, base), sample_at(s, in, base + 1),
                              sample_at(s, in, base + 2), sample_at(s, in, base + 3)};
      for (int i = 0; i < 3; ++i)
        out = put(out, ORX_C_INTEGER, l->bits[0],
                  floor((top - cmyk[i]) * (top - cmyk[3]) / top + 0.5));
      k = 4;
      c = 3;
    } else if (s->photometric == PHOTOMETRIC_MINISWHITE && first == 0) {
      const double v = sample_at(s, in, base);
      out = put(out, l->type[0], l->bits[0], integer ? top - v : 1.0 - v);
      k = c = 1;
    }
    for (; k < count; ++k, ++c) {
      const int g = c < l->count[0] ? 0 : c < l->count[0] + l->count[1] ? 1 : 2;
      const int32_t from = count > 1 ? sample_of(s, l, c) : k;
      out = put(out, l->type[g], l->bits[g], sample_at(s, in, base + (size_t)from));
    }
  }
}
