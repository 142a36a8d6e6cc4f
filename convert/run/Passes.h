#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Events.h>

#include <string>

namespace kestrel {

/// Whether what an encoder learns in a first pass goes to its second in files.
bool keepsPassLogInFiles(const ConversionPlan& plan);

/// Has a plan's encoder do the first or the second of two passes. `folder`: where it keeps what it
/// learns in the first, where that goes in files.
void setPass(ConversionPlan& plan, int pass, const std::string& folder);

/// The least bit rate that a second pass can be asked for after a first that has told `statistics`,
/// at so many pictures per second: the library's own encoders tell how many bits their pictures
/// have at the coarsest steps, and fail below. 0 for others, which know no least rate or tell none.
int leastRate(const std::string& statistics, Rational rate);

/// The progress of work that is done in several runs, each of which tells its own: as of one, which
/// never goes back. The times of each run count for a part of the whole.
class SharedProgress {
 public:
  /// `events`: those of the whole, which last longer.
  explicit SharedProgress(const Events& events);

  /// The events for the next run, which is worth so much of the whole, 0 to 1.
  const Events& next(double share);

 private:
  void tell(const Progress& own);

  const Events& events_;
  Events shared_;
  double share_ = 0;
  double time_ = 0;  // of the runs before
  double pictures_ = 0;
  Progress last_ = {};  // that the current run told
};

}  // namespace kestrel
