#include <kestrel/LMFFAudioResample.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "tests/frames/Pcm.h"

extern "C" {
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace kestrel {
namespace {

using test::kMonoMask;
using test::pcmFrame;
using test::readAll;

constexpr double kAmplitude = 0.5;

/// A second of a tone, written in blocks, as a converter answers it.
std::vector<float> tone(int from, int to, double frequency, bool isPrecise) {
  LMFFAudioResample resample;
  resample.setPrecise(isPrecise);
  const LMFFAudioFormat in{AV_SAMPLE_FMT_FLT, kMonoMask, from};
  resample.setOutFormat({AV_SAMPLE_FMT_FLT, kMonoMask, to});
  const auto signal = [&](int, int index) {
    return kAmplitude * std::sin(2 * std::numbers::pi * frequency * index / from);
  };
  constexpr int kBlock = 1000;
  for (int first = 0; first < from; first += kBlock)
    resample.writeFrame(pcmFrame(in, std::min(kBlock, from - first), signal, first).get());
  resample.flush();
  return readAll(resample);
}

/// The level of the middle half, decibels beside the tone's. A tone that begins and ends sharply is
/// heard at its ends.
double levelOf(const std::vector<float>& samples) {
  double sum = 0;
  const size_t quarter = samples.size() / 4;
  for (size_t i = quarter; i < 3 * quarter; ++i) sum += samples[i] * samples[i];
  const double power = sum / static_cast<double>(2 * quarter);
  return 10 * std::log10(std::max(power, 1e-30) / (kAmplitude * kAmplitude / 2));
}

/// Whether libswresample was built with what converts precisely.
bool isThere() {
  SwrContext* context = swr_alloc();
  AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
  swr_alloc_set_opts2(&context, &mono, AV_SAMPLE_FMT_FLT, 44100, &mono, AV_SAMPLE_FMT_FLT, 48000, 0,
                      nullptr);
  av_opt_set_int(context, "resampler", SWR_ENGINE_SOXR, 0);
  const bool isThere = swr_init(context) >= 0;
  swr_free(&context);
  return isThere;
}

TEST(LMFFAudioResamplePrecise, IsOffUnlessSet) {
  LMFFAudioResample resample;
  EXPECT_FALSE(resample.isPrecise());
  resample.setPrecise(true);
  EXPECT_TRUE(resample.isPrecise());
}

TEST(LMFFAudioResamplePrecise, WhatTheNewRateCannotHoldIsGone) {
  if (!isThere()) GTEST_SKIP() << "libswresample knows no precise conversion";
  struct Row {
    int from, to;
    double frequency;
  };
  for (const Row& row : {Row{48000, 44100, 23000},
                         {48000, 32000, 17000},
                         {96000, 48000, 25000},
                         {96000, 44100, 30000},
                         {44100, 22050, 12000}})
    EXPECT_LT(levelOf(tone(row.from, row.to, row.frequency, true)), -100)
        << row.frequency << " Hz from " << row.from << " to " << row.to;
}

TEST(LMFFAudioResamplePrecise, MoreOfTheHighestTonesStays) {
  if (!isThere()) GTEST_SKIP() << "libswresample knows no precise conversion";
  EXPECT_NEAR(levelOf(tone(48000, 44100, 1000, true)), 0, 0.01);
  EXPECT_NEAR(levelOf(tone(48000, 44100, 20000, true)), 0, 0.1);
  EXPECT_NEAR(levelOf(tone(44100, 48000, 20000, true)), 0, 0.1);
}

TEST(LMFFAudioResamplePrecise, AllOfItIsThere) {
  for (const auto& [from, to] :
       {std::pair{48000, 44100}, {44100, 48000}, {96000, 48000}, {8000, 48000}, {48000, 48000}})
    EXPECT_EQ(tone(from, to, 440, true).size(), static_cast<size_t>(to)) << from;
}

}  // namespace
}  // namespace kestrel
