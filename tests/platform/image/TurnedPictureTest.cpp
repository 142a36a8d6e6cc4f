// Pictures under maps that keep neither axis.

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

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
using test::rendered;
using test::seeThroughNoise;

/// Turned by degrees about the origin, then scaled.
ImagePointer turned(const ImagePointer& picture, double degrees, double sx, double sy) {
  return picture->transformed(AffineTransform::rotation(degrees * std::numbers::pi / 180))
      ->scaled(sx, sy);
}

TEST(TurnedPicture, IsTheFormulaInAnySize) {
  for (const double scale : {2.7, 1.0, 0.9, 0.7, 0.55, 0.5, 0.3, 0.13}) {
    EXPECT_LE(largestError(turned(opaqueNoise(70, 50), 17, scale, scale), {{-40, -10}, {120, 70}}),
              1.0)
        << scale;
    EXPECT_LE(largestError(turned(seeThroughNoise(61, 47), -48, scale, 0.8 * scale),
                           {{-20, -50}, {90, 80}}),
              1.0)
        << scale;
  }
}

/// A picture with nothing that a picture of its size cannot show well.
ImagePointer waves() {
  return Image::fromBitmap(
      makeBitmap(120, 120,
                 [](int x, int y) -> Pixel {
                   const double wave = std::cos(0.9 * x + 0.35 * y) + std::cos(0.5 * x - 0.8 * y);
                   const auto v = static_cast<uint8_t>(std::lround(127.5 + 50 * wave));
                   return {v, v, v, 255};
                 }),
      Image::Alpha::kOpaque);
}

TEST(TurnedPicture, KeepsWhatIsFine) {
  // There and back again; means of squares would leave 31 dB.
  const ImagePointer source = waves()->translated(-60, -60);
  const Rect middle{{-40, -40}, {80, 80}};
  const auto there = rendered(turned(source, 8, 1, 1), {{-80, -80}, {160, 160}});
  const ImagePointer back =
      turned(Image::fromBitmap(there, Image::Alpha::kOpaque)->translated(-80, -80), -8, 1, 1);
  const auto before = rendered(source, middle);
  const auto after = rendered(back, middle);
  double sum = 0;
  for (int y = 0; y < 80; ++y) {
    for (int x = 0; x < 80; ++x) {
      const double d = before->row(y)[4 * x] - after->row(y)[4 * x];
      sum += d * d;
    }
  }
  EXPECT_GE(10 * std::log10(255.0 * 255 * 6400 / sum), 45.0);
}

TEST(TurnedPicture, AnyPartIsThatPartOfTheWhole) {
  std::mt19937 random(5);
  const auto within = [&](double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random);
  };
  for (int round = 0; round < 40; ++round) {
    const double scale = within(0.3, 1.8);
    ImagePointer picture = turned(round % 2 ? opaqueNoise(300, 190) : seeThroughNoise(300, 190),
                                  within(-180, 180), scale, scale * within(0.8, 1.2));
    const char* const kFilters[] = {nullptr,           "CIBloom",
                                    "CIGloom",         "CISpotLight",
                                    "CILineScreen",    "CIHexagonalPixellate",
                                    "CIGaussianBlur",  "CISharpenLuminance",
                                    "CIExposureAdjust"};
    if (const char* const name = kFilters[static_cast<size_t>(round) % std::size(kFilters)])
      picture = filtered(name, picture, {{kCIInputEVKey, 1.5}});
    const Rect whole{{-310, -300}, {640, 600}};
    for (int part = 0; part < 4; ++part) {
      const double x = std::floor(within(-310, 300));
      const double y = std::floor(within(-300, 280));
      const Rect rect{{x, y}, {std::floor(within(1, 320 - x)), std::floor(within(1, 300 - y))}};
      ASSERT_TRUE(isPartOfWhole(picture, whole, rect)) << round << ' ' << x << ' ' << y;
    }
  }
}

}  // namespace
}  // namespace kestrel
