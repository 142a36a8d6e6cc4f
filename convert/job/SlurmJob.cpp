#include <kestrel/Bundle.h>
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
#include "platform/process/ProgramOutput.h"

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

/// What one of Slurm's programs answers; throws a `Failure` for what it complains of.
std::string answerOf(const std::vector<std::string>& command) {
  const ProgramOutput output = runProgram(command);
  if (output.status == 0) return output.out;
  const std::string why = output.err.substr(0, output.err.find('\n'));
  throw Failure::output(
      command.front(), output.status == ProgramOutput::kNotThere
                           ? fmt::format("there is no Slurm here: '{}' is missing", command.front())
                           : fmt::format("'{}' failed: {}", command.front(), why));
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

std::string joined(const std::vector<std::string>& ids) {
  std::string text;
  for (const std::string& id : ids) text += (text.empty() ? "" : ",") + id;
  return text;
}

/// Whether any of what was submitted waits or runs. What Slurm has forgotten does not.
bool isQueued(const std::vector<std::string>& ids) {
  const ProgramOutput output =
      runProgram({"squeue", "--noheader", "--format=%T", "--jobs=" + joined(ids)});
  if (output.status == ProgramOutput::kNotThere) answerOf({"squeue", "--version"});
  if (output.status != 0) return output.err.find("Invalid job id") == std::string::npos;
  return !output.out.empty();
}

}  // namespace

void submitJob(const std::string& folder, const SlurmSettings& settings) {
  const JobStatus status = jobStatus(folder);
  const std::string path = fs::absolute(folder).string();
  const std::string program =
      quoted(settings.program.empty() ? Bundle::mainBundle().executablePath() : settings.program);
  std::vector<std::string> common{"sbatch",     "--parsable",         "--requeue",
                                  "--ntasks=1", "--open-mode=append", "--chdir=" + path};
  if (!settings.partition.empty()) common.push_back("--partition=" + settings.partition);
  if (!settings.time.empty()) common.push_back("--time=" + settings.time);
  const auto submit = [&](std::vector<std::string> more, const std::string& what) {
    std::vector<std::string> command = common;
    command.insert(command.end(), more.begin(), more.end());
    command.push_back("--wrap=exec " + program + " job " + what);
    return idIn(answerOf(command));
  };
  std::vector<std::string> ids;
  std::vector<std::string> last{"--job-name=kestrel-assemble",
                                "--output=" + path + "/assemble.log"};
  if (!status.parts.empty()) {
    const std::string limit =
        settings.arrayLimit ? fmt::format("%{}", *settings.arrayLimit) : std::string();
    ids.push_back(submit({fmt::format("--array=1-{}{}", status.parts.size(), limit),
                          "--job-name=kestrel-work", "--output=" + path + "/work-%a.log"},
                         "work " + quoted(path) + " --number \"$SLURM_ARRAY_TASK_ID\""));
    last.push_back("--dependency=afterany:" + ids.front());
  }
  ids.push_back(submit(last, "assemble " + quoted(path)));
  const JobFolder job(folder);
  job.replace(kNote, joined(ids) + "\n");
}

JobStatus followJob(const std::string& folder, const Events& events) {
  const std::vector<std::string> ids = idsOf(folder);
  if (ids.empty())
    throw Failure::settings(fmt::format("'{}' was not submitted to Slurm", folder), "job");
  while (true) {
    if (events.isInterrupted()) throw Failure::interrupted();
    // Asked before it is looked at what there is: what ends in between has left its result.
    const bool isOver = !isQueued(ids);
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
  answerOf(command);
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
    const auto ids = idsOf(job.folder);
    const bool isThere = jobStatus(job.folder).isAssembled || (!ids.empty() && isQueued(ids));
    if (!isThere) submitJob(job.folder, settings);
    followJob(job.folder, events);
    removeJob(job.folder);
    return {};
  } catch (const Failure& failure) {
    if (failure.kind() != Failure::Kind::kInterrupted) throw;
    return Report::interrupted();
  }
}

}  // namespace kestrel
