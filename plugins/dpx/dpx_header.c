/* The DPX header, both ways (see dpx_header.h).  Numbers are big-endian in
 * files that start "SDPX" and little-endian in those that start "XPDS"; a
 * field of all one bits is undefined. */
#include "dpx_header.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orx/attributes.h"
#include "orx/err.h"
#include "plugin_kit.h"


static float get_real(const unsigned char *p, int big) {
  const uint32_t w = dpx_get32(p, big);
  float f;
  memcpy(&f, &w, 4);
  return f;
}

static void put_real(unsigned char *p, float f, int big) {
  uint32_t w;
  memcpy(&w, &f, 4);
  dpx_put32(p, w, big);
}

#define kUndefined32 0xFFFFFFFFu

/* The header's fields that are attributes, as OpenImageIO names them. */
enum { F_TEXT = DPX_TEXT, F_U8 = DPX_U8, F_U32 = DPX_U32, F_REAL = DPX_REAL,
       F_TIMECODE = DPX_TIMECODE };
static const DpxField kFields[] = {
    {"Copyright", 460, F_TEXT, 200},
    {"dpx:DittoKey", 20, F_U32, 4},
    {"dpx:LowData", DPX_ELEMENT_AT + 4, F_U32, 4},
    {"dpx:LowQuantity", DPX_ELEMENT_AT + 8, F_REAL, 4},
    {"dpx:HighData", DPX_ELEMENT_AT + 12, F_U32, 4},
    {"dpx:HighQuantity", DPX_ELEMENT_AT + 16, F_REAL, 4},
    {"dpx:SourceImageFileName", 1432, F_TEXT, 100},
    {"dpx:SourceDateTime", 1532, F_TEXT, 24},
    {"dpx:InputDevice", 1556, F_TEXT, 32},
    {"dpx:InputDeviceSerialNumber", 1588, F_TEXT, 32},
    {"dpx:XScannedSize", 1636, F_REAL, 4},
    {"dpx:YScannedSize", 1640, F_REAL, 4},
    /* The motion-picture film and television headers. */
    {"dpx:FilmEdgeCode", 1664, F_TEXT, 16},
    {"dpx:Format", 1680, F_TEXT, 32},
    {"dpx:FramePosition", 1712, F_U32, 4},
    {"dpx:SequenceLength", 1716, F_U32, 4},
    {"dpx:HeldCount", 1720, F_U32, 4},
    {"dpx:FrameRate", 1724, F_REAL, 4},
    {"dpx:ShutterAngle", 1728, F_REAL, 4},
    {"dpx:FrameId", 1732, F_TEXT, 32},
    {"dpx:SlateInfo", 1764, F_TEXT, 100},
    {"dpx:TimeCode", 1920, F_TIMECODE, 4},
    {"dpx:UserBits", 1924, F_U32, 4},
    {"dpx:Interlace", 1928, F_U8, 1},
    {"dpx:FieldNumber", 1929, F_U8, 1},
    {"dpx:HorizontalSampleRate", 1932, F_REAL, 4},
    {"dpx:VerticalSampleRate", 1936, F_REAL, 4},
    {"dpx:TemporalFrameRate", 1940, F_REAL, 4},
    {"dpx:TimeOffset", 1944, F_REAL, 4},
    {"dpx:Gamma", 1948, F_REAL, 4},
    {"dpx:BlackLevel", 1952, F_REAL, 4},
    {"dpx:BlackGain", 1956, F_REAL, 4},
    {"dpx:BreakPoint", 1960, F_REAL, 4},
    {"dpx:WhiteLevel", 1964, F_REAL, 4},
    {"dpx:IntegrationTimes", 1968, F_REAL, 4},
};
enum { kFieldCount = sizeof kFields / sizeof kFields[0] };

/* The header texts: the project, the creator, the creation time and the
 * first element's description. */
static const struct {
  uint16_t at;
  uint8_t length;
  size_t field;
} kTexts[] = {
    {260, 200, offsetof(ORX_INFO, name)},
    {160, 100, offsetof(ORX_INFO, program)},
    {136, 24, offsetof(ORX_INFO, date)},
    {DPX_ELEMENT_AT + 40, 32, offsetof(ORX_INFO, desc)},
};
enum { kTextCount = sizeof kTexts / sizeof kTexts[0] };

/* Transfer characteristics and colorimetric specifications share codes. */
static const char *const kTransfers[] = {
    "User defined",     "Printing density",           "Linear",
    "Logarithmic",      "Unspecified video",          "SMPTE 274M",
    "ITU-R 709-4",      "ITU-R 601-5 system B or G", "ITU-R 601-5 system M",
    "NTSC composite video", "PAL composite video",    "Z depth linear",
    "Z depth homogeneous",  "ADX"};
enum { kTransferCount = sizeof kTransfers / sizeof kTransfers[0] };

/* The colour spaces OpenImageIO names for the transfers that have one. */
static const struct {
  int transfer;
  const char *space;
} kSpaces[] = {{2, "Linear"}, {3, "KodakLog"}, {6, "Rec709"}};

/* DPX orientations 0 to 7 as EXIF orientations. */
static const int kOrientations[8] = {1, 2, 4, 3, 5, 6, 8, 7};

static const char *const kPackings[3] = {"Packed", "Filled, method A", "Filled, method B"};

const char *dpx_packing_name(int packing) {
  return packing >= 0 && packing < 3 ? kPackings[packing] : "Packed";
}

int dpx_descriptor_channels(int descriptor) {
  switch (descriptor) {
    case 1: case 2: case 3: case DPX_ALPHA: case DPX_LUMA: return 1;
    case DPX_RGB: return 3;
    case DPX_RGBA: case DPX_ABGR: return 4;
    default: return 0;
  }
}

static void parse_element(const unsigned char *e, int big, DpxElement *el) {
  el->sign = (int)dpx_get32(e, big);
  el->descriptor = e[20];
  el->transfer = e[21];
  el->colorimetric = e[22];
  el->coding.bits = e[23];
  el->coding.packing = (int)dpx_get16(e + 24, big);
  el->coding.big = big;
  el->encoding = (int)dpx_get16(e + 26, big);
  el->offset = dpx_get32(e + 28, big);
  el->line_padding = dpx_get32(e + 32, big);
  if (el->line_padding == kUndefined32) el->line_padding = 0;
  /* Single-channel 10-bit words hold their first sample low, as every
   * writer of luma stores it (ImageMagick, OpenImageIO). */
  el->coding.low_first = dpx_descriptor_channels(el->descriptor) == 1;
  /* Packed rows end on a word; so do rows of 8-bit samples packed that
   * way (ImageMagick's), but not filled ones (OpenImageIO's). */
  el->coding.pad_rows = el->coding.packing == DPX_PACKED && el->coding.bits <= 12;
}

int dpx_parse(const unsigned char *h, size_t n, DpxImage *image, const char *path) {
  memset(image, 0, sizeof *image);
  if (n < DPX_GENERIC_SIZE)
    return kit_fail(ORX_E_NOT_OUR_FILE, "dpx: %s: the file ends inside its header (truncated)",
                    path);
  const int big = memcmp(h, "SDPX", 4) == 0;
  if (!big && memcmp(h, "XPDS", 4) != 0)
    return kit_fail(ORX_E_NOT_OUR_FILE, "dpx: %s is not a DPX file", path);
  image->big = big;
  image->orientation = (int)dpx_get16(h + 768, big);
  image->elements = (int)dpx_get16(h + 770, big);
  image->width = dpx_get32(h + 772, big);
  image->height = dpx_get32(h + 776, big);
  if (image->elements < 1 || image->elements > 8)
    return kit_fail(ORX_E_NOT_OUR_FILE, "dpx: %s: %d image elements (1 to 8)", path,
                    image->elements);
  if (image->width == 0 || image->height == 0 || image->width > INT32_MAX / 2 ||
      image->height > INT32_MAX / 2)
    return kit_fail(ORX_E_NOT_OUR_FILE, "dpx: %s: %lu x %lu pixels", path,
                    (unsigned long)image->width, (unsigned long)image->height);
  DpxElement *el = &image->element[0];
  parse_element(h + DPX_ELEMENT_AT, big, el);
  const int bits = el->coding.bits;
  if (el->encoding == 1)
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    "dpx: %s: run-length encoded image data is not supported", path);
  if (dpx_descriptor_channels(el->descriptor) == 0)
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    "dpx: %s: image element descriptor %d is not supported (luma, alpha, "
                    "R, G, B, RGB, RGBA and ABGR are; 4:2:2 and other YCbCr kinds are not)",
                    path, el->descriptor);
  if (bits != 8 && bits != 10 && bits != 12 && bits != 16 && bits != 32 && bits != 64)
    return kit_fail(ORX_E_NOT_OUR_FILE, "dpx: %s: %d-bit samples are not supported", path, bits);
  if (el->coding.packing > DPX_FILLED_B)
    return kit_fail(ORX_E_NOT_OUR_FILE, "dpx: %s: packing %d is unknown", path,
                    el->coding.packing);
  if (el->offset == kUndefined32 || el->offset == 0) el->offset = dpx_get32(h + 4, big);
  /* Luma followed by an alpha element of the same coding: the matte. */
  if (image->elements >= 2 && el->descriptor == DPX_LUMA) {
    DpxElement *alpha = &image->element[1];
    parse_element(h + DPX_ELEMENT_AT + DPX_ELEMENT_SIZE, big, alpha);
    image->has_alpha_element = alpha->descriptor == DPX_ALPHA && alpha->encoding == 0 &&
                               alpha->coding.bits == bits &&
                               alpha->coding.packing == el->coding.packing &&
                               alpha->offset != kUndefined32 && alpha->offset != 0;
  }
  if (image->elements > 1 + image->has_alpha_element)
    kit_note("dpx: %s: the first of %d image elements read", path, image->elements);
  image->x_offset = dpx_get32(h + 1408, big);
  image->y_offset = dpx_get32(h + 1412, big);
  image->original_width = dpx_get32(h + 1424, big);
  image->original_height = dpx_get32(h + 1428, big);
  if (image->x_offset > INT32_MAX / 2) image->x_offset = 0;
  if (image->y_offset > INT32_MAX / 2) image->y_offset = 0;
  if (image->original_width > INT32_MAX / 2) image->original_width = 0;
  if (image->original_height > INT32_MAX / 2) image->original_height = 0;
  /* Rows are handed out window-wide: a window far wider than the pixels
   * (a damaged original size or offset) would cost memory no pixel needs. */
  const uint64_t wide = (uint64_t)image->x_offset + image->width > image->original_width
                            ? (uint64_t)image->x_offset + image->width
                            : image->original_width;
  if (wide > 16 * (uint64_t)image->width + 65536) {
    kit_warn("dpx: %s: the picture's offset and original size ignored (%lu columns for %lu "
             "pixels a row)", path, (unsigned long)wide, (unsigned long)image->width);
    image->x_offset = image->y_offset = image->original_width = image->original_height = 0;
  }
  const uint32_t across = dpx_get32(h + 1628, big), down = dpx_get32(h + 1632, big);
  const double aspect = across != kUndefined32 && down != kUndefined32 && down != 0
                            ? (double)across / down
                            : 1.0;
  image->pixel_aspect = aspect >= 1e-4 && aspect <= 1e4 ? aspect : 1.0;
  return 1;
}

/* A text field's characters up to its first NUL, or "" when it is
 * undefined (a writer fills unused fields with NUL or 0xFF). */
void dpx_field_text(const unsigned char *p, size_t length, char *out) {
  size_t k = 0;
  while (k < length && p[k] != 0 && p[k] != 0xFF) {
    out[k] = (char)p[k];
    ++k;
  }
  out[k] = 0;
}

/* "YYYY:MM:DD:HH:MM:SS" and ISO's "YYYY-MM-DDTHH:MM:SS", with or without a
 * zone, as the date "YYYY:MM:DD HH:MM:SS" other formats carry. */
static void date_from_file(char *text) {
  if (strlen(text) >= 19 && (text[10] == ':' || text[10] == 'T')) {
    text[10] = ' ';
    text[19] = 0;
  }
}

static int set_text(ORX_INFO *info, const char *name, const char *text) {
  if (kit_is_utf8(text)) return ORX_attr_set_string(info, 0, name, text) == 0;
  char *utf8 = kit_latin1_to_utf8(text);
  const int set = utf8 != NULL && ORX_attr_set_string(info, 0, name, utf8) == 0;
  free(utf8);
  return set;
}

int dpx_save_text(char **field, const char *text) {
  if (kit_is_utf8(text)) return kit_save(field, text);
  char *utf8 = kit_latin1_to_utf8(text);
  const int saved = utf8 != NULL && kit_save(field, utf8);
  free(utf8);
  return saved;
}

int dpx_describe_fields(ORX_INFO *info, const unsigned char *h, size_t size, int big,
                        const DpxField *fields, int count) {
  char text[256];
  int ok = 1;
  for (int i = 0; ok && i < count; ++i) {
    const unsigned char *p = h + fields[i].at;
    if ((size_t)fields[i].at + fields[i].length > size) continue;
    const uint32_t w = fields[i].length >= 4 ? dpx_get32(p, big) : 0;
    switch (fields[i].kind) {
      case F_TEXT:
        dpx_field_text(p, fields[i].length, text);
        if (text[0] != 0) ok = set_text(info, fields[i].name, text);
        break;
      case F_U8:
        if (*p != 0xFF) ok = ORX_attr_set_int(info, 0, fields[i].name, *p) == 0;
        break;
      case F_U32:
        if (w != kUndefined32) ok = ORX_attr_set_int(info, 0, fields[i].name, (int32_t)w) == 0;
        break;
      case F_REAL:
        if (w != kUndefined32 && !isnan(get_real(p, big)))
          ok = ORX_attr_set_float(info, 0, fields[i].name, get_real(p, big)) == 0;
        break;
      default: /* F_TIMECODE: hours, minutes, seconds and frames in BCD */
        if (w != kUndefined32) {
          snprintf(text, sizeof text, "%02x:%02x:%02x:%02x", (unsigned)(w >> 24),
                   (unsigned)(w >> 16 & 0xff), (unsigned)(w >> 8 & 0xff), (unsigned)(w & 0xff));
          ok = ORX_attr_set_string(info, 0, fields[i].name, text) == 0;
        }
        break;
    }
  }
  return ok;
}

int dpx_describe(ORX_INFO *info, const unsigned char *h, size_t n, const DpxImage *image) {
  const int big = image->big;
  char text[256];
  for (int i = 0; i < kTextCount; ++i) {
    dpx_field_text(h + kTexts[i].at, kTexts[i].length, text);
    if (i == 2) date_from_file(text);
    if (text[0] != 0 && !dpx_save_text((char **)((char *)info + kTexts[i].field), text))
      return 0;
  }
  /* The industry headers are there when the file says so. */
  const uint32_t generic = dpx_get32(h + 24, big), industry = dpx_get32(h + 28, big);
  const size_t end = generic + (uint64_t)industry >= DPX_HEADER_SIZE && n >= DPX_HEADER_SIZE
                         ? DPX_HEADER_SIZE
                         : DPX_GENERIC_SIZE;
  const int ok = dpx_describe_fields(info, h, end, big, kFields, kFieldCount);
  if (!ok) return 0;
  const DpxElement *el = &image->element[0];
  static const char *const kDescriptors[] = {"Red", "Green", "Blue", "Alpha", "", "Luma"};
  const char *descriptor = el->descriptor <= DPX_LUMA ? kDescriptors[el->descriptor - 1]
                           : el->descriptor == DPX_RGB ? "RGB"
                           : el->descriptor == DPX_RGBA ? "RGBA"
                                                        : "ABGR";
  char version[9];
  dpx_field_text(h + 8, 8, version);
  if ((version[0] != 0 && ORX_attr_set_string(info, 0, "dpx:Version", version) != 0) ||
      ORX_attr_set_string(info, 0, "dpx:ImageDescriptor", descriptor) != 0 ||
      ORX_attr_set_string(info, 0, "dpx:Packing", dpx_packing_name(el->coding.packing)) != 0 ||
      ORX_attr_set_int(info, 0, "dpx:EndOfLinePadding", (int32_t)el->line_padding) != 0)
    return 0;
  if (el->transfer < kTransferCount &&
      ORX_attr_set_string(info, 0, "dpx:Transfer", kTransfers[el->transfer]) != 0)
    return 0;
  if (el->colorimetric < kTransferCount &&
      ORX_attr_set_string(info, 0, "dpx:Colorimetric", kTransfers[el->colorimetric]) != 0)
    return 0;
  for (size_t i = 0; i < sizeof kSpaces / sizeof kSpaces[0]; ++i)
    if (kSpaces[i].transfer == el->transfer &&
        ORX_attr_set_string(info, 0, "oiio:ColorSpace", kSpaces[i].space) != 0)
      return 0;
  /* Pixels stay as stored; the orientation tells a host how to show them. */
  const int orientation = image->orientation < 8 ? kOrientations[image->orientation] : 1;
  if (orientation != 1 && ORX_attr_set_int(info, 0, "Orientation", orientation) != 0) return 0;
  return 1;
}

/* Attributes the writer keeps besides the table's fields. */
static const char *const kLayoutNames[] = {"dpx:Version", "dpx:ImageDescriptor", "dpx:Packing",
                                           "dpx:EndOfLinePadding", "dpx:Transfer",
                                           "dpx:Colorimetric", "oiio:ColorSpace", "Orientation"};
enum { kLayoutCount = sizeof kLayoutNames / sizeof kLayoutNames[0] };

void dpx_keep_attributes(ORX_INFO *info) {
  const char *kept[kFieldCount + kLayoutCount + 1];
  int k = 0;
  for (int i = 0; i < kFieldCount; ++i) kept[k++] = kFields[i].name;
  for (int i = 0; i < kLayoutCount; ++i) kept[k++] = kLayoutNames[i];
  kept[k] = NULL;
  ORX_attr_keep(info, kept);
  /* Only the colour spaces a transfer code names. */
  const char *space = ORX_attr_get_string(info, 0, "oiio:ColorSpace");
  int known = 0;
  for (size_t i = 0; space != NULL && i < sizeof kSpaces / sizeof kSpaces[0]; ++i)
    known |= strcmp(space, kSpaces[i].space) == 0;
  if (space != NULL && !known) ORX_attr_remove(info, 0, "oiio:ColorSpace");
}

static void put_text(unsigned char *p, size_t length, const char *text) {
  memset(p, 0, length);
  if (text != NULL) memcpy(p, text, strnlen(text, length));
}

/* The code of a transfer or colorimetric name, 255 (undefined) for none. */
static int transfer_code(const char *name) {
  for (int i = 0; name != NULL && i < kTransferCount; ++i)
    if (strcmp(name, kTransfers[i]) == 0) return i;
  return 255;
}

static uint32_t timecode(const char *text) {
  unsigned f[4];
  if (text == NULL || sscanf(text, "%2u:%2u:%2u:%2u", &f[0], &f[1], &f[2], &f[3]) != 4)
    return kUndefined32;
  uint32_t w = 0;
  for (int i = 0; i < 4; ++i) w = w << 8 | (f[i] / 10 % 10) << 4 | f[i] % 10;
  return w;
}

static void format_element(unsigned char *e, const DpxElement *el, int big) {
  dpx_put32(e, 0, big);
  e[20] = (unsigned char)el->descriptor;
  e[21] = (unsigned char)el->transfer;
  e[22] = (unsigned char)el->colorimetric;
  e[23] = (unsigned char)el->coding.bits;
  dpx_put16(e + 24, (uint32_t)el->coding.packing, big);
  dpx_put16(e + 26, 0, big);
  dpx_put32(e + 28, el->offset, big);
  dpx_put32(e + 32, el->line_padding, big);
  dpx_put32(e + 36, 0, big);
  put_text(e + 40, 32, NULL);
}

int dpx_format(unsigned char h[DPX_HEADER_SIZE], ORX_INFO *info, const DpxImage *image,
               uint32_t file_size) {
  const int big = image->big;
  memset(h, 0xFF, DPX_HEADER_SIZE);
  memcpy(h, big ? "SDPX" : "XPDS", 4);
  dpx_put32(h + 4, image->element[0].offset, big);
  put_text(h + 8, 8, "V2.0");
  dpx_put32(h + 16, file_size, big);
  dpx_put32(h + 20, 1, big);
  dpx_put32(h + 24, DPX_GENERIC_SIZE, big);
  dpx_put32(h + 28, DPX_HEADER_SIZE - DPX_GENERIC_SIZE, big);
  dpx_put32(h + 32, 0, big);
  put_text(h + 36, 100, NULL);
  for (int k = 0; k < 1 + image->has_alpha_element; ++k)
    format_element(h + DPX_ELEMENT_AT + k * DPX_ELEMENT_SIZE, &image->element[k], big);
  for (int i = 0; i < kTextCount; ++i) {
    char date[32];
    char scratch[32];
    const char *text = *(char **)((char *)info + kTexts[i].field);
    if (i == 2) {
      text = kit_date_text(text, scratch, sizeof scratch);
      if (text != NULL && strlen(text) >= 19 && text[10] == ' ') {
        snprintf(date, sizeof date, "%.10s:%s", text, text + 11);
        text = date;
      }
    }
    put_text(h + kTexts[i].at, kTexts[i].length, kit_has_text(text) ? text : NULL);
  }
  put_text(h + 460, 200, NULL);
  put_text(h + 664, 104, NULL);
  dpx_put16(h + 770, (uint32_t)(1 + image->has_alpha_element), big);
  dpx_put32(h + 772, image->width, big);
  dpx_put32(h + 776, image->height, big);
  int32_t orientation = 1;
  ORX_attr_get_int(info, 0, "Orientation", &orientation);
  dpx_put16(h + 768, 0, big);
  for (uint32_t k = 0; k < 8; ++k)
    if (kOrientations[k] == orientation) dpx_put16(h + 768, k, big);
  put_text(h + 1356, 52, NULL);
  dpx_put32(h + 1408, image->x_offset, big);
  dpx_put32(h + 1412, image->y_offset, big);
  dpx_put32(h + 1424, image->original_width, big);
  dpx_put32(h + 1428, image->original_height, big);
  put_text(h + 1432, 100, NULL);
  put_text(h + 1532, 24, NULL);
  put_text(h + 1556, 64, NULL);
  uint32_t across = 1, down = 1;
  if (fabs(image->pixel_aspect - 1.0) > 1e-6)
    kit_aspect_densities(image->pixel_aspect, 100000, &down, &across);
  dpx_put32(h + 1628, across, big);
  dpx_put32(h + 1632, down, big);
  put_text(h + 1644, 20, NULL);
  put_text(h + 1664, 48, NULL);
  put_text(h + 1732, 132, NULL);
  put_text(h + 1864, 56, NULL);
  put_text(h + 1972, 76, NULL);
  h[1930] = 0; /* the video signal: undefined */
  for (int i = 0; i < kFieldCount; ++i) {
    unsigned char *p = h + kFields[i].at;
    const char *name = kFields[i].name;
    int32_t v = 0;
    float f = 0.0f;
    if (kFields[i].kind == F_TEXT) {
      const char *text = ORX_attr_get_string(info, 0, name);
      if (text != NULL) put_text(p, kFields[i].length, text);
    } else if (kFields[i].kind == F_TIMECODE) {
      dpx_put32(p, timecode(ORX_attr_get_string(info, 0, name)), big);
    } else if (kFields[i].kind == F_REAL) {
      if (ORX_attr_get_float(info, 0, name, &f)) put_real(p, f, big);
    } else if (ORX_attr_get_int(info, 0, name, &v)) {
      if (kFields[i].kind == F_U8) *p = (unsigned char)v;
      else dpx_put32(p, (uint32_t)v, big);
    }
  }
  /* The attributes that describe the file say what it now stores. */
  const DpxElement *el = &image->element[0];
  const char *descriptor = el->descriptor == DPX_LUMA ? "Luma"
                           : el->descriptor == DPX_RGB ? "RGB"
                                                       : "RGBA";
  return ORX_attr_set_string(info, 0, "dpx:Version", "V2.0") == 0 &&
         ORX_attr_set_string(info, 0, "dpx:ImageDescriptor", descriptor) == 0 &&
         ORX_attr_set_string(info, 0, "dpx:Packing", dpx_packing_name(el->coding.packing)) == 0 &&
         ORX_attr_set_int(info, 0, "dpx:EndOfLinePadding", (int32_t)el->line_padding) == 0;
}

/* The transfer and colorimetric codes a writer stores: those of the
 * attributes, else the transfer of the colour space a host names. */
void dpx_transfer_codes(const ORX_INFO *info, int *transfer, int *colorimetric) {
  *transfer = transfer_code(ORX_attr_get_string(info, 0, "dpx:Transfer"));
  *colorimetric = transfer_code(ORX_attr_get_string(info, 0, "dpx:Colorimetric"));
  const char *space = ORX_attr_get_string(info, 0, "oiio:ColorSpace");
  for (size_t i = 0; *transfer == 255 && space != NULL && i < sizeof kSpaces / sizeof kSpaces[0];
       ++i)
    if (strcmp(space, kSpaces[i].space) == 0) *transfer = kSpaces[i].transfer;
}
