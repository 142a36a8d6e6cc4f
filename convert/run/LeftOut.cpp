#include "convert/run/LeftOut.h"

#include <kestrel/convert/MediaInfo.h>

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "convert/probe/Codecs.h"
#include "convert/probe/StreamsLeftOut.h"
#include "support/Words.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

using Kind = StreamInfo::Kind;

std::string tagOf(const StreamInfo& stream, std::string_view name) {
  for (const auto& [key, value] : stream.tags)
    if (lowerCased(key) == name) return value;
  return {};
}

bool isFont(const StreamInfo& stream) {
  return stream.codec == "ttf" || stream.codec == "otf" ||
         tagOf(stream, "mimetype").find("font") != std::string::npos;
}

/// What people call such a stream.
std::string kindOf(const StreamInfo& stream) {
  if (stream.video.isCover) return "cover";
  switch (stream.kind) {
    case Kind::kVideo:
      return "pictures";
    case Kind::kAudio:
      return "sound";
    case Kind::kSubtitle:
      return "subtitles";
    case Kind::kAttachment:
      return isFont(stream) ? "font" : "attachment";
    default:
      return "data";
  }
}

/// "sound #2 (mp3, French)": by the number that a listing of the container gives it.
std::string nameOf(const StreamInfo& stream) {
  std::vector<std::string> facts{
      tagOf(stream, "filename"), stream.codec,
      stream.languageName.empty() ? stream.language : stream.languageName};
  std::erase(facts, "");
  const std::string name = fmt::format("{} #{}", kindOf(stream), stream.index);
  return facts.empty() ? name : fmt::format("{} ({})", name, fmt::join(facts, ", "));
}

}  // namespace

IndexSet streamsOf(const ConversionPlan& plan) {
  IndexSet streams;
  for (const Kind kind : {Kind::kVideo, Kind::kAudio})
    for (const PlannedStream* stream : plan.kept(kind))
      streams.insert(stream->sources.begin(), stream->sources.end());
  return streams;
}

std::vector<std::string> leftOutBy(const ConversionPlan& plan, const MediaInfo& info,
                                   const std::string& path, const AVFormatContext& input) {
  const AVOutputFormat& container = *av_guess_format(plan.formatName.c_str(), nullptr, nullptr);
  std::vector<std::string> sentences;
  const auto tell = [&](const std::string& what) {
    if (!what.empty()) sentences.push_back(leftOutOf(path, what));
  };
  for (const PlannedStream& stream : plan.streams) {
    if (stream.isKept())
      for (const std::string& loss : stream.losses)
        tell(fmt::format("{}: {}", nameOf(info.streams[stream.sources.front()]), loss));
    if (stream.isKept() || stream.reason.empty()) continue;
    for (const uint32_t index : stream.sources)
      tell(fmt::format("{}: {}", nameOf(info.streams[index]), stream.reason));
  }
  if (plan.keepsMetadata && !info.chapters.empty() && !holdsChapters(container))
    tell(fmt::format("{}: {} cannot hold them", counted(info.chapters.size(), "chapter"),
                     plan.formatName));
  const PlannedStream* const pictures = plan.pictures();
  if (pictures && pictures->action == StreamAction::kCopy)
    tell(lostTurn(*input.streams[pictures->sources.front()], container));
  return sentences;
}

}  // namespace kestrel
