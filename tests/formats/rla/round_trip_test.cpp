#include <algorithm>
#include <array>
#include <random>

#include "formats/rla/rla_files.hpp"
#include "orx/fmt.h"

namespace {

using namespace orx::test;
using RlaRoundTrip = RlaTest;

// The record's texts and the widths of their fields: a text keeps at most
// the width less one characters.
struct TextField {
  char *ORX_INFO::*text;
  std::size_t width;
};
const TextField kTexts[] = {{&ORX_INFO::name, 128},   {&ORX_INFO::desc, 128},
                            {&ORX_INFO::program, 64}, {&ORX_INFO::machine, 32},
                            {&ORX_INFO::user, 32},    {&ORX_INFO::date, 20},
                            {&ORX_INFO::filter, 32}};

// Files of one to three random descriptions: every integer width, float
// and double groups, mattes and auxiliaries, windows up to several 128-sample
// packets wide, active windows padded on any side; random header texts of
// any length, numbers and chromaticities (or none).  Read back with the
// images' rows interleaved, each image backwards.
TEST_F(RlaRoundTrip, RandomDescriptionsReadBackAsWritten) {
  ScopedEnv home("HOME", dir.path());  // the built-in formats only
  FMT_exit();
  std::mt19937 rng(20240611);
  const auto pick = [&](int lo, int hi) {
    return lo + static_cast<int>(rng() % unsigned(hi - lo + 1));
  };
  const auto group = [&](int least, int most) -> Group {
    const int count = pick(least, most), kind = pick(0, 5);
    // Float and double groups may come described at any width.
    if (kind == 0) return {count, ORX_C_FLOAT, pick(1, 64)};
    if (kind == 1) return {count, ORX_C_DOUBLE, pick(1, 64)};
    return {count, ORX_C_INTEGER, pick(1, 32)};
  };
  const auto text = [&](int most) {
    std::string s(static_cast<std::size_t>(pick(0, most)), ' ');
    for (char &c : s) c = "abc xyz_0.9:"[pick(0, 11)];
    return s;
  };
  for (int file = 0; file < 40; ++file) {
    SCOPED_TRACE(file);
    std::vector<ImageShape> shapes(static_cast<std::size_t>(pick(1, 3)));
    for (ImageShape &s : shapes) {
      ORX_WINDOW &w = s.window, &a = s.active;
      w.left = pick(0, 3), w.right = w.left + pick(0, 300);
      w.bottom = pick(0, 2), w.top = w.bottom + pick(0, 7);
      a.left = pick(w.left, w.right), a.right = pick(a.left, w.right);
      a.bottom = pick(w.bottom, w.top), a.top = pick(a.bottom, w.top);
      s.image = group(1, 3), s.matte = group(0, 1), s.aux = group(0, 2);
      s.gamma = static_cast<float>(pick(5000, 30000)) / 10000.0f;
    }
    const std::string path = dir.file("r" + std::to_string(file) + ".rla");
    ORX_OBJECT *object = writer_object(path, shapes);
    ORX_INFO &info = object->info;
    // An aspect the format database knows, or not; a ratio of the image's
    // own, or none (the window's shape is stored).
    std::vector<float> ratios;
    for (std::size_t i = 0; i < shapes.size(); ++i) {
      ORX_IFD &ifd = info.images[i];
      if (pick(0, 1) == 0) ERR_free(ifd.aspect), ifd.aspect = STR_save("custom");
      ratios.push_back(ifd.aspect_ratio = pick(0, 1) == 0 ? 0.0f : float(pick(500, 3000)) / 1000);
    }
    std::vector<std::string> texts;
    for (const TextField &f : kTexts) {
      texts.push_back(text(150));
      info.*f.text = STR_save(texts.back().c_str());
    }
    const std::string channels = text(40), aux = text(40);
    info.images[0].image.name = STR_save(channels.c_str());
    info.images[0].aux.name = STR_save(aux.c_str());
    const int field = info.images[0].field = pick(0, 2);
    info.job = static_cast<int32_t>(rng());
    const int given_frame = std::array{-5, -1, 40000, pick(0, 32767)}[pick(0, 3)];
    info.frame = given_frame;  // stored clamped to 16 bits, -1 kept
    const bool chromaticities = pick(0, 3) != 0;
    for (float *xy : {info.red, info.green, info.blue, info.white})
      for (int k = 0; k < 2 && chromaticities; ++k)
        xy[k] = static_cast<float>(pick(1, 9000)) / 10000;
    const int32_t job = info.job;
    const int32_t frame = given_frame > 32767 ? 32767 : given_frame < -1 ? 0 : given_frame;
    std::vector<float> want;
    for (const float *xyz : {info.red, info.green, info.blue, info.white})
      want.insert(want.end(), xyz, xyz + 3);
    ASSERT_EQ(ORX_rla_w_open(object), 1);
    // Once open, the object says at which width each group is stored.
    for (std::size_t i = 0; i < shapes.size(); ++i)
      for (const ORX_CHANNELS *g :
           {&info.images[i].image, &info.images[i].matte, &info.images[i].aux})
        EXPECT_TRUE(g->count == 0 || g->type == ORX_C_INTEGER ||
                    g->bits == (g->type == ORX_C_FLOAT ? 32 : 64));
    write_all_rows_and_close(object);

    // Every header links to the next, the last to nothing; a record without
    // chromaticities leaves their fields blank.
    const std::vector<uint8_t> bytes = load(path);
    uint32_t at = 0;
    for (std::size_t i = 1; i < shapes.size(); ++i) ASSERT_GT(at = be32(bytes, at + 736), 0u);
    EXPECT_EQ(be32(bytes, at + 736), 0u);
    EXPECT_EQ(std::count(bytes.begin() + 44, bytes.begin() + 140, 0) == 96, !chromaticities);
    const ORX_WINDOW &w0 = shapes[0].window;
    const float shape = float(w0.right - w0.left + 1) / float(w0.top - w0.bottom + 1);
    char ratio[8];
    std::snprintf(ratio, sizeof ratio, "%5.3f", double(ratios[0] > 0 ? ratios[0] : shape));
    EXPECT_STREQ(reinterpret_cast<const char *>(&bytes[572]), ratio);

    object = reader_object(path);
    ASSERT_EQ(ORX_rla_r_open(object), 1) << path;
    ASSERT_EQ(object->info.image_count, static_cast<int32_t>(shapes.size()));
    for (std::size_t k = 0; k < texts.size(); ++k)
      EXPECT_EQ(object->info.*kTexts[k].text, texts[k].substr(0, kTexts[k].width - 1));
    // The writing time is stamped in the first header; the last one's is read.
    EXPECT_STREQ(object->info.time, shapes.size() == 1 ? "00:00:00" : "");
    EXPECT_EQ(object->info.job, job);
    EXPECT_EQ(object->info.frame, frame);
    // Written chromaticities come back with z following x and y; none, as
    // the placeholders of a fresh record.
    const float *read[] = {object->info.red, object->info.green, object->info.blue,
                           object->info.white};
    for (std::size_t c = 0; c < 4; ++c) {
      const float *w = &want[3 * c];
      EXPECT_NEAR(read[c][0], w[0], 1e-4);
      EXPECT_NEAR(read[c][1], w[1], 1e-4);
      EXPECT_NEAR(read[c][2], chromaticities ? 1 - w[0] - w[1] : w[2], 1e-4);
    }
    const ORX_IFD &first = object->info.images[0];
    EXPECT_EQ(first.image.name, channels.substr(0, 31));
    EXPECT_EQ(first.aux.name, aux.substr(0, 31));
    EXPECT_EQ(first.field, field);
    for (std::size_t i = 0; i < shapes.size(); ++i) {
      const ORX_IFD &ifd = object->info.images[i];
      const int width = ifd.window.right - ifd.window.left + 1;
      const int height = ifd.window.top - ifd.window.bottom + 1;
      if (std::string(ifd.aspect) == "ntsc_640") {  // the database's
        EXPECT_EQ(ifd.aspect_ratio, 1.33f);
        EXPECT_EQ(ifd.x_resolution, 640);
        EXPECT_EQ(ifd.y_resolution, 486);
      } else {
        EXPECT_STREQ(ifd.aspect, "custom");
        EXPECT_NEAR(ifd.aspect_ratio, ratios[i] > 0 ? ratios[i] : float(width) / float(height),
                    5e-4);
        EXPECT_EQ(ifd.x_resolution, width);
        EXPECT_EQ(ifd.y_resolution, height);
      }
      EXPECT_EQ(ifd.version, i == 0 ? 1 : 2);
      EXPECT_EQ(ifd.window.right, shapes[i].window.right);
      EXPECT_EQ(ifd.active.left, shapes[i].active.left);
      EXPECT_EQ(ifd.image.count, shapes[i].image.count);
      EXPECT_EQ(ifd.matte.count, shapes[i].matte.count);
      EXPECT_EQ(ifd.aux.count, shapes[i].aux.count);
      EXPECT_EQ(ifd.image.type, shapes[i].image.type);
      EXPECT_NEAR(ifd.curve.gamma, shapes[i].gamma, 1e-4);
    }
    for (int y = 9; y >= 0; --y)
      for (int i = object->info.image_count - 1; i >= 0; --i) {
        const ORX_IFD &ifd = object->info.images[i];
        if (y < ifd.window.bottom || y > ifd.window.top) continue;
        void **rows = nullptr;
        ASSERT_EQ(object->scan(object->private_cell[i], y, &rows), 0);
        ASSERT_TRUE(holds_pattern(ifd, rows, y)) << "image " << i;
      }
    EXPECT_EQ(object->close(object, 0), 0);
  }
  FMT_exit();
}

// The last header's time and filter stand for the file; a chromaticity
// holding x alone changes x, and z follows what x and y are; a stored
// aspect ratio that is not positive gives way to the window's shape.
TEST_F(RlaRoundTrip, PatchedHeaderFieldsReadAsTheRulesSay) {
  const std::string path = dir.file("multi.rla");
  write_file(path, {ImageShape{}, ImageShape{}});
  std::vector<uint8_t> bytes = load(path);
  const uint32_t last = be32(bytes, 736);
  std::memcpy(&bytes[last + 614], "11:11:11", 9);
  std::memcpy(&bytes[last + 626], "box", 4);
  std::memcpy(&bytes[68], "0.5", 4);
  std::memcpy(&bytes[548], "custom\0", 7);
  std::memcpy(&bytes[572], "0.000\0\0", 7);
  save_bytes(path, bytes);
  ORX_OBJECT *object = open_or_free(path);
  ASSERT_NE(object, nullptr);
  EXPECT_STREQ(object->info.time, "11:11:11");
  EXPECT_STREQ(object->info.filter, "box");
  EXPECT_EQ(object->info.green[0], 0.5f);
  EXPECT_FLOAT_EQ(object->info.green[2], 1.0f - 0.5f - object->info.green[1]);
  EXPECT_EQ(object->info.images[0].aspect_ratio, 10.0f / 6.0f);
  EXPECT_EQ(object->close(object, 0), 0);
}

}  // namespace
