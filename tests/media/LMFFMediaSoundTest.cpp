#include <gmock/gmock.h>
#include <kestrel/LMFFMovie.h>

#include <algorithm>
#include <cmath>

#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

using testing::Each;

constexpr int kRate = 44100;

/// Reads a stream's sound to its end in blocks, and what is left at the end sample by sample.
std::vector<float> allSoundOf(LMFFMedia& media, const std::shared_ptr<LMFFMediaStream>& stream,
                              int32_t block) {
  std::vector<float> sound;
  const auto read = [&](int32_t count) {
    auto samples = silence(count);
    media.readAudioStream(stream, samples.data(), count);
    sound.insert(sound.end(), samples.begin(), samples.end());
  };
  for (;;) {
    while (stream->outputSamples() < block && media.forwardStream(stream)) {
    }
    if (stream->outputSamples() < block) break;
    read(block);
  }
  while (stream->outputSamples() > 0) read(1);
  return sound;
}

/// Where a sound is first louder than noise, in samples.
size_t onsetOf(const std::vector<float>& sound, size_t from = 0) {
  size_t i = from * 2;
  while (i < sound.size() && std::fabs(sound[i]) < 0.01F) ++i;
  return i / 2;
}

/// Where a sound falls silent for at least 10 ms, in samples.
size_t pauseOf(const std::vector<float>& sound, size_t from) {
  size_t quiet = 0;
  for (size_t i = from; i * 2 < sound.size(); ++i) {
    quiet = std::fabs(sound[i * 2]) < 1e-4F ? quiet + 1 : 0;
    if (quiet == kRate / 100) return i + 1 - quiet;
  }
  return sound.size() / 2;
}

// How much there is.

std::string fileNameOf(const testing::TestParamInfo<const char*>& info) {
  std::string name = info.param;
  std::ranges::replace_if(
      name, [](char c) { return !std::isalnum(static_cast<uint8_t>(c)); }, '_');
  return name;
}

class LMFFMediaSoundTotal : public testing::TestWithParam<const char*> {};

TEST_P(LMFFMediaSoundTotal, IsWhatFfmpegDecodes) {
  const auto file = fixture(GetParam());
  const auto media = audioMediaOf(file);
  const auto stream = media->audioStream();
  const int64_t decoded = sampleCountOf(file);
  const int64_t expected = decoded * kRate / stream->audioFormat().sample_rate;
  int64_t total = 0;
  while (media->forwardNextPacket()) {
    auto samples = silence(stream->outputSamples());
    total += stream->outputSamples();
    stream->readSample(samples.data(), stream->outputSamples());
  }
  total += stream->outputSamples();
  if (stream->audioFormat().sample_rate == kRate)
    EXPECT_EQ(total, expected);
  else
    EXPECT_NEAR(static_cast<double>(total), static_cast<double>(expected), 1);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, LMFFMediaSoundTotal,
                         testing::Values("av25.mp4", "av25.ts", "av25.mpg", "av-late-audio.mkv",
                                         "audio-only.m4a", "mjpeg.avi", "mpeg4-bframes.avi",
                                         "tone.mp3", "av30000-1001.mp4", "pcm-mono-44100-s16.wav",
                                         "pcm-stereo-44100-f32.wav", "pcm-stereo-96000-s24.wav",
                                         "pcm-5.1-48000-s16.wav", "pcm-mono-8000-s16.wav"),
                         fileNameOf);

// What it is.

/// The tone of the fixtures with a tone per channel.
float toneAt(int channel, size_t index) {
  return static_cast<float>(
      0.25 * std::sin(2 * M_PI * 440 * (channel + 1) * static_cast<double>(index) / kRate));
}

TEST(LMFFMediaSound, SamplesAreTheFiles) {
  const auto media = audioMediaOf(fixture("pcm-stereo-44100-f32.wav"));
  const auto sound = allSoundOf(*media, media->audioStream(), 1000);
  ASSERT_EQ(sound.size(), 2u * 2 * kRate);
  for (size_t i = 0; i < sound.size(); ++i)
    ASSERT_NEAR(sound[i], toneAt(static_cast<int>(i % 2), i / 2), 1e-6) << i;
}

TEST(LMFFMediaSound, SizeOfTheRequestsDoesNotChangeIt) {
  const auto whole = audioMediaOf(fixture("pcm-stereo-44100-f32.wav"));
  const auto expected = allSoundOf(*whole, whole->audioStream(), 2048);
  for (const int32_t block : {1, 441, 10000}) {
    const auto media = audioMediaOf(fixture("pcm-stereo-44100-f32.wav"));
    EXPECT_EQ(allSoundOf(*media, media->audioStream(), block), expected) << block;
  }
}

TEST(LMFFMediaSound, AfterASeekBeginsAtThatSample) {
  const auto media = audioMediaOf(fixture("pcm-stereo-44100-f32.wav"));
  for (const int64_t second : {1, 0}) {
    media->seek(second * kSecond);
    EXPECT_EQ(media->audioStream()->audio_sync_frame(), second * kRate);
    auto samples = silence(500);
    media->readAudioStream(media->audioStream(), samples.data(), 500);
    for (size_t i = 0; i < samples.size(); ++i)
      ASSERT_NEAR(samples[i], toneAt(static_cast<int>(i % 2), second * kRate + i / 2), 1e-6) << i;
  }
}

TEST(LMFFMediaSound, EveryRequestMovesTheClock) {
  const auto media = audioMediaOf(fixture("pcm-stereo-44100-f32.wav"));
  auto samples = silence(300);
  media->readAudioStream(media->audioStream(), samples.data(), 300);
  EXPECT_EQ(media->audioStream()->audio_sync_frame(), 300);
  media->readAudioStream(media->audioStream(), samples.data(), 200);
  EXPECT_EQ(media->audioStream()->audio_sync_frame(), 500);
}

// Gaps and ends.

TEST(LMFFMediaSound, BeginsAtItsTimeWhereItIsLate) {
  const auto media = audioMediaOf(fixture("av-late-audio.mkv"));
  const auto sound = allSoundOf(*media, media->audioStream(), 441);
  EXPECT_NEAR(static_cast<double>(onsetOf(sound)), 0.5 * kRate, 450);
}

TEST(LMFFMediaSound, GapBeforeTheNextFrameIsSilentAndMovesTheClock) {
  const auto media = audioMediaOf(fixture("av-late-audio.mkv"));
  std::vector<float> samples(400, 0.125F);
  media->readAudioStream(media->audioStream(), samples.data(), 200);
  EXPECT_THAT(samples, Each(0.125F));  // as it was
  EXPECT_EQ(media->audioStream()->audio_sync_frame(), 200);
  EXPECT_GT(media->audioStream()->outputSamples(), 0);  // waits for its time
}

TEST(LMFFMediaSound, HoleInTheMiddleIsSilentForItsLength) {
  const auto media = audioMediaOf(fixture("av-audio-hole.mkv"));
  const auto sound = allSoundOf(*media, media->audioStream(), 441);
  const size_t pause = pauseOf(sound, 1000);
  EXPECT_NEAR(static_cast<double>(pause), 0.8 * kRate, 1500);
  EXPECT_NEAR(static_cast<double>(onsetOf(sound, pause)), 1.2 * kRate, 1500);
}

TEST(LMFFMediaSound, StreamThatHasRunDryIsSilentAndMovesTheClock) {
  const auto media = audioMediaOf(fixture("pcm-stereo-44100-f32.wav"));
  const auto stream = media->audioStream();
  allSoundOf(*media, stream, 1000);
  std::vector<float> samples(400, 0.125F);
  media->readAudioStream(stream, samples.data(), 200);
  EXPECT_THAT(samples, Each(0.125F));
  EXPECT_EQ(stream->audio_sync_frame(), 2 * kRate + 200);
}

TEST(LMFFMediaSound, FewerSamplesThanAskedForAreNotHandedOut) {
  const auto media = audioMediaOf(fixture("pcm-stereo-44100-f32.wav"));
  const auto stream = media->audioStream();
  auto samples = silence(2 * kRate - 100);
  media->readAudioStream(stream, samples.data(), 2 * kRate - 100);
  std::vector<float> rest(402, 0.125F);
  media->readAudioStream(stream, rest.data(), 201);
  EXPECT_THAT(rest, Each(0.125F));
  EXPECT_EQ(stream->outputSamples(), 100);
  EXPECT_EQ(stream->audio_sync_frame(), 2 * kRate + 101);
}

// Several tracks.

class LMFFMediaMix : public testing::Test {
 protected:
  /// The first 20000 samples with only these tracks enabled, read in blocks of 1000.
  static std::vector<float> mixOf(const std::optional<IndexSet>& tracks) {
    const auto media = audioMediaOf(fixture("av-tracks.mkv"));
    media->setSelectAudios(tracks);
    media->updateSelectStreams();
    std::vector<float> sound;
    for (int i = 0; i < 20; ++i) {
      auto samples = silence(1000);
      EXPECT_TRUE(media->readSample(samples.data(), 1000));
      sound.insert(sound.end(), samples.begin(), samples.end());
    }
    return sound;
  }
};

TEST_F(LMFFMediaMix, IsTheSumOfTheEnabledTracks) {
  const auto first = mixOf(IndexSet{0});
  const auto second = mixOf(IndexSet{1});
  auto sum = first;
  std::ranges::transform(sum, second, sum.begin(), std::plus<>());
  EXPECT_NE(first, second);
  EXPECT_EQ(mixOf(std::nullopt), sum);
}

TEST_F(LMFFMediaMix, OfNoTrackIsSilence) { EXPECT_THAT(mixOf(IndexSet{}), Each(0.0F)); }

TEST_F(LMFFMediaMix, IsAddedToWhatTheBufferHolds) {
  const auto media = audioMediaOf(fixture("pcm-stereo-44100-f32.wav"));
  std::vector<float> samples(1000, 2.0F);
  media->readSample(samples.data(), 500);
  for (size_t i = 0; i < samples.size(); ++i)
    ASSERT_NEAR(samples[i], 2.0F + toneAt(static_cast<int>(i % 2), i / 2), 1e-6);
}

TEST_F(LMFFMediaMix, IsNotClipped) {
  const auto media = audioMediaOf(fixture("loud-tracks.mkv"));
  ASSERT_EQ(media->audios().size(), 2u);
  auto samples = silence(1000);
  media->readSample(samples.data(), 1000);
  EXPECT_NEAR(*std::ranges::max_element(samples), 1.8, 0.01);
}

TEST_F(LMFFMediaMix, EachTrackKeepsAClockOfItsOwn) {
  const auto media = audioMediaOf(fixture("av-tracks.mkv"));
  auto samples = silence(100);
  media->readSample(samples.data(), 100);
  media->readAudioStream(media->audios()[0], samples.data(), 50);
  EXPECT_EQ(media->audios()[0]->audio_sync_frame(), 150);
  EXPECT_EQ(media->audios()[1]->audio_sync_frame(), 100);
}

TEST_F(LMFFMediaMix, RequestForNothingChangesNothing) {
  const auto media = audioMediaOf(fixture("pcm-stereo-44100-f32.wav"));
  std::vector<float> samples(2, 0.5F);
  EXPECT_TRUE(media->readSample(samples.data(), 0));
  EXPECT_THAT(samples, Each(0.5F));
  EXPECT_EQ(media->audioStream()->audio_sync_frame(), 0);
}

}  // namespace
}  // namespace kestrel::test
