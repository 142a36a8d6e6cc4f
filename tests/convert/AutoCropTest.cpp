#include "convert/pictures/AutoCrop.h"

#include <gtest/gtest.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMMediaSource.h>

#include <ostream>
#include <string>

#include "tests/support/Fixture.h"

extern "C" {
#include <libavutil/frame.h>
}

namespace kestrel {

void PrintTo(const Area& area, std::ostream* stream) {
  *stream << area.x << ',' << area.y << ',' << area.width << 'x' << area.height;
}

}  // namespace kestrel

namespace kestrel::test {

namespace {

std::optional<Area> areaOf(const std::string& name) {
  const auto source = LMMediaSource::mediaWithPath(fixture(name).string());
  source->open();
  LMFFMovie movie;
  movie.openMedias(source->createMedias());
  return withoutBars(movie);
}

TEST(AutoCrop, FindsBarsAboveAndBelow) {
  EXPECT_EQ(areaOf("boxed-top-bottom.mp4"), (Area{0, 22, 320, 136}));
}

TEST(AutoCrop, FindsBarsAtTheSides) {
  EXPECT_EQ(areaOf("boxed-left-right.mp4"), (Area{40, 0, 240, 180}));
}

TEST(AutoCrop, FindsBarsWhoseOutermostLineIsBrighter) {
  EXPECT_EQ(areaOf("boxed-frayed.mp4"), (Area{40, 0, 240, 180}));
}

TEST(AutoCrop, FindsBarsAllAround) {
  EXPECT_EQ(areaOf("boxed-all-around.mp4"), (Area{40, 22, 240, 136}));
}

TEST(AutoCrop, FindsBarsAroundADarkMovie) {
  EXPECT_EQ(areaOf("boxed-dark.mp4"), (Area{0, 22, 320, 136}));
}

TEST(AutoCrop, AnswersEvenNumbersWithinThePicture) {
  EXPECT_EQ(areaOf("boxed-odd.mkv"), (Area{0, 22, 320, 136}));
}

TEST(AutoCrop, IsNotMisledByABlackBeginning) {
  EXPECT_EQ(areaOf("boxed-late.mp4"), (Area{0, 22, 320, 136}));
}

TEST(AutoCrop, KeepsABarThatSomethingStandsIn) {
  EXPECT_EQ(areaOf("boxed-with-logo.mp4"), (Area{0, 0, 320, 158}));
}

TEST(AutoCrop, WithoutBarsThereIsNothingToCrop) { EXPECT_EQ(areaOf("av25.mp4"), std::nullopt); }

TEST(AutoCrop, ADarkSceneIsNoBar) { EXPECT_EQ(areaOf("dark-vignette.mp4"), std::nullopt); }

TEST(AutoCrop, ABlackMovieIsNoBar) { EXPECT_EQ(areaOf("black.mp4"), std::nullopt); }

TEST(AutoCrop, WhatIsPictureForHalfTheMovieStays) {
  EXPECT_EQ(areaOf("boxed-first-half.mp4"), std::nullopt);
}

TEST(AutoCrop, LeavesTheMovieWhereItWas) {
  const auto source = LMMediaSource::mediaWithPath(fixture("boxed-left-right.mp4").string());
  source->open();
  LMFFMovie movie;
  movie.openMedias(source->createMedias());
  movie.seek(2'000'000);
  movie.flushOperation();
  const auto time = [&] { return movie.videos().front()->videoFrameAtTime(2'000'000)->pts; };
  const int64_t before = time();
  ASSERT_TRUE(withoutBars(movie));
  EXPECT_EQ(time(), before);
}

TEST(AutoCrop, AMovieWithoutPicturesHasNoBars) {
  LMFFMovie movie;
  EXPECT_EQ(withoutBars(movie), std::nullopt);
}

}  // namespace
}  // namespace kestrel::test
