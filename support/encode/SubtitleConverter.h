#pragma once

#include <kestrel/Error.h>

#include <cstdint>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Turns the packets of one form of text subtitles (SubRip, ASS, WebVTT, MPEG-4's timed text) into
/// those of another. Styles are kept as far as the new form has them.
class SubtitleConverter {
 public:
  /// Describes `output`, a new stream of a container that has not been started. Both streams
  /// outlive the converter.
  SubtitleConverter(const AVStream& input, AVStream& output, AVCodecID codec);

  AVStream* stream() const { return &output_; }

  /// Why the stream cannot be converted.
  const Error& error() const { return error_; }

  /// The new form of a packet, stamped in the output stream's time base as that packet is; null if
  /// there is nothing to show in it, if it is damaged, and if memory runs out.
  PacketPtr convert(const AVPacket& packet);

  /// The number of packets that could not be decoded or encoded.
  int64_t refused() const { return refused_; }

 private:
  Error open(const AVStream& input, AVCodecID codec);

  AVStream& output_;
  CodecContextPtr decoder_;
  CodecContextPtr encoder_;
  std::vector<uint8_t> buffer_;  // for an encoded text
  int64_t refused_ = 0;
  Error error_;
};

}  // namespace kestrel
