// The framebuffer database: named display devices from ".orxrc".
#include <array>
#include <cstdio>
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

using Fb = FB_FRAMEBUFFER;

char kFull[] = "full";
char kNtsc[] = "ntsc";
char kPal[] = "pal";

constexpr Fb builtin(char *name, int x, int y, std::array<float, 12> c) {
  return Fb{name, 0, 0, x, y, 1.33f,
            {c[0], c[1], c[2]}, {c[3], c[4], c[5]}, {c[6], c[7], c[8]}, {c[9], c[10], c[11]},
            2.2f, 24, 0};
}

const std::array<Fb, 3> kBuiltins = {
    builtin(kFull, 1280, 1024,
            {0.67f, 0.33f, 0.0f, 0.21f, 0.71f, 0.08f, 0.14f, 0.08f, 0.78f, 0.31f, 0.316f,
             0.374f}),
    builtin(kNtsc, 640, 486,
            {0.598f, 0.363f, 0.039f, 0.312f, 0.586f, 0.102f, 0.145f, 0.059f, 0.796f, 0.319f,
             0.344f, 0.337f}),
    builtin(kPal, 780, 576,
            {0.64f, 0.33f, 0.03f, 0.29f, 0.6f, 0.11f, 0.15f, 0.06f, 0.79f, 0.313f, 0.329f,
             0.358f}),
};

struct Database {
  bool built = false;
  EntryList<Fb> list;
  std::array<Fb, 3> builtins = kBuiltins;  // handed out, so kept mutable
  char *default_name = nullptr;            // owned copy from "fb__default"
  Fb *open = nullptr;                      // entry between "framebuffer" and "end_framebuffer"
};
Database g;

constexpr int kNoMemory = -1;

int begin_entry(Database &db, char **w) {
  EntryList<Fb>::free_entry(db.open);
  db.open = nullptr;
  auto *e = static_cast<Fb *>(heap::allocate(sizeof(Fb)));
  char *name = STR_save(w[1]);
  if (e == nullptr || name == nullptr) {
    heap::release(e);
    heap::release(name);
    return kNoMemory;
  }
  *e = db.builtins[0];
  e->name = name;
  db.open = e;
  return 0;
}

int end_entry(Database &db, char **) {
  if (db.open == nullptr) return 0;
  db.list.remove_named(db.open->name);
  if (!db.list.append(db.open, false)) return kNoMemory;
  db.open = nullptr;
  return 0;
}

int resolution(Database &db, char **w) {
  if (db.open != nullptr) {
    db.open->x_resolution = std::atoi(w[1]);
    db.open->y_resolution = std::atoi(w[2]);
  }
  return 0;
}

// Value keywords change the open entry only; outside an entry they are ignored.
template <float Fb::*Field>
int scalar(Database &db, char **w) {
  if (db.open != nullptr) parse_real(w[1], &(db.open->*Field));
  return 0;
}

template <float (Fb::*Field)[3]>
int triple(Database &db, char **w) {
  if (db.open == nullptr) return 0;
  float *v = db.open->*Field;
  for (int i = 0; i < 3; ++i) parse_real(w[i + 1], &v[i]);
  return 0;
}

int default_name(Database &db, char **w) {
  char *copy = STR_save(w[1]);
  if (copy == nullptr) return kNoMemory;
  heap::release(db.default_name);
  db.default_name = copy;
  return 0;
}

const std::array<Keyword<Database>, 10> kKeywords = {{
    {"framebuffer", 2, begin_entry},
    {"resolution", 3, resolution},
    {"aspect", 2, scalar<&Fb::aspect>},
    {"gamma", 2, scalar<&Fb::gamma>},
    {"red_primary", 4, triple<&Fb::red>},
    {"green_primary", 4, triple<&Fb::green>},
    {"blue_primary", 4, triple<&Fb::blue>},
    {"white_point", 4, triple<&Fb::white>},
    {"end_framebuffer", 1, end_entry},
    {"fb__default", 2, default_name},
}};

void teardown() {
  g.list.clear();
  EntryList<Fb>::free_entry(g.open);
  g.open = nullptr;
  heap::release(g.default_name);
  g.default_name = nullptr;
  g.builtins = kBuiltins;
  g.built = false;
}

// Build on first use and announce it; false when the build failed.
bool ensure(const char *caller) {
  if (g.built) return true;
  if (FB_init(nullptr) != 0) return false;
  report(Msg::kConfigInitDatabase, "fb", caller);
  return true;
}

}  // namespace
}  // namespace orx::config

using orx::config::g;

extern "C" {

int FB_init(void *catalogue) {
  using namespace orx::config;
  if (g.built) {
    g.list.rewind();
    return 0;
  }
  // Memory exhaustion tears the database down and leaves the status set, as
  // every other out-of-memory return of the library does.
  auto out_of_memory = [](bool reported) {
    teardown();
    if (!reported) orx::report(orx::Msg::kConfigNoMemory);
    orx__err = ORX_E_NO_MEMORY;
    return -1;
  };
  for (auto &b : g.builtins) {
    if (!g.list.append(&b, true)) return out_of_memory(false);
  }
  ReadStatus read = read_config(catalogue);
  if (read == ReadStatus::kNoMemory) return out_of_memory(true);
  if (read == ReadStatus::kOk) {
    int status = walk_lines<Database>(kKeywords, g, nullptr);
    // An entry still open at the end of the file was never closed: dropped.
    EntryList<Fb>::free_entry(g.open);
    g.open = nullptr;
    if (status != 0) return out_of_memory(false);
  }
  g.built = true;
  g.list.rewind();
  return 0;
}

void FB_exit(void) {
  orx::config::teardown();
  orx__config_free();
}

FB_FRAMEBUFFER *FB_find(const char *name) {
  if (!orx::config::ensure("FB_find")) return nullptr;
  return g.list.find(name);
}

FB_FRAMEBUFFER *FB_info(void) {
  if (!orx::config::ensure("FB_info")) return nullptr;
  return g.list.next();
}

const char *FB_def_framebuffer(void) {
  if (!orx::config::ensure("FB_def_framebuffer")) return orx::config::kFull;
  return g.default_name != nullptr ? g.default_name : orx::config::kFull;
}

void FB_symbols(void) {
  std::fputs("FB_symbols: should not be called by the application\n", stderr);
}

}  // extern "C"
