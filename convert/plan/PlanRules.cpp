#include "convert/plan/PlanRules.h"

#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <limits>

#include "convert/probe/Codecs.h"
#include "convert/settings/Require.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

constexpr int kMost = std::numeric_limits<int>::max();

class PlanRules {
 public:
  PlanRules(const ConversionPlan& plan, const AVFormatContext& input, const std::string& output)
      : plan_(plan), input_(input), output_(output), container_(container()) {}

  void check() const {
    requireAction("video", plan_.video);
    requireAction("audio", plan_.audio);
    const bool isEmpty = plan_.video == StreamAction::kNone && plan_.audio == StreamAction::kNone;
    if (isEmpty) refuse("video", "neither pictures nor sound are to be converted");
    if (plan_.video != StreamAction::kNone) checkVideo();
    if (plan_.audio != StreamAction::kNone) checkAudio();
    requireNumber("start", static_cast<double>(plan_.start), 0, kLatestTime);
    if (plan_.end && *plan_.end < plan_.start) refuse("end", "it lies before the start");
  }

 private:
  const AVOutputFormat& container() const {
    const AVOutputFormat* known = av_guess_format(plan_.formatName.c_str(), nullptr, nullptr);
    if (!known) refuse("formatName", fmt::format("there is no format '{}'", plan_.formatName));
    return *known;
  }

  const AVStream& streamAt(const std::string& member, uint32_t index, AVMediaType type) const {
    if (index >= input_.nb_streams || input_.streams[index]->codecpar->codec_type != type)
      refuse(member, fmt::format("'{}' is no {} stream of the input", index,
                                 av_get_media_type_string(type)));
    return *input_.streams[index];
  }

  void checkVideo() const {
    if (!plan_.videoIndex) refuse("videoIndex", "no stream is named");
    const AVStream& stream = streamAt("videoIndex", *plan_.videoIndex, AVMEDIA_TYPE_VIDEO);
    if (plan_.video == StreamAction::kCopy)
      return requireContainerTakes(container_, stream, output_);
    const auto& format = plan_.format;
    requireEncodable(container_, static_cast<AVCodecID>(format.video_codec), output_);
    requireNumber("format.width", format.width, 1, kMost);
    requireNumber("format.height", format.height, 1, kMost);
    requireRate("format.framerate", plan_.rate());
    requireNumber("format.video_bitrate", format.video_bitrate, 0, kMost);
    if (format.aspect != 0)
      requireNumber("format.aspect", format.aspect, 0, std::numeric_limits<float>::max());
    requireDeinterlacing("deinterlacing", plan_.deinterlacing);
    require(plan_.look);
    if (plan_.picture) checkPicture(*plan_.picture, *stream.codecpar);
  }

  static void checkPicture(const Area& area, const AVCodecParameters& stored) {
    const bool isWithin = area.x >= 0 && area.y >= 0 && area.width > 0 && area.height > 0 &&
                          int64_t{area.x} + area.width <= stored.width &&
                          int64_t{area.y} + area.height <= stored.height;
    if (!isWithin) refuse("picture", "it reaches beyond the stored picture");
  }

  void checkAudio() const {
    for (const uint32_t index : plan_.audioIndexes)
      streamAt("audioIndexes", index, AVMEDIA_TYPE_AUDIO);
    if (plan_.audioTracks.empty()) refuse("audioTracks", "no track is chosen");
    for (const uint32_t track : plan_.audioTracks)
      if (track >= plan_.audioIndexes.size())
        refuse("audioTracks", fmt::format("'{}' is none of the {} that are opened", track,
                                          plan_.audioIndexes.size()));
    if (plan_.audio == StreamAction::kCopy) return checkCopiedAudio();
    const auto& format = plan_.format;
    requireEncodable(container_, static_cast<AVCodecID>(format.audio_codec), output_);
    requireNumber("format.sample_rate", format.sample_rate, 1, kMost);
    requireNumber("format.audio_bitrate", format.audio_bitrate, 0, kMost);
    requireLayout("format.channel_layout", format.channel_layout);
    requireVolume("volume", plan_.volume);
  }

  void checkCopiedAudio() const {
    if (plan_.audioTracks.size() > 1)
      refuse("audioTracks", "only one audio track can be copied at a time");
    const uint32_t index = *std::next(plan_.audioIndexes.begin(), *plan_.audioTracks.begin());
    requireContainerTakes(container_, *input_.streams[index], output_);
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
