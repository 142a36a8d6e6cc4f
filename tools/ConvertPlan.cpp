#include "ConvertPlan.h"

#include <kestrel/LMDVDTitleSource.h>
#include <kestrel/LibMedia.h>

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "Codecs.h"
#include "Failure.h"
#include "Languages.h"
#include "Text.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

using namespace kestrel;

namespace {

constexpr double kSquareTolerance = 0.01;  // pixels this close to square are square
constexpr int64_t kEngineRate = 44100;     // the movie's own sound

/// The stream that a viewer sees: not a cover picture, and one that has a size.
std::optional<uint32_t> findVideo(const AVFormatContext& input) {
  auto* context = const_cast<AVFormatContext*>(&input);
  int best = av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  const auto isCover = [&](int index) {
    return (input.streams[index]->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
  };
  if (best < 0 || isCover(best)) return std::nullopt;
  return static_cast<uint32_t>(best);
}

IndexSet findAudios(const AVFormatContext& input) {
  IndexSet indexes;
  for (uint32_t i = 0; i < input.nb_streams; ++i) {
    const AVCodecParameters& parameters = *input.streams[i]->codecpar;
    if (parameters.codec_type == AVMEDIA_TYPE_AUDIO && avcodec_find_decoder(parameters.codec_id))
      indexes.insert(i);
  }
  return indexes;
}

/// The audio streams in the order in which users count them: a disc's own order, with none for a
/// track that its VOBs do not hold, or else the container's.
std::vector<std::optional<uint32_t>> inUsersOrder(const LMMediaSource& source,
                                                  const IndexSet& audios) {
  const auto* disc = dynamic_cast<const LMDVDTitleSource*>(&source);
  if (!disc) return {audios.begin(), audios.end()};
  std::vector<std::optional<uint32_t>> indexes;
  for (const auto& track : disc->title()->audioTracks()) {
    const auto index = std::ranges::find_if(audios, [&](uint32_t candidate) {
      return source.formatContext()->streams[candidate]->id == track.stream_id;
    });
    indexes.push_back(index != audios.end() ? std::optional(*index) : std::nullopt);
  }
  return indexes;
}

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
Shape outputShape(const ConvertSettings& settings, const Look& look) {
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
LMFFVideoColor outputColor(const AVStream& stream, const Shape& shape, AVCodecID codec) {
  const AVCodecParameters& source = *stream.codecpar;
  LMFFVideoColor color = lm_resolved_video_color(
      {source.color_primaries, source.color_trc, source.color_space, source.color_range},
      source.format, source.height);
  if (color.matrix == AVCOL_SPC_RGB) {
    color = lm_resolved_video_color(
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

int supportedSampleRate(int rate, const AVCodec& encoder) {
  if (!encoder.supported_samplerates) return rate;
  int best = encoder.supported_samplerates[0];
  for (const int* known = encoder.supported_samplerates; *known; ++known)
    if (std::abs(*known - rate) < std::abs(best - rate)) best = *known;
  return best;
}

class Planner {
 public:
  Planner(const ConvertSettings& settings, const LMMediaSource& source)
      : settings_(settings),
        source_(source),
        input_(*source.formatContext()),
        container_(outputFormatFor(settings.output)) {}

  ConvertPlan plan() {
    plan_.format = lm_get_default_movie_file_ouput_format();
    plan_.formatName = container_.name;
    chooseStreams();
    plan_.start = settings_.start;
    // Pictures alone begin with the first of them, wherever the sound that stays behind began.
    if (plan_.video == StreamAction::kEncode && plan_.audio == StreamAction::kNone)
      plan_.start = std::max(plan_.start, picturesBegin());
    plan_.end = settings_.end;
    if (settings_.chapters) planChapters(*settings_.chapters);
    if (settings_.duration) plan_.end = plan_.start + *settings_.duration;
    if (plan_.video == StreamAction::kEncode) planVideo();
    if (plan_.audio == StreamAction::kEncode) planAudio();
    requireCopiesFit();
    planMuxer();
    return plan_;
  }

 private:
  StreamAction actionFor(const std::string& codec, bool hasStream, AVCodecID containerDefault) {
    if (!hasStream || codec == "none") return StreamAction::kNone;
    if (codec == "copy") return StreamAction::kCopy;
    if (codec.empty() && containerDefault == AV_CODEC_ID_NONE) return StreamAction::kNone;
    return StreamAction::kEncode;
  }

  /// How long after the input's start its pictures begin; microseconds.
  int64_t picturesBegin() const {
    const AVStream& stream = *input_.streams[*plan_.videoIndex];
    if (stream.start_time == AV_NOPTS_VALUE || input_.start_time == AV_NOPTS_VALUE) return 0;
    return av_rescale_q(stream.start_time, stream.time_base, AV_TIME_BASE_Q) - input_.start_time;
  }

  void chooseStreams() {
    plan_.videoIndex = findVideo(input_);
    plan_.audioIndexes = chosenAudios(settings_.audioTracks, source_);
    const bool hasVideo = plan_.videoIndex.has_value();
    if (!hasVideo && plan_.audioIndexes.empty())
      throw Failure{kFailed, fmt::format("'{}' has no picture and no sound that can be decoded",
                                         settings_.input)};
    plan_.video =
        actionFor(settings_.videoCodec, hasVideo, defaultVideoCodec(container_, settings_.output));
    plan_.audio =
        actionFor(settings_.audioCodec, !plan_.audioIndexes.empty(), defaultAudioCodec(container_));
    if (plan_.video == StreamAction::kNone) plan_.videoIndex.reset();
    if (plan_.audio == StreamAction::kNone) plan_.audioIndexes.clear();
    for (uint32_t track = 0; track < plan_.audioIndexes.size(); ++track)
      plan_.audioTracks.insert(track);
    if (plan_.audio == StreamAction::kCopy && plan_.audioTracks.size() > 1)
      throw wrongUsage("only one audio track can be copied at a time");
    if (plan_.video == StreamAction::kNone && plan_.audio == StreamAction::kNone)
      throw Failure{kFailed,
                    fmt::format("nothing to convert: '{}' has no stream that goes into '{}'",
                                settings_.input, settings_.output)};
    if (plan_.video == StreamAction::kEncode) {
      const AVCodecParameters& video = *input_.streams[*plan_.videoIndex]->codecpar;
      if (video.width <= 0 || video.height <= 0)
        throw Failure{kFailed,
                      fmt::format("cannot convert '{}': its video has no size", settings_.input)};
    }
  }

  /// The span of the chosen chapters.
  void planChapters(const ChapterRange& range) {
    const auto count = static_cast<int>(input_.nb_chapters);
    if (range.last > count)
      throw wrongUsage(
          count == 0 ? std::string("--chapters: the input has no chapters")
                     : fmt::format("there is no chapter {}: the input has {}", range.last, count));
    const int64_t begin = input_.start_time == AV_NOPTS_VALUE ? 0 : input_.start_time;
    const auto toMovie = [&](int64_t time, const AVChapter& chapter) {
      return std::max<int64_t>(av_rescale_q(time, chapter.time_base, AV_TIME_BASE_Q) - begin, 0);
    };
    const AVChapter& first = *input_.chapters[range.first - 1];
    const AVChapter& last = *input_.chapters[range.last - 1];
    plan_.start = toMovie(first.start, first);
    // The last one may hold a little more than its container counts.
    if (range.last < count) plan_.end = toMovie(last.end, last);
  }

  void planVideo() {
    const AVCodecID codec = settings_.videoCodec.empty()
                                ? defaultVideoCodec(container_, settings_.output)
                                : codecByName(settings_.videoCodec, AVMEDIA_TYPE_VIDEO);
    requireEncodable(container_, codec, settings_.output);
    AVStream& stream = *input_.streams[*plan_.videoIndex];
    plan_.look = Look(settings_.look, stream);
    const Shape shape = outputShape(settings_, plan_.look);
    const Rational wanted = settings_.fps.value_or(realFrameRate(stream));
    const AVRational rate = supportedRate({wanted.num, wanted.den}, *avcodec_find_encoder(codec));
    plan_.rate = {rate.num, rate.den};
    plan_.format.video_codec = codec;
    plan_.format.width = shape.width;
    plan_.format.height = shape.height;
    plan_.format.aspect = static_cast<float>(shape.aspect);
    plan_.format.framerate = rate.num;
    plan_.format.frameTime = rate.den;
    plan_.format.video_bitrate =
        settings_.videoBitrate.value_or(videoBitrateFor(shape, av_q2d(rate), codec));
    plan_.color = outputColor(stream, shape, codec);
    planVideoOptions(rate);
  }

  void planVideoOptions(AVRational rate) {
    auto& options = plan_.videoOptions;
    if (plan_.format.video_codec == AV_CODEC_ID_H264)
      options["g"] = std::to_string(std::max(1L, std::lround(2 * av_q2d(rate))));
    if (settings_.crf) {
      options["crf"] = fmt::format("{}", *settings_.crf);
      if (!settings_.videoBitrate) options.insert_or_assign("b", std::string(1, '0'));
    }
    if (!settings_.encoderPreset.empty()) options["preset"] = settings_.encoderPreset;
    for (const auto& [key, value] : settings_.videoOptions) options[key] = value;
    const AVCodecID codec = static_cast<AVCodecID>(plan_.format.video_codec);
    if (options.contains("preset") && (codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC))
      requirePreset(options["preset"]);
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
        supportedSampleRate(only > 0 ? only : kEngineRate, *avcodec_find_encoder(codec)));
    const int channels = lm_get_channel_layout_nb_channels(layout);
    plan_.format.audio_bitrate = settings_.audioBitrate.value_or(96000 * channels);
    plan_.audioOptions = settings_.audioOptions;
  }

  int64_t audioLayout() const {
    if (!settings_.channels.empty()) {
      const int64_t layout = lm_get_channel_layout_by_name(settings_.channels);
      if (!layout)
        throw wrongUsage(fmt::format("--channels: unknown layout '{}'", settings_.channels));
      return layout;
    }
    const std::vector<uint32_t> indexes(plan_.audioIndexes.begin(), plan_.audioIndexes.end());
    const bool isMono = std::ranges::all_of(plan_.audioTracks, [&](uint32_t track) {
      return input_.streams[indexes[track]]->codecpar->ch_layout.nb_channels == 1;
    });
    return lm_get_default_channel_layout(isMono ? 1 : 2);
  }

  void requireCopiesFit() {
    const auto require = [&](uint32_t index) {
      requireContainerHolds(container_, input_.streams[index]->codecpar->codec_id,
                            settings_.output);
    };
    if (plan_.video == StreamAction::kCopy) require(*plan_.videoIndex);
    if (plan_.audio == StreamAction::kCopy)
      require(*std::next(plan_.audioIndexes.begin(), *plan_.audioTracks.begin()));
  }

  /// The index comes first, so that a player can start before the whole file is there.
  void planMuxer() {
    static const std::vector<std::string> kMp4Family{"mp4", "mov", "ipod", "3gp", "3g2", "psp"};
    if (std::ranges::count(kMp4Family, plan_.formatName))
      plan_.muxerOptions["movflags"] = "+faststart";
  }

  const ConvertSettings& settings_;
  const LMMediaSource& source_;
  AVFormatContext& input_;
  const AVOutputFormat& container_;
  ConvertPlan plan_;
};

/// The standard rate that an average means, where it is within 2 % of one.
AVRational standardRate(AVRational average) {
  static const AVRational kRates[] = {{24000, 1001}, {24, 1}, {25, 1},       {30000, 1001}, {30, 1},
                                      {48, 1},       {50, 1}, {60000, 1001}, {60, 1}};
  AVRational best = average;
  double bestError = 0.02;
  for (const AVRational rate : kRates) {
    const double error = std::abs(av_q2d(rate) / av_q2d(average) - 1);
    if (error < bestError) {
      best = rate;
      bestError = error;
    }
  }
  return best;
}

/// The rate of which a stream's times are multiples. Where MPEG-2 pictures repeat fields, that of
/// the fields is found there; the codec itself states the pictures' own.
AVRational baseRate(const AVStream& stream) {
  if (stream.codecpar->codec_id != AV_CODEC_ID_MPEG2VIDEO) return stream.r_frame_rate;
  return av_guess_frame_rate(nullptr, const_cast<AVStream*>(&stream), nullptr);
}

}  // namespace

Rational realFrameRate(const AVStream& stream) {
  constexpr double kFastest = 240;
  constexpr double kFastestVariable = 60.5;
  const auto isRate = [](AVRational rate) { return rate.num > 0 && rate.den > 0; };
  const AVRational base = baseRate(stream);
  const AVRational average = stream.avg_frame_rate;
  const auto answer = [](AVRational rate) { return Rational{rate.num, rate.den}; };
  if (!isRate(base) && !isRate(average)) return {25, 1};
  if (!isRate(average) || !isRate(base)) {
    const AVRational only = isRate(base) ? base : average;
    return av_q2d(only) <= kFastest ? answer(only) : Rational{25, 1};
  }
  const double ratio = av_q2d(base) / av_q2d(average);
  if (ratio < 1.5 && av_q2d(base) <= kFastest) return answer(base);
  const bool countsFields = std::abs(ratio - 2) < 0.05;
  if (!countsFields && av_q2d(base) <= kFastestVariable) return answer(base);
  const AVRational rate = standardRate(average);
  return av_q2d(rate) <= kFastest ? answer(rate) : Rational{25, 1};
}

ConvertPlan planConversion(const ConvertSettings& settings, const LMMediaSource& input) {
  return Planner(settings, input).plan();
}

IndexSet chosenAudios(const std::string& wanted, const LMMediaSource& source) {
  const AVFormatContext& input = *source.formatContext();
  const auto tracks = inUsersOrder(source, findAudios(input));
  const auto firstWhere = [&](auto isWanted) {
    for (const auto index : tracks)
      if (index && isWanted(*input.streams[*index])) return IndexSet{*index};
    return IndexSet{};
  };
  if (wanted.empty()) {
    const IndexSet chosen = firstWhere(
        [](const AVStream& stream) { return (stream.disposition & AV_DISPOSITION_DEFAULT) != 0; });
    return chosen.empty() ? firstWhere([](const AVStream&) { return true; }) : chosen;
  }
  IndexSet chosen;
  if (wanted == "all" || tracks.empty()) {
    for (const auto index : tracks)
      if (index) chosen.insert(*index);
    return chosen;
  }
  if (const auto numbers = parseIndexList(wanted)) {
    for (const uint32_t number : *numbers) {
      if (number >= tracks.size())
        throw wrongUsage(
            fmt::format("there is no audio track {}: the input has {}", number, tracks.size()));
      if (!tracks[number])
        throw Failure{kFailed, fmt::format("audio track {} is not in the title's VOBs", number)};
      chosen.insert(*tracks[number]);
    }
    return chosen;
  }
  chosen = firstWhere(
      [&](const AVStream& stream) { return isSameLanguage(languageOf(stream), wanted); });
  if (chosen.empty()) throw wrongUsage(fmt::format("there is no audio track in '{}'", wanted));
  return chosen;
}
