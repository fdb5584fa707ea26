#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "formats/rla/rle.hpp"

namespace {

using orx::rla::decode_row;
using orx::rla::encode_buffer_size;
using orx::rla::encode_row;
using orx::rla::Sample;
using Bytes = std::vector<std::uint8_t>;

// Encodes into a buffer of exactly the documented size, so that the address
// sanitizer catches any write past it.  Channel rows are only rounded to an
// even byte count, so a row of wide samples may start two bytes past a
// multiple of their size: the samples are encoded from such a place.
template <int N>
Bytes encode(const std::vector<Sample<N>> &samples) {
  int n = static_cast<int>(samples.size());
  Bytes row(2 + samples.size() * N);
  if (!samples.empty()) std::memcpy(row.data() + 2, samples.data(), samples.size() * N);
  Bytes out(encode_buffer_size(n, 8 * N));
  out.resize(encode_row<N>(reinterpret_cast<const Sample<N> *>(row.data() + 2), n, out.data()));
  return out;
}

TEST(RlaRle, FloatAndDoubleChannelsAreHostOrderCopiesAndEmptyRowsEncodeToNothing) {
  EXPECT_TRUE(encode<1>({}).empty());
  const double d[1] = {0.1};
  std::uint8_t bytes[8];
  EXPECT_EQ(orx::rla::encode_raw(d, 1, bytes), 8u);
  EXPECT_EQ(std::memcmp(bytes, d, 8), 0);
  // A chunk holding fewer whole samples than asked gives a short count.
  float back[2] = {};
  EXPECT_EQ(orx::rla::decode_raw(bytes, 8, 2, back), 2);
  EXPECT_EQ(orx::rla::decode_raw(bytes, 7, 2, back), 1);
}

// Encoding bounds are held by encode() above (an exact buffer under the
// sanitizers); decoding needs one sample slot per plane byte.
TEST(RlaRle, DecodeBufferFollowsTheLargestChannelWidth) {
  EXPECT_EQ(orx::rla::decode_buffer_size(100, 8), 200u);
  EXPECT_EQ(orx::rla::decode_buffer_size(100, 9), 400u);
  EXPECT_EQ(orx::rla::decode_buffer_size(100, 64), 1600u);
  EXPECT_EQ(orx::rla::plane_count(33), 0);
}


// The packets the rules call for, written out the plain way, one plane at a
// time: the model the fast encoder must match byte for byte.
template <class T>
void model_plane(const std::vector<T> &s, unsigned shift, Bytes &out) {
  auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(s[i] >> shift); };
  auto literal = [&](std::size_t from, std::size_t to) {
    for (; from < to; from += 128) {
      std::size_t k = std::min<std::size_t>(to - from, 128);
      out.push_back(static_cast<std::uint8_t>(-static_cast<int>(k)));
      for (std::size_t j = 0; j < k; ++j) out.push_back(byte(from + j));
    }
  };
  std::size_t pending = 0;
  for (std::size_t i = 0; i < s.size();) {
    std::size_t j = i;
    while (j < s.size() && byte(j) == byte(i)) ++j;
    if (j - i >= 3) {
      literal(pending, i);
      for (std::size_t r = j - i; r > 0; r -= std::min<std::size_t>(r, 128)) {
        out.push_back(static_cast<std::uint8_t>(std::min<std::size_t>(r, 128) - 1));
        out.push_back(byte(i));
      }
      pending = j;
    }
    i = j;
  }
  literal(pending, s.size());
}

// Rows with runs of every length, grain, and long literals.
template <class T>
std::vector<T> random_row(std::mt19937 &rng, int n) {
  std::vector<T> row;
  std::uniform_int_distribution<int> kind(0, 2), run_len(1, 300), noise(0, 3);
  while (static_cast<int>(row.size()) < n) {
    T v = static_cast<T>(rng());
    int len = run_len(rng);
    switch (kind(rng)) {
      case 0:
        row.insert(row.end(), static_cast<std::size_t>(len), v);
        break;
      case 1:  // few values: short runs everywhere
        for (int i = 0; i < len; ++i) row.push_back(static_cast<T>(v + noise(rng)));
        break;
      default:
        for (int i = 0; i < len; ++i) row.push_back(static_cast<T>(rng()));
    }
  }
  row.resize(static_cast<std::size_t>(n));
  return row;
}

template <int N>
void check_round_trips(std::mt19937 &rng) {
  using T = Sample<N>;
  // Wide rows too: decoders may work through a row in pieces.
  std::uniform_int_distribution<int> width(1, 1500), wide(2000, 9000);
  for (int trial = 0; trial < 400; ++trial) {
    int n = trial < 8 ? trial + 1 : trial % 8 == 0 ? wide(rng) : width(rng);
    std::vector<T> row = random_row<T>(rng, n);
    Bytes chunk = encode<N>(row);
    Bytes expected;
    for (int plane = 0; plane < N; ++plane) {
      model_plane(row, static_cast<unsigned>(8 * (N - 1 - plane)), expected);
    }
    ASSERT_EQ(chunk, expected) << "width " << n << ", sample bytes " << N;

    Bytes back(2 + row.size() * N);  // decoded to a place aligned to two bytes only
    T *out = reinterpret_cast<T *>(back.data() + 2);
    std::size_t used = 0;
    ASSERT_EQ(decode_row<N>(chunk.data(), chunk.size(), n, out, &used), n);
    ASSERT_EQ(used, chunk.size());
    ASSERT_EQ(std::memcmp(out, row.data(), row.size() * N), 0) << "width " << n << ", bytes " << N;
  }
}

TEST(RlaRle, EncodeMatchesTheRulesAndDecodesBackForEveryWidth) {
  std::mt19937 rng(20240611);
  check_round_trips<1>(rng);
  check_round_trips<2>(rng);
  check_round_trips<4>(rng);
}

// Straightforward decoder: per plane, stop at the first packet that does not
// fit; the samples before it are what a decoder must have produced.
template <class T>
int model_decode(const Bytes &in, int n, std::vector<T> &out, std::size_t &used) {
  std::size_t p = 0;
  int got = 0;
  for (int plane = 0; plane < static_cast<int>(sizeof(T)); ++plane) {
    unsigned shift = static_cast<unsigned>(8 * (sizeof(T) - 1 - plane));
    got = 0;
    while (got < n && p < in.size()) {
      int c = static_cast<std::int8_t>(in[p]);
      int k = c >= 0 ? c + 1 : -c;
      std::size_t need = c >= 0 ? 1 : static_cast<std::size_t>(k);
      if (in.size() - p - 1 < need || k > n - got) break;
      for (int j = 0; j < k; ++j) {
        T b = static_cast<T>(T{in[p + 1 + (c >= 0 ? 0 : static_cast<std::size_t>(j))]} << shift);
        T &s = out[static_cast<std::size_t>(got + j)];
        s = static_cast<T>(plane == 0 ? b : (s | b));
      }
      p += 1 + need;
      got += k;
    }
    if (got < n) break;
  }
  used = p;
  return got;
}

template <int N>
void check_garbage(std::mt19937 &rng) {
  using T = Sample<N>;
  std::uniform_int_distribution<int> width(0, 700), wide(2000, 5000), byte(0, 255), flips(0, 4);
  std::uniform_int_distribution<std::size_t> len(0, 1600);
  for (int trial = 0; trial < 3000; ++trial) {
    int n = trial % 16 == 1 ? wide(rng) : width(rng);
    Bytes in;
    if (trial % 2 == 0) {
      in.resize(len(rng));
      for (auto &b : in) b = static_cast<std::uint8_t>(byte(rng));
    } else {
      // A valid chunk, damaged: it decodes far before going wrong.
      in = encode<N>(random_row<T>(rng, n));
      for (int f = flips(rng); f > 0 && !in.empty(); --f) {
        in[static_cast<std::size_t>(rng()) % in.size()] = static_cast<std::uint8_t>(byte(rng));
      }
      if (!in.empty() && trial % 4 == 1) in.resize(static_cast<std::size_t>(rng()) % in.size());
    }
    // Exact sizes, on the heap: any read or write past them is caught.
    std::vector<T> out(static_cast<std::size_t>(n));
    std::vector<T> model(static_cast<std::size_t>(n));
    std::size_t used = 0;
    std::size_t model_used = 0;
    int got = decode_row<N>(in.empty() ? nullptr : in.data(), in.size(), n,
                            n == 0 ? nullptr : out.data(), &used);
    int expected = model_decode(in, n, model, model_used);
    ASSERT_EQ(got, expected);
    ASSERT_EQ(used, model_used);
    ASSERT_TRUE(std::equal(out.begin(), out.begin() + got, model.begin()));
  }
}

TEST(RlaRle, ArbitraryBytesNeverOverrunAndDecodeLikeThePlainRules) {
  std::mt19937 rng(7);
  check_garbage<1>(rng);
  check_garbage<2>(rng);
  check_garbage<4>(rng);
}

}  // namespace
