#include "convert/run/LeftOut.h"

#include <kestrel/LMMediaSource.h>

#include <iterator>

#include "convert/probe/StreamsLeftOut.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

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
  StreamsLeftOut streams = streamsLeftOut(context, streamsOf(plan));
  // What was asked for is no surprise.
  if (settings.video == StreamAction::kNone) streams.pictures = streams.covers = 0;
  const bool choosesTracks = settings.audioTracks.kind != TrackChoice::Kind::kUsual;
  if (settings.audio == StreamAction::kNone || choosesTracks) streams.sounds = 0;
  const bool drawsTrack = plan.video == StreamAction::kEncode && plan.look.subtitleTrack;
  if (drawsTrack && streams.subtitles > 0) --streams.subtitles;

  std::vector<std::string> sentences;
  const auto tell = [&](const std::string& what) {
    if (!what.empty()) sentences.push_back(leftOutOf(settings.input, what));
  };
  tell(streams.listed());
  if (plan.video == StreamAction::kCopy)
    tell(lostTurn(*context.streams[*plan.videoIndex],
                  *av_guess_format(plan.formatName.c_str(), nullptr, nullptr)));
  return sentences;
}

}  // namespace kestrel
