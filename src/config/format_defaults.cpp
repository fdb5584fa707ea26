// The format-defaults database: library-wide defaults for new image files
// and a table of named image formats, from ".orxrc".
#include <array>
#include <cstdlib>
#include <cstring>

#include "config/config_file.hpp"
#include "config/entry_list.hpp"
#include "config/keywords.hpp"
#include "err/heap.hpp"
#include "orx/err.h"
#include "orx/fmt.h"
#include "orx/str.h"

namespace orx::config {
namespace {

using Format = FMT_FORMAT;

char kNtsc640[] = "ntsc_640";
constexpr Format kBuiltin = {kNtsc640, 640, 486, 1.33f};

// Status of a failed string copy and of a failed entry allocation.
constexpr int kStringMemory = -10;
constexpr int kEntryMemory = -1;

struct Defaults {
  const char *aspect = kNtsc640;
  int gamma_tab_res = 4096;
  float gamma = 2.2f;
  float input_gamma = 1.0f;
  const char *key = "rla";
  const char *base_name = "im";
  const char *channels = "rgb";
  int dominance = 1;
  int frame_rate = 30;
  int swatch = 0;
};

// Copies of words from the file; null while the built-in value stands.
struct OwnedWords {
  char *wanted_aspect = nullptr;
  char *key = nullptr;
  char *base_name = nullptr;
  char *channels = nullptr;
};

struct Database {
  bool built = false;
  bool in_table = false;
  EntryList<Format> list;
  Format builtin = kBuiltin;
  Defaults d;
  OwnedWords owned;
};
Database g;

// Replace *slot with a copy of word; false when out of memory.
bool keep_copy(char **slot, const char *word) {
  char *copy = STR_save(word);
  if (copy == nullptr) return false;
  heap::release(*slot);
  *slot = copy;
  return true;
}

template <char *OwnedWords::*Slot, const char *Defaults::*Field>
int string_default(Database &db, char **w) {
  if (!keep_copy(&(db.owned.*Slot), w[1])) return kStringMemory;
  db.d.*Field = db.owned.*Slot;
  return 0;
}

template <float Defaults::*Field>
int real_default(Database &db, char **w) {
  parse_real(w[1], &(db.d.*Field));
  return 0;
}

int aspect_default(Database &db, char **w) {
  return keep_copy(&db.owned.wanted_aspect, w[1]) ? 0 : kStringMemory;
}
int table_begin(Database &db, char **) {
  db.in_table = true;
  return 0;
}
int table_end(Database &db, char **) {
  db.in_table = false;
  return 0;
}
int gamma_table_res(Database &db, char **w) {
  db.d.gamma_tab_res = std::atoi(w[1]);
  return 0;
}
int dominance(Database &db, char **w) {
  db.d.dominance = std::strcmp(w[1], "even") == 0 ? 0 : 1;
  return 0;
}
int frame_rate(Database &db, char **w) {
  int rate = std::atoi(w[1]);
  if (rate > 0) db.d.frame_rate = rate;
  return 0;
}
int swatch_size(Database &db, char **w) {
  int size = std::strcmp(w[1], "none") == 0 ? 0 : std::atoi(w[1]);
  db.d.swatch = size < 0 ? 0 : size;
  return 0;
}

// Inside the aspect table every line that is no keyword is a format entry.
int table_line(Database &db, ConfigLine *line, int number) {
  if (!db.in_table || line->words[0][0] == '#') return 0;
  if (line->count != 4) {
    report(Msg::kConfigSyntax, config_path(), number);
    return 0;
  }
  auto *e = static_cast<Format *>(heap::allocate(sizeof(Format)));
  if (e == nullptr) return kEntryMemory;
  *e = Format{STR_save(line->words[0]), std::atoi(line->words[1]), std::atoi(line->words[2]),
              0.0f};
  if (e->name == nullptr) {
    heap::release(e);
    return kStringMemory;
  }
  parse_real(line->words[3], &e->aspect);
  db.list.remove_named(e->name);
  if (!db.list.append(e, false)) {
    EntryList<Format>::free_entry(e);
    return kEntryMemory;
  }
  return 0;
}

const std::array<Keyword<Database>, 12> kKeywords = {{
    {"fmt__aspect_default", 2, aspect_default},
    {"fmt__aspect_table", 1, table_begin},
    {"end_aspect_table", 1, table_end},
    {"fmt__gamma_table_res", 2, gamma_table_res},
    {"fmt__gamma_default", 2, real_default<&Defaults::gamma>},
    {"fmt__input_gamma_default", 2, real_default<&Defaults::input_gamma>},
    {"fmt__key_default", 2, string_default<&OwnedWords::key, &Defaults::key>},
    {"fmt__name_default", 2, string_default<&OwnedWords::base_name, &Defaults::base_name>},
    {"fmt__chan_default", 2, string_default<&OwnedWords::channels, &Defaults::channels>},
    {"fmt__dominance", 2, dominance},
    {"fmt__frame_rate", 2, frame_rate},
    {"fmt__swatch_size", 2, swatch_size},
}};

void teardown() {
  g.list.clear();
  for (char *p : {g.owned.wanted_aspect, g.owned.key, g.owned.base_name, g.owned.channels})
    heap::release(p);
  g.owned = OwnedWords{};
  g.d = Defaults{};
  g.builtin = kBuiltin;
  g.in_table = false;
  g.built = false;
}

// Every failure of the build is memory running out: the status says so
// whichever allocation it was.
int fail_build(int status, bool reported = false) {
  teardown();
  orx__err = ORX_E_NO_MEMORY;
  if (!reported) report(Msg::kConfigNoMemory);
  return status;
}

bool ensure(const char *caller) {
  if (g.built) return true;
  if (FMT_init(nullptr) != 0) return false;
  report(Msg::kConfigInitDatabase, "fmt", caller);
  return true;
}

// A default, read after the database has been built (the reference is
// taken before, the value after).
template <class T>
T answer(const char *caller, const T &value) {
  ensure(caller);
  return value;
}

}  // namespace
}  // namespace orx::config

using orx::config::answer;
using orx::config::g;

extern "C" {

int FMT_init(void *catalogue) {
  using namespace orx::config;
  if (g.built) {
    g.list.rewind();
    return 0;
  }
  if (!g.list.append(&g.builtin, true)) return fail_build(kEntryMemory);
  ReadStatus read = read_config(catalogue);
  if (read == ReadStatus::kNoMemory) return fail_build(kEntryMemory, true);
  if (read == ReadStatus::kOk) {
    int status = walk_lines<Database>(kKeywords, g, table_line);
    if (status != 0) return fail_build(status);
    // A default naming a format the table lacks is ignored on purpose.
    if (g.owned.wanted_aspect != nullptr && g.list.find(g.owned.wanted_aspect) != nullptr)
      g.d.aspect = g.owned.wanted_aspect;
  }
  g.in_table = false;
  g.built = true;
  g.list.rewind();
  return 0;
}

void FMT_exit(void) {
  orx::config::teardown();
  orx__config_free();
}

FMT_FORMAT *FMT_find(const char *name) {
  if (!orx::config::ensure("FMT_find")) return nullptr;
  return g.list.find(name);
}

FMT_FORMAT *FMT_info(void) {
  if (!orx::config::ensure("FMT_info")) return nullptr;
  return g.list.next();
}

// Each query answers from the built-in values when the build failed.
const char *FMT_def_aspect(void) { return answer("FMT_def_aspect", g.d.aspect); }
int FMT_def_dominance(void) { return answer("FMT_def_dominance", g.d.dominance); }
int FMT_def_frame_rate(void) { return answer("FMT_def_frame_rate", g.d.frame_rate); }
float FMT_def_gamma(void) { return answer("FMT_def_gamma", g.d.gamma); }
int FMT_def_gamma_tab_res(void) { return answer("FMT_def_gamma_tab_res", g.d.gamma_tab_res); }
const char *FMT_def_image_data(void) { return answer("FMT_def_image_data", g.d.channels); }
float FMT_def_input_gamma(void) { return answer("FMT_def_input_gamma", g.d.input_gamma); }
int FMT_def_swatch(void) { return answer("FMT_def_swatch", g.d.swatch); }
const char *FMT_def_key(void) { return answer("FMT_def_key", g.d.key); }
const char *FMT_def_base_name(void) { return answer("FMT_def_base_name", g.d.base_name); }

}  // extern "C"
