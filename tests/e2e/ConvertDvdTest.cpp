#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <numbers>
#include <string>
#include <vector>

#include "tests/dvd/Disc.h"
#include "tests/e2e/ConvertDvd.h"
#include "tests/e2e/Decoded.h"
#include "tests/e2e/Kestrel.h"
#include "tests/e2e/NumberedClip.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::ElementsAre;
using testing::SizeIs;

std::vector<double> chapterStarts(const fs::path& file) {
  std::vector<double> starts;
  const json probed = ffprobeJson(file);
  for (const auto& chapter : probed["chapters"])
    starts.push_back(std::stod(chapter["start_time"].get<std::string>()));
  return starts;
}

/// The mean colour of a rectangle of the picture shown at a time: red, green, blue.
std::vector<int> colourAt(const fs::path& file, double time, const std::string& crop) {
  const std::string bytes = ffmpeg({"-ss", std::to_string(time), "-i", file.string(), "-frames:v",
                                    "1", "-vf", "crop=" + crop + ",scale=1:1:flags=area",
                                    "-pix_fmt", "rgb24", "-f", "rawvideo", "-"});
  std::vector<int> colour;
  for (const char c : bytes) colour.push_back(static_cast<uint8_t>(c));
  return colour;
}

testing::AssertionResult isNear(const std::vector<int>& colour, const std::vector<int>& wanted) {
  constexpr int kTolerance = 16;  // pictures are encoded with loss
  for (size_t i = 0; i < 3; ++i)
    if (colour.size() != 3 || std::abs(colour[i] - wanted[i]) > kTolerance)
      return testing::AssertionFailure()
             << testing::PrintToString(colour) << " instead of " << testing::PrintToString(wanted);
  return testing::AssertionSuccess();
}

TEST_F(ConvertDvd, ConvertsATitleWithItsChapters) {
  for (const auto& disc : {discFolder("pal"), discImage("pal")}) {
    ASSERT_TRUE(convertsTitle(disc, "1", {"--force"}));
    EXPECT_NEAR(durationOf(output()), 8, 0.06);
    EXPECT_THAT(chapterStarts(output()), ElementsAre(0, 2, 4, 6));
    const json video = streamOf(output(), "video");
    EXPECT_EQ(video["width"], 720);
    EXPECT_EQ(video["height"], 576);
    EXPECT_EQ(video["display_aspect_ratio"], "16:9");
    EXPECT_EQ(video["r_frame_rate"], "25/1");
    EXPECT_EQ(pictureTimes(output()).size(), 200U);
  }
}

TEST_F(ConvertDvd, ItsNameDoesNotMatter) {
  for (const char* name : {"disc.img", "disc.jpg", "disc.yuv", "disc.cdg", "disc"}) {
    fs::copy_file(discImage("pal"), folder_ / name);
    ASSERT_TRUE(convertsSound(folder_ / name, "4")) << name;
    EXPECT_NEAR(durationOf(output()), 2, 0.1) << name;
    EXPECT_TRUE(endsWithSentence(convert(folder_ / name, output("none.mkv")), 2, "choose a title"));
  }
  fs::copy(discFolder("pal"), folder_ / "folder.jpg", fs::copy_options::recursive);
  ASSERT_TRUE(convertsSound(folder_ / "folder.jpg", "4"));
  EXPECT_NEAR(durationOf(output()), 2, 0.1);
}

TEST_F(ConvertDvd, TheMainTitleIsTheLongest) {
  ASSERT_TRUE(convertsSound(discFolder("runs"), "main"));
  EXPECT_NEAR(durationOf(output()), 200 * 0.2, 2);
}

TEST_F(ConvertDvd, TakesAllTracksUnlessToldOtherwise) {
  ASSERT_TRUE(converts(discFolder("pal"), output(),
                       {"--title", "1", "--encoder-preset", "ultrafast", "--duration", "2"}));
  std::vector<std::string> languages;
  const json told = ffprobeJson(output());
  for (const auto& stream : told.at("streams"))
    if (stream["codec_type"] != "video") languages.push_back(languageOf(stream));
  // Three of sound in the disc's order, two of subpictures in that in which they appear.
  EXPECT_THAT(languages, testing::UnorderedElementsAre("eng", "fra", "deu", "fra", "eng"));
  ASSERT_EQ(languages.size(), 5U);
  EXPECT_EQ(std::vector(languages.begin(), languages.begin() + 3),
            (std::vector<std::string>{"eng", "fra", "deu"}));
}

TEST_F(ConvertDvd, ChoosesSoundByNumberAndLanguage) {
  const auto tones = [&] {
    const auto sound = samples(output(), 1);
    std::vector<bool> heard;
    for (const double frequency : {440.0, 880.0, 220.0})
      heard.push_back(toneAmplitude(sound, frequency, 48000) > 0.02);
    return heard;
  };
  const auto chosen = [&](const std::string& tracks, const char* how = "--audio-tracks") {
    EXPECT_TRUE(convertsSound(discFolder("pal"), "1", {how, tracks}));
    return tones();
  };
  EXPECT_THAT(chosen("0"), ElementsAre(true, false, false));
  EXPECT_THAT(chosen("1"), ElementsAre(false, true, false));
  EXPECT_THAT(chosen("2"), ElementsAre(false, false, true));
  EXPECT_THAT(chosen("de"), ElementsAre(false, false, true));
  EXPECT_EQ(languageOf(streamOf(output(), "audio")), "deu");
  EXPECT_THAT(chosen("fre"), ElementsAre(false, true, false));
  EXPECT_THAT(chosen("0,2", "--mix"), ElementsAre(true, false, true));
  EXPECT_THAT(chosen("all", "--mix"), ElementsAre(true, true, true));
}

TEST_F(ConvertDvd, SoundThatBeginsLateIsConvertedAndCopied) {
  ASSERT_TRUE(convertsSound(discFolder("late"), "1", {"--audio-tracks", "fr"}));
  const auto sound = samples(output(), 1);
  const std::vector<float> early(sound.begin(), sound.begin() + 9 * 48000);
  const std::vector<float> late(sound.begin() + 11 * 48000, sound.begin() + 17 * 48000);
  EXPECT_LT(rms(early), 0.001);
  EXPECT_GT(toneAmplitude(late, 880, 48000), 0.05);
  EXPECT_LT(toneAmplitude(late, 440, 48000), 0.01);
  ASSERT_TRUE(converts(discFolder("late"), output(),
                       {"--title", "1", "--video-codec", "copy", "--audio-codec", "copy",
                        "--audio-tracks", "1", "--force"}));
  const json copied = streamOf(output(), "audio");
  EXPECT_EQ(copied["codec_name"], "ac3");
  EXPECT_EQ(copied["channels"], 2);
  EXPECT_EQ(copied["sample_rate"], "48000");
  EXPECT_NEAR(soundStart(output()), 10, 0.1);
  EXPECT_GT(toneAmplitude(samples(output(), 1), 880, 48000), 0.02);
}

TEST_F(ConvertDvd, SubpicturesThatBeginLateAreDrawn) {
  ASSERT_TRUE(convertsTitle(discFolder("late"), "1", {"--subtitle-track", "0", "--start", "11"}));
  EXPECT_TRUE(isNear(colourAt(output(), 3, "80:24:110:408"), {255, 0, 0}));
  EXPECT_TRUE(isNear(colourAt(output(), 3, "80:24:210:408"), {0, 0, 255}));
  EXPECT_TRUE(isNear(colourAt(output(), 1, "80:24:110:408"), {128, 128, 128}));
  EXPECT_TRUE(isNear(colourAt(output(), 5, "80:24:110:408"), {128, 128, 128}));
}

TEST_F(ConvertDvd, FindsTracksOfEveryFormat) {
  const std::vector<double> frequencies{440, 880, 220};  // LPCM, DTS, AC-3
  for (size_t track = 0; track < frequencies.size(); ++track) {
    ASSERT_TRUE(
        convertsSound(discFolder("formats"), "2", {"--audio-tracks", std::to_string(track)}));
    const auto sound = samples(output(), 1);
    for (const double frequency : frequencies)
      EXPECT_EQ(toneAmplitude(sound, frequency, 48000) > 0.02, frequency == frequencies[track])
          << "track " << track << ", " << frequency << " Hz";
  }
  ASSERT_TRUE(convertsTitle(discFolder("formats"), "1", {"--subtitle-track", "nl", "--force"}));
  EXPECT_TRUE(isNear(colourAt(output(), 2, "80:24:110:408"), {255, 0, 0}));
}

TEST_F(ConvertDvd, CopiesATrack) {
  ASSERT_TRUE(converts(
      discFolder("pal"), output(),
      {"--title", "1", "--video-codec", "copy", "--audio-codec", "copy", "--audio-tracks", "fr"}));
  EXPECT_EQ(streamOf(output(), "audio")["codec_name"], "ac3");
  EXPECT_EQ(streamOf(output(), "audio")["channels"], 6);
  EXPECT_EQ(streamOf(output(), "video")["codec_name"], "mpeg2video");
  EXPECT_EQ(pictureTimes(output()).size(), 200U);
}

TEST_F(ConvertDvd, DrawsSubpicturesInTheirColoursAtTheirPlacesInTheirTime) {
  ASSERT_TRUE(convertsTitle(discFolder("pal"), "1", {"--subtitle-track", "0", "--crf", "5"}));
  // A block of 200x40 at 100,400, its left half red and its right half blue.
  EXPECT_TRUE(isNear(colourAt(output(), 2, "80:24:110:408"), {255, 0, 0}));
  EXPECT_TRUE(isNear(colourAt(output(), 2, "80:24:210:408"), {0, 0, 255}));
  EXPECT_TRUE(isNear(colourAt(output(), 4, "160:24:320:208"), {0, 255, 0}));
  ASSERT_TRUE(converts(discFolder("pal"), folder_ / "plain.mkv",
                       joined({"--title", "1", "--crf", "5"}, kFast)));
  for (const double time : {0.5, 3.1, 5.5}) {
    // Nothing is drawn before, between and after.
    EXPECT_TRUE(isNear(colourAt(output(), time, "80:24:110:408"),
                       colourAt(folder_ / "plain.mkv", time, "80:24:110:408")));
    EXPECT_TRUE(isNear(colourAt(output(), time, "160:24:320:208"),
                       colourAt(folder_ / "plain.mkv", time, "160:24:320:208")));
  }
}

TEST_F(ConvertDvd, ConvertsARangeOfChapters) {
  ASSERT_TRUE(convertsTitle(discFolder("pal"), "1", {"--chapters", "2-3"}));
  EXPECT_NEAR(durationOf(output()), 4, 0.06);
  EXPECT_THAT(chapterStarts(output()), ElementsAre(0, 2));
  EXPECT_EQ(ffprobeJson(output())["chapters"][0]["tags"]["title"], "Chapter 2");
  ASSERT_TRUE(convertsTitle(discFolder("pal"), "1", {"--chapters", "4", "--force"}));
  EXPECT_NEAR(durationOf(output()), 2, 0.06);
}

TEST_F(ConvertDvd, EveryPictureComesThroughTwentyOneSeams) {
  ASSERT_TRUE(convertsTitle(discImage("seams"), "1", {"--crf", "18"}));
  EXPECT_EQ(shownNumbers(output()), countingFrom(0, 22 * 25));
  EXPECT_TRUE(keepsSync(output(), {.rate = 25, .ticks = ticksEvery(1, 0, 22)}));
}

TEST_F(ConvertDvd, TimesGoOnFromSeamToSeam) {
  ASSERT_TRUE(convertsTitle(discFolder("seams"), "1"));
  const auto times = pictureTimes(output());
  ASSERT_EQ(times.size(), 22U * 25);
  for (size_t i = 0; i < times.size(); ++i)
    EXPECT_NEAR(times[i] - times[0], static_cast<double>(i) / 25, 0.002);
}

TEST_F(ConvertDvd, SoundGoesThroughSeamsWithoutAGapOrAClick) {
  ASSERT_TRUE(convertsSound(discFolder("seams"), "1",
                            {"--audio-codec", "pcm_s16le", "--audio-tracks", "1"}));
  const auto sound = samples(output(), 1);
  ASSERT_GT(sound.size(), 21U * 44100);
  // A sine of 1000 Hz and amplitude 0.5: every 10 ms have the same loudness, and no two samples
  // differ by more than its slope allows.
  const double steepest = 0.5 * 2 * std::numbers::pi * 1000 / 44100;
  const double loudness = 0.5 / std::sqrt(2.0);
  for (size_t i = 4410; i + 441 < sound.size() - 4410; i += 441) {
    const std::vector<float> block(sound.begin() + static_cast<long>(i),
                                   sound.begin() + static_cast<long>(i) + 441);
    EXPECT_NEAR(rms(block), loudness, 0.02) << "at " << static_cast<double>(i) / 44100 << " s";
    for (size_t k = 1; k < block.size(); ++k)
      EXPECT_LT(std::fabs(block[k] - block[k - 1]), steepest * 1.1)
          << "at " << static_cast<double>(i + k) / 44100 << " s";
  }
}

TEST_F(ConvertDvd, ShortCellsAreShownToo) {
  ASSERT_TRUE(convertsTitle(discFolder("pal"), "2"));
  // 3 s of red, two white pictures, 3 s of blue.
  const auto pictures = greyPictures(output(), 1, 1);
  EXPECT_NEAR(static_cast<double>(pictures.size()), 152, 1);
  EXPECT_EQ(std::ranges::count_if(
                pictures, [](const std::string& p) { return static_cast<uint8_t>(p[0]) > 200; }),
            2);
}

TEST_F(ConvertDvd, ConvertsATitleOfMoreThanTwoHundredRunsWhole) {
  ASSERT_TRUE(convertsTitle(discFolder("runs"), "3"));
  EXPECT_NEAR(static_cast<double>(pictureTimes(output()).size()), 1005, 50);
  EXPECT_EQ(chapterStarts(output()).size(), 201U);
}

TEST_F(ConvertDvd, FilmThatRepeatsFieldsKeepsItsPictures) {
  ASSERT_TRUE(convertsTitle(discFolder("film"), "1", {"--crf", "18"}));
  EXPECT_EQ(streamOf(output(), "video")["r_frame_rate"], "24000/1001");
  EXPECT_EQ(shownNumbers(output()), countingFrom(0, 240));
  EXPECT_TRUE(keepsSync(output(), {.rate = 24000.0 / 1001, .ticks = ticksEvery(1.001, 0, 10)}));
}

TEST_F(ConvertDvd, FilmIsNoFasterThanVideoWhereItIsCopied) {
  ASSERT_TRUE(converts(discFolder("film"), output(),
                       {"--title", "1", "--video-codec", "copy", "--audio-codec", "none"}));
  EXPECT_EQ(streamOf(output(), "video")["r_frame_rate"], "24000/1001");
  EXPECT_EQ(pictureTimes(output()).size(), 240U);
}

TEST_F(ConvertDvd, FilmBesideVideoBecomesVideo) {
  ASSERT_TRUE(convertsTitle(discFolder("film"), "2", {"--fps", "30000/1001"}));
  EXPECT_EQ(streamOf(output(), "video")["r_frame_rate"], "30000/1001");
  EXPECT_NEAR(static_cast<double>(pictureTimes(output()).size()), 600, 1);
}

TEST_F(ConvertDvd, AVobOfFilmIsNoFasterThanVideo) {
  ASSERT_TRUE(converts(discFolder("film") / "VIDEO_TS" / "VTS_01_1.VOB", output(),
                       joined({"--duration", "9", "--fps", "30000/1001"}, kFast)));
  EXPECT_EQ(streamOf(output(), "video")["r_frame_rate"], "30000/1001");
  EXPECT_NEAR(static_cast<double>(pictureTimes(output()).size()), 270, 1);
}

/// How much neighbouring lines differ at the moving bar's edges: combed pictures differ by much.
double combing(const fs::path& file) {
  const auto pictures = greyPictures(file, 720, 480);
  double sum = 0;
  for (size_t i = 10; i < pictures.size() - 10; ++i)
    for (size_t y = 101; y < 301; ++y)
      for (size_t x = 0; x < 720; ++x) {
        const auto at = [&](size_t line) {
          return static_cast<int>(static_cast<uint8_t>(pictures[i][line * 720 + x]));
        };
        sum += std::abs(2 * at(y) - at(y - 1) - at(y + 1));
      }
  return sum / (static_cast<double>(pictures.size() - 20) * 200 * 720);
}

TEST_F(ConvertDvd, InterlacedPicturesAreNotCombed) {
  const auto combingOf = [&](const Arguments& options) {
    EXPECT_TRUE(
        convertsTitle(discFolder("ntsc"), "1", joined({"--crf", "10", "--force"}, options)));
    EXPECT_NEAR(static_cast<double>(pictureTimes(output()).size()), 90, 1);
    return combing(output());
  };
  const double combed = combingOf({"--deinterlace", "off"});
  EXPECT_LT(combingOf({}), combed / 8);
  EXPECT_LT(combingOf({"--deinterlace", "on"}), combed / 8);
}

TEST_F(ConvertDvd, ProgressivePicturesStayAsTheyAreUnlessAllAreDeinterlaced) {
  const Arguments lossless{"--video-codec", "ffv1", "--audio-codec", "none", "--force"};
  const auto hashes = [&](const std::string& when) {
    EXPECT_TRUE(converts(discFolder("pal"), output(),
                         joined({"--title", "4", "--deinterlace", when}, lossless)));
    return pictureHash(output(), "format=yuv420p");
  };
  const uint64_t plain = hashes("off");
  EXPECT_EQ(hashes("auto"), plain);
  EXPECT_NE(hashes("on"), plain);
}

TEST_F(ConvertDvd, RefusesWrongChoices) {
  const auto refuses = [&](const Arguments& options, const std::string& sentence) {
    const auto result =
        endsWithSentence(convert(discFolder("pal"), output(), options), 2, sentence);
    EXPECT_FALSE(fs::exists(output()));
    return result;
  };
  EXPECT_TRUE(refuses({}, "choose a title"));
  EXPECT_TRUE(refuses({"--title", "5"}, "there is no title 5: the disc has 4"));
  EXPECT_TRUE(refuses({"--title", "0"}, "'0' is neither a number from 1 nor the main one"));
  EXPECT_TRUE(refuses({"--title", "first"}, "'first' is neither a number nor 'main'"));
  EXPECT_TRUE(refuses({"--title", "1", "--audio-tracks", "3"}, "there is no audio track 3"));
  EXPECT_TRUE(refuses({"--title", "1", "--audio-tracks", "it"}, "there is no audio track in 'it'"));
  EXPECT_TRUE(refuses({"--title", "1", "--subtitle-track", "2"}, "there is no subtitle track 2"));
  EXPECT_TRUE(refuses({"--title", "1", "--subtitle-track", "de"},
                      "no subtitle track is in the language 'de'"));
  EXPECT_TRUE(refuses({"--title", "1", "--chapters", "5"}, "there is no chapter 5"));
  EXPECT_TRUE(refuses({"--title", "1", "--chapters", "3-2"}, "--chapters"));
  EXPECT_TRUE(refuses({"--title", "1", "--chapters", "0"}, "--chapters"));
  EXPECT_TRUE(refuses({"--title", "1", "--chapters", "1", "--start", "1"}, "--start"));
  EXPECT_TRUE(refuses({"--title", "1", "--deinterlace", "maybe"}, "--deinterlace"));
}

TEST_F(ConvertDvd, AFileHasNoTitles) {
  EXPECT_TRUE(endsWithSentence(convert(fixture("av25.mp4"), output(), {"--title", "1"}), 1,
                               "no DVD-Video"));
  EXPECT_TRUE(endsWithSentence(convert(fixture("av25.mp4"), output(), {"--chapters", "1"}), 2,
                               "the input has no chapters"));
}

TEST_F(ConvertDvd, PlaysTheFirstOfSeveralAngles) {
  ASSERT_TRUE(convertsTitle(discImage("angles"), "1", {"--crf", "10"}));
  const auto pictures = greyPictures(output(), 1, 1);
  EXPECT_NEAR(static_cast<double>(pictures.size()), 150, 2);
  // Yellow, which the second angle shows, is the only bright colour.
  for (const std::string& picture : pictures) EXPECT_LT(static_cast<uint8_t>(picture[0]), 150);
  EXPECT_TRUE(isNear(colourAt(output(), 1, "100:100:100:100"), {255, 0, 0}));
  for (const double time : {2.2, 2.6, 3.0, 3.4, 3.8})
    EXPECT_TRUE(isNear(colourAt(output(), time, "100:100:100:100"), {0, 128, 0}));
  EXPECT_TRUE(isNear(colourAt(output(), 5, "100:100:100:100"), {0, 0, 255}));
  EXPECT_THAT(chapterStarts(output()), SizeIs(3));
}

}  // namespace
}  // namespace kestrel::test
