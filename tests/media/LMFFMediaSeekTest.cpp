#include <gmock/gmock.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>

#include <algorithm>

#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

/// The time of the first packet of a stream that libavformat itself reads after a seek of the whole
/// file; none where it cannot seek there.
int64_t firstTimeAfterSeek(const std::filesystem::path& file, int stream, int64_t target) {
  const auto source = sourceOf(file);
  source->open();
  AVFormatContext* context = source->formatContext();
  if (av_seek_frame(context, -1, target, AVSEEK_FLAG_BACKWARD) < 0) return AV_NOPTS_VALUE;
  const PacketPtr packet = makePacket();
  int64_t time = AV_NOPTS_VALUE;
  while (time == AV_NOPTS_VALUE && av_read_frame(context, packet.get()) >= 0) {
    if (packet->stream_index == stream) time = packet->pts;
    av_packet_unref(packet.get());
  }
  return time;
}

class LMFFMediaSeek : public testing::Test {
 protected:
  ~LMFFMediaSeek() override {
    if (media_) media_->setMovie(nullptr);
  }

  void open(const std::filesystem::path& file, std::optional<IndexSet> streams = std::nullopt) {
    media_ = openedMedia(file, std::move(streams));
    media_->setMovie(&movie_);
  }

  LMFFMovie movie_;
  std::shared_ptr<LMFFMedia> media_;
};

TEST_F(LMFFMediaSeek, ReadsUpToTheTimeSought) {
  open(fixture("video-only.mp4"));
  media_->seek(milliseconds(1300));
  EXPECT_GE(media_->last_pts(), milliseconds(1300));
  EXPECT_LT(media_->last_pts(), milliseconds(1700));
}

TEST_F(LMFFMediaSeek, TimeCountsFromTheContainersStart) {
  open(fixture("av25.ts"));
  media_->seek(kSecond);
  EXPECT_GE(media_->last_pts(), media_->start_time() + kSecond);
  EXPECT_LT(media_->last_pts(), media_->start_time() + milliseconds(1400));
}

TEST_F(LMFFMediaSeek, NegativeTimeIsTakenForTheStart) {
  open(fixture("video-only.mp4"));
  while (media_->forwardNextPacket()) {
  }
  media_->seek(-5 * kSecond);
  EXPECT_EQ(media_->videoFrameAtTime(0)->pts, 0);
}

TEST_F(LMFFMediaSeek, BeyondTheEndLeavesTheLastPicture) {
  open(fixture("video-only.mp4"));
  media_->seek(60 * kSecond);
  const AVFrame* frame = media_->videoFrameAtTime(60 * kSecond);
  ASSERT_NE(frame->data[0], nullptr);
  EXPECT_EQ(frame->pts, 49 * 512);
}

TEST_F(LMFFMediaSeek, FromTheEndReadsAgain) {
  open(fixture("av25.mp4"));
  while (media_->forwardNextPacket()) {
  }
  EXPECT_TRUE(media_->isAtEnd());
  media_->seek(0);
  EXPECT_FALSE(media_->isAtEnd());
  EXPECT_TRUE(media_->forwardNextPacket());
}

TEST_F(LMFFMediaSeek, MovesEveryOpenStream) {
  open(fixture("av-tracks.mkv"));
  media_->streams()[1]->setEnable(false);
  media_->seek(kSecond);
  EXPECT_EQ(media_->streams()[1]->audio_sync_frame(), 44100);
  EXPECT_EQ(media_->streams()[2]->audio_sync_frame(), 44100);
}

TEST_F(LMFFMediaSeek, LeavesClosedStreamsAlone) {
  open(fixture("av-tracks.mkv"), IndexSet{0, 2});
  media_->streams()[1]->setAudio_sync_frame(7);
  media_->seek(kSecond);
  EXPECT_EQ(media_->streams()[1]->audio_sync_frame(), 7);
}

TEST_F(LMFFMediaSeek, DropsWhatWasQueued) {
  open(fixture("audio-only.m4a"));
  movie_.setCopy_audio_stream(true);
  for (int i = 0; i < 10; ++i) media_->forwardNextPacket();
  media_->seek(kSecond);
  const auto packets = media_->audioStream()->rawPackets();
  ASSERT_FALSE(packets.empty());
  EXPECT_GT(packets.front()->getPacket()->pts, 44100 / 2);
}

TEST_F(LMFFMediaSeek, Mp3ReadsOnUntilThereIsSound) {
  open(fixture("tone.mp3"));
  for (const int64_t time : {0, 500, 1000, 1700}) {
    media_->seek(milliseconds(time));
    EXPECT_GT(media_->audioStream()->outputSamples(), 0) << time;
  }
}

TEST_F(LMFFMediaSeek, SoundFollowsFromThePlaceSought) {
  for (const char* name : {"av25.mp4", "av25.ts", "av25.mpg", "tone.mp3", "mpeg4-bframes.avi"}) {
    open(fixture(name));
    media_ = audioMediaOf(fixture(name));
    const auto stream = media_->audioStream();
    media_->seek(kSecond);
    media_->forwardStream(stream);
    // The first frame kept: at most half a frame before the place, at most one after it.
    const double start =
        static_cast<double>(stream->frame()->pts) * av_q2d(toAV(stream->timebase()));
    const double place = 1.0 + static_cast<double>(media_->start_time()) / 1e6;
    const double frame = stream->frame()->nb_samples / 44100.0;
    const double waiting = stream->outputSamples() / 44100.0 - frame;  // read before this one
    EXPECT_GE(start - waiting, place - 0.51 * frame) << name;
    EXPECT_LE(start - waiting, place + 1.01 * frame) << name;
  }
}

// RealMedia: a tenth of a second earlier. The sound is copied, so that the packets show where
// reading began.

TEST_F(LMFFMediaSeek, RealMediaLandsATenthOfASecondEarlier) {
  KESTREL_NEED_MEDIA("real-rv10-sipr.rm");
  const auto file = mediaFile("real-rv10-sipr.rm");
  open(file);
  movie_.setCopy_audio_stream(true);
  const int sound = media_->audioStream()->stream()->index;
  bool differs = false;
  for (int64_t time = 500; time < 19'000; time += 100) {
    media_->seek(milliseconds(time));
    const auto packets = media_->audioStream()->rawPackets();
    if (packets.empty()) continue;  // pictures alone led up to the time
    const int64_t landed = firstTimeAfterSeek(file, sound, milliseconds(time - 100));
    if (landed == AV_NOPTS_VALUE) continue;
    EXPECT_EQ(packets.front()->getPacket()->pts, landed) << time;
    differs |= landed != firstTimeAfterSeek(file, sound, milliseconds(time));
  }
  EXPECT_TRUE(differs);  // it matters here
}

TEST_F(LMFFMediaSeek, RealMediaNearItsStartReadsFromTheStart) {
  KESTREL_NEED_MEDIA("real-rv20.rm");
  open(mediaFile("real-rv20.rm"));
  while (media_->forwardNextPacket()) {
  }
  media_->seek(milliseconds(50));
  EXPECT_EQ(media_->videoFrameAtTime(0)->pts, pictureTimesOf(mediaFile("real-rv20.rm")).front());
}

}  // namespace
}  // namespace kestrel::test
