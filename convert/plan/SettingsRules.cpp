#include "convert/plan/SettingsRules.h"

#include <fmt/format.h>

#include <string>
#include <utility>
#include <vector>

#include "convert/settings/Require.h"

namespace kestrel {

namespace {

constexpr double kWorstQuality = 63;  // of all encoders that know a constant quality

/// Refuses what shapes streams that are encoded where they are not.
void requireSense(const ConversionSettings& s) {
  const auto isEncoded = [](const std::optional<StreamAction>& action) {
    return action.value_or(StreamAction::kEncode) == StreamAction::kEncode;
  };
  if (!isEncoded(s.video))
    requireNone({{"videoCodec", !s.videoCodec.empty()},
                 {"look", s.look != LookSettings{}},
                 {"deinterlacing", s.deinterlacing.has_value()},
                 {"width", s.width.has_value()},
                 {"height", s.height.has_value()},
                 {"fps", s.fps.has_value()},
                 {"aspect", s.aspect.has_value()},
                 {"videoBitrate", s.videoBitrate.has_value()},
                 {"crf", s.crf.has_value()},
                 {"encoderPreset", !s.encoderPreset.empty()},
                 {"videoOptions", !s.videoOptions.empty()}},
                "the pictures are copied or left out");
  if (!isEncoded(s.audio))
    requireNone({{"audioCodec", !s.audioCodec.empty()},
                 {"audioBitrate", s.audioBitrate.has_value()},
                 {"sampleRate", s.sampleRate.has_value()},
                 {"channelLayout", s.channelLayout.has_value()},
                 {"volume", s.volume != 1},
                 {"audioOptions", !s.audioOptions.empty()}},
                "the sound is copied or left out");
}

void requireSpan(const ConversionSettings& s) {
  if (s.chapters) {
    const std::string chapters = "the choice of chapters";
    if (s.start != 0) refuseBeside("start", chapters);
    if (s.end) refuseBeside("end", chapters);
    if (s.duration) refuseBeside("duration", chapters);
    if (s.chapters->first < 1 || s.chapters->last < s.chapters->first)
      refuse("chapters", fmt::format("'{}-{}' is not a chapter such as 3 or a range such as 2-5",
                                     s.chapters->first, s.chapters->last));
  }
  if (s.end && s.duration) refuseBeside("end", "the duration");
  if (s.start < 0) refuse("start", "the movie starts at 0");
  if (s.start > kLatestTime) refuse("start", "no movie is so long");
  if (s.end && *s.end <= s.start) refuse("start", "it must lie before the end");
  if (s.duration && *s.duration <= 0) refuse("duration", "there is nothing to convert in no time");
}

}  // namespace

void require(const ConversionSettings& s) {
  requireTitle(s.title);
  whereGiven("video", s.video, requireAction);
  whereGiven("audio", s.audio, requireAction);
  requireSense(s);
  require(s.look);
  whereGiven("deinterlacing", s.deinterlacing, requireDeinterlacing);
  whereGiven("width", s.width, requireSide);
  whereGiven("height", s.height, requireSide);
  whereGiven("fps", s.fps, requireRate);
  whereGiven("aspect", s.aspect, requireAspect);
  if (s.crf && s.videoBitrate) refuseBeside("crf", "a bit rate");
  whereGiven("videoBitrate", s.videoBitrate, requireBitRate);
  if (s.crf) requireNumber("crf", *s.crf, 0, kWorstQuality);
  requireChoice("audioTracks", s.audioTracks);
  whereGiven("audioBitrate", s.audioBitrate, requireBitRate);
  whereGiven("sampleRate", s.sampleRate, requireSampleRate);
  whereGiven("channelLayout", s.channelLayout, requireLayout);
  requireVolume("volume", s.volume);
  requireSpan(s);
}

}  // namespace kestrel
