// orx maketx and orx swatch: write a file's first image through the
// "mipmap" or "swatch" image process.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#include "commands.hpp"
#include "orx/imp.h"
#include "orx/registry.h"
#include "tool.hpp"

namespace orx::tool {
namespace {

// Streams image 0 of in_path into out_path through the process the request
// names.
int through_process(const std::string &in_path, const std::string &out_path,
                    IMP_REQUEST request, const std::vector<std::string> &setting_texts = {}) {
  NamedSettings asked;
  std::string why;
  if (!output_settings(setting_texts, out_path, "", &asked, &why)) return complain(out_path, why);
  SettingArray settings;
  Image in;
  if (!in.open_read(in_path, "")) return complain(in_path);
  SafeOutput output(out_path);
  ORX_INFO out;
  ORX_info_init(&out);
  out.handle = const_cast<char *>(output.path().c_str());
  out.full_path = 1;
  out.settings = settings.resolve(writing_format(out_path, ""), asked);
  ORX_IFD image = in.ifd(0);  // copied by the open
  out.images = &image;
  out.image_count = 1;
  ORX_OBJECT *object = nullptr;
  {
    std::lock_guard<std::mutex> hold(library_state_lock());  // the process database
    object = IMP_open(&out, &request, "w");
  }
  if (object == nullptr) return complain(out_path, last_error());
  for (int32_t y = image.window.bottom; y <= image.window.top; ++y) {
    void **rows = nullptr;
    if (!in.read_row(0, y, &rows)) {
      ORX_close(object);
      return complain(in_path);
    }
    if (ORX_scan_write(object, y, rows) != 0) {
      ORX_close(object);
      return complain(out_path, last_error());
    }
  }
  if (ORX_close(object) != 0) return complain(out_path, last_error());
  if (!output.commit()) return complain(out_path, std::strerror(errno));
  return kOk;
}

}  // namespace

int run_maketx(const MaketxOptions &options) {
  int32_t type = -1;
  if (options.type == "color") type = IMP_TEXTURE_COLOR;
  if (options.type == "scalar") type = IMP_TEXTURE_SCALAR;
  if (options.type == "bump") type = IMP_TEXTURE_BUMP;
  if (type < 0) return complain(options.type, "the texture type is color, scalar or bump");
  if (options.filter != "box")
    return complain(options.filter, "the level filter is box (a 2:1 average)");
  const IMP_REQUEST request{"mipmap", 0, type, 0, 0};
  return run_frames(options.sequence, options.in, options.out, "",
                    [&](const std::string &in, const std::string &out) {
                      return through_process(in, out, request, options.settings);
                    });
}

int run_swatch(const SwatchOptions &options) {
  if (options.size < 1) return complain(std::to_string(options.size), "the swatch size is at least 1");
  return through_process(options.in, options.out,
                         IMP_REQUEST{"swatch", static_cast<uint32_t>(options.size), 0, 0, 0});
}

}  // namespace orx::tool
