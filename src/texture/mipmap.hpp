// What the mipmap process and texture access share.
#pragma once

#include <cstdint>

#include "orx/orx.h"

namespace orx::texture {

// The most channels a texture keeps (its image and matte channels).
constexpr int32_t kMaxTextureChannels = 64;

// "color", "scalar", "bump", or "none" for anything else.
const char *texture_type_name(int32_t type);

// The texture type a mipmap file records, or -1 for a file that is not one.
int32_t stored_texture_type(const ORX_INFO &info);

}  // namespace orx::texture
