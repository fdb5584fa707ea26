#include <random>

#include "formats/rla/rla_files.hpp"

namespace {

using namespace orx::test;
using RlaRoundTrip = RlaTest;

void round_trip(const std::string &path, const std::vector<ImageShape> &shapes) {
  write_file(path, shapes);
  ORX_OBJECT *object = reader_object(path);
  ASSERT_EQ(ORX_rla_r_open(object), 1) << path;
  ASSERT_EQ(object->info.image_count, static_cast<int32_t>(shapes.size()));
  for (std::size_t i = 0; i < shapes.size(); ++i) {
    const ORX_IFD &ifd = object->info.images[i];
    EXPECT_EQ(ifd.version, i == 0 ? 1 : 2);
    EXPECT_EQ(ifd.window.right, shapes[i].window.right);
    EXPECT_EQ(ifd.active.left, shapes[i].active.left);
    EXPECT_EQ(ifd.image.count, shapes[i].image.count);
    EXPECT_EQ(ifd.matte.count, shapes[i].matte.count);
    EXPECT_EQ(ifd.aux.count, shapes[i].aux.count);
    EXPECT_EQ(ifd.image.type, shapes[i].image.type);
  }
  expect_pattern(object);
  EXPECT_EQ(object->close(object, 0), 0);
}

// Files of one to three random descriptions: every integer width, float
// and double groups, mattes and auxiliaries, windows up to several 128-sample
// packets wide, active windows padded on any side.
TEST_F(RlaRoundTrip, RandomDescriptionsReadBackAsWritten) {
  std::mt19937 rng(20240611);
  const auto pick = [&](int lo, int hi) { return lo + static_cast<int>(rng() % unsigned(hi - lo + 1)); };
  const auto group = [&](int least, int most) -> Group {
    const int count = pick(least, most), kind = pick(0, 5);
    if (kind == 0) return {count, ORX_C_FLOAT, 32};
    if (kind == 1) return {count, ORX_C_DOUBLE, 64};
    return {count, ORX_C_INTEGER, pick(1, 32)};
  };
  for (int file = 0; file < 40; ++file) {
    std::vector<ImageShape> shapes(static_cast<std::size_t>(pick(1, 3)));
    for (ImageShape &s : shapes) {
      ORX_WINDOW &w = s.window, &a = s.active;
      w.left = pick(0, 3), w.right = w.left + pick(0, 300);
      w.bottom = pick(0, 2), w.top = w.bottom + pick(0, 7);
      a.left = pick(w.left, w.right), a.right = pick(a.left, w.right);
      a.bottom = pick(w.bottom, w.top), a.top = pick(a.bottom, w.top);
      s.image = group(1, 3), s.matte = group(0, 1), s.aux = group(0, 2);
    }
    SCOPED_TRACE(file);
    round_trip(dir.file("r" + std::to_string(file) + ".rla"), shapes);
  }
}

TEST_F(RlaRoundTrip, MultiImageFilesLinkEveryHeaderAndReadInAnyOrder) {
  const ImageShape b{{0, 20, 0, 7}, {3, 17, 2, 5}, {1, ORX_C_INTEGER, 16}, {1, ORX_C_FLOAT, 32}};
  const ImageShape c{.window = {0, 3, 0, 2}, .active = {0, 3, 0, 2}};
  const std::string path = dir.file("multi.rla");
  round_trip(path, {ImageShape{}, b, c});

  // Next links: image 0 -> image 1 -> image 2 -> 0.
  std::vector<uint8_t> bytes = load(path);
  const uint32_t second = be32(bytes, 736);
  ASSERT_GT(second, 740u);
  const uint32_t third = be32(bytes, second + 736);
  ASSERT_GT(third, second);
  EXPECT_EQ(be32(bytes, third + 736), 0u);
  // The last header's time and filter stand for the file.
  std::memcpy(&bytes[third + 614], "11:11:11", 9);
  std::memcpy(&bytes[third + 626], "box", 4);
  save_bytes(path, bytes);

  // Interleaved reading across images and backwards within one.
  ORX_OBJECT *object = reader_object(path);
  ASSERT_EQ(ORX_rla_r_open(object), 1);
  EXPECT_STREQ(object->info.time, "11:11:11");
  EXPECT_STREQ(object->info.filter, "box");
  for (int y = 5; y >= 0; --y) {
    for (int i : {1, 0, 2}) {
      const ORX_IFD &ifd = object->info.images[i];
      if (y > ifd.window.top) continue;
      void **rows = nullptr;
      ASSERT_EQ(object->scan(object->private_cell[i], y, &rows), 0);
      EXPECT_TRUE(holds_pattern(ifd, rows, y)) << "image " << i;
    }
  }
  EXPECT_EQ(object->close(object, 0), 0);
}

TEST_F(RlaRoundTrip, HeaderTextsAndChromaticitiesSurvive) {
  const std::string path = dir.file("texts.rla");
  ORX_OBJECT *object = writer_object(path, {ImageShape{}});
  ORX_INFO &info = object->info;
  info.name = STR_save("shot_010");
  info.desc = STR_save(std::string(200, 'd').c_str());  // longer than its field
  info.program = STR_save("render");
  info.machine = STR_save("host1");
  info.user = STR_save("ann");
  info.date = STR_save("Jan  1 2025");
  info.filter = STR_save("box");
  info.job = 77;
  info.frame = 12;
  info.red[0] = 0.64f;
  info.red[1] = 0.33f;
  info.images[0].curve.gamma = 1.8f;
  info.images[0].image.name = STR_save("rgb");
  info.images[0].aux.name = STR_save("depth");
  info.images[0].field = 2;
  ASSERT_EQ(ORX_rla_w_open(object), 1);
  write_all_rows_and_close(object);

  object = reader_object(path);
  ASSERT_EQ(ORX_rla_r_open(object), 1);
  EXPECT_STREQ(object->info.name, "shot_010");
  EXPECT_EQ(std::string(object->info.desc), std::string(127, 'd'));
  EXPECT_STREQ(object->info.program, "render");
  EXPECT_STREQ(object->info.machine, "host1");
  EXPECT_STREQ(object->info.user, "ann");
  EXPECT_STREQ(object->info.date, "Jan  1 2025");
  EXPECT_STREQ(object->info.filter, "box");
  EXPECT_STREQ(object->info.time, "00:00:00");
  EXPECT_EQ(object->info.job, 77);
  EXPECT_EQ(object->info.frame, 12);
  EXPECT_NEAR(object->info.red[0], 0.64, 1e-4);
  EXPECT_NEAR(object->info.red[2], 0.03, 1e-4);
  EXPECT_NEAR(object->info.white[1], 0.316, 1e-4);
  const ORX_IFD &ifd = object->info.images[0];
  EXPECT_NEAR(ifd.curve.gamma, 1.8, 1e-4);
  EXPECT_STREQ(ifd.aspect, "ntsc_640");
  EXPECT_STREQ(ifd.image.name, "rgb");
  EXPECT_STREQ(ifd.aux.name, "depth");
  EXPECT_EQ(ifd.field, 2);
  EXPECT_EQ(object->close(object, 0), 0);

  // A chromaticity holding x alone changes x; z follows what x and y are.
  std::vector<uint8_t> bytes = load(path);
  std::memcpy(&bytes[68], "0.5", 4);
  save_bytes(path, bytes);
  object = reader_object(path);
  ASSERT_EQ(ORX_rla_r_open(object), 1);
  EXPECT_EQ(object->info.green[0], 0.5f);
  EXPECT_FLOAT_EQ(object->info.green[2], 1.0f - 0.5f - object->info.green[1]);
  EXPECT_EQ(object->close(object, 0), 0);
}

}  // namespace
