#pragma once

#include <kestrel/Export.h>
#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Report.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// Many files, each to be converted into a folder.
struct BatchSettings {
  /// Files, discs (folders and images), and folders, of which every movie and sound file is taken.
  std::vector<std::string> inputs = {};
  bool recursive = false;   ///< folders within folders, too; results keep their place in `folder`
  std::string folder = {};  ///< where the results go; it is made where it is missing
  std::string extension = {};  ///< of the results, "mkv"; "": each one's own
  /// What results are called: "{stem}" is the input's name without extension, "{ext}" the
  /// extension, "{number}" the job's, from 1.
  std::string name = "{stem}.{ext}";
  bool skipsExisting = false;  ///< an input whose result is there already is left alone
  int jobs = 1;                ///< how many run side by side, 1 to 64
  /// How each is converted; its `input` and `output` are ignored.
  ConversionSettings conversion = {};
};

/// One of many conversions.
struct BatchJob {
  std::string input = {};
  std::string output = {};

  bool operator==(const BatchJob&) const = default;
};

/// What a conversion took and gave.
struct Effort {
  double elapsed = 0;    ///< seconds that it ran for
  double length = 0;     ///< seconds of the result
  int64_t pictures = 0;  ///< of the result
  std::optional<int64_t> bytesRead =
      {};  ///< the input's size, of a file of which no span was chosen
  std::optional<int64_t> bytesWritten = {};  ///< the result's, likewise
  std::string kept = {};  ///< the result's streams: "1 video track, 2 sound tracks"
};

/// What became of a job.
struct BatchResult {
  enum class Outcome {
    kDone,
    kDoneInPart,   ///< see the report
    kSkipped,      ///< the result was there already
    kFailed,       ///< see the failure
    kInterrupted,  ///< it was ended, or not begun any more; there is no result
  };

  BatchJob job = {};
  Outcome outcome = Outcome::kInterrupted;
  Report report = {};
  std::optional<Failure> failure = {};
  Effort effort = {};
};

/// What a host wants to be told and asked while a batch runs; each member may be empty. Jobs are
/// numbered from 0, in their order. But for `interrupt`, no two are called at the same time. What
/// they throw ends the batch and reaches the caller of `run`.
struct BatchEvents {
  Interrupt interrupt = {};
  std::function<void(size_t job)> started = {};
  std::function<void(size_t job, const Progress& progress)> progress = {};
  std::function<void(size_t job, const std::string& sentence)> note = {};
  std::function<void(size_t job, const BatchResult& result)> ended = {};
};

/// Converts many files.
///
///     Batch batch({.inputs = {"holidays"}, .folder = "small", .extension = "mp4"});
///     for (const BatchResult& result : batch.run())
///       if (result.failure) std::cerr << result.failure->what() << '\n';
///
/// A job that fails leaves the others alone. No result is ever half written: an interrupt ends the
/// jobs that run, and no other is begun. Use an object from one thread at a time.
class KESTREL_API Batch {
 public:
  /// Finds the files and names the results; nothing is written. A file of a folder whose name does
  /// not tell what it is is opened to see whether it is a movie or sound; `interrupt` is polled
  /// meanwhile. One that is named like a movie and cannot be read is a job that fails. Throws a
  /// `Failure`: of the settings for those that contradict each other, where two inputs would make
  /// the same result and where there is nothing to convert; of the output where a result would
  /// replace an input; of the kind `kExists` where a result is there already and is neither to be
  /// replaced nor skipped.
  explicit Batch(BatchSettings settings, const Interrupt& interrupt = {});

  const std::vector<BatchJob>& jobs() const { return jobs_; }

  /// Converts them and answers what became of each, in the order of the jobs.
  std::vector<BatchResult> run(const BatchEvents& events = {}) const;

 private:
  BatchSettings settings_;
  std::vector<BatchJob> jobs_;
};

/// Runs one conversion and tells what it took. The failures are those of `Conversion`.
KESTREL_API Report convertMeasured(const ConversionSettings& settings, Effort& effort,
                                   const Events& events = {});

}  // namespace kestrel
