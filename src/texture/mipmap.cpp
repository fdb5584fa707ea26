// The "mipmap" process.  Writing takes the host's full-resolution rows and
// stores every level of a pre-filtered texture down to 1x1, each level an
// image of one multi-image file, built while the rows stream in: each level
// keeps one row being accumulated, so memory follows the width, not the
// image.  Reading opens such a file and checks its texture type.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "err/messages.hpp"
#include "operators/layer.hpp"
#include "orx/err.h"
#include "orx/registry.h"
#include "texture/mipmap.hpp"
#include "texture/process.hpp"
#include "texture/samples.hpp"

namespace orx::texture {
namespace {

constexpr const char *kTypeNames[] = {"color", "scalar", "bump"};

// Rows of float samples are planar: channel c of a row of level k is the
// level's width of samples from c times that width on.
struct Level {
  int32_t w, h;
  float *sum;      // the row being accumulated, channels x w
  int32_t rows;    // source rows in sum
  int32_t next_y;  // the row being built
  void **out;      // the level's row in the file's layout
};

struct Mipmap {
  operators::LayerHeader header;  // next_entries: the file's entry of each level
  void *cell[1];
  int32_t type;
  int32_t count;             // levels
  Level *levels;
  int32_t channels;          // stored channels
  SampleKind stored[kMaxTextureChannels];
  int32_t inputs;            // channels read from the host's rows
  SampleKind given[kMaxTextureChannels];
  int32_t bottom;            // the host's window bottom
  int32_t expected;          // the next host line
  float *row;                // the host's row as float, channels x w0
  float *heights[3];         // bump: the last three height rows
  bool stored_as_given;      // level 0 is stored from the host's rows as they are
};

int32_t levels_for(int32_t w, int32_t h) {
  int32_t n = 1;
  while (w > 1 || h > 1) {
    w = w > 1 ? w / 2 : 1;
    h = h > 1 ? h / 2 : 1;
    ++n;
  }
  return n;
}

void free_mipmap(Mipmap *m) {
  if (m == nullptr) return;
  for (int32_t k = 0; m->levels != nullptr && k < m->count; ++k) {
    ERR_free(m->levels[k].sum);
    ORX_chan_free(m->levels[k].out);
  }
  ERR_free(m->levels);
  ERR_free(m->row);
  for (float *h : m->heights) ERR_free(h);
  ERR_free(m);
}

// sum[x] += (row[2x] + row[2x + 1]) / 2 for the first n samples: the
// box reduction's columns that have two source columns.  The halving is
// exact, so multiplying by 0.5 gives what dividing by 2 gives.
ORX_ROW_KERNEL void reduce_pairs(const float *row, float *sum, int32_t n) {
  for (std::size_t x = 0; x < static_cast<std::size_t>(n); ++x)
    sum[x] += (row[2 * x] + row[2 * x + 1]) * 0.5f;
}

ORX_ROW_KERNEL void divide(float *sum, std::size_t n, float by) {
  for (std::size_t i = 0; i < n; ++i) sum[i] /= by;
}

// Store a finished row of level k and feed it to level k + 1.  The depth of
// the calls is the number of levels, at most 16.
// given: the host's rows of level 0 when they are stored as they are.
int emit(Mipmap &m, int32_t k, int32_t y, const float *row, void **given = nullptr) {
  Level &level = m.levels[k];
  const auto plane = [](const Level &l, int32_t c) { return static_cast<std::size_t>(c) * l.w; };
  if (given == nullptr)
    for (int32_t c = 0; c < m.channels; ++c)
      float_to_row(m.stored[c], row + plane(level, c), 1, level.out[c], level.w);
  const int status = m.header.next_scan(m.header.next_entries[k], y, given != nullptr ? given : level.out);
  if (status != 0 || k + 1 == m.count) return status;
  Level &next = m.levels[k + 1];
  if (next.rows == 0 && next.next_y == 0 && y == 0) report(Msg::kMipmapLevel, k + 1);
  // Box reduction: output column x covers source columns 2x and 2x + 1, and
  // the last one also the odd column left over.
  const int32_t x = next.w - 1;
  const int32_t x0 = 2 * x < level.w ? 2 * x : level.w - 1;
  for (int32_t c = 0; c < m.channels; ++c) {
    const float *in = row + plane(level, c);
    float *sum = next.sum + plane(next, c);
    reduce_pairs(in, sum, next.w - 1);
    float v = 0.0f;
    for (int32_t s = x0; s < level.w; ++s) v += in[s];
    sum[x] += v / static_cast<float>(level.w - x0);
  }
  ++next.rows;
  const int32_t end = next.next_y == next.h - 1 ? level.h : 2 * next.next_y + 2;
  if (y + 1 < end) return 0;
  const std::size_t n = static_cast<std::size_t>(next.w) * m.channels;
  divide(next.sum, n, static_cast<float>(next.rows));
  const int done = emit(m, k + 1, next.next_y, next.sum);
  std::memset(next.sum, 0, n * sizeof(float));
  next.rows = 0;
  ++next.next_y;
  return done;
}

// Bump textures: height row r of level 0 (in heights[r % 3]) becomes
// (height, dh/ds, dh/dt) with central differences (one-sided at the edges),
// slopes per unit of texture coordinate so that every level keeps them.
int emit_bump(Mipmap &m, int32_t r) {
  const int32_t w = m.levels[0].w, h = m.levels[0].h;
  const float *row = m.heights[r % 3];
  const float *below = r > 0 ? m.heights[(r + 2) % 3] : row;
  const float *above = r + 1 < h ? m.heights[(r + 1) % 3] : row;
  const float dy = static_cast<float>((r > 0) + (r + 1 < h));
  for (int32_t x = 0; x < w; ++x) {
    const int32_t l = x > 0 ? x - 1 : x, rr = x + 1 < w ? x + 1 : x;
    const float dx = static_cast<float>(rr - l);
    float *out = m.row + x;
    const auto plane = static_cast<std::size_t>(w);
    out[0] = row[x];
    out[plane] = dx > 0.0f ? (row[rr] - row[l]) / dx * static_cast<float>(w) : 0.0f;
    out[2 * plane] = dy > 0.0f ? (above[x] - below[x]) / dy * static_cast<float>(h) : 0.0f;
  }
  return emit(m, 0, r, m.row);
}

int scan(void *data, int32_t line, void *channels) {
  Mipmap &m = *static_cast<Mipmap *>(data);
  if (line != m.expected || line - m.bottom >= m.levels[0].h)
    return fail(ORX_E_BAD_SCANLINE, Msg::kBadScanline, line);
  ++m.expected;
  const int32_t r = line - m.bottom;
  auto **rows = static_cast<void **>(channels);
  const int32_t w = m.levels[0].w;
  if (m.type != IMP_TEXTURE_BUMP) {
    for (int32_t c = 0; c < m.channels; ++c)
      row_to_float(m.given[c], rows[c], m.row + static_cast<std::size_t>(c) * w, w, 1);
    return emit(m, 0, r, m.row, m.stored_as_given ? rows : nullptr);
  }
  row_to_float(m.given[0], rows[0], m.heights[r % 3], w, 1);
  // A row's slope needs the row above it: each row goes out one row late,
  // the last at once.
  int status = r > 0 ? emit_bump(m, r - 1) : 0;
  if (status == 0 && r + 1 == m.levels[0].h) status = emit_bump(m, r);
  return status;
}

void release(ORX_OBJECT *, operators::LayerHeader *header) {
  free_mipmap(reinterpret_cast<Mipmap *>(header));
}

using Layer = operators::Kind<release>;

// The descriptor of level k: the host's image, resized, with the channels
// the texture type keeps.
ORX_IFD level_descriptor(const ORX_IFD &host, int32_t type, int32_t w, int32_t h) {
  ORX_IFD d = host;
  d.window = ORX_WINDOW{0, w - 1, 0, h - 1};
  d.active = d.window;
  d.x_resolution = w;
  d.y_resolution = h;
  d.aspect_ratio = static_cast<float>(w) / static_cast<float>(h);
  d.aux.count = 0;
  d.index.count = 0;
  if (type != IMP_TEXTURE_COLOR) {
    d.image.count = type == IMP_TEXTURE_BUMP ? 3 : 1;
    d.matte.count = 0;
  }
  if (type == IMP_TEXTURE_BUMP) d.image.type = ORX_C_FLOAT, d.image.bits = 32;
  return d;
}

bool supported(const ORX_IFD &host, int32_t type) {
  if (type < IMP_TEXTURE_COLOR || type > IMP_TEXTURE_BUMP || host.image.count < 1) return false;
  for (const ORX_CHANNELS *g : {&host.image, &host.matte}) {
    if (g->count <= 0) continue;
    if (g->type == ORX_C_INTEGER ? g->bits < 1 || g->bits > 32
                                 : g->type != ORX_C_FLOAT && g->type != ORX_C_DOUBLE)
      return false;
  }
  return host.image.count + (host.matte.count > 0 ? host.matte.count : 0) <= kMaxTextureChannels &&
         host.window.right >= host.window.left && host.window.top >= host.window.bottom;
}

bool install(ORX_OBJECT *object, const ORX_IFD &host, int32_t type, int32_t count) {
  using operators::allocate_array;
  Mipmap *m = nullptr;
  if (!allocate_array(m, 1)) return false;
  *m = Mipmap{};
  m->type = type;
  m->count = count;
  m->bottom = host.window.bottom;
  m->expected = host.window.bottom;
  m->channels = colour_channels(object->info.images[0], m->stored, kMaxTextureChannels);
  m->inputs = colour_channels(host, m->given, kMaxTextureChannels);
  const int32_t w0 = object->info.images[0].window.right + 1;
  // Codes that come back from float as they were are stored as given.
  m->stored_as_given = type != IMP_TEXTURE_BUMP;
  for (int32_t c = 0; c < m->channels; ++c)
    m->stored_as_given = m->stored_as_given && round_trips(m->given[c]) &&
                         m->given[c].type == m->stored[c].type && m->given[c].bits == m->stored[c].bits;
  bool ok = allocate_array(m->levels, count) &&
            allocate_array(m->row, static_cast<uint64_t>(w0) * m->channels);
  if (m->levels != nullptr) std::memset(m->levels, 0, sizeof(Level) * static_cast<std::size_t>(count));
  for (int i = 0; ok && type == IMP_TEXTURE_BUMP && i < 3; ++i) ok = allocate_array(m->heights[i], w0);
  for (int32_t k = 0; ok && k < count; ++k) {
    ORX_IFD &ifd = object->info.images[k];
    Level &level = m->levels[k];
    level.w = ifd.window.right + 1;
    level.h = ifd.window.top + 1;
    const std::size_t n = static_cast<std::size_t>(level.w) * m->channels;
    ok = allocate_array(level.sum, n) &&
         (level.out = operators::channel_rows(ifd, level.w, "mipmap")) != nullptr;
    if (ok) std::memset(level.sum, 0, n * sizeof(float));
  }
  if (!ok) {
    free_mipmap(m);
    return false;
  }
  operators::push_entries(object, &m->header, operators::kMipmap, scan, Layer::close, m->cell, false);
  return true;
}

}  // namespace

const char *texture_type_name(int32_t type) {
  return type >= 0 && type <= 2 ? kTypeNames[type] : "none";
}

int32_t stored_texture_type(const ORX_INFO &info) {
  constexpr std::size_t kPrefix = 7;  // "mipmap "
  if (info.filter == nullptr || std::strncmp(info.filter, "mipmap ", kPrefix) != 0) return -1;
  for (int32_t t = 0; t < 3; ++t)
    if (std::strcmp(info.filter + kPrefix, kTypeNames[t]) == 0) return t;
  return -1;
}

ORX_OBJECT *mipmap_write(ORX_INFO *image, IMP_REQUEST *request) {
  const int32_t type = request->texture_type;
  if (image == nullptr || image->images == nullptr || image->image_count < 1 ||
      !supported(image->images[0], type)) {
    fail(ORX_E_UNSUPPORTED, Msg::kCannotHandleAction, "mipmap");
    return nullptr;
  }
  report(Msg::kMipmapLoading);
  report(Msg::kMipmapFiltering, texture_type_name(type));
  if (type == IMP_TEXTURE_BUMP) report(Msg::kMipmapBumpSlope);
  const ORX_IFD &host = image->images[0];
  int32_t w = host.window.right - host.window.left + 1, h = host.window.top - host.window.bottom + 1;
  const int32_t count = levels_for(w, h);
  ORX_IFD *levels = nullptr;
  if (!operators::allocate_array(levels, count)) {
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  for (int32_t k = 0; k < count; ++k) {
    levels[k] = level_descriptor(host, type, w, h);
    w = w > 1 ? w / 2 : 1;
    h = h > 1 ? h / 2 : 1;
  }
  // The open copies every string of the request, the filter word included:
  // the texture's type is kept there.
  char filter[32];
  std::snprintf(filter, sizeof filter, "mipmap %s", texture_type_name(type));
  ORX_INFO request_copy = *image;
  request_copy.images = levels;
  request_copy.image_count = count;
  request_copy.filter = filter;
  ORX_OBJECT *object = ORX_open(&request_copy, "w");
  ERR_free(levels);
  if (object == nullptr) return nullptr;
  if (!install(object, host, type, count)) {
    ORX_close(object);
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  return object;
}

ORX_OBJECT *mipmap_read(ORX_INFO *image, IMP_REQUEST *request) {
  ORX_OBJECT *object = ORX_open(image, "r");
  if (object == nullptr) return nullptr;
  const int32_t stored = stored_texture_type(object->info);
  if (stored != request->texture_type) {
    ORX_close(object);
    fail(ORX_E_INVALID_TYPE, Msg::kMipmapMismatch, texture_type_name(stored));
    return nullptr;
  }
  return object;
}

}  // namespace orx::texture
