#include "convert/feed/PacedFeed.h"

#include <algorithm>
#include <utility>

#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

/// Containers that count milliseconds are off by up to one between two pictures; microseconds.
constexpr int64_t kRounding = 1100;

}  // namespace

PacedFeed::PacedFeed(LMFFMovie& movie, int64_t start, std::optional<int64_t> end, Rational rate)
    : feed_(movie, start, end, rate, false),
      rate_(rate),
      length_(av_rescale_q(1, {rate.den, rate.num}, toAV(pictureTick(rate)))) {}

int64_t PacedFeed::microseconds(int64_t ticks) const {
  return av_rescale(ticks, int64_t{1000000} * rate_.den, rate_.num);
}

int64_t PacedFeed::tickOf(int64_t time) const {
  return (time + av_rescale_q(kRounding, kMicroseconds, toAV(pictureTick(rate_)))) / length_;
}

void PacedFeed::readAhead() {
  next_ = feed_.next();
  if (next_) place_ = now_ ? std::max(place_ + 1, tickOf(next_->time)) : 0;
}

std::shared_ptr<LMFFImage> PacedFeed::next() {
  if (!isBegun_) {
    isBegun_ = true;
    readAhead();
  }
  if (next_ && place_ <= tick_) {
    now_ = std::exchange(next_, std::nullopt);
    readAhead();
  }
  if (!now_) return nullptr;
  const bool isOver = !next_ && tick_ > place_ && tick_ >= tickOf(now_->time + now_->duration);
  if (isOver) return nullptr;
  ++tick_;
  return now_->image;
}

}  // namespace kestrel
