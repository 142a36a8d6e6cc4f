#include "convert/feed/PeakLimiter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

namespace {

using kestrel::PeakLimiter;

constexpr int kRate = 48000;

/// Everything that comes out, taken in pieces of changing sizes.
std::vector<float> limited(const std::vector<float>& samples, int channels) {
  PeakLimiter limiter(kRate, channels);
  std::vector<float> output;
  const auto add = [&](const std::vector<float>& piece) {
    output.insert(output.end(), piece.begin(), piece.end());
  };
  size_t begin = 0;
  for (size_t piece = 1; begin < samples.size(); piece = piece % 997 + 13) {
    const size_t end = std::min(samples.size(), begin + piece * static_cast<size_t>(channels));
    add(limiter.process({samples.data() + begin, end - begin}));
    begin = end;
  }
  add(limiter.finish());
  return output;
}

/// The highest value of a band-limited signal through the samples, by a sinc under a Hann window at
/// eight points in each gap.
double truePeak(const std::vector<float>& samples) {
  constexpr int kReach = 32;
  constexpr int kPoints = 8;
  double peak = 0;
  const auto size = static_cast<int64_t>(samples.size());
  for (int64_t i = kReach; i + kReach < size; ++i) {
    for (int point = 0; point < kPoints; ++point) {
      const double shift = static_cast<double>(point) / kPoints;
      double value = 0;
      for (int64_t tap = -kReach + 1; tap <= kReach; ++tap) {
        const double x = (static_cast<double>(tap) - shift) * std::numbers::pi;
        const double window = 0.5 + 0.5 * std::cos(x / kReach);
        value += samples[static_cast<size_t>(i + tap)] * window * (x == 0 ? 1 : std::sin(x) / x);
      }
      peak = std::max(peak, std::abs(value));
    }
  }
  return peak;
}

double decibels(double factor) { return 20 * std::log10(factor); }

/// A tone at `level` under full scale's 1, with a phase that keeps samples off its crests.
std::vector<float> tone(double hertz, double level, double seconds) {
  std::vector<float> samples(static_cast<size_t>(seconds * kRate));
  for (size_t i = 0; i < samples.size(); ++i)
    samples[i] = static_cast<float>(
        level * std::sin(2 * std::numbers::pi * hertz * static_cast<double>(i) / kRate +
                         std::numbers::pi / 4));
  return samples;
}

TEST(PeakLimiterTest, LeavesQuietSoundUntouched) {
  std::mt19937 random(7);
  std::uniform_real_distribution<float> level(-0.5F, 0.5F);
  std::vector<float> samples(2L * kRate);
  std::ranges::generate(samples, [&] { return level(random); });
  EXPECT_EQ(limited(samples, 2), samples);
}

TEST(PeakLimiterTest, KeepsTheNumberOfFramesOfTheShortestSound) {
  for (const size_t frames : {0, 1, 5, 240, 250, 1000})
    EXPECT_EQ(limited(std::vector<float>(frames * 6, 0.25F), 6),
              std::vector<float>(frames * 6, 0.25F));
}

// A quarter of the sample rate, 45 degrees off: the samples lie 3 dB below the crests.
TEST(PeakLimiterTest, TurnsDownWhatOnlyPeaksBetweenSamples) {
  const std::vector<float> output = limited(tone(kRate / 4.0, 1.2, 0.25), 1);
  EXPECT_LE(decibels(truePeak(output)), -0.9);
  EXPECT_GE(decibels(truePeak(output)), -1.6);
}

TEST(PeakLimiterTest, HoldsLoudNoiseBelowItsCeiling) {
  std::mt19937 random(11);
  std::normal_distribution<float> level(0, 0.7F);
  std::vector<float> samples(kRate / 2);
  // Recorded sound has little above 16 kHz; white noise would peak between samples without end.
  float before = 0;
  for (float& sample : samples) {
    const float now = level(random);
    sample = 0.5F * (now + before);
    before = now;
  }
  const double peak = decibels(truePeak(limited(samples, 1)));
  EXPECT_LE(peak, -0.8);
  EXPECT_GE(peak, -1.5);
}

TEST(PeakLimiterTest, DamagedSamplesStayWithinIt) {
  std::vector<float> samples = tone(440, 0.5, 0.2);
  samples[3000] = std::numeric_limits<float>::infinity();
  samples[4000] = -std::numeric_limits<float>::infinity();
  samples[5000] = std::nanf("");
  for (const float sample : limited(samples, 1)) EXPECT_LE(std::abs(sample), 0.9F);
}

TEST(PeakLimiterTest, GivesAllChannelsTheSameGain) {
  const std::vector<float> loud = tone(440, 2, 0.2);
  std::vector<float> samples;
  for (const float sample : loud) samples.insert(samples.end(), {sample, sample / 4});
  const std::vector<float> output = limited(samples, 2);
  ASSERT_EQ(output.size(), samples.size());
  for (size_t i = 0; i < output.size(); i += 2) EXPECT_NEAR(output[i + 1], output[i] / 4, 1e-6);
}

TEST(PeakLimiterTest, IsBackAtFullGainHalfASecondAfterAPeak) {
  std::vector<float> samples = tone(440, 0.5, 1);
  samples[kRate / 4] = 3;
  const std::vector<float> output = limited(samples, 1);
  EXPECT_LE(std::abs(output[kRate / 4]), 0.9F);
  const auto late = static_cast<std::ptrdiff_t>(kRate * 3L / 4);
  EXPECT_TRUE(std::equal(output.begin() + late, output.end(), samples.begin() + late));
}

TEST(PeakLimiterTest, TurnsDownBeforeThePeakAndNotByCutting) {
  std::vector<float> samples = tone(1000, 0.5, 0.5);
  const auto peak = static_cast<size_t>(kRate / 4);
  samples[peak] = 2;
  const std::vector<float> output = limited(samples, 1);
  // Neighbouring gains differ by no more than 1/240 of the whole way: it comes down within 5 ms.
  for (size_t i = peak - 300; i < peak + 300; ++i) {
    if (std::abs(samples[i]) < 0.1F || std::abs(samples[i + 1]) < 0.1F) continue;
    EXPECT_LE(std::abs(output[i + 1] / samples[i + 1] - output[i] / samples[i]), 1.0 / 200);
  }
}

}  // namespace
