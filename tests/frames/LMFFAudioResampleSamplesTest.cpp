#include <kestrel/LMFFAudioResample.h>

#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <vector>

#include "support/FFmpegOwners.h"
#include "tests/frames/Pcm.h"

namespace kestrel {
namespace {

using test::kStereoMask;
using test::pcmFrame;
using test::readAll;

constexpr LMFFAudioFormat kFloatStereo{AV_SAMPLE_FMT_FLT, kStereoMask, 44100};
constexpr LMFFAudioFormat kPlanarStereo{AV_SAMPLE_FMT_FLTP, kStereoMask, 44100};
constexpr LMFFAudioFormat kShortStereo{AV_SAMPLE_FMT_S16, kStereoMask, 44100};

/// Values that tell the samples apart.
double ramp(int channel, int index) { return (channel ? -1.0 : 1.0) * (index + 1) / 32768; }

TEST(LMFFAudioResampleSamples, ReadSampleAnswersZeroThoughItFilledTheBuffer) {
  LMFFAudioResample resample;
  resample.writeFrame(pcmFrame(kFloatStereo, 10, ramp).get());
  std::array<float, 8> samples{};
  EXPECT_EQ(resample.readSample(samples.data(), 4), 0);
  EXPECT_EQ(samples[6], static_cast<float>(ramp(0, 3)));
  EXPECT_EQ(samples[7], static_cast<float>(ramp(1, 3)));
  EXPECT_EQ(resample.outputSamples(), 6);
}

TEST(LMFFAudioResampleSamples, ReadSampleIgnoresNullAndNegativeCounts) {
  LMFFAudioResample resample;
  resample.writeFrame(pcmFrame(kFloatStereo, 10, ramp).get());
  float sample = 9;
  EXPECT_EQ(resample.readSample(nullptr, 4), 0);
  EXPECT_EQ(resample.readSample(&sample, -4), 0);
  EXPECT_EQ(sample, 9);
  EXPECT_EQ(resample.outputSamples(), 10);
}

TEST(LMFFAudioResampleSamples, WriteSampleTakesInterleavedBytes) {
  LMFFAudioResample resample;
  resample.setInFormat(kShortStereo);
  const std::array<int16_t, 4> samples{16384, -16384, 8192, -32768};
  resample.writeSample(samples.data(), 2);
  EXPECT_EQ(readAll(resample), (std::vector<float>{0.5F, -0.5F, 0.25F, -1.0F}));
}

TEST(LMFFAudioResampleSamples, WriteSampleTakesPlanesThatFollowEachOther) {
  LMFFAudioResample resample;
  resample.setInFormat(kPlanarStereo);
  const std::array<float, 6> samples{0.1F, 0.2F, 0.3F, -0.1F, -0.2F, -0.3F};
  resample.writeSample(samples.data(), 3);
  EXPECT_EQ(readAll(resample), (std::vector<float>{0.1F, -0.1F, 0.2F, -0.2F, 0.3F, -0.3F}));
}

TEST(LMFFAudioResampleSamples, WriteSampleDoesNotReopen) {
  LMFFAudioResample resample;
  resample.convertFormat(kShortStereo, kFloatStereo);
  SwrContext* const context = resample.context();
  const std::array<int16_t, 4> samples{};
  resample.writeSample(samples.data(), 2);
  EXPECT_EQ(resample.context(), context);
  EXPECT_EQ(resample.outputSamples(), 2);
}

TEST(LMFFAudioResampleSamples, WriteSampleIgnoresNullBadCountsAndAMissingFormat) {
  const float sample = 0;
  LMFFAudioResample fresh;
  fresh.writeSample(&sample, 1);
  EXPECT_EQ(fresh.context(), nullptr);
  LMFFAudioResample resample;
  resample.setInFormat(kFloatStereo);
  resample.writeSample(nullptr, 4);
  resample.writeSample(&sample, 0);
  resample.writeSample(&sample, -1);
  resample.writeSample(&sample, 0x7FFFFFFF);
  EXPECT_EQ(resample.outputSamples(), 0);
}

TEST(LMFFAudioResampleSamples, SamplesOfAnotherShapeThanTheOpenContextsAreReadSafely) {
  LMFFAudioResample resample;
  resample.convertFormat({AV_SAMPLE_FMT_DBL, AV_CH_LAYOUT_7POINT1, 44100}, kFloatStereo);
  resample.setInFormat(kShortStereo);
  const std::vector<int16_t> samples{16384, -16384};
  resample.writeSample(samples.data(), 1);
  EXPECT_EQ(readAll(resample), (std::vector<float>{0.5F, -0.5F}));
}

TEST(LMFFAudioResampleSamples, PlanarSoundOfMoreThanEightChannelsIsDropped) {
  const LMFFAudioFormat interleaved{AV_SAMPLE_FMT_FLT, AV_CH_LAYOUT_HEXADECAGONAL, 44100};
  const LMFFAudioFormat planar{AV_SAMPLE_FMT_FLTP, AV_CH_LAYOUT_HEXADECAGONAL, 44100};
  LMFFAudioResample input;
  input.setOutFormat(interleaved);
  const FramePtr frame = pcmFrame(planar, 10, ramp);
  input.writeFrame(frame.get());
  input.writeSample(frame->extended_data[0], 1);
  EXPECT_EQ(input.outputSamples(), 0);

  LMFFAudioResample output;
  output.setOutFormat(planar);
  output.writeFrame(pcmFrame(interleaved, 10, ramp).get());
  output.convertFrame(nullptr, frame.get());
  EXPECT_EQ(frame->nb_samples, 0);
}

TEST(LMFFAudioResampleSamples, InterleavedSoundOfSixteenChannelsPasses) {
  const LMFFAudioFormat format{AV_SAMPLE_FMT_S16, AV_CH_LAYOUT_HEXADECAGONAL, 44100};
  LMFFAudioResample resample;
  resample.setOutFormat({AV_SAMPLE_FMT_FLT, AV_CH_LAYOUT_HEXADECAGONAL, 44100});
  resample.writeFrame(pcmFrame(format, 2, [](int c, int) { return c / 32.0; }).get());
  const std::vector<float> samples = readAll(resample);
  ASSERT_EQ(samples.size(), 32U);
  EXPECT_EQ(samples[31], 15 / 32.0F);
}

TEST(LMFFAudioResampleSamples, OneThreadWritesWhileAnotherReads) {
  constexpr int kBlocks = 400;
  constexpr int kBlock = 250;
  const auto signal = [](int channel, int index) {
    return (channel ? -1.0 : 1.0) * (index % 30000) / 32768;
  };
  LMFFAudioResample resample;
  resample.convertFormat({AV_SAMPLE_FMT_S16P, kStereoMask, 44100}, kFloatStereo);
  std::thread writer([&] {
    for (int i = 0; i < kBlocks; i++) {
      const LMFFAudioFormat format{AV_SAMPLE_FMT_S16P, kStereoMask, 44100};
      resample.writeFrame(pcmFrame(format, kBlock, signal, i * kBlock).get());
    }
  });
  std::vector<float> samples;
  while (samples.size() < size_t{kBlocks} * kBlock * 2) {
    const std::vector<float> part = readAll(resample);
    samples.insert(samples.end(), part.begin(), part.end());
    if (part.empty()) std::this_thread::yield();
  }
  writer.join();
  for (int i = 0; i < kBlocks * kBlock; i++) {
    ASSERT_EQ(samples[i * 2], static_cast<float>(signal(0, i))) << i;
    ASSERT_EQ(samples[i * 2 + 1], static_cast<float>(signal(1, i))) << i;
  }
}

}  // namespace
}  // namespace kestrel
