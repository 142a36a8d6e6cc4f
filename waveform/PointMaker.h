#pragma once

#include <kestrel/Waveform.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kestrel {

/// Makes points of samples, stretch by stretch; one channel.
class PointMaker {
 public:
  /// `expected`: how many points there will be, as far as is known.
  PointMaker(int32_t samplesPerPoint, size_t expected) : samplesPerPoint_(samplesPerPoint) {
    points_.reserve(expected);
  }

  /// Counts samples; null counts silence.
  void add(const float* samples, int64_t count);

  /// Ends the stretch that is not full yet, if any, and hands out all points.
  std::vector<WaveformPoint> finish();

 private:
  void addToStretch(const float* samples, size_t count);
  void endStretch();

  int32_t samplesPerPoint_;
  int64_t count_ = 0;  // of the stretch
  float min_ = 0;
  float max_ = 0;
  double squares_ = 0;
  std::vector<WaveformPoint> points_;
};

}  // namespace kestrel
