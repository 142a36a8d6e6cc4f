#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// The codec data of a stream. MPEG-4 files append a text track's bit rate, which only applies to
/// that file and is left out.
std::span<const uint8_t> codecDataOf(const AVCodecParameters& parameters);

/// The meaning of codec data to a decoder: equal for two streams if packets of one can continue the
/// other. Duration, packet sizes and the name of the encoder are left out.
std::vector<uint8_t> codecMeaningOf(const AVCodecParameters& parameters);

/// Whether packets of another stream can come behind those of a stream. Not behind the last frame
/// of TTA, where that is shorter than the others: decoders know it by the length in the codec data
/// alone, so that a short frame before the end is garbage to them.
bool canBeContinued(const AVCodecParameters& parameters);

/// Removes from codec data what only applies to the content of one stream, so that packets of
/// others can follow.
void widenCodecData(AVCodecParameters& parameters);

}  // namespace kestrel
