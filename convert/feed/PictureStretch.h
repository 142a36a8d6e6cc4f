#pragma once

#include <cstdint>
#include <optional>

namespace kestrel {

/// A part of a conversion's pictures that is made by itself, as the whole makes it: it goes on from
/// where the whole would have come to. Times are microseconds on the movie's time line, places
/// ticks of the result.
struct PictureStretch {
  int64_t from = 0;   ///< when its first picture begins; at a constant rate, its first tick
  int64_t place = 0;  ///< where that is shown; 0 where the whole begins
  /// Likewise of the first picture behind it; absent: it goes on to the end.
  std::optional<int64_t> until = {};
  std::optional<int64_t> untilPlace = {};
  /// At a constant rate: when the movie's first picture begins, and the tick that it takes.
  int64_t anchor = 0;
  int64_t anchorPlace = 0;
  int64_t context = 0;  ///< what is decoded before it, for the sake of what looks back

  /// Times of one picture that are so near to each other are the same: each way of counting rounds.
  static constexpr int64_t kSame = 300;

  bool isFirst() const { return place == 0; }
};

}  // namespace kestrel
