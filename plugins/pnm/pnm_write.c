/* Writing Netpbm, PAM and PFM: each image in the nearest layout that holds
 * it.  Floating point goes to PFM (Pf grey, PF RGB; little-endian unless
 * "pnm:bigendian" says otherwise, the samples divided by "pnm:scale" when
 * it is set); 1-bit grey to a bitmap (P4, or P1 plain); other integers to
 * P5 or P6 (P2, P3 plain) with maxval 2^n - 1 of their width, 16 bits at
 * most; an image with a matte to PAM (P7, binary only) with straight alpha
 * (the matte divided out unless the host asks for "unassociated alpha").
 * The "encoding" setting chooses binary or plain; without it an image's
 * "pnm:binary" does, as OpenImageIO's writer takes it.  Every image of
 * the host's goes into the file, one after another. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orx/err.h"
#include "pnm.h"

static const char kWho[] = "pnm";

typedef struct PnmWriter {
  KitPlane plane;
  PnmImage plan;     /* kind, size, depth, alpha, maxval, bits, byte order, scale */
  const ORX_IFD *ifd;
  const char *path;
  int straight;
  int created;
} PnmWriter;

void pnm_release_writer(ORX_OBJECT *object) {
  for (int32_t i = 0; object->private_cell != NULL && i < object->info.image_count; ++i) {
    PnmWriter *w = (PnmWriter *)object->private_cell[i];
    object->private_cell[i] = NULL;
    if (w == NULL) continue;
    kit_plane_free(&w->plane);
    ERR_free(w);
  }
}

static int scan_write(void *data, int32_t line, void *in) {
  PnmWriter *w = (PnmWriter *)data;
  return kit_plane_store(&w->plane, w->ifd, line, (void **)in, kWho);
}

/* What image i becomes; 0 after a report. */
static int plan(ORX_OBJECT *object, int32_t i, int encoding, PnmWriter *w, KitLayout *layout) {
  const ORX_IFD *ifd = &object->info.images[i];
  const ORX_INFO *info = &object->info;
  PnmImage *p = &w->plan;
  const int32_t colour = ifd->image.count;
  if (colour != 1 && colour != 3)
    return kit_fail(ORX_E_UNSUPPORTED, "pnm: %s: cannot store %d image channels (1 or 3)",
                    w->path, (int)colour);
  if ((ifd->aux.count > 0 && !kit_narrowed(object, i, "auxiliary channels dropped")) ||
      (ifd->matte.count > 1 && !kit_narrowed(object, i, "mattes after the first dropped")) ||
      !kit_window_at_origin(object, i))
    return 0;
  int32_t binary = 1;
  if (encoding < 0) ORX_attr_get_int(info, i, "pnm:binary", &binary);
  const int plain = encoding >= 0 ? encoding == 1 : binary == 0;
  p->width = ifd->window.right - ifd->window.left + 1;
  p->height = ifd->window.top - ifd->window.bottom + 1;
  p->depth = colour;
  *layout = kit_layout_of(ifd);
  layout->count[2] = 0;
  if (ifd->image.type != ORX_C_INTEGER) {
    int32_t big = 0;
    float scale = 1.0f;
    ORX_attr_get_int(info, i, "pnm:bigendian", &big);
    if (ORX_attr_get_float(info, i, "pnm:scale", &scale) && scale > 0) p->scale = scale;
    else p->scale = 1.0f;
    if (ifd->matte.count > 0 && !kit_narrowed(object, i, "matte dropped")) return 0;
    if (ifd->image.type == ORX_C_DOUBLE && !kit_narrowed(object, i, "double samples stored as float"))
      return 0;
    p->kind = colour == 3 ? 'F' : 'f';
    p->little = big == 0;
    p->bits = 32;
    layout->count[1] = 0;
    layout->type[0] = ORX_C_FLOAT;
    layout->bits[0] = 32;
    return 1;
  }
  p->alpha = ifd->matte.count > 0;
  if (p->alpha && plain && !kit_narrowed(object, i, "matte dropped (plain files hold none)"))
    return 0;
  p->alpha &= !plain;
  int32_t bits = ifd->image.bits;
  if (p->alpha && ifd->matte.type == ORX_C_INTEGER && ifd->matte.bits > bits) bits = ifd->matte.bits;
  if (p->alpha && ifd->matte.type != ORX_C_INTEGER) bits = 16;
  if (bits > 16 && !kit_narrowed(object, i, "%d-bit samples stored in 16 bits", (int)bits)) return 0;
  p->bits = bits > 16 ? 16 : bits < 1 ? 1 : bits;
  p->maxval = (1u << p->bits) - 1;
  p->depth += p->alpha;
  p->kind = p->alpha            ? '7'
            : p->bits == 1 && colour == 1 ? (plain ? '1' : '4')
            : colour == 1       ? (plain ? '2' : '5')
                                : (plain ? '3' : '6');
  layout->count[1] = p->alpha;
  for (int g = 0; g < 2; ++g) {
    layout->type[g] = ORX_C_INTEGER;
    layout->bits[g] = p->bits;
  }
  return 1;
}

int pnm_write_open(ORX_OBJECT *object) {
  static const char *const kept[] = {"pnm:binary", "pnm:bigendian", "pnm:scale", NULL};
  ORX_attr_keep(&object->info, kept);
  const char *path = object->info.handle;
  if (object->info.image_count < 1)
    return kit_fail(ORX_E_UNSUPPORTED, "pnm: %s: no image to write", path);
  if (!kit_new_cell(object, object->info.image_count)) return 0;
  const int32_t encoding = kit_setting_int(object, PNM_CAP_ENCODING, -1);
  const int straight = kit_setting_int(object, PNM_CAP_UNASSOCIATED, 0) != 0;
  for (int32_t i = 0; i < object->info.image_count; ++i) {
    PnmWriter *w = (PnmWriter *)kit_allocate(sizeof(PnmWriter));
    if (w == NULL) return 0;
    memset(w, 0, sizeof *w);
    object->private_cell[i] = w;
    w->ifd = &object->info.images[i];
    w->path = path;
    w->straight = straight;
    KitLayout layout;
    if (!plan(object, i, encoding, w, &layout) ||
        kit_plane_init(&w->plane, &layout, w->ifd->window, w->ifd->window,
                       KIT_PLANE_INTERLEAVED | KIT_PLANE_WRITE, kWho, path) != 0)
      return 0;
  }
  PnmWriter *first = (PnmWriter *)object->private_cell[0];
  if (!kit_claim(kWho, path, &first->created)) return 0;
  object->scan = scan_write;
  return 1;
}

/* The header of an image; the description's lines as comments. */
static void write_header(FILE *file, const PnmImage *p, const char *comment) {
  fprintf(file, "P%c\n", p->kind == 'F' ? 'F' : p->kind == 'f' ? 'f' : p->kind);
  if (p->kind == '7') {
    static const char *const kTypes[] = {"", "GRAYSCALE", "GRAYSCALE_ALPHA", "RGB", "RGB_ALPHA"};
    fprintf(file, "WIDTH %d\nHEIGHT %d\nDEPTH %d\nMAXVAL %u\nTUPLTYPE %s\nENDHDR\n",
            (int)p->width, (int)p->height, (int)p->depth, p->maxval, kTypes[p->depth]);
    return;
  }
  /* PFM has no comments. */
  for (const char *c = p->kind == 'F' || p->kind == 'f' ? NULL : comment; c != NULL && *c != 0;) {
    const char *end = strchr(c, '\n');
    const int n = end != NULL ? (int)(end - c) : (int)strlen(c);
    fprintf(file, "# %.*s\n", n, c);
    c += n + (end != NULL);
  }
  fprintf(file, "%d %d\n", (int)p->width, (int)p->height);
  if (p->kind == 'F' || p->kind == 'f')
    fprintf(file, "%s%.9g\n", p->little ? "-" : "", p->scale);
  else if (p->kind != '1' && p->kind != '4')
    fprintf(file, "%u\n", p->maxval);
}

/* One row of pixels (the plane's interleaved samples) into out; its size. */
static size_t encode_row(const PnmImage *p, const unsigned char *pixels, unsigned char *out) {
  const size_t n = (size_t)p->width * (size_t)p->depth;
  const int wide = p->bits > 8;
  size_t k = 0;
  if (p->kind == 'F' || p->kind == 'f') {
    const int swap = p->little != pnm_host_little();
    for (size_t i = 0; i < n; ++i) {
      float f;
      memcpy(&f, pixels + 4 * i, 4);
      if (p->scale != 1.0f) f /= p->scale;
      unsigned char b[4];
      memcpy(b, &f, 4);
      for (int j = 0; j < 4; ++j) out[k++] = b[swap ? 3 - j : j];
    }
    return k;
  }
  if (p->kind == '4') {
    memset(out, 0, ((size_t)p->width + 7) / 8);
    for (int32_t x = 0; x < p->width; ++x)
      if (pixels[x] == 0) out[x >> 3] |= (unsigned char)(0x80 >> (x & 7));
    return ((size_t)p->width + 7) / 8;
  }
  size_t column = 0;
  for (size_t i = 0; i < n; ++i) {
    uint16_t v = pixels[i];
    if (wide) memcpy(&v, pixels + 2 * i, 2);
    if (p->kind == '1') {
      /* Spaced: OpenImageIO reads no digits run together. */
      out[k++] = v == 0 ? '1' : '0';
      out[k++] = ++column == 35 || i + 1 == n ? '\n' : ' ';
      if (out[k - 1] == '\n') column = 0;
    } else if (p->kind == '2' || p->kind == '3') {
      const int w = sprintf((char *)out + k, "%u", (unsigned)v);
      k += (size_t)w;
      column += (size_t)w + 1;
      out[k++] = column > 64 || i + 1 == n ? '\n' : ' ';
      if (out[k - 1] == '\n') column = 0;
    } else if (wide) {
      out[k++] = (unsigned char)(v >> 8);
      out[k++] = (unsigned char)(v & 255);
    } else {
      out[k++] = (unsigned char)v;
    }
  }
  return k;
}

int pnm_encode(ORX_OBJECT *object) {
  PnmWriter *first = object->private_cell != NULL ? (PnmWriter *)object->private_cell[0] : NULL;
  if (first == NULL) return 0;
  FILE *file = fopen(first->path, "wb");
  int ok = file != NULL;
  for (int32_t i = 0; ok && i < object->info.image_count; ++i) {
    PnmWriter *w = (PnmWriter *)object->private_cell[i];
    const PnmImage *p = &w->plan;
    kit_plane_complete(&w->plane);
    unsigned char *out = (unsigned char *)malloc((size_t)p->width * (size_t)p->depth * 7 + 8);
    ok = out != NULL;
    if (ok) write_header(file, p, i == 0 && kit_has_text(object->info.desc) ? object->info.desc : NULL);
    for (int32_t k = 0; ok && k < p->height; ++k) {
      /* PFM stores its rows from the bottom. */
      const int32_t r = p->kind == 'F' || p->kind == 'f' ? p->height - 1 - k : k;
      if (p->alpha && !w->straight) kit_plane_dissociate(&w->plane, r, pnm_rounding);
      const size_t n = encode_row(p, kit_plane_pixels(&w->plane, r), out);
      ok = fwrite(out, 1, n, file) == n;
    }
    free(out);
  }
  if (file != NULL) ok &= fclose(file) == 0;
  if (!ok) {
    kit_fail(ORX_E_WRITE, "pnm: cannot write %s", first->path);
    kit_release(first->path, first->created);
    return ORX_E_WRITE;
  }
  return 0;
}
