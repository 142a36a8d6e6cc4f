#include "convert/probe/Codecs.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <kestrel/convert/Failure.h>

using namespace kestrel;

namespace {

/// Subtitles that players find in a file, of some that one might put there.
struct Held {
  std::string path;
  std::vector<AVCodecID> codecs;
};

TEST(Codecs, SubtitlesThatAContainerHolds) {
  const std::vector<AVCodecID> all{
      AV_CODEC_ID_MOV_TEXT,     AV_CODEC_ID_SUBRIP,       AV_CODEC_ID_ASS,
      AV_CODEC_ID_WEBVTT,       AV_CODEC_ID_DVB_SUBTITLE, AV_CODEC_ID_DVB_TELETEXT,
      AV_CODEC_ID_DVD_SUBTITLE, AV_CODEC_ID_XSUB,         AV_CODEC_ID_HDMV_PGS_SUBTITLE};
  const std::vector<Held> containers{
      {"a.mp4", {AV_CODEC_ID_MOV_TEXT, AV_CODEC_ID_DVD_SUBTITLE}},
      {"a.mov", {AV_CODEC_ID_MOV_TEXT}},
      {"a.mkv",
       {AV_CODEC_ID_SUBRIP, AV_CODEC_ID_ASS, AV_CODEC_ID_WEBVTT, AV_CODEC_ID_DVB_SUBTITLE,
        AV_CODEC_ID_DVD_SUBTITLE, AV_CODEC_ID_HDMV_PGS_SUBTITLE}},
      {"a.webm", {AV_CODEC_ID_WEBVTT}},
      {"a.ts", {AV_CODEC_ID_DVB_SUBTITLE, AV_CODEC_ID_DVB_TELETEXT}},
      {"a.M2TS",
       {AV_CODEC_ID_DVB_SUBTITLE, AV_CODEC_ID_DVB_TELETEXT, AV_CODEC_ID_HDMV_PGS_SUBTITLE}},
      {"a.avi", {}},
      {"a.mpg", {}},
      {"a.ogg", {}},
      {"a.wav", {}}};
  for (const auto& [path, codecs] : containers)
    for (const AVCodecID codec : all) {
      const bool expected = std::ranges::count(codecs, codec) > 0;
      EXPECT_EQ(holdsSubtitles(outputFormatFor(path), codec, path), expected)
          << path << " " << codec;
    }
}

bool isRefused(const std::string& path, AVCodecID codec) {
  try {
    requireContainerHolds(outputFormatFor(path), codec, path);
    return false;
  } catch (const Failure&) {
    return true;
  }
}

TEST(Codecs, WavHoldsNoPacketsThatNeedFraming) {
  for (const std::string path : {"a.wav", "a.w64"}) {
    for (const AVCodecID codec : {AV_CODEC_ID_AAC, AV_CODEC_ID_VORBIS, AV_CODEC_ID_SPEEX})
      EXPECT_TRUE(isRefused(path, codec)) << path << codec;
    for (const AVCodecID codec : {AV_CODEC_ID_MP3, AV_CODEC_ID_AC3, AV_CODEC_ID_PCM_S16LE})
      EXPECT_FALSE(isRefused(path, codec)) << path << codec;
  }
  EXPECT_TRUE(isRefused("a.caf", AV_CODEC_ID_AAC));
  EXPECT_FALSE(isRefused("a.caf", AV_CODEC_ID_ALAC));
}

// What they have room for are covers.
TEST(Codecs, ContainersOfSoundHoldNoPictures) {
  for (const std::string path : {"a.mp3", "a.flac", "a.wav", "a.aiff", "a.opus", "a.ac3", "a.wv"})
    for (const AVCodecID codec : {AV_CODEC_ID_H264, AV_CODEC_ID_VP9, AV_CODEC_ID_MJPEG})
      EXPECT_TRUE(isRefused(path, codec)) << path << codec;
  EXPECT_FALSE(isRefused("a.mp4", AV_CODEC_ID_H264));
}

// The muxer of .mka has no tag for it, and writes it.
TEST(Codecs, SoundThatMatroskaHoldsGoesIntoBothItsFiles) {
  for (const std::string path : {"a.mkv", "a.mka"})
    EXPECT_TRUE(isKnownToHold(outputFormatFor(path), AV_CODEC_ID_TTA)) << path;
}

TEST(Codecs, AMuxerThatDoesNotTellIsNotTakenAtItsWord) {
  EXPECT_FALSE(isRefused("a.ogg", AV_CODEC_ID_H264));
  EXPECT_FALSE(isKnownToHold(outputFormatFor("a.ogg"), AV_CODEC_ID_H264));
  EXPECT_FALSE(isKnownToHold(outputFormatFor("a.webm"), AV_CODEC_ID_H264));
  EXPECT_FALSE(isKnownToHold(outputFormatFor("a.wav"), AV_CODEC_ID_AAC));
  EXPECT_TRUE(isKnownToHold(outputFormatFor("a.webm"), AV_CODEC_ID_VP9));
  EXPECT_TRUE(isKnownToHold(outputFormatFor("a.mp4"), AV_CODEC_ID_H264));
  EXPECT_TRUE(isKnownToHold(outputFormatFor("a.avi"), AV_CODEC_ID_H264));
  EXPECT_TRUE(isKnownToHold(outputFormatFor("a.ts"), AV_CODEC_ID_H264));
}

}  // namespace
