#include <gmock/gmock.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMOutputAudioGraph.h>
#include <kestrel/Log.h>
#include <kestrel/OperationQueue.h>

#include <semaphore>

#include "tests/media/HandMade.h"
#include "tests/media/Media.h"
#include "tests/media/Sources.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LMFFMovieTimeline : public testing::Test {
 protected:
  LMFFMovieTimeline() {
    setLogSink([this](std::string_view line) { lines_.emplace_back(line); });
  }
  ~LMFFMovieTimeline() override { setLogSink({}); }

  /// A media of sound placed on the movie's time line.
  static std::shared_ptr<LMFFMedia> soundAt(int64_t position) {
    const auto media = openedMedia(fixture("pcm-stereo-44100-f32.wav"));
    media->setMovie_position(position);
    return media;
  }

  /// A packet that a media hands out: `pts` and `dts` in milliseconds.
  static std::shared_ptr<LMFFImage> packetAt(int64_t pts, int64_t dts, int64_t offset = 0) {
    const PacketPtr packet = packetOf("x", pts);
    packet->dts = dts;
    auto item = LMFFImage::imageWithPacket(packet.get());
    item->setTime_base({1, 1000});
    item->setPkt_display_time(offset);
    return item;
  }

  /// Occupies the queue until `release` is called.
  void holdQueue() {
    movie_.decodeQueue()->addOperation([this] { hold_.acquire(); });
  }
  void releaseQueue() {
    hold_.release();
    movie_.flushOperation();
  }

  std::vector<std::string> lines_;
  std::binary_semaphore hold_{0};
  LMFFMovie movie_;
};

// The clock.

TEST_F(LMFFMovieTimeline, ClockStartsAtZero) { EXPECT_EQ(movie_.currentTime(), 0); }

TEST_F(LMFFMovieTimeline, ClockIsItsOriginPlusTheSamplesSince) {
  movie_.update_current_time_to(5 * kSecond);
  movie_.forwardAudioDecodeTime(44100);
  EXPECT_EQ(movie_.currentTime(), 6 * kSecond);
  movie_.forwardAudioDecodeTime(22050);
  EXPECT_EQ(movie_.currentTime(), 6 * kSecond + milliseconds(500));
}

TEST_F(LMFFMovieTimeline, ClockIsCutToWholeMicroseconds) {
  movie_.forwardAudioDecodeTime(1);  // 22.68 µs
  EXPECT_EQ(movie_.currentTime(), 22);
  movie_.forwardAudioDecodeTime(1);
  EXPECT_EQ(movie_.currentTime(), 45);
}

TEST_F(LMFFMovieTimeline, SettingTheClockForgetsTheSamples) {
  movie_.forwardAudioDecodeTime(44100);
  movie_.update_current_time_to(3 * kSecond);
  EXPECT_EQ(movie_.currentTime(), 3 * kSecond);
}

TEST_F(LMFFMovieTimeline, WhatWaitsInThePlaybackBufferHasNotBeenPlayed) {
  movie_.openAudioOutput();
  const std::vector<float> sound(4410 * 2);
  movie_.audioOutputGraph()->writeSample(sound.data(), 4410);
  movie_.update_current_time_to(kSecond);
  movie_.forwardAudioDecodeTime(44100);
  EXPECT_EQ(movie_.currentTime(), 2 * kSecond - milliseconds(100));
}

TEST_F(LMFFMovieTimeline, BufferBeyondTheSamplesCountsBackwardsCutTowardsZero) {
  movie_.openAudioOutput();
  const std::vector<float> sound(2);
  movie_.audioOutputGraph()->writeSample(sound.data(), 1);
  movie_.update_current_time_to(kSecond);
  EXPECT_EQ(movie_.currentTime(), kSecond - 22);
}

// Copied packets.

TEST_F(LMFFMovieTimeline, CopiedPacketMovesTheClockToItsTime) {
  movie_.updateAudioPacketTime(packetAt(1500, 1400));
  EXPECT_EQ(movie_.currentTime(), milliseconds(1500));
}

TEST_F(LMFFMovieTimeline, CopiedPacketWithoutAPresentationTimeCountsByItsDecodingTime) {
  movie_.updateAudioPacketTime(packetAt(AV_NOPTS_VALUE, 1400));
  EXPECT_EQ(movie_.currentTime(), milliseconds(1400));
}

TEST_F(LMFFMovieTimeline, CopiedPacketsTimeIsTheMovies) {
  const auto packet = packetAt(1500, 1500, 10 * kSecond);
  packet->setPkt_time_offset(milliseconds(200));
  movie_.updateAudioPacketTime(packet);
  EXPECT_EQ(movie_.currentTime(), 10 * kSecond + milliseconds(1300));
}

TEST_F(LMFFMovieTimeline, OlderPacketDoesNotMoveTheClockBack) {
  movie_.update_current_time_to(2 * kSecond);
  movie_.updateAudioPacketTime(packetAt(1500, 1500));
  EXPECT_EQ(movie_.currentTime(), 2 * kSecond);
}

TEST_F(LMFFMovieTimeline, CopiedPacketWithoutATimeIsLoggedAndLeavesTheClock) {
  movie_.update_current_time_to(2 * kSecond);
  movie_.updateAudioPacketTime(packetAt(AV_NOPTS_VALUE, AV_NOPTS_VALUE));
  EXPECT_EQ(movie_.currentTime(), 2 * kSecond);
  EXPECT_THAT(lines_, ElementsAre("error pkt time"));
}

TEST_F(LMFFMovieTimeline, CopiedPacketWithATimeIsNotLogged) {
  movie_.updateAudioPacketTime(packetAt(1500, AV_NOPTS_VALUE));
  EXPECT_THAT(lines_, IsEmpty());
}

TEST_F(LMFFMovieTimeline, MissingPacketMovesTheClockByTwentyMilliseconds) {
  movie_.update_current_time_to(2 * kSecond);
  movie_.updateAudioPacketTime(nullptr);
  EXPECT_EQ(movie_.currentTime(), milliseconds(2020));
}

TEST_F(LMFFMovieTimeline, PacketRestartsTheCountOfSamples) {
  movie_.update_current_time_to(kSecond);
  movie_.forwardAudioDecodeTime(44100);
  movie_.updateAudioPacketTime(packetAt(0, 0));
  movie_.forwardAudioDecodeTime(44100);
  EXPECT_EQ(movie_.currentTime(), 3 * kSecond);
}

// Positioning the medias.

TEST_F(LMFFMovieTimeline, MediaThatTheClockEntersIsSoughtAndCurrent) {
  const auto media = soundAt(3 * kSecond);
  movie_.openMedias({media});
  movie_.update_current_time_to(3 * kSecond + milliseconds(500));
  movie_.updateCurrentMedias();
  EXPECT_TRUE(media->isCurrentSynced());
  EXPECT_EQ(media->audioStream()->audio_sync_frame(), 22050);
}

TEST_F(LMFFMovieTimeline, MediaIsCurrentFromItsStartToBeforeItsEnd) {
  const auto media = soundAt(3 * kSecond);
  movie_.openMedias({media});
  const auto isCurrentAt = [&](int64_t time) {
    movie_.update_current_time_to(time);
    movie_.updateCurrentMedias();
    return media->isCurrentSynced();
  };
  EXPECT_FALSE(isCurrentAt(3 * kSecond - 1));
  EXPECT_TRUE(isCurrentAt(3 * kSecond));
  EXPECT_TRUE(isCurrentAt(5 * kSecond - 1));
  EXPECT_FALSE(isCurrentAt(5 * kSecond));
}

TEST_F(LMFFMovieTimeline, CurrentMediaIsLeftAsItIs) {
  const auto media = soundAt(0);
  movie_.openMedias({media});
  movie_.updateCurrentMedias();
  movie_.update_current_time_to(kSecond);
  movie_.updateCurrentMedias();
  EXPECT_EQ(media->audioStream()->audio_sync_frame(), 0);
}

TEST_F(LMFFMovieTimeline, CurrentMediaIsSoughtAgainByForce) {
  const auto media = soundAt(0);
  movie_.openMedias({media});
  movie_.updateCurrentMedias();
  movie_.update_current_time_to(kSecond);
  movie_.updateCurrentMedias(true);
  EXPECT_EQ(media->audioStream()->audio_sync_frame(), 44100);
}

TEST_F(LMFFMovieTimeline, MediaThatTheClockHasLeftIsNotSought) {
  const auto media = soundAt(0);
  movie_.openMedias({media});
  movie_.update_current_time_to(kSecond);
  movie_.updateCurrentMedias();
  movie_.update_current_time_to(10 * kSecond);
  movie_.updateCurrentMedias(true);
  EXPECT_FALSE(media->isCurrentSynced());
  EXPECT_EQ(media->audioStream()->audio_sync_frame(), 44100);
}

TEST_F(LMFFMovieTimeline, ReenteredMediaIsSought) {
  const auto media = soundAt(0);
  movie_.openMedias({media});
  movie_.updateCurrentMedias();
  movie_.update_current_time_to(10 * kSecond);
  movie_.updateCurrentMedias();
  movie_.update_current_time_to(kSecond);
  movie_.updateCurrentMedias();
  EXPECT_EQ(media->audioStream()->audio_sync_frame(), 44100);
}

// Seeking.

TEST_F(LMFFMovieTimeline, SeekSetsTheClockBeforeItsWorkHasRun) {
  movie_.openMedias({soundAt(0)});
  holdQueue();
  movie_.seek(kSecond);
  EXPECT_EQ(movie_.currentTime(), kSecond);
  EXPECT_FALSE(movie_.medias()[0]->isCurrentSynced());
  releaseQueue();
  EXPECT_TRUE(movie_.medias()[0]->isCurrentSynced());
  EXPECT_EQ(movie_.currentTime(), kSecond);
}

TEST_F(LMFFMovieTimeline, SettingTheCurrentTimeIsASeek) {
  movie_.openMedias({soundAt(0)});
  movie_.setCurrentTime(kSecond);
  movie_.flushOperation();
  EXPECT_EQ(movie_.medias()[0]->audioStream()->audio_sync_frame(), 44100);
}

TEST_F(LMFFMovieTimeline, SeekEmptiesThePlaybackBuffer) {
  movie_.openMedias({soundAt(0)});
  const std::vector<float> sound(2000);
  movie_.audioOutputGraph()->writeSample(sound.data(), 1000);
  movie_.seek(kSecond);
  movie_.flushOperation();
  EXPECT_EQ(movie_.audioOutputGraph()->bufferFrames(), 0);
}

TEST_F(LMFFMovieTimeline, SeekMovesMediasThatAreCurrentAlready) {
  movie_.openMedias({soundAt(0)});
  for (const int64_t time : {kSecond, milliseconds(500)}) {
    movie_.seek(time);
    movie_.flushOperation();
    EXPECT_EQ(movie_.medias()[0]->audioStream()->audio_sync_frame(), time * 44100 / kSecond);
  }
}

TEST_F(LMFFMovieTimeline, SeekTakesTheExternalSubtitleToItsStart) {
  movie_.openMedias({soundAt(0)});
  ASSERT_TRUE(movie_.openSubtitle(fixture("subtitles.srt")));
  movie_.subtitle()->subtitleStringAtTime(milliseconds(1500));
  movie_.seek(milliseconds(500));
  movie_.flushOperation();
  EXPECT_EQ(movie_.subtitle()->subtitleStringAtTime(milliseconds(500)), "First line");
}

/// Counts how often its bytes are sought: one positioning of a media is at least one.
class SeekCountingSource : public MemorySource {
 public:
  using MemorySource::MemorySource;
  int32_t read(uint8_t* buffer, int32_t size) override {
    if (read_offset() != expected_) ++jumps;
    const int32_t count = MemorySource::read(buffer, size);
    expected_ = read_offset() + count;
    return count;
  }
  int32_t buffer_size() const override { return 4096; }
  int jumps = 0;

 private:
  int64_t expected_ = 0;
};

TEST_F(LMFFMovieTimeline, OfThreeQuickSeeksOnlyTheLastPositions) {
  const auto source =
      std::make_shared<SeekCountingSource>(bytesOf(fixture("pcm-stereo-44100-f32.wav")));
  const auto media = std::make_shared<LMFFMedia>();
  media->setSource(source);
  movie_.openMedias({media});
  const auto jumpsOf = [&](const std::vector<int64_t>& times) {
    movie_.seek(0);
    movie_.flushOperation();
    source->jumps = 0;
    holdQueue();
    for (const int64_t time : times) movie_.seek(milliseconds(time));
    releaseQueue();
    return source->jumps;
  };
  const int forOne = jumpsOf({900});
  EXPECT_GT(forOne, 0);
  EXPECT_GT(jumpsOf({1700}), 0);
  EXPECT_EQ(jumpsOf({100, 1700, 900}), forOne);
  EXPECT_EQ(media->audioStream()->audio_sync_frame(), 39690);
}

TEST_F(LMFFMovieTimeline, SupersededSeekLeavesThePlaybackBuffer) {
  movie_.openMedias({soundAt(0)});
  holdQueue();
  movie_.seek(kSecond);
  movie_.update_current_time_to(2 * kSecond);
  const std::vector<float> sound(2000);
  movie_.audioOutputGraph()->writeSample(sound.data(), 1000);
  releaseQueue();
  EXPECT_EQ(movie_.audioOutputGraph()->bufferFrames(), 1000);
  EXPECT_FALSE(movie_.medias()[0]->isCurrentSynced());
}

TEST_F(LMFFMovieTimeline, PendingSeekIsCarriedOutWhereTheClockIsSetToItsTime) {
  movie_.openMedias({soundAt(0)});
  for (const int64_t time : {kSecond, milliseconds(500)}) {
    holdQueue();
    movie_.seek(time);
    movie_.update_current_time_to(time);
    EXPECT_EQ(movie_.currentTime(), time);
    releaseQueue();
    EXPECT_TRUE(movie_.medias()[0]->isCurrentSynced());
    EXPECT_EQ(movie_.medias()[0]->audioStream()->audio_sync_frame(), time * 44100 / kSecond);
    EXPECT_EQ(movie_.currentTime(), time);
  }
}

TEST_F(LMFFMovieTimeline, PendingSeekIsCarriedOutWhereTheClockComesBackToItsTime) {
  movie_.openMedias({soundAt(0)});
  holdQueue();
  movie_.seek(kSecond);
  movie_.update_current_time_to(milliseconds(200));
  movie_.update_current_time_to(kSecond);
  releaseQueue();
  EXPECT_EQ(movie_.medias()[0]->audioStream()->audio_sync_frame(), 44100);
}

TEST_F(LMFFMovieTimeline, FlushWaitsForAllThatIsQueued) {
  int done = 0;
  for (int i = 0; i < 5; ++i) movie_.decodeQueue()->addOperation([&done] { ++done; });
  movie_.flushOperation();
  EXPECT_EQ(done, 5);
}

TEST_F(LMFFMovieTimeline, ForwardAnswersYesAndDoesNothing) {
  EXPECT_TRUE(movie_.forward());
  EXPECT_EQ(movie_.currentTime(), 0);
}

}  // namespace
}  // namespace kestrel::test
