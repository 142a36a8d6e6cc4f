#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// A codec's own data. MPEG-4 files tell a text track's bit rate behind them, which is true of
/// that file alone and not among them.
inline std::span<const uint8_t> codecDataOf(const AVCodecParameters& parameters) {
  static constexpr uint8_t kBitRate[] = {0, 0, 0, 20, 'b', 't', 'r', 't'};
  std::span<const uint8_t> data(parameters.extradata,
                                static_cast<size_t>(parameters.extradata_size));
  const auto endsWithBitRate = [&] {
    return data.size() >= 20 && std::ranges::equal(data.last(20).first(8), kBitRate);
  };
  while (parameters.codec_id == AV_CODEC_ID_MOV_TEXT && endsWithBitRate())
    data = data.first(data.size() - 20);
  return data;
}

}  // namespace kestrel
