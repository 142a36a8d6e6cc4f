#include "convert/plan/ConversionPlanner.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/LibMedia.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>
#include "convert/look/Look.h"
#include "convert/plan/PlanRules.h"
#include "convert/plan/SoundFormat.h"
#include "convert/probe/Codecs.h"
#include "convert/probe/Streams.h"
#include "convert/settings/Require.h"
#include "support/Containers.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

constexpr double kSquareTolerance = 0.01;  // pixels this close to square are square
constexpr int32_t kEngineRate = 44100;     // the movie's own sound
constexpr double kWorstQuantizer = 51;     // of the H.264 and HEVC encoders

struct Shape {
  int width = 0;
  int height = 0;
  double aspect = 0;  // display width / height
};

Shape shapeOf(const Look& look) {
  const kestrel::Size size = look.size();
  const double width = std::max(std::round(size.width), 1.0);
  const double height = std::max(std::round(size.height), 1.0);
  return {static_cast<int>(width), static_cast<int>(height), look.pixelAspect() * width / height};
}

int even(double size) { return std::max(2, static_cast<int>(std::lround(size / 2)) * 2); }

/// The output's size and the display aspect to signal; 0 for square pixels.
Shape outputShape(const ConversionSettings& settings, const Look& look) {
  const Shape source = shapeOf(look);
  Shape shape{source.width & ~1, source.height & ~1, source.aspect};
  if (settings.width && settings.height) {
    shape.width = even(*settings.width);
    shape.height = even(*settings.height);
    if (look.isFitted()) shape.aspect = static_cast<double>(shape.width) / shape.height;
  } else if (settings.width) {
    shape.width = even(*settings.width);
    shape.height = even(*settings.width / source.aspect);
  } else if (settings.height) {
    shape.height = even(*settings.height);
    shape.width = even(*settings.height * source.aspect);
  }
  shape.width = std::max(shape.width, 2);
  shape.height = std::max(shape.height, 2);
  if (settings.aspect) shape.aspect = *settings.aspect;
  const double pixel = shape.aspect * shape.height / shape.width;
  if (std::abs(pixel - 1) < kSquareTolerance) shape.aspect = 0;
  return shape;
}

/// Bits per second that suit a picture's size and rate: 6 Mbit/s for 1080p30, less than
/// proportionally less for smaller ones, twice that for codecs of the MPEG-2 generation.
int videoBitrateFor(const Shape& shape, double rate, AVCodecID codec) {
  const double pixels = static_cast<double>(shape.width) * shape.height;
  const double modern = 6e6 * std::pow(pixels / (1920.0 * 1080), 0.75) * std::sqrt(rate / 30);
  const bool isModern = codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC ||
                        codec == AV_CODEC_ID_VP8 || codec == AV_CODEC_ID_VP9 ||
                        codec == AV_CODEC_ID_AV1;
  const double bits = std::clamp(isModern ? modern : 2 * modern, 200e3, 80e6);
  return static_cast<int>(std::lround(bits / 1000)) * 1000;
}

bool canSignalFullRange(AVCodecID codec) {
  return codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC || codec == AV_CODEC_ID_VP9 ||
         codec == AV_CODEC_ID_AV1 || codec == AV_CODEC_ID_FFV1 || codec == AV_CODEC_ID_MJPEG;
}

/// The colours of the output: the source's own, told in full, in a form that the codec can signal.
VideoColor outputColor(VideoColor color, const Shape& shape, AVCodecID codec) {
  if (color.matrix == AVCOL_SPC_RGB) {
    color = resolvedVideoColor(
        {color.primaries, color.transfer, AVCOL_SPC_UNSPECIFIED, AVCOL_RANGE_MPEG},
        AV_PIX_FMT_YUV420P, shape.height);
  }
  if (!canSignalFullRange(codec)) color.range = AVCOL_RANGE_MPEG;
  if (codec == AV_CODEC_ID_MJPEG) color.range = AVCOL_RANGE_JPEG;
  return color;
}

/// The nearest rate that a codec with a fixed list of rates knows.
AVRational supportedRate(AVRational rate, const AVCodec& encoder) {
  if (!encoder.supported_framerates) return rate;
  return encoder.supported_framerates[av_find_nearest_q_idx(rate, encoder.supported_framerates)];
}

class Planner {
 public:
  Planner(const ConversionSettings& settings, const LMMediaSource& source,
          const std::optional<Area>& picture)
      : settings_(settings),
        picture_(picture),
        source_(source),
        input_(mediaInfoOf(source)),
        container_(outputFormatFor(settings.output)) {}

  ConversionPlan plan() {
    plan_.format = lm_get_default_movie_file_ouput_format();
    plan_.formatName = container_.name;
    chooseStreams();
    plan_.start = settings_.start;
    // Pictures alone begin with the first of them, wherever the sound that stays behind began.
    if (plan_.video == StreamAction::kEncode && plan_.audio == StreamAction::kNone)
      plan_.start = std::max(plan_.start, beginOf(pictures(), input_));
    plan_.end = settings_.end;
    if (settings_.chapters) planChapters(*settings_.chapters);
    constexpr int64_t kNever = std::numeric_limits<int64_t>::max();
    if (settings_.duration)
      plan_.end = plan_.start + std::min(*settings_.duration, kNever - plan_.start);
    plan_.keepsMetadata = settings_.keepsMetadata;
    if (plan_.video == StreamAction::kEncode) planVideo();
    if (plan_.audio == StreamAction::kEncode) planAudio();
    planMuxer();
    requirePlan(plan_, source_, settings_.output);
    return plan_;
  }

 private:
  static StreamAction actionFor(const std::optional<StreamAction>& wanted, const std::string& codec,
                                bool hasStream, AVCodecID containerDefault) {
    if (!hasStream) return StreamAction::kNone;
    if (wanted) return *wanted;
    return codec.empty() && containerDefault == AV_CODEC_ID_NONE ? StreamAction::kNone
                                                                 : StreamAction::kEncode;
  }

  const StreamInfo& pictures() const { return input_.streams[*plan_.videoIndex]; }

  void chooseStreams() {
    plan_.videoIndex = input_.mainVideo;
    plan_.audioIndexes = chosenAudios(settings_.audioTracks, source_);
    const bool hasVideo = plan_.videoIndex.has_value();
    if (!hasVideo && plan_.audioIndexes.empty())
      throw Failure::input(
          settings_.input,
          fmt::format("'{}' has no picture and no sound that can be decoded", settings_.input));
    plan_.video = actionFor(settings_.video, settings_.videoCodec, hasVideo,
                            defaultVideoCodec(container_, settings_.output));
    plan_.audio = actionFor(settings_.audio, settings_.audioCodec, !plan_.audioIndexes.empty(),
                            defaultAudioCodec(container_));
    if (plan_.video == StreamAction::kNone) plan_.videoIndex.reset();
    if (plan_.audio == StreamAction::kNone) plan_.audioIndexes.clear();
    for (uint32_t track = 0; track < plan_.audioIndexes.size(); ++track)
      plan_.audioTracks.insert(track);
    if (plan_.video == StreamAction::kNone && plan_.audio == StreamAction::kNone)
      throw Failure::output(
          settings_.output,
          fmt::format("nothing to convert: '{}' has no stream that goes into '{}'", settings_.input,
                      settings_.output));
    if (plan_.video == StreamAction::kEncode) {
      const VideoInfo& video = pictures().video;
      if (video.width <= 0 || video.height <= 0)
        throw Failure::input(
            settings_.input,
            fmt::format("cannot convert '{}': its video has no size", settings_.input));
    }
  }

  /// The span of the chosen chapters.
  void planChapters(const ChapterRange& range) {
    const auto count = static_cast<int>(input_.chapters.size());
    if (range.last > count)
      throw Failure::settings(
          count == 0 ? std::string("chapters: the input has no chapters")
                     : fmt::format("there is no chapter {}: the input has {}", range.last, count),
          "chapters");
    const int64_t begin = input_.startTime.value_or(0);
    const auto toMovie = [&](std::optional<int64_t> time) {
      return std::max<int64_t>(time.value_or(0) - begin, 0);
    };
    plan_.start = toMovie(input_.chapters[range.first - 1].start);
    // The last one may hold a little more than its container counts.
    if (range.last < count) plan_.end = toMovie(input_.chapters[range.last - 1].end);
  }

  void planVideo() {
    const AVCodecID codec = settings_.videoCodec.empty()
                                ? defaultVideoCodec(container_, settings_.output)
                                : codecByName(settings_.videoCodec, AVMEDIA_TYPE_VIDEO);
    requireEncodable(container_, codec, settings_.output);
    const VideoInfo& video = pictures().video;
    plan_.look = settings_.look;
    plan_.deinterlacing = settings_.deinterlacing.value_or(source_.isDVD() ? Deinterlacing::kAuto
                                                                           : Deinterlacing::kOff);
    plan_.picture = picture_;
    const Shape shape = outputShape(settings_, Look(settings_.look, video, picture_));
    const Rational wanted = settings_.fps.value_or(video.frameRate.value_or(kUsualRate));
    const AVRational rate = supportedRate({wanted.num, wanted.den}, *avcodec_find_encoder(codec));
    plan_.format.video_codec = codec;
    plan_.format.width = shape.width;
    plan_.format.height = shape.height;
    plan_.format.aspect = static_cast<float>(shape.aspect);
    plan_.setRate({rate.num, rate.den});
    plan_.format.video_bitrate =
        settings_.videoBitrate.value_or(videoBitrateFor(shape, av_q2d(rate), codec));
    plan_.color = outputColor(video.color, shape, codec);
    planVideoOptions(rate);
  }

  void planVideoOptions(AVRational rate) {
    auto& options = plan_.videoOptions;
    const AVCodecID codec = static_cast<AVCodecID>(plan_.format.video_codec);
    const bool hasPresets = codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC;
    if (codec == AV_CODEC_ID_H264)
      options["g"] = std::to_string(std::max(1L, std::lround(2 * av_q2d(rate))));
    if (settings_.crf) {
      if (hasPresets) requireNumber("crf", *settings_.crf, 0, kWorstQuantizer);
      options["crf"] = fmt::format("{}", *settings_.crf);
      options["b"] = "0";
    }
    if (!settings_.encoderPreset.empty()) options["preset"] = settings_.encoderPreset;
    for (const auto& [key, value] : settings_.videoOptions) options[key] = value;
    if (hasPresets && options.contains("preset")) requirePreset(options["preset"]);
  }

  void planAudio() {
    const AVCodecID codec = settings_.audioCodec.empty()
                                ? defaultAudioCodec(container_)
                                : codecByName(settings_.audioCodec, AVMEDIA_TYPE_AUDIO);
    requireEncodable(container_, codec, settings_.output);
    const int64_t layout = audioLayout();
    plan_.format.audio_codec = codec;
    plan_.format.channel_layout = layout;
    const int only = onlySampleRate(container_);
    plan_.format.sample_rate = settings_.sampleRate.value_or(
        ratesLike(only > 0 ? only : kEngineRate, *avcodec_find_encoder(codec)).front());
    const int channels = lm_get_channel_layout_nb_channels(layout);
    plan_.format.audio_bitrate = settings_.audioBitrate.value_or(96000 * channels);
    plan_.audioOptions = settings_.audioOptions;
    plan_.volume = settings_.volume;
  }

  int64_t audioLayout() const {
    if (settings_.channelLayout) return *settings_.channelLayout;
    const std::vector<uint32_t> indexes(plan_.audioIndexes.begin(), plan_.audioIndexes.end());
    const bool isMono = std::ranges::all_of(plan_.audioTracks, [&](uint32_t track) {
      return input_.streams[indexes[track]].audio.channels == 1;
    });
    return lm_get_default_channel_layout(isMono ? 1 : 2);
  }

  /// The index comes first, so that a player can start before the whole file is there.
  void planMuxer() {
    if (isMpeg4(container_)) plan_.muxerOptions["movflags"] = "+faststart";
  }

  const ConversionSettings& settings_;
  const std::optional<Area>& picture_;
  const LMMediaSource& source_;
  const MediaInfo input_;
  const AVOutputFormat& container_;
  ConversionPlan plan_;
};

}  // namespace

ConversionPlan planConversion(const ConversionSettings& settings, const LMMediaSource& input,
                              const std::optional<Area>& picture) {
  return Planner(settings, input, picture).plan();
}

}  // namespace kestrel
