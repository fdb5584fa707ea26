// The layer protocol: push, pop, remove and close, written once.
#include "operators/layer.hpp"

#include <atomic>

#include "err/messages.hpp"
#include "err/status_word.hpp"
#include "orx/err.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

// The close functions of the layer kinds pushed so far: how a handle with a
// layer on top is told from one without, without reading its records.
std::atomic<ORX_CLOSE_FN> g_closes[64];

void note_kind(ORX_CLOSE_FN close) {
  for (auto &slot : g_closes) {
    ORX_CLOSE_FN seen = slot.load(std::memory_order_acquire);
    if (seen == close) return;
    if (seen == nullptr && slot.compare_exchange_strong(seen, close)) return;
    if (seen == close) return;
  }
}

}  // namespace

bool has_layers(const ORX_OBJECT *handle) {
  if (handle == nullptr || handle->close == nullptr) return false;
  for (const auto &slot : g_closes) {
    const ORX_CLOSE_FN seen = slot.load(std::memory_order_acquire);
    if (seen == nullptr) return false;
    if (seen == handle->close) return true;
  }
  return false;
}

void push(ORX_OBJECT *handle, LayerHeader *record, int32_t tag, ORX_SCAN_FN scan,
          ORX_CLOSE_FN close) {
  note_kind(close);
  record->tag = tag;
  record->next_scan = handle->scan;
  record->next_close = handle->close;
  record->next_data = handle->private_cell != nullptr ? handle->private_cell[0] : nullptr;
  record->next_entries = nullptr;
  record->entry_per_image = false;
  handle->scan = scan;
  handle->close = close;
  if (handle->private_cell != nullptr) handle->private_cell[0] = record;
}

void push_entries(ORX_OBJECT *handle, LayerHeader *record, int32_t tag, ORX_SCAN_FN scan,
                  ORX_CLOSE_FN close, void **entries, bool entry_per_image) {
  void **own = handle->private_cell;
  handle->private_cell = entries;
  entries[0] = own != nullptr ? own[0] : nullptr;
  push(handle, record, tag, scan, close);
  record->next_entries = own;
  record->entry_per_image = entry_per_image;
}

bool images_apart(const ORX_OBJECT *handle) {
  if (!has_layers(handle)) return true;
  if (handle->private_cell == nullptr) return false;
  const auto *top = static_cast<const LayerHeader *>(handle->private_cell[0]);
  return top != nullptr && top->entry_per_image;
}

LayerHeader *top(const ORX_OBJECT *handle, ORX_CLOSE_FN close) {
  if (handle == nullptr || handle->private_cell == nullptr || handle->close != close) return nullptr;
  return static_cast<LayerHeader *>(handle->private_cell[0]);
}

LayerHeader *pop(ORX_OBJECT *handle, LayerHeader *record) {
  handle->scan = record->next_scan;
  handle->close = record->next_close;
  if (record->next_entries != nullptr) handle->private_cell = record->next_entries;
  handle->private_cell[0] = record->next_data;
  return record;
}

int remove(ORX_OBJECT *handle, ORX_CLOSE_FN close, void (*release)(ORX_OBJECT *, LayerHeader *)) {
  if (handle == nullptr || handle->private_cell == nullptr || handle->private_cell[0] == nullptr)
    return 1;
  LayerHeader *record = top(handle, close);
  if (record == nullptr) return 0;
  release(handle, pop(handle, record));
  return 1;
}

int close_layer(ORX_OBJECT *handle, intptr_t argument, ORX_CLOSE_FN close,
                void (*release)(ORX_OBJECT *, LayerHeader *)) {
  if (LayerHeader *record = top(handle, close)) release(handle, pop(handle, record));
  if (handle->close == nullptr) {
    orx__free_obj(handle);
    return orx__err = ORX_E_UNSUPPORTED;
  }
  return handle->close(handle, argument);
}

void *allocate(uint64_t bytes) {
  if (bytes > UINT32_MAX) {
    no_memory();
    return nullptr;
  }
  return ERR_malloc(static_cast<uint32_t>(bytes));
}

void **channel_rows(ORX_IFD &d, int32_t width, const char *who) {
  void **rows = orx__chan_alloc(&d, width, who);
  if (rows == nullptr && err::last_status() == ORX_E_NO_MEMORY) no_memory();
  return rows;
}

void **float_rows(ORX_IFD &d, int32_t width, const char *who) { return channel_rows(d, width, who); }

namespace {

bool all_float(const ORX_IFD &d) {
  return d.image.type == ORX_C_FLOAT && d.matte.type == ORX_C_FLOAT && d.aux.type == ORX_C_FLOAT;
}

}  // namespace

CastBelow::CastBelow(ORX_OBJECT *handle) {
  if (!has_image(handle)) return;
  if (all_float(handle->info.images[0])) {
    orx__err = 0;
    ok_ = true;
    return;
  }
  const ORX_SCAN_FN before = handle->scan;
  orx__cast_operator(handle);
  pushed_ = ok_ = handle->scan != before;
}

void undo_cast(ORX_OBJECT *handle, bool pushed) {
  if (pushed) orx__cast_remove(handle);
}

void no_memory() { fail(ORX_E_NO_MEMORY, Msg::kNoMemory); }

int locked() {
  report(Msg::kLockedSubImage);
  return -1;
}

}  // namespace orx::operators
