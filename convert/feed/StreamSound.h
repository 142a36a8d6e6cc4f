#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

namespace kestrel {

class LMFFMedia;
class LMFFMediaStream;

/// One stream's sound in order, to the sample, in the format that the stream resamples to
/// (interleaved floats or doubles): silence where the input has a hole, and nothing beyond its end.
///
/// Sound that comes too late is dropped. Sound that begins comes to the sample where it belongs;
/// while it goes on, the container's times count only where they are off by more than they jitter.
/// (The media's own pump places sound to within one request, so nothing is read by it.)
class StreamSound {
 public:
  static constexpr int32_t kMostFrames = 512;  ///< of a request

  StreamSound(std::shared_ptr<LMFFMedia> media, std::shared_ptr<LMFFMediaStream> stream);

  /// Whether it reads past the pictures of a media that has both.
  void setReadsAlone(bool readsAlone) { readsAlone_ = readsAlone; }

  /// Has some sound wait, where more is to come, and drops what is late; answers how many of
  /// `frames` frames may be asked for at once.
  int32_t align(int32_t frames);

  /// Reads `frames` frames, up to as many as `align` answered last: sound, or silence.
  void take(void* data, int32_t frames);

  /// How many frames have been read and wait.
  int32_t waitingFrames() const;

  /// Nothing of the input is left to be read.
  bool isAtEnd() const;

  /// Aligns and takes up to `frames` frames; fewer where it pleases, 0 at the end.
  int32_t read(void* data, int32_t frames);

  /// Before the first read: leaves out the silence that stands for the time before the input's
  /// sound, and answers how long that time is, frames.
  int64_t skipSilence();

 private:
  enum class State { kFresh, kSilent, kSounding };

  void prefetch() const;
  void dropLate(int64_t least);
  int64_t framesUntilSound() const;
  int64_t tolerance() const;
  int64_t rounding() const;

  std::shared_ptr<LMFFMedia> media_;
  std::shared_ptr<LMFFMediaStream> stream_;
  bool readsAlone_ = false;
  State state_ = State::kFresh;  // what was read last
};

}  // namespace kestrel
