#pragma once

#include <kestrel/LMFFFormat.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "convert/feed/StreamSound.h"

namespace kestrel {

/// One stream's sound, or the mix of several, in order, to the sample: silence where the input has
/// a hole, and nothing beyond its end.
///
/// Requests are cut at the edges of holes and at the input's end, and sound that comes too late is
/// dropped, so that sound and pictures stay together for hours.
class AudioFeed {
 public:
  struct Input {
    std::shared_ptr<LMFFMedia> media;
    std::shared_ptr<LMFFMediaStream> stream;
  };

  /// The streams, one at least, are open and resampled to one format, interleaved: several to
  /// float, one to any.
  explicit AudioFeed(const std::vector<Input>& inputs);

  const LMFFAudioFormat& format() const { return format_; }
  int channels() const { return channels_; }
  size_t frameBytes() const { return frameBytes_; }

  /// Reads up to `frames` frames of `format`; fewer where it pleases, 0 at the end.
  int32_t read(void* data, int32_t frames);

  /// How many frames have been read and wait, of the stream that has the fewest.
  int32_t waitingFrames() const;

  /// From now on reads past the pictures of a media that has both, which nobody wants any more.
  void readAlone();

  /// Reads and drops `frames` frames.
  void skip(int64_t frames);

 private:
  const LMFFAudioFormat format_;
  const int channels_;
  const size_t frameBytes_;
  std::vector<StreamSound> sounds_;
  std::vector<float> scratch_;
};

}  // namespace kestrel
