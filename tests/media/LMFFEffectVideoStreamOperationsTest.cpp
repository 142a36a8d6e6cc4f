#include <gmock/gmock.h>
#include <kestrel/EffectManager.h>

#include "tests/media/EffectStream.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;

/// Equal but for what single precision costs.
void expectNear(const Rect& actual, const Rect& expected) {
  EXPECT_NEAR(actual.origin.x, expected.origin.x, 1e-4);
  EXPECT_NEAR(actual.origin.y, expected.origin.y, 1e-4);
  EXPECT_NEAR(actual.size.width, expected.size.width, 1e-4);
  EXPECT_NEAR(actual.size.height, expected.size.height, 1e-4);
}

double numberOf(const Filter& filter, std::string_view key) {
  const FilterValue value = filter.valueForKey(key);
  const auto* number = std::get_if<double>(&value);
  return number ? *number : -1e9;
}

std::vector<std::string> namesOf(const std::vector<std::shared_ptr<Filter>>& filters) {
  std::vector<std::string> names;
  for (const auto& filter : filters) names.push_back(filter->name());
  return names;
}

class LMFFEffectVideoStreamOperations : public testing::Test {
 protected:
  LMFFEffectVideoStream stream_;
};

// Rectangles.

TEST_F(LMFFEffectVideoStreamOperations, FittedRectangleTouchesTwoSides) {
  EXPECT_EQ(stream_.scaleRectIn({{5, 6}, {1920, 1080}}, {{0, 0}, {640, 480}}),
            (Rect{{0, 60}, {640, 360}}));
  EXPECT_EQ(stream_.scaleRectIn({{0, 0}, {100, 400}}, {{10, 20}, {200, 100}}),
            (Rect{{97.5, 20}, {25, 100}}));
}

TEST_F(LMFFEffectVideoStreamOperations, RatioHasSinglePrecision) {
  // 576 / 720 = 0.8, which is 0.800000011920929 in single precision.
  const double ratio = 0.800000011920928955078125;
  const Rect fitted = stream_.scaleRectIn({{0, 0}, {720, 576}}, {{0, 0}, {1280, 720}});
  EXPECT_EQ(fitted.size, (Size{720 / ratio, 576 / ratio}));
  EXPECT_EQ(fitted.origin.x, (1280 - 720 / ratio) * 0.5);
}

TEST_F(LMFFEffectVideoStreamOperations, EnlargementStopsAtAThousandTimes) {
  const double least = 0.001F;
  EXPECT_EQ(stream_.scaleRectIn({{0, 0}, {1, 2}}, {{0, 0}, {1e6, 1e6}}).size,
            (Size{1 / least, 2 / least}));
  EXPECT_EQ(stream_.scaleRectIn({}, {{0, 0}, {100, 50}}), (Rect{{50, 25}, {0, 0}}));
}

TEST_F(LMFFEffectVideoStreamOperations, PanscanRectangleIsAsWideWhateverItsHeight) {
  EXPECT_EQ(stream_.scaleRectPanscan({{0, 0}, {4, 3}}, {{0, 0}, {16, 9}}),
            (Rect{{0, -1.5}, {16, 12}}));
  EXPECT_EQ(stream_.scaleRectPanscan({{0, 0}, {32, 9}}, {{0, 0}, {16, 9}}),
            (Rect{{0, 2.25}, {16, 4.5}}));
}

TEST_F(LMFFEffectVideoStreamOperations, RectangleIsMultipliedAlongBothAxes) {
  EXPECT_EQ(stream_.scaleRect({{1, 2}, {3, 4}}, 2.0F, 0.5F), (Rect{{2, 1}, {6, 2}}));
}

// Zooming.

TEST_F(LMFFEffectVideoStreamOperations, ZoomedPictureHasTheTargetsCentreAndSize) {
  const auto image = patch(7, -3, 40, 30, kRedColor);
  const Rect rect{{10, 20}, {160, 90}};
  expectNear(stream_.image(image, 1, rect)->extent(), rect);
  expectNear(stream_.image(image, 2, rect)->extent(), (Rect{{30, 20}, {120, 90}}));
  expectNear(stream_.image(image, 5, rect)->extent(), (Rect{{30, 20}, {120, 90}}));
  expectNear(stream_.image(image, 3, rect)->extent(), rect);
  expectNear(stream_.image(image, 4, rect)->extent(), (Rect{{30, 20}, {120, 90}}));
  expectNear(stream_.image(image, 6, rect)->extent(), (Rect{{10, 5}, {160, 120}}));
}

TEST_F(LMFFEffectVideoStreamOperations, UnknownZoomTypeShrinksThePictureToNothing) {
  const auto image = stream_.image(patch(0, 0, 40, 30, kRedColor), 0, {{0, 0}, {160, 90}});
  ASSERT_TRUE(image);
  EXPECT_TRUE(isEmpty(image->extent()));
}

TEST_F(LMFFEffectVideoStreamOperations, PictureBelowOnePixelIsScaledAsOnePixel) {
  const auto image = stream_.image(patch(0, 0, 0.5, 0.5, kRedColor), 1, {{0, 0}, {100, 100}});
  EXPECT_EQ(image->extent().size, (Size{50, 50}));
}

TEST_F(LMFFEffectVideoStreamOperations, NothingZoomedIsNothing) {
  EXPECT_EQ(stream_.image(nullptr, 1, {{0, 0}, {16, 9}}), nullptr);
}

// Filters.

TEST_F(LMFFEffectVideoStreamOperations, NeutralSettingsAreTheIdentity) {
  const auto filters = stream_.colorFilter();
  ASSERT_THAT(namesOf(filters), ElementsAre("CIColorControls", "CIHueAdjust"));
  EXPECT_EQ(numberOf(*filters[0], kCIInputSaturationKey), 1);
  EXPECT_EQ(numberOf(*filters[0], kCIInputBrightnessKey), 0);
  EXPECT_EQ(numberOf(*filters[0], kCIInputContrastKey), 1);
  EXPECT_EQ(numberOf(*filters[1], kCIInputAngleKey), 0);
}

TEST_F(LMFFEffectVideoStreamOperations, ColourSettingsAreMappedInSinglePrecision) {
  stream_.setSaturation(0.7F);
  stream_.setBrightness(0.8F);
  stream_.setContrast(0.3F);
  stream_.setHue(1.0F);
  const auto filters = stream_.colorFilter();
  EXPECT_EQ(numberOf(*filters[0], kCIInputSaturationKey), 0.7F + 0.7F);
  EXPECT_EQ(numberOf(*filters[0], kCIInputBrightnessKey),
            static_cast<float>((static_cast<double>(0.8F) - 0.5) * 2));
  EXPECT_EQ(numberOf(*filters[0], kCIInputContrastKey), 0.3F * 4);
  EXPECT_EQ(numberOf(*filters[1], kCIInputAngleKey), 3.14F);
}

TEST_F(LMFFEffectVideoStreamOperations, ColourFiltersAreMadeAnewForEveryPicture) {
  const auto before = stream_.colorFilter();
  stream_.setSaturation(0);
  const auto after = stream_.colorFilter();
  EXPECT_NE(before[0], after[0]);
  EXPECT_EQ(numberOf(*before[0], kCIInputSaturationKey), 1);
  EXPECT_EQ(numberOf(*after[0], kCIInputSaturationKey), 0);
}

TEST_F(LMFFEffectVideoStreamOperations, CataloguesEffectComesLast) {
  stream_.setEffectName("Classical");
  EXPECT_THAT(namesOf(stream_.effectFilter()),
              ElementsAre("CIColorControls", "CIHueAdjust", "CISepiaTone"));
}

TEST_F(LMFFEffectVideoStreamOperations, UnknownEffectIsSkipped) {
  for (const char* name : {"no such effect", "", "effectNames"}) {
    stream_.setEffectName(name);
    EXPECT_EQ(stream_.effectFilter().size(), 2u) << name;
  }
}

TEST_F(LMFFEffectVideoStreamOperations, FiltersAreAppliedInTheirOrder) {
  // Inverted, then without colour: (1, 0, 0) becomes (0, 1, 1), of the luma 0.7874.
  const auto invert =
      std::get<std::shared_ptr<Filter>>(EffectManager::filterWithName("Color Invert"));
  stream_.setSaturation(0);
  const auto image =
      stream_.image(patch(0, 0, 4, 4, kRedColor), {invert, stream_.colorFilter()[0]});
  const Rgba color = rgbaAt(*rendered(image), 1, 1);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(color[i], 0.7874 * 255, 1);
}

TEST_F(LMFFEffectVideoStreamOperations, WithoutFiltersThePictureStays) {
  const auto image = patch(0, 0, 4, 4, kRedColor);
  EXPECT_EQ(stream_.image(image, std::vector<std::shared_ptr<Filter>>{}), image);
}

// Compositing.

TEST_F(LMFFEffectVideoStreamOperations, SourceOverLaysThePictureOnTheBackground) {
  const auto image =
      stream_.sourceOverImage(patch(0, 0, 4, 4, {1, 0, 0, 0.5}), patch(0, 0, 8, 4, {0, 0, 1, 1}));
  EXPECT_EQ(image->extent(), (Rect{{0, 0}, {8, 4}}));
  const auto bitmap = rendered(image);
  EXPECT_EQ(rgbaAt(*bitmap, 6, 1), kBlue);
  EXPECT_NEAR(rgbaAt(*bitmap, 1, 1)[0], 128, 1);
  EXPECT_NEAR(rgbaAt(*bitmap, 1, 1)[2], 128, 1);
}

TEST_F(LMFFEffectVideoStreamOperations, SourceInShowsThePictureWhereTheBackgroundIs) {
  const auto image =
      stream_.sourceInImage(patch(0, 0, 8, 8, kRedColor), patch(4, 0, 8, 8, {0, 0, 1, 0.5}));
  const auto bitmap = rendered(image, {{0, 0}, {8, 8}});
  EXPECT_EQ(rgbaAt(*bitmap, 2, 2), (Rgba{0, 0, 0, 0}));
  EXPECT_EQ(rgbaAt(*bitmap, 6, 2)[0], 255);
  EXPECT_NEAR(rgbaAt(*bitmap, 6, 2)[3], 128, 1);
}

TEST_F(LMFFEffectVideoStreamOperations, UnknownCompositionGivesNothing) {
  const auto image = patch(0, 0, 4, 4, kRedColor);
  EXPECT_EQ(stream_.composition("CINoSuchCompositing", image, image), nullptr);
}

TEST_F(LMFFEffectVideoStreamOperations, ColourHasNoBounds) {
  const auto image = stream_.imagewithColor({0, 1, 0, 1});
  EXPECT_TRUE(isInfinite(image->extent()));
  EXPECT_EQ(rgbaAt(*rendered(image, {{-1000, 5000}, {2, 2}}), 1, 1), kGreen);
}

TEST_F(LMFFEffectVideoStreamOperations, PictureIsMovedAndScaled) {
  const auto image = patch(1, 2, 4, 4, kRedColor);
  EXPECT_EQ(stream_.translateImage(image, {10, -3})->extent(), (Rect{{11, -1}, {4, 4}}));
  EXPECT_EQ(stream_.scaleImage(image, {2, 0.5})->extent(), (Rect{{2, 1}, {8, 2}}));
  EXPECT_EQ(stream_.translateImage(nullptr, {1, 1}), nullptr);
  EXPECT_EQ(stream_.scaleImage(nullptr, {1, 1}), nullptr);
}

}  // namespace
}  // namespace kestrel::test
