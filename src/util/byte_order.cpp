// Byte-order helpers: one value of one type between a stream and memory, or
// between file order and host order.  Every type follows one of three rules
// (bytes kept, bytes reversed, never stored), so one template per rule and
// width serves all seven types.
#include "orx/byt.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

namespace orx::util {
namespace {

enum class Order {
  kAsIs,      // file order is host order
  kReversed,  // file order is big-endian, the bytes are stored reversed
  kNever,     // the value is never stored and always reads back as zero
};

template <std::size_t Width, Order Rule>
struct ByteRule {
  // Decoding and encoding are the same operation: keeping or reversing bytes
  // is its own inverse.
  static void convert(const void *src, void *dst) {
    auto *to = static_cast<unsigned char *>(dst);
    auto *from = static_cast<const unsigned char *>(src);
    if constexpr (Rule == Order::kNever) {
      std::memset(to, 0, Width);
    } else if constexpr (Rule == Order::kAsIs) {
      std::memcpy(to, from, Width);
    } else {
      for (std::size_t i = 0; i < Width; ++i) to[i] = from[Width - 1 - i];
    }
  }

  // One fread of one item of Width bytes.  A reversed type goes through a
  // local buffer whose reversed contents reach dst even after a short read.
  static int read(std::FILE *stream, void *dst) {
    if constexpr (Rule == Order::kNever) {
      convert(nullptr, dst);
      return 1;
    } else if constexpr (Rule == Order::kAsIs) {
      return static_cast<int>(std::fread(dst, Width, 1, stream));
    } else {
      unsigned char buffer[Width] = {};
      auto items = std::fread(buffer, Width, 1, stream);
      convert(buffer, dst);
      return static_cast<int>(items);
    }
  }

  // One fwrite of one item of Width bytes.
  static int write(std::FILE *stream, const void *src) {
    if constexpr (Rule == Order::kNever) {
      return 1;
    } else if constexpr (Rule == Order::kAsIs) {
      return static_cast<int>(std::fwrite(src, Width, 1, stream));
    } else {
      unsigned char buffer[Width];
      convert(src, buffer);
      return static_cast<int>(std::fwrite(buffer, Width, 1, stream));
    }
  }
};

using CharRule = ByteRule<1, Order::kAsIs>;
using DoubleRule = ByteRule<8, Order::kAsIs>;
using FloatRule = ByteRule<4, Order::kAsIs>;
using IntRule = ByteRule<4, Order::kReversed>;
using LongRule = ByteRule<4, Order::kReversed>;  // long is 32 bits in files
using PointerRule = ByteRule<8, Order::kNever>;
using ShortRule = ByteRule<2, Order::kReversed>;

}  // namespace
}  // namespace orx::util

// The four exported helpers of one type, bound to its rule.
#define ORX_BYT_HELPERS(type, rule)                                                           \
  void BYT_decode_##type(const void *src, void *dst) { orx::util::rule::convert(src, dst); }  \
  int BYT_read_##type(FILE *stream, void *dst) { return orx::util::rule::read(stream, dst); } \
  void BYT_encode_##type(const void *src, void *dst) { orx::util::rule::convert(src, dst); }  \
  int BYT_write_##type(FILE *stream, const void *src) {                                       \
    return orx::util::rule::write(stream, src);                                               \
  }

extern "C" {
ORX_BYT_HELPERS(char, CharRule)
ORX_BYT_HELPERS(double, DoubleRule)
ORX_BYT_HELPERS(float, FloatRule)
ORX_BYT_HELPERS(int, IntRule)
ORX_BYT_HELPERS(long, LongRule)
ORX_BYT_HELPERS(pointer, PointerRule)
ORX_BYT_HELPERS(short, ShortRule)
}  // extern "C"

#undef ORX_BYT_HELPERS
