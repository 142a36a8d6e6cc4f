#pragma once

#include <kestrel/Export.h>
#include <kestrel/PropertyList.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

class Task;

/// Has the program "SamplePointsTask", which lies in the folder of the running one, draw the
/// outline of a file's sound, and reads back what it has written.
///
/// Extracting blocks its thread; `cancel`, `progress` and `isFinished` are for other threads
/// meanwhile. How far an extractor is goes through the pasteboard "SamplePointsTask": all objects
/// and processes of a user share that one number.
class KESTREL_API MovieAudioTaskExtractWave {
 public:
  MovieAudioTaskExtractWave();
  ~MovieAudioTaskExtractWave();
  MovieAudioTaskExtractWave(const MovieAudioTaskExtractWave&) = delete;
  MovieAudioTaskExtractWave& operator=(const MovieAudioTaskExtractWave&) = delete;

  /// The sample points of a file; none where the extractor fails or is cancelled. `medias` are the
  /// numbers of the sound tracks to count; absent, the extractor chooses. Throws `TaskError` when
  /// there is no extractor that could be started.
  std::optional<PropertyList> samplePointsFromPath(
      const std::string& path, const std::optional<std::vector<uint32_t>>& medias = std::nullopt);

  /// Ends the running extractor; nothing when none runs.
  void cancel();

  /// 0 to 1; 0 when nothing is known.
  double progress() const;
  void setProgress(double progress);

  /// No extractor is running.
  bool isFinished() const;

  /// The running extractor, null when none runs.
  std::shared_ptr<Task> task() const;
  void setTask(std::shared_ptr<Task> task);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
