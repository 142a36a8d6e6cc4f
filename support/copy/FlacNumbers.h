#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "support/FFmpegOwners.h"

struct AVMD5;

namespace kestrel {

/// Makes one stream of FLAC packets that come from several: each frame is numbered by the samples
/// before it, and the stream info tells of all. The format is that of RFC 9639.
class FlacNumbers {
 public:
  /// `parameters` are those of the first stream.
  explicit FlacNumbers(const AVCodecParameters& parameters);
  ~FlacNumbers();
  FlacNumbers(const FlacNumbers&) = delete;
  FlacNumbers& operator=(const FlacNumbers&) = delete;

  /// Takes the next frame and gives it its number. What is no frame is left as it is.
  void take(AVPacket& packet);

  /// Writes into a stream info what is known of the frames taken: sizes, the number of samples and
  /// the checksum of the sound, which stays 0, for unknown, where some of it can't be decoded.
  void describe(std::span<uint8_t> info);

 private:
  void measure(const AVPacket& packet, int64_t samples);
  void hear(const AVPacket& packet, int64_t samples);

  CodecContextPtr decoder_;
  AVMD5* sound_;  // the checksum so far; null where it is unknown
  int64_t samples_ = 0;
  int64_t last_ = 0;  // samples of the latest frame, which may be shorter than all others
  int64_t shortest_ = INT64_MAX;  // of the frames before
  int64_t longest_ = 0;
  int64_t smallest_ = INT64_MAX;  // bytes
  int64_t largest_ = 0;
};

/// The stream info in the codec data of FLAC; empty where there is none.
std::span<uint8_t> flacInfoIn(std::span<uint8_t> data);

}  // namespace kestrel
