// Sizes of the channel scanline buffer, for readers that check a header's
// demands against the limits before asking for the buffer.
#pragma once

#include <cstdint>

#include "orx/orx.h"

namespace orx::core {

// Bytes of the block ORX_chan_alloc makes for ifd at width pixels (image,
// matte, auxiliary and colour-index rows, each of an even byte count), as a
// 64-bit count that cannot overflow for any descriptor.
std::uint64_t channel_block_bytes(const ORX_IFD &ifd, std::int32_t width);

// Bytes one sample of group g (0 image, 1 matte, 2 auxiliary, 3 colour
// index) takes in a row of the channel scanline buffer.
std::uint32_t group_sample_bytes(const ORX_CHANNELS &g, int group);

}  // namespace orx::core
