#include "convert/run/SizeSearch.h"

#include <algorithm>
#include <cmath>

namespace kestrel {

namespace {

constexpr double kTarget = 0.98;  // of the limit
constexpr double kLongestStep = 8;

/// A rate that changes by so much and a size that changes by so little: the encoder does not
/// follow.
constexpr double kClearStep = 1.3;
constexpr double kSameSize = 0.02;

}  // namespace

SizeSearch::SizeSearch(int64_t limit, int64_t rest, int least, int most)
    : limit_(static_cast<double>(limit)),
      rest_(static_cast<double>(rest)),
      least_(least),
      most_(std::max(least, most)) {}

void SizeSearch::begin(double seconds, int guess) {
  const double room = std::max(kTarget * limit_ - rest_, 0.0) * 8;
  rate_ = static_cast<int>(
      std::clamp(seconds > 0 ? room / seconds : guess, double(least_), double(most_)));
}

std::optional<int64_t> SizeSearch::best() const {
  return below_ ? std::optional(static_cast<int64_t>(below_->size)) : std::nullopt;
}

bool SizeSearch::isStuck(const Try& now) const {
  if (!before_) return false;
  const double step = now.rate / before_->rate;
  const bool isClear = step > kClearStep || step < 1 / kClearStep;
  return isClear && std::abs(now.size / before_->size - 1) < kSameSize;
}

/// Between a rate that is too low and one that is too high, straight; else as if the pictures'
/// bytes followed the rate.
double SizeSearch::nextRate(const Try& last) const {
  const double wanted = kTarget * limit_;
  if (below_ && above_) {
    const double part = (wanted - below_->size) / (above_->size - below_->size);
    return below_->rate + std::clamp(part, 0.05, 0.95) * (above_->rate - below_->rate);
  }
  const double factor = (wanted - rest_) / std::max(last.size - rest_, 1.0);
  return last.rate * std::clamp(factor, 1 / kLongestStep, kLongestStep);
}

SizeSearch::Verdict SizeSearch::judge(int64_t size) {
  const Try now{static_cast<double>(rate_), static_cast<double>(size)};
  ++tries_;
  smallest_ = std::min(smallest_, size);
  const bool isAbove = now.size > limit_;
  if (isAbove) {
    if (!above_ || now.rate < above_->rate) above_ = now;
  } else if (!below_ || now.size > below_->size) {
    below_ = now;
  }
  if (!isAbove && now.size >= kLeastShare * limit_) return Verdict::kFits;
  if (!isAbove && (rate_ >= most_ || isStuck(now)) && !above_) return Verdict::kBelow;
  if (isAbove && (rate_ <= least_ || isStuck(now)) && !below_) return Verdict::kTooBig;
  if (tries_ >= kMostTries) return below_ ? Verdict::kNearest : Verdict::kTooBig;
  before_ = now;
  rate_ = static_cast<int>(std::clamp(nextRate(now), double(least_), double(most_)));
  return Verdict::kAgain;
}

}  // namespace kestrel
