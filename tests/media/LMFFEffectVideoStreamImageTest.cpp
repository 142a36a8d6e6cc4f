#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>

#include "tests/media/EffectStream.h"

namespace kestrel::test {
namespace {

// The whole road, all settings neutral.

TEST(LMFFEffectVideoStreamImage, NeutralPictureIsTheFrameByteForByte) {
  EffectStream stream(64, 36);
  stream->writeFrame(rgbaFrame(64, 36, noise).get());
  EXPECT_EQ(stream->currentEffectImage()->extent(), (Rect{{0, 0}, {64, 36}}));
  EXPECT_EQ(bytesOf(*stream.picture()), bytesOf(*stream->currentImage()));
}

TEST(LMFFEffectVideoStreamImage, OddSizesStayAsTheyAre) {
  EffectStream stream(853, 479);
  stream->writeFrame(rgbaFrame(853, 479, noise).get());
  EXPECT_EQ(bytesOf(*stream.picture()), bytesOf(*stream->currentImage()));
}

TEST(LMFFEffectVideoStreamImage, PictureIsFittedWithBlackBars) {
  EffectStream stream(720, 576);
  stream.setOutputSize(1280, 720);
  stream->writeFrame(rgbaFrame(720, 576, {10, 200, 90, 255}).get());
  EXPECT_EQ(stream->currentEffectImage()->extent(), (Rect{{0, 0}, {1280, 720}}));
  const auto picture = stream.picture();
  const Rgba color{10, 200, 90, 255};
  for (const int y : {0, 1, 360, 718, 719}) {
    EXPECT_EQ(rgbaAt(*picture, 0, y), kBlack) << y;
    EXPECT_EQ(rgbaAt(*picture, 189, y), kBlack) << y;
    EXPECT_EQ(rgbaAt(*picture, 190, y), color) << y;
    EXPECT_EQ(rgbaAt(*picture, 1089, y), color) << y;
    EXPECT_EQ(rgbaAt(*picture, 1090, y), kBlack) << y;
    EXPECT_EQ(rgbaAt(*picture, 1279, y), kBlack) << y;
  }
}

TEST(LMFFEffectVideoStreamImage, WideDisplayShapeFillsAWideOutput) {
  EffectStream stream(720, 576);
  stream.setOutputSize(1280, 720);
  stream->setAspectType(2);
  stream->writeFrame(rgbaFrame(720, 576, kGreen).get());
  const auto picture = stream.picture();
  for (const int x : {0, 1279})
    for (const int y : {0, 719}) EXPECT_EQ(rgbaAt(*picture, x, y), kGreen) << x << "," << y;
}

TEST(LMFFEffectVideoStreamImage, WithoutAFrameThereIsNoPicture) {
  EffectStream stream(64, 36);
  EXPECT_EQ(stream->currentEffectImage(), nullptr);
  stream->setMediaSubtitleImage(patch(0, 0, 8, 8, kRedColor));
  stream->setWatermark(patch(0, 0, 8, 8, kRedColor));
  EXPECT_EQ(stream->currentEffectImage(), nullptr);
}

TEST(LMFFEffectVideoStreamImage, TransparentFrameLiesOnBlackWithoutAFringe) {
  EffectStream stream(8, 4);
  stream.setOutputSize(16, 8);
  stream->writeFrame(rgbaFrame(8, 4, [](int x, int) {
                       return x < 4 ? Rgba{255, 255, 255, 0} : kRed;
                     }).get());
  const auto picture = stream.picture();
  EXPECT_EQ(rgbaAt(*picture, 0, 0), kBlack);
  EXPECT_EQ(rgbaAt(*picture, 15, 7), kRed);
  for (int x = 0; x < 16; ++x) {
    const Rgba color = rgbaAt(*picture, x, 3);
    EXPECT_EQ(color[1], 0) << x;  // the white that nobody sees shows nowhere
    EXPECT_EQ(color[3], 255) << x;
  }
}

TEST(LMFFEffectVideoStreamImage, PictureKeepsItsPixelsWhateverIsWrittenLater) {
  for (const auto format : {AV_PIX_FMT_RGBA, AV_PIX_FMT_YUV420P}) {
    EffectStream stream(64, 36, format);
    FramePtr first = makePicture(format, 64, 36);
    FramePtr second = makePicture(format, 64, 36);
    const bool isRgb = format == AV_PIX_FMT_RGBA;
    paint(*first, [&](int, int) { return isRgb ? Triple{255, 255, 255} : Triple{235, 128, 128}; });
    paint(*second, [&](int, int) { return isRgb ? Triple{0, 0, 0} : Triple{16, 128, 128}; });
    stream->writeFrame(first.get());
    const auto image = stream->currentEffectImage();
    first.reset();
    stream->writeFrame(second.get());
    EXPECT_EQ(rgbaAt(*rendered(image), 5, 5), kWhite);
    EXPECT_EQ(rgbaAt(*stream.picture(), 5, 5), kBlack);
  }
}

// Crop.

TEST(LMFFEffectVideoStreamImage, CropCountsFromTheLowerLeft) {
  EffectStream stream(64, 32);
  stream.setOutputSize(32, 16);
  stream->setCropRect({{0, 0}, {32, 16}});
  stream->writeFrame(
      rgbaFrame(64, 32, [](int x, int y) { return x < 32 && y >= 16 ? kRed : kBlue; }).get());
  const auto picture = stream.picture();
  for (const int x : {0, 31})
    for (const int y : {0, 15}) EXPECT_EQ(rgbaAt(*picture, x, y), kRed);
}

TEST(LMFFEffectVideoStreamImage, CropKeepsThePixelsDisplayShape) {
  // Shown as 1024 × 576, so that the left half is 512 × 576 and fits 640 × 720 exactly.
  EffectStream stream(720, 576);
  stream.setOutputSize(640, 720);
  stream->setAspectType(2);
  stream->setCropRect({{0, 0}, {360, 576}});
  stream->writeFrame(rgbaFrame(720, 576, kGreen).get());
  const auto picture = stream.picture();
  for (const int x : {0, 639})
    for (const int y : {0, 719}) EXPECT_EQ(rgbaAt(*picture, x, y), kGreen) << x << "," << y;
}

TEST(LMFFEffectVideoStreamImage, WhatIsCroppedAwayDoesNotMixIn) {
  EffectStream stream(64, 64);
  stream.setOutputSize(256, 256);
  stream->setCropRect({{16, 16}, {32, 32}});
  stream->writeFrame(rgbaFrame(64, 64, [](int x, int y) {
                       return x >= 16 && x < 48 && y >= 16 && y < 48 ? kGreen : kRed;
                     }).get());
  const auto picture = stream.picture();
  for (int i = 0; i < 256; ++i) {
    EXPECT_EQ(rgbaAt(*picture, i, 0), kGreen) << i;
    EXPECT_EQ(rgbaAt(*picture, 255, i), kGreen) << i;
  }
}

TEST(LMFFEffectVideoStreamImage, EmptyCropLeavesBlackWithWatermark) {
  EffectStream stream(64, 36);
  stream->setCropRect({});
  stream->setWatermark(patch(0, 0, 4, 4, kRedColor));
  stream->writeFrame(rgbaFrame(64, 36, kWhite).get());
  const auto picture = stream.picture();
  ASSERT_TRUE(picture);
  EXPECT_EQ(rgbaAt(*picture, 32, 18), kBlack);
  EXPECT_EQ(rgbaAt(*picture, 0, 35), kRed);
}

// Turns and mirrors.

/// Left half red, right half blue.
Rgba halves(int x, int /*y*/, int width) { return x < width / 2 ? kRed : kBlue; }

TEST(LMFFEffectVideoStreamImage, TurnIsCounterClockwiseAndFittedAsItStands) {
  EffectStream stream(40, 20);
  stream.setOutputSize(100, 100);
  stream->setRotate(90);
  stream->writeFrame(rgbaFrame(40, 20, [](int x, int y) { return halves(x, y, 40); }).get());
  const auto picture = stream.picture();  // 20 × 40 becomes 50 × 100
  for (const int y : {0, 99}) {
    EXPECT_EQ(rgbaAt(*picture, 24, y), kBlack);
    EXPECT_EQ(rgbaAt(*picture, 75, y), kBlack);
  }
  for (const int x : {25, 74}) {
    EXPECT_EQ(rgbaAt(*picture, x, 0), kBlue);
    EXPECT_EQ(rgbaAt(*picture, x, 99), kRed);
  }
}

TEST(LMFFEffectVideoStreamImage, QuarterTurnMovesEveryPixelUnchanged) {
  EffectStream stream(48, 30);
  stream.setOutputSize(30, 48);
  stream->setRotate(90);
  stream->writeFrame(rgbaFrame(48, 30, noise).get());
  const auto picture = stream.picture();
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 30; ++x) ASSERT_EQ(rgbaAt(*picture, x, y), noise(47 - y, x));
}

TEST(LMFFEffectVideoStreamImage, HflipMirrorsEveryPixelUnchanged) {
  EffectStream stream(49, 31);
  stream->setHflip(true);
  stream->writeFrame(rgbaFrame(49, 31, noise).get());
  const auto picture = stream.picture();
  for (int y = 0; y < 31; ++y)
    for (int x = 0; x < 49; ++x) ASSERT_EQ(rgbaAt(*picture, x, y), noise(48 - x, y));
}

TEST(LMFFEffectVideoStreamImage, VflipMirrorsEveryPixelUnchanged) {
  EffectStream stream(49, 31);
  stream->setVflip(true);
  stream->writeFrame(rgbaFrame(49, 31, noise).get());
  const auto picture = stream.picture();
  for (int y = 0; y < 31; ++y)
    for (int x = 0; x < 49; ++x) ASSERT_EQ(rgbaAt(*picture, x, y), noise(x, 30 - y));
}

TEST(LMFFEffectVideoStreamImage, BothMirrorsAreAHalfTurn) {
  EffectStream stream(49, 31);
  stream->writeFrame(rgbaFrame(49, 31, noise).get());
  stream->setHflip(true);
  stream->setVflip(true);
  const auto mirrored = stream.picture();
  stream->setHflip(false);
  stream->setVflip(false);
  stream->setRotate(180);
  EXPECT_EQ(bytesOf(*mirrored), bytesOf(*stream.picture()));
}

TEST(LMFFEffectVideoStreamImage, MirrorsComeBeforeTheTurn) {
  EffectStream stream(20, 20);
  stream->writeFrame(rgbaFrame(20, 20, [](int x, int y) { return halves(x, y, 20); }).get());
  stream->setHflip(true);
  stream->setRotate(90);
  const auto picture = stream.picture();  // mirrored: red at the right; turned: red at the top
  EXPECT_EQ(rgbaAt(*picture, 10, 0), kRed);
  EXPECT_EQ(rgbaAt(*picture, 10, 19), kBlue);
}

// Zoom types.

/// The first and last column and row that a white picture covers: {left, right, top, bottom}.
std::array<int, 4> covered(int width, int height, int outputWidth, int outputHeight, int zoomType) {
  EffectStream stream(width, height);
  stream.setOutputSize(outputWidth, outputHeight);
  stream->setZoomType(zoomType);
  stream->writeFrame(rgbaFrame(width, height, kWhite).get());
  const auto picture = stream.picture();
  std::array<int, 4> box{outputWidth, -1, outputHeight, -1};
  for (int y = 0; y < outputHeight; ++y) {
    for (int x = 0; x < outputWidth; ++x) {
      if (rgbaAt(*picture, x, y) == kBlack) continue;
      box = {std::min(box[0], x), std::max(box[1], x), std::min(box[2], y), std::max(box[3], y)};
      EXPECT_EQ(rgbaAt(*picture, x, y), kWhite) << x << "," << y;  // no grey rim
    }
  }
  return box;
}

using testing::ElementsAre;

TEST(LMFFEffectVideoStreamImage, ZoomType1Stretches) {
  EXPECT_THAT(covered(40, 30, 160, 90, 1), ElementsAre(0, 159, 0, 89));
}

TEST(LMFFEffectVideoStreamImage, ZoomTypes2And5FitTheWholePicture) {
  EXPECT_THAT(covered(40, 30, 160, 90, 2), ElementsAre(20, 139, 0, 89));
  EXPECT_THAT(covered(40, 30, 160, 90, 5), ElementsAre(20, 139, 0, 89));
  EXPECT_THAT(covered(160, 80, 80, 80, 2), ElementsAre(0, 79, 20, 59));
}

TEST(LMFFEffectVideoStreamImage, ZoomType3IsASixteenByNineBox) {
  EXPECT_THAT(covered(40, 30, 160, 160, 3), ElementsAre(0, 159, 35, 124));
}

TEST(LMFFEffectVideoStreamImage, ZoomType4IsAFourByThreeBox) {
  EXPECT_THAT(covered(64, 36, 160, 90, 4), ElementsAre(20, 139, 0, 89));
}

TEST(LMFFEffectVideoStreamImage, ZoomType6FillsTheWidth) {
  EXPECT_THAT(covered(40, 30, 160, 90, 6), ElementsAre(0, 159, 0, 89));
  EXPECT_THAT(covered(160, 40, 80, 80, 6), ElementsAre(0, 79, 30, 49));
}

TEST(LMFFEffectVideoStreamImage, ZoomType6CutsTopAndBottom) {
  // 80 × 60 becomes 160 × 120, of which 15 rows are cut at the top and at the bottom: rows 0 to 6
  // and 53 to 59 of the source.
  EffectStream stream(80, 60);
  stream.setOutputSize(160, 90);
  stream->setZoomType(6);
  stream->writeFrame(
      rgbaFrame(80, 60, [](int, int y) { return y < 7 || y > 52 ? kRed : kGreen; }).get());
  const auto picture = stream.picture();
  // What is cut lies so near to the first and last row that it rings there.
  for (int y = 0; y < 90; ++y) {
    const auto pixel = rgbaAt(*picture, 80, y);
    EXPECT_NEAR(pixel[0], 0, 12) << y;
    EXPECT_NEAR(pixel[1], 255, 12) << y;
  }
}

TEST(LMFFEffectVideoStreamImage, OtherZoomTypesShowBlackWithWatermarkAndSubtitle) {
  for (const int zoomType : {0, 7, -1}) {
    EffectStream stream(64, 36);
    stream->setZoomType(zoomType);
    stream->setWatermark(patch(0, 32, 4, 4, kRedColor));
    stream->setSubtitleCurrentString("drawn");
    stream->setSubtitleImageString("drawn");
    stream->setSubtitleImage(patch(60, 0, 4, 4, Color::white()));
    stream->writeFrame(rgbaFrame(64, 36, kGreen).get());
    const auto picture = stream.picture();
    EXPECT_EQ(rgbaAt(*picture, 32, 18), kBlack);
    EXPECT_EQ(rgbaAt(*picture, 0, 0), kRed);
    EXPECT_EQ(rgbaAt(*picture, 63, 35), kWhite);
  }
}

// What lies over and under the picture.

TEST(LMFFEffectVideoStreamImage, WatermarkLiesAsItIsInTheOutput) {
  EffectStream stream(64, 36);
  stream->setHflip(true);
  stream->setWatermark(patch(10, 4, 6, 3, kRedColor));
  stream->writeFrame(rgbaFrame(64, 36, kGreen).get());
  const auto picture = stream.picture();
  EXPECT_EQ(rgbaAt(*picture, 10, 31), kRed);
  EXPECT_EQ(rgbaAt(*picture, 15, 29), kRed);
  EXPECT_EQ(rgbaAt(*picture, 9, 31), kGreen);
  EXPECT_EQ(rgbaAt(*picture, 16, 31), kGreen);
  EXPECT_EQ(rgbaAt(*picture, 10, 32), kGreen);
  EXPECT_EQ(rgbaAt(*picture, 10, 28), kGreen);
}

TEST(LMFFEffectVideoStreamImage, WatermarkOutsideOfTheOutputIsCutAway) {
  EffectStream stream(64, 36);
  stream->setWatermark(patch(64, 36, 10, 10, kRedColor));
  stream->writeFrame(rgbaFrame(64, 36, noise).get());
  EXPECT_EQ(stream->currentEffectImage()->extent(), (Rect{{0, 0}, {64, 36}}));
  EXPECT_EQ(bytesOf(*stream.picture()), bytesOf(*stream->currentImage()));
}

TEST(LMFFEffectVideoStreamImage, BitmapSubtitleTurnsWithThePicture) {
  EffectStream stream(64, 36);
  stream->setHflip(true);
  stream->setMediaSubtitleImage(patch(0, 0, 8, 8, kRedColor));
  stream->writeFrame(rgbaFrame(64, 36, kGreen).get());
  const auto picture = stream.picture();
  EXPECT_EQ(rgbaAt(*picture, 63, 35), kRed);
  EXPECT_EQ(rgbaAt(*picture, 0, 35), kGreen);
}

TEST(LMFFEffectVideoStreamImage, BitmapSubtitleIsCroppedWithThePicture) {
  EffectStream stream(64, 36);
  stream->setCropRect({{32, 0}, {32, 36}});
  stream->setMediaSubtitleImage(patch(0, 0, 32, 36, kRedColor));
  stream->writeFrame(rgbaFrame(64, 36, kGreen).get());
  const auto picture = stream.picture();
  EXPECT_EQ(rgbaAt(*picture, 16, 18), kGreen);
  EXPECT_EQ(rgbaAt(*picture, 47, 18), kGreen);
}

TEST(LMFFEffectVideoStreamImage, SubtitleLiesOverTheWatermark) {
  EffectStream stream(64, 36);
  stream->setWatermark(patch(0, 0, 64, 36, kRedColor));
  stream->setSubtitleCurrentString("drawn");
  stream->setSubtitleImageString("drawn");
  stream->setSubtitleImage(patch(0, 0, 64, 10, Color::white()));
  stream->writeFrame(rgbaFrame(64, 36, kGreen).get());
  const auto picture = stream.picture();
  EXPECT_EQ(rgbaAt(*picture, 30, 35), kWhite);
  EXPECT_EQ(rgbaAt(*picture, 30, 0), kRed);
}

TEST(LMFFEffectVideoStreamImage, EffectsDoNotReachBarsAndWatermark) {
  EffectStream stream(40, 30);
  stream.setOutputSize(160, 90);
  stream->setEffectName("Color Invert");
  stream->setWatermark(patch(60, 0, 10, 10, kRedColor));
  stream->writeFrame(rgbaFrame(40, 30, {255, 0, 100, 255}).get());
  const auto picture = stream.picture();
  EXPECT_EQ(rgbaAt(*picture, 5, 45), kBlack);
  EXPECT_EQ(rgbaAt(*picture, 65, 85), kRed);
  EXPECT_EQ(rgbaAt(*picture, 80, 45), (Rgba{0, 255, 155, 255}));
}

TEST(LMFFEffectVideoStreamImage, OutputSizeOfZeroIsAnEmptyPicture) {
  EffectStream stream(64, 36);
  stream.setOutputSize(0, 0);
  stream->writeFrame(rgbaFrame(64, 36, kGreen).get());
  const auto image = stream->currentEffectImage();
  ASSERT_TRUE(image);
  EXPECT_TRUE(isEmpty(image->extent()));
}

}  // namespace
}  // namespace kestrel::test
