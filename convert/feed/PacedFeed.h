#pragma once

#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>

#include <cstdint>
#include <memory>
#include <optional>

#include "convert/feed/PictureFeed.h"

namespace kestrel {

/// A movie's pictures at a constant rate, of which none is left out: each is shown at the tick in
/// which its time lies or, where another has that, at the next. Those that last longer are
/// repeated.
///
/// It reads the movie's pictures on the movie's queue, or where nobody else uses that.
class PacedFeed {
 public:
  /// As of `PictureFeed`.
  PacedFeed(LMFFMovie& movie, int64_t start, std::optional<int64_t> end, Rational rate);

  /// The picture of the next tick, null at the end; a repeated one is the same object.
  std::shared_ptr<LMFFImage> next();

  /// Where the next tick starts, microseconds after the start.
  int64_t time() const { return microseconds(tick_); }

  /// How long a tick lasts, microseconds.
  int64_t tickDuration() const { return microseconds(1); }

 private:
  int64_t microseconds(int64_t ticks) const;
  int64_t tickOf(int64_t time) const;
  void readAhead();

  PictureFeed feed_;
  const Rational rate_;
  const int64_t length_;                    // of a tick, in ticks of the feed
  std::optional<PictureFeed::Timed> now_;   // is shown
  std::optional<PictureFeed::Timed> next_;  // is shown from `place_` on
  int64_t place_ = 0;
  int64_t tick_ = 0;
  bool isBegun_ = false;
};

}  // namespace kestrel
