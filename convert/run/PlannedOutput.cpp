#include "convert/run/PlannedOutput.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include <kestrel/convert/Failure.h>
#include "convert/probe/Languages.h"
#include "convert/probe/Streams.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

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

std::map<std::string, std::string> tagsOf(const AVDictionary* dictionary) {
  // What the old container says of itself is not true of the new one.
  static const std::vector<std::string> kOfContainer{"major_brand", "minor_version",
                                                     "compatible_brands", "encoder"};
  std::map<std::string, std::string> tags;
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)))
    if (!std::ranges::count(kOfContainer, entry->key)) tags[entry->key] = entry->value;
  return tags;
}

std::vector<LMFFMovieFileOutput::Chapter> chaptersOf(const AVFormatContext& input, int64_t start,
                                                     int64_t end) {
  std::vector<LMFFMovieFileOutput::Chapter> chapters;
  const int64_t begin = startOf(input);
  for (unsigned i = 0; i < input.nb_chapters; ++i) {
    const AVChapter& chapter = *input.chapters[i];
    const auto toMovie = [&](int64_t time) {
      return av_rescale_q(time, chapter.time_base, AV_TIME_BASE_Q) - begin;
    };
    const int64_t first = std::max(toMovie(chapter.start), start);
    const int64_t last = std::min(toMovie(chapter.end), end);
    if (last > first) chapters.push_back({first - start, last - start, tagsOf(chapter.metadata)});
  }
  return chapters;
}

std::map<std::string, std::string> languageTag(const AVStream& stream) {
  const std::string code = languageOf(stream);
  return code.empty() ? std::map<std::string, std::string>{}
                      : std::map<std::string, std::string>{{"language", code}};
}

}  // namespace kestrel
