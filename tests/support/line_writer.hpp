// Lines written through an object the test opened itself (through a process,
// under a layer or from an edited request), with the status of the calls.
#pragma once

#include <vector>

#include "support/images.hpp"

namespace orx::test {

// Writes every line of image 0 of object, bottom up or in the given order,
// each sample from sample stored as the description says, then closes the
// object.  Returns the first non-zero status of the writes and the close.
inline int write_lines(ORX_OBJECT *object, const Sample &sample, std::vector<int32_t> order = {}) {
  const ORX_IFD &d = object->info.images[0];
  const int32_t width = d.window.right - d.window.left + 1;
  const int channels = d.image.count + d.matte.count + d.aux.count;
  std::vector<std::vector<double>> storage(static_cast<std::size_t>(channels),
                                           std::vector<double>(static_cast<std::size_t>(width)));
  std::vector<void *> rows;
  for (auto &s : storage) rows.push_back(s.data());
  rows.push_back(nullptr);
  if (order.empty())
    for (int32_t y = d.window.bottom; y <= d.window.top; ++y) order.push_back(y);
  int status = 0;
  for (int32_t y : order) {
    for (int c = 0; c < channels; ++c)
      for (int32_t x = 0; x < width; ++x)
        put(group_of(d, c), rows[static_cast<std::size_t>(c)], x, sample(c, x, y));
    const int written = ORX_scan_write(object, y, rows.data());
    if (status == 0) status = written;
  }
  const int closed = ORX_close(object);
  return status != 0 ? status : closed;
}

}  // namespace orx::test
