#include "convert/run/LeftOut.h"

#include <kestrel/convert/MediaInfo.h>

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "convert/probe/Codecs.h"
#include "convert/probe/Labels.h"
#include "convert/probe/StreamsLeftOut.h"
#include "support/Containers.h"
#include "support/LastingTags.h"
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

/// "sound #2"
std::string numberOf(const StreamInfo& stream) {
  return fmt::format("{} #{}", kindOf(stream), stream.index);
}

/// "sound #2 (mp3, French)": by the number that a listing of the container gives it.
std::string nameOf(const StreamInfo& stream) {
  std::vector<std::string> facts{
      tagOf(stream, "filename"), stream.codec,
      stream.languageName.empty() ? stream.language : stream.languageName};
  std::erase(facts, "");
  const std::string name = numberOf(stream);
  return facts.empty() ? name : fmt::format("{} ({})", name, fmt::join(facts, ", "));
}

/// What is written on a stream that is kept and the container has no place for. That the first of a
/// kind is the default need not be written, and nobody chooses among pictures by flags.
void addLostLabels(std::vector<std::string>& lost, const PlannedStream& stream,
                   const ConversionPlan& plan, const StreamInfo& own,
                   const AVOutputFormat& container) {
  const auto tag = [&](const char* name) {
    const auto found = stream.tags.find(name);
    return found == stream.tags.end() ? std::string() : found->second;
  };
  const bool isChosen = stream.kind == Kind::kAudio || stream.kind == Kind::kSubtitle;
  if (!isChosen && (stream.kind != Kind::kVideo || stream.isCover)) return;
  // Transport streams have languages of what people choose.
  const bool hasLanguage = isChosen || !isTransportStream(container);
  if (const std::string code = tag("language");
      !code.empty() && (!hasLanguage || heldLanguage(container, code).empty()))
    lost.push_back(fmt::format("the language {} of {}", code, numberOf(own)));
  if (!tag("title").empty() && !holdsTitles(container))
    lost.push_back(fmt::format("the title of {}", numberOf(own)));
  for (const std::string& flag : stream.disposition) {
    if (!isChosen) break;
    const bool isSaid = flag == "default" && plan.kept(stream.kind).front() == &stream;
    if (!isSaid && !holdsFlag(container, flag))
      lost.push_back(fmt::format("the flag {} of {}", flag, numberOf(own)));
  }
}

/// "the language fre of sound #1, the tags artist, date: avi cannot hold them"; "" for nothing.
std::string lostLabels(const ConversionPlan& plan, const MediaInfo& info,
                       const AVOutputFormat& container) {
  std::vector<std::string> lost;
  for (const PlannedStream& stream : plan.streams)
    if (stream.isKept())
      addLostLabels(lost, stream, plan, info.streams[stream.sources.front()], container);
  std::vector<std::string> tags;
  if (plan.keepsMetadata)
    for (const auto& [name, value] : info.tags)
      if (const std::string known = commonTagName(name);
          !value.empty() && !holdsTag(container, known))
        tags.push_back(lowerCased(known));
  if (!tags.empty())
    lost.push_back(fmt::format("the tag{} {}", tags.size() == 1 ? "" : "s", fmt::join(tags, ", ")));
  if (lost.empty()) return {};
  const bool isOne = lost.size() == 1 && tags.size() < 2;
  return fmt::format("{}: {} cannot hold {}", fmt::join(lost, ", "), container.name,
                     isOne ? "it" : "them");
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
      for (const std::string& loss : stream.losses) {
        const std::string name = nameOf(info.streams[stream.sources.front()]);
        // A track of subtitles that turns out to have none is as good as left out.
        if (stream.kind == Kind::kSubtitle)
          tell(fmt::format("{}: {}", name, loss));
        else
          sentences.push_back(lostIn(path, name, loss));
      }
    if (stream.isKept() || stream.reason.empty()) continue;
    for (const uint32_t index : stream.sources)
      tell(fmt::format("{}: {}", nameOf(info.streams[index]), stream.reason));
  }
  const bool losesChapters = plan.segment || !holdsChapters(container);
  if (plan.keepsMetadata && !info.chapters.empty() && losesChapters)
    tell(fmt::format("{}: {} cannot hold them", counted(info.chapters.size(), "chapter"),
                     plan.segment ? "hls" : plan.formatName));
  tell(lostLabels(plan, info, container));
  const PlannedStream* const pictures = plan.pictures();
  if (pictures && pictures->action == StreamAction::kCopy)
    tell(lostTurn(*input.streams[pictures->sources.front()], container));
  return sentences;
}

}  // namespace kestrel
