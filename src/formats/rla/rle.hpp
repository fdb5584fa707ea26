// The channel codec of RLA scanlines.  Each channel of a row is stored as one
// chunk; this file turns the active samples of one channel into chunk bytes
// and back.  (The 2-byte length in front of each chunk is the caller's.)
//
// Integer channels are run-length encoded byte planes: 1 plane for 1-8 bit
// samples (held in 8-bit samples), 2 for 9-16 bits (16-bit samples), 4 for
// 17-32 bits (32-bit samples), the plane of the most significant byte first.
// A plane of n samples is a sequence of packets, each a signed count byte c:
//   c >= 0: the next byte repeated c + 1 times;
//   c <  0: the next -c bytes as they stand.
// Float and double channels are the samples unencoded, in host byte order.
//
// Every function works on caller buffers and allocates nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace orx::rla {

// Sample type of integer samples `Bytes` wide (1, 2 or 4), which is also the
// number of byte planes they are stored in.
template <int Bytes>
using Sample =
    std::conditional_t<Bytes == 1, std::uint8_t,
                       std::conditional_t<Bytes == 2, std::uint16_t,
                                          std::conditional_t<Bytes == 4, std::uint32_t, void>>>;

// Bytes per sample, hence byte planes, of an integer channel `bits` wide: 1 up
// to 8 bits, 2 up to 16, 4 up to 32; 0 for wider channels, which cannot be
// stored.
constexpr int plane_count(int bits) { return bits <= 8 ? 1 : bits <= 16 ? 2 : bits <= 32 ? 4 : 0; }

// Encodes n samples (n >= 0) into out as Bytes run-length encoded planes, most
// significant byte first, and returns the number of bytes produced.  out must
// hold encode_buffer_size(n, bits) bytes for the channel's width; a plane never
// takes more than n + n / 128 + 1 bytes.
//
// The packets are exactly those a writer is expected to produce: a maximal
// run of 3 or more equal bytes becomes run packets (pieces of at most 128,
// count byte r - 1, the last one holding what is left); shorter runs stay in
// the literal around them, which goes out in pieces of at most 128 (count
// byte -128 for a full piece, -k for the k bytes left over).  A literal is
// emitted before the run that ends it, and at the end of the plane.
template <int Bytes>
std::size_t encode_row(const Sample<Bytes> *samples, int n, std::uint8_t *out);

// Decodes Bytes planes of n samples each from the len bytes at in into out,
// the most significant plane first.  Returns the number of samples decoded per
// plane: n on success; less when the chunk is malformed, that is when a plane
// runs out of packets or a packet does not fit the input left or the samples
// left (such a packet is not applied; later planes are not decoded).  Never
// reads past in + len nor writes past out + n.  When consumed is not null it
// receives the number of input bytes the decoded packets took, so a caller can
// check that a chunk holds nothing more.
template <int Bytes>
int decode_row(const std::uint8_t *in, std::size_t len, int n, Sample<Bytes> *out,
               std::size_t *consumed = nullptr);

// Float and double channels: n samples copied as they stand (host byte order).
// encode_raw returns the bytes produced (n * sizeof(T)).
template <class T>
std::size_t encode_raw(const T *samples, int n, std::uint8_t *out) {
  static_assert(std::is_floating_point_v<T>);
  std::size_t size = n > 0 ? static_cast<std::size_t>(n) * sizeof(T) : 0;
  if (size > 0) std::memcpy(out, samples, size);
  return size;
}
// decode_raw copies as many whole samples as the len bytes hold, at most n,
// and returns how many it copied (n on success).
template <class T>
int decode_raw(const std::uint8_t *in, std::size_t len, int n, T *out) {
  static_assert(std::is_floating_point_v<T>);
  if (n <= 0) return 0;
  std::size_t count = len / sizeof(T);
  if (count > static_cast<std::size_t>(n)) count = static_cast<std::size_t>(n);
  if (count > 0) std::memcpy(out, in, count * sizeof(T));
  return static_cast<int>(count);
}

// Buffer bounds, from the active width W and the largest channel width B in
// bits of the image.  The decode buffer is what a reader accepts as a chunk
// length: W times 2, 4, 8 or 16 bytes for B up to 8, 16, 32 or more.  The
// encode buffer holds the largest chunk a writer can produce:
//   B <= 8: W + W/127 + 3;  B <= 16: (W + W/127) * 2 + 4;
//   B <= 32: (W + W/127) * 4 + 6;  above: (W + W/127) * 8 + 10
// (integer division).  A negative width counts as 0.
std::size_t decode_buffer_size(int active_width, int max_bits);
std::size_t encode_buffer_size(int active_width, int max_bits);

extern template std::size_t encode_row<1>(const std::uint8_t *, int, std::uint8_t *);
extern template std::size_t encode_row<2>(const std::uint16_t *, int, std::uint8_t *);
extern template std::size_t encode_row<4>(const std::uint32_t *, int, std::uint8_t *);
extern template int decode_row<1>(const std::uint8_t *, std::size_t, int, std::uint8_t *,
                                  std::size_t *);
extern template int decode_row<2>(const std::uint8_t *, std::size_t, int, std::uint16_t *,
                                  std::size_t *);
extern template int decode_row<4>(const std::uint8_t *, std::size_t, int, std::uint32_t *,
                                  std::size_t *);

}  // namespace orx::rla
