#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "orx/byt.h"

namespace {

using Bytes = std::vector<unsigned char>;

// A temporary stream holding bytes, positioned at its start.
class Stream {
 public:
  explicit Stream(const Bytes &bytes = {}) : file_(std::tmpfile()) {
    if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), file_);
    std::rewind(file_);
  }
  ~Stream() { std::fclose(file_); }
  Stream(const Stream &) = delete;
  Stream &operator=(const Stream &) = delete;
  FILE *get() const { return file_; }
  long position() const { return std::ftell(file_); }
  Bytes contents() const {
    std::rewind(file_);
    Bytes all;
    for (int c; (c = std::fgetc(file_)) != EOF;) all.push_back(static_cast<unsigned char>(c));
    return all;
  }

 private:
  FILE *file_;
};

template <class T>
Bytes bytes_of(const T &value) {
  Bytes b(sizeof value);
  std::memcpy(b.data(), &value, sizeof value);
  return b;
}

TEST(ByteOrder, IntegersAreBigEndianInFilesAndMemory) {
  Stream in({0x00, 0x00, 0x01, 0x02, 0x01, 0x00, 0x00, 0x00, 0x00, 0x07});
  std::int32_t i = 0;
  std::int32_t l = 0;
  std::int16_t s = 0;
  EXPECT_EQ(BYT_read_int(in.get(), &i), 1);
  EXPECT_EQ(i, 258);
  EXPECT_EQ(BYT_read_short(in.get(), &s), 1);
  EXPECT_EQ(s, 256);
  EXPECT_EQ(BYT_read_long(in.get(), &l), 1);
  EXPECT_EQ(l, 7);
  EXPECT_EQ(in.position(), 10);

  Stream out;
  i = 258;
  s = 256;
  EXPECT_EQ(BYT_write_int(out.get(), &i), 1);
  EXPECT_EQ(BYT_write_short(out.get(), &s), 1);
  EXPECT_EQ(BYT_write_long(out.get(), &l), 1);
  EXPECT_EQ(i, 258);  // the source is left in host order
  EXPECT_EQ(out.contents(), (Bytes{0x00, 0x00, 0x01, 0x02, 0x01, 0x00, 0x00, 0x00, 0x00, 0x07}));

  unsigned char file_order[4];
  std::int32_t back = 0;
  i = 0x01020304;
  BYT_encode_int(&i, file_order);
  EXPECT_EQ(Bytes(file_order, file_order + 4), (Bytes{1, 2, 3, 4}));
  BYT_decode_long(file_order, &back);
  EXPECT_EQ(back, 0x01020304);
  std::int16_t half = 0;
  BYT_encode_short(&s, file_order);
  EXPECT_EQ(Bytes(file_order, file_order + 2), (Bytes{1, 0}));
  BYT_decode_short(file_order, &half);
  EXPECT_EQ(half, 256);
}

TEST(ByteOrder, FloatingPointAndCharactersPassThroughInHostOrder) {
  Stream out;
  float f = 1.5f;
  double d = -2.25;
  char c = 'Q';
  EXPECT_EQ(BYT_write_float(out.get(), &f), 1);
  EXPECT_EQ(BYT_write_double(out.get(), &d), 1);
  EXPECT_EQ(BYT_write_char(out.get(), &c), 1);
  Bytes expected = bytes_of(f);
  for (unsigned char b : bytes_of(d)) expected.push_back(b);
  expected.push_back('Q');
  EXPECT_EQ(out.contents(), expected);

  std::rewind(out.get());
  float f2 = 0;
  double d2 = 0;
  char c2 = 0;
  EXPECT_EQ(BYT_read_float(out.get(), &f2), 1);
  EXPECT_EQ(BYT_read_double(out.get(), &d2), 1);
  EXPECT_EQ(BYT_read_char(out.get(), &c2), 1);
  EXPECT_EQ(f2, 1.5f);
  EXPECT_EQ(d2, -2.25);
  EXPECT_EQ(c2, 'Q');

  double copy = 0;
  BYT_encode_double(&d, &copy);
  EXPECT_EQ(bytes_of(copy), bytes_of(d));
  float fcopy = 0;
  BYT_decode_float(&f, &fcopy);
  EXPECT_EQ(fcopy, 1.5f);
  char ccopy = 0;
  BYT_decode_char(&c, &ccopy);
  BYT_encode_char(&c, &ccopy);
  EXPECT_EQ(ccopy, 'Q');
}

TEST(ByteOrder, PointersNeverTouchTheStreamAndReadAsNull) {
  Stream in({0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x11, 0x22});
  void *p = &in;
  EXPECT_EQ(BYT_read_pointer(in.get(), &p), 1);
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(in.position(), 0);

  Stream out;
  p = &out;
  EXPECT_EQ(BYT_write_pointer(out.get(), &p), 1);
  EXPECT_TRUE(out.contents().empty());

  std::uint64_t slot = ~std::uint64_t{0};
  BYT_encode_pointer(&p, &slot);
  EXPECT_EQ(slot, 0u);
  slot = ~std::uint64_t{0};
  BYT_decode_pointer(&p, &slot);
  EXPECT_EQ(slot, 0u);
}

TEST(ByteOrder, ShortReadsAndFailedWritesGiveZero) {
  std::int32_t i = 0;
  std::int16_t s = 0;
  double d = 0;
  char c = 0;
  Stream three({0x01, 0x02, 0x03});
  EXPECT_EQ(BYT_read_int(three.get(), &i), 0);
  Stream one({0x01});
  EXPECT_EQ(BYT_read_short(one.get(), &s), 0);
  Stream empty;
  EXPECT_EQ(BYT_read_double(empty.get(), &d), 0);
  EXPECT_EQ(BYT_read_char(empty.get(), &c), 0);

  FILE *read_only = std::fopen("/dev/null", "r");
  ASSERT_NE(read_only, nullptr);
  EXPECT_EQ(BYT_write_long(read_only, &i), 0);
  EXPECT_EQ(BYT_write_float(read_only, &d), 0);
  std::fclose(read_only);
}

}  // namespace
