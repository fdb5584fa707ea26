// orx res: resource files — dump one as text, build one from text, and
// print the library's messages as the source of a message catalogue.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "commands.hpp"
#include "orx/res.h"
#include "tool.hpp"

namespace orx::tool {

int run_res(const ResOptions &options) {
  if (options.action == "dump") {
    ORX_RES_FILE *file = ORX_res_open(options.in.c_str());
    if (file == nullptr) return complain(options.in, last_error());
    const int status = ORX_res_dump(file, stdout);
    ORX_res_close(file);
    return status == 0 ? kOk : complain(options.in, last_error());
  }
  if (options.action == "build") {
    SafeOutput output(options.out);
    if (ORX_res_build_text(options.in.c_str(), output.path().c_str()) != 0)
      return complain(options.out, last_error());
    if (!output.commit()) return complain(options.out, std::strerror(errno));
    return kOk;
  }
  return ORX_msg_cat_write_defaults(stdout) == 0 ? kOk : kFailed;
}

}  // namespace orx::tool
