#include "convert/feed/LoudnessMeter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace kestrel::test {
namespace {

constexpr int kRate = 48000;

/// Five seconds of a tone of 997 Hz in some of so many channels.
std::vector<float> tone(double amplitude, size_t channels, const std::vector<size_t>& sounding) {
  std::vector<float> samples(5 * kRate * channels);
  for (size_t i = 0; i < 5 * kRate; ++i)
    for (const size_t channel : sounding)
      samples[i * channels + channel] = static_cast<float>(
          amplitude * std::sin(2 * std::numbers::pi * 997 * static_cast<double>(i) / kRate));
  return samples;
}

double loudness(int64_t layout, const std::vector<float>& samples) {
  LoudnessMeter meter(kRate, layout);
  meter.take(samples);
  return meter.loudness().value();
}

// Recommendation ITU-R BS.1770-4, annex 1: a tone of 997 Hz at full scale in one front channel has
// -3.01 LUFS.
TEST(LoudnessMeter, AFullToneInOneFrontChannel) {
  EXPECT_NEAR(loudness(0x4, tone(1, 1, {0})), -3.01, 0.05);
  EXPECT_NEAR(loudness(0x3, tone(1, 2, {0})), -3.01, 0.05);
  EXPECT_NEAR(loudness(0x3, tone(1, 2, {0, 1})), 0, 0.05);
  EXPECT_NEAR(loudness(0x3, tone(0.1, 2, {0, 1})), -20, 0.05);
}

// 10 log10 of 1.41 more for surround channels, nothing for low frequencies.
TEST(LoudnessMeter, ChannelsCountByTheirPlace) {
  const auto one = [](int64_t layout, size_t channels, size_t sounding) {
    return loudness(layout, tone(1, channels, {sounding}));
  };
  EXPECT_NEAR(one(0x3F, 6, 2), -3.01, 0.05);
  EXPECT_NEAR(one(0x3F, 6, 4), -1.52, 0.05);
  EXPECT_NEAR(one(0x60F, 6, 5), -1.52, 0.05);
  EXPECT_NEAR(one(0x63F, 8, 6), -1.52, 0.05);  // beside the listener
  EXPECT_NEAR(one(0x63F, 8, 4), -3.01, 0.05);  // behind
  LoudnessMeter low(kRate, 0x3F);
  low.take(tone(1, 6, {3}));
  EXPECT_FALSE(low.loudness());
}

TEST(LoudnessMeter, SilenceAndTooLittleHaveNone) {
  LoudnessMeter silent(kRate, 0x3);
  silent.take(std::vector<float>(2 * 2 * kRate));
  EXPECT_FALSE(silent.loudness());
  LoudnessMeter brief(kRate, 0x4);
  brief.take(std::vector<float>(kRate / 4, 0.5F));
  EXPECT_FALSE(brief.loudness());
}

}  // namespace
}  // namespace kestrel::test
