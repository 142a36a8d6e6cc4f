#include "convert/run/LeftOut.h"

#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <set>
#include <string_view>

#include "convert/probe/Streams.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

/// Those of the streams left behind that are told of under one name.
struct Kind {
  const char* name;
  int count = 0;
};

/// The container indexes of what goes into the output.
std::set<uint32_t> takenBy(const ConversionPlan& plan) {
  std::set<uint32_t> taken;
  if (plan.video != StreamAction::kNone) taken.insert(*plan.videoIndex);
  if (plan.audio != StreamAction::kNone)
    for (const uint32_t track : plan.audioTracks)
      taken.insert(*std::next(plan.audioIndexes.begin(), track));
  return taken;
}

std::string listed(const std::vector<Kind>& kinds) {
  std::vector<std::string> words;
  for (const auto& [name, count] : kinds)
    if (count > 0) words.push_back(fmt::format("{} {}{}", count, name, count == 1 ? "" : "s"));
  return fmt::format("{}", fmt::join(words, ", "));
}

bool holdsTurns(std::string_view muxer) {
  static const std::set<std::string_view> kNames{"mp4", "mov", "ipod", "3gp", "3g2", "psp"};
  return kNames.contains(muxer);
}

}  // namespace

std::vector<std::string> leftOutBy(const ConversionSettings& settings, const ConversionPlan& plan,
                                   const LMMediaSource& input) {
  const AVFormatContext& context = *input.formatContext();
  const auto taken = takenBy(plan);
  Kind pictures{"video track"}, sounds{"sound track"}, subtitles{"subtitle track"};
  Kind covers{"cover"}, attachments{"attachment"}, others{"other track"};
  for (uint32_t i = 0; i < context.nb_streams; ++i) {
    const AVStream& stream = *context.streams[i];
    const AVMediaType type = stream.codecpar->codec_type;
    // The demuxer passes over data that it has made chapters of; a disc's has no sense elsewhere.
    const bool isService =
        type == AVMEDIA_TYPE_DATA &&
        (stream.discard == AVDISCARD_ALL || stream.codecpar->codec_id == AV_CODEC_ID_DVD_NAV);
    if (isService || taken.contains(i)) continue;
    const bool isCover = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
    Kind& kind = isCover                           ? covers
                 : type == AVMEDIA_TYPE_VIDEO      ? pictures
                 : type == AVMEDIA_TYPE_AUDIO      ? sounds
                 : type == AVMEDIA_TYPE_SUBTITLE   ? subtitles
                 : type == AVMEDIA_TYPE_ATTACHMENT ? attachments
                                                   : others;
    ++kind.count;
  }
  // What was asked for is no surprise.
  if (settings.video == StreamAction::kNone) pictures.count = covers.count = 0;
  const bool choosesTracks = settings.audioTracks.kind != TrackChoice::Kind::kUsual;
  if (settings.audio == StreamAction::kNone || choosesTracks) sounds.count = 0;
  const bool drawsTrack = plan.video == StreamAction::kEncode && plan.look.subtitleTrack;
  if (drawsTrack) subtitles.count = std::max(subtitles.count - 1, 0);

  std::vector<std::string> sentences;
  if (const std::string streams =
          listed({pictures, sounds, subtitles, covers, attachments, others});
      !streams.empty())
    sentences.push_back(fmt::format("left out of '{}': {}", settings.input, streams));
  if (plan.video == StreamAction::kCopy && !holdsTurns(plan.formatName) &&
      orientationOf(*context.streams[*plan.videoIndex]) != Orientation{})
    sentences.push_back(
        fmt::format("left out of '{}': the turn of its pictures, which {} cannot hold; encoding "
                    "sets them upright",
                    settings.input, plan.formatName));
  return sentences;
}

}  // namespace kestrel
