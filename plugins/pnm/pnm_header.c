/* Netpbm, PAM and PFM headers: tokens separated by whitespace, with
 * comments from "#" to the end of a line anywhere between them; a single
 * whitespace byte after the last one, then the samples. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "pnm.h"

/* Bytes of a file with a reading position. */
typedef struct Cursor {
  const unsigned char *bytes;
  size_t size, at;
  char *comment;
  size_t comment_size;
} Cursor;

static int is_space(unsigned char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

/* Skips whitespace and comments, keeping the comments' text. */
static void skip(Cursor *c) {
  while (c->at < c->size) {
    if (is_space(c->bytes[c->at])) {
      ++c->at;
    } else if (c->bytes[c->at] == '#') {
      size_t from = ++c->at;
      while (c->at < c->size && c->bytes[c->at] != '\n' && c->bytes[c->at] != '\r') ++c->at;
      if (from < c->at && c->bytes[from] == ' ') ++from;
      if (c->comment != NULL) {
        size_t have = strlen(c->comment);
        if (have > 0 && have + 1 < c->comment_size) c->comment[have++] = '\n';
        size_t n = c->at - from;
        if (n > c->comment_size - 1 - have) n = c->comment_size - 1 - have;
        memcpy(c->comment + have, c->bytes + from, n);
        c->comment[have + n] = 0;
      }
    } else {
      return;
    }
  }
}

/* An unsigned decimal number of at most `most`; 0 when there is none. */
static int number(Cursor *c, uint32_t most, uint32_t *value) {
  skip(c);
  uint64_t v = 0;
  const size_t from = c->at;
  while (c->at < c->size && c->bytes[c->at] >= '0' && c->bytes[c->at] <= '9') {
    v = v * 10 + (uint64_t)(c->bytes[c->at++] - '0');
    if (v > most) return 0;
  }
  *value = (uint32_t)v;
  return c->at > from;
}

/* A word of at most size - 1 bytes (longer ones are cut). */
static void word(Cursor *c, char *out, size_t size) {
  skip(c);
  size_t n = 0;
  while (c->at < c->size && !is_space(c->bytes[c->at])) {
    if (n + 1 < size) out[n++] = (char)c->bytes[c->at];
    ++c->at;
  }
  out[n] = 0;
}

enum { kMostSide = 1 << 30 };

/* PAM: "KEY value" lines up to ENDHDR. */
static const char *parse_pam(Cursor *c, PnmImage *im) {
  char key[16], type[32] = "";
  uint32_t w = 0, h = 0, depth = 0, maxval = 0;
  for (;;) {
    word(c, key, sizeof key);
    if (key[0] == 0) return "its PAM header has no ENDHDR (truncated)";
    if (strcmp(key, "ENDHDR") == 0) break;
    uint32_t *to = strcmp(key, "WIDTH") == 0    ? &w
                   : strcmp(key, "HEIGHT") == 0 ? &h
                   : strcmp(key, "DEPTH") == 0  ? &depth
                   : strcmp(key, "MAXVAL") == 0 ? &maxval
                                                : NULL;
    if (to != NULL) {
      if (!number(c, kMostSide, to)) return "its PAM header holds a bad number";
    } else if (strcmp(key, "TUPLTYPE") == 0) {
      word(c, type, sizeof type);
    } else {
      return "its PAM header holds an unknown line";
    }
  }
  /* The header ends with ENDHDR's line. */
  while (c->at < c->size && c->bytes[c->at] != '\n') ++c->at;
  if (c->at < c->size) ++c->at;
  if (w == 0 || h == 0 || maxval == 0 || maxval > 65535 || depth == 0)
    return "its PAM header lacks a size, a depth or a maxval from 1 to 65535";
  static const struct {
    const char *name;
    uint32_t depth;
  } kTypes[] = {{"BLACKANDWHITE", 1}, {"GRAYSCALE", 1}, {"RGB", 3}};
  const size_t n = strlen(type);
  const int alpha = n > 6 && strcmp(type + n - 6, "_ALPHA") == 0;
  int known = type[0] == 0;
  for (size_t k = 0; k < sizeof kTypes / sizeof kTypes[0]; ++k)
    if (strncmp(type, kTypes[k].name, alpha ? n - 6 : n) == 0 &&
        strlen(kTypes[k].name) == (alpha ? n - 6 : n)) {
      if (depth != kTypes[k].depth + (uint32_t)alpha) return "its PAM depth is not its tuple type's";
      known = 1;
    }
  if (!known || depth > 4) return "its PAM tuple type is none this reader knows";
  im->width = (int32_t)w;
  im->height = (int32_t)h;
  im->depth = (int32_t)depth;
  im->alpha = depth == 2 || depth == 4;
  im->maxval = maxval;
  im->bilevel_white = 1;
  return NULL;
}

/* Counts a plain image's numbers to find its end. */
static const char *walk_plain(Cursor *c, const PnmImage *im) {
  const uint64_t count = (uint64_t)im->width * (uint64_t)im->height * (uint64_t)im->depth;
  if (count > c->size - c->at) return "its samples cannot fit in the rest of the file (truncated)";
  for (uint64_t k = 0; k < count; ++k) {
    skip(c);
    if (c->at >= c->size) return "the file ends before its last sample (truncated)";
    const unsigned char b = c->bytes[c->at];
    if (b < '0' || b > '9') return "a sample that is not a number";
    if (im->kind == '1') {  /* one digit a pixel, spaces optional */
      ++c->at;
      continue;
    }
    while (c->at < c->size && c->bytes[c->at] >= '0' && c->bytes[c->at] <= '9') ++c->at;
  }
  return NULL;
}

const char *pnm_parse(const unsigned char *bytes, size_t size, size_t at, PnmImage *im,
                      char *comment, size_t comment_size) {
  memset(im, 0, sizeof *im);
  Cursor c = {bytes, size, at, comment, comment_size};
  if (comment != NULL && comment_size > 0) comment[0] = 0;
  skip(&c);
  if (c.at + 2 > size || bytes[c.at] != 'P' || strchr("1234567Ff", bytes[c.at + 1]) == NULL ||
      bytes[c.at + 1] == 0)
    return "it is not a Netpbm or PFM image";
  im->kind = bytes[c.at + 1] == 'F' ? 'F' : bytes[c.at + 1] == 'f' ? 'f' : (char)bytes[c.at + 1];
  c.at += 2;
  const char k = im->kind;
  im->depth = k == '3' || k == '6' || k == 'F' ? 3 : 1;
  im->maxval = 1;
  im->scale = 1.0f;
  if (k == '7') {
    const char *why = parse_pam(&c, im);
    if (why != NULL) return why;
  } else {
    uint32_t w = 0, h = 0;
    if (!number(&c, kMostSide, &w) || !number(&c, kMostSide, &h) || w == 0 || h == 0)
      return "its header gives no width and height";
    im->width = (int32_t)w;
    im->height = (int32_t)h;
    if (k == 'F' || k == 'f') {
      char text[64];
      word(&c, text, sizeof text);
      char *end = NULL;
      const double scale = strtod(text, &end);
      if (end == text || *end != 0 || scale == 0 || scale != scale)
        return "its PFM scale is not a number other than 0";
      im->little = scale < 0;
      im->scale = (float)(scale < 0 ? -scale : scale);
    } else if (k != '1' && k != '4') {
      if (!number(&c, 65535, &im->maxval) || im->maxval == 0)
        return "its maxval is not a number from 1 to 65535";
    }
    if (c.at >= size || !is_space(bytes[c.at])) return "its header ends without whitespace";
    ++c.at;
  }
  const uint32_t m = im->maxval;
  im->bits = k == 'F' || k == 'f' ? 32 : 0;
  for (int b = 1; b <= 16 && im->bits == 0; ++b)
    if (m == (1u << b) - 1) im->bits = b;
  if (im->bits == 0) im->bits = m < 256 ? 8 : 16;
  im->at = c.at;
  if (k == '1' || k == '2' || k == '3') {
    const char *why = walk_plain(&c, im);
    im->end = c.at;
    return why;
  }
  const uint64_t sample = k == 'F' || k == 'f' ? 4 : m > 255 ? 2 : 1;
  const uint64_t row = k == '4' ? ((uint64_t)im->width + 7) / 8
                                : (uint64_t)im->width * (uint64_t)im->depth * sample;
  const uint64_t need = row * (uint64_t)im->height;
  if (need > size - im->at)
    return "its samples need more bytes than the file holds after its header (truncated)";
  im->end = im->at + (size_t)need;
  return NULL;
}

size_t pnm_next_sample(const unsigned char *bytes, size_t size, size_t at, int digit,
                       uint32_t *value) {
  Cursor c = {bytes, size, at, NULL, 0};
  skip(&c);
  uint32_t v = 0;
  const size_t from = c.at;
  while (c.at < size && bytes[c.at] >= '0' && bytes[c.at] <= '9' && (!digit || c.at == from)) {
    if (v <= 65535) v = v * 10 + (uint32_t)(bytes[c.at] - '0');
    ++c.at;
  }
  *value = v;
  return c.at > from ? c.at : (size_t)-1;
}

int pnm_only_space(const unsigned char *bytes, size_t size, size_t at) {
  Cursor c = {bytes, size, at, NULL, 0};
  skip(&c);
  return c.at >= size;
}

KitLayout pnm_layout(const PnmImage *im) {
  const int floating = im->kind == 'F' || im->kind == 'f';
  KitLayout layout = {{im->depth - im->alpha, im->alpha, 0},
                      {floating ? ORX_C_FLOAT : ORX_C_INTEGER, ORX_C_INTEGER, ORX_C_INTEGER},
                      {im->bits, im->bits, im->bits}};
  return layout;
}
