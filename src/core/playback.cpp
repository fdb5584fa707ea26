// Frame and playback calls: thin forwards to the slots a multi-frame
// format fills, refused with the call's own message otherwise.
#include "err/messages.hpp"
#include "orx/err.h"
#include "orx/multiframe.h"

namespace orx::core {
namespace {

constexpr int kWarning = 2;

// The slot when the object can use it; else the refusal is reported, the
// status set to -16 and null returned.
template <class Slot>
Slot usable(const ORX_OBJECT *object, Slot ORX_OBJECT::*slot, Msg refusal) {
  if (object != nullptr && object->*slot != nullptr && object->info.frame_count >= 1)
    return object->*slot;
  const char *handle = object != nullptr ? object->info.handle : nullptr;
  const char *type = object != nullptr ? object->info.type : nullptr;
  report_at(kWarning, refusal, handle != nullptr ? handle : "(null)",
            type != nullptr ? type : "(null)");
  orx__err = ORX_E_UNSUPPORTED;
  return nullptr;
}

void *private_data(const ORX_OBJECT *object) {
  return object->private_cell != nullptr ? object->private_cell[0] : nullptr;
}

int frame_call(ORX_OBJECT *object, ORX_FRAME_FN ORX_OBJECT::*slot, int32_t frame) {
  ORX_FRAME_FN fn = usable(object, slot, Msg::kSetFrame);
  return fn != nullptr ? fn(private_data(object), frame) : ORX_E_UNSUPPORTED;
}

int playback_call(ORX_OBJECT *object, ORX_PLAYBACK_FN ORX_OBJECT::*slot, Msg refusal,
                  intptr_t a1 = 0, intptr_t a2 = 0, intptr_t a3 = 0) {
  ORX_PLAYBACK_FN fn = usable(object, slot, refusal);
  return fn != nullptr ? fn(private_data(object), a1, a2, a3) : ORX_E_UNSUPPORTED;
}

}  // namespace
}  // namespace orx::core

extern "C" {

int ORX_get_frame(ORX_OBJECT *object) {
  // Deliberate: the getter is refused with the setter's wording, which
  // hosts already match on.
  return orx::core::frame_call(object, &ORX_OBJECT::get_frame, 0);
}

int ORX_set_frame(ORX_OBJECT *object, int32_t frame) {
  return orx::core::frame_call(object, &ORX_OBJECT::set_frame, frame);
}

int ORX_playback_bind(ORX_OBJECT *object, intptr_t a1, intptr_t a2, intptr_t a3) {
  return orx::core::playback_call(object, &ORX_OBJECT::playback_bind, orx::Msg::kPlaybackBind, a1,
                                  a2, a3);
}

int ORX_playback_goto(ORX_OBJECT *object, intptr_t a1, intptr_t a2, intptr_t a3) {
  return orx::core::playback_call(object, &ORX_OBJECT::playback_goto, orx::Msg::kPlaybackGoto, a1,
                                  a2, a3);
}

int ORX_playback_params(ORX_OBJECT *object, intptr_t a1, intptr_t a2, intptr_t a3) {
  return orx::core::playback_call(object, &ORX_OBJECT::playback_params, orx::Msg::kPlaybackParams,
                                  a1, a2, a3);
}

int ORX_playback_play(ORX_OBJECT *object, intptr_t a1, intptr_t a2, intptr_t a3) {
  return orx::core::playback_call(object, &ORX_OBJECT::playback_play, orx::Msg::kPlaybackPlay, a1,
                                  a2, a3);
}

int ORX_playback_stop(ORX_OBJECT *object) {
  return orx::core::playback_call(object, &ORX_OBJECT::playback_stop, orx::Msg::kPlaybackStop);
}

}  // extern "C"
