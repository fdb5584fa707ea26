// The symmetric separable resampling filter: every output pixel a
// normalised weighted sum over source pixels, the weights sampled from the
// caller's horizontal and vertical kernels.  Horizontal weights are made
// once; each source row is read at most once while it stays in a cache of
// the rows the vertical support needs.
//
// Two orders of the passes, chosen at install from the kernels and sizes
// (the same choice in both directions, so that a write stores what a read
// gives):
//  - across first (the exact arithmetic, enlargements, and rings too large
//    for the memory bound): each source row filtered horizontally as it
//    enters the cache, each output line the vertical sum of cached rows;
//  - down first (the fast kernels reducing): the cache holds source rows, each
//    output line is their vertical sum at the source's width, filtered
//    across once, so a reduction filters across only as many rows as it
//    writes.
// Either way, reading an 8- or 16-bit image with the fast kernels takes its
// rows from below the cast and widens them as the cast would (8-bit image
// channels with a gamma through the cast's own table).
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <utility>

#include "err/messages.hpp"
#include "operators/convert.hpp"
#include "operators/layer.hpp"
#include "operators/lookup.hpp"
#include "operators/resample_engine.hpp"
#include "orx/err.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

constexpr const char *kName = "symmetric separable resampling filter";
constexpr float kPi = 3.1415927f;

struct CachedRow {
  int32_t line;  // source row held, -1 when empty
  void **rows;   // filtered horizontally: Wd floats per channel
};

struct ResampleRecord {
  LayerHeader header;
  ORX_WINDOW window, active;  // the description's, restored on close
  int32_t source_width, dest_width;
  float source_top;           // source height - 1
  int32_t source_bottom;      // line number of source row 0
  float wx, wy, hx, hy;
  float cy;                   // vertical centre of the next output line
  float ox, oy;
  float rx, ry;
  float current_row;
  int32_t taps;               // Tx: weights per column at most
  int32_t cached;             // Ty
  int32_t channels;
  TapTable across;            // each column's weights, normalised
  CachedRow *cache;           // a ring: head is cache[head]
  float *ring_block;          // the ring's rows (see make_ring())
  void **ring_rows;
  // An output line's taps: the cache entries with a weight, their weights,
  // and their rows of one channel (cached of each).
  const CachedRow **tap_entries;
  float *tap_weights;
  const float **tap_rows;
  // Down first, the line after: its taps, its sums and their weights' sum.
  const CachedRow **next_entries;
  float *next_weights;
  void **ahead;
  float ahead_sum;
  bool has_ahead;
  int32_t lines_read;
  int32_t head;
  void **out;
  const ORX_FILTER *filter;
  bool pushed_cast;  // reading: the cast below
  bool down_first;   // the cache holds source rows (see the top of the file)
  bool fused;        // reading with the fast kernels: rows come from below the cast
  const FloatTable *table;  // fused: the cast's table for the image channels, or null
  SourceKind kinds[3];  // image, matte, auxiliary rows as read
  float maxima[3];
  int32_t counts[3];
  // Writing: each output line's first source row, last source row and
  // centre, the output lines being accumulated (a ring of `open`), the
  // caller's interleaved row taken apart (Ws floats per channel) and an
  // output line put back together (Wd x channels floats).
  int32_t dest_height, dest_bottom;
  int32_t *out_first;
  float *out_last, *out_centre;
  CachedRow *sums;
  float *sum_weights;
  int32_t open;
  int32_t next_source, next_out;
  void **in;
  float *packed;
};

float *row_of(void **rows, int32_t c) { return static_cast<float *>(rows[c]); }

int32_t larger(int32_t a, int32_t b) { return a > b ? a : b; }

// Bytes one channel's ring of source rows may take before the passes go
// across first (per channel, so that the choice is the same for any
// channels of the same size and filter).
constexpr uint64_t kSourceRingBytes = uint64_t{1} << 20;

// What a cached row or an open output line holds, in samples per channel.
int32_t cached_width(const ResampleRecord &r) { return r.down_first ? r.source_width : r.dest_width; }

// Filter one source row (Ws floats per channel) into Wd floats per channel.
void filter_row(const ResampleRecord &r, void **source, void **dest) {
  row_kernels().horizontal(r.across, source, dest, r.channels);
}

// An output line's weighted sum divided by its weights' sum, negatives cut;
// deliberately not at all when the weights sum to exactly 1.0.  (The
// vertical kernel over the one row with weight 1 is that and nothing more.)
void finish(const ResampleRecord &r, void **rows, float sum) {
  if (sum == 1.0f) return;
  const float scale = sum != 0.0f ? 1.0f / sum : 0.0f, one = 1.0f;
  const VerticalKernel vertical = row_kernels().vertical;
  for (int32_t c = 0; c < r.channels; ++c) {
    const float *row = row_of(rows, c);
    vertical(&row, &one, 1, r.dest_width, scale, true, row_of(rows, c));
  }
}

// Source row s into a cache entry: filtered across, or (down first) as
// float samples of the source's width.
void load_row(ResampleRecord &r, int32_t s, void **entry) {
  void **source = nullptr;
  const auto *cast = static_cast<const LayerHeader *>(r.header.next_data);
  const LayerHeader *below = r.fused && cast != nullptr ? cast : &r.header;
  // A read error of the layer below is not detected: the entry keeps
  // whatever it held.
  if (forward(below, r.source_bottom + s, &source) < 0 || source == nullptr) return;
  if (!r.down_first && !r.fused) {
    filter_row(r, source, entry);
    return;
  }
  void **floats = r.down_first ? entry : r.in;
  const WidenKernel widen = row_kernels().widen;
  for (int32_t g = 0, c = 0; g < 3; ++g)
    for (int32_t i = 0; i < r.counts[g]; ++i, ++c)
      if (g == 0 && r.table != nullptr)
        lookup_floats(*r.table, source[c], r.source_width, row_of(floats, c));
      else
        widen(source[c], r.kinds[g], r.source_width, r.maxima[g], row_of(floats, c));
  if (!r.down_first) filter_row(r, r.in, entry);
}

// The bound of the source rows the next output line reaches (its last row
// is the largest row number not above it).
float last_row(const ResampleRecord &r) {
  const float high = r.cy + r.ry * r.hy;
  return high < r.source_top ? high : r.source_top;
}

// The next output line's taps (the cache entries with a weight, in source
// order, and their weights) into entries and weights, rows loaded as
// needed; its weights' sum into sum.  Moves on to the line after it.
int32_t gather_line(ResampleRecord &r, const CachedRow **entries, float *weights, float &sum) {
  sum = 0.0f;
  int32_t taken = 0;
  const float low = r.cy - r.ry * r.hy;
  const int32_t first = low < 0.0f ? 0 : static_cast<int32_t>(low);
  const float last = last_row(r);
  // Bring a cached copy of the first row needed to the head.
  for (int32_t i = 0; i < r.cached && r.cache[r.head].line != first; ++i)
    r.head = (r.head + 1) % r.cached;
  r.current_row = static_cast<float>(first);
  const float step = 1.0f / r.ry;
  for (auto s = static_cast<int32_t>(r.current_row); static_cast<float>(s) <= last; ++s) {
    CachedRow &entry = r.cache[r.head];
    if (entry.line != s) {
      load_row(r, s, entry.rows);
      entry.line = s;
    }
    const auto w = static_cast<float>(r.filter->y_kernel((static_cast<float>(s) - r.cy) * step + r.oy));
    if (w != 0.0f) {
      entries[taken] = &entry;
      weights[taken++] = w;
      sum += w;
    }
    r.current_row += 1.0f;
    r.head = (r.head + 1) % r.cached;  // the entry goes to the tail
  }
  r.cy += r.ry;
  ++r.lines_read;
  return taken;
}

// Whether the line after the one just gathered (its taps in entries) can
// be summed with it: both lines' rows fit in the ring at once.
bool pair_fits(const ResampleRecord &r, const CachedRow *const *entries, int32_t taken) {
  if (!r.down_first || taken == 0 || r.lines_read >= r.dest_height) return false;
  const float last = last_row(r);
  return last >= 0.0f && static_cast<int32_t>(last) - entries[0]->line < r.cached;
}

// Channel c of one line's taps summed down into out (down first).
void sum_line(ResampleRecord &r, const CachedRow *const *entries, const float *weights,
              int32_t taken, int32_t c, void **out) {
  for (int32_t k = 0; k < taken; ++k) r.tap_rows[k] = row_of(entries[k]->rows, c);
  row_kernels().vertical(r.tap_rows, weights, taken, r.source_width, 1.0f, false, row_of(out, c));
}

// Down first: this line's sums into r.in and, where the next line's rows
// fit with them, the next line's into r.ahead, reading each row once.
void sum_down(ResampleRecord &r, int32_t taken) {
  const RowKernels &kernels = row_kernels();
  r.has_ahead = pair_fits(r, r.tap_entries, taken);
  const int32_t next = r.has_ahead ? gather_line(r, r.next_entries, r.next_weights, r.ahead_sum) : 0;
  if (!r.has_ahead || taken == 0 || next == 0) {
    for (int32_t c = 0; c < r.channels; ++c) {
      sum_line(r, r.tap_entries, r.tap_weights, taken, c, r.in);
      if (r.has_ahead) sum_line(r, r.next_entries, r.next_weights, next, c, r.ahead);
    }
    return;
  }
  // Line a's taps alone, then the taps both lines have, then line b's
  // alone; any other arrangement (a kernel that is 0 at some of the shared
  // rows) is summed line by line.
  RowSpans spans{0, 0, 0};
  while (spans.only_a < taken && r.tap_entries[spans.only_a]->line < r.next_entries[0]->line)
    ++spans.only_a;
  spans.shared = taken - spans.only_a;
  bool shared = spans.shared <= next;
  for (int32_t k = 0; shared && k < spans.shared; ++k)
    shared = r.tap_entries[spans.only_a + k] == r.next_entries[k];
  spans.only_b = next - spans.shared;
  for (int32_t c = 0; c < r.channels; ++c) {
    if (!shared) {
      sum_line(r, r.tap_entries, r.tap_weights, taken, c, r.in);
      sum_line(r, r.next_entries, r.next_weights, next, c, r.ahead);
      continue;
    }
    for (int32_t k = 0; k < taken; ++k) r.tap_rows[k] = row_of(r.tap_entries[k]->rows, c);
    for (int32_t k = spans.shared; k < next; ++k)
      r.tap_rows[spans.only_a + k] = row_of(r.next_entries[k]->rows, c);
    kernels.vertical_pair(r.tap_rows, spans, r.tap_weights, r.next_weights, r.source_width,
                          row_of(r.in, c), row_of(r.ahead, c));
  }
}

int resample_scan(void *data, int32_t, void *rows) {
  if (data == nullptr) return locked();
  ResampleRecord &r = *static_cast<ResampleRecord *>(data);
  *static_cast<void ***>(rows) = r.out;
  if (r.has_ahead) {  // summed with the line before
    r.has_ahead = false;
    std::swap(r.in, r.ahead);
    row_kernels().horizontal(r.across, r.in, r.out, r.channels);
    finish(r, r.out, r.ahead_sum);
    return 0;
  }
  float sum = 0.0f;
  const int32_t taken = gather_line(r, r.tap_entries, r.tap_weights, sum);
  if (r.down_first) {  // summed as writing accumulates, then across
    sum_down(r, taken);
    row_kernels().horizontal(r.across, r.in, r.out, r.channels);
    finish(r, r.out, sum);
    return 0;
  }
  // The weighted sum divided by the weights' sum, negatives cut; not at all
  // when the weights sum to exactly 1.0 (see finish()).
  const float scale = sum == 1.0f ? 1.0f : sum != 0.0f ? 1.0f / sum : 0.0f;
  const VerticalKernel vertical = row_kernels().vertical;
  for (int32_t c = 0; c < r.channels; ++c) {
    for (int32_t k = 0; k < taken; ++k) r.tap_rows[k] = row_of(r.tap_entries[k]->rows, c);
    vertical(r.tap_rows, r.tap_weights, taken, r.dest_width, scale, sum != 1.0f, row_of(r.out, c));
  }
  return 0;
}

void free_record(ResampleRecord *r) {
  if (r == nullptr) return;
  ERR_free(r->ring_block);
  ERR_free(r->ring_rows);
  for (int32_t i = 0; r->sums != nullptr && i < r->open; ++i) orx__chan_free(r->sums[i].rows);
  tap_table_free(r->across);
  for (void *p : {static_cast<void *>(r->cache), static_cast<void *>(r->tap_entries),
                  static_cast<void *>(r->tap_weights), static_cast<void *>(r->tap_rows),
                  static_cast<void *>(r->next_entries), static_cast<void *>(r->next_weights),
                  static_cast<void *>(r->out_first),
                  static_cast<void *>(r->out_last), static_cast<void *>(r->out_centre),
                  static_cast<void *>(r->sums), static_cast<void *>(r->sum_weights),
                  static_cast<void *>(r->packed)})
    ERR_free(p);
  orx__chan_free(r->out);
  orx__chan_free(r->in);
  orx__chan_free(r->ahead);
  ERR_free(r);
}

void release(ORX_OBJECT *handle, LayerHeader *header) {
  auto *r = reinterpret_cast<ResampleRecord *>(header);
  ORX_IFD &d = handle->info.images[0];
  d.window = r->window;
  d.active = r->active;
  const bool pushed_cast = r->pushed_cast;
  free_record(r);
  undo_cast(handle, pushed_cast);
}

using Layer = Kind<release>;

// Visits every destination column's source taps: column(j, first, n, centre).
template <class Column>
void each_column(const ResampleRecord &r, Column column) {
  float c = (r.rx - 1.0f) * 0.5f;
  float low = c - r.rx * r.hx;
  float high = c + r.rx * r.hx;
  const auto right = static_cast<float>(r.source_width - 1);
  for (int32_t j = 0; j < r.dest_width; ++j) {
    const int32_t first = low < 0.0f ? 0 : static_cast<int32_t>(low);
    const float last = high < right ? high : right;
    int32_t n = 0;
    for (int32_t s = first; static_cast<float>(s) <= last && n < r.taps; ++s) ++n;
    column(j, first, n, c);
    c += r.rx;
    low += r.rx;
    high = last + r.rx;  // from this column's clamped bound, deliberately
  }
}

// The horizontal weights of every destination column, each column's
// normalised to sum to 1 and padded to the table's stride; false when
// memory ran out (reported).
bool make_weights(ResampleRecord &r) {
  int32_t widest = 1;
  each_column(r, [&](int32_t, int32_t, int32_t n, float) { widest = larger(widest, n); });
  const bool exact = row_kernels().exact;
  if (!tap_table_alloc(r.across, r.dest_width, widest, r.source_width, exact)) return false;
  const float step = 1.0f / r.rx;
  each_column(r, [&](int32_t j, int32_t first, int32_t n, float c) {
    float *w = r.across.weights + static_cast<std::size_t>(j) * static_cast<std::size_t>(r.across.stride);
    float sum = 0.0f;
    for (int32_t k = 0; k < n; ++k) {
      w[k] = static_cast<float>(r.filter->x_kernel((static_cast<float>(first + k) - c) * step + r.ox));
      sum += w[k];
    }
    // A column whose kernel weights sum to 0 (an enlargement with a support
    // narrower than a source pixel) gives 0, not the 0/0 of the formula.
    const float normaliser = sum != 0.0f ? 1.0f / sum : 0.0f;
    if (exact)
      r.across.normalisers[j] = normaliser;
    else
      for (int32_t k = 0; k < n; ++k) w[k] *= normaliser;
    r.across.first[j] = first;
    r.across.used[j] = n;
  });
  if (!exact) tap_table_trim(r.across);
  tap_table_finish(r.across);
  return true;
}


int resample_write_scan(void *data, int32_t line, void *rows) {
  if (data == nullptr) return locked();
  ResampleRecord &r = *static_cast<ResampleRecord *>(data);
  const int32_t s = line - r.source_bottom;
  if (s != r.next_source) return fail(ORX_E_BAD_SCANLINE, Msg::kBadScanline, line);
  const int32_t last_row = static_cast<int32_t>(r.source_top);
  ++r.next_source;
  const auto *samples = static_cast<const float *>(static_cast<void **>(rows)[0]);
  for (int32_t c = 0; c < r.channels; ++c) {
    float *in = row_of(r.in, c);
    for (int32_t x = 0; x < r.source_width; ++x)
      in[x] = samples[static_cast<std::size_t>(x) * static_cast<std::size_t>(r.channels) +
                      static_cast<std::size_t>(c)];
  }
  if (!r.down_first) filter_row(r, r.in, r.out);
  void **added = r.down_first ? r.in : r.out;
  const int32_t width = cached_width(r);
  // Add the row to every output line whose support holds it, in the order
  // the read direction adds them.
  const float step = 1.0f / r.ry;
  for (int32_t i = r.next_out; i < r.dest_height && r.out_first[i] <= s; ++i) {
    if (i - r.next_out >= r.open) break;  // cannot happen with the ring's size
    CachedRow &sum = r.sums[i % r.open];
    if (sum.line != i) {
      for (int32_t c = 0; c < r.channels; ++c)
        std::memset(sum.rows[c], 0, sizeof(float) * static_cast<std::size_t>(width));
      r.sum_weights[i % r.open] = 0.0f;
      sum.line = i;
    }
    if (static_cast<float>(s) > r.out_last[i]) continue;
    const auto w = static_cast<float>(r.filter->y_kernel((static_cast<float>(s) - r.out_centre[i]) * step + r.oy));
    if (w == 0.0f) continue;
    // Added exactly as reading sums its taps, so that both give the same.
    const AccumulateKernel accumulate = row_kernels().accumulate;
    for (int32_t c = 0; c < r.channels; ++c) accumulate(row_of(added, c), w, width, row_of(sum.rows, c));
    r.sum_weights[i % r.open] += w;
  }
  // Lines whose support has passed go down; after the last row, all of them.
  while (r.next_out < r.dest_height &&
         (s == last_row || (r.out_first[r.next_out] <= s && r.out_last[r.next_out] <= static_cast<float>(s)))) {
    CachedRow &sum = r.sums[r.next_out % r.open];
    if (sum.line != r.next_out) {  // no row reached it
      for (int32_t c = 0; c < r.channels; ++c)
        std::memset(sum.rows[c], 0, sizeof(float) * static_cast<std::size_t>(width));
      r.sum_weights[r.next_out % r.open] = 0.0f;
    }
    void **line_rows = sum.rows;
    if (r.down_first) {
      row_kernels().horizontal(r.across, sum.rows, r.out, r.channels);
      line_rows = r.out;
    }
    finish(r, line_rows, r.sum_weights[r.next_out % r.open]);
    for (int32_t c = 0; c < r.channels; ++c) {
      const float *sums = row_of(line_rows, c);
      for (int32_t x = 0; x < r.dest_width; ++x)
        r.packed[static_cast<std::size_t>(x) * static_cast<std::size_t>(r.channels) +
                 static_cast<std::size_t>(c)] = sums[x];
    }
    void *packed_rows[2] = {r.packed, nullptr};
    const int status = forward(&r.header, r.dest_bottom + r.next_out, packed_rows);
    sum.line = -1;
    ++r.next_out;
    if (status != 0) return status;
  }
  return 0;
}

// The ring's rows, zeroed, in one block (reported when memory ran out).
// Each row is an odd number of cache lines long, so that the same column
// of the rows an output line sums falls in different sets of the
// first-level cache: rows a multiple of the page size apart (as a 4K
// image's rows of four channels are, allocated one after another) all
// compete for the same few sets, and every load of the sum misses.
bool make_ring(ResampleRecord &r) {
  constexpr uint64_t kLine = 64 / sizeof(float);
  const uint64_t stride = ((static_cast<uint64_t>(cached_width(r)) + kLine - 1) / kLine | 1) * kLine;
  const uint64_t channels = static_cast<uint64_t>(r.channels > 0 ? r.channels : 0);
  const uint64_t rows = static_cast<uint64_t>(r.cached) * channels;
  uint64_t bytes = 0, pointers = 0;
  const bool fits = !__builtin_mul_overflow(rows, stride * sizeof(float), &bytes) &&
                    bytes <= UINT64_MAX - 64 &&
                    !__builtin_mul_overflow(static_cast<uint64_t>(r.cached) * sizeof(void *),
                                            channels + 1, &pointers);
  // A size past what can be had is refused (and reported) as any other.
  r.ring_block = static_cast<float *>(allocate(fits ? bytes + 64 : UINT64_MAX));
  if (r.ring_block == nullptr) return false;
  r.ring_rows = static_cast<void **>(allocate(pointers));
  if (r.ring_rows == nullptr) return false;
  std::memset(r.ring_block, 0, bytes + 64);
  const auto at = reinterpret_cast<std::uintptr_t>(r.ring_block);
  float *base = r.ring_block + (64 - at % 64) % 64 / sizeof(float);
  for (uint64_t i = 0; i < static_cast<uint64_t>(r.cached); ++i) {
    void **entry = r.ring_rows + i * (channels + 1);
    for (uint64_t c = 0; c < channels; ++c) entry[c] = base + (i * channels + c) * stride;
    entry[channels] = nullptr;
    r.cache[i].rows = entry;
  }
  return true;
}

// Everything both directions share: the record, its weights and buffers,
// for source and destination sizes; null (reported, orx__err -10) when
// memory ran out.
ResampleRecord *make_record(ORX_IFD &d, const ORX_FILTER *filter, int32_t source_width,
                            int32_t source_height, int32_t dest_width, int32_t dest_height,
                            bool writing) {
  auto *r = new_record<ResampleRecord>();
  if (r == nullptr) return nullptr;
  r->filter = filter;
  r->window = d.window;
  r->active = d.active;
  r->source_width = source_width;
  r->dest_width = dest_width;
  r->dest_height = dest_height;
  r->source_top = static_cast<float>(source_height - 1);
  r->wx = filter->x_width;
  r->wy = filter->y_width;
  r->hx = r->wx * 0.5f;
  r->hy = r->wy * 0.5f;
  r->rx = static_cast<float>(source_width) / static_cast<float>(dest_width);
  r->ry = static_cast<float>(source_height) / static_cast<float>(dest_height);
  r->cy = (r->ry - 1.0f) * 0.5f;
  r->ox = (filter->x_phase * r->wx * 0.5f) / kPi;
  r->oy = (filter->y_phase * r->wy * 0.5f) / kPi;
  r->taps = larger(static_cast<int32_t>(r->wx), static_cast<int32_t>((r->rx + 1.0f) * r->wx)) + 1;
  // Reading holds every row an output line spans at once (its taps are
  // summed together): at least the support's length and two more.
  const int32_t spanned = larger(larger(static_cast<int32_t>(r->wy),
                                        static_cast<int32_t>((r->ry + 1.0f) * r->wy)),
                                 static_cast<int32_t>(r->ry * r->wy) + 2);
  r->cached = writing ? 0 : spanned;
  r->channels = channel_count(d);
  // Down first when reducing vertically (an enlargement filters each
  // source row across once for several output lines), unless the exact
  // arithmetic is asked for, or a ring of source rows would outgrow the
  // bound (a large reduction of a wide image).
  r->down_first = !row_kernels().exact && r->ry > 1.0f &&
                  static_cast<uint64_t>(spanned) * static_cast<uint64_t>(source_width) * sizeof(float) <=
                      kSourceRingBytes;
  for (int g = 0; g < 3; ++g) r->kinds[g] = SourceKind::kFloat;
  const auto wd = static_cast<uint64_t>(dest_width), hd = static_cast<uint64_t>(dest_height);
  bool ok = make_weights(*r);
  if (ok && !writing) {
    const auto n = static_cast<uint64_t>(r->cached);
    r->cache = static_cast<CachedRow *>(allocate(sizeof(CachedRow) * n));
    r->tap_entries = static_cast<const CachedRow **>(allocate(sizeof(CachedRow *) * n));
    r->tap_weights = static_cast<float *>(allocate(sizeof(float) * n));
    r->tap_rows = static_cast<const float **>(allocate(sizeof(float *) * n));
    ok = r->cache && r->tap_entries && r->tap_weights && r->tap_rows;
    for (int32_t i = 0; r->cache != nullptr && i < r->cached; ++i) r->cache[i] = CachedRow{-1, nullptr};
    if (r->cache == nullptr) r->cached = 0;
    ok = ok && make_ring(*r);
    // Source rows as float before they are summed or filtered (rows read
    // from below the cast are widened here when filtered across first).
    if (ok && !row_kernels().exact) ok = (r->in = float_rows(d, source_width, kName)) != nullptr;
    if (ok && r->down_first) {
      r->next_entries = static_cast<const CachedRow **>(allocate(sizeof(CachedRow *) * n));
      r->next_weights = static_cast<float *>(allocate(sizeof(float) * n));
      ok = r->next_entries && r->next_weights &&
           (r->ahead = float_rows(d, source_width, kName)) != nullptr;
    }
  }
  if (ok && writing) {
    // Output lines open at once: those whose support holds the row just
    // written, about the kernel's width in either direction of resizing.
    r->open = larger(static_cast<int32_t>(2.0f * r->wy + 4.0f),
                     static_cast<int32_t>(r->wy / r->ry) + 4);
    r->out_first = static_cast<int32_t *>(allocate(sizeof(int32_t) * hd));
    r->out_last = static_cast<float *>(allocate(sizeof(float) * hd));
    r->out_centre = static_cast<float *>(allocate(sizeof(float) * hd));
    r->sums = static_cast<CachedRow *>(allocate(sizeof(CachedRow) * static_cast<uint64_t>(r->open)));
    for (int32_t i = 0; r->sums != nullptr && i < r->open; ++i) r->sums[i] = CachedRow{-1, nullptr};
    r->sum_weights = static_cast<float *>(allocate(sizeof(float) * static_cast<uint64_t>(r->open)));
    r->packed = static_cast<float *>(
        allocate(sizeof(float) * wd * static_cast<uint64_t>(r->channels > 0 ? r->channels : 1)));
    ok = r->out_first && r->out_last && r->out_centre && r->sums && r->sum_weights && r->packed;
    for (int32_t i = 0; ok && i < r->open; ++i)
      ok = (r->sums[i].rows = float_rows(d, cached_width(*r), kName)) != nullptr;
    if (ok) ok = (r->in = float_rows(d, source_width, kName)) != nullptr;
  }
  if (ok) ok = (r->out = float_rows(d, dest_width, kName)) != nullptr;
  if (!ok) {  // every allocator above reported it
    if (writing && r->sums == nullptr) r->open = 0;
    free_record(r);
    orx__err = ORX_E_NO_MEMORY;
    return nullptr;
  }
  if (writing) {
    // Each output line's support, its centre accumulated as reading does.
    float cy = r->cy;
    for (int32_t i = 0; i < dest_height; ++i, cy += r->ry) {
      const float low = cy - r->ry * r->hy, high = cy + r->ry * r->hy;
      r->out_first[i] = low < 0.0f ? 0 : static_cast<int32_t>(low);
      r->out_last[i] = high < r->source_top ? high : r->source_top;
      r->out_centre[i] = cy;
    }
  }
  return r;
}

// Every group float and the layout given (1 one row per channel, 0 samples
// interleaved), else the reports and -16.
bool floats_in_layout(const ORX_IFD &d, int32_t layout) {
  int refused = 0;
  const std::pair<const ORX_CHANNELS *, Msg> groups[] = {
      {&d.image, Msg::kImageType}, {&d.matte, Msg::kMatteType}, {&d.aux, Msg::kAuxType}};
  for (const auto &[g, message] : groups)
    if (g->count > 0 && g->type != ORX_C_FLOAT) refused = fail(ORX_E_UNSUPPORTED, message, kName);
  if (d.pixel_flags != layout) refused = ORX_E_UNSUPPORTED;
  if (refused != 0) orx__err = ORX_E_UNSUPPORTED;
  return refused == 0;
}

// How each group's rows are read from below a cast that found them of
// these types (counts as d has them): false when some group's storage has
// no direct reading (the cast's floats are read then).
bool source_kinds(const ORX_IFD &d, const GroupTypes &below, SourceKind kinds[3], float maxima[3]) {
  const ORX_CHANNELS *groups[] = {&d.image, &d.matte, &d.aux};
  for (int g = 0; g < 3; ++g) {
    const int32_t type = below.types[g], bits = below.widths[g];
    kinds[g] = SourceKind::kFloat;
    maxima[g] = 1.0f;
    if (groups[g]->count <= 0 || type == ORX_C_FLOAT) continue;
    if (type != ORX_C_INTEGER || bits < 1 || bits > 16) return false;
    kinds[g] = bits <= 8 ? SourceKind::kU8 : SourceKind::kU16;
    maxima[g] = static_cast<float>(max_value(bits));
  }
  return true;
}

ORX_OBJECT *read_install(ORX_OBJECT *handle, const ORX_FILTER *filter, ORX_WINDOW dest) {
  ORX_IFD &d = handle->info.images[0];
  const CastBelow cast(handle);
  if (!cast.ok()) return handle;  // the cast could not be had (reported)
  if (!floats_in_layout(d, 1)) {
    undo_cast(handle, cast.pushed());
    orx__err = ORX_E_UNSUPPORTED;
    return handle;
  }
  ResampleRecord *r = make_record(d, filter, span_of(d).width, span_of(d).height, dest.right - dest.left + 1,
                                  dest.top - dest.bottom + 1, false);
  if (r == nullptr) {
    undo_cast(handle, cast.pushed());
    orx__err = ORX_E_NO_MEMORY;
    return handle;
  }
  r->pushed_cast = cast.pushed();
  // The cast below, whether pushed here or by whoever built the chain, is
  // read past when its rows can be widened here.
  SourceKind kinds[3];
  float maxima[3];
  CastSource below{};
  r->fused = !row_kernels().exact && cast_source(handle, &below) && source_kinds(d, below.types, kinds, maxima);
  r->table = r->fused ? below.table : nullptr;
  const ORX_CHANNELS *groups[] = {&d.image, &d.matte, &d.aux};
  for (int g = 0; g < 3; ++g) {
    r->counts[g] = groups[g]->count > 0 ? groups[g]->count : 0;
    if (r->fused) {
      r->kinds[g] = kinds[g];
      r->maxima[g] = maxima[g];
    }
  }
  r->source_bottom = d.window.bottom;
  const float start = (r->ry - 1.0f) * 0.5f - r->ry * r->hy;
  r->current_row = start < 0.0f ? 0.0f : static_cast<float>(static_cast<int32_t>(start));
  d.window = d.active = dest;
  push(handle, &r->header, kResample, resample_scan, Layer::close);
  return handle;
}

// Writing: the handle's description is what the layer below stores (the
// destination); the caller writes float lines of the source rectangle,
// samples interleaved, in order from its bottom.
ORX_OBJECT *write_install(ORX_OBJECT *handle, const ORX_FILTER *filter, ORX_WINDOW source) {
  ORX_IFD &d = handle->info.images[0];
  if (!floats_in_layout(d, 0)) {
    orx__err = ORX_E_UNSUPPORTED;
    return handle;
  }
  ResampleRecord *r = make_record(d, filter, source.right - source.left + 1,
                                  source.top - source.bottom + 1, span_of(d).width,
                                  span_of(d).height, true);
  if (r == nullptr) {
    orx__err = ORX_E_NO_MEMORY;
    return handle;
  }
  r->source_bottom = source.bottom;
  r->dest_bottom = d.window.bottom;
  d.window = d.active = source;
  push(handle, &r->header, kResample, resample_write_scan, Layer::close);
  return handle;
}

}  // namespace
}  // namespace orx::operators

using namespace orx::operators;

extern "C" {

ORX_OBJECT *orx__resample_operator(ORX_OBJECT *handle, const ORX_FILTER *filter, int32_t left,
                                   int32_t right, int32_t bottom, int32_t top) {
  orx__err = 0;
  if (handle == nullptr || filter == nullptr || filter->x_kernel == nullptr ||
      filter->y_kernel == nullptr || handle->info.images == nullptr || handle->info.image_count < 1)
    return handle;
  // A width of 0 is one tap, the kernel's value at the centre.
  if (right < left || top < bottom || !(filter->x_width >= 0.0f) || !(filter->y_width >= 0.0f)) {
    orx__err = ORX_E_DIMENSIONS;
    return handle;
  }
  const ORX_WINDOW rectangle{left, right, bottom, top};
  if (handle->access == ORX_ACCESS_READ) return read_install(handle, filter, rectangle);
  if (handle->access == ORX_ACCESS_WRITE) return write_install(handle, filter, rectangle);
  return handle;
}

int orx__resample_remove(ORX_OBJECT *handle) { return Layer::remove(handle); }

}  // extern "C"
