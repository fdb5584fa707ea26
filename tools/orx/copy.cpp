// orx copy: convert between any formats the registry knows, keeping every
// image, channel group and header text the target can store.
#include <mutex>
#include <string>
#include <vector>

#include "commands.hpp"
#include "format_settings.hpp"
#include "orx/field_merge.h"
#include "progress.hpp"
#include "tool.hpp"

namespace orx::tool {
namespace {

int copy_one(const std::string &in_path, const std::string &out_path, const CopyOptions &o) {
  // Files of straight colour are read and written as stored when asked.
  std::vector<std::string> asked;
  if (o.unassociated) asked.emplace_back(kUnassociatedAlpha);
  FormatSettings read_settings(format_reading(in_path), asked);
  FormatSettings write_settings(format_writing(out_path, o.type), asked);
  Image in;
  in.use_settings(read_settings.get());
  if (!in.open_read(in_path, "")) return complain(in_path);
  std::string why;
  {
    // Field names and the operators' databases: one thread at a time.
    std::lock_guard<std::mutex> hold(library_state_lock());
    if (o.fields) {
      ORX_OBJECT *merged = ORX__field_merge(in.get());
      if (merged == in.get())
        return complain(in_path, last_error().empty() ? "not a field file with its partner"
                                                      : last_error());
      in.adopt(merged);
    }
    if (!apply_operators(in.get(), o, &why)) return complain(in_path, why);
  }
  Image out;
  out.use_settings(write_settings.get());
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
  return run_frames(o.sequence, o.in, o.out, o.type,
                    [&o](const std::string &in, const std::string &out) { return copy_one(in, out, o); });
}

}  // namespace orx::tool
