#include "convert/plan/ConversionPlanner.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/LibMedia.h>

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>
#include <vector>

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>
#include "convert/look/Look.h"
#include "convert/plan/ConstantRate.h"
#include "convert/plan/EncoderParameters.h"
#include "convert/plan/Fragments.h"
#include "convert/plan/OtherStreams.h"
#include "convert/plan/OutputShape.h"
#include "convert/plan/PictureEncoding.h"
#include "convert/plan/PictureRates.h"
#include "convert/plan/PixelFormats.h"
#include "convert/plan/PlanRules.h"
#include "convert/plan/PlannedStreams.h"
#include "convert/plan/SettingsRules.h"
#include "convert/plan/SoundPlanner.h"
#include "convert/probe/Codecs.h"
#include "convert/probe/Light.h"
#include "convert/probe/MeasuredScanning.h"
#include "convert/probe/Streams.h"
#include "convert/settings/Require.h"
#include "support/Containers.h"
#include "support/FFmpegOwners.h"
#include "support/encode/Fields.h"
#include "support/encode/KeyOrders.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

using Kind = StreamInfo::Kind;

bool canSignalFullRange(AVCodecID codec) {
  return codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC || codec == AV_CODEC_ID_VP9 ||
         codec == AV_CODEC_ID_AV1 || codec == AV_CODEC_ID_FFV1 || codec == AV_CODEC_ID_MJPEG;
}

/// The colours of the output: the source's own, told in full, in a form that the codec can signal.
VideoColor outputColor(VideoColor color, const Shape& shape, AVCodecID codec,
                       const std::string& pixelFormat) {
  if (isRgb(pixelFormat)) return {color.primaries, color.transfer, AVCOL_SPC_RGB, AVCOL_RANGE_JPEG};
  if (color.matrix == AVCOL_SPC_RGB) {
    color = resolvedVideoColor(
        {color.primaries, color.transfer, AVCOL_SPC_UNSPECIFIED, AVCOL_RANGE_MPEG},
        AV_PIX_FMT_YUV420P, shape.height);
  }
  if (!canSignalFullRange(codec)) color.range = AVCOL_RANGE_MPEG;
  if (codec == AV_CODEC_ID_MJPEG) color.range = AVCOL_RANGE_JPEG;
  return color;
}

class Planner {
 public:
  Planner(const ConversionSettings& settings, const LMMediaSource& source, const Measures& measures)
      : settings_(settings),
        measures_(measures),
        source_(source),
        input_(measures.info ? *measures.info : mediaInfoOf(source)),
        named_(settings.format.empty() ? outputFormatFor(settings.output)
                                       : outputFormatNamed(settings.format)),
        container_(isHls(named_) ? outputFormatNamed("mp4") : named_) {}

  ConversionPlan plan() {
    plan_.format = lm_get_default_movie_file_ouput_format();
    plan_.formatName = container_.name;
    planPictures();
    planSounds();
    requireSomething();
    const bool takesSound = mayEncodeSound(settings_) && !plan_.kept(Kind::kAudio).empty();
    if (!settings_.suitsAnyInput)
      requireSense(settings_, encodes(Kind::kVideo), encodes(Kind::kAudio) || takesSound);
    add(planSubtitles(settings_, source_, input_, named_, container_, encodes(Kind::kVideo)));
    add(planAttachments(settings_, source_, input_, named_));
    planSpan();
    plan_.keepsMetadata = settings_.keepsMetadata;
    if (input_.mainVideo || !settings_.suitsAnyInput) plan_.chapterSource = settings_.chapterSource;
    if (plan_.chapterSource == ChapterSource::kScenes && !source_.isSeekable())
      refuse("chapterSource", fmt::format("'{}' can be read only once", settings_.input));
    if (pictures_ && plan_.pictures()->action == StreamAction::kEncode) planVideo(*pictures_);
    planFragments(plan_, settings_, named_);
    requirePlan(plan_, source_, settings_.output);
    return plan_;
  }

 private:
  static StreamAction actionFor(const std::optional<StreamAction>& wanted, const std::string& codec,
                                AVCodecID containerDefault) {
    if (wanted) return *wanted;
    return codec.empty() && containerDefault == AV_CODEC_ID_NONE ? StreamAction::kNone
                                                                 : StreamAction::kEncode;
  }

  /// A stream of the input as it goes into the plan, with what is true of it in any container.
  PlannedStream planned(const StreamInfo& stream, StreamAction action,
                        std::string reason = {}) const {
    return plannedStream(stream, action, settings_.keepsMetadata, std::move(reason));
  }

  void leaveOut(const StreamInfo& stream, std::string reason) {
    plan_.streams.push_back(planned(stream, StreamAction::kNone, std::move(reason)));
  }

  std::string noPlaceFor(const char* what) const {
    return fmt::format("{} has no place for {}", container_.name, what);
  }

  void planPictures() {
    const StreamAction action = actionFor(settings_.video, settings_.videoCodec,
                                          defaultVideoCodec(container_, settings_.output));
    for (const StreamInfo& stream : input_.streams) {
      if (stream.kind != Kind::kVideo || stream.video.isCover) continue;
      if (settings_.video == StreamAction::kNone)
        leaveOut(stream, "");
      else if (!input_.mainVideo ||
               (action == StreamAction::kEncode && !canDecode(*input_.mainVideo)))
        leaveOut(stream, "it cannot be decoded");
      else if (input_.mainVideo != stream.index)
        leaveOut(stream, "one video track is taken");
      else if (action == StreamAction::kNone)
        leaveOut(stream, noPlaceFor("pictures"));
      else
        plan_.streams.push_back(planned(stream, action));
    }
    if (plan_.pictures()) pictures_ = &input_.streams[*input_.mainVideo];
    if (pictures_ && (pictures_->video.width <= 0 || pictures_->video.height <= 0))
      throw Failure::input(
          settings_.input,
          fmt::format("cannot convert '{}': it promises pictures, and none of them "
                      "were found",
                      settings_.input));
  }

  bool canDecode(uint32_t index) const {
    return avcodec_find_decoder(source_.formatContext()->streams[index]->codecpar->codec_id);
  }

  void planSounds() {
    const bool hasPictures = plan_.pictures() != nullptr;
    add(kestrel::planSounds(settings_, source_, input_, container_, hasPictures));
  }

  void add(std::vector<PlannedStream> streams) {
    std::ranges::move(streams, std::back_inserter(plan_.streams));
  }

  void requireSomething() const {
    const bool hasSound = std::ranges::any_of(input_.audioTracks,
                                              [](const auto& track) { return track.has_value(); });
    const bool hasPictures = input_.mainVideo && (plan_.pictures() || canDecode(*input_.mainVideo));
    if (!hasPictures && !hasSound)
      throw Failure::input(
          settings_.input,
          fmt::format("'{}' has no picture and no sound that can be decoded", settings_.input));
    if (!plan_.pictures() && plan_.kept(Kind::kAudio).empty())
      throw Failure::output(
          settings_.output,
          fmt::format("nothing to convert: '{}' has no stream that goes into '{}'", settings_.input,
                      settings_.output));
  }

  bool encodes(Kind kind) const {
    const auto kept = plan_.kept(kind);
    return std::ranges::any_of(
        kept, [](const PlannedStream* stream) { return stream->action == StreamAction::kEncode; });
  }

  void planSpan() {
    const auto length = input_.duration;
    plan_.start = timeOf("start", settings_.start, length, settings_.input);
    // Pictures alone begin with the first of them, wherever the sound that stays behind began.
    if (pictures_ && plan_.pictures()->action == StreamAction::kEncode &&
        plan_.kept(Kind::kAudio).empty())
      plan_.start = std::max(plan_.start, beginOf(*pictures_, input_));
    if (settings_.end) {
      plan_.end = timeOf("end", *settings_.end, length, settings_.input);
      requireBefore(plan_.start, *plan_.end);
    }
    if (settings_.chapters) planChapters(*settings_.chapters);
    constexpr int64_t kNever = std::numeric_limits<int64_t>::max();
    if (settings_.duration)
      plan_.end =
          plan_.start + std::min(timeOf("duration", *settings_.duration, length, settings_.input),
                                 kNever - plan_.start);
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

  CodecChoice videoChoice() const {
    return settings_.videoCodec.empty() ? choiceOf(defaultVideoCodec(container_, settings_.output))
                                        : codecByName(settings_.videoCodec, AVMEDIA_TYPE_VIDEO);
  }

  void planVideo(const StreamInfo& stream) {
    const CodecChoice choice = videoChoice();
    requireEncodable(container_, choice.codec, settings_.output);
    const VideoInfo& video = stream.video;
    plan_.look = settings_.look;
    plan_.orientation = video.orientation;
    const Scanning scanning = scanningOf(stream);
    planTreatment(scanning);
    plan_.picture = measures_.picture;
    if (isHdr(video.color)) plan_.look.hdr = hdrHandling(video, choice);
    const Look look(plan_.look, video, measures_.picture);
    const bool isMapped = isHdr(video.color) && plan_.look.hdr == HdrHandling::kSdr;
    plan_.pixelFormat =
        pixelFormatFor(choice.encoder, formatBefore(video, look.isDrawn(), isMapped), wishes());
    const Ladder ladder = outputLadder(settings_, look, keepsOddSides(choice.encoder));
    const Shape& shape = ladder.shapes.front();
    const Rational own = ownRate(video);
    const bool isLimited = settings_.maxFps && comesFasterThan(*settings_.maxFps, video);
    const PictureRates rates(*avcodec_find_encoder_by_name(choice.encoder.c_str()), container_);
    const Rational rate = settings_.fps ? rates.asked(*settings_.fps)
                          : isLimited   ? rates.limited(*settings_.maxFps)
                                        : rates.nearest(own);
    plan_.format.video_codec = choice.codec;
    plan_.videoEncoder = choice.encoder;
    plan_.format.width = shape.width;
    plan_.format.height = shape.height;
    plan_.format.aspect = static_cast<float>(shape.aspect);
    plan_.setRate(rate);
    plan_.keepsTimes = !settings_.fps && !isLimited && holdsTimes(container_, choice.codec) &&
                       av_cmp_q(toAV(rate), toAV(own)) == 0 &&
                       (!isHls(named_) || takesKeyOrders(choice.encoder));
    if (!plan_.keepsTimes && !settings_.fps && !isLimited) planPace(own, rates);
    planFields(scanning, look, ladder);
    plan_.color =
        outputColor(isMapped ? kBt709 : video.color, shape, choice.codec, plan_.pixelFormat);
    if (keepsLight(plan_) && video.hdr && isPossible(*video.hdr)) plan_.hdr = video.hdr;
    planSegments(plan_, settings_, named_);
    planEncoding(plan_, settings_, container_);
    keepChromaPlace(plan_.videoOptions, *source_.formatContext()->streams[stream.index]->codecpar,
                    plan_.pixelFormat);
    planRungs(plan_, ladder.shapes);
    auto& losses = plan_.pictures()->losses;
    std::ranges::move(lossesOf(plan_, wishes(), settings_.look.hdr, video, look.isDrawn()),
                      std::back_inserter(losses));
    for (const int lines : ladder.tooLarge)
      losses.push_back(fmt::format("{} lines of the ladder, which are more than they have", lines));
    const bool isTwice = plan_.passes == 2 || plan_.sizeLimit || plan_.targetQuality;
    if (isTwice && !source_.isSeekable())
      refuse(plan_.sizeLimit       ? "sizeLimit"
             : plan_.targetQuality ? "targetQuality"
                                   : "passes",
             fmt::format("'{}' can be read only once", settings_.input));
  }

  /// Whoever wants pictures left alone wants none of them looked at.
  Scanning scanningOf(const StreamInfo& stream) const {
    if (settings_.deinterlacing == Deinterlacing::kOff)
      return markedScanning(*source_.formatContext()->streams[stream.index]);
    return measures_.scanning ? measures_.scanning() : Scanning{};
  }

  /// HDR pictures stay so where the encoder holds their fine steps.
  HdrHandling hdrHandling(const VideoInfo& video, const CodecChoice& choice) const {
    if (settings_.look.hdr) return *settings_.look.hdr;
    LookSettings kept = settings_.look;
    kept.hdr = HdrHandling::kKeep;
    const bool isDrawn = Look(kept, video, measures_.picture).isDrawn();
    const std::string format =
        pixelFormatFor(choice.encoder, formatBefore(video, isDrawn), wishes());
    return isFineForHdr(format) ? HdrHandling::kKeep : HdrHandling::kSdr;
  }

  PixelWishes wishes() const { return {settings_.isCompatible, settings_.depth, settings_.chroma}; }

  /// What the pictures need. Progressive ones are left alone, also where they are marked as
  /// interlaced; then each that shows combs is found on the way.
  /// Fields become pictures all over a movie that is interlaced.
  void planTreatment(const Scanning& scanning) {
    PictureTreatment& treatment = plan_.treatment;
    treatment.denoising = settings_.denoising;
    treatment.topFieldFirst = scanning.topFieldFirst;
    if (settings_.deinterlacing) {
      treatment.deinterlacing = *settings_.deinterlacing;
    } else if (!measures_.scanning) {
      treatment.deinterlacing = Deinterlacing::kAuto;
    } else if (scanning.scan == Scan::kInterlaced) {
      const bool goesByMarks = scanning.isMarked && !settings_.separatesFields;
      treatment.deinterlacing = goesByMarks ? Deinterlacing::kAuto : Deinterlacing::kOn;
    } else if (scanning.scan == Scan::kMixed || scanning.isMarked) {
      treatment.deinterlacing = Deinterlacing::kCombed;
    }
    const bool hasFields =
        settings_.deinterlacing || !measures_.scanning || scanning.scan != Scan::kProgressive;
    treatment.separatesFields =
        settings_.separatesFields && hasFields && treatment.deinterlacing != Deinterlacing::kOff;
  }

  /// Pictures that stay interlaced are coded and marked so, as long as their lines stay lines.
  void planFields(const Scanning& scanning, const Look& look, const Ladder& ladder) {
    if (plan_.treatment.deinterlacing != Deinterlacing::kOff || scanning.scan == Scan::kProgressive)
      return;
    auto& losses = plan_.pictures()->losses;
    const Look::Turn turn = look.turn();
    const auto isScaled = [&](const Shape& shape) { return shape.height != look.size().height; };
    if (look.isDrawn() || turn.quarters % 2 != 0 || std::ranges::any_of(ladder.shapes, isScaled)) {
      losses.emplace_back("their fields run into each other, where interlaced ones are shaped");
      return;
    }
    const bool isUpsideDown = turn.flipped != (turn.quarters == 2);
    const bool swapsFields = isUpsideDown && plan_.format.height % 2 == 0;
    plan_.topFieldFirst = scanning.topFieldFirst.value_or(true) != swapsFields;
    if (!codesFields(plan_.videoEncoder, av_get_pix_fmt(plan_.pixelFormat.c_str()),
                     plan_.format.height))
      losses.push_back(fmt::format("they stay interlaced, and {} does not code their fields",
                                   plan_.videoEncoder));
  }

  /// Whether any two pictures come faster than a limit.
  bool comesFasterThan(Rational limit, const VideoInfo& video) {
    if (av_cmp_q(toAV(ownRate(video)), toAV(limit)) > 0) return true;
    return comeFasterThan(times(), limit);
  }

  /// When the pictures of the span are shown; empty where nobody knows.
  const std::vector<int64_t>& times() {
    if (!times_) {
      times_ = measures_.times ? measures_.times() : std::vector<int64_t>();
      const int64_t begin = input_.startTime.value_or(0);
      if (plan_.end)
        times_->erase(std::ranges::lower_bound(*times_, av_sat_add64(begin, *plan_.end)),
                      times_->end());
      // The first is the one that is seen where the span begins.
      const auto later = std::ranges::upper_bound(*times_, av_sat_add64(begin, plan_.start));
      if (later != times_->begin()) times_->erase(times_->begin(), later - 1);
    }
    return *times_;
  }

  /// A container of one rate gets one at which no picture is left out. Discs keep theirs.
  void planPace(Rational own, const PictureRates& rates) {
    if (settings_.title || plan_.treatment.separatesFields) return;
    const size_t lost = picturesLostAt(times(), plan_.rate());
    if (lost == 0) return;
    const auto rate = rateForAll(times(), own, settings_.maxFps, rates);
    if (rate) {
      plan_.setRate(*rate);
      plan_.keepsPictures = true;
    }
    plan_.pictures()->losses.push_back(
        rate ? fmt::format("their uneven times: {}, at which none is left out",
                           oneRate(named_.name, plan_.rate()))
             : picturesLost(lost, times().size(), oneRate(named_.name, plan_.rate())));
  }

  /// Pictures per second before any change of rate.
  Rational ownRate(const VideoInfo& video) const {
    const Rational rate = video.frameRate.value_or(kUsualRate);
    return plan_.treatment.separatesFields ? fromAV(av_mul_q(toAV(rate), {2, 1})) : rate;
  }

  const ConversionSettings& settings_;
  const Measures& measures_;
  const LMMediaSource& source_;
  const MediaInfo input_;
  const StreamInfo* pictures_ = nullptr;  // that are kept
  std::optional<std::vector<int64_t>> times_;
  const AVOutputFormat& named_;      // what the result is called
  const AVOutputFormat& container_;  // of its streams
  ConversionPlan plan_;
};

}  // namespace

ConversionPlan planConversion(const ConversionSettings& settings, const LMMediaSource& input,
                              const Measures& measures) {
  return Planner(settings, input, measures).plan();
}

}  // namespace kestrel
