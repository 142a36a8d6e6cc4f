#include <gmock/gmock.h>
#include <kestrel/ArrayFilter.h>
#include <kestrel/EffectManager.h>

#include <cmath>
#include <set>
#include <thread>

#include "tests/media/EffectStream.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;

const std::vector<std::string> kNames = {
    "1935",        "1955",         "1960",          "1970",       "Color Invert", "Exposure",
    "Blur",        "Sharpen",      "Vibrance",      "Big Softie", "SpotLight",    "Line Screen",
    "Black White", "Blackout B&W", "Color Control", "Monochrome", "Glow",         "Gloom",
    "Bloom",       "Pixellate",    "Bright",        "Copper",     "Classical",    "New Effection"};

std::shared_ptr<Filter> effect(const std::string& name) {
  const auto found = EffectManager::filterWithName(name);
  const auto* filter = std::get_if<std::shared_ptr<Filter>>(&found);
  return filter ? *filter : nullptr;
}

/// What an effect's filter holds; none without such an effect.
FilterValue valueOf(const char* name, std::string_view key) {
  const auto filter = effect(name);
  return filter ? filter->valueForKey(key) : FilterValue{};
}

double numberOf(const Filter& filter, std::string_view key) {
  return std::get<double>(filter.valueForKey(key));
}

TEST(EffectManager, NamesAreInTheCataloguesOrder) {
  EXPECT_EQ(EffectManager::allFilterNames(), kNames);
}

TEST(EffectManager, IsOneForTheProcess) {
  EXPECT_EQ(&EffectManager::manager(), &EffectManager::manager());
}

TEST(EffectManager, EveryEffectHasAFilter) {
  const auto filters = EffectManager::allFilters();
  ASSERT_EQ(filters.size(), kNames.size());
  for (size_t i = 0; i < filters.size(); ++i)
    EXPECT_EQ(filters[i]->name(), effect(kNames[i])->name()) << kNames[i];
}

TEST(EffectManager, EveryEffectIsDescribedInWordsOfItsOwn) {
  std::set<std::string> descriptions;
  for (const std::string& name : kNames) descriptions.insert(EffectManager::descriptionOf(name));
  EXPECT_EQ(descriptions.size(), kNames.size());
  EXPECT_EQ(EffectManager::descriptionOf("Classical"), "sepia, as an old photograph");
  for (const char* name : {"", "effectNames", "blur"})
    EXPECT_EQ(EffectManager::descriptionOf(name), "") << name;
}

TEST(EffectManager, NameOfTheListGivesACopyOfTheNames) {
  auto found = EffectManager::filterWithName("effectNames");
  auto* names = std::get_if<std::vector<std::string>>(&found);
  ASSERT_TRUE(names);
  EXPECT_EQ(*names, kNames);
  names->clear();
  EXPECT_EQ(EffectManager::allFilterNames(), kNames);
}

TEST(EffectManager, UnknownNameGivesNothing) {
  EXPECT_EQ(EffectManager::filterWithName("no such effect"), EffectManager::Effect{});
  EXPECT_EQ(EffectManager::filterWithName(""), EffectManager::Effect{});
}

TEST(EffectManager, EveryCallGivesANewFilter) {
  const auto one = effect("Exposure");
  const auto two = effect("Exposure");
  EXPECT_NE(one, two);
  one->setValue(patch(0, 0, 4, 4, kRedColor), kCIInputImageKey);
  one->setValue(1.0, kCIInputEVKey);
  EXPECT_EQ(two->outputImage(), nullptr);
  EXPECT_EQ(numberOf(*two, kCIInputEVKey), 3);
  EXPECT_EQ(numberOf(*effect("Exposure"), kCIInputEVKey), 3);
}

TEST(EffectManager, ParametersAreTheCatalogues) {
  const struct {
    const char* name;
    const char* filter;
    std::vector<std::pair<std::string_view, float>> numbers;
  } rows[] = {
      {"1935",
       "CIColorControls",
       {{"inputSaturation", 0}, {"inputBrightness", 0.00949F}, {"inputContrast", 1.353F}}},
      {"1955",
       "CIColorControls",
       {{"inputSaturation", 0}, {"inputBrightness", 0.3592F}, {"inputContrast", 1.6258F}}},
      {"1960",
       "CIColorControls",
       {{"inputSaturation", 0.664F}, {"inputBrightness", 0.2781F}, {"inputContrast", 1.407F}}},
      {"1970",
       "CIColorControls",
       {{"inputSaturation", 0.8281F}, {"inputBrightness", 0.1744F}, {"inputContrast", 1.5788F}}},
      {"Color Invert", "CIColorInvert", {}},
      {"Exposure", "CIExposureAdjust", {{"inputEV", 3}}},
      {"Blur", "CIGaussianBlur", {{"inputRadius", 10}}},
      {"Sharpen", "CISharpenLuminance", {{"inputSharpness", 10}}},
      {"Vibrance",
       "CIColorControls",
       {{"inputSaturation", 1.58F}, {"inputBrightness", -0.02F}, {"inputContrast", 1.08F}}},
      {"Big Softie",
       "CIColorControls",
       {{"inputSaturation", 0.718F}, {"inputBrightness", 0}, {"inputContrast", 1}}},
      {"SpotLight", "CISpotLight", {{"inputBrightness", 4.5F}, {"inputConcentration", 1.5F}}},
      {"Line Screen",
       "CILineScreen",
       {{"inputAngle", 180}, {"inputWidth", 5}, {"inputSharpness", 0.7F}}},
      {"Black White", "CIColorMonochrome", {{"inputIntensity", 1}}},
      {"Color Control", "CIHueAdjust", {{"inputAngle", 3.14F}}},
      {"Monochrome", "CIColorMonochrome", {{"inputIntensity", 1}}},
      {"Gloom", "CIGloom", {{"inputRadius", 30}, {"inputIntensity", 1}}},
      {"Bloom", "CIBloom", {{"inputRadius", 40}, {"inputIntensity", 1}}},
      {"Pixellate", "CIHexagonalPixellate", {{"inputScale", 8}}},
      {"Bright",
       "CIColorControls",
       {{"inputSaturation", 1.9F}, {"inputBrightness", 0.3F}, {"inputContrast", 1.78F}}},
      {"Copper", "CIColorMonochrome", {{"inputIntensity", 1}}},
      {"Classical", "CISepiaTone", {{"inputIntensity", 1}}},
      {"New Effection", "CIColorMonochrome", {{"inputIntensity", 1}}},
  };
  for (const auto& row : rows) {
    const auto filter = effect(row.name);
    ASSERT_TRUE(filter) << row.name;
    EXPECT_EQ(filter->name(), row.filter);
    for (const auto& [key, value] : row.numbers)
      EXPECT_EQ(numberOf(*filter, key), static_cast<double>(value)) << row.name << " " << key;
  }
}

TEST(EffectManager, ColoursAreWholeStepsInDoublePrecision) {
  const auto expectColor = [](const char* name, const Color& color) {
    EXPECT_EQ(valueOf(name, kCIInputColorKey), FilterValue(color)) << name;
  };
  expectColor("Black White", {0.6, 0.6, 0.6, 1});
  expectColor("Monochrome", {0.5176470588235295, 97 / 255.0, 0.6, 1});
  expectColor("Copper", {43 / 255.0, 222 / 255.0, 248 / 255.0, 1});
  expectColor("New Effection", {252 / 255.0, 146 / 255.0, 41 / 255.0, 1});
  expectColor("SpotLight", {1, 1, 1, 1});
}

TEST(EffectManager, VectorsAreTheCatalogues) {
  EXPECT_EQ(valueOf("SpotLight", "inputLightPosition"), FilterValue(Vector(400, 400, 1000)));
  EXPECT_EQ(valueOf("SpotLight", "inputLightPointsAt"), FilterValue(Vector(200, 200, 0)));
  EXPECT_EQ(valueOf("Line Screen", "inputCenter"), FilterValue(Vector(0, 0)));
  EXPECT_EQ(valueOf("Pixellate", "inputCenter"), FilterValue(Vector(0, 0)));
}

TEST(EffectManager, TwoEffectsAreChains) {
  const auto members = [](const char* name) {
    std::vector<std::string> names;
    for (const auto& filter : std::dynamic_pointer_cast<ArrayFilter>(effect(name))->filters())
      names.push_back(filter->name());
    return names;
  };
  EXPECT_THAT(members("Blackout B&W"), ElementsAre("CIColorMonochrome", "CIExposureAdjust"));
  EXPECT_THAT(members("Glow"), ElementsAre("CIGloom", "CIColorControls"));
  const auto glow = std::dynamic_pointer_cast<ArrayFilter>(effect("Glow"))->filters();
  ASSERT_EQ(glow.size(), 2u);
  EXPECT_EQ(numberOf(*glow[0], kCIInputRadiusKey), 30);
  EXPECT_EQ(numberOf(*glow[0], kCIInputIntensityKey), 1);
  EXPECT_EQ(numberOf(*glow[1], kCIInputSaturationKey), 1);
  EXPECT_EQ(numberOf(*glow[1], kCIInputBrightnessKey), 0.25);
  EXPECT_EQ(numberOf(*glow[1], kCIInputContrastKey), static_cast<double>(2.2F));
}

TEST(EffectManager, BlackoutIsMonochromeBrightenedByItsStops) {
  const auto blackout = effect("Blackout B&W");
  blackout->setValue(patch(0, 0, 4, 4, {0.1, 0.2, 0.05, 1}), kCIInputImageKey);
  const double luma = 0.2126 * 0.1 + 0.7152 * 0.2 + 0.0722 * 0.05;
  // On film: more light, but none that is cut off.
  const double light = std::pow(0.6 * luma, 2.4);
  const double gain = std::sqrt(std::exp2(2.5478));
  const double more = gain * light / (1 + (gain - 1) * light);
  const double expected = std::pow(more, 1 / 2.4) * 255;
  const Rgba color = rgbaAt(*rendered(blackout->outputImage()), 1, 1);
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(color[i], expected, 1);
}

TEST(EffectManager, CopiesOfAChainHaveMembersOfTheirOwn) {
  const auto one = std::dynamic_pointer_cast<ArrayFilter>(effect("Blackout B&W"));
  const auto two = std::dynamic_pointer_cast<ArrayFilter>(effect("Blackout B&W"));
  ASSERT_EQ(one->filters().size(), 2u);
  for (size_t i = 0; i < 2; ++i) EXPECT_NE(one->filters()[i], two->filters()[i]);
}

TEST(EffectManager, DictionaryHoldsFiltersAndNames) {
  const auto effects = EffectManager::manager().effects();
  EXPECT_EQ(effects.size(), kNames.size() + 1);
  EXPECT_EQ(std::get<std::vector<std::string>>(effects.at("effectNames")), kNames);
  EXPECT_NE(std::get<std::shared_ptr<Filter>>(effects.at("Blur")), effect("Blur"));
}

TEST(EffectManager, NamesWithoutAFilterAreSkipped) {
  const auto whole = EffectManager::manager().effects();
  auto changed = whole;
  changed["Blur"] = std::shared_ptr<Filter>();
  changed.erase("Gloom");
  EffectManager::manager().setEffects(changed);
  EXPECT_EQ(EffectManager::filterWithName("Blur"), EffectManager::Effect{});
  EXPECT_EQ(EffectManager::allFilters().size(), kNames.size() - 2);
  EXPECT_EQ(EffectManager::allFilterNames(), kNames);
  EffectManager::manager().setEffects(whole);
}

TEST(EffectManager, MayBeAskedFromSeveralThreads) {
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (const std::string& name : EffectManager::allFilterNames()) EXPECT_TRUE(effect(name));
    });
  }
}

}  // namespace
}  // namespace kestrel::test
