#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Job.h>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "convert/job/JobFolder.h"
#include "convert/job/JobStand.h"
#include "convert/job/SlurmQueue.h"

namespace kestrel {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds kPoll{1000};

/// What is in the job's folder of what was submitted: the ids of its array and of what puts its
/// parts together.
constexpr const char* kNote = "slurm";

/// A shell's word for any text.
std::string quoted(const std::string& text) {
  std::string word = "'";
  for (const char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return word + "'";
}

/// "4711", or "4711;cluster".
std::string idIn(const std::string& answer) {
  const std::string id = answer.substr(0, answer.find_first_of(";\n"));
  if (id.empty() || !std::ranges::all_of(id, [](char c) { return c >= '0' && c <= '9'; }))
    throw Failure::output("sbatch", "'sbatch' answered no number of a job");
  return id;
}

std::vector<std::string> idsOf(const std::string& folder) {
  std::ifstream note(fs::path(folder) / kNote);
  std::vector<std::string> ids;
  for (std::string id; note >> id;) ids.push_back(id);
  return ids;
}

}  // namespace

void submitJob(const std::string& folder, const SlurmSettings& settings) {
  if (settings.program.empty())
    throw Failure::settings("program: what makes a part on Slurm's nodes has no name", "program");
  const JobStatus status = jobStatus(folder);
  const JobFolder job(folder);
  if (!job.isWhole(status.output)) job.unmarkAssembled();  // the target was taken away since
  const std::string path = fs::absolute(folder).string();
  const std::string program = quoted(settings.program);
  std::vector<std::string> common{"sbatch",     "--parsable",         "--requeue",
                                  "--ntasks=1", "--open-mode=append", "--chdir=" + path};
  if (!settings.partition.empty()) common.push_back("--partition=" + settings.partition);
  if (!settings.time.empty()) common.push_back("--time=" + settings.time);
  std::vector<std::string> ids;
  const auto submit = [&](std::vector<std::string> more, const std::string& what) {
    std::vector<std::string> command = common;
    command.insert(command.end(), more.begin(), more.end());
    command.push_back("--wrap=exec " + program + " job " + what);
    ids.push_back(idIn(slurmAnswer(command)));
    job.replace(kNote, joinedIds(ids) + "\n");  // at once: it can be followed and cancelled
  };
  std::vector<std::string> last{"--job-name=kestrel-assemble",
                                "--output=" + path + "/assemble.log"};
  if (!status.parts.empty()) {
    const std::string limit =
        settings.arrayLimit ? fmt::format("%{}", *settings.arrayLimit) : std::string();
    submit({fmt::format("--array=1-{}{}", status.parts.size(), limit), "--job-name=kestrel-work",
            "--output=" + path + "/work-%a.log"},
           "work " + quoted(path) + " --number \"$SLURM_ARRAY_TASK_ID\"");
    last.push_back("--dependency=afterany:" + ids.front());
  }
  submit(last, "assemble " + quoted(path));
}

JobStatus followJob(const std::string& folder, const Events& events) {
  const std::vector<std::string> ids = idsOf(folder);
  if (ids.empty())
    throw Failure::settings(fmt::format("'{}' was not submitted to Slurm", folder), "job");
  SlurmQueue queue(ids);
  while (true) {
    if (events.isInterrupted()) throw Failure::interrupted();
    // Asked before it is looked at what there is: what ends in between has left its result.
    const bool isOver = !queue.isBusy();
    const JobStatus status = jobStatus(folder);
    if (events.progress) events.progress(progressOf(status));
    if (status.isAssembled) return status;
    if (isOver) {
      requireMade(status);
      std::ifstream log(fs::path(folder) / "assemble.log");
      std::string line;
      for (std::string next; std::getline(log, next);) line = next;
      throw Failure::output(status.output,
                            fmt::format("Slurm did not put '{}' together{}{}", status.output,
                                        line.empty() ? "" : ": ", line));
    }
    for (auto left = kPoll; left.count() > 0 && !events.isInterrupted(); left -= kPoll / 10)
      std::this_thread::sleep_for(kPoll / 10);
  }
}

void cancelJob(const std::string& folder) {
  std::vector<std::string> command{"scancel"};
  for (const std::string& id : idsOf(folder)) command.push_back(id);
  if (command.size() == 1)
    throw Failure::settings(fmt::format("'{}' was not submitted to Slurm", folder), "job");
  slurmAnswer(command);
}

Report convertOnSlurm(const JobSettings& wanted, const SlurmSettings& settings,
                      const Events& events) {
  JobSettings job = wanted;
  if (job.folder.empty()) job.folder = jobFolderOf(job.output);
  try {
    if (!isPlanned(job)) {
      removeJob(job.folder);
      planJob(job, events);
    }
    const JobFolder folder(job.folder);
    if (!folder.isAssembled() || !folder.isWhole(job.output)) {
      const auto ids = idsOf(job.folder);
      if (ids.empty() || !SlurmQueue(ids).isBusy()) submitJob(job.folder, settings);
      followJob(job.folder, events);
    }
    removeJob(job.folder);
    return {};
  } catch (const Failure& failure) {
    if (failure.kind() != Failure::Kind::kInterrupted) throw;
    return Report::interrupted();
  }
}

}  // namespace kestrel
