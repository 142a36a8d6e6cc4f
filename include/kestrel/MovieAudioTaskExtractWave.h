#pragma once

#include <kestrel/Export.h>
#include <kestrel/PropertyList.h>
#include <kestrel/Waveform.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

class Task;

/// An outline as `MovieAudioTaskExtractWave` hands it over: under "sample" a list with a dictionary
/// for each channel, whose "min", "max" and "rms" are data of 32-bit floats, lowest byte first;
/// beside it the numbers "sampleRate", "channels", "pointsPerSecond" and "samplesPerPoint". The
/// waveform's points are let go one channel after the other: both at once would take much memory.
KESTREL_API PropertyList samplePointsOf(Waveform waveform);

/// Runs the program "SamplePointsTask" from the folder of the running program to compute the
/// outline of a file's sound, and reads its result.
///
/// An extraction blocks its thread; meanwhile `cancel`, `progress` and `isFinished` may be called
/// from others. Progress is passed through the pasteboard "SamplePointsTask": all objects and
/// processes of a user share this one number.
class KESTREL_API MovieAudioTaskExtractWave {
 public:
  MovieAudioTaskExtractWave();
  ~MovieAudioTaskExtractWave();
  MovieAudioTaskExtractWave(const MovieAudioTaskExtractWave&) = delete;
  MovieAudioTaskExtractWave& operator=(const MovieAudioTaskExtractWave&) = delete;

  /// The sample points of a file; nullopt if the extractor fails or is cancelled. `medias` are the
  /// numbers of the sound tracks to use; nullopt: the extractor chooses. Cancels an extraction that
  /// is running. Throws `TaskError` if the extractor cannot be started.
  std::optional<PropertyList> samplePointsFromPath(
      const std::string& path, const std::optional<std::vector<uint32_t>>& medias = std::nullopt);

  /// Ends the running extractor, if any.
  void cancel();

  /// 0 to 1; 0 if unknown.
  double progress() const;
  void setProgress(double progress);

  /// True if no extractor is running.
  bool isFinished() const;

  /// The running extractor; null if there is none.
  std::shared_ptr<Task> task() const;
  void setTask(std::shared_ptr<Task> task);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
