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
  int mark; /* kMark: the private data the slots expect */
} Lines;

enum { kMark = 0x11e5 };
static Lines lines = {{{0}}, {0}, kMark};

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

/* Counted atomically: the thread tests open and close from several threads. */
static int close_calls;
static intptr_t last_close_argument = -1;

/* Closes seen by the format and the argument of the last one. */
int test_plugin_close_calls(void) { return __atomic_load_n(&close_calls, __ATOMIC_RELAXED); }
intptr_t test_plugin_last_close_argument(void) {
  return __atomic_load_n(&last_close_argument, __ATOMIC_RELAXED);
}

static int close_object(ORX_OBJECT *object, intptr_t argument) {
  __atomic_fetch_add(&close_calls, 1, __ATOMIC_RELAXED);
  __atomic_store_n(&last_close_argument, argument, __ATOMIC_RELAXED);
  /* A read object's lines are its own. */
  if (object->private_cell != NULL && object->private_cell[0] != &lines)
    ERR_free(object->private_cell[0]);
  orx__free_obj(object);
  return 0;
}

#ifdef PLUGIN_MULTI_FRAME
/* Frame and playback slots: each checks that it got the private data and
 * answers with a value that shows which slot ran with which arguments.
 * Files whose name contains "still" hold no frames. */
static int32_t current_frame;

static int is_lines(const void *data) { return data != NULL && ((const Lines *)data)->mark == kMark; }

static int get_frame(void *data, int32_t frame) {
  (void)frame;
  return is_lines(data) ? current_frame : -99;
}

static int set_frame(void *data, int32_t frame) {
  if (!is_lines(data)) return -99;
  current_frame = frame;
  return 0;
}

static int answer(void *data, int base, intptr_t a1, intptr_t a2, intptr_t a3) {
  return is_lines(data) ? base + (int)(a1 + 10 * a2 + 100 * a3) : -99;
}
#define PLAYBACK_SLOT(name, base)                                  \
  static int name(void *d, intptr_t a1, intptr_t a2, intptr_t a3) { \
    return answer(d, base, a1, a2, a3);                             \
  }
PLAYBACK_SLOT(bind, 1000)
PLAYBACK_SLOT(go_to, 2000)
PLAYBACK_SLOT(play, 3000)
PLAYBACK_SLOT(params, 4000)
PLAYBACK_SLOT(stop, 5000)

static void add_playback(ORX_OBJECT *object) {
  const char *handle = object->info.handle;
  object->info.frame_count = handle != NULL && strstr(handle, "still") != NULL ? 0 : 24;
  object->playback_bind = bind;
  object->playback_goto = go_to;
  object->playback_play = play;
  object->playback_params = params;
  object->playback_stop = stop;
  object->get_frame = get_frame;
  object->set_frame = set_frame;
}
#endif

int imageReadOpen(ORX_OBJECT *object) {
  /* The descriptors belong to the object, so they come from the library's
   * allocator. */
  ORX_IFD *ifd = (ORX_IFD *)ERR_malloc(sizeof(ORX_IFD));
  void **cell = (void **)ERR_malloc(sizeof(void *));
  Lines *own = (Lines *)ERR_malloc(sizeof(Lines));
  if (ifd == NULL || cell == NULL || own == NULL) {
    ERR_free(ifd);
    ERR_free(cell);
    ERR_free(own);
    return 0;
  }
  orx__init_ifd(ifd);
  ifd->window.right = ifd->window.top = kSide - 1;
  ifd->active = ifd->window;
  ifd->image.count = 3;
  object->info.images = ifd;
  object->info.image_count = 1;
  own->mark = kMark;
  cell[0] = own;
  object->private_cell = cell;
  object->scan = scan_read;
  object->close = close_object;
#ifdef PLUGIN_MULTI_FRAME
  add_playback(object);
#endif
  return 1;
}

int imageWriteOpen(ORX_OBJECT *object) {
  void **cell;
#ifdef PLUGIN_SINGLE_IMAGE
  if (object->info.image_count > 1) {
    ERR_report_cat(orx__msg_cat, 902, 61, ERR_ERROR, "%s cannot store multiple images",
                   PLUGIN_KEY);
    return 0;
  }
#endif
  cell = (void **)ERR_malloc(sizeof(void *));
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

#ifdef PLUGIN_CAPABILITIES
/* A capability table: a list capability "compression" whose second entry
 * takes its second name and whose third has only a second name, and a value
 * capability named by its second name.  Variants break it on purpose. */
#ifndef PLUGIN_CAP_DEFAULT
#define PLUGIN_CAP_DEFAULT 1
#endif
static ORX_CAP_LIST_ENTRY compression_values[] = {
    {0, "none", 0, NULL},
    {1, "rle", 1, "Run length"},
#ifdef PLUGIN_CAP_LIST_NAMELESS
    {2, NULL, 1, NULL},
#else
    {2, NULL, 1, "Zip"},
#endif
    {0, NULL, 0, NULL},
};
static ORX_CAP_LIST compression = {PLUGIN_CAP_DEFAULT, 0, compression_values};
static ORX_CAP_ENTRY capabilities[] = {
    {7, "compression", 0, NULL, 0, &compression, 0},
#ifdef PLUGIN_CAP_NAMELESS
    {8, NULL, 0, "ignored without the flag", 1, NULL, 0},
#else
    {8, "q", 1, "Quality", 1, NULL, 0},
#endif
};

void imageCapability(ORX_CAP_ENTRY **table, int32_t *first, int32_t *second, int32_t *count) {
  *table = capabilities;
  *first = PLUGIN_CAP_FIRST;
  *second = PLUGIN_CAP_SECOND;
  *count = 2;
}

/* The table itself, for the tests to inspect after validation. */
ORX_CAP_ENTRY *test_plugin_capabilities(void) { return capabilities; }

uint8_t imageCapsAvailUpdate(intptr_t argument, uint8_t flag) {
  return (uint8_t)(argument + flag);
}
#endif

#ifdef PLUGIN_POPUP
/* A settings dialog; the popdown records its arguments. */
static intptr_t popdown_args[4];
static int popdown_calls;

int imagePrivateUIPopup(intptr_t a) { return (int)(a * 2); }
intptr_t test_plugin_popdown_arg(int i) { return popdown_args[i]; }
int test_plugin_popdown_calls(void) { return popdown_calls; }
#if PLUGIN_POPUP > 1
int imagePrivateUIPopdown(intptr_t a, intptr_t b, intptr_t c, intptr_t d) {
  popdown_args[0] = a;
  popdown_args[1] = b;
  popdown_args[2] = c;
  popdown_args[3] = d;
  ++popdown_calls;
  return 77;
}
#endif
#endif
