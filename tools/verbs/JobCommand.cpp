#include <kestrel/Bundle.h>
#include <kestrel/convert/ConversionOptions.h>
#include <kestrel/convert/Job.h>
#include <kestrel/convert/Text.h>
#include <sys/prctl.h>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "tools/cli/CommonOptions.h"
#include "tools/cli/KnownOptions.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

constexpr std::chrono::seconds kWatchPause{1};

struct Typed {
  std::string action;
  std::string subject;  // the input to plan, or the folder of the job
  std::string output, folder, worker, part;
  std::optional<double> stretch, lease;
  std::optional<int> jobs, threads, number;
  TypedSlurm slurm;
  TypedProgress progress;
  bool force = false;
  bool json = false;
  bool watch = false;
};

const char* nameOf(JobPart::State state) {
  switch (state) {
    case JobPart::State::kWaiting:
      return "waiting";
    case JobPart::State::kClaimed:
      return "claimed";
    case JobPart::State::kDone:
      return "done";
    case JobPart::State::kPoison:
      return "poison";
  }
  return "";
}

nlohmann::ordered_json documentOf(const JobStatus& status) {
  nlohmann::ordered_json document{
      {"input", status.input}, {"output", status.output}, {"assembled", status.isAssembled}};
  auto& parts = document["parts"] = nlohmann::ordered_json::array();
  for (const JobPart& part : status.parts)
    parts.push_back({{"name", part.name},
                     {"state", nameOf(part.state)},
                     {"start", part.start},
                     {"end", part.end},
                     {"worker", part.worker},
                     {"problems", part.problems}});
  return document;
}

std::string textOf(const JobStatus& status) {
  std::vector<std::vector<std::string>> rows;
  for (const JobPart& part : status.parts)
    rows.push_back({part.name, formatTime(part.start), formatTime(part.end), nameOf(part.state),
                    part.problems.empty() ? part.worker : part.problems.back()});
  const auto done = std::ranges::count(status.parts, JobPart::State::kDone, &JobPart::state);
  return tableText(rows) + fmt::format("{} of {} parts are done{}\n", done, status.parts.size(),
                                       status.isAssembled ? ", and put together" : "");
}

int plan(const Typed& typed, const Verb& verb) {
  if (typed.output.empty()) throw wrongUsage("--output is required");
  if (typed.folder.empty()) throw wrongUsage("--dir is required");
  JobSettings settings{.folder = typed.folder,
                       .input = typed.subject,
                       .output = typed.output,
                       .replaces = typed.force,
                       .options = givenOptions(verb, knownConversionOptions()),
                       .threads = typed.threads.value_or(1)};
  if (typed.stretch) settings.stretch = *typed.stretch;
  planJob(settings, {.interrupt = interrupted});
  writeStandardOutput(textOf(jobStatus(typed.folder)));
  return kDone;
}

int outcomeOf(const JobStatus& status) {
  for (const JobPart& part : status.poison())
    say(fmt::format("part {}, from {} to {}: {}", part.name, formatTime(part.start),
                    formatTime(part.end), part.problems.back()));
  return status.poison().empty() ? kDone : kFailed;
}

int work(const Typed& typed) {
  if (!typed.part.empty()) {
    // Whoever has claimed the part for this process keeps the claim alive: it must not outlast it.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    makeJobPart(typed.subject, typed.part, typed.worker, {.interrupt = interrupted});
    return kDone;
  }
  ProgressDisplay progress(typed.progress.style());
  if (typed.jobs)
    return outcomeOf(workJobLocally(
        typed.subject, {.count = *typed.jobs, .program = Bundle::mainBundle().executablePath()},
        progress.events()));
  JobWorker worker{.name = typed.worker, .number = typed.number};
  if (typed.lease) worker.lease = *typed.lease;
  return outcomeOf(workJob(typed.subject, worker, {.interrupt = interrupted}));
}

int show(const Typed& typed) {
  JobStatus status = jobStatus(typed.subject);
  while (typed.watch && !status.isWorkedOff() && !interrupted()) {
    writeStandardOutput(typed.json ? documentOf(status).dump() + "\n" : textOf(status));
    std::this_thread::sleep_for(kWatchPause);
    status = jobStatus(typed.subject);
  }
  if (typed.json)
    writeDocument(documentOf(status));
  else
    writeStandardOutput(textOf(status));
  return kDone;
}

int assemble(const Typed& typed) {
  ProgressDisplay progress(typed.progress.style());
  Events events = progress.events();
  events.note = say;
  return finish(progress, assembleJob(typed.subject, events));
}

int follow(const Typed& typed) {
  ProgressDisplay progress(typed.progress.style());
  followJob(typed.subject, progress.events());
  progress.finish();
  return kDone;
}

int run(const Typed& typed, const Verb& verb) {
  if (typed.action == "plan") return plan(typed, verb);
  if (!givenOptions(verb, knownConversionOptions()).empty())
    throw wrongUsage("the options of a conversion belong to 'job plan'");
  if (typed.action == "work") return work(typed);
  if (typed.action == "assemble") return assemble(typed);
  if (typed.action == "status") return show(typed);
  if (typed.action == "submit") submitJob(typed.subject, typed.slurm.settings());
  if (typed.action == "cancel") cancelJob(typed.subject);
  if (typed.action == "follow") return follow(typed);
  if (typed.action == "submit" || typed.action == "cancel") return kDone;
  throw wrongUsage(fmt::format(
      "'{}' is none of plan, work, assemble, status, submit, follow, cancel", typed.action));
}

}  // namespace

void addJobVerb(CommandLine& line) {
  Verb verb = line.addVerb("job", "Convert a movie in parts, by many workers and without loss");
  verb.footer(
      "A job is a folder, which several machines may see. Workers may be ended and begun at any\n"
      "time; 'assemble' puts together what they have made.\n\n"
      "Example:\n"
      "  kestrel demo film.mp4 && kestrel job plan film.mp4 --output small.mp4 --dir film.job\n"
      "  kestrel job work film.job && kestrel job assemble film.job");
  auto typed = std::make_shared<Typed>();
  verb.option("action", typed->action, "what to do")
      .required()
      .type("plan|work|assemble|status|submit|follow|cancel")
      .words({"plan", "work", "assemble", "status", "submit", "follow", "cancel"});
  verb.option("subject", typed->subject, "the file to convert or, but for 'plan', the job")
      .required()
      .type("INPUT|JOB");
  verb.option("--output,-o", typed->output, "plan: the file to write").type("FILE");
  verb.option("--dir", typed->folder, "plan: the folder of the job, which is made").type("DIR");
  verb.option("--stretch", typed->stretch, "plan: seconds of pictures in a part (default: 20)")
      .type("SECONDS");
  verb.option("--threads", typed->threads, "plan: threads of an encoder of pictures (default: 1)")
      .type("N")
      .within(1, 64);
  verb.flag("--force", typed->force, "plan: an existing target will be replaced");
  verb.option("--worker", typed->worker, "work: a name to be told apart by").type("NAME");
  verb.option("--jobs", typed->jobs, "work: make so many parts side by side, each in a process")
      .type("N")
      .within(1, 64);
  verb.option("--part", typed->part, "work: make this part alone, which was claimed before")
      .type("NAME");
  verb.option("--number", typed->number, "work: make this part alone, by its place in the plan")
      .type("N")
      .within(1, 1000000);
  verb.option("--lease", typed->lease,
              "work: seconds for which a worker that is not heard of keeps its part (default: 60)")
      .type("SECONDS");
  verb.flag("--json", typed->json, "status: print one JSON document");
  verb.flag("--watch", typed->watch, "status: go on until all parts are made");
  addSlurmOptions(verb, typed->slurm, "submit: ");
  addProgressOption(verb, typed->progress);
  addOptions(verb, knownConversionOptions(),
             {"Picture", "Look", "Sound", "Other streams", "Span and file"});
  verb.runs([typed, verb] { return run(*typed, verb); });
}
