#pragma once

#include <kestrel/LMFFMovie.h>

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "convert/feed/StreamSound.h"

namespace kestrel {

/// A movie's mixed sound in order, to the sample: silence where the input has a hole, and nothing
/// beyond its end.
///
/// The movie's own pump answers every request in full, silence included, and places sound to within
/// one request. The feed mixes what its streams bring, each at its place to the sample, so that
/// sound and pictures stay together for hours.
class AudioFeed {
 public:
  explicit AudioFeed(LMFFMovie& movie);

  /// Reads up to `frames` stereo frames; fewer where it pleases, 0 at the end.
  int32_t read(float* data, int32_t frames);

  /// How many frames have been read and wait, of the stream that has the fewest.
  int32_t waitingFrames() const;

  /// From now on reads past the pictures of a media that has both, which nobody wants any more.
  void readAlone() { readsAlone_ = true; }

  /// Reads and drops `frames` frames.
  void skip(int64_t frames);

 private:
  /// The streams that are mixed.
  std::vector<StreamSound*> currentInputs();
  void mix(const std::vector<StreamSound*>& inputs, float* data, int32_t frames);

  LMFFMovie& movie_;
  bool readsAlone_ = false;
  std::map<std::shared_ptr<LMFFMediaStream>, StreamSound> sounds_;
  std::vector<float> scratch_;
};

/// Keeps the movie's clock from running off the end that the container states while the input goes
/// on: a current media stays current.
void holdClock(LMFFMovie& movie);

}  // namespace kestrel
