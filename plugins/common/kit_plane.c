/* The plane: a whole image in memory, laid out, allocated under the
 * library's limits, handed out a line at a time to readers' hosts and filled
 * from writers' hosts, with the sample conversions between the two. */
#include <math.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>

#include "orx/err.h"
#include "orx/limits.h"
#include "plugin_kit.h"

/* Bytes of one sample as a channel scanline buffer holds it; 0 for a type
 * or width no buffer holds. */
static uint8_t sample_size(int32_t type, int32_t bits) {
  if (type == ORX_C_FLOAT) return 4;
  if (type == ORX_C_DOUBLE) return 8;
  if (type != ORX_C_INTEGER || bits < 1 || bits > 32) return 0;
  return bits <= 8 ? 1 : bits <= 16 ? 2 : 4;
}

static int group_of(const KitLayout *layout, int32_t c) {
  if (c < layout->count[0]) return 0;
  return c < layout->count[0] + layout->count[1] ? 1 : 2;
}

int32_t kit_plane_height(const KitPlane *plane) {
  return plane->active.top - plane->active.bottom + 1;
}

int32_t kit_plane_width(const KitPlane *plane) {
  return plane->active.right - plane->active.left + 1;
}

static int over_limit(const char *who, const char *path, uint64_t need, const char *what,
                      int32_t which, const char *variable) {
  kit_fail(ORX_E_NOT_OUR_FILE,
           "%s: %s: the image needs %llu %s, more than the limit of %llu (raise it with "
           "ORX_set_limit or %s)",
           who, path, (unsigned long long)need, what, (unsigned long long)ORX_limit(which),
           variable);
  return ORX_E_NOT_OUR_FILE;
}

/* Asks for large pages under a frame-sized block where the system gives
 * them on request: a UHD frame otherwise takes tens of thousands of page
 * faults as it is first filled, a large part of the time of a write. */
static void advise_large(void *block, size_t size) {
#if defined(MADV_HUGEPAGE)
  const uintptr_t huge = (uintptr_t)2 << 20;
  if (size < 4 * huge) return;
  const uintptr_t start = ((uintptr_t)block + huge - 1) & ~(huge - 1);
  const uintptr_t end = ((uintptr_t)block + size) & ~(huge - 1);
  if (end > start) madvise((void *)start, end - start, MADV_HUGEPAGE);
#else
  (void)block;
  (void)size;
#endif
}

int kit_plane_init(KitPlane *plane, const KitLayout *layout, ORX_WINDOW window,
                   ORX_WINDOW active, int flags, const char *who, const char *path) {
  memset(plane, 0, sizeof *plane);
  const int interleaved = (flags & KIT_PLANE_INTERLEAVED) != 0;
  const int writing = (flags & KIT_PLANE_WRITE) != 0;
  plane->layout = *layout;
  plane->window = window;
  plane->active = active;
  plane->interleaved = interleaved;
  const int32_t channels = kit_layout_channels(layout);
  if (channels > ORX_limit(ORX_LIMIT_CHANNELS))
    return over_limit(who, path, (uint64_t)channels, "channels", ORX_LIMIT_CHANNELS,
                      "KV_ORX_MAX_CHANNELS");
  const uint64_t width = (uint64_t)((int64_t)window.right - window.left + 1);
  const uint64_t height = (uint64_t)((int64_t)active.top - active.bottom + 1);
  uint64_t line = 0, pixel = 0;
  for (int32_t c = 0; c < channels; ++c) {
    const int g = group_of(layout, c);
    const uint8_t size = sample_size(layout->type[g], layout->bits[g]);
    if (size == 0) {
      kit_fail(ORX_E_UNSUPPORTED, "%s: %s: channel type %d of %d bits cannot be held", who,
               path, (int)layout->type[g], (int)layout->bits[g]);
      return ORX_E_UNSUPPORTED;
    }
    pixel += size;
    line += (width * size + 1) & ~(uint64_t)1;
  }
  if (interleaved) line = (width * pixel + 1) & ~(uint64_t)1;
  /* The active lines, the zero line and the tables, all within the limit. */
  const uint64_t need = line * (height + 1) + (uint64_t)channels * 24 + 8 + height;
  if (need > (uint64_t)ORX_limit(ORX_LIMIT_ROW_MEMORY) || need > UINT32_MAX)
    return over_limit(who, path, need, "bytes of image memory", ORX_LIMIT_ROW_MEMORY,
                      "KV_ORX_MAX_ROW_MEMORY");
  plane->channels = channels;
  plane->line_bytes = (size_t)line;
  plane->pixel_bytes = (size_t)pixel;
  plane->offsets = (size_t *)kit_allocate((size_t)channels * sizeof(size_t) + 1);
  plane->sample_bytes = (uint8_t *)kit_allocate((size_t)channels + 1);
  plane->rows = (void **)kit_allocate(((size_t)channels + 1) * sizeof(void *));
  plane->data = (unsigned char *)kit_allocate((size_t)(line * (height + 1)) + 1);
  if (writing) plane->stored = (uint8_t *)kit_allocate((size_t)height + 1);
  if (plane->offsets == NULL || plane->sample_bytes == NULL || plane->rows == NULL ||
      plane->data == NULL || (writing && plane->stored == NULL)) {
    kit_plane_free(plane);
    return ORX_E_NO_MEMORY;
  }
  advise_large(plane->data, (size_t)(line * (height + 1)));
  if (writing) {
    memset(plane->stored, 0, (size_t)height);
    memset(plane->data + line * height, 0, (size_t)line);  /* the zero line */
  } else {
    memset(plane->data, 0, (size_t)(line * (height + 1)));
  }
  size_t at = 0;
  for (int32_t c = 0; c < channels; ++c) {
    const int g = group_of(layout, c);
    plane->sample_bytes[c] = sample_size(layout->type[g], layout->bits[g]);
    plane->offsets[c] = at;
    at += interleaved ? plane->sample_bytes[c]
                      : ((size_t)width * plane->sample_bytes[c] + 1) & ~(size_t)1;
  }
  plane->rows[channels] = NULL;
  return 0;
}

void kit_plane_free(KitPlane *plane) {
  ERR_free(plane->offsets);
  ERR_free(plane->sample_bytes);
  ERR_free(plane->rows);
  ERR_free(plane->data);
  ERR_free(plane->stored);
  plane->offsets = NULL;
  plane->sample_bytes = NULL;
  plane->rows = NULL;
  plane->data = NULL;
  plane->stored = NULL;
}

static unsigned char *line_block(const KitPlane *plane, int32_t r);

void kit_plane_complete(KitPlane *plane) {
  const int32_t height = kit_plane_height(plane);
  for (int32_t r = 0; plane->stored != NULL && r < height; ++r)
    if (!plane->stored[r]) {
      memset(line_block(plane, r), 0, plane->line_bytes);
      plane->stored[r] = 1;
    }
}

/* The start of a line's block: file row r, or the zero line. */
static unsigned char *line_block(const KitPlane *plane, int32_t r) {
  return plane->data + (size_t)r * plane->line_bytes;
}

void **kit_plane_line(KitPlane *plane, int32_t line) {
  if (line < plane->window.bottom || line > plane->window.top) return NULL;
  const int32_t height = kit_plane_height(plane);
  int32_t r = plane->active.top - line;
  if (r < 0 || r >= height) r = height; /* the zero line */
  unsigned char *block = line_block(plane, r);
  for (int32_t c = 0; c < plane->channels; ++c) plane->rows[c] = block + plane->offsets[c];
  return plane->rows;
}

int kit_scan_decoded(KitPlane *plane, int *decoded, int (*decode)(void *), void *data,
                     int32_t line, void *out, const char *who, const char *path) {
  if (*decoded == 0) {
    const int status = decode(data);
    *decoded = status == 0 ? 1 : status;
  }
  if (*decoded < 0) {
    orx__set_err(*decoded);
    return *decoded;
  }
  void **rows = kit_plane_line(plane, line);
  if (rows == NULL) {
    kit_fail(ORX_E_BAD_SCANLINE, "%s: %s: no line %d", who, path, (int)line);
    return ORX_E_BAD_SCANLINE;
  }
  *(void ***)out = rows;
  return 0;
}

size_t kit_plane_step(const KitPlane *plane, int32_t c) {
  return plane->interleaved ? plane->pixel_bytes : plane->sample_bytes[c];
}

unsigned char *kit_plane_at(const KitPlane *plane, int32_t r, int32_t c) {
  const size_t left = (size_t)(plane->active.left - plane->window.left);
  return line_block(plane, r) + plane->offsets[c] + left * kit_plane_step(plane, c);
}

const unsigned char *kit_plane_pixels(const KitPlane *plane, int32_t r) {
  return kit_plane_at(plane, r, 0);
}

/* One loop per sample size keeps the copies fixed-size. */
#define KIT_SHUFFLE(SIZE, DST, DSTEP, SRC, SSTEP)                         \
  for (int32_t x = 0; x < width; ++x)                                     \
    memcpy((DST) + (size_t)x * (DSTEP), (SRC) + (size_t)x * (SSTEP), SIZE)

static void shuffle(unsigned char *dst, size_t dst_step, const unsigned char *src,
                    size_t src_step, uint8_t size, int32_t width) {
  if (dst_step == size && src_step == size) {
    memcpy(dst, src, (size_t)width * size);
    return;
  }
  switch (size) {
    case 1: KIT_SHUFFLE(1, dst, dst_step, src, src_step); break;
    case 2: KIT_SHUFFLE(2, dst, dst_step, src, src_step); break;
    case 4: KIT_SHUFFLE(4, dst, dst_step, src, src_step); break;
    default: KIT_SHUFFLE(8, dst, dst_step, src, src_step); break;
  }
}

/* Bytes of one interleaved pixel of channels c0 .. c0 + nc - 1. */
static size_t pixel_bytes(const KitPlane *plane, int32_t c0, int32_t nc) {
  size_t bytes = 0;
  for (int32_t c = c0; c < c0 + nc; ++c) bytes += plane->sample_bytes[c];
  return bytes;
}

static unsigned char *column(const KitPlane *plane, int32_t r, int32_t c, int32_t x) {
  return kit_plane_at(plane, r, c) + (size_t)x * kit_plane_step(plane, c);
}

void kit_plane_put(KitPlane *plane, int32_t r, int32_t x, int32_t n, const void *pixels,
                   int32_t c0, int32_t nc) {
  const size_t step = pixel_bytes(plane, c0, nc);
  const unsigned char *src = (const unsigned char *)pixels;
  for (int32_t c = c0; c < c0 + nc; ++c) {
    shuffle(column(plane, r, c, x), kit_plane_step(plane, c), src, step, plane->sample_bytes[c],
            n);
    src += plane->sample_bytes[c];
  }
}

void kit_plane_get(const KitPlane *plane, int32_t r, int32_t x, int32_t n, void *pixels,
                   int32_t c0, int32_t nc) {
  const size_t step = pixel_bytes(plane, c0, nc);
  unsigned char *dst = (unsigned char *)pixels;
  for (int32_t c = c0; c < c0 + nc; ++c) {
    shuffle(dst, step, column(plane, r, c, x), kit_plane_step(plane, c), plane->sample_bytes[c],
            n);
    dst += plane->sample_bytes[c];
  }
}

void kit_plane_spread(KitPlane *plane, int32_t r, const void *pixels) {
  kit_plane_put(plane, r, 0, kit_plane_width(plane), pixels, 0, plane->channels);
}


/* A sample as a value: integers scaled to 0..1, floating point as stored. */
static double get(int32_t type, int32_t bits, const unsigned char *p) {
  if (type == ORX_C_FLOAT) {
    float f;
    memcpy(&f, p, 4);
    return f;
  }
  if (type == ORX_C_DOUBLE) {
    double d;
    memcpy(&d, p, 8);
    return d;
  }
  uint32_t v;
  if (bits <= 8) {
    v = *p;
  } else if (bits <= 16) {
    uint16_t w;
    memcpy(&w, p, 2);
    v = w;
  } else {
    memcpy(&v, p, 4);
  }
  return v / (ldexp(1.0, bits) - 1.0);
}

/* The reverse, integers clamped and truncated from v * (2^w - 1 + 0.95) as
 * the library's own casts do. */
static void put(int32_t type, int32_t bits, unsigned char *p, double v) {
  if (type == ORX_C_FLOAT) {
    const float f = (float)v;
    memcpy(p, &f, 4);
    return;
  }
  if (type == ORX_C_DOUBLE) {
    memcpy(p, &v, 8);
    return;
  }
  const double top = ldexp(1.0, bits) - 1.0;
  double scaled = v * (top + 0.95);
  scaled = scaled < 0.0 || scaled != scaled ? 0.0 : scaled > top ? top : scaled;
  const uint32_t q = (uint32_t)scaled;
  if (bits <= 8) {
    *p = (unsigned char)q;
  } else if (bits <= 16) {
    const uint16_t w = (uint16_t)q;
    memcpy(p, &w, 2);
  } else {
    memcpy(p, &q, 4);
  }
}

/* Host rows of the plane's own sample types into an interleaved plane: one
 * pass over the pixels, writing each pixel whole, rather than one strided
 * pass per channel.  0 when the layouts differ (the general path then
 * converts sample by sample). */
#define KIT_INTERLEAVE_ANY(T)                                                \
  do {                                                                       \
    T *out = (T *)dst;                                                       \
    for (int32_t x = 0; x < width; ++x, out += n)                            \
      for (int32_t k = 0; k < n; ++k) out[k] = ((const T *)src[k])[left + x]; \
  } while (0)
/* The usual grey and alpha, RGB and RGBA lines get loops of their own over
 * rows that cannot overlap the plane, which the compiler can vectorise. */
#define KIT_INTERLEAVE(T)                                                              \
  do {                                                                                 \
    T *restrict o = (T *)dst;                                                          \
    const T *restrict a = (const T *)src[0] + left;                                    \
    const T *restrict b = n > 1 ? (const T *)src[1] + left : a;                        \
    const T *restrict c = n > 2 ? (const T *)src[2] + left : a;                        \
    const T *restrict d = n > 3 ? (const T *)src[3] + left : a;                        \
    switch (n) {                                                                       \
      case 1: memcpy(o, a, (size_t)width * sizeof(T)); break;                          \
      case 2: for (int32_t x = 0; x < width; ++x) o[2 * x] = a[x], o[2 * x + 1] = b[x]; \
        break;                                                                         \
      case 3:                                                                          \
        for (int32_t x = 0; x < width; ++x)                                            \
          o[3 * x] = a[x], o[3 * x + 1] = b[x], o[3 * x + 2] = c[x];                   \
        break;                                                                         \
      case 4:                                                                          \
        for (int32_t x = 0; x < width; ++x)                                            \
          o[4 * x] = a[x], o[4 * x + 1] = b[x], o[4 * x + 2] = c[x], o[4 * x + 3] = d[x]; \
        break;                                                                         \
      default: KIT_INTERLEAVE_ANY(T); break;                                           \
    }                                                                                  \
  } while (0)

/* The interleaving loops are built also for AVX2, chosen when the plug-in
 * loads (the baseline build has no byte shuffles to vectorise them with);
 * not under the sanitizers, whose runtimes are not ready when the choice is
 * made. */
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && \
    !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define KIT_ROW_KERNEL __attribute__((target_clones("avx2", "default")))
#else
#define KIT_ROW_KERNEL
#endif

KIT_ROW_KERNEL
static void interleave_rows(unsigned char *dst, const void *const *src, size_t left,
                            int32_t width, int32_t n, uint8_t size) {
  switch (size) {
    case 1: KIT_INTERLEAVE(uint8_t); break;
    case 2: KIT_INTERLEAVE(uint16_t); break;
    default: KIT_INTERLEAVE(uint32_t); break;
  }
}

static int interleave_same(KitPlane *plane, const KitLayout *from, void **rows, size_t left,
                           int32_t r) {
  enum { kMostChannels = 16 };
  const int32_t n = plane->channels;
  if (!plane->interleaved || n > kMostChannels) return 0;
  const uint8_t size = plane->sample_bytes[0];
  const void *src[kMostChannels];
  for (int32_t c = 0; c < n; ++c) {
    const int g = group_of(&plane->layout, c), h = group_of(from, c);
    if (from->type[h] != plane->layout.type[g] || from->bits[h] != plane->layout.bits[g] ||
        plane->sample_bytes[c] != size)
      return 0;
    src[c] = rows[c];
  }
  if (size != 1 && size != 2 && size != 4) return 0;
  interleave_rows(kit_plane_at(plane, r, 0), src, left, kit_plane_width(plane), n, size);
  return 1;
}

int kit_plane_take(KitPlane *plane, int32_t line, const char *who, int32_t *r) {
  *r = -1;
  if (line < plane->window.bottom || line > plane->window.top) {
    kit_fail(ORX_E_BAD_SCANLINE, "%s: line %d lies outside the window %d..%d", who, (int)line,
             (int)plane->window.bottom, (int)plane->window.top);
    return ORX_E_BAD_SCANLINE;
  }
  const int32_t row = plane->active.top - line;
  if (row < 0 || row >= kit_plane_height(plane)) return 0;
  if (plane->stored != NULL) plane->stored[row] = 1;
  *r = row;
  return 0;
}

int kit_plane_store(KitPlane *plane, const ORX_IFD *host, int32_t line, void **rows,
                    const char *who) {
  int32_t r;
  const int status = kit_plane_take(plane, line, who, &r);
  if (status != 0 || r < 0) return status;
  const KitLayout from = kit_layout_of(host);
  const size_t left = (size_t)(plane->active.left - plane->window.left);
  const int32_t width = kit_plane_width(plane);
  if (interleave_same(plane, &from, rows, left, r)) return 0;
  /* Channel c of the plane is the host's channel c, though a format may
   * file it in another group (a second matte stored as an extra sample):
   * the host's group gives its sample type, the plane's the stored one. */
  for (int32_t c = 0; c < plane->channels; ++c) {
    const int g = group_of(&plane->layout, c), h = group_of(&from, c);
    const uint8_t in_size = sample_size(from.type[h], from.bits[h]);
    const unsigned char *src = (const unsigned char *)rows[c] + left * in_size;
    unsigned char *dst = kit_plane_at(plane, r, c);
    const size_t step = kit_plane_step(plane, c);
    if (from.type[h] == plane->layout.type[g] && from.bits[h] == plane->layout.bits[g]) {
      shuffle(dst, step, src, in_size, in_size, width);
      continue;
    }
    for (int32_t x = 0; x < width; ++x)
      put(plane->layout.type[g], plane->layout.bits[g], dst + (size_t)x * step,
          get(from.type[h], from.bits[h], src + (size_t)x * in_size));
  }
  return 0;
}

void kit_row_floats(int32_t type, int32_t bits, const void *row, size_t first, float *out,
                    int32_t n) {
  const uint8_t size = sample_size(type, bits);
  const unsigned char *src = (const unsigned char *)row + first * size;
  if (type == ORX_C_FLOAT) {
    memcpy(out, src, (size_t)n * 4);
    return;
  }
  for (int32_t x = 0; x < n; ++x) out[x] = (float)get(type, bits, src + (size_t)x * size);
}
