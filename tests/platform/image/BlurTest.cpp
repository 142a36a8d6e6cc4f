#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/platform/image/FilterPictures.h"
#include "tests/platform/image/ReferenceEvaluator.h"

namespace kestrel {
namespace {

using test::filtered;
using test::ImagePointer;
using test::isPartOfWhole;
using test::largestError;
using test::makeBitmap;
using test::opaqueNoise;
using test::Pixel;
using test::pixelAt;
using test::rendered;
using test::seeThroughNoise;
using test::shownAt;

ImagePointer blurred(const ImagePointer& input, double radius) {
  return filtered("CIGaussianBlur", input, {{kCIInputRadiusKey, radius}});
}

/// Black and white stripes, upright or level, `period` pixels each pair: what is hardest on a
/// picture that is reduced.
ImagePointer stripes(int width, int height, int period, bool isUpright) {
  return Image::fromBitmap(makeBitmap(width, height,
                                      [=](int x, int y) -> Pixel {
                                        const int place = isUpright ? x : y;
                                        const uint8_t v = place % period < period / 2 ? 255 : 0;
                                        return {v, v, v, 255};
                                      }),
                           Image::Alpha::kOpaque);
}

class BlurRadiusTest : public testing::TestWithParam<double> {};

TEST_P(BlurRadiusTest, IsTheGaussianOfNoise) {
  EXPECT_LE(largestError(blurred(opaqueNoise(61, 47), GetParam()), {{-20, -30}, {50, 45}}), 1.0);
}

TEST_P(BlurRadiusTest, IsTheGaussianWithAlpha) {
  const ImagePointer image = blurred(seeThroughNoise(50, 41)->translated(-31, -17), GetParam());
  EXPECT_LE(largestError(image, {{-40, -30}, {40, 30}}), 1.0);
}

TEST_P(BlurRadiusTest, FineStripesLeaveNoPattern) {
  for (const int period : {2, 5, 9, 17, 33}) {
    const ImagePointer upright = blurred(stripes(200, 20, period, true), GetParam());
    EXPECT_LE(largestError(upright, {{80, 9}, {36, 2}}), 1.0) << period;
    const ImagePointer level = blurred(stripes(20, 200, period, false), GetParam());
    EXPECT_LE(largestError(level, {{9, 80}, {2, 36}}), 1.0) << period;
  }
}

TEST_P(BlurRadiusTest, AnEdgeIsTheSameWhereverItLies) {
  const double radius = GetParam();
  const auto weight = [radius](int d) { return std::exp(-d * d / (2 * radius * radius)); };
  constexpr int kFar = 300;
  double total = 0;
  for (int d = -kFar; d <= kFar; ++d) total += weight(d);
  // The edge meets the cells of a reduction at every place within them.
  for (int at = 80; at < 100; ++at) {
    const ImagePointer white =
        Image::fromColor(Color::white())->cropped({{at + 0.0, -1e4}, {2e4, 2e4}});
    const ImagePointer edge =
        filtered("CISourceOverCompositing", white,
                 {{kCIInputBackgroundImageKey, Image::fromColor(Color::black())}});
    const auto result = rendered(blurred(edge, radius), {{60, 0}, {60, 1}});
    for (int x = 60; x < 120; ++x) {
      double expected = 0;
      for (int k = at; k < x + kFar; ++k) expected += weight(x - k) / total * 255;
      ASSERT_NEAR(pixelAt(*result, x - 60, 0)[0], expected, 1.0) << at << " " << x;
      ASSERT_EQ(pixelAt(*result, x - 60, 0)[3], 255);
    }
  }
}

TEST_P(BlurRadiusTest, PartOfThePictureIsThatPartOfTheWhole) {
  EXPECT_TRUE(isPartOfWhole(blurred(opaqueNoise(90, 70), GetParam()), {{-8, -5}, {110, 80}},
                            {{37, 21}, {19, 13}}));
}

INSTANTIATE_TEST_SUITE_P(Radii, BlurRadiusTest,
                         testing::Values(0.3, 1.0, 2.7, 3.99, 4.0, 5.0, 7.3, 10.0, 16.0, 19.0, 30.0,
                                         40.0));

TEST(BlurTest, ExtentStays) {
  EXPECT_EQ(blurred(opaqueNoise(30, 20), 4)->extent(), (Rect{{0, 0}, {30, 20}}));
  EXPECT_EQ(blurred(opaqueNoise(30, 20)->translated(0.5, 0), 4)->extent(),
            (Rect{{0, 0}, {31, 20}}));
}

TEST(BlurTest, BordersStayOpaqueAndWhereTheyAre) {
  for (const double radius : {2.0, 10.0, 40.0}) {
    const ImagePointer image = blurred(test::flat(90, 60, {200, 100, 50, 255}), radius);
    for (const int x : {0, 45, 89}) {
      for (const int y : {0, 30, 59})
        EXPECT_EQ(shownAt(image, x, y), (Pixel{200, 100, 50, 255})) << radius;
    }
    EXPECT_EQ(shownAt(image, -1, 30), (Pixel{0, 0, 0, 0})) << radius;
    EXPECT_EQ(shownAt(image, 90, 30), (Pixel{0, 0, 0, 0})) << radius;
  }
}

TEST(BlurTest, NoRadiusKeepsThePictureAsItIs) {
  const ImagePointer picture = seeThroughNoise(20, 10, 3);
  for (const double radius : {0.0, -5.0, 1e-9}) {
    const auto result = rendered(blurred(picture, radius), picture->extent());
    const auto plain = rendered(picture, picture->extent());
    EXPECT_EQ(blurred(picture, radius)->extent(), picture->extent());
    for (int y = 0; y < 10; ++y) {
      for (int x = 0; x < 20; ++x) ASSERT_EQ(pixelAt(*result, x, y), pixelAt(*plain, x, y));
    }
  }
}

TEST(BlurTest, RadiusThatIsNoNumberIsTheDefault) {
  const ImagePointer image = blurred(opaqueNoise(30, 20), std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(shownAt(image, 3, 3), shownAt(blurred(opaqueNoise(30, 20), 10), 3, 3));
}

TEST(BlurTest, ColorWithoutBoundsStays) {
  const ImagePointer image = blurred(Image::fromColor({0.2, 0.4, 0.6, 1}), 12);
  EXPECT_TRUE(isInfinite(image->extent()));
  EXPECT_EQ(shownAt(image, -46, -46), (Pixel{51, 102, 153, 255}));
}

TEST(BlurTest, EnormousRadiusIsLimited) {
  const ImagePointer image = blurred(opaqueNoise(30, 20), 1e6);
  EXPECT_EQ(shownAt(image, 3, 3), shownAt(blurred(opaqueNoise(30, 20), 1024), 3, 3));
  EXPECT_TRUE(rendered(image, {{0, 0}, {8, 8}}));
}

TEST(BlurTest, EnormousRadiusInAPictureWithoutBoundsEnds) {
  const ImagePointer image = blurred(Image::fromColor(Color::white()), 1e6);
  EXPECT_EQ(shownAt(image, 3, 3), (Pixel{255, 255, 255, 255}));
}

TEST(BlurTest, ThePictureOfOnePixelSpreads) {
  EXPECT_LE(largestError(blurred(test::flat(1, 1, {255, 255, 255, 255}), 0.8), {{-4, -4}, {9, 9}}),
            1.0);
}

TEST(BlurTest, EmptyPictureGivesNothing) {
  const ImagePointer image = blurred(opaqueNoise(9, 9)->cropped(Rect{}), 5);
  EXPECT_TRUE(isEmpty(image->extent()));
  EXPECT_EQ(shownAt(image, 2, 2), (Pixel{0, 0, 0, 0}));
}

TEST(BlurTest, CroppedPictureMixesNothingOfWhatIsCutAway) {
  const auto half = makeBitmap(60, 60, [](int x, int) -> Pixel {
    return x < 30 ? Pixel{255, 0, 0, 255} : Pixel{0, 0, 255, 255};
  });
  const ImagePointer image =
      blurred(Image::fromBitmap(half, Image::Alpha::kOpaque)->cropped({{0, 0}, {30, 60}}), 10);
  EXPECT_EQ(shownAt(image, 29, 30)[0], 255);
  EXPECT_EQ(shownAt(image, 29, 30)[2], 0);
}

}  // namespace
}  // namespace kestrel
