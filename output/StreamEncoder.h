#pragma once

#include <kestrel/Error.h>

#include <cstdint>
#include <map>
#include <string>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// The encoder of one stream of an output file, from the set-up of its context to its last packet.
///
/// Opened and closed under the process's codec lock.
class StreamEncoder {
 public:
  /// Makes an unopened context for the stream; `context` is null when there is no memory for one.
  StreamEncoder(AVStream* stream, const AVCodec* codec);
  ~StreamEncoder();
  StreamEncoder(const StreamEncoder&) = delete;
  StreamEncoder& operator=(const StreamEncoder&) = delete;

  AVCodecContext* context() const { return context_.get(); }
  AVStream* stream() const { return stream_; }

  /// Opens the encoder as its context and then `options` say, and describes the stream to the
  /// container. The stream has the parameters that were asked for even where this fails.
  Error open(const std::map<std::string, std::string>& options);

  /// Why the encoder is not to be given a frame: its samples are stored otherwise than the encoder
  /// reads them. None for one that fits, and for sound that does not tell its rate.
  Error refusal(const AVFrame& frame) const;

  /// Hands over a frame. `duration` (in the encoder's time base; 0: unknown) is how long its packet
  /// lasts where the encoder does not tell. `AVERROR(EAGAIN)` means that the frame was not taken
  /// and packets must be received first.
  int send(const AVFrame& frame, int64_t duration);

  /// Says, once, that no frame follows: the packets that are still inside can then be received.
  void finish();

  /// Receives one packet, stamped in the stream's time base. `AVERROR(EAGAIN)`: none is ready;
  /// `AVERROR_EOF`: none follows.
  int receive(AVPacket& packet);

 private:
  Error openContext(const std::map<std::string, std::string>& options);
  void describeStream();
  void setDuration(AVPacket& packet);

  AVStream* stream_;
  CodecContextPtr context_;
  std::map<int64_t, int64_t> durations_;  // of pictures inside the encoder, by time
  bool finished_ = false;
};

}  // namespace kestrel
