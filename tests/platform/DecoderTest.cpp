#include <gtest/gtest.h>

#include "platform/codec/Codec.h"

namespace kestrel::test {
namespace {

AVCodecParameters soundOf(AVCodecID codec, int channels) {
  AVCodecParameters parameters{};
  parameters.codec_type = AVMEDIA_TYPE_AUDIO;
  parameters.codec_id = codec;
  parameters.sample_rate = 8000;
  parameters.format = AV_SAMPLE_FMT_S16;
  av_channel_layout_default(&parameters.ch_layout, channels);
  return parameters;
}

TEST(Decoder, IsOpenedAsItsOptionsSay) {
  CodecContextPtr decoder;
  ASSERT_GE(openDecoder(decoder, soundOf(AV_CODEC_ID_PCM_S16LE, 2), {.timebase = {1, 90000}}), 0);
  ASSERT_TRUE(decoder);
  EXPECT_TRUE(avcodec_is_open(decoder.get()));
  EXPECT_EQ(av_cmp_q(decoder->pkt_timebase, {1, 90000}), 0);
  EXPECT_EQ(decoder->ch_layout.nb_channels, 2);
}

TEST(Decoder, OfACodecThatHasNoneIsNotFound) {
  CodecContextPtr decoder;
  ASSERT_GE(openDecoder(decoder, soundOf(AV_CODEC_ID_PCM_S16LE, 2)), 0);
  EXPECT_EQ(openDecoder(decoder, soundOf(AV_CODEC_ID_NONE, 2)), AVERROR_DECODER_NOT_FOUND);
  EXPECT_FALSE(decoder);
}

TEST(Decoder, ThatRefusesItsStreamIsNone) {
  CodecContextPtr decoder;
  const int result = openDecoder(decoder, soundOf(AV_CODEC_ID_PCM_S16LE, 0));
  EXPECT_LT(result, 0);
  EXPECT_NE(result, AVERROR_DECODER_NOT_FOUND);
  EXPECT_FALSE(decoder);
}

}  // namespace
}  // namespace kestrel::test
