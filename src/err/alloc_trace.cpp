// Allocation tracing to ".memstat" and the analysis run over it.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "err/debug_alloc.hpp"
#include "orx/err.h"
#include "platform/platform.hpp"

namespace orx::dbg {
namespace {

void *plain_allocate(uint32_t size, const char *) { return ERR_malloc(size); }
void *plain_reallocate(void *block, uint32_t size, const char *) {
  return ERR_realloc(block, size);
}
int plain_free(void *block, const char *) { return ERR_free(block); }

struct Trace {
  int depth = 0;
  std::FILE *file = nullptr;
  Hooks hooks = {plain_allocate, plain_reallocate, plain_free};
};
Trace t;

const char *text(const char *name) { return name != nullptr ? name : "(null)"; }

void *traced_allocate(uint32_t size, const char *name) {
  void *p = ERR_malloc(size);
  if (t.file) std::fprintf(t.file, "malloc: ptr %p size %d name %s\n", p, int(size), text(name));
  return p;
}

void *traced_reallocate(void *block, uint32_t size, const char *name) {
  void *p = ERR_realloc(block, size);
  if (t.file)
    std::fprintf(t.file, "realloc: ptr from %p to %p size %d name %s\n", block, p, int(size),
                 text(name));
  return p;
}

int traced_free(void *block, const char *name) {
  if (t.file) std::fprintf(t.file, "free: ptr %p name: %s\n", block, text(name));
  return ERR_free(block);
}

}  // namespace

const Hooks &hooks() { return t.hooks; }

int trace_on() {
  if (t.depth++ > 0) return 1;
  t.hooks = Hooks{traced_allocate, traced_reallocate, traced_free};
  t.file = std::fopen(".memstat", "w");
  if (t.file == nullptr) {
    std::fputs(" yow - can't open vm stat file\n", stderr);
    return 0;
  }
  return 1;
}

int trace_off() {
  if (t.depth == 0) return 1;
  if (--t.depth > 0) return 1;
  if (t.file != nullptr) std::fclose(t.file);
  t.file = nullptr;
  t.hooks = Hooks{plain_allocate, plain_reallocate, plain_free};
  return 1;
}

int run_analysis() {
  if (t.file != nullptr) std::fflush(t.file);
  const char *dir = platform::get_env("KV_BIN_DIR");
  if (dir == nullptr) {
    std::fputs("set korvantel environment variables, please.\n", stderr);
    std::exit(0);  // deliberate: the analysis is a last step of a debugging run
  }
  // No separator is added: the variable is expected to end with "/".
  char command[4096];
  std::snprintf(command, sizeof command, "%stools/memstat", dir);
  int status = std::system(command);
  (void)status;
  return 1;
}

}  // namespace orx::dbg
