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
  EXPECT_NEAR(shownAt(image, 0, 0)[0], isBloom ? 127.5 : 0, 1);
  EXPECT_NEAR(shownAt(image, 1, 0)[0], isBloom ? 255 : 127.5, 1);
}

TEST_P(BloomGloomTest, PictureWithoutBoundsWorks) {
  const ImagePointer image = glow(Image::fromColor({0.4, 0.4, 0.4, 1}), 30, 1);
  EXPECT_TRUE(isInfinite(image->extent()));
  const auto expected = static_cast<uint8_t>(GetParam() == std::string_view("CIBloom") ? 163 : 41);
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
  // 1 - 0.6 × 0.6
  EXPECT_EQ(
      shownAt(filtered("CIBloom", flat(40, 40, {102, 102, 102, 255}), settings(10, 1)), 20, 20),
      (Pixel{163, 163, 163, 255}));
}

TEST(GloomTest, IsBloomOfTheNegative) {
  const ImagePointer picture = opaqueNoise(40, 30);
  const ImagePointer gloom = filtered("CIGloom", picture, settings(7, 0.6));
  const ImagePointer bloom = filtered(
      "CIColorInvert", filtered("CIBloom", filtered("CIColorInvert", picture), settings(7, 0.6)));
  for (const int x : {0, 13, 39}) {
    for (size_t c = 0; c < 3; ++c)
      EXPECT_NEAR(shownAt(gloom, x, 11)[c], shownAt(bloom, x, 11)[c], 1) << x;
  }
}

}  // namespace
}  // namespace kestrel
