#include "convert/run/PlannedOutput.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include <kestrel/LMFFImageColorspaceConverter.h>
#include <kestrel/convert/Failure.h>
#include "convert/feed/PictureFeed.h"
#include "convert/plan/EncoderParameters.h"
#include "convert/probe/Labels.h"
#include "convert/probe/Light.h"
#include "support/LastingTags.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

void setUpOutput(LMFFMovieFileOutput& output, const ConversionPlan& plan, const std::string& path,
                 const Interrupt& interrupt) {
  output.setPath(path);
  output.setFormatName(plan.formatName);
  output.setMovieFormat(plan.format);
  output.setOutputColor(plan.color);
  output.setVideoEncoderName(plan.videoEncoder);
  if (const auto converter = output.videoConverter()) converter->setScaler(plan.look.scaler);
  output.setTopFieldFirst(plan.topFieldFirst);
  if (plan.keepsTimes) output.setVideoTick(pictureTick(plan.rate()));
  output.setVideoPixelFormat(av_get_pix_fmt(plan.pixelFormat.c_str()));
  ConversionPlan::Options options = plan.videoOptions;
  if (plan.hdr) addLight(options, plan.videoEncoder, *plan.hdr);
  output.setVideoOptions(options);
  output.setMuxerOptions(plan.muxerOptions);
  output.setKeepsCopiedTimes(true);
  output.setInterrupt(interrupt);
}

void openPlannedPictures(LMFFMovieFileOutput& output, const ConversionPlan& plan) {
  output.openVideo();
  AVStream* const stream = output.videoStream();
  if (stream && plan.hdr) tellLight(*plan.hdr, *stream);
}

namespace {

using Kind = StreamInfo::Kind;

/// A stream's tags, the language by the code that the container knows.
std::map<std::string, std::string> tagsIn(const ConversionPlan& plan, const PlannedStream& stream) {
  auto tags = stream.tags;
  const auto language = tags.find("language");
  if (language == tags.end()) return tags;
  const AVOutputFormat& container = *av_guess_format(plan.formatName.c_str(), nullptr, nullptr);
  const std::string held = heldLanguage(container, language->second);
  if (!held.empty()) language->second = held;
  return tags;
}

/// The flags that players go by, of those that a plan names.
int flagsOf(const std::vector<std::string>& names) {
  int flags = 0;
  for (const std::string& name : names)
    flags |= std::max(av_disposition_from_string(name.c_str()), 0);
  return flags & ~(AV_DISPOSITION_ATTACHED_PIC | AV_DISPOSITION_TIMED_THUMBNAILS);
}

}  // namespace

AVStream* openEncodedSound(LMFFMovieFileOutput& output, const SoundEncoding& sound,
                           int32_t sampleFormat) {
  LMFFMovieFileOutputFormat format = output.movieFormat();
  format.audio_codec = sound.codec;
  format.audio_bitrate = sound.bitrate;
  format.sample_rate = sound.sampleRate;
  format.channel_layout = sound.channelLayout;
  output.setMovieFormat(format);
  output.setAudioEncoderName(sound.encoder);
  output.setAudioBits(sound.bits);
  output.setKeepsAudioFloats(sound.isFloat);
  output.setAudioOptions(sound.options);
  output.setAudioInputFormat({sampleFormat, sound.channelLayout, sound.sampleRate});
  output.openAudio();
  return output.audioStream();
}

AVStream* openPlannedStream(LMFFMovieFileOutput& output, const ConversionPlan& plan,
                            const PlannedStream& planned, const AVFormatContext& input,
                            int32_t sampleFormat) {
  const AVStream* const source = input.streams[planned.sources.front()];
  if (planned.isCover || planned.kind == Kind::kAttachment) return output.copyOutputStream(source);
  AVStream* stream = nullptr;
  if (planned.action == StreamAction::kCopy) {
    stream = output.copyOutputStream(source);
  } else if (planned.kind == Kind::kVideo) {
    openPlannedPictures(output, plan);
    stream = output.videoStream();
  } else if (planned.kind == Kind::kAudio) {
    stream = openEncodedSound(output, planned.sound, sampleFormat);
  } else {
    stream = output.convertSubtitleStream(source, planned.subtitleCodec);
  }
  output.setStreamTags(stream, tagsIn(plan, planned));
  output.setStreamDisposition(stream, flagsOf(planned.disposition));
  return stream;
}

AVStream* openMadeStream(LMFFMovieFileOutput& output, const ConversionPlan& plan,
                         const PlannedStream& planned, const AVStream& made) {
  AVStream* const stream = output.addMadeStream(made);
  output.setStreamTags(stream, tagsIn(plan, planned));
  output.setStreamDisposition(stream, flagsOf(planned.disposition));
  return stream;
}

void requireOutput(const LMFFMovieFileOutput& output, const std::string& target) {
  if (const kestrel::Error error = output.lastError())
    throw output.interrupt() && output.interrupt()()
        ? Failure::interrupted()
        : Failure::output(target, fmt::format("cannot write '{}': {}", target, error.message));
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
