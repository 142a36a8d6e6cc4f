#pragma once

#include <cstdint>
#include <optional>

namespace kestrel {

/// Finds the bit rate of pictures with which a file comes close to a size and not above it, from
/// the sizes that tried rates have come to.
class SizeSearch {
 public:
  enum class Verdict {
    kFits,     ///< not above the limit, and at least `kLeastShare` of it
    kAgain,    ///< the next rate is to be tried
    kBelow,    ///< no rate brings it closer: the pictures are as good as they can be
    kNearest,  ///< nothing fits better in the tries that there are; the best one is below it
    kTooBig,   ///< no rate is small enough
  };

  static constexpr double kLeastShare = 0.95;  ///< of the limit
  static constexpr int kMostTries = 6;

  /// `rest`: bytes of what is no picture, as far as they are known; `least`, `most`: the
  /// rates that make sense, bits per second.
  SizeSearch(int64_t limit, int64_t rest, int least, int most);

  /// Begins with the rate for pictures of so many seconds; or, for 0, with `guess`.
  void begin(double seconds, int guess);

  /// Bits per second to try.
  int rate() const { return rate_; }

  /// What the file came to, bytes.
  Verdict judge(int64_t size);

  /// The largest size so far that is within the limit; none: there was none.
  std::optional<int64_t> best() const;

  /// The smallest size so far.
  int64_t smallest() const { return smallest_; }

 private:
  struct Try {
    double rate = 0;
    double size = 0;
  };

  double nextRate(const Try& last) const;
  bool isStuck(const Try& now) const;

  const double limit_;
  const double rest_;
  const int least_;
  const int most_;
  int rate_ = 0;
  int tries_ = 0;
  std::optional<Try> below_;  // the limit, the nearest
  std::optional<Try> above_;
  std::optional<Try> before_;  // the last but one
  int64_t smallest_ = INT64_MAX;
};

}  // namespace kestrel
