#include "support/copy/CodecData.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>

#include "tests/support/BareStreams.h"

namespace kestrel::test {
namespace {

// FLAC's stream info (RFC 9639, 8.2): 44100 Hz (20 bits), two channels (3 bits, less one), 16 bits
// (5 bits, less one); then 36 bits of the number of samples and 16 bytes of a checksum.
Bytes flacInfo(uint8_t block, uint8_t samples) {
  Bytes info{16, block, 16, block, 0, 1, 2, 0, 3, 4, 0x0A, 0xC4, 0x42, 0xF5, 0, 0, 0, samples};
  info.resize(34, samples);
  return info;
}

Bytes joined(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

class CodecDataTest : public testing::Test {
 protected:
  AVCodecParameters& parameters(AVCodecID codec, const Bytes& data) {
    AVCodecParameters& made = *streams_.add(AVMEDIA_TYPE_AUDIO, codec).codecpar;
    setCodecData(made, data);
    return made;
  }

  Bytes dataOf(AVCodecID codec, const Bytes& data) {
    const auto own = codecDataOf(parameters(codec, data));
    return {own.begin(), own.end()};
  }

  Bytes meaningOf(AVCodecID codec, const Bytes& data) {
    return codecMeaningOf(parameters(codec, data));
  }

  BareStreams streams_;
};

TEST_F(CodecDataTest, IsThatOfTheStreamWithoutTheBitRateOfItsFile) {
  const Bytes text{1, 2, 3};
  const Bytes rate{0, 0, 0, 20, 'b', 't', 'r', 't', 0, 0, 0, 0, 0, 0, 9, 9, 0, 0, 8, 8};
  EXPECT_EQ(dataOf(AV_CODEC_ID_MOV_TEXT, text), text);
  EXPECT_EQ(dataOf(AV_CODEC_ID_MOV_TEXT, joined(text, rate)), text);
  EXPECT_EQ(dataOf(AV_CODEC_ID_MOV_TEXT, joined(joined(text, rate), rate)), text);
  EXPECT_EQ(dataOf(AV_CODEC_ID_AAC, joined(text, rate)), joined(text, rate));
}

TEST_F(CodecDataTest, OfFlacMeansRateChannelsAndDepth) {
  const Bytes meaning{0x0A, 0xC4, 0x42, 0xF0};
  EXPECT_EQ(meaningOf(AV_CODEC_ID_FLAC, flacInfo(0, 7)), meaning);
  EXPECT_EQ(meaningOf(AV_CODEC_ID_FLAC, flacInfo(9, 200)), meaning);
  const Bytes marked{'f', 'L', 'a', 'C', 0x80, 0, 0, 34};
  EXPECT_EQ(meaningOf(AV_CODEC_ID_FLAC, joined(marked, flacInfo(0, 7))), meaning);
  Bytes other = flacInfo(0, 7);
  other[12] = 0x40;  // one channel
  EXPECT_NE(meaningOf(AV_CODEC_ID_FLAC, other), meaning);
  EXPECT_EQ(meaningOf(AV_CODEC_ID_FLAC, {1, 2}), (Bytes{1, 2}));  // too short to tell
}

TEST_F(CodecDataTest, OfAacMeansNothingMoreWhereItSaysSo) {
  EXPECT_EQ(meaningOf(AV_CODEC_ID_AAC, {0x12, 0x10, 0x56, 0xE5, 0}), (Bytes{0x12, 0x10}));
  EXPECT_EQ(meaningOf(AV_CODEC_ID_AAC, {0x12, 0x10}), (Bytes{0x12, 0x10}));
  const Bytes twiceTheRate{0x12, 0x10, 0x56, 0xE5, 0x98};
  EXPECT_EQ(meaningOf(AV_CODEC_ID_AAC, twiceTheRate), twiceTheRate);
}

TEST_F(CodecDataTest, OfAlacAndOpusMeansNothingThatDecodersDoNotNeed) {
  Bytes alac(36);
  for (size_t i = 0; i < alac.size(); ++i) alac[i] = static_cast<uint8_t>(i);
  Bytes expected = alac;  // but for the largest packet and the mean bit rate
  expected.erase(expected.begin() + 24, expected.begin() + 32);
  EXPECT_EQ(meaningOf(AV_CODEC_ID_ALAC, alac), expected);
  const Bytes head{'O',  'p', 'u',  's',  'H', 'e', 'a', 'd', 1, 2,
                   0x38, 1,   0x80, 0xBB, 0,   0,   0,   0,   0};
  EXPECT_EQ(meaningOf(AV_CODEC_ID_OPUS, head),
            (Bytes{'O', 'p', 'u', 's', 'H', 'e', 'a', 'd', 1, 2, 0x38, 1, 0, 0, 0}));
}

TEST_F(CodecDataTest, OfAnyOtherCodecMeansAllOfIt) {
  EXPECT_EQ(meaningOf(AV_CODEC_ID_VORBIS, {3, 1, 4}), (Bytes{3, 1, 4}));
  EXPECT_EQ(meaningOf(AV_CODEC_ID_VORBIS, {}), Bytes{});
}

TEST_F(CodecDataTest, OfFlacIsWidenedToBlocksOfAnySizeAndSoundOfAnyLength) {
  AVCodecParameters& flac = parameters(AV_CODEC_ID_FLAC, flacInfo(0, 7));
  widenCodecData(flac);
  Bytes expected{0, 16, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0x0A, 0xC4, 0x42, 0xF0};
  expected.resize(34, 0);
  EXPECT_EQ(Bytes(flac.extradata, flac.extradata + flac.extradata_size), expected);
}

TEST_F(CodecDataTest, OfAnyOtherCodecStaysAsItIs) {
  const Bytes data = flacInfo(0, 7);
  AVCodecParameters& other = parameters(AV_CODEC_ID_ALAC, data);
  widenCodecData(other);
  EXPECT_TRUE(std::equal(data.begin(), data.end(), other.extradata));
}

}  // namespace
}  // namespace kestrel::test
