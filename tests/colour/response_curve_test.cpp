// Response curves against a model: a table of x^gamma over every storage
// and shape, composition as one table read through another, and the
// refusals by their message.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <vector>

#include "orx/err.h"
#include "orx/orx.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"

namespace {

using orx::Msg;
using Table = std::vector<std::vector<double>>;  // [channel][entry]

using ResponseCurve = orx::test::CleanErrors;

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

Table entries(const ORX_RESPONSE_CURVE &c) {
  Table t(static_cast<std::size_t>(c.channels));
  for (int32_t k = 0; k < c.channels; ++k)
    for (int32_t i = 0; i < c.length; ++i) t[std::size_t(k)].push_back(at(c, k, i));
  return t;
}

// The model: entry i of `length` is (i / (length - 1))^gamma, integers
// rounded half up to 2^depth - 1 at the last entry, floats reaching 1; a
// table of one entry holds the value at 0.
Table model(float gamma, int32_t channels, int32_t length, int32_t type, int32_t depth) {
  std::vector<double> one;
  for (int32_t i = 0; i < length; ++i) {
    const double steps = length > 1 ? length - 1 : 0, top = std::ldexp(1.0, depth) - 1;
    if (type == ORX_C_FLOAT)
      one.push_back(float(std::pow(steps > 0 ? i * (1.0 / steps) : 0.0, double(gamma))));
    else
      one.push_back(std::trunc(std::pow(steps > 0 ? i / steps : 0.0, double(gamma)) * top + 0.5));
  }
  return Table(static_cast<std::size_t>(channels), one);
}

// A parametric curve tabulated at its own shape, a tabulated one as it is.
Table model(const ORX_RESPONSE_CURVE &c) {
  if (c.kind == ORX_CURVE_TABULATED) return entries(c);
  return model(c.gamma, c.channels, c.length, c.type, c.depth);
}

// Every shape and storage, integers of every depth: the ones the tables can
// take (8 to 16 bits, float; a channel and an entry at least) follow the
// model, each channel its own copy; the others are refused without a report.
// A copy of each is deep and equal.
TEST_F(ResponseCurve, InitFollowsTheModelForEveryShapeAndCopiesAreDeep) {
  orx::test::ErrorCapture capture;
  for (int32_t type : {ORX_C_INTEGER, ORX_C_FLOAT, ORX_C_DOUBLE})
    for (int32_t depth = type == ORX_C_INTEGER ? 7 : 8; depth <= (type == ORX_C_INTEGER ? 17 : 8);
         ++depth)
      for (float gamma : {1.0f, 2.2f, 0.45f})
        for (int32_t channels : {0, 1, 3})
          for (int32_t length : {0, 1, 2, 100, 256, 4096}) {
            SCOPED_TRACE(testing::Message() << "type " << type << " depth " << depth << " gamma "
                                            << gamma << ", " << channels << " x " << length);
            ORX_RESPONSE_CURVE c =
                curve(ORX_CURVE_PARAMETRIC, gamma, channels, length, type, depth);
            const bool valid =
                (type == ORX_C_FLOAT || (type == ORX_C_INTEGER && depth >= 8 && depth <= 16)) &&
                channels > 0 && length > 0;
            ASSERT_EQ(ORX_response_curve_init(&c), valid ? 0 : -1);
            EXPECT_EQ(c.kind, ORX_CURVE_TABULATED);
            EXPECT_EQ(c.flags, 0);
            if (!valid) {
              EXPECT_EQ(c.curves, nullptr);
              continue;
            }
            ASSERT_EQ(entries(c), model(gamma, channels, length, type, depth));
            for (int32_t k = 1; k < channels; ++k) EXPECT_NE(c.curves[k], c.curves[k - 1]);
            ORX_RESPONSE_CURVE copy{};
            ASSERT_EQ(ORX_response_curve_copy(&copy, &c), 0);
            EXPECT_NE(copy.curves, c.curves);
            EXPECT_EQ(entries(copy), entries(c));
            ORX_response_curve_done(&c);
            EXPECT_EQ(c.curves, nullptr);
            ORX_response_curve_done(&copy);
          }
  // A parametric curve has no tables to copy or free, whatever its other
  // fields and its pointer hold.
  int fake = 0;
  void *tables[1] = {&fake};
  ORX_RESPONSE_CURVE dst{};
  ORX_RESPONSE_CURVE param = curve(ORX_CURVE_PARAMETRIC, 2.2f, 1, 256, ORX_C_DOUBLE, 99);
  EXPECT_EQ(ORX_response_curve_copy(&dst, &param), 0);
  EXPECT_EQ(dst.curves, nullptr);
  param.curves = tables;
  EXPECT_EQ(ORX_response_curve_done(&param), 1);
  EXPECT_EQ(param.curves, tables);
  EXPECT_EQ(ORX_response_curve_done(nullptr), 1);
  EXPECT_EQ(capture.size(), 0u);
}

// Every pairing of tabulated and parametric curves over the storages of a
// (and out) and b against the model: b's codes index a, clamped to a's last
// entry; a parametric a is tabulated over b's codes with the inverse
// exponent; two parametric curves make one of gamma b / a at b's shape.
TEST_F(ResponseCurve, CompositionReadsAThroughBForEveryKindAndStorage) {
  orx::test::ErrorCapture capture;
  struct Storage {
    int32_t type, depth;
  };
  for (Storage as :
       {Storage{ORX_C_INTEGER, 8}, Storage{ORX_C_INTEGER, 12}, Storage{ORX_C_FLOAT, 0}})
    for (int32_t b_depth : {8, 10})
      for (int kinds = 0; kinds < 4; ++kinds) {
        const bool a_table = (kinds & 1) != 0, b_table = (kinds & 2) != 0;
        SCOPED_TRACE(testing::Message()
                     << "a " << as.type << "/" << as.depth << (a_table ? " table" : "") << ", b "
                     << b_depth << (b_table ? " table" : ""));
        ORX_RESPONSE_CURVE a =
            curve(ORX_CURVE_PARAMETRIC, 2.2f, 2, 1 << b_depth, as.type, as.depth);
        ORX_RESPONSE_CURVE b = curve(ORX_CURVE_PARAMETRIC, 0.45f, 2, 64, ORX_C_INTEGER, b_depth);
        ASSERT_EQ(a_table ? ORX_response_curve_init(&a) : 0, 0);
        ASSERT_EQ(b_table ? ORX_response_curve_init(&b) : 0, 0);
        ORX_RESPONSE_CURVE out = curve(0, 0.0f, 0, 0, 0, 0);
        ASSERT_EQ(ORX_response_curve_comp(&a, &b, &out), 0);
        Table want;
        if (!a_table && !b_table) {
          want = model(b.gamma / a.gamma, b.channels, b.length, a.type, a.depth);
        } else {
          const Table from =
              a_table ? model(a)
                      : model(float(1.0 / a.gamma), b.channels, 1 << b.depth, a.type, a.depth);
          want = model(b);
          for (std::size_t k = 0; k < want.size(); ++k)
            for (double &v : want[k]) v = from[k][std::min(std::size_t(v), from[k].size() - 1)];
        }
        EXPECT_EQ(out.kind, ORX_CURVE_TABULATED);
        EXPECT_EQ(out.gamma, a_table || b_table ? 1.0f : b.gamma / a.gamma);
        EXPECT_EQ(out.type, as.type);
        EXPECT_EQ(out.depth, as.depth);
        EXPECT_EQ(entries(out), want);
        if (!a_table) {
          EXPECT_EQ(a.curves, nullptr);  // a parametric a is not tabulated in place
        }
        for (ORX_RESPONSE_CURVE *p : {&a, &b, &out}) ORX_response_curve_done(p);
      }
  // A hand-filled b whose codes overrun a reads a's last entry, not past it.
  ORX_RESPONSE_CURVE b = table(1.0f, 1, 2, ORX_C_INTEGER, 9);
  static_cast<uint16_t *>(b.curves[0])[1] = 600;
  ORX_RESPONSE_CURVE a = table(1.0f, 1, 512, ORX_C_FLOAT, 0);
  ORX_RESPONSE_CURVE out{};
  ASSERT_EQ(ORX_response_curve_comp(&a, &b, &out), 0);
  EXPECT_EQ(at(out, 0, 1), 1.0f);
  ORX_response_curve_done(&out);

  // Kinds the library does not know leave out untouched.
  ORX_RESPONSE_CURVE other = curve(5, 1.0f, 1, 256, ORX_C_INTEGER, 8);
  ORX_RESPONSE_CURVE untouched = curve(0, 3.0f, 1, 1, 1, 8);
  EXPECT_EQ(ORX_response_curve_comp(&other, &b, &untouched), 0);
  EXPECT_EQ(ORX_response_curve_comp(&a, &other, &untouched), 0);
  EXPECT_EQ(untouched.kind, 0);
  EXPECT_EQ(untouched.gamma, 3.0f);
  EXPECT_EQ(untouched.curves, nullptr);
  EXPECT_EQ(capture.size(), 0u);
  ORX_response_curve_done(&a);
  ORX_response_curve_done(&b);
}

// Tables that cannot be copied (b alone) or composed are refused with their
// message and no tables in out.
TEST_F(ResponseCurve, RefusalsReportTheirMessageAndLeaveOutAlone) {
  orx::test::ErrorCapture capture;
  ORX_RESPONSE_CURVE a = table(1.0f, 2, 256, ORX_C_INTEGER, 8);
  ORX_RESPONSE_CURVE one = table(1.0f, 1, 256, ORX_C_INTEGER, 8);
  ORX_RESPONSE_CURVE floats = table(1.0f, 2, 256, ORX_C_FLOAT, 0);
  ORX_RESPONSE_CURVE wide = table(1.0f, 2, 256, ORX_C_INTEGER, 10);
  const auto over_a = [&](int32_t length, int32_t type, int32_t depth) {
    ORX_RESPONSE_CURVE c = curve(ORX_CURVE_TABULATED, 1.0f, 2, length, type, depth);
    c.curves = a.curves;
    return c;
  };
  ORX_RESPONSE_CURVE shallow = over_a(16, ORX_C_INTEGER, 4), deep = over_a(256, ORX_C_INTEGER, 31);
  ORX_RESPONSE_CURVE odd_type = over_a(4, 3, 8), odd_depth = over_a(4, ORX_C_INTEGER, 20);
  // A parametric a is tabulated to b's codes, so b must be an index curve.
  ORX_RESPONSE_CURVE pa = curve(ORX_CURVE_PARAMETRIC, 2.2f, 2, 0, ORX_C_INTEGER, 8);
  const struct {
    ORX_RESPONSE_CURVE *a, *b;
    Msg message;
  } cases[] = {{&a, &one, Msg::kCurveChannelCounts},   {&a, &floats, Msg::kCurveChannelType},
               {&a, &wide, Msg::kCurveElementCounts},  {&a, &shallow, Msg::kCurveElementCounts},
               {&pa, &floats, Msg::kCurveChannelType}, {&pa, &deep, Msg::kCurveDepth},
               {nullptr, &odd_type, Msg::kCurveType},  {nullptr, &odd_depth, Msg::kCurveDepth}};
  for (const auto &c : cases) {
    ORX_RESPONSE_CURVE out = curve(0, 3.0f, 0, 0, 0, 0);
    capture.clear();
    EXPECT_EQ(c.a != nullptr ? ORX_response_curve_comp(c.a, c.b, &out)
                             : ORX_response_curve_copy(&out, c.b),
              -1);
    EXPECT_EQ(capture.size(), 1u);
    EXPECT_TRUE(capture.last_is(c.message)) << capture.last();
    EXPECT_EQ(out.curves, nullptr);
    if (c.a != nullptr) {  // a refused copy has taken the header, never the tables
      EXPECT_EQ(out.kind, 0);
      EXPECT_EQ(out.gamma, 3.0f);
    }
  }
  for (ORX_RESPONSE_CURVE *p : {&a, &one, &floats, &wide}) ORX_response_curve_done(p);
}

TEST_F(ResponseCurve, OutOfMemoryFailsWithStatusAndLeavesNothing) {
  orx::test::ErrorCapture capture;
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
      capture.clear();
      orx__err = 0;
      ORX_RESPONSE_CURVE out{};
      if (op(&out) != 0) {
        EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
        EXPECT_TRUE(capture.last_is(Msg::kNoMemory));
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
