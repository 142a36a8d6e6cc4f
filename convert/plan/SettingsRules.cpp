#include "convert/plan/SettingsRules.h"
#include "convert/look/LookTable.h"

#include <fmt/format.h>

#include <cmath>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "convert/probe/Codecs.h"
#include "convert/settings/Require.h"
#include "support/Pipes.h"

namespace kestrel {

namespace {

constexpr double kLongestGroup = 3600;  // seconds
constexpr double kShortestFragment = 0.1;
constexpr int kMostLines = 36861;      // whose frame of 16:9 is 65531 pixels wide
constexpr double kLargestFile = 1e15;  // bytes
constexpr int kFewestBits = 8;         // of a component
constexpr int kMostBits = 16;

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
  requireMoment("start", s.start);
  if (s.end && !s.end->share && !s.start.share) requireBefore(s.start.time, s.end->time);
  whereGiven("end", s.end, requireMoment);
  if (s.duration && s.duration->time <= 0 && s.duration->share.value_or(0) == 0)
    refuse("duration", "there is nothing to convert in no time");
  whereGiven("duration", s.duration, requireMoment);
}

/// One way of saying the size.
void requireSize(const ConversionSettings& s) {
  const bool hasSides = s.width || s.height;
  if (s.lines && hasSides) refuseBeside("lines", "a width or height");
  if (s.scale && (hasSides || s.lines)) refuseBeside("scale", "another size");
  if (s.lines) requireNumber("lines", *s.lines, 2, kMostLines);
  if (s.scale) requireNumber("scale", *s.scale, 0.001, 100);
  const bool hasSize = hasSides || s.lines || s.scale;
  if (!s.ladder.empty() && hasSize) refuseBeside("ladder", "a size");
  std::set<int> rungs;
  for (const int lines : s.ladder) {
    requireNumber("ladder", lines, 2, kMostLines);
    if (!rungs.insert(lines).second) refuse("ladder", fmt::format("{} is there twice", lines));
  }
  if (s.onlyShrinks && !hasSize) refuse("onlyShrinks", "it does nothing without a size");
}

/// How good the pictures are is said in one way.
void requireOneRate(const ConversionSettings& s) {
  if (s.crf && s.videoBitrate) refuseBeside("crf", "a bit rate");
  if (s.quality && (s.videoBitrate || s.crf))
    refuseBeside("quality", s.crf ? "a constant rate factor" : "a bit rate");
  if (s.sizeLimit && (s.videoBitrate || s.crf || s.quality))
    refuseBeside("sizeLimit", s.videoBitrate ? "a bit rate" : "a quality");
  const bool hasOther = s.videoBitrate || s.crf || s.quality || s.sizeLimit;
  if (s.targetQuality && hasOther) refuseBeside("targetQuality", "a quality, bit rate or size");
  if (s.quality) requireNumber("quality", *s.quality, 0, 100);
  whereGiven("videoBitrate", s.videoBitrate, requireBitRate);
  // Which numbers there are is the encoder's to say.
  if (s.crf && !std::isfinite(*s.crf)) refuse("crf", "it must be finite");
  if (s.sizeLimit) requireNumber("sizeLimit", static_cast<double>(*s.sizeLimit), 1, kLargestFile);
  if (!s.passes) return;
  requireNumber("passes", *s.passes, 1, 2);
  if (*s.passes == 2 && !s.videoBitrate && !s.sizeLimit)
    refuse("passes", "a second pass spreads a bit rate or a size limit; give one of them");
}

void requireTarget(const ConversionSettings& s) {
  const TargetQuality& target = *s.targetQuality;
  requireNumber("targetQuality", target.score, TargetQuality::kLeast, TargetQuality::kMost);
  requireOneOf("per", target.per, {TargetQuality::Per::kFile, TargetQuality::Per::kScene});
  if (target.unlessSmaller) requireNumber("unlessSmaller", *target.unlessSmaller, 0, 1);
  requireNumber("maxCost", target.maxCost, 0, TargetQuality::kMostCost);
  if (!target.report.empty() && !target.report.ends_with(".json"))
    refuse("sampleReport", "its name ends in .json");
  if (isPipe(s.output)) refuse("targetQuality", "what is in a pipe cannot be measured");
  if (!s.ladder.empty()) refuseBeside("targetQuality", "a ladder");
  // Samples are made without what is drawn over them, and with the pictures that there are.
  if (!s.look.subtitles.empty() || s.look.subtitleTrack)
    refuseBeside("targetQuality", "subtitles that are drawn");
  if (s.separatesFields) refuseBeside("targetQuality", "a picture of each field");
}

void requireFormat(const ConversionSettings& s) {
  if (s.depth) requireNumber("depth", *s.depth, kFewestBits, kMostBits);
  whereGiven("chroma", s.chroma, [](const std::string& setting, ChromaSampling chroma) {
    requireOneOf(setting, chroma,
                 {ChromaSampling::k420, ChromaSampling::k422, ChromaSampling::k444});
  });
  if (s.isCompatible && (s.depth || s.chroma))
    refuse(s.depth ? "depth" : "chroma",
           "compatible pictures have 8 bits and 4:2:0; leave out one of the two");
}

/// Sound that is copied stays as it is.
void requireSound(const ConversionSettings& s) {
  for (const std::string& name : s.audioCopy) requireSoundName("audioCopy", name);
  if (!s.audioCopy.empty())
    requireNone({{"mixesAudio", s.mixesAudio},
                 {"volume", s.volume != 1},
                 {"loudness", s.loudness.has_value()}},
                "sound is copied");
  whereGiven("loudness", s.loudness, requireLoudness);
  if (s.loudness && s.volume != 1) refuseBeside("volume", "a loudness");
}

}  // namespace

void requireBefore(int64_t start, int64_t end) {
  if (end <= start) refuse("start", "it must lie before the end");
}

void requireSense(const ConversionSettings& s, bool encodesPictures, bool encodesSound) {
  if (!encodesPictures)
    requireNone({{"videoCodec", !s.videoCodec.empty()},
                 {"look", s.look != LookSettings{}},
                 {"deinterlacing", s.deinterlacing.has_value()},
                 {"separatesFields", s.separatesFields},
                 {"denoising", s.denoising != Denoising::kOff},
                 {"width", s.width.has_value()},
                 {"height", s.height.has_value()},
                 {"lines", s.lines.has_value()},
                 {"scale", s.scale.has_value()},
                 {"ladder", !s.ladder.empty()},
                 {"onlyShrinks", s.onlyShrinks},
                 {"fps", s.fps.has_value()},
                 {"maxFps", s.maxFps.has_value()},
                 {"aspect", s.aspect.has_value()},
                 {"videoBitrate", s.videoBitrate.has_value()},
                 {"sizeLimit", s.sizeLimit.has_value()},
                 {"targetQuality", s.targetQuality.has_value()},
                 {"passes", s.passes.has_value()},
                 {"depth", s.depth.has_value()},
                 {"chroma", s.chroma.has_value()},
                 {"quality", s.quality.has_value()},
                 {"crf", s.crf.has_value()},
                 {"keyframes", s.keyframes.has_value()},
                 {"encoderPreset", !s.encoderPreset.empty()},
                 {"videoOptions", !s.videoOptions.empty()}},
                "no pictures are encoded");
  if (!encodesPictures && !encodesSound)
    requireNone({{"isCompatible", s.isCompatible}}, "nothing is encoded");
  if (!encodesSound)
    requireNone({{"mixesAudio", s.mixesAudio},
                 {"audioCodec", !s.audioCodec.empty()},
                 {"audioCopy", !s.audioCopy.empty()},
                 {"loudness", s.loudness.has_value()},
                 {"audioBitrate", s.audioBitrate.has_value()},
                 {"sampleRate", s.sampleRate.has_value()},
                 {"channelLayout", s.channelLayout.has_value()},
                 {"volume", s.volume != 1},
                 {"audioOptions", !s.audioOptions.empty()}},
                "no sound is encoded");
}

void require(const ConversionSettings& s) {
  requireTitle(s.title);
  whereGiven("video", s.video, requireAction);
  whereGiven("audio", s.audio, requireAction);
  const auto mayEncode = [](const std::optional<StreamAction>& action) {
    return action.value_or(StreamAction::kEncode) == StreamAction::kEncode;
  };
  requireSense(s, mayEncode(s.video), mayEncode(s.audio));
  require(s.look);
  whereGiven("deinterlacing", s.deinterlacing, requireDeinterlacing);
  if (s.separatesFields && s.deinterlacing == Deinterlacing::kOff)
    refuse("separatesFields", "nothing is deinterlaced");
  requireDenoising("denoising", s.denoising);
  whereGiven("width", s.width, requireSide);
  whereGiven("height", s.height, requireSide);
  requireSize(s);
  whereGiven("fps", s.fps, requireRate);
  whereGiven("maxFps", s.maxFps, requireRate);
  if (s.fps && s.maxFps) refuseBeside("maxFps", "a constant rate");
  whereGiven("aspect", s.aspect, requireAspect);
  requireOneRate(s);
  if (s.targetQuality) requireTarget(s);
  requireOneOf("chapterSource", s.chapterSource, {ChapterSource::kInput, ChapterSource::kScenes});
  if (s.chapterSource == ChapterSource::kScenes && !s.keepsMetadata)
    refuse("chapterSource", "chapters are left out with the tags");
  requireFormat(s);
  if (s.fragment) requireNumber("fragment", *s.fragment, kShortestFragment, kLongestGroup);
  if (s.sizeLimit && isPipe(s.output))
    refuse("sizeLimit", "a pipe cannot be written again where a try is too large");
  if (isPipe(s.output) && s.format.empty()) refuse("format", "a pipe has no extension: name one");
  if (s.keyframes) requireNumber("keyframes", *s.keyframes, 0, kLongestGroup);
  requireChoice("audioTracks", s.audioTracks);
  requireChoice("subtitleTracks", s.subtitleTracks);
  whereGiven("audioBitrate", s.audioBitrate, requireBitRate);
  whereGiven("sampleRate", s.sampleRate, requireSampleRate);
  whereGiven("channelLayout", s.channelLayout, requireLayout);
  requireVolume("volume", s.volume);
  requireSound(s);
  requireSpan(s);
}

}  // namespace kestrel
