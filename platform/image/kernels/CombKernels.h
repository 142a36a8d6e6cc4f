#pragma once

#include <cstddef>
#include <cstdint>

namespace kestrel::kernels {

/// How many bytes behind each row that is passed here may be read, and behind `runs` and `across`
/// written as well.
inline constexpr size_t kCombPadding = 80;

/// When lines look like the teeth of a comb.
struct CombLimits {
  uint8_t step;  ///< so much a line differs at least from those beside it, and half of that they
                 ///< from their other neighbours
  uint8_t leastRun;  ///< so many teeth make a comb, at most 16
};

/// Pixels of a line that lie in combs, in combs across the line, and that move.
struct CombCounts {
  size_t combed = 0;
  size_t noise = 0;
  size_t moving = 0;
};

/// Looks at one line of a picture. `rows` are the lines from two above it to two below, `before`
/// the three around it in a picture beside it in time, `width` pixels each. A pixel moves where it
/// or the one above or below differs from what it is in the other picture. `runs` keeps for each
/// column how many teeth end there one below the other, from line to line; `across` is room for a
/// line.
CombCounts countCombs(const uint8_t* const* rows, const uint8_t* const* before, size_t width,
                      CombLimits limits, uint8_t* runs, uint8_t* across);

}  // namespace kestrel::kernels
