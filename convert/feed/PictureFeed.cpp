#include "convert/feed/PictureFeed.h"

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "convert/feed/Rounding.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr int kFewestTicks = 10000;  // in a second

/// Containers that count milliseconds are off by up to one between two pictures; microseconds.
constexpr int64_t kRounding = 1100;

/// A gap so long, or a step back, may be damage; microseconds.
constexpr int64_t kSuspicious = 10000000;
constexpr int64_t kStepBack = 500000;

/// Packets may tell other times than decoded pictures.
Failure notAsPlanned(int64_t time) {
  return Failure::input(
      {}, fmt::format("the pictures at {} do not come when their packets say: they cannot be "
                      "converted in parts",
                      formatTime(static_cast<double>(time) / 1e6)));
}

}  // namespace

Rational pictureTick(Rational rate) {
  const int parts = (kFewestTicks + rate.num - 1) / rate.num;
  return {1, rate.num * std::max(parts, 1)};
}

int64_t pictureTickAfter(int64_t place, int64_t own, int64_t usual, Rational tick) {
  const bool isUsual =
      std::abs(own - place - usual) <= av_rescale_q(kRounding, kMicroseconds, toAV(tick));
  return std::max(isUsual ? place + usual : own, place + 1);
}

std::vector<int64_t> pictureTicks(const std::vector<int64_t>& times, int64_t start, Rational rate,
                                  bool repeats) {
  const Rational tick = pictureTick(rate);
  const int64_t usual = av_rescale_q(1, {rate.den, rate.num}, toAV(tick));
  std::vector<int64_t> places;
  int64_t place = 0;
  for (const int64_t time : times) {
    const int64_t own = av_rescale_q(time - start, kMicroseconds, toAV(tick));
    const auto next = [&] { return pictureTickAfter(place, own, usual, tick); };
    if (!places.empty()) {
      while (repeats && next() - place > usual + usual / 2) place += usual;
      place = next();
    }
    places.push_back(place);
  }
  return places;
}

PictureFeed::PictureFeed(LMFFMovie& movie, int64_t start, std::optional<int64_t> end, Rational rate,
                         bool repeats, std::optional<PictureStretch> stretch)
    : movie_(movie),
      start_(start),
      stop_(end ? std::optional(av_rescale_q(*end - start, kMicroseconds, toAV(pictureTick(rate))))
                : std::nullopt),
      tick_(pictureTick(rate)),
      usual_(av_rescale_q(1, {rate.den, rate.num}, toAV(tick_))),
      repeats_(repeats),
      stretch_(stretch) {}

int64_t PictureFeed::ticksOf(int64_t time) const {
  return av_rescale_q(time, kMicroseconds, toAV(tick_));
}

int64_t PictureFeed::time() const { return av_rescale_q(place_, toAV(tick_), kMicroseconds); }

/// A picture that ends within what a start is rounded by gives way to the next, which was meant.
/// The beginning has no rounding.
void PictureFeed::findFirst() {
  isBegun_ = true;
  movie_.updateCurrentMedias();
  const auto media = movie_.currentVideoMedia();
  if (!media) return;
  const int64_t rounding =
      start_ > 0 ? roundingOf(av_rescale_q(usual_, toAV(tick_), kMicroseconds)) : 0;
  HeldPicture first;
  first.hold(media->pictureAtTime(start_ + rounding - media->movie_position()), *media);
  if (first) waiting_.push_back({first, first.start});
}

/// The first picture of a stretch, which goes on where the one before it has ended.
void PictureFeed::findStretch() {
  isBegun_ = true;
  isOnly_ = false;
  place_ = stretch_->place;
  movie_.updateCurrentMedias();
  const auto media = movie_.currentVideoMedia();
  HeldPicture first;
  if (media)
    first.hold(
        media->pictureAtTime(stretch_->from + PictureStretch::kSame - media->movie_position()),
        *media);
  if (!first || std::abs(first.start - stretch_->from) > PictureStretch::kSame)
    throw notAsPlanned(stretch_->from);
  waiting_.push_back({first, first.start});
}

bool PictureFeed::isStretchOver() const {
  if (!stretch_ || !stretch_->until) return false;
  const bool isThere =
      !waiting_.empty() && waiting_[0].start >= *stretch_->until - PictureStretch::kSame;
  if (!isThere && !waiting_.empty()) return false;
  if (!isThere || place_ != *stretch_->untilPlace) throw notAsPlanned(*stretch_->until);
  return true;
}

/// False at the end of the input.
bool PictureFeed::readNext() {
  const auto media = movie_.currentVideoMedia();
  if (!media) return false;
  HeldPicture next;
  next.hold(media->nextPicture(), *media);
  if (!next) return false;
  const int64_t before = waiting_.back().start;
  int64_t own = next.start + shift_;
  if (own < before - kStepBack) {
    shift_ += before + av_rescale_q(usual_, toAV(tick_), kMicroseconds) - own;
    own = next.start + shift_;
  }
  waiting_.push_back({std::move(next), own});
  return true;
}

/// Where the next picture lies far ahead, the one behind it tells whether its time is damaged.
void PictureFeed::judgeGap() {
  const int64_t from = waiting_[0].start;
  if (waiting_[1].start - from < kSuspicious) return;
  const int64_t shift = shift_;
  if (!readNext() || shift_ == shift) return;
  shift_ = shift;
  waiting_[1].start = from + av_rescale_q(usual_, toAV(tick_), kMicroseconds);
  waiting_[2].start = waiting_[2].picture.start + shift_;
}

/// Where a picture belongs that follows the first.
int64_t PictureFeed::placeOf(int64_t start) const {
  const int64_t own = ticksOf(start - start_);
  return pictureTickAfter(place_, own, usual_, tick_);
}

int64_t PictureFeed::endOf(const Waiting& picture) const {
  const int64_t length = picture.picture.end - picture.picture.start;
  int64_t end = std::max(place_ + 1, ticksOf(picture.start + length - start_));
  if (std::abs(end - place_ - usual_) <= ticksOf(kRounding)) end = place_ + usual_;
  if (isOnly_) end = std::max(end, ticksOf(movie_.duration() - start_));
  return end;
}

std::optional<PictureFeed::Timed> PictureFeed::next() {
  if (!isBegun_ && stretch_ && !stretch_->isFirst()) findStretch();
  if (!isBegun_) findFirst();
  if (isStretchOver()) return std::nullopt;
  // A picture that would show for less than half its usual time is left out, but not the only one.
  const bool isPast = stop_ && place_ > 0 && place_ + usual_ / 2 > *stop_;
  if (waiting_.empty() || isPast) return std::nullopt;
  const bool goesOn = waiting_.size() > 1 || readNext();
  if (goesOn) judgeGap();
  isOnly_ = isOnly_ && !goesOn;
  Timed timed{waiting_[0].picture.image, place_, 0};
  const int64_t end = goesOn ? placeOf(waiting_[1].start) : endOf(waiting_[0]);
  const int64_t last = stop_ ? std::max(std::min(end, *stop_), place_ + 1) : end;
  if (repeats_ && last - place_ > usual_ + usual_ / 2) {
    timed.duration = usual_;
    place_ += usual_;
    return timed;
  }
  timed.duration = last - place_;
  place_ = end;
  waiting_.pop_front();
  return timed;
}

}  // namespace kestrel
