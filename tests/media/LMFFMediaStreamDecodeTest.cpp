#include <gmock/gmock.h>
#include <kestrel/Image.h>
#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMovie.h>

#include <functional>

#include "support/FFmpegCompat.h"
#include "tests/media/HandMade.h"
#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

using testing::_;
using testing::ElementsAre;

constexpr int kRate = 44100;
constexpr int kChannels = 2;

/// A stream of sound whose time base is one sample, and one of pictures, in a movie's media.
class LMFFMediaStreamDecode : public testing::Test {
 protected:
  LMFFMediaStreamDecode() {
    media_.setMovie(&movie_);
    sound_ = openedStream(container_.addSound(kRate, kChannels), &media_);
    pictures_ = openedStream(container_.addPictures(4, 4), &media_);
  }

  bool decodeSound(int64_t pts, int samples, int16_t level = 0) {
    return sound_->decodePacket(soundPacket(pts, samples, kChannels, level).get());
  }

  bool decodePicture(int64_t pts, uint8_t grey) {
    return pictures_->decodePacket(picturePacket(pts, 4, 4, grey).get());
  }

  static int64_t durationOf(const AVFrame& frame) { return frameDuration(frame); }

  /// A fact of every picture that comes out of packets of these times.
  template <typename Fact>
  std::vector<int64_t> picturesOf(const std::vector<int64_t>& times, Fact fact) {
    std::vector<int64_t> facts;
    const auto note = [&] { facts.push_back(std::invoke(fact, *pictures_->frame())); };
    for (const int64_t time : times)
      if (decodePicture(time, 1)) note();
    while (pictures_->drain()) note();
    return facts;
  }

  LMFFMovie movie_;
  LMFFMedia media_;
  HandMadeContainer container_;
  std::unique_ptr<LMFFMediaStream> sound_;
  std::unique_ptr<LMFFMediaStream> pictures_;
};

// Packets.

TEST_F(LMFFMediaStreamDecode, EmptyPacketGivesNothing) {
  EXPECT_FALSE(sound_->decodePacket(makePacket().get()));
  EXPECT_FALSE(pictures_->decodePacket(makePacket().get()));
  EXPECT_FALSE(sound_->decodePacket(nullptr));
  EXPECT_FALSE(sound_->hasFrame());
}

TEST_F(LMFFMediaStreamDecode, CallersPacketIsLeftAsItIs) {
  const PacketPtr packet = soundPacket(5, 100, kChannels, 77);
  const auto* data = packet->data;
  EXPECT_TRUE(sound_->decodePacket(packet.get()));
  EXPECT_EQ(packet->data, data);
  EXPECT_EQ(packet->size, 400);
  EXPECT_EQ(packet->pts, 5);
  EXPECT_EQ(packet->data[0], 77);
}

TEST_F(LMFFMediaStreamDecode, ClosedStreamDecodesNothing) {
  sound_->close();
  EXPECT_FALSE(decodeSound(0, 100));
  pictures_->close();
  EXPECT_FALSE(decodePicture(0, 128));
}

TEST_F(LMFFMediaStreamDecode, RefusedPacketIsCountedAndDecodingGoesOn) {
  EXPECT_FALSE(sound_->decodePacket(packetOf("x", 0).get()));  // less than a sample
  EXPECT_EQ(sound_->decodeErrors(), 1);
  EXPECT_FALSE(sound_->hasFrame());
  EXPECT_TRUE(decodeSound(0, 100));
  EXPECT_EQ(sound_->decodeErrors(), 1);
  EXPECT_EQ(sound_->outputSamples(), 100);
}

// Sound.

TEST_F(LMFFMediaStreamDecode, SoundFrameCarriesItsTimeAndLength) {
  EXPECT_TRUE(decodeSound(1000, 300));
  EXPECT_TRUE(sound_->hasFrame());
  const AVFrame& frame = *sound_->frame();
  EXPECT_EQ(frame.pts, 1000);
  EXPECT_EQ(frame.nb_samples, 300);
  EXPECT_EQ(frameDuration(frame), 300);
  EXPECT_EQ(frame.sample_rate, kRate);
  EXPECT_EQ(layoutMask(frame.ch_layout), static_cast<int64_t>(AV_CH_LAYOUT_STEREO));
}

TEST_F(LMFFMediaStreamDecode, SoundFramesLengthIsInTheStreamsTimeBase) {
  AVStream* inMilliseconds = container_.addSound(48000, kChannels);
  inMilliseconds->time_base = {1, 1000};
  const auto stream = openedStream(inMilliseconds, &media_);
  stream->decodePacket(soundPacket(20, 480, kChannels).get());
  EXPECT_EQ(stream->frame()->pts, 20);
  EXPECT_EQ(frameDuration(*stream->frame()), 10);
}

TEST_F(LMFFMediaStreamDecode, SoundIsResampledIntoTheOutputFormat) {
  decodeSound(0, 200, 16384);
  ASSERT_EQ(sound_->outputSamples(), 200);
  std::vector<float> samples(400);
  EXPECT_EQ(sound_->readSample(samples.data(), 200), 0);
  EXPECT_THAT(samples, testing::Each(0.5F));
  EXPECT_EQ(sound_->outputSamples(), 0);
}

TEST_F(LMFFMediaStreamDecode, SoundWithoutATimeFollowsWhatCameBefore) {
  decodeSound(1000, 300);
  decodeSound(AV_NOPTS_VALUE, 200);
  EXPECT_EQ(sound_->frame()->pts, 1300);
  decodeSound(AV_NOPTS_VALUE, 100);
  EXPECT_EQ(sound_->frame()->pts, 1500);
}

TEST_F(LMFFMediaStreamDecode, SoundWithoutATimeAfterASeekIsTakenForThePlaceSought) {
  sound_->seek(5000);
  decodeSound(AV_NOPTS_VALUE, 200);
  EXPECT_EQ(sound_->frame()->pts, 5000);
  EXPECT_EQ(sound_->outputSamples(), 200);
}

TEST_F(LMFFMediaStreamDecode, SeveralFramesOfOnePacketHaveIncreasingTimes) {
  // Three packets of MP3 as one: as some files store them.
  const auto media = openedMedia(fixture("tone.mp3"));
  const auto stream = media->audioStream();
  ASSERT_TRUE(stream);
  std::vector<uint8_t> bytes;
  PacketPtr packet = makePacket();
  for (int i = 0; i < 3; ++i) {
    ASSERT_GE(av_read_frame(media->formatContext(), packet.get()), 0);
    bytes.insert(bytes.end(), packet->data, packet->data + packet->size);
    av_packet_unref(packet.get());
  }
  const int64_t tick = av_rescale_q(1152, {1, kRate}, toAV(stream->timebase()));
  stream->seek(0);
  EXPECT_TRUE(stream->decodePacket(packetOf(bytes, 10 * tick).get()));
  EXPECT_EQ(stream->frame()->pts, 12 * tick);
  EXPECT_EQ(stream->frame()->nb_samples, 1152);
  EXPECT_EQ(stream->outputSamples(), 3 * 1152);
}

// Seeking.

TEST_F(LMFFMediaStreamDecode, SeekForgetsTheFrameAndMarksThePlace) {
  decodePicture(0, 100);
  decodePicture(40, 100);
  ASSERT_NE(pictures_->frame()->data[0], nullptr);
  pictures_->seek(1234);
  EXPECT_EQ(pictures_->frame()->data[0], nullptr);
  EXPECT_EQ(pictures_->frame()->pts, 1234);
}

TEST_F(LMFFMediaStreamDecode, SeekDropsResampledSoundAndQueuedPackets) {
  decodeSound(0, 200);
  sound_->setRawPackets({LMFFImage::imageWithPacket(nullptr)});
  sound_->seek(kRate);
  EXPECT_EQ(sound_->outputSamples(), 0);
  EXPECT_FALSE(sound_->hasPacket());
}

TEST_F(LMFFMediaStreamDecode, SeekClearsTheBitmapSubtitleButNotTheText) {
  static const std::vector<uint8_t> kPixel{1, 2, 3, 255};
  sound_->setSubtitle(Image::fromBitmap(BitmapImage::borrowing(kPixel.data(), 1, 1, 4)));
  sound_->setSubtitleString("text");
  sound_->seek(0);
  EXPECT_EQ(sound_->subtitle(), nullptr);
  EXPECT_EQ(sound_->subtitleString(), "text");
}

TEST_F(LMFFMediaStreamDecode, SeekSetsTheAudioClockInOutputSamples) {
  const auto stream = openedStream(container_.addSound(48000, kChannels), &media_);
  stream->seek(24000);  // half a second
  EXPECT_EQ(stream->audio_sync_frame(), 22050);
}

TEST_F(LMFFMediaStreamDecode, SoundUpToHalfAFrameBeforeThePlaceSoughtIsKept) {
  sound_->seek(1000);
  decodeSound(950, 100);
  EXPECT_EQ(sound_->outputSamples(), 100);
  EXPECT_TRUE(sound_->hasFrame());
  EXPECT_EQ(sound_->frame()->pts, 950);
}

TEST_F(LMFFMediaStreamDecode, SoundEarlierThanThatIsDropped) {
  sound_->seek(1000);
  EXPECT_TRUE(decodeSound(949, 100));
  EXPECT_EQ(sound_->outputSamples(), 0);
  EXPECT_FALSE(sound_->hasFrame());
  EXPECT_EQ(sound_->frame()->pts, 1000);
}

TEST_F(LMFFMediaStreamDecode, ToleranceGrowsWithTheFrame) {
  sound_->seek(1000);
  decodeSound(500, 999);
  EXPECT_EQ(sound_->outputSamples(), 0);
  decodeSound(500, 1000);
  EXPECT_EQ(sound_->outputSamples(), 1000);
}

TEST_F(LMFFMediaStreamDecode, SoundBeforeTheCurrentFrameIsDroppedWithoutASeekToo) {
  decodeSound(1000, 100, 1);
  decodeSound(800, 100, 2);
  EXPECT_EQ(sound_->outputSamples(), 100);
  EXPECT_EQ(sound_->frame()->pts, 1000);
}

// Pictures.

TEST_F(LMFFMediaStreamDecode, PictureIsStoredWithItsTime) {
  decodePicture(40, 100);
  decodePicture(80, 200);
  pictures_->drain();
  EXPECT_TRUE(pictures_->hasFrame());
  EXPECT_EQ(pictures_->frame()->pts, 80);
  EXPECT_EQ(pictures_->frame()->data[0][0], 200);
}

TEST_F(LMFFMediaStreamDecode, DrainingBringsEveryPictureOutOneByOne) {
  EXPECT_THAT(picturesOf({0, 40, 80, 120, 160}, &AVFrame::pts), ElementsAre(0, 40, 80, 120, 160));
  EXPECT_FALSE(pictures_->drain());
}

TEST_F(LMFFMediaStreamDecode, PictureLastsUntilTheNext) {
  EXPECT_THAT(picturesOf({0, 40, 150, 160}, &LMFFMediaStreamDecode::durationOf),
              ElementsAre(40, 110, 10, _));
}

TEST_F(LMFFMediaStreamDecode, StreamDecodesAgainAfterDrainAndSeek) {
  decodePicture(0, 1);
  while (pictures_->drain()) {
  }
  pictures_->seek(0);
  decodePicture(0, 2);
  while (pictures_->drain()) {
  }
  EXPECT_EQ(pictures_->frame()->data[0][0], 2);
}

// Stream copy.

TEST_F(LMFFMediaStreamDecode, CopiedSoundAccumulates) {
  movie_.setCopy_audio_stream(true);
  EXPECT_FALSE(decodeSound(0, 100));
  EXPECT_FALSE(decodeSound(100, 100));
  ASSERT_EQ(sound_->rawPackets().size(), 2u);
  EXPECT_EQ(sound_->rawPackets()[0]->getPacket()->pts, 0);
  EXPECT_EQ(sound_->rawPackets()[1]->getPacket()->pts, 100);
}

TEST_F(LMFFMediaStreamDecode, CopiedSoundIsNotDecoded) {
  movie_.setCopy_audio_stream(true);
  decodeSound(0, 100);
  EXPECT_FALSE(sound_->hasFrame());
  EXPECT_EQ(sound_->outputSamples(), 0);
}

TEST_F(LMFFMediaStreamDecode, CopiedPicturesKeepOnlyTheNewest) {
  movie_.setCopy_video_stream(true);
  EXPECT_FALSE(decodePicture(0, 1));
  EXPECT_FALSE(decodePicture(40, 2));
  ASSERT_EQ(pictures_->rawPackets().size(), 1u);
  EXPECT_EQ(pictures_->rawPackets()[0]->getPacket()->pts, 40);
  EXPECT_FALSE(pictures_->hasFrame());
}

TEST_F(LMFFMediaStreamDecode, CopiedPacketKnowsItsTimeBaseAndKeepsItsContent) {
  movie_.setCopy_video_stream(true);
  decodePicture(40, 7);
  const auto item = pictures_->popFirstRawPacket();
  EXPECT_TRUE(item->isPacket());
  EXPECT_TRUE(item->isKeyPacket());
  EXPECT_EQ(item->time_base(), (Rational{1, 1000}));
  EXPECT_EQ(item->getPacket()->size, 24);
  EXPECT_EQ(item->getPacket()->data[0], 7);
}

TEST_F(LMFFMediaStreamDecode, EachKindIsCopiedOnItsOwn) {
  movie_.setCopy_video_stream(true);
  EXPECT_TRUE(decodeSound(0, 100));
  EXPECT_FALSE(sound_->hasPacket());
  movie_.setCopy_video_stream(false);
  movie_.setCopy_audio_stream(true);
  decodePicture(0, 1);
  EXPECT_FALSE(pictures_->hasPacket());
}

}  // namespace
}  // namespace kestrel::test
