#include <gmock/gmock.h>
#include <kestrel/convert/Conversion.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "tests/convert/Failures.h"
#include "tests/convert/Hls.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/Peer.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Names = std::set<std::string>;
using Times = std::vector<double>;

std::string text(const nlohmann::json& value) { return value.get<std::string>(); }
double number(const nlohmann::json& value) { return std::stod(text(value)); }

/// A rendition as one file, as players see it: its head and segments one behind the other.
fs::path whole(const MediaPlaylist& playlist, const TempDir& folder) {
  std::string bytes = readBytes(playlist.folder / playlist.head);
  for (const std::string& file : playlist.files) bytes += readBytes(playlist.folder / file);
  const fs::path path = folder / (playlist.folder.filename().string() + ".mp4");
  writeBytes(path, bytes);
  return path;
}

nlohmann::json packetsOf(const fs::path& file) {
  return ffprobeJson(file, {"-show_entries", "packet=pts_time,duration_time,flags"})["packets"];
}

/// When the key pictures of a file show, seconds.
Times keysOf(const fs::path& file) {
  Times times;
  for (const auto& packet : packetsOf(file))
    if (text(packet["flags"]).starts_with("K")) times.push_back(number(packet["pts_time"]));
  std::ranges::sort(times);
  return times;
}

/// Where segments begin by their playlist.
Times startsOf(const MediaPlaylist& playlist) {
  Times starts;
  double time = 0;
  for (const double length : playlist.lengths) {
    starts.push_back(time);
    time += length;
  }
  return starts;
}

int countPictures(const fs::path& file) {
  const auto info = ffprobeJson(
      file, {"-select_streams", "v", "-count_frames", "-show_entries", "stream=nb_read_frames"});
  return std::stoi(text(info["streams"][0]["nb_read_frames"]));
}

/// What ffmpeg complains of while it decodes all of a file.
std::string complaints(const fs::path& file) {
  const RunResult result =
      runPeer({"ffmpeg", "-v", "error", "-nostdin", "-i", file.string(), "-f", "null", "-"});
  return result.err;
}

/// The most bits per second of neighbouring segments that last between half and one and a half
/// target durations (RFC 8216, 4.1), by the sizes of their files.
double peakOf(const MediaPlaylist& playlist) {
  double peak = 0;
  for (size_t first = 0; first < playlist.files.size(); ++first)
    for (size_t last = first; last < playlist.files.size(); ++last) {
      MediaPlaylist part{.folder = playlist.folder};
      for (size_t i = first; i <= last; ++i) {
        part.files.push_back(playlist.files[i]);
        part.lengths.push_back(playlist.lengths[i]);
      }
      const double share = part.length() / playlist.target;
      if (share >= 0.5 && share <= 1.5)
        peak = std::max(peak, 8 * static_cast<double>(part.bytes()) / part.length());
    }
  return peak;
}

class HlsConversion : public testing::Test {
 protected:
  ConversionSettings settings(const std::string& input, std::vector<int> ladder = {}) const {
    return {.input = fixture(input).string(),
            .output = master().string(),
            .fragment = 0.4,
            .ladder = std::move(ladder)};
  }

  fs::path master() const { return folder_ / "out.m3u8"; }
  Names names() const { return namesIn(folder_.path()); }

  const TempDir folder_;
  const TempDir scratch_;
};

// 50 pictures, 25 a second: ten in each of five segments.
TEST_F(HlsConversion, AllSizesHaveTheirKeyPicturesAtTheSameTimes) {
  const Report report = Conversion(settings("av25.mp4", {90, 180, 120})).run();
  EXPECT_TRUE(report.isWhole());
  EXPECT_THAT(report.leftOut, IsEmpty());
  const MasterPlaylist all = readHls(master());
  ASSERT_EQ(all.variants.size(), 3u);
  const std::vector<std::string> sizes{"320x180", "214x120", "160x90"};
  for (size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(sizes[i]);
    const MediaPlaylist& playlist = all.variants[i].playlist;
    EXPECT_EQ(all.variants[i].attributes.at("RESOLUTION"), sizes[i]);
    EXPECT_EQ(all.variants[i].attributes.at("FRAME-RATE"), "25.000");
    EXPECT_THAT(playlist.lengths, ElementsAre(0.4, 0.4, 0.4, 0.4, 0.4));
    const fs::path file = whole(playlist, scratch_);
    EXPECT_THAT(keysOf(file), ElementsAre(0, 0.4, 0.8, 1.2, 1.6));
    EXPECT_EQ(countPictures(file), 50);
    EXPECT_EQ(complaints(file), "");
    const auto stream = ffprobeJson(file)["streams"][0];
    EXPECT_EQ(text(all.variants[i].attributes.at("RESOLUTION")),
              std::to_string(stream["width"].get<int>()) + "x" +
                  std::to_string(stream["height"].get<int>()));
    EXPECT_EQ(text(stream["start_time"]), "0.000000");
  }
}

// Each segment can be begun with: what is decoded from its head and itself is what is decoded of
// all.
TEST_F(HlsConversion, EachSegmentIsDecodedByItself) {
  Conversion(settings("av25.mp4", {90})).run();
  const MediaPlaylist playlist = readHls(master()).variants.front().playlist;
  const auto sums = [](const fs::path& file) {
    const RunResult result =
        runPeer({"ffmpeg", "-v", "error", "-nostdin", "-i", file.string(), "-map", "0:v", "-f",
                 "framemd5", "-vsync", "passthrough", "-"});
    EXPECT_EQ(result.err, "");
    std::vector<std::string> all;
    std::istringstream lines(result.out);
    for (std::string line; std::getline(lines, line);)
      if (!line.starts_with("#")) all.push_back(line.substr(line.rfind(' ')));
    return all;
  };
  const auto all = sums(whole(playlist, scratch_));
  ASSERT_EQ(all.size(), 50u);
  for (size_t i = 0; i < playlist.files.size(); ++i) {
    const fs::path alone = scratch_ / (std::to_string(i) + ".mp4");
    writeBytes(alone, readBytes(playlist.folder / playlist.head) +
                          readBytes(playlist.folder / playlist.files[i]));
    const auto own = sums(alone);
    const auto first = all.begin() + static_cast<std::ptrdiff_t>(10 * i);
    EXPECT_EQ(own, std::vector<std::string>(first, first + 10)) << i;
  }
}

TEST_F(HlsConversion, ThePlaylistsSayWhatPlayersNeed) {
  Conversion(settings("av25.mp4", {180, 90})).run();
  const MasterPlaylist all = readHls(master());
  EXPECT_THAT(all.text, HasSubstr("#EXT-X-INDEPENDENT-SEGMENTS\n"));
  ASSERT_EQ(all.medias.size(), 1u);
  const MediaPlaylist& sound = all.medias[0].playlist;
  for (const Variant& variant : all.variants) {
    const MediaPlaylist& playlist = variant.playlist;
    for (const char* tag : {"#EXT-X-PLAYLIST-TYPE:VOD\n", "#EXT-X-ENDLIST\n",
                            "#EXT-X-MAP:", "#EXT-X-INDEPENDENT-SEGMENTS\n", "#EXT-X-VERSION:7\n"})
      EXPECT_THAT(playlist.text, HasSubstr(tag));
    for (const double length : playlist.lengths) EXPECT_LE(std::round(length), playlist.target);
    EXPECT_NEAR(playlist.length(), 2, 1e-5);
    const double mean = 8 * (static_cast<double>(playlist.bytes()) / playlist.length() +
                             static_cast<double>(sound.bytes()) / sound.length());
    EXPECT_NEAR(std::stod(variant.attributes.at("AVERAGE-BANDWIDTH")), mean, 4);
    EXPECT_NEAR(std::stod(variant.attributes.at("BANDWIDTH")), peakOf(playlist) + peakOf(sound), 4);
  }
  // Encoded as High, at a level that ffprobe tells; AAC of low complexity.
  const auto stream = ffprobeJson(whole(all.variants[0].playlist, scratch_))["streams"][0];
  EXPECT_EQ(text(stream["profile"]), "High");
  char level[8];
  std::snprintf(level, sizeof level, "%02x", stream["level"].get<int>());
  EXPECT_EQ(all.variants[0].attributes.at("CODECS"),
            "avc1.6400" + std::string(level) + ",mp4a.40.2");
  EXPECT_EQ(all.variants[0].attributes.at("AUDIO"), all.medias[0].attributes.at("GROUP-ID"));
}

// ffmpeg reads the whole presentation by its first playlist.
TEST_F(HlsConversion, IsReadByOthers) {
  Conversion(settings("av25.mp4", {180, 90})).run();
  const auto info = ffprobeJson(master());
  EXPECT_EQ(info["format"]["format_name"], "hls");
  EXPECT_NEAR(number(info["format"]["duration"]), 2, 0.05);
  EXPECT_EQ(info["streams"].size(), 3u);
  EXPECT_EQ(complaints(master()), "");
}

TEST_F(HlsConversion, SoundAndSubtitlesAreRenditionsOfTheirOwn) {
  const Report report = Conversion(settings("av-tracks.mkv")).run();
  EXPECT_THAT(report.leftOut, IsEmpty());
  const MasterPlaylist all = readHls(master());
  ASSERT_EQ(all.medias.size(), 3u);
  EXPECT_EQ(all.medias[0].attributes.at("LANGUAGE"), "en");
  EXPECT_EQ(all.medias[0].attributes.at("DEFAULT"), "YES");
  EXPECT_EQ(all.medias[1].attributes.at("LANGUAGE"), "fr");
  EXPECT_EQ(all.medias[1].attributes.at("DEFAULT"), "NO");
  EXPECT_NE(all.medias[0].attributes.at("NAME"), all.medias[1].attributes.at("NAME"));
  for (int track = 0; track < 2; ++track) {
    const MediaPlaylist& sound = all.medias[static_cast<size_t>(track)].playlist;
    const fs::path file = whole(sound, scratch_);
    EXPECT_EQ(complaints(file), "");
    ASSERT_GE(sound.files.size(), 5u);
    EXPECT_NEAR(sound.length(), 2, 0.03);
    // Within half a frame of 1024 samples at 48000 Hz of where the pictures' segments begin.
    for (size_t i = 0; i < 5; ++i)
      EXPECT_NEAR(startsOf(sound)[i], 0.4 * static_cast<double>(i), 0.0108 + 0.0005) << i;
  }
  const Variant& subtitles = all.medias[2];
  EXPECT_EQ(subtitles.attributes.at("TYPE"), "SUBTITLES");
  EXPECT_EQ(all.variants[0].attributes.at("SUBTITLES"), subtitles.attributes.at("GROUP-ID"));
  EXPECT_NEAR(subtitles.playlist.length(), 2, 0.05);
  const std::string words = readBytes(subtitles.playlist.folder / subtitles.playlist.files.at(0));
  EXPECT_TRUE(words.starts_with("WEBVTT")) << words;
  EXPECT_THAT(words, HasSubstr("First line"));
}

TEST_F(HlsConversion, ThereMayBeSoundAlone) {
  ConversionSettings alone = settings("av25.mp4");
  alone.video = StreamAction::kNone;
  Conversion(alone).run();
  const MasterPlaylist all = readHls(master());
  ASSERT_EQ(all.variants.size(), 1u);
  EXPECT_EQ(all.variants[0].attributes.at("CODECS"), "mp4a.40.2");
  EXPECT_THAT(all.medias, IsEmpty());
  EXPECT_EQ(complaints(whole(all.variants[0].playlist, scratch_)), "");
}

// 25 pictures of 0.04 s, then 12 or 13 of 0.08: each keeps its time in every size, and key pictures
// lie where it is nearest to each 0.4 s.
TEST_F(HlsConversion, PicturesOfAnyTimesKeepThem) {
  Conversion(settings("av-vfr.mp4", {180, 90})).run();
  const MasterPlaylist all = readHls(master());
  const fs::path source = fixture("av-vfr.mp4");
  const auto timesOf = [](const fs::path& file) {
    Times times;
    const auto probed =
        ffprobeJson(file, {"-select_streams", "v", "-show_entries", "packet=pts_time"});
    for (const auto& packet : probed["packets"]) times.push_back(number(packet["pts_time"]));
    std::ranges::sort(times);
    return times;
  };
  const Times expected = timesOf(source);
  ASSERT_EQ(all.variants.size(), 2u);
  Times keys;
  for (const Variant& variant : all.variants) {
    const fs::path file = whole(variant.playlist, scratch_);
    const Times times = timesOf(file);
    ASSERT_EQ(times.size(), expected.size());
    for (size_t i = 0; i < times.size(); ++i) EXPECT_NEAR(times[i], expected[i], 1e-3);
    const Times own = keysOf(file);
    EXPECT_TRUE(keys.empty() || own == keys);
    keys = own;
    EXPECT_EQ(keys.size(), variant.playlist.files.size());
    for (size_t i = 0; i < keys.size(); ++i)
      EXPECT_NEAR(startsOf(variant.playlist)[i], keys[i], 1e-4);
  }
}

/// An encoder, and what its codec is called when ffprobe's profile and level are put in.
struct Codec {
  const char* encoder;
  const char* start;
};

class HlsCodecs : public HlsConversion, public testing::WithParamInterface<Codec> {};

TEST_P(HlsCodecs, HaveAlignedKeyPicturesAndAName) {
  ConversionSettings wanted = settings("av25.mp4", {120, 90});
  wanted.videoCodec = GetParam().encoder;
  wanted.audio = StreamAction::kNone;
  Conversion(wanted).run();
  const MasterPlaylist all = readHls(master());
  ASSERT_EQ(all.variants.size(), 2u);
  for (const Variant& variant : all.variants) {
    const fs::path file = whole(variant.playlist, scratch_);
    EXPECT_THAT(variant.playlist.lengths, ElementsAre(0.4, 0.4, 0.4, 0.4, 0.4));
    EXPECT_THAT(keysOf(file), ElementsAre(0, 0.4, 0.8, 1.2, 1.6));
    EXPECT_EQ(countPictures(file), 50);
    EXPECT_THAT(variant.attributes.at("CODECS"), testing::StartsWith(GetParam().start));
  }
  // HEVC's level is 30 times its number; ffprobe tells the same.
  const auto stream = ffprobeJson(whole(all.variants[0].playlist, scratch_))["streams"][0];
  const std::string level = ".L" + std::to_string(stream["level"].get<int>()) + ".";
  EXPECT_EQ(all.variants[0].attributes.at("CODECS").find(level) != std::string::npos,
            stream["codec_name"] == "hevc");
}

INSTANTIATE_TEST_SUITE_P(, HlsCodecs,
                         testing::Values(Codec{"libx265", "hvc1.1.6.L"},
                                         Codec{"libsvtav1", "av01.0.00M.08"},
                                         Codec{"libvpx-vp9", "vp09.00."}));

// What is copied can begin where it has key pictures alone, and may reach back beyond them.
TEST_F(HlsConversion, CopiedPicturesAreCutAtTheirOwnKeyPictures) {
  ConversionSettings copied = settings("av25.mp4");
  copied.video = StreamAction::kCopy;
  Conversion(copied).run();
  const MasterPlaylist all = readHls(master());
  EXPECT_EQ(all.text.find("INDEPENDENT"), std::string::npos);
  const MediaPlaylist& playlist = all.variants.at(0).playlist;
  EXPECT_THAT(playlist.lengths, ElementsAre(1, 1));
  EXPECT_EQ(countPictures(whole(playlist, scratch_)), 50);
}

TEST_F(HlsConversion, NoSizeIsAboveTheSource) {
  const Report report = Conversion(settings("av25.mp4", {1080, 720, 90})).run();
  EXPECT_THAT(report.leftOut,
              ElementsAre(HasSubstr("1080 lines of the ladder, which are more than they have"),
                          HasSubstr("720 lines")));
  const MasterPlaylist all = readHls(master());
  ASSERT_EQ(all.variants.size(), 1u);
  EXPECT_EQ(all.variants[0].attributes.at("RESOLUTION"), "160x90");
}

TEST_F(HlsConversion, WhereAllAreAboveTheSourceItsOwnSizeStandsForThem) {
  Conversion(settings("av25.mp4", {1080})).run();
  EXPECT_EQ(readHls(master()).variants.at(0).attributes.at("RESOLUTION"), "320x180");
}

// What is drawn is drawn once, and seen in every size.
TEST_F(HlsConversion, ALookIsInEverySize) {
  ConversionSettings turned = settings("av25.mp4", {180, 90});
  turned.look.brightness = 0;  // black
  turned.end = 400000;
  Conversion(turned).run();
  const MasterPlaylist all = readHls(master());
  ASSERT_EQ(all.variants.size(), 2u);
  for (const Variant& variant : all.variants) {
    const RunResult grey = runPeer({"ffmpeg", "-v", "error", "-nostdin", "-i",
                                    whole(variant.playlist, scratch_).string(), "-vf",
                                    "scale=1:1:flags=area,format=gray", "-f", "rawvideo", "-"});
    ASSERT_EQ(grey.out.size(), 10u);
    for (const char value : grey.out) EXPECT_LE(static_cast<unsigned char>(value), 20);
  }
}

TEST_F(HlsConversion, ABitRateIsThatOfTheLargest) {
  ConversionSettings rated = settings("av25.mp4", {180, 90});
  rated.videoBitrate = 1000000;
  Conversion conversion(rated);
  const ConversionPlan& plan = conversion.plan();
  EXPECT_EQ(plan.format.video_bitrate, 1000000);
  ASSERT_EQ(plan.rungs.size(), 1u);
  // A quarter of the pixels, less than proportionally less: 4 ^ -0.75, but where the least rate is.
  EXPECT_GT(plan.rungs[0].bitrate, 250000);
  EXPECT_LT(plan.rungs[0].bitrate, 1000000);
}

TEST_F(HlsConversion, ReplacesAnOldOneWhole) {
  Conversion(settings("av25.mp4", {180, 90})).run();
  ConversionSettings again = settings("av25.mp4", {120});
  EXPECT_EQ(failureOf([&] { Conversion(again).run(); }).kind(), Failure::Kind::kExists);
  again.replaces = true;
  Conversion(again).run();
  EXPECT_EQ(names(), (Names{"out.m3u8", "out.segments"}));
  EXPECT_EQ(namesIn(folder_ / "out.segments"), (Names{"214x120", "sound-1"}));
}

TEST_F(HlsConversion, AnInterruptLeavesWhatWasThere) {
  const auto interrupted = [&](const ConversionSettings& settings) {
    bool isInterrupted = false;
    return Conversion(settings)
        .run({.interrupt = [&] { return isInterrupted; },
              .progress =
                  [&](const Progress& progress) { isInterrupted |= progress.pictures >= 30; }})
        .outcome;
  };
  EXPECT_EQ(interrupted(settings("av25.mp4", {180, 90})), Report::Outcome::kInterrupted);
  EXPECT_THAT(names(), IsEmpty());
  Conversion(settings("av25.mp4", {120})).run();
  ConversionSettings again = settings("av25.mp4", {180, 90});
  again.replaces = true;
  EXPECT_EQ(interrupted(again), Report::Outcome::kInterrupted);
  EXPECT_EQ(names(), (Names{"out.m3u8", "out.segments"}));
  EXPECT_EQ(namesIn(folder_ / "out.segments"), (Names{"214x120", "sound-1"}));
}

TEST_F(HlsConversion, WhatItCannotBeIsRefused) {
  const auto refusal = [&](auto change) {
    ConversionSettings wanted = settings("av25.mp4", {180, 90});
    change(wanted);
    const Failure failure = failureOf([&] { Conversion(wanted).plan(); });
    return failure.subject() + " | " + failure.what();
  };
  using S = ConversionSettings;
  EXPECT_THAT(refusal([](S& s) { s.output = "x.mp4"; }), HasSubstr("only HLS has"));
  EXPECT_THAT(refusal([](S& s) { s.ladder = {90, 90}; }), HasSubstr("90 is there twice"));
  EXPECT_THAT(refusal([](S& s) { s.ladder = {1}; }), HasSubstr("ladder"));
  EXPECT_THAT(refusal([](S& s) { s.height = 90; }), HasSubstr("ladder"));
  EXPECT_THAT(refusal([](S& s) { s.video = StreamAction::kCopy; }), HasSubstr("ladder"));
  EXPECT_THAT(refusal([](S& s) { s.sizeLimit = 100000; }), HasSubstr("many files"));
  EXPECT_THAT(refusal([](S& s) {
                s.videoBitrate = 100000;
                s.passes = 2;
              }),
              HasSubstr("in one pass"));
  EXPECT_THAT(refusal([](S& s) {
                s.output = "pipe:1";
                s.format = "m3u8";
              }),
              HasSubstr("a folder of files"));
}

}  // namespace
}  // namespace kestrel::test
