#include <gmock/gmock.h>
#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LibMedia.h>

#include "tests/media/HandMade.h"
#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

using testing::IsEmpty;

class LMFFMediaStreamTest : public testing::Test {
 protected:
  /// An unopened engine stream over a container stream.
  LMFFMediaStream& over(AVStream* stream) {
    stream_ = std::make_unique<LMFFMediaStream>();
    stream_->setStream(stream);
    return *stream_;
  }

  HandMadeContainer container_;
  std::unique_ptr<LMFFMediaStream> stream_;
};

// What the stream is.

TEST_F(LMFFMediaStreamTest, WithoutAContainerStreamAnswersNothing) {
  LMFFMediaStream stream;
  stream.open();
  EXPECT_FALSE(stream.isOpen());
  EXPECT_EQ(stream.codecContext(), nullptr);
  EXPECT_EQ(stream.stream(), nullptr);
  EXPECT_FALSE(stream.isVideo() || stream.isAudio() || stream.isSubtitle());
  EXPECT_EQ(stream.get_codec_id(), 0);
  EXPECT_EQ(stream.bitrate(), 0);
  EXPECT_EQ(stream.codecName(), "");
  EXPECT_EQ(stream.duration(), 0);
  EXPECT_EQ(stream.timebase(), (Rational{1, 1}));
  EXPECT_EQ(stream.framebase(), (Rational{1, 1}));
  EXPECT_EQ(stream.audioOutputTimebase(), (Rational{1, 1}));
  EXPECT_EQ(stream.audioFormat(), (LMFFAudioFormat{-1, 0, 0}));
  EXPECT_EQ(stream.videoFormat(), (LMFFVideoFormat{-1, 0, 0}));
  EXPECT_EQ(stream.outputSamples(), 0);
}

TEST_F(LMFFMediaStreamTest, TypeIsTheCodecs) {
  EXPECT_TRUE(over(container_.addPictures(4, 4)).isVideo());
  EXPECT_FALSE(stream_->isAudio() || stream_->isSubtitle());
  EXPECT_TRUE(over(container_.addSound(44100, 2)).isAudio());
  EXPECT_FALSE(stream_->isVideo() || stream_->isSubtitle());
  EXPECT_TRUE(over(container_.addStream(AVMEDIA_TYPE_SUBTITLE, AV_CODEC_ID_ASS)).isSubtitle());
  EXPECT_FALSE(stream_->isVideo() || stream_->isAudio());
}

TEST_F(LMFFMediaStreamTest, MediaTypeIsTheLibrarys) {
  EXPECT_EQ(over(container_.addPictures(4, 4)).mediaType(), 0);
  EXPECT_EQ(over(container_.addSound(44100, 2)).mediaType(), 1);
  EXPECT_EQ(over(container_.addStream(AVMEDIA_TYPE_SUBTITLE, AV_CODEC_ID_ASS)).mediaType(), 3);
}

TEST_F(LMFFMediaStreamTest, IsNeverAValidAudio) {
  EXPECT_FALSE(openedStream(container_.addSound(44100, 2))->isValidAudio());
}

TEST_F(LMFFMediaStreamTest, CodecIsTheContainersWithItsDecodersName) {
  AVStream* stream = container_.addStream(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_MPEG4);
  stream->codecpar->bit_rate = 1234567;
  const auto opened = openedStream(stream);
  EXPECT_EQ(opened->get_codec_id(), AV_CODEC_ID_MPEG4);
  EXPECT_EQ(opened->codecName(), "mpeg4");
  EXPECT_EQ(opened->bitrate(), 1234567);
}

TEST_F(LMFFMediaStreamTest, UnknownCodecHasNoName) {
  EXPECT_EQ(openedStream(container_.addStream(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_NONE))->codecName(),
            "");
}

TEST_F(LMFFMediaStreamTest, LanguageIsNamedForDisplay) {
  AVStream* stream = container_.addSound(44100, 2);
  av_dict_set(&stream->metadata, "language", "fre", 0);
  EXPECT_EQ(over(stream).language(), LibMedia::displayStringForLanguage("fre"));
  EXPECT_NE(stream_->language(), LibMedia::displayStringForLanguage("ger"));
}

TEST_F(LMFFMediaStreamTest, MissingLanguageIsNamedAsTheEmptyCodeIs) {
  EXPECT_EQ(over(container_.addSound(44100, 2)).language(), LibMedia::displayStringForLanguage(""));
}

TEST_F(LMFFMediaStreamTest, DurationIsTheContainersInItsTimeBase) {
  AVStream* stream = container_.addSound(44100, 2);
  stream->duration = 88200;
  EXPECT_EQ(over(stream).duration(), 88200);
  stream->duration = AV_NOPTS_VALUE;
  EXPECT_EQ(stream_->duration(), 0);
}

// Time bases.

TEST_F(LMFFMediaStreamTest, TimeBaseIsTheContainers) {
  EXPECT_EQ(over(container_.addPictures(4, 4, {1001, 30000})).timebase(), (Rational{1001, 30000}));
}

TEST_F(LMFFMediaStreamTest, UnusableNumberInATimeBaseIsReplacedByOneAlone) {
  EXPECT_EQ(over(container_.addPictures(4, 4, {0, 25})).timebase(), (Rational{1, 25}));
  EXPECT_EQ(over(container_.addPictures(4, 4, {-3, 25})).timebase(), (Rational{1, 25}));
  EXPECT_EQ(over(container_.addPictures(4, 4, {2, 0})).timebase(), (Rational{2, 1}));
  EXPECT_EQ(over(container_.addPictures(4, 4, {2, -9})).timebase(), (Rational{2, 1}));
  EXPECT_EQ(over(container_.addPictures(4, 4, {0, 0})).timebase(), (Rational{1, 1}));
}

TEST_F(LMFFMediaStreamTest, FrameBaseIsOneSample) {
  EXPECT_EQ(over(container_.addSound(48000, 2)).framebase(), (Rational{1, 48000}));
}

TEST_F(LMFFMediaStreamTest, FrameBaseWithoutASampleRateIsOne) {
  AVStream* stream = container_.addSound(48000, 2);
  stream->codecpar->sample_rate = 0;
  EXPECT_EQ(over(stream).framebase(), (Rational{1, 1}));
}

TEST_F(LMFFMediaStreamTest, SubtitleHasNoAudioFormatAndTheFrameBaseOne) {
  over(container_.addStream(AVMEDIA_TYPE_SUBTITLE, AV_CODEC_ID_ASS));
  EXPECT_EQ(stream_->audioFormat(), (LMFFAudioFormat{-1, 0, 0}));
  EXPECT_EQ(stream_->framebase(), (Rational{1, 1}));
}

TEST_F(LMFFMediaStreamTest, AudioOutputTimeBaseIsOneResampledSample) {
  EXPECT_EQ(openedStream(container_.addSound(48000, 2))->audioOutputTimebase(),
            (Rational{1, 44100}));
}

TEST_F(LMFFMediaStreamTest, AudioOutputTimeBaseWithoutAResamplerIsOne) {
  EXPECT_EQ(over(container_.addSound(48000, 2)).audioOutputTimebase(), (Rational{1, 1}));
  EXPECT_EQ(stream_->audioOutputFormat(), LMFFAudioFormat{});
}

// Formats.

TEST_F(LMFFMediaStreamTest, AudioFormatIsTheDecoders) {
  const auto stream = openedStream(container_.addSound(48000, 6));
  EXPECT_EQ(stream->audioFormat(),
            (LMFFAudioFormat{AV_SAMPLE_FMT_S16, AV_CH_LAYOUT_5POINT1_BACK, 48000}));
  EXPECT_EQ(stream->channels(), 6);
  EXPECT_EQ(stream->videoFormat(), (LMFFVideoFormat{-1, 0, 0}));
}

TEST_F(LMFFMediaStreamTest, ChannelsWithoutALayoutHaveTheDefaultOneForTheirNumber) {
  AVStream* stream = container_.addSound(44100, 2);
  stream->codecpar->ch_layout = {
      .order = AV_CHANNEL_ORDER_UNSPEC, .nb_channels = 4, .u = {0}, .opaque = nullptr};
  EXPECT_EQ(over(stream).audioFormat().channel_layout, 0x107);
  EXPECT_EQ(stream_->channels(), 4);
}

TEST_F(LMFFMediaStreamTest, UnusualLayoutOfItsChannelsIsKept) {
  AVStream* stream = container_.addSound(44100, 2);
  av_channel_layout_from_mask(&stream->codecpar->ch_layout, AV_CH_LAYOUT_STEREO_DOWNMIX);
  EXPECT_EQ(over(stream).audioFormat().channel_layout,
            static_cast<int64_t>(AV_CH_LAYOUT_STEREO_DOWNMIX));
}

TEST_F(LMFFMediaStreamTest, VideoFormatIsTheDecoders) {
  const auto stream = openedStream(container_.addPictures(64, 36));
  EXPECT_EQ(stream->videoFormat(), (LMFFVideoFormat{AV_PIX_FMT_YUV420P, 64, 36}));
  EXPECT_EQ(stream->audioFormat(), (LMFFAudioFormat{-1, 0, 0}));
  EXPECT_EQ(stream->channels(), 0);
}

TEST_F(LMFFMediaStreamTest, ResampledSoundIsTheDefaultFormatAtFirst) {
  EXPECT_EQ(openedStream(container_.addSound(48000, 6))->audioOutputFormat(),
            lm_get_default_audio_format());
}

TEST_F(LMFFMediaStreamTest, ResampledChannelsAreTheDefaultLayoutForTheirNumber) {
  const auto stream = openedStream(container_.addSound(48000, 2));
  stream->setAudioResampleChannels(1);
  EXPECT_EQ(stream->audioOutputFormat(),
            (LMFFAudioFormat{AV_SAMPLE_FMT_FLT, AV_CH_LAYOUT_MONO, 44100}));
  EXPECT_EQ(stream->resample()->inFormat(), stream->audioFormat());
  stream->setAudioResampleChannels(6);
  EXPECT_EQ(stream->audioOutputFormat().channel_layout,
            static_cast<int64_t>(AV_CH_LAYOUT_5POINT1_BACK));
}

TEST_F(LMFFMediaStreamTest, ResampledChannelsOfAStreamWithoutAResamplerAreNobodys) {
  over(container_.addPictures(4, 4)).setAudioResampleChannels(1);
  EXPECT_EQ(stream_->audioOutputFormat(), LMFFAudioFormat{});
}

// Opening and closing.

TEST_F(LMFFMediaStreamTest, OpenMakesDecoderAndResampler) {
  over(container_.addSound(44100, 2));
  EXPECT_FALSE(stream_->isOpen());
  EXPECT_EQ(stream_->resample(), nullptr);
  stream_->open();
  EXPECT_TRUE(stream_->isOpen());
  EXPECT_NE(stream_->resample(), nullptr);
  EXPECT_THAT(stream_->rawPackets(), IsEmpty());
}

TEST_F(LMFFMediaStreamTest, OnlySoundHasAResampler) {
  EXPECT_EQ(openedStream(container_.addPictures(4, 4))->resample(), nullptr);
}

TEST_F(LMFFMediaStreamTest, OpenOfAnOpenStreamDoesNothing) {
  const auto stream = openedStream(container_.addSound(44100, 2));
  const auto resampler = stream->resample();
  stream->setRawPackets({LMFFImage::imageWithPacket(nullptr)});
  stream->open();
  EXPECT_EQ(stream->resample(), resampler);
  EXPECT_TRUE(stream->hasPacket());
}

TEST_F(LMFFMediaStreamTest, StreamWithoutADecoderStaysClosed) {
  EXPECT_FALSE(openedStream(container_.addStream(AVMEDIA_TYPE_VIDEO, AV_CODEC_ID_NONE))->isOpen());
  EXPECT_FALSE(
      openedStream(container_.addStream(AVMEDIA_TYPE_DATA, AV_CODEC_ID_BIN_DATA))->isOpen());
}

TEST_F(LMFFMediaStreamTest, DecoderThatRefusesLeavesTheStreamClosed) {
  AVStream* stream = container_.addSound(44100, 2);
  stream->codecpar->ch_layout = {
      .order = AV_CHANNEL_ORDER_UNSPEC, .nb_channels = 0, .u = {0}, .opaque = nullptr};
  EXPECT_FALSE(openedStream(stream)->isOpen());
}

TEST_F(LMFFMediaStreamTest, CoverPictureIsClosedAgain) {
  AVStream* stream = container_.addPictures(4, 4);
  stream->disposition = AV_DISPOSITION_ATTACHED_PIC;
  EXPECT_FALSE(openedStream(stream)->isOpen());
}

TEST_F(LMFFMediaStreamTest, CoverPictureThatIsSomethingElseTooStaysOpen) {
  AVStream* stream = container_.addPictures(4, 4);
  stream->disposition = AV_DISPOSITION_ATTACHED_PIC | AV_DISPOSITION_DEFAULT;
  EXPECT_TRUE(openedStream(stream)->isOpen());
}

TEST_F(LMFFMediaStreamTest, CloseReleasesWhatTheStreamHeld) {
  const auto stream = openedStream(container_.addSound(44100, 2));
  stream->setRawPackets({LMFFImage::imageWithPacket(nullptr)});
  stream->setSubtitleString("text");
  stream->close();
  EXPECT_FALSE(stream->isOpen());
  EXPECT_EQ(stream->resample(), nullptr);
  EXPECT_EQ(stream->subtitle(), nullptr);
  EXPECT_EQ(stream->subtitleString(), std::nullopt);
  EXPECT_FALSE(stream->hasPacket());
}

TEST_F(LMFFMediaStreamTest, ClosedStreamCanBeOpenedAgain) {
  const auto stream = openedStream(container_.addSound(44100, 2));
  stream->close();
  stream->open();
  ASSERT_TRUE(stream->isOpen());
  EXPECT_TRUE(stream->decodePacket(soundPacket(0, 100, 2).get()));
  EXPECT_EQ(stream->outputSamples(), 100);
}

// The queue of undecoded packets.

TEST_F(LMFFMediaStreamTest, PacketsComeOutInTheirOrder) {
  LMFFMediaStream stream;
  const auto first = LMFFImage::imageWithPacket(packetOf("1", 1).get());
  const auto second = LMFFImage::imageWithPacket(packetOf("2", 2).get());
  stream.setRawPackets({first, second});
  EXPECT_TRUE(stream.hasPacket());
  EXPECT_EQ(stream.popFirstRawPacket(), first);
  EXPECT_EQ(stream.popFirstRawPacket(), second);
  EXPECT_FALSE(stream.hasPacket());
}

TEST_F(LMFFMediaStreamTest, EmptyQueueGivesNoPacket) {
  LMFFMediaStream stream;
  EXPECT_FALSE(stream.hasPacket());
  EXPECT_EQ(stream.popFirstRawPacket(), nullptr);
}

TEST_F(LMFFMediaStreamTest, PacketOutlivesTheStreamItCameFrom) {
  std::shared_ptr<LMFFImage> packet;
  {
    LMFFMediaStream stream;
    stream.setRawPackets({LMFFImage::imageWithPacket(packetOf("content", 1).get())});
    packet = stream.popFirstRawPacket();
  }
  EXPECT_EQ(packet->getPacket()->size, 7);
  EXPECT_EQ(packet->getPacket()->data[0], 'c');
}

}  // namespace
}  // namespace kestrel::test
