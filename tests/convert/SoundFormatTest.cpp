#include "convert/plan/SoundFormat.h"

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <tuple>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
}

namespace kestrel {

bool operator==(const SoundFormat& a, const SoundFormat& b) {
  return a.sampleRate == b.sampleRate && a.layout == b.layout && a.bits == b.bits;
}

void PrintTo(const SoundFormat& format, std::ostream* out) {
  *out << format.sampleRate << " Hz, layout " << format.layout << ", " << format.bits << " bits";
}

namespace test {
namespace {

constexpr int64_t kMono = AV_CH_LAYOUT_MONO;
constexpr int64_t kStereo = AV_CH_LAYOUT_STEREO;

/// A track of an input.
struct Own {
  AVCodecID codec = AV_CODEC_ID_AAC;
  int rate = 44100;
  int64_t layout = kStereo;
  int bits = 0;
  AVSampleFormat sample = AV_SAMPLE_FMT_NONE;
};

SoundFormat like(const Own& own, AVCodecID codec, const char* container = "matroska",
                 bool hasMask = true) {
  const std::unique_ptr<AVFormatContext, decltype(&avformat_free_context)> input(
      avformat_alloc_context(), avformat_free_context);
  AVStream* stream = avformat_new_stream(input.get(), nullptr);
  stream->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
  stream->codecpar->codec_id = own.codec;
  stream->codecpar->sample_rate = own.rate;
  stream->codecpar->bits_per_raw_sample = own.bits;
  stream->codecpar->format = own.sample;
  av_channel_layout_from_mask(&stream->codecpar->ch_layout, static_cast<uint64_t>(own.layout));
  if (!hasMask) stream->codecpar->ch_layout.order = AV_CHANNEL_ORDER_UNSPEC;
  return soundFormatLike(*stream, *avcodec_find_encoder(codec),
                         *av_guess_format(container, nullptr, nullptr));
}

TEST(SoundFormat, WhatEncoderAndContainerTakeStays) {
  for (const int rate : {8000, 22050, 44100, 48000, 96000})
    for (const int64_t layout : {kMono, kStereo})
      EXPECT_EQ(like({.rate = rate, .layout = layout}, AV_CODEC_ID_AAC),
                (SoundFormat{rate, layout, 0}));
}

// The first packets of a track may lie behind what opening reads.
TEST(SoundFormat, OfWhatTellsNothingIsTheUsualOne) {
  for (const auto& [codec, container] : {std::pair{AV_CODEC_ID_PCM_S16LE, "wav"},
                                         {AV_CODEC_ID_AAC, "mp4"},
                                         {AV_CODEC_ID_FLAC, "flac"}}) {
    const SoundFormat usual = like({.rate = 0, .layout = 0}, codec, container);
    EXPECT_EQ(usual.layout, kStereo) << container;
    EXPECT_EQ(usual.sampleRate, 44100) << container;
  }
}

TEST(SoundFormat, LosslessTracksKeepTheirBits) {
  for (const int bits : {16, 24})
    EXPECT_EQ(like({.codec = AV_CODEC_ID_FLAC, .bits = bits}, AV_CODEC_ID_FLAC),
              (SoundFormat{44100, kStereo, bits}));
  EXPECT_EQ(like({.codec = AV_CODEC_ID_PCM_S24LE}, AV_CODEC_ID_FLAC).bits, 24);
}

// Rounded to 16 bits, what was decoded to floats would lose once more.
TEST(SoundFormat, WhatIsDecodedToFloatsHas24Bits) {
  EXPECT_EQ(like({.sample = AV_SAMPLE_FMT_FLTP}, AV_CODEC_ID_FLAC).bits, 24);
  EXPECT_EQ(like({.sample = AV_SAMPLE_FMT_S16P}, AV_CODEC_ID_FLAC).bits, 16);
}

TEST(SoundFormat, LossyCodecsHaveNoBits) {
  EXPECT_EQ(like({.codec = AV_CODEC_ID_FLAC, .bits = 24}, AV_CODEC_ID_AAC).bits, 0);
}

// Opus has 48 kHz and fractions of it, MP3 48 kHz at most.
TEST(SoundFormat, ARateThatTheEncoderDoesNotHaveBecomesTheNearest) {
  EXPECT_EQ(like({.rate = 44100}, AV_CODEC_ID_OPUS).sampleRate, 48000);
  EXPECT_EQ(like({.rate = 17000}, AV_CODEC_ID_OPUS).sampleRate, 16000);
  EXPECT_EQ(like({.rate = 96000}, AV_CODEC_ID_MP3).sampleRate, 48000);
}

// Flash files have MP3 of 44.1 kHz, fractions of it, and 48 kHz.
TEST(SoundFormat, ARateThatTheContainerDoesNotTakeBecomesTheNearest) {
  EXPECT_EQ(like({.rate = 48000}, AV_CODEC_ID_MP3, "flv").sampleRate, 48000);
  EXPECT_EQ(like({.rate = 24000}, AV_CODEC_ID_MP3, "flv").sampleRate, 22050);
  EXPECT_EQ(like({.rate = 16000}, AV_CODEC_ID_MP3, "flv").sampleRate, 11025);
  EXPECT_EQ(like({.rate = 48000}, AV_CODEC_ID_MP3, "swf").sampleRate, 44100);
}

TEST(SoundFormat, SpeakersThatTheCodecDoesNotHaveBecomeTheUsualOnesOfFewer) {
  EXPECT_EQ(like({.layout = AV_CH_LAYOUT_7POINT1}, AV_CODEC_ID_MP3).layout, kStereo);
  EXPECT_EQ(like({.layout = AV_CH_LAYOUT_5POINT1_BACK}, AV_CODEC_ID_MP2).layout, kStereo);
}

TEST(SoundFormat, SurroundSpeakersOfAacAreAtTheBack) {
  for (const int64_t layout : {AV_CH_LAYOUT_5POINT1, AV_CH_LAYOUT_5POINT1_BACK})
    EXPECT_EQ(like({.layout = layout}, AV_CODEC_ID_AAC).layout, AV_CH_LAYOUT_5POINT1_BACK);
  for (const int64_t layout : {AV_CH_LAYOUT_5POINT0, AV_CH_LAYOUT_5POINT0_BACK})
    EXPECT_EQ(like({.layout = layout}, AV_CODEC_ID_AAC).layout, AV_CH_LAYOUT_5POINT0_BACK);
  EXPECT_EQ(like({.layout = AV_CH_LAYOUT_5POINT1}, AV_CODEC_ID_FLAC).layout, AV_CH_LAYOUT_5POINT1);
}

TEST(SoundFormat, SpeakersThatNobodyNamesAreTheUsualOfTheirNumber) {
  EXPECT_EQ(like({.layout = kStereo}, AV_CODEC_ID_AAC, "mp4", false).layout, kStereo);
  EXPECT_EQ(like({.layout = kMono}, AV_CODEC_ID_AAC, "mp4", false).layout, kMono);
}

// 96000 a second for each channel at 44.1 kHz, a step of the MPEG codecs below.
TEST(SoundFormat, LowRatesGetFewerBits) {
  for (const auto& [rate, layout, bits] : {std::tuple{48000, kStereo, 192000},
                                           {44100, kMono, 96000},
                                           {96000, kStereo, 192000},
                                           {44100, int64_t{AV_CH_LAYOUT_5POINT1}, 576000},
                                           {32000, kStereo, 128000},  // 139319
                                           {22050, kStereo, 96000},
                                           {16000, kMono, 32000},    // 34830
                                           {8000, kMono, 16000},     // 17415
                                           {8000, kStereo, 32000}})  // 34830
    EXPECT_EQ(usualBitrate({rate, layout, 0}), bits) << rate << " " << layout;
}

// ALAC knows eight layouts: of those with speakers at the side none, and of four channels only
// the one with a speaker in the middle behind.
TEST(SoundFormat, SpeakersKeepTheirSoundWhereTheyGetOtherNames) {
  const auto layoutIn = [](int64_t own) {
    return like({.codec = AV_CODEC_ID_PCM_S24LE, .layout = own}, AV_CODEC_ID_ALAC).layout;
  };
  EXPECT_EQ(layoutIn(AV_CH_LAYOUT_5POINT1), AV_CH_LAYOUT_5POINT1_BACK);
  EXPECT_EQ(layoutIn(AV_CH_LAYOUT_6POINT1), AV_CH_LAYOUT_6POINT1_BACK);
  EXPECT_EQ(layoutIn(AV_CH_LAYOUT_QUAD), AV_CH_LAYOUT_5POINT0_BACK);
  EXPECT_EQ(layoutIn(AV_CH_LAYOUT_7POINT1_WIDE_BACK), AV_CH_LAYOUT_7POINT1_WIDE_BACK);
  EXPECT_EQ(layoutIn(AV_CH_LAYOUT_7POINT1), AV_CH_LAYOUT_5POINT1_BACK);  // has both pairs
}

/// The samples that a track of an input is carried in.
int32_t carried(AVSampleFormat format, AVCodecID codec, const PlannedStream& planned) {
  AVCodecParameters own{};
  own.format = format;
  own.codec_id = codec;
  own.sample_rate = 48000;
  av_channel_layout_from_mask(&own.ch_layout, kStereo);
  return carriedSamples(own, planned);
}

TEST(SoundFormat, DeepSamplesThatNobodyChangesAreCarriedWhole) {
  PlannedStream plain{.kind = StreamInfo::Kind::kAudio, .sources = {0}};
  plain.sound.sampleRate = 48000;
  plain.sound.channelLayout = kStereo;
  plain.sound.bits = 32;
  EXPECT_EQ(carried(AV_SAMPLE_FMT_S32, AV_CODEC_ID_PCM_S32LE, plain), AV_SAMPLE_FMT_S32);
  EXPECT_EQ(carried(AV_SAMPLE_FMT_S32P, AV_CODEC_ID_PCM_S32LE, plain), AV_SAMPLE_FMT_S32);
  EXPECT_EQ(carried(AV_SAMPLE_FMT_DBL, AV_CODEC_ID_PCM_F64LE, plain), AV_SAMPLE_FMT_DBL);
  // Float keeps all of these.
  EXPECT_EQ(carried(AV_SAMPLE_FMT_S32, AV_CODEC_ID_PCM_S24LE, plain), AV_SAMPLE_FMT_FLT);
  EXPECT_EQ(carried(AV_SAMPLE_FMT_S16, AV_CODEC_ID_PCM_S16LE, plain), AV_SAMPLE_FMT_FLT);
  EXPECT_EQ(carried(AV_SAMPLE_FMT_FLTP, AV_CODEC_ID_AAC, plain), AV_SAMPLE_FMT_FLT);
}

TEST(SoundFormat, SoundThatIsShapedIsCarriedAsFloat) {
  PlannedStream plain{.kind = StreamInfo::Kind::kAudio, .sources = {0}};
  plain.sound.sampleRate = 48000;
  plain.sound.channelLayout = kStereo;
  plain.sound.bits = 32;
  std::vector<PlannedStream> shaped(6, plain);
  shaped[0].sources = {0, 1};
  shaped[1].sound.volume = 0.5;
  shaped[2].sound.loudness = -16;
  shaped[3].sound.sampleRate = 44100;
  shaped[4].sound.channelLayout = kMono;
  shaped[5].sound.bits = 0;
  for (const PlannedStream& planned : shaped)
    EXPECT_EQ(carried(AV_SAMPLE_FMT_S32, AV_CODEC_ID_PCM_S32LE, planned), AV_SAMPLE_FMT_FLT);
}

TEST(SoundFormat, ChannelsAreCounted) {
  EXPECT_EQ((SoundFormat{44100, kMono, 0}).channels(), 1);
  EXPECT_EQ((SoundFormat{44100, AV_CH_LAYOUT_5POINT1, 0}).channels(), 6);
}

}  // namespace
}  // namespace test
}  // namespace kestrel
