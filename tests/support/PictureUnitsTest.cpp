#include "support/copy/PictureUnits.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "tests/support/BareStreams.h"

namespace kestrel::test {
namespace {

// Two parameter sets, and records that hold them (ISO/IEC 14496-15): behind lengths of four bytes.
const Bytes kAvcRecord{1, 0x64, 0, 0x1F, 0xFF, 0xE1, 0, 4, 0x67, 1, 2, 3, 1, 0, 2, 0x68, 5};
const Bytes kAvcStartCodes{0, 0, 0, 1, 0x67, 1, 2, 3, 0, 0, 1, 0x68, 5};

/// A set of type 33 and a message of type 39, each in an array of its own.
Bytes hevcRecord() {
  Bytes record(23, 0);
  record[0] = 1;
  record[21] = 3;  // lengths of four bytes
  record[22] = 2;  // arrays
  const Bytes arrays{33, 0, 1, 0, 3, 0x42, 1, 9, 39, 0, 1, 0, 3, 0x4E, 1, 5};
  record.insert(record.end(), arrays.begin(), arrays.end());
  return record;
}

class PictureUnitsTest : public testing::Test {
 protected:
  const AVCodecParameters& parameters(AVCodecID codec, const Bytes& data = {}) {
    AVCodecParameters& made = *streams_.add(AVMEDIA_TYPE_VIDEO, codec).codecpar;
    if (!data.empty()) setCodecData(made, data);
    return made;
  }

  /// A packet of units of one byte, behind start codes.
  static PacketPtr unitsOf(const std::vector<uint8_t>& heads) {
    Bytes bytes;
    for (const uint8_t head : heads) bytes.insert(bytes.end(), {0, 0, 1, head, 0x80});
    return barePacket(bytes);
  }

  BareStreams streams_;
};

TEST_F(PictureUnitsTest, TheMeaningIsTheSetsAndTheirForm) {
  EXPECT_EQ(PictureUnits(parameters(AV_CODEC_ID_H264, kAvcRecord)).meaning(),
            (Bytes{0, 0, 0, 4, 0x67, 1, 2, 3, 0, 0, 0, 2, 0x68, 5, 4}));
  EXPECT_EQ(PictureUnits(parameters(AV_CODEC_ID_H264, kAvcStartCodes)).meaning(),
            (Bytes{0, 0, 0, 1, 0x67, 1, 2, 3, 0, 0, 0, 1, 0x68, 5, 0}));
}

TEST_F(PictureUnitsTest, WhatAnEncoderSaysOfItselfMeansNothing) {
  EXPECT_EQ(PictureUnits(parameters(AV_CODEC_ID_HEVC, hevcRecord())).meaning(),
            (Bytes{0, 0, 0, 3, 0x42, 1, 9, 4}));
}

// Types are the low five bits of H.264's first byte, and bits 1 to 6 of HEVC's.
TEST_F(PictureUnitsTest, OnlySomeKeyPicturesBeginAnew) {
  const PictureUnits avc(parameters(AV_CODEC_ID_H264));
  EXPECT_TRUE(avc.beginsAnew(*unitsOf({0x67, 0x68, 0x65})));  // sets, IDR
  EXPECT_FALSE(avc.beginsAnew(*unitsOf({0x06, 0x61})));       // message, a slice that is not
  const PictureUnits hevc(parameters(AV_CODEC_ID_HEVC));
  EXPECT_TRUE(hevc.beginsAnew(*unitsOf({19 << 1})));   // IDR_W_RADL
  EXPECT_FALSE(hevc.beginsAnew(*unitsOf({21 << 1})));  // CRA
  EXPECT_TRUE(PictureUnits(parameters(AV_CODEC_ID_MPEG4)).beginsAnew(*unitsOf({0xB6})));
}

TEST_F(PictureUnitsTest, PicturesThatNoneRefersToAreDisposable) {
  const PictureUnits avc(parameters(AV_CODEC_ID_H264));
  EXPECT_TRUE(avc.isDisposable(*unitsOf({0x09, 0x01})));  // delimiter, nal_ref_idc 0
  EXPECT_FALSE(avc.isDisposable(*unitsOf({0x41})));
  EXPECT_FALSE(avc.isDisposable(*unitsOf({0x01, 0x21})));
  const PictureUnits hevc(parameters(AV_CODEC_ID_HEVC));
  EXPECT_TRUE(hevc.isDisposable(*unitsOf({0 << 1})));       // TRAIL_N
  EXPECT_FALSE(hevc.isDisposable(*unitsOf({1 << 1})));      // TRAIL_R
  EXPECT_TRUE(hevc.isDisposable(*unitsOf({8 << 1})));       // RASL_N
  EXPECT_FALSE(hevc.isDisposable(*unitsOf({9 << 1})));      // RASL_R
  const PictureUnits other(parameters(AV_CODEC_ID_MPEG4));  // told by the packet
  const PacketPtr packet = unitsOf({0xB6});
  EXPECT_FALSE(other.isDisposable(*packet));
  packet->flags |= AV_PKT_FLAG_DISPOSABLE;
  EXPECT_TRUE(other.isDisposable(*packet));
}

TEST_F(PictureUnitsTest, AnEncodersPacketTakesTheStreamsForm) {
  const Bytes own{0, 0, 0, 1, 0x65, 0xAA, 0, 0, 1, 0x41, 0xBB, 0xCC};
  const PacketPtr packet = barePacket(own);
  packet->pts = 77;
  EXPECT_TRUE(PictureUnits(parameters(AV_CODEC_ID_H264, kAvcStartCodes)).adopt(*packet));
  EXPECT_EQ(bytesOf(*packet), own);
  EXPECT_TRUE(PictureUnits(parameters(AV_CODEC_ID_H264, kAvcRecord)).adopt(*packet));
  EXPECT_EQ(bytesOf(*packet), (Bytes{0, 0, 0, 2, 0x65, 0xAA, 0, 0, 0, 3, 0x41, 0xBB, 0xCC}));
  EXPECT_EQ(packet->pts, 77);
}

TEST_F(PictureUnitsTest, CodecDataGoesInFrontInTheStreamsForm) {
  const auto withData = [&](AVCodecID codec, const Bytes& data) {
    const PacketPtr packet = barePacket({0xAA});
    EXPECT_TRUE(PictureUnits(parameters(codec, data)).prependCodecData(*packet));
    return bytesOf(*packet);
  };
  EXPECT_EQ(withData(AV_CODEC_ID_H264, kAvcRecord),
            (Bytes{0, 0, 0, 4, 0x67, 1, 2, 3, 0, 0, 0, 2, 0x68, 5, 0xAA}));
  EXPECT_EQ(withData(AV_CODEC_ID_MPEG4, {0, 0, 1, 0xB0, 1}), (Bytes{0, 0, 1, 0xB0, 1, 0xAA}));
  EXPECT_EQ(withData(AV_CODEC_ID_MPEG2VIDEO, {0, 0, 1, 0xB3}), (Bytes{0xAA}));
}

// Lengths that reach beyond the data end with it.
TEST_F(PictureUnitsTest, DamagedLengthsAreSurvived) {
  Bytes record = kAvcRecord;
  record.resize(10);
  EXPECT_EQ(PictureUnits(parameters(AV_CODEC_ID_H264, record)).meaning(),
            (Bytes{0, 0, 0, 2, 0x67, 1, 4}));
  const PictureUnits units(parameters(AV_CODEC_ID_H264, kAvcRecord));
  EXPECT_TRUE(units.beginsAnew(*barePacket({0xFF, 0xFF, 0xFF, 0xFF, 0x65})));
  EXPECT_FALSE(units.beginsAnew(*barePacket({0, 0, 0})));
}

}  // namespace
}  // namespace kestrel::test
