#pragma once

#include <cstdint>
#include <functional>

#include "support/encode/StreamEncoder.h"

namespace kestrel {

/// Sound that waits to be encoded, in the encoder's format.
struct SoundQueue {
  std::function<int()> count = {};          ///< samples of a channel
  std::function<void(AVFrame&)> read = {};  ///< moves as many as the frame says
};

/// Feeds an open audio encoder: cuts sound into frames of the encoder's size, stamps them by
/// counting, and keeps damaged samples from it.
class SoundEncoder {
 public:
  SoundEncoder(StreamEncoder& encoder, FirstError& errors, PacketTaker take);

  const StreamEncoder& encoder() const { return encoder_; }

  /// How many samples have been encoded.
  int64_t time() const { return time_; }

  /// The last frame has been encoded.
  bool isFinished() const { return isFinished_; }

  /// Encodes what fills frames.
  void encode(const SoundQueue& queue);

  /// Encodes all that waits; the last frame is as short as the encoder allows, otherwise filled up
  /// with silence. After that nothing more is encoded.
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

/// Whether the encoder would stumble over damaged samples. One without loss keeps them as they are.
bool needsLimit(const AVCodecContext& encoder);

/// Keeps damaged samples from an encoder that would refuse them or search for ever: no number
/// becomes silence, and nothing is more than 30 dB above full scale.
void limitLevel(AVFrame& frame);

}  // namespace kestrel
