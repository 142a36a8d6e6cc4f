#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// A codec's own data. MPEG-4 files tell a text track's bit rate behind them, which is true of
/// that file alone and not among them.
std::span<const uint8_t> codecDataOf(const AVCodecParameters& parameters);

/// What a codec's own data mean to a decoder: the same for two streams whose packets can follow
/// each other. How long a stream is, how large its packets are and who made it is left out.
std::vector<uint8_t> codecMeaningOf(const AVCodecParameters& parameters);

/// Takes out of a codec's own data what is true of one stream's content alone, so that packets of
/// others can follow.
void widenCodecData(AVCodecParameters& parameters);

}  // namespace kestrel
