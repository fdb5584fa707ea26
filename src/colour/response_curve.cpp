// Response curves: per-channel transfer tables of a chosen length, depth and
// sample type, and their composition.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "colour/rounding.hpp"
#include "err/messages.hpp"
#include "orx/err.h"
#include "orx/orx.h"

namespace orx::colour {
namespace {

constexpr int32_t kMinDepth = 8;
constexpr int32_t kMaxDepth = 16;

// How the entries of a curve are stored, from its type and depth.
enum class Storage { kBadType, kBadDepth, kU8, kU16, kFloat };

Storage storage_of(int32_t type, int32_t depth) {
  if (type == ORX_C_FLOAT) return Storage::kFloat;
  if (type != ORX_C_INTEGER) return Storage::kBadType;
  if (depth < kMinDepth || depth > kMaxDepth) return Storage::kBadDepth;
  return depth == 8 ? Storage::kU8 : Storage::kU16;
}

bool is_valid(Storage s) { return s != Storage::kBadType && s != Storage::kBadDepth; }

// Calls f with a std::type_identity of the entry type of a valid storage.
template <class F>
void with_entry_type(Storage s, F &&f) {
  switch (s) {
    case Storage::kU8: f(std::type_identity<uint8_t>{}); break;
    case Storage::kU16: f(std::type_identity<uint16_t>{}); break;
    default: f(std::type_identity<float>{}); break;
  }
}

std::size_t entry_size(Storage s) {
  std::size_t size = 0;
  with_entry_type(s, [&](auto tag) { size = sizeof(typename decltype(tag)::type); });
  return size;
}

// ERR_malloc for the curve functions, which also leave -10 in orx__err.
// Blocks beyond the allocator's 32-bit sizes are reported as a shortage.
void *allocate(uint64_t bytes) {
  if (bytes > UINT32_MAX) {
    fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
    return nullptr;
  }
  void *block = ERR_malloc(static_cast<uint32_t>(bytes));
  if (block == nullptr) orx__err = ORX_E_NO_MEMORY;
  return block;
}

void free_tables(void **tables) {
  if (tables == nullptr) return;
  ERR_free(tables[0]);
  ERR_free(tables);
}

// The pointer array and the one block behind it: table k starts k * length
// entries after the first.  Channels and length are at least 1.
void **alloc_tables(int32_t channels, int32_t length, std::size_t size) {
  uint64_t entries = static_cast<uint64_t>(channels) * static_cast<uint64_t>(length);
  if (entries > UINT32_MAX) {
    fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
    return nullptr;
  }
  auto **tables = static_cast<void **>(allocate(static_cast<uint64_t>(channels) * sizeof(void *)));
  if (tables == nullptr) return nullptr;
  auto *block = static_cast<unsigned char *>(allocate(entries * size));
  if (block == nullptr) {
    ERR_free(tables);
    return nullptr;
  }
  const std::size_t stride = static_cast<std::size_t>(length) * size;
  for (int32_t k = 0; k < channels; ++k) tables[k] = block + static_cast<std::size_t>(k) * stride;
  return tables;
}

// Entry i of a curve of the given gamma.  Integer curves reach M = 2^depth - 1
// at the last entry; float curves reach 1.  A curve of length 1 has only the
// entry at input 0, so it holds the value there as a constant.
template <class T>
T curve_entry(const ORX_RESPONSE_CURVE &c, int32_t i) {
  const double steps = c.length > 1 ? static_cast<double>(c.length - 1) : 0.0;
  if constexpr (std::is_floating_point_v<T>) {
    const double x = i * (steps > 0.0 ? 1.0 / steps : 0.0);
    return static_cast<T>(c.gamma == 1.0f ? x : std::pow(x, static_cast<double>(c.gamma)));
  } else {
    const double m = static_cast<double>((1 << c.depth) - 1);
    double v;
    if (c.gamma == 1.0f)
      v = i * (steps > 0.0 ? m / steps : 0.0);
    else
      v = std::pow(steps > 0.0 ? i / steps : 0.0, static_cast<double>(c.gamma)) * m;
    return static_cast<T>(to_code(round_half_up(v), m));
  }
}

// Computes the first channel's table; every further channel is a copy of the
// one before it.
template <class T>
void fill_tables(void **tables, const ORX_RESPONSE_CURVE &c) {
  auto *first = static_cast<T *>(tables[0]);
  for (int32_t i = 0; i < c.length; ++i) first[i] = curve_entry<T>(c, i);
  const std::size_t bytes = static_cast<std::size_t>(c.length) * sizeof(T);
  for (int32_t k = 1; k < c.channels; ++k) std::memcpy(tables[k], tables[k - 1], bytes);
}

// out[c][i] = a[c][b[c][i]] for every channel; b's entries are clamped to a's
// last index so a hand-made b with stray codes cannot read past a.
template <class T, class I>
void compose_tables(void **out, void *const *a, void *const *b, int32_t channels, int32_t length,
                    int32_t a_length) {
  for (int32_t c = 0; c < channels; ++c) {
    auto *o = static_cast<T *>(out[c]);
    const auto *from = static_cast<const T *>(a[c]);
    const auto *index = static_cast<const I *>(b[c]);
    for (int32_t i = 0; i < length; ++i)
      o[i] = from[std::min<int32_t>(static_cast<int32_t>(index[i]), a_length - 1)];
  }
}

// b must be an integer curve of a depth its entries can be stored in before
// its codes can index anything.
bool check_index_curve(const ORX_RESPONSE_CURVE &b) {
  Storage s = storage_of(b.type, b.depth);
  if (s == Storage::kBadType || s == Storage::kFloat) {
    report(Msg::kCurveChannelType);
    return false;
  }
  if (s == Storage::kBadDepth) {
    report(Msg::kCurveDepth, b.depth, kMinDepth, kMaxDepth);
    return false;
  }
  return true;
}

// The header of out for a composition: b's channels and length, a's type and
// depth; out's other fields are kept.
ORX_RESPONSE_CURVE composed_header(const ORX_RESPONSE_CURVE &a, const ORX_RESPONSE_CURVE &b,
                                   const ORX_RESPONSE_CURVE &out, float gamma) {
  ORX_RESPONSE_CURVE result = out;
  result.gamma = gamma;
  result.channels = b.channels;
  result.length = b.length;
  result.type = a.type;
  result.depth = a.depth;
  result.curves = nullptr;
  return result;
}

// Composition of two tabulated curves; out is written only on success.
int compose_tabulated(const ORX_RESPONSE_CURVE &a, const ORX_RESPONSE_CURVE &b,
                      ORX_RESPONSE_CURVE *out) {
  if (a.channels != b.channels) {
    report(Msg::kCurveChannelCounts);
    return -1;
  }
  // The element counts are compared before the depth is judged: a depth
  // no table can have is, first of all, a count that does not match.
  const Storage s = storage_of(b.type, b.depth);
  if (s != Storage::kBadType && s != Storage::kFloat &&
      (b.depth < 0 || b.depth > 30 || (int32_t{1} << b.depth) != a.length)) {
    report(Msg::kCurveElementCounts);
    return -1;
  }
  if (!check_index_curve(b)) return -1;
  if (a.curves == nullptr || b.curves == nullptr) return -1;
  ORX_RESPONSE_CURVE result = composed_header(a, b, *out, 1.0f);
  if (ORX_response_curve_init(&result) != 0) return -1;
  const Storage index = storage_of(b.type, b.depth);
  with_entry_type(storage_of(a.type, a.depth), [&](auto tag) {
    using T = typename decltype(tag)::type;
    if (index == Storage::kU8)
      compose_tables<T, uint8_t>(result.curves, a.curves, b.curves, b.channels, b.length, a.length);
    else
      compose_tables<T, uint16_t>(result.curves, a.curves, b.curves, b.channels, b.length,
                                  a.length);
  });
  *out = result;
  return 0;
}

// Tabulates the parametric side of a mixed composition in temp, composes,
// and frees temp.
int compose_with_temporary(ORX_RESPONSE_CURVE temp, const ORX_RESPONSE_CURVE *a,
                           const ORX_RESPONSE_CURVE *b, ORX_RESPONSE_CURVE *out) {
  temp.curves = nullptr;
  if (ORX_response_curve_init(&temp) != 0) return -1;
  int status = compose_tabulated(a != nullptr ? *a : temp, b != nullptr ? *b : temp, out);
  ORX_response_curve_done(&temp);
  return status;
}

}  // namespace
}  // namespace orx::colour

extern "C" {

int ORX_response_curve_init(ORX_RESPONSE_CURVE *curve) {
  using namespace orx::colour;
  if (curve == nullptr) return -1;
  curve->kind = ORX_CURVE_TABULATED;
  curve->flags = 0;
  curve->curves = nullptr;
  const Storage s = storage_of(curve->type, curve->depth);
  if (!is_valid(s) || curve->channels < 1 || curve->length < 1) return -1;
  void **tables = alloc_tables(curve->channels, curve->length, entry_size(s));
  if (tables == nullptr) return -1;
  with_entry_type(s, [&](auto tag) { fill_tables<typename decltype(tag)::type>(tables, *curve); });
  curve->curves = tables;
  return 0;
}

int ORX_response_curve_copy(ORX_RESPONSE_CURVE *dst, const ORX_RESPONSE_CURVE *src) {
  using namespace orx::colour;
  using orx::Msg;
  if (dst == nullptr || src == nullptr) return -1;
  const ORX_RESPONSE_CURVE from = *src;
  *dst = from;
  dst->curves = nullptr;
  if (from.kind != ORX_CURVE_TABULATED) return 0;
  const Storage s = storage_of(from.type, from.depth);
  if (s == Storage::kBadType) {
    orx::report(Msg::kCurveType, from.type);
    return -1;
  }
  if (s == Storage::kBadDepth) {
    orx::report(Msg::kCurveDepth, from.depth, kMinDepth, kMaxDepth);
    return -1;
  }
  if (from.curves == nullptr) return 0;
  if (from.channels < 1 || from.length < 1) return -1;
  void **tables = alloc_tables(from.channels, from.length, entry_size(s));
  if (tables == nullptr) return -1;
  const std::size_t bytes = static_cast<std::size_t>(from.length) * entry_size(s);
  for (int32_t k = 0; k < from.channels; ++k) std::memcpy(tables[k], from.curves[k], bytes);
  dst->curves = tables;
  return 0;
}

int ORX_response_curve_comp(const ORX_RESPONSE_CURVE *a, const ORX_RESPONSE_CURVE *b,
                            ORX_RESPONSE_CURVE *out) {
  using namespace orx::colour;
  if (a == nullptr || b == nullptr || out == nullptr) return -1;
  const bool a_table = a->kind == ORX_CURVE_TABULATED;
  const bool b_table = b->kind == ORX_CURVE_TABULATED;
  const bool a_param = a->kind == ORX_CURVE_PARAMETRIC;
  const bool b_param = b->kind == ORX_CURVE_PARAMETRIC;
  if (a_table && b_table) return compose_tabulated(*a, *b, out);
  if (a_param && b_param) {
    ORX_RESPONSE_CURVE result = composed_header(*a, *b, *out, b->gamma / a->gamma);
    if (ORX_response_curve_init(&result) != 0) return -1;
    *out = result;
    return 0;
  }
  if (a_param && b_table) {
    // a is tabulated over every code b can produce, with the inverse of its
    // exponent: b's codes are linear values that a maps back out.
    if (!check_index_curve(*b)) return -1;
    ORX_RESPONSE_CURVE temp = *a;
    temp.channels = b->channels;
    temp.length = int32_t{1} << b->depth;
    temp.gamma = static_cast<float>(1.0 / a->gamma);
    return compose_with_temporary(temp, nullptr, b, out);
  }
  if (a_table && b_param) return compose_with_temporary(*b, a, nullptr, out);
  // Kinds this library does not know compose to nothing: out is left as is.
  return 0;
}

int ORX_response_curve_done(ORX_RESPONSE_CURVE *curve) {
  if (curve != nullptr && curve->kind == ORX_CURVE_TABULATED && curve->curves != nullptr) {
    orx::colour::free_tables(curve->curves);
    curve->curves = nullptr;
  }
  return 1;
}

}  // extern "C"
