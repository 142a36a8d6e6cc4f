#include <gtest/gtest.h>
#include <kestrel/BitmapImage.h>
#include <kestrel/Image.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/MovieLook.h>

#include <cmath>

#include "tests/media/Media.h"

namespace kestrel::test {
namespace {

class LMFFMovieEffects : public testing::Test {
 protected:
  LMFFEffectVideoStream& stream() { return *movie_.videoEffectStream(); }

  /// Lets the effect stream hold a drawn text.
  void drawText() {
    stream().setSubtitleImageString("text");
    stream().setSubtitleImage(Image::emptyInfiniteImage());
  }
  bool isTextDrawn() {
    return stream().subtitleImage() || stream().subtitleImageString().has_value();
  }

  LMFFMovie movie_;
};

TEST_F(LMFFMovieEffects, SettingsReachTheEffectStream) {
  const auto image = Image::emptyInfiniteImage();
  movie_.setAspectType(2);
  movie_.setCropRect({{1, 2}, {3, 4}});
  movie_.setHflip(true);
  movie_.setRotate(12.5F);
  movie_.setSaturation(0.1F);
  movie_.setBrightness(0.2F);
  movie_.setContrast(0.3F);
  movie_.setHue(0.4F);
  movie_.setEffectName("Blur");
  movie_.setWatermark(image);
  movie_.setZoomType(3);
  movie_.setSubtitlePosition(0.25F);
  EXPECT_EQ(stream().aspectType(), 2);
  EXPECT_EQ(stream().cropRect(), (Rect{{1, 2}, {3, 4}}));
  EXPECT_TRUE(stream().hflip());
  EXPECT_FALSE(stream().vflip());
  EXPECT_EQ(stream().rotate(), 12.5F);
  EXPECT_EQ(stream().saturation(), 0.1F);
  EXPECT_EQ(stream().brightness(), 0.2F);
  EXPECT_EQ(stream().contrast(), 0.3F);
  EXPECT_EQ(stream().hue(), 0.4F);
  EXPECT_EQ(stream().effectName(), "Blur");
  EXPECT_EQ(stream().watermark(), image);
  EXPECT_EQ(stream().zoomType(), 3);
  EXPECT_EQ(stream().subtitlePosition(), 0.25F);
  movie_.setVflip(true);
  EXPECT_TRUE(stream().vflip());
}

TEST_F(LMFFMovieEffects, LookIsEverySettingAtOnce) {
  MovieLook look = movie_.look();
  EXPECT_EQ(look.saturation, 0.5F);
  EXPECT_EQ(look.contrast, 0.25F);
  EXPECT_EQ(look.zoomType, 5);
  movie_.setHue(0.75F);
  movie_.setSubtitlePosition(0.125F);
  look = movie_.look();
  EXPECT_EQ(look.hue, 0.75F);
  EXPECT_EQ(look.subtitlePosition, 0.125F);

  look.aspectType = 2;
  look.cropRect = {{1, 2}, {3, 4}};
  look.rotate = 90;
  look.effectName = "Blur";
  look.watermark = Image::emptyInfiniteImage();
  look.subtitleColor = Color{1, 0, 0, 1};
  look.subtitleMarkup = true;
  look.subtitleMargin = 0.125F;
  drawText();
  movie_.setLook(look);
  EXPECT_FALSE(isTextDrawn());  // it is drawn anew
  EXPECT_EQ(movie_.aspectType(), 2);
  EXPECT_EQ(movie_.cropRect(), (Rect{{1, 2}, {3, 4}}));
  EXPECT_EQ(movie_.rotate(), 90);
  EXPECT_EQ(movie_.hue(), 0.75F);
  EXPECT_EQ(movie_.effectName(), "Blur");
  EXPECT_EQ(movie_.watermark(), look.watermark);
  EXPECT_EQ(movie_.subtitleColor(), (Color{1, 0, 0, 1}));
  EXPECT_TRUE(movie_.fullSubtitleText());
  EXPECT_EQ(movie_.subtitlePosition(), 0.125F);
  EXPECT_EQ(movie_.look().subtitleMargin, 0.125F);
}

TEST_F(LMFFMovieEffects, WithoutAnEffectStreamTheLookChangesNothing) {
  movie_.setVideoEffectStream(nullptr);
  MovieLook look;
  look.hue = 0.75F;
  movie_.setLook(look);
  EXPECT_EQ(movie_.look().hue, 0.5F);
}

TEST_F(LMFFMovieEffects, SettingsAreTheEffectStreams) {
  const auto image = Image::emptyInfiniteImage();
  stream().setAspectType(2);
  stream().setCropRect({{1, 2}, {3, 4}});
  stream().setVflip(true);
  stream().setRotate(12.5F);
  stream().setSaturation(0.1F);
  stream().setBrightness(0.2F);
  stream().setContrast(0.3F);
  stream().setHue(0.4F);
  stream().setEffectName("Blur");
  stream().setWatermark(image);
  stream().setZoomType(3);
  stream().setSubtitlePosition(0.25F);
  EXPECT_EQ(movie_.aspectType(), 2);
  EXPECT_EQ(movie_.cropRect(), (Rect{{1, 2}, {3, 4}}));
  EXPECT_FALSE(movie_.hflip());
  EXPECT_TRUE(movie_.vflip());
  EXPECT_EQ(movie_.rotate(), 12.5F);
  EXPECT_EQ(movie_.saturation(), 0.1F);
  EXPECT_EQ(movie_.brightness(), 0.2F);
  EXPECT_EQ(movie_.contrast(), 0.3F);
  EXPECT_EQ(movie_.hue(), 0.4F);
  EXPECT_EQ(movie_.effectName(), "Blur");
  EXPECT_EQ(movie_.watermark(), image);
  EXPECT_EQ(movie_.zoomType(), 3);
  EXPECT_EQ(movie_.subtitlePosition(), 0.25F);
}

TEST_F(LMFFMovieEffects, VideoSizeIsTheMedias) {
  movie_.openMedias({videoMediaOf(fixture("av25.mp4"))});
  movie_.setOutputVideoSize({100, 50});
  EXPECT_EQ(movie_.videoSize(), (Size{320, 180}));
}

// Texts.

TEST_F(LMFFMovieEffects, CropIsReadFromItsTextAndWrittenAsIt) {
  movie_.setCropRectString("{{10, 20}, {300, 200}}");
  EXPECT_EQ(movie_.cropRect(), (Rect{{10, 20}, {300, 200}}));
  EXPECT_EQ(movie_.cropRectString(), "{{10, 20}, {300, 200}}");
}

TEST_F(LMFFMovieEffects, CropTextThatIsNoneReadsAsZeros) {
  movie_.setCropRect({{1, 2}, {3, 4}});
  movie_.setCropRectString("10,20,300x200");
  EXPECT_EQ(movie_.cropRect(), Rect{});
}

TEST_F(LMFFMovieEffects, OutputSizeIsReadFromItsTextAndWrittenAsIt) {
  movie_.setOutputVideoSizeString("{640, 480}");
  EXPECT_EQ(movie_.outputVideoSize(), (Size{640, 480}));
  EXPECT_EQ(movie_.outputVideoSizeString(), "{640, 480}");
}

TEST_F(LMFFMovieEffects, SizeTextThatIsNoneSetsZeroByZero) {
  movie_.setOutputVideoSize({640, 480});
  movie_.setOutputVideoSizeString("640x480");
  EXPECT_EQ(movie_.outputVideoSize(), Size{});
}

// The output size.

TEST_F(LMFFMovieEffects, OutputSizeIsWholePixels) {
  movie_.setOutputVideoSize({639.9, 479.95});
  EXPECT_EQ(movie_.outputVideoSize(), (Size{640, 480}));
  movie_.setOutputVideoSize({639.8, 480});
  EXPECT_EQ(movie_.outputVideoSize(), (Size{639, 480}));
  movie_.setOutputVideoSize({-5.5, 0.95});
  EXPECT_EQ(movie_.outputVideoSize(), (Size{-5, 1}));
}

TEST_F(LMFFMovieEffects, OutputSizeKeepsThePixelFormat) {
  movie_.openMedias({videoMediaOf(fixture("av25.mp4"))});
  movie_.setOutputVideoSize({100, 50});
  EXPECT_EQ(stream().outputFormat(), (LMFFVideoFormat{AV_PIX_FMT_RGBA, 100, 50}));
}

TEST_F(LMFFMovieEffects, OutputSizeBeyondAllPicturesIsZero) {
  movie_.setOutputVideoSize({1e300, std::nan("")});
  EXPECT_EQ(movie_.outputVideoSize(), Size{});
}

// Opening.

TEST_F(LMFFMovieEffects, OpeningSetsCropAndOutputSizeOnly) {
  movie_.setCropRect({{1, 2}, {3, 4}});
  movie_.setOutputVideoSize({100, 50});
  movie_.setRotate(90);
  movie_.setEffectName("Blur");
  movie_.openMedias({videoMediaOf(fixture("av25.mp4"))});
  EXPECT_EQ(movie_.cropRect(), (Rect{{0, 0}, {320, 180}}));
  EXPECT_EQ(movie_.outputVideoSize(), (Size{320, 180}));
  EXPECT_EQ(movie_.rotate(), 90.0F);
  EXPECT_EQ(movie_.effectName(), "Blur");
}

// Subtitles.

TEST_F(LMFFMovieEffects, SubtitleFontAndColourHaveDefaults) {
  EXPECT_EQ(movie_.subtitleFont(), Font::systemFontOfSize(80));
  EXPECT_EQ(movie_.subtitleColor(), Color::white());
}

TEST_F(LMFFMovieEffects, WhatChangesTheSubtitlesLookHasItDrawnAnew) {
  const Font font{.family = "serif", .size = 20};
  drawText();
  movie_.setSubtitleFont(font);
  EXPECT_FALSE(isTextDrawn());
  EXPECT_EQ(movie_.subtitleFont(), font);
  drawText();
  movie_.setSubtitleColor(Color{1, 0, 0, 1});
  EXPECT_FALSE(isTextDrawn());
  EXPECT_EQ(movie_.subtitleColor(), (Color{1, 0, 0, 1}));
  drawText();
  movie_.setSubtitlePosition(0.5F);
  EXPECT_FALSE(isTextDrawn());
  drawText();
  movie_.setOutputVideoSize({100, 50});
  EXPECT_FALSE(isTextDrawn());
  drawText();
  movie_.setFullSubtitleText(true);
  EXPECT_FALSE(isTextDrawn());
  drawText();
  movie_.updateSubtitle();
  EXPECT_FALSE(isTextDrawn());
}

TEST_F(LMFFMovieEffects, OtherSettingsLeaveTheDrawnTextAlone) {
  drawText();
  movie_.setRotate(90);
  movie_.setEffectName("Blur");
  movie_.setCropRect({{1, 2}, {3, 4}});
  EXPECT_TRUE(isTextDrawn());
}

TEST_F(LMFFMovieEffects, FullSubtitleTextIsOffAtFirst) {
  EXPECT_FALSE(movie_.fullSubtitleText());
  movie_.setFullSubtitleText(true);
  EXPECT_TRUE(movie_.fullSubtitleText());
  EXPECT_TRUE(stream().subtitleMarkup());
}

// Without an effect stream.

TEST_F(LMFFMovieEffects, WithoutAnEffectStreamSettingsAreZeros) {
  movie_.setVideoEffectStream(nullptr);
  movie_.setRotate(90);
  movie_.setOutputVideoSize({100, 50});
  movie_.setSubtitleFont(std::nullopt);
  movie_.updateSubtitle();
  EXPECT_EQ(movie_.rotate(), 0.0F);
  EXPECT_EQ(movie_.cropRect(), Rect{});
  EXPECT_EQ(movie_.videoSize(), Size{});
  EXPECT_EQ(movie_.outputVideoSizeString(), "{0, 0}");
  EXPECT_EQ(movie_.watermark(), nullptr);
}

}  // namespace
}  // namespace kestrel::test
