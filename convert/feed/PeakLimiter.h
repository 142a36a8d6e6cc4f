#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

namespace kestrel {

/// Keeps sound below a true peak: mixed or amplified sound keeps its level, and only what would
/// clip is turned down, for about as long as it lasts.
///
/// The gain comes down over the 5 ms before a peak, so that no peak is cut, and goes back within
/// about 100 ms. All channels get the same gain, so that nothing moves between them. Peaks between
/// samples count: they are found by oversampling four times, as Recommendation ITU-R BS.1770-4,
/// annex 2, describes. Sound that stays below the peak comes out bit by bit as it went in.
///
/// Use from one thread.
class PeakLimiter {
 public:
  /// `channels` interleaved; `ceiling`: the highest true peak, 1 is full scale.
  PeakLimiter(int sampleRate, int channels, double ceiling = kCeiling);

  static constexpr double kCeiling = 0.891250938;  ///< -1 dB: room for what a lossy codec adds

  /// Takes samples, interleaved, and hands out those that are ready: as many as it was given, but
  /// for the first few milliseconds.
  std::vector<float> process(std::span<const float> samples);

  /// Whether it has turned anything down so far.
  bool hasActed() const { return hasActed_; }

  /// What is still held back, after the last samples.
  std::vector<float> finish();

 private:
  void take(const float* frame);
  float peakOfNewest() const;
  float nextGain(float wanted);
  void emit(std::vector<float>& output);

  const size_t channels_;
  const float ceiling_;
  const size_t lookAhead_;  // frames
  const float release_;     // of the way back to full gain that is gone in a frame

  std::vector<float> history_;  // the newest frames, for the interpolation, oldest first
  std::deque<float> waiting_;   // samples that were taken and not handed out
  size_t primed_ = 0;           // frames taken until the first one can be handed out

  /// The lowest gain of the look-ahead, as a queue of candidates: (frame, gain), gains rising.
  struct Candidate {
    int64_t frame;
    float gain;
  };
  std::deque<Candidate> candidates_;
  int64_t frame_ = 0;  // taken
  float held_ = 1;     // after the release
  std::deque<float> smoothing_;
  double sum_ = 0;  // of what `smoothing_` is below 1
  bool hasActed_ = false;
  size_t reduced_ = 0;  // how many of it are below 1
};

}  // namespace kestrel
