#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/FFmpegOwners.h"
#include "tests/frames/Pcm.h"

namespace kestrel {
namespace {

using test::constant;
using test::kMonoMask;
using test::kStereoMask;
using test::pcmFrame;
using test::readAll;
using test::Signal;

constexpr int64_t kFiveOne = AV_CH_LAYOUT_5POINT1_BACK;
constexpr int64_t kSevenOne = AV_CH_LAYOUT_7POINT1;
constexpr double kHalfPower = std::numbers::sqrt2 / 2;

LMFFAudioFormat floatFormat(int64_t mask, int32_t rate = 44100) {
  return {AV_SAMPLE_FMT_FLT, mask, rate};
}

/// One sample of `signal` in `in`, converted to interleaved float of the layout `mask`.
std::vector<float> convertedSample(const LMFFAudioFormat& in, int64_t mask, const Signal& signal) {
  LMFFAudioResample resample;
  resample.setOutFormat(floatFormat(mask, in.sample_rate));
  resample.writeFrame(pcmFrame(in, 1, signal).get());
  return readAll(resample);
}

double decibels(double ratio) { return 20 * std::log10(ratio); }

TEST(LMFFAudioResampleLevel, StereoFloatPassesBitForBit) {
  const Signal odd = [](int channel, int index) {
    return std::sin(index * 12.9898 + channel) * 3 + 1e-30 * index;
  };
  for (const auto sampleFormat : {AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_FLTP}) {
    LMFFAudioResample resample;
    resample.writeFrame(pcmFrame({sampleFormat, kStereoMask, 44100}, 1000, odd).get());
    const std::vector<float> samples = readAll(resample);
    ASSERT_EQ(samples.size(), 2000U);
    for (int i = 0; i < 1000; i++) {
      ASSERT_EQ(samples[i * 2], static_cast<float>(odd(0, i)));
      ASSERT_EQ(samples[i * 2 + 1], static_cast<float>(odd(1, i)));
    }
  }
}

TEST(LMFFAudioResampleLevel, SixteenBitsSurviveTheWayThroughFloat) {
  const LMFFAudioFormat shorts{AV_SAMPLE_FMT_S16, kStereoMask, 44100};
  std::vector<int16_t> all;
  for (int i = -32768; i < 32768; i++) all.push_back(static_cast<int16_t>(i));
  LMFFAudioResample toFloat, toShort;
  toFloat.convertFormat(shorts, floatFormat(kStereoMask));
  toFloat.writeSample(all.data(), 32768);
  const std::vector<float> floats = readAll(toFloat);
  toShort.convertFormat(floatFormat(kStereoMask), shorts);
  toShort.writeSample(floats.data(), 32768);
  std::vector<int16_t> back(all.size());
  toShort.readSample(back.data(), 32768);
  EXPECT_EQ(back, all);
}

TEST(LMFFAudioResampleLevel, MonoReachesBothSidesAtFullLevel) {
  EXPECT_EQ(convertedSample(floatFormat(kMonoMask), kStereoMask, constant(0.625)),
            (std::vector<float>{0.625F, 0.625F}));
  EXPECT_EQ(
      convertedSample({AV_SAMPLE_FMT_S16P, kMonoMask, 44100}, kStereoMask, constant(-1)).front(),
      -1.0F);
}

TEST(LMFFAudioResampleLevel, StereoToMonoIsTheMean) {
  const auto signal = [](int channel, int) { return channel ? -0.25 : 1.0; };
  const std::vector<float> samples = convertedSample(floatFormat(kStereoMask), kMonoMask, signal);
  ASSERT_EQ(samples.size(), 1U);
  EXPECT_NEAR(samples[0], 0.375, 1e-6);
}

TEST(LMFFAudioResampleLevel, MonoThroughStereoToMonoKeepsItsLevel) {
  LMFFAudioResample up, down;
  up.convertFormat(floatFormat(kMonoMask, 48000), floatFormat(kStereoMask));
  down.convertFormat(floatFormat(kStereoMask), floatFormat(kMonoMask, 48000));
  const auto sine = [](int, int i) { return 0.5 * std::sin(i * 2 * std::numbers::pi / 48); };
  up.writeFrame(pcmFrame(floatFormat(kMonoMask, 48000), 48000, sine).get());
  const std::vector<float> stereo = readAll(up);
  down.writeSample(stereo.data(), static_cast<int32_t>(stereo.size() / 2));
  const std::vector<float> mono = readAll(down);
  double power = 0;
  for (int i = 4800; i < 43200; i++) power += double{mono[i]} * mono[i];
  EXPECT_NEAR(decibels(std::sqrt(power / 38400) / (0.5 * kHalfPower)), 0, 0.1);
}

TEST(LMFFAudioResampleLevel, MonoBecomesTheCentreOfALayoutThatHasOne) {
  EXPECT_EQ(convertedSample(floatFormat(kMonoMask), kFiveOne, constant(0.5)),
            (std::vector<float>{0, 0, 0.5F, 0, 0, 0}));
}

TEST(LMFFAudioResampleLevel, MonoReachesBothFrontSidesOfALayoutWithoutCentre) {
  EXPECT_EQ(convertedSample(floatFormat(kMonoMask), AV_CH_LAYOUT_QUAD, constant(0.5)),
            (std::vector<float>{0.5F, 0.5F, 0, 0}));
}

TEST(LMFFAudioResampleLevel, FoldDownsOfFullScaleDoNotClip) {
  for (const int64_t mask : {int64_t{kFiveOne}, int64_t{AV_CH_LAYOUT_5POINT1}, kSevenOne,
                             int64_t{AV_CH_LAYOUT_QUAD}, int64_t{AV_CH_LAYOUT_SURROUND}}) {
    for (const int64_t target : {kStereoMask, kMonoMask}) {
      for (const double level : {1.0, -1.0}) {
        const std::vector<float> samples =
            convertedSample(floatFormat(mask), target, constant(level));
        for (const float sample : samples) EXPECT_LE(std::fabs(sample), 1.0 + 1e-6) << mask;
        // The loudest case just reaches full scale: no level is given away.
        EXPECT_NEAR(samples[0], level, 1e-3) << mask;
      }
    }
  }
}

struct Shape {
  int64_t mask;
  int channels;
};

class LMFFAudioResampleShape : public testing::TestWithParam<std::tuple<int, Shape>> {};

/// Left and right of a fold-down by the common coefficients: centre, sides and backs at half power,
/// no low frequencies, everything divided by the sum of the coefficients.
double foldedDown(int channels, int side, const Signal& signal) {
  if (channels == 1) return signal(0, 0);
  double sum = signal(side, 0), weight = 1;
  if (channels > 2) {
    sum += kHalfPower * signal(2, 0);
    weight += kHalfPower;
  }
  for (int pair = 4; pair < channels; pair += 2) {
    sum += kHalfPower * signal(pair + side, 0);
    weight += kHalfPower;
  }
  return sum / weight;
}

TEST_P(LMFFAudioResampleShape, ComesOutAsStereoFloat) {
  const auto [sampleFormat, shape] = GetParam();
  const Signal signal = [](int channel, int) { return 0.5 - 0.125 * channel; };
  const std::vector<float> samples =
      convertedSample({sampleFormat, shape.mask, 44100}, kStereoMask, signal);
  ASSERT_EQ(samples.size(), 2U);
  EXPECT_NEAR(samples[0], foldedDown(shape.channels, 0, signal), 1e-4);
  EXPECT_NEAR(samples[1], foldedDown(shape.channels, 1, signal), 1e-4);
}

TEST_P(LMFFAudioResampleShape, KeepsEveryChannelWhenOnlyTheSampleFormatChanges) {
  const auto [sampleFormat, shape] = GetParam();
  const Signal signal = [](int channel, int) { return 0.5 - 0.125 * channel; };
  const std::vector<float> samples =
      convertedSample({sampleFormat, shape.mask, 44100}, shape.mask, signal);
  ASSERT_EQ(samples.size(), static_cast<size_t>(shape.channels));
  for (int c = 0; c < shape.channels; c++) EXPECT_EQ(samples[c], signal(c, 0)) << c;
}

INSTANTIATE_TEST_SUITE_P(
    Formats, LMFFAudioResampleShape,
    testing::Combine(testing::Values<int>(AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_S16P, AV_SAMPLE_FMT_S32,
                                          AV_SAMPLE_FMT_S32P, AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_FLTP,
                                          AV_SAMPLE_FMT_DBL, AV_SAMPLE_FMT_DBLP),
                     testing::Values(Shape{kMonoMask, 1}, Shape{kStereoMask, 2}, Shape{kFiveOne, 6},
                                     Shape{kSevenOne, 8})),
    [](const auto& item) {
      const auto format = static_cast<AVSampleFormat>(std::get<0>(item.param));
      return std::string(av_get_sample_fmt_name(format)) + "_" +
             std::to_string(std::get<1>(item.param).channels);
    });

class LMFFAudioResampleRate : public testing::TestWithParam<std::pair<int, int>> {};

/// Writes `count` samples of a 400 Hz tone in blocks of 1000 and answers all that comes out.
std::vector<float> convertedTone(LMFFAudioResample& resample, int rate, int count) {
  const auto tone = [rate](int, int i) {
    return 0.5 * std::sin(2 * std::numbers::pi * 400 * i / rate);
  };
  for (int first = 0; first < count; first += 1000) {
    const int block = std::min(1000, count - first);
    resample.writeFrame(pcmFrame(floatFormat(kStereoMask, rate), block, tone, first).get());
  }
  resample.flush();
  return readAll(resample);
}

TEST_P(LMFFAudioResampleRate, GivesTheExactTotalAtTheSameLevelAndInStep) {
  const auto [from, to] = GetParam();
  const int count = from + 12345;
  LMFFAudioResample resample;
  resample.setOutFormat(floatFormat(kStereoMask, to));
  // Twice: flushing leaves the converter ready for more.
  for (int run = 0; run < 2; run++) {
    const std::vector<float> samples = convertedTone(resample, from, count);
    const auto outputs = static_cast<int>(samples.size() / 2);
    EXPECT_NEAR(outputs, static_cast<double>(count) * to / from, 1) << run;
    double worst = 0;
    for (int i = to / 50; i < outputs - to / 50; i++) {
      const double expected = 0.5 * std::sin(2 * std::numbers::pi * 400 * i / to);
      worst = std::max(worst, std::fabs(samples[i * 2] - expected));
    }
    // 0.1 dB of 0.5 is 0.0058.
    EXPECT_LT(worst, 0.005) << run;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rates, LMFFAudioResampleRate,
    testing::Values(std::pair{8000, 44100}, std::pair{11025, 44100}, std::pair{16000, 44100},
                    std::pair{22050, 44100}, std::pair{32000, 44100}, std::pair{48000, 44100},
                    std::pair{88200, 44100}, std::pair{96000, 44100}, std::pair{192000, 44100},
                    std::pair{44100, 8000}, std::pair{44100, 22050}, std::pair{44100, 48000},
                    std::pair{44100, 96000}, std::pair{44100, 192000}),
    [](const auto& item) {
      return std::to_string(item.param.first) + "_to_" + std::to_string(item.param.second);
    });

TEST(LMFFAudioResampleFlush, KeepsTheQueueAndTheMonoLevel) {
  LMFFAudioResample resample;
  resample.setOutFormat(floatFormat(kStereoMask));
  const LMFFAudioFormat mono = floatFormat(kMonoMask, 22050);
  resample.writeFrame(pcmFrame(mono, 22050, constant(0.5)).get());
  SwrContext* const context = resample.context();
  const int queued = resample.outputSamples();
  resample.flush();
  EXPECT_EQ(resample.context(), context);
  EXPECT_GT(resample.outputSamples(), queued);
  EXPECT_NEAR(resample.outputSamples(), 44100, 1);
  resample.writeFrame(pcmFrame(mono, 22050, constant(0.5)).get());
  EXPECT_NEAR(readAll(resample)[2 * 60000], 0.5, 0.001);
}

TEST(LMFFAudioResampleFlush, ChangesNothingWithoutARateConversion) {
  LMFFAudioResample resample;
  resample.flush();
  EXPECT_EQ(resample.context(), nullptr);
  for (const auto sampleFormat : {AV_SAMPLE_FMT_FLT, AV_SAMPLE_FMT_S16P}) {
    const LMFFAudioFormat format{sampleFormat, kStereoMask, 44100};
    resample.close();
    resample.writeFrame(pcmFrame(format, 10, constant(0.5)).get());
    resample.flush();
    resample.flush();
    resample.writeFrame(pcmFrame(format, 10, constant(0.5)).get());
    EXPECT_EQ(readAll(resample), std::vector<float>(40, 0.5F));
  }
}

}  // namespace
}  // namespace kestrel
