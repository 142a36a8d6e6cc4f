#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace kestrel {

/// How loud sound is as a whole: the integrated loudness of Recommendation ITU-R BS.1770-4, as EBU
/// R 128 asks for it, with both gates.
///
/// Use from one thread.
class LoudnessMeter {
 public:
  /// `channelLayout`: a mask, by which channels count: those of low frequencies not at all, those
  /// beside and behind the listener 1.5 dB more.
  LoudnessMeter(int32_t sampleRate, int64_t channelLayout);
  ~LoudnessMeter();

  /// Takes samples, interleaved.
  void take(std::span<const float> samples);

  /// LUFS of what was taken; none of silence (below -70), and of what is shorter than 0.4 s.
  std::optional<double> loudness() const;

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace kestrel
