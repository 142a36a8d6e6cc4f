#include "InfoDocument.h"

#include <fmt/format.h>
#include <kestrel/LibMedia.h>

#include <array>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string_view>

#include "ConvertPlan.h"
#include "Rotation.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/pixdesc.h>
}

using nlohmann::ordered_json;

namespace {

/// Beyond this many pictures per second a rate is the unit of the time stamps.
constexpr double kHighestRate = 1000;

constexpr AVRational kMicroseconds{1, AV_TIME_BASE};

ordered_json orNull(const char* text) { return text ? ordered_json(text) : ordered_json(nullptr); }

ordered_json positiveOrNull(int64_t number) {
  return number > 0 ? ordered_json(number) : ordered_json(nullptr);
}

/// Seconds to the microsecond.
ordered_json seconds(int64_t time, AVRational base) {
  if (time == AV_NOPTS_VALUE || base.num <= 0 || base.den <= 0) return nullptr;
  return std::round(static_cast<double>(time) * av_q2d(base) * 1e6) / 1e6;
}

bool isPositive(AVRational fraction) { return fraction.num > 0 && fraction.den > 0; }

ordered_json fraction(AVRational value, char separator) {
  if (!isPositive(value)) return nullptr;
  return fmt::format("{}{}{}", value.num, separator, value.den);
}

ordered_json tags(const AVDictionary* dictionary) {
  auto all = ordered_json::object();
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)))
    all[entry->key] = entry->value;
  return all;
}

ordered_json chapters(const AVFormatContext& input) {
  auto all = ordered_json::array();
  for (unsigned i = 0; i < input.nb_chapters; ++i) {
    const AVChapter& chapter = *input.chapters[i];
    all.push_back({{"start", seconds(chapter.start, chapter.time_base)},
                   {"end", seconds(chapter.end, chapter.time_base)},
                   {"tags", tags(chapter.metadata)}});
  }
  return all;
}

ordered_json codecTag(uint32_t tag) {
  if (tag == 0) return nullptr;
  std::array<char, AV_FOURCC_MAX_STRING_SIZE> text{};
  return av_fourcc_make_string(text.data(), tag);
}

/// The name of a language; null for a code without one, which the engine would show as English.
ordered_json languageName(const std::string& code) {
  const std::string name = kestrel::LibMedia::displayStringForLanguage(code);
  const bool isStandIn = name == kestrel::LibMedia::displayStringForLanguage("");
  if (isStandIn && !code.starts_with("en")) return nullptr;
  return name;
}

void addLanguage(ordered_json& json, const AVStream& stream) {
  const auto* entry = av_dict_get(stream.metadata, "language", nullptr, 0);
  const std::string code = entry ? entry->value : "";
  const bool isKnown = !code.empty() && code != "und";
  json["language"] = isKnown ? ordered_json(code) : ordered_json(nullptr);
  json["language_name"] = isKnown ? languageName(code) : ordered_json(nullptr);
}

ordered_json frameRate(const AVStream& stream) {
  const auto isRate = [](AVRational rate) {
    return isPositive(rate) && av_q2d(rate) < kHighestRate;
  };
  if (!isRate(stream.r_frame_rate) && !isRate(stream.avg_frame_rate)) return nullptr;
  const kestrel::Rational rate = realFrameRate(stream);
  return fraction({rate.num, rate.den}, '/');
}

void addShape(ordered_json& json, AVFormatContext& input, AVStream& stream) {
  const AVCodecParameters& codec = *stream.codecpar;
  const AVRational sample = av_guess_sample_aspect_ratio(&input, &stream, nullptr);
  AVRational display{0, 1};
  if (isPositive(sample)) {
    av_reduce(&display.num, &display.den, int64_t{codec.width} * sample.num,
              int64_t{codec.height} * sample.den, 1 << 20);
  }
  json["sample_aspect_ratio"] = fraction(sample, ':');
  json["display_aspect_ratio"] = fraction(display, ':');
  json["rotation"] = std::lround(orientationOf(stream).counterclockwise);
}

void addColor(ordered_json& json, const AVCodecParameters& codec) {
  const auto unless = [](bool isUnknown, const char* name) {
    return isUnknown ? ordered_json(nullptr) : orNull(name);
  };
  json["color_space"] =
      unless(codec.color_space == AVCOL_SPC_UNSPECIFIED, av_color_space_name(codec.color_space));
  json["color_range"] =
      unless(codec.color_range == AVCOL_RANGE_UNSPECIFIED, av_color_range_name(codec.color_range));
  json["color_primaries"] = unless(codec.color_primaries == AVCOL_PRI_UNSPECIFIED,
                                   av_color_primaries_name(codec.color_primaries));
  json["color_transfer"] =
      unless(codec.color_trc == AVCOL_TRC_UNSPECIFIED, av_color_transfer_name(codec.color_trc));
}

void addVideo(ordered_json& json, AVFormatContext& input, AVStream& stream) {
  const AVCodecParameters& codec = *stream.codecpar;
  json["width"] = positiveOrNull(codec.width);
  json["height"] = positiveOrNull(codec.height);
  json["pix_fmt"] = orNull(av_get_pix_fmt_name(static_cast<AVPixelFormat>(codec.format)));
  if (!(stream.disposition & AV_DISPOSITION_ATTACHED_PIC)) {
    json["frame_rate"] = frameRate(stream);
    json["avg_frame_rate"] = fraction(stream.avg_frame_rate, '/');
  }
  addShape(json, input, stream);
  addColor(json, codec);
}

ordered_json channelLayout(const AVChannelLayout& layout) {
  std::array<char, 128> text{};
  if (layout.order == AV_CHANNEL_ORDER_UNSPEC) return nullptr;
  if (av_channel_layout_describe(&layout, text.data(), text.size()) < 0) return nullptr;
  return text.data();
}

void addAudio(ordered_json& json, const AVCodecParameters& codec) {
  json["sample_fmt"] = orNull(av_get_sample_fmt_name(static_cast<AVSampleFormat>(codec.format)));
  json["sample_rate"] = positiveOrNull(codec.sample_rate);
  json["channels"] = positiveOrNull(codec.ch_layout.nb_channels);
  json["channel_layout"] = channelLayout(codec.ch_layout);
}

ordered_json disposition(int flags) {
  auto all = ordered_json::array();
  for (unsigned bit = 1; bit != 0; bit <<= 1) {
    if (!(static_cast<unsigned>(flags) & bit)) continue;
    if (const char* name = av_disposition_to_string(static_cast<int>(bit))) all.push_back(name);
  }
  return all;
}

ordered_json streamDocument(AVFormatContext& input, AVStream& stream) {
  const AVCodecParameters& codec = *stream.codecpar;
  ordered_json json;
  json["index"] = stream.index;
  json["type"] = orNull(av_get_media_type_string(codec.codec_type));
  json["codec"] = codec.codec_id == AV_CODEC_ID_NONE ? ordered_json(nullptr)
                                                     : orNull(avcodec_get_name(codec.codec_id));
  json["profile"] = orNull(avcodec_profile_name(codec.codec_id, codec.profile));
  json["tag"] = codecTag(codec.codec_tag);
  addLanguage(json, stream);
  if (codec.codec_type == AVMEDIA_TYPE_VIDEO) addVideo(json, input, stream);
  if (codec.codec_type == AVMEDIA_TYPE_AUDIO) addAudio(json, codec);
  json["bit_rate"] = positiveOrNull(codec.bit_rate);
  json["start_time"] = seconds(stream.start_time, stream.time_base);
  json["duration"] = seconds(stream.duration, stream.time_base);
  json["disposition"] = disposition(stream.disposition);
  json["tags"] = tags(stream.metadata);
  return json;
}

}  // namespace

ordered_json infoDocument(const std::string& path, AVFormatContext& input) {
  ordered_json json;
  json["path"] = path;
  json["format"] = orNull(input.iformat->name);
  json["format_long_name"] = orNull(input.iformat->long_name);
  json["size"] = positiveOrNull(input.pb ? avio_size(input.pb) : 0);
  json["duration"] = seconds(input.duration, kMicroseconds);
  json["start_time"] = seconds(input.start_time, kMicroseconds);
  json["bit_rate"] = positiveOrNull(input.bit_rate);
  json["tags"] = tags(input.metadata);
  json["chapters"] = chapters(input);
  json["streams"] = ordered_json::array();
  for (unsigned i = 0; i < input.nb_streams; ++i)
    json["streams"].push_back(streamDocument(input, *input.streams[i]));
  return json;
}
