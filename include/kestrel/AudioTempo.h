#pragma once

#include <kestrel/Export.h>

#include <cstdint>
#include <memory>

namespace kestrel {

/// Plays sound faster or slower and keeps its pitch: interleaved 32-bit float samples. One thread
/// at a time.
class KESTREL_API AudioTempo {
 public:
  /// `rate`: above 1 is faster; 0.01 to 100. `sampleRate`: frames per second. `channels`: 1 to 8.
  /// Null where this is not possible.
  static std::unique_ptr<AudioTempo> make(double rate, int32_t sampleRate, int32_t channels);
  ~AudioTempo();
  AudioTempo(const AudioTempo&) = delete;
  AudioTempo& operator=(const AudioTempo&) = delete;

  /// Takes `frames` frames; 0 says that no more come. Throws std::bad_alloc.
  void write(const float* data, int32_t frames);

  /// Hands out up to `frames` frames; fewer where there are no more yet.
  int32_t read(float* data, int32_t frames);

 private:
  AudioTempo();

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
