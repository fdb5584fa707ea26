/* Cineon files (Kodak's scanned-film format, the ancestor of DPX), read
 * only, with the codec DPX uses.  One or three channels of 8, 10 or 16-bit
 * code values, pixel-interleaved: 10-bit samples three to a 32-bit word
 * (packing 5, padding low; 6, padding high), 8-bit samples on byte or
 * 32-bit boundaries, 16-bit samples in 16-bit words; big- or little-endian.
 * The samples are the file's log code values, not linearised, as
 * OpenImageIO reads them (`oiio:ColorSpace` "KodakLog").  The header's
 * orientation becomes `Orientation` (pixels as stored), its primaries and
 * white point the chromaticities, its label the description, its dates the
 * date, and its origination and film fields `cineon:` attributes under
 * OpenImageIO's names. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "dpx_header.h"
#include "dpx_rows.h"
#include "orx/attributes.h"
#include "orx/err.h"
#include "orx/plugin.h"
#include "plugin_kit.h"

const char *version = ORX_PLUGIN_VERSION;
const char *imageKey = "cineon";
const char *imageExtension = ".cin";
const char *imageName = "Cineon";
const char *imageDescription = "Kodak Cineon: 8, 10 and 16-bit log code values, grey or RGB";
const char *imageNameSyntax = "Name.####.cin";
int imageOrientation = 0; /* rows are stored top first */
int imageNumberOfChannels = 3;
int imageBitsPerChannel = (1 << 7) | (1 << 9) | (1 << 15);
int imageAccess = ORX_ACCESS_READ | ORX_ACCESS_RANDOM;

static const char kWho[] = "cineon";
enum { kHeaderSize = 2048, kImageInfo = 192, kChannelAt = 196, kChannelSize = 28 };

/* The header's fields that are attributes, as OpenImageIO names them. */
static const DpxField kFields[] = {
    {"cineon:Version", 24, DPX_TEXT, 8},
    {"cineon:XOffset", 712, DPX_U32, 4},
    {"cineon:YOffset", 716, DPX_U32, 4},
    {"cineon:SourceImageFileName", 720, DPX_TEXT, 100},
    {"cineon:InputDevice", 844, DPX_TEXT, 64},
    {"cineon:InputDeviceModelNumber", 908, DPX_TEXT, 32},
    {"cineon:InputDeviceSerialNumber", 940, DPX_TEXT, 32},
    {"cineon:XDevicePitch", 972, DPX_REAL, 4},
    {"cineon:YDevicePitch", 976, DPX_REAL, 4},
    {"cineon:Gamma", 980, DPX_REAL, 4},
    {"cineon:Format", 1036, DPX_TEXT, 32},
    {"cineon:FramePosition", 1068, DPX_U32, 4},
    {"cineon:FrameRate", 1072, DPX_REAL, 4},
    {"cineon:FrameId", 1076, DPX_TEXT, 32},
    {"cineon:SlateInfo", 1108, DPX_TEXT, 200},
};
enum { kFieldCount = sizeof kFields / sizeof kFields[0] };

/* Cineon orientations 0 to 7, as DPX's, as EXIF orientations. */
static const int kOrientations[8] = {1, 2, 4, 3, 5, 6, 8, 7};

typedef struct Cineon {
  DpxRows rows;
} Cineon;

static int release(ORX_OBJECT *object) {
  Cineon *c = object->private_cell != NULL ? (Cineon *)object->private_cell[0] : NULL;
  if (c == NULL) return 0;
  object->private_cell[0] = NULL;
  dpx_rows_free(&c->rows);
  if (c->rows.file != NULL) fclose(c->rows.file);
  ERR_free(c);
  return 0;
}

static int close_object(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  release(object);
  orx__free_obj(object);
  return 0;
}

/* Whether the header is big-endian; -1 when it is not a Cineon header. */
static int byte_order(const unsigned char *h) {
  static const unsigned char magic[4] = {0x80, 0x2A, 0x5F, 0xD7};
  if (memcmp(h, magic, 4) == 0) return 1;
  return h[0] == magic[3] && h[1] == magic[2] && h[2] == magic[1] && h[3] == magic[0] ? 0 : -1;
}

uint8_t imageIsFile(const char *name, FILE *stream) {
  unsigned char magic[4];
  return kit_peek(name, stream, magic, 4) == 4 && byte_order(magic) >= 0;
}

static float get_real(const unsigned char *p, int big) {
  const uint32_t w = dpx_get32(p, big);
  float f;
  memcpy(&f, &w, 4);
  return f;
}

/* The chromaticities, when the header defines them (white, red, green,
 * blue as x, y pairs). */
static void chromaticities(ORX_INFO *info, const unsigned char *h, int big) {
  float xy[8];
  for (int k = 0; k < 8; ++k) {
    xy[k] = get_real(h + 420 + 4 * k, big);
    if (dpx_get32(h + 420 + 4 * k, big) == 0xFFFFFFFFu || !(xy[k] > 0.0f && xy[k] < 1.0f))
      return;
  }
  const float ordered[8] = {xy[2], xy[3], xy[4], xy[5], xy[6], xy[7], xy[0], xy[1]};
  kit_set_chromaticities(info, ordered);
}

/* Header texts and attributes; 0 when memory ran out. */
static int describe_texts(ORX_INFO *info, const unsigned char *h, int big) {
  char date[16], time[16], text[256];
  dpx_field_text(h + 132, 12, date);
  dpx_field_text(h + 144, 12, time);
  if (date[0] != 0) {
    snprintf(text, sizeof text, "%s%s%.8s", date, time[0] != 0 ? " " : "", time);
    if (!dpx_save_text(&info->date, text)) return 0;
  }
  dpx_field_text(h + 452, 200, text);
  if (text[0] != 0 && !dpx_save_text(&info->desc, text)) return 0;
  if (!dpx_describe_fields(info, h, kHeaderSize, big, kFields, kFieldCount)) return 0;
  if (h[1024] != 0xFF) {
    snprintf(text, sizeof text, "%02u%02u%02u%06lu%04lu", (unsigned)(h[1024] % 100),
             (unsigned)(h[1025] % 100), (unsigned)(h[1026] % 100),
             (unsigned long)(dpx_get32(h + 1028, big) % 1000000),
             (unsigned long)(dpx_get32(h + 1032, big) % 10000));
    if (ORX_attr_set_string(info, 0, "cineon:FilmEdgeCode", text) != 0) return 0;
  }
  const int orientation = h[kImageInfo] < 8 ? kOrientations[h[kImageInfo]] : 1;
  if (orientation != 1 && ORX_attr_set_int(info, 0, "Orientation", orientation) != 0) return 0;
  return ORX_attr_set_string(info, 0, "oiio:ColorSpace", "KodakLog") == 0;
}

/* The layout of the samples; 1, or 0 after a report. */
static int plan(DpxRows *rows, const unsigned char *h, int big, uint32_t *width,
                uint32_t *height) {
  const char *path = rows->path;
  const int channels = h[kImageInfo + 1];
  if (channels != 1 && channels != 3)
    return kit_fail(ORX_E_NOT_OUR_FILE, "cineon: %s: %d channels (1 or 3 are read)", path,
                    channels);
  const unsigned char *first = h + kChannelAt;
  const int bits = first[2];
  *width = dpx_get32(first + 4, big);
  *height = dpx_get32(first + 8, big);
  for (int c = 1; c < channels; ++c) {
    const unsigned char *other = h + kChannelAt + c * kChannelSize;
    if (other[2] != bits || dpx_get32(other + 4, big) != *width ||
        dpx_get32(other + 8, big) != *height)
      return kit_fail(ORX_E_NOT_OUR_FILE,
                      "cineon: %s: channels of different sizes or depths are not supported",
                      path);
  }
  if (*width == 0 || *height == 0 || *width > INT32_MAX / 2 || *height > INT32_MAX / 2)
    return kit_fail(ORX_E_NOT_OUR_FILE, "cineon: %s: %lu x %lu pixels", path,
                    (unsigned long)*width, (unsigned long)*height);
  const int interleave = h[680], packing = h[681];
  if (interleave != 0)
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    "cineon: %s: line- or channel-interleaved samples are not supported", path);
  /* 10 bits three to a word (5, 6); 8 bits on byte (1, 2) or word (5, 6)
   * boundaries; 16 bits in their own words (any packing but bits end to
   * end). */
  const int words = packing == 5 || packing == 6;
  if (!((bits == 10 && words) || (bits == 8 && (words || packing == 1 || packing == 2)) ||
        (bits == 16 && packing != 0)))
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    "cineon: %s: %d-bit samples in packing %d are not supported", path, bits,
                    packing);
  DpxSource *src = &rows->source[0];
  rows->sources = 1;
  src->channels = channels;
  for (int k = 0; k < channels; ++k) src->to[k] = k;
  src->coding.bits = bits;
  src->coding.big = big;
  src->coding.packing = packing == 6 ? DPX_FILLED_B : DPX_FILLED_A;
  src->coding.pad_rows = words && bits == 8;
  src->offset = dpx_get32(h + 4, big);
  uint32_t padding = dpx_get32(h + 684, big);
  if (padding == 0xFFFFFFFFu) padding = 0;
  src->stride = dpx_row_bytes(&src->coding, (uint64_t)*width * (uint64_t)channels) + padding;
  rows->channels = channels;
  rows->sample_size = dpx_sample_size(bits);
  return 1;
}

int imageReadOpen(ORX_OBJECT *object) {
  const char *path = object->info.handle;
  if (path == NULL) return kit_fail(ORX_E_FIELD_MISSING, "cineon: no file name to read");
  if (!kit_new_images(object, 1)) return 0;
  Cineon *c = (Cineon *)kit_allocate(sizeof(Cineon));
  if (c == NULL) return 0;
  memset(c, 0, sizeof *c);
  object->private_cell[0] = c;
  DpxRows *rows = &c->rows;
  rows->who = kWho;
  rows->path = path;
  rows->file = fopen(path, "rb");
  if (rows->file == NULL) {
    release(object);
    return kit_fail(ORX_E_FIELD_MISSING, "cineon: cannot open %s", path);
  }
  const int64_t size = dpx_file_size(rows->file);
  unsigned char h[kHeaderSize];
  const int whole = fread(h, 1, sizeof h, rows->file) == sizeof h;
  const int big = whole ? byte_order(h) : -1;
  if (size < 0 || big < 0) {
    release(object);
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    whole ? "cineon: %s is not a Cineon file"
                          : "cineon: %s: the file ends inside its header (truncated)",
                    path);
  }
  uint32_t width = 0, height = 0;
  ORX_IFD *ifd = &object->info.images[0];
  if (!plan(rows, h, big, &width, &height)) return release(object);
  KitLayout layout = {{rows->channels, 0, 0}, {ORX_C_INTEGER, ORX_C_INTEGER, ORX_C_INTEGER},
                      {rows->source[0].coding.bits, 0, 0}};
  kit_layout_apply(&layout, ifd);
  dpx_windows(ifd, width, height, 0, 0, 0, 0, 1.0);
  rows->window = ifd->window;
  rows->active = ifd->active;
  chromaticities(&object->info, h, big);
  if (!kit_save(&ifd->image.name, rows->channels == 3 ? "rgb" : "grey") ||
      !describe_texts(&object->info, h, big) || !dpx_rows_init(rows, (uint64_t)size))
    return release(object);
  object->scan = dpx_rows_scan;
  object->close = close_object;
  return 1;
}
