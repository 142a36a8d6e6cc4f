#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMAudioGraph.h>
#include <kestrel/LMFIFODataBuffer.h>

#include <cstdint>
#include <memory>

namespace kestrel {

/// What a playback graph requests from its movie. Called on the thread that reads from the graph:
/// while the graph runs, the device's thread, which must neither block nor allocate memory.
class LMOutputAudioGraphDelegate {
 public:
  virtual ~LMOutputAudioGraphDelegate() = default;

  /// The graph is about to read and can take more sound.
  virtual void decodeMoreAudioDataToAudioOutput() = 0;

  /// The player's clock should advance by `frames`.
  virtual void audioOutputForwordSample(double /*frames*/) {}
};

using OutputAudioGraphDelegate = LMOutputAudioGraphDelegate;

/// A movie's playback graph: a byte queue between the decoding thread and the device, followed by
/// converter, tempo and volume.
///
/// Sound in the queue is interleaved stereo 32-bit float at 44100 Hz, 8 bytes per frame; it is
/// converted to the device's format. One thread may write while another reads. While the graph is
/// started, the device reads; while it is stopped, a host may. `graph().setDevice` selects another
/// device than the default.
class KESTREL_API LMOutputAudioGraph : public LMAudioGraph {
 public:
  LMOutputAudioGraph();
  ~LMOutputAudioGraph() override;

  /// Tempo factor, applied from 0.25 to 4, at constant pitch; default 1.
  float rate() const;
  void setRate(float rate);
  /// Gain factor, applied from 0 to 1000; default 1.
  float volume() const;
  void setVolume(float volume);

  /// Receives requests for more sound; not owned. Change it only while the graph is stopped.
  LMOutputAudioGraphDelegate* delegate() const;
  void setDelegate(LMOutputAudioGraphDelegate* delegate);

  std::shared_ptr<LMFIFODataBuffer> dataBuffer() const;
  void setDataBuffer(std::shared_ptr<LMFIFODataBuffer> buffer);

  /// Asks the delegate for more, then reads `frame` frames. If fewer are queued, consumes them and
  /// returns false; the reader then plays silence.
  bool readSample(void* data, int32_t frame);

  /// Queues `frame` frames; always returns true.
  bool writeSample(const void* data, int32_t frame);

  /// The same for a numbered stream; the number is ignored, as there is only one.
  bool streamReadSample(int32_t stream, void* data, int32_t numberFrames) override;
  bool streamWriteSample(int32_t stream, const void* data, int32_t numberFrames) override;

  /// The number of whole frames in the queue.
  int32_t bufferFrames() const;

  /// Frames that have been written but not heard: those in the queue and those that the running
  /// graph has taken from it but not yet played. Changes smoothly between the device's calls.
  double unheardFrames() const;

  /// Discards queued sound and sound on its way to the device, without stopping the graph. Call it
  /// on the writing thread, or while nothing is written.
  void clearBuffer();

  /// How often fewer frames were queued than requested. Waiting for the first ones, initially and
  /// after `clearBuffer`, does not count.
  int64_t underruns() const;

  /// Forwarded to the delegate, if any.
  void decodeMoreAudioDataToAudioOutput();
  void audioOutputForwordSample(double frames);

 protected:
  void createNode() override;
  void configNode() override;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
