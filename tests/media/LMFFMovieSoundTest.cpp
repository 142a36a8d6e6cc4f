#include <gmock/gmock.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMOutputAudioGraph.h>

#include <cmath>

#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

using testing::Each;

constexpr int32_t kBlock = 2048;

/// The tone of the fixtures with a tone per channel.
float toneAt(int channel, int64_t index) {
  return static_cast<float>(
      0.25 * std::sin(2 * M_PI * 440 * (channel + 1) * static_cast<double>(index) / 44100));
}

class LMFFMovieSound : public testing::Test {
 protected:
  static std::shared_ptr<LMFFMedia> toneFrom(int64_t position) {
    const auto media = openedMedia(fixture("pcm-stereo-44100-f32.wav"));
    media->setMovie_position(position);
    return media;
  }

  std::vector<float> read(int32_t frames) {
    std::vector<float> sound(static_cast<size_t>(frames) * 2, 77.0F);  // is overwritten
    EXPECT_TRUE(movie_.readSample(sound.data(), frames));
    return sound;
  }

  static void expectTone(const std::vector<float>& sound, int64_t first, double factor = 1) {
    for (size_t i = 0; i < sound.size(); ++i) {
      const float tone = toneAt(static_cast<int>(i % 2), first + static_cast<int64_t>(i / 2));
      ASSERT_NEAR(sound[i], factor * static_cast<double>(tone), 1e-5) << i;
    }
  }

  LMFFMovie movie_;
};

// The pump.

TEST_F(LMFFMovieSound, IsTheMediasSoundAndMovesTheClock) {
  movie_.openMedias({toneFrom(0)});
  expectTone(read(1000), 0);
  EXPECT_EQ(movie_.currentTime(), 1000 * kSecond / 44100);
  expectTone(read(500), 1000);
}

TEST_F(LMFFMovieSound, CoveredByNoMediaIsSilentAndMovesTheClock) {
  movie_.openMedias({toneFrom(0)});
  movie_.update_current_time_to(30 * kSecond);
  EXPECT_THAT(read(4410), Each(0.0F));
  EXPECT_EQ(movie_.currentTime(), 30 * kSecond + milliseconds(100));
}

TEST_F(LMFFMovieSound, WithoutAnyMediaIsSilentAndMovesTheClock) {
  EXPECT_THAT(read(44100), Each(0.0F));
  EXPECT_EQ(movie_.currentTime(), kSecond);
}

TEST_F(LMFFMovieSound, IsScaledByTheVolume) {
  movie_.openMedias({toneFrom(0)});
  movie_.setVolume(0.5);
  expectTone(read(1000), 0, 0.5);
  movie_.setVolume(0);
  EXPECT_THAT(read(1000), Each(0.0F));
  movie_.setVolume(8);
  expectTone(read(1000), 2000, 8);  // not clipped
}

TEST_F(LMFFMovieSound, MediasThatCoverTheSameTimeAreSummed) {
  movie_.openMedias({toneFrom(0), toneFrom(0)});
  movie_.setVolume(0.5);
  expectTone(read(1000), 0, 2 * 0.5);
}

TEST_F(LMFFMovieSound, MediaJoinsWhenTheClockEntersIt) {
  // The second begins at 0.1 s, which the third request enters.
  movie_.openMedias({toneFrom(0), toneFrom(milliseconds(100))});
  expectTone(read(2205), 0);
  expectTone(read(2205), 2205);
  const auto sound = read(2205);
  for (size_t i = 0; i < sound.size(); ++i) {
    const int channel = static_cast<int>(i % 2);
    const auto index = static_cast<int64_t>(i / 2);
    ASSERT_NEAR(sound[i], toneAt(channel, 4410 + index) + toneAt(channel, index), 1e-5) << i;
  }
}

TEST_F(LMFFMovieSound, GapBetweenTwoMediasIsSilent) {
  movie_.openMedias({toneFrom(0), toneFrom(3 * kSecond)});
  movie_.update_current_time_to(milliseconds(2500));
  EXPECT_THAT(read(4410), Each(0.0F));
  movie_.update_current_time_to(3 * kSecond);
  expectTone(read(1000), 0);
}

TEST_F(LMFFMovieSound, ContinuesFromThePlaceSought) {
  movie_.openMedias({toneFrom(0)});
  read(5000);
  movie_.seek(kSecond);
  movie_.flushOperation();
  expectTone(read(1000), 44100);
}

TEST_F(LMFFMovieSound, OfAMovieWithoutSoundIsSilent) {
  movie_.openMedias({openedMedia(fixture("raw.avi"))});
  EXPECT_THAT(read(1000), Each(0.0F));
}

// Stream copy.

TEST_F(LMFFMovieSound, CopiedPacketsAreAllOfTheFileAndTheClockFollows) {
  const auto file = fixture("audio-only.m4a");
  movie_.setExportMovie(true);
  movie_.setCopy_audio_stream(true);
  movie_.openMedias(sourceOf(file)->createMedias());
  movie_.seek(0);
  movie_.flushOperation();
  const auto packets = ffprobeJson(file, {"-show_packets"})["packets"];
  size_t count = 0;
  int64_t clock = 0;
  while (const auto item = movie_.readNextAudioPacket()) {
    ASSERT_LT(count, packets.size());
    const int64_t pts = item->getPacket()->pts;
    EXPECT_EQ(pts, packets[count]["pts"].get<int64_t>());
    clock = std::max<int64_t>(clock, av_rescale_q(pts, {1, 44100}, kMicroseconds));
    EXPECT_EQ(movie_.currentTime(), clock);
    ++count;
  }
  EXPECT_EQ(count, packets.size());
}

TEST_F(LMFFMovieSound, CopiedPacketsOfALaterMediaArePlacedOnTheMoviesTimeLine) {
  movie_.setExportMovie(true);
  movie_.setCopy_audio_stream(true);
  const auto media = audioMediaOf(fixture("av25.ts"));  // its own times begin at 10 s
  media->setMovie_position(5 * kSecond);
  movie_.openMedias({media});
  movie_.seek(5 * kSecond);
  movie_.flushOperation();
  ASSERT_TRUE(movie_.readNextAudioPacket());
  EXPECT_GE(movie_.currentTime(), 5 * kSecond);
  EXPECT_LT(movie_.currentTime(), 5 * kSecond + milliseconds(100));
}

TEST_F(LMFFMovieSound, AtTheEndThereIsNoPacketAndTheClockGoesOn) {
  movie_.openMedias({toneFrom(0)});
  movie_.update_current_time_to(60 * kSecond);
  EXPECT_EQ(movie_.readNextAudioPacket(), nullptr);
  EXPECT_EQ(movie_.currentTime(), 60 * kSecond + milliseconds(20));
}

// Playback.

TEST_F(LMFFMovieSound, OneTopUpIsABlock) {
  movie_.openMedias({toneFrom(0)});
  EXPECT_TRUE(movie_.decodeAudioToAudioOutput());
  const auto graph = movie_.audioOutputGraph();
  EXPECT_EQ(graph->bufferFrames(), kBlock);
  EXPECT_EQ(movie_.currentTime(), 0);  // nothing has been played
  graph->setDelegate(nullptr);
  std::vector<float> sound(2 * kBlock);
  EXPECT_TRUE(graph->readSample(sound.data(), kBlock));
  expectTone(sound, 0);
  EXPECT_EQ(movie_.currentTime(), kBlock * kSecond / 44100);
}

TEST_F(LMFFMovieSound, BufferIsToppedUpOnlyBelowOneBlock) {
  movie_.openMedias({toneFrom(0)});
  const auto graph = movie_.audioOutputGraph();
  graph->setDelegate(nullptr);
  movie_.decodeMoreAudioDataToAudioOutputHelper();
  EXPECT_EQ(graph->bufferFrames(), kBlock);
  movie_.decodeMoreAudioDataToAudioOutputHelper();
  EXPECT_EQ(graph->bufferFrames(), kBlock);
  std::vector<float> sound(2);
  graph->readSample(sound.data(), 1);
  movie_.decodeMoreAudioDataToAudioOutputHelper();
  EXPECT_EQ(graph->bufferFrames(), 2 * kBlock - 1);
}

TEST_F(LMFFMovieSound, TopUpRunsOnTheQueue) {
  movie_.openMedias({toneFrom(0)});
  movie_.decodeMoreAudioDataToAudioOutput();
  movie_.flushOperation();
  EXPECT_EQ(movie_.audioOutputGraph()->bufferFrames(), kBlock);
}

TEST_F(LMFFMovieSound, ReadingThePlaybackBufferAsksForMore) {
  movie_.openMedias({toneFrom(0)});
  const auto graph = movie_.audioOutputGraph();
  std::vector<float> sound(2 * 512);
  graph->readSample(sound.data(), 512);
  movie_.flushOperation();
  EXPECT_GE(graph->bufferFrames(), kBlock - 512);
}

TEST_F(LMFFMovieSound, ExportedMovieLeavesThePlaybackBufferUntouched) {
  movie_.openMedias({toneFrom(0)});
  movie_.setExportMovie(true);
  movie_.decodeMoreAudioDataToAudioOutput();
  movie_.flushOperation();
  EXPECT_EQ(movie_.audioOutputGraph()->bufferFrames(), 0);
  EXPECT_EQ(movie_.currentTime(), 0);
  EXPECT_TRUE(movie_.decodeAudioToAudioOutput());
  EXPECT_EQ(movie_.audioOutputGraph()->bufferFrames(), 0);
}

TEST_F(LMFFMovieSound, PlaybackIsTheGraphs) {
  movie_.openMedias({toneFrom(0)});
  const auto graph = movie_.audioOutputGraph();
  graph->graph().setDevice(std::make_shared<PulledAudioDevice>());
  EXPECT_FALSE(movie_.isPlay());
  movie_.play();
  EXPECT_TRUE(movie_.isPlay() && graph->isStart());
  movie_.pause();
  EXPECT_FALSE(movie_.isPlay() || graph->isStart());
  movie_.play();
  movie_.stop();
  EXPECT_FALSE(graph->isStart());
  movie_.setRate(1.5F);
  EXPECT_EQ(graph->rate(), 1.5F);
  EXPECT_EQ(movie_.rate(), 1.5F);
  movie_.setPlayVolume(0.25);
  EXPECT_EQ(graph->volume(), 0.25F);
  EXPECT_EQ(movie_.playVolume(), 0.25);
  EXPECT_EQ(movie_.volume(), 1.0);
}

TEST_F(LMFFMovieSound, PlaybackWithoutAGraphDoesNothing) {
  movie_.play();
  movie_.setRate(2);
  movie_.setPlayVolume(0.5);
  EXPECT_FALSE(movie_.isPlay());
  EXPECT_EQ(movie_.rate(), 0.0F);
  EXPECT_EQ(movie_.playVolume(), 0.0);
}

TEST_F(LMFFMovieSound, PlayedThroughTheGraphItIsTheWholeTone) {
  movie_.openMedias({toneFrom(0)});
  const auto graph = movie_.audioOutputGraph();
  movie_.decodeMoreAudioDataToAudioOutput();
  std::vector<float> played;
  while (played.size() < 2 * 44100) {
    movie_.flushOperation();
    std::vector<float> sound(2 * 512);
    ASSERT_TRUE(graph->readSample(sound.data(), 512));
    played.insert(played.end(), sound.begin(), sound.end());
  }
  expectTone(played, 0);
}

}  // namespace
}  // namespace kestrel::test
