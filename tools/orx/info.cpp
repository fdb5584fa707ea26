// orx info: what a file holds, as text or JSON.
#include <cmath>
#include <cstdio>
#include <string>

#include "commands.hpp"
#include "orx/attributes.h"
#include "tool.hpp"

namespace orx::tool {
namespace {

std::string json_string(const char *s) {
  std::string out = "\"";
  for (const char *p = s != nullptr ? s : ""; *p != '\0'; ++p) {
    const auto c = static_cast<unsigned char>(*p);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

const char *text(const char *s) { return s != nullptr ? s : ""; }

// An attribute's value: a string quoted, numbers separated by spaces (a JSON
// array when more than one), bytes as their count for people and as base 16
// in JSON, so that a profile can be compared by value.
std::string attr_value(const ORX_ATTR &a, bool json) {
  if (a.type == ORX_ATTR_STRING) return json_string(static_cast<const char *>(a.data));
  const auto *bytes = static_cast<const unsigned char *>(a.data);
  if (a.type == ORX_ATTR_BYTES) {
    if (!json) return "<" + std::to_string(a.count) + " bytes>";
    std::string hex = "\"";
    for (int32_t i = 0; i < a.count; ++i) {
      char buf[4];
      std::snprintf(buf, sizeof buf, "%02x", bytes[i]);
      hex += buf;
    }
    return hex + "\"";
  }
  std::string out = json && a.count > 1 ? "[" : "";
  for (int32_t i = 0; i < a.count; ++i) {
    char buf[32];
    if (a.type == ORX_ATTR_INT)
      std::snprintf(buf, sizeof buf, "%d", static_cast<const int32_t *>(a.data)[i]);
    else if (a.type == ORX_ATTR_FLOAT)
      std::snprintf(buf, sizeof buf, "%.9g", static_cast<double>(static_cast<const float *>(a.data)[i]));
    else
      std::snprintf(buf, sizeof buf, "%.17g", static_cast<const double *>(a.data)[i]);
    // JSON has no NaN or infinity: null stands for them.
    const double v = a.type == ORX_ATTR_FLOAT ? static_cast<const float *>(a.data)[i]
                     : a.type == ORX_ATTR_DOUBLE ? static_cast<const double *>(a.data)[i]
                                                 : 0.0;
    out += (i > 0 ? (json ? ", " : " ") : "") + std::string(json && !std::isfinite(v) ? "null" : buf);
  }
  return out + (json && a.count > 1 ? "]" : "");
}

struct Texts {
  const char *label;
  const char *value;
};

void print_text(const std::string &file, const Image &image) {
  const ORX_INFO &info = image.info();
  const ORX_FORMAT *format = image.get()->format;
  std::printf("%s\n", file.c_str());
  std::printf("  format      %s (%s)\n", format ? text(format->key) : "?",
              format ? text(format->name) : "?");
  std::printf("  frame       %d\n  job         %d\n", info.frame, info.job);
  const Texts texts[] = {{"name", info.name},       {"desc", info.desc},
                         {"program", info.program}, {"machine", info.machine},
                         {"user", info.user},       {"date", info.date},
                         {"time", info.time},       {"filter", info.filter}};
  for (const auto &t : texts) std::printf("  %-11s %s\n", t.label, text(t.value));
  std::printf("  red         %.4f %.4f\n  green       %.4f %.4f\n", info.red[0], info.red[1],
              info.green[0], info.green[1]);
  std::printf("  blue        %.4f %.4f\n  white       %.4f %.4f\n", info.blue[0], info.blue[1],
              info.white[0], info.white[1]);
  for (int i = 0; i < image.images(); ++i) {
    const ORX_IFD &d = image.ifd(i);
    std::printf("  image %d\n", i);
    std::printf("    window    %d..%d x %d..%d (%d x %d)\n", d.window.left, d.window.right,
                d.window.bottom, d.window.top, width_of(d), height_of(d));
    std::printf("    active    %d..%d x %d..%d\n", d.active.left, d.active.right, d.active.bottom,
                d.active.top);
    const struct {
      const char *label;
      const ORX_CHANNELS &g;
    } groups[] = {{"channels", d.image}, {"matte", d.matte}, {"aux", d.aux}};
    for (const auto &g : groups)
      if (g.g.count > 0)
        std::printf("    %-9s %d x %s %d-bit%s%s\n", g.label, g.g.count, type_name(g.g.type),
                    g.g.bits, g.g.name ? "  " : "", text(g.g.name));
    std::printf("    gamma     %.4f\n    aspect    %s %.3f\n    field     %d\n", d.curve.gamma,
                text(d.aspect), d.aspect_ratio, d.field);
    for (int32_t k = 0; const ORX_ATTR *a = ORX_attr_at(&info, i, k); ++k)
      std::printf("    %s = %s\n", a->name, attr_value(*a, false).c_str());
  }
}

// One line, as iinfo prints it: "a.rla : 640 x 480, 4 channel, uint8 rla".
void print_brief(const std::string &file, const Image &image) {
  const ORX_IFD &d = image.ifd(0);
  const ORX_CHANNELS &g = group_of(d, 0);
  const ORX_FORMAT *format = image.get()->format;
  std::string type = g.type == ORX_C_FLOAT    ? "float"
                     : g.type == ORX_C_DOUBLE ? "double"
                                              : "uint" + std::to_string(g.bits);
  std::printf("%s : %4d x %4d, %d channel, %s %s", file.c_str(), width_of(d), height_of(d),
              channels_of(d), type.c_str(), format ? text(format->key) : "?");
  if (image.images() > 1) std::printf(" (%d images)", image.images());
  std::printf("\n");
}

void print_json(const std::string &file, const Image &image, bool first) {
  const ORX_INFO &info = image.info();
  const ORX_FORMAT *format = image.get()->format;
  std::printf("%s  {\"file\": %s, \"format\": %s, \"format_name\": %s, \"frame\": %d, \"job\": %d",
              first ? "" : ",\n", json_string(file.c_str()).c_str(),
              json_string(format ? format->key : nullptr).c_str(),
              json_string(format ? format->name : nullptr).c_str(), info.frame, info.job);
  const Texts texts[] = {{"name", info.name},       {"desc", info.desc},
                         {"program", info.program}, {"machine", info.machine},
                         {"user", info.user},       {"date", info.date},
                         {"time", info.time},       {"filter", info.filter}};
  for (const auto &t : texts)
    std::printf(", \"%s\": %s", t.label, json_string(t.value).c_str());
  std::printf(", \"chromaticities\": {\"red\": [%g, %g], \"green\": [%g, %g], \"blue\": [%g, %g], "
              "\"white\": [%g, %g]}",
              info.red[0], info.red[1], info.green[0], info.green[1], info.blue[0], info.blue[1],
              info.white[0], info.white[1]);
  std::printf(", \"images\": [");
  for (int i = 0; i < image.images(); ++i) {
    const ORX_IFD &d = image.ifd(i);
    std::printf("%s{\"window\": [%d, %d, %d, %d], \"active\": [%d, %d, %d, %d]", i ? ", " : "",
                d.window.left, d.window.right, d.window.bottom, d.window.top, d.active.left,
                d.active.right, d.active.bottom, d.active.top);
    const struct {
      const char *label;
      const ORX_CHANNELS &g;
    } groups[] = {{"channels", d.image}, {"matte", d.matte}, {"aux", d.aux}};
    for (const auto &g : groups)
      std::printf(", \"%s\": {\"count\": %d, \"type\": \"%s\", \"bits\": %d, \"name\": %s}",
                  g.label, g.g.count, type_name(g.g.type), g.g.bits,
                  json_string(g.g.name).c_str());
    std::printf(", \"gamma\": %g, \"aspect\": %s, \"aspect_ratio\": %g, \"field\": %d",
                d.curve.gamma, json_string(d.aspect).c_str(), d.aspect_ratio, d.field);
    std::printf(", \"attributes\": {");
    for (int32_t k = 0; const ORX_ATTR *a = ORX_attr_at(&info, i, k); ++k)
      std::printf("%s%s: %s", k > 0 ? ", " : "", json_string(a->name).c_str(),
                  attr_value(*a, true).c_str());
    std::printf("}}");
  }
  std::printf("]}");
}

}  // namespace

int run_info(const std::vector<std::string> &files, const std::string &type, bool json,
             bool brief) {
  int status = kOk;
  bool first = true;
  if (json) std::printf("[\n");
  for (std::size_t k = 0; k < files.size(); ++k) {
    Image image;
    if (!image.open_read(files[k], type)) {
      status = complain(files[k]);
      continue;
    }
    if (json)
      print_json(files[k], image, first);
    else if (brief)
      print_brief(files[k], image);
    else
      print_text(files[k], image);
    first = false;
  }
  if (json) std::printf("%s]\n", first ? "" : "\n");
  return status;
}

}  // namespace orx::tool
