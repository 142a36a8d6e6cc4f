#include <kestrel/convert/Batch.h>

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include <kestrel/convert/Conversion.h>
#include "convert/batch/BatchInputs.h"
#include "convert/files/PlaylistTarget.h"
#include "convert/plan/SettingsRules.h"
#include "convert/probe/StreamsLeftOut.h"
#include "convert/settings/Require.h"

namespace kestrel {

namespace fs = std::filesystem;

namespace {

constexpr int kMostJobs = 64;
constexpr std::string_view kKeys[] = {"stem", "ext", "number"};

void require(const BatchSettings& settings) {
  if (settings.inputs.empty()) throw Failure::settings("there is nothing to convert", "inputs");
  if (settings.folder.empty()) refuse("folder", "its name is empty");
  requireNumber("jobs", settings.jobs, 1, kMostJobs);
  if (settings.extension.find('/') != std::string::npos)
    refuse("extension", fmt::format("'{}' is none", settings.extension));
  if (settings.name.empty() || settings.name.find('/') != std::string::npos)
    refuse("name", fmt::format("'{}' is no name of a file", settings.name));
  require(settings.conversion);
}

/// A name with its words in braces replaced.
std::string filledIn(const std::string& pattern,
                     const std::map<std::string_view, std::string>& by) {
  std::string name;
  std::string_view rest = pattern;
  while (true) {
    const size_t open = rest.find('{');
    name += rest.substr(0, open);
    if (open == std::string_view::npos) return name;
    const size_t close = rest.find('}', open);
    const auto word = by.find(rest.substr(open + 1, close - open - 1));
    if (close == std::string_view::npos || word == by.end())
      refuse("name",
             fmt::format("'{}' is of other words than {{{}}}", pattern, fmt::join(kKeys, "}, {")));
    name += word->second;
    rest.remove_prefix(close + 1);
  }
}

/// "movie" for "discs/movie/", whose last part is empty.
fs::path lastPart(const std::string& input) {
  const fs::path path = fs::path(input).lexically_normal();
  return path.has_filename() ? path.filename() : path.parent_path().filename();
}

std::string targetOf(const BatchSettings& settings, const BatchInput& input, size_t number) {
  const fs::path name = lastPart(input.path);
  const std::string own = name.extension().string();
  const std::string extension =
      settings.extension.empty() ? own.substr(std::min<size_t>(1, own.size())) : settings.extension;
  if (extension.empty())
    throw Failure::settings(
        fmt::format("'{}' has no extension that its result could have: name one", input.path),
        "extension");
  const std::string file = filledIn(
      settings.name,
      {{"stem", name.stem().string()}, {"ext", extension}, {"number", std::to_string(number)}});
  return (fs::path(settings.folder) / input.below / file).string();
}

/// Where a file lies or would lie, so that two names of one place are one.
std::string placeOf(const std::string& file) {
  std::error_code ignored;
  return fs::weakly_canonical(fs::absolute(file, ignored), ignored).string();
}

void requireTargets(const BatchSettings& settings, const std::vector<BatchJob>& jobs) {
  std::map<std::string, const BatchJob*> places;
  for (const BatchJob& job : jobs) {
    const auto [place, isNew] = places.emplace(placeOf(job.output), &job);
    if (!isNew)
      throw Failure::settings(fmt::format("'{}' and '{}' would both become '{}'",
                                          place->second->input, job.input, job.output),
                              "name");
  }
  std::set<std::string> inputs;
  for (const BatchJob& job : jobs) inputs.insert(placeOf(job.input));
  for (const BatchJob& job : jobs) {
    if (inputs.contains(placeOf(job.output)))
      throw Failure::output(job.output,
                            fmt::format("'{}' is an input itself; choose another folder, name or "
                                        "extension",
                                        job.output));
    std::error_code ignored;
    if (!settings.skipsExisting && !settings.conversion.replaces && fs::exists(job.output, ignored))
      throw Failure(Failure::Kind::kExists, "'" + job.output + "' exists", job.output);
  }
}

std::optional<int64_t> fileSize(const std::string& path) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return std::nullopt;
  const auto size = fs::file_size(path, error);
  return error ? std::nullopt : std::optional(static_cast<int64_t>(size));
}

/// The size of a result, with what lies in the folder beside a playlist.
std::optional<int64_t> sizeOfResult(const std::string& path) {
  auto size = fileSize(path);
  const fs::path folder = segmentFolderBeside(path);
  std::error_code failed;
  if (size && fs::path(path).extension() == ".m3u8" && fs::is_directory(folder, failed))
    for (const auto& entry : fs::recursive_directory_iterator(folder, failed))
      *size += fileSize(entry.path().string()).value_or(0);
  return size;
}

/// One run over the jobs: threads take one after another.
class BatchRun {
 public:
  BatchRun(const BatchSettings& settings, const std::vector<BatchJob>& jobs,
           const BatchEvents& events)
      : settings_(settings), jobs_(jobs), events_(events) {
    for (const BatchJob& job : jobs) results_.push_back({.job = job});
  }

  std::vector<BatchResult> run() {
    const size_t count = std::min(static_cast<size_t>(settings_.jobs), jobs_.size());
    std::vector<std::thread> threads;
    for (size_t i = 1; i < count; ++i) threads.emplace_back([this] { work(); });
    work();
    for (std::thread& thread : threads) thread.join();
    if (thrown_) std::rethrow_exception(thrown_);
    return std::move(results_);
  }

 private:
  bool isEnded() const { return isThrown_ || (events_.interrupt && events_.interrupt()); }

  void work() {
    while (!isEnded()) {
      const size_t job = next_++;
      if (job >= jobs_.size()) return;
      try {
        tell(events_.started, job);
        convert(job);
        tell(events_.ended, job, results_[job]);
      } catch (...) {
        const std::lock_guard guard(lock_);
        if (!thrown_) thrown_ = std::current_exception();
        isThrown_ = true;
      }
    }
  }

  template <typename Function, typename... Arguments>
  void tell(const Function& function, const Arguments&... arguments) {
    const std::lock_guard guard(lock_);
    if (function) function(arguments...);
  }

  void convert(size_t number) {
    using Outcome = BatchResult::Outcome;
    BatchResult& result = results_[number];
    const BatchJob& job = result.job;
    std::error_code ignored;
    if (settings_.skipsExisting && fs::exists(job.output, ignored)) {
      result.outcome = Outcome::kSkipped;
      return;
    }
    ConversionSettings settings = settings_.conversion;
    settings.input = job.input;
    settings.output = job.output;
    try {
      makeFolder(job.output);
      result.report = convertMeasured(settings, result.effort, eventsOf(number));
      result.outcome = result.report.outcome == Report::Outcome::kInterrupted
                           ? Outcome::kInterrupted
                       : result.report.isWhole() ? Outcome::kDone
                                                 : Outcome::kDoneInPart;
    } catch (const Failure& failure) {
      const bool isEnd = failure.kind() == Failure::Kind::kInterrupted;
      result.outcome = isEnd ? Outcome::kInterrupted : Outcome::kFailed;
      if (!isEnd) result.failure = failure;
    }
  }

  static void makeFolder(const std::string& target) {
    const fs::path folder = fs::path(target).parent_path();
    std::error_code error;
    if (!folder.empty()) fs::create_directories(folder, error);
    if (error)
      throw Failure::output(
          target, fmt::format("cannot make the folder '{}': {}", folder.string(), error.message()));
  }

  Events eventsOf(size_t job) {
    Events events{.interrupt = [this] { return isEnded(); }};
    if (events_.progress)
      events.progress = [this, job](const Progress& progress) {
        tell(events_.progress, job, progress);
      };
    if (events_.note)
      events.note = [this, job](const std::string& sentence) { tell(events_.note, job, sentence); };
    return events;
  }

  const BatchSettings& settings_;
  const std::vector<BatchJob>& jobs_;
  const BatchEvents& events_;
  std::vector<BatchResult> results_;
  std::atomic<size_t> next_{0};
  std::mutex lock_;  // of the host's functions, and what follows
  std::exception_ptr thrown_;
  std::atomic<bool> isThrown_{false};
};

}  // namespace

Batch::Batch(BatchSettings settings, const Interrupt& interrupt) : settings_(std::move(settings)) {
  require(settings_);
  const auto inputs =
      batchInputs(settings_.inputs, settings_.recursive, settings_.folder, interrupt);
  if (inputs.empty())
    throw Failure::settings("no movie or sound file is among the inputs", "inputs");
  for (const BatchInput& input : inputs)
    jobs_.push_back({input.path, targetOf(settings_, input, jobs_.size() + 1)});
  requireTargets(settings_, jobs_);
}

std::vector<BatchResult> Batch::run(const BatchEvents& events) const {
  return BatchRun(settings_, jobs_, events).run();
}

namespace {

std::string keptBy(const ConversionPlan& plan) {
  StreamsLeftOut kept;
  for (const PlannedStream& stream : plan.streams) {
    if (!stream.isKept()) continue;
    switch (stream.kind) {
      case StreamInfo::Kind::kVideo:
        ++(stream.isCover ? kept.covers : kept.pictures);
        break;
      case StreamInfo::Kind::kAudio:
        ++kept.sounds;
        break;
      case StreamInfo::Kind::kSubtitle:
        ++kept.subtitles;
        break;
      case StreamInfo::Kind::kAttachment:
        ++kept.attachments;
        break;
      case StreamInfo::Kind::kData:
        ++kept.others;
        break;
    }
  }
  return kept.listed();
}

}  // namespace

Report convertMeasured(const ConversionSettings& settings, Effort& effort, const Events& events) {
  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  Events measured = events;
  measured.progress = [&](const Progress& progress) {
    effort.length = std::max(effort.length, progress.time);
    effort.pictures = progress.pictures;
    if (events.progress) events.progress(progress);
  };
  effort = {.bytesRead = fileSize(settings.input)};
  Conversion conversion(settings);
  Report report = conversion.run(measured);
  effort.elapsed = std::chrono::duration<double>(Clock::now() - begin).count();
  if (report.outcome != Report::Outcome::kInterrupted) {
    effort.bytesWritten = sizeOfResult(settings.output);
    // Bytes of a part are no share of the whole.
    const bool isWhole =
        settings.start == Moment(0) && !settings.end && !settings.duration && !settings.chapters;
    if (!isWhole) effort.bytesRead.reset();
    effort.kept = keptBy(conversion.plan());
  }
  return report;
}

}  // namespace kestrel
