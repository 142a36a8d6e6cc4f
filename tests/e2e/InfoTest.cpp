#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/FileBytes.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

RunResult info(const std::filesystem::path& file, const Arguments& options = {},
               const RunOptions& runOptions = {}) {
  return run(joined({kestrelBinary(), "info", file.string()}, options), runOptions);
}

/// The JSON document about a file; everything else about the run is checked.
json infoJson(const std::filesystem::path& file, const RunOptions& runOptions = {}) {
  const RunResult result = info(file, {"--json"}, runOptions);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  return json::parse(result.out);
}

std::string infoText(const std::filesystem::path& file) {
  const RunResult result = info(file);
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  return result.out;
}

/// Numbers that ffprobe writes as text; null for what it does not know.
json number(const json& probed, const char* key) {
  if (!probed.contains(key)) return nullptr;
  if (!probed[key].is_string()) return probed[key];
  const std::string text = probed[key];
  return text == "N/A" ? json(nullptr) : json(std::stod(text));
}

json orNull(const json& object, const char* key) {
  return object.contains(key) ? object[key] : json(nullptr);
}

/// ffprobe writes 0 and "0/0" where the program says null.
json knownOrNull(const json& value) {
  return value == 0 || value == "0/0" || value == "unknown" ? json(nullptr) : value;
}

/// A decoder's guess from the first packets differs a little with how many it was given.
void expectSameBitRate(const json& rate, const json& probed) {
  ASSERT_EQ(rate.is_null(), probed.is_null());
  if (rate.is_null()) return;
  EXPECT_NEAR(rate.get<double>() / probed.get<double>(), 1, 0.01);
}

void expectSameStream(const json& stream, const json& probed) {
  SCOPED_TRACE(stream.dump());
  EXPECT_EQ(stream["index"], probed["index"]);
  EXPECT_EQ(stream["type"], probed["codec_type"]);
  EXPECT_EQ(stream["codec"], orNull(probed, "codec_name"));
  EXPECT_EQ(stream["start_time"], number(probed, "start_time"));
  for (const char* key : {"duration", "sample_rate"})
    EXPECT_EQ(orNull(stream, key), knownOrNull(number(probed, key))) << key;
  expectSameBitRate(stream["bit_rate"], number(probed, "bit_rate"));
  for (const char* key : {"width", "height", "pix_fmt", "sample_aspect_ratio",
                          "display_aspect_ratio", "color_space", "color_range", "color_primaries",
                          "color_transfer", "sample_fmt", "channels", "channel_layout"})
    EXPECT_EQ(orNull(stream, key), knownOrNull(orNull(probed, key))) << key;
  EXPECT_EQ(stream["tags"], probed.value("tags", json::object()));
  const json& flags = stream["disposition"];
  for (const auto& [flag, value] : probed["disposition"].items())
    EXPECT_EQ(std::count(flags.begin(), flags.end(), flag), value) << flag;
}

/// Matroska counts its length from 0, wherever the first time stamp lies.
void expectSameLength(const json& duration, const json& format) {
  const json stated = number(format, "duration");
  const json start = number(format, "start_time");
  const bool countsFromZero = format["format_name"] == "matroska,webm" && start.is_number();
  if (!countsFromZero || start <= 0 || stated.is_null()) {
    EXPECT_EQ(duration, stated);
    return;
  }
  EXPECT_NEAR(duration.get<double>(), stated.get<double>() - start.get<double>(), 1e-6);
}

/// Whether a document says of a file what ffprobe says of it.
void expectAgreesWithFfprobe(const std::filesystem::path& file) {
  SCOPED_TRACE(file.string());
  const json document = infoJson(file);
  const json probed = ffprobeJson(file);
  const json& format = probed["format"];
  EXPECT_EQ(document["path"], file.string());
  EXPECT_EQ(document["format"], format["format_name"]);
  EXPECT_EQ(document["size"], number(format, "size"));
  for (const char* key : {"start_time", "bit_rate"})
    EXPECT_EQ(document[key], number(format, key)) << key;
  expectSameLength(document["duration"], format);
  EXPECT_EQ(document["tags"], format.value("tags", json::object()));
  EXPECT_EQ(document["chapters"].size(), probed["chapters"].size());
  ASSERT_EQ(document["streams"].size(), probed["streams"].size());
  for (size_t i = 0; i < probed["streams"].size(); ++i)
    expectSameStream(document["streams"][i], probed["streams"][i]);
}

TEST(Info, AgreesWithFfprobeOnEveryKindOfContainer) {
  for (const char* name :
       {"av25.mp4", "av25.ts", "av25.mpg", "av30000-1001.mp4", "av-late-audio.mkv", "av-tracks.mkv",
        "av-tags.mp4", "video-only.mkv", "audio-only.m4a", "mjpeg.avi", "pcm-mono-8000-s16.wav",
        "pcm-5.1-48000-s16.wav", "bars-709-full.mp4", "bars-601.mp4", "subtitles.srt"})
    expectAgreesWithFfprobe(fixture(name));
}

TEST(Info, KeysThatDoNotApplyAreAbsent) {
  const json document = infoJson(fixture("av25.mp4"));
  const json& video = document["streams"][0];
  const json& audio = document["streams"][1];
  for (const char* key : {"width", "height", "pix_fmt", "frame_rate", "rotation", "color_space"}) {
    EXPECT_TRUE(video.contains(key)) << key;
    EXPECT_FALSE(audio.contains(key)) << key;
  }
  for (const char* key : {"sample_rate", "channels", "channel_layout"}) {
    EXPECT_FALSE(video.contains(key)) << key;
    EXPECT_TRUE(audio.contains(key)) << key;
  }
}

TEST(Info, UnknownValuesAreNull) {
  const json document = infoJson(fixture("subtitles.srt"));
  EXPECT_TRUE(document["duration"].is_null());
  EXPECT_TRUE(document["start_time"].is_null());
  EXPECT_TRUE(document["streams"][0]["language"].is_null());
  EXPECT_TRUE(document["streams"][0]["tag"].is_null());
}

TEST(Info, ATimeStampUnitIsNoFrameRate) {
  KESTREL_NEED_MEDIA("fire-720p-vfr-h264-aac.mp4");  // ticks of 1/90000 s, 10.5 pictures a second
  EXPECT_EQ(infoJson(mediaFile("fire-720p-vfr-h264-aac.mp4"))["streams"][0]["frame_rate"],
            "750000/71393");
}

TEST(Info, RotationIsThatOfTheDisplayMatrix) {
  const auto file = fixture("av-rotated.mp4");
  const json sideData = ffprobeJson(file)["streams"][0]["side_data_list"];
  EXPECT_EQ(infoJson(file)["streams"][0]["rotation"], sideData[0]["rotation"]);
  EXPECT_EQ(std::abs(sideData[0]["rotation"].get<int>()), 90);
  EXPECT_EQ(infoJson(fixture("av25.mp4"))["streams"][0]["rotation"], 0);
}

TEST(Info, TextTellsInWhichDirectionPicturesAreTurned) {
  const std::string file = fixture("av-rotated.mp4").string();
  const auto firstPicture = [](const Arguments& arguments) {
    return ffmpeg(joined(arguments, {"-frames:v", "1", "-f", "md5", "-"}));
  };
  ASSERT_EQ(firstPicture({"-i", file}),
            firstPicture({"-noautorotate", "-i", file, "-vf", "transpose=cclock"}));
  EXPECT_THAT(infoText(file), HasSubstr("turned by 90° counter-clockwise"));
}

TEST(Info, ChaptersAndTags) {
  const json document = infoJson(fixture("av-tags.mp4"));
  EXPECT_EQ(document["tags"]["title"], "A Title");
  EXPECT_EQ(document["tags"]["comment"], "Größe und Ñandú");
  ASSERT_EQ(document["chapters"].size(), 2u);
  EXPECT_EQ(document["chapters"][1],
            (json{{"start", 0.8}, {"end", 2.0}, {"tags", {{"title", "Ending"}}}}));

  const std::string text = infoText(fixture("av-tags.mp4"));
  EXPECT_THAT(text, HasSubstr("Größe und Ñandú"));
  EXPECT_THAT(text, HasSubstr("   1  0:00 - 0:00.800  Opening\n"));
}

TEST(Info, LanguagesHaveCodeAndNameInTheUsersLanguage) {
  const auto file = fixture("av-tracks.mkv");
  const auto names = [&](const std::string& locale) {
    const json streams = infoJson(file, {.environment = {"LC_ALL=" + locale}})["streams"];
    return streams[1]["language_name"].get<std::string>() + " " +
           streams[2]["language_name"].get<std::string>();
  };
  EXPECT_EQ(infoJson(file)["streams"][2]["language"], "fre");
  EXPECT_EQ(names("C"), "English French");
  EXPECT_EQ(names("en_GB.UTF-8"), "English French");
  EXPECT_EQ(names("fr_FR.UTF-8"), "anglais français");
  EXPECT_EQ(names("de_DE.UTF-8"), "Englisch Französisch");
}

TEST(Info, AnUnknownLanguageIsNotTakenForEnglish) {
  const TempDir folder;
  const auto file = folder / "languages.mka";
  ffmpeg({"-i", fixture("pcm-mono-8000-s16.wav").string(), "-map", "0", "-map", "0", "-c", "copy",
          "-metadata:s:a:0", "language=und", "-metadata:s:a:1", "language=qqq", file.string()});
  const json streams = infoJson(file)["streams"];
  EXPECT_TRUE(streams[0]["language"].is_null());
  EXPECT_TRUE(streams[0]["language_name"].is_null());
  EXPECT_EQ(streams[1]["language"], "qqq");
  EXPECT_TRUE(streams[1]["language_name"].is_null());
}

TEST(Info, TextHasALineForEachStream) {
  const std::string text = infoText(fixture("av25.mp4"));
  EXPECT_THAT(text, HasSubstr("\nduration      0:02\n"));
  EXPECT_THAT(text, HasSubstr("\n#0  video     h264 High [avc1], 320x180, 25 fps, "));
  EXPECT_THAT(text, HasSubstr("\n#1  audio     aac LC [mp4a], 44100 Hz, stereo, "));
}

TEST(Info, TellsTheLightOfHdrPictures) {
  KESTREL_NEED_MEDIA("hdr10-720p60-prores.mxf");
  const auto clip = mediaFile("hdr10-720p60-prores.mxf");
  // ffprobe says 34000/50000 and 16000/50000 for red, 13250 and 34500 for green, 7500 and 3000 for
  // blue, 15635 and 16450 for white; 0/10000 and 10000000/10000 for the luminance, 1000 and 100.
  const json expected{{"red", {{"x", 0.68}, {"y", 0.32}}},
                      {"green", {{"x", 0.265}, {"y", 0.69}}},
                      {"blue", {{"x", 0.15}, {"y", 0.06}}},
                      {"white_point", {{"x", 0.3127}, {"y", 0.329}}},
                      {"min_luminance", 0.0},
                      {"max_luminance", 1000.0},
                      {"max_content", 1000},
                      {"max_average", 100}};
  EXPECT_EQ(infoJson(clip)["streams"][0]["hdr"], expected);
  EXPECT_THAT(infoText(clip),
              HasSubstr("mastered on red 0.68,0.32, green 0.265,0.69, blue 0.15,0.06, white "
                        "0.3127,0.329, 0 to 1000 cd/m², brightest pixel 1000 cd/m², brightest "
                        "picture 100 cd/m²\n"));
  EXPECT_TRUE(infoJson(fixture("av25.mp4"))["streams"][0]["hdr"].is_null());
}

TEST(Info, WhatIsSaidOfStreamsStandsInOneColumn) {
  const TempDir folder;
  const auto file = folder / "attached.mkv";
  ffmpeg({"-i", fixture("av25.mp4").string(), "-c", "copy", "-attach",
          fixture("subtitles.srt").string(), "-metadata:s:t", "mimetype=font/ttf", "-metadata:s:t",
          "filename=Own.ttf", file.string()});
  const std::string text = infoText(file);
  EXPECT_THAT(text, HasSubstr("\n#0  video       h264 "));
  EXPECT_THAT(text, HasSubstr("\n#2  attachment  unknown codec\n"));
}

TEST(Info, TextShowsTheStartOfAFileThatDoesNotStartAtZero) {
  EXPECT_THAT(infoText(fixture("av25.ts")),
              testing::ContainsRegex("\nstart         0:(10|09[.]9[0-9][0-9])\n"));
}

/// A WAV file with a title of any bytes.
std::filesystem::path wavWithTitle(const TempDir& folder, const std::string& title) {
  auto file = folder / "title.wav";
  ffmpeg({"-i", fixture("pcm-mono-8000-s16.wav").string(), "-c", "copy", "-metadata",
          "title=" + title, file.string()});
  return file;
}

TEST(Info, TagsThatAreNoUtf8AreReplaced) {
  const TempDir folder;
  const auto file = wavWithTitle(folder, "caf\xE9 noir");
  EXPECT_EQ(infoJson(file)["tags"]["title"], "caf\uFFFD noir");
  EXPECT_THAT(infoText(file), HasSubstr("caf\uFFFD noir\n"));
}

TEST(Info, TagsDoNotCommandTheTerminal) {
  const TempDir folder;
  const std::string text = infoText(wavWithTitle(folder, "a\033[2Jb\rc"));
  EXPECT_THAT(text, Not(HasSubstr("\033")));
  EXPECT_THAT(text, Not(HasSubstr("\r")));
}

TEST(Info, ANameWithAColonIsAFile) {
  const TempDir folder;
  std::filesystem::copy_file(fixture("av25.mp4"), folder / "10:30.mp4");
  EXPECT_EQ(info("10:30.mp4", {}, {.workingDirectory = folder.path()}).status, 0);
}

TEST(Info, AFullDiskBehindStandardOutputIsAFailure) {
  const RunResult result = run(
      {"sh", "-c", "\"$0\" info \"$1\" >/dev/full", kestrelBinary(), fixture("av25.mp4").string()});
  EXPECT_TRUE(endsWithSentence(result, 1, "standard output: No space left on device"));
}

TEST(Info, AReaderThatGoesAwayIsNoNews) {
  const RunResult result = run({"sh", "-c", "{ sleep 0.3; \"$0\" info \"$1\"; } | true",
                                kestrelBinary(), fixture("av25.mp4").string()});
  EXPECT_EQ(result.err, "");
}

class InfoBadInput : public testing::Test {
 protected:
  const TempDir folder_;
};

TEST_F(InfoBadInput, IsMissing) {
  EXPECT_EQ(info(folder_ / "x.mp4").err, "kestrel: cannot open '" + (folder_ / "x.mp4").string() +
                                             "': No such file or directory\n");
  EXPECT_TRUE(endsWithSentence(info(folder_ / "x.mp4"), 1, (folder_ / "x.mp4").string()));
}

TEST_F(InfoBadInput, IsEmpty) {
  writeBytes(folder_ / "empty.mp4", "");
  EXPECT_TRUE(endsWithSentence(info(folder_ / "empty.mp4"), 1, "empty.mp4': the file is empty"));
}

TEST_F(InfoBadInput, IsAFolder) {
  EXPECT_TRUE(endsWithSentence(info(folder_.path()), 1, "': Is a directory"));
}

TEST_F(InfoBadInput, IsUnreadable) {
  // Root reads everything, so it runs the program as somebody else.
  const Arguments asNobody{"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
  const Arguments user = geteuid() == 0 ? asNobody : Arguments{};
  if (run(joined(user, {kestrelBinary(), "--version"})).status != 0)
    GTEST_SKIP() << "nobody else may run the program here";
  const auto file = folder_ / "secret.mp4";
  std::filesystem::copy_file(fixture("av25.mp4"), file);
  std::filesystem::permissions(file, std::filesystem::perms::none);
  std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
  EXPECT_TRUE(endsWithSentence(run(joined(user, {kestrelBinary(), "info", file.string()})), 1,
                               "secret.mp4': Permission denied"));
}

TEST_F(InfoBadInput, IsNoMedia) {
  std::string noise;
  for (uint32_t i = 0, state = 1; i < 100'000; ++i) {
    state = state * 1664525 + 1013904223;
    noise += static_cast<char>(state >> 24);
  }
  writeBytes(folder_ / "noise.mp4", noise);
  EXPECT_TRUE(endsWithSentence(info(folder_ / "noise.mp4"), 1, "noise.mp4': not a media file"));
}

TEST_F(InfoBadInput, HasNoStreams) {
  writeBytes(folder_ / "tags.txt", ";FFMETADATA1\ntitle=x\n");
  EXPECT_TRUE(endsWithSentence(info(folder_ / "tags.txt"), 1, "tags.txt': it has no streams"));
}

TEST_F(InfoBadInput, IsCutOffBeforeItsIndex) {
  const std::string whole = readBytes(fixture("av25.mp4"));
  writeBytes(folder_ / "cut.mp4", whole.substr(0, whole.size() / 2));
  EXPECT_TRUE(endsWithSentence(info(folder_ / "cut.mp4"), 1, "cut.mp4"));
}

TEST_F(InfoBadInput, IsThreeHundredMegabytesOfZeros) {
  writeBytes(folder_ / "zeros.mp4", "");
  std::filesystem::resize_file(folder_ / "zeros.mp4", 300'000'000);
  EXPECT_TRUE(endsWithSentence(info(folder_ / "zeros.mp4"), 1, "zeros.mp4"));
}

TEST(Info, OfSeveralFilesIsAnArrayAndOneThatFailsLeavesTheOthersAlone) {
  const std::string one = fixture("av25.mp4").string();
  const std::string two = fixture("av-tracks.mkv").string();
  RunResult result = run({kestrelBinary(), "info", "--json", one, "gone.mp4", two});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "kestrel: cannot open 'gone.mp4': No such file or directory\n");
  const auto document = nlohmann::json::parse(result.out);
  ASSERT_EQ(document.size(), 3u);
  EXPECT_EQ(document[0]["path"], one);
  EXPECT_THAT(std::string(document[1]["error"]), HasSubstr("No such file"));
  EXPECT_EQ(document[2]["streams"].size(), 4u);
  result = run({kestrelBinary(), "info", one, two});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, infoText(one) + "\n" + infoText(two));
}

}  // namespace
}  // namespace kestrel::test
