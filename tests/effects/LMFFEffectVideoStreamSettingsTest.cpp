#include <gtest/gtest.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFMedia.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "tests/effects/PictureMedia.h"

namespace kestrel {
namespace {

using test::PictureMedia;

// Settings.

TEST(LMFFEffectVideoStreamSettings, SettingsChangeNothingAtFirst) {
  const LMFFEffectVideoStream stream;
  EXPECT_FALSE(stream.hflip());
  EXPECT_FALSE(stream.vflip());
  EXPECT_FLOAT_EQ(stream.rotate(), 0.0F);
  EXPECT_FLOAT_EQ(stream.saturation(), 0.5F);
  EXPECT_FLOAT_EQ(stream.brightness(), 0.5F);
  EXPECT_FLOAT_EQ(stream.contrast(), 0.25F);
  EXPECT_FLOAT_EQ(stream.hue(), 0.5F);
  EXPECT_EQ(stream.zoomType(), 5);
  EXPECT_EQ(stream.aspectType(), 0);
  EXPECT_EQ(stream.cropRect(), Rect{});
}

TEST(LMFFEffectVideoStreamSettings, IsEmptyAtFirst) {
  const LMFFEffectVideoStream stream;
  EXPECT_EQ(stream.media(), nullptr);
  EXPECT_EQ(stream.outputFormat(), LMFFVideoFormat{});
  EXPECT_FALSE(stream.effectName().has_value());
  EXPECT_EQ(stream.watermark(), nullptr);
  EXPECT_EQ(stream.mediaSubtitleImage(), nullptr);
  EXPECT_EQ(stream.subtitleImage(), nullptr);
  EXPECT_FALSE(stream.subtitleImageString().has_value());
  EXPECT_FALSE(stream.subtitleCurrentString().has_value());
  EXPECT_FLOAT_EQ(stream.subtitlePosition(), 0.0F);
  EXPECT_EQ(stream.dataBuffer(), nullptr);
  EXPECT_EQ(stream.currentImage(), nullptr);
  EXPECT_EQ(stream.currentCIImage(), nullptr);
}

TEST(LMFFEffectVideoStreamSettings, KeepsNumbers) {
  LMFFEffectVideoStream stream;
  stream.setAspectType(2);
  stream.setZoomType(3);
  stream.setRotate(90);
  stream.setSaturation(0.1F);
  stream.setBrightness(0.2F);
  stream.setContrast(0.3F);
  stream.setHue(0.4F);
  stream.setSubtitlePosition(0.6F);
  EXPECT_EQ(stream.aspectType(), 2);
  EXPECT_EQ(stream.zoomType(), 3);
  EXPECT_FLOAT_EQ(stream.rotate(), 90.0F);
  EXPECT_FLOAT_EQ(stream.saturation(), 0.1F);
  EXPECT_FLOAT_EQ(stream.brightness(), 0.2F);
  EXPECT_FLOAT_EQ(stream.contrast(), 0.3F);
  EXPECT_FLOAT_EQ(stream.hue(), 0.4F);
  EXPECT_FLOAT_EQ(stream.subtitlePosition(), 0.6F);
}

TEST(LMFFEffectVideoStreamSettings, KeepsFlipsApart) {
  LMFFEffectVideoStream stream;
  stream.setHflip(true);
  EXPECT_TRUE(stream.hflip());
  EXPECT_FALSE(stream.vflip());
  stream.setHflip(false);
  stream.setVflip(true);
  EXPECT_FALSE(stream.hflip());
  EXPECT_TRUE(stream.vflip());
}

TEST(LMFFEffectVideoStreamSettings, KeepsCropAndOutputFormat) {
  LMFFEffectVideoStream stream;
  stream.setCropRect({{1, 2}, {30, 40}});
  stream.setOutputFormat({AV_PIX_FMT_RGBA, 320, 240});
  EXPECT_EQ(stream.cropRect(), (Rect{{1, 2}, {30, 40}}));
  EXPECT_EQ(stream.outputFormat(), (LMFFVideoFormat{AV_PIX_FMT_RGBA, 320, 240}));
}

TEST(LMFFEffectVideoStreamSettings, KeepsImagesApart) {
  const std::vector<uint8_t> pixels(4);
  const auto image = [&] {
    return Image::fromBitmap(BitmapImage::borrowing(pixels.data(), 1, 1, 4));
  };
  const auto watermark = image();
  const auto ofMedia = image();
  const auto ofText = image();
  LMFFEffectVideoStream stream;
  stream.setWatermark(watermark);
  stream.setMediaSubtitleImage(ofMedia);
  stream.setSubtitleImage(ofText);
  EXPECT_EQ(stream.watermark(), watermark);
  EXPECT_EQ(stream.mediaSubtitleImage(), ofMedia);
  EXPECT_EQ(stream.subtitleImage(), ofText);
}

TEST(LMFFEffectVideoStreamSettings, KeepsStringsApart) {
  LMFFEffectVideoStream stream;
  stream.setEffectName("an effect");
  stream.setSubtitleImageString("drawn");
  stream.setSubtitleCurrentString("to show");
  EXPECT_EQ(stream.effectName(), "an effect");
  EXPECT_EQ(stream.subtitleImageString(), "drawn");
  EXPECT_EQ(stream.subtitleCurrentString(), "to show");
  stream.setEffectName(std::nullopt);
  EXPECT_FALSE(stream.effectName().has_value());
}

TEST(LMFFEffectVideoStreamSettings, KeepsItsMediaAlive) {
  auto media = std::make_shared<LMFFMedia>();
  const std::weak_ptr<LMFFMedia> watch = media;
  {
    LMFFEffectVideoStream stream;
    stream.setMedia(std::move(media));
    EXPECT_FALSE(watch.expired());
  }
  EXPECT_TRUE(watch.expired());
}

// Sizes.

TEST(LMFFEffectVideoStreamSettings, OutputDataHasTheMediasSize) {
  const PictureMedia media(640, 480);
  LMFFEffectVideoStream stream;
  stream.setMedia(media.get());
  stream.setOutputFormat({AV_PIX_FMT_BGRA, 100, 50});
  EXPECT_EQ(stream.outputDataFormat(), (LMFFVideoFormat{AV_PIX_FMT_BGRA, 640, 480}));
}

TEST(LMFFEffectVideoStreamSettings, OutputDataHasNoSizeWithoutMedia) {
  LMFFEffectVideoStream stream;
  stream.setOutputFormat({AV_PIX_FMT_RGBA, 100, 50});
  EXPECT_EQ(stream.outputDataFormat(), (LMFFVideoFormat{AV_PIX_FMT_RGBA, 0, 0}));
}

TEST(LMFFEffectVideoStreamSettings, VideoSizeIsTheMedias) {
  const PictureMedia media(640, 480);
  LMFFEffectVideoStream stream;
  stream.setMedia(media.get());
  EXPECT_EQ(stream.videoSize(), (Size{640, 480}));
}

TEST(LMFFEffectVideoStreamSettings, VideoSizeWithoutMediaIsZero) {
  EXPECT_EQ(LMFFEffectVideoStream().videoSize(), (Size{0, 0}));
  EXPECT_EQ(LMFFEffectVideoStream().displayVideoSize(), (Size{0, 0}));
}

Size displaySize(int width, int height, int64_t aspectType) {
  const PictureMedia media(width, height);
  LMFFEffectVideoStream stream;
  stream.setMedia(media.get());
  stream.setAspectType(aspectType);
  return stream.displayVideoSize();
}

TEST(LMFFEffectVideoStreamSettings, DisplaySizeIsTheSourcesByDefault) {
  EXPECT_EQ(displaySize(720, 576, 0), (Size{720, 576}));
}

TEST(LMFFEffectVideoStreamSettings, DisplaySizeMayBeFourByThree) {
  EXPECT_EQ(displaySize(720, 576, 1), (Size{768, 576}));
}

TEST(LMFFEffectVideoStreamSettings, DisplaySizeMayBeSixteenByNine) {
  EXPECT_EQ(displaySize(720, 576, 2), (Size{1024, 576}));
}

TEST(LMFFEffectVideoStreamSettings, DisplaySizeOfOtherAspectTypesIsTheSources) {
  EXPECT_EQ(displaySize(720, 576, 3), (Size{720, 576}));
  EXPECT_EQ(displaySize(720, 576, -1), (Size{720, 576}));
}

TEST(LMFFEffectVideoStreamSettings, DisplayWidthIsRoundedUp) {
  EXPECT_EQ(displaySize(720, 480, 2), (Size{854, 480}));  // 853.33
}

TEST(LMFFEffectVideoStreamSettings, DisplaySizeWithoutHeightIsZero) {
  for (const int64_t type : {-1, 0, 1, 2, 3}) EXPECT_EQ(displaySize(640, 0, type), Size{}) << type;
}

}  // namespace
}  // namespace kestrel
