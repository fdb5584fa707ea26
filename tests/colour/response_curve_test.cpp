#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <optional>

#include "orx/err.h"
#include "orx/orx.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"
#include "support/messages.hpp"

namespace {

// The capture is declared after the error service has been reset.
class ResponseCurve : public orx::test::CleanErrors {
 protected:
  void SetUp() override {
    CleanErrors::SetUp();
    capture_.emplace();
  }
  void TearDown() override {
    capture_.reset();
    CleanErrors::TearDown();
  }
  std::optional<orx::test::ErrorCapture> capture_;
};

ORX_RESPONSE_CURVE curve(int32_t kind, float gamma, int32_t channels, int32_t length, int32_t type,
                         int32_t depth) {
  return ORX_RESPONSE_CURVE{kind, gamma, 7, 0, channels, length, type, depth, nullptr};
}

ORX_RESPONSE_CURVE table(float gamma, int32_t channels, int32_t length, int32_t type,
                         int32_t depth) {
  ORX_RESPONSE_CURVE c = curve(ORX_CURVE_PARAMETRIC, gamma, channels, length, type, depth);
  EXPECT_EQ(ORX_response_curve_init(&c), 0);
  return c;
}

// Entry i of channel k, whatever its storage.
double at(const ORX_RESPONSE_CURVE &c, int32_t k, int32_t i) {
  if (c.type == ORX_C_FLOAT) return static_cast<const float *>(c.curves[k])[i];
  if (c.depth == 8) return static_cast<const uint8_t *>(c.curves[k])[i];
  return static_cast<const uint16_t *>(c.curves[k])[i];
}

double rounded(double v) { return std::trunc(v + 0.5); }

TEST_F(ResponseCurve, InitTabulatesEveryStorageAndRepeatsTheFirstChannel) {
  ORX_RESPONSE_CURVE c = table(1.0f, 3, 4096, ORX_C_INTEGER, 16);
  EXPECT_EQ(c.kind, ORX_CURVE_TABULATED);
  EXPECT_EQ(c.flags, 0);
  EXPECT_EQ(at(c, 0, 1), 16);  // 65535 / 4095 = 16.0037, not an integer step
  EXPECT_EQ(at(c, 0, 4095), 65535);
  for (int32_t k = 1; k < 3; ++k) {
    EXPECT_EQ(c.curves[k], static_cast<uint16_t *>(c.curves[0]) + k * 4096);
    for (int32_t i = 0; i < 4096; i += 97) EXPECT_EQ(at(c, k, i), at(c, 0, i));
  }
  ORX_response_curve_done(&c);
  EXPECT_EQ(c.curves, nullptr);

  ORX_RESPONSE_CURVE bytes = table(2.2f, 1, 256, ORX_C_INTEGER, 8);
  ORX_RESPONSE_CURVE floats = table(2.2f, 2, 100, ORX_C_FLOAT, 0);
  ORX_RESPONSE_CURVE linear = table(1.0f, 1, 5, ORX_C_FLOAT, 0);
  for (int32_t i = 0; i < 256; ++i)
    EXPECT_EQ(at(bytes, 0, i), rounded(std::pow(i / 255.0, 2.2f) * 255)) << i;
  for (int32_t i = 0; i < 100; ++i)
    EXPECT_EQ(at(floats, 1, i), static_cast<float>(std::pow(i * (1.0 / 99), 2.2f))) << i;
  EXPECT_EQ(at(linear, 0, 1), 0.25f);
  EXPECT_EQ(at(linear, 0, 4), 1.0f);
  for (ORX_RESPONSE_CURVE *p : {&bytes, &floats, &linear}) ORX_response_curve_done(p);
}

TEST_F(ResponseCurve, InitRefusesBadShapesSilentlyAndTreatsLengthOneAsConstant) {
  for (ORX_RESPONSE_CURVE c : {curve(ORX_CURVE_PARAMETRIC, 1.0f, 1, 256, ORX_C_INTEGER, 17),
                               curve(ORX_CURVE_PARAMETRIC, 1.0f, 1, 256, ORX_C_INTEGER, 7),
                               curve(ORX_CURVE_PARAMETRIC, 1.0f, 1, 256, ORX_C_DOUBLE, 8),
                               curve(ORX_CURVE_PARAMETRIC, 1.0f, 0, 256, ORX_C_INTEGER, 8),
                               curve(ORX_CURVE_PARAMETRIC, 1.0f, 1, 0, ORX_C_FLOAT, 8)}) {
    EXPECT_EQ(ORX_response_curve_init(&c), -1);
    EXPECT_EQ(c.curves, nullptr);
  }
  EXPECT_EQ(capture_->size(), 0u);

  for (float gamma : {1.0f, 2.2f}) {
    ORX_RESPONSE_CURVE i = table(gamma, 2, 1, ORX_C_INTEGER, 12);
    ORX_RESPONSE_CURVE f = table(gamma, 1, 1, ORX_C_FLOAT, 0);
    EXPECT_EQ(at(i, 1, 0), 0);
    EXPECT_EQ(at(f, 0, 0), 0.0f);
    ORX_response_curve_done(&i);
    ORX_response_curve_done(&f);
  }
}

TEST_F(ResponseCurve, CopyIsDeepAndValidatesTypeAndDepth) {
  ORX_RESPONSE_CURVE src = table(0.5f, 2, 300, ORX_C_INTEGER, 10);
  ORX_RESPONSE_CURVE dst{};
  ASSERT_EQ(ORX_response_curve_copy(&dst, &src), 0);
  EXPECT_NE(dst.curves, src.curves);
  EXPECT_EQ(dst.length, 300);
  for (int32_t i = 0; i < 300; ++i) EXPECT_EQ(at(dst, 1, i), at(src, 1, i));
  ORX_response_curve_done(&src);
  ORX_response_curve_done(&dst);

  ORX_RESPONSE_CURVE param = curve(ORX_CURVE_PARAMETRIC, 2.2f, 1, 256, ORX_C_DOUBLE, 99);
  EXPECT_EQ(ORX_response_curve_copy(&dst, &param), 0);
  EXPECT_EQ(dst.curves, nullptr);

  int fake = 0;
  void *tables[1] = {&fake};
  ORX_RESPONSE_CURVE bad = curve(ORX_CURVE_TABULATED, 1.0f, 1, 4, 3, 8);
  bad.curves = tables;
  EXPECT_EQ(ORX_response_curve_copy(&dst, &bad), -1);
  EXPECT_EQ(capture_->last(), orx::test::message(orx::Msg::kCurveType, 3));
  EXPECT_EQ(dst.curves, nullptr);
  bad.type = ORX_C_INTEGER;
  bad.depth = 20;
  EXPECT_EQ(ORX_response_curve_copy(&dst, &bad), -1);
  EXPECT_EQ(capture_->last(), orx::test::message(orx::Msg::kCurveDepth, 20, 8, 16));
  EXPECT_EQ(capture_->reports().back().severity, 3);
}

// Composition over every storage of a (and out) and of b: b's codes index a.
TEST_F(ResponseCurve, ComposeTabulatedReadsAThroughBForEveryStorage) {
  struct Shape {
    int32_t type, depth;
  };
  for (Shape as : {Shape{ORX_C_INTEGER, 8}, Shape{ORX_C_INTEGER, 12}, Shape{ORX_C_FLOAT, 0}}) {
    for (int32_t b_depth : {8, 10}) {
      ORX_RESPONSE_CURVE b = table(0.45f, 2, 64, ORX_C_INTEGER, b_depth);
      ORX_RESPONSE_CURVE a = table(2.2f, 2, 1 << b_depth, as.type, as.depth);
      ORX_RESPONSE_CURVE out = curve(0, 0.0f, 0, 0, 0, 0);
      ASSERT_EQ(ORX_response_curve_comp(&a, &b, &out), 0);
      EXPECT_EQ(out.kind, ORX_CURVE_TABULATED);
      EXPECT_EQ(out.gamma, 1.0f);
      EXPECT_EQ(out.channels, 2);
      EXPECT_EQ(out.length, 64);
      EXPECT_EQ(out.type, as.type);
      EXPECT_EQ(out.depth, as.depth);
      for (int32_t k = 0; k < 2; ++k)
        for (int32_t i = 0; i < 64; ++i)
          EXPECT_EQ(at(out, k, i), at(a, k, static_cast<int32_t>(at(b, k, i))));
      for (ORX_RESPONSE_CURVE *p : {&a, &b, &out}) ORX_response_curve_done(p);
    }
  }
  // A hand-filled b whose codes overrun a reads a's last entry, not past it.
  ORX_RESPONSE_CURVE b = table(1.0f, 1, 2, ORX_C_INTEGER, 9);
  static_cast<uint16_t *>(b.curves[0])[1] = 600;
  ORX_RESPONSE_CURVE a = table(1.0f, 1, 512, ORX_C_FLOAT, 0);
  ORX_RESPONSE_CURVE out{};
  ASSERT_EQ(ORX_response_curve_comp(&a, &b, &out), 0);
  EXPECT_EQ(at(out, 0, 1), 1.0f);
  for (ORX_RESPONSE_CURVE *p : {&a, &b, &out}) ORX_response_curve_done(p);
}

TEST_F(ResponseCurve, ComposeWithAParametricCurveMatchesTheDirectComputation) {
  // Tabulated after tabulated is checked entry by entry above.
  ORX_RESPONSE_CURVE b = table(2.2f, 1, 256, ORX_C_INTEGER, 12);
  ORX_RESPONSE_CURVE a = table(0.5f, 1, 4096, ORX_C_FLOAT, 0);
  ORX_RESPONSE_CURVE out{};

  // Parametric after tabulated: a is tabulated with the inverse exponent.
  ORX_RESPONSE_CURVE pa = curve(ORX_CURVE_PARAMETRIC, 2.2f, 1, 256, ORX_C_INTEGER, 8);
  ASSERT_EQ(ORX_response_curve_comp(&pa, &b, &out), 0);
  EXPECT_EQ(out.depth, 8);
  for (int32_t i = 0; i < 256; ++i) {
    double code = rounded(std::pow(i / 255.0, 2.2f) * 4095);
    double back = rounded(std::pow(code / 4095, static_cast<float>(1.0 / 2.2f)) * 255);
    EXPECT_EQ(at(out, 0, i), back) << i;
  }
  EXPECT_EQ(pa.curves, nullptr);
  ORX_response_curve_done(&out);

  // Tabulated after parametric: an identity b gives a back.
  ORX_RESPONSE_CURVE pb = curve(ORX_CURVE_PARAMETRIC, 1.0f, 1, 4096, ORX_C_INTEGER, 12);
  ASSERT_EQ(ORX_response_curve_comp(&a, &pb, &out), 0);
  for (int32_t i = 0; i < 4096; i += 13) EXPECT_EQ(at(out, 0, i), at(a, 0, i));
  ORX_response_curve_done(&out);

  // Parametric after parametric: one table of gamma b / a.
  ORX_RESPONSE_CURVE p2 = curve(ORX_CURVE_PARAMETRIC, 2.0f, 3, 256, ORX_C_INTEGER, 8);
  ASSERT_EQ(ORX_response_curve_comp(&p2, &pb, &out), 0);
  EXPECT_EQ(out.gamma, 0.5f);
  EXPECT_EQ(out.channels, 1);
  EXPECT_EQ(out.length, 4096);
  EXPECT_EQ(at(out, 0, 1024), rounded(std::pow(1024 / 4095.0, 0.5) * 255));
  ORX_response_curve_done(&out);

  // Kinds the library does not know leave out untouched.
  ORX_RESPONSE_CURVE other = curve(5, 1.0f, 1, 256, ORX_C_INTEGER, 8);
  ORX_RESPONSE_CURVE untouched = curve(0, 3.0f, 1, 1, 1, 8);
  EXPECT_EQ(ORX_response_curve_comp(&other, &b, &untouched), 0);
  EXPECT_EQ(ORX_response_curve_comp(&a, &other, &untouched), 0);
  EXPECT_EQ(untouched.kind, 0);
  EXPECT_EQ(untouched.gamma, 3.0f);
  EXPECT_EQ(untouched.curves, nullptr);
  EXPECT_EQ(capture_->size(), 0u);
  ORX_response_curve_done(&a);
  ORX_response_curve_done(&b);
}

TEST_F(ResponseCurve, ComposeReportsIncompatibleCurvesAndLeavesOutAlone) {
  ORX_RESPONSE_CURVE a = table(1.0f, 2, 256, ORX_C_INTEGER, 8);
  ORX_RESPONSE_CURVE one = table(1.0f, 1, 256, ORX_C_INTEGER, 8);
  ORX_RESPONSE_CURVE floats = table(1.0f, 2, 256, ORX_C_FLOAT, 0);
  ORX_RESPONSE_CURVE wide = table(1.0f, 2, 256, ORX_C_INTEGER, 10);
  ORX_RESPONSE_CURVE shallow = curve(ORX_CURVE_TABULATED, 1.0f, 2, 16, ORX_C_INTEGER, 4);
  shallow.curves = a.curves;
  ORX_RESPONSE_CURVE out = curve(0, 3.0f, 0, 0, 0, 0);
  EXPECT_EQ(ORX_response_curve_comp(&a, &one, &out), -1);
  EXPECT_TRUE(capture_->last_is(orx::Msg::kCurveChannelCounts));
  EXPECT_EQ(ORX_response_curve_comp(&a, &floats, &out), -1);
  EXPECT_TRUE(capture_->last_is(orx::Msg::kCurveChannelType));
  for (ORX_RESPONSE_CURVE *b : {&wide, &shallow}) {
    EXPECT_EQ(ORX_response_curve_comp(&a, b, &out), -1);
    EXPECT_TRUE(capture_->last_is(orx::Msg::kCurveElementCounts));
  }
  // A parametric a is tabulated to b's codes, so b must be an index curve.
  ORX_RESPONSE_CURVE pa = curve(ORX_CURVE_PARAMETRIC, 2.2f, 2, 0, ORX_C_INTEGER, 8);
  EXPECT_EQ(ORX_response_curve_comp(&pa, &floats, &out), -1);
  EXPECT_EQ(capture_->size(), 5u);
  ORX_RESPONSE_CURVE deep = curve(ORX_CURVE_TABULATED, 1.0f, 2, 256, ORX_C_INTEGER, 31);
  deep.curves = a.curves;
  EXPECT_EQ(ORX_response_curve_comp(&pa, &deep, &out), -1);
  EXPECT_EQ(capture_->last(), orx::test::message(orx::Msg::kCurveDepth, 31, 8, 16));
  EXPECT_EQ(out.kind, 0);
  EXPECT_EQ(out.gamma, 3.0f);
  EXPECT_EQ(out.curves, nullptr);
  for (ORX_RESPONSE_CURVE *p : {&a, &one, &floats, &wide}) ORX_response_curve_done(p);

  // Done leaves a parametric curve alone, whatever its pointer holds.
  int fake = 0;
  void *tables[1] = {&fake};
  pa.curves = tables;
  EXPECT_EQ(ORX_response_curve_done(&pa), 1);
  EXPECT_EQ(pa.curves, tables);
  EXPECT_EQ(ORX_response_curve_done(nullptr), 1);
}

TEST_F(ResponseCurve, OutOfMemoryFailsWithStatusAndLeavesNothing) {
  ORX_RESPONSE_CURVE src = table(2.2f, 3, 256, ORX_C_INTEGER, 12);
  ORX_RESPONSE_CURVE b = table(2.2f, 3, 256, ORX_C_INTEGER, 8);
  ORX_RESPONSE_CURVE pa = curve(ORX_CURVE_PARAMETRIC, 2.2f, 3, 0, ORX_C_FLOAT, 0);
  ORX_RESPONSE_CURVE pb = curve(ORX_CURVE_PARAMETRIC, 1.0f, 3, 64, ORX_C_INTEGER, 8);
  const std::function<int(ORX_RESPONSE_CURVE *)> ops[] = {
      [](ORX_RESPONSE_CURVE *out) {
        *out = curve(ORX_CURVE_PARAMETRIC, 2.2f, 2, 64, ORX_C_FLOAT, 0);
        return ORX_response_curve_init(out);
      },
      [&](ORX_RESPONSE_CURVE *out) { return ORX_response_curve_copy(out, &src); },
      [&](ORX_RESPONSE_CURVE *out) { return ORX_response_curve_comp(&pa, &b, out); },
      [&](ORX_RESPONSE_CURVE *out) { return ORX_response_curve_comp(&src, &pb, out); },
      [&](ORX_RESPONSE_CURVE *out) { return ORX_response_curve_comp(&pa, &pb, out); },
  };
  for (const auto &op : ops) {
    orx::test::for_each_allocation_failure([&] {
      capture_->clear();
      orx__err = 0;
      ORX_RESPONSE_CURVE out{};
      if (op(&out) != 0) {
        EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
        EXPECT_TRUE(capture_->last_is(orx::Msg::kNoMemory));
        EXPECT_EQ(out.curves, nullptr);
        return false;
      }
      ORX_response_curve_done(&out);
      return true;
    });
  }
  ORX_response_curve_done(&src);
  ORX_response_curve_done(&b);
}

}  // namespace
