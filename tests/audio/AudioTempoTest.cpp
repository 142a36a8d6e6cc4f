#include <gtest/gtest.h>
#include <kestrel/AudioTempo.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <tuple>
#include <vector>

namespace kestrel {
namespace {

constexpr double kTone = 441;

/// All that comes out when a tone of two seconds goes in, the first channel's in phase, each other
/// one silent.
std::vector<float> played(AudioTempo& tempo, int32_t sampleRate, int32_t channels) {
  constexpr int32_t kStep = 1000;
  std::vector<float> all;
  std::vector<float> block(static_cast<size_t>(kStep) * channels);
  const auto drain = [&] {
    while (const int32_t frames = tempo.read(block.data(), kStep))
      all.insert(all.end(), block.begin(),
                 block.begin() + static_cast<ptrdiff_t>(frames) * channels);
  };
  for (int32_t begin = 0; begin < 2 * sampleRate; begin += kStep) {
    const int32_t frames = std::min(kStep, 2 * sampleRate - begin);
    std::fill(block.begin(), block.end(), 0.0F);
    for (int32_t i = 0; i < frames; ++i)
      block[static_cast<size_t>(i) * channels] = static_cast<float>(
          0.5 * std::sin(2 * std::numbers::pi * kTone * (begin + i) / sampleRate));
    tempo.write(block.data(), frames);
    drain();
  }
  tempo.write(nullptr, 0);
  drain();
  return all;
}

/// How often a channel rises through zero in a second of its middle half.
double pitchOf(const std::vector<float>& samples, int32_t sampleRate, int32_t channels) {
  const size_t frames = samples.size() / channels;
  int rises = 0;
  for (size_t i = frames / 4; i < frames / 4 * 3; ++i)
    rises += samples[i * channels] < 0 && samples[(i + 1) * channels] >= 0;
  return rises / (static_cast<double>(frames / 4 * 2) / sampleRate);
}

class AudioTempoRate : public testing::TestWithParam<std::tuple<double, int32_t, int32_t>> {};

TEST_P(AudioTempoRate, ChangesTheLengthAndNotThePitch) {
  const auto [rate, sampleRate, channels] = GetParam();
  const auto tempo = AudioTempo::make(rate, sampleRate, channels);
  ASSERT_TRUE(tempo);
  const std::vector<float> samples = played(*tempo, sampleRate, channels);
  const double seconds = static_cast<double>(samples.size()) / channels / sampleRate;
  EXPECT_NEAR(seconds, 2 / rate, 0.05 + 0.02 * 2 / rate);
  // A tenth of a second is the least in which a tone can be counted.
  if (seconds > 0.1) {
    EXPECT_NEAR(pitchOf(samples, sampleRate, channels), kTone, kTone * 0.05);
  }
  for (size_t i = 0; i < samples.size(); ++i) {
    if (i % channels == 0) continue;
    ASSERT_EQ(samples[i], 0) << "channel " << i % channels;
  }
}

INSTANTIATE_TEST_SUITE_P(Rates, AudioTempoRate,
                         testing::Values(std::tuple{0.01, 8000, 1}, std::tuple{0.3, 44100, 2},
                                         std::tuple{0.5, 48000, 2}, std::tuple{0.9, 44100, 1},
                                         std::tuple{1.0, 44100, 2}, std::tuple{1.5, 44100, 8},
                                         std::tuple{2.0, 22050, 6}, std::tuple{4.0, 96000, 3},
                                         std::tuple{100.0, 44100, 2}));

TEST(AudioTempo, IsNotMadeForWhatIsImpossible) {
  EXPECT_FALSE(AudioTempo::make(0.0099, 44100, 2));
  EXPECT_FALSE(AudioTempo::make(101, 44100, 2));
  EXPECT_FALSE(AudioTempo::make(NAN, 44100, 2));
  EXPECT_FALSE(AudioTempo::make(2, 0, 2));
  EXPECT_FALSE(AudioTempo::make(2, 44100, 0));
  EXPECT_FALSE(AudioTempo::make(2, 44100, 9));
}

TEST(AudioTempo, NothingMakesNothing) {
  const auto tempo = AudioTempo::make(2, 44100, 2);
  ASSERT_TRUE(tempo);
  float sample[2] = {7, 7};
  EXPECT_EQ(tempo->read(sample, 1), 0);
  tempo->write(nullptr, 0);
  EXPECT_EQ(tempo->read(sample, 1), 0);
  EXPECT_EQ(tempo->read(sample, -1), 0);
  EXPECT_EQ(sample[0], 7);
}

}  // namespace
}  // namespace kestrel
