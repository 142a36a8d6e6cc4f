#include "convert/feed/VideoFeed.h"

#include <kestrel/LMFFMedia.h>

#include <algorithm>

#include "convert/probe/Input.h"

extern "C" {
#include <libavutil/mathematics.h>
}

namespace kestrel {

namespace {

/// Keeps the movie's clock from lying behind the end that the container states while the input goes
/// on: a current media stays current.
void holdClock(LMFFMovie& movie) {
  const int64_t last = std::max<int64_t>(movie.duration() - 1, 0);
  if (movie.currentTime() > last) movie.update_current_time_to(last);
}

}  // namespace

VideoFeed::VideoFeed(LMFFMovie& movie, int64_t start, Rational rate,
                     std::optional<PictureStretch> stretch)
    : movie_(movie), start_(start), rate_(rate), stretch_(stretch) {
  if (stretch_) tick_ = stretch_->place;
}

int64_t VideoFeed::ticks(int64_t count) const {
  return av_rescale(count, int64_t{1000000} * rate_.den, rate_.num);
}

int64_t VideoFeed::time() const { return ticks(tick_); }

/// Reads to the picture that is shown at a time, and counts those that it leaves behind.
LMFFMedia::Picture VideoFeed::readPictures(LMFFMedia& media, int64_t time) {
  // What ends as the span begins belongs to what lies before.
  const int64_t begin = start_ + (start_ > 0 ? ticks(1) / 4 : 0) - media.movie_position();
  LMFFMedia::Picture picture = media.currentPicture();
  bool isSeen = newest_ && shown_ == newest_.image;
  while (!(picture && picture.lastsBeyond(time))) {
    const bool isInSpan = picture && picture.end > begin;  // its frame goes with the next one
    const LMFFMedia::Picture next = media.nextPicture();
    if (!next) break;
    if (isInSpan) {
      ++tally_.all;
      tally_.leftOut += isSeen ? 0 : 1;
    }
    picture = next;
    isSeen = false;
  }
  return media.currentPicture();
}

/// Makes `newest_` the movie's picture for a time; false when the input ends before it.
bool VideoFeed::readUpTo(int64_t time) {
  holdClock(movie_);
  movie_.updateCurrentMedias();
  const auto media = movie_.currentVideoMedia();
  atEnd_ = !media;
  if (!media) return false;
  const LMFFMedia::Picture picture = readPictures(*media, time - media->movie_position());
  atEnd_ = media->isAtEnd();
  if (!picture) return false;
  newest_.hold(picture, *media);
  // Where much sound was read along, the media waits until somebody takes that.
  return newest_.lastsBeyond(time) || !(atEnd_ || isInterrupted(movie_));
}

/// Finds the picture shown at the start. One that ends within a quarter of a tick gives way to the
/// next, so that a start given in rounded seconds hits the picture that was meant.
void VideoFeed::findFirst() {
  readUpTo(std::max<int64_t>(start_ + ticks(1) / 4, 0));
  if (!newest_) return;
  shown_ = newest_.image;
  anchor_ = std::max(newest_.start, start_);
  anchorTick_ =
      av_rescale_rnd(anchor_ - start_, rate_.num, int64_t{1000000} * rate_.den, AV_ROUND_NEAR_INF);
  anchor_ = newest_.start;
}

/// Finds the picture of the tick before a stretch, which may last into it.
void VideoFeed::findStretch() {
  anchor_ = stretch_->anchor;
  anchorTick_ = stretch_->anchorPlace;
  readUpTo(anchor_ + ticks(2 * (tick_ - anchorTick_) - 1) / 2);
  if (newest_) shown_ = newest_.image;
}

/// Whether the input has one picture only, which is shown as long as its sound lasts.
bool VideoFeed::isStill() const { return atEnd_ && newest_.start == anchor_; }

PictureTally VideoFeed::tally() const {
  PictureTally tally = tally_;
  if (!newest_) return tally;
  ++tally.all;
  // The last picture may have been too short for a tick.
  if (isOver_ && shown_ != newest_.image) ++tally.leftOut;
  return tally;
}

std::shared_ptr<LMFFImage> VideoFeed::next() {
  if (stretch_ && stretch_->untilPlace && tick_ >= *stretch_->untilPlace) return nullptr;
  if (!shown_ && stretch_ && !stretch_->isFirst()) findStretch();
  if (!shown_) findFirst();
  if (!shown_) return nullptr;
  if (tick_ > anchorTick_) {
    const int64_t middle = anchor_ + ticks(2 * (tick_ - anchorTick_) + 1) / 2;
    const bool isOver = !readUpTo(middle);
    if (isOver && !(isStill() && middle < movie_.duration())) {
      isOver_ = true;
      return nullptr;
    }
    // The last picture lasts as long as it says, but not beyond the movie.
    if (atEnd_ && middle >= std::max(newest_.start + ticks(1), movie_.duration())) return nullptr;
    if (newest_.beginsBy(middle)) shown_ = newest_.image;
  }
  ++tick_;
  return shown_;
}

}  // namespace kestrel
