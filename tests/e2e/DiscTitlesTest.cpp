#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/dvd/Disc.h"
#include "tests/e2e/ConvertDvd.h"
#include "tests/e2e/Decoded.h"
#include "tests/e2e/Kestrel.h"
#include "tests/support/Ffprobe.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::ElementsAre;

using Colour = std::vector<int>;  // red, green, blue

Colour coloursOf(const std::string& bytes) {
  Colour colour;
  for (const char c : bytes) colour.push_back(static_cast<uint8_t>(c));
  return colour;
}

/// The mean colour of a picture or, at a time, of a movie.
Colour colourOf(const fs::path& file, double time = 0) {
  return coloursOf(
      ffmpeg({"-ss", std::to_string(time), "-i", file.string(), "-frames:v", "1", "-vf",
              "scale=1:1:flags=area", "-pix_fmt", "rgb24", "-f", "rawvideo", "-"}));
}

/// That of a rectangle of a subtitle track alone, over black.
Colour subtitleColour(const fs::path& file, int track, double time, const std::string& crop) {
  return coloursOf(ffmpeg({"-f", "lavfi", "-i", "color=black:s=720x576:r=25:d=18,format=rgb24",
                           "-i", file.string(), "-filter_complex",
                           "[0:v][1:s:" + std::to_string(track) +
                               "]overlay=format=rgb,crop=" + crop + ",scale=1:1:flags=area",
                           "-ss", std::to_string(time), "-frames:v", "1", "-pix_fmt", "rgb24", "-f",
                           "rawvideo", "-"}));
}

testing::AssertionResult isNear(const Colour& colour, const Colour& wanted, int tolerance = 16) {
  bool same = colour.size() == 3;
  for (size_t i = 0; same && i < 3; ++i) same = std::abs(colour[i] - wanted[i]) <= tolerance;
  return same ? testing::AssertionSuccess()
              : testing::AssertionFailure() << testing::PrintToString(colour) << " instead of "
                                            << testing::PrintToString(wanted);
}

const Colour kRed{255, 0, 0}, kGreen{0, 128, 0}, kYellow{255, 255, 0}, kBlue{0, 0, 255};

class DiscTitles : public ConvertDvd {
 protected:
  static RunResult kestrel(const Arguments& arguments) {
    return run(joined({kestrelBinary()}, arguments));
  }

  static std::string angles(const std::string& choice = "") {
    return discImage("angles").string() + choice;
  }
};

TEST_F(DiscTitles, InfoTellsOfATitle) {
  const RunResult told = kestrel({"info", "--json", discImage("pal").string(), "--title", "main"});
  ASSERT_EQ(told.status, 0) << told.err;
  std::vector<std::string> kinds;
  const json document = json::parse(told.out);
  for (const auto& stream : document.at("streams"))
    if (stream["type"] != "data") kinds.push_back(stream["type"]);
  EXPECT_THAT(kinds, testing::UnorderedElementsAre("video", "audio", "audio", "audio", "subtitle",
                                                   "subtitle"));
}

TEST_F(DiscTitles, ThumbDrawsATitleAsAnAngleShowsIt) {
  const auto colourWith = [&](const Arguments& options) {
    const RunResult drawn = kestrel(
        joined({"thumb", angles(), output("a.png").string(), "--force", "--time", "3", "--title"},
               options));
    EXPECT_EQ(drawn.status, 0) << drawn.err;
    return colourOf(output("a.png"));
  };
  EXPECT_TRUE(isNear(colourWith({"1"}), kGreen));
  EXPECT_TRUE(isNear(colourWith({"main", "--angle", "2"}), kYellow));
}

TEST_F(DiscTitles, WaveDrawsATitlesSound) {
  const auto file = output("late.json");
  const RunResult drawn = kestrel({"wave", discImage("late").string(), file.string(), "--title",
                                   "1", "--points-per-second", "1"});
  ASSERT_EQ(drawn.status, 0) << drawn.err;
  const json wave = json::parse(bytesOf(file));
  EXPECT_NEAR(wave["length"].get<double>(), 21, 1);
  // Ten seconds of silence, then a tone.
  EXPECT_EQ(wave["data"][2 * 5 + 1], 0);
  EXPECT_GT(wave["data"][2 * 13 + 1], 1000);
}

TEST_F(DiscTitles, PlaysATitleAsAnAngleShowsIt) {
  const RunResult played = run({"env", "SDL_AUDIODRIVER=dummy", kestrelBinary(), "play", angles(),
                                "--title", "1", "--angle", "2", "--start", "5.8", "--no-input"});
  EXPECT_EQ(played.status, 0) << played.err;
}

TEST_F(DiscTitles, JoinTakesTitlesAndTheirAngles) {
  const RunResult joinedResult =
      kestrel({"join", angles("#1"), angles("#main.2"), "-o", output().string()});
  ASSERT_EQ(joinedResult.status, 0) << joinedResult.err;
  EXPECT_THAT(joinedResult.out, testing::HasSubstr("disc.iso#main.2"));
  EXPECT_NEAR(durationOf(output()), 12, 0.1);
  EXPECT_TRUE(isNear(colourOf(output(), 3), kGreen));
  EXPECT_TRUE(isNear(colourOf(output(), 9), kYellow));
  EXPECT_TRUE(isNear(colourOf(output(), 11), kBlue));
}

TEST_F(DiscTitles, JoinEncodesTitlesThatDoNotFit) {
  const auto disc = discFolder("pal").string();
  const RunResult result = kestrel(
      {"join", disc + "#4", disc + "#2", "-o", output().string(), "--video-codec", "mpeg4"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NEAR(durationOf(output()), 2 + 6.08, 0.2);
}

TEST_F(DiscTitles, ComposeTakesTitlesAndStoresThem) {
  const auto stored = output("stored.plist").string();
  const RunResult composed =
      kestrel({"compose", angles("#1.2:1"), "-o", output().string(), "--save", stored});
  ASSERT_EQ(composed.status, 0) << composed.err;
  EXPECT_TRUE(isNear(colourOf(output(), 3), kYellow));
  const RunResult again =
      kestrel({"compose", "--load", stored, "-o", output("again.mkv").string()});
  ASSERT_EQ(again.status, 0) << again.err;
  EXPECT_TRUE(isNear(colourOf(output("again.mkv"), 3), kYellow));
}

TEST_F(DiscTitles, AFileMayHaveAMarkInItsName) {
  fs::copy_file(fixture("av25.mp4"), folder_ / "av#1");
  const RunResult result = kestrel({"join", (folder_ / "av#1").string(), "-o", output().string()});
  EXPECT_EQ(result.status, 0) << result.err;
}

TEST_F(DiscTitles, WrongTitlesAndAnglesAreRefused) {
  const auto refuses = [&](const Arguments& arguments, const std::string& sentence,
                           int status = 2) {
    return endsWithSentence(kestrel(arguments), status, sentence);
  };
  const auto out = output().string();
  const auto picture = output("a.png").string();
  EXPECT_TRUE(refuses({"convert", angles(), out, "--title", "1", "--angle", "3"},
                      "there is no angle 3: title 1 has 2"));
  EXPECT_TRUE(refuses({"convert", angles(), out, "--title", "1", "--angle", "0"}, "--angle"));
  EXPECT_TRUE(refuses({"info", discImage("pal").string(), "--title", "1", "--angle", "2"},
                      "there is no angle 2: title 1 has one"));
  EXPECT_TRUE(refuses({"thumb", angles(), picture, "--angle", "2"}, "--angle"));
  EXPECT_TRUE(refuses({"info", angles(), "--title", "2"}, "there is no title 2: the disc has 1"));
  EXPECT_TRUE(refuses({"wave", angles(), output("a.json").string(), "--title", "x"},
                      "'x' is neither a number nor 'main'"));
  EXPECT_TRUE(refuses({"join", angles("#x"), "-o", out}, "'x' is no title of"));
  EXPECT_TRUE(refuses({"join", angles("#1.3"), "-o", out}, "there is no angle 3"));
  EXPECT_TRUE(refuses({"join", angles("#2"), "-o", out}, "there is no title 2: the disc has 1"));
  EXPECT_TRUE(refuses({"compose", angles("#0:1"), "-o", out}, "'0' is no title of"));
  const auto file = fixture("av25.mp4").string();
  EXPECT_TRUE(refuses({"info", file, "--title", "1"}, "no DVD-Video", 1));
  EXPECT_TRUE(refuses({"join", file + "#1", "-o", out}, "no DVD-Video", 1));
  EXPECT_TRUE(refuses({"effects", "--title", "1"}, "--preview only"));
}

TEST_F(DiscTitles, ConvertReadsAnAngle) {
  ASSERT_TRUE(converts(angles(), output(), joined({"--title", "1", "--angle", "2"}, kFast)));
  EXPECT_NEAR(durationOf(output()), 6, 0.1);
  EXPECT_TRUE(isNear(colourOf(output(), 1), kRed));
  for (const double time : {2.2, 3.0, 3.8}) EXPECT_TRUE(isNear(colourOf(output(), time), kYellow));
  EXPECT_TRUE(isNear(colourOf(output(), 5), kBlue));
}

TEST_F(DiscTitles, AnInformationFileNamesItsDisc) {
  const auto name = discFolder("pal") / "VIDEO_TS" / "VIDEO_TS.IFO";
  EXPECT_TRUE(endsWithSentence(convert(name, output()), 2, "choose a title"));
  ASSERT_TRUE(convertsSound(name, "4"));
  EXPECT_NEAR(durationOf(output()), 2, 0.1);
}

std::vector<json> subtitlesOf(const fs::path& file) {
  std::vector<json> found;
  const json told = ffprobeJson(file);
  for (const auto& stream : told.at("streams"))
    if (stream["codec_type"] == "subtitle") found.push_back(stream);
  return found;
}

TEST_F(DiscTitles, CopiedSubpicturesKeepTheirOrderAndColours) {
  for (const char* name : {"out.mkv", "out.mp4"}) {
    ASSERT_TRUE(converts(discFolder("pal"), output(name), joined({"--title", "1"}, kFast)));
    const auto subtitles = subtitlesOf(output(name));
    ASSERT_EQ(subtitles.size(), 2U);
    EXPECT_EQ(languageOf(subtitles[0]), "eng");
    EXPECT_EQ(languageOf(subtitles[1]), "fra");
    // A block of 200x40 at 100,400, half red, half blue; another track's at 100,100 in yellow.
    EXPECT_TRUE(isNear(subtitleColour(output(name), 0, 2, "80:24:110:408"), kRed, 4)) << name;
    EXPECT_TRUE(isNear(subtitleColour(output(name), 0, 2, "80:24:210:408"), kBlue, 4)) << name;
    EXPECT_TRUE(isNear(subtitleColour(output(name), 1, 2, "80:24:110:108"), kYellow, 4)) << name;
    EXPECT_TRUE(isNear(subtitleColour(output(name), 0, 0.5, "80:24:110:408"), {0, 0, 0}, 4));
  }
}

TEST_F(DiscTitles, SubpicturesThatBeginLateAreKept) {
  ASSERT_TRUE(converts(discFolder("late"), output(),
                       {"--title", "1", "--video-codec", "copy", "--audio-codec", "copy"}));
  const auto subtitles = subtitlesOf(output());
  ASSERT_EQ(subtitles.size(), 1U);
  EXPECT_EQ(languageOf(subtitles[0]), "eng");
  EXPECT_TRUE(isNear(subtitleColour(output(), 0, 14, "80:24:110:408"), kRed, 4));
  EXPECT_TRUE(isNear(subtitleColour(output(), 0, 14, "80:24:210:408"), kBlue, 4));
}

TEST_F(DiscTitles, KindsOfTracksAreKept) {
  const DiscCopy disc("pal");
  disc.patchInformation("VTS_01_0", 0x204 + 8 + 5, "\2");      // for the visually impaired
  disc.patchInformation("VTS_01_0", 0x204 + 8 * 2 + 5, "\3");  // comments
  disc.patchInformation("VTS_01_0", 0x256 + 5, "\x9");         // forced
  disc.patchInformation("VTS_01_0", 0x256 + 6 + 5, "\5");      // captions
  ASSERT_TRUE(converts(disc.path(), output(),
                       {"--title", "1", "--video-codec", "none", "--audio-codec", "copy"}));
  std::vector<std::string> marks;
  const json told = ffprobeJson(output());
  for (const auto& stream : told.at("streams"))
    for (const char* mark : {"visual_impaired", "comment", "forced", "hearing_impaired"})
      if (stream["disposition"][mark] == 1) marks.push_back(languageOf(stream) + " " + mark);
  EXPECT_THAT(marks, ElementsAre("fra visual_impaired", "deu comment", "eng forced",
                                 "fra hearing_impaired"));
}

TEST_F(DiscTitles, SaysWhatAContainerCannotHold) {
  const RunResult result =
      convert(discFolder("pal"), output("out.mov"), joined({"--title", "1"}, kFast));
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, testing::HasSubstr("mov cannot hold dvd_subtitle"));
}

}  // namespace
}  // namespace kestrel::test
