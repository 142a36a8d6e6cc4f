#include <gmock/gmock.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>

#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::Pair;

/// What ffprobe writes; "" for what it does not know.
std::string textOf(const json& object, const char* key) {
  const std::string text = object.contains(key) ? object[key].get<std::string>() : "";
  return text == "unknown" || text == "N/A" ? "" : text;
}

/// Seconds that ffprobe writes, in microseconds.
std::optional<int64_t> timeOf(const json& object, const char* key) {
  const std::string text = textOf(object, key);
  return text.empty() ? std::nullopt : std::optional<int64_t>(std::llround(std::stod(text) * 1e6));
}

/// Fractions such as "30000/1001" and "16:9"; none for those without a meaning.
std::optional<Rational> fractionOf(const json& object, const char* key) {
  const std::string text = textOf(object, key);
  const size_t middle = text.find_first_of("/:");
  if (middle == std::string::npos) return std::nullopt;
  const Rational fraction{std::stoi(text), std::stoi(text.substr(middle + 1))};
  return fraction.num > 0 && fraction.den > 0 ? std::optional(fraction) : std::nullopt;
}

/// The entry of a stream's side data that has a key; null without one.
json sideDataWith(const json& stream, const char* key) {
  for (const auto& entry : stream.value("side_data_list", json::array()))
    if (entry.contains(key)) return entry;
  return nullptr;
}

/// Tags in any order.
std::map<std::string, std::string> sorted(const Tags& tags) { return {tags.begin(), tags.end()}; }
std::map<std::string, std::string> tagsOf(const json& object) {
  return object.value("tags", std::map<std::string, std::string>{});
}

void expectSameLight(const VideoInfo& video, const json& probed) {
  const json display = sideDataWith(probed, "max_luminance");
  const json light = sideDataWith(probed, "max_content");
  ASSERT_EQ(video.hdr.has_value(), !display.is_null() || !light.is_null());
  if (!display.is_null()) {
    // ffprobe writes "10000000/10000".
    const auto valueOf = [&](const char* key) {
      const std::string text = display[key];
      return std::stod(text) / std::stod(text.substr(text.find('/') + 1));
    };
    const auto placeOf = [&](const std::string& name) {
      return Chromaticity{valueOf((name + "_x").c_str()), valueOf((name + "_y").c_str())};
    };
    const DisplayColors colors{placeOf("red"), placeOf("green"), placeOf("blue"),
                               placeOf("white_point")};
    EXPECT_EQ(video.hdr->colors, colors);
    EXPECT_EQ(video.hdr->darkest, valueOf("min_luminance"));
    EXPECT_EQ(video.hdr->brightest, valueOf("max_luminance"));
  }
  if (!light.is_null()) {
    EXPECT_EQ(video.hdr->maxContentLight, light["max_content"].get<int>());
    EXPECT_EQ(video.hdr->maxAverageLight, light["max_average"].get<int>());
  }
}

void expectSamePictures(const VideoInfo& video, const json& probed) {
  EXPECT_EQ(video.width, probed.value("width", 0));
  EXPECT_EQ(video.height, probed.value("height", 0));
  EXPECT_EQ(video.pixelFormat, textOf(probed, "pix_fmt"));
  EXPECT_EQ(video.pixelAspect, fractionOf(probed, "sample_aspect_ratio"));
  EXPECT_EQ(video.displayAspect, fractionOf(probed, "display_aspect_ratio"));
  EXPECT_EQ(video.isCover, probed["disposition"]["attached_pic"] == 1);
  const std::string order = textOf(probed, "field_order");
  EXPECT_EQ(video.isInterlaced, !order.empty() && order != "progressive");
  if (!video.isCover) {
    EXPECT_EQ(video.averageRate, fractionOf(probed, "avg_frame_rate"));
  }
  const json turn = sideDataWith(probed, "rotation");
  const double rotation = turn.is_null() ? 0 : turn["rotation"].get<double>();
  EXPECT_NEAR(std::remainder(video.orientation.counterclockwise - rotation, 360), 0, 0.5);
  expectSameLight(video, probed);
}

/// What the container does not tell of the main pictures' colours, the first of them may.
void expectSameColors(const std::filesystem::path& file, const MediaInfo& info,
                      const json& probed) {
  for (const StreamInfo& stream : info.streams) {
    if (stream.kind != StreamInfo::Kind::kVideo) continue;
    SCOPED_TRACE(stream.index);
    const json& container = probed["streams"][stream.index];
    json pictures = json::array();
    if (info.mainVideo == stream.index)
      pictures = ffprobeJson(file, {"-select_streams", std::to_string(stream.index),
                                    "-read_intervals", "%+#5", "-show_frames"})["frames"];
    const json picture = pictures.empty() ? json() : pictures.front();
    const auto told = [&](const char* key) {
      const std::string text = textOf(container, key);
      return text.empty() ? textOf(picture, key) : text;
    };
    EXPECT_EQ(stream.video.colorSpace, told("color_space"));
    EXPECT_EQ(stream.video.colorRange, told("color_range"));
    EXPECT_EQ(stream.video.colorPrimaries, told("color_primaries"));
    EXPECT_EQ(stream.video.colorTransfer, told("color_transfer"));
  }
}

void expectSameStream(const StreamInfo& stream, const json& probed) {
  SCOPED_TRACE(stream.index);
  EXPECT_EQ(stream.index, probed["index"]);
  EXPECT_EQ(stream.type, textOf(probed, "codec_type"));
  EXPECT_EQ(stream.codec, textOf(probed, "codec_name"));
  // ffprobe writes the number of one without a name.
  const std::string profile = textOf(probed, "profile");
  const bool isNamed = profile.find_first_not_of("-0123456789") != std::string::npos;
  EXPECT_TRUE(stream.profile == profile || (!isNamed && stream.profile.empty())) << profile;
  EXPECT_EQ(stream.startTime, timeOf(probed, "start_time"));
  EXPECT_EQ(stream.duration, timeOf(probed, "duration"));
  EXPECT_EQ(sorted(stream.tags), tagsOf(probed));
  std::string language;
  for (const auto& [name, value] : tagsOf(probed))
    if (name == "language" || name == "LANGUAGE") language = value;
  EXPECT_EQ(stream.language, language == "und" ? "" : language);
  for (const auto& [flag, value] : probed["disposition"].items())
    EXPECT_EQ(std::ranges::count(stream.disposition, flag), value) << flag;
  if (stream.kind == StreamInfo::Kind::kVideo) expectSamePictures(stream.video, probed);
  if (stream.kind != StreamInfo::Kind::kAudio) return;
  EXPECT_EQ(stream.audio.sampleFormat, textOf(probed, "sample_fmt"));
  EXPECT_EQ(std::to_string(stream.audio.sampleRate), textOf(probed, "sample_rate"));
  EXPECT_EQ(stream.audio.channels, probed["channels"]);
  EXPECT_EQ(stream.audio.layout, textOf(probed, "channel_layout"));
}

/// Some count their length from 0, wherever their first time stamp lies.
std::optional<int64_t> lengthOf(const json& format) {
  const auto length = timeOf(format, "duration");
  const bool countsFromZero =
      format["format_name"] == "matroska,webm" || format["format_name"] == "nut";
  if (!length || !countsFromZero) return length;
  return *length - std::max<int64_t>(timeOf(format, "start_time").value_or(0), 0);
}

void expectAgreesWithFfprobe(const std::filesystem::path& file) {
  SCOPED_TRACE(file.string());
  const MediaInfo info = readMediaInfo(file.string());
  const json probed = ffprobeJson(file);
  const json& format = probed["format"];
  EXPECT_EQ(info.format, format["format_name"]);
  EXPECT_EQ(info.formatLongName, textOf(format, "format_long_name"));
  EXPECT_EQ(info.size, std::filesystem::file_size(file));
  EXPECT_EQ(info.startTime, timeOf(format, "start_time"));
  EXPECT_EQ(info.duration, lengthOf(format));
  EXPECT_EQ(sorted(info.tags), tagsOf(format));
  ASSERT_EQ(info.chapters.size(), probed["chapters"].size());
  for (size_t i = 0; i < info.chapters.size(); ++i) {
    EXPECT_EQ(info.chapters[i].start, timeOf(probed["chapters"][i], "start_time"));
    EXPECT_EQ(info.chapters[i].end, timeOf(probed["chapters"][i], "end_time"));
    EXPECT_EQ(sorted(info.chapters[i].tags), tagsOf(probed["chapters"][i]));
  }
  ASSERT_EQ(info.streams.size(), probed["streams"].size());
  for (size_t i = 0; i < info.streams.size(); ++i)
    expectSameStream(info.streams[i], probed["streams"][i]);
  expectSameColors(file, info, probed);
}

TEST(MediaInfo, AgreesWithFfprobeOnEveryKindOfContainer) {
  for (const char* name :
       {"av25.mp4", "av25.ts", "av25.mpg", "av-tracks.mkv", "av-tags.mp4", "av-rotated.mp4",
        "cover.m4a", "mjpeg.avi", "pcm-5.1-48000-s16.wav", "bars-709-full.mp4", "bars-601.mp4",
        "wide-pixels.mp4", "numbered25-interlaced.mxf", "numbered25-from-60.mkv",
        "numbered25-from-60.nut", "subtitles.srt"})
    expectAgreesWithFfprobe(fixture(name));
}

TEST(MediaInfo, AgreesWithFfprobeOnRealFiles) {
  const auto folder = mediaFile("").parent_path();
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no " << folder.string();
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    if (entry.path().extension() != ".md") expectAgreesWithFfprobe(entry.path());
}

/// The one stream of pictures of a file.
VideoInfo picturesOf(const std::filesystem::path& file) {
  const MediaInfo info = readMediaInfo(file.string());
  return info.streams.at(info.mainVideo.value()).video;
}

TEST(MediaInfo, TheTrueRateIsThatOfThePictures) {
  for (const auto& [name, rate] : {std::pair{"av25.mp4", Rational{25, 1}},
                                   {"av24000-1001.mp4", {24000, 1001}},
                                   {"av30000-1001.mp4", {30000, 1001}},
                                   {"av60.mp4", {60, 1}},
                                   {"av-vfr.mp4", {25, 1}},
                                   {"slow0.2.mp4", {1, 5}},
                                   {"late-pictures.ts", {25, 1}}})
    EXPECT_EQ(picturesOf(fixture(name)).frameRate, rate) << name;
}

TEST(MediaInfo, TheTrueRateOfRealFiles) {
  // By the clips' makers. Fields and ticks of the clock are no pictures.
  for (const auto& [name, rate] : {std::pair{"interlaced-360p25-h264-paff.mp4", Rational{25, 1}},
                                   {"interlaced-480-mpeg2.mpg", {30, 1}},
                                   {"ntsc-480-h264-ac3.mp4", {30000, 1001}},
                                   {"hdr10-720p60-prores.mxf", {60000, 1001}},
                                   {"chaplin-360p25-h264-mp3.mp4", {25, 1}}}) {
    KESTREL_NEED_MEDIA(name);
    EXPECT_EQ(picturesOf(mediaFile(name)).frameRate, rate) << name;
  }
}

TEST(MediaInfo, ACoverIsNoMovie) {
  const MediaInfo info = readMediaInfo(fixture("cover.m4a").string());
  EXPECT_EQ(info.mainVideo, std::nullopt);
  EXPECT_EQ(info.cover, 1u);
  EXPECT_EQ(info.streams[1].video.frameRate, std::nullopt);
  EXPECT_THAT(info.audioTracks, ElementsAre(0u));
}

TEST(MediaInfo, AttachmentsHaveNames) {
  const TempDir folder;
  const auto file = folder / "a.mkv";
  const RunResult made = run({"ffmpeg", "-v", "error", "-i", fixture("video-only.mkv").string(),
                              "-c", "copy", "-attach", fixture("subtitles.srt").string(),
                              "-metadata:s:t", "mimetype=font/ttf", file.string()});
  ASSERT_EQ(made.status, 0) << made.err;
  const MediaInfo info = readMediaInfo(file.string());
  ASSERT_EQ(info.streams.size(), 2u);
  EXPECT_EQ(info.streams[1].kind, StreamInfo::Kind::kAttachment);
  EXPECT_THAT(info.streams[1].tags, testing::Contains(Pair("filename", "subtitles.srt")));
}

TEST(MediaInfo, PicturesMayHaveAnAlpha) {
  EXPECT_FALSE(picturesOf(fixture("av25.mp4")).hasAlpha);
  for (const char* name : {"prores-4444-alpha.mov", "alpha-vp9-vorbis.webm"}) {
    KESTREL_NEED_MEDIA(name);
    EXPECT_TRUE(picturesOf(mediaFile(name)).hasAlpha) << name;
  }
}

TEST(MediaInfo, PromisesCountFromTheStart) {
  for (const char* name :
       {"numbered25.mp4", "numbered25-from-60.mp4", "numbered25-from-60.mkv", "numbered25.mkv"}) {
    SCOPED_TRACE(name);
    const MediaInfo info = readMediaInfo(fixture(name).string());
    EXPECT_NEAR(static_cast<double>(info.promisedLength), 5e6, 50000);
    for (const StreamInfo& stream : info.streams)
      EXPECT_NEAR(static_cast<double>(stream.promisedLength), 5e6, 50000);
  }
  // Sound of one second beside pictures of four, and the other way round.
  const MediaInfo shorter = readMediaInfo(fixture("sound-shorter.mkv").string());
  EXPECT_NEAR(static_cast<double>(shorter.streams[0].promisedLength), 4e6, 50000);
  EXPECT_NEAR(static_cast<double>(shorter.streams[1].promisedLength), 1e6, 50000);
}

TEST(MediaInfo, NothingIsPromisedWhereNothingIsTold) {
  EXPECT_EQ(readMediaInfo(fixture("av-live.mkv").string()).promisedLength, 0);
  EXPECT_EQ(readMediaInfo(fixture("bare.h264").string()).promisedLength, 0);
}

TEST(MediaInfo, WhatCannotBeOpenedIsAFailure) {
  EXPECT_THROW(readMediaInfo("missing.mp4"), Failure);
  EXPECT_THROW(readMediaInfo("/"), Failure);
  EXPECT_THROW(readMediaInfo(fixture("av25.mp4").string(), 1), Failure);
  EXPECT_THROW(readMediaInfo(fixture("av25.mp4").string(), {}, [] { return true; }), Failure);
}

}  // namespace
}  // namespace kestrel::test
