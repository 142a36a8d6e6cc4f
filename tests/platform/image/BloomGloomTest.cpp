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
using test::makeBitmap;
using test::opaqueNoise;
using test::Pixel;
using test::seeThroughNoise;
using test::shownAt;

FilterSettings settings(double radius, double intensity) {
  return {{kCIInputRadiusKey, radius}, {kCIInputIntensityKey, intensity}};
}

class BloomGloomTest : public testing::TestWithParam<const char*> {
 protected:
  static ImagePointer glow(const ImagePointer& input, double radius, double intensity) {
    return filtered(GetParam(), input, settings(radius, intensity));
  }
};

TEST_P(BloomGloomTest, IsTheFormula) {
  for (const double radius : {0.0, 3.0, 10.0, 30.0})
    EXPECT_LE(largestError(glow(opaqueNoise(70, 50), radius, 0.8), {{-3, -3}, {76, 56}}), 1.0)
        << radius;
}

TEST_P(BloomGloomTest, IsTheFormulaWithAlpha) {
  for (const double radius : {2.0, 6.0, 13.0})
    EXPECT_LE(largestError(glow(seeThroughNoise(60, 40)->translated(-50, -7), radius, 1),
                           {{-53, -10}, {66, 46}}),
              1.0)
        << radius;
}

TEST_P(BloomGloomTest, FlatPictureStaysFlatUpToItsBorder) {
  for (const double radius : {3.0, 40.0}) {
    const ImagePointer image = glow(flat(70, 50, {102, 51, 204, 255}), radius, 1);
    EXPECT_EQ(shownAt(image, 0, 0), shownAt(image, 35, 25)) << radius;
    EXPECT_EQ(shownAt(image, 69, 49), shownAt(image, 35, 25)) << radius;
  }
}

TEST_P(BloomGloomTest, ExtentAndAlphaStay) {
  const ImagePointer picture = seeThroughNoise(30, 20);
  const ImagePointer image = glow(picture, 9, 1);
  EXPECT_EQ(image->extent(), picture->extent());
  for (const int x : {0, 7, 29}) EXPECT_EQ(shownAt(image, x, 11)[3], shownAt(picture, x, 11)[3]);
}

TEST_P(BloomGloomTest, NoIntensityKeepsThePicture) {
  const ImagePointer picture = opaqueNoise(9, 9);
  for (const double intensity : {0.0, -1.0})
    EXPECT_EQ(shownAt(glow(picture, 10, intensity), 4, 4), shownAt(picture, 4, 4));
}

TEST_P(BloomGloomTest, IntensityEndsAtOne) {
  const ImagePointer picture = opaqueNoise(9, 9);
  EXPECT_EQ(shownAt(glow(picture, 10, 1e9), 4, 4), shownAt(glow(picture, 10, 1), 4, 4));
}

TEST_P(BloomGloomTest, ValuesThatAreNoNumbersAreTheDefaults) {
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  const ImagePointer picture = opaqueNoise(9, 9);
  EXPECT_EQ(shownAt(glow(picture, kNone, kNone), 4, 4), shownAt(glow(picture, 10, 0.5), 4, 4));
}

TEST_P(BloomGloomTest, EnormousRadiusTakesTheMean) {
  const auto halves = makeBitmap(2, 1, [](int x, int) -> Pixel {
    return x == 0 ? Pixel{0, 0, 0, 255} : Pixel{255, 255, 255, 255};
  });
  const ImagePointer image = glow(Image::fromBitmap(halves, Image::Alpha::kOpaque), 1e6, 1);
  // The border goes on to both sides: half of what is around is black, half white.
  const bool isBloom = GetParam() == std::string_view("CIBloom");
  // The light of black becomes 1/2 or (1/8) / 2, of white 1 or (1 - 1/8) / 2.
  EXPECT_NEAR(shownAt(image, 0, 0)[0], isBloom ? 187.5 : 70.6, 1);
  EXPECT_NEAR(shownAt(image, 1, 0)[0], isBloom ? 255 : 176.6, 1);
}

TEST_P(BloomGloomTest, PictureWithoutBoundsWorks) {
  const ImagePointer image = glow(Image::fromColor({0.4, 0.4, 0.4, 1}), 30, 1);
  EXPECT_TRUE(isInfinite(image->extent()));
  // The light is 0.1329.
  const auto expected = static_cast<uint8_t>(GetParam() == std::string_view("CIBloom") ? 136 : 91);
  EXPECT_EQ(shownAt(image, -500, 900), (Pixel{expected, expected, expected, 255}));
}

TEST_P(BloomGloomTest, PartOfThePictureIsThatPartOfTheWhole) {
  for (const double radius : {3.0, 30.0})
    EXPECT_TRUE(test::isPartOfWhole(glow(opaqueNoise(190, 130), radius, 1), {{0, 0}, {190, 130}},
                                    {{67, 31}, {80, 70}}))
        << radius;
}

TEST_P(BloomGloomTest, WorksOverAPictureThatIsScaledAndColored) {
  const ImagePointer scaled = opaqueNoise(60, 40)->scaled(1.3, 0.8);
  const ImagePointer colored =
      filtered("CIColorControls", glow(scaled, 8, 1),
               {{kCIInputBrightnessKey, 0.25}, {kCIInputContrastKey, 2.2}});
  EXPECT_LE(largestError(colored, {{-2, -2}, {82, 36}}), 1.0);
}

INSTANTIATE_TEST_SUITE_P(Both, BloomGloomTest, testing::Values("CIBloom", "CIGloom"));

TEST(BloomTest, LightensAsAScreenDoes) {
  // The light of 102 is 0.1329: 1 - 0.8671² shows as 136.
  EXPECT_EQ(
      shownAt(filtered("CIBloom", flat(40, 40, {102, 102, 102, 255}), settings(10, 1)), 20, 20),
      (Pixel{136, 136, 136, 255}));
}

TEST(GloomTest, DullsWhatIsBrightAndKeepsWhatIsDark) {
  const auto gloomy = [](uint8_t v) {
    return shownAt(filtered("CIGloom", flat(40, 40, {v, v, v, 255}), settings(10, 1)), 20, 20)[0];
  };
  // A third of the light of white shows as 156.
  EXPECT_EQ(gloomy(255), 156);
  EXPECT_EQ(gloomy(10), 10);
  EXPECT_EQ(gloomy(0), 0);
}

TEST(GloomTest, LiftsShadowsBesideSomethingBright) {
  const auto halves = makeBitmap(80, 40, [](int x, int) -> Pixel {
    return x < 40 ? Pixel{20, 20, 20, 255} : Pixel{200, 200, 200, 255};
  });
  const ImagePointer image =
      filtered("CIGloom", Image::fromBitmap(halves, Image::Alpha::kOpaque), settings(10, 1));
  EXPECT_GT(shownAt(image, 38, 20)[0], 20);
  EXPECT_LT(shownAt(image, 70, 20)[0], 200);
}

}  // namespace
}  // namespace kestrel
