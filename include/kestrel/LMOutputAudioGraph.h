#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMFIFODataBuffer.h>

#include <cstdint>
#include <memory>

namespace kestrel {

/// What a playback graph asks of its movie. Called on the thread that reads from the graph; it must
/// not block there for long.
class LMOutputAudioGraphDelegate {
 public:
  virtual ~LMOutputAudioGraphDelegate() = default;

  /// The graph is about to read: more sound is welcome.
  virtual void decodeMoreAudioDataToAudioOutput() = 0;
};

/// The movie's playback graph: a byte queue between the thread that decodes and the reader that
/// plays, with the play state, rate and volume that the player is to follow.
///
/// The sound is interleaved stereo 32-bit float at 44100 Hz, so a frame is 8 bytes. One thread may
/// write while another reads.
class KESTREL_API LMOutputAudioGraph {
 public:
  LMOutputAudioGraph();
  ~LMOutputAudioGraph();
  LMOutputAudioGraph(const LMOutputAudioGraph&) = delete;
  LMOutputAudioGraph& operator=(const LMOutputAudioGraph&) = delete;

  void start();
  void stop();
  bool isStart() const;

  float rate() const;  ///< a factor on the tempo; 1 at first
  void setRate(float rate);
  float volume() const;  ///< a factor on the samples; 1 at first
  void setVolume(float volume);

  /// Who is asked for more sound; not owned.
  LMOutputAudioGraphDelegate* delegate() const;
  void setDelegate(LMOutputAudioGraphDelegate* delegate);

  std::shared_ptr<LMFIFODataBuffer> dataBuffer() const;
  void setDataBuffer(std::shared_ptr<LMFIFODataBuffer> buffer);

  /// Asks the delegate for more, then takes `frame` frames; false when fewer were queued: what
  /// there was is then consumed, and the reader plays silence.
  bool readSample(void* data, int32_t frame);

  /// Queues `frame` frames; true.
  bool writeSample(const void* data, int32_t frame);

  /// The same on a numbered stream; there is one, whatever the number.
  bool streamReadSample(int32_t stream, void* data, int32_t numberFrames);
  bool streamWriteSample(int32_t stream, const void* data, int32_t numberFrames);

  /// Whole frames queued.
  int32_t bufferFrames() const;
  void clearBuffer();

  void decodeMoreAudioDataToAudioOutput();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
