#pragma once

#include <kestrel/Export.h>
#include <kestrel/convert/ConversionOptions.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// Conversions that cannot be lost and can be divided.
///
/// A job is a folder. Its plan, one JSON document, says which input is meant, what it is converted
/// with, and into which parts the work is divided: stretches of pictures, each with the exact times
/// at which it begins and ends, and the sound as a whole. Any number of workers, on as many
/// machines as see the folder, make parts; nobody has to coordinate them. Whoever puts the parts
/// together gets the file that the undivided conversion would have written: every picture once and
/// at its time, sound and all other streams whole.
///
///     planJob({.folder = "job", .input = "film.mkv", .output = "film.mp4"});
///     workJob("job");  // here and elsewhere
///     assembleJob("job");
///
/// All of this may be ended at any moment by anything. A part appears when it is whole and on the
/// disk; what was half done is done again, once.

/// What a job is to do.
struct JobSettings {
  std::string folder = {};  ///< is made, or empty: one with anything else in it is refused
  std::string input = {};   ///< a file
  std::string output = {};  ///< a file; its folder is there when the parts are put together
  bool replaces = false;    ///< an existing target may be replaced
  ConversionOptions options = {};
  double stretch = 20;  ///< seconds that a stretch of pictures lasts, about; 1 to 3600
  /// Of an encoder of pictures, 1 to 64. What encoders make depends on it, and of some also on
  /// chance as soon as there are two: with one, whoever makes a part makes the same bytes, and
  /// parts side by side keep all processors busy. What the options say wins.
  int threads = 1;
};

/// One part of a job, and how it stands.
struct JobPart {
  enum class State {
    kWaiting,
    kClaimed,  ///< somebody is making it
    kDone,
    kPoison,  ///< it has failed too often: nobody tries again
  };

  std::string name = {};  ///< "0001" and so on of pictures, "sound"
  State state = State::kWaiting;
  double start = 0;  ///< seconds after the start of the input; of sound 0
  double end = 0;
  std::string worker = {};                 ///< that makes it, or has made it
  std::vector<std::string> problems = {};  ///< why it has failed, each time
};

/// How a job stands.
struct KESTREL_API JobStatus {
  std::string input = {};
  std::string output = {};
  std::vector<JobPart> parts = {};
  bool isAssembled = false;

  /// Those that have come to an end, well or not.
  bool isWorkedOff() const;

  /// The parts that nobody tries again.
  std::vector<JobPart> poison() const;
};

/// Why a part was not made.
struct JobFailure {
  std::string sentence = {};
  bool wasKilled = false;  ///< from outside, which need not be the part's fault
};

/// What makes parts.
struct JobWorker {
  std::string name = {};  ///< for people; "": machine and process
  /// Has a claimed part made elsewhere, such as by a process of its own that calls `makeJobPart`;
  /// answers why there was none where nobody could note that in the job. A part that is neither
  /// made nor has a reason noted counts as failed, too. Empty: it is made here.
  std::function<std::optional<JobFailure>(const std::string& part)> makePart = {};
  std::optional<int> number = {};  ///< it makes this part alone, from 1 in the plan's order
  /// How long a worker that is not heard of keeps its part; seconds, from 1. One of the same
  /// machine whose process is gone loses it at once.
  double lease = 60;
};

/// Plans a job. Throws a `Failure` for what cannot be planned, or not in parts: discs, input that
/// is no file, targets of several files, and pictures of a bit rate, a size or a quality that is
/// found by trying.
KESTREL_API void planJob(const JobSettings& settings, const Events& events = {});

/// Whether a folder holds the plan of such a job. Throws a `Failure` where it holds another one's,
/// which says in what they differ.
KESTREL_API bool isPlanned(const JobSettings& settings);

/// Makes parts of a job until none is left that is not made or poison. A part that has failed three
/// times, here or elsewhere, is poison. Answers how the job stands, with failures that could not be
/// noted in it: nobody else knows of them. Throws a `Failure` for an
/// input, a version or a setting that is not the planned one, and when interrupted.
KESTREL_API JobStatus workJob(const std::string& folder, const JobWorker& worker = {},
                              const Events& events = {});

/// Makes one part, which somebody has claimed for it, and notes in the job why that fails; throws
/// that as a `Failure` where it cannot be noted. What is there already is not made again.
KESTREL_API void makeJobPart(const std::string& folder, const std::string& part,
                             const std::string& worker = {}, const Events& events = {});

/// Workers on this machine.
struct LocalWorkers {
  int count = 0;  ///< how many parts are made side by side, 1 to 64; 0: one for each processor
  /// What makes a part, in a process of its own: a program that is called as `kestrel` is, with
  /// "job work FOLDER --part NAME". "": this process makes them itself, on threads, and what ends
  /// it ends all.
  std::string program = {};
};

/// Makes the parts of a job here, each in a process of its own or all in this one. Progress is told
/// of whole parts. As `workJob` otherwise.
KESTREL_API JobStatus workJobLocally(const std::string& folder, const LocalWorkers& workers = {},
                                     const Events& events = {});

/// Puts the parts of a job together. Throws a `Failure` where some are missing: it names the spans
/// of those that are poison. Parts that are damaged are moved away, which the failure tells: work
/// on the job makes them again.
KESTREL_API Report assembleJob(const std::string& folder, const Events& events = {});

/// A conversion as a job, from its plan to its target, by workers on this machine.
struct ResumableConversion {
  JobSettings job = {};  ///< its folder may be ""; `jobFolderOf` the output
  LocalWorkers workers = {};
};

/// Takes up what an earlier call has left, or begins anew, and removes the job once the target is
/// there. Interrupted, it answers so. Throws a `Failure` as the calls that it is made of.
KESTREL_API Report convertResumably(const ResumableConversion& conversion,
                                    const Events& events = {});

/// How a job goes to Slurm, which must see the job's folder and the input under the same names on
/// all nodes.
struct SlurmSettings {
  std::string partition = {};          ///< "": Slurm's default
  std::optional<int> arrayLimit = {};  ///< how many parts are made at once at most, from 1
  std::string time = {};               ///< the longest that a part may take, as Slurm writes it
  /// As of `LocalWorkers`, under that name on all nodes; not "".
  std::string program = {};
};

/// Submits a job: an array with an element for each part, and what puts the parts together once
/// these have ended. Needs nobody from then on. Throws a `Failure` where there is no Slurm and for
/// what it refuses.
KESTREL_API void submitJob(const std::string& folder, const SlurmSettings& settings = {});

/// Waits until a job that was submitted is put together. Throws a `Failure` where Slurm has ended
/// without that, and when interrupted: the job goes on.
KESTREL_API JobStatus followJob(const std::string& folder, const Events& events = {});

/// Has Slurm end what was submitted. What was made stays.
KESTREL_API void cancelJob(const std::string& folder);

/// A conversion as a job of Slurm's, from its plan to its target. A call for one that was submitted
/// before follows that; one that was cancelled, or has failed, is submitted again.
KESTREL_API Report convertOnSlurm(const JobSettings& job, const SlurmSettings& settings = {},
                                  const Events& events = {});

/// How a job stands. Throws a `Failure` for a folder without a job.
KESTREL_API JobStatus jobStatus(const std::string& folder);

/// Removes a job with all that was made for it. Leaves alone what is no job, also within its
/// folder.
KESTREL_API void removeJob(const std::string& folder);

/// Where `kestrel convert --resume` keeps the job of a target: beside it, under a name that says
/// that it is a partial.
KESTREL_API std::string jobFolderOf(const std::string& output);

}  // namespace kestrel
