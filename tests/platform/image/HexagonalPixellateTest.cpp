#include <gtest/gtest.h>

#include <limits>
#include <set>

#include "tests/platform/image/FilterPictures.h"
#include "tests/platform/image/ReferenceEvaluator.h"

namespace kestrel {
namespace {

using test::filtered;
using test::flat;
using test::ImagePointer;
using test::largestError;
using test::makeBitmap;
using test::opaqueNoise;
using test::Pixel;
using test::seeThroughNoise;
using test::shownAt;

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

ImagePointer mosaic(const ImagePointer& picture, const Vector& center, double scale) {
  return filtered("CIHexagonalPixellate", picture,
                  {{kCIInputCenterKey, center}, {kCIInputScaleKey, scale}});
}

TEST(HexagonalPixellateTest, IsTheMeanOfEachHexagon) {
  for (const double scale : {1.0, 1.7, 5.3, 8.0, 21.0, 70.0})
    EXPECT_LE(largestError(mosaic(opaqueNoise(73, 51), {0.13, 0.29}, scale), {{-2, -2}, {77, 55}}),
              1.0)
        << scale;
}

TEST(HexagonalPixellateTest, IsTheMeanWithAlphaAndNegativeOrigins) {
  for (const double scale : {3.3, 6.0, 19.0})
    EXPECT_LE(
        largestError(mosaic(seeThroughNoise(73, 51)->translated(-60, -40), {100.13, 77.29}, scale),
                     {{-62, -42}, {77, 55}}),
        1.0)
        << scale;
}

TEST(HexagonalPixellateTest, HexagonsHaveTheirWidthAndHeight) {
  // A white dot in the middle of a hexagon of side 20: 34.6 wide, 40 high, and standing on a
  // corner.
  const auto dot = makeBitmap(200, 200, [](int x, int y) -> Pixel {
    return x == 100 && y == 99 ? Pixel{255, 255, 255, 255} : Pixel{0, 0, 0, 255};
  });
  const ImagePointer picture =
      filtered("CIColorControls", mosaic(Image::fromBitmap(dot), {100.5, 100.5}, 20),
               {{kCIInputContrastKey, 3000.0}, {kCIInputBrightnessKey, 1499.0}});
  const auto isLit = [&](int x, int y) { return shownAt(picture, x, y)[0] == 255; };
  EXPECT_TRUE(isLit(100, 100));
  EXPECT_TRUE(isLit(100 + 17, 100 + 8));
  EXPECT_TRUE(isLit(100 - 17, 100 - 8));
  EXPECT_FALSE(isLit(100 + 18, 100));
  EXPECT_FALSE(isLit(100 - 18, 100));
  EXPECT_TRUE(isLit(100, 100 + 19));
  EXPECT_FALSE(isLit(100, 100 + 21));
  EXPECT_FALSE(isLit(100 + 17, 100 + 12));
}

TEST(HexagonalPixellateTest, BordersDoNotFade) {
  const ImagePointer image = mosaic(flat(33, 21, {10, 200, 90, 255}), {150, 150}, 8);
  for (int x = 0; x < 33; ++x) EXPECT_EQ(shownAt(image, x, 0), (Pixel{10, 200, 90, 255}));
}

TEST(HexagonalPixellateTest, ALargeHexagonIsTheMeanOfThePicture) {
  const auto halves = makeBitmap(40, 10, [](int x, int) -> Pixel {
    return x < 20 ? Pixel{0, 0, 0, 255} : Pixel{255, 255, 255, 255};
  });
  const ImagePointer image = mosaic(Image::fromBitmap(halves), {20, 5}, 1e6);
  EXPECT_NEAR(shownAt(image, 0, 0)[0], 127.5, 0.6);
  EXPECT_EQ(shownAt(image, 39, 9), shownAt(image, 0, 0));
}

TEST(HexagonalPixellateTest, ScaleBelowAPixelCountsAsOne) {
  for (const double scale : {0.0, -4.0, 0.5}) {
    const ImagePointer picture = opaqueNoise(20, 20);
    EXPECT_EQ(shownAt(mosaic(picture, {0.1, 0.2}, scale), 9, 9),
              shownAt(mosaic(picture, {0.1, 0.2}, 1), 9, 9));
  }
}

TEST(HexagonalPixellateTest, ValuesThatAreNoNumbersAreTheDefaults) {
  const ImagePointer picture = opaqueNoise(30, 30);
  const ImagePointer odd = mosaic(picture, {kNone, 0}, kNone);
  for (const int x : {0, 14, 29})
    EXPECT_EQ(shownAt(odd, x, 14), shownAt(filtered("CIHexagonalPixellate", picture), x, 14));
}

TEST(HexagonalPixellateTest, PictureWithoutBoundsKeepsItsColor) {
  for (const double scale : {8.0, 1e9})
    EXPECT_EQ(shownAt(mosaic(Image::fromColor({0.2, 0.4, 0.6, 1}), {1e300, -1e300}, scale), -9, 7),
              (Pixel{51, 102, 153, 255}))
        << scale;
}

TEST(HexagonalPixellateTest, EmptyPictureGivesNothing) {
  EXPECT_EQ(shownAt(mosaic(opaqueNoise(9, 9)->cropped(Rect{}), {0, 0}, 8), 2, 2),
            (Pixel{0, 0, 0, 0}));
}

TEST(HexagonalPixellateTest, PartOfThePictureIsThatPartOfTheWhole) {
  for (const double scale : {3.0, 8.0, 40.0})
    EXPECT_TRUE(test::isPartOfWhole(mosaic(opaqueNoise(290, 170), {3, 4}, scale),
                                    {{0, 0}, {290, 170}}, {{97, 61}, {30, 40}}))
        << scale;
}

}  // namespace
}  // namespace kestrel
