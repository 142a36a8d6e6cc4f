#include <gmock/gmock.h>

#include <cmath>

#include "tests/e2e/NumberedClip.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

class ConvertSync : public testing::Test {
 protected:
  TempDir folder_;
};

TEST_F(ConvertSync, HoldsForTenMinutes) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered25-long.mp4"), output, {"--encoder-preset", "ultrafast"}));
  EXPECT_EQ(shownNumbers(output), countingFrom(0, 15000));
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .ticks = ticksEvery(1, 0, 600)}));
}

TEST_F(ConvertSync, HoldsForTenMinutesWhereTheClocksHaveLittleInCommon) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(
      converts(fixture("numbered24000-1001-long.mp4"), output, {"--encoder-preset", "ultrafast"}));
  // 600 s × 24000 / 1001 = 14385.6 pictures begin in that time.
  EXPECT_EQ(shownNumbers(output), countingFrom(0, 14386));
  EXPECT_TRUE(keepsSync(output, {.rate = 24000 / 1001.0, .ticks = ticksEvery(1.001, 0, 600)}));
}

TEST_F(ConvertSync, HoldsAt24000By1001) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered24000-1001.mp4"), output));
  EXPECT_TRUE(keepsSync(output, {.rate = 24000 / 1001.0, .ticks = ticksEvery(1.001, 0, 5)}));
}

TEST_F(ConvertSync, HoldsAt30000By1001) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered30000-1001.mp4"), output));
  EXPECT_TRUE(keepsSync(output, {.rate = 30000 / 1001.0, .ticks = ticksEvery(1.001, 0, 5)}));
}

TEST_F(ConvertSync, HoldsAt60) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered60.mp4"), output));
  EXPECT_TRUE(keepsSync(output, {.rate = 60, .ticks = ticksEvery(1, 0, 5)}));
}

TEST_F(ConvertSync, HoldsForAnInputThatCanBeReadOnlyOnce) {
  // A pipe's bytes come once, so pictures and sound have one reader.
  const auto output = folder_ / "out.mp4";
  const RunResult result =
      run({"sh", "-c", "cat \"$1\" | \"$2\" convert /dev/stdin \"$3\"", "sh",
           fixture("numbered25.ts").string(), kestrelBinary(), output.string()});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(shownNumbers(output), countingFrom(0, 125));
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .ticks = ticksEvery(1, 1, 4)}));
}

TEST_F(ConvertSync, CopiesAllOfAnInputThatCanBeReadOnlyOnce) {
  const auto output = folder_ / "out.ts";
  const auto source = fixture("numbered25.ts");
  const RunResult result =
      run({"sh", "-c",
           "cat \"$1\" | \"$2\" convert /dev/stdin \"$3\" --video-codec copy --audio-codec copy",
           "sh", source.string(), kestrelBinary(), output.string()});
  EXPECT_EQ(result.status, 0) << result.err;
  for (const char* kind : {"v", "a"})
    EXPECT_EQ(packetHashes(output, kind), packetHashes(source, kind));
}

TEST_F(ConvertSync, PicturesAloneBeginWithTheirFirst) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered25-early-audio.ts"), output, {"--audio-codec", "none"}));
  EXPECT_EQ(shownNumbers(output), countingFrom(0, 125));
}

TEST_F(ConvertSync, HoldsInOtherContainers) {
  // Where a container begins is its own affair, so only the two streams' distance matters; in AVI,
  // which counts the pictures of the decoder's delay, up to two pictures more.
  for (const auto& [name, slack] :
       {std::pair{"out.mkv", 0.04}, {"out.mov", 0.04}, {"out.avi", 0.12}, {"out.ts", 0.04}}) {
    SCOPED_TRACE(name);
    const auto output = folder_ / name;
    ASSERT_TRUE(converts(fixture("numbered25.mp4"), output, {"--video-codec", "h264"}));
    const auto pictures = shownPictures(output);
    const auto ticks = tickTimes(output);
    ASSERT_EQ(pictures.size(), 125u);
    ASSERT_EQ(ticks.size(), 5u);
    for (size_t k = 0; k < 5; ++k) {
      EXPECT_EQ(pictures[25 * k].number, 25 * k);
      EXPECT_NEAR(ticks[k], pictures[25 * k].time, slack);
    }
  }
}

/// Whether each picture of `output` is the one that the source shows at that time; off by `slack`
/// seconds at most.
testing::AssertionResult showsWhatTheSourceShows(const std::filesystem::path& output,
                                                 const std::filesystem::path& source,
                                                 double slack) {
  const auto before = shownPictures(source);
  const auto numberAt = [&](double time) {
    int number = before.front().number;
    for (const auto& picture : before)
      if (picture.time <= time) number = picture.number;
    return number;
  };
  for (const auto& picture : shownPictures(output)) {
    const int lowest = numberAt(picture.time - slack);
    const int highest = numberAt(picture.time + slack);
    if (picture.number < lowest || picture.number > highest)
      return testing::AssertionFailure() << "picture " << picture.number << " at " << picture.time
                                         << " s is not one of " << lowest << " to " << highest;
  }
  return testing::AssertionSuccess();
}

TEST_F(ConvertSync, HoldsForAVariableRate) {
  const auto source = fixture("numbered-vfr.mp4");
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(source, output));
  EXPECT_TRUE(showsWhatTheSourceShows(output, source, 0.02));
  const auto ticks = tickTimes(output);
  ASSERT_EQ(ticks.size(), 6u);
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(ticks[static_cast<size_t>(i)], i, 0.02);
}

TEST_F(ConvertSync, AVariableRateLosesNoPictureAtItsBaseRate) {
  const auto source = fixture("numbered-vfr.mp4");
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(source, output, {"--fps", "50"}));
  auto numbers = shownNumbers(output);
  EXPECT_TRUE(std::ranges::is_sorted(numbers));
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  EXPECT_EQ(numbers, shownNumbers(source));
}

TEST_F(ConvertSync, HoldsForAStartTimeOfTenSeconds) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered25.ts"), output));
  EXPECT_NEAR(pictureTimes(output).front(), 0, 1e-3);
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .ticks = ticksEvery(1, 1, 4)}));
}

TEST_F(ConvertSync, HoldsWhereTheSoundBeginsLessThanAFrameBeforeThePicture) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered25-early-audio.ts"), output));
  // The sound's beginning, 1024 / 44100 s before the first picture, becomes 0.
  EXPECT_TRUE(
      keepsSync(output, {.rate = 25, .start = -1024 / 44100.0, .ticks = ticksEvery(1, 0, 5)}));
}

TEST_F(ConvertSync, AStartWithinAGroupOfPicturesIsExactToTheFrame) {
  // Key pictures lie at 0 s, 2 s and 4 s. A picture counts from the time at which it is shown.
  struct Expectation {
    std::string fixture, start;
    int first;
  };
  for (const auto& expected : {Expectation{"numbered25.mp4", "2.52", 63},
                               {"numbered25.mp4", "0.04", 1},
                               {"numbered25.mp4", "2", 50},
                               {"numbered25.mp4", "1.96", 49},
                               {"numbered25.mp4", "00:00:04.960", 124},
                               {"numbered25.mkv", "2.52", 63},
                               {"numbered25.ts", "2.52", 63}}) {
    SCOPED_TRACE(expected.fixture + " from " + expected.start);
    const auto output = folder_ / "out.mp4";
    ASSERT_TRUE(
        converts(fixture(expected.fixture), output, {"--start", expected.start, "--force"}));
    EXPECT_EQ(shownNumbers(output), countingFrom(expected.first, 125 - expected.first));
  }
}

TEST_F(ConvertSync, AStartHitsTheFrameThatItsRoundedTimeMeans) {
  // Picture 60 of 24000/1001 begins at 2.5025 s, picture 61 at 2.544208… s.
  for (const auto& [start, first] : {std::pair{"2.5025", 60}, {"2.544", 61}, {"2.5442", 61}}) {
    SCOPED_TRACE(start);
    const auto output = folder_ / "out.mp4";
    ASSERT_TRUE(converts(fixture("numbered24000-1001.mp4"), output, {"--start", start, "--force"}));
    EXPECT_EQ(shownNumbers(output), countingFrom(first, 120 - first));
  }
}

TEST_F(ConvertSync, HoldsAfterAStart) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered25.mp4"), output, {"--start", "2.52"}));
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .start = 2.52, .ticks = {3, 4}}));
  ASSERT_TRUE(converts(fixture("numbered25.ts"), output, {"--start", "2.52", "--force"}));
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .start = 2.52, .ticks = {3, 4}}));
}

TEST_F(ConvertSync, HoldsAfterAStartInTheMiddleOfTenMinutes) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(
      converts(fixture("numbered25-long.mp4"), output, {"--start", "5:03.2", "--duration", "20"}));
  EXPECT_EQ(shownNumbers(output), countingFrom(7580, 500));
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .start = 303.2, .ticks = ticksEvery(1, 304, 20)}));
}

TEST_F(ConvertSync, SoundThatBeginsLaterThanThePictureComesLater) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered-late-audio.mkv"), output));
  EXPECT_EQ(shownNumbers(output), countingFrom(0, 125));
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .ticks = {2, 3, 4}}));
}

TEST_F(ConvertSync, APictureThatBeginsLaterThanTheSoundStandsInUntilItsTime) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered-late-video.mkv"), output));
  std::vector<int> numbers(25, 25);
  for (const int number : countingFrom(25, 100)) numbers.push_back(number);
  EXPECT_EQ(shownNumbers(output), numbers);
  const auto ticks = tickTimes(output);
  ASSERT_EQ(ticks.size(), 5u);
  for (int i = 0; i < 5; ++i) EXPECT_NEAR(ticks[static_cast<size_t>(i)], i, 0.04);
}

TEST_F(ConvertSync, AHoleInTheSoundIsSilentAndWhatFollowsIsInTime) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered-hole.mkv"), output));
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .ticks = {0, 1, 4}}));
  const std::vector<float> sound = samples(output, 1);
  ASSERT_EQ(sound.size() / 44100, 5u);
  const std::vector<float> hole(sound.begin() + 44100 * 16 / 10, sound.begin() + 44100 * 34 / 10);
  EXPECT_LT(peak(hole), 1e-3);
}

TEST_F(ConvertSync, AHoleInTheSoundIsKeptToTheSampleInPcm) {
  const auto output = folder_ / "out.mkv";
  ASSERT_TRUE(converts(fixture("numbered-hole.mkv"), output, {"--audio-codec", "pcm_s16le"}));
  const auto ticks = tickTimes(output);
  ASSERT_EQ(ticks.size(), 3u);
  // The source counts time in milliseconds.
  EXPECT_NEAR(ticks[0], 0, 2e-3);
  EXPECT_NEAR(ticks[1], 1, 2e-3);
  EXPECT_NEAR(ticks[2], 4, 2e-3);
}

TEST_F(ConvertSync, HoldsWhenSeveralTracksAreMixed) {
  const auto source = folder_ / "source.mkv";
  ffmpeg({"-i", fixture("numbered25.mkv").string(), "-i", fixture("numbered-hole.mkv").string(),
          "-map", "0:v", "-map", "0:a", "-map", "1:a", "-c", "copy", source.string()});
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(source, output, {"--audio-tracks", "all"}));
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .ticks = ticksEvery(1, 0, 5)}));
}

/// Counts of pictures and how long they last, at rates other than the source's.
TEST_F(ConvertSync, AnotherRateShowsThePictureOfTheTime) {
  struct Expectation {
    std::string fixture, rate;
    double source, target;
    size_t pictures;
  };
  for (const auto& expected : {Expectation{"numbered25.mp4", "30", 25, 30, 150},
                               {"numbered60.mp4", "25", 60, 25, 125},
                               {"numbered60.mp4", "24000/1001", 60, 24000 / 1001.0, 120},
                               {"numbered24000-1001.mp4", "60", 24000 / 1001.0, 60, 300}}) {
    SCOPED_TRACE(expected.fixture + " at " + expected.rate);
    const auto output = folder_ / "out.mp4";
    ASSERT_TRUE(converts(fixture(expected.fixture), output, {"--fps", expected.rate, "--force"}));
    const auto pictures = shownPictures(output);
    EXPECT_EQ(pictures.size(), expected.pictures);
    for (size_t i = 0; i < pictures.size(); ++i) {
      EXPECT_NEAR(pictures[i].time, static_cast<double>(i) / expected.target, 1e-3);
      EXPECT_NEAR(pictures[i].number / expected.source, pictures[i].time,
                  std::max(1 / expected.source, 1 / expected.target));
    }
    EXPECT_NEAR(std::stod(streamOf(output, "video")["duration"].get<std::string>()), 5,
                1 / expected.target);
  }
}

}  // namespace
}  // namespace kestrel::test
