// Texture access: trilinear lookups over the levels of a mipmap file, with a
// bounded cache of decoded rows replaced in clock order.
#include <cmath>
#include <cstring>

#include "err/heap.hpp"
#include "err/messages.hpp"
#include "orx/err.h"
#include "orx/imp.h"
#include "orx/registry.h"
#include "orx/texture.h"
#include "platform/platform.hpp"
#include "texture/mipmap.hpp"
#include "texture/samples.hpp"
#include "util/env.hpp"
#include "util/owned.hpp"

namespace {

using orx::texture::kMaxTextureChannels;
using orx::texture::SampleKind;

constexpr uint32_t kDefaultRows = 256;
constexpr uint32_t kFewestRows = 4;

struct Slot {
  int32_t level = -1;
  int32_t y = -1;
  float *data = nullptr;
  bool referenced = false;
};

struct LevelRows {
  int32_t w, h, bottom;
  int32_t *slot_of_row;  // -1: not cached
};

}  // namespace

struct ORX_TEXTURE {
  ORX_OBJECT *object;
  int32_t levels;
  int32_t channels;
  SampleKind kinds[kMaxTextureChannels];
  LevelRows *rows;
  Slot *slots;
  uint32_t capacity, held, hand;
  uint64_t rows_read;
};

namespace orx::texture {
namespace {

void drop_slots(ORX_TEXTURE &t) {
  for (uint32_t i = 0; i < t.held; ++i) {
    const Slot &s = t.slots[i];
    if (s.level >= 0) t.rows[s.level].slot_of_row[s.y] = -1;
    ERR_free(s.data);
  }
  ERR_free(t.slots);
  t.slots = nullptr;
  t.held = t.hand = 0;
}

// The decoded row y of level k, or null when it cannot be read.
const float *row(ORX_TEXTURE &t, int32_t k, int32_t y) {
  LevelRows &level = t.rows[k];
  const int32_t cached = level.slot_of_row[y];
  if (cached >= 0) {
    t.slots[cached].referenced = true;
    return t.slots[cached].data;
  }
  uint32_t at;
  if (t.held < t.capacity) {
    at = t.held;
    const std::size_t n = static_cast<std::size_t>(t.rows[0].w) * t.channels;
    float *data = static_cast<float *>(heap::allocate(n * sizeof(float)));
    if (data == nullptr) return fail(ORX_E_NO_MEMORY, Msg::kNoMemory), nullptr;
    t.slots[at] = Slot{-1, -1, data, false};
    ++t.held;
  } else {
    while (t.slots[t.hand].referenced) {
      t.slots[t.hand].referenced = false;
      t.hand = (t.hand + 1) % t.capacity;
    }
    at = t.hand;
    t.hand = (t.hand + 1) % t.capacity;
    Slot &old = t.slots[at];
    if (old.level >= 0) t.rows[old.level].slot_of_row[old.y] = -1;
    old.level = -1;
  }
  void **channels = nullptr;
  ORX_OBJECT *o = t.object;
  if (o->scan(o->private_cell[k], level.bottom + y, &channels) != 0 || channels == nullptr)
    return nullptr;
  ++t.rows_read;
  Slot &slot = t.slots[at];
  for (int32_t c = 0; c < t.channels; ++c) row_to_float(t.kinds[c], channels[c], slot.data + c, level.w, t.channels);
  slot.level = k;
  slot.y = y;
  slot.referenced = true;
  level.slot_of_row[y] = static_cast<int32_t>(at);
  return slot.data;
}

// Index i of n texels under the wrap mode; false when it falls on black.
bool wrap_index(int32_t &i, int32_t n, int wrap) {
  if (i >= 0 && i < n) return true;
  switch (wrap) {
    case ORX_WRAP_CLAMP:
      i = i < 0 ? 0 : n - 1;
      return true;
    case ORX_WRAP_PERIODIC:
      i = ((i % n) + n) % n;
      return true;
    case ORX_WRAP_MIRROR: {
      const int64_t period = 2 * static_cast<int64_t>(n);
      const int64_t m = ((i % period) + period) % period;
      i = static_cast<int32_t>(m < n ? m : period - 1 - m);
      return true;
    }
    default:
      return false;
  }
}

// Bilinear lookup in level k, added to out with weight.
int bilinear(ORX_TEXTURE &t, int32_t k, float s, float tt, int wrap, float weight, float *out) {
  const LevelRows &level = t.rows[k];
  const double u = static_cast<double>(s) * level.w - 0.5, v = static_cast<double>(tt) * level.h - 0.5;
  const double fu = std::floor(u), fv = std::floor(v);
  const auto fx = static_cast<float>(u - fu), fy = static_cast<float>(v - fv);
  // Coordinates far outside any texture are wrapped first, in double.
  const auto clamp_int = [](double d) {
    return static_cast<int32_t>(d < -1e9 ? -1e9 : d > 1e9 ? 1e9 : d);
  };
  const int32_t x0 = clamp_int(fu), y0 = clamp_int(fv);
  for (int dy = 0; dy < 2; ++dy) {
    int32_t y = y0 + dy;
    const float wy = dy == 0 ? 1.0f - fy : fy;
    if (wy == 0.0f || !wrap_index(y, level.h, wrap)) continue;
    const float *r = row(t, k, y);
    if (r == nullptr) return orx::err::last_status() != 0 ? orx::err::last_status() : ORX_E_READ;
    for (int dx = 0; dx < 2; ++dx) {
      int32_t x = x0 + dx;
      const float w = (dx == 0 ? 1.0f - fx : fx) * wy * weight;
      if (w == 0.0f || !wrap_index(x, level.w, wrap)) continue;
      const float *texel = r + static_cast<std::size_t>(x) * t.channels;
      for (int32_t c = 0; c < t.channels; ++c) out[c] += w * texel[c];
    }
  }
  return 0;
}

void release(ORX_TEXTURE *t) {
  if (t == nullptr) return;
  if (t->rows != nullptr) drop_slots(*t);
  for (int32_t k = 0; t->rows != nullptr && k < t->levels; ++k) ERR_free(t->rows[k].slot_of_row);
  ERR_free(t->rows);
  if (t->object != nullptr) ORX_close(t->object);
  ERR_free(t);
}

ORX_TEXTURE *out_of_memory(ORX_TEXTURE *t) {
  release(t);
  fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
  return nullptr;
}

}  // namespace
}  // namespace orx::texture

using namespace orx::texture;

extern "C" {

ORX_TEXTURE *ORX_tex_open(const char *name, int32_t type) {
  using orx::Msg;
  if (name == nullptr) {
    orx::fail(ORX_E_FIELD_MISSING, Msg::kFieldMissing, "name");
    return nullptr;
  }
  const char *path = name;
  if (std::strchr(name, '/') == nullptr) {
    if (const char *found = orx::util::find_file(name, orx::platform::get_env("KV_TEX_DIR")))
      path = found;
  }
  ORX_INFO info;
  ORX_info_init(&info);
  info.handle = const_cast<char *>(path);
  info.full_path = 1;
  ORX_OBJECT *object = ORX_open(&info, "r");
  if (object == nullptr) return nullptr;
  auto *t = static_cast<ORX_TEXTURE *>(orx::heap::allocate(sizeof(ORX_TEXTURE)));
  if (t == nullptr) {
    ORX_close(object);
    return out_of_memory(nullptr);
  }
  *t = ORX_TEXTURE{};
  t->object = object;
  const int32_t stored = stored_texture_type(object->info);
  if (stored >= 0 && stored != type) {
    release(t);
    orx::fail(ORX_E_INVALID_TYPE, Msg::kMipmapMismatch, texture_type_name(stored));
    return nullptr;
  }
  const ORX_IFD &first = object->info.images[0];
  t->levels = stored >= 0 ? object->info.image_count : 1;
  t->channels = colour_channels(first, t->kinds, kMaxTextureChannels);
  if (first.image.count + (first.matte.count > 0 ? first.matte.count : 0) > kMaxTextureChannels ||
      t->channels == 0) {
    release(t);
    orx::fail(ORX_E_UNSUPPORTED, Msg::kCannotHandleAction, "texture access");
    return nullptr;
  }
  t->rows = static_cast<LevelRows *>(orx::heap::allocate_zeroed(sizeof(LevelRows) * static_cast<std::size_t>(t->levels)));
  if (t->rows == nullptr) return out_of_memory(t);
  for (int32_t k = 0; k < t->levels; ++k) {
    const ORX_IFD &ifd = object->info.images[k];
    LevelRows &level = t->rows[k];
    level.w = ifd.window.right - ifd.window.left + 1;
    level.h = ifd.window.top - ifd.window.bottom + 1;
    level.bottom = ifd.window.bottom;
    level.slot_of_row = static_cast<int32_t *>(orx::heap::allocate(sizeof(int32_t) * static_cast<std::size_t>(level.h)));
    if (level.slot_of_row == nullptr) return out_of_memory(t);
    for (int32_t y = 0; y < level.h; ++y) level.slot_of_row[y] = -1;
  }
  if (ORX_tex_set_cache(t, kDefaultRows) != 0) return out_of_memory(t);
  orx__err = ORX_OK;
  return t;
}

int ORX_tex_close(ORX_TEXTURE *texture) {
  release(texture);
  return 0;
}

int32_t ORX_tex_levels(const ORX_TEXTURE *texture) { return texture != nullptr ? texture->levels : 0; }

int32_t ORX_tex_channels(const ORX_TEXTURE *texture) {
  return texture != nullptr ? texture->channels : 0;
}

int ORX_tex_level_size(const ORX_TEXTURE *texture, int32_t level, int32_t *width, int32_t *height) {
  if (texture == nullptr || level < 0 || level >= texture->levels) return orx__err = ORX_E_BAD_SCANLINE;
  if (width != nullptr) *width = texture->rows[level].w;
  if (height != nullptr) *height = texture->rows[level].h;
  return 0;
}

int ORX_tex_set_cache(ORX_TEXTURE *texture, uint32_t max_rows) {
  if (texture == nullptr) return orx__err = ORX_E_FIELD_MISSING;
  if (max_rows < kFewestRows) max_rows = kFewestRows;
  auto *slots = static_cast<Slot *>(orx::heap::allocate(sizeof(Slot) * max_rows));
  if (slots == nullptr) return orx::fail(ORX_E_NO_MEMORY, orx::Msg::kNoMemory);
  for (uint32_t i = 0; i < max_rows; ++i) slots[i] = Slot{};
  drop_slots(*texture);
  texture->slots = slots;
  texture->capacity = max_rows;
  return 0;
}

void ORX_tex_stats(const ORX_TEXTURE *texture, uint64_t *rows_read, uint32_t *rows_held) {
  if (rows_read != nullptr) *rows_read = texture != nullptr ? texture->rows_read : 0;
  if (rows_held != nullptr) *rows_held = texture != nullptr ? texture->held : 0;
}

int ORX_tex_lookup(ORX_TEXTURE *texture, float s, float t, float ds, float dt, int wrap, float *out) {
  if (texture == nullptr || out == nullptr) return orx__err = ORX_E_FIELD_MISSING;
  for (int32_t c = 0; c < texture->channels; ++c) out[c] = 0.0f;
  if (!std::isfinite(s) || !std::isfinite(t)) return 0;
  const LevelRows &base = texture->rows[0];
  const double footprint = std::fmax(std::fabs(double{ds}) * base.w, std::fabs(double{dt}) * base.h);
  double lod = footprint > 1.0 && std::isfinite(footprint) ? std::log2(footprint) : 0.0;
  if (!std::isfinite(footprint)) lod = texture->levels;
  const int32_t last = texture->levels - 1;
  int status;
  if (lod >= last) {
    status = bilinear(*texture, last, s, t, wrap, 1.0f, out);
  } else {
    const auto k = static_cast<int32_t>(lod);
    const auto f = static_cast<float>(lod - k);
    status = bilinear(*texture, k, s, t, wrap, 1.0f - f, out);
    if (status == 0 && f > 0.0f) status = bilinear(*texture, k + 1, s, t, wrap, f, out);
  }
  if (status != 0)
    for (int32_t c = 0; c < texture->channels; ++c) out[c] = 0.0f;
  return status;
}

}  // extern "C"
