/* The Radiance header, read and written.  The resolution string gives the
 * order the scanlines were stored in: "-Y N +X M" is N scanlines of M
 * pixels from the top, left to right; the other sign and axis orders map
 * to the EXIF orientations as OpenImageIO maps them (X first: the
 * scanlines are columns, the picture is stored transposed). */
#include "hdr_header.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

const float hdr_radiance_primaries[8] = {0.640f, 0.330f, 0.290f, 0.600f,
                                         0.150f, 0.060f, 0.3333f, 0.3333f};
const float hdr_xyz_primaries[8] = {1.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 1.0f / 3, 1.0f / 3};

/* The resolution strings, by EXIF orientation (entry 0 unused): the first
 * axis with its sign, then the second. */
static const char *const kResolution[9][2] = {
    {"", ""},     {"-Y", "+X"}, {"-Y", "-X"}, {"+Y", "-X"}, {"+Y", "+X"},
    {"+X", "-Y"}, {"+X", "+Y"}, {"-X", "+Y"}, {"-X", "-Y"}};

/* A header may be long (a history of commands), not endless. */
enum { kMostHeader = 1 << 20, kLine = 4096 };

/* One line without its newline (cut at kLine - 1 bytes); -1 at the end of
 * the file before any byte. */
static int read_line(FILE *file, char *line, long *total) {
  int n = 0, c;
  while ((c = getc(file)) != EOF && c != '\n') {
    ++*total;
    if (n < kLine - 1) line[n++] = (char)c;
  }
  line[n] = 0;
  if (c == '\n') ++*total;
  return c == EOF && n == 0 ? -1 : n;
}

/* The value after "KEY=" (spaces skipped), or NULL for another key. */
static const char *value_of(const char *line, const char *key) {
  const size_t n = strlen(key);
  if (strncmp(line, key, n) != 0) return NULL;
  line += n;
  while (*line == ' ' || *line == '\t') ++line;
  return line;
}

static void append(char *to, size_t size, const char *text) {
  size_t have = strlen(to);
  if (have > 0 && have + 1 < size) to[have++] = '\n';
  size_t n = strlen(text);
  if (n > size - 1 - have) n = size - 1 - have;
  memcpy(to + have, text, n);
  to[have + n] = 0;
}

static void copy_text(char *to, size_t size, const char *text) {
  snprintf(to, size, "%s", text);
  /* Trailing spaces and carriage returns are the writer's line ends. */
  for (size_t n = strlen(to); n > 0 && isspace((unsigned char)to[n - 1]); --n) to[n - 1] = 0;
}

/* One variable line. */
static const char *take_line(HdrHeader *h, const char *line) {
  const char *v;
  while (*line == ' ' || *line == '\t') ++line;
  if (line[0] == '#') {
    line += line[1] == ' ' ? 2 : 1;
    char text[kLine];
    copy_text(text, sizeof text, line);
    append(h->comment, sizeof h->comment, text);
  } else if ((v = value_of(line, "FORMAT=")) != NULL) {
    if (strncmp(v, "32-bit_rle_rgbe", 15) == 0) h->xyze = 0;
    else if (strncmp(v, "32-bit_rle_xyze", 15) == 0) h->xyze = 1;
    else return "its pixel format is neither 32-bit_rle_rgbe nor 32-bit_rle_xyze";
  } else if ((v = value_of(line, "EXPOSURE=")) != NULL) {
    const double e = strtod(v, NULL);
    if (e > 0) h->exposure = (h->exposure > 0 ? h->exposure : 1.0) * e;
  } else if ((v = value_of(line, "GAMMA=")) != NULL) {
    const double g = strtod(v, NULL);
    if (g > 0) h->gamma = g;
  } else if ((v = value_of(line, "PIXASPECT=")) != NULL) {
    const double a = strtod(v, NULL);
    if (a > 0) h->pixaspect *= a;
  } else if ((v = value_of(line, "PRIMARIES=")) != NULL) {
    char *end = (char *)v;
    float p[8];
    int k = 0;
    for (; k < 8; ++k) {
      const char *from = end;
      p[k] = strtof(from, &end);
      if (end == from) break;
    }
    if (k == 8) {
      memcpy(h->primaries, p, sizeof p);
      h->has_primaries = 1;
    }
  } else if ((v = value_of(line, "SOFTWARE=")) != NULL) {
    copy_text(h->software, sizeof h->software, v);
  } else if ((v = value_of(line, "CAPDATE=")) != NULL) {
    copy_text(h->date, sizeof h->date, v);
  }
  return NULL;
}

/* "-Y N +X M" and its kin. */
static const char *take_resolution(HdrHeader *h, const char *line) {
  char a[3] = {0}, b[3] = {0};
  long first = 0, second = 0;
  int used = 0;
  if (sscanf(line, " %2s %ld %2s %ld%n", a, &first, b, &second, &used) != 4)
    return "no resolution string after its header";
  for (int o = 1; o <= 8; ++o)
    if (strcmp(a, kResolution[o][0]) == 0 && strcmp(b, kResolution[o][1]) == 0) {
      if (first < 1 || second < 1 || first > INT32_MAX / 4 || second > INT32_MAX / 4)
        return "its resolution string gives no picture, or an impossible one";
      h->orientation = o;
      h->height = (int32_t)first;
      h->width = (int32_t)second;
      return NULL;
    }
  return "its resolution string is not one Radiance defines";
}

const char *hdr_header_read(FILE *file, HdrHeader *h) {
  memset(h, 0, sizeof *h);
  h->pixaspect = 1.0;
  h->orientation = 1;
  char line[kLine];
  long total = 0;
  if (read_line(file, line, &total) < 2 || line[0] != '#' || line[1] != '?')
    return "it is not a Radiance picture (no \"#?\" line)";
  for (;;) {
    const int n = read_line(file, line, &total);
    if (n < 0) return "its header has no end (truncated)";
    if (total > kMostHeader) return "its header runs past 1 MB";
    if (n == 0 || (n == 1 && line[0] == '\r')) break;
    const char *why = take_line(h, line);
    if (why != NULL) return why;
  }
  if (read_line(file, line, &total) < 0) return "no resolution string after its header";
  return take_resolution(h, line);
}

int hdr_header_write(FILE *file, const HdrHeader *h) {
  fputs("#?RADIANCE\n", file);
  for (const char *c = h->comment; *c != 0;) {
    const char *end = strchr(c, '\n');
    const int n = end != NULL ? (int)(end - c) : (int)strlen(c);
    fprintf(file, "# %.*s\n", n, c);
    c += n + (end != NULL);
  }
  if (h->software[0] != 0) fprintf(file, "SOFTWARE=%s\n", h->software);
  if (h->date[0] != 0) fprintf(file, "CAPDATE=%s\n", h->date);
  if (h->exposure > 0) fprintf(file, "EXPOSURE=%.9g\n", h->exposure);
  if (h->gamma > 0) fprintf(file, "GAMMA=%.7g\n", h->gamma);
  if (h->has_primaries) {
    fputs("PRIMARIES=", file);
    for (int k = 0; k < 8; ++k) fprintf(file, k < 7 ? "%.6g " : "%.6g\n", h->primaries[k]);
  }
  if (h->pixaspect != 1.0) fprintf(file, "PIXASPECT=%.7g\n", h->pixaspect);
  fprintf(file, "FORMAT=32-bit_rle_%s\n\n", h->xyze ? "xyze" : "rgbe");
  const int o = h->orientation >= 1 && h->orientation <= 8 ? h->orientation : 1;
  return fprintf(file, "%s %ld %s %ld\n", kResolution[o][0], (long)h->height, kResolution[o][1],
                 (long)h->width) > 0;
}
