/* The kit's helpers beside the plane (kit_plane.c) and alpha (kit_alpha.c):
 * reports, texts and dates, new records and channel layouts, settings,
 * claimed and peeked files, attributes and colour metadata. */
#include "plugin_kit.h"

#include <math.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <stdlib.h>
#include <time.h>
#include <errno.h>
#include <sys/stat.h>

#include "orx/attributes.h"
#include "orx/err.h"

static void report(int severity, const char *format, va_list args) {
  char message[512];
  vsnprintf(message, sizeof message, format, args);
  ERR_printf(severity, "%s", message);
}

int kit_fail(int32_t status, const char *format, ...) {
  va_list args;
  va_start(args, format);
  report(ERR_ERROR, format, args);
  va_end(args);
  orx__set_err(status);
  return 0;
}

void kit_note(const char *format, ...) {
  va_list args;
  va_start(args, format);
  report(ERR_INFORMATION, format, args);
  va_end(args);
}

void kit_warn(const char *format, ...) {
  va_list args;
  va_start(args, format);
  report(ERR_WARNING, format, args);
  va_end(args);
}

void *kit_allocate(size_t size) {
  void *block = size <= UINT32_MAX ? ERR_malloc((uint32_t)size) : NULL;
  if (block == NULL) orx__set_err(ORX_E_NO_MEMORY);
  return block;
}

int kit_save(char **field, const char *text) {
  char *copy = NULL;
  if (text != NULL) {
    size_t n = strlen(text) + 1;
    copy = (char *)kit_allocate(n);
    if (copy == NULL) return 0;
    memcpy(copy, text, n);
  }
  ERR_free(*field);
  *field = copy;
  return 1;
}

int kit_is_utf8(const char *text) {
  for (const unsigned char *c = (const unsigned char *)text; *c != 0;) {
    const int more = *c < 0x80 ? 0 : (*c & 0xe0) == 0xc0 ? 1 : (*c & 0xf0) == 0xe0 ? 2
                                   : (*c & 0xf8) == 0xf0 ? 3 : -1;
    if (more < 0) return 0;
    ++c;
    for (int k = 0; k < more; ++k, ++c)
      if ((*c & 0xc0) != 0x80) return 0;
  }
  return 1;
}

char *kit_latin1_to_utf8(const char *text) {
  size_t n = 0, high = 0;
  for (; text[n] != 0; ++n) high += (unsigned char)text[n] >= 0x80;
  char *utf8 = (char *)malloc(n + high + 1), *out = utf8;
  if (utf8 == NULL) return NULL;
  for (const unsigned char *c = (const unsigned char *)text; *c != 0; ++c) {
    if (*c >= 0x80) *out++ = (char)(0xc0 | *c >> 6);
    *out++ = (char)(*c >= 0x80 ? 0x80 | (*c & 0x3f) : *c);
  }
  *out = 0;
  return utf8;
}

int kit_has_text(const char *text) {
  return text != NULL && text[0] != '\0' && strcmp(text, "unknown") != 0;
}

const char *kit_date_text(const char *text, char *scratch, size_t size) {
  if (text == NULL || text[0] != '{') return text;
  char *end = NULL;
  const unsigned long long seconds = strtoull(text + 1, &end, 10);
  if (end == text + 1 || end[0] != '}' || end[1] != '\0') return text;
  const time_t when = (time_t)seconds;
  struct tm local;
  if (localtime_r(&when, &local) == NULL ||
      strftime(scratch, size, "%Y:%m:%d %H:%M:%S", &local) == 0)
    return text;
  return scratch;
}

int kit_new_cell(ORX_OBJECT *object, int32_t count) {
  void **cell = (void **)kit_allocate((size_t)count * sizeof(void *));
  if (cell == NULL) return 0;
  memset(cell, 0, (size_t)count * sizeof(void *));
  object->private_cell = cell;
  return 1;
}

int kit_new_images(ORX_OBJECT *object, int32_t count) {
  ORX_IFD *ifds = (ORX_IFD *)kit_allocate((size_t)count * sizeof(ORX_IFD));
  if (ifds == NULL) return 0;
  for (int32_t i = 0; i < count; ++i) orx__init_ifd(&ifds[i]);
  if (!kit_new_cell(object, count)) {
    ERR_free(ifds);
    return 0;
  }
  object->info.images = ifds;
  object->info.image_count = count;
  return 1;
}

void kit_describe_size(ORX_IFD *ifd, int32_t width, int32_t height, double pixel_aspect) {
  ifd->window.left = ifd->window.bottom = 0;
  ifd->window.right = width - 1;
  ifd->window.top = height - 1;
  ifd->active = ifd->window;
  ifd->orientation = 0;
  ifd->x_resolution = width;
  ifd->y_resolution = height;
  ifd->aspect_ratio = height > 0 ? (float)((double)width / height * pixel_aspect) : 1.0f;
}

int kit_profile_fits(const ORX_ATTR *profile, int32_t channels) {
  const char *space = channels == 1 ? "GRAY" : channels == 3 ? "RGB " : NULL;
  return profile->type == ORX_ATTR_BYTES && profile->count >= 20 && space != NULL &&
         memcmp((const unsigned char *)profile->data + 16, space, 4) == 0;
}

void kit_keep_picture_attributes(ORX_INFO *info) {
  static const char *const kept[] = {"ICCProfile",  "Orientation",    "XResolution",
                                     "YResolution", "ResolutionUnit", NULL};
  ORX_attr_keep(info, kept);
  for (int32_t i = 0; i < info->image_count; ++i) {
    const ORX_ATTR *profile = ORX_attr_find(info, i, "ICCProfile");
    if (profile != NULL && !kit_profile_fits(profile, info->images[i].image.count))
      ORX_attr_remove(info, i, "ICCProfile");
  }
}

double kit_pixel_aspect(const ORX_IFD *ifd) {
  /* The aspect ratio is that of the resolution (an EXR's display window),
   * which the window may exceed. */
  const int sized = ifd->x_resolution > 0 && ifd->y_resolution > 0;
  const double width = sized ? ifd->x_resolution : (double)ifd->window.right - ifd->window.left + 1;
  const double height = sized ? ifd->y_resolution : (double)ifd->window.top - ifd->window.bottom + 1;
  return ifd->aspect_ratio > 0 && width > 0 && height > 0 ? ifd->aspect_ratio * height / width
                                                          : 1.0;
}

void kit_aspect_densities(double pixel_aspect, uint32_t most, uint32_t *x, uint32_t *y) {
  /* The aspect came through a float: within 1e-5 is the same ratio. */
  const int wide = pixel_aspect >= 1.0;
  const double ratio = wide ? pixel_aspect : 1.0 / pixel_aspect;
  for (uint32_t d = 1; d <= most; ++d) {
    const double n = floor(ratio * d + 0.5);
    if (n > most) break;
    if (fabs(n / d - ratio) <= 1e-5 * ratio) {
      *x = wide ? d : (uint32_t)n;
      *y = wide ? (uint32_t)n : d;
      return;
    }
  }
  const uint32_t d = (uint32_t)fmax(1.0, floor(most / ratio + 0.5));
  *x = wide ? d : most;
  *y = wide ? most : d;
}

int kit_set_resolution(ORX_INFO *info, int32_t image, double x, double y, int unit) {
  return ORX_attr_set_float(info, image, "XResolution", (float)x) == 0 &&
         ORX_attr_set_float(info, image, "YResolution", (float)y) == 0 &&
         (unit == KIT_UNIT_UNSTATED ||
          ORX_attr_set_string(info, image, "ResolutionUnit",
                              unit == KIT_CENTIMETRES ? "cm" : unit == KIT_UNIT_NONE ? "none"
                                                                                     : "in") == 0);
}

int kit_resolution(const ORX_INFO *info, int32_t image, double pixel_aspect, double *x, double *y,
                   int *unit) {
  float fx = 0.0f, fy = 0.0f;
  const char *name = ORX_attr_get_string(info, image, "ResolutionUnit");
  *unit = name == NULL                ? KIT_UNIT_UNSTATED
          : strcmp(name, "in") == 0   ? KIT_INCHES
          : strcmp(name, "cm") == 0   ? KIT_CENTIMETRES
          : strcmp(name, "none") == 0 ? KIT_UNIT_NONE
                                      : -1;
  if (!ORX_attr_get_float(info, image, "XResolution", &fx) ||
      !ORX_attr_get_float(info, image, "YResolution", &fy) || !(fx > 0.0f) || !(fy > 0.0f) ||
      *unit < 0 || fabs((double)fy / fx - pixel_aspect) > 1e-4 * pixel_aspect)
    return 0;
  *x = fx;
  *y = fy;
  return 1;
}

KitLayout kit_layout_of(const ORX_IFD *ifd) {
  const ORX_CHANNELS *groups[3] = {&ifd->image, &ifd->matte, &ifd->aux};
  KitLayout layout;
  for (int g = 0; g < 3; ++g) {
    layout.count[g] = groups[g]->count > 0 ? groups[g]->count : 0;
    layout.type[g] = groups[g]->type;
    layout.bits[g] = groups[g]->bits;
  }
  return layout;
}

int32_t kit_layout_channels(const KitLayout *layout) {
  return layout->count[0] + layout->count[1] + layout->count[2];
}

void kit_layout_apply(const KitLayout *layout, ORX_IFD *ifd) {
  ORX_CHANNELS *groups[3] = {&ifd->image, &ifd->matte, &ifd->aux};
  for (int g = 0; g < 3; ++g) {
    groups[g]->count = layout->count[g];
    groups[g]->type = layout->type[g];
    groups[g]->bits = layout->bits[g];
  }
}

static const ORX_CAP_SETTING *setting(const ORX_OBJECT *object, int32_t index) {
  ORX_CAP_SETTING **settings = object->info.settings;
  if (settings == NULL) return NULL;
  for (int32_t i = 0; i < index; ++i)
    if (settings[i] == NULL) return NULL;
  return settings[index];
}

int32_t kit_setting_int(const ORX_OBJECT *object, int32_t index, int32_t fallback) {
  const ORX_CAP_SETTING *s = setting(object, index);
  if (s == NULL || s->code == ORX_CAP_UNSET) return fallback;
  return s->code == ORX_CAP_FLOAT ? (int32_t)s->value.f : s->value.i;
}

float kit_setting_float(const ORX_OBJECT *object, int32_t index, float fallback) {
  const ORX_CAP_SETTING *s = setting(object, index);
  if (s == NULL || s->code == ORX_CAP_UNSET) return fallback;
  return s->code == ORX_CAP_FLOAT ? s->value.f : (float)s->value.i;
}

size_t kit_peek(const char *name, FILE *stream, void *buffer, size_t size) {
  if (stream != NULL) {
    rewind(stream);
    return fread(buffer, 1, size, stream);
  }
  FILE *file = name != NULL ? fopen(name, "rb") : NULL;
  if (file == NULL) return 0;
  size_t n = fread(buffer, 1, size, file);
  fclose(file);
  return n;
}

int kit_claim(const char *who, const char *path, int *created) {
  struct stat before;
  *created = path != NULL && stat(path, &before) != 0;
  FILE *file = path != NULL ? fopen(path, "wb") : NULL;
  if (file == NULL)
    return kit_fail(ORX_E_FIELD_MISSING, "%s: cannot create %s: %s", who,
                    path != NULL ? path : "(no name)", strerror(errno));
  fclose(file);
  return 1;
}

void kit_release(const char *path, int created) {
  struct stat now;
  if (created && stat(path, &now) == 0 && S_ISREG(now.st_mode)) remove(path);
}

/* --- Attributes ------------------------------------------------------------ */

int kit_narrowed(ORX_OBJECT *object, int32_t image, const char *format, ...) {
  char note[256], joined[1024];
  va_list args;
  va_start(args, format);
  vsnprintf(note, sizeof note, format, args);
  va_end(args);
  const char *before = ORX_attr_get_string(&object->info, image, "orx:narrowed");
  if (before != NULL && strstr(before, note) != NULL) return 1;
  snprintf(joined, sizeof joined, "%s%s%s", before != NULL ? before : "",
           before != NULL ? ", " : "", note);
  return ORX_attr_set_string(&object->info, image, "orx:narrowed", joined) == 0;
}

int kit_window_at_origin(ORX_OBJECT *object, int32_t image) {
  const ORX_WINDOW *w = &object->info.images[image].window;
  return (w->left == 0 && w->bottom == 0) ||
         kit_narrowed(object, image, "window at %d,%d stored at 0,0", (int)w->left, (int)w->bottom);
}

/* --- Colour metadata ------------------------------------------------------- */

const float kit_rec709[8] = {0.64f, 0.33f, 0.30f, 0.60f, 0.15f, 0.06f, 0.3127f, 0.3290f};

static int kit_same_xy(const ORX_INFO *info, const float xy[8]) {
  const float *have[4] = {info->red, info->green, info->blue, info->white};
  for (int i = 0; i < 4; ++i)
    if (fabsf(have[i][0] - xy[2 * i]) > 1e-4f || fabsf(have[i][1] - xy[2 * i + 1]) > 1e-4f)
      return 0;
  return 1;
}

int kit_chromaticities_informative(const ORX_INFO *info, const float format_default[8]) {
  ORX_INFO placeholder;
  ORX_info_init(&placeholder);
  const float library[8] = {placeholder.red[0],   placeholder.red[1],  placeholder.green[0],
                            placeholder.green[1], placeholder.blue[0], placeholder.blue[1],
                            placeholder.white[0], placeholder.white[1]};
  ORX_info_cleanup(&placeholder, 0);
  return !kit_same_xy(info, library) &&
         (format_default == NULL || !kit_same_xy(info, format_default));
}

void kit_set_chromaticities(ORX_INFO *info, const float xy[8]) {
  float *to[4] = {info->red, info->green, info->blue, info->white};
  for (int i = 0; i < 4; ++i) {
    to[i][0] = xy[2 * i];
    to[i][1] = xy[2 * i + 1];
    to[i][2] = 1.0f - xy[2 * i] - xy[2 * i + 1];
  }
}
