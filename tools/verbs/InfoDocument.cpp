#include "tools/verbs/InfoText.h"

#include <fmt/format.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

#include "tools/verbs/Facts.h"

using namespace kestrel;
using nlohmann::ordered_json;

namespace {

ordered_json fraction(const std::optional<Rational>& value, char separator) {
  if (!value) return nullptr;
  return fmt::format("{}{}{}", value->num, separator, value->den);
}

ordered_json tagsDocument(const Tags& tags) {
  auto all = ordered_json::object();
  for (const auto& [name, value] : tags) all[name] = value;
  return all;
}

ordered_json chaptersDocument(const std::vector<ChapterInfo>& chapters) {
  auto all = ordered_json::array();
  for (const ChapterInfo& chapter : chapters)
    all.push_back({{"start", secondsOrNull(chapter.start)},
                   {"end", secondsOrNull(chapter.end)},
                   {"tags", tagsDocument(chapter.tags)}});
  return all;
}

ordered_json hdrDocument(const std::optional<HdrInfo>& hdr) {
  if (!hdr) return nullptr;
  const auto place = [](const Chromaticity& color) {
    return ordered_json{{"x", color.x}, {"y", color.y}};
  };
  ordered_json json;
  for (const char* name : {"red", "green", "blue", "white_point"}) json[name] = nullptr;
  if (hdr->colors) {
    json["red"] = place(hdr->colors->red);
    json["green"] = place(hdr->colors->green);
    json["blue"] = place(hdr->colors->blue);
    json["white_point"] = place(hdr->colors->white);
  }
  json["min_luminance"] = orNull(hdr->darkest);
  json["max_luminance"] = orNull(hdr->brightest);
  json["max_content"] = orNull(hdr->maxContentLight);
  json["max_average"] = orNull(hdr->maxAverageLight);
  return json;
}

const char* nameOf(Scan scan) {
  switch (scan) {
    case Scan::kInterlaced:
      return "interlaced";
    case Scan::kMixed:
      return "mixed";
    default:
      return "progressive";
  }
}

ordered_json scanningDocument(const std::optional<Scanning>& scanning) {
  if (!scanning) return nullptr;
  ordered_json json{{"scan", nameOf(scanning->scan)}, {"marked", scanning->isMarked}};
  json["top_field_first"] = orNull(scanning->topFieldFirst);
  json["pictures"] = scanning->pictures;
  json["combed"] = scanning->combed;
  return json;
}

void addVideo(ordered_json& json, const VideoInfo& video) {
  json["width"] = positiveOrNull(video.width);
  json["height"] = positiveOrNull(video.height);
  json["pix_fmt"] = orNull(video.pixelFormat);
  if (!video.isCover) {
    json["frame_rate"] = fraction(video.frameRate, '/');
    json["avg_frame_rate"] = fraction(video.averageRate, '/');
  }
  json["sample_aspect_ratio"] = fraction(video.pixelAspect, ':');
  json["display_aspect_ratio"] = fraction(video.displayAspect, ':');
  json["rotation"] = std::lround(video.orientation.counterclockwise);
  json["color_space"] = orNull(video.colorSpace);
  json["color_range"] = orNull(video.colorRange);
  json["color_primaries"] = orNull(video.colorPrimaries);
  json["color_transfer"] = orNull(video.colorTransfer);
  json["hdr"] = hdrDocument(video.hdr);
  json["scanning"] = scanningDocument(video.scanning);
}

void addAudio(ordered_json& json, const AudioInfo& audio) {
  json["sample_fmt"] = orNull(audio.sampleFormat);
  json["sample_rate"] = positiveOrNull(audio.sampleRate);
  json["channels"] = positiveOrNull(audio.channels);
  json["channel_layout"] = orNull(audio.layout);
}

ordered_json streamDocument(const StreamInfo& stream) {
  ordered_json json;
  json["index"] = stream.index;
  json["type"] = orNull(stream.type);
  json["codec"] = orNull(stream.codec);
  json["profile"] = orNull(stream.profile);
  json["tag"] = orNull(stream.tag);
  json["language"] = orNull(stream.language);
  json["language_name"] = orNull(stream.languageName);
  if (stream.kind == StreamInfo::Kind::kVideo) addVideo(json, stream.video);
  if (stream.kind == StreamInfo::Kind::kAudio) addAudio(json, stream.audio);
  if (stream.kind == StreamInfo::Kind::kSubtitle && stream.video.width > 0) {
    json["width"] = stream.video.width;
    json["height"] = positiveOrNull(stream.video.height);
  }
  json["bit_rate"] = orNull(stream.bitRate);
  json["start_time"] = secondsOrNull(stream.startTime);
  json["duration"] = secondsOrNull(stream.duration);
  json["disposition"] = stream.disposition;
  json["tags"] = tagsDocument(stream.tags);
  return json;
}

}  // namespace

ordered_json infoDocument(const std::string& path, const MediaInfo& info) {
  ordered_json json;
  json["path"] = path;
  json["format"] = orNull(info.format);
  json["format_long_name"] = orNull(info.formatLongName);
  json["size"] = orNull(info.size);
  json["duration"] = secondsOrNull(info.duration);
  json["start_time"] = secondsOrNull(info.startTime);
  json["bit_rate"] = orNull(info.bitRate);
  json["tags"] = tagsDocument(info.tags);
  json["chapters"] = chaptersDocument(info.chapters);
  json["streams"] = ordered_json::array();
  for (const StreamInfo& stream : info.streams) json["streams"].push_back(streamDocument(stream));
  return json;
}
