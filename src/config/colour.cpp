// The colour database: default primaries, white point, wavelength sampling
// and colour-matching table, from ".orxrc".
#include <algorithm>
#include <array>
#include <cstdlib>

#include "config/cie1931.hpp"
#include "config/config_file.hpp"
#include "config/keywords.hpp"
#include "err/heap.hpp"
#include "orx/clr.h"
#include "orx/err.h"

namespace orx::config {
namespace {

constexpr int kNoMemory = -1;

struct Values {
  // x, y, z of red, green, blue and white; z is always 1 - x - y.
  std::array<std::array<float, 3>, 4> chroma = {{{0.67f, 0.33f, 0.0f},
                                                 {0.21f, 0.71f, 0.08f},
                                                 {0.14f, 0.08f, 0.78f},
                                                 {0.31f, 0.316f, 0.374f}}};
  float start = 380.0f;
  float end = 780.0f;
  float step = 5.0f;
};

struct Database {
  bool built = false;
  Values v;
  // A table read from the file; the built-in table while null.
  CLR_CMF_ROW *rows = nullptr;
  uint32_t count = 0;
  uint32_t capacity = 0;
  bool in_table = false;
  bool table_seen = false;
};
Database g;

template <int Index>
int chromaticity(Database &db, char **w) {
  auto &c = db.v.chroma[Index];
  parse_real(w[1], &c[0]);
  parse_real(w[2], &c[1]);
  c[2] = 1.0f - c[0] - c[1];
  return 0;
}

int wavelength(Database &db, char **w) {
  float s = db.v.start, e = db.v.end, st = db.v.step;
  parse_real(w[1], &s);
  parse_real(w[2], &e);
  parse_real(w[3], &st);
  // A sampling that could not be walked is ignored.
  if (st > 0.0f && e >= s) db.v = Values{db.v.chroma, s, e, st};
  return 0;
}

int table_begin(Database &db, char **) {
  db.in_table = true;
  db.table_seen = true;
  db.count = 0;  // a second table replaces the first
  return 0;
}

int table_end(Database &db, char **) {
  db.in_table = false;
  return 0;
}

int table_row(Database &db, ConfigLine *line, int number) {
  if (!db.in_table || line->words[0][0] == '#') return 0;
  if (line->count != 4) {
    report(Msg::kConfigSyntax, config_path(), number);
    return 0;
  }
  if (db.count == db.capacity) {
    uint32_t capacity = db.capacity == 0 ? 96 : db.capacity * 2;
    void *grown = heap::reallocate(db.rows, sizeof(CLR_CMF_ROW) * capacity);
    if (grown == nullptr) return kNoMemory;
    db.rows = static_cast<CLR_CMF_ROW *>(grown);
    db.capacity = capacity;
  }
  CLR_CMF_ROW row{};
  float *fields[] = {&row.wavelength, &row.x, &row.y, &row.z};
  for (int i = 0; i < 4; ++i) parse_real(line->words[i], fields[i]);
  db.rows[db.count++] = row;
  return 0;
}

const std::array<Keyword<Database>, 7> kKeywords = {{
    {"clr__red_primary", 3, chromaticity<0>},
    {"clr__green_primary", 3, chromaticity<1>},
    {"clr__blue_primary", 3, chromaticity<2>},
    {"clr__white_point", 3, chromaticity<3>},
    {"clr__wavelength", 4, wavelength},
    {"clr__cmf_table", 1, table_begin},
    {"end_cmf_table", 1, table_end},
}};

void teardown() {
  heap::release(g.rows);
  g = Database{};
}

void ensure(const char *caller) {
  if (g.built) return;
  if (CLR_init(nullptr) == 0) report(Msg::kConfigInitDatabase, "clr", caller);
}

const CLR_CMF_ROW *table(uint32_t *count) {
  if (g.table_seen && g.count > 0) {
    *count = g.count;
    return g.rows;
  }
  *count = static_cast<uint32_t>(kCie1931.size());
  return kCie1931.data();
}

}  // namespace
}  // namespace orx::config

using orx::config::g;

extern "C" {

int CLR_init(void *catalogue) {
  using namespace orx::config;
  if (g.built) return 0;
  // Every failure of the build is memory running out; the reader has
  // already reported its own.
  ReadStatus read = read_config(catalogue);
  const bool failed = read == ReadStatus::kNoMemory ||
                      (read == ReadStatus::kOk && walk_lines<Database>(kKeywords, g, table_row) != 0);
  if (failed) {
    teardown();
    orx__err = ORX_E_NO_MEMORY;
    if (read != ReadStatus::kNoMemory) orx::report(orx::Msg::kConfigNoMemory);
    return -1;
  }
  std::sort(g.rows, g.rows + g.count, [](const CLR_CMF_ROW &a, const CLR_CMF_ROW &b) {
    return a.wavelength < b.wavelength;
  });
  g.in_table = false;
  g.built = true;
  return 0;
}

void CLR_exit(void) {
  orx::config::teardown();
  orx__config_free();
}

void CLR_def_primaries(float red[3], float green[3], float blue[3]) {
  orx::config::ensure("CLR_def_primaries");
  float *out[] = {red, green, blue};
  for (int i = 0; i < 3; ++i)
    if (out[i] != nullptr) std::copy_n(g.v.chroma[i].begin(), 3, out[i]);
}

void CLR_def_white(float white[3]) {
  orx::config::ensure("CLR_def_white");
  if (white != nullptr) std::copy_n(g.v.chroma[3].begin(), 3, white);
}

void CLR_def_wavelengths(float *start, float *end, float *step) {
  orx::config::ensure("CLR_def_wavelengths");
  if (start != nullptr) *start = g.v.start;
  if (end != nullptr) *end = g.v.end;
  if (step != nullptr) *step = g.v.step;
}

const CLR_CMF_ROW *CLR_def_cmf(uint32_t *count) {
  orx::config::ensure("CLR_def_cmf");
  uint32_t n = 0;
  const CLR_CMF_ROW *rows = orx::config::table(&n);
  if (count != nullptr) *count = n;
  return rows;
}

int CLR_cmf_at(float wavelength, float xyz[3]) {
  orx::config::ensure("CLR_cmf_at");
  uint32_t n = 0;
  const CLR_CMF_ROW *rows = orx::config::table(&n);
  xyz[0] = xyz[1] = xyz[2] = 0.0f;
  if (n == 0 || !(wavelength >= rows[0].wavelength) || wavelength > rows[n - 1].wavelength)
    return 0;
  const CLR_CMF_ROW *hi = std::lower_bound(
      rows, rows + n, wavelength,
      [](const CLR_CMF_ROW &r, float wl) { return r.wavelength < wl; });
  if (hi == rows || hi->wavelength == wavelength) {
    xyz[0] = hi->x;
    xyz[1] = hi->y;
    xyz[2] = hi->z;
    return 1;
  }
  const CLR_CMF_ROW *lo = hi - 1;
  float t = (wavelength - lo->wavelength) / (hi->wavelength - lo->wavelength);
  xyz[0] = lo->x + t * (hi->x - lo->x);
  xyz[1] = lo->y + t * (hi->y - lo->y);
  xyz[2] = lo->z + t * (hi->z - lo->z);
  return 1;
}

}  // extern "C"
