#include <gmock/gmock.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>

#include <map>

#include "tests/media/HandMade.h"
#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A media of a movie's, over all streams of a file.
class LMFFMediaReading : public testing::Test {
 protected:
  std::shared_ptr<LMFFMedia> open(const std::string& name,
                                  std::optional<IndexSet> streams = std::nullopt) {
    media_ = openedMedia(fixture(name), std::move(streams));
    media_->setMovie(&movie_);
    return media_;
  }

  ~LMFFMediaReading() override {
    if (media_) media_->setMovie(nullptr);
  }

  /// A packet of sound for stream 0 of "pcm-stereo-44100-s16.wav".
  static PacketPtr soundAt(int64_t pts, int64_t dts) {
    PacketPtr packet = soundPacket(pts, 100, 2, 9);
    packet->dts = dts;
    return packet;
  }

  LMFFMovie movie_;
  std::shared_ptr<LMFFMedia> media_;
};

// Routing.

TEST_F(LMFFMediaReading, PacketsAreReadInTheFilesOrderToTheEnd) {
  open("av25.mp4");
  movie_.setCopy_audio_stream(true);
  movie_.setCopy_video_stream(true);
  std::vector<int64_t> positions;
  while (media_->forwardNextPacket()) {
    for (const auto& stream : media_->streams())
      if (const auto item = stream->popFirstRawPacket())
        positions.push_back(item->getPacket()->pos);
  }
  std::vector<int64_t> expected;
  const auto packets = ffprobeJson(fixture("av25.mp4"), {"-show_packets"})["packets"];
  for (const auto& packet : packets)
    expected.push_back(std::stoll(packet["pos"].get<std::string>()));
  EXPECT_EQ(positions, expected);
}

TEST_F(LMFFMediaReading, EachPacketReachesItsStream) {
  open("av-tracks.mkv");
  movie_.setCopy_audio_stream(true);
  media_->setSelectSubtitles(IndexSet{});
  media_->updateSelectStreams();
  while (media_->forwardNextPacket()) {
  }
  std::map<int, size_t> counts;
  const auto packets = ffprobeJson(fixture("av-tracks.mkv"), {"-show_packets"})["packets"];
  for (const auto& packet : packets) ++counts[packet["stream_index"].get<int>()];
  EXPECT_EQ(media_->streams()[1]->rawPackets().size(), counts[1]);
  EXPECT_EQ(media_->streams()[2]->rawPackets().size(), counts[2]);
  EXPECT_TRUE(media_->streams()[0]->hasFrame());
}

TEST_F(LMFFMediaReading, LastTimeIsThePacketsInMicroseconds) {
  open("pcm-stereo-44100-s16.wav");
  EXPECT_EQ(media_->last_pts(), AV_NOPTS_VALUE);
  media_->forwardPacket(soundAt(22050, 22050).get());
  EXPECT_EQ(media_->last_pts(), 500000);
}

TEST_F(LMFFMediaReading, PacketWithoutAPresentationTimeCountsByItsDecodingTime) {
  open("pcm-stereo-44100-s16.wav");
  media_->forwardPacket(soundAt(AV_NOPTS_VALUE, 44100).get());
  EXPECT_EQ(media_->last_pts(), kSecond);
}

TEST_F(LMFFMediaReading, PacketWithNeitherTimeIsDecodedAndLeavesTheLastTime) {
  open("pcm-stereo-44100-s16.wav");
  media_->forwardPacket(soundAt(22050, 22050).get());
  media_->forwardPacket(soundAt(AV_NOPTS_VALUE, AV_NOPTS_VALUE).get());
  EXPECT_EQ(media_->last_pts(), 500000);
  EXPECT_EQ(media_->audioStream()->outputSamples(), 200);
}

TEST_F(LMFFMediaReading, PacketOfADisabledStreamIsDropped) {
  open("pcm-stereo-44100-s16.wav");
  media_->streams()[0]->setEnable(false);
  media_->forwardPacket(soundAt(22050, 22050).get());
  EXPECT_EQ(media_->last_pts(), AV_NOPTS_VALUE);
  EXPECT_EQ(media_->streams()[0]->outputSamples(), 0);
}

TEST_F(LMFFMediaReading, PacketOfAnUnknownStreamIsDropped) {
  open("pcm-stereo-44100-s16.wav");
  const PacketPtr packet = soundAt(22050, 22050);
  packet->stream_index = 7;
  media_->forwardPacket(packet.get());
  EXPECT_EQ(media_->last_pts(), AV_NOPTS_VALUE);
}

TEST_F(LMFFMediaReading, PictureIsDroppedUnreadWhileTheMovieDisablesVideo) {
  open("av25.mp4", IndexSet{0});
  movie_.setDisableVideo(true);
  for (int i = 0; i < 20; ++i) media_->forwardNextPacket();
  EXPECT_EQ(media_->last_pts(), AV_NOPTS_VALUE);
  EXPECT_EQ(media_->streams()[0]->frame()->data[0], nullptr);
  EXPECT_FALSE(media_->streams()[0]->hasFrame());
}

TEST_F(LMFFMediaReading, EndIsReachedOnlyWhenTheDecodersAreEmpty) {
  open("video-only.mp4");
  int pictures = 0;
  const auto stream = media_->videoStream();
  for (;;) {
    EXPECT_FALSE(media_->isAtEnd());
    stream->setHasFrame(false);
    if (!media_->forwardNextPacket()) break;
    if (stream->hasFrame()) ++pictures;
  }
  EXPECT_TRUE(media_->isAtEnd());
  EXPECT_EQ(pictures, 50);
  EXPECT_FALSE(media_->forwardNextPacket());
}

// Forwarding one stream.

TEST_F(LMFFMediaReading, ForwardingNoStreamFails) {
  EXPECT_FALSE(open("av25.mp4")->forwardStream(nullptr));
}

TEST_F(LMFFMediaReading, ForwardingStopsAtTheNextPicture) {
  open("video-only.mp4");
  const auto stream = media_->videoStream();
  stream->setHasFrame(true);  // is cleared first
  int pictures = 0;
  while (media_->forwardStream(stream)) {
    if (!stream->hasFrame()) continue;
    EXPECT_EQ(stream->frame()->pts, 512 * pictures);
    ++pictures;
  }
  EXPECT_EQ(pictures, 50);
}

TEST_F(LMFFMediaReading, ForwardingFailsAtTheEnd) {
  open("pcm-stereo-44100-s16.wav");
  while (media_->forwardNextPacket()) {
  }
  EXPECT_FALSE(media_->forwardStream(media_->audioStream()));
}

TEST_F(LMFFMediaReading, ForwardingStopsAtTheNextPacketWhereStreamsAreCopied) {
  open("pcm-stereo-44100-s16.wav");
  movie_.setCopy_audio_stream(true);
  EXPECT_TRUE(media_->forwardStream(media_->audioStream()));
  EXPECT_EQ(media_->audioStream()->rawPackets().size(), 1u);
}

TEST_F(LMFFMediaReading, ForwardingLooksTwoSecondsAhead) {
  open("slow-sound.mkv");
  media_->forwardNextPacket();
  const int64_t start = media_->last_pts();
  const auto text = media_->subtitleStream();
  EXPECT_TRUE(media_->forwardStream(text));
  EXPECT_FALSE(text->hasFrame());
  EXPECT_GE(media_->last_pts(), start + 2 * kSecond);
  EXPECT_LT(media_->last_pts(), start + 3 * kSecond);
}

TEST_F(LMFFMediaReading, LookingForSoundIsLimitedByTheAudioClockToo) {
  open("slow-sound.mkv");
  while (media_->last_pts() < 10 * kSecond) media_->forwardNextPacket();
  const auto sound = media_->audioStream();
  sound->setEnable(false);  // nothing of it comes any more
  const int64_t reached = media_->last_pts();
  sound->setAudio_sync_frame(8 * 44100);  // two seconds more: as far as has been read
  EXPECT_TRUE(media_->forwardStream(sound));
  EXPECT_EQ(media_->last_pts(), reached);
}

TEST_F(LMFFMediaReading, CopiedSoundIsNotLimitedByTheAudioClock) {
  open("slow-sound.mkv");
  movie_.setCopy_audio_stream(true);
  while (media_->last_pts() < 10 * kSecond) media_->forwardNextPacket();
  const auto sound = media_->audioStream();
  sound->setRawPackets({});
  sound->setAudio_sync_frame(0);
  EXPECT_TRUE(media_->forwardStream(sound));
  EXPECT_TRUE(sound->hasPacket());
}

TEST_F(LMFFMediaReading, PicturesDriveAMediaThatHasThem) {
  open("av25.mp4");
  movie_.setExportMovie(true);
  const auto sound = media_->audioStream();
  EXPECT_TRUE(media_->forwardStream(sound));  // nothing is read for it
  EXPECT_FALSE(sound->hasFrame());
  EXPECT_EQ(media_->last_pts(), AV_NOPTS_VALUE);
}

TEST_F(LMFFMediaReading, SoundBringsPicturesUpToThePlaybackClock) {
  open("av25.mp4");
  media_->setMovie_position(5 * kSecond);
  movie_.update_current_time_to(5 * kSecond + milliseconds(220));
  EXPECT_TRUE(media_->forwardStream(media_->audioStream()));
  ASSERT_NE(media_->videoStream()->frame()->data[0], nullptr);
  EXPECT_EQ(media_->videoStream()->frame()->pts, 5 * 512);
}

TEST_F(LMFFMediaReading, SoundBringsNoPicturesWhileTheMovieIsExported) {
  open("av25.mp4");
  movie_.setExportMovie(true);
  movie_.update_current_time_to(milliseconds(220));
  media_->forwardStream(media_->audioStream());
  EXPECT_EQ(media_->videoStream()->frame()->data[0], nullptr);
}

// Undecoded packets.

TEST_F(LMFFMediaReading, PacketsOfNoStreamAreNone) {
  EXPECT_EQ(open("av25.mp4")->readNextPacketInStream(nullptr), nullptr);
}

std::vector<int64_t> timesOf(const std::filesystem::path& file, const char* stream) {
  std::vector<int64_t> times;
  const auto packets = ffprobeJson(file, {"-show_packets", "-select_streams", stream})["packets"];
  for (const auto& packet : packets) times.push_back(packet["pts"].get<int64_t>());
  return times;
}

TEST_F(LMFFMediaReading, CopiedPicturesAreAllOfTheFile) {
  open("av25.mp4", IndexSet{0});
  movie_.setCopy_video_stream(true);
  std::vector<int64_t> times;
  while (const auto item = media_->readNextVideoPacket()) times.push_back(item->getPacket()->pts);
  EXPECT_EQ(times, timesOf(fixture("av25.mp4"), "v"));
}

TEST_F(LMFFMediaReading, CopiedSoundIsAllOfTheFile) {
  open("av25.mp4", IndexSet{1});
  movie_.setCopy_audio_stream(true);
  std::vector<int64_t> times;
  while (const auto item = media_->readNextAudioPacket()) times.push_back(item->getPacket()->pts);
  EXPECT_EQ(times, timesOf(fixture("av25.mp4"), "a"));
}

TEST_F(LMFFMediaReading, CopiedPacketKnowsHowItsTimeBecomesTheMovies) {
  open("av25.ts", IndexSet{1});
  movie_.setCopy_audio_stream(true);
  media_->setMovie_position(3 * kSecond);
  const auto item = media_->readNextAudioPacket();
  ASSERT_TRUE(item);
  EXPECT_EQ(item->pkt_time_offset(), media_->start_time());
  EXPECT_EQ(item->pkt_display_time(), 3 * kSecond);
  EXPECT_EQ(item->get_pkt_offset_time(), 3 * kSecond - media_->start_time());
}

TEST_F(LMFFMediaReading, LookingForAPacketGivesUpAfterTenForwards) {
  open("slow-sound.mkv");
  const auto text = media_->subtitleStream();
  EXPECT_EQ(media_->readNextPacketInStream(text), nullptr);
  EXPECT_GT(media_->last_pts(), 17 * kSecond);
  EXPECT_LE(media_->last_pts(), 20 * kSecond);
}

TEST_F(LMFFMediaReading, QueuedPacketIsAnsweredWithoutReading) {
  open("av25.mp4", IndexSet{1});
  const auto item = LMFFImage::imageWithPacket(packetOf("x", 1).get());
  media_->audioStream()->setRawPackets({item});
  EXPECT_EQ(media_->readNextAudioPacket(), item);
  EXPECT_EQ(media_->last_pts(), AV_NOPTS_VALUE);
}

// Pictures by time: see LMFFMediaFramesTest.cpp for which one it is.

TEST_F(LMFFMediaReading, MediaWithoutPicturesHasNoneAtAnyTime) {
  EXPECT_EQ(open("audio-only.m4a")->videoFrameAtTime(0), nullptr);
}

TEST_F(LMFFMediaReading, PictureStandsUntilItsVeryEnd) {
  open("video-only.mp4");
  EXPECT_EQ(media_->videoFrameAtTime(milliseconds(20))->pts, 0);
  EXPECT_EQ(media_->videoFrameAtTime(milliseconds(40))->pts, 0);
  EXPECT_EQ(media_->videoFrameAtTime(milliseconds(41))->pts, 512);
}

TEST_F(LMFFMediaReading, TenStepsAreTheMostForOnePicture) {
  open("video-only.mp4");
  ASSERT_EQ(media_->videoFrameAtTime(0)->pts, 0);
  // The newest picture there is, not the one that belongs to that time.
  EXPECT_EQ(media_->videoFrameAtTime(milliseconds(1900))->pts, 10 * 512);
  EXPECT_EQ(media_->videoFrameAtTime(milliseconds(1900))->pts, 20 * 512);
}

TEST_F(LMFFMediaReading, EarlierTimeKeepsTheNewestPicture) {
  open("video-only.mp4");
  ASSERT_EQ(media_->videoFrameAtTime(milliseconds(300))->pts, 7 * 512);
  EXPECT_EQ(media_->videoFrameAtTime(milliseconds(100))->pts, 7 * 512);
}

TEST_F(LMFFMediaReading, ThumbnailOfAMediaWithoutPicturesCallsNobody) {
  open("audio-only.m4a")->thumbnailAtTime(0, [](AVFrame*) { FAIL(); });
}

TEST_F(LMFFMediaReading, ThumbnailCallsBackOnceWithTheStreamsFrame) {
  open("video-only.mp4");
  std::vector<AVFrame*> frames;
  media_->thumbnailAtTime(kSecond, [&frames](AVFrame* frame) { frames.push_back(frame); });
  EXPECT_THAT(frames, ElementsAre(media_->videoStream()->frame()));
}

}  // namespace
}  // namespace kestrel::test
