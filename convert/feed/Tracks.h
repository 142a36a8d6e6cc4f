#pragma once

#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "convert/feed/AudioFeed.h"
#include "convert/feed/LoudnessMeter.h"
#include "convert/feed/PacedFeed.h"
#include "convert/feed/PeakLimiter.h"
#include "convert/feed/PictureFeed.h"
#include "convert/feed/PictureShaper.h"
#include "convert/feed/SoundCheck.h"

namespace kestrel {

/// What of an input is converted, microseconds after its start.
struct Span {
  int64_t start = 0;
  std::optional<int64_t> end = {};

  std::optional<int64_t> length() const { return end ? std::optional(*end - start) : std::nullopt; }
};

/// One stream of a conversion on its way from the movie to the output. The conversion advances the
/// track that is furthest behind, so that the muxer never has to hold much.
///
/// Where one media holds several streams, reading one of them brings the others along: their tracks
/// follow the `leader`, the track that reads. They take what has come, and read for themselves once
/// it has ended.
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

  /// How many of the packets that it passes on it has left out, because they cannot be decoded.
  virtual int64_t refused() const { return 0; }

  /// What came of the pictures, where it brings these to a rate.
  virtual PictureTally tally() const { return {}; }

  /// Whether it has passed anything on that is shown or heard.
  virtual bool hasBrought() const { return true; }

  /// Whether the latest piece is shown or heard: others may need it only for themselves.
  virtual bool isShown() const { return true; }

  /// How long after the span's start it begins, microseconds, though the input has more from there
  /// on.
  virtual int64_t missing() const { return 0; }

  /// What is left to do for the output once all tracks have ended.
  virtual Job finish() { return {}; }
};

class EncodedVideoTrack : public Track {
 public:
  /// `stretch`: as of `VideoFeed`.
  EncodedVideoTrack(LMFFMovie& movie, const Span& span, Rational rate, PictureShaper shape,
                    std::optional<PictureStretch> stretch = {});
  int64_t time() const override;
  Job step() override;
  int64_t end() const override;
  PictureTally tally() const override { return feed_.tally(); }

 private:
  ShapedFeed feed_;
  const std::optional<int64_t> stop_;
  const bool isStretch_;
  bool ended_ = false;
};

/// Pictures that keep their own times.
class TimedVideoTrack : public Track {
 public:
  /// `rate`, `repeats` and `stretch`: as of `PictureFeed`.
  TimedVideoTrack(LMFFMovie& movie, const Span& span, Rational rate, bool repeats,
                  PictureShaper shape, std::optional<PictureStretch> stretch = {});
  int64_t time() const override { return ended_ ? kEnded : feed_.time(); }
  Job step() override;
  int64_t end() const override;

 private:
  PictureFeed feed_;
  PictureShaper shape_;
  const Span span_;
  const Rational tick_;
  bool ended_ = false;
};

/// Pictures at a constant rate, of which none is left out.
class PacedVideoTrack : public Track {
 public:
  PacedVideoTrack(LMFFMovie& movie, const Span& span, Rational rate, PictureShaper shape);
  int64_t time() const override { return ended_ ? kEnded : feed_.time(); }
  Job step() override;
  int64_t end() const override;

 private:
  PacedFeed feed_;
  PictureShaper shape_;
  const Span span_;
  bool ended_ = false;
};

/// How loud sound has become.
struct HeardLevel {
  std::optional<double> loudness = {};  ///< LUFS; none of silence
  bool isLimited = false;               ///< peaks were turned down
};

/// Sound that is encoded: one stream of the input, or several mixed.
class EncodedAudioTrack : public Track {
 public:
  struct Level {
    double volume = 1;           ///< a factor
    bool mayRise = false;        ///< mixed or amplified: kept below full scale
    HeardLevel* told = nullptr;  ///< is told at the end what came of it; null: nobody asks
  };

  /// `feed`: of float, but where `level` changes nothing. `output`: the stream that it is written
  /// to, in the feed's format. `preroll`: how much of what is read lies before the span,
  /// microseconds. `leader`: null where it reads for itself.
  EncodedAudioTrack(AudioFeed feed, AVStream* output, const Span& span, int64_t preroll,
                    const Level& level, const Track* leader);
  int64_t time() const override;
  Job step() override;
  int64_t end() const override;
  Job finish() override;

 private:
  int64_t framesIn(int64_t time) const;
  Job writing(std::vector<std::byte> samples);
  Job shaping(std::span<const float> samples);

  AudioFeed feed_;
  AVStream* const output_;
  const Track* const leader_;
  const float volume_;
  HeardLevel* const told_;
  std::optional<PeakLimiter> limiter_;
  std::optional<LoudnessMeter> meter_;
  std::optional<int64_t> stopFrame_;
  int64_t frames_ = 0;  // read so far
  bool ended_ = false;
};

/// A stream whose packets go on as they are, or subtitles that the output gives another form.
///
/// Pictures can be decoded from a key picture on only. They begin with the last one up to the
/// span's start where the output hides what lies before it; elsewhere with the next one.
class CopiedTrack : public Track {
 public:
  /// `stream`, of `media`, is copied. `output`: the stream that it is written to. `hidesFirst`:
  /// that can hide pictures before its start. `check`: what its packets have to pass; null for
  /// nothing.
  CopiedTrack(std::shared_ptr<LMFFMedia> media, std::shared_ptr<LMFFMediaStream> stream,
              AVStream* output, const Span& span, const Track* leader, bool hidesFirst = false,
              std::unique_ptr<SoundCheck> check = nullptr);
  int64_t time() const override;
  Job step() override;
  int64_t end() const override;
  int64_t refused() const override { return check_ ? check_->refused() : 0; }
  bool hasBrought() const override { return hasBrought_; }
  bool isShown() const override { return isShown_; }
  int64_t missing() const override;

 private:
  std::shared_ptr<LMFFImage> readPacket();
  bool isBeyondStop() const;
  bool isRepeated(const AVPacket& packet);
  bool beginsWith(LMFFImage& item);
  bool waitsForLeader() const;

  const std::shared_ptr<LMFFMedia> media_;
  const std::shared_ptr<LMFFMediaStream> stream_;
  AVStream* const output_;
  const Track* const leader_;
  const Span span_;
  const bool hidesFirst_;
  const std::unique_ptr<SoundCheck> check_;
  bool waitsForKey_;
  int64_t first_;            // when the first picture is shown, microseconds as of the span
  bool hidesLead_ = false;   // it began before the span
  bool hasSkipped_ = false;  // pictures of the span
  bool ended_ = false;
  bool hasBrought_ = false;
  bool isShown_ = true;
  int64_t time_ = 0;
  int64_t end_ = 0;
  std::set<int64_t> early_;  // places in the file of subtitles from before the start
};

}  // namespace kestrel
