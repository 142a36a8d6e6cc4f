#include "convert/run/LoudnessPass.h"

#include <gtest/gtest.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "convert/plan/ConversionPlanner.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

constexpr int64_t kMono = 4;
constexpr int64_t kSecond = 1000000;

/// Tones of 997 Hz in one channel, which by Recommendation ITU-R BS.1770-4 have their level against
/// full scale, less 3.01 dB, in LUFS.
class LoudnessPassTest : public testing::Test {
 protected:
  /// Two seconds of each amplitude, one behind the other.
  std::filesystem::path tone(const std::string& name, double first, double second) const {
    const std::string value =
        "if(lt(t,2)," + std::to_string(first) + "," + std::to_string(second) + ")*sin(2*PI*997*t)";
    const auto file = folder_ / name;
    const RunResult made =
        run({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
             "aevalsrc='" + value + "':s=48000:d=4:c=mono", "-c:a", "pcm_s24le", file.string()});
    EXPECT_EQ(made.status, 0) << made.err;
    return file;
  }

  std::map<size_t, std::optional<double>> measured(const std::filesystem::path& file,
                                                   ConversionSettings settings = {},
                                                   const Interrupt& interrupt = {}) const {
    settings.input = file.string();
    settings.output = (folder_ / "out.wav").string();
    if (!settings.loudness) settings.loudness = -16;
    const auto source = LMMediaSource::mediaWithPath(settings.input);
    source->open();
    const ConversionPlan plan = planConversion(settings, *source);
    EXPECT_TRUE(setsLoudness(plan));
    return measureLoudness(source, plan, 0, {.interrupt = interrupt});
  }

  TempDir folder_;
};

TEST_F(LoudnessPassTest, AToneHasTheLoudnessOfItsLevel) {
  const auto found = measured(tone("a.wav", 0.1, 0.1));
  ASSERT_EQ(found.size(), 1U);
  EXPECT_NEAR(found.at(0).value(), -23.01, 0.05);
}

// Four seconds, of which the second half is 20 dB below: it does not count, by the relative gate.
TEST_F(LoudnessPassTest, OnlyTheSpanIsHeard) {
  const auto file = tone("a.wav", 0.5, 0.05);
  EXPECT_NEAR(measured(file, {.end = 2 * kSecond}).at(0).value(), -9.03, 0.05);
  EXPECT_NEAR(measured(file, {.start = 2 * kSecond}).at(0).value(), -29.03, 0.05);
  EXPECT_NEAR(measured(file, {.start = kSecond, .duration = kSecond}).at(0).value(), -9.03, 0.05);
}

// Both sides at the same level: twice the power, and the same once it is in one channel.
TEST_F(LoudnessPassTest, ItIsHeardInTheChannelsOfTheResult) {
  const auto file = tone("a.wav", 0.1, 0.1);
  EXPECT_NEAR(measured(file, {.channelLayout = 3}).at(0).value(), -20, 0.05);
  EXPECT_NEAR(measured(file, {.channelLayout = kMono}).at(0).value(), -23.01, 0.05);
}

TEST_F(LoudnessPassTest, SilenceHasNone) {
  const auto found = measured(tone("a.wav", 0, 0));
  ASSERT_EQ(found.size(), 1U);
  EXPECT_FALSE(found.at(0));
}

TEST_F(LoudnessPassTest, AnInterruptEndsIt) {
  try {
    measured(tone("a.wav", 0.1, 0.1), {}, [] { return true; });
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.kind(), Failure::Kind::kInterrupted);
  }
}

TEST_F(LoudnessPassTest, NothingIsSetWithoutALoudness) {
  ConversionSettings settings{.input = tone("a.wav", 0.1, 0.1).string(), .output = "out.wav"};
  const auto source = LMMediaSource::mediaWithPath(settings.input);
  source->open();
  EXPECT_FALSE(setsLoudness(planConversion(settings, *source)));
}

}  // namespace
}  // namespace kestrel::test
