#pragma once

#include <kestrel/Error.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "support/FFmpegOwners.h"
#include "support/FirstError.h"

namespace kestrel {

/// Takes over a packet that is stamped in its stream's time base.
using PacketTaker = std::function<void(AVPacket&)>;

/// The encoder of one stream of an output file, from the set-up of its context to its last packet.
///
/// Opened and closed under the process's codec lock.
class StreamEncoder {
 public:
  /// Makes an unopened context for a stream of the container; `context` is null when there is no
  /// memory for one.
  StreamEncoder(AVStream* stream, const AVCodec* codec, const AVOutputFormat& container);
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

  /// Encodes a frame, stamped in the encoder's time base; sound is moved by the encoder's `delay`,
  /// in place. `duration` (0: unknown) is how long its packet lasts where the encoder does not
  /// tell. Answers whether a packet was handed over; failures are noted.
  bool encode(AVFrame& frame, int64_t duration, FirstError& errors, const PacketTaker& take);

  /// Hands over the next packet that is ready; false when none is.
  bool takeNext(FirstError& errors, const PacketTaker& take);

  /// Says, once, that no frame follows: the packets that are still inside can then be taken.
  void finish();

 private:
  Error openContext(const std::map<std::string, std::string>& options);
  void describeStream();
  int send(const AVFrame& frame, int64_t duration);
  int receive(AVPacket& packet);
  void setDuration(AVPacket& packet);

  AVStream* stream_;
  CodecContextPtr context_;
  std::map<int64_t, int64_t> durations_;  // of pictures inside the encoder, by time
  PacketPtr packet_ = makePacket();
  bool finished_ = false;
};

/// Sets up an unopened audio encoder as the record says. `bits`: how many of a sample count, for an
/// encoder that keeps them all; 0: as many as the encoder names first.
void configureSound(const LMFFMovieFileOutputFormat& format, int32_t bits, AVCodecContext& encoder);

}  // namespace kestrel
