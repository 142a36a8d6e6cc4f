#include "convert/job/SlurmQueue.h"

#include <kestrel/convert/Failure.h>

#include <fmt/format.h>

#include "platform/process/ProgramOutput.h"

namespace kestrel {

namespace {

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

}  // namespace

std::string slurmAnswer(const std::vector<std::string>& command) {
  const ProgramOutput output = runProgram(command);
  if (output.status == 0) return output.out;
  throw Failure::output(
      command.front(),
      output.status == ProgramOutput::kNotThere
          ? fmt::format("there is no Slurm here: '{}' is missing", command.front())
          : fmt::format("'{}' failed: {}", command.front(), firstLine(output.err)));
}

std::string joinedIds(const std::vector<std::string>& ids) {
  std::string text;
  for (const std::string& id : ids) text += (text.empty() ? "" : ",") + id;
  return text;
}

bool SlurmQueue::isBusy() {
  const ProgramOutput output =
      runProgram({"squeue", "--noheader", "--format=%T", "--jobs=" + joinedIds(ids_)});
  if (output.status == ProgramOutput::kNotThere) slurmAnswer({"squeue", "--version"});
  const bool isForgotten = output.err.find("Invalid job id") != std::string::npos;
  if (output.status == 0 || isForgotten) {
    silentSince_.reset();
    return !isForgotten && !output.out.empty();
  }
  const auto now = std::chrono::steady_clock::now();
  if (!silentSince_) silentSince_ = now;
  if (now - *silentSince_ > patience_)
    throw Failure::output("squeue",
                          fmt::format("Slurm has not said for {} minutes how the job "
                                      "stands, which may go on: {}",
                                      patience_ / std::chrono::minutes(1), firstLine(output.err)));
  return true;
}

}  // namespace kestrel
