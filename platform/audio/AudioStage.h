#pragma once

#include <kestrel/AudioGraph.h>

#include <functional>

namespace kestrel {

/// What a unit is inside a graph that runs: it makes samples out of those that it pulls from the
/// stage before it. `prepare` may allocate; everything after it runs on the device's thread and
/// does not.
class AudioStage : public AudioUnit {
 public:
  using Format = AudioDevice::Format;

  /// Fills `frames` frames, at most `AudioGraph::kMostFrames`.
  using Source = std::function<void(float* data, int32_t frames)>;

  /// Makes the stage ready to deliver `output` and answers what it takes for that; nothing where it
  /// cannot. A stage that is ready for that already keeps what it holds.
  virtual std::optional<Format> prepare(const Format& output) = 0;

  void setSource(Source source) { source_ = std::move(source); }

  /// The next `frames` frames, at most `AudioGraph::kMostFrames`.
  virtual void render(float* data, int32_t frames) = 0;

  /// How many input frames it has taken that are not in its output yet.
  virtual double heldFrames() const = 0;

  /// The input frames that an output frame stands for, but for the tempo.
  virtual double inputPerOutput() const { return 1; }

  /// Drops what it holds.
  virtual void flush() = 0;

 protected:
  void pull(float* data, int32_t frames) { source_(data, frames); }

 private:
  Source source_;
};

/// The public description of a stage's format.
AudioStreamFormat streamFormat(const AudioDevice::Format& format);

std::shared_ptr<AudioStage> makeConverterStage();
std::shared_ptr<AudioStage> makeTimePitchStage();

}  // namespace kestrel
