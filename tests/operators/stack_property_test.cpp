// Random images through random stacks of operators, read back and compared
// with the operators' formulas applied directly; every stack then closed
// (ASan checks that every layer was unwound and freed).
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "support/images.hpp"
#include "orx/operators.h"
#include "support/fixtures.hpp"

namespace {

using namespace orx::test;

enum class Kind { kInt8, kInt16, kFloat, kInt32 };

double top(int bits) { return std::ldexp(1.0, bits) - 1.0; }

using Stacks = ImageTest;

TEST_F(Stacks, RandomStacksMatchTheFormulas) {
  std::mt19937 rng(2024);
  for (int round = 0; round < 60; ++round) {
    Kind kind = static_cast<Kind>(rng() % 3);  // the file: 8, 16 bits or float
    const int bits = kind == Kind::kInt8 ? 8 : 16;
    Groups g;
    const int32_t type = kind == Kind::kFloat ? ORX_C_FLOAT : ORX_C_INTEGER;
    g.image = {nullptr, 3, type, kind == Kind::kFloat ? 32 : bits, 0};
    g.matte = {nullptr, 1, type, kind == Kind::kFloat ? 32 : bits, 0};
    const int32_t w = 1 + static_cast<int32_t>(rng() % 40), h = 1 + static_cast<int32_t>(rng() % 6);
    g.window = g.active = {0, w - 1, 0, h - 1};
    std::vector<double> pixels(static_cast<std::size_t>(w * h * 4));
    for (double &v : pixels)
      v = kind == Kind::kFloat ? double(float(int(rng() % 1400) - 200) / 1000.0f) : double(rng() % (1u << bits));
    const auto at = [&](int c, int32_t x, int32_t y) { return pixels[std::size_t((y * w + x) * 4 + c)]; };
    const std::string path = dir_.file("s.rla");
    write_image(path, g, at);
    ORX_OBJECT *handle = open_image(path);
    ASSERT_NE(handle, nullptr);

    std::vector<double> want = pixels;  // codes (integers) or values (float), as kind says
    const int layers = 1 + static_cast<int>(rng() % 4);
    // After a cast the auxiliary group is float (it has no channels, but the
    // min-max checks every group's type): min-max then refuses.
    bool cast_seen = false;
    std::string stack;
    for (int l = 0; l < layers; ++l) {
      const unsigned pick = rng() % 2;
      if (kind != Kind::kFloat && (pick == 0 || kind != Kind::kInt8)) {
        if (kind == Kind::kInt8 && rng() % 2 == 0) {  // min-max
          const double low = double(rng() % 50) / 100, high = low + double(rng() % 50) / 100;
          orx__min_max_operator(handle, low, high);
          stack += cast_seen ? " minmax(refused)" : " minmax";
          if (cast_seen) {
            EXPECT_EQ(orx__err, ORX_E_UNSUPPORTED);
            continue;
          }
          const auto offset = static_cast<int32_t>(256.0 * low);
          const auto scale = static_cast<float>(high - low);
          if (!(low == 0.0 && high == 1.0))
            for (double &v : want) v = uint8_t(int32_t(float(v) * scale) + offset);
          continue;
        }
        orx__cast_operator(handle);  // gamma 1: plain scaling
        stack += " cast";
        cast_seen = true;
        const double recip = 1.0 / top(kind == Kind::kInt8 ? 8 : kind == Kind::kInt16 ? 16 : 32);
        for (double &v : want) v = double(float(v * recip));
        kind = Kind::kFloat;
      } else if (kind == Kind::kFloat && pick == 0) {
        orx__clamp_operator(handle);
        stack += " clamp";
        for (std::size_t i = 0; i < want.size(); ++i)
          if (i % 4 != 3) want[i] = std::min(1.0, std::max(0.0, want[i]));
      } else if (kind == Kind::kFloat) {
        const int to = rng() % 3 == 0 ? 32 : rng() % 2 ? 8 : 16;
        const int32_t target[2] = {ORX_C_INTEGER, to};
        const int32_t *const targets[3] = {target, target, nullptr};
        orx__quantize_read_operator(handle, targets);
        stack += " quantize" + std::to_string(to);
        const auto factor = float(top(to) + 0.95);
        for (double &v : want) {
          const auto whole = static_cast<uint64_t>(static_cast<int64_t>(float(v) * factor));
          v = to == 8 ? double(uint8_t(whole)) : to == 16 ? double(uint16_t(whole)) : double(uint32_t(whole));
        }
        kind = to == 8 ? Kind::kInt8 : to == 16 ? Kind::kInt16 : Kind::kInt32;
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

}  // namespace
