#include <gtest/gtest.h>

#include <limits>
#include <numbers>

#include "tests/platform/image/FilterPictures.h"
#include "tests/platform/image/ReferenceEvaluator.h"

namespace kestrel {
namespace {

using test::filtered;
using test::FilterSettings;
using test::flat;
using test::ImagePointer;
using test::largestError;
using test::opaqueNoise;
using test::Pixel;
using test::seeThroughNoise;
using test::shownAt;

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

ImagePointer screened(const ImagePointer& picture, const Vector& center, double angle, double width,
                      double sharpness) {
  return filtered("CILineScreen", picture,
                  {{kCIInputCenterKey, center},
                   {kCIInputAngleKey, angle},
                   {kCIInputWidthKey, width},
                   {kCIInputSharpnessKey, sharpness}});
}

TEST(LineScreenTest, IsTheFormula) {
  for (const double angle : {0.0, 0.4, 180.0}) {
    EXPECT_LE(
        largestError(screened(opaqueNoise(93, 41), {3, -7}, angle, 5, 0.7), {{-2, -2}, {97, 45}}),
        1.0)
        << angle;
    EXPECT_LE(largestError(
                  screened(seeThroughNoise(93, 41)->translated(-60, -20), {3, -7}, angle, 5, 0.7),
                  {{-62, -22}, {97, 45}}),
              1.0)
        << angle;
  }
}

TEST(LineScreenTest, IsTheFormulaForAnyWidth) {
  for (const double width : {0.3, 1.0, 2.0, 40.0, 1e6})
    EXPECT_LE(
        largestError(screened(opaqueNoise(93, 41), {3, -7}, 0.2, width, 1), {{0, 0}, {93, 41}}),
        1.0)
        << width;
}

TEST(LineScreenTest, BlackStaysBlackAndWhiteStaysWhite) {
  for (int y = 0; y < 30; ++y) {
    EXPECT_EQ(shownAt(screened(flat(1, 30, {0, 0, 0, 255}), {0, 0}, 0, 7.3, 0.7), 0, y),
              (Pixel{0, 0, 0, 255}));
    EXPECT_EQ(shownAt(screened(flat(1, 30, {255, 255, 255, 255}), {0, 0}, 0, 7.3, 0.7), 0, y),
              (Pixel{255, 255, 255, 255}));
  }
}

TEST(LineScreenTest, LinesAreAsThickAsThePictureIsLight) {
  // Lines 100 pixels apart with hard edges: a grey of 51/255 = 1/5 makes them 20 pixels thick, give
  // or take the pixel over which an edge fades.
  const ImagePointer image = screened(flat(1, 200, {51, 51, 51, 255}), {0, 100}, 0, 100, 1);
  EXPECT_EQ(shownAt(image, 0, 100)[0], 255);
  EXPECT_EQ(shownAt(image, 0, 108)[0], 255);
  EXPECT_EQ(shownAt(image, 0, 91)[0], 255);
  EXPECT_EQ(shownAt(image, 0, 111)[0], 0);
  EXPECT_EQ(shownAt(image, 0, 88)[0], 0);
  EXPECT_EQ(shownAt(image, 0, 0)[0], 255);
}

TEST(LineScreenTest, TheAngleTurnsTheLinesAgainstTheClock) {
  const ImagePointer picture = flat(60, 60, {128, 128, 128, 255});
  const ImagePointer level = screened(picture, {30, 30}, 0, 20, 1);
  EXPECT_EQ(shownAt(level, 2, 31), shownAt(level, 55, 31));
  EXPECT_NE(shownAt(level, 31, 30), shownAt(level, 31, 40));
  const ImagePointer upright = screened(picture, {30, 30}, std::numbers::pi / 2, 20, 1);
  EXPECT_EQ(shownAt(upright, 31, 2), shownAt(upright, 31, 55));
  // A line through the centre that rises to the right.
  const ImagePointer rising = screened(picture, {30, 30}, std::numbers::pi / 4, 20, 1);
  EXPECT_EQ(shownAt(rising, 50, 50)[0], 255);
  EXPECT_EQ(shownAt(rising, 37, 22)[0], 0);
}

TEST(LineScreenTest, AllChannelsBecomeGrey) {
  const Pixel pixel = shownAt(screened(flat(9, 9, {200, 30, 90, 255}), {0, 0}, 0.3, 5, 0.2), 4, 4);
  EXPECT_EQ(pixel[0], pixel[1]);
  EXPECT_EQ(pixel[1], pixel[2]);
}

TEST(LineScreenTest, ValuesThatAreNoNumbersAreTheDefaults) {
  const ImagePointer picture = opaqueNoise(9, 9);
  const ImagePointer odd = screened(picture, {kNone, 3}, kNone, kNone, kNone);
  for (const int x : {0, 4, 8})
    EXPECT_EQ(shownAt(odd, x, 4), shownAt(filtered("CILineScreen", picture), x, 4));
}

TEST(LineScreenTest, ExtremeValuesDoNoHarm) {
  for (const double width : {0.0, -5.0, 1e300})
    EXPECT_EQ(shownAt(screened(opaqueNoise(9, 9), {1e300, -1e300}, 1e300, width, 1e300), 4, 4)[3],
              255);
}

TEST(LineScreenTest, PictureWithoutBoundsWorks) {
  const ImagePointer image = screened(Image::fromColor({0.5, 0.5, 0.5, 1}), {0, 0}, 0, 100, 1);
  EXPECT_EQ(shownAt(image, 40000, -10000)[0], 255);
  EXPECT_EQ(shownAt(image, -40000, -10050)[0], 0);
}

TEST(LineScreenTest, PartOfThePictureIsThatPartOfTheWhole) {
  EXPECT_TRUE(test::isPartOfWhole(screened(opaqueNoise(290, 40), {3, 4}, 0.7, 5, 0.7),
                                  {{0, 0}, {290, 40}}, {{97, 11}, {130, 7}}));
}

}  // namespace
}  // namespace kestrel
