#pragma once

#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace kestrel {

/// A movie's mixed sound in order, to the sample: silence where the input has a hole, and nothing
/// beyond its end.
///
/// The movie's pump answers every request in full, silence included, and places sound to within one
/// request. The feed therefore cuts its requests at the edges of holes and at the input's end, and
/// drops sound that comes too late, so that sound and pictures stay together for hours.
class AudioFeed {
 public:
  explicit AudioFeed(LMFFMovie& movie);

  /// Reads up to `frames` stereo frames; fewer where it pleases, 0 at the end.
  int32_t read(float* data, int32_t frames);

  /// How many frames have been read and wait, of the stream that has the fewest.
  int32_t waitingFrames() const;

  /// From now on reads past the pictures of a media that has both, which nobody wants any more.
  void readAlone() { readsAlone_ = true; }

  /// Before the first read: leaves out the silence that stands for the time before the input's
  /// sound, and answers how long that time is, frames.
  int64_t skipSilence();

  /// Reads and drops `frames` frames.
  void skip(int64_t frames);

 private:
  /// One of the streams that are mixed.
  struct Input {
    std::shared_ptr<LMFFMedia> media;
    std::shared_ptr<LMFFMediaStream> stream;
  };

  std::vector<Input> currentInputs() const;
  void prefetch(const Input& input, int32_t frames) const;
  int32_t align(const Input& input, int32_t frames);

  LMFFMovie& movie_;
  bool readsAlone_ = false;
  std::vector<float> dropped_;
};

/// Keeps the movie's clock from running off the end that the container states while the input goes
/// on: a current media stays current.
void holdClock(LMFFMovie& movie);

}  // namespace kestrel
