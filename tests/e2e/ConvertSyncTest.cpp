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

TEST_F(ConvertSync, HoldsWhereTheSoundBeginsLessThanAFrameBeforeThePicture) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered25-early-audio.ts"), output));
  // The sound's beginning, 1024 / 44100 s before the first picture, becomes 0.
  EXPECT_TRUE(
      keepsSync(output, {.rate = 25, .start = -1024 / 44100.0, .ticks = ticksEvery(1, 0, 5)}));
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

TEST_F(ConvertSync, AHoleInTheSoundIsSilentAndWhatFollowsIsInTime) {
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(fixture("numbered-hole.mkv"), output));
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .ticks = {0, 1, 4}}));
  const std::vector<float> sound = samples(output, 1);
  ASSERT_EQ(sound.size() / 44100, 5u);
  const std::vector<float> hole(sound.begin() + 44100 * 16 / 10, sound.begin() + 44100 * 34 / 10);
  EXPECT_LT(peak(hole), 1e-3);
}

TEST_F(ConvertSync, HoldsWhenSeveralTracksAreMixed) {
  const auto source = folder_ / "source.mkv";
  ffmpeg({"-i", fixture("numbered25.mkv").string(), "-i", fixture("numbered-hole.mkv").string(),
          "-map", "0:v", "-map", "0:a", "-map", "1:a", "-c", "copy", source.string()});
  const auto output = folder_ / "out.mp4";
  ASSERT_TRUE(converts(source, output, {"--audio-tracks", "all"}));
  EXPECT_TRUE(keepsSync(output, {.rate = 25, .ticks = ticksEvery(1, 0, 5)}));
}

}  // namespace
}  // namespace kestrel::test
