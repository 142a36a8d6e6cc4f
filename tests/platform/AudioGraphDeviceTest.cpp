// Graphs that play on devices of several rates.

#include <gmock/gmock.h>
#include <kestrel/AudioGraph.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <tuple>

#include "tests/audio/Sound.h"

namespace kestrel::test {
namespace {

using testing::Each;
using testing::FloatNear;

/// A graph of converter, time-pitch and output, which plays what a function of the frame says.
class Chain {
 public:
  Chain(int32_t sampleRate, std::function<float(int64_t frame)> sample)
      : device_(std::make_shared<PulledAudioDevice>(
            AudioDevice::Format{.sampleRate = sampleRate, .channels = 2})),
        sample_(std::move(sample)) {
    graph_.setDevice(device_);
    const int32_t converter =
        graph_.addNode(kAudioUnitType_FormatConverter, kAudioUnitSubType_Converter);
    const int32_t output = graph_.addNode(kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput);
    pitch_ = graph_.addNode(kAudioUnitType_FormatConverter, kAudioUnitSubType_TimePitch);
    graph_.connect(converter, pitch_, 0);
    graph_.connect(pitch_, output, 0);
    graph_.setInputCallback(converter, [this](int32_t, int32_t frames, float* data) {
      for (int32_t i = 0; i < frames; ++i, ++fed_) data[2 * i] = data[2 * i + 1] = sample_(fed_);
    });
    graph_.setRenderCallback([this](const AudioGraph::Rendered& piece) { rendered_ = piece; });
    graph_.open();
    graph_.unit(converter)->setFormat(AudioScope::kInput, {});
    EXPECT_TRUE(graph_.initialize());
    EXPECT_TRUE(graph_.start());
  }

  /// The left channel.
  std::vector<float> pull(int32_t frames) { return channelOf(device_->pull(frames), 0); }
  void setRate(float rate) { graph_.unit(pitch_)->setParameter(kAudioUnitParameter_Rate, rate); }
  void flush() { graph_.flush(); }
  int64_t fed() const { return fed_; }
  const AudioGraph::Rendered& rendered() const { return rendered_; }

 private:
  std::shared_ptr<PulledAudioDevice> device_;
  std::function<float(int64_t)> sample_;
  AudioGraph graph_;
  int32_t pitch_ = 0;
  int64_t fed_ = 0;
  AudioGraph::Rendered rendered_;
};

/// The time from the first to the last of the moments at which a sound rises through 0, in samples,
/// and how many periods lie between them.
struct Periods {
  double begin = 0;
  double end = 0;
  int count = -1;
};

Periods periodsOf(const std::vector<float>& sound) {
  Periods found;
  for (size_t i = 1; i < sound.size(); ++i) {
    if (!(sound[i - 1] < 0 && sound[i] >= 0)) continue;
    found.end = static_cast<double>(i) - sound[i] / (sound[i] - sound[i - 1]);
    if (++found.count == 0) found.begin = found.end;
  }
  return found;
}

using DeviceAndTempo = std::tuple<int32_t, float>;
class AudioGraphClock : public testing::TestWithParam<DeviceAndTempo> {};

/// In a tone that rises evenly its pitch tells which moment of it is heard.
TEST_P(AudioGraphClock, PositionIsThatOfTheSoundHeard) {
  constexpr double kFirst = 500;
  constexpr double kRise = 200;  // hertz in a second
  const auto [deviceRate, tempo] = GetParam();
  Chain chain(deviceRate, [](int64_t frame) {
    const double time = static_cast<double>(frame) / 44100;
    const double turns = kFirst * time + kRise / 2 * time * time;
    return static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * turns));
  });
  chain.setRate(tempo);
  for (int i = 0; i < deviceRate / 2; i += 512) chain.pull(512);
  std::vector<double> errors;  // seconds
  for (int i = 0; i < 41; ++i) {
    const int32_t frames = deviceRate / 20;
    std::vector<float> sound;
    const double begin = chain.rendered().inputEnd;
    while (sound.size() < static_cast<size_t>(frames)) {
      const auto more = chain.pull(256);
      sound.insert(sound.end(), more.begin(), more.end());
    }
    const double perFrame = (chain.rendered().inputEnd - begin) / static_cast<double>(sound.size());
    const Periods periods = periodsOf(sound);
    const double length = (periods.end - periods.begin) / deviceRate;
    const double heard = (periods.count / length - kFirst) / kRise;
    const double told = begin + perFrame * (periods.begin + periods.end) / 2;
    errors.push_back(told / 44100 - heard);
  }
  // The middle one: once in a while a period more or less seems to be there.
  std::ranges::nth_element(errors, errors.begin() + 20);
  EXPECT_NEAR(errors[20], 0, 0.003);
}

INSTANTIATE_TEST_SUITE_P(Devices, AudioGraphClock,
                         testing::Combine(testing::Values(22050, 44100, 48000, 96000),
                                          testing::Values(0.25F, 0.5F, 1.0F, 1.5F, 2.0F, 4.0F)));

class AudioGraphFlush : public testing::TestWithParam<DeviceAndTempo> {};

TEST_P(AudioGraphFlush, LeavesNothingOfWhatWasBefore) {
  const auto [deviceRate, tempo] = GetParam();
  bool isLoud = true;
  Chain chain(deviceRate, [&](int64_t frame) { return isLoud ? sineAt(440, frame) : 0.0F; });
  chain.setRate(tempo);
  for (int i = 0; i < 40; ++i) chain.pull(512);
  const int64_t fed = chain.fed();
  isLoud = false;
  chain.flush();
  for (int i = 0; i < 40; ++i) EXPECT_THAT(chain.pull(512), Each(FloatNear(0, 1e-6F)));
  EXPECT_GT(chain.rendered().inputEnd, static_cast<double>(fed));
}

INSTANTIATE_TEST_SUITE_P(Devices, AudioGraphFlush,
                         testing::Combine(testing::Values(8000, 22050, 44100, 48000, 192000),
                                          testing::Values(1.0F, 2.0F)));

TEST(AudioGraphDevice, HighestRatesPlayWithoutAWordToStandardError) {
  testing::internal::CaptureStderr();
  Chain chain(384000, [](int64_t frame) { return sineAt(440, frame); });
  chain.setRate(2);
  std::vector<float> sound;
  for (int i = 0; i < 600; ++i) {
    const auto more = chain.pull(512);
    if (i >= 200) sound.insert(sound.end(), more.begin(), more.end());
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_LT(centsBetween(pitchOf(sound, 384000), 440), 3);
}

}  // namespace
}  // namespace kestrel::test
