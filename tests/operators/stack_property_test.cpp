// Random images through random stacks of operators, read back and compared
// with the operators' formulas applied directly; every stack then closed
// (ASan checks that every layer was unwound and freed).  Then every
// operator's install refused, and failing at each of its allocations.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "orx/fmt.h"
#include "orx/operators.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"
#include "support/images.hpp"

namespace {

using namespace orx::test;

double top(int bits) { return std::ldexp(1.0, bits) - 1.0; }

class Stacks : public ImageTest {
 protected:
  void TearDown() override {
    FB_exit();
    ImageTest::TearDown();
  }
};

// The files: integers of 4 to 32 bits, float and double.  The samples are
// codes while `bits` is an integer width, values while it is 0 (float) or
// 64 (double).
TEST_F(Stacks, RandomStacksMatchTheFormulas) {
  std::mt19937 rng(2024);
  int minmax_calls = 0;
  for (int round = 0; round < 100; ++round) {
    const int widths[] = {8, 8, 8, 16, 16, 0, 0, 4, 12, 32, 64};  // mostly 8, 16 bits and float
    int bits = widths[rng() % 11];
    const int32_t type = bits == 0 ? ORX_C_FLOAT : bits == 64 ? ORX_C_DOUBLE : ORX_C_INTEGER;
    Groups g;
    g.image = {nullptr, 3, type, bits == 0 ? 32 : bits, 0};
    g.matte = {nullptr, 1, type, bits == 0 ? 32 : bits, 0};
    const int32_t w = 1 + static_cast<int32_t>(rng() % 40), h = 1 + static_cast<int32_t>(rng() % 6);
    g.window = g.active = {0, w - 1, 0, h - 1};
    std::vector<double> pixels(static_cast<std::size_t>(w * h * 4));
    for (double &v : pixels) {
      const double real = double(int(rng() % 1400) - 200) / 1000.0;
      v = bits == 0 ? double(float(real)) : bits == 64 ? real : double(rng() & uint32_t(top(bits)));
    }
    const auto at = [&](int c, int32_t x, int32_t y) {
      return pixels[std::size_t((y * w + x) * 4 + c)];
    };
    const std::string path = dir_.file("s.rla");
    write_image(path, g, at);
    ORX_OBJECT *handle = open_image(path);
    ASSERT_NE(handle, nullptr);

    std::vector<double> want = pixels;
    const int layers = 1 + static_cast<int>(rng() % 4);
    // After a cast the auxiliary group is float (it has no channels, but the
    // min-max checks every group's type): min-max then refuses.
    bool cast_seen = false;
    std::string stack;
    for (int l = 0; l < layers; ++l) {
      const unsigned pick = rng() % 2;
      if (bits != 0 && (pick == 0 || bits != 8)) {
        if (bits == 8 && rng() % 2 == 0) {  // min-max
          // The first call asks for the whole range, the second starts at 0.
          const int n = minmax_calls++;
          const double low = n < 2 ? 0.0 : double(rng() % 50) / 100;
          const double high = n == 0 ? 1.0 : low + double(rng() % 50) / 100;
          orx__min_max_operator(handle, low, high);
          if (low == 0.0 && high == 1.0) {  // nothing to do: no layer, no refusal
            stack += " minmax(whole)";
            continue;
          }
          stack += cast_seen ? " minmax(refused)" : " minmax";
          if (cast_seen) {
            EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED);
            continue;
          }
          const auto offset = static_cast<int32_t>(256.0 * low);
          const auto scale = static_cast<float>(high - low);
          for (double &v : want) v = uint8_t(int32_t(float(v) * scale) + offset);
          continue;
        }
        orx__cast_operator(handle);  // gamma 1: plain scaling, doubles rounded to float
        stack += " cast";
        cast_seen = true;
        for (double &v : want) v = double(float(bits == 64 ? v : v * (1.0 / top(bits))));
        bits = 0;
      } else if (bits == 0 && pick == 0) {
        orx__clamp_operator(handle);
        stack += " clamp";
        for (std::size_t i = 0; i < want.size(); ++i)
          if (i % 4 != 3) want[i] = std::min(1.0, std::max(0.0, want[i]));
      } else if (bits == 0) {
        const int to = rng() % 3 == 0 ? 32 : rng() % 2 ? 8 : 16;
        const int32_t target[2] = {ORX_C_INTEGER, to};
        const int32_t *const targets[3] = {target, target, nullptr};
        orx__quantize_read_operator(handle, targets);
        stack += " quantize" + std::to_string(to);
        const auto factor = float(top(to) + 0.95);
        for (double &v : want) {
          const auto whole = static_cast<uint64_t>(static_cast<int64_t>(float(v) * factor));
          v = to == 8    ? double(uint8_t(whole))
              : to == 16 ? double(uint16_t(whole))
                         : double(uint32_t(whole));
        }
        bits = to;
      }
    }
    if (stack.find("refused") == std::string::npos) {
      ASSERT_EQ(orx__err, 0) << stack;
    }
    for (int32_t y = 0; y < h; ++y)
      for (int c = 0; c < 4; ++c)
        for (int32_t x = 0; x < w; ++x)
          ASSERT_EQ(read_sample(handle, y, c, x), want[std::size_t((y * w + x) * 4 + c)])
              << "stack" << stack << " at " << x << "," << y << " channel " << c;
    ASSERT_EQ(ORX_close(handle), 0);
  }
}

// An install of one operator (or a few) and the image it goes on: width x
// 4 (or height) pixels.
struct Install {
  const char *name;
  Groups image;
  std::function<void(ORX_OBJECT *)> install;
  int status = 0;    // a refusal: the status it sets
  Msg message = {};  // and the message it reports, if any
};

Groups image_of(int32_t width, Group colour = {3}, Group matte = {}, float gamma = 1.0f,
                int32_t height = 4) {
  Groups g;
  g.window = g.active = {0, width - 1, 0, height - 1};
  g.image = colour;
  g.matte = matte;
  g.gamma = gamma;
  return g;
}

// A refused install leaves the handle as it was: the scan and every field
// of the description, and it still reads and closes.
TEST_F(Stacks, RefusedInstallsLeaveTheHandleAsItWas) {
  const ORX_RESPONSE_CURVE linear{ORX_CURVE_PARAMETRIC, 1.0f, 0,      0, 1, 256,
                                  ORX_C_INTEGER,        8,    nullptr};
  const ORX_FILTER *mitchell = ORX_filter_find("mitchell");
  // Resizing while writing takes float samples interleaved only.
  const auto resample_writing = [&](ORX_OBJECT *h) {
    h->access = ORX_ACCESS_WRITE;
    orx__resample_operator(h, mitchell, 0, 5, 0, 5);
    h->access = ORX_ACCESS_READ;
  };
  const Install refusals[] = {
      {"min-max of a 16-bit matte", image_of(8, {3}, {1, ORX_C_INTEGER, 16}),
       [](ORX_OBJECT *h) { orx__min_max_operator(h, 0.25, 1.0); }, ORX_E_UNSUPPORTED,
       Msg::kMatteWidth},
      {"gamma of 16 bits", image_of(8, {3, ORX_C_INTEGER, 16}, {}, 2.2f),
       [&](ORX_OBJECT *h) { orx__gamma_operator(h, &linear); }, ORX_E_UNSUPPORTED,
       Msg::kImageWidth},
      {"xyz of one channel", image_of(8, {1}),
       [](ORX_OBJECT *h) { orx__xyz_transform_operator(h, 1); }, ORX_E_UNSUPPORTED,
       Msg::kImageType},
      {"display on no such framebuffer", image_of(8),
       [](ORX_OBJECT *h) { ORX__display(h, "no such framebuffer"); }, ORX_E_INVALID_TYPE,
       Msg::kInvalidType},
      {"scale of an empty rectangle", image_of(40),
       [](ORX_OBJECT *h) { orx__scale_operator(h, 5, 5, 5, 9, 4, 4); }, ORX_E_DIMENSIONS},
      {"resample to no width", image_of(12, {1, ORX_C_FLOAT, 32}),
       [&](ORX_OBJECT *h) { orx__resample_operator(h, mitchell, 0, -1, 0, 5); }, ORX_E_DIMENSIONS},
      {"resample of a handle open neither way", image_of(12),
       [&](ORX_OBJECT *h) {
         h->access = 0;
         orx__resample_operator(h, mitchell, 0, 5, 0, 5);
         h->access = ORX_ACCESS_READ;
       }},
      {"resample writing integers", image_of(12), resample_writing, ORX_E_UNSUPPORTED,
       Msg::kImageType},
      {"resample writing a row per channel", image_of(12, {1, ORX_C_FLOAT, 32}), resample_writing,
       ORX_E_UNSUPPORTED},
  };
  const std::string path = dir_.file("r.rla");
  for (const Install &r : refusals) {
    SCOPED_TRACE(r.name);
    write_image(path, r.image, [](int c, int32_t x, int32_t) { return (x + 40 * c) % 256; });
    ErrorCapture errors;
    ORX_OBJECT *h = open_image(path);
    ASSERT_NE(h, nullptr);
    const ORX_SCAN_FN plain = h->scan;
    ORX_IFD before;  // byte for byte, padding too
    std::memcpy(&before, &h->info.images[0], sizeof before);
    r.install(h);
    EXPECT_EQ(orx__err, r.status);
    if (r.message != Msg{}) {
      EXPECT_TRUE(errors.last_is(r.message)) << errors.last();
    } else {
      EXPECT_EQ(errors.size(), 0u) << errors.last();
    }
    EXPECT_EQ(h->scan, plain);
    EXPECT_EQ(std::memcmp(&h->info.images[0], &before, sizeof before), 0);  // every field
    EXPECT_EQ(read_sample(h, 1, 0, 3), 3);
    EXPECT_EQ(ORX_close(h), 0);
  }
}

// Every install under a failure at each of its allocations leaves a handle
// of the window it had that still reads and closes, and nothing leaks (ASan).
TEST_F(Stacks, InstallsSurviveFailedAllocations) {
  const Groups small = image_of(8, {"rgb", 3, ORX_C_INTEGER, 8, 0}, {1}, 2.2f);
  const int32_t eight[2] = {ORX_C_INTEGER, 8};
  const int32_t *const targets[3] = {eight, eight, nullptr};
  const ORX_RESPONSE_CURVE linear{ORX_CURVE_PARAMETRIC, 1.0f, 0,      0, 1, 256,
                                  ORX_C_INTEGER,        8,    nullptr};
  const Install installs[] = {
      // After a failed cast the description says float while the rows are
      // not (kept as it always was): nothing may be layered on it.
      {"cast and clamp", small,
       [](ORX_OBJECT *h) {
         orx__cast_operator(h);
         if (orx__err == 0) orx__clamp_operator(h);
       }},
      {"cast and quantize", small,
       [&](ORX_OBJECT *h) {
         orx__cast_operator(h);
         if (orx__err == 0) orx__quantize_read_operator(h, targets);
       }},
      {"gamma", small, [&](ORX_OBJECT *h) { orx__gamma_operator(h, &linear); }},
      {"min-max", small, [](ORX_OBJECT *h) { orx__min_max_operator(h, 0.25, 1.0); }},
      // Operators that push the cast below themselves take it off again.
      {"xyz", small, [](ORX_OBJECT *h) { orx__xyz_transform_operator(h, 1); }},
      {"spectral", small, [](ORX_OBJECT *h) { orx__spectral_transform_operator(h, 1); }},
      {"resample", image_of(31, {3}, {}, 1.0f, 10),
       [](ORX_OBJECT *h) { orx__resample_operator(h, ORX_filter_find("mitchell"), 0, 12, 0, 4); }},
      {"scale", image_of(64, {3}, {}, 1.0f, 16),
       [](ORX_OBJECT *h) { orx__scale_operator(h, 1.5f, 0.5f, 60.0f, 15.0f, 20, 40); }},
      {"display, resized to fit", image_of(1600, {3}, {}, 2.2f, 10),
       [](ORX_OBJECT *h) { ORX__display(h, "full"); }},
  };
  FB_find("full");  // the database is built outside the sweeps
  ErrorCapture quiet;
  const std::string path = dir_.file("o.rla");
  for (const Install &i : installs) {
    SCOPED_TRACE(i.name);
    write_image(path, i.image, [](int, int32_t x, int32_t y) { return (x * 7 + y * 20) % 256; });
    for_each_allocation_failure([&] {
      ORX_OBJECT *h = open_image(path);
      if (h == nullptr) return false;
      i.install(h);
      const bool fired = orx::heap::failure_fired();
      if (fired) {
        EXPECT_EQ(h->info.images[0].window.right, i.image.window.right);
      }
      void **rows = nullptr;
      EXPECT_EQ(ORX_scan_read(h, 1, &rows), 0);
      EXPECT_EQ(ORX_close(h), 0);
      return !fired;
    });
  }
}

}  // namespace
