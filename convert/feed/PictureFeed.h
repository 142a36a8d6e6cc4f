#pragma once

#include <kestrel/LMFFMovie.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "convert/feed/HeldPicture.h"
#include "convert/feed/PictureStretch.h"

namespace kestrel {

/// The tick in which pictures that keep their own times are stamped, seconds: a whole part of a
/// picture's duration at the usual rate, below a tenth of a millisecond.
Rational pictureTick(Rational rate);

/// Where a picture belongs that begins so many ticks after the start and follows one at `place`,
/// those usually lasting `usual` ticks: where that has it, unless it is off by more than containers
/// round.
int64_t pictureTickAfter(int64_t place, int64_t own, int64_t usual, Rational tick);

/// The ticks of a movie's pictures, of which the first is shown at `start`. `times`: when they
/// begin, microseconds on the movie's time line, rising. What `PictureFeed` makes of them.
std::vector<int64_t> pictureTicks(const std::vector<int64_t>& times, int64_t start, Rational rate,
                                  bool repeats);

/// A movie's pictures from a time on, each once and at its own time.
///
/// A time that misses the usual rate by no more than containers round is moved to where that rate
/// has it, so that pictures that come regularly have one duration. The first picture stands in for
/// the time before it; the last one lasts as long as it says or, where it is the only one, as the
/// movie. Times that damage has made go far ahead or back are left out of account: such a picture
/// follows the one before.
///
/// It reads the movie's pictures on the movie's queue, or where nobody else uses that.
class PictureFeed {
 public:
  /// A picture and when it shows, in ticks after the feed's start.
  struct Timed {
    std::shared_ptr<LMFFImage> image;
    int64_t time = 0;
    int64_t duration = 0;
  };

  /// `start`, and `end` where it is to stop earlier: microseconds on the movie's time line. `rate`:
  /// pictures per second, as they usually come. `repeats`: a picture that lasts longer than usual
  /// comes again at that rate, for what is drawn over it changes. `stretch`: the part of them that
  /// is wanted; absent: all.
  PictureFeed(LMFFMovie& movie, int64_t start, std::optional<int64_t> end, Rational rate,
              bool repeats, std::optional<PictureStretch> stretch = {});

  /// None at the end. Throws a `Failure` where a stretch does not begin or end as it was planned.
  std::optional<Timed> next();

  /// Where the next picture starts, microseconds after the feed's start.
  int64_t time() const;

 private:
  /// A picture that was read, and where it begins as if no time were damaged; microseconds.
  struct Waiting {
    HeldPicture picture;
    int64_t start = 0;
  };

  void findFirst();
  void findStretch();
  bool isStretchOver() const;
  bool readNext();
  void judgeGap();
  int64_t ticksOf(int64_t time) const;
  int64_t placeOf(int64_t start) const;
  int64_t endOf(const Waiting& picture) const;

  LMFFMovie& movie_;
  const int64_t start_;
  const std::optional<int64_t> stop_;  // ticks
  const Rational tick_;
  const int64_t usual_;  // duration, ticks
  const bool repeats_;
  const std::optional<PictureStretch> stretch_;
  std::deque<Waiting> waiting_;  // the first is answered next
  int64_t place_ = 0;            // its, ticks
  int64_t shift_ = 0;            // of times behind one that went back, microseconds
  bool isBegun_ = false;
  bool isOnly_ = true;
};

}  // namespace kestrel
