#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/e2e/Decoded.h"

namespace kestrel::test {

/// Clips whose pictures carry their number and whose sound ticks.
///
/// The fixtures `numbered….…` show picture k with k written as 16 vertical bars, the lowest bit at
/// the left, white for 1. The pictures are to be shown at k / rate seconds. The sound is silent but
/// for a burst of 20 ms at every multiple of a period: every second, or every 1.001 s where the
/// rate has a denominator of 1001. So what was once shown or heard at which time can be read from
/// any conversion of such a clip.
struct ShownPicture {
  double time = 0;  ///< seconds, as the file says
  int number = 0;
};

/// What a file shows, in order.
std::vector<ShownPicture> shownPictures(const std::filesystem::path& file);

/// The numbers alone.
std::vector<int> shownNumbers(const std::filesystem::path& file);

/// When a file's ticks begin, in seconds.
std::vector<double> tickTimes(const std::filesystem::path& file);

/// `first`, `first` + 1, …, `count` numbers.
std::vector<int> countingFrom(int first, int count);

/// What a conversion of a numbered clip must keep.
struct SyncExpectation {
  double rate = 25;           ///< pictures per second of the source's numbering
  double start = 0;           ///< the time of the source that becomes 0
  std::vector<double> ticks;  ///< the times of the source whose ticks must be heard
};

/// `count` multiples of `period` from `first` × `period` on.
std::vector<double> ticksEvery(double period, int first, int count);

/// Whether every picture is shown, and every tick heard, less than one picture's duration away from
/// its time.
testing::AssertionResult keepsSync(const std::filesystem::path& file,
                                   const SyncExpectation& expected);

}  // namespace kestrel::test
