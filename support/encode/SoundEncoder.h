#pragma once

#include <cstdint>
#include <functional>

#include "support/encode/StreamEncoder.h"

namespace kestrel {

/// Sound waiting to be encoded, in the encoder's format.
struct SoundQueue {
  std::function<int()> count = {};          ///< samples per channel
  std::function<void(AVFrame&)> read = {};  ///< moves the frame's `nb_samples`
};

/// Feeds an open audio encoder: splits sound into frames of the encoder's size, stamps them by
/// counting, and repairs damaged samples.
class SoundEncoder {
 public:
  SoundEncoder(StreamEncoder& encoder, FirstError& errors, PacketTaker take);

  const StreamEncoder& encoder() const { return encoder_; }

  /// The number of samples encoded.
  int64_t time() const { return time_; }

  /// True if the last frame has been encoded.
  bool isFinished() const { return isFinished_; }

  /// Encodes all samples that fill frames.
  void encode(const SoundQueue& queue);

  /// Encodes all remaining samples; the last frame is shortened if the encoder allows that,
  /// otherwise padded with silence. Nothing is encoded after that.
  void finish(const SoundQueue& queue);

 private:
  AVFrame* frame();
  void encodeFrame(AVFrame& frame);
  void encodeRest(const SoundQueue& queue);

  StreamEncoder& encoder_;
  FirstError& errors_;
  const PacketTaker take_;
  FramePtr frame_;
  int64_t time_ = 0;
  bool isFinished_ = false;
};

/// True for lossy encoders, which cannot handle damaged samples; lossless ones keep them.
bool needsLimit(const AVCodecContext& encoder);

/// Repairs samples that an encoder would refuse or search on forever: NaN becomes silence, and
/// values are clamped to 30 dB above full scale.
void limitLevel(AVFrame& frame);

}  // namespace kestrel
