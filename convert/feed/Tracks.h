#pragma once

#include <kestrel/LMFFMovie.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include <kestrel/convert/ConversionPlan.h>
#include "convert/feed/AudioFeed.h"
#include "convert/feed/PictureMaker.h"
#include "convert/feed/VideoFeed.h"

namespace kestrel {

/// One stream of a conversion on its way from the movie to the output. The conversion advances the
/// track that is furthest behind, so that the muxer never has to hold much.
///
/// Where one media holds both sound and pictures, reading the pictures brings the sound along: the
/// sound's track then takes what has come, and leaves the reading to the other until that has
/// ended.
class Track {
 public:
  /// A piece of work for the output, which runs on the encoding thread.
  using Job = std::function<void(LMFFMovieFileOutput&)>;

  static constexpr int64_t kEnded = std::numeric_limits<int64_t>::max();

  virtual ~Track() = default;

  /// Where the next piece starts, microseconds after the conversion's start; `kEnded` after the
  /// last.
  virtual int64_t time() const = 0;

  /// Reads the next piece; an empty job when there was none.
  virtual Job step() = 0;

  /// How much there was, microseconds after the conversion's start: the end of the last piece that
  /// came from the input or, where the input goes on behind it, of the span.
  virtual int64_t end() const = 0;
};

class EncodedVideoTrack : public Track {
 public:
  /// `maker`: what the pictures go through; null where they go on as they were decoded.
  EncodedVideoTrack(LMFFMovie& movie, const ConversionPlan& plan,
                    std::unique_ptr<PictureMaker> maker);
  int64_t time() const override;
  Job step() override;
  int64_t end() const override;

 private:
  VideoFeed feed_;
  std::unique_ptr<PictureMaker> maker_;
  const int64_t start_;
  std::optional<int64_t> stop_;
  bool ended_ = false;
};

class EncodedAudioTrack : public Track {
 public:
  /// `reader`: the video's track, where the same media holds both; otherwise null.
  EncodedAudioTrack(LMFFMovie& movie, const ConversionPlan& plan, int64_t preroll,
                    const Track* reader);
  int64_t time() const override;
  Job step() override;
  int64_t end() const override;

 private:
  AudioFeed feed_;
  const Track* const reader_;
  std::optional<int64_t> stopFrame_;
  int64_t frames_ = 0;  // read so far
  bool ended_ = false;
};

/// A stream whose packets go on as they are.
class CopiedTrack : public Track {
 public:
  /// `reader`: the video's track, for a sound's track on the same media; otherwise null.
  CopiedTrack(LMFFMovie& movie, const ConversionPlan& plan, bool isVideo, const Track* reader);
  int64_t time() const override;
  Job step() override;
  int64_t end() const override { return end_; }

 private:
  std::shared_ptr<LMFFImage> readPacket();
  std::shared_ptr<LMFFImage> readVideoPacket(bool& atEnd);
  std::shared_ptr<LMFFImage> readAudioPacket(bool& atEnd);
  bool waitsForReader() const;

  LMFFMovie& movie_;
  const bool isVideo_;
  const Track* const reader_;
  std::shared_ptr<LMFFMediaStream> sound_;  // with a reader
  const int64_t start_;
  const std::optional<int64_t> stop_;
  bool waitsForKey_;
  bool ended_ = false;
  int64_t time_ = 0;
  int64_t end_ = 0;
};

}  // namespace kestrel
