// The image-process frame: a small database of the known processes, built
// on first use, and the dispatch of IMP_open to a process's entries.
#include <cstring>
#include <iterator>

#include "err/heap.hpp"
#include "err/messages.hpp"
#include "orx/err.h"
#include "orx/registry.h"
#include "texture/process.hpp"
#include "util/queue.hpp"

namespace orx::texture {
namespace {

using Entry = ORX_OBJECT *(*)(ORX_INFO *, IMP_REQUEST *);

struct Row {
  const char *key;
  const char *name;
  const char *description;
  Entry read;
  Entry write;
};

// The neutral process: both directions do nothing.
ORX_OBJECT *nothing(ORX_INFO *, IMP_REQUEST *) { return nullptr; }

const Row kOperations[] = {{"none", "none", "No operation", nothing, nothing}};
const Row kGenerators[] = {
    {"mipmap", "Mipmap", "Mipmap texture generator", mipmap_read, mipmap_write},
    {"swatch", "Swatch", "Subsample image generator", swatch_read, swatch_write},
};

// A database entry: the queue link first, then what IMP_info hands out.
struct Process {
  util::QueueLink link;
  IMP_INFO info;
};

struct Frame {
  bool initialised = false;
  util::Queue *queue = nullptr;
  Process *current = nullptr;
  int error = 0;
};
Frame g;

void tear_down() {
  if (g.queue != nullptr) {
    while (void *p = util::queue_pop(g.queue)) ERR_free(p);
    ERR_free(g.queue);
  }
  g = Frame{};
}

bool append(const Row &row) {
  auto *p = static_cast<Process *>(heap::allocate(sizeof(Process)));
  if (p == nullptr) return false;
  p->link.next = nullptr;
  p->info = IMP_INFO{const_cast<char *>(row.key), const_cast<char *>(row.name),
                     const_cast<char *>(row.description),
                     (row.read != nullptr ? IMP_CAN_READ : 0) |
                         (row.write != nullptr ? IMP_CAN_WRITE : 0)};
  util::queue_append(g.queue, p);
  return true;
}

// Builds the database on first use; false when it cannot be.
bool build(const char *caller) {
  g.error = 0;
  if (g.initialised) return true;
  if (ORX_init(nullptr, nullptr) != 0) return false;
  g.initialised = true;
  g.queue = util::queue_create();
  bool ok = g.queue != nullptr;
  for (const Row &row : kOperations) ok = ok && append(row);
  for (const Row &row : kGenerators) ok = ok && append(row);
  if (!ok) {
    tear_down();
    ORX_exit();
    g.error = -3;
    report(Msg::kNoMemory);
    return false;
  }
  util::queue_rewind(g.queue);
  report(Msg::kInitDatabase, "imp", caller);
  return true;
}

const Row *find(const Row *rows, std::size_t n, const char *key) {
  for (std::size_t i = 0; i < n; ++i)
    if (std::strcmp(rows[i].key, key) == 0) return &rows[i];
  return nullptr;
}

}  // namespace

void set_error(int value) { g.error = value; }
int error() { return g.error; }
void reset() { tear_down(); }

}  // namespace orx::texture

extern "C" {

IMP_INFO *IMP_info(void) {
  using namespace orx::texture;
  if (!build("IMP_info")) return nullptr;
  g.current = static_cast<Process *>(orx::util::queue_next(g.queue));
  return g.current != nullptr ? &g.current->info : nullptr;
}

ORX_OBJECT *IMP_open(ORX_INFO *image, IMP_REQUEST *request, const char *access) {
  using namespace orx::texture;
  using orx::Msg;
  if (!build("IMP_open")) return nullptr;
  const bool read = access != nullptr && std::strcmp(access, "r") == 0;
  const bool write = access != nullptr && std::strcmp(access, "w") == 0;
  if (!read && !write) {
    // Deliberately leaves the error word at 0.
    orx::report(Msg::kAccessUnknown, access != nullptr ? access : "(null)");
    return nullptr;
  }
  // A null key is looked up as "none" among the generators only, so it
  // always fails; the message names "none" whatever key was asked for.
  constexpr const char *kDefault = "none";
  const char *key = request != nullptr ? request->key : nullptr;
  const Row *row = find(kGenerators, std::size(kGenerators), key != nullptr ? key : kDefault);
  if (row == nullptr && key != nullptr) row = find(kOperations, std::size(kOperations), key);
  if (row == nullptr) {
    g.error = -1;
    orx::report(Msg::kProcessTypeInvalid, kDefault);
    return nullptr;
  }
  const Entry entry = read ? row->read : row->write;
  if (entry == nullptr) {
    g.error = -9;
    orx::report(Msg::kCannotHandleAction, row->key);
    return nullptr;
  }
  return entry(image, request);
}

int IMP_error(void) { return orx::texture::error(); }

}  // extern "C"
