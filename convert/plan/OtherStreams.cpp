#include "convert/plan/OtherStreams.h"

#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>

#include <kestrel/convert/Failure.h>
#include "convert/look/Overlay.h"
#include "convert/plan/Fragments.h"
#include "convert/plan/PlannedStreams.h"
#include "convert/probe/Codecs.h"
#include "convert/probe/Languages.h"
#include "convert/probe/StreamsLeftOut.h"
#include "support/Containers.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

using Kind = StreamInfo::Kind;

/// One input of many may well lack what is chosen.
void requireChosen(const ConversionSettings& settings, const MediaInfo& info) {
  if (!settings.keepsSubtitles || settings.suitsAnyInput) return;
  const TrackChoice& choice = settings.subtitleTracks;
  std::vector<const StreamInfo*> tracks;
  for (const StreamInfo& stream : info.streams)
    if (stream.kind == Kind::kSubtitle) tracks.push_back(&stream);
  const auto isIn = [&](const StreamInfo* track) {
    return isSameLanguage(track->language, choice.language);
  };
  if (choice.kind == TrackChoice::Kind::kLanguage && std::ranges::none_of(tracks, isIn))
    throw Failure::settings(fmt::format("there is no subtitle track in '{}'", choice.language),
                            "subtitleTracks");
  if (choice.kind != TrackChoice::Kind::kNumbers) return;
  for (const uint32_t number : choice.numbers)
    if (number >= tracks.size())
      throw Failure::settings(
          fmt::format("there is no subtitle track {}: the input has {}", number, tracks.size()),
          "subtitleTracks");
}

bool isChosen(const TrackChoice& choice, uint32_t number, const StreamInfo& stream) {
  switch (choice.kind) {
    case TrackChoice::Kind::kNumbers:
      return choice.numbers.contains(number);
    case TrackChoice::Kind::kLanguage:
      return isSameLanguage(stream.language, choice.language);
    default:
      return true;
  }
}

/// Streams on their way into a plan.
class Streams {
 public:
  explicit Streams(const ConversionSettings& settings) : settings_(settings) {}

  PlannedStream& add(const StreamInfo& stream, StreamAction action, std::string reason = {}) {
    streams_.push_back(plannedStream(stream, action, settings_.keepsMetadata, std::move(reason)));
    return streams_.back();
  }

  void leaveOut(const StreamInfo& stream, std::string reason) {
    add(stream, StreamAction::kNone, std::move(reason));
  }

  std::vector<PlannedStream> take() { return std::move(streams_); }

 private:
  const ConversionSettings& settings_;
  std::vector<PlannedStream> streams_;
};

}  // namespace

std::vector<PlannedStream> planSubtitles(const ConversionSettings& settings,
                                         const LMMediaSource& source, const MediaInfo& info,
                                         const AVOutputFormat& named,
                                         const AVOutputFormat& container, bool encodesPictures) {
  requireChosen(settings, info);
  const bool draws = encodesPictures && settings.look.subtitleTrack;
  const auto drawn = draws ? subtitleStreamOf(source, *settings.look.subtitleTrack) : std::nullopt;
  const AVOutputFormat& holder = isHls(named) ? outputFormatNamed("vtt") : container;
  const AVFormatContext& context = *source.formatContext();
  Streams streams(settings);
  uint32_t track = 0;
  for (const StreamInfo& stream : info.streams) {
    if (stream.kind != Kind::kSubtitle) continue;
    const uint32_t number = track++;
    if (drawn == stream.index) {
      streams.add(stream, StreamAction::kBurnIn);
      continue;
    }
    if (!settings.keepsSubtitles || !isChosen(settings.subtitleTracks, number, stream)) {
      streams.leaveOut(stream, "");
      continue;
    }
    const AVStream& own = *context.streams[stream.index];
    if (isKnownEmpty(own, context)) {
      streams.leaveOut(stream, "it is empty");
      continue;
    }
    const AVCodecID codec = own.codecpar->codec_id;
    const AVCodecDescriptor* known = avcodec_descriptor_get(codec);
    const bool isText = known && (known->props & AV_CODEC_PROP_TEXT_SUB);
    const AVCodecID form = isText ? textCodecOf(holder) : AV_CODEC_ID_NONE;
    if (holdsSubtitles(holder, codec, settings.output))
      streams.add(stream, StreamAction::kCopy);
    else if (form != AV_CODEC_ID_NONE && avcodec_find_decoder(codec) && avcodec_find_encoder(form))
      streams.add(stream, StreamAction::kEncode).subtitleCodec = form;
    else
      streams.leaveOut(stream, fmt::format("{} cannot hold {}", named.name, stream.codec));
  }
  return streams.take();
}

std::vector<PlannedStream> planAttachments(const ConversionSettings& settings,
                                           const LMMediaSource& source, const MediaInfo& info,
                                           const AVOutputFormat& named) {
  const AVFormatContext& context = *source.formatContext();
  Streams streams(settings);
  for (const StreamInfo& stream : info.streams) {
    const bool isAttachment = stream.kind == Kind::kAttachment;
    if (!stream.video.isCover && !isAttachment && stream.kind != Kind::kData) continue;
    if (isService(*context.streams[stream.index])) continue;
    const bool isHeld =
        isAttachment ? holdsAttachments(named)
                     : stream.video.isCover && holdsCovers(named) && !isFragmented(settings, named);
    if (!settings.keepsAttachments)
      streams.leaveOut(stream, "");
    else if (isHeld)
      streams.add(stream, StreamAction::kCopy);
    else
      streams.leaveOut(stream, stream.kind == Kind::kData
                                   ? "only pictures, sound and subtitles are taken along"
                                   : fmt::format("{} cannot hold it", named.name));
  }
  return streams.take();
}

}  // namespace kestrel
