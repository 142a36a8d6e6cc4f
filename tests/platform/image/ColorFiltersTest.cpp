#include <gtest/gtest.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/ImageContext.h>

#include <numbers>

#include "platform/image/filters/ColorControls.h"
#include "tests/platform/image/FilterPictures.h"
#include "tests/platform/image/ReferenceEvaluator.h"
#include "tests/platform/image/TestPictures.h"

namespace kestrel {
namespace {

using test::Pixel;

using Settings = std::vector<std::pair<std::string_view, FilterValue>>;

std::shared_ptr<const Image> filtered(const char* name, std::shared_ptr<const Image> input,
                                      const Settings& settings) {
  const auto filter = FilterRegistry::filterWithName(name);
  for (const auto& [key, value] : settings) filter->setValue(value, key);
  filter->setValue(std::move(input), kCIInputImageKey);
  return filter->outputImage();
}

/// What becomes of one pixel.
Pixel applied(const char* name, const Pixel& pixel, const Settings& settings = {}) {
  const auto bitmap = test::makeBitmap(1, 1, [&](int, int) { return pixel; });
  const auto image = filtered(name, Image::fromBitmap(bitmap), settings);
  return test::pixelAt(*ImageContext().bitmapImage(image, image->extent()), 0, 0);
}

TEST(ColorControlsTest, NoSaturationLeavesLuminance) {
  // 0.2126 × 200 + 0.7152 × 100 + 0.0722 × 50 = 117.65
  EXPECT_EQ(applied("CIColorControls", {200, 100, 50, 255}, {{kCIInputSaturationKey, 0.0}}),
            (Pixel{118, 118, 118, 255}));
}

TEST(ColorControlsTest, SaturationMovesAwayFromLuminance) {
  // L = 117.65: 117.65 + 1.5 × (200 - 117.65) = 241.2, and so on.
  EXPECT_EQ(applied("CIColorControls", {200, 100, 50, 255}, {{kCIInputSaturationKey, 1.5}}),
            (Pixel{241, 91, 16, 255}));
}

TEST(ColorControlsTest, ContrastTurnsAboutTheMiddle) {
  // (c - 127.5) × 1.5 + 127.5 = 86.25, 161.25 and, clamped, -48.75
  EXPECT_EQ(applied("CIColorControls", {100, 150, 10, 255}, {{kCIInputContrastKey, 1.5}}),
            (Pixel{86, 161, 0, 255}));
}

TEST(ColorControlsTest, BrightnessIsAdded) {
  EXPECT_EQ(applied("CIColorControls", {0, 100, 250, 255}, {{kCIInputBrightnessKey, 0.2}}),
            (Pixel{51, 151, 255, 255}));
}

TEST(ColorControlsTest, SaturationComesBeforeContrastAndBrightness) {
  // L = 117.654: (117.654 - 127.5) × 1.5 + 127.5 + 25.5 = 138.2
  EXPECT_EQ(
      applied(
          "CIColorControls", {200, 100, 50, 255},
          {{kCIInputSaturationKey, 0.0}, {kCIInputContrastKey, 1.5}, {kCIInputBrightnessKey, 0.1}}),
      (Pixel{138, 138, 138, 255}));
}

TEST(ColorControlsTest, ShadowsWithASlopeAreNotCutOff) {
  // The line 2.2 c - 0.35 and the parabola 1.8286 c² + 0.6 c touch at 0.4375. Of 20, 0.0784:
  // 0.0583; of 100, 0.3922: 0.5165; of 150, 0.5882: 0.9441.
  EXPECT_EQ(
      applied(
          "CIColorControls", {20, 100, 150, 255},
          {{kCIInputBrightnessKey, 0.25}, {kCIInputContrastKey, 2.2}, {kInputShadowSlopeKey, 0.6}}),
      (Pixel{15, 132, 241, 255}));
  for (const double slope : {0.3, 0.6, 1.4})
    EXPECT_LE(test::largestError(
                  test::filtered("CIColorControls", test::seeThroughNoise(40, 30),
                                 {{kCIInputContrastKey, 1.8}, {kInputShadowSlopeKey, slope}}),
                  {{-1, -1}, {42, 32}}),
              1.0)
        << slope;
}

TEST(HueAdjustTest, ThirdOfATurnMovesRedToGreen) {
  EXPECT_EQ(
      applied("CIHueAdjust", {200, 10, 60, 255}, {{kCIInputAngleKey, 2 * std::numbers::pi / 3}}),
      (Pixel{60, 200, 10, 255}));
}

TEST(HueAdjustTest, GreysDoNotMove) {
  for (const double angle : {0.1, 1.0, -2.0, 3.14})
    EXPECT_EQ(applied("CIHueAdjust", {77, 77, 77, 255}, {{kCIInputAngleKey, angle}}),
              (Pixel{77, 77, 77, 255}))
        << angle;
}

TEST(HueAdjustTest, HalfATurnReflectsAboutTheMean) {
  // The mean is 100: c becomes 2 × 100 - c.
  EXPECT_EQ(applied("CIHueAdjust", {150, 90, 60, 255}, {{kCIInputAngleKey, std::numbers::pi}}),
            (Pixel{50, 110, 140, 255}));
}

TEST(ExposureAdjustTest, OneStopDownHalvesTheLight) {
  // The light of 100 is 0.1274, half of it shows as 71.
  EXPECT_EQ(applied("CIExposureAdjust", {20, 100, 200, 255}, {{kCIInputEVKey, -1.0}}),
            (Pixel{11, 71, 146, 255}));
}

TEST(ExposureAdjustTest, MoreLightFollowsTheFilm) {
  // Of 200, 0.5583: 1.4142 × 0.5583 / (1 + 0.4142 × 0.5583) = 0.6412, which shows as 212.
  EXPECT_EQ(applied("CIExposureAdjust", {20, 100, 200, 255}, {{kCIInputEVKey, 1.0}}),
            (Pixel{23, 113, 212, 255}));
}

TEST(ExposureAdjustTest, ShadowsAreLiftedNoFurtherThanMidtones) {
  // 2^(3 / 2 / 2.4) = 1.542
  for (const int shadow : {4, 10, 20, 40}) {
    const auto value = static_cast<uint8_t>(shadow);
    EXPECT_NEAR(applied("CIExposureAdjust", {value, 0, 0, 255}, {{kCIInputEVKey, 3.0}})[0],
                shadow * 1.542, 0.51 + 0.01 * shadow)
        << shadow;
  }
}

TEST(ExposureAdjustTest, NothingBelowWhiteBecomesWhite) {
  for (const double ev : {1.0, 2.5478, 3.0}) {
    EXPECT_EQ(applied("CIExposureAdjust", {0, 250, 255, 255}, {{kCIInputEVKey, ev}})[0], 0);
    EXPECT_LT(applied("CIExposureAdjust", {0, 250, 255, 255}, {{kCIInputEVKey, ev}})[1], 255);
    EXPECT_EQ(applied("CIExposureAdjust", {0, 250, 255, 255}, {{kCIInputEVKey, ev}})[2], 255);
  }
}

TEST(ExposureAdjustTest, IsTheFormulaWithAlpha) {
  for (const double ev : {-2.0, 0.7, 3.0})
    EXPECT_LE(test::largestError(test::filtered("CIExposureAdjust", test::seeThroughNoise(40, 30),
                                                {{kCIInputEVKey, ev}}),
                                 {{-1, -1}, {42, 32}}),
              1.0)
        << ev;
}

TEST(ColorInvertTest, IsTheNegative) {
  EXPECT_EQ(applied("CIColorInvert", {0, 100, 255, 255}), (Pixel{255, 155, 0, 255}));
}

TEST(ColorInvertTest, LeavesAlpha) {
  EXPECT_EQ(applied("CIColorInvert", {0, 100, 255, 128}), (Pixel{255, 155, 0, 128}));
  EXPECT_EQ(applied("CIColorInvert", {0, 100, 255, 0}), (Pixel{0, 0, 0, 0}));
}

TEST(SepiaToneTest, IsTheMatrix) {
  // 0.393 × 100 + 0.769 × 50 + 0.189 × 20 = 81.5; 0.349 … = 72.6; 0.272 … = 56.5
  EXPECT_EQ(applied("CISepiaTone", {100, 50, 20, 255}), (Pixel{82, 73, 57, 255}));
  EXPECT_EQ(applied("CISepiaTone", {100, 50, 20, 255}, {{kCIInputIntensityKey, 0.0}}),
            (Pixel{100, 50, 20, 255}));
}

TEST(ColorMonochromeTest, IsLuminanceTimesColor) {
  // L = 117.654
  EXPECT_EQ(applied("CIColorMonochrome", {200, 100, 50, 255},
                    {{kCIInputColorKey, Color{1, 0.5, 0.25, 1}}}),
            (Pixel{118, 59, 29, 255}));
  EXPECT_EQ(applied("CIColorMonochrome", {200, 100, 50, 255},
                    {{kCIInputColorKey, Color{1, 0.5, 0.25, 1}}, {kCIInputIntensityKey, 0.5}}),
            (Pixel{159, 79, 40, 255}));
}

TEST(ColorFiltersTest, ValuesBetweenTwoFiltersAreNotClamped) {
  const auto bitmap = test::makeBitmap(1, 1, [](int, int) { return Pixel{200, 100, 50, 255}; });
  const auto brighter =
      filtered("CIColorControls", Image::fromBitmap(bitmap), {{kCIInputContrastKey, 4.0}});
  const auto image = filtered("CIColorControls", brighter, {{kCIInputContrastKey, 0.25}});
  EXPECT_EQ(test::pixelAt(*ImageContext().bitmapImage(image, image->extent()), 0, 0),
            (Pixel{200, 100, 50, 255}));
}

TEST(ColorFiltersTest, TenInARowShowNoBanding) {
  const auto ramp = test::makeBitmap(256, 1, [](int x, int) {
    return Pixel{static_cast<uint8_t>(x), static_cast<uint8_t>(x), static_cast<uint8_t>(x), 255};
  });
  auto image = Image::fromBitmap(ramp);
  for (int i = 0; i < 5; ++i) {
    image = filtered("CIColorControls", image, {{kCIInputContrastKey, 0.7}});
    image = filtered("CIColorControls", image, {{kCIInputContrastKey, 1 / 0.7}});
  }
  const auto result = ImageContext().bitmapImage(image, image->extent());
  for (int x = 0; x < 256; ++x) ASSERT_EQ(test::pixelAt(*result, x, 0)[1], x);
}

TEST(ColorFiltersTest, AbsurdValuesDoNoHarm) {
  for (const double value : {1e300, -1e300, 1e9}) {
    for (const char* const name : {"CIColorControls", "CIHueAdjust", "CIExposureAdjust",
                                   "CISepiaTone", "CIColorMonochrome"}) {
      const Pixel pixel = applied(name, {200, 100, 50, 255},
                                  {{kCIInputSaturationKey, value},
                                   {kCIInputContrastKey, value},
                                   {kCIInputBrightnessKey, value},
                                   {kCIInputAngleKey, value},
                                   {kCIInputEVKey, value},
                                   {kCIInputIntensityKey, value}});
      EXPECT_EQ(pixel[3], 255) << name << value;
    }
  }
}

}  // namespace
}  // namespace kestrel
