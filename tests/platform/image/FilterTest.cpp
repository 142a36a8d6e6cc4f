#include <gtest/gtest.h>
#include <kestrel/Filter.h>
#include <kestrel/FilterRegistry.h>

#include <algorithm>
#include <limits>
#include <thread>

#include "tests/platform/image/TestPictures.h"

namespace kestrel {
namespace {

std::shared_ptr<const Image> picture() { return Image::fromBitmap(test::noise(4, 3, 1)); }

std::shared_ptr<Filter> make(const char* name) { return FilterRegistry::filterWithName(name); }

TEST(FilterTest, ValuesStandUnderTheirKeys) {
  const auto filter = make("CIColorControls");
  filter->setValue(0.25, "inputSaturation");
  EXPECT_EQ(std::get<double>(filter->valueForKey(kCIInputSaturationKey)), 0.25);
}

TEST(FilterTest, NewFilterHasItsDefaults) {
  const auto filter = make("CIColorControls");
  EXPECT_EQ(std::get<double>(filter->valueForKey(kCIInputSaturationKey)), 1);
  EXPECT_EQ(std::get<double>(filter->valueForKey(kCIInputBrightnessKey)), 0);
  EXPECT_EQ(std::get<double>(filter->valueForKey(kCIInputContrastKey)), 1);
}

TEST(FilterTest, UnknownKeyIsKeptAndHasNoEffect) {
  const auto filter = make("CIColorInvert");
  filter->setValue(Vector(1, 2), "inputWhatever");
  EXPECT_EQ(std::get<Vector>(filter->valueForKey("inputWhatever")), Vector(1, 2));
  filter->setValue(picture(), kCIInputImageKey);
  EXPECT_TRUE(filter->outputImage());
}

TEST(FilterTest, KeyThatNobodySetHoldsNone) {
  EXPECT_TRUE(std::holds_alternative<std::monostate>(make("CIColorInvert")->valueForKey("x")));
}

TEST(FilterTest, SettingNoneTakesTheValueAway) {
  const auto filter = make("CIColorControls");
  filter->setValue(0.0, kCIInputSaturationKey);
  filter->setValue({}, kCIInputSaturationKey);
  EXPECT_TRUE(std::holds_alternative<std::monostate>(filter->valueForKey(kCIInputSaturationKey)));
  filter->setValue(picture(), kCIInputImageKey);
  EXPECT_TRUE(filter->outputImage()->bitmap()) << "the default, which changes nothing, holds again";
}

TEST(FilterTest, OutputImageIsAValue) {
  const auto filter = make("CIColorInvert");
  filter->setValue(picture(), kCIInputImageKey);
  EXPECT_TRUE(std::get<std::shared_ptr<const Image>>(filter->valueForKey(kCIOutputImageKey)));
}

TEST(FilterTest, MissingImageGivesNoOutput) {
  for (const std::string& name : FilterRegistry::filterNames()) {
    if (name.rfind("CI", 0) != 0) continue;
    EXPECT_FALSE(make(name.c_str())->outputImage()) << name;
  }
}

TEST(FilterTest, CompositeNeedsBothImages) {
  for (const char* const name : {"CISourceOverCompositing", "CISourceInCompositing"}) {
    const auto filter = make(name);
    filter->setValue(picture(), kCIInputImageKey);
    EXPECT_FALSE(filter->outputImage()) << name;
    filter->setValue(picture(), kCIInputBackgroundImageKey);
    EXPECT_TRUE(filter->outputImage()) << name;
    filter->setValue(std::shared_ptr<const Image>(), kCIInputImageKey);
    EXPECT_FALSE(filter->outputImage()) << name;
  }
}

TEST(FilterTest, ValueOfAnotherKindCountsAsNotSet) {
  const auto filter = make("CIColorControls");
  filter->setValue(Color::white(), kCIInputContrastKey);
  filter->setValue(std::numeric_limits<double>::quiet_NaN(), kCIInputBrightnessKey);
  filter->setValue(picture(), kCIInputImageKey);
  EXPECT_TRUE(filter->outputImage()->bitmap()) << "defaults change nothing";
}

TEST(FilterTest, NeutralSettingsVanish) {
  for (const char* const name : {"CIColorControls", "CIHueAdjust", "CIExposureAdjust"}) {
    const auto filter = make(name);
    const auto image = picture();
    filter->setValue(image, kCIInputImageKey);
    EXPECT_EQ(filter->outputImage(), image) << name;
  }
}

TEST(FilterTest, CopyIsIndependent) {
  const auto filter = make("CIColorControls");
  filter->setValue(0.5, kCIInputSaturationKey);
  const auto copy = filter->copy();
  EXPECT_EQ(copy->name(), "CIColorControls");
  EXPECT_EQ(std::get<double>(copy->valueForKey(kCIInputSaturationKey)), 0.5);
  copy->setValue(picture(), kCIInputImageKey);
  copy->setValue(2.0, kCIInputSaturationKey);
  EXPECT_EQ(std::get<double>(filter->valueForKey(kCIInputSaturationKey)), 0.5);
  EXPECT_FALSE(filter->outputImage());
}

TEST(FilterTest, ColorFiltersKeepTheExtent) {
  const auto filter = make("CISepiaTone");
  filter->setValue(picture()->translated(7, 8), kCIInputImageKey);
  EXPECT_EQ(filter->outputImage()->extent(), (Rect{{7, 8}, {4, 3}}));
}

TEST(FilterTest, CompositesCoverBothOrWhatBothCover) {
  for (const bool isOver : {true, false}) {
    const auto filter = make(isOver ? "CISourceOverCompositing" : "CISourceInCompositing");
    filter->setValue(picture()->translated(2, 1), kCIInputImageKey);
    filter->setValue(picture(), kCIInputBackgroundImageKey);
    EXPECT_EQ(filter->outputImage()->extent(),
              isOver ? (Rect{{0, 0}, {6, 4}}) : (Rect{{2, 1}, {2, 2}}));
  }
}

TEST(FilterRegistryTest, KnowsTheBuiltInFilters) {
  for (const char* const name :
       {"CIColorControls", "CIHueAdjust", "CIExposureAdjust", "CIColorInvert", "CISepiaTone",
        "CIColorMonochrome", "CISourceOverCompositing", "CISourceInCompositing", "CIGaussianBlur",
        "CISharpenLuminance", "CIBloom", "CIGloom", "CISpotLight", "CILineScreen",
        "CIHexagonalPixellate"}) {
    const auto filter = make(name);
    ASSERT_TRUE(filter) << name;
    EXPECT_EQ(filter->name(), name);
    EXPECT_FALSE(FilterRegistry::attributes(name)->displayName.empty());
  }
}

TEST(FilterRegistryTest, UnknownNameGivesNothing) {
  EXPECT_FALSE(make("CINoSuchFilter"));
  EXPECT_FALSE(FilterRegistry::attributes("CINoSuchFilter"));
}

TEST(FilterRegistryTest, EachFilterIsNew) {
  EXPECT_NE(make("CIColorInvert"), make("CIColorInvert"));
}

TEST(FilterRegistryTest, RegisteredConstructorMakesTheFilter) {
  const FilterAttributes attributes{"Test Filter", {std::string(kCICategoryVideo)}};
  FilterRegistry::registerFilterName(
      "TestFilter", [](const std::string&) { return make("CIColorInvert"); }, attributes);
  EXPECT_EQ(make("TestFilter")->name(), "CIColorInvert");
  EXPECT_EQ(FilterRegistry::attributes("TestFilter"), attributes);
  const auto names = FilterRegistry::filterNames();
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  EXPECT_TRUE(std::binary_search(names.begin(), names.end(), "TestFilter"));
}

TEST(FilterRegistryTest, EmptyConstructorChangesNothing) {
  FilterRegistry::registerFilterName("CIColorInvert", nullptr, {});
  EXPECT_TRUE(make("CIColorInvert"));
}

TEST(FilterRegistryTest, ServesThreadsWhileNamesAreRegistered) {
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 100; ++i) {
        FilterRegistry::registerFilterName("Thread" + std::to_string(t),
                                           [](const std::string&) { return make("CIHueAdjust"); },
                                           {});
        EXPECT_TRUE(make("CIColorControls"));
        EXPECT_FALSE(FilterRegistry::filterNames().empty());
      }
    });
  }
}

}  // namespace
}  // namespace kestrel
