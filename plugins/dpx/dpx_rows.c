/* Reading rows of DPX and Cineon files (see dpx_rows.h). */
#include "dpx_rows.h"

#include <string.h>
#include <sys/types.h>

#include "orx/err.h"
#include "orx/limits.h"
#include "plugin_kit.h"

int64_t dpx_file_size(FILE *file) {
  if (fseeko(file, 0, SEEK_END) != 0) return -1;
  const off_t size = ftello(file);
  return size < 0 || fseeko(file, 0, SEEK_SET) != 0 ? -1 : (int64_t)size;
}

void dpx_windows(ORX_IFD *ifd, uint32_t width, uint32_t height, uint32_t x, uint32_t y,
                 uint32_t original_width, uint32_t original_height, double pixel_aspect) {
  const uint32_t full_w = original_width > 0 ? original_width : width;
  const uint32_t full_h = original_height > 0 ? original_height : height;
  const int32_t right = (int32_t)(x + width > full_w ? x + width : full_w) - 1;
  const int32_t rows = (int32_t)(y + height > full_h ? y + height : full_h);
  kit_describe_size(ifd, right + 1, rows, pixel_aspect);
  ifd->x_resolution = (int32_t)full_w;
  ifd->y_resolution = (int32_t)full_h;
  ifd->aspect_ratio = (float)((double)full_w / full_h * pixel_aspect);
  ifd->active.left = (int32_t)x;
  ifd->active.right = (int32_t)(x + width) - 1;
  ifd->active.top = rows - 1 - (int32_t)y;
  ifd->active.bottom = ifd->active.top - (int32_t)height + 1;
}

int dpx_rows_init(DpxRows *r, uint64_t file_size) {
  const uint64_t width = (uint64_t)(r->active.right - r->active.left + 1);
  const uint64_t height = (uint64_t)(r->active.top - r->active.bottom + 1);
  uint64_t most = 0;
  for (int s = 0; s < r->sources; ++s) {
    const DpxSource *src = &r->source[s];
    const uint64_t bytes = dpx_row_bytes(&src->coding, width * (uint64_t)src->channels);
    if (bytes == 0 || src->stride < bytes ||
        src->offset + src->stride * (height - 1) + bytes > file_size)
      return kit_fail(ORX_E_NOT_OUR_FILE,
                      "%s: %s: the file ends before its image data does (truncated, or a "
                      "damaged size or offset)",
                      r->who, r->path);
    if (bytes > most) most = bytes;
  }
  const uint64_t window = (uint64_t)(r->window.right - r->window.left + 1);
  r->row_size = (size_t)((window * (uint64_t)r->sample_size + 1) & ~(uint64_t)1);
  const uint64_t need = most + width * 4 * (uint64_t)r->sample_size +
                        (uint64_t)r->row_size * (uint64_t)r->channels;
  if (need > (uint64_t)ORX_limit(ORX_LIMIT_ROW_MEMORY) || need > UINT32_MAX)
    return kit_fail(ORX_E_NOT_OUR_FILE,
                    "%s: %s: a row needs %llu bytes, more than the limit of %llu (raise it "
                    "with ORX_set_limit or KV_ORX_MAX_ROW_MEMORY)",
                    r->who, r->path, (unsigned long long)need,
                    (unsigned long long)ORX_limit(ORX_LIMIT_ROW_MEMORY));
  r->raw = (unsigned char *)kit_allocate((size_t)most);
  r->samples = (unsigned char *)kit_allocate((size_t)(width * 4 * (uint64_t)r->sample_size));
  r->block = (unsigned char *)kit_allocate(r->row_size * (size_t)r->channels);
  if (r->raw == NULL || r->samples == NULL || r->block == NULL) {
    dpx_rows_free(r);
    return 0;
  }
  memset(r->block, 0, r->row_size * (size_t)r->channels);
  for (int c = 0; c < r->channels; ++c) r->rows[c] = r->block + (size_t)c * r->row_size;
  r->rows[r->channels] = NULL;
  return 1;
}

void dpx_rows_free(DpxRows *r) {
  ERR_free(r->raw);
  ERR_free(r->samples);
  ERR_free(r->block);
  r->raw = r->samples = r->block = NULL;
}

int dpx_rows_scan(void *data, int32_t line, void *out) {
  DpxRows *r = (DpxRows *)data;
  if (line < r->window.bottom || line > r->window.top) {
    kit_fail(ORX_E_BAD_SCANLINE, "%s: %s: no line %d", r->who, r->path, (int)line);
    return ORX_E_BAD_SCANLINE;
  }
  *(void ***)out = r->rows;
  const int32_t row = r->active.top - line;
  const size_t width = (size_t)(r->active.right - r->active.left + 1);
  if (line < r->active.bottom || line > r->active.top) {
    memset(r->block, 0, r->row_size * (size_t)r->channels);
    return 0;
  }
  const size_t left = (size_t)(r->active.left - r->window.left) * (size_t)r->sample_size;
  for (int s = 0; s < r->sources; ++s) {
    const DpxSource *src = &r->source[s];
    const size_t bytes = (size_t)dpx_row_bytes(&src->coding, width * (size_t)src->channels);
    if (fseeko(r->file, (off_t)(src->offset + src->stride * (uint64_t)row), SEEK_SET) != 0 ||
        fread(r->raw, 1, bytes, r->file) != bytes) {
      kit_fail(ORX_E_READ, "%s: cannot read line %d of %s", r->who, (int)line, r->path);
      return ORX_E_READ;
    }
    dpx_unpack(&src->coding, r->raw, r->samples, width * (size_t)src->channels);
    void *to[4];
    for (int k = 0; k < src->channels; ++k)
      to[k] = (unsigned char *)r->rows[src->to[k]] + left;
    dpx_spread(to, r->samples, src->channels, width, r->sample_size);
  }
  return 0;
}
