#include "convert/run/LeftOut.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/MediaInfo.h>

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <string_view>

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

/// Whether a stream stays behind because of what was asked for, which is no surprise.
bool isUnwanted(const StreamInfo& stream, const ConversionSettings& settings,
                const ConversionPlan& plan) {
  if (stream.kind == Kind::kVideo) return settings.video == StreamAction::kNone;
  if (stream.kind == Kind::kAudio)
    return settings.audio == StreamAction::kNone ||
           settings.audioTracks.kind != TrackChoice::Kind::kUsual;
  return stream.kind == Kind::kSubtitle && plan.video == StreamAction::kEncode &&
         plan.look.subtitleTrack;
}

std::string whyLeftOut(const StreamInfo& stream, const ConversionPlan& plan,
                       const MediaInfo& info) {
  if (stream.video.isCover) return "covers are not taken along";
  switch (stream.kind) {
    case Kind::kVideo:
      return plan.video == StreamAction::kNone
                 ? fmt::format("{} has no place for pictures", plan.formatName)
                 : "one video track is taken";
    case Kind::kAudio:
      if (std::ranges::count(info.audioTracks, std::optional(stream.index)) == 0)
        return "it cannot be decoded";
      return plan.audio == StreamAction::kNone
                 ? fmt::format("{} has no place for sound", plan.formatName)
                 : "one sound track is taken unless others are named";
    case Kind::kSubtitle:
      return "subtitles are not taken along, they can be drawn into the pictures";
    case Kind::kAttachment:
      return "attachments are not taken along";
    default:
      return "only pictures and sound are taken along";
  }
}

}  // namespace

IndexSet streamsOf(const ConversionPlan& plan) {
  IndexSet streams;
  if (plan.video != StreamAction::kNone) streams.insert(*plan.videoIndex);
  if (plan.audio == StreamAction::kNone) return streams;
  for (const uint32_t track : plan.audioTracks)
    streams.insert(*std::next(plan.audioIndexes.begin(), track));
  return streams;
}

std::vector<std::string> leftOutBy(const ConversionSettings& settings, const ConversionPlan& plan,
                                   const LMMediaSource& input) {
  const AVFormatContext& context = *input.formatContext();
  const MediaInfo info = mediaInfoOf(input);
  const IndexSet taken = streamsOf(plan);
  std::vector<std::string> sentences;
  const auto tell = [&](const std::string& what) {
    if (!what.empty()) sentences.push_back(leftOutOf(settings.input, what));
  };
  for (const StreamInfo& stream : info.streams) {
    const bool isMissed = !taken.contains(stream.index) &&
                          !isService(*context.streams[stream.index]) &&
                          !isUnwanted(stream, settings, plan);
    if (isMissed) tell(fmt::format("{}: {}", nameOf(stream), whyLeftOut(stream, plan, info)));
  }
  if (plan.video == StreamAction::kCopy)
    tell(lostTurn(*context.streams[*plan.videoIndex],
                  *av_guess_format(plan.formatName.c_str(), nullptr, nullptr)));
  return sentences;
}

}  // namespace kestrel
