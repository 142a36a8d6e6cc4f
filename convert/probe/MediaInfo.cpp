#include <kestrel/convert/MediaInfo.h>

#include <kestrel/LMMediaSource.h>
#include <kestrel/LibMedia.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "convert/probe/Colors.h"
#include "convert/probe/Input.h"
#include "convert/probe/InputEnd.h"
#include "convert/probe/Languages.h"
#include "convert/probe/Light.h"
#include "convert/probe/Streams.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

/// Beyond this many pictures per second a rate is the unit of the time stamps.
constexpr double kHighestRate = 1000;

std::string orEmpty(const char* text) { return text ? text : ""; }

std::optional<int64_t> ifPositive(int64_t number) {
  return number > 0 ? std::optional(number) : std::nullopt;
}

bool isPositive(AVRational fraction) { return fraction.num > 0 && fraction.den > 0; }

std::optional<Rational> ifPositive(AVRational fraction) {
  return isPositive(fraction) ? std::optional(Rational{fraction.num, fraction.den}) : std::nullopt;
}

std::optional<int64_t> microseconds(int64_t time, AVRational base) {
  if (time == AV_NOPTS_VALUE || !isPositive(base)) return std::nullopt;
  return av_rescale_q(time, base, AV_TIME_BASE_Q);
}

Tags tagsIn(const AVDictionary* dictionary) {
  Tags tags;
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)))
    tags.emplace_back(entry->key, entry->value);
  return tags;
}

std::string tagText(uint32_t tag) {
  if (tag == 0) return {};
  std::array<char, AV_FOURCC_MAX_STRING_SIZE> text{};
  return av_fourcc_make_string(text.data(), tag);
}

/// The name of a language; "" for a code without one, which would be shown as English.
std::string nameOfLanguage(const std::string& code) {
  const std::string name = LibMedia::displayStringForLanguage(code);
  const bool isStandIn = name == LibMedia::displayStringForLanguage("");
  return isStandIn && !code.starts_with("en") ? std::string() : name;
}

StreamInfo::Kind kindOf(AVMediaType type) {
  switch (type) {
    case AVMEDIA_TYPE_VIDEO:
      return StreamInfo::Kind::kVideo;
    case AVMEDIA_TYPE_AUDIO:
      return StreamInfo::Kind::kAudio;
    case AVMEDIA_TYPE_SUBTITLE:
      return StreamInfo::Kind::kSubtitle;
    case AVMEDIA_TYPE_ATTACHMENT:
      return StreamInfo::Kind::kAttachment;
    default:
      return StreamInfo::Kind::kData;
  }
}

std::vector<std::string> dispositionNames(int flags) {
  std::vector<std::string> names;
  for (unsigned bit = 1; bit != 0; bit <<= 1) {
    if (!(static_cast<unsigned>(flags) & bit)) continue;
    if (const char* name = av_disposition_to_string(static_cast<int>(bit))) names.push_back(name);
  }
  return names;
}

std::optional<Rational> trueRate(AVStream& stream) {
  const auto isRate = [](AVRational rate) {
    return isPositive(rate) && av_q2d(rate) < kHighestRate;
  };
  if (!isRate(stream.r_frame_rate) && !isRate(stream.avg_frame_rate)) return std::nullopt;
  return realFrameRate(stream);
}

void tellShape(VideoInfo& video, AVStream& stream) {
  const AVCodecParameters& codec = *stream.codecpar;
  video.width = std::max(codec.width, 0);
  video.height = std::max(codec.height, 0);
  const AVRational sample = av_guess_sample_aspect_ratio(nullptr, &stream, nullptr);
  video.pixelAspect = ifPositive(sample);
  if (!isPositive(sample)) return;
  AVRational display{0, 1};
  av_reduce(&display.num, &display.den, int64_t{codec.width} * sample.num,
            int64_t{codec.height} * sample.den, 1 << 20);
  video.displayAspect = ifPositive(display);
}

VideoInfo videoInfo(AVStream& stream) {
  const AVCodecParameters& codec = *stream.codecpar;
  VideoInfo video;
  const auto format = static_cast<AVPixelFormat>(codec.format);
  video.pixelFormat = orEmpty(av_get_pix_fmt_name(format));
  if (const AVPixFmtDescriptor* pixels = av_pix_fmt_desc_get(format))
    video.bitDepth = pixels->comp[0].depth;
  video.hasAlpha = hasAlpha(stream);
  video.isCover = (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
  video.isInterlaced =
      codec.field_order != AV_FIELD_UNKNOWN && codec.field_order != AV_FIELD_PROGRESSIVE;
  if (!video.isCover) {
    video.frameRate = trueRate(stream);
    video.averageRate = ifPositive(stream.avg_frame_rate);
  }
  tellShape(video, stream);
  video.orientation = orientationOf(stream);
  tellColors(video, {codec.color_primaries, codec.color_trc, codec.color_space, codec.color_range},
             codec.format);
  video.hdr = lightOf(stream);
  return video;
}

AudioInfo audioInfo(const AVCodecParameters& codec) {
  AudioInfo audio;
  audio.sampleFormat = orEmpty(av_get_sample_fmt_name(static_cast<AVSampleFormat>(codec.format)));
  audio.sampleRate = std::max(codec.sample_rate, 0);
  audio.channels = std::max(codec.ch_layout.nb_channels, 0);
  std::array<char, 128> text{};
  const bool isKnown = codec.ch_layout.order != AV_CHANNEL_ORDER_UNSPEC &&
                       av_channel_layout_describe(&codec.ch_layout, text.data(), text.size()) >= 0;
  if (isKnown) audio.layout = text.data();
  return audio;
}

StreamInfo streamInfo(const AVFormatContext& input, AVStream& stream) {
  const AVCodecParameters& codec = *stream.codecpar;
  StreamInfo info;
  info.index = static_cast<uint32_t>(stream.index);
  info.kind = kindOf(codec.codec_type);
  info.type = orEmpty(av_get_media_type_string(codec.codec_type));
  if (codec.codec_id != AV_CODEC_ID_NONE) info.codec = orEmpty(avcodec_get_name(codec.codec_id));
  info.profile = orEmpty(avcodec_profile_name(codec.codec_id, codec.profile));
  info.tag = tagText(codec.codec_tag);
  info.language = languageOf(stream);
  if (!info.language.empty()) info.languageName = nameOfLanguage(info.language);
  info.bitRate = ifPositive(codec.bit_rate);
  info.startTime = microseconds(stream.start_time, stream.time_base);
  info.duration = microseconds(stream.duration, stream.time_base);
  info.disposition = dispositionNames(stream.disposition);
  info.tags = tagsIn(stream.metadata);
  const PromisedLength promised = promisedLength(input, IndexSet{info.index});
  info.promisedLength = promised.isOfOthers ? 0 : promised.time;
  if (info.kind == StreamInfo::Kind::kVideo) info.video = videoInfo(stream);
  if (info.kind == StreamInfo::Kind::kAudio) info.audio = audioInfo(codec);
  if (info.kind == StreamInfo::Kind::kSubtitle) {
    info.video.width = std::max(codec.width, 0);
    info.video.height = std::max(codec.height, 0);
  }
  return info;
}

std::optional<uint32_t> coverOf(const MediaInfo& info) {
  const auto cover = std::ranges::find_if(
      info.streams, [](const StreamInfo& stream) { return stream.video.isCover; });
  return cover == info.streams.end() ? std::nullopt : std::optional(cover->index);
}

}  // namespace

MediaInfo mediaInfoOf(const LMMediaSource& source) {
  MediaInfo info;
  if (!source.formatContext()) return info;
  AVFormatContext& input = *source.formatContext();
  info.format = orEmpty(input.iformat->name);
  info.formatLongName = orEmpty(input.iformat->long_name);
  info.size = ifPositive(input.pb ? avio_size(input.pb) : 0);
  info.duration = microseconds(input.duration, AV_TIME_BASE_Q);
  info.startTime = microseconds(input.start_time, AV_TIME_BASE_Q);
  info.bitRate = ifPositive(input.bit_rate);
  info.tags = tagsIn(input.metadata);
  for (unsigned i = 0; i < input.nb_chapters; ++i) {
    const AVChapter& chapter = *input.chapters[i];
    info.chapters.push_back({microseconds(chapter.start, chapter.time_base),
                             microseconds(chapter.end, chapter.time_base),
                             tagsIn(chapter.metadata)});
  }
  for (unsigned i = 0; i < input.nb_streams; ++i)
    info.streams.push_back(streamInfo(input, *input.streams[i]));
  info.mainVideo = mainVideo(input);
  info.cover = coverOf(info);
  info.audioTracks = audioTracksOf(source);
  info.promisedLength = promisedLength(input);
  return info;
}

MediaInfo readMediaInfo(const std::string& path, std::optional<int> title,
                        const Interrupt& interrupt, int angle, const Protocols& protocols) {
  const auto source = openInput(path, title, interrupt, angle, protocols);
  MediaInfo info = mediaInfoOf(*source);
  learnColors(info, source);
  return info;
}

}  // namespace kestrel
