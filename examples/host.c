/* A complete host of liborx: reads an image of any format the library knows
 * into memory, writes it to another file (the output's format follows its
 * name, or "rla"), reports failures through its own handler and frees what
 * it owns.  docs/host-guide.md explains each step.
 *
 *   orx_host_example IN OUT    copy IN to OUT through memory
 *   orx_host_example OUT       write a small gradient to OUT, read it back
 *                              and check every sample
 *
 * Exit status: 0 on success, 1 when the library reported a failure. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <orx/orx_all.h>

/* The whole first image of a file: its descriptor and one block per channel
 * of width * height samples of row_bytes / width bytes each, bottom row
 * first. */
typedef struct Picture {
  ORX_IFD ifd;
  int32_t width, height, channels;
  uint32_t row_bytes[64];
  unsigned char *rows[64];
} Picture;

/* Failures reach this handler as "ERROR" reports; the library's default
 * handler (which writes to standard error too) is not asked after it. */
static int report(const char *name, int severity, const char *message, ERR_RECORD *record,
                  intptr_t data) {
  (void)name; (void)record; (void)data;
  if (severity >= ERR_WARNING) fprintf(stderr, "host: %s: %s\n", ERR_type(severity), message);
  return 0;
}

static int channel_count(const ORX_IFD *ifd) {
  return ifd->image.count + ifd->matte.count + ifd->aux.count + ifd->index.count;
}

/* Bytes of one sample of channel c (image, matte, auxiliary, then colour
 * index channels) in a channel scanline buffer. */
static uint32_t sample_bytes(const ORX_IFD *ifd, int c) {
  const ORX_CHANNELS *g = c < ifd->image.count                      ? &ifd->image
                          : c < ifd->image.count + ifd->matte.count ? &ifd->matte
                          : c < channel_count(ifd) - ifd->index.count ? &ifd->aux
                                                                      : NULL;
  if (g == NULL) return 2; /* colour index */
  if (g->type == ORX_C_DOUBLE) return 8;
  if (g->type == ORX_C_FLOAT || g->bits > 16) return 4;
  return g->bits > 8 ? 2 : 1;
}

static void picture_free(Picture *p) {
  int c;
  for (c = 0; c < p->channels; ++c) free(p->rows[c]);
  p->channels = 0;
}

/* An ORX_INFO that names one file.  Every string in the record must come
 * from ERR_malloc or STR_save: ORX_info_cleanup(info, 1) frees them. */
static void request_for(ORX_INFO *info, const char *path) {
  ORX_info_init(info);
  info->handle = STR_save(path);
  info->full_path = 1; /* use the name as given, not under KV_IMG_DIR */
}

static int read_picture(const char *path, Picture *p) {
  ORX_INFO request;
  ORX_OBJECT *in;
  int32_t y;
  int c, ok = 1;
  memset(p, 0, sizeof *p);
  request_for(&request, path);
  in = ORX_open(&request, "r"); /* the format is found from the name or the contents */
  ORX_info_cleanup(&request, 1); /* the object keeps its own copy */
  if (in == NULL) return 0;      /* reported; orx__err says why (-5 for a missing file) */

  p->ifd = in->info.images[0];
  /* Rows span the whole window, not just the active (stored) part. */
  p->width = p->ifd.window.right - p->ifd.window.left + 1;
  p->height = p->ifd.window.top - p->ifd.window.bottom + 1;
  if (channel_count(&p->ifd) > 64) {
    fprintf(stderr, "host: %s: too many channels\n", path);
    ORX_close(in);
    return 0;
  }
  p->channels = channel_count(&p->ifd);
  for (c = 0; c < p->channels; ++c) {
    p->row_bytes[c] = sample_bytes(&p->ifd, c) * (uint32_t)p->width;
    p->rows[c] = malloc((size_t)p->row_bytes[c] * (size_t)p->height);
    if (p->rows[c] == NULL) ok = 0;
  }
  for (y = 0; ok && y < p->height; ++y) {
    void **row = NULL;
    if (ORX_scan_read(in, p->ifd.window.bottom + y, &row) != 0) {
      ok = 0;
      break;
    }
    for (c = 0; ok && c < p->channels; ++c)
      memcpy(p->rows[c] + (size_t)y * p->row_bytes[c], row[c], p->row_bytes[c]);
  }
  /* The descriptor's strings belong to the object: keep none of them. */
  p->ifd.aspect = NULL;
  p->ifd.image.name = p->ifd.matte.name = p->ifd.aux.name = p->ifd.index.name = NULL;
  p->ifd.curve.curves = NULL;
  p->ifd.curve.kind = ORX_CURVE_PARAMETRIC;
  if (ORX_close(in) != 0) ok = 0;
  if (!ok) picture_free(p);
  return ok;
}

static int write_picture(const char *path, const Picture *p) {
  ORX_INFO request;
  ORX_OBJECT *out;
  void **buffer;
  int32_t y;
  int c, ok = 1;
  request_for(&request, path);
  request.program = STR_save("orx_host_example");
  /* The descriptors are the record's too: allocate them from the library's
   * heap so that ORX_info_cleanup can free them. */
  request.images = ERR_malloc(sizeof(ORX_IFD));
  if (request.images == NULL) {
    ORX_info_cleanup(&request, 1);
    return 0;
  }
  request.image_count = 1;
  request.images[0] = p->ifd;
  out = ORX_open(&request, "w");
  ORX_info_cleanup(&request, 1);
  if (out == NULL) return 0;
  /* A channel scanline buffer laid out for the written image's window. */
  buffer = ORX_chan_alloc(&out->info.images[0], p->width, "orx_host_example", NULL);
  if (buffer == NULL) {
    ORX_close(out);
    return 0;
  }
  for (y = 0; ok && y < p->height; ++y) {
    for (c = 0; c < p->channels; ++c)
      memcpy(buffer[c], p->rows[c] + (size_t)y * p->row_bytes[c], p->row_bytes[c]);
    ok = ORX_scan_write(out, p->ifd.window.bottom + y, buffer) == 0;
  }
  ORX_chan_free(buffer);
  /* Closing completes the file; a failure here means the file is not whole. */
  if (ORX_close(out) != 0) ok = 0;
  return ok;
}

/* An 8-bit RGB gradient of 64 x 16 pixels. */
static int make_gradient(Picture *p) {
  int32_t x, y;
  int c;
  memset(p, 0, sizeof *p);
  orx__init_ifd(&p->ifd); /* a host fills descriptors with orx__init_ifd */
  p->width = 64;
  p->height = 16;
  p->ifd.window.right = p->width - 1;
  p->ifd.window.top = p->height - 1;
  p->ifd.active = p->ifd.window;
  p->ifd.image.count = 3;
  p->ifd.image.type = ORX_C_INTEGER;
  p->ifd.image.bits = 8;
  p->channels = 3;
  for (c = 0; c < 3; ++c) {
    p->row_bytes[c] = (uint32_t)p->width;
    p->rows[c] = malloc((size_t)p->width * (size_t)p->height);
    if (p->rows[c] == NULL) return 0;
    for (y = 0; y < p->height; ++y)
      for (x = 0; x < p->width; ++x)
        p->rows[c][y * p->width + x] = (unsigned char)(c == 0 ? x * 4 : c == 1 ? y * 16 : 255 - x);
  }
  return 1;
}

int main(int argc, char **argv) {
  Picture picture, back;
  int ok;
  if (argc != 2 && argc != 3) {
    fprintf(stderr, "usage: %s IN OUT | %s OUT\n", argv[0], argv[0]);
    return 2;
  }
  ERR_dcl_handler(NULL, report, 0);
  printf("liborx %s (plug-in protocol %s)\n", ORX_version(NULL, NULL, NULL),
         ORX_plugin_protocol());
  ORX_init(NULL, NULL); /* built-in formats only; no plug-ins */

  if (argc == 3) {
    ok = read_picture(argv[1], &picture) && write_picture(argv[2], &picture);
    if (ok) printf("%s: %d x %d, %d channels\n", argv[2], picture.width, picture.height,
                   picture.channels);
    picture_free(&picture);
  } else {
    ok = make_gradient(&picture) && write_picture(argv[1], &picture) &&
         read_picture(argv[1], &back);
    if (ok) {
      int c;
      for (c = 0; c < 3; ++c)
        ok = ok && back.channels == 3 &&
             memcmp(back.rows[c], picture.rows[c], (size_t)picture.width * picture.height) == 0;
      if (!ok) fprintf(stderr, "host: %s reads back differently\n", argv[1]);
      picture_free(&back);
    }
    if (ok) printf("%s: written and read back\n", argv[1]);
    picture_free(&picture);
  }
  if (!ok && orx__err != 0) fprintf(stderr, "host: status %d\n", (int)orx__err);
  ORX_exit();
  ERR_can_handler(NULL);
  return ok ? 0 : 1;
}
