// The byte-order helpers against a model of their one rule per type: the
// integers are big-endian in files, everything else passes in host order,
// and pointers are never stored.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <random>
#include <vector>

#include "orx/byt.h"

namespace {

using Bytes = std::vector<unsigned char>;

struct Helpers {
  const char *type;
  std::size_t width;
  bool swapped;
  void (*decode)(const void *, void *);
  void (*encode)(const void *, void *);
  int (*read)(FILE *, void *);
  int (*write)(FILE *, const void *);
};

#define ORX_BYT_HELPERS(type, width, swapped)                                            \
  Helpers {                                                                              \
    #type, width, swapped, BYT_decode_##type, BYT_encode_##type, BYT_read_##type, BYT_write_##type \
  }
const Helpers kTypes[] = {
    ORX_BYT_HELPERS(char, 1, false),  ORX_BYT_HELPERS(double, 8, false),
    ORX_BYT_HELPERS(float, 4, false), ORX_BYT_HELPERS(int, 4, true),
    ORX_BYT_HELPERS(long, 4, true),   ORX_BYT_HELPERS(short, 2, true),
};
#undef ORX_BYT_HELPERS

Bytes file_order(Bytes host, bool swapped) {
  if (swapped && std::endian::native == std::endian::little)
    std::reverse(host.begin(), host.end());
  return host;
}

Bytes contents(FILE *f) {
  Bytes all;
  std::rewind(f);
  for (int c; (c = std::fgetc(f)) != EOF;) all.push_back(static_cast<unsigned char>(c));
  return all;
}

TEST(ByteOrder, EveryTypeFollowsItsRuleBothWaysInMemoryAndFiles) {
  std::mt19937 rng(99);
  for (const Helpers &h : kTypes) {
    SCOPED_TRACE(h.type);
    for (int round = 0; round < 50; ++round) {
      Bytes host(h.width), out(h.width), back(h.width);
      for (auto &b : host) b = static_cast<unsigned char>(rng());
      const Bytes expected = file_order(host, h.swapped);
      h.encode(host.data(), out.data());
      ASSERT_EQ(out, expected);
      h.decode(out.data(), back.data());
      ASSERT_EQ(back, host);

      FILE *f = std::tmpfile();
      ASSERT_EQ(h.write(f, host.data()), 1);
      ASSERT_EQ(contents(f), expected);
      std::rewind(f);
      std::fill(back.begin(), back.end(), 0);
      ASSERT_EQ(h.read(f, back.data()), 1);
      ASSERT_EQ(back, host);
      ASSERT_EQ(h.read(f, back.data()), 0);  // at the end of the file
      std::fclose(f);
    }
    // A short stream, and one that cannot be written.
    FILE *f = std::tmpfile();
    Bytes value(h.width, 1);
    std::fwrite(value.data(), 1, h.width - 1, f);
    std::rewind(f);
    EXPECT_EQ(h.read(f, value.data()), 0);
    std::fclose(f);
    FILE *read_only = std::fopen("/dev/null", "r");
    EXPECT_EQ(h.write(read_only, value.data()), 0);
    std::fclose(read_only);
  }
  // The documented examples, independent of the host.
  std::int32_t i = 258;
  std::int16_t s = 256;
  unsigned char bytes[4];
  BYT_encode_int(&i, bytes);
  EXPECT_EQ(Bytes(bytes, bytes + 4), (Bytes{0, 0, 1, 2}));
  BYT_encode_short(&s, bytes);
  EXPECT_EQ(Bytes(bytes, bytes + 2), (Bytes{1, 0}));
}

TEST(ByteOrder, PointersNeverTouchTheStreamAndReadAsNull) {
  FILE *f = std::tmpfile();
  std::fputs("pointer!", f);
  std::rewind(f);
  void *p = f;
  EXPECT_EQ(BYT_read_pointer(f, &p), 1);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(std::ftell(f), 0);
  p = f;
  EXPECT_EQ(BYT_write_pointer(f, &p), 1);
  EXPECT_EQ(std::ftell(f), 0);
  std::fclose(f);
  for (auto code : {BYT_encode_pointer, BYT_decode_pointer}) {
    std::uint64_t slot = ~std::uint64_t{0};
    code(&p, &slot);
    EXPECT_EQ(slot, 0u);
  }
}

}  // namespace
