#include <kestrel/LMFFAudioResample.h>

#include <gtest/gtest.h>

#include <vector>

#include "support/FFmpegOwners.h"
#include "tests/frames/Pcm.h"

namespace kestrel {
namespace {

using test::constant;
using test::kStereoMask;
using test::pcmFrame;
using test::readAll;

constexpr LMFFAudioFormat kFloatStereo{AV_SAMPLE_FMT_FLT, kStereoMask, 44100};
constexpr LMFFAudioFormat kFloatStereo48k{AV_SAMPLE_FMT_FLT, kStereoMask, 48000};
constexpr LMFFAudioFormat kPlanarStereo{AV_SAMPLE_FMT_FLTP, kStereoMask, 44100};
constexpr LMFFAudioFormat kShortStereo{AV_SAMPLE_FMT_S16, kStereoMask, 44100};

/// Values that tell the samples apart.
double ramp(int channel, int index) { return (channel ? -1.0 : 1.0) * (index + 1) / 32768; }

/// A frame that offers `count` interleaved stereo float samples of room.
FramePtr room(std::vector<float>& memory, int count) {
  memory.assign(static_cast<size_t>(count) * 2, 9.0F);
  FramePtr frame = makeFrame();
  frame->data[0] = reinterpret_cast<uint8_t*>(memory.data());
  frame->nb_samples = count;
  return frame;
}

TEST(LMFFAudioResample, StartsClosedWithTheDefaultOutputFormat) {
  const LMFFAudioResample resample;
  EXPECT_EQ(resample.context(), nullptr);
  EXPECT_EQ(resample.inFormat(), (LMFFAudioFormat{0, 0, 0}));
  EXPECT_EQ(resample.outFormat(), kFloatStereo);
  EXPECT_EQ(resample.outputFormat(), kFloatStereo);
}

TEST(LMFFAudioResample, FreshObjectHasNoSamplesWaiting) {
  const LMFFAudioResample resample;
  EXPECT_EQ(resample.outputSamples(), 0);
}

TEST(LMFFAudioResample, OutputFormatIsTheOneSet) {
  LMFFAudioResample resample;
  resample.setOutFormat(kShortStereo);
  EXPECT_EQ(resample.outFormat(), kShortStereo);
  EXPECT_EQ(resample.outputFormat(), kShortStereo);
}

TEST(LMFFAudioResample, SettingAFormatDoesNotReopen) {
  LMFFAudioResample resample;
  resample.convertFormat(kFloatStereo, kFloatStereo);
  SwrContext* const context = resample.context();
  ASSERT_NE(context, nullptr);
  resample.setInFormat(kShortStereo);
  resample.setOutFormat(kFloatStereo48k);
  EXPECT_EQ(resample.context(), context);
  EXPECT_EQ(resample.inFormat(), kShortStereo);
}

TEST(LMFFAudioResample, OpenWithoutAnInputFormatStaysClosed) {
  LMFFAudioResample resample;
  resample.open();
  EXPECT_EQ(resample.context(), nullptr);
}

TEST(LMFFAudioResample, FailedOpenClosesWhatWasOpen) {
  LMFFAudioResample resample;
  resample.convertFormat(kFloatStereo, kFloatStereo);
  resample.writeFrame(pcmFrame(kFloatStereo, 10, ramp).get());
  resample.setInFormat({AV_SAMPLE_FMT_FLT, kStereoMask, 0});
  resample.open();
  EXPECT_EQ(resample.context(), nullptr);
  EXPECT_EQ(resample.outputSamples(), 0);
}

TEST(LMFFAudioResample, NextInputOpensAgainAfterAFailedOpen) {
  LMFFAudioResample resample;
  resample.setInFormat(kFloatStereo);
  resample.setOutFormat({AV_SAMPLE_FMT_FLT, 0, 44100});
  resample.open();
  ASSERT_EQ(resample.context(), nullptr);
  resample.setOutFormat(kFloatStereo);
  resample.writeFrame(pcmFrame(kFloatStereo, 10, ramp).get());
  EXPECT_EQ(resample.outputSamples(), 10);
}

TEST(LMFFAudioResample, WritesToAnObjectThatCannotOpenAreDropped) {
  LMFFAudioResample resample;
  resample.setOutFormat({AV_SAMPLE_FMT_FLT, 0, 44100});
  resample.writeFrame(pcmFrame(kFloatStereo, 10, ramp).get());
  EXPECT_EQ(resample.context(), nullptr);
  EXPECT_EQ(resample.outputSamples(), 0);
}

TEST(LMFFAudioResample, ConvertFormatDoesNothingWhenTheFormatsAreTheOpenOnes) {
  LMFFAudioResample resample;
  resample.convertFormat(kPlanarStereo, kFloatStereo);
  SwrContext* const context = resample.context();
  resample.writeFrame(pcmFrame(kPlanarStereo, 10, ramp).get());
  resample.convertFormat(kPlanarStereo, kFloatStereo);
  EXPECT_EQ(resample.context(), context);
  EXPECT_EQ(resample.outputSamples(), 10);
}

TEST(LMFFAudioResample, ConvertFormatReopensForAnotherOutput) {
  LMFFAudioResample resample;
  resample.convertFormat(kPlanarStereo, kFloatStereo);
  resample.writeFrame(pcmFrame(kPlanarStereo, 10, ramp).get());
  resample.convertFormat(kPlanarStereo, kShortStereo);
  EXPECT_EQ(resample.outFormat(), kShortStereo);
  EXPECT_EQ(resample.outputSamples(), 0);
}

TEST(LMFFAudioResample, ConvertFormatOpensAClosedObjectWithTheSameFormats) {
  LMFFAudioResample resample;
  resample.convertFormat(kPlanarStereo, kFloatStereo);
  resample.close();
  resample.convertFormat(kPlanarStereo, kFloatStereo);
  EXPECT_NE(resample.context(), nullptr);
}

TEST(LMFFAudioResample, ClearAndCloseDropTheQueue) {
  for (void (LMFFAudioResample::*operation)() :
       {&LMFFAudioResample::clear, &LMFFAudioResample::close}) {
    LMFFAudioResample resample;
    resample.writeFrame(pcmFrame(kFloatStereo, 10, ramp).get());
    ASSERT_EQ(resample.outputSamples(), 10);
    (resample.*operation)();
    EXPECT_EQ(resample.context(), nullptr);
    EXPECT_EQ(resample.outputSamples(), 0);
    (resample.*operation)();
    EXPECT_EQ(resample.context(), nullptr);
  }
}

TEST(LMFFAudioResample, FrameInTheSameFormatNeverReopens) {
  LMFFAudioResample resample;
  resample.writeFrame(pcmFrame(kFloatStereo, 10, ramp).get());
  SwrContext* const context = resample.context();
  resample.writeFrame(pcmFrame(kFloatStereo, 20, ramp).get());
  EXPECT_EQ(resample.context(), context);
  EXPECT_EQ(resample.outputSamples(), 30);
}

TEST(LMFFAudioResample, FrameAtAnotherRateReopensAndTheQueueIsLost) {
  LMFFAudioResample resample;
  resample.setOutFormat(kFloatStereo48k);
  resample.writeFrame(pcmFrame(kFloatStereo, 4410, ramp).get());
  ASSERT_GT(resample.outputSamples(), 4000);
  resample.writeFrame(pcmFrame(kFloatStereo48k, 100, ramp).get());
  EXPECT_EQ(resample.inFormat(), kFloatStereo48k);
  EXPECT_EQ(resample.outFormat(), kFloatStereo48k);
  EXPECT_EQ(resample.outputSamples(), 100);
}

TEST(LMFFAudioResample, FrameInAnotherFormatReopensEvenWithoutSamples) {
  LMFFAudioResample resample;
  resample.writeFrame(pcmFrame(kFloatStereo, 10, ramp).get());
  const FramePtr empty = pcmFrame(kShortStereo, 1, ramp);
  empty->nb_samples = 0;
  resample.writeFrame(empty.get());
  EXPECT_EQ(resample.inFormat(), kShortStereo);
  EXPECT_EQ(resample.outputSamples(), 0);
}

TEST(LMFFAudioResample, OneSidedMonoIsOpenedAsMonoAndDoesNotReopen) {
  for (const int64_t mask : {1, 2}) {
    const LMFFAudioFormat oneSided{AV_SAMPLE_FMT_FLT, mask, 44100};
    LMFFAudioResample resample;
    resample.writeFrame(pcmFrame(oneSided, 4, constant(0.25)).get());
    SwrContext* const context = resample.context();
    EXPECT_EQ(resample.inFormat(), oneSided);
    resample.writeFrame(pcmFrame(oneSided, 4, constant(0.25)).get());
    EXPECT_EQ(resample.context(), context);
    EXPECT_EQ(resample.inFormat(), oneSided);
    EXPECT_EQ(readAll(resample), std::vector<float>(16, 0.25F));
  }
}

TEST(LMFFAudioResample, FrameThatOnlyCountsItsChannelsHasTheDefaultLayout) {
  const FramePtr frame = pcmFrame(kFloatStereo, 10, ramp);
  frame->ch_layout = {};
  frame->ch_layout.order = AV_CHANNEL_ORDER_UNSPEC;
  frame->ch_layout.nb_channels = 2;
  LMFFAudioResample resample;
  resample.writeFrame(frame.get());
  EXPECT_EQ(resample.inFormat(), kFloatStereo);
  EXPECT_EQ(resample.outputSamples(), 10);
}

TEST(LMFFAudioResample, FrameWithoutChannelsIsDropped) {
  const FramePtr frame = pcmFrame(kFloatStereo, 10, ramp);
  frame->ch_layout = {};
  LMFFAudioResample resample;
  resample.writeFrame(frame.get());
  EXPECT_EQ(resample.context(), nullptr);
  EXPECT_EQ(resample.outputSamples(), 0);
}

TEST(LMFFAudioResample, InputAndOutputInOneCallReturnTheOldestAndKeepTheRest) {
  LMFFAudioResample resample;
  std::vector<float> memory;
  const FramePtr to = room(memory, 4);
  resample.convertFrame(pcmFrame(kPlanarStereo, 10, ramp).get(), to.get());
  EXPECT_EQ(to->nb_samples, 4);
  EXPECT_EQ(resample.outputSamples(), 6);
  for (int i = 0; i < 4; i++) {
    EXPECT_EQ(memory[i * 2], ramp(0, i));
    EXPECT_EQ(memory[i * 2 + 1], ramp(1, i));
  }
  EXPECT_EQ(readAll(resample).front(), static_cast<float>(ramp(0, 4)));
}

TEST(LMFFAudioResample, ReadingMoreThanThereIsAnswersWhatThereWas) {
  LMFFAudioResample resample;
  resample.writeFrame(pcmFrame(kPlanarStereo, 3, ramp).get());
  std::vector<float> memory;
  const FramePtr to = room(memory, 8);
  resample.convertFrame(nullptr, to.get());
  EXPECT_EQ(to->nb_samples, 3);
  EXPECT_EQ(memory[5], static_cast<float>(ramp(1, 2)));
  EXPECT_EQ(memory[6], 9.0F);
}

TEST(LMFFAudioResample, ReadsIntoAPlanarFrame) {
  LMFFAudioResample resample;
  resample.setOutFormat(kPlanarStereo);
  resample.writeFrame(pcmFrame(kFloatStereo, 5, ramp).get());
  const FramePtr to = pcmFrame(kPlanarStereo, 5, constant(9));
  resample.convertFrame(nullptr, to.get());
  EXPECT_EQ(to->nb_samples, 5);
  for (int c = 0; c < 2; c++) {
    for (int i = 0; i < 5; i++) {
      EXPECT_EQ(reinterpret_cast<float*>(to->data[c])[i], static_cast<float>(ramp(c, i)));
    }
  }
}

TEST(LMFFAudioResample, ReadingWhileClosedLeavesTheFrameAsItIs) {
  LMFFAudioResample resample;
  std::vector<float> memory;
  const FramePtr to = room(memory, 8);
  resample.convertFrame(nullptr, to.get());
  EXPECT_EQ(to->nb_samples, 8);
  EXPECT_EQ(memory[0], 9.0F);
}

TEST(LMFFAudioResample, OutputFrameWithoutDataGetsNoSamples) {
  LMFFAudioResample resample;
  resample.writeFrame(pcmFrame(kFloatStereo, 10, ramp).get());
  const FramePtr to = makeFrame();
  to->nb_samples = 8;
  resample.convertFrame(nullptr, to.get());
  EXPECT_EQ(to->nb_samples, 0);
  EXPECT_EQ(resample.outputSamples(), 10);
}

TEST(LMFFAudioResample, ConvertingNothingToNothingLeavesTheQueue) {
  LMFFAudioResample resample;
  resample.writeFrame(pcmFrame(kFloatStereo, 10, ramp).get());
  resample.convertFrame(nullptr, nullptr);
  EXPECT_EQ(resample.outputSamples(), 10);
}

TEST(LMFFAudioResample, FailedConversionGivesNoSamples) {
  LMFFAudioResample resample;
  resample.writeFrame(pcmFrame(kPlanarStereo, 10, ramp).get());
  const FramePtr broken = pcmFrame(kPlanarStereo, 10, ramp);
  broken->data[1] = nullptr;
  std::vector<float> memory;
  const FramePtr to = room(memory, 8);
  resample.convertFrame(broken.get(), to.get());
  EXPECT_EQ(to->nb_samples, 0);
  EXPECT_EQ(resample.outputSamples(), 10);
}

TEST(LMFFAudioResample, SetContextHandsContextsOver) {
  LMFFAudioResample from, to;
  from.convertFormat(kShortStereo, kFloatStereo);
  SwrContext* const context = from.context();
  from.setContext(nullptr);
  EXPECT_EQ(from.context(), nullptr);
  EXPECT_EQ(from.outputSamples(), 0);

  to.setInFormat(kShortStereo);
  to.setContext(context);
  EXPECT_EQ(to.context(), context);
  to.writeFrame(pcmFrame(kShortStereo, 10, ramp).get());
  EXPECT_EQ(to.context(), context);
  EXPECT_EQ(to.outputSamples(), 10);
}

}  // namespace
}  // namespace kestrel
