// What holds for every filter that looks at neighbours or at places.

#include <gtest/gtest.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/ImageContext.h>

#include <cstring>
#include <random>

#include "tests/platform/image/FilterPictures.h"
#include "tests/platform/image/ReferenceEvaluator.h"

namespace kestrel {
namespace {

using test::filtered;
using test::FilterSettings;
using test::ImagePointer;
using test::largestError;
using test::opaqueNoise;
using test::Pixel;
using test::seeThroughNoise;
using test::shownAt;

const char* const kNames[] = {
    "CIGaussianBlur", "CISharpenLuminance",  "CIBloom", "CIGloom", "CISpotLight",
    "CILineScreen",   "CIHexagonalPixellate"};

class AnyFilterTest : public testing::TestWithParam<const char*> {};

TEST_P(AnyFilterTest, WithoutAnImageThereIsNone) {
  EXPECT_FALSE(FilterRegistry::filterWithName(GetParam())->outputImage());
}

TEST_P(AnyFilterTest, ACopyIsIndependent) {
  const auto filter = FilterRegistry::filterWithName(GetParam());
  const auto copy = filter->copy();
  copy->setValue(opaqueNoise(4, 4), kCIInputImageKey);
  EXPECT_TRUE(copy->outputImage());
  EXPECT_FALSE(filter->outputImage());
}

TEST_P(AnyFilterTest, PictureOfOnePixelWorks) {
  EXPECT_LE(largestError(filtered(GetParam(), opaqueNoise(1, 1)), {{-2, -2}, {5, 5}}), 1.0);
}

TEST_P(AnyFilterTest, EmptyPictureGivesNothing) {
  const ImagePointer image = filtered(GetParam(), opaqueNoise(9, 9)->cropped(Rect{}));
  EXPECT_EQ(shownAt(image, 2, 2), (Pixel{0, 0, 0, 0}));
}

TEST_P(AnyFilterTest, AnyNumberOfThreadsGivesTheSameBytes) {
  const ImagePointer image = filtered(GetParam(), opaqueNoise(333, 217));
  constexpr size_t kSize = 333 * 217 * 4;
  const auto bytes = [&image](int threads) {
    ImageContext context;
    context.setThreads(threads);
    std::vector<uint8_t> pixels(kSize);
    EXPECT_TRUE(context.render(image, {{0, 0}, {333, 217}}, pixels.data(), 333 * 4));
    return pixels;
  };
  const auto one = bytes(1);
  EXPECT_EQ(bytes(2), one);
  EXPECT_EQ(bytes(7), one);
}

TEST_P(AnyFilterTest, PictureBetweenPixelsKeepsItsRim) {
  // Moved by half a pixel its border is half transparent, and the filter makes that neither more
  // nor less.
  const ImagePointer picture = opaqueNoise(20, 15)->translated(0.5, 0);
  EXPECT_LE(largestError(filtered(GetParam(), picture), {{-3, -3}, {27, 21}}), 1.0);
  if (GetParam() == std::string_view("CIGaussianBlur") ||
      GetParam() == std::string_view("CIHexagonalPixellate"))
    return;
  EXPECT_NEAR(shownAt(filtered(GetParam(), picture), 0, 7)[3], 127.5, 0.6);
}

INSTANTIATE_TEST_SUITE_P(Filters, AnyFilterTest, testing::ValuesIn(kNames));

class RandomFilterTest : public testing::TestWithParam<uint32_t> {};

TEST_P(RandomFilterTest, ChainsLookAsThePlainEvaluatorHasThem) {
  std::mt19937 random(GetParam());
  const auto number = [&](double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  };
  for (int i = 0; i < 25; ++i) {
    const int width = std::uniform_int_distribution<int>(1, 40)(random);
    const int height = std::uniform_int_distribution<int>(1, 33)(random);
    const auto seed = static_cast<uint32_t>(random());
    ImagePointer image =
        i % 2 ? opaqueNoise(width, height, seed) : seeThroughNoise(width, height, seed);
    image = image->translated(std::floor(number(-30, 10)), std::floor(number(-30, 10)));
    std::string said = std::to_string(width) + "x" + std::to_string(height);
    const int steps = 1 + i % 3;
    for (int k = 0; k < steps; ++k) {
      const char* const name = kNames[std::uniform_int_distribution<size_t>(0, 6)(random)];
      const FilterSettings settings{
          {kCIInputRadiusKey, number(0.3, 14)},
          {kCIInputSharpnessKey, number(0, 1)},
          {kCIInputIntensityKey, number(0, 1)},
          {kCIInputScaleKey, number(1, 12)},
          {kCIInputCenterKey, Vector(number(-9, 9), number(-9, 9))},
          {kCIInputAngleKey, number(-4, 4)},
          {kCIInputWidthKey, number(2, 15)},
          {"inputLightPosition", Vector(number(-40, 40), number(-40, 40), number(30, 200))},
          {"inputLightPointsAt", Vector(number(-30, 30), number(-30, 30), 0)},
          {"inputConcentration", number(0.1, 3)}};
      image = filtered(name, image, settings);
      said += std::string(" ") + name;
      if (i % 5 == 0) image = image->transformed(AffineTransform::rotation(0.2).scaled(0.9, 1.2));
    }
    // What one step is off, a step that makes contrast multiplies; a chain is held to the last one.
    const double most = steps == 1 ? 1.0 : 4.0;
    EXPECT_LE(largestError(image, {{-13, -11}, {29, 26}}), most) << i << ": " << said;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomFilterTest, testing::Range(1u, 7u));

}  // namespace
}  // namespace kestrel
