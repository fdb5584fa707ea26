// The image-process frame and the swatch process, through real RLA files.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "operators/layer.hpp"
#include "orx/imp.h"
#include "orx/operators.h"
#include "registry/registry_fixture.hpp"
#include "support/error_capture.hpp"
#include "support/images.hpp"
#include "texture/process.hpp"

namespace {

using namespace orx::test;

class ImageProcess : public RegistryTest {
 protected:
  void SetUp() override {
    RegistryTest::SetUp();
    orx::texture::reset();
  }
  void TearDown() override {
    orx::texture::reset();
    RegistryTest::TearDown();
  }
  // An RLA file of the pattern, w x h, written afresh; its path.
  std::string source(int32_t w, int32_t h, int32_t field = 0) {
    write_pattern(nullptr, dir_.file("source.rla"), w, h, field);
    return dir_.file("source.rla");
  }
  TempDir dir_;
};

// Opens the request through the swatch process of the given size.
ORX_OBJECT *open_swatch(Request &r, uint32_t size, const char *access) {
  IMP_REQUEST request{"swatch", size, 0, 0, 0};
  return IMP_open(&r.info, &request, access);
}

// trunc of 0, step, 2 step, ... with the step added in double and the sum
// kept in single precision.
std::vector<int32_t> positions(int32_t n, float step) {
  std::vector<int32_t> out;
  float p = 0.0f;
  for (int32_t i = 0; i < n; ++i, p = static_cast<float>(double{p} + double{step}))
    out.push_back(static_cast<int32_t>(p));
  return out;
}

TEST_F(ImageProcess, TheFrameListsDispatchesAndRefusesAsDocumented) {
  ErrorCapture errors;
  ERR_unmask_s(ERR_DEBUG);
  std::vector<std::string> keys;
  while (IMP_INFO *p = IMP_info()) keys.push_back(p->key);
  EXPECT_EQ(keys, (std::vector<std::string>{"none", "mipmap", "swatch"}));
  EXPECT_EQ(IMP_info(), nullptr);  // never rewound
  EXPECT_TRUE(errors.has(Msg::kInitDatabase));
  errors.clear();

  ORX_INFO info;
  ORX_info_init(&info);
  IMP_REQUEST request{"mipmap", 0, 0, 0, 0};
  EXPECT_EQ(IMP_open(&info, &request, "rw"), nullptr);
  EXPECT_EQ(errors.last_id(), int(Msg::kAccessUnknown));
  EXPECT_EQ(IMP_error(), 0);
  for (const char *key : {"Mipmap", static_cast<const char *>(nullptr)}) {
    request.key = key;
    EXPECT_EQ(IMP_open(&info, &request, "r"), nullptr);
    EXPECT_EQ(errors.last_id(), int(Msg::kProcessTypeInvalid));
    EXPECT_EQ(IMP_error(), -1);
  }
  errors.clear();
  request.key = "none";
  EXPECT_EQ(IMP_open(&info, &request, "r"), nullptr);
  EXPECT_EQ(IMP_error(), 0);
  EXPECT_EQ(errors.size(), 0u);  // the database was announced once only
  ORX_info_cleanup(&info, 0);
}

TEST_F(ImageProcess, SwatchSizesFitsAndRefusals) {
  ErrorCapture errors;
  struct Case {
    int32_t w, h;
    uint32_t s;
    int32_t images;  // after the open; 0: refused
    ORX_WINDOW window;
  } cases[] = {
      {1000, 500, 64, 2, {0, 63, 0, 31}},
      {500, 1000, 64, 2, {0, 31, 0, 63}},
      {64, 40, 64, 1, {0, 63, 0, 39}},  // already fits: unchanged
      {30, 20, 64, 0, {}},
  };
  for (const Case &c : cases) {
    Request r(nullptr, source(c.w, c.h, 1));
    ORX_OBJECT *object = open_swatch(r, c.s, "r");
    if (c.images == 0) {
      EXPECT_EQ(object, nullptr);
      EXPECT_EQ(orx__err, ORX_E_DIMENSIONS);
      EXPECT_EQ(errors.last_id(), int(Msg::kSwatchDimension));
      continue;
    }
    ASSERT_NE(object, nullptr) << c.w;
    ASSERT_EQ(object->info.image_count, c.images);
    const ORX_IFD &swatch = object->info.images[c.images - 1];
    EXPECT_EQ(swatch.window.right, c.window.right) << c.w;
    EXPECT_EQ(swatch.window.top, c.window.top) << c.w;
    if (c.images == 2) {
      EXPECT_STREQ(swatch.aspect, "unknown");
      EXPECT_FLOAT_EQ(swatch.aspect_ratio, float(c.window.right + 1) / float(c.window.top + 1));
      EXPECT_EQ(swatch.version, 2);
    }
    EXPECT_EQ(ORX_close(object), 0);
  }
  // Writing without any image: no image is large enough either.
  Request none(nullptr, dir_.file("none.rla"));
  EXPECT_EQ(open_swatch(none, 64, "w"), nullptr);
  EXPECT_EQ(orx__err, ORX_E_DIMENSIONS);
  EXPECT_EQ(errors.last_id(), int(Msg::kSwatchDimension));
}

// The swatch read from a file equals point sampling of the source, and the
// swatch stored while writing equals the one computed when reading.
TEST_F(ImageProcess, SwatchesArePointSamplesWhetherReadOrWritten) {
  std::mt19937 rng(5);
  for (int round = 0; round < 4; ++round) {
    const int32_t w = 40 + static_cast<int32_t>(rng() % 300), h = 40 + static_cast<int32_t>(rng() % 300);
    const uint32_t s = 8 + rng() % 32;
    Request r(nullptr, source(w, h));
    ORX_OBJECT *object = open_swatch(r, s, "r");
    ASSERT_NE(object, nullptr);
    const ORX_IFD sw = object->info.images[1];
    const int32_t sw_w = sw.window.right + 1, sw_h = sw.window.top + 1;
    const auto cols = positions(sw_w, float(w) / float(sw_w));
    const auto lines = positions(sw_h, float(h) / float(sw_h));
    std::vector<std::vector<uint8_t>> swatch_rows;
    for (int32_t y = 0; y < sw_h; ++y) {
      void **rows = nullptr;
      ASSERT_EQ(object->scan(object->private_cell[1], y, &rows), 0);
      for (int c = 0; c < 4; ++c) {
        const auto *row = static_cast<const uint8_t *>(rows[c]);
        swatch_rows.emplace_back(row, row + sw_w);
        for (int32_t x = 0; x < sw_w; ++x)
          ASSERT_EQ(row[x], uint8_t(pattern(cols[x], lines[y], c))) << x << "," << y;
      }
    }
    void **rows = nullptr;  // the file's own image still reads through
    ASSERT_EQ(ORX_scan_read(object, 3, &rows), 0);
    EXPECT_EQ(static_cast<uint8_t *>(rows[1])[5], uint8_t(pattern(5, 3, 1)));
    ASSERT_EQ(ORX_close(object), 0);

    // The same image written through the process, then read plainly.
    const std::string stored = dir_.file("stored.rla");
    Request target(nullptr, stored, rgba(w, h, ORX_C_INTEGER, 8));
    object = open_swatch(target, s, "w");
    ASSERT_NE(object, nullptr);
    ASSERT_EQ(write_lines(object, pattern8), 0);
    object = open_image(stored, nullptr);
    ASSERT_NE(object, nullptr);
    ASSERT_EQ(object->info.image_count, 2);
    std::size_t k = 0;
    for (int32_t y = 0; y < sw_h; ++y) {
      ASSERT_EQ(object->scan(object->private_cell[1], y, &rows), 0);
      for (int c = 0; c < 4; ++c, ++k) {
        const auto *row = static_cast<const uint8_t *>(rows[c]);
        EXPECT_EQ(std::vector<uint8_t>(row, row + sw_w), swatch_rows[k]) << y << "," << c;
      }
    }
    ASSERT_EQ(ORX_close(object), 0);
  }
}

// The swatch is a layer like any operator: the layer queries see it, other
// kinds' removes refuse it, and its own image can be selected under it but
// not under a layer that keeps only the first entry.
TEST_F(ImageProcess, TheSwatchIsALayer) {
  Request r(nullptr, source(100, 50));
  ORX_OBJECT *object = open_swatch(r, 16, "r");
  ASSERT_NE(object, nullptr);
  EXPECT_TRUE(orx::operators::has_layers(object));
  EXPECT_EQ(orx__cast_remove(object), 0);
  const ORX_SCAN_FN swatch_scan = object->scan;
  orx__cast_operator(object);
  ASSERT_NE(object->scan, swatch_scan);
  ErrorCapture errors;
  ORX__select(object, 1);
  EXPECT_EQ(ORX_last_status(), ORX_E_UNSUPPORTED);
  EXPECT_EQ(object->info.image_count, 2);
  EXPECT_EQ(orx__cast_remove(object), 1);
  EXPECT_EQ(object->scan, swatch_scan);

  ORX__select(object, 1);
  ASSERT_EQ(ORX_last_status(), 0);
  ASSERT_EQ(object->info.image_count, 1);
  void **rows = nullptr;
  ASSERT_EQ(ORX_scan_read(object, 2, &rows), 0);
  const auto cols = positions(16, 100.0f / 16.0f);
  const auto lines = positions(8, 50.0f / 8.0f);
  for (int32_t x = 0; x < 16; ++x)
    EXPECT_EQ(static_cast<uint8_t *>(rows[2])[x], uint8_t(pattern(cols[x], lines[2], 2))) << x;
  EXPECT_EQ(ORX_close(object), 0);  // the select, then the swatch, then the file

  // The mipmap writer keeps one entry: no level can be selected under it.
  Request target(nullptr, dir_.file("t.rla"), rgba(8, 8, ORX_C_INTEGER, 8));
  IMP_REQUEST mipmap{"mipmap", 0, IMP_TEXTURE_COLOR, 0, 0};
  object = IMP_open(&target.info, &mipmap, "w");
  ASSERT_NE(object, nullptr);
  EXPECT_TRUE(orx::operators::has_layers(object));
  ORX__select(object, 1);
  EXPECT_EQ(ORX_last_status(), ORX_E_UNSUPPORTED);
  EXPECT_EQ(object->info.image_count, 4);
  EXPECT_EQ(write_lines(object, pattern8), 0);
}

TEST_F(ImageProcess, AFormatOfOneImageIsWrittenWithoutASwatchAndWithoutAMessage) {
  PluginSet set({"plugin_single"});
  ASSERT_EQ(set.init(), 0);
  ErrorCapture errors;
  Request r("tsingle", "x.tsg", rgba(200, 100, ORX_C_INTEGER, 8));
  ORX_OBJECT *object = open_swatch(r, 32, "w");
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(object->info.image_count, 1);
  EXPECT_EQ(errors.size(), 0u);
  EXPECT_EQ(ORX_close(object), 0);
}

TEST_F(ImageProcess, OutOfMemoryInTheSwatchIsReportedAndLeavesNothing) {
  const std::string path = source(100, 50);
  IMP_info();  // the library and the frame are up: the sweep covers the process
  Request read(nullptr, path), write(nullptr, dir_.file("o.rla"), rgba(100, 50, ORX_C_INTEGER, 8));
  for (const auto &[r, access] : {std::pair{&read, "r"}, {&write, "w"}}) {
    for_each_reported_allocation_failure([&] {
      ORX_OBJECT *object = open_swatch(*r, 16, access);
      if (object == nullptr) return orx__err;
      return ORX_close(object) == 0 ? 0 : orx__err;
    });
  }
}

}  // namespace
