#pragma once

#include <kestrel/Export.h>

#include <cstdint>
#include <memory>

namespace kestrel {

/// Changes the tempo of sound and keeps its pitch. Samples are interleaved 32-bit float. Use from
/// one thread at a time.
class KESTREL_API AudioTempo {
 public:
  /// `rate`: 0.01 to 100; above 1 is faster. `sampleRate`: in Hz. `channels`: 1 to 8. Null if a
  /// value is out of range or the filter cannot be made.
  static std::unique_ptr<AudioTempo> make(double rate, int32_t sampleRate, int32_t channels);
  ~AudioTempo();
  AudioTempo(const AudioTempo&) = delete;
  AudioTempo& operator=(const AudioTempo&) = delete;

  /// Takes `frames` frames; 0 signals the end of the input. Throws std::bad_alloc.
  void write(const float* data, int32_t frames);

  /// Writes up to `frames` frames to `data` and returns how many; fewer if no more are ready.
  int32_t read(float* data, int32_t frames);

 private:
  AudioTempo();

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
