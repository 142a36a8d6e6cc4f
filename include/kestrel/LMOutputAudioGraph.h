#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMAudioGraph.h>
#include <kestrel/LMFIFODataBuffer.h>

#include <cstdint>
#include <memory>

namespace kestrel {

/// What a playback graph asks of its movie. Called on the thread that reads from the graph, which
/// is the device's while the graph runs; it must not block there, nor allocate.
class LMOutputAudioGraphDelegate {
 public:
  virtual ~LMOutputAudioGraphDelegate() = default;

  /// The graph is about to read: more sound is welcome.
  virtual void decodeMoreAudioDataToAudioOutput() = 0;

  /// The player's clock is to move on by so many frames.
  virtual void audioOutputForwordSample(double /*frames*/) {}
};

using OutputAudioGraphDelegate = LMOutputAudioGraphDelegate;

/// The movie's playback graph: a byte queue between the thread that decodes and the device that
/// plays, and what lies between the queue and the device: converter, tempo, volume.
///
/// The sound is interleaved stereo 32-bit float at 44100 Hz, so a frame is 8 bytes; the device is
/// given what it takes. One thread may write while another reads. The device reads while the graph
/// is started; a host may read by hand while it is not. `graph().setDevice` chooses another device
/// than the default one.
class KESTREL_API LMOutputAudioGraph : public LMAudioGraph {
 public:
  LMOutputAudioGraph();
  ~LMOutputAudioGraph() override;

  /// A factor on the tempo, taken from 0.25 to 4; the pitch stays. 1 at first.
  float rate() const;
  void setRate(float rate);
  /// A factor on the samples, from 0; 1 at first.
  float volume() const;
  void setVolume(float volume);

  /// Who is asked for more sound; not owned. Change it while the graph is stopped.
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
  bool streamReadSample(int32_t stream, void* data, int32_t numberFrames) override;
  bool streamWriteSample(int32_t stream, const void* data, int32_t numberFrames) override;

  /// Whole frames queued.
  int32_t bufferFrames() const;

  /// The frames that have been written and not been heard: those in the queue, and those that the
  /// started graph has taken from it and that are still on their way to the ear. Moves smoothly
  /// between the device's calls.
  double unheardFrames() const;

  /// Forgets what is queued and what is on its way, without stopping the graph. By the thread that
  /// writes, or while nobody does.
  void clearBuffer();

  /// How often fewer frames were queued than the reader wanted. Waiting for the first ones, at the
  /// start and after `clearBuffer`, does not count.
  int64_t underruns() const;

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
