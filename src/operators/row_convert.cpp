// Whole-row conversion between sample types for hosts (the orx tool among
// them): one template for every pair of storage types, chosen once per row.
#include <cstring>

#include "operators/convert.hpp"
#include "orx/err.h"
#include "orx/operators.h"

namespace orx::operators {
namespace {

enum class Storage { kU8, kU16, kU32, kFloat, kDouble, kNone };

Storage storage_of(const ORX_CHANNELS &g) {
  if (g.type == ORX_C_FLOAT) return Storage::kFloat;
  if (g.type == ORX_C_DOUBLE) return Storage::kDouble;
  if (g.type != ORX_C_INTEGER || g.bits < 1 || g.bits > 32) return Storage::kNone;
  return g.bits <= 8 ? Storage::kU8 : g.bits <= 16 ? Storage::kU16 : Storage::kU32;
}

// Values pass through W: float where both ends fit its precision (codes of
// up to 16 bits, float), else double.
template <class S, class D, class W>
ORX_ROW_KERNEL void convert(const void *src, void *dst, int32_t n, int32_t from_bits,
                            int32_t to_bits) {
  constexpr bool kFromInteger = !std::is_floating_point_v<S>;
  constexpr bool kToInteger = !std::is_floating_point_v<D>;
  const W in_scale = kFromInteger ? static_cast<W>(1.0 / max_value(from_bits)) : W(1);
  const W out_scale = kToInteger ? static_cast<W>(max_value(to_bits)) : W(1);
  for (int32_t x = 0; x < n; ++x) {
    W v = static_cast<W>(load_at<S>(src, static_cast<std::size_t>(x))) * in_scale;
    if constexpr (kToInteger) {
      // Clamped after scaling, in this form, and through a signed integer
      // of the working width, the loop vectorises.
      using Whole = std::conditional_t<(sizeof(D) < 4), int32_t, int64_t>;
      const W low = W(0.5), high = out_scale + W(0.5);
      v = v * out_scale + low;
      v = v < low ? low : v;
      v = v > high ? high : v;
      store_at<D>(dst, static_cast<std::size_t>(x), static_cast<D>(v == v ? static_cast<Whole>(v) : 0));
    } else {
      store_at<D>(dst, static_cast<std::size_t>(x), static_cast<D>(v));
    }
  }
}

using Converter = void (*)(const void *, void *, int32_t, int32_t, int32_t);

template <class S>
Converter to(Storage d) {
  constexpr bool kWide = std::is_same_v<S, uint32_t> || std::is_same_v<S, double>;
  switch (d) {
    case Storage::kU8: return convert<S, uint8_t, std::conditional_t<kWide, double, float>>;
    case Storage::kU16: return convert<S, uint16_t, std::conditional_t<kWide, double, float>>;
    case Storage::kU32: return convert<S, uint32_t, double>;
    case Storage::kFloat: return convert<S, float, std::conditional_t<kWide, double, float>>;
    case Storage::kDouble: return convert<S, double, double>;
    case Storage::kNone: break;
  }
  return nullptr;
}

Converter converter(Storage s, Storage d) {
  switch (s) {
    case Storage::kU8: return to<uint8_t>(d);
    case Storage::kU16: return to<uint16_t>(d);
    case Storage::kU32: return to<uint32_t>(d);
    case Storage::kFloat: return to<float>(d);
    case Storage::kDouble: return to<double>(d);
    case Storage::kNone: break;
  }
  return nullptr;
}

std::size_t size_of(Storage s) {
  return s == Storage::kU8 ? 1 : s == Storage::kU16 ? 2 : s == Storage::kDouble ? 8 : 4;
}

}  // namespace
}  // namespace orx::operators

extern "C" {

int ORX_convert_row(const ORX_CHANNELS *from, const void *src, const ORX_CHANNELS *to, void *dst,
                    int32_t n) {
  using namespace orx::operators;
  if (from == nullptr || to == nullptr) return ORX_E_UNSUPPORTED;
  const Storage s = storage_of(*from), d = storage_of(*to);
  const Converter convert = converter(s, d);
  if (convert == nullptr) return ORX_E_UNSUPPORTED;
  if (n <= 0) return 0;
  // The same type both ends: the samples as they are.
  if (s == d && (from->type != ORX_C_INTEGER || from->bits == to->bits)) {
    std::memcpy(dst, src, size_of(s) * static_cast<std::size_t>(n));
    return 0;
  }
  convert(src, dst, n, from->bits, to->bits);
  return 0;
}

}  // extern "C"
