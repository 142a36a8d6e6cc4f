#pragma once

#include <cstdint>
#include <optional>

namespace kestrel {

/// A place in a movie, or a length of it: a time, or a share of the whole movie's length.
///
///     settings.start = 2'500'000;          // microseconds
///     settings.end = Moment::ofShare(0.5);
struct Moment {
  // Not explicit: a time is a moment as it stands.
  constexpr Moment(int64_t microseconds = 0) : time(microseconds) {}

  static constexpr Moment ofShare(double share) {
    Moment moment;
    moment.share = share;
    return moment;
  }

  /// The time that is meant in a movie so long; nothing for a share where that is not known.
  constexpr std::optional<int64_t> within(std::optional<int64_t> length) const {
    if (!share) return time;
    if (!length) return std::nullopt;
    return static_cast<int64_t>(static_cast<double>(*length) * *share);
  }

  bool operator==(const Moment&) const = default;

  int64_t time;                      ///< microseconds; 0 beside a `share`
  std::optional<double> share = {};  ///< so much of the length, 0 to 1
};

}  // namespace kestrel
