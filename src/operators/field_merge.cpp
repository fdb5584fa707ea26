// Field frame merging: a new handle reading two field files as one
// interlaced frame, line 2k from the first field and 2k + 1 from the second.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <utility>

#include "core/info_copy.hpp"
#include "core/registry.hpp"
#include "err/heap.hpp"
#include "err/messages.hpp"
#include "orx/err.h"
#include "orx/field_merge.h"
#include "orx/registry.h"

namespace orx::operators {
namespace {

constexpr int32_t kFieldTag = 14;
constexpr std::size_t kNameBuffer = 256;

struct FieldRecord {
  int32_t tag;
  ORX_OBJECT *first;
  ORX_OBJECT *second;
  void *first_private;
  void *second_private;
  int32_t frame;  // of the handle passed in
  int32_t zero;
};

constexpr Msg kPrimaries = Msg::kFieldPrimaries, kGammas = Msg::kFieldGammas,
              kImage = Msg::kFieldImageChannels, kMatte = Msg::kFieldMatteChannels,
              kAspect = Msg::kFieldAspect, kWindow = Msg::kFieldWindow;

bool differ(float a, float b) { return !(a == b); }  // NaN differs from everything

bool same_text(const char *a, const char *b) {
  return (a == nullptr || b == nullptr) ? a == b : std::strcmp(a, b) == 0;
}

// The first difference between the fields, or null.
const Msg *difference(const ORX_INFO &a, const ORX_INFO &b) {
  for (auto [p, q] : {std::pair{a.red, b.red}, {a.green, b.green}, {a.blue, b.blue}, {a.white, b.white}})
    if (differ(p[0], q[0]) || differ(p[1], q[1])) return &kPrimaries;
  const int32_t n = a.image_count < b.image_count ? a.image_count : b.image_count;
  for (int32_t i = 0; i < n; ++i) {
    const ORX_IFD &x = a.images[i], &y = b.images[i];
    if (x.curve.kind != y.curve.kind || differ(x.curve.gamma, y.curve.gamma))
      return &kGammas;
    if (!same_text(x.image.name, y.image.name) || x.image.count != y.image.count ||
        x.image.bits != y.image.bits)
      return &kImage;
    if (x.matte.count != y.matte.count || x.matte.bits != y.matte.bits)
      return &kMatte;
    if (differ(x.aspect_ratio, y.aspect_ratio)) return &kAspect;
    if (x.window.left != y.window.left || x.window.right != y.window.right ||
        x.window.bottom != y.window.bottom || x.window.top != y.window.top)
      return &kWindow;
  }
  return nullptr;
}

int field_scan(void *data, int32_t line, void *rows) {
  auto *r = static_cast<FieldRecord *>(data);
  const bool second = line % 2 != 0;
  ORX_OBJECT *field = second ? r->second : r->first;
  return field->scan(second ? r->second_private : r->first_private, line / 2, rows);
}

int field_close(ORX_OBJECT *merged, intptr_t) {
  auto *r = static_cast<FieldRecord *>(merged->private_cell[0]);
  const bool passed_second = r->frame % 2 == 0;
  ORX_OBJECT *partner = passed_second ? r->first : r->second;
  ORX_OBJECT *passed = passed_second ? r->second : r->first;
  ERR_free(r);
  orx__free_obj(merged);  // the private-slot array, descriptions and handle
  orx__err = 0;
  partner->close(partner, 0);
  passed->close(passed, 0);
  return orx::err::last_status();
}

// The merged handle's open information: a copy of the first field's.
bool copy_info(ORX_INFO &to, const ORX_INFO &from, int32_t images) {
  const uint32_t valid = to.valid;
  to = from;
  char **strings[] = {&to.type, &to.handle, &to.name, &to.extension, &to.desc, &to.program,
                      &to.machine, &to.user, &to.date, &to.time, &to.filter, &to.compression};
  for (char **s : strings) *s = nullptr;
  to.images = nullptr;
  to.image_count = 0;
  to.settings = nullptr;
  to.valid = valid;
  char *const *texts[] = {&from.type, &from.handle, &from.name, &from.extension, &from.desc,
                          &from.program, &from.machine, &from.user, &from.date, &from.time,
                          &from.filter, &from.compression};
  for (std::size_t i = 0; i < std::size(strings); ++i)
    if (!core::copy_string(strings[i], *texts[i], nullptr)) return false;
  if (!core::copy_images(&to, &from)) return false;
  // Images beyond the smaller count are dropped.
  for (int32_t i = images; i < to.image_count; ++i) core::release_image(&to.images[i]);
  if (images < to.image_count) to.image_count = images;
  return true;
}

void merge_windows(ORX_IFD &d, const ORX_IFD &other) {
  d.active.left = d.active.left < other.active.left ? d.active.left : other.active.left;
  d.active.right = d.active.right > other.active.right ? d.active.right : other.active.right;
  d.active.bottom = d.active.bottom < other.active.bottom ? d.active.bottom : other.active.bottom;
  d.active.top = d.active.top > other.active.top ? d.active.top : other.active.top;
  d.window.bottom *= 2;
  d.window.top = d.window.top * 2 + 1;
  d.active.bottom *= 2;
  d.active.top = d.active.top * 2 + 1;
}

ORX_OBJECT *build(ORX_OBJECT *first, ORX_OBJECT *second, int32_t frame) {
  const int32_t images = first->info.image_count < second->info.image_count
                             ? first->info.image_count
                             : second->info.image_count;
  ORX_OBJECT *merged = orx__new_obj(ORX_ACCESS_READ);
  if (merged == nullptr) return nullptr;
  // Every allocation here reports its own failure.
  auto *r = static_cast<FieldRecord *>(ERR_malloc(sizeof(FieldRecord)));
  const auto slots = static_cast<uint32_t>(images > 0 ? images : 1);
  auto **cell = static_cast<void **>(ERR_malloc(sizeof(void *) * slots));
  if (cell != nullptr) std::memset(cell, 0, sizeof(void *) * slots);
  merged->private_cell = cell;
  if (r == nullptr || cell == nullptr || !copy_info(merged->info, first->info, images)) {
    ERR_free(r);
    orx__free_obj(merged);
    return nullptr;
  }
  for (int32_t i = 0; i < images; ++i) merge_windows(merged->info.images[i], second->info.images[i]);
  *r = FieldRecord{kFieldTag, first, second, first->private_cell[0], second->private_cell[0], frame, 0};
  cell[0] = r;
  merged->scan = field_scan;
  merged->close = field_close;
  merged->format = first->format;
  const ORX_IFD &d = merged->info.images[0];
  merged->current_line = (d.orientation & 1) != 0 ? -1 : d.window.top + 1;
  return merged;
}

}  // namespace
}  // namespace orx::operators

extern "C" {

ORX_OBJECT *ORX__field_merge(ORX_OBJECT *handle) {
  using namespace orx::operators;
  if (handle == nullptr || handle->info.image_count < 1 || handle->info.images == nullptr ||
      handle->info.images[0].field == 0 || handle->info.handle == nullptr)
    return handle;
  char name[kNameBuffer];
  std::snprintf(name, sizeof name, "%s", handle->info.handle);
  // A format's extension comes off first, the first format that matches.
  const orx::core::Registry &registry = orx::core::registry();
  for (int32_t i = 0; i < registry.count; ++i) {
    const char *ext = registry.records[i].pub.extension;
    const std::size_t n = std::strlen(name), m = ext != nullptr ? std::strlen(ext) : 0;
    if (m > 0 && n >= m && std::strcmp(name + n - m, ext) == 0) {
      name[n - m] = '\0';
      break;
    }
  }
  char *dot = std::strrchr(name, '.');
  if (dot == nullptr) return handle;
  for (const char *p = dot + 1; *p != '\0'; ++p)
    if (*p < '0' || *p > '9') return handle;
  const long long number = std::strtoll(dot + 1, nullptr, 10);
  if (number > INT32_MAX - 1) return handle;
  const auto frame = static_cast<int32_t>(number);
  *dot = '\0';
  const int32_t partner_frame = frame % 2 == 0 ? frame - 1 : frame + 1;
  char partner_name[kNameBuffer + 16];
  std::snprintf(partner_name, sizeof partner_name, "%s.%04d", name, partner_frame);
  ORX_INFO request;
  ORX_info_init(&request);
  request.type = handle->info.type;
  request.handle = partner_name;
  request.full_path = handle->info.full_path;
  request.settings = handle->info.settings;
  ORX_OBJECT *partner = ORX_open(&request, "r");
  if (partner == nullptr) return handle;
  ORX_OBJECT *first = frame % 2 == 0 ? partner : handle;
  ORX_OBJECT *second = frame % 2 == 0 ? handle : partner;
  if (const orx::Msg *why = difference(first->info, second->info)) {
    orx::report(*why);
    ORX_close(partner);
    orx__err = -1;  // after the close, which sets its own status
    return handle;
  }
  ORX_OBJECT *merged = build(first, second, frame);
  if (merged == nullptr) {
    orx__err = ORX_E_NO_MEMORY;  // reported where it ran out
    return handle;
  }
  orx__err = 0;
  return merged;
}

}  // extern "C"
