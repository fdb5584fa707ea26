// orx copy: convert between any formats the registry knows, keeping every
// image, channel group and header text the target can store.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "commands.hpp"
#include "orx/field_merge.h"
#include "progress.hpp"
#include "tool.hpp"

namespace orx::tool {
namespace {

// The file name of frame f in a name with a run of "#": the run becomes the
// frame number, zero-padded to the run's width.  Names without a run stay.
std::string frame_name(const std::string &pattern, int frame) {
  std::size_t start = pattern.find('#');
  if (start == std::string::npos) return pattern;
  std::size_t end = pattern.find_first_not_of('#', start);
  if (end == std::string::npos) end = pattern.size();
  char digits[32];
  std::snprintf(digits, sizeof digits, "%0*d", static_cast<int>(end - start), frame);
  return pattern.substr(0, start) + digits + pattern.substr(end);
}

bool parse_frames(const std::string &text, int *first, int *last) {
  if (text.empty()) return false;
  char *end = nullptr;
  long a = std::strtol(text.c_str(), &end, 10);
  long b = a;
  if (*end == '-') b = std::strtol(end + 1, &end, 10);
  if (*end != '\0' || b < a) return false;
  *first = static_cast<int>(a);
  *last = static_cast<int>(b);
  return true;
}

int copy_one(const std::string &in_path, const std::string &out_path, const CopyOptions &o) {
  Image in;
  if (!in.open_read(in_path, "")) return complain(in_path);
  std::string why;
  if (o.fields) {
    ORX_OBJECT *merged = ORX__field_merge(in.get());
    if (merged == in.get())
      return complain(in_path, last_error().empty() ? "not a field file with its partner"
                                                    : last_error());
    in.adopt(merged);
  }
  if (!apply_operators(in.get(), o, &why)) return complain(in_path, why);
  Image out;
  if (!out.open_write(out_path, o.type, in.info())) return complain(out_path);
  long rows = 0;
  for (int i = 0; i < in.images(); ++i) rows += height_of(in.ifd(i));
  Progress progress(rows);
  for (int i = 0; i < in.images(); ++i) {
    const ORX_IFD &d = in.ifd(i);
    for (int32_t y = d.window.bottom; y <= d.window.top; ++y) {
      void **row = nullptr;
      if (!in.read_row(i, y, &row)) return complain(in_path);
      if (!out.write_row(i, y, row)) return complain(out_path);
      progress.step();
    }
  }
  if (!out.close()) return complain(out_path);
  return kOk;
}

}  // namespace

int run_copy(const CopyOptions &o) {
  if (o.frames.empty()) return copy_one(o.in, o.out, o);
  int first = 0, last = 0;
  if (!parse_frames(o.frames, &first, &last))
    return complain("--frames " + o.frames, "expected A or A-B with A <= B");
  // Gaps in the sequence are named all at once, before anything is written.
  std::vector<bool> missing(static_cast<std::size_t>(last - first + 1), false);
  std::string gaps;
  for (int f = first; f <= last; ++f) {
    const std::string name = frame_name(o.in, f);
    if (name[0] == '|' || access(name.c_str(), F_OK) == 0) continue;
    missing[static_cast<std::size_t>(f - first)] = true;
    gaps += (gaps.empty() ? "" : ", ") + std::to_string(f);
  }
  int status = kOk;
  if (!gaps.empty()) {
    complain(o.in, "missing frames " + gaps + (o.keep_going ? "" : " (--keep-going copies the others)"));
    if (!o.keep_going) return kFailed;
    status = kFailed;
  }
  for (int f = first; f <= last; ++f) {
    if (missing[static_cast<std::size_t>(f - first)]) continue;
    if (copy_one(frame_name(o.in, f), frame_name(o.out, f), o) == kOk) continue;
    if (!o.keep_going) return kFailed;
    status = kFailed;
  }
  return status;
}

}  // namespace orx::tool
