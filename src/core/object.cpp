// Creation and release of the image object.
#include <new>

#include "err/messages.hpp"
#include "core/info_copy.hpp"
#include "orx/err.h"
#include "orx/plugin.h"
#include "platform/platform.hpp"

extern "C" {

ORX_OBJECT *orx__new_obj(int32_t access) {
  auto *object = static_cast<ORX_OBJECT *>(ERR_malloc(sizeof(ORX_OBJECT)));
  if (object == nullptr) {
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  *object = ORX_OBJECT{};
  ORX_info_init(&object->info);
  object->access = access;
  object->current_line = -1;
  auto *lock = static_cast<orx::platform::Mutex *>(ERR_malloc(sizeof(orx::platform::Mutex)));
  if (lock == nullptr) {
    ERR_free(object);
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  object->lock = new (lock) orx::platform::Mutex();
  return object;
}

void orx__free_obj(ORX_OBJECT *object) {
  if (object == nullptr) return;
  orx::core::release_info(&object->info);
  ERR_free(object->private_cell);
  if (object->lock != nullptr) {
    static_cast<orx::platform::Mutex *>(object->lock)->~Mutex();
    ERR_free(object->lock);
  }
  ERR_free(object);
}

}  // extern "C"
