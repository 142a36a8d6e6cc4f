#include <gtest/gtest.h>

#include <limits>

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

FilterSettings lamp(const Vector& position, const Vector& pointsAt, double brightness,
                    double concentration, const Color& color = Color::white()) {
  return {{"inputLightPosition", position},
          {"inputLightPointsAt", pointsAt},
          {kCIInputBrightnessKey, brightness},
          {"inputConcentration", concentration},
          {kCIInputColorKey, color}};
}

ImagePointer lit(const ImagePointer& picture, const FilterSettings& settings) {
  return filtered("CISpotLight", picture, settings);
}

TEST(SpotLightTest, IsTheFormula) {
  const FilterSettings settings = lamp({60, 40, 90}, {30, 25, 0}, 1.5, 0.3, Color{1, 0.8, 0.6, 1});
  EXPECT_LE(largestError(lit(opaqueNoise(97, 61), settings), {{-2, -2}, {101, 65}}), 1.0);
  EXPECT_LE(largestError(lit(seeThroughNoise(97, 61)->translated(-40, -30), settings),
                         {{-42, -32}, {101, 65}}),
            1.0);
}

TEST(SpotLightTest, IsTheFormulaForTightAndWideCones) {
  for (const double concentration : {0.01, 1.5, 100.0})
    EXPECT_LE(
        largestError(lit(opaqueNoise(97, 61), lamp({60, 40, 300}, {30, 25, 0}, 3, concentration)),
                     {{0, 0}, {97, 61}}),
        1.0)
        << concentration;
}

TEST(SpotLightTest, IsBrightestWhereItPointsAtAndDarkOutside) {
  const ImagePointer image =
      lit(flat(1920, 400, {100, 100, 100, 255}), lamp({400, 400, 1000}, {200, 200, 0}, 4.5, 1.5));
  // 4.5 / 2.5 of the light, 0.1274, in the middle: 0.2294.
  EXPECT_NEAR(shownAt(image, 200, 200)[0], 132, 1);
  EXPECT_LT(shownAt(image, 400, 200)[0], 132);
  EXPECT_EQ(shownAt(image, 1900, 200), (Pixel{0, 0, 0, 255}));
}

TEST(SpotLightTest, TheConeEndsWhereItsEdgeMeetsThePicture) {
  // Straight down from 100: the edge has a tangent of √(0.14 × 0.5) = 0.2646, 26.5 pixels away.
  const ImagePointer image =
      lit(flat(100, 100, {255, 255, 255, 255}), lamp({50, 50, 100}, {50, 50, 0}, 100, 0.5));
  EXPECT_EQ(shownAt(image, 50 + 27, 50), (Pixel{0, 0, 0, 255}));
  EXPECT_GT(shownAt(image, 50 + 24, 50)[0], 0);
}

TEST(SpotLightTest, ShinesInItsColor) {
  const ImagePointer image = lit(flat(9, 9, {255, 255, 255, 255}),
                                 lamp({4.5, 4.5, 500}, {4.5, 4.5, 0}, 2, 1, Color{1, 0.5, 0, 1}));
  // Half the light shows as 188.
  EXPECT_EQ(shownAt(image, 4, 4), (Pixel{255, 188, 0, 255}));
}

TEST(SpotLightTest, LampAtThePointItShinesAtShinesStraightDown) {
  const ImagePointer same = lit(flat(9, 9, {80, 80, 80, 255}), lamp({4, 4, 90}, {4, 4, 90}, 3, 1));
  const ImagePointer down = lit(flat(9, 9, {80, 80, 80, 255}), lamp({4, 4, 90}, {4, 4, 0}, 3, 1));
  for (const int x : {0, 4, 8}) EXPECT_EQ(shownAt(same, x, 3), shownAt(down, x, 3));
}

TEST(SpotLightTest, LampInOrBehindThePictureIsLifted) {
  for (const double height : {0.0, -1000.0}) {
    const ImagePointer low =
        lit(flat(9, 9, {80, 80, 80, 255}), lamp({4, 4, height}, {7, 4, 0}, 3, 1));
    const ImagePointer one = lit(flat(9, 9, {80, 80, 80, 255}), lamp({4, 4, 1}, {7, 4, 0}, 3, 1));
    EXPECT_EQ(shownAt(low, 6, 4), shownAt(one, 6, 4));
  }
}

TEST(SpotLightTest, ValuesThatAreNoNumbersAreTheDefaults) {
  const ImagePointer picture = opaqueNoise(9, 9)->translated(200, 200);
  const ImagePointer odd =
      lit(picture, lamp({kNone, 1, 2}, {1, kNone, 3}, kNone, kNone, Color::white()));
  EXPECT_EQ(shownAt(odd, 204, 204), shownAt(lit(picture, {}), 204, 204));
}

TEST(SpotLightTest, ExtremeValuesDoNoHarm) {
  const ImagePointer image = lit(opaqueNoise(9, 9), lamp({1e300, -1e300, 1e300}, {-1e300, 0, 0},
                                                         1e300, -1e300, Color{kNone, 1e9, -1, 1}));
  EXPECT_EQ(shownAt(image, 4, 4)[3], 255);
}

TEST(SpotLightTest, PictureWithoutBoundsWorks) {
  const ImagePointer image =
      lit(Image::fromColor(Color::white()), lamp({400, 400, 1000}, {200, 200, 0}, 4.5, 1.5));
  EXPECT_EQ(shownAt(image, 200, 200), (Pixel{255, 255, 255, 255}));
  EXPECT_EQ(shownAt(image, -100000, 0), (Pixel{0, 0, 0, 255}));
}

TEST(SpotLightTest, PartOfThePictureIsThatPartOfTheWhole) {
  EXPECT_TRUE(test::isPartOfWhole(lit(opaqueNoise(290, 40), lamp({40, 4, 190}, {7, 4, 0}, 3, 1)),
                                  {{0, 0}, {290, 40}}, {{97, 11}, {130, 7}}));
}

}  // namespace
}  // namespace kestrel
