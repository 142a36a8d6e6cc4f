#include "support/copy/CodecData.h"

#include <algorithm>
#include <string_view>

#include "support/copy/FlacNumbers.h"
#include "support/copy/PictureUnits.h"

namespace kestrel {

namespace {

using Bytes = std::span<const uint8_t>;

// FLAC's stream info (RFC 9639, 8.2): two sizes of blocks, two of frames, then rate, channels and
// depth, which end in the same bytes that the number of samples begins in, and a checksum.
constexpr size_t kFlacFrames = 4;
constexpr size_t kFlacFormat = 10;
constexpr size_t kFlacLength = 13;

/// Apple Lossless tells the largest packet and the mean bit rate among its parameters.
constexpr size_t kAlacSize = 36;
constexpr size_t kAlacPackets = 24;
constexpr size_t kAlacRate = 32;

/// Where the configuration of AAC may say that there is no more than it said before.
constexpr size_t kAacExtension = 2;
constexpr uint8_t kAacNothingMore[] = {0x56, 0xE5, 0x00};

/// Opus says what rate its sound had before it was encoded, which no decoder needs.
constexpr size_t kOpusRate = 12;
constexpr size_t kOpusGain = 16;

/// TTA's header: its name, the form, channels and depth, two bytes each, then rate and number of
/// samples, four bytes each, lowest byte first, and a checksum.
constexpr size_t kTtaRate = 10;
constexpr size_t kTtaLength = 14;
constexpr size_t kTtaSize = 22;

uint32_t numberAt(Bytes data, size_t place) {
  uint32_t number = 0;
  for (size_t i = 4; i-- > 0;) number = number << 8U | data[place + i];
  return number;
}

std::vector<uint8_t> copyOf(Bytes data) { return {data.begin(), data.end()}; }

std::vector<uint8_t> without(Bytes data, size_t begin, size_t end) {
  std::vector<uint8_t> rest = copyOf(data);
  if (rest.size() >= end)
    rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(begin),
               rest.begin() + static_cast<std::ptrdiff_t>(end));
  return rest;
}

std::vector<uint8_t> flacFormat(Bytes data) {
  std::vector<uint8_t> copy = copyOf(data);
  const std::span<uint8_t> info = flacInfoIn(copy);
  if (info.empty()) return copy;
  info[kFlacLength] &= 0xF0U;
  return copyOf(info.subspan(kFlacFormat, kFlacLength - kFlacFormat + 1));
}

std::vector<uint8_t> aacFormat(Bytes data) {
  const bool saysNothing = data.size() == kAacExtension + std::size(kAacNothingMore) &&
                           std::ranges::equal(data.subspan(kAacExtension), kAacNothingMore);
  return copyOf(saysNothing ? data.first(kAacExtension) : data);
}

}  // namespace

Bytes codecDataOf(const AVCodecParameters& parameters) {
  static constexpr uint8_t kBitRate[] = {0, 0, 0, 20, 'b', 't', 'r', 't'};
  Bytes data(parameters.extradata, static_cast<size_t>(parameters.extradata_size));
  const auto endsWithBitRate = [&] {
    return data.size() >= 20 && std::ranges::equal(data.last(20).first(8), kBitRate);
  };
  while (parameters.codec_id == AV_CODEC_ID_MOV_TEXT && endsWithBitRate())
    data = data.first(data.size() - 20);
  return data;
}

std::vector<uint8_t> codecMeaningOf(const AVCodecParameters& parameters) {
  const Bytes data = codecDataOf(parameters);
  switch (parameters.codec_id) {
    case AV_CODEC_ID_FLAC:
      return flacFormat(data);
    case AV_CODEC_ID_ALAC:
      return data.size() == kAlacSize ? without(data, kAlacPackets, kAlacRate) : copyOf(data);
    case AV_CODEC_ID_AAC:
      return aacFormat(data);
    case AV_CODEC_ID_OPUS:
      return without(data, kOpusRate, kOpusGain);
    case AV_CODEC_ID_TTA:
      return copyOf(data.first(std::min(data.size(), kTtaLength)));
    case AV_CODEC_ID_H264:
    case AV_CODEC_ID_HEVC:
      return PictureUnits(parameters).meaning();
    default:
      return copyOf(data);
  }
}

bool canBeContinued(const AVCodecParameters& parameters) {
  if (parameters.codec_id != AV_CODEC_ID_TTA) return true;
  const Bytes data = codecDataOf(parameters);
  if (data.size() < kTtaSize) return false;
  // 256 / 245 of a second, in whole samples.
  const uint64_t frame = uint64_t{numberAt(data, kTtaRate)} * 256 / 245;
  return frame > 0 && numberAt(data, kTtaLength) % frame == 0;
}

void widenCodecData(AVCodecParameters& parameters) {
  if (parameters.codec_id != AV_CODEC_ID_FLAC || parameters.extradata_size <= 0) return;
  const auto info =
      flacInfoIn({parameters.extradata, static_cast<size_t>(parameters.extradata_size)});
  if (info.empty()) return;
  static constexpr uint8_t kAnyBlocks[kFlacFrames] = {0, 16, 0xFF, 0xFF};
  std::ranges::copy(kAnyBlocks, info.begin());
  // 0 stands for unknown.
  std::ranges::fill(info.subspan(kFlacFrames, kFlacFormat - kFlacFrames), uint8_t{0});
  info[kFlacLength] &= 0xF0U;
  std::ranges::fill(info.subspan(kFlacLength + 1), uint8_t{0});
}

}  // namespace kestrel
