// The request record ORX_INFO and the per-image descriptor: defaults and
// release.
#include <cstdio>
#include <initializer_list>

#include "orx/attributes.h"
#include "orx/err.h"
#include "core/info_copy.hpp"
#include "orx/orx.h"

namespace {

constexpr float kRed[3] = {0.67f, 0.33f, 0.0f};
constexpr float kGreen[3] = {0.21f, 0.71f, 0.08f};
constexpr float kBlue[3] = {0.14f, 0.08f, 0.78f};
constexpr float kWhite[3] = {0.31f, 0.316f, 0.374f};

void release(char *&s) {
  ERR_free(s);
  s = nullptr;
}

// The four channel-group names a descriptor owns.
void release_group_names(ORX_IFD &ifd) {
  for (ORX_CHANNELS *g : {&ifd.image, &ifd.matte, &ifd.aux, &ifd.index}) release(g->name);
}

ORX_CHANNELS group(int32_t bits) { return ORX_CHANNELS{nullptr, 0, ORX_C_INTEGER, bits, 0}; }

}  // namespace

extern "C" {

void ORX_info_init(ORX_INFO *info) {
  if (info == nullptr) return;
  *info = ORX_INFO{};
  info->job = -1;
  info->frame = 1;
  info->valid = ORX_INFO_VALID;
  for (int i = 0; i < 3; ++i) {
    info->red[i] = kRed[i];
    info->green[i] = kGreen[i];
    info->blue[i] = kBlue[i];
    info->white[i] = kWhite[i];
  }
  info->timing_mode = 1;
  info->frame_rate = 29.97f;
  info->enabled = 1;
}

ORX_INFO *ORX_info_alloc(void) {
  auto *info = static_cast<ORX_INFO *>(ERR_malloc(sizeof(ORX_INFO)));
  ORX_info_init(info);
  return info;
}

}  // extern "C"

namespace orx::core {

void release_image(ORX_IFD *ifd) {
  release(ifd->aspect);
  release_group_names(*ifd);
  ORX_response_curve_done(&ifd->curve);
}

void release_info(ORX_INFO *info) {
  for (int32_t i = 0; info->images != nullptr && i < info->image_count; ++i)
    release_image(&info->images[i]);
  info->valid = ORX_INFO_VALID;  // valid here by construction: cleaned quietly
  ORX_info_cleanup(info, 1);
}

}  // namespace orx::core

extern "C" {

// The host's record: its strings, its attributes and the four channel-group names of each
// descriptor.  The aspect and any curve tables stay the host's (an object's
// own go with orx::core::release_info).
void ORX_info_cleanup(ORX_INFO *info, uint8_t free_strings) {
  if (info == nullptr) return;
  if (info->valid != ORX_INFO_VALID) {
    std::fputs("ORX_info_cleanup: application programming error.\n", stderr);
    std::fprintf(stderr, "The ORX_INFO structure being freed has either been %s",
                 "freed already or else was never initialised.\n");
  }
  if (free_strings != 0) ORX_attr_clear(info);
  info->valid = 0;
  if (free_strings == 0) return;
  for (char **s : {&info->type, &info->handle, &info->name, &info->extension, &info->desc,
                   &info->program, &info->machine, &info->user, &info->date, &info->time,
                   &info->filter, &info->compression})
    release(*s);
  if (info->images != nullptr) {
    for (int32_t i = 0; i < info->image_count; ++i) release_group_names(info->images[i]);
    ERR_free(info->images);
    info->images = nullptr;
  }
}

int ORX_info_free(ORX_INFO *info, uint8_t free_strings) {
  ORX_info_cleanup(info, free_strings);
  ERR_free(info);
  return 0;
}

void orx__init_ifd(ORX_IFD *ifd) {
  if (ifd == nullptr) return;
  *ifd = ORX_IFD{};
  ifd->version = 1;
  // Parametric gamma 2.2; the table fields describe one 256-entry curve at
  // the 12-bit depth of the default gamma table resolution.
  ifd->curve = ORX_RESPONSE_CURVE{ORX_CURVE_PARAMETRIC, 2.2f, 0, 0, 1, 256, ORX_C_INTEGER, 12,
                                  nullptr};
  ifd->pixel_flags = 1;
  ifd->orientation = 1;
  ifd->image = group(8);
  ifd->matte = group(8);
  ifd->aux = group(8);
  ifd->index = group(16);
}

}  // extern "C"
