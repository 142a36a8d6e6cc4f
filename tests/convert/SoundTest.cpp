#include <gtest/gtest.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Sound.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "tests/support/Fixture.h"
#include "tests/support/Peer.h"

namespace kestrel::test {
namespace {

/// All that ffmpeg decodes of a file's sound.
std::vector<float> peerSamples(const char* name, std::vector<std::string> options = {}) {
  std::vector<std::string> command{"ffmpeg", "-v",   "error", "-i", fixture(name).string(),
                                   "-map",   "0:a:0"};
  command.insert(command.end(), options.begin(), options.end());
  for (const char* word : {"-f", "f32le", "-"}) command.emplace_back(word);
  const std::string bytes = runPeer(command).out;
  std::vector<float> samples(bytes.size() / sizeof(float));
  std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
  return samples;
}

std::vector<float> rest(Sound& sound) {
  std::vector<float> samples;
  constexpr int64_t kBlock = 1000;
  for (;;) {
    const size_t before = samples.size();
    const auto channels = static_cast<size_t>(sound.channels());
    samples.resize(before + kBlock * channels);
    const auto got = static_cast<size_t>(sound.read(samples.data() + before, kBlock));
    samples.resize(before + got * channels);
    if (got < static_cast<size_t>(kBlock)) return samples;
  }
}

double greatestDifference(std::span<const float> a, std::span<const float> b) {
  double greatest = 0;
  for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
    greatest = std::max(greatest, static_cast<double>(std::abs(a[i] - b[i])));
  return greatest;
}

class SoundOfFile : public ::testing::TestWithParam<const char*> {};

TEST_P(SoundOfFile, IsThatOfItsDecoderToTheSample) {
  Sound sound({.input = fixture(GetParam()).string()});
  EXPECT_EQ(rest(sound), peerSamples(GetParam()));
  EXPECT_TRUE(sound.report().isWhole());
}

INSTANTIATE_TEST_SUITE_P(Files, SoundOfFile,
                         ::testing::Values("pcm-stereo-44100-f32.wav", "pcm-stereo-48000-s24.wav",
                                           "pcm-5.1-48000-s16.wav", "pcm-mono-8000-s16.wav",
                                           "audio-only.m4a"));

TEST(Sound, GoesOnWhereItIsSought) {
  const std::vector<float> all = peerSamples("pcm-stereo-44100-f32.wav");
  Sound sound({.input = fixture("pcm-stereo-44100-f32.wav").string()});
  for (const int64_t time : {1'500'000, 250'000, 0}) {
    sound.seek(time);
    const auto first = static_cast<size_t>(time * 441 / 10000) * 2;
    EXPECT_EQ(rest(sound), std::vector(all.begin() + static_cast<ptrdiff_t>(first), all.end()));
  }
  sound.seek(100'000'000);
  EXPECT_TRUE(rest(sound).empty());
}

TEST(Sound, OfACodecWithMemoryIsTheSameAfterASeek) {
  const std::vector<float> all = peerSamples("audio-only.m4a");
  Sound sound({.input = fixture("audio-only.m4a").string()});
  sound.seek(1'000'000);
  const std::vector<float> later = rest(sound);
  const auto expected = std::span(all).subspan(2 * 44100);
  ASSERT_EQ(later.size(), expected.size());
  // Its decoder makes up noise, from numbers that depend on all before.
  EXPECT_LT(greatestDifference(later, expected), 1e-3);
}

TEST(Sound, ComesInTheRateAndTheChannelsAskedFor) {
  Sound sound({.input = fixture("pcm-stereo-44100-f32.wav").string(),
               .sampleRate = 22050,
               .channelLayout = 4});
  EXPECT_EQ(sound.sampleRate(), 22050);
  EXPECT_EQ(sound.channels(), 1);
  const size_t frames = peerSamples("pcm-stereo-44100-f32.wav").size() / 2;
  EXPECT_EQ(rest(sound).size(), frames / 2);
}

TEST(Sound, OfSeveralTracksIsTheirSum) {
  // Two tracks: 0.25 and 0.1 at most.
  Sound sound({.input = fixture("av-copies.mkv").string(), .audioTracks = TrackChoice::of({0, 1})});
  Sound one({.input = fixture("av-copies.mkv").string(), .audioTracks = TrackChoice::of({0})});
  Sound two({.input = fixture("av-copies.mkv").string(), .audioTracks = TrackChoice::of({1})});
  const std::vector<float> first = rest(one);
  const std::vector<float> second = rest(two);
  std::vector<float> sum(std::min(first.size(), second.size()));
  std::transform(first.begin(), first.begin() + static_cast<ptrdiff_t>(sum.size()), second.begin(),
                 sum.begin(), std::plus());
  EXPECT_LT(greatestDifference(rest(sound), sum), 1e-6);
}

TEST(Sound, RefusesWhatItCannotGive) {
  const auto failure = [](const SoundSettings& settings) {
    try {
      Sound sound(settings);
    } catch (const Failure& thrown) {
      return thrown;
    }
    throw std::logic_error("nothing was refused");
  };
  EXPECT_EQ(failure({.input = "/nowhere.wav"}).kind(), Failure::Kind::kInput);
  EXPECT_EQ(failure({.input = fixture("video-only.mp4").string()}).kind(), Failure::Kind::kInput);
  const std::string wave = fixture("pcm-mono-8000-s16.wav").string();
  EXPECT_EQ(failure({.input = wave, .sampleRate = 0}).subject(), "sampleRate");
  EXPECT_EQ(failure({.input = wave, .channelLayout = 0}).subject(), "channelLayout");
  EXPECT_EQ(failure({.input = wave, .audioTracks = TrackChoice::of({1})}).subject(), "audioTracks");
}

TEST(Sound, OfATrackThatNoPacketToldAnythingOfIsNone) {
  KESTREL_NEED_MEDIA("dvb-subtitles.ts");
  EXPECT_THROW(Sound({.input = mediaFile("dvb-subtitles.ts").string()}), Failure);
}

TEST(Sound, EndsWhenItIsInterrupted) {
  bool isInterrupted = false;
  Sound sound({.input = fixture("minutes.wav").string()}, [&] { return isInterrupted; });
  std::vector<float> samples(8000);
  EXPECT_EQ(sound.read(samples.data(), 8000), 8000);
  isInterrupted = true;
  EXPECT_THROW(sound.read(samples.data(), 8000), Failure);
}

}  // namespace
}  // namespace kestrel::test
