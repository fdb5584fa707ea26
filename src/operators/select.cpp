// ORX__select: a handle on a multi-image file narrowed to one of its images,
// so that every later layer and caller sees a single-image handle.
#include <cstring>

#include "err/messages.hpp"
#include "operators/layer.hpp"
#include "orx/err.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

struct SelectRecord {
  LayerHeader header;     // next_data: the first entry as it was
  void **saved_entries;   // every private-data entry, moved here
  int32_t saved_count;
  ORX_IFD *saved_images;
  ORX_IFD selected;       // a copy of the chosen image's description
  void *selected_data;    // and its private data
};

int select_scan(void *data, int32_t line, void *rows) {
  if (data == nullptr) return locked();
  const SelectRecord &r = *static_cast<SelectRecord *>(data);
  if (r.selected_data == nullptr) return locked();
  return r.header.next_scan(r.selected_data, line, rows);
}

void release(ORX_OBJECT *handle, LayerHeader *header) {
  auto *r = reinterpret_cast<SelectRecord *>(header);
  handle->info.image_count = r->saved_count;
  handle->info.images = r->saved_images;
  for (int32_t i = 0; i < r->saved_count; ++i) handle->private_cell[i] = r->saved_entries[i];
  ERR_free(r->saved_entries);
  ERR_free(r);
}

using Layer = Kind<release>;

}  // namespace
}  // namespace orx::operators

using namespace orx::operators;

extern "C" {

ORX_OBJECT *ORX__select(ORX_OBJECT *handle, int32_t image) {
  orx__err = 0;
  if (handle == nullptr || handle->info.image_count < 2 || handle->private_cell == nullptr)
    return handle;
  const int32_t count = handle->info.image_count;
  // The index is taken as given, as it always was; one outside the file
  // cannot be read from, so it is refused here rather than read past.
  if (image < 0 || image >= count) return handle;
  // Under a layer, another image's private data would reach that layer's
  // scan as if it were the layer's own record: only image 0 can be chosen,
  // unless the layer keeps a record for every image.
  if (image != 0 && !images_apart(handle)) {
    orx::fail(ORX_E_UNSUPPORTED, orx::Msg::kCannotHandleAction, "select operator");
    return handle;
  }
  auto *r = static_cast<SelectRecord *>(ERR_malloc(sizeof(SelectRecord)));
  auto **entries = static_cast<void **>(ERR_malloc(sizeof(void *) * static_cast<uint32_t>(count)));
  if (r == nullptr || entries == nullptr) {
    ERR_free(r);
    ERR_free(entries);
    return handle;  // nothing reported beyond the allocator's own report
  }
  *r = SelectRecord{};
  r->saved_entries = entries;
  r->saved_count = count;
  r->saved_images = handle->info.images;
  r->selected = handle->info.images[image];
  r->selected_data = handle->private_cell[image];
  push(handle, &r->header, kSelect, select_scan, Layer::close);
  // The first entry now holds the record; the saved copy is the old one.
  entries[0] = r->header.next_data;
  for (int32_t i = 1; i < count; ++i) {
    entries[i] = handle->private_cell[i];
    handle->private_cell[i] = nullptr;
  }
  handle->info.image_count = 1;
  handle->info.images = &r->selected;
  return handle;
}

int ORX__select_remove(ORX_OBJECT *handle) { return Layer::remove(handle); }

}  // extern "C"
