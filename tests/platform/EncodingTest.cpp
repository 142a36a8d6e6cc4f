#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <vector>

#include "platform/codec/Codec.h"
#include "tests/support/NoMemory.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace kestrel::test {
namespace {

/// Keeps the packets that an encoder makes.
class Encoding : public testing::Test {
 protected:
  static CodecContextPtr contextFor(AVCodecID codec) {
    return CodecContextPtr(avcodec_alloc_context3(avcodec_find_encoder(codec)));
  }

  /// Grey pictures of 32 × 32; the encoder puts two between those that they are predicted from, so
  /// that it answers late.
  static CodecContextPtr lateEncoder() {
    CodecContextPtr encoder = contextFor(AV_CODEC_ID_MPEG2VIDEO);
    encoder->width = encoder->height = 32;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->time_base = {1, 25};
    encoder->max_b_frames = 2;
    EXPECT_EQ(openCodec(*encoder, encoder->codec), 0);
    return encoder;
  }

  static FramePtr picture(int64_t time) {
    FramePtr frame(av_frame_alloc());
    frame->width = frame->height = 32;
    frame->format = AV_PIX_FMT_YUV420P;
    frame->pts = time;
    EXPECT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
    for (int plane = 0; plane < 3; ++plane)
      std::fill_n(frame->data[plane], frame->linesize[plane] * (plane == 0 ? 32 : 16),
                  uint8_t{128});
    return frame;
  }

  /// Sound of 8 kHz in one channel: each sample is its number.
  static CodecContextPtr soundEncoder(AVCodecID codec, AVSampleFormat format) {
    CodecContextPtr encoder = contextFor(codec);
    encoder->sample_fmt = format;
    encoder->sample_rate = 8000;
    encoder->time_base = {1, 8000};
    av_channel_layout_default(&encoder->ch_layout, 1);
    EXPECT_EQ(openCodec(*encoder, encoder->codec), 0);
    return encoder;
  }

  static FramePtr sound(AVSampleFormat format, int samples) {
    FramePtr frame(av_frame_alloc());
    frame->format = format;
    frame->sample_rate = 8000;
    frame->nb_samples = samples;
    av_channel_layout_default(&frame->ch_layout, 1);
    EXPECT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
    return frame;
  }

  std::vector<int64_t> times() const {
    std::vector<int64_t> found;
    for (const PacketPtr& packet : packets_) found.push_back(packet->pts);
    return found;
  }

  std::vector<PacketPtr> packets_;
  const PacketTaker take_ = [this](PacketPtr packet) { packets_.push_back(std::move(packet)); };
};

TEST_F(Encoding, APacketHoldsWhatTheFrameHeld) {
  const auto encoder = soundEncoder(AV_CODEC_ID_PCM_S16BE, AV_SAMPLE_FMT_S16);
  const FramePtr frame = sound(AV_SAMPLE_FMT_S16, 3);
  auto* samples = reinterpret_cast<int16_t*>(frame->data[0]);
  samples[0] = 1;
  samples[1] = 0x1234;
  samples[2] = -1;
  EXPECT_EQ(encodeFrame(*encoder, frame.get(), take_), 0);
  ASSERT_EQ(packets_.size(), 1U);
  EXPECT_EQ(std::vector<uint8_t>(packets_[0]->data, packets_[0]->data + packets_[0]->size),
            (std::vector<uint8_t>{0, 1, 0x12, 0x34, 0xFF, 0xFF}));
}

TEST_F(Encoding, WhatAnEncoderHoldsBackComesAtTheEnd) {
  const auto encoder = lateEncoder();
  EXPECT_EQ(encodeFrame(*encoder, picture(0).get(), take_), 0);
  EXPECT_TRUE(packets_.empty());
  for (int64_t time = 1; time < 7; ++time)
    EXPECT_EQ(encodeFrame(*encoder, picture(time).get(), take_), 0);
  EXPECT_LT(packets_.size(), 7U);
  EXPECT_EQ(encodeFrame(*encoder, nullptr, take_), 0);
  // A picture that others are predicted from comes before the two that it is shown behind.
  EXPECT_EQ(times(), (std::vector<int64_t>{0, 3, 1, 2, 6, 4, 5}));
}

TEST_F(Encoding, WhatIsLeftMayBeTakenPacketByPacket) {
  const auto encoder = lateEncoder();
  for (int64_t time = 0; time < 7; ++time) encodeFrame(*encoder, picture(time).get(), take_);
  EXPECT_EQ(endEncoding(*encoder), 0);
  for (size_t count = packets_.size() + 1; count <= 7; ++count) {
    EXPECT_EQ(takePacket(*encoder, take_), 1);
    EXPECT_EQ(packets_.size(), count);
  }
  EXPECT_EQ(takePacket(*encoder, take_), 0);
  EXPECT_EQ(packets_.size(), 7U);
}

TEST_F(Encoding, WithoutAPacketThatIsReadyNoneIsTaken) {
  const auto encoder = lateEncoder();
  EXPECT_EQ(takePacket(*encoder, take_), 0);
  EXPECT_TRUE(packets_.empty());
}

// Whoever took no packets has left the encoder no room for another frame.
TEST_F(Encoding, PacketsThatWaitMakeRoomForAFrame) {
  const auto encoder = lateEncoder();
  int64_t time = 0;
  while (avcodec_send_frame(encoder.get(), picture(time).get()) == 0 && time < 100) ++time;
  ASSERT_LT(time, 100);
  EXPECT_EQ(encodeFrame(*encoder, picture(time).get(), take_), 0);
  EXPECT_EQ(encodeFrame(*encoder, nullptr, take_), 0);
  std::vector<int64_t> shown = times();
  std::ranges::sort(shown);
  ASSERT_EQ(shown.size(), static_cast<size_t>(time) + 1);
  for (int64_t i = 0; i <= time; ++i) EXPECT_EQ(shown[static_cast<size_t>(i)], i);
}

TEST_F(Encoding, TheEndComesOnce) {
  const auto encoder = lateEncoder();
  encodeFrame(*encoder, picture(0).get(), take_);
  EXPECT_EQ(encodeFrame(*encoder, nullptr, take_), 0);
  EXPECT_EQ(encodeFrame(*encoder, nullptr, take_), 0);
  EXPECT_EQ(endEncoding(*encoder), 0);
  EXPECT_EQ(packets_.size(), 1U);
  EXPECT_EQ(encodeFrame(*encoder, picture(1).get(), take_), AVERROR_EOF);
}

TEST_F(Encoding, ARefusedFrameIsTold) {
  const auto encoder = soundEncoder(AV_CODEC_ID_AAC, AV_SAMPLE_FMT_FLTP);
  const FramePtr tooLong = sound(AV_SAMPLE_FMT_FLTP, 2000);  // AAC's frames have 1024 samples
  EXPECT_EQ(encodeFrame(*encoder, tooLong.get(), take_), AVERROR(EINVAL));
  EXPECT_TRUE(packets_.empty());
}

TEST_F(Encoding, WithoutMemoryForAPacketThatIsTold) {
  const auto encoder = soundEncoder(AV_CODEC_ID_PCM_S16BE, AV_SAMPLE_FMT_S16);
  const FramePtr frame = sound(AV_SAMPLE_FMT_S16, 3);
  const NoMemory none;
  EXPECT_EQ(encodeFrame(*encoder, frame.get(), take_), AVERROR(ENOMEM));
  EXPECT_TRUE(packets_.empty());
}

}  // namespace
}  // namespace kestrel::test
