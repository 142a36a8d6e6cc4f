#include <gmock/gmock.h>
#include <kestrel/AudioGraph.h>

#include <atomic>
#include <thread>

#include "tests/audio/Sound.h"

namespace kestrel::test {
namespace {

using testing::Each;

constexpr double kTone = 440;

/// A graph of converter, time-pitch and output, fed with a sine and pulled by hand.
class AudioGraphTest : public testing::Test {
 protected:
  explicit AudioGraphTest(AudioDevice::Format format = {})
      : device_(std::make_shared<PulledAudioDevice>(format)) {
    graph_.setDevice(device_);
    converter_ = graph_.addNode(kAudioUnitType_FormatConverter, kAudioUnitSubType_Converter);
    output_ = graph_.addNode(kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput);
    pitch_ = graph_.addNode(kAudioUnitType_FormatConverter, kAudioUnitSubType_TimePitch);
    EXPECT_TRUE(graph_.connect(converter_, pitch_, 0));
    EXPECT_TRUE(graph_.connect(pitch_, output_, 0));
    EXPECT_TRUE(graph_.setInputCallback(converter_, [this](int32_t, int32_t frames, float* data) {
      for (int32_t i = 0; i < frames; ++i, ++fed_)
        for (int c = 0; c < 2; ++c) data[2 * i + c] = sineAt(kTone * (c + 1), fed_);
    }));
    graph_.setRenderCallback([this](const AudioGraph::Rendered& piece) { rendered_ = piece; });
    EXPECT_TRUE(graph_.open());
    EXPECT_TRUE(graph_.unit(converter_)->setFormat(AudioScope::kInput, {}));
  }
  ~AudioGraphTest() override { graph_.close(); }

  void start() {
    ASSERT_TRUE(graph_.initialize());
    ASSERT_TRUE(graph_.start());
  }

  /// Pulls as a device does, a period at a time.
  std::vector<float> pull(int32_t frames, int32_t period = 512) {
    std::vector<float> sound;
    for (; frames > 0; frames -= period) {
      const auto piece = device_->pull(std::min(frames, period));
      sound.insert(sound.end(), piece.begin(), piece.end());
    }
    return sound;
  }

  void setRate(float rate) { graph_.unit(pitch_)->setParameter(kAudioUnitParameter_Rate, rate); }
  void setVolume(float volume) {
    graph_.unit(output_)->setParameter(kAudioUnitParameter_Volume, volume);
  }

  std::shared_ptr<PulledAudioDevice> device_;
  AudioGraph graph_;
  int32_t converter_ = 0;
  int32_t output_ = 0;
  int32_t pitch_ = 0;
  int64_t fed_ = 0;
  AudioGraph::Rendered rendered_;
};

void expectSine(const std::vector<float>& sound, int64_t first, double level = 0.25) {
  for (size_t i = 0; i < sound.size(); ++i) {
    const auto frame = first + static_cast<int64_t>(i / 2);
    const double tone = kTone * static_cast<double>(i % 2 + 1);
    ASSERT_NEAR(sound[i], sineAt(tone, frame, 44100, level), 1e-6) << i;
  }
}

// Building.

TEST_F(AudioGraphTest, NodesOfUnknownKindsDoNotExist) {
  EXPECT_EQ(graph_.addNode(fourCharCode("aufc"), fourCharCode("none")), 0);
  EXPECT_EQ(graph_.addNode(fourCharCode("none"), fourCharCode("conv")), 0);
  EXPECT_EQ(graph_.addNode(fourCharCode("auou"), fourCharCode("conv")), 0);
  EXPECT_EQ(graph_.unit(99), nullptr);
  EXPECT_FALSE(graph_.removeNode(99));
  EXPECT_FALSE(graph_.connect(99, output_, 0));
  EXPECT_FALSE(graph_.connect(converter_, 99, 0));
  EXPECT_FALSE(graph_.connect(converter_, output_, 1));
  EXPECT_FALSE(graph_.setInputCallback(99, nullptr));
}

TEST_F(AudioGraphTest, UnitsAreThereOnceTheGraphIsOpen) {
  AudioGraph graph;
  const int32_t node = graph.addNode(kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput);
  EXPECT_EQ(graph.unit(node), nullptr);
  graph.open();
  EXPECT_NE(graph.unit(node), nullptr);
}

TEST_F(AudioGraphTest, WithoutAChainToAnOutputItDoesNotInitialise) {
  AudioGraph graph;
  EXPECT_FALSE(graph.initialize());
  graph.open();
  EXPECT_FALSE(graph.initialize());  // no output
  const int32_t output = graph.addNode(kAudioUnitType_Output, kAudioUnitSubType_DefaultOutput);
  const int32_t pitch = graph.addNode(kAudioUnitType_FormatConverter, kAudioUnitSubType_TimePitch);
  EXPECT_FALSE(graph.initialize());  // nothing connected
  graph.connect(pitch, output, 0);
  EXPECT_FALSE(graph.initialize());  // no input
  graph.connect(output, pitch, 0);
  EXPECT_FALSE(graph.initialize());  // a ring
  EXPECT_FALSE(graph.start());
  EXPECT_FALSE(graph.isRunning());
  EXPECT_FALSE(graph.stop());
}

TEST_F(AudioGraphTest, RemovedNodeLeavesAGap) {
  EXPECT_TRUE(graph_.removeNode(pitch_));
  EXPECT_EQ(graph_.unit(pitch_), nullptr);
  EXPECT_FALSE(graph_.initialize());
  EXPECT_TRUE(graph_.connect(converter_, output_, 0));
  start();
  expectSine(pull(2000), 0);
}

TEST_F(AudioGraphTest, StaysAsItIsWhileItRuns) {
  start();
  EXPECT_FALSE(graph_.removeNode(pitch_));
  EXPECT_FALSE(graph_.connect(converter_, output_, 0));
  EXPECT_FALSE(graph_.setInputCallback(pitch_, nullptr));
}

TEST_F(AudioGraphTest, ParametersBelongToTheirUnits) {
  const auto pitch = graph_.unit(pitch_);
  const auto output = graph_.unit(output_);
  EXPECT_EQ(pitch->parameter(0), 1.0F);
  EXPECT_EQ(output->parameter(14), 1.0F);
  EXPECT_TRUE(pitch->setParameter(0, 2.5F));
  EXPECT_TRUE(output->setParameter(14, 0.5F));
  EXPECT_EQ(pitch->parameter(0), 2.5F);
  EXPECT_EQ(output->parameter(14), 0.5F);
  EXPECT_FALSE(pitch->setParameter(14, 1));
  EXPECT_FALSE(output->setParameter(0, 1));
  EXPECT_EQ(pitch->parameter(14), std::nullopt);
  EXPECT_EQ(output->parameter(0), std::nullopt);
  EXPECT_FALSE(graph_.unit(converter_)->setParameter(0, 1));
  EXPECT_EQ(graph_.unit(converter_)->parameter(0), std::nullopt);
}

TEST_F(AudioGraphTest, ConverterTakesPackedFloatOnItsInputSide) {
  const auto unit = graph_.unit(converter_);
  AudioStreamFormat format;
  EXPECT_FALSE(unit->setFormat(AudioScope::kOutput, format));
  EXPECT_FALSE(unit->setFormat(AudioScope::kGlobal, format));
  EXPECT_FALSE(graph_.unit(pitch_)->setFormat(AudioScope::kInput, format));
  format.sampleRate = 48000;
  EXPECT_TRUE(unit->setFormat(AudioScope::kInput, format));
  EXPECT_EQ(unit->format(AudioScope::kInput), format);
  EXPECT_EQ(unit->format(AudioScope::kOutput), std::nullopt);
  for (const double rate : {0.0, -1.0, 1e9, std::nan("")}) {
    AudioStreamFormat wrong;
    wrong.sampleRate = rate;
    EXPECT_FALSE(unit->setFormat(AudioScope::kInput, wrong)) << rate;
  }
  AudioStreamFormat integers;
  integers.formatFlags = 12;
  EXPECT_FALSE(unit->setFormat(AudioScope::kInput, integers));
  AudioStreamFormat channels;
  channels.channelsPerFrame = 0;
  EXPECT_FALSE(unit->setFormat(AudioScope::kInput, channels));
  start();
  EXPECT_EQ(unit->format(AudioScope::kOutput), AudioStreamFormat{});
}

TEST_F(AudioGraphTest, FourCharacterCodesAreNumbers) {
  EXPECT_EQ(fourCharCode("lpcm"), 0x6C70636DU);
  EXPECT_EQ(kAudioUnitSubType_DefaultOutput, 0x64656620U);  // "def" and a blank
}

// Sound.

TEST_F(AudioGraphTest, AtRateOneSamplesPassAsTheyAre) {
  start();
  expectSine(pull(44100, 700), 0);
}

TEST_F(AudioGraphTest, GivesNothingUnlessStarted) {
  EXPECT_THAT(device_->pull(100), Each(0.0F));
  start();
  graph_.stop();
  EXPECT_THAT(device_->pull(100), Each(0.0F));
  EXPECT_EQ(fed_, 0);
}

TEST_F(AudioGraphTest, StoppedAndStartedAgainItGoesOnWithTheNextSample) {
  start();
  auto sound = pull(3000);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(graph_.stop());
    graph_.uninitialize();
    start();
    const auto more = pull(1000);
    sound.insert(sound.end(), more.begin(), more.end());
  }
  expectSine(sound, 0);
}

TEST_F(AudioGraphTest, StoppedAndStartedAgainAtAnotherTempoNothingIsLost) {
  start();
  setRate(2);
  pull(44100);
  const double before = rendered_.inputEnd;
  const int64_t fed = fed_;
  graph_.stop();
  graph_.uninitialize();
  start();
  pull(512);
  EXPECT_EQ(rendered_.inputBegin, before);
  EXPECT_LE(fed_ - fed, 2048);  // it was not filled anew
}

TEST_F(AudioGraphTest, VolumeIsAFactor) {
  setVolume(0.5);
  start();
  expectSine(pull(2000), 0, 0.125);
  setVolume(4);
  pull(512);  // on the way there
  expectSine(pull(2000), 2512, 1);
}

TEST_F(AudioGraphTest, VolumeWithoutSenseIsTheNearestThatHasSome) {
  setVolume(-1);
  start();
  EXPECT_THAT(pull(1000), Each(0.0F));
  setVolume(std::nanf(""));
  pull(512);
  expectSine(pull(1000), 1512);
  setVolume(1e30F);
  pull(512);
  const auto loud = pull(1000);
  EXPECT_NEAR(*std::ranges::max_element(loud), 250, 0.1);
}

TEST_F(AudioGraphTest, VolumeChangesWithoutAClick) {
  start();
  auto sound = pull(1024);
  for (const float volume : {0.0F, 1.0F, 0.3F}) {
    setVolume(volume);
    const auto more = pull(1024);
    sound.insert(sound.end(), more.begin(), more.end());
  }
  const double slope = 0.25 * 2 * std::numbers::pi * kTone / 44100;
  EXPECT_LT(largestStep(channelOf(sound, 0)), 1.2 * slope);
}

TEST_F(AudioGraphTest, MeterTellsTheLoudestSampleSinceTheLastQuestion) {
  start();
  pull(4410);
  EXPECT_NEAR(graph_.takePeak(0), 0.25, 1e-3);
  EXPECT_EQ(graph_.takePeak(0), 0);
  EXPECT_NEAR(graph_.takePeak(1), 0.25, 1e-3);
  EXPECT_EQ(graph_.takePeak(2), 0);
  EXPECT_EQ(graph_.takePeak(-1), 0);
}

// Tempo.

/// How many input frames are heard in so many output frames, once the rate has settled.
class AudioGraphTempo : public AudioGraphTest, public testing::WithParamInterface<float> {};

TEST_P(AudioGraphTempo, KeepsThePitchAndTakesAsMuchAsTheRateSays) {
  const float rate = GetParam();
  start();
  setRate(rate);
  pull(11025);
  const double before = rendered_.inputEnd;
  const auto sound = pull(88200);
  EXPECT_NEAR((rendered_.inputEnd - before) / 88200, rate, 0.01 * rate);
  EXPECT_LT(centsBetween(pitchOf(channelOf(sound, 0)), kTone), 3);
  EXPECT_LT(centsBetween(pitchOf(channelOf(sound, 1)), 2 * kTone), 3);
}

INSTANTIATE_TEST_SUITE_P(Rates, AudioGraphTempo,
                         testing::Values(0.25F, 0.5F, 0.75F, 1.0F, 1.5F, 2.0F, 4.0F));

TEST_F(AudioGraphTest, RateOutOfRangeIsTheNearestThatIsNot) {
  start();
  const auto speedAt = [&](float rate) {
    setRate(rate);
    pull(11025);
    const double before = rendered_.inputEnd;
    pull(44100);
    return (rendered_.inputEnd - before) / 44100;
  };
  EXPECT_NEAR(speedAt(100), 4, 0.05);
  EXPECT_NEAR(speedAt(0), 0.25, 0.01);
  EXPECT_NEAR(speedAt(std::nanf("")), 1, 1e-6);
}

TEST_F(AudioGraphTest, RateChangesWithoutAClick) {
  start();
  std::vector<float> sound;
  for (const float rate : {1.0F, 2.0F, 1.0F, 0.5F, 1.5F, 1.1F, 1.0F, 0.25F, 4.0F, 1.0F}) {
    setRate(rate);
    const auto more = pull(11025);
    sound.insert(sound.end(), more.begin(), more.end());
  }
  const double slope = 0.25 * 2 * std::numbers::pi * kTone / 44100;
  EXPECT_LT(largestStep(channelOf(sound, 0)), 2 * slope);
}

TEST_F(AudioGraphTest, BackAtRateOneSamplesPassAsTheyAre) {
  start();
  setRate(2);
  pull(22050);
  setRate(1);
  pull(22050);
  const auto first = static_cast<int64_t>(rendered_.inputEnd);
  expectSine(pull(4410), first);
}

TEST_F(AudioGraphTest, PositionDoesNotDriftWithManyChangesOfTheRate) {
  start();
  for (int i = 0; i < 300; ++i) {
    setRate(0.5F + static_cast<float>(i % 7) * 0.4F);
    pull(1024);
  }
  // Whatever the chain holds is a window and what was taken ahead for it, no more.
  EXPECT_LT(static_cast<double>(fed_) - rendered_.inputEnd, 12000);
  setRate(1);
  pull(22050);
  const auto first = static_cast<int64_t>(rendered_.inputEnd);
  expectSine(pull(2000), first);  // the position is exact again
}

TEST_F(AudioGraphTest, FlushDropsWhatIsOnItsWay) {
  start();
  setRate(2);
  pull(22050);
  const auto taken = fed_;
  graph_.flush();
  pull(512);
  EXPECT_GE(rendered_.inputBegin, static_cast<double>(taken));
  expectSine(device_->pull(256), static_cast<int64_t>(rendered_.inputBegin) + 512);
}

TEST_F(AudioGraphTest, TimesOfTheDeviceGoWithTheSound) {
  start();
  pull(512);
  const int64_t end = rendered_.end;
  EXPECT_EQ(rendered_.begin, 0);
  EXPECT_EQ(end, 512LL * 1'000'000'000 / 44100);
  EXPECT_EQ(graph_.now(), end);
  pull(512);
  EXPECT_EQ(rendered_.begin, end);
}

// Devices.

struct OtherDevice : AudioGraphTest {
  OtherDevice() : AudioGraphTest({.sampleRate = 48000, .channels = 2}) {}
};

TEST_F(OtherDevice, SoundIsConvertedToItsRate) {
  start();
  auto sound = pull(512);
  const double first = rendered_.inputBegin;  // the converter looks some samples ahead
  EXPECT_LT(std::abs(first), 64);
  const auto more = pull(96000 - 512);
  sound.insert(sound.end(), more.begin(), more.end());
  EXPECT_LT(centsBetween(pitchOf(channelOf(sound, 0), 48000), kTone), 0.5);
  const auto left = channelOf(sound, 0);
  for (size_t i = 1000; i < left.size(); ++i) {
    const double frame = first + static_cast<double>(i) * 44100 / 48000;
    ASSERT_NEAR(left[i], 0.25 * std::sin(2 * std::numbers::pi * kTone * frame / 44100), 0.005) << i;
  }
  EXPECT_NEAR(rendered_.inputEnd - first, 96000 * 44100.0 / 48000, 0.5);
}

TEST_F(OtherDevice, TempoChangesThere) {
  start();
  setRate(1.5);
  pull(12000);
  const double before = rendered_.inputEnd;
  const auto sound = pull(96000);
  EXPECT_NEAR((rendered_.inputEnd - before) / 88200, 1.5, 0.02);
  EXPECT_LT(centsBetween(pitchOf(channelOf(sound, 0), 48000), kTone), 3);
}

struct SurroundDevice : AudioGraphTest {
  SurroundDevice() : AudioGraphTest({.sampleRate = 44100, .channels = 6}) {}
};

TEST_F(SurroundDevice, StereoComesFromItsFrontSpeakers) {
  start();
  const auto sound = pull(8820);
  const auto left = channelOf(sound, 0, 1000, 6);
  const auto right = channelOf(sound, 1, 1000, 6);
  EXPECT_NEAR(*std::ranges::max_element(left), 0.25, 0.01);
  EXPECT_NEAR(*std::ranges::max_element(right), 0.25, 0.01);
  EXPECT_THAT(channelOf(sound, 4, 1000, 6), Each(0.0F));
}

struct MonoDevice : AudioGraphTest {
  MonoDevice() : AudioGraphTest({.sampleRate = 44100, .channels = 1}) {}
};

TEST_F(MonoDevice, HearsBothChannels) {
  start();
  const auto sound = pull(8820);
  ASSERT_EQ(sound.size(), 8820);
  float largest = 0;
  for (size_t i = 1000; i < sound.size(); ++i) {
    const auto frame = static_cast<int64_t>(i);
    const float both = sineAt(kTone, frame) + sineAt(2 * kTone, frame);
    largest = std::max(largest, std::abs(sound[i]));
    ASSERT_NEAR(sound[i] / 0.5, both, 0.25) << i;  // whatever it weighs them with
  }
  EXPECT_GT(largest, 0.15);
}

TEST_F(AudioGraphTest, WithoutItsDeviceTheSoundIsDroppedAndTimeGoesOn) {
  device_->setIsMissing(true);
  ASSERT_TRUE(graph_.initialize());
  EXPECT_TRUE(graph_.lacksDevice());
  std::atomic<int> pieces{0};
  graph_.setRenderCallback([&](const AudioGraph::Rendered&) { ++pieces; });
  EXPECT_TRUE(graph_.start());
  while (pieces < 3) std::this_thread::yield();
  graph_.stop();
  graph_.uninitialize();
  device_->setIsMissing(false);  // it was plugged in
  const int64_t next = fed_;
  start();
  EXPECT_FALSE(graph_.lacksDevice());
  expectSine(pull(1000), next);
}

TEST_F(AudioGraphTest, SilentGraphOpensNoDevice) {
  graph_.setIsSilent(true);
  ASSERT_TRUE(graph_.initialize());
  EXPECT_FALSE(device_->isOpen());
  EXPECT_FALSE(graph_.lacksDevice());  // it is not missed
  graph_.setIsSilent(false);
  start();
  EXPECT_TRUE(device_->isOpen());
}

TEST_F(AudioGraphTest, AnotherDeviceCountsFromTheNextInitialisationOn) {
  start();
  pull(1000);
  const auto other = std::make_shared<PulledAudioDevice>();
  graph_.setDevice(other);
  expectSine(pull(1000), 1000);
  graph_.stop();
  graph_.uninitialize();
  start();
  EXPECT_FALSE(device_->isOpen());
  expectSine(other->pull(500), 2000);
}

TEST_F(AudioGraphTest, ClosedGraphHasClosedItsDevice) {
  start();
  graph_.close();
  EXPECT_FALSE(graph_.isRunning());
  EXPECT_FALSE(device_->isOpen());
  EXPECT_FALSE(graph_.initialize());
  graph_.open();
  start();
  EXPECT_TRUE(graph_.isRunning());
}

TEST_F(AudioGraphTest, ParametersMayBeSetWhileItPlays) {
  start();
  std::jthread setter([this](const std::stop_token& stop) {
    for (int i = 0; !stop.stop_requested(); ++i) {
      setRate(0.25F + static_cast<float>(i % 16) / 4);
      setVolume(static_cast<float>(i % 3));
      graph_.flush();
      graph_.takePeak(0);
    }
  });
  pull(44100);
}

}  // namespace
}  // namespace kestrel::test
