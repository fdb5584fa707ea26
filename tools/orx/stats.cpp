// orx stats: per-channel statistics of every image of each file, laid out as
// oiiotool --stats prints them.  Integer samples count as value / (2^bits - 1).
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "commands.hpp"
#include "progress.hpp"
#include "orx/operators.h"
#include "tool.hpp"

namespace orx::tool {
namespace {

struct ChannelStats {
  double min = INFINITY, max = -INFINITY;
  double mean = 0.0, m2 = 0.0;  // running mean and sum of squared deviations
  long finite = 0, nan = 0, inf = 0;

  void add(double v) {
    if (std::isnan(v)) {
      ++nan;
    } else if (std::isinf(v)) {
      ++inf;
    } else {
      min = std::fmin(min, v);
      max = std::fmax(max, v);
      const double delta = v - mean;
      mean += delta / static_cast<double>(++finite);
      m2 += delta * (v - mean);
    }
  }
};

template <typename Field>
void print_row(const char *label, const std::vector<ChannelStats> &stats, Field field) {
  std::printf("    Stats %s:", label);
  for (const ChannelStats &s : stats) std::printf(" %s", field(s).c_str());
  std::printf("\n");
}

std::string number(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%f", v);
  return buf;
}

int stats_of(const std::string &file, const std::string &type) {
  Image image;
  if (!image.open_read(file, type)) return complain(file);
  long rows = 0;
  for (int i = 0; i < image.images(); ++i) rows += height_of(image.ifd(i));
  Progress progress(rows);
  std::printf("%s\n", file.c_str());
  for (int i = 0; i < image.images(); ++i) {
    const ORX_IFD &d = image.ifd(i);
    const int width = width_of(d), channels = channels_of(d);
    std::vector<ChannelStats> stats(static_cast<std::size_t>(channels));
    bool floating = false;
    for (int c = 0; c < channels; ++c) floating = floating || group_of(d, c).type != ORX_C_INTEGER;
    RowBuffers values(channels, width);
    for (int32_t y = d.window.bottom; y <= d.window.top; ++y) {
      void **row = nullptr;
      if (!image.read_row(i, y, &row)) return complain(file);
      for (int c = 0; c < channels; ++c) {
        ORX_convert_row(&group_of(d, c), row[c], &double_channel(), values.row(c), width);
        const double *v = values.doubles(c);
        for (int x = 0; x < width; ++x) stats[static_cast<std::size_t>(c)].add(v[x]);
      }
      progress.step();
    }
    std::printf("  image %d: %d x %d, channels", i, width, height_of(d));
    for (int c = 0; c < channels; ++c) std::printf("%s %s", c ? "," : "", channel_label(d, c).c_str());
    std::printf("\n");
    const auto finite = [](const ChannelStats &s, double v) { return s.finite > 0 ? v : NAN; };
    print_row("Min", stats, [&](const ChannelStats &s) { return number(finite(s, s.min)); });
    print_row("Max", stats, [&](const ChannelStats &s) { return number(finite(s, s.max)); });
    print_row("Avg", stats, [&](const ChannelStats &s) { return number(finite(s, s.mean)); });
    print_row("StdDev", stats, [&](const ChannelStats &s) {
      return number(finite(s, std::sqrt(s.m2 / static_cast<double>(s.finite > 0 ? s.finite : 1))));
    });
    if (floating) {
      print_row("NanCount", stats, [](const ChannelStats &s) { return std::to_string(s.nan); });
      print_row("InfCount", stats, [](const ChannelStats &s) { return std::to_string(s.inf); });
      print_row("FiniteCount", stats, [](const ChannelStats &s) { return std::to_string(s.finite); });
    }
  }
  return kOk;
}

}  // namespace

int run_stats(const std::vector<std::string> &files, const std::string &type) {
  int status = kOk;
  for (const std::string &file : files)
    if (stats_of(file, type) != kOk) status = kFailed;
  return status;
}

}  // namespace orx::tool
