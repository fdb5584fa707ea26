// The writer and the reader against each other: the bytes describe one or
// two images (window, active window, channel groups with their types and
// widths) and then their pixels; what is written must read back the same,
// with zeros outside the active window.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bodies.hpp"
#include "orx/err.h"
#include "orx/orx.h"
#include "orx/plugin.h"
#include "orx/rla.h"
#include "orx/str.h"
#include "quiet.hpp"

namespace orx::fuzz {
namespace {

// Takes bytes from the front of the input, zeros once it is used up.
struct Bytes {
  const std::uint8_t *at;
  const std::uint8_t *end;
  int next() { return at < end ? *at++ : 0; }
};

constexpr int kTypes[] = {ORX_C_INTEGER, ORX_C_INTEGER, ORX_C_FLOAT, ORX_C_DOUBLE};

void group(Bytes &in, ORX_CHANNELS &g, int most) {
  const int b = in.next();
  g.count = b % (most + 1);
  g.type = kTypes[(b >> 2) % 4];
  g.bits = g.type == ORX_C_FLOAT ? 32 : g.type == ORX_C_DOUBLE ? 64 : in.next() % 32 + 1;
}

void shape(Bytes &in, ORX_IFD &ifd) {
  orx__init_ifd(&ifd);
  const int left = in.next() % 8, bottom = in.next() % 8;
  const int width = in.next() % 64 + 1, height = in.next() % 12 + 1;
  ifd.window = {left, left + width - 1, bottom, bottom + height - 1};
  const int al = left + in.next() % width, ab = bottom + in.next() % height;
  const int ar = al + in.next() % (left + width - al), at = ab + in.next() % (bottom + height - ab);
  ifd.active = {al, ar, ab, at};
  group(in, ifd.image, 3);
  group(in, ifd.matte, 2);
  group(in, ifd.aux, 2);
  ifd.aspect = STR_save("square");
}

std::size_t sample_size(const ORX_CHANNELS &g) {
  if (g.type == ORX_C_FLOAT) return 4;
  if (g.type == ORX_C_DOUBLE) return 8;
  return g.bits <= 8 ? 1 : g.bits <= 16 ? 2 : 4;
}

// Bytes of every channel's row, in channel order.
std::vector<std::size_t> row_bytes(const ORX_IFD &ifd) {
  std::vector<std::size_t> out;
  const auto width = static_cast<std::size_t>(ifd.window.right - ifd.window.left + 1);
  for (const ORX_CHANNELS *g : {&ifd.image, &ifd.matte, &ifd.aux})
    for (int c = 0; c < g->count; ++c) out.push_back(width * sample_size(*g));
  return out;
}

// Channel c's row y as the reader must give it: the pixels inside the
// active window, zeros elsewhere.  Pixels come from the input, cycled.
std::vector<std::uint8_t> pixels(const ORX_IFD &ifd, const std::vector<std::uint8_t> &source,
                                 std::size_t c, int y, bool whole_row) {
  const std::vector<std::size_t> sizes = row_bytes(ifd);
  std::vector<std::uint8_t> row(sizes[c], 0);
  const auto width = static_cast<std::size_t>(ifd.window.right - ifd.window.left + 1);
  const std::size_t sample = sizes[c] / width;
  const bool active_row = y >= ifd.active.bottom && y <= ifd.active.top;
  for (std::size_t b = 0; b < row.size(); ++b) {
    const auto x = static_cast<int>(b / sample) + ifd.window.left;
    const bool inside = active_row && x >= ifd.active.left && x <= ifd.active.right;
    if (!inside && !whole_row) continue;
    const std::size_t k = (c * 131 + static_cast<std::size_t>(y) * 977 + b) % source.size();
    row[b] = source[k];
  }
  return row;
}

}  // namespace

int rla_round_trip(const std::uint8_t *data, std::size_t size) {
  silence_reports();
  static const std::string path = scratch_path("trip.rla");
  Bytes in{data, data + size};
  const int images = in.next() % 2 + 1;
  ORX_OBJECT *writer = orx__new_obj(ORX_ACCESS_WRITE);
  if (writer == nullptr) return 0;
  writer->info.handle = STR_save(path.c_str());
  writer->info.full_path = 1;
  writer->info.image_count = images;
  writer->info.images = static_cast<ORX_IFD *>(
      ERR_malloc(static_cast<std::uint32_t>(static_cast<std::size_t>(images) * sizeof(ORX_IFD))));
  if (writer->info.handle == nullptr || writer->info.images == nullptr) {
    orx__free_obj(writer);
    return 0;
  }
  for (int i = 0; i < images; ++i) shape(in, writer->info.images[i]);
  std::vector<std::uint8_t> source(in.at, in.end);
  if (source.empty()) source.push_back(0x5a);
  if (!ORX_rla_w_open(writer)) {
    orx__free_obj(writer);
    return 0;  // a shape the writer refuses, reported
  }
  // Windows and groups as written, for checking after the writer is gone
  // (the copies' strings stay the writer's and are never used).
  std::vector<ORX_IFD> written(writer->info.images, writer->info.images + images);
  for (int i = 0; i < images; ++i) {
    ORX_IFD &ifd = writer->info.images[i];
    const std::vector<std::size_t> sizes = row_bytes(ifd);
    std::vector<std::vector<std::uint8_t>> rows(sizes.size());
    std::vector<void *> pointers(sizes.size() + 1, nullptr);
    for (int y = ifd.window.bottom; y <= ifd.window.top; ++y) {
      for (std::size_t c = 0; c < sizes.size(); ++c) {
        rows[c] = pixels(ifd, source, c, y, true);
        pointers[c] = rows[c].data();
      }
      if (writer->scan(writer->private_cell[i], y, pointers.data()) != 0) {
        writer->close(writer, 0);
        return -1;
      }
    }
  }
  if (writer->close(writer, 0) != 0) return -1;

  ORX_OBJECT *reader = orx__new_obj(ORX_ACCESS_READ);
  if (reader == nullptr) return 0;
  reader->info.handle = STR_save(path.c_str());
  reader->info.full_path = 1;
  if (reader->info.handle == nullptr || !ORX_rla_r_open(reader)) {
    const bool memory = orx__err == ORX_E_NO_MEMORY;
    orx__free_obj(reader);
    return memory ? 0 : -1;
  }
  int status = reader->info.image_count == images ? 0 : -1;
  for (int i = 0; i < images && status == 0; ++i) {
    const ORX_IFD &ifd = written[static_cast<std::size_t>(i)];
    const std::vector<std::size_t> sizes = row_bytes(ifd);
    if (row_bytes(reader->info.images[i]) != sizes) status = -1;
    for (int y = ifd.window.top; y >= ifd.window.bottom && status == 0; --y) {
      void **rows = nullptr;
      if (reader->scan(reader->private_cell[i], y, &rows) != 0) status = -1;
      for (std::size_t c = 0; c < sizes.size() && status == 0; ++c)
        if (std::memcmp(rows[c], pixels(ifd, source, c, y, false).data(), sizes[c]) != 0)
          status = -1;
    }
  }
  reader->close(reader, 0);
  return status;
}

}  // namespace orx::fuzz
