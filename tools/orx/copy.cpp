// orx copy: convert between any formats the registry knows, keeping every
// image, channel group and header text the target can store.
#include <cstring>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "commands.hpp"
#include "orx/attributes.h"
#include "orx/field_merge.h"
#include "progress.hpp"
#include "tool.hpp"

namespace orx::tool {
namespace {

// What the written file will not hold of the source, in one line: what the
// format says it narrowed ("orx:narrowed" on each written image) and the
// attributes its write open dropped from the images it writes.  "" when nothing.
std::string losses(const ORX_INFO &from, const ORX_INFO &to) {
  std::string narrowed, dropped;
  for (int32_t i = 0; i < to.image_count; ++i)
    if (const char *n = ORX_attr_get_string(&to, i, "orx:narrowed"))
      narrowed += (narrowed.empty() ? "" : "; ") + std::string(n);
  for (int32_t k = 0; const ORX_ATTR *a = ORX_attr_at(&from, ORX_ATTR_ANY_IMAGE, k); ++k)
    if (a->image < to.image_count && std::strncmp(a->name, "orx:", 4) != 0 &&
        ORX_attr_find(&to, a->image, a->name) == nullptr &&
        dropped.find(std::string(" ") + a->name + ",") == std::string::npos)
      dropped += std::string(" ") + a->name + ",";
  if (!dropped.empty()) dropped = "dropped attributes" + dropped.substr(0, dropped.size() - 1);
  return narrowed + (!narrowed.empty() && !dropped.empty() ? "; " : "") + dropped;
}

int copy_one(const std::string &in_path, const std::string &out_path, const CopyOptions &o) {
  // Straight colour stays as stored, both ways, when asked.
  std::vector<std::pair<std::string, std::string>> alpha;
  if (o.unassociated) alpha.emplace_back("unassociated alpha", "1");
  Image in;
  if (!in.open_read(in_path, "", alpha)) return complain(in_path);
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
  NamedSettings asked;
  if (!output_settings(o.settings, out_path, o.type, &asked, &why)) return complain(out_path, why);
  NamedSettings settings = alpha;
  if (o.depth == "float") settings.emplace_back("pixel type", "float");
  settings.insert(settings.end(), asked.begin(), asked.end());  // the command line's win
  // A format that holds one image per file refuses a request of several;
  // the copy then keeps the first and says so, as it does for any other
  // narrowing.
  std::string kept_first;
  if (!out.open_write(out_path, o.type, in.info(), settings)) {
    if (in.images() < 2 || ORX_last_status() != ORX_E_UNSUPPORTED) return complain(out_path);
    ORX_INFO first = in.info();
    first.image_count = 1;
    if (!out.open_write(out_path, o.type, first, settings)) return complain(out_path);
    kept_first = "kept the first of " + std::to_string(in.images()) + " images";
  }
  const std::string lost = losses(in.info(), out.info());
  if (!kept_first.empty() || !lost.empty())
    say(out_path + ": " + kept_first + (!kept_first.empty() && !lost.empty() ? "; " : "") + lost);
  long rows = 0;
  for (int i = 0; i < out.images(); ++i) rows += height_of(in.ifd(i));
  Progress progress(rows);
  for (int i = 0; i < out.images(); ++i) {
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
