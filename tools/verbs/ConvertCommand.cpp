#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include <kestrel/Bundle.h>
#include <kestrel/convert/Batch.h>
#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/ConversionOptions.h>
#include <kestrel/convert/Job.h>
#include <kestrel/convert/Presets.h>
#include "tools/cli/CommonOptions.h"
#include "tools/cli/KnownOptions.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/terminal/Summary.h"
#include "tools/verbs/ConvertMany.h"
#include "tools/verbs/PlanText.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

/// What was typed beside the options of the conversion itself.
struct Typed {
  std::vector<std::string> files;
  std::string preset, savedPreset, into, extension, name = BatchSettings().name;
  std::optional<int> jobs;
  TypedProgress progress;
  bool force = false;
  bool quiet = false;
  bool dryRun = false;
  bool json = false;
  bool skipExisting = false;
  bool recursive = false;
  bool resume = false;
  bool slurm = false;
  TypedSlurm onSlurm;
};

/// Refuses options that shape an encoded stream where it is copied or left out: they would do
/// nothing. `groups`: the headings under which the help shows them.
void requireEncoding(const Verb& verb, const std::string& codecOption, const std::string& codec,
                     const std::vector<std::string>& groups) {
  if (codec != "copy" && codec != "none") return;
  for (const Option& option : verb.options()) {
    const bool isShaping = std::ranges::count(groups, option.group()) > 0 &&
                           option.name() != codecOption && option.name() != "--audio-tracks" &&
                           option.name() != "--mix";
    if (isShaping && option.isGiven())
      throw wrongUsage(
          fmt::format("{} does nothing beside {} {}", option.name(), codecOption, codec));
  }
}

std::string valueOf(const ConversionOptions& options, const std::string& name) {
  const auto option = std::ranges::find(options, name, &ConversionOption::name);
  return option == options.end() ? std::string() : option->value;
}

void requireEffect(const Verb& verb, const ConversionOptions& options) {
  requireEncoding(verb, "--video-codec", valueOf(options, "video-codec"), {"Picture", "Look"});
  requireEncoding(verb, "--audio-codec", valueOf(options, "audio-codec"), {"Sound"});
}

/// What was asked for: the preset with the options that were typed.
struct Request {
  Preset preset;
  ConversionOptions options;
};

Request requestOf(const Typed& typed, const Verb& verb) {
  Request request;
  request.options = givenOptions(verb, knownConversionOptions());
  requireEffect(verb, request.options);
  if (!typed.preset.empty()) request.preset = readPreset(typed.preset);
  return request;
}

/// Keeps what was typed, on top of the preset, as another preset.
int save(const Typed& typed, const Request& request) {
  Preset preset{.name = typed.savedPreset,
                .extension = request.preset.extension,
                .options = withDefaults(request.options, request.preset.options)};
  if (!typed.extension.empty()) preset.extension = typed.extension;
  say(fmt::format("saved '{}'", savePreset(preset, typed.force)));
  return kDone;
}

ProgressDisplay::Style styleOf(const Typed& typed) {
  const auto style = typed.progress.style();
  const bool isBar = style == ProgressDisplay::Style::kBar;
  return typed.quiet && isBar ? ProgressDisplay::Style::kNone : style;
}

/// Prints what would be done with each file. Of many, one for which there is no plan leaves the
/// others alone.
int showPlans(const Typed& typed, const std::vector<ConversionSettings>& all) {
  auto documents = nlohmann::ordered_json::array();
  std::string text;
  int status = kDone;
  for (const ConversionSettings& settings : all) {
    try {
      Conversion conversion(settings);
      const ConversionPlan& plan = conversion.plan({.interrupt = interrupted});
      if (typed.json)
        documents.push_back(planDocument(settings, plan));
      else
        text += planText(settings, plan);
    } catch (const Failure& failure) {
      const ExitStatus failed = statusOf(failure);
      if (typed.into.empty() || failed == kInterrupted) throw;
      say(sentenceOf(failure));
      documents.push_back(
          {{"input", settings.input}, {"output", settings.output}, {"error", sentenceOf(failure)}});
      if (status != kFailed) status = failed;
    }
  }
  if (typed.json)
    writeDocument(typed.into.empty() ? documents.front() : documents);
  else
    writeStandardOutput(text);
  return status;
}

/// The form with --into.
int runMany(const Typed& typed, const Preset& preset, const ConversionSettings& conversion) {
  BatchSettings settings{.inputs = typed.files,
                         .recursive = typed.recursive,
                         .folder = typed.into,
                         .extension = typed.extension.empty() ? preset.extension : typed.extension,
                         .name = typed.name,
                         .skipsExisting = typed.skipExisting,
                         .jobs = typed.jobs.value_or(1),
                         .conversion = conversion};
  if (typed.files.empty()) throw wrongUsage("input is required");
  if (conversion.targetQuality && !conversion.targetQuality->report.empty())
    throw wrongUsage("--sample-report is of one file");
  settings.conversion.replaces |= typed.dryRun;  // nothing will be
  const Batch batch(settings, interrupted);
  if (!typed.dryRun)
    return convertMany(batch,
                       {.progress = styleOf(typed), .asJson = typed.json, .isQuiet = typed.quiet});
  std::vector<ConversionSettings> all;
  for (const BatchJob& job : batch.jobs()) {
    all.push_back(conversion);
    all.back().input = job.input;
    all.back().output = job.output;
  }
  return showPlans(typed, all);
}

/// What makes sense for one file alone, or for many.
void requireForm(const Typed& typed, const Verb& verb) {
  if (!typed.into.empty() && (typed.resume || typed.slurm))
    throw wrongUsage(fmt::format("{} is of one file", typed.resume ? "--resume" : "--slurm"));
  for (const char* option : {"--partition", "--array-limit", "--time"})
    if (verb.isGiven(option) && !typed.slurm)
      throw wrongUsage(fmt::format("{} needs --slurm", option));
  if (!typed.into.empty()) return;
  for (const char* option : {"--ext", "--name", "--skip-existing", "--recursive"})
    if (verb.isGiven(option)) throw wrongUsage(fmt::format("{} needs --into DIR", option));
  if (typed.jobs && !typed.resume) throw wrongUsage("--jobs needs --into DIR or --resume");
  if (typed.json && !typed.dryRun) throw wrongUsage("--json needs --dry-run or --into DIR");
  if (typed.files.empty()) throw wrongUsage("input is required");
  if (typed.files.size() == 1) throw wrongUsage("output is required");
  if (typed.files.size() > 2)
    throw wrongUsage(
        fmt::format("'{}' is one file too many: several inputs need --into DIR", typed.files[2]));
}

int runInParts(const Typed& typed, const Request& request, const ConversionSettings& settings) {
  ProgressDisplay progress(styleOf(typed));
  Events events = progress.events();
  if (!typed.quiet) events.note = say;
  const JobSettings job{.input = settings.input,
                        .output = settings.output,
                        .replaces = settings.replaces,
                        .options = withDefaults(request.options, request.preset.options)};
  const LocalWorkers workers{.count = typed.jobs.value_or(0),
                             .program = Bundle::mainBundle().executablePath()};
  Report report = typed.slurm ? convertOnSlurm(job, typed.onSlurm.settings(), events)
                              : convertResumably({.job = job, .workers = workers}, events);
  if (typed.quiet) report.leftOut.clear();
  return finish(progress, report);
}

int runOne(const Typed& typed, const Request& request, ConversionSettings settings) {
  if (typed.dryRun) return showPlans(typed, {settings});
  if (typed.resume || typed.slurm) return runInParts(typed, request, settings);
  ProgressDisplay progress(styleOf(typed));
  Events events = progress.events();
  if (!typed.quiet) events.note = say;
  Effort effort;
  Report report = convertMeasured(settings, effort, events);
  if (typed.quiet) {
    report.leftOut.clear();
    report.quality.reset();
  }
  const int status = finish(progress, report);
  const bool isShown = !typed.quiet && status != kInterrupted &&
                       shownStyle(styleOf(typed)) == ProgressDisplay::Style::kBar;
  if (isShown) say(fmt::format("'{}': {}", settings.output, effortText(effort)));
  return status;
}

/// What stands for standard input and standard output.
constexpr const char* kStandard = "-";

ConversionSettings onStandardOutput(ConversionSettings settings, const Preset& preset) {
  settings.output = "pipe:1";
  if (settings.format.empty()) settings.format = preset.extension;
  if (settings.format.empty())
    throw wrongUsage("standard output has no extension: --format names the container");
  return settings;
}

int run(const Typed& typed, const Verb& verb) {
  const Request request = requestOf(typed, verb);
  ConversionSettings settings = settingsWith(request.preset, request.options);
  requireSubtitles(verb);
  settings.replaces = typed.force;
  settings.suitsAnyInput |= !typed.into.empty();
  if (!typed.savedPreset.empty()) {
    save(typed, request);
    if (typed.files.empty()) return kDone;
  }
  requireForm(typed, verb);
  if (!typed.into.empty()) return runMany(typed, request.preset, settings);
  settings.input = typed.files[0] == kStandard ? "/dev/stdin" : typed.files[0];
  settings.output = targetWith(typed.files[1], request.preset);
  if (typed.files[1] == kStandard) settings = onStandardOutput(settings, request.preset);
  return runOne(typed, request, settings);
}

}  // namespace

void addConvertVerb(CommandLine& line) {
  Verb verb = line.addVerb("convert", "Convert a movie or sound file into another");
  verb.footer(
      "The container follows the target's extension. Pictures are encoded, sound is\n"
      "copied where its codec is usual in the container: H.264 and AAC where that is mp4.\n\n"
      "Example:\n"
      "  kestrel demo example.mp4 && kestrel convert example.mp4 small.mp4 --size 640x-");
  const auto typed = std::make_shared<Typed>();
  verb.option("files", typed->files, "the file or disc to read and the file to write; or inputs")
      .type("INPUT OUTPUT | INPUT… --into DIR");
  verb.option("--preset", typed->preset,
              "a preset (see 'kestrel presets') or its file; options that are given win")
      .type("NAME|FILE")
      .asks("presets");
  verb.option("--save-preset", typed->savedPreset, "keep these options as a preset of your own")
      .type("NAME");
  addOptions(verb, knownConversionOptions(),
             {"Picture", "Look", "Sound", "Other streams", "Span and file"});
  verb.flag("--force", typed->force, "replace an existing target");
  verb.flag("--resume", typed->resume,
            "convert in parts beside the target, which another call takes up again");
  verb.flag("--slurm", typed->slurm, "have Slurm's nodes convert it in parts, and wait for them");
  addSlurmOptions(verb, typed->onSlurm, "with --slurm: ");
  verb.flag("--dry-run", typed->dryRun, "print what would become of each stream, write nothing");
  verb.flag("--json", typed->json, "print plans, or what became of many files, as one document");
  addProgressOption(verb, typed->progress);
  verb.flag("--quiet", typed->quiet, "say nothing but what is wrong");
  verb.group("Many files");
  verb.option("--into", typed->into, "convert each input, and the movies of folders, into a folder")
      .type("DIR")
      .notEmpty();
  verb.option("--ext", typed->extension, "of the results (default: the preset's or each one's own)")
      .type("EXT")
      .notEmpty();
  verb.option("--name", typed->name,
              "what results are called, with {stem}, {ext} and {number} (default: {stem}.{ext})")
      .type("PATTERN");
  verb.flag("--recursive", typed->recursive, "of folders take those in them, too");
  verb.flag("--skip-existing", typed->skipExisting, "leave inputs alone whose result is there");
  verb.option("--jobs", typed->jobs,
              "how many run side by side (default: 1); with --resume parts, one per processor")
      .type("N")
      .within(1, 64);
  verb.runs([typed, verb] { return run(*typed, verb); });
}
