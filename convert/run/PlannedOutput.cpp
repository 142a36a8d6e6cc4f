#include "convert/run/PlannedOutput.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include <kestrel/convert/Failure.h>

namespace kestrel {

void setUpOutput(LMFFMovieFileOutput& output, const ConversionPlan& plan, const std::string& path,
                 const Interrupt& interrupt) {
  output.setPath(path);
  output.setFormatName(plan.formatName);
  output.setMovieFormat(plan.format);
  output.setOutputColor(plan.color);
  output.setVideoOptions(plan.videoOptions);
  output.setAudioOptions(plan.audioOptions);
  output.setMuxerOptions(plan.muxerOptions);
  output.setInterrupt(interrupt);
}

void requireOutput(const LMFFMovieFileOutput& output, const std::string& target) {
  if (const kestrel::Error error = output.lastError())
    throw output.interrupt() && output.interrupt()()
        ? Failure::interrupted()
        : Failure::output(target, fmt::format("cannot write '{}': {}", target, error.message));
}

std::map<std::string, std::string> lastingTags(const Tags& tags) {
  // What the old container says of itself is not true of the new one.
  static const std::vector<std::string> kOfContainer{"major_brand", "minor_version",
                                                     "compatible_brands", "encoder"};
  std::map<std::string, std::string> lasting;
  for (const auto& [name, value] : tags)
    if (!std::ranges::count(kOfContainer, name)) lasting[name] = value;
  return lasting;
}

std::vector<LMFFMovieFileOutput::Chapter> chaptersOf(const MediaInfo& input, int64_t start,
                                                     int64_t end) {
  std::vector<LMFFMovieFileOutput::Chapter> chapters;
  const int64_t begin = input.startTime.value_or(0);
  for (const ChapterInfo& chapter : input.chapters) {
    if (!chapter.start || !chapter.end) continue;
    const int64_t first = std::max(*chapter.start - begin, start);
    const int64_t last = std::min(*chapter.end - begin, end);
    if (last > first) chapters.push_back({first - start, last - start, lastingTags(chapter.tags)});
  }
  return chapters;
}

std::map<std::string, std::string> languageTag(const StreamInfo& stream) {
  if (stream.language.empty()) return {};
  return {{"language", stream.language}};
}

}  // namespace kestrel
