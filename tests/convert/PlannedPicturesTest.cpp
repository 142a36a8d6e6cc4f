#include "convert/plan/PixelFormats.h"

#include <gmock/gmock.h>

#include <string>
#include <tuple>
#include <vector>

#include "tests/convert/Plans.h"

namespace kestrel::test {
namespace {

using testing::Contains;
using testing::Key;
using testing::Not;
using testing::Pair;

TEST(PlannedPictures, SizeShapeAndRateAreTheSources) {
  struct Row {
    const char* input;
    int width, height;
    double aspect;  // 0: square pixels
    Rational rate;
  };
  for (const Row& row : {Row{"av25.mp4", 320, 180, 0, {25, 1}},
                         {"av60.mp4", 320, 180, 0, {60, 1}},
                         {"av24000-1001.mp4", 320, 180, 0, {24000, 1001}},
                         {"av30000-1001.mp4", 320, 180, 0, {30000, 1001}},
                         {"av-vfr.mp4", 320, 180, 0, {25, 1}},  // its times are multiples of 1/25 s
                         {"av-rotated.mp4", 180, 320, 0, {25, 1}},
                         {"odd-size.mkv", 84, 46, 0, {25, 1}},
                         {"wide-pixels.mp4", 176, 144, 16 / 9.0, {25, 1}},  // 176 * 16/11 : 144
                         {"bare.h264", 128, 72, 0, {25, 1}},
                         {"slow0.2.mp4", 128, 72, 0, {1, 5}}}) {
    SCOPED_TRACE(row.input);
    const ConversionPlan plan = planOf(row.input, "a.mp4");
    EXPECT_EQ(plan.format.width, row.width);
    EXPECT_EQ(plan.format.height, row.height);
    EXPECT_NEAR(plan.format.aspect, row.aspect, 1e-3);
    EXPECT_EQ(plan.rate(), row.rate);
    EXPECT_EQ(plan.format.framerate, row.rate.num);
    EXPECT_EQ(plan.format.frameTime, row.rate.den);
  }
}

TEST(PlannedPictures, OneSideOfASizeKeepsTheShapeInSquarePixels) {
  struct Row {
    const char* input;
    std::optional<int> width, height;
    int plannedWidth, plannedHeight;
    double aspect;
  };
  for (const Row& row : {Row{"av25.mp4", 640, {}, 640, 360, 0},
                         {"av25.mp4", {}, 90, 160, 90, 0},
                         {"av25.mp4", 200, {}, 200, 112, 0},
                         {"av-rotated.mp4", 90, {}, 90, 160, 0},
                         {"wide-pixels.mp4", 320, {}, 320, 180, 0},
                         {"wide-pixels.mp4", {}, 144, 256, 144, 0},
                         // Both: squeezed, and the shape is signalled.
                         {"av25.mp4", 320, 240, 320, 240, 16 / 9.0}}) {
    SCOPED_TRACE(row.input);
    ConversionSettings settings;
    settings.width = row.width;
    settings.height = row.height;
    const ConversionPlan plan = planOf(row.input, "a.mp4", settings);
    EXPECT_EQ(plan.format.width, row.plannedWidth);
    EXPECT_EQ(plan.format.height, row.plannedHeight);
    EXPECT_NEAR(plan.format.aspect, row.aspect, 1e-3);
  }
}

// 90 lines are a frame of 160x90, on its side for pictures that are higher than wide.
TEST(PlannedPictures, LinesAreAFrameThatThePictureFitsInto) {
  const auto sizeWith = [](const char* input, const ConversionSettings& settings) {
    const ConversionPlan plan = planOf(input, "a.mp4", settings);
    return std::tuple(plan.format.width, plan.format.height);
  };
  ConversionSettings settings;
  settings.lines = 90;
  EXPECT_EQ(sizeWith("av25.mp4", settings), std::tuple(160, 90));
  EXPECT_EQ(sizeWith("av-rotated.mp4", settings), std::tuple(90, 160));
  settings.look.crop = Area{0, 0, 320, 80};  // 4:1, as wide as the frame
  EXPECT_EQ(sizeWith("av25.mp4", settings), std::tuple(160, 40));
  settings.look.crop = Area{0, 0, 240, 180};  // 4:3, as high as the frame
  EXPECT_EQ(sizeWith("av25.mp4", settings), std::tuple(120, 90));
}

TEST(PlannedPictures, AShareIsOfBothSides) {
  ConversionSettings settings;
  settings.scale = 0.5;
  const ConversionPlan plan = planOf("wide-pixels.mp4", "a.mp4", settings);
  const ConversionPlan whole = planOf("wide-pixels.mp4", "a.mp4");
  EXPECT_EQ(plan.format.width, whole.format.width / 2);
  EXPECT_EQ(plan.format.height, whole.format.height / 2);
  EXPECT_EQ(plan.format.aspect, whole.format.aspect);
}

TEST(PlannedPictures, WhatIsSmallerStaysWhereSizesOnlyShrink) {
  const auto widthWith = [](ConversionSettings settings) {
    settings.onlyShrinks = true;
    return planOf("av25.mp4", "a.mp4", settings).format.width;
  };
  ConversionSettings lines, width, sides, scale;
  lines.lines = 1080;
  width.width = 640;
  sides.width = 640;
  sides.height = 100;
  scale.scale = 2;
  for (const auto& settings : {lines, width, sides, scale}) EXPECT_EQ(widthWith(settings), 320);
  lines.lines = 90;
  EXPECT_EQ(widthWith(lines), 160);
}

TEST(PlannedPictures, ASizeIsSaidInOneWay) {
  const auto refusal = [](auto set) {
    ConversionSettings settings{.input = "a.mp4", .output = "b.mp4"};
    set(settings);
    try {
      const Conversion conversion(settings);
    } catch (const Failure& failure) {
      return failure.subject();
    }
    return std::string("none");
  };
  EXPECT_EQ(refusal([](auto& s) { s.lines = 720, s.width = 640; }), "lines");
  EXPECT_EQ(refusal([](auto& s) { s.scale = 0.5, s.lines = 720; }), "scale");
  EXPECT_EQ(refusal([](auto& s) { s.scale = 0; }), "scale");
  EXPECT_EQ(refusal([](auto& s) { s.lines = 1; }), "lines");
  EXPECT_EQ(refusal([](auto& s) { s.onlyShrinks = true; }), "onlyShrinks");
  EXPECT_EQ(refusal([](auto& s) { s.onlyShrinks = true, s.lines = 2; }), "none");
}

TEST(PlannedPictures, QualityIsTheRuleAndABitRateTheException) {
  ConversionPlan plan = planOf("av25.mp4", "a.mp4");
  EXPECT_EQ(plan.format.video_bitrate, 0);
  EXPECT_THAT(plan.videoOptions, Contains(Pair("crf", "23")));
  ConversionSettings settings;
  settings.videoBitrate = 123456;
  plan = planOf("av25.mp4", "a.mp4", settings);
  EXPECT_EQ(plan.format.video_bitrate, 123456);
  EXPECT_THAT(plan.videoOptions, Not(Contains(Key("crf"))));
  // Discs give so much and no more: 12 Mbit/s * (320 * 180 / (1920 * 1080))^0.75 * (25 / 30)^0.5.
  plan = planOf("av25.mp4", "a.vob");
  EXPECT_EQ(plan.format.video_bitrate, 745000);
  EXPECT_THAT(plan.videoOptions, Not(Contains(Key("global_quality"))));
}

// 60 is each encoder's usual value; 80 lies half way from there to its best, 30 to its worst, and
// of quantisers 70 is half the usual one.
TEST(PlannedPictures, OneScaleOfQualityForAllEncoders) {
  struct Row {
    const char* codec;
    double quality;
    const char* option;
    const char* value;
  };
  for (const Row& row : {Row{"libx264", 60, "crf", "23"},
                         {"libx264", 80, "crf", "11.5"},
                         {"libx264", 30, "crf", "37"},
                         {"libx265", 100, "crf", "0"},
                         {"libx265", 0, "crf", "51"},
                         {"mpeg4", 60, "global_quality", "472"},  // 4 * 118
                         {"mpeg4", 70, "global_quality", "236"},
                         {"mpeg4", 100, "global_quality", "118"},
                         {"mpeg4", 100, "qmin", "1"}}) {
    SCOPED_TRACE(row.codec);
    ConversionSettings settings;
    settings.videoCodec = row.codec;
    settings.quality = row.quality;
    EXPECT_THAT(planOf("av25.mp4", "a.mp4", settings).videoOptions,
                Contains(Pair(row.option, row.value)));
  }
}

TEST(PlannedPictures, ACodecGetsItsBestEncoderAndAnEncoderItself) {
  for (const auto& [wanted, encoder, codec] : {std::tuple{"h264", "libx264", "h264"},
                                               {"x265", "libx265", "hevc"},
                                               {"av1", "libsvtav1", "av1"},
                                               {"libaom-av1", "libaom-av1", "av1"},
                                               {"libxvid", "libxvid", "mpeg4"},
                                               {"mpeg4", "mpeg4", "mpeg4"}}) {
    ConversionSettings settings;
    settings.videoCodec = wanted;
    const ConversionPlan plan = planOf("av25.mp4", "a.mp4", settings);
    EXPECT_EQ(plan.videoEncoder, encoder);
    EXPECT_EQ(nameOf(plan.format.video_codec), codec);
  }
}

TEST(PlannedPictures, ThePixelFormatLosesLeastOfTheSource) {
  struct Row {
    const char* encoder;
    const char* source;
    bool isDrawn;
    bool isCompatible;
    const char* planned;
  };
  for (const Row& row : {Row{"libx264", "yuv420p", false, false, "yuv420p"},
                         {"libx264", "yuvj420p", false, false, "yuv420p"},
                         {"libx264", "yuv422p10le", false, false, "yuv422p10le"},
                         {"libx264", "yuv422p10le", true, false, "yuv422p10le"},
                         {"libx264", "yuv422p10le", false, true, "yuv420p"},
                         {"libx264", "yuva444p", false, false, "yuv444p"},
                         {"libx265", "yuv420p12le", false, false, "yuv420p12le"},
                         {"libsvtav1", "yuv444p12le", false, false, "yuv420p10le"},
                         {"libvpx-vp9", "yuva420p", false, false, "yuva420p"},
                         {"libvpx-vp9", "yuva420p", true, false, "yuv420p"},
                         {"ffv1", "gbrp12le", false, false, "gbrp12le"},
                         {"ffv1", "pal8", false, false, "bgra"},
                         {"mpeg4", "yuv444p", false, false, "yuv420p"},
                         {"mjpeg", "yuv422p", false, false, "yuvj422p"},
                         {"no-encoder", "yuv420p", false, false, ""}}) {
    VideoInfo source;
    source.pixelFormat = row.source;
    EXPECT_EQ(pixelFormatFor(row.encoder, formatBefore(source, row.isDrawn),
                             {.isCompatible = row.isCompatible}),
              row.planned)
        << row.encoder << " " << row.source;
  }
}

TEST(PlannedPictures, PicturesKeepTheirTimesWhereTheContainerCan) {
  EXPECT_TRUE(planOf("av-vfr.mp4", "a.mp4").keepsTimes);
  EXPECT_TRUE(planOf("av-vfr.mp4", "a.mkv").keepsTimes);
  EXPECT_FALSE(planOf("av-vfr.mp4", "a.avi").keepsTimes);
  EXPECT_TRUE(planOf("av-vfr.mp4", "a.ts").keepsTimes);
  EXPECT_FALSE(planOf("av-vfr.mp4", "a.mpg").keepsTimes);  // MPEG-1 has a few rates
  ConversionSettings settings;
  settings.fps = Rational{25, 1};
  EXPECT_FALSE(planOf("av-vfr.mp4", "a.mp4", settings).keepsTimes);
  settings.fps.reset();
  settings.maxFps = Rational{10, 1};
  const ConversionPlan limited = planOf("av-vfr.mp4", "a.mp4", settings);
  EXPECT_FALSE(limited.keepsTimes);
  EXPECT_EQ(limited.rate(), (Rational{10, 1}));
  settings.maxFps = Rational{50, 1};
  EXPECT_TRUE(planOf("av-vfr.mp4", "a.mp4", settings).keepsTimes);
}

}  // namespace
}  // namespace kestrel::test
