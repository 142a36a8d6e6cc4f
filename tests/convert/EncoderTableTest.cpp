#include "convert/probe/EncoderTable.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kestrel::test {
namespace {

/// An encoder's number at a place on the scale for all, worked out by hand: the worst at 0, the
/// usual at 60, the best at 100, straight in between; above 60 quantisers are halved by every ten
/// places, down to 1.
TEST(EncoderTable, QualityGoesFromTheWorstThroughTheUsualToTheBest) {
  struct Row {
    const char* encoder;
    double at0, at30, at60, at80, at100;
  };
  for (const Row& row : {Row{"libx264", 51, 37, 23, 11.5, 0},
                         {"libx265", 51, 37.5, 24, 12, 0},
                         {"libsvtav1", 63, 49, 35, 18, 1},
                         {"libvpx-vp9", 63, 47.5, 32, 16, 0},
                         {"libvpx", 63, 51.5, 40, 22, 4},
                         {"mpeg4", 31, 17.5, 4, 1, 1},
                         {"mjpeg", 31, 17, 3, 1, 1},
                         // More is better.
                         {"libtheora", 0, 4, 8, 9, 10}}) {
    SCOPED_TRACE(row.encoder);
    const EncoderRow* const known = encoderRow(row.encoder);
    ASSERT_NE(known, nullptr);
    const auto scale = known->quality();
    ASSERT_TRUE(scale);
    EXPECT_DOUBLE_EQ(qualityAt(*scale, 0), row.at0);
    EXPECT_DOUBLE_EQ(qualityAt(*scale, 30), row.at30);
    EXPECT_DOUBLE_EQ(qualityAt(*scale, 60), row.at60);
    EXPECT_DOUBLE_EQ(qualityAt(*scale, 80), row.at80);
    EXPECT_DOUBLE_EQ(qualityAt(*scale, 100), row.at100);
  }
  EXPECT_DOUBLE_EQ(qualityAt(*encoderRow("mpeg4")->quality(), 70), 2);
}

/// For each codec its encoders from the best on: the first that this FFmpeg has is taken.
TEST(EncoderTable, TheBestEncoderIsTheFirstOfThoseThatThereAre) {
  struct Row {
    AVCodecID codec;
    std::vector<std::string> encoders;
  };
  int found = 0;
  for (const Row& row : {Row{AV_CODEC_ID_H264, {"libx264"}},
                         {AV_CODEC_ID_HEVC, {"libx265"}},
                         {AV_CODEC_ID_AV1, {"libsvtav1", "libaom-av1", "librav1e"}},
                         {AV_CODEC_ID_VP9, {"libvpx-vp9"}},
                         {AV_CODEC_ID_VP8, {"libvpx"}},
                         {AV_CODEC_ID_MPEG4, {"mpeg4"}},
                         {AV_CODEC_ID_AAC, {"libfdk_aac", "aac"}},
                         {AV_CODEC_ID_MP3, {"libmp3lame"}},
                         {AV_CODEC_ID_OPUS, {"libopus"}},
                         {AV_CODEC_ID_VORBIS, {"libvorbis"}},
                         // Those of one encoder, of no preference.
                         {AV_CODEC_ID_FLAC, {"flac"}},
                         {AV_CODEC_ID_PCM_S16LE, {"pcm_s16le"}}}) {
    for (const std::string& name : row.encoders) {
      if (!avcodec_find_encoder_by_name(name.c_str())) continue;
      ++found;
      const AVCodec* const best = bestEncoder(row.codec);
      ASSERT_NE(best, nullptr) << name;
      EXPECT_EQ(best->name, name);
      break;
    }
  }
  EXPECT_GE(found, 4);  // mpeg4, aac, flac and pcm_s16le are in any
  EXPECT_EQ(bestEncoder(AV_CODEC_ID_INTERPLAY_VIDEO), nullptr);
}

/// Whether a library hands pictures to a device, which it names, is what counts.
TEST(EncoderTable, WrappersOfDevicesAreOfDevices) {
  int found = 0;
  for (const char* name : {"hevc_qsv", "h264_nvenc", "h264_vaapi", "h264_v4l2m2m"})
    if (const AVCodec* encoder = avcodec_find_encoder_by_name(name)) {
      ++found;
      EXPECT_TRUE(isOfDevice(*encoder)) << name;
    }
  if (found == 0) GTEST_SKIP() << "no encoder here is of a device";
  for (const char* name : {"mpeg4", "aac", "flac"})
    EXPECT_FALSE(isOfDevice(*avcodec_find_encoder_by_name(name))) << name;
}

TEST(EncoderTable, ADeviceIsUsedWhereItOpensAndNothingElseIsThere) {
  AVCodec device{};
  device.capabilities = AV_CODEC_CAP_HYBRID;
  AVCodec experiment{};
  experiment.capabilities = AV_CODEC_CAP_EXPERIMENTAL;
  const AVCodec plain{};
  const auto first = [](const std::vector<const AVCodec*>& encoders, bool opens) {
    return firstUsable(encoders, [opens](const AVCodec&) { return opens; });
  };
  EXPECT_EQ(first({&device, &experiment, &plain}, true), &plain);
  EXPECT_EQ(first({&device, &experiment}, true), &device);
  EXPECT_EQ(first({&device, &experiment}, false), nullptr);
  EXPECT_EQ(first({}, true), nullptr);
}

TEST(EncoderTable, PresetsAreNamesOrNumbers) {
  EXPECT_EQ(encoderRow("libx264")->presets().size(), 10U);
  EXPECT_EQ(encoderRow("libx264")->presets().front(), "ultrafast");
  EXPECT_EQ(encoderRow("libsvtav1")->presets().size(), 14U);
  EXPECT_EQ(encoderRow("libsvtav1")->presets().back(), "13");
  EXPECT_TRUE(encoderRow("mpeg4")->presets().empty());
  EXPECT_EQ(encoderRow("nobody's"), nullptr);
}

TEST(EncoderTable, OtherOptionsAreSplit) {
  using Options = std::map<std::string, std::string>;
  EXPECT_EQ(encoderRow("libvpx-vp9")->otherOptions(),
            (Options{{"row-mt", "1"}, {"deadline", "good"}}));
  EXPECT_EQ(encoderRow("libaom-av1")->otherOptions(), (Options{{"row-mt", "1"}}));
  EXPECT_EQ(encoderRow("libx264")->otherOptions(), Options());
}

}  // namespace
}  // namespace kestrel::test
