#include <gmock/gmock.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/Waveform.h>

#include <cmath>

#include "tests/support/Fixture.h"

namespace kestrel::test {
namespace {

using testing::HasSubstr;
using testing::SizeIs;

std::shared_ptr<LMMediaSource> source(const std::string& name) {
  return LMMediaSource::mediaWithPath(fixture(name).string());
}

TEST(WaveformTest, PointsOfASineAreItsAmplitude) {
  const auto waveform = waveformOfSource(source("av60.mp4"), {.pointsPerSecond = 20});
  ASSERT_TRUE(waveform);
  EXPECT_EQ(waveform->sampleRate, 48000);
  EXPECT_EQ(waveform->samplesPerPoint, 2400);
  EXPECT_EQ(waveform->pointsPerSecond(), 20);
  ASSERT_THAT(waveform->channels, SizeIs(1));
  EXPECT_NEAR(static_cast<double>(waveform->length()), 40, 1);
  const WaveformPoint point = waveform->channels[0][10];
  EXPECT_NEAR(point.max, -point.min, 0.01);
  EXPECT_NEAR(point.rms, point.max / std::sqrt(2), 0.005);
}

TEST(WaveformTest, ChannelsAreSplitWhereAskedFor) {
  const auto waveform = waveformOfSource(source("av25.mp4"), {.splitChannels = true});
  ASSERT_TRUE(waveform);
  ASSERT_THAT(waveform->channels, SizeIs(2));
  EXPECT_EQ(waveform->channels[0].size(), waveform->channels[1].size());
}

TEST(WaveformTest, TellsWhyThereIsNone) {
  const auto reason = [](const std::shared_ptr<LMMediaSource>& input, WaveformSettings settings) {
    Error error;
    EXPECT_FALSE(waveformOfSource(input, settings, &error));
    return error.message;
  };
  EXPECT_NE(reason(nullptr, {}), "");
  EXPECT_THAT(reason(LMMediaSource::mediaWithPath("absent.mp4"), {}), HasSubstr("No such file"));
  EXPECT_THAT(reason(source("av25.mp4"), {.pointsPerSecond = 0}), HasSubstr("no points"));
  EXPECT_THAT(reason(source("av25.mp4"), {.pointsPerSecond = std::nan("")}),
              HasSubstr("no points"));
  EXPECT_THAT(reason(source("av25.mp4"), {.tracks = IndexSet{5}}),
              HasSubstr("there is no audio track 5: the input has 1"));
  EXPECT_THAT(reason(source("av25.mp4"), {.tracks = IndexSet{}}), HasSubstr("no sound track"));
  EXPECT_THAT(reason(source("av25.mp4"), {.interrupt = [] { return true; }}),
              HasSubstr("interrupted"));
}

TEST(WaveformTest, TellsHowFarItIs) {
  double last = 0;
  WaveformSettings settings;
  settings.progress = [&](double part, double seconds) {
    EXPECT_GE(part, last);
    last = part;
    EXPECT_LE(seconds, 2.1);
  };
  ASSERT_TRUE(waveformOfSource(source("av25.mp4"), settings));
  EXPECT_GT(last, 0.9);
  EXPECT_LE(last, 1);
}

TEST(WaveformTest, AnyNumberOfPointsIsSurvived) {
  for (const double rate : {1e-9, 0.5, 44100.0, 1e9}) {
    const auto waveform = waveformOfSource(source("av25.mp4"), {.pointsPerSecond = rate});
    ASSERT_TRUE(waveform) << rate;
    EXPECT_GE(waveform->samplesPerPoint, 1);
  }
}

}  // namespace
}  // namespace kestrel::test
