#include <kestrel/convert/Job.h>

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "convert/conversion/DividedConversion.h"
#include "convert/job/JobFolder.h"
#include "convert/job/JobPlan.h"
#include "convert/job/JobStand.h"
#include "convert/job/PacketFile.h"
#include "convert/job/PartPackets.h"

namespace kestrel {

namespace {

namespace fs = std::filesystem;
using Kind = StreamInfo::Kind;
using Clock = std::chrono::steady_clock;

/// How long a worker waits that has nothing to do but to take over what others lose.
constexpr std::chrono::milliseconds kPause{200};

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// Keeps a claim alive while its part is made.
class Renewal {
 public:
  Renewal(const JobFolder& folder, std::string part, PartClaim claim, double lease)
      : thread_([&folder, part = std::move(part), claim = std::move(claim), lease,
                 this](const std::stop_token& stop) {
          std::unique_lock guard(lock_);
          const std::chrono::duration<double> pause(lease / 4);
          while (!changed_.wait_for(guard, stop, pause, [&] { return stop.stop_requested(); }))
            folder.renew(part, claim);
        }) {}

 private:
  std::mutex lock_;
  std::condition_variable_any changed_;
  std::jthread thread_;  // last: uses what is above
};

std::string nameOf(const JobWorker& worker) {
  if (!worker.name.empty()) return worker.name;
  std::string host(256, '\0');
  gethostname(host.data(), host.size() - 1);
  return fmt::format("{}:{}", host.c_str(), getpid());
}

JobPart standOf(const JobFolder& folder, const PlannedPart& part) {
  JobPart stand{.name = part.name, .start = part.start, .end = part.end};
  for (const PartProblem& problem : folder.problemsOf(part.name))
    stand.problems.push_back(problem.sentence);
  if (folder.isDone(part.name)) {
    stand.state = JobPart::State::kDone;
  } else if (folder.isPoison(part.name)) {
    stand.state = JobPart::State::kPoison;
  } else if (const auto claim = folder.claimOf(part.name)) {
    stand.state = JobPart::State::kClaimed;
    stand.worker = claim->worker;
  }
  return stand;
}

void makePart(const JobFolder& folder, const JobPlan& plan, const PlannedPart& part,
              const std::string& worker, const Events& events) {
  const auto begin = Clock::now();
  DividedConversion conversion(settingsOf(plan), plan.measured);
  requireSameEncoding(plan, conversion.plan(events));
  const std::string partial = folder.partialPath(part.name);
  PacketFileWriter file(partial);
  std::vector<const AVStream*> streams;
  int64_t packets = 0;
  RunDivision division{.start = plan.start, .stretch = part.stretch};
  division.begin = [&](const std::vector<RunDivision::Stream>& made) {
    nlohmann::json places;
    for (const RunDivision::Stream& each : made) {
      streams.push_back(each.stream);
      places.push_back(each.place);
    }
    file.begin({{"job", plan.id}, {"part", part.name}, {"places", places}}, streams);
  };
  division.take = [&](const AVPacket& packet, const AVStream& stream) {
    file.write(static_cast<size_t>(std::ranges::find(streams, &stream) - streams.begin()), packet);
    ++packets;
  };
  try {
    const auto kind = part.stretch ? ConversionRun::Part::kPictures : ConversionRun::Part::kSounds;
    const InputEnd end = conversion.writePart(kind, division, events);
    file.finish({{"packets", packets},
                 {"reached", end.reached},
                 {"refused", end.refused},
                 {"mended", end.mended},
                 {"incomplete", end.incomplete},
                 {"error", {end.error.code, end.error.message}},
                 {"worker", worker},
                 {"seconds", secondsSince(begin)}});
    folder.commit(partial, part.name);
  } catch (...) {
    std::error_code ignored;
    fs::remove(partial, ignored);
    if (folder.isDone(part.name)) return;  // somebody who took it over was faster
    throw;
  }
}

/// A host's events; tells whether the host has thrown, which is no fault of what is made.
class WatchedEvents {
 public:
  explicit WatchedEvents(const Events& host) : events_(host) {
    events_.progress = watched(host.progress);
    events_.note = watched(host.note);
    events_.table = watched(host.table);
  }

  const Events& events() const { return events_; }
  bool hasThrown() const { return hasThrown_; }

 private:
  template <typename Value>
  std::function<void(const Value&)> watched(const std::function<void(const Value&)>& call) {
    if (!call) return {};
    return [this, &call](const Value& value) {
      try {
        call(value);
      } catch (...) {
        hasThrown_ = true;
        throw;
      }
    };
  }

  Events events_;
  std::atomic<bool> hasThrown_ = false;
};

/// Makes a part here; answers why that has failed.
std::optional<PartProblem> makeHere(const JobFolder& folder, const JobPlan& plan,
                                    const PlannedPart& part, const std::string& worker,
                                    const Events& events) {
  const WatchedEvents watched(events);
  try {
    makePart(folder, plan, part, worker, watched.events());
    return std::nullopt;
  } catch (const Failure& failure) {
    if (failure.kind() == Failure::Kind::kInterrupted || watched.hasThrown()) throw;
    return PartProblem{failure.what()};
  } catch (const std::exception& failure) {
    if (watched.hasThrown()) throw;
    return PartProblem{failure.what()};
  }
}

/// Has a part made; answers why that has failed where that is not noted. What has neither come to
/// anything nor said why has failed, too: it would be tried for ever.
std::optional<PartProblem> attempt(const JobFolder& folder, const JobPlan& plan,
                                   const PlannedPart& part, const JobWorker& worker,
                                   const Events& events) {
  if (!worker.makePart) return makeHere(folder, plan, part, nameOf(worker), events);
  const size_t noted = folder.problemsOf(part.name).size();
  const auto failure = worker.makePart(part.name);
  if (events.isInterrupted() || folder.isDone(part.name)) return std::nullopt;
  if (failure) return PartProblem{failure->sentence, failure->wasKilled};
  if (folder.problemsOf(part.name).size() > noted) return std::nullopt;
  return PartProblem{"it was not made, and nothing says why"};
}

JobStatus statusOf(const JobFolder& folder, const JobPlan& plan) {
  JobStatus status{.input = plan.input, .output = plan.output};
  for (const PlannedPart& part : plan.parts) status.parts.push_back(standOf(folder, part));
  status.isAssembled = folder.isAssembled();
  return status;
}

/// Whether a part is not what was written for this job.
bool isDamaged(const std::string& path, const JobPlan& plan) {
  try {
    PacketFileReader reader(path);
    if (reader.about().value("job", "") != plan.id) return true;
    while (reader.next()) {
    }
    return false;
  } catch (const std::exception&) {
    return true;
  }
}

/// Moves away what is damaged; answers it in words, "" where nothing is.
std::string moveDamaged(const JobFolder& folder, const JobPlan& plan) {
  std::string names;
  for (const PlannedPart& part : plan.parts) {
    if (!folder.isDone(part.name) || !isDamaged(folder.partPath(part.name), plan)) continue;
    folder.moveAside(part.name);
    names += fmt::format("{}'{}'", names.empty() ? "" : ", ", part.name);
  }
  return names;
}

bool isOfPart(const Failure& failure, const JobFolder& folder, const JobPlan& plan) {
  return std::ranges::any_of(plan.parts, [&](const PlannedPart& part) {
    return failure.subject() == folder.partPath(part.name);
  });
}

Report putTogether(const JobFolder& folder, const JobPlan& plan, const Events& events) {
  DividedConversion conversion(settingsOf(plan), plan.measured);
  const ConversionPlan& conversionPlan = conversion.plan(events);
  requireSameEncoding(plan, conversionPlan);
  InputEnd faults;
  RunDivision division{.start = plan.start};
  division.isOpen = [&](const std::string& partial) { folder.noteTarget(partial); };
  division.isWhole = [&](const std::string& partial) { folder.noteWhole(partial); };
  std::vector<std::string> pictures;
  for (const PlannedPart& part : plan.parts) {
    const std::string path = folder.partPath(part.name);
    const PacketFileReader reader(path);
    if (reader.about().value("job", "") != plan.id)
      throw Failure::input(path, fmt::format("part '{}' is of another job", part.name));
    if (part.stretch) pictures.push_back(path);
  }
  division.made = [&](size_t place) -> std::unique_ptr<MadePackets> {
    if (conversionPlan.streams[place].kind == Kind::kVideo)
      return std::make_unique<PicturePackets>(pictures, faults);
    const std::string sound = folder.partPath(std::string(kSoundPart));
    const PacketFileReader reader(sound);
    const std::vector<size_t> places = reader.about().at("places");
    const auto found = std::ranges::find(places, place);
    if (found == places.end()) throw Failure::input(sound, "a track of sound is missing");
    return std::make_unique<SoundPackets>(sound, static_cast<size_t>(found - places.begin()),
                                          faults);
  };
  division.faults = [&] { return faults; };
  return conversion.assemble(division, events);
}

/// The same; parts that turn out to be damaged are moved away, which the failure tells.
Report putTogetherOrMoveAway(const JobFolder& folder, const JobPlan& plan, const Events& events) {
  const auto tell = [&](const std::string& why) {
    const std::string damaged = moveDamaged(folder, plan);
    if (damaged.empty()) return;
    throw Failure::input(plan.input,
                         fmt::format("damaged parts are to be made again: {} ({})", damaged, why));
  };
  try {
    return putTogether(folder, plan, events);
  } catch (const Failure& failure) {
    if (isOfPart(failure, folder, plan)) tell(failure.what());
    throw;
  } catch (const nlohmann::json::exception&) {
    tell("what they say of themselves cannot be read");
    throw;
  }
}

}  // namespace

JobStatus jobStatus(const std::string& path) {
  return statusOf(JobFolder(path), readJobPlan(path));
}

void makeJobPart(const std::string& path, const std::string& name, const std::string& worker,
                 const Events& events) {
  JobFolder folder(path);
  const JobPlan plan = readJobPlan(path);
  const PlannedPart* const part = plan.part(name);
  if (!part)
    throw Failure::settings(fmt::format("there is no part '{}' in '{}'", name, path), "part");
  if (folder.isDone(name)) return;
  const auto problem = makeHere(folder, plan, *part, nameOf({.name = worker}), events);
  if (problem && !folder.addProblem(name, *problem))
    throw Failure::input(plan.input, problem->sentence);
}

JobStatus workJob(const std::string& path, const JobWorker& worker, const Events& events) {
  if (!(worker.lease >= 1)) throw Failure::settings("lease: from 1 second", "lease");
  JobFolder folder(path);
  const JobPlan plan = readJobPlan(path);
  requireSame(plan);
  while (true) {
    bool isWaiting = false;
    bool hasMade = false;
    for (const PlannedPart& part : plan.parts) {
      if (worker.number && &part - plan.parts.data() + 1 != *worker.number) continue;
      if (events.isInterrupted()) throw Failure::interrupted();
      if (folder.isDone(part.name) || folder.isPoison(part.name)) continue;
      const auto claim = folder.claim(part.name, nameOf(worker), worker.lease);
      isWaiting = isWaiting || !claim;
      if (!claim) continue;
      const Renewal renewal(folder, part.name, *claim, worker.lease);
      folder.removePartials(part.name);
      try {
        if (!folder.isDone(part.name))
          if (const auto problem = attempt(folder, plan, part, worker, events))
            folder.addProblem(part.name, *problem);
      } catch (...) {
        folder.release(part.name, *claim);
        throw;
      }
      folder.release(part.name, *claim);
      hasMade = true;
    }
    if (hasMade) continue;  // what has failed is tried again
    if (!isWaiting) return statusOf(folder, plan);
    std::this_thread::sleep_for(kPause);
  }
}

Report assembleJob(const std::string& path, const Events& events) {
  const JobFolder folder(path);
  const JobPlan plan = readJobPlan(path);
  requireSame(plan);
  if (folder.isWhole(plan.output)) {
    folder.markAssembled();
    return {};
  }
  requireMade(jobStatus(path));
  folder.removeTargets();
  Report report = putTogetherOrMoveAway(folder, plan, events);
  if (report.outcome != Report::Outcome::kInterrupted) folder.markAssembled();
  return report;
}

void removeJob(const std::string& folder) { JobFolder(folder).remove(); }

Report convertResumably(const ResumableConversion& conversion, const Events& events) {
  JobSettings settings = conversion.job;
  if (settings.folder.empty()) settings.folder = jobFolderOf(settings.output);
  try {
    if (!isPlanned(settings)) {
      removeJob(settings.folder);
      planJob(settings, events);
    }
    if (JobFolder(settings.folder).isWhole(settings.output)) {
      removeJob(settings.folder);
      return {};
    }
    requireMade(workJobLocally(settings.folder, conversion.workers, events));
    Report report;
    try {
      report = assembleJob(settings.folder, events);
    } catch (const Failure& failure) {
      const bool isDamaged = failure.kind() != Failure::Kind::kInterrupted &&
                             !jobStatus(settings.folder).isWorkedOff();
      if (!isDamaged) throw;
      if (events.note) events.note(failure.what());
      requireMade(workJobLocally(settings.folder, conversion.workers, events));
      report = assembleJob(settings.folder, events);
    }
    if (report.outcome != Report::Outcome::kInterrupted) removeJob(settings.folder);
    return report;
  } catch (const Failure& failure) {
    if (failure.kind() != Failure::Kind::kInterrupted) throw;
    return Report::interrupted();
  }
}

std::string jobFolderOf(const std::string& output) {
  const fs::path target(output);
  return (target.parent_path() / fmt::format(".{}.partial-job", target.filename().string()))
      .string();
}

}  // namespace kestrel
