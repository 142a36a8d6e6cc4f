#pragma once

#include <kestrel/convert/Check.h>

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "convert/check/Findings.h"

struct AVFrame;

namespace kestrel {

/// Listens to the frames of a stream of sound: silence, clipping, gaps, drift.
///
/// Sound that is clipped reaches a level fast, stays there for samples on end, and leaves it fast;
/// the tops of deep sounds are flat as well, but not at their edges. Drift is what times and
/// samples differ by at the end, where no single frame tells of it.
class SoundInspector {
 public:
  SoundInspector(uint32_t stream, const CheckSettings& settings);

  /// A frame and its time, microseconds; in the order of the stream. Formats that nothing can be
  /// read from count for their times alone.
  void take(const AVFrame& frame, std::optional<int64_t> time, Findings& findings);

  void finish(Findings& findings);

  int64_t begin() const { return first_.value_or(0); }
  int64_t end() const { return end_; }
  bool hasSound() const { return first_.has_value(); }

 private:
  struct Channel {
    float last = 0;
    float before = 0;  // what came before the level that lasts
    int64_t length = 0;
  };

  void followTimes(int64_t time, double length, Findings& findings);
  template <typename Sample>
  bool listen(const AVFrame& frame, double full, int64_t time, Findings& findings);
  void hear(Channel& channel, float value, int64_t time, Findings& findings);

  const uint32_t stream_;
  LastingState silence_;
  Incidents clipping_;
  std::vector<Channel> channels_;
  std::optional<int64_t> first_;
  int64_t end_ = 0;
  double counted_ = 0;  // microseconds of sound since the times last jumped
  int64_t base_ = 0;    // the time at which counting began
  int64_t drift_ = 0;   // of what was counted before
  int64_t lastDrift_ = 0;
};

}  // namespace kestrel
