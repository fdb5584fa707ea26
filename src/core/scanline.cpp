// Scanline, seek and close calls on an open image object.  Each takes the
// object's own mutex, so different objects move lines in parallel; close
// also takes the library mutex, always after the object's.
#include <cstdio>

#include "core/multiframe.hpp"
#include "core/registry.hpp"
#include "orx/err.h"
#include "orx/registry.h"

namespace orx::core {
namespace {

platform::Mutex &lock_of(ORX_OBJECT *object) {
  return *static_cast<platform::Mutex *>(object->lock);
}

void *private_data(const ORX_OBJECT *object) {
  return object->private_cell != nullptr ? object->private_cell[0] : nullptr;
}

// Run call(private data) under the object's lock when the object can;
// -16 otherwise.  A successful call makes line the current line.
template <class Call>
int locked_call(ORX_OBJECT *object, bool can, int32_t line, Call call) {
  if (object == nullptr) return orx__err = ORX_E_UNSUPPORTED;
  platform::Lock lock(lock_of(object));
  void *data = private_data(object);
  if (!can || data == nullptr) return orx__err = ORX_E_UNSUPPORTED;
  const int status = call(data);
  if (status == 0) object->current_line = line;
  return status;
}

int direct(ORX_OBJECT *object, int32_t line, void *a1, void *a2, void *a3, void *a4, void *a5) {
  const bool can = object != nullptr && object->direct_scan != nullptr;
  return locked_call(object, can, line, [&](void *data) {
    return object->direct_scan(data, line, a1, a2, a3, a4, a5);
  });
}

// Lines are numbered upwards from the window's bottom when the first
// descriptor's orientation bit is set, downwards from its top otherwise.
bool upwards(const ORX_OBJECT *object) {
  return object->info.image_count <= 0 || object->info.images == nullptr ||
         (object->info.images[0].orientation & 1) != 0;
}

int32_t first_line(const ORX_OBJECT *object) {
  if (object->info.image_count <= 0 || object->info.images == nullptr) return 0;
  const ORX_WINDOW &w = object->info.images[0].window;
  return upwards(object) ? w.bottom : w.top;
}

// Whether target has already been passed in scan order: the next read
// cannot return it without starting over.
bool passed(const ORX_OBJECT *object, int32_t target) {
  return upwards(object) ? target <= object->current_line : target >= object->current_line;
}

// Close the object and open its file again at the first line.
ORX_OBJECT *reopen(ORX_OBJECT *object) {
  ORX_INFO request;
  ORX_info_init(&request);
  const char *key = object->format != nullptr ? object->format->key : object->info.type;
  request.type = save(key);
  request.handle = save(object->info.handle);
  // Without its key the file could open as another format: a lost copy fails.
  const bool copied = request.handle != nullptr && (key == nullptr || request.type != nullptr);
  request.full_path = 1;
  request.enabled = 0;
  // The caller's settings move to the new object.
  request.settings = object->info.settings;
  object->info.settings = nullptr;
  ORX_close(object);
  ORX_OBJECT *fresh = nullptr;
  if (copied)
    fresh = ORX_open(&request, "r");
  else
    orx__err = ORX_E_NO_MEMORY;
  ORX_info_cleanup(&request, 1);
  return fresh;
}

// Read and drop the lines strictly between the current line and target.
void read_forward(ORX_OBJECT *object, int32_t target) {
  const int32_t step = upwards(object) ? 1 : -1;
  platform::Lock lock(lock_of(object));
  void *data = private_data(object);
  if (object->scan == nullptr || data == nullptr) {
    orx__err = ORX_E_UNSUPPORTED;
    return;
  }
  for (int32_t line = object->current_line + step; (target - line) * step > 0; line += step) {
    void **channels = nullptr;
    const int status = object->scan(data, line, &channels);
    if (status != 0) {
      if (orx::err::last_status() == 0) orx__err = status;
      return;
    }
    object->current_line = line;
  }
}

}  // namespace
}  // namespace orx::core

extern "C" {

int ORX_scan_read(ORX_OBJECT *object, int32_t line, void ***channels) {
  const bool can = object != nullptr && object->scan != nullptr;
  return orx::core::locked_call(object, can, line,
                                [&](void *data) { return object->scan(data, line, channels); });
}

int ORX_scan_write(ORX_OBJECT *object, int32_t line, void **channels) {
  const bool can = object != nullptr && object->scan != nullptr;
  return orx::core::locked_call(object, can, line,
                                [&](void *data) { return object->scan(data, line, channels); });
}

int ORX_direct_scan_read(ORX_OBJECT *object, int32_t line, void *a1, void *a2, void *a3, void *a4,
                         void *a5) {
  return orx::core::direct(object, line, a1, a2, a3, a4, a5);
}

int ORX_direct_scan_write(ORX_OBJECT *object, int32_t line, void *a1, void *a2, void *a3, void *a4,
                          void *a5) {
  return orx::core::direct(object, line, a1, a2, a3, a4, a5);
}

int ORX_seek(ORX_OBJECT **object, int32_t line) {
  using namespace orx::core;
  orx__err = 0;
  if (object == nullptr || *object == nullptr) return orx__err = ORX_E_FIELD_MISSING;
  ORX_OBJECT *current = *object;
  if (current->seek != nullptr) {
    orx::platform::Lock lock(lock_of(current));
    const int status = current->seek(private_data(current), line);
    if (status != 0 && orx::err::last_status() == 0) orx__err = status;
    return orx::err::last_status();
  }
  const int32_t random = ORX_ACCESS_READ | ORX_ACCESS_RANDOM;
  if (current->format != nullptr && (current->format->access & random) == random) return 0;
  const int32_t target = line == -1 ? first_line(current) : line;
  if (passed(current, target)) {
    current = reopen(current);
    *object = current;
    if (current == nullptr) return orx::err::last_status();
    if (passed(current, target))
      std::fputs("ORX_seek: did not advance image pointer correctly\n", stderr);
  }
  read_forward(current, target);
  return orx::err::last_status();
}

int ORX_close(ORX_OBJECT *object) {
  using namespace orx::core;
  if (object == nullptr) return orx__err = ORX_E_FIELD_MISSING;
  lock_of(object).lock();
  orx::platform::Lock library(library_mutex());
  // The close function (reached directly or through the multi-frame cache)
  // frees the object and its mutex, so the mutex is given back first; the
  // library mutex keeps other opens and closes out.
  lock_of(object).unlock();
  if (ORX_multiframe_used() != 0) return ORX_multiframe_set_closed(object);
  if (object->close == nullptr) {
    orx__free_obj(object);
    return orx__err = ORX_E_UNSUPPORTED;
  }
  return object->close(object, 0);
}

int ORX_close_do_it(ORX_OBJECT *object, intptr_t argument) {
  if (object == nullptr || object->close == nullptr) return orx__err = ORX_E_UNSUPPORTED;
  return object->close(object, argument);
}

}  // extern "C"
