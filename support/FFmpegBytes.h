#pragma once

#include <cstdint>
#include <span>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Gives a packet other bytes and leaves the rest of it. `bytes` may be part of its own. False
/// where there is no memory; it is as it was then.
bool setBytes(AVPacket& packet, std::span<const uint8_t> bytes);

/// Gives a stream's parameters other codec data, which may be part of their own. False where there
/// is no memory; they are as they were then.
bool setCodecData(AVCodecParameters& parameters, std::span<const uint8_t> data);

}  // namespace kestrel
