/* A small format plug-in for the registry tests, built in several variants
 * by compile definitions.  Its images are 4x4 pixels of 3 8-bit channels,
 * every sample of line y holding y + 1; writing accepts and drops lines. */
#include <string.h>

#include "orx/err.h"
#include "orx/plugin.h"

#ifndef PLUGIN_VERSION
#define PLUGIN_VERSION "3.2"
#endif
#ifndef PLUGIN_INIT_RESULT
#define PLUGIN_INIT_RESULT 1
#endif

const char *version = PLUGIN_VERSION;
const char *imageKey = PLUGIN_KEY;
const char *imageExtension = PLUGIN_EXTENSION;
const char *imageName = PLUGIN_NAME;
const char *imageDescription = "registry test plug-in";
#ifndef PLUGIN_NO_ORIENTATION
int imageOrientation = 1;
#endif
int imageNumberOfChannels = 4;
#ifdef PLUGIN_MULTI_FRAME
int imageMultiFrame = PLUGIN_MULTI_FRAME;
#endif

static int init_calls;
static int done_calls;

/* Counters the tests read through the module handle. */
int test_plugin_init_calls(void) { return init_calls; }
int test_plugin_done_calls(void) { return done_calls; }

int imageInit(void) {
  ++init_calls;
  return PLUGIN_INIT_RESULT;
}

void imageDone(void) { ++done_calls; }

enum { kSide = 4 };

typedef struct Lines {
  unsigned char rows[3][kSide];
  void *pointers[4];
} Lines;

static Lines lines;

static int scan_read(void *data, int32_t line, void *out) {
  Lines *l = (Lines *)data;
  if (line < 0 || line >= kSide) return -2;
  for (int c = 0; c < 3; ++c) {
    memset(l->rows[c], line + 1, kSide);
    l->pointers[c] = l->rows[c];
  }
  l->pointers[3] = NULL;
  *(void ***)out = l->pointers;
  return 0;
}

static int scan_write(void *data, int32_t line, void *in) {
  (void)data;
  (void)in;
  return line < 0 || line >= kSide ? -2 : 0;
}

static int close_object(ORX_OBJECT *object, intptr_t argument) {
  (void)argument;
  orx__free_obj(object);
  return 0;
}

static void **private_cell(void) {
  static void *cell[1];
  cell[0] = &lines;
  return cell;
}

int imageReadOpen(ORX_OBJECT *object) {
  /* The descriptors belong to the object, so they come from the library's
   * allocator. */
  ORX_IFD *ifd = (ORX_IFD *)ERR_malloc(sizeof(ORX_IFD));
  void **cell = (void **)ERR_malloc(sizeof(void *));
  if (ifd == NULL || cell == NULL) {
    ERR_free(ifd);
    ERR_free(cell);
    return 0;
  }
  orx__init_ifd(ifd);
  ifd->window.right = ifd->window.top = kSide - 1;
  ifd->active = ifd->window;
  ifd->image.count = 3;
  object->info.images = ifd;
  object->info.image_count = 1;
  cell[0] = private_cell()[0];
  object->private_cell = cell;
  object->scan = scan_read;
  object->close = close_object;
  return 1;
}

int imageWriteOpen(ORX_OBJECT *object) {
  void **cell = (void **)ERR_malloc(sizeof(void *));
  if (cell == NULL) return 0;
  cell[0] = &lines;
  object->private_cell = cell;
  object->scan = scan_write;
  object->close = close_object;
  return 1;
}

#ifdef PLUGIN_IS_FILE_SUFFIX
uint8_t imageIsFile(const char *name, FILE *stream) {
  size_t n = name != NULL ? strlen(name) : 0;
  size_t m = strlen(PLUGIN_IS_FILE_SUFFIX);
  (void)stream;
  return n >= m && strcmp(name + n - m, PLUGIN_IS_FILE_SUFFIX) == 0;
}
#endif
