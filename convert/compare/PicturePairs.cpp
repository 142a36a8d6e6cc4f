#include "convert/compare/PicturePairs.h"

#include <algorithm>
#include <cstdlib>

namespace kestrel {

namespace {

bool isSlower(Rational one, Rational other) {
  return int64_t{one.num} * other.den < int64_t{other.num} * one.den;
}

}  // namespace

PicturePairs::PicturePairs(Pictures& original, Pictures& copy, int64_t offset)
    : originalLeads_(!isSlower(copy.frameRate(), original.frameRate())),
      leader_(originalLeads_ ? Side{&original, 0} : Side{&copy, offset}),
      follower_(originalLeads_ ? Side{&copy, offset} : Side{&original, 0}) {}

std::optional<Pictures::Shown> PicturePairs::Side::next() {
  auto shown = pictures->next();
  if (shown) ++count.read;
  return shown;
}

/// Whether the follower's current picture is shown at the time of a leading one.
bool PicturePairs::meets(const Pictures::Shown& leading) const {
  const int64_t time = leader_.begin(leading);
  const int64_t own = follower_.begin(*current_);
  const int64_t end =
      following_ ? follower_.begin(*following_) : own + current_->end - current_->start;
  const int64_t longer = std::max(leading.end - leading.start, current_->end - current_->start);
  return (own <= time && time < end) || 2 * std::llabs(own - time) <= longer;
}

std::optional<PicturePairs::Pair> PicturePairs::next() {
  if (!isBegun_) {
    isBegun_ = true;
    current_ = follower_.next();
    following_ = follower_.next();
  }
  while (current_) {
    const auto leading = leader_.next();
    if (!leading) return std::nullopt;
    const int64_t time = leader_.begin(*leading);
    const auto distance = [&](const Pictures::Shown& shown) {
      return std::llabs(follower_.begin(shown) - time);
    };
    // Of two that are as near the one that no other picture met.
    const auto isNearer = [&] {
      const int64_t now = distance(*current_);
      const int64_t then = distance(*following_);
      return then < now || (then == now && wasPaired_);
    };
    while (following_ && isNearer()) {
      current_ = std::move(following_);
      following_ = follower_.next();
      wasPaired_ = false;
    }
    if (!meets(*leading)) continue;
    ++leader_.count.paired;
    if (!wasPaired_) ++follower_.count.paired;
    wasPaired_ = true;
    return originalLeads_ ? Pair{*leading, *current_} : Pair{*current_, *leading};
  }
  return std::nullopt;
}

void PicturePairs::readOn() {
  while (leader_.next()) continue;
  while (follower_.next()) continue;
}

}  // namespace kestrel
