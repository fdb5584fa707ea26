// A read header becomes a descriptor: windows, channel groups, texts,
// aspect and chromaticities, and the file-wide fields of the object's info.
#include <cstdio>
#include <cstdlib>

#include "err/heap.hpp"
#include "err/messages.hpp"
#include "formats/rla/reader_state.hpp"
#include "orx/err.h"
#include "orx/fmt.h"
#include "orx/orx.h"
#include "orx/str.h"

namespace orx::rla {
namespace {

// Replaces *field with a copy of text; false (reported, -10) when memory is short.
bool save(char **field, const char *text) {
  char *copy = STR_save(text);
  if (copy == nullptr) {
    fail(ORX_E_NO_MEMORY, Msg::kNoMemory);
    return false;
  }
  heap::release(*field);
  *field = copy;
  return true;
}

// What the text holds of x and y replaces them (a half-written field
// changes x only), and z follows.  A blank field says nothing: the record
// keeps its placeholder values, which stand for "not known".
void chromaticity(const char *text, float *xyz) {
  if (std::sscanf(text, "%f %f", &xyz[0], &xyz[1]) >= 1) xyz[2] = 1.0f - xyz[0] - xyz[1];
}

// Resolution and aspect ratio: those of the named format when the format
// database knows it, else the window's size with the stored ratio (or the
// window's shape when the stored ratio is not a positive number).
void describe_aspect(const Header &h, ORX_IFD &ifd) {
  if (const FMT_FORMAT *format = FMT_find(h.aspect.data())) {
    ifd.x_resolution = format->x_resolution;
    ifd.y_resolution = format->y_resolution;
    ifd.aspect_ratio = format->aspect;
    return;
  }
  const int width = ifd.window.right - ifd.window.left + 1;
  const int height = ifd.window.top - ifd.window.bottom + 1;
  ifd.x_resolution = width;
  ifd.y_resolution = height;
  float stored = 0.0f;
  const char *text = STR_skip_space(h.aspect_ratio.data());
  if (text != nullptr && *text != '\0' && STR_is_real(text)) stored = std::strtof(text, nullptr);
  ifd.aspect_ratio = stored > 0.0f   ? stored
                     : height > 0    ? static_cast<float>(width) / static_cast<float>(height)
                                     : 1.0f;
}

}  // namespace

int describe_header(ORX_OBJECT *object, int index, const Header &h, ORX_IFD &ifd) {
  ifd.version = index == 0 ? 1 : 2;
  ifd.window = {h.window.left, h.window.right, h.window.bottom, h.window.top};
  ifd.active = {h.active.left, h.active.right, h.active.bottom, h.active.top};
  ORX_CHANNELS *groups[] = {&ifd.image, &ifd.matte, &ifd.aux};
  const ChannelGroup *stored[] = {&h.image, &h.matte, &h.aux};
  for (int g = 0; g < 3; ++g) {
    groups[g]->count = stored[g]->count;
    groups[g]->type = stored[g]->type;
    groups[g]->bits = stored[g]->bits;
  }
  ifd.field = h.field;
  ifd.curve.gamma = static_cast<float>(std::atof(h.gamma.data()));
  // Older layouts have no auxiliary description at all.
  if (!save(&ifd.aspect, h.aspect.data()) || !save(&ifd.image.name, h.channel_desc.data()) ||
      (h.revision == kCurrentRevision && !save(&ifd.aux.name, h.aux_desc.data())))
    return ORX_E_NO_MEMORY;
  describe_aspect(h, ifd);
  ORX_INFO &info = object->info;
  info.frame = h.frame;
  info.job = h.job;
  // Like the frame and job numbers, the time and filter of the last header
  // read stand for the file.
  if (!save(&info.time, h.time.data()) || !save(&info.filter, h.filter.data()))
    return ORX_E_NO_MEMORY;
  if (index != 0) return 0;
  char date[kDateTextSize];
  const char *date_text = expand_date(h.date.data(), date) ? date : h.date.data();
  if (!save(&info.name, h.name.data()) || !save(&info.desc, h.desc.data()) ||
      !save(&info.program, h.program.data()) || !save(&info.machine, h.machine.data()) ||
      !save(&info.user, h.user.data()) || !save(&info.date, date_text))
    return ORX_E_NO_MEMORY;
  chromaticity(h.red.data(), info.red);
  chromaticity(h.green.data(), info.green);
  chromaticity(h.blue.data(), info.blue);
  chromaticity(h.white.data(), info.white);
  return save(&info.compression, "run length encoded") ? 0 : ORX_E_NO_MEMORY;
}

}  // namespace orx::rla
