#pragma once

#include <kestrel/Error.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <map>
#include <string>

#include "platform/codec/Codec.h"
#include "support/FFmpegOwners.h"
#include "support/FirstError.h"

namespace kestrel {

/// The encoder of one stream of an output file, from configuration to its last packet. Opened and
/// closed under the process-wide codec lock.
class StreamEncoder {
 public:
  /// Creates an unopened context for a stream of the container; `context` is null if memory runs
  /// out.
  StreamEncoder(AVStream* stream, const AVCodec* codec, const AVOutputFormat& container);
  StreamEncoder(const StreamEncoder&) = delete;
  StreamEncoder& operator=(const StreamEncoder&) = delete;

  AVCodecContext* context() const { return context_.get(); }
  AVStream* stream() const { return stream_; }

  /// Opens the encoder with its context and then `options`, and describes the stream to the
  /// container. The stream gets the requested parameters even if this fails.
  Error open(const std::map<std::string, std::string>& options);

  /// Why a frame cannot be encoded: its samples are stored differently from what the encoder reads.
  /// No error if it fits, or for sound without a sample rate.
  Error refusal(const AVFrame& frame) const;

  /// Encodes a frame, stamped in the encoder's time base; for sound, its `pts` is increased by the
  /// encoder's `delay`. `duration` (0: unknown) is given to its packet if the encoder does not set
  /// one. A picture becomes a key picture where its group would last longer than a group's pictures
  /// do at the encoder's rate, as far as the encoder can be told. Returns true if a packet was
  /// handed over, stamped in the stream's time base; failures are noted in `errors`.
  bool encode(AVFrame& frame, int64_t duration, FirstError& errors, const PacketTaker& take);

  /// Hands over the next packet that is ready; false if there is none.
  bool takeNext(FirstError& errors, const PacketTaker& take);

  /// What the first of two passes has told so far, for the second.
  const std::string& statistics() const { return statistics_; }

  /// Signals, once, that no frame follows, so that the remaining packets can be taken.
  void finish();

 private:
  Error openContext(const std::map<std::string, std::string>& options);
  void describeStream();
  int64_t longestGroup() const;
  void limitGroup(AVFrame& picture);
  void stamp(AVPacket& packet);
  void noteStatistics();

  AVStream* stream_;
  CodecContextPtr context_;
  std::string statistics_;
  std::map<int64_t, int64_t> durations_;  // of pictures in the encoder, by time
  /// Pictures from the newest known key picture on, by time, and whether the encoder was told to
  /// begin a group with them.
  std::map<int64_t, bool> group_;
};

/// Configures an unopened audio encoder according to `format`. `bits`: significant bits of a sample
/// for a lossless encoder; 0: the first sample format in its list. `keepsFloats`: they are floating
/// point, and stay so where the encoder can.
void configureSound(const LMFFMovieFileOutputFormat& format, int32_t bits, AVCodecContext& encoder,
                    bool keepsFloats = false);

/// The widest floating-point format of an encoder of sound; `AV_SAMPLE_FMT_NONE` where it has none.
AVSampleFormat floatFormatOf(const AVCodec* codec);

}  // namespace kestrel
