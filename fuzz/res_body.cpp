// Resource files: the bytes opened as a resource file, every resource found
// by name and loaded, the whole file dumped; then opened as a message
// catalogue and used for a report.
#include <cstdio>
#include <cstring>
#include <string>

#include "bodies.hpp"
#include "orx/err.h"
#include "orx/res.h"
#include "quiet.hpp"

namespace orx::fuzz {

int resource_file(const std::uint8_t *data, std::size_t size) {
  silence_reports();
  static const std::string path = scratch_path("res");
  if (!write_bytes(path, data, size)) return 0;
  ORX_RES_FILE *file = ORX_res_open(path.c_str());
  if (file != nullptr) {
    for (int32_t i = 0; i < ORX_res_count(file); ++i) {
      const ORX_RES_ENTRY *e = ORX_res_entry(file, i);
      if (ORX_res_find(file, e->type, e->name) != e) return -1;  // the index must be searchable
      ERR_free(ORX_res_load(file, e));
    }
    std::FILE *sink = std::fopen("/dev/null", "w");
    if (sink != nullptr) {
      ORX_res_dump(file, sink);
      std::fclose(sink);
    }
    ORX_res_close(file);
  }
  if (void *cat = ORX_msg_cat_open(path.c_str())) {
    ERR_report_cat(cat, 902, 44, 3, "mode %s", "r");
    ERR_report_cat(cat, 902, 52, 3, "%s; %s", "a", "b");
    ORX_msg_cat_close(cat);
  }
  return 0;
}

}  // namespace orx::fuzz
