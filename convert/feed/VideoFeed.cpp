#include "convert/feed/VideoFeed.h"
#include "convert/probe/Input.h"

#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>

#include <algorithm>

#include "convert/feed/AudioFeed.h"
#include "convert/probe/Input.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/mathematics.h>
}

namespace kestrel {

namespace {

constexpr AVRational kMicroseconds{1, 1000000};

AVRational toAV(Rational r) { return {r.num, r.den}; }

int64_t durationOf(const AVFrame& frame) {
#if LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100)
  return frame.duration;
#else
  return frame.pkt_duration;
#endif
}

}  // namespace

VideoFeed::VideoFeed(LMFFMovie& movie, int64_t start, Rational rate)
    : movie_(movie), start_(start), rate_(rate) {}

int64_t VideoFeed::ticks(int64_t count) const {
  return av_rescale(count, int64_t{1000000} * rate_.den, rate_.num);
}

int64_t VideoFeed::time() const { return ticks(tick_); }

/// Makes `newest_` the movie's picture for a time; false when the input ends before it.
bool VideoFeed::fetch(int64_t time) {
  holdClock(movie_);
  int64_t asked = time;
  for (bool isReached = false; !isReached;) {
    atEnd_ = true;
    movie_.decodeImageAtTime(asked, true, [&](const std::shared_ptr<LMFFImage>& image) {
      const auto media = movie_.currentVideoMedia();
      if (!image || !media) return;
      atEnd_ = media->isAtEnd();
      const AVFrame* frame = image->getFrame();
      if (!frame || !frame->data[0]) return;
      isReached = take(*frame, *media, time);
      // The movie asks in whole ticks of the stream; a time within one may round to its start.
      const Rational base = media->videoStream()->timebase();
      const int64_t tick = av_rescale_q_rnd(1, toAV(base), kMicroseconds, AV_ROUND_UP);
      if (!isReached) asked = std::max(asked, newest_.end + tick);
    });
    if (!isReached && (atEnd_ || isInterrupted(movie_))) return false;
  }
  return true;
}

/// Keeps a frame; true when it lasts beyond `time`.
bool VideoFeed::take(const AVFrame& frame, const LMFFMedia& media, int64_t time) {
  const AVRational ticks = toAV(media.videoStream()->timebase());
  const int64_t offset = media.movie_position() - media.start_time();
  const int64_t end = frame.pts + durationOf(frame);
  const int64_t start = av_rescale_q(frame.pts, ticks, kMicroseconds) + offset;
  if (!newest_.image || newest_.image->getFrame()->data[0] != frame.data[0] ||
      newest_.start != start)
    newest_.image = LMFFImage::imageWithFrame(av_frame_clone(&frame), true);
  newest_.start = start;
  newest_.end = av_rescale_q(end, ticks, kMicroseconds) + offset;
  return av_compare_ts(end, ticks, time - offset, kMicroseconds) > 0;
}

/// Finds the picture shown at the start. One that ends within a quarter of a tick gives way to the
/// next, so that a start given in rounded seconds hits the picture that was meant.
void VideoFeed::findFirst() {
  if (!fetch(std::max<int64_t>(start_ + ticks(1) / 4, 0)) && !newest_.image) return;
  shown_ = newest_;
  anchor_ = std::max(newest_.start, start_);
  anchorTick_ =
      av_rescale_rnd(anchor_ - start_, rate_.num, int64_t{1000000} * rate_.den, AV_ROUND_NEAR_INF);
  anchor_ = newest_.start;
}

/// Whether the input has one picture only, which is shown as long as its sound lasts.
bool VideoFeed::isStill() const { return atEnd_ && newest_.start == anchor_; }

std::shared_ptr<LMFFImage> VideoFeed::next() {
  if (!shown_.image) findFirst();
  if (!shown_.image) return nullptr;
  if (tick_ > anchorTick_) {
    const int64_t middle = anchor_ + (ticks(2 * (tick_ - anchorTick_)) + ticks(1)) / 2;
    const bool isOver = !fetch(middle) && newest_.end <= middle;
    if (isOver && !(isStill() && middle < movie_.duration())) return nullptr;
    // The last picture lasts as long as it says, but not beyond the movie.
    if (atEnd_ && middle >= std::max(newest_.start + ticks(1), movie_.duration())) return nullptr;
    if (newest_.start <= middle) shown_ = newest_;
  }
  ++tick_;
  return shown_.image;
}

}  // namespace kestrel
