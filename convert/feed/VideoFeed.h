#pragma once

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "convert/feed/HeldPicture.h"
#include "convert/feed/PictureStretch.h"

namespace kestrel {

/// How many pictures there were, and how many of them nobody gets to see.
struct PictureTally {
  int64_t leftOut = 0;
  int64_t all = 0;
};

/// A movie's pictures at a constant rate, from a time on.
///
/// The grid of ticks is laid onto the first picture, and each tick asks for the picture in its
/// middle: a source of the same rate gives every picture once, however its time stamps jitter. A
/// source of another or a varying rate has pictures repeated or left out. A picture is never shown
/// before its time; the first one stands in for the time before it.
///
/// It reads the movie's pictures on the movie's queue, or where nobody else uses that.
class VideoFeed {
 public:
  /// `start` in microseconds on the movie's time line; `rate` in pictures per second. `stretch`:
  /// the part of them that is wanted; absent: all.
  VideoFeed(LMFFMovie& movie, int64_t start, Rational rate,
            std::optional<PictureStretch> stretch = {});

  /// The picture of the next tick, null at the end. It stays valid as long as it is held; a
  /// repeated picture is the same object.
  std::shared_ptr<LMFFImage> next();

  /// Where the next tick starts, microseconds after `start`.
  int64_t time() const;

  /// Its number.
  int64_t tick() const { return tick_; }

  /// How long a tick lasts, microseconds.
  int64_t tickDuration() const { return ticks(1); }

  /// What has come of the pictures that were read so far.
  PictureTally tally() const;

 private:
  LMFFMedia::Picture readPictures(LMFFMedia& media, int64_t time);
  bool readUpTo(int64_t time);
  void findFirst();
  void findStretch();
  bool isStill() const;
  int64_t ticks(int64_t count) const;

  LMFFMovie& movie_;
  const int64_t start_;
  const Rational rate_;
  const std::optional<PictureStretch> stretch_;
  int64_t tick_ = 0;
  int64_t anchor_ = 0;      // the movie time of the tick that the first picture takes
  int64_t anchorTick_ = 0;  // that tick
  HeldPicture newest_;      // the movie is at
  std::shared_ptr<LMFFImage> shown_;
  bool atEnd_ = false;   // the input has no picture after the newest
  bool isOver_ = false;  // the newest one, too, has been shown, or is too short for that
  PictureTally tally_;   // of what lies behind the newest
};

}  // namespace kestrel
