#include "support/encode/StreamEncoder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "support/MuxingOwners.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/intreadwrite.h>
}

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// A stream of a container that is never written, and the encoder for it.
class Stream {
 public:
  explicit Stream(AVCodecID codec, const char* container = "matroska")
      : container_(makeContainer(container)),
        encoder_(avformat_new_stream(container_.get(), nullptr), avcodec_find_encoder(codec),
                 *container_->oformat) {}

  StreamEncoder* operator->() { return &encoder_; }
  AVCodecContext& context() { return *encoder_.context(); }
  const AVStream& stream() const { return *encoder_.stream(); }
  const FirstError& errors() const { return errors_; }

  /// Sets it up for pictures of 32 × 16 at 25 a second.
  Stream& withPictures(int bFrames = 0) {
    AVCodecContext& encoder = context();
    encoder.width = 32;
    encoder.height = 16;
    encoder.pix_fmt = AV_PIX_FMT_YUV420P;
    encoder.time_base = {1, 25};
    encoder.framerate = {25, 1};
    encoder.max_b_frames = bFrames;
    return *this;
  }

  /// For sound of two channels at 8 kHz.
  Stream& withSound(AVSampleFormat format) {
    AVCodecContext& encoder = context();
    encoder.sample_fmt = format;
    encoder.sample_rate = 8000;
    encoder.time_base = {1, 8000};
    av_channel_layout_default(&encoder.ch_layout, 2);
    return *this;
  }

  bool encode(AVFrame& frame, int64_t duration = 0) {
    return encoder_.encode(frame, duration, errors_, take_);
  }

  /// As muxers do once the header is written.
  void setTimeBase(AVRational timeBase) { encoder_.stream()->time_base = timeBase; }

  bool takeNext() { return encoder_.takeNext(errors_, take_); }

  void finish() {
    encoder_.finish();
    while (takeNext()) {
    }
  }

  /// The packets' durations, by when they are shown.
  std::map<int64_t, int64_t> durations() const {
    std::map<int64_t, int64_t> found;
    for (const PacketPtr& packet : packets_) found[packet->pts] = packet->duration;
    return found;
  }

  const std::vector<PacketPtr>& packets() const { return packets_; }

 private:
  static OutputContextPtr makeContainer(const char* name) {
    AVFormatContext* container = nullptr;
    avformat_alloc_output_context2(&container, nullptr, name, nullptr);
    return OutputContextPtr(container);
  }

  const OutputContextPtr container_;
  StreamEncoder encoder_;
  FirstError errors_;
  std::vector<PacketPtr> packets_;
  const PacketTaker take_ = [this](PacketPtr packet) { packets_.push_back(std::move(packet)); };
};

FramePtr picture(int64_t time, int width = 32, AVPixelFormat format = AV_PIX_FMT_YUV420P) {
  FramePtr frame = makeFrame();
  frame->width = width;
  frame->height = 16;
  frame->format = format;
  frame->pts = time;
  EXPECT_GE(av_frame_get_buffer(frame.get(), 0), 0);
  for (int plane = 0; plane < 3 && frame->data[plane]; ++plane)
    std::fill_n(frame->data[plane], frame->linesize[plane] * (plane == 0 ? 16 : 8), uint8_t{128});
  return frame;
}

FramePtr sound(AVSampleFormat format, int channels, int samples) {
  FramePtr frame = makeFrame();
  frame->format = format;
  frame->nb_samples = samples;
  frame->pts = 0;
  av_channel_layout_default(&frame->ch_layout, channels);
  EXPECT_GE(av_frame_get_buffer(frame.get(), 0), 0);
  av_samples_set_silence(frame->extended_data, 0, samples, channels, format);
  return frame;
}

TEST(StreamEncoder, OpeningDescribesTheStream) {
  Stream stream(AV_CODEC_ID_MPEG4);
  EXPECT_FALSE(stream.withPictures()->open({}));
  const AVStream& described = stream.stream();
  EXPECT_EQ(described.id, 1);
  EXPECT_EQ(described.codecpar->codec_id, AV_CODEC_ID_MPEG4);
  EXPECT_EQ(described.codecpar->width, 32);
  EXPECT_EQ(described.codecpar->height, 16);
  EXPECT_EQ(av_cmp_q(described.time_base, {1, 25}), 0);
  EXPECT_EQ(av_cmp_q(described.avg_frame_rate, {25, 1}), 0);
}

TEST(StreamEncoder, AFailureToOpenIsToldAndLeavesTheStreamDescribed) {
  Stream stream(AV_CODEC_ID_MPEG4);
  stream.withPictures();
  stream.context().pix_fmt = AV_PIX_FMT_YUV444P;
  const Error error = stream->open({});
  EXPECT_LT(error.code, 0);
  EXPECT_THAT(error.message, HasSubstr("mpeg4"));
  EXPECT_EQ(stream.stream().codecpar->width, 32);
}

TEST(StreamEncoder, OptionsReachTheEncoder) {
  Stream stream(AV_CODEC_ID_MPEG4);
  EXPECT_FALSE(stream.withPictures()->open({{"g", "7"}}));
  EXPECT_EQ(stream.context().gop_size, 7);
}

TEST(StreamEncoder, AnOptionThatNobodyKnowsIsAFailure) {
  Stream stream(AV_CODEC_ID_MPEG4);
  const Error error = stream.withPictures()->open({{"nonsense", "1"}});
  EXPECT_TRUE(error);
  EXPECT_THAT(error.message, HasSubstr("nonsense"));
}

// Matroska keeps the codec data in its header, a transport stream in the packets.
TEST(StreamEncoder, TheContainerSaysWhereCodecDataGoes) {
  for (const auto& [container, isGlobal] : {std::pair{"matroska", true}, {"mpegts", false}}) {
    Stream stream(AV_CODEC_ID_MPEG4, container);
    EXPECT_EQ((stream.context().flags & AV_CODEC_FLAG_GLOBAL_HEADER) != 0, isGlobal) << container;
    EXPECT_FALSE(stream.withPictures()->open({}));
    EXPECT_EQ(stream.stream().codecpar->extradata_size > 0, isGlobal) << container;
  }
}

TEST(StreamEncoder, PacketsAreStampedInTheStreamsTimeBase) {
  Stream stream(AV_CODEC_ID_MJPEG);
  stream.withPictures();
  stream.context().pix_fmt = AV_PIX_FMT_YUVJ420P;
  EXPECT_FALSE(stream->open({}));
  stream.setTimeBase({1, 1000});
  for (int64_t time = 0; time < 3; ++time)
    stream.encode(*picture(time, 32, AV_PIX_FMT_YUVJ420P), 1);
  stream.finish();
  EXPECT_EQ(stream.durations(), (std::map<int64_t, int64_t>{{0, 40}, {40, 40}, {80, 40}}));
  EXPECT_FALSE(stream.errors().get());
}

// They leave the encoder in another order than they came in.
TEST(StreamEncoder, EachPacketLastsAsLongAsItsPicture) {
  Stream stream(AV_CODEC_ID_MPEG2VIDEO);
  EXPECT_FALSE(stream.withPictures(2)->open({}));
  const std::map<int64_t, int64_t> durations{{0, 1}, {1, 2}, {3, 4}, {7, 3}, {10, 5}, {15, 2}};
  for (const auto& [time, duration] : durations) stream.encode(*picture(time), duration);
  stream.finish();
  EXPECT_EQ(stream.durations(), durations);
  ASSERT_EQ(stream.packets().size(), 6U);
  EXPECT_EQ(stream.packets()[1]->pts, 7);
}

/// When the key pictures of an encoder come that is given pictures at these times.
std::vector<int64_t> keyTimes(Stream& stream, const std::vector<int64_t>& times) {
  for (const int64_t time : times) stream.encode(*picture(time));
  stream.finish();
  std::vector<int64_t> keys;
  for (const PacketPtr& packet : stream.packets())
    if (packet->flags & AV_PKT_FLAG_KEY) keys.push_back(packet->pts);
  return keys;
}

// Ten pictures last ten ticks at the encoder's rate. Where they come at every third tick only, a
// group ends with the first picture that is ten ticks or more from its beginning. The second group
// is the encoder's own choice, which lets a run of B-pictures end first.
TEST(StreamEncoder, SlowPicturesMakeNoGroupLonger) {
  std::vector<int64_t> times;
  for (int64_t time = 0; time < 15; ++time) times.push_back(time);
  for (int64_t time = 15; time < 60; time += 3) times.push_back(time);
  Stream plain(AV_CODEC_ID_MPEG4);
  EXPECT_FALSE(plain.withPictures()->open({{"g", "10"}}));
  EXPECT_THAT(keyTimes(plain, times), ElementsAre(0, 10, 21, 33, 45, 57));
  Stream reordered(AV_CODEC_ID_MPEG4);
  EXPECT_FALSE(reordered.withPictures(2)->open({{"g", "10"}}));
  EXPECT_THAT(keyTimes(reordered, times), ElementsAre(0, 12, 24, 36, 48));
}

// The encoder's own counting is enough there.
TEST(StreamEncoder, SteadyPicturesKeepTheEncodersGroups) {
  std::vector<int64_t> times(25);
  std::iota(times.begin(), times.end(), 0);
  Stream stream(AV_CODEC_ID_MPEG4);
  EXPECT_FALSE(stream.withPictures()->open({{"g", "10"}}));
  EXPECT_THAT(keyTimes(stream, times), ElementsAre(0, 10, 20));
}

// MPEG-4's header of an intra picture: its type (2 bits), no second gone by (1), a mark (1), its
// time (5 for 25 ticks a second), a mark (1), that it is coded (1), a threshold (3), the quantiser
// (5).
TEST(StreamEncoder, TheQuantiserIsTheOneThatIsAskedFor) {
  for (const int quantiser : {2, 4, 9, 31}) {
    SCOPED_TRACE(quantiser);
    Stream stream(AV_CODEC_ID_MPEG4);
    EXPECT_FALSE(stream.withPictures()->open(
        {{"flags", "+qscale"}, {"global_quality", std::to_string(quantiser * FF_QP2LAMBDA)}}));
    stream.encode(*picture(0));
    stream.finish();
    ASSERT_EQ(stream.packets().size(), 1U);
    AVPacket& packet = *stream.packets()[0];
    constexpr uint8_t kPictureStart[] = {0, 0, 1, 0xb6};
    uint8_t* const end = packet.data + packet.size;
    uint8_t* const begin =
        std::search(packet.data, end, std::begin(kPictureStart), std::end(kPictureStart));
    ASSERT_GE(end - begin, 8);
    EXPECT_EQ(AV_RB32(begin + 4) >> 13 & 31, static_cast<uint32_t>(quantiser));
  }
}

TEST(StreamEncoder, EncodingSaysWhetherAPacketCame) {
  Stream late(AV_CODEC_ID_MPEG2VIDEO);
  EXPECT_FALSE(late.withPictures(2)->open({}));
  EXPECT_FALSE(late.encode(*picture(0)));
  late.finish();
  EXPECT_EQ(late.packets().size(), 1U);

  Stream prompt(AV_CODEC_ID_PCM_S16LE);
  EXPECT_FALSE(prompt.withSound(AV_SAMPLE_FMT_S16)->open({}));
  EXPECT_TRUE(prompt.encode(*sound(AV_SAMPLE_FMT_S16, 2, 10)));
  EXPECT_EQ(prompt.packets().size(), 1U);
}

TEST(StreamEncoder, WhatIsLeftIsTakenPacketByPacket) {
  Stream stream(AV_CODEC_ID_MPEG2VIDEO);
  EXPECT_FALSE(stream.withPictures(2)->open({}));
  for (int64_t time = 0; time < 3; ++time) stream.encode(*picture(time));
  const size_t before = stream.packets().size();
  stream->finish();
  stream->finish();
  EXPECT_TRUE(stream.takeNext());
  EXPECT_EQ(stream.packets().size(), before + 1);
  while (stream.takeNext()) {
  }
  EXPECT_EQ(stream.packets().size(), 3U);
  EXPECT_FALSE(stream.errors().get());
}

TEST(StreamEncoder, PicturesOfAnotherFormAreRefused) {
  Stream stream(AV_CODEC_ID_MPEG4);
  EXPECT_FALSE(stream.withPictures()->open({}));
  EXPECT_FALSE(stream->refusal(*picture(0)));
  EXPECT_TRUE(stream->refusal(*picture(0, 32, AV_PIX_FMT_YUV444P)));
  EXPECT_FALSE(stream.encode(*picture(0, 64)));
  EXPECT_TRUE(stream.packets().empty());
  const std::string sentence = stream.errors().get().message;
  EXPECT_THAT(sentence, HasSubstr("64 x 16, yuv420p"));
  EXPECT_THAT(sentence, HasSubstr("32 x 16, yuv420p"));
}

TEST(StreamEncoder, SoundOfAnotherFormIsRefused) {
  Stream stream(AV_CODEC_ID_PCM_S16LE);
  EXPECT_FALSE(stream.withSound(AV_SAMPLE_FMT_S16)->open({}));
  const FramePtr frame = sound(AV_SAMPLE_FMT_S16, 2, 10);
  EXPECT_FALSE(stream->refusal(*frame));  // it says no rate
  frame->sample_rate = 8000;
  EXPECT_FALSE(stream->refusal(*frame));
  frame->sample_rate = 44100;
  EXPECT_TRUE(stream->refusal(*frame));
  EXPECT_TRUE(stream->refusal(*sound(AV_SAMPLE_FMT_S16, 1, 10)));
  EXPECT_TRUE(stream->refusal(*sound(AV_SAMPLE_FMT_FLT, 2, 10)));
}

TEST(StreamEncoder, AFrameBehindTheEndIsAFailure) {
  Stream stream(AV_CODEC_ID_PCM_S16LE);
  EXPECT_FALSE(stream.withSound(AV_SAMPLE_FMT_S16)->open({}));
  stream.finish();
  EXPECT_FALSE(stream.encode(*sound(AV_SAMPLE_FMT_S16, 2, 10)));
  EXPECT_EQ(stream.errors().get().code, AVERROR_EOF);
}

// FLAC keeps 16 or 32 bits, AAC has floating-point numbers only.
TEST(StreamEncoder, SoundIsEncodedInTheSmallestFormThatKeepsItsBits) {
  struct Row {
    AVCodecID codec;
    int bits;
    AVSampleFormat format;
    int kept;
  };
  for (const Row& row : {Row{AV_CODEC_ID_FLAC, 0, AV_SAMPLE_FMT_S16, 0},
                         {AV_CODEC_ID_FLAC, 16, AV_SAMPLE_FMT_S16, 16},
                         {AV_CODEC_ID_FLAC, 24, AV_SAMPLE_FMT_S32, 24},
                         {AV_CODEC_ID_FLAC, 64, AV_SAMPLE_FMT_S32, 32},
                         {AV_CODEC_ID_AAC, 16, AV_SAMPLE_FMT_FLTP, 16}}) {
    Stream stream(row.codec);
    LMFFMovieFileOutputFormat format;
    format.sample_rate = 48000;
    format.channel_layout = AV_CH_LAYOUT_STEREO;
    format.audio_bitrate = 96000;
    configureSound(format, row.bits, stream.context());
    EXPECT_EQ(stream.context().sample_fmt, row.format) << row.bits;
    EXPECT_EQ(stream.context().bits_per_raw_sample, row.kept) << row.bits;
    EXPECT_EQ(stream.context().sample_rate, 48000);
    EXPECT_EQ(stream.context().bit_rate, 96000);
    EXPECT_EQ(stream.context().ch_layout.nb_channels, 2);
    EXPECT_EQ(av_cmp_q(stream.context().time_base, {1, 48000}), 0);
  }
}

TEST(StreamEncoder, FloatingPointStaysSoWhereTheEncoderHasIt) {
  struct Row {
    AVCodecID codec;
    AVSampleFormat format;
  };
  for (const Row& row : {Row{AV_CODEC_ID_WAVPACK, AV_SAMPLE_FMT_FLTP},
                         {AV_CODEC_ID_PCM_F64LE, AV_SAMPLE_FMT_DBL},
                         {AV_CODEC_ID_FLAC, AV_SAMPLE_FMT_S32}}) {
    Stream stream(row.codec);
    LMFFMovieFileOutputFormat format;
    format.sample_rate = 48000;
    format.channel_layout = AV_CH_LAYOUT_STEREO;
    configureSound(format, 24, stream.context(), true);
    EXPECT_EQ(stream.context().sample_fmt, row.format);
  }
}

}  // namespace
}  // namespace kestrel::test
