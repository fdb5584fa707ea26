// Run-length codec of RLA byte planes, one template over the sample width.
//
// The encoder never splits samples into separate plane buffers: it reads the
// samples in place and picks out the plane's byte with a shift, both while
// scanning for runs and while copying literals.  The scan works a 64-bit word
// at a time (8, 4 or 2 samples), so long literals and long runs cost a few
// instructions per word rather than a branch per byte; 8-bit samples are
// scanned for runs 32 at a time where the processor has AVX2 (the same runs
// found, so the same bytes written).
#include "formats/rla/rle.hpp"

#include <algorithm>
#include <bit>

#include "util/cpu.hpp"

namespace orx::rla {
namespace {

// A 64-bit word seen as lanes of one sample each.  Before a test, the plane's
// byte of every lane is moved to the lane's low byte and the other bits are
// cleared, so "these bytes are equal" becomes "this lane is zero".
// Channel rows need not be aligned for their sample type (rows are only
// rounded to an even byte count), so samples are read and written through
// memcpy, which compiles to plain loads and stores where alignment does not
// matter.
template <class T>
T get(const T *p, int i) {
  T v;
  std::memcpy(&v, p + i, sizeof v);
  return v;
}
template <class T>
void put(T *p, int i, T v) {
  std::memcpy(p + i, &v, sizeof v);
}

template <class T>
struct Lanes {
  static constexpr int kCount = static_cast<int>(8 / sizeof(T));
  static constexpr int kBits = static_cast<int>(8 * sizeof(T));
  static constexpr std::uint64_t kOnes = ~std::uint64_t{0} / ((std::uint64_t{1} << kBits) - 1);
  static constexpr std::uint64_t kLowByte = kOnes * 0xFF;
  static constexpr std::uint64_t kLow7 = kOnes * 0x7F;
  static constexpr std::uint64_t kMarks = kOnes * 0x80;

  static std::uint64_t load(const T *p) {
    std::uint64_t w;
    std::memcpy(&w, p, sizeof w);
    return w;
  }
  // The plane's byte of every lane, in the lane's low byte.  A lane holds a
  // whole sample in host order whatever the host, so the shift is the same.
  static std::uint64_t plane(std::uint64_t w, unsigned shift) { return (w >> shift) & kLowByte; }
  // Bit 7 of every lane whose low byte is not zero (x has nothing else set).
  // Masking to 7 bits before adding keeps carries inside the lane.
  static std::uint64_t nonzero(std::uint64_t x) { return (((x & kLow7) + kLow7) | x) & kMarks; }
  // Index, in memory order, of the first lane with its mark set.
  static int first(std::uint64_t marks) {
    if constexpr (std::endian::native == std::endian::little) {
      return std::countr_zero(marks) / kBits;
    } else {
      return std::countl_zero(marks) / kBits;
    }
  }
};

template <class T>
std::uint8_t byte_of(T sample, unsigned shift) {
  return static_cast<std::uint8_t>(sample >> shift);
}

#ifdef ORX_X86_KERNELS
// The 8-bit scan below, 32 bytes a step where the processor has AVX2 (a
// grainy row is scanned from end to end): the first k >= i at which bytes
// k, k+1 and k+2 are equal, or -1 with *next where the blocks stopped.
__attribute__((target("avx2"))) int find_run3_avx2(const std::uint8_t *s, int i, int n, int *next) {
  for (; i + 2 + 32 <= n; i += 32) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(s + i));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(s + i + 1));
    const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(s + i + 2));
    const auto equal = static_cast<unsigned>(
        _mm256_movemask_epi8(_mm256_and_si256(_mm256_cmpeq_epi8(a, b), _mm256_cmpeq_epi8(a, c))));
    if (equal != 0) return i + std::countr_zero(equal);
  }
  *next = i;
  return -1;
}

#endif

// First k >= i at which samples k, k+1 and k+2 have equal plane bytes; n when
// there is none.
template <class T>
int find_run3(const T *s, int i, int n, unsigned shift) {
  using L = Lanes<T>;
#ifdef ORX_X86_KERNELS
  if constexpr (sizeof(T) == 1) {
    if (cpu::has_avx2()) {
      const int k = find_run3_avx2(s, i, n, &i);
      if (k >= 0) return k;
    }
  }
#endif
  for (; i + 2 + L::kCount <= n; i += L::kCount) {
    std::uint64_t a = L::load(s + i);
    std::uint64_t differ = L::plane((a ^ L::load(s + i + 1)) | (a ^ L::load(s + i + 2)), shift);
    std::uint64_t equal = ~L::nonzero(differ) & L::kMarks;
    if (equal != 0) return i + L::first(equal);
  }
  for (; i + 2 < n; ++i) {
    std::uint8_t b = byte_of(get(s, i), shift);
    if (byte_of(get(s, i + 1), shift) == b && byte_of(get(s, i + 2), shift) == b) return i;
  }
  return n;
}

// First k >= i whose plane byte is not v; n when there is none.
template <class T>
int run_end(const T *s, int i, int n, unsigned shift, std::uint8_t v) {
  using L = Lanes<T>;
  const std::uint64_t vs = L::kOnes * v;
  for (; i + L::kCount <= n; i += L::kCount) {
    std::uint64_t differ = L::nonzero(L::plane(L::load(s + i), shift) ^ vs);
    if (differ != 0) return i + L::first(differ);
  }
  while (i < n && byte_of(get(s, i), shift) == v) ++i;
  return i;
}

// The packets of one plane as they are written.  `limit` is the end of the
// caller's buffer.  Where a literal piece has a full packet's worth of
// samples after its start and of room after its count byte, its bytes go out
// in fixed blocks (the whole 128 for 8-bit samples, 16 at a time otherwise)
// that may run past the piece: what follows overwrites the excess.  Short
// pieces, the common case in grainy images, then cost no library call.
template <class T>
struct PlaneWriter {
  static constexpr int kBlock = sizeof(T) == 1 ? 128 : 16;

  const T *row;
  int n;
  unsigned shift;
  std::uint8_t *o;
  const std::uint8_t *limit;

  // Samples [from, to) as literal pieces: -128 and 128 bytes for each full
  // piece, -k and k bytes for the rest.
  void literal(int from, int to) {
    while (from < to) {
      int piece = std::min(to - from, 128);
      *o++ = static_cast<std::uint8_t>(-piece);
      if (n - from >= 128 && limit - o >= 128) {
        for (int j = 0; j < piece; j += kBlock) copy(o + j, from + j, kBlock);
      } else {
        copy(o, from, piece);
      }
      o += piece;
      from += piece;
    }
  }

  // A run of r bytes v: 127 and v for each full piece of 128, r - 1 and v for
  // the rest.
  void run(std::uint8_t v, int r) {
    while (r > 0) {
      int piece = std::min(r, 128);
      *o++ = static_cast<std::uint8_t>(piece - 1);
      *o++ = v;
      r -= piece;
    }
  }

  void copy(std::uint8_t *dst, int from, int count) const {
    if constexpr (sizeof(T) == 1) {
      std::memcpy(dst, row + from, static_cast<std::size_t>(count));
    } else {
      for (int j = 0; j < count; ++j) dst[j] = byte_of(get(row, from + j), shift);
    }
  }
};

// One plane.  find_run3 from the end of the previous run always lands on the
// start of a maximal run (the byte before it differs or starts the pending
// literal), so runs are found whole and runs of 1 or 2 stay in the literal.
template <class T>
std::uint8_t *encode_plane(const T *s, int n, unsigned shift, std::uint8_t *o,
                           const std::uint8_t *limit) {
  PlaneWriter<T> w{s, n, shift, o, limit};
  int literal = 0;  // start of the pending literal
  for (int i = 0;;) {
    int start = find_run3(s, i, n, shift);
    if (start >= n) break;
    std::uint8_t v = byte_of(get(s, start), shift);
    int end = run_end(s, start + 3, n, shift, v);
    w.literal(literal, start);
    w.run(v, end - start);
    literal = i = end;
  }
  w.literal(literal, n);
  return w.o;
}

// The input of one byte plane: the chunk bytes not yet used and the samples
// the plane still has to cover.
struct PlaneInput {
  const std::uint8_t *p;
  const std::uint8_t *end;
  int left;
};

// Decodes whole packets of a byte plane into dst, which has room for `room`
// bytes, until at least `want` bytes are there (a packet may carry it up to
// 127 past `want`, room permitting), the plane is covered, or the next packet
// does not fit the input left, the samples left or the room; that packet is
// left unused, so a malformed plane simply stops making progress.  Returns
// the bytes decoded.
//
// While 128 bytes of room, 128 samples and 129 input bytes are left, no
// packet can overrun anything, so the checks drop out and packets are copied
// in fixed blocks (a literal as one 128-byte copy, a run in 16-byte stores)
// that may run past the packet: the next packet overwrites the excess.  That
// keeps library calls and size-dependent branches out of the short packets
// of grainy images.
int decode_bytes(PlaneInput &in, std::uint8_t *dst, int want, int room) {
  constexpr int kBlock = 16;
  const std::uint8_t *p = in.p;
  const std::uint8_t *end = in.end;
  const int limit = std::min(in.left, room);
  int i = 0;
  while (i < want && limit - i >= 128 && end - p >= 129) {
    int count = static_cast<std::int8_t>(*p);
    if (count >= 0) {
      std::uint8_t block[kBlock];
      std::memset(block, p[1], kBlock);
      for (int j = 0; j <= count; j += kBlock) std::memcpy(dst + i + j, block, kBlock);
      p += 2;
      i += count + 1;
    } else {
      std::memcpy(dst + i, p + 1, 128);
      p += 1 - count;
      i -= count;
    }
  }
  while (i < want && i < limit && p < end) {
    int count = static_cast<std::int8_t>(*p);
    std::size_t in_left = static_cast<std::size_t>(end - p) - 1;
    if (count >= 0) {
      if (in_left < 1 || count + 1 > limit - i) break;
      std::memset(dst + i, p[1], static_cast<std::size_t>(count) + 1);
      p += 2;
      i += count + 1;
    } else {
      if (in_left < static_cast<std::size_t>(-count) || -count > limit - i) break;
      std::memcpy(dst + i, p + 1, static_cast<std::size_t>(-count));
      p += 1 - count;
      i -= count;
    }
  }
  in.p = p;
  in.left -= i;
  return i;
}

// Puts k plane bytes into samples at the plane's shift: the first plane sets
// the samples, later planes add their byte.
template <class T>
void merge_plane(T *out, const std::uint8_t *bytes, int k, unsigned shift, bool first) {
  if (first) {
    for (int j = 0; j < k; ++j) put(out, j, static_cast<T>(T{bytes[j]} << shift));
  } else {
    for (int j = 0; j < k; ++j) put(out, j, static_cast<T>(get(out, j) | (T{bytes[j]} << shift)));
  }
}

// One byte plane of wider samples, decoded a window at a time into a small
// byte buffer and merged into the samples.  The buffer has a packet's worth
// of slack past the window; what a packet leaves beyond the window is carried
// to the front for the next one.  Returns the samples covered.
template <class T>
int decode_wide_plane(PlaneInput &in, T *out, unsigned shift, bool first) {
  constexpr int kWindow = 2048;
  constexpr int kRoom = kWindow + 128;
  std::uint8_t bytes[kRoom];
  const int n = in.left;
  int done = 0;  // samples merged
  int held = 0;  // bytes decoded but not merged yet
  while (done < n) {
    held += decode_bytes(in, bytes + held, kWindow - held, kRoom - held);
    int take = std::min(held, kWindow);
    if (take == 0) break;
    merge_plane(out + done, bytes, take, shift, first);
    done += take;
    held -= take;
    std::memmove(bytes, bytes + take, static_cast<std::size_t>(held));
  }
  return done;
}

// Shift that brings plane `plane` (0 = most significant) of a Bytes-wide
// sample down to the low byte.
template <int Bytes>
constexpr unsigned plane_shift(int plane) {
  return static_cast<unsigned>(8 * (Bytes - 1 - plane));
}

// Width factor of the buffer bounds: 1, 2, 4 or 8 for channels of at most 8,
// 16, 32 or more bits.
std::size_t width_factor(int max_bits) {
  return max_bits <= 8 ? 1 : max_bits <= 16 ? 2 : max_bits <= 32 ? 4 : 8;
}

}  // namespace

template <int Bytes>
std::size_t encode_row(const Sample<Bytes> *samples, int n, std::uint8_t *out) {
  std::uint8_t *o = out;
  if (n <= 0) return 0;
  const std::uint8_t *limit = out + encode_buffer_size(n, 8 * Bytes);
  for (int plane = 0; plane < Bytes; ++plane) {
    o = encode_plane(samples, n, plane_shift<Bytes>(plane), o, limit);
  }
  return static_cast<std::size_t>(o - out);
}

template <int Bytes>
int decode_row(const std::uint8_t *in, std::size_t len, int n, Sample<Bytes> *out,
               std::size_t *consumed) {
  PlaneInput input{in, in + len, 0};
  int decoded = 0;
  if constexpr (Bytes == 1) {
    input.left = n > 0 ? n : 0;
    decoded = decode_bytes(input, out, input.left, input.left);
  } else {
    for (int plane = 0; plane < Bytes && n > 0 && (plane == 0 || decoded == n); ++plane) {
      input.left = n;
      decoded = decode_wide_plane(input, out, plane_shift<Bytes>(plane), plane == 0);
    }
  }
  if (consumed != nullptr) *consumed = static_cast<std::size_t>(input.p - in);
  return decoded;
}

std::size_t decode_buffer_size(int active_width, int max_bits) {
  std::size_t w = active_width > 0 ? static_cast<std::size_t>(active_width) : 0;
  return w * 2 * width_factor(max_bits);
}

std::size_t encode_buffer_size(int active_width, int max_bits) {
  std::size_t w = active_width > 0 ? static_cast<std::size_t>(active_width) : 0;
  std::size_t factor = width_factor(max_bits);
  // 3, 4, 6 or 10 bytes of slack for 1, 2, 4 or 8 bytes a sample.
  std::size_t slack = factor == 1 ? 3 : factor + 2;
  return (w + w / 127) * factor + slack;
}

template std::size_t encode_row<1>(const std::uint8_t *, int, std::uint8_t *);
template std::size_t encode_row<2>(const std::uint16_t *, int, std::uint8_t *);
template std::size_t encode_row<4>(const std::uint32_t *, int, std::uint8_t *);
template int decode_row<1>(const std::uint8_t *, std::size_t, int, std::uint8_t *, std::size_t *);
template int decode_row<2>(const std::uint8_t *, std::size_t, int, std::uint16_t *, std::size_t *);
template int decode_row<4>(const std::uint8_t *, std::size_t, int, std::uint32_t *, std::size_t *);

}  // namespace orx::rla
