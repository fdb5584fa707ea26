#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
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

  // Where numbers land: window right, frame -1, the storage codes, revision
  // -2, job, field, the auxiliary width and the link.
  const struct {
    std::size_t at, size;
    std::uint32_t value;
  } numbers[] = {{2, 2, 1919},     {16, 2, 0xFFFF}, {18, 2, 0},   {660, 2, 4},
                 {664, 2, 5},      {26, 2, 0xFFFE}, {140, 4, std::uint32_t(-123456)},
                 {612, 2, 2},      {666, 2, 64},    {736, 4, 0x01020304u}};
  for (const auto &n : numbers)
    EXPECT_EQ(n.size == 2 ? load_be16(bytes + n.at) : load_be32(bytes + n.at), n.value) << n.at;
  EXPECT_STREQ(reinterpret_cast<const char *>(bytes + 548), "hd_1080");
  for (std::size_t i = 700; i < 736; ++i) EXPECT_EQ(bytes[i], 0) << "reserved byte " << i;

  // A file that fills a whole text field without a NUL still reads terminated.
  std::memset(bytes + 464, 'm', 32);
  decode_header(bytes, false, &back);
  EXPECT_EQ(std::string(back.machine.data()), std::string(32, 'm'));

  // The writer always produces the current layout.
  h.revision = 0;
  encode_header(h, bytes);
  EXPECT_EQ(static_cast<std::int16_t>(load_be16(bytes + 26)), -2);
}

// The validity rules written out plainly: both windows ordered and not
// negative, the active one inside the other, an aspect or an aspect ratio,
// at most three image channels (the count taken unsigned), the matte count
// and the storage codes not negative; the reader's variant skips the matte's.
bool model_valid(const Header &h, MatteStorageRule rule) {
  const auto ordered = [](const Window &w) {
    return std::min({w.left, w.right, w.bottom, w.top}) >= 0 && w.left <= w.right &&
           w.bottom <= w.top;
  };
  const Window &w = h.window, &a = h.active;
  return ordered(w) && ordered(a) && a.left >= w.left && a.right <= w.right &&
         a.bottom >= w.bottom && a.top <= w.top && (h.aspect[0] != 0 || h.aspect_ratio[0] != 0) &&
         h.image.count >= 0 && h.image.count <= 3 && h.matte.count >= 0 && h.image.storage >= 0 &&
         (rule == MatteStorageRule::kSkip || h.matte.storage >= 0);
}

// Headers whose bounds lie next to every limit of the rules.
TEST(RlaHeader, ValidityFollowsTheRulesNextToEveryBound) {
  std::mt19937 rng(11);
  const auto near = [&](int lo, int hi) {
    return static_cast<int16_t>(lo + static_cast<int>(rng() % unsigned(hi - lo + 1)));
  };
  int valid = 0;
  for (int i = 0; i < 20000; ++i) {
    Header h = full_header();
    h.window = {near(-1, 2), near(3, 5), near(-1, 2), near(3, 5)};
    h.active = {near(-1, 4), near(1, 6), near(-1, 4), near(1, 6)};
    if (rng() % 4 == 0) h.aspect.fill(0);
    if (rng() % 4 == 0) h.aspect_ratio.fill(0);
    h.image.count = near(-1, 4);
    h.matte.count = near(-1, 1);
    h.image.storage = near(-1, 1);
    h.matte.storage = near(-1, 1);
    for (MatteStorageRule rule : {MatteStorageRule::kApply, MatteStorageRule::kSkip})
      ASSERT_EQ(header_valid(h, rule), model_valid(h, rule)) << i;
    valid += header_valid(h);
  }
  EXPECT_GT(valid, 100);
  // An upside-down active window has no rows and no offset table.
  Header h = full_header();
  EXPECT_EQ(offset_table_size(active_rows(h)), 981u * 4);
  h.active.top = 10;
  EXPECT_EQ(offset_table_size(active_rows(h)), 0u);
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
