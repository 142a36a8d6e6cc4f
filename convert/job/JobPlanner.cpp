#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Job.h>
#include <kestrel/convert/MediaInfo.h>

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "convert/conversion/DividedConversion.h"
#include "convert/job/JobFolder.h"
#include "convert/job/JobPlan.h"
#include "convert/job/Stretches.h"
#include "convert/probe/Input.h"
#include "support/Pipes.h"

namespace kestrel {

namespace {

namespace fs = std::filesystem;
using Kind = StreamInfo::Kind;

[[noreturn]] void refuse(const std::string& what) {
  throw Failure::settings(fmt::format("{} cannot be converted in parts", what), "job");
}

/// What stands against a division.
void requireDivisible(const ConversionPlan& plan, const JobSettings& settings) {
  if (plan.segment) refuse("a presentation of several files");
  if (isPipe(settings.output)) refuse("what goes into a pipe");
  if (plan.targetQuality || plan.sizeLimit) refuse("pictures whose quality is found by trying");
  const PlannedStream* const pictures = plan.pictures();
  if (!pictures || pictures->action != StreamAction::kEncode) return;
  if (plan.passes == 2 || plan.format.video_bitrate > 0)
    refuse("pictures of a bit rate, which is kept over the whole,");
}

bool isEncoded(const PlannedStream& stream) {
  return stream.action == StreamAction::kEncode && !stream.isCover;
}

bool encodesSound(const ConversionPlan& plan) {
  return std::ranges::any_of(plan.streams, [](const PlannedStream& stream) {
    return stream.kind == Kind::kAudio && isEncoded(stream);
  });
}

/// How many of a value's characters name a file that is read; 0 of a value that names none. A file
/// may be followed by how it is laid on.
size_t fileLength(const OptionInfo& info, const std::string& value) {
  if (info.value == "FILE") return value.size();
  if (info.value.starts_with("FILE[:")) return std::min(value.find(':'), value.size());
  return 0;
}

/// Has options mean the same files wherever a worker runs; answers these.
std::vector<std::string> makeAbsolute(ConversionOptions& options) {
  const std::vector<OptionInfo> known = knownConversionOptions();
  std::vector<std::string> files;
  for (ConversionOption& option : options) {
    const auto info = std::ranges::find(known, option.name, &OptionInfo::name);
    const size_t length = info == known.end() ? 0 : fileLength(*info, option.value);
    const std::string path = option.value.substr(0, length);
    if (path.empty() || !fs::is_regular_file(path)) continue;
    files.push_back(fs::absolute(path).string());
    option.value = files.back() + option.value.substr(length);
  }
  return files;
}

/// What of a job its settings alone decide.
JobPlan begun(const JobSettings& settings) {
  if (settings.input.empty()) throw Failure::settings("input: the name is empty", "input");
  if (settings.output.empty()) throw Failure::settings("output: the name is empty", "output");
  if (!(settings.stretch >= 1 && settings.stretch <= 3600))
    throw Failure::settings("stretch: from 1 to 3600 seconds", "stretch");
  if (settings.threads < 1 || settings.threads > 64)
    throw Failure::settings("threads: from 1 to 64", "threads");
  requireFile(settings.input);
  if (!fs::is_regular_file(settings.input))
    refuse(fmt::format("'{}' is no file: it", settings.input));
  JobPlan plan{.input = fs::absolute(settings.input).string(),
               .output = fs::absolute(settings.output).string(),
               .replaces = settings.replaces,
               .options = settings.options,
               .stretch = settings.stretch,
               .threads = settings.threads,
               .versions = ownVersions()};
  plan.files[plan.input] = fingerprintOf(plan.input);
  for (const std::string& path : makeAbsolute(plan.options)) plan.files[path] = fingerprintOf(path);
  return plan;
}

/// The pictures on the movie's time line.
std::vector<TimedPicture> picturesOf(DividedConversion& conversion, const Interrupt& interrupt) {
  auto pictures = timedPictures(*conversion.reader(interrupt));
  const int64_t begin = conversion.info().startTime.value_or(0);
  for (TimedPicture& picture : pictures) picture.time -= begin;
  return pictures;
}

/// When parts begin and end, for people.
void tellSpans(JobPlan& plan, int64_t end) {
  for (PlannedPart& part : plan.parts) {
    const auto& stretch = part.stretch;
    part.start = static_cast<double>(stretch ? stretch->from : plan.start) / 1e6;
    part.end = static_cast<double>(stretch && stretch->until ? *stretch->until : end) / 1e6;
  }
}

}  // namespace

void planJob(const JobSettings& settings, const Events& events) {
  JobPlan job = begun(settings);
  JobFolder(settings.folder).requireOwn();  // before anything is measured
  if (!settings.replaces && fs::exists(settings.output))
    throw Failure(Failure::Kind::kExists, fmt::format("'{}' exists", settings.output),
                  settings.output);
  DividedConversion conversion(settingsOf(job));
  const ConversionPlan& plan = conversion.plan(events);
  requireDivisible(plan, settings);
  job.encoding = encodingOf(plan);
  job.measured = conversion.measured();
  job.start = plan.start;
  const PlannedStream* const stream = plan.pictures();
  if (stream && isEncoded(*stream)) {
    const auto pictures = picturesOf(conversion, events.interrupt);
    if (events.isInterrupted()) throw Failure::interrupted();
    job.start = startOf(plan, conversion.info(), pictures);
    for (const PictureStretch& stretch :
         planStretches({plan, job.start, pictures, static_cast<int64_t>(settings.stretch * 1e6)}))
      job.parts.push_back({.name = fmt::format("{:04}", job.parts.size() + 1), .stretch = stretch});
  }
  if (encodesSound(plan)) job.parts.insert(job.parts.begin(), {.name = std::string(kSoundPart)});
  const int64_t length = conversion.info().duration.value_or(0);
  tellSpans(job, std::min(plan.end.value_or(length), length));
  JobFolder(settings.folder).begin();
  writeJobPlan(settings.folder, job);
}

bool isPlanned(const JobSettings& settings) {
  if (!fs::exists(JobFolder(settings.folder).planPath())) return false;
  const JobPlan there = readJobPlan(settings.folder);
  const JobPlan wanted = begun(settings);
  const char* const differs = there.input != wanted.input         ? "input"
                              : there.output != wanted.output     ? "output"
                              : there.options != wanted.options   ? "options"
                              : there.files != wanted.files       ? "content of the input"
                              : there.versions != wanted.versions ? "version of this program"
                              : there.stretch != wanted.stretch || there.threads != wanted.threads
                                  ? "division"
                                  : nullptr;
  if (differs)
    throw Failure::settings(fmt::format("'{}' holds a job that was begun with another {}: go on "
                                        "with that one, or remove it",
                                        settings.folder, differs),
                            "job");
  return true;
}

}  // namespace kestrel
