#include <gmock/gmock.h>

#include <filesystem>
#include <limits>

#include "tests/e2e/JoinFixture.h"
#include "tests/e2e/NumberedClip.h"

namespace kestrel::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

class JoinWorkerTest : public JoinTest {};

TEST_F(JoinWorkerTest, TheWorkerCopiesWhatFits) {
  cut("numbered25.mp4", "mp4", kCopy);
  // The host's positions are sums of rounded lengths.
  const RunResult result = work(joined_, {{first_, 0, 1}, {second_, 2.013, 1}});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.err, StartsWith("QTMovieHelperTask: copying packets"));
  EXPECT_EQ(packetHashes(joined_, "v"), packetHashes(whole_, "v"));
  EXPECT_EQ(soundHash(joined_), soundHash(whole_));
}

TEST_F(JoinWorkerTest, TheWorkerHonoursGaps) {
  cut("numbered25.mp4", "mp4", kCopy);
  ASSERT_EQ(work(joined_, {{first_, 0, 1}, {second_, 5, 1}}).status, 0);
  const auto times = pictureTimes(joined_);
  ASSERT_EQ(times.size(), 125);
  EXPECT_NEAR(times[50] - times[0], 5, 0.1);  // the first sound lies 23 ms before the pictures
}

TEST_F(JoinWorkerTest, TheWorkerHonoursGapsWhenItEncodes) {
  const auto output = folder_ / "out.mp4";
  const RunResult result =
      work(output, {{fixture("numbered25.mp4"), 0, 1}, {fixture("numbered60.mp4"), 6, 1}});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("encoding anew"));
  const auto shown = shownPictures(output);
  ASSERT_EQ(shown.size(), 275);
  EXPECT_EQ(shown[124].number, 124);
  EXPECT_EQ(shown[137].number, 0);  // black
  EXPECT_LE(shown[150].number, 1);
  EXPECT_NEAR(shown[200].number, 121, 2);  // 2 s into the second, which counts 60 a second
  const auto ticks = tickTimes(output);
  ASSERT_GE(ticks.size(), 8);
  EXPECT_NEAR(ticks.back(), 10, 0.05);
}

TEST_F(JoinWorkerTest, TheWorkerAppliesRates) {
  const auto output = folder_ / "out.mp4";
  const RunResult result = work(output, {{fixture("numbered25.mp4"), 0, 2}});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("2 times its speed"));
  const auto numbers = shownNumbers(output);
  EXPECT_NEAR(static_cast<double>(numbers.size()), 62, 2);
  for (size_t i = 1; i < 60; ++i) EXPECT_NEAR(numbers[i], 2.0 * static_cast<double>(i), 1.01) << i;
  EXPECT_NEAR(static_cast<double>(sampleCount(output)) / 44100, 2.5, 0.1);
}

TEST_F(JoinWorkerTest, TheWorkerLetsTheLaterInputTakeOver) {
  const auto clip = fixture("numbered25.mp4");
  const auto output = folder_ / "out.mp4";
  const RunResult result = work(output, {{clip, 0, 1}, {clip, 3, 1}});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("before the end"));
  const auto numbers = shownNumbers(output);
  ASSERT_EQ(numbers.size(), 200);
  EXPECT_EQ(numbers[74], 74);
  EXPECT_EQ(numbers[75], 0);
}

TEST_F(JoinWorkerTest, InputsPlayInTheOrderOfTheirPositions) {
  cut("numbered25.mp4", "mp4", kCopy);
  const RunResult result = work(joined_, {{second_, 2, 1}, {first_, 0, 1}});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(packetHashes(joined_, "v"), packetHashes(whole_, "v"));
}

TEST_F(JoinWorkerTest, AnInputThatWouldNeverBeSeenIsRefused) {
  const auto clip = fixture("numbered25.mp4");
  const auto output = folder_ / "out.mp4";
  for (const double position : {0.0, -1.0}) {
    const RunResult result = work(output, {{clip, position, 1}, {clip, 0, 1}});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("both begin at 0 s"));
    EXPECT_FALSE(fs::exists(output));
  }
}

TEST_F(JoinWorkerTest, TheFirstInputBeginsWhereItsPositionSays) {
  // Its own times begin at 10 s.
  const auto clip = fixture("av25.ts");
  const auto output = folder_ / "out.mp4";
  ASSERT_EQ(work(output, {{clip, 3, 1}}).status, 0);
  EXPECT_NEAR(pictureTimes(output).front(), 3, 0.05);
  ASSERT_EQ(work(output, {{clip, -1, 1}, {clip, -1, 1}}).status, 0);
  EXPECT_NEAR(pictureTimes(output).front(), 0, 0.05);
  EXPECT_NEAR(pictureTimes(output).back(), 3.96, 0.05);
  const RunResult encoded = work(output, {{clip, 3, 1}, {fixture("numbered60.mp4"), -1, 1}});
  ASSERT_EQ(encoded.status, 0) << encoded.err;
  EXPECT_THAT(encoded.err, HasSubstr("encoding anew"));
  EXPECT_NEAR(static_cast<double>(pictureTimes(output).size()), (3 + 2 + 5) * 25, 1);
}

TEST_F(JoinWorkerTest, AviHasNoPlaceForGapsSoTheyAreEncoded) {
  cut("numbered25.mp4", "avi", kBFrames);
  const RunResult result = work(joined_, {{whole_, 0, 1}, {whole_, 8, 1}});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.err, HasSubstr("encoding anew: the avi format has no place for the gap"));
  const auto ticks = tickTimes(joined_);
  ASSERT_EQ(ticks.size(), 10);
  EXPECT_NEAR(ticks[5], 8, 0.06);  // at the first picture of the second
  EXPECT_NEAR(static_cast<double>(shownNumbers(joined_).size()), 13 * 25, 1);
}

TEST_F(JoinWorkerTest, PositionsOfRoundedLengthsLeaveNoBlackPictureAndCutNone) {
  const auto clip = fixture("numbered25.mp4");
  const auto other = fixture("numbered60.mp4");
  for (const double position : {4.97, 5.0, 5.03}) {
    const auto output = folder_ / "out.mp4";
    ASSERT_EQ(work(output, {{clip, 0, 1}, {other, position, 1}}).status, 0);
    const auto numbers = shownNumbers(output);
    ASSERT_GE(numbers.size(), 126) << position;
    EXPECT_EQ(numbers[124], 124) << position;
    EXPECT_LE(numbers[125], 1) << position;
    EXPECT_GE(numbers[126], 1) << position;
  }
}

TEST_F(JoinWorkerTest, TheWorkersStatusTellsItsFailures) {
  EXPECT_EQ(run({worker()}).status, 2);
  EXPECT_EQ(run({worker(), "other", "x"}).status, 2);
  EXPECT_EQ(run({worker(), "joiner", (folder_ / "absent").string()}).status, 1);
  const auto output = folder_ / "out.mp4";
  EXPECT_EQ(work(output, {}).status, 1);
  const RunResult result = work(output, {{folder_ / "absent.mp4", 0, 1}});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("absent.mp4"));
  EXPECT_FALSE(fs::exists(output));
}

TEST_F(JoinWorkerTest, TheWorkerRefusesRatesAndPositionsThatNobodyMeans) {
  const auto clip = fixture("av25.mp4");
  const auto output = folder_ / "out.mp4";
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double rate : {1e-9, 0.009, 101.0, 1e308, infinity}) {
    const RunResult result = work(output, {{clip, 0, rate}});
    EXPECT_EQ(result.status, 2) << rate;
    EXPECT_THAT(result.err, HasSubstr("rate")) << rate;
  }
  for (const double position : {1e9, 1e300, infinity, -infinity}) {
    const RunResult result = work(output, {{clip, 0, 1}, {clip, position, 1}});
    EXPECT_EQ(result.status, 2) << position;
    EXPECT_THAT(result.err, HasSubstr("position")) << position;
  }
  EXPECT_FALSE(fs::exists(output));
}

}  // namespace
}  // namespace kestrel::test
