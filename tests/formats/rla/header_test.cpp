#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "formats/rla/header.hpp"
#include "orx/orx.h"
#include "support/fixtures.hpp"

namespace {

using namespace orx::rla;

template <std::size_t N>
void set(std::array<char, N> &text, const std::string &value) {
  text.fill('\0');
  std::memcpy(text.data(), value.data(), std::min(value.size(), N - 1));
}

template <std::size_t N>
std::string str(const std::array<char, N> &text) {
  return text.data();
}

// A header every rule accepts, with a distinct value in every field.
Header full_header() {
  Header h;
  h.window = {0, 1919, 0, 1079};
  h.active = {10, 1900, 20, 1000};
  h.frame = -1;
  h.image = {3, storage_code(ORX_C_INTEGER), 16, ORX_C_INTEGER};
  h.matte = {1, storage_code(ORX_C_FLOAT), 32, ORX_C_FLOAT};
  h.aux = {2, storage_code(ORX_C_DOUBLE), 64, ORX_C_DOUBLE};
  set(h.gamma, " 2.2000");
  set(h.red, " 0.6700  0.3300");
  set(h.green, " 0.2100  0.7100");
  set(h.blue, " 0.1400  0.0800");
  set(h.white, " 0.3100  0.3160");
  h.job = -123456;
  set(h.name, "shot_010");
  set(h.desc, "comp with grain");
  set(h.program, "renderer");
  set(h.machine, "node17");
  set(h.user, "artist");
  set(h.date, "{86400}");
  set(h.aspect, "hd_1080");
  set(h.aspect_ratio, "1.778");
  set(h.channel_desc, "rgb");
  h.field = 2;
  set(h.time, "01:02:03");
  set(h.filter, "gaussian");
  set(h.aux_desc, "depth");
  h.next = 0x01020304;
  return h;
}

TEST(RlaHeader, EveryFieldSurvivesEncodeAndDecodeAtItsOffset) {
  Header h = full_header();
  HeaderBytes bytes;
  encode_header(h, bytes);
  Header back;
  decode_header(bytes, false, &back);
  EXPECT_TRUE(back == h);

  EXPECT_EQ(load_be16(bytes + 2), 1919);
  EXPECT_EQ(load_be16(bytes + 16), 0xFFFF);  // frame -1
  EXPECT_EQ(load_be16(bytes + 18), 0);
  EXPECT_EQ(load_be16(bytes + 660), 4);
  EXPECT_EQ(load_be16(bytes + 664), 5);
  EXPECT_EQ(bytes[26], 0xFF);  // revision -2
  EXPECT_EQ(bytes[27], 0xFE);
  EXPECT_EQ(static_cast<std::int32_t>(load_be32(bytes + 140)), -123456);
  EXPECT_STREQ(reinterpret_cast<const char *>(bytes + 548), "hd_1080");
  EXPECT_EQ(load_be16(bytes + 612), 2);
  EXPECT_EQ(load_be16(bytes + 666), 64);
  EXPECT_EQ(load_be32(bytes + 736), 0x01020304u);
  for (std::size_t i = 700; i < 736; ++i) EXPECT_EQ(bytes[i], 0) << "reserved byte " << i;

  // The writer always produces the current layout.
  h.revision = 0;
  encode_header(h, bytes);
  EXPECT_EQ(static_cast<std::int16_t>(load_be16(bytes + 26)), -2);
}

TEST(RlaHeader, TextsKeepAtMostTheirWidthLessOneAndAlwaysEndInNul) {
  Header h = full_header();
  set(h.name, std::string(200, 'n'));  // Text<128> holds 128 characters
  set(h.date, std::string(20, 'd'));
  set(h.time, "123456789012");
  HeaderBytes bytes;
  encode_header(h, bytes);
  EXPECT_EQ(bytes[144 + 126], 'n');
  EXPECT_EQ(bytes[144 + 127], 0);
  EXPECT_EQ(bytes[528 + 18], 'd');
  EXPECT_EQ(bytes[528 + 19], 0);
  Header back;
  decode_header(bytes, false, &back);
  EXPECT_EQ(str(back.name), std::string(127, 'n'));
  EXPECT_EQ(str(back.date), std::string(19, 'd'));
  EXPECT_EQ(str(back.time), "12345678901");

  // A file that fills a whole field without a NUL still reads terminated.
  std::memset(bytes + 464, 'm', 32);
  decode_header(bytes, false, &back);
  EXPECT_EQ(str(back.machine), std::string(32, 'm'));
}

TEST(RlaHeader, OlderRevisionsReadAsEightBitSingleImagesWhateverTheLaterFieldsHold) {
  Header h = full_header();
  HeaderBytes bytes;
  encode_header(h, bytes);
  for (int revision : {0, -1, 7}) {
    store_be16(bytes + 26, static_cast<std::uint16_t>(revision));
    Header old;
    decode_header(bytes, false, &old);
    EXPECT_EQ(old.revision, revision);
    for (const ChannelGroup *g : {&old.image, &old.matte, &old.aux}) {
      EXPECT_EQ(g->type, ORX_C_INTEGER);
      EXPECT_EQ(g->bits, 8);
    }
    EXPECT_EQ(old.next, 0u);
    EXPECT_EQ(str(old.time), "unknown");
    EXPECT_EQ(str(old.filter), "unknown");
    EXPECT_EQ(str(old.aux_desc), "");
    EXPECT_EQ(old.field, 0);
    // The counts and the raw storage codes still come through.
    EXPECT_EQ(old.image.count, 3);
    EXPECT_EQ(old.matte.storage, 4);
    EXPECT_EQ(str(old.name), "shot_010");
  }
}

TEST(RlaHeader, EachValidityRuleRefusesOnItsOwn) {
  const Header good = full_header();
  ASSERT_TRUE(header_valid(good));
  auto refused = [&](auto change) {
    Header h = good;
    change(h);
    return !header_valid(h);
  };
  // 1. coordinates not negative
  EXPECT_TRUE(refused([](Header &h) { h.window.left = -1; }));
  EXPECT_TRUE(refused([](Header &h) { h.active.bottom = -5; }));
  // 2. ordered windows
  EXPECT_TRUE(refused([](Header &h) { h.window.left = 1919, h.window.right = 100; }));
  EXPECT_TRUE(refused([](Header &h) { h.active.bottom = 1001; }));
  // An upside-down active window has no rows and no offset table.
  EXPECT_EQ(offset_table_size(active_rows(good)), 981u * 4);
  Header upside_down = good;
  upside_down.active.top = 10;
  EXPECT_EQ(offset_table_size(active_rows(upside_down)), 0u);
  // 3. active window inside the window
  EXPECT_TRUE(refused([](Header &h) { h.window.left = 11; }));
  EXPECT_TRUE(refused([](Header &h) { h.active.right = 1920; }));
  EXPECT_TRUE(refused([](Header &h) { h.window.bottom = 21; }));
  EXPECT_TRUE(refused([](Header &h) { h.active.top = 1080; }));
  // 4. aspect or aspect ratio present
  EXPECT_TRUE(refused([](Header &h) { h.aspect.fill(0), h.aspect_ratio.fill(0); }));
  EXPECT_FALSE(refused([](Header &h) { h.aspect.fill(0); }));
  EXPECT_FALSE(refused([](Header &h) { h.aspect_ratio.fill(0); }));
  // 5. at most 3 image channels taken unsigned; matte count not negative
  EXPECT_TRUE(refused([](Header &h) { h.image.count = 4; }));
  EXPECT_TRUE(refused([](Header &h) { h.image.count = -1; }));
  EXPECT_FALSE(refused([](Header &h) { h.image.count = 0; }));
  EXPECT_TRUE(refused([](Header &h) { h.matte.count = -1; }));
  // 6. storage codes not negative; the reader's variant skips the matte one
  EXPECT_TRUE(refused([](Header &h) { h.image.storage = -1; }));
  EXPECT_TRUE(refused([](Header &h) { h.matte.storage = -1; }));
  Header h = good;
  h.matte.storage = -1;
  EXPECT_TRUE(header_valid(h, MatteStorageRule::kSkip));
  h.image.storage = -1;
  EXPECT_FALSE(header_valid(h, MatteStorageRule::kSkip));
}

TEST(RlaHeader, BraceDatesExpandToLocalTime) {
  orx::test::ScopedEnv tz("TZ", "UTC");
  char out[kDateTextSize] = "untouched";
  ASSERT_TRUE(expand_date("{0}", out));
  EXPECT_STREQ(out, "Thu Jan  1 00:00:00 1970");
  ASSERT_TRUE(expand_date("{86461}", out));
  EXPECT_STREQ(out, "Fri Jan  2 00:01:01 1970");
  std::strcpy(out, "untouched");
  EXPECT_FALSE(expand_date("Mon Jun 10 2024", out));
  EXPECT_FALSE(expand_date("{soon}", out));
  EXPECT_FALSE(expand_date(nullptr, out));
  EXPECT_STREQ(out, "untouched");
}

}  // namespace
