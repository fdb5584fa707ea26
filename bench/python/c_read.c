/* The C side of bench/python/read_vs_oiio.py: reads every file named on the
 * command line into memory the way examples/host.c does (one block per
 * channel, one memcpy per row and channel) and prints the best of N reads
 * of each, in seconds.  Plug-ins are loaded from the directory in argv[2].
 *   c_read N PLUGIN_DIR FILE...                                          */
#define _POSIX_C_SOURCE 200809L
#include <dirent.h>
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <orx/orx_all.h>

static void *modules[16];
static const char *names[16];
static int count, next;

static uint8_t enumerate(void **module, const char **name) {
  if (next >= count) return 0;
  *module = modules[next];
  *name = names[next++];
  return 1;
}

static double now(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec + 1e-9 * (double)t.tv_nsec;
}

static int read_file(const char *path) {
  ORX_INFO request;
  ORX_info_init(&request);
  request.handle = STR_save(path);
  request.full_path = 1;
  ORX_OBJECT *in = ORX_open(&request, "r");
  ORX_info_cleanup(&request, 1);
  if (in == NULL) return 0;
  const ORX_IFD *d = &in->info.images[0];
  int32_t w = d->window.right - d->window.left + 1, h = d->window.top - d->window.bottom + 1;
  int channels = d->image.count + d->matte.count + d->aux.count;
  uint32_t size = 0;
  void **probe = ORX_chan_alloc(&in->info.images[0], w, "bench", &size);
  uint32_t row = size / (uint32_t)channels; /* equal groups: every row the same size */
  ORX_chan_free(probe);
  unsigned char *planes = malloc((size_t)row * (size_t)h * (size_t)channels);
  int ok = planes != NULL;
  int upwards = d->orientation & 1;
  for (int32_t i = 0; ok && i < h; ++i) {
    int32_t y = upwards ? d->window.bottom + i : d->window.top - i;
    void **rows;
    ok = ORX_scan_read(in, y, &rows) == 0;
    for (int c = 0; ok && c < channels; ++c)
      memcpy(planes + ((size_t)c * (size_t)h + (size_t)(y - d->window.bottom)) * row, rows[c], row);
  }
  free(planes);
  return ORX_close(in) == 0 && ok;
}

int main(int argc, char **argv) {
  if (argc < 4) return 2;
  int n = atoi(argv[1]);
  DIR *dir = opendir(argv[2]);
  for (struct dirent *e; dir != NULL && (e = readdir(dir)) != NULL && count < 16;) {
    size_t len = strlen(e->d_name);
    if (len < 4 || strcmp(e->d_name + len - 3, ".so") != 0) continue;
    char path[4096];
    snprintf(path, sizeof path, "%s/%s", argv[2], e->d_name);
    if ((modules[count] = dlopen(path, RTLD_NOW | RTLD_LOCAL)) != NULL) names[count++] = strdup(e->d_name);
  }
  if (dir != NULL) closedir(dir);
  ORX_init(NULL, enumerate);
  for (int f = 3; f < argc; ++f) {
    double best = 1e30;
    for (int i = 0; i < n; ++i) {
      double t = now();
      if (!read_file(argv[f])) return 1;
      t = now() - t;
      if (t < best) best = t;
    }
    printf("%s %.6f\n", argv[f], best);
  }
  ORX_exit();
  return 0;
}
