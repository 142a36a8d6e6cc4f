#include "waveform/PointMaker.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace kestrel {

namespace {

/// So many samples are worked on side by side, which compilers turn into vectors.
constexpr size_t kLanes = 16;

/// Squares are summed in single precision over so many samples at most.
constexpr size_t kBlock = 1024;

struct Extent {
  float min;
  float max;
  double squares = 0;
};

void widen(Extent& extent, const float* samples, size_t count) {
  float min[kLanes];
  float max[kLanes];
  float squares[kLanes] = {};
  std::fill_n(min, kLanes, extent.min);
  std::fill_n(max, kLanes, extent.max);
  size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    for (size_t lane = 0; lane < kLanes; ++lane) {
      const float sample = samples[i + lane];
      min[lane] = sample < min[lane] ? sample : min[lane];
      max[lane] = sample > max[lane] ? sample : max[lane];
      squares[lane] += sample * sample;
    }
  }
  for (size_t lane = 0; i < count; ++i, ++lane) {
    min[lane] = std::min(min[lane], samples[i]);
    max[lane] = std::max(max[lane], samples[i]);
    squares[lane] += samples[i] * samples[i];
  }
  extent.min = *std::min_element(min, min + kLanes);
  extent.max = *std::max_element(max, max + kLanes);
  for (const float sum : squares) extent.squares += sum;
}

}  // namespace

void PointMaker::add(const float* samples, int64_t count) {
  while (count > 0) {
    const int64_t part = std::min(count, samplesPerPoint_ - count_);
    if (samples) {
      addToStretch(samples, static_cast<size_t>(part));
      samples += part;
    } else {
      const float silence = 0;
      addToStretch(&silence, 1);
    }
    count_ += part;
    count -= part;
    if (count_ == samplesPerPoint_) endStretch();
  }
}

void PointMaker::addToStretch(const float* samples, size_t count) {
  Extent extent{min_, max_, squares_};
  if (count_ == 0) extent.min = extent.max = samples[0];
  for (size_t i = 0; i < count; i += kBlock)
    widen(extent, samples + i, std::min(kBlock, count - i));
  min_ = extent.min;
  max_ = extent.max;
  squares_ = extent.squares;
}

void PointMaker::endStretch() {
  points_.push_back(
      {min_, max_, static_cast<float>(std::sqrt(squares_ / static_cast<double>(count_)))});
  count_ = 0;
  squares_ = 0;
}

std::vector<WaveformPoint> PointMaker::finish() {
  if (count_ > 0) endStretch();
  return std::move(points_);
}

}  // namespace kestrel
