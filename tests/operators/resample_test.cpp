// The resampling filter against a direct evaluation of its formulas, and
// its edge cases, through real RLA images.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "operators/layer.hpp"
#include "orx/operators.h"
#include "orx/plugin.h"
#include "support/error_capture.hpp"
#include "support/fixtures.hpp"
#include "support/images.hpp"

namespace {

using namespace orx::test;
// One channel's samples, addressed by column and line.
struct Plane {
  int width = 0, height = 0;
  std::vector<double> v;
  Plane(int w, int h) : width(w), height(h), v(static_cast<std::size_t>(w * h)) {}
  double &operator()(int x, int y) { return v[static_cast<std::size_t>(y * width + x)]; }
  double operator()(int x, int y) const { return v[static_cast<std::size_t>(y * width + x)]; }
  bool operator==(const Plane &) const = default;
};

using Resample = ImageTest;

double unit(double t) { return t == 0.0 ? 1.0 : 0.0; }

// The filter's formulas evaluated directly: positions and kernel arguments
// in single precision as the filter keeps them (a discontinuous kernel such
// as the box depends on their rounding), sums in double.
Plane reference(const Plane &src, int wd, int hd, const ORX_FILTER &f) {
  const int ws = src.width, hs = src.height;
  const float rx = float(ws) / float(wd), ry = float(hs) / float(hd);
  const float hx = f.x_width * 0.5f, hy = f.y_width * 0.5f;
  const float ox = f.x_phase * f.x_width * 0.5f / 3.1415927f;
  const float oy = f.y_phase * f.y_width * 0.5f / 3.1415927f;
  Plane across(wd, hs);
  float c = (rx - 1) * 0.5f, low = c - rx * hx, high = c + rx * hx;
  for (int j = 0; j < wd; ++j) {
    const int first = low < 0 ? 0 : int(low);
    const float last = std::min(high, float(ws - 1));
    double sum = 0;
    std::vector<std::pair<int, double>> w;
    for (int s = first; float(s) <= last; ++s) {
      w.emplace_back(s, float(f.x_kernel((float(s) - c) * (1.0f / rx) + ox)));
      sum += w.back().second;
    }
    for (int y = 0; y < hs; ++y) {
      double v = 0;
      for (auto [s, k] : w) v += k * src(s, y);
      across(j, y) = sum != 0 ? v / sum : 0;
    }
    c += rx;
    low += rx;
    high = last + rx;
  }
  Plane out(wd, hd);
  float cy = (ry - 1) * 0.5f;
  for (int i = 0; i < hd; ++i, cy += ry) {
    const int first = cy - ry * hy < 0 ? 0 : int(cy - ry * hy);
    const float last = std::min(cy + ry * hy, float(hs - 1));
    double sum = 0;
    for (int s = first; float(s) <= last; ++s) {
      const double k = float(f.y_kernel((float(s) - cy) * (1.0f / ry) + oy));
      if (k == 0) continue;
      for (int j = 0; j < wd; ++j) out(j, i) += k * across(j, s);
      sum += k;
    }
    if (float(sum) != 1.0f)
      for (int j = 0; j < wd; ++j) out(j, i) = sum != 0 ? std::max(0.0, out(j, i) / sum) : 0;
  }
  return out;
}

// Every output line of every channel of a handle with the filter on.
std::vector<Plane> read_all(ORX_OBJECT *h) {
  const ORX_IFD &d = h->info.images[0];
  std::vector<Plane> out(
      static_cast<std::size_t>(channel_count(d)),
      Plane(d.window.right - d.window.left + 1, d.window.top - d.window.bottom + 1));
  for (int32_t y = 0; y < out[0].height; ++y) {
    void **rows = nullptr;
    EXPECT_EQ(ORX_scan_read(h, d.window.bottom + y, &rows), 0);
    for (std::size_t c = 0; c < out.size(); ++c)
      for (int x = 0; x < out[c].width; ++x) out[c](x, y) = static_cast<const float *>(rows[c])[x];
  }
  return out;
}

// A layer that hands rows on as they are: the filter above it cannot read
// past the cast below it, and so reads the cast's floats.
struct PassRecord {
  orx::operators::LayerHeader header;
};

int pass_scan(void *data, int32_t line, void *rows) {
  return orx::operators::forward(&static_cast<PassRecord *>(data)->header, line, rows);
}

void pass_release(ORX_OBJECT *, orx::operators::LayerHeader *header) { ERR_free(header); }

ORX_OBJECT *pass_through(ORX_OBJECT *h) {
  using Pass = orx::operators::Kind<pass_release>;
  auto *r = orx::operators::new_record<PassRecord>();
  orx::operators::push(h, &r->header, 99, pass_scan, Pass::close);
  return h;
}

// A handle open for writing whose format keeps the lines it is handed:
// float channels, samples interleaved.
struct Captured {
  int channels, width;
  std::vector<std::vector<float>> lines;
};

int capture_scan(void *data, int32_t, void *rows) {
  auto &c = *static_cast<Captured *>(data);
  const auto *p = static_cast<const float *>(static_cast<void **>(rows)[0]);
  c.lines.emplace_back(p, p + c.width * c.channels);
  return 0;
}

int capture_close(ORX_OBJECT *object, intptr_t) {
  orx__free_obj(object);
  return 0;
}

ORX_OBJECT *capture_object(Captured &c, ORX_WINDOW window) {
  ORX_OBJECT *w = orx__new_obj(ORX_ACCESS_WRITE);
  w->info.image_count = 1;
  w->info.images = static_cast<ORX_IFD *>(ERR_malloc(sizeof(ORX_IFD)));
  orx__init_ifd(w);
  ORX_IFD &d = w->info.images[0];
  d.window = d.active = window;
  d.image = {nullptr, c.channels, ORX_C_FLOAT, 32, 0};
  d.pixel_flags = 0;
  w->private_cell = static_cast<void **>(ERR_malloc(sizeof(void *)));
  w->private_cell[0] = &c;
  w->scan = capture_scan;
  w->close = capture_close;
  return w;
}

// Random sizes up and down (prime ratios, 1:1, extreme ones), every kernel
// and one of no width (a single tap at the centre), 8-bit, 16-bit and float
// sources of 1 to 4 channels, some with an active area inside the window,
// some integer ones with a gamma (8-bit colour goes through the cast's
// table): reading agrees with the direct evaluation and, to the bit, with
// the filter over a cast the caller pushed, with or without a layer between
// them (which makes it read the cast's floats), and resizing while writing
// hands down what reading hands out.
TEST_F(Resample, ReadingFollowsTheFormulasAndWritingStoresWhatReadingGives) {
  std::mt19937 rng(11);
  // 17x9 to 41x9 has vertical weights summing to 1, whose negative lobes
  // stay; 12x27 to 5x9 has kernels that are 0 on some rows that one line
  // shares with the next; the last size is too tall a reduction to cache
  // source rows.
  const struct {
    int ws, hs, wd, hd;
  } sizes[] = {{37, 23, 37, 23}, {40, 20, 20, 10}, {17, 9, 41, 30}, {64, 3, 63, 4},
               {300, 2, 1, 1},   {1, 2, 200, 3},   {9, 30, 5, 61},  {64, 5, 7, 2},
               {97, 13, 7, 5},   {11, 7, 53, 31},  {17, 9, 41, 9},  {12, 27, 5, 9},
               {1500, 400, 7, 2}};
  std::vector<std::pair<std::string, ORX_FILTER>> filters = {
      {"no width", {0, 0, 0, 0, unit, unit}}};
  for (int32_t k = 0; const char *name = ORX_filter_name(k); ++k)
    filters.emplace_back(name, *ORX_filter_find(name));
  float *table = ORX_gamma_btof(2.2f);
  int round = 0;
  for (const auto &[name, filter] : filters) {
    const ORX_FILTER *f = &filter;
    for (const auto &s : sizes) {
      for (const int bits : {8, 16, 32}) {
        const int32_t type = bits == 32 ? ORX_C_FLOAT : ORX_C_INTEGER;
        const int channels = 1 + round % 4;
        const bool curve = bits != 32 && (round / 3) % 2 == 1;
        const bool inset = ++round % 3 == 0 && s.ws > 2 && s.hs > 2;
        SCOPED_TRACE(testing::Message()
                     << name << " " << s.ws << "x" << s.hs << "->" << s.wd << "x" << s.hd
                     << " from " << bits << " bits, " << channels << " channels"
                     << (inset ? ", inset" : "") << (curve ? ", gamma 2.2" : ""));
        Groups g;
        g.gamma = curve ? 2.2f : 1.0f;
        g.image = {nullptr, channels < 3 ? channels : 3, type, bits, 0};
        if (channels == 4) g.matte = {nullptr, 1, type, bits, 0};
        g.window = g.active = {0, s.ws - 1, 0, s.hs - 1};
        if (inset) g.active = {1, s.ws - 2, 1, s.hs - 2};
        const double top = bits == 32 ? 1.0 : std::ldexp(1.0, bits) - 1;
        std::vector<Plane> src(std::size_t(channels), Plane(s.ws, s.hs));
        for (Plane &plane : src)
          for (int32_t y = g.active.bottom; y <= g.active.top; ++y)
            for (int32_t x = g.active.left; x <= g.active.right; ++x)
              plane(x, y) =
                  bits == 32 ? double(rng() % 1000) / 999.0 : double(rng() % uint32_t(top + 1));
        const std::string path = dir_.file("r.rla");
        write_image(path, g,
                    [&](int c, int32_t x, int32_t y) { return src[std::size_t(c)](x, y); });
        for (int c = 0; c < channels; ++c)
          for (double &v : src[std::size_t(c)].v)
            v = curve && bits == 8 && c < 3 ? table[int(v)] : v / top;
        ORX_OBJECT *h = open_image(path);
        ASSERT_NE(h, nullptr);
        orx__resample_operator(h, f, 0, s.wd - 1, 0, s.hd - 1);
        ASSERT_EQ(orx__err, 0);
        const std::vector<Plane> all = read_all(h);
        EXPECT_EQ(ORX_close(h), 0);
        for (const bool pass : {false, true}) {
          h = orx__cast_operator(open_image(path));
          if (pass) pass_through(h);
          orx__resample_operator(h, f, 0, s.wd - 1, 0, s.hd - 1);
          ASSERT_EQ(all, read_all(h)) << (pass ? "past a layer" : "past the caller's cast");
          EXPECT_EQ(ORX_close(h), 0);
        }
        for (int c = 0; c < channels; ++c) {
          const Plane want = reference(src[std::size_t(c)], s.wd, s.hd, *f);
          for (int i = 0; i < s.hd; ++i)
            for (int j = 0; j < s.wd; ++j)
              ASSERT_NEAR(all[std::size_t(c)](j, i), want(j, i), 2e-5 * (1 + std::fabs(want(j, i))))
                  << "channel " << c << " at " << j << "," << i;
        }

        // Writing: two channels interleaved, the second twice the first
        // (an exact scaling, so its output is twice too, but for the
        // rounding of terms that pass through subnormal numbers).
        Captured out{2, s.wd, {}};
        ORX_OBJECT *w = capture_object(out, {0, s.wd - 1, 0, s.hd - 1});
        orx__resample_operator(w, f, 0, s.ws - 1, 0, s.hs - 1);
        ASSERT_EQ(orx__err, 0);
        ORX_OBJECT *r = orx__cast_operator(open_image(path));  // as the reading side saw it
        const Plane cast = read_all(r)[0];
        ORX_close(r);
        std::vector<float> line(static_cast<std::size_t>(2 * s.ws));
        void *rows[2] = {line.data(), nullptr};
        for (int32_t y = 0; y < s.hs; ++y) {
          for (int32_t x = 0; x < s.ws; ++x) {
            line[std::size_t(2 * x)] = float(cast(x, y));
            line[std::size_t(2 * x + 1)] = 2 * line[std::size_t(2 * x)];
          }
          ASSERT_EQ(ORX_scan_write(w, y, rows), 0) << "line " << y;
        }
        ASSERT_EQ(ORX_close(w), 0);
        ASSERT_EQ(out.lines.size(), std::size_t(s.hd));
        for (int32_t y = 0; y < s.hd; ++y)
          for (int32_t x = 0; x < s.wd; ++x) {
            const auto v = float(all[0](x, y));
            ASSERT_EQ(out.lines[std::size_t(y)][std::size_t(2 * x)], v) << x << "," << y;
            ASSERT_NEAR(out.lines[std::size_t(y)][std::size_t(2 * x + 1)], 2 * v,
                        1e-6 * std::fabs(v) + 1e-30)
                << x << "," << y;
          }
      }
    }
  }
  ORX_gamma_done(table);
}

TEST_F(Resample, FailedAllocationsWhileWritingLeaveTheHandle) {
  // The handle is made before the failures start.
  ErrorCapture errors;
  for (long n = 1;; ++n) {
    Captured out{1, 13, {}};
    ORX_OBJECT *w = capture_object(out, {0, 12, 0, 4});
    bool fired = false;
    {
      FailNthAllocation fail(n);
      orx__resample_operator(w, ORX_filter_find("mitchell"), 0, 30, 0, 9);
      fired = fail.fired();
    }
    if (fired) {
      EXPECT_EQ(orx__err, ORX_E_NO_MEMORY);
      EXPECT_EQ(w->scan, capture_scan);
    }
    ORX_close(w);
    if (!fired) break;
  }
}

}  // namespace
