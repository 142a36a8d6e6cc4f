#include "convert/plan/PlanRules.h"
#include "convert/look/LookTable.h"

#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <limits>
#include <set>
#include <utility>

#include "convert/probe/Codecs.h"
#include "convert/probe/EncoderTable.h"
#include "convert/probe/Light.h"
#include "convert/settings/Require.h"
#include "support/Containers.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

using Kind = StreamInfo::Kind;

constexpr int kMost = std::numeric_limits<int>::max();

class PlanRules {
 public:
  PlanRules(const ConversionPlan& plan, const AVFormatContext& input, const std::string& output)
      : plan_(plan), input_(input), output_(output), container_(container()) {}

  void check() const {
    checkSegment();
    for (const PlannedStream& stream : plan_.streams)
      if (stream.isKept()) checkStream(stream);
    const auto pictures = plan_.kept(Kind::kVideo);
    if (pictures.empty() && plan_.kept(Kind::kAudio).empty())
      refuse("streams", "neither pictures nor sound are to be converted");
    if (pictures.size() > 1) refuse("streams", "one stream of pictures can be kept");
    if (!pictures.empty() && pictures.front()->action == StreamAction::kEncode)
      checkPictures(*input_.streams[pictures.front()->sources.front()]);
    requireNumber("start", static_cast<double>(plan_.start), 0, kLatestTime);
    if (plan_.end && *plan_.end < plan_.start) refuse("end", "it lies before the start");
  }

 private:
  const AVOutputFormat& container() const {
    const AVOutputFormat* known = av_guess_format(plan_.formatName.c_str(), nullptr, nullptr);
    if (!known) refuse("formatName", fmt::format("there is no format '{}'", plan_.formatName));
    return *known;
  }

  static AVMediaType typeOf(Kind kind) {
    switch (kind) {
      case Kind::kVideo:
        return AVMEDIA_TYPE_VIDEO;
      case Kind::kAudio:
        return AVMEDIA_TYPE_AUDIO;
      case Kind::kSubtitle:
        return AVMEDIA_TYPE_SUBTITLE;
      case Kind::kAttachment:
        return AVMEDIA_TYPE_ATTACHMENT;
      default:
        return AVMEDIA_TYPE_DATA;
    }
  }

  void checkStream(const PlannedStream& stream) const {
    requireAction("streams.action", stream.action);
    if (stream.sources.empty()) refuse("streams.sources", "no stream is named");
    for (const uint32_t index : stream.sources)
      if (index >= input_.nb_streams ||
          input_.streams[index]->codecpar->codec_type != typeOf(stream.kind))
        refuse("streams.sources", fmt::format("'{}' is no {} stream of the input", index,
                                              av_get_media_type_string(typeOf(stream.kind))));
    const bool isMix = stream.kind == Kind::kAudio && stream.action == StreamAction::kEncode;
    if (stream.sources.size() > 1 && !isMix)
      refuse("streams.sources", "only sound that is encoded can be a mix");
    const bool isMovie =
        !stream.isCover && (stream.kind == Kind::kVideo || stream.kind == Kind::kAudio);
    if (stream.action == StreamAction::kCopy && isMovie)
      requireContainerTakes(container_, *input_.streams[stream.sources.front()], output_);
    if (isMix) checkSound(stream.sound);
    if (stream.kind == Kind::kAudio && stream.action == StreamAction::kCopy &&
        (stream.sound.volume != 1 || stream.sound.loudness))
      refuse("sound.volume", "sound that is copied keeps its own");
  }

  void checkPictures(const AVStream& stream) const {
    const auto& format = plan_.format;
    requireEncodable(container_, static_cast<AVCodecID>(format.video_codec), output_);
    requireNumber("format.width", format.width, 1, kMost);
    requireNumber("format.height", format.height, 1, kMost);
    requireRate("format.framerate", plan_.rate());
    requireNumber("format.video_bitrate", format.video_bitrate, 0, kMost);
    checkPasses();
    if (format.aspect != 0)
      requireNumber("format.aspect", format.aspect, 0, std::numeric_limits<float>::max());
    checkRungs();
    requireDeinterlacing("treatment.deinterlacing", plan_.treatment.deinterlacing);
    requireDenoising("treatment.denoising", plan_.treatment.denoising);
    require(plan_.look);
    if (plan_.picture) checkPicture(*plan_.picture, *stream.codecpar);
    if (plan_.hdr && !isPossible(*plan_.hdr)) refuse("hdr", "no display has such colours or light");
  }

  void checkSegment() const {
    if (!plan_.segment) {
      if (!plan_.rungs.empty()) refuse("rungs", "only HLS has several sizes");
      return;
    }
    if (*plan_.segment < 1) refuse("segment", "a segment lasts longer");
    if (!isMpeg4(container_)) refuse("formatName", "segments are MPEG-4");
    if (plan_.sizeLimit)
      refuse("sizeLimit", "hls is made of many files, and has no size to keep to");
    if (plan_.targetQuality) refuse("targetQuality", "hls is made of many files, none is measured");
  }

  void checkRungs() const {
    std::set<std::pair<int32_t, int32_t>> sizes{{plan_.format.width, plan_.format.height}};
    for (const PictureRung& rung : plan_.rungs) {
      requireNumber("rungs.width", rung.width, 1, kMost);
      requireNumber("rungs.height", rung.height, 1, kMost);
      requireNumber("rungs.bitrate", rung.bitrate, 0, kMost);
      if (rung.aspect != 0) requireAspect("rungs.aspect", rung.aspect);
      if (!sizes.emplace(rung.width, rung.height).second)
        refuse("rungs", fmt::format("{}x{} is there twice", rung.width, rung.height));
    }
    if (plan_.passes == 2 && !plan_.rungs.empty())
      refuse("passes", "the sizes of a ladder are encoded together, in one pass");
  }

  void checkPasses() const {
    requireNumber("passes", plan_.passes, 1, 2);
    if (plan_.sizeLimit && *plan_.sizeLimit < 1) refuse("sizeLimit", "no file is so small");
    if (plan_.passes == 1) return;
    if (passLogOf(plan_.videoEncoder) == PassLog::kNone)
      refuse("passes", fmt::format("the encoder {} knows one pass", plan_.videoEncoder));
    if (plan_.format.video_bitrate == 0 && !plan_.sizeLimit)
      refuse("passes", "a second pass spreads a bit rate or a size limit");
  }

  static void checkPicture(const Area& area, const AVCodecParameters& stored) {
    const bool isWithin = area.x >= 0 && area.y >= 0 && area.width > 0 && area.height > 0 &&
                          int64_t{area.x} + area.width <= stored.width &&
                          int64_t{area.y} + area.height <= stored.height;
    if (!isWithin) refuse("picture", "it reaches beyond the stored picture");
  }

  void checkSound(const SoundEncoding& sound) const {
    requireEncodable(container_, static_cast<AVCodecID>(sound.codec), output_);
    requireNumber("sound.sampleRate", sound.sampleRate, 1, kMost);
    requireNumber("sound.bitrate", sound.bitrate, 0, kMost);
    requireLayout("sound.channelLayout", sound.channelLayout);
    requireVolume("sound.volume", sound.volume);
    whereGiven("sound.loudness", sound.loudness, requireLoudness);
  }

  const ConversionPlan& plan_;
  const AVFormatContext& input_;
  const std::string& output_;
  const AVOutputFormat& container_;
};

}  // namespace

void requirePlan(const ConversionPlan& plan, const LMMediaSource& input,
                 const std::string& output) {
  PlanRules(plan, *input.formatContext(), output).check();
}

}  // namespace kestrel
