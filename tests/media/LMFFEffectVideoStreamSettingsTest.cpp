#include <gtest/gtest.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFMedia.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "support/FFmpegOwners.h"

namespace kestrel {
namespace {

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
  stream.setAspectType(-1);
  stream.setZoomType(3);
  stream.setRotate(12.5F);
  stream.setSaturation(0.1F);
  stream.setBrightness(0.2F);
  stream.setContrast(0.3F);
  stream.setHue(0.4F);
  stream.setSubtitlePosition(0.6F);
  EXPECT_EQ(stream.aspectType(), -1);
  EXPECT_EQ(stream.zoomType(), 3);
  EXPECT_FLOAT_EQ(stream.rotate(), 12.5F);
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

}  // namespace
}  // namespace kestrel
